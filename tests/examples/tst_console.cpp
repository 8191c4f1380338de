// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The console runs scripts.
#include "tests/examples/consolechild.h"
#include "tests/support/libpqowners.h"

#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>

#include <csignal>

class tst_Console : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();

    void resultsOfAScript();
    void lastSemicolonMayBeMissing();
    void headStandsOnceInAFile();
    void exitStatus_data();
    void exitStatus();
    void scriptEndsAtItsFirstError();
    void scriptKeepsGoing();
    void errorsNameTheirPlace();
    void help();

    void boundValues_data();
    void boundValues();
    void boundValuesAreForOneStatement();
    void moreValuesThanPlaceholdersAreRefused_data();
    void moreValuesThanPlaceholdersAreRefused();
    void placeholdersOutsideCommentsAndQuotes();
    void bodyOfAFunctionArrivesAsItIs();

    void tables();
    void keys();
    void timing();

    void transactionIsTheCommands();
    void transactionThatFailed();
    void transactionAtTheEndIsRolledBack();
    void returningIsSaidToBeRolledBack();
    void temporaryTableBlocksReadsUntilReconnected();
    void copyToTheClientLeavesTheConnectionUsable();

    void exportWritesCsv();
    void exportIsForOneStatement();
    void exportThatFailsLeavesTheFileThatWas_data();
    void exportThatFailsLeavesTheFileThatWas();

    void brokenText_data();
    void brokenText();
    void typeThatTheDriverDoesNotTake();
    void serverDiesWhileAResultIsWalked();
    void interruptedScript();
    void scriptInterruptedInAStatementWithoutRows();
    void fullDisk();
    void noHistoryWithoutATerminal();
    void passwords();
    void brokenPassword_data();
    void brokenPassword();

private:
    ConsoleAnswer run(const QByteArray &script, const QStringList &arguments = QStringList()) const
    {
        return runConsole(consoleArguments(cluster, arguments), script);
    }
    QString file(const QString &name) const { return folder->filePath(name); }
    QByteArray contents(const QString &name) const;
    void write(const QString &name, const QByteArray &bytes) const;

    PgCluster cluster;
    QScopedPointer<QTemporaryDir> folder;
};

void tst_Console::initTestCase()
{
    QVERIFY2(cluster.start(), qPrintable(cluster.why()));
    cluster.run("CREATE TABLE item (id int PRIMARY KEY, name text, price numeric(8,2))");
    cluster.run("INSERT INTO item VALUES (1, 'apple', 1.5), (2, '日本', NULL), (3, NULL, 12)");
    cluster.run("CREATE ROLE clerk LOGIN PASSWORD 'let me in' IN ROLE passworded");
}

void tst_Console::init()
{
    folder.reset(new QTemporaryDir);
    QVERIFY(folder->isValid());
}

QByteArray tst_Console::contents(const QString &name) const
{
    QFile read(file(name));
    return read.open(QIODevice::ReadOnly) ? read.readAll() : QByteArray("cannot be read");
}

void tst_Console::write(const QString &name, const QByteArray &bytes) const
{
    QFile written(file(name));
    QVERIFY(written.open(QIODevice::WriteOnly) && written.write(bytes) == bytes.size());
}

void tst_Console::resultsOfAScript()
{
    const ConsoleAnswer answer = run("CREATE TABLE made (a int); -- a table\n"
                                     "INSERT INTO made VALUES (1), (2);\n"
                                     "SELECT id, name,\n price FROM item ORDER BY id;\n"
                                     "SELECT a FROM made WHERE a > 5;\n"
                                     "DROP TABLE made;\n");
    QCOMPARE(answer.errors, QString());
    QCOMPARE(answer.output, QString("(done)\n"
                                    "(2 rows changed)\n"
                                    " id | name  | price\n"
                                    "----+-------+-------\n"
                                    "  1 | apple |  1.50\n"
                                    "  2 | 日本  |  NULL\n"
                                    "  3 | NULL  | 12.00\n"
                                    "(3 rows)\n"
                                    " a\n"
                                    "---\n"
                                    "(0 rows)\n"
                                    "(done)\n"));
    QCOMPARE(answer.status, 0);
}

void tst_Console::lastSemicolonMayBeMissing()
{
    const ConsoleAnswer answer = run("SELECT 1 AS one");
    QCOMPARE(answer.output, QString(" one\n-----\n   1\n(1 row)\n"));
    QCOMPARE(answer.status, 0);
}

void tst_Console::headStandsOnceInAFile()
{
    const ConsoleAnswer answer = run("SELECT generate_series(1, 300) AS number;\n");
    const QStringList lines = answer.output.split('\n');
    QCOMPARE(lines.size(), 2 + 300 + 1 + 1);
    QCOMPARE(lines.filter("number").size(), 1);
    QCOMPARE(lines.at(2 + 299), QString("    300"));
    QCOMPARE(lines.at(2 + 300), QString("(300 rows)"));
}

void tst_Console::exitStatus_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QByteArray>("script");
    QTest::addColumn<int>("status");
    const QStringList none;
    const QStringList command{"--command", "SELECT 1"};
    QTest::newRow("empty script") << none << QByteArray() << 0;
    QTest::newRow("good script") << none << QByteArray("SELECT 1;") << 0;
    QTest::newRow("good script, by its sign") << QStringList{"-"} << QByteArray("SELECT 1;") << 0;
    QTest::newRow("good command") << command << QByteArray("SELECT nothing;") << 0;
    QTest::newRow("\\quit in front of an error") << none << QByteArray("\\quit\nnonsense;") << 0;
    QTest::newRow("bad statement") << none << QByteArray("SELECT nothing;") << 1;
    QTest::newRow("bad statement at the end") << none << QByteArray("SELECT nothing") << 1;
    QTest::newRow("error in a later page")
        << none << QByteArray("SELECT 1 / (200 - g) FROM generate_series(1, 300) g;") << 1;
    QTest::newRow("bad command") << none << QByteArray("\\nothing") << 1;
    QTest::newRow("quote that is not closed") << none << QByteArray("SELECT 'a;\n") << 1;
    QTest::newRow("comment that is not closed") << none << QByteArray("/* a;\n") << 1;
    QTest::newRow("unknown option") << QStringList{"--nothing"} << QByteArray() << 2;
    QTest::newRow("no port") << QStringList{"--port", "many"} << QByteArray() << 2;
    QTest::newRow("port too high") << QStringList{"--port", "65536"} << QByteArray() << 2;
    QTest::newRow("two scripts") << QStringList{"a", "b"} << QByteArray() << 2;
    QTest::newRow("script and command") << command + QStringList{"-"} << QByteArray() << 2;
    QTest::newRow("no script there") << QStringList{"/nowhere/a.sql"} << QByteArray() << 2;
    QTest::newRow("folder as script") << QStringList{"/"} << QByteArray() << 1;
    QTest::newRow("no server there") << QStringList{"--host", "/nowhere"} << QByteArray() << 3;
    QTest::newRow("no database") << QStringList{"--database", "nothing"} << QByteArray() << 3;
    QTest::newRow("no driver") << QStringList{"--driver", "NOTHING"} << QByteArray() << 3;
    QTest::newRow("bad connect option") << QStringList{"--options", "a=b"} << QByteArray() << 3;
    QTest::newRow("another key") << QStringList{"--driver", "QPSQL"} << QByteArray("SELECT 1;")
                                 << 0;
}

void tst_Console::exitStatus()
{
    QFETCH(QStringList, arguments);
    QFETCH(QByteArray, script);
    QFETCH(int, status);
    const ConsoleAnswer answer = run(script, arguments);
    QCOMPARE(answer.status, status);
    QCOMPARE(answer.errors.isEmpty(), status == 0);
}

void tst_Console::scriptEndsAtItsFirstError()
{
    const ConsoleAnswer answer = run("SELECT nothing; SELECT 1 AS one;\nSELECT 2 AS two;\n");
    QCOMPARE(answer.output, QString());
    QCOMPARE(answer.status, 1);
}

void tst_Console::scriptKeepsGoing()
{
    const ConsoleAnswer answer = run("SELECT nothing; SELECT 1 AS one;\n", {"--keep-going"});
    QCOMPARE(answer.output, QString(" one\n-----\n   1\n(1 row)\n"));
    QCOMPARE(answer.status, 1);
}

void tst_Console::errorsNameTheirPlace()
{
    write("setup.sql", "SELECT 1;\n\nSELECT nothing\nFROM nowhere;\n");
    const ConsoleAnswer answer = run(QByteArray(), {file("setup.sql")});
    const QStringList lines = answer.errors.split('\n');
    QCOMPARE(lines.at(0), file("setup.sql") + ":4: the statement failed");
    QCOMPARE(lines.at(1), QString("  driver:   ERROR:  relation \"nowhere\" does not exist"));
    QCOMPARE(lines.at(2), QString("            LINE 2: FROM nowhere"));
    QVERIFY(lines.at(4).startsWith("  database: "));
    QVERIFY(run("\nSELECT nothing;\n").errors.startsWith("line 2: the statement failed\n"));
}

void tst_Console::help()
{
    const ConsoleAnswer options = runConsole({"--help"});
    QVERIFY(options.output.contains("Exit status: 0 all went well"));
    QCOMPARE(options.status, 0);
    const ConsoleAnswer version = runConsole({"--version"});
    QCOMPARE(version.output, QString("dorvy-console " DORVY_VERSION "\n"));
    const ConsoleAnswer commands = run("\\help");
    for (const char *name : {"bind", "tables", "key", "export", "timing", "reconnect", "quit"}) {
        QVERIFY2(commands.output.contains(QString("  \\%1 ").arg(name)), name);
    }
    QVERIFY(commands.output.contains("SELECT oid::int8"));
}

void tst_Console::boundValues_data()
{
    QTest::addColumn<QByteArray>("values");
    QTest::addColumn<QByteArray>("expressions");
    QTest::addColumn<QString>("row");
    QTest::newRow("number") << QByteArray("5") << QByteArray("?::int + 1") << " 6";
    QTest::newRow("by number") << QByteArray("5 7") << QByteArray("$2::int, $1::int, $2::int")
                               << " 7 | 5 | 7";
    QTest::newRow("text") << QByteArray("'a b' 'it''s'") << QByteArray("?::text, ?::text")
                          << " a b | it's";
    QTest::newRow("NULL and the text")
        << QByteArray("NULL null 'NULL'") << QByteArray("?::int, ?::text, ?::text")
        << " NULL | NULL | 'NULL'";
    QTest::newRow("date") << QByteArray("2024-02-29") << QByteArray("?::date + 1") << " 2024-03-01";
    QTest::newRow("negative") << QByteArray("-1.5") << QByteArray("?::float8") << " -1.5";
    QTest::newRow("cast") << QByteArray("c4ca4238-a0b9-2382-0dcc-509a6f75849b")
                          << QByteArray("CAST(? AS text)::uuid")
                          << " c4ca4238-a0b9-2382-0dcc-509a6f75849b";
}

void tst_Console::boundValues()
{
    QFETCH(QByteArray, values);
    QFETCH(QByteArray, expressions);
    QFETCH(QString, row);
    const ConsoleAnswer answer = run("\\bind " + values + "\nSELECT " + expressions + ";\n");
    QCOMPARE(answer.errors, QString());
    const auto squeezed = [](const QString &text) { return text.simplified(); };
    QCOMPARE(squeezed(answer.output.split('\n').value(2)), squeezed(row));
}

void tst_Console::boundValuesAreForOneStatement()
{
    const ConsoleAnswer answer = run("\\bind 5\nSELECT ?::int AS a;\nSELECT ?::int AS b;\n");
    QVERIFY(answer.output.startsWith(" a\n---\n 5\n(1 row)\n"));
    QVERIFY(!answer.output.contains("b"));
    QVERIFY(answer.errors.startsWith("line 3: the statement failed\n"));
    QCOMPARE(answer.status, 1);
}

void tst_Console::moreValuesThanPlaceholdersAreRefused_data()
{
    QTest::addColumn<QByteArray>("statement");
    QTest::addColumn<QString>("numbers");
    QTest::newRow("marks") << QByteArray("INSERT INTO item (id, name) VALUES (?, ?)") << "3, not 2";
    QTest::newRow("numbers") << QByteArray("INSERT INTO item (id, name) VALUES ($1, $2)")
                             << "3, not 2";
    QTest::newRow("none") << QByteArray("INSERT INTO item VALUES (8)") << "3, not 0";
    QTest::newRow("transaction") << QByteArray("BEGIN") << "3, not 0";
}

void tst_Console::moreValuesThanPlaceholdersAreRefused()
{
    QFETCH(QByteArray, statement);
    QFETCH(QString, numbers);
    const ConsoleAnswer answer = run("\\bind 8 \"a b\"\n" + statement + ";\n");
    QCOMPARE(answer.errors, "line 2: more values are bound than the statement has placeholders: " +
                                numbers + "\n");
    QCOMPARE(answer.output, QString());
    QCOMPARE(answer.status, 1);
    QCOMPARE(cluster.value("SELECT count(*) FROM item"), QString("3"));
}

// Qt, which looks for the placeholders, knows none of these.
void tst_Console::placeholdersOutsideCommentsAndQuotes()
{
    const ConsoleAnswer answer = run("\\bind 7\n"
                                     "SELECT $$don't? \\$$ AS a, E'\\'?\\\\' AS b, -- isn't it?\n"
                                     "/* ' ? */ ?::int AS c;\n");
    QCOMPARE(answer.errors, QString());
    QCOMPARE(answer.output.split('\n').value(2), QString(" don't? \\ | '?\\ | 7"));
}

void tst_Console::bodyOfAFunctionArrivesAsItIs()
{
    const ConsoleAnswer answer =
        run("CREATE FUNCTION answer() RETURNS text LANGUAGE plpgsql AS $$\n"
            "BEGIN -- why?; it's so\n"
            "  RETURN E'\\x41' || '?';\n"
            "END $$;\n"
            "SELECT answer() AS a;\n");
    QCOMPARE(answer.output, QString("(done)\n a\n----\n A?\n(1 row)\n"));
    QCOMPARE(cluster.run("SELECT prosrc FROM pg_proc WHERE proname = 'answer'"),
             QStringList("\nBEGIN -- why?; it's so\n  RETURN E'\\x41' || '?';\nEND "));
    cluster.run("DROP FUNCTION answer()");
}

void tst_Console::tables()
{
    const ConsoleAnswer answer = run("CREATE SCHEMA store; CREATE TABLE store.shelf (a int);\n"
                                     "CREATE VIEW names AS SELECT name FROM item;\n\\tables\n"
                                     "DROP VIEW names; DROP SCHEMA store CASCADE;\n");
    QVERIFY2(answer.output.contains(" name        | kind\n"
                                    "-------------+-------\n"
                                    " item        | table\n"
                                    " store.shelf | table\n"
                                    " names       | view\n"
                                    "(3 rows)\n"),
             qPrintable(answer.output));
    QCOMPARE(answer.status, 0);
}

void tst_Console::keys()
{
    const ConsoleAnswer answer =
        run("CREATE TABLE two (a int, b text, c int, PRIMARY KEY (b, a));\n"
            "\\key item\n\\key two\n\\key nothing\nDROP TABLE two;\n");
    QCOMPARE(answer.output, QString("(done)\n"
                                    " column | type\n"
                                    "--------+------\n"
                                    " id     | int\n"
                                    "(1 row)\n"
                                    " column | type\n"
                                    "--------+------------\n"
                                    " b      | QByteArray\n"
                                    " a      | int\n"
                                    "(2 rows)\n"
                                    "nothing has no primary key, or is no table\n"
                                    "(done)\n"));
}

void tst_Console::timing()
{
    const ConsoleAnswer answer = run("\\timing on\nSELECT 1 AS a;\nSET work_mem = '5MB';\n"
                                     "\\timing\nSELECT 1 AS a;\n");
    const QRegularExpression expected("^timing is on\n a\n---\n 1\n\\(1 row, \\d+\\.\\d{3} ms\\)\n"
                                      "\\(done, \\d+\\.\\d{3} ms\\)\n"
                                      "timing is off\n a\n---\n 1\n\\(1 row\\)\n$");
    QVERIFY2(expected.match(answer.output).hasMatch(), qPrintable(answer.output));
}

// A SELECT's connection has a transaction of its own, which BEGIN as a plain text does not mean.
void tst_Console::transactionIsTheCommands()
{
    const ConsoleAnswer answer = run("BEGIN;\nINSERT INTO item VALUES (4);\n"
                                     "SELECT count(*) AS unseen FROM item;\nROLLBACK;\n"
                                     "begin work;\nINSERT INTO item VALUES (5);\nEND;\n"
                                     "START TRANSACTION ISOLATION LEVEL SERIALIZABLE;\n"
                                     "INSERT INTO item VALUES (6);\nCOMMIT;\n");
    QCOMPARE(answer.errors, QString());
    QVERIFY(answer.output.contains(" unseen\n--------\n      3\n"));
    QCOMPARE(cluster.run("SELECT id FROM item WHERE id > 3 ORDER BY 1"), (QStringList{"5", "6"}));
    cluster.run("DELETE FROM item WHERE id > 3");
}

void tst_Console::transactionThatFailed()
{
    const ConsoleAnswer answer =
        run("BEGIN;\nINSERT INTO item VALUES (4);\nINSERT INTO item VALUES (4);\n"
            "INSERT INTO item VALUES (5);\nCOMMIT;\nROLLBACK;\nINSERT INTO item VALUES (6);\n",
            {"--keep-going"});
    QCOMPARE(answer.errors.count("the statement failed"), 3);
    QCOMPARE(answer.output, QString("(done)\n(1 row changed)\n(done)\n(1 row changed)\n"));
    QCOMPARE(cluster.run("SELECT id FROM item WHERE id > 3"), QStringList{"6"});
    cluster.run("DELETE FROM item WHERE id > 3");
}

void tst_Console::transactionAtTheEndIsRolledBack()
{
    const ConsoleAnswer answer = run("BEGIN;\nINSERT INTO item VALUES (4);\n");
    QCOMPARE(answer.errors, QString("note: the open transaction is rolled back\n"));
    QCOMPARE(answer.status, 0);
    QCOMPARE(cluster.value("SELECT count(*) FROM item"), QString("3"));
}

void tst_Console::returningIsSaidToBeRolledBack()
{
    const ConsoleAnswer answer = run("INSERT INTO item VALUES (4) RETURNING id;\n");
    QVERIFY(answer.output.startsWith(" id\n----\n  4\n"));
    QVERIFY(answer.errors.startsWith("note: what gives rows is a read and is rolled back"));
    QCOMPARE(cluster.value("SELECT count(*) FROM item"), QString("3"));
}

void tst_Console::temporaryTableBlocksReadsUntilReconnected()
{
    const ConsoleAnswer answer = run("CREATE TEMPORARY TABLE t (a int);\nSELECT * FROM t;\n"
                                     "SELECT 1 AS a;\n\\reconnect\nSELECT 2 AS b;\n",
                                     {"--keep-going"});
    QCOMPARE(answer.errors.count("note: reads do not work on this connection any more"), 2);
    QCOMPARE(answer.output, QString("(done)\nconnected anew\n b\n---\n 2\n(1 row)\n"));
}

void tst_Console::copyToTheClientLeavesTheConnectionUsable()
{
    const ConsoleAnswer answer = run(
        "BEGIN;\nINSERT INTO item VALUES (4);\nCOPY item TO STDOUT;\nCOMMIT;\n", {"--keep-going"});
    QCOMPARE(answer.errors.count("the statement failed"), 1);
    QCOMPARE(cluster.run("SELECT id FROM item WHERE id > 3"), QStringList{"4"});
    cluster.run("DELETE FROM item WHERE id > 3");
}

void tst_Console::exportWritesCsv()
{
    const ConsoleAnswer answer = run(
        "\\export '" + file("a file.csv").toUtf8() +
        "'\nSELECT id, name, 'say \"a\", b' AS \"a,b\", ''::text AS e FROM item ORDER BY id;\n");
    QCOMPARE(answer.errors, QString());
    QCOMPARE(answer.output, QString("(3 rows in %1)\n").arg(file("a file.csv")));
    QCOMPARE(contents("a file.csv"), QByteArray("id,name,\"a,b\",e\r\n"
                                                "1,apple,\"say \"\"a\"\", b\",\"\"\r\n"
                                                "2,日本,\"say \"\"a\"\", b\",\"\"\r\n"
                                                "3,,\"say \"\"a\"\", b\",\"\"\r\n"));
}

void tst_Console::exportIsForOneStatement()
{
    const QByteArray name = file("a.csv").toUtf8();
    const ConsoleAnswer answer = run("\\export " + name + "\nSELECT 1 AS a;\nSELECT 2 AS b;\n");
    QCOMPARE(contents("a.csv"), QByteArray("a\r\n1\r\n"));
    QVERIFY(answer.output.endsWith(" b\n---\n 2\n(1 row)\n"));
}

void tst_Console::exportThatFailsLeavesTheFileThatWas_data()
{
    QTest::addColumn<QByteArray>("statement");
    QTest::newRow("rejected") << QByteArray("SELECT nothing;");
    QTest::newRow("fails in a later page")
        << QByteArray("SELECT 1 / (20000 - g) FROM generate_series(1, 30000) g;");
    QTest::newRow("a command") << QByteArray("SET work_mem = '5MB';");
    QTest::newRow("none") << QByteArray();
}

void tst_Console::exportThatFailsLeavesTheFileThatWas()
{
    QFETCH(QByteArray, statement);
    write("a.csv", "of yesterday\n");
    const ConsoleAnswer answer =
        run("\\export " + file("a.csv").toUtf8() + "\n" + statement + "\n");
    QCOMPARE(answer.status, 1);
    QVERIFY(!answer.errors.isEmpty());
    QCOMPARE(contents("a.csv"), QByteArray("of yesterday\n"));
    QCOMPARE(QDir(folder->path()).entryList(QDir::Files | QDir::Hidden), QStringList{"a.csv"});
}

void tst_Console::brokenText_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::newRow("byte of no character") << QByteArray("SELECT '\xff' AS a;");
    QTest::newRow("half a character") << QByteArray("SELECT 1 AS a; -- \xd0");
    QTest::newRow("Latin-1") << QByteArray("SELECT 'caf\xe9' AS a;");
    QTest::newRow("zero byte") << QByteArray("SELECT 1 AS a\0;", 15);
}

void tst_Console::brokenText()
{
    QFETCH(QByteArray, line);
    const ConsoleAnswer answer =
        run("SELECT 1 AS first;\n" + line + "\nSELECT 2 AS second;\n", {"--keep-going"});
    QCOMPARE(answer.output, QString(" first\n-------\n     1\n(1 row)\n"));
    QCOMPARE(answer.errors, QString("line 2: not UTF-8, or a zero byte; the script ends here\n"));
    QCOMPARE(answer.status, 1);
}

void tst_Console::typeThatTheDriverDoesNotTake()
{
    const ConsoleAnswer answer = run("SELECT 1 AS a;\nSELECT oid FROM pg_class;\n");
    QVERIFY(answer.output.endsWith("(1 row)\n"));
    QVERIFY(answer.errors.contains("unknown ptype (26)"));
    QVERIFY(answer.errors.contains("SELECT oid::int8"));
    QCOMPARE(answer.status, 4);
}

void tst_Console::serverDiesWhileAResultIsWalked()
{
    ConsoleChild child(consoleArguments(cluster));
    // A page is more than two pipes hold, what is read of it at first and what then waits. So the console asks for
    // the next one when all is read, and all of the server has gone: both of its connections end at once.
    child.type("SELECT repeat('x', 4000) || generate_series(1, 10000000) AS text;\nSELECT 1;\n");
    QVERIFY(child.waitForFirstOutput());
    cluster.stop("immediate");
    const ConsoleAnswer answer = child.finish();
    QVERIFY2(cluster.restart(), qPrintable(cluster.why()));
    QVERIFY(answer.output.startsWith(" text\n"));
    QVERIFY2(answer.errors.contains("line 1: the statement failed\n"), qPrintable(answer.errors));
    QVERIFY2(answer.errors.endsWith("line 1: the connection is lost\n"), qPrintable(answer.errors));
    QCOMPARE(answer.status, 3);
}

void tst_Console::interruptedScript()
{
    ConsoleChild child(consoleArguments(cluster, {"--keep-going"}), {"PGAPPNAME=interrupted"});
    child.type("\\export " + file("a.csv").toUtf8() +
               "\nSELECT generate_series(1, 1000000000);\nSELECT 1 AS a;\n");
    // The text passes by on the connection of the commands before there is the one that reads.
    QTRY_COMPARE(cluster.value("SELECT count(*) = 2 AND bool_or(query LIKE '%1000000000%') FROM "
                               "pg_stat_activity WHERE application_name = 'interrupted'"),
                 QString("t"));
    QCOMPARE(kill(static_cast<pid_t>(child.processId()), SIGINT), 0);
    const ConsoleAnswer answer = child.finish();
    QCOMPARE(answer.errors, QString("line 2: interrupted\n"));
    QCOMPARE(answer.output, QString());
    QCOMPARE(answer.status, 1);
    QVERIFY(QDir(folder->path()).isEmpty());
}

// Such a statement runs to its end, as nothing comes from the server before; what follows does not.
void tst_Console::scriptInterruptedInAStatementWithoutRows()
{
    RawConnectionPtr holder(PQconnectdb(cluster.conninfo().constData()));
    const ResultPtr locked(PQexec(holder.get(), "SELECT pg_advisory_lock(1)"));
    ConsoleChild child(consoleArguments(cluster, {"--keep-going"}));
    child.type("DO $$BEGIN PERFORM pg_advisory_lock(1); END$$;\nCREATE TABLE never (a int);\n");
    QTRY_COMPARE(
        cluster.value("SELECT count(*) FROM pg_stat_activity WHERE wait_event = 'advisory'"),
        QString("1"));
    QCOMPARE(kill(static_cast<pid_t>(child.processId()), SIGINT), 0);
    QTRY_VERIFY(!catches(child.processId(), SIGINT)); // it has arrived
    holder.reset();
    const ConsoleAnswer answer = child.finish();
    QCOMPARE(answer.errors, QString("line 1: interrupted\n"));
    QCOMPARE(answer.output, QString("(done)\n"));
    QCOMPARE(answer.status, 1);
    QCOMPARE(cluster.value("SELECT count(*) FROM pg_class WHERE relname = 'never'"), QString("0"));
}

void tst_Console::fullDisk()
{
    QProcess process;
    process.setStandardOutputFile("/dev/full");
    process.start(DORVY_CONSOLE,
                  consoleArguments(cluster, {"--command", "SELECT generate_series(1, 9999)"}));
    QVERIFY(process.waitForFinished(ConsoleChild::LimitMsec));
    QVERIFY(process.readAllStandardError().contains("standard output cannot be written"));
    QCOMPARE(process.exitCode(), 1);
}

void tst_Console::noHistoryWithoutATerminal()
{
    runConsole(consoleArguments(cluster), "SELECT 1;\n", {"XDG_DATA_HOME=" + folder->path()});
    QVERIFY(QDir(folder->path()).isEmpty());
}

void tst_Console::passwords()
{
    const QStringList clerk = consoleArguments(cluster, {"--user", "clerk"});
    const QByteArray script = "SELECT current_user::text AS a;\n";
    const QString good = " a\n-------\n clerk\n(1 row)\n";
    QCOMPARE(runConsole(clerk, script).status, 3);
    QCOMPARE(runConsole(clerk, script, {"PGPASSWORD=let me in"}).output, good);
    const QStringList stdinToo = clerk + QStringList{"--password-stdin"};
    QCOMPARE(runConsole(stdinToo, "let me in\n" + script).output, good);
    QCOMPARE(runConsole(stdinToo, "let me out\n" + script).status, 3);
    QCOMPARE(runConsole(stdinToo, QByteArray()).status, 3);
}

void tst_Console::brokenPassword_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::newRow("Latin-1") << QByteArray("caf\xe9\n");
    QTest::newRow("zero byte") << QByteArray("let\0me in\n", 11);
}

// Nothing is sent in its place: the server would let the console in without one.
void tst_Console::brokenPassword()
{
    QFETCH(QByteArray, line);
    const ConsoleAnswer answer =
        runConsole(consoleArguments(cluster, {"--password-stdin"}), line + "SELECT 1 AS a;\n");
    QCOMPARE(answer.errors, QString("the password is not UTF-8, or has a zero byte\n"));
    QCOMPARE(answer.output, QString());
    QCOMPARE(answer.status, 3);
}

QTEST_GUILESS_MAIN(tst_Console)
#include "tst_console.moc"
