// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The console with a user at a terminal.
#include "tests/examples/consolechild.h"
#include "tests/examples/terminal.h"

#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>

#include <csignal>
#include <memory>

class tst_ConsoleTerminal : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY2(cluster.start(), qPrintable(cluster.why())); }
    void init();
    void cleanup() { console.reset(); }

    void promptTellsTheTransaction();
    void promptTellsWhatIsOpen();
    void otherLettersCanBeTyped();
    void controlCClearsTheStatement();
    void controlCEndsTheResult();
    void secondControlCEndsTheProgram();
    void controlDEndsTheProgram();
    void historyIsKept();
    void headOnEachPage();
    void exportShowsHowFarItIs();
    void lostConnectionIsMadeAnew();
    void passwordIsNotShown();
    void controlCAtThePasswordLeavesTheTerminalAsItWas();
    void scriptOnATerminalHasNoPrompt();

private:
    void start(const QStringList &arguments = QStringList());
    bool answers(const QByteArray &keys, const QByteArray &text)
    {
        console->type(keys);
        return console->waitFor(text);
    }

    static constexpr char ControlC[] = "\x03";
    static constexpr char ControlD[] = "\x04";
    static constexpr char ControlP[] = "\x10"; // the line before

    PgCluster cluster;
    QScopedPointer<QTemporaryDir> home;
    std::unique_ptr<Terminal> console;
};

void tst_ConsoleTerminal::init()
{
    home.reset(new QTemporaryDir);
    QVERIFY(home->isValid());
}

void tst_ConsoleTerminal::start(const QStringList &arguments)
{
    console = std::make_unique<Terminal>(
        DORVY_CONSOLE, consoleArguments(cluster, arguments),
        QStringList{"HOME=" + home->path(), "XDG_DATA_HOME=" + home->path()});
}

void tst_ConsoleTerminal::promptTellsTheTransaction()
{
    start();
    QVERIFY(console->waitFor("dorvy-console " DORVY_VERSION));
    QVERIFY(console->waitFor("postgres=> "));
    QVERIFY(answers("BEGIN;\n", "postgres*> "));
    QVERIFY(answers("SAVEPOINT a;\n", "postgres*> "));
    QVERIFY(answers("SELECT nothing;\n", "postgres!> "));
    QVERIFY(answers("ROLLBACK TO SAVEPOINT a;\n", "postgres*> "));
    QVERIFY(answers("INSERT INTO nothing VALUES (1);\n", "postgres!> "));
    QVERIFY(answers("COMMIT;\n", "postgres!> "));
    QVERIFY(answers("ROLLBACK\nTO a;\n", "postgres*> "));
    for (const QByteArray chained : {"ROLLBACK AND CHAIN;\n", "COMMIT AND CHAIN;\n"}) {
        QVERIFY(answers("SELECT nothing;\n", "postgres!> "));
        QVERIFY(answers(chained, "postgres*> "));
    }
    QVERIFY(answers("SELECT nothing;\n", "postgres!> "));
    QVERIFY(answers("ROLLBACK;\n", "postgres=> "));
    QVERIFY(answers("BEGIN READ ONLY;\n", "postgres*> "));
    QVERIFY(answers("SELECT 1/0;\n", "postgres*> ")); // a read that runs fails elsewhere
    QVERIFY(answers("COMMIT;\n", "postgres=> "));
    QVERIFY(answers("COMMIT;\n", "postgres=> "));
    QVERIFY(answers("\\quit\n", ""));
    QCOMPARE(console->finish(), 0);
}

void tst_ConsoleTerminal::promptTellsWhatIsOpen()
{
    start();
    QVERIFY(answers("SELECT 'a\n", "postgres'> "));
    QVERIFY(answers("b', (\n", "postgres(> "));
    QVERIFY(answers("1) /*\n", "postgres/> "));
    QVERIFY(answers("*/ AS \"a\n", "postgres\"> "));
    QVERIFY(answers("b\", $$\n", "postgres$> "));
    QVERIFY(answers("$$\n", "postgres-> "));
    QVERIFY(answers(";\n", "(1 row, "));
    QVERIFY(console->waitFor("postgres=> "));
}

void tst_ConsoleTerminal::otherLettersCanBeTyped()
{
    start();
    QVERIFY(console->waitFor("postgres=> "));
    QVERIFY(answers("SELECT 'Привет, 日本' AS a;\n", " Привет, 日本\r\n(1 row, "));
}

void tst_ConsoleTerminal::controlCClearsTheStatement()
{
    start();
    QVERIFY(console->waitFor("postgres=> "));
    QVERIFY(answers("SELECT 'a\n", "postgres'> "));
    QVERIFY(answers(QByteArray("b") + ControlC, "^C\r\npostgres=> "));
    QVERIFY(answers(QByteArray("nonsense") + ControlC, "^C\r\npostgres=> "));
    QVERIFY(answers("SELECT 5 AS five;\n", "five\r\n------\r\n    5\r\n"));
    QVERIFY(!console->screen().contains("ERROR"));
}

void tst_ConsoleTerminal::controlCEndsTheResult()
{
    start();
    QVERIFY(answers("BEGIN;\n", "postgres*> "));
    QVERIFY(answers("SELECT generate_series(1, 1000000000) AS number;\n", " 300\r\n"));
    QVERIFY(answers(ControlC, " rows, interrupted, "));
    QVERIFY(console->waitFor("postgres*> "));
    QVERIFY(answers("SELECT 5 AS five;\n", "five\r\n------\r\n    5\r\n"));
    QCOMPARE(cluster.value("SELECT count(*) FROM pg_stat_activity WHERE state <> 'idle' AND query "
                           "LIKE '%generate%' AND pid <> pg_backend_pid()"),
             QString("0"));
}

void tst_ConsoleTerminal::secondControlCEndsTheProgram()
{
    start();
    QVERIFY(console->waitFor("postgres=> "));
    console->type("SELECT pg_sleep(600)::text;\n");
    QTRY_COMPARE(
        cluster.value("SELECT count(*) FROM pg_stat_activity WHERE wait_event = 'PgSleep'"),
        QString("1"));
    QVERIFY(catches(console->processId(), SIGINT));
    console->type(ControlC);
    QTRY_VERIFY(!catches(console->processId(), SIGINT)); // the first has arrived
    console->type(ControlC);
    QCOMPARE(console->finish(), -SIGINT);
    cluster.run(
        "SELECT pg_terminate_backend(pid) FROM pg_stat_activity WHERE wait_event = 'PgSleep'");
}

void tst_ConsoleTerminal::controlDEndsTheProgram()
{
    start();
    QVERIFY(answers("BEGIN;\n", "postgres*> "));
    QVERIFY(answers(ControlD, "note: the open transaction is rolled back"));
    QCOMPARE(console->finish(), 0);
}

void tst_ConsoleTerminal::historyIsKept()
{
    for (const char *keys : {"SELECT 42 AS kept;\n", ControlP}) {
        start();
        QVERIFY(console->waitFor("postgres=> "));
        QVERIFY(answers(keys, "SELECT 42 AS kept;"));
        console->type(keys == ControlP ? "\n" : "");
        QVERIFY(console->waitFor(" kept\r\n------\r\n   42\r\n"));
        QVERIFY(console->waitFor("postgres=> "));
        QVERIFY(answers(ControlD, ""));
        QCOMPARE(console->finish(), 0);
    }
    const QFileInfo history(home->filePath("dorvy-console/history"));
    QVERIFY(history.exists());
    QCOMPARE(history.permissions() & (QFile::ReadGroup | QFile::ReadOther), QFile::Permissions());
}

void tst_ConsoleTerminal::headOnEachPage()
{
    start();
    QVERIFY(answers("SELECT generate_series(1, 300) AS number;\n", "(300 rows, "));
    QCOMPARE(console->screen().count(" number\r\n"), 3);
}

void tst_ConsoleTerminal::exportShowsHowFarItIs()
{
    start();
    const QString file = home->filePath("a.csv");
    QVERIFY(answers("\\export " + file.toUtf8() + "\n", "postgres=> "));
    QVERIFY(answers("SELECT generate_series(1, 1000);\n", "[<=>                 ] 64 rows, "));
    QVERIFY(console->waitFor("\r\x1b[K(1000 rows in "));
    QVERIFY(QFileInfo::exists(file));
}

void tst_ConsoleTerminal::lostConnectionIsMadeAnew()
{
    start();
    QVERIFY(answers("BEGIN;\n", "postgres*> "));
    cluster.stop();
    QVERIFY(answers("INSERT INTO nothing VALUES (1);\n", "the connection is lost"));
    QVERIFY(console->waitFor("postgres=> "));
    QVERIFY(answers("SELECT 1;\n", "the connection is lost"));
    QVERIFY(console->waitFor("postgres=> "));
    QVERIFY(answers("\\tables\n", "the catalog cannot be read"));
    QVERIFY(answers("\\timing off\n", "timing is off"));
    QVERIFY2(cluster.restart(), qPrintable(cluster.why()));
    QVERIFY(answers("SELECT 6 AS six;\n", "connected anew"));
    QVERIFY(console->waitFor(" six\r\n-----\r\n   6\r\n"));
    QVERIFY(!console->screen().contains("database not open")); // Qt's warning
}

void tst_ConsoleTerminal::passwordIsNotShown()
{
    start({"--password-stdin"});
    QVERIFY(console->waitFor("Password: "));
    QVERIFY(answers("secret\n", "postgres=> ")); // the server asks for none
    QVERIFY(!console->screen().contains("secret"));
}

// It is a character of the password, as with others who ask for one.
void tst_ConsoleTerminal::controlCAtThePasswordLeavesTheTerminalAsItWas()
{
    start({"--password-stdin"});
    QVERIFY(console->waitFor("Password: "));
    QVERIFY(answers(QByteArray("se") + ControlC + "cret\n", "postgres=> "));
    QVERIFY(answers("SELECT 9 AS nine;\n", "SELECT 9 AS nine;")); // shown as it is typed
    QVERIFY(!console->screen().contains("cret"));
}

void tst_ConsoleTerminal::scriptOnATerminalHasNoPrompt()
{
    start({"-"});
    QVERIFY(answers("SELECT 7 AS seven;\n", "     7\r\n(1 row)\r\n"));
    console->type(ControlD);
    QCOMPARE(console->finish(), 0);
    QVERIFY(!console->screen().contains("=>"));
}

QTEST_GUILESS_MAIN(tst_ConsoleTerminal)
#include "tst_consoleterminal.moc"
