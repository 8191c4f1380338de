// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The console takes scripts apart.
#include "engine/splitter.h"

#include <QtTest/QtTest>

#include <ctime>

class tst_ConsoleSplitter : public QObject
{
    Q_OBJECT

private slots:
    void pieces_data();
    void pieces();
    void openAtTheEndOfALine_data();
    void openAtTheEndOfALine();
    void clearedInTheMidstOfAQuote();
    void restIsTheStatementWithoutItsEnd();
    void timeGrowsAsTheScriptDoes_data();
    void timeGrowsAsTheScriptDoes();
};

// All lines of script; a command is told from a statement by its backslash.
static QStringList split(const QString &script, Splitter *splitter)
{
    QStringList texts;
    for (const QString &line : script.split('\n')) {
        for (const Piece &piece : splitter->feed(line)) {
            texts += piece.text;
            if ((piece.kind == Piece::Command) != piece.text.startsWith('\\')) {
                texts += "of the wrong kind";
            }
        }
    }
    return texts;
}

void tst_ConsoleSplitter::pieces_data()
{
    QTest::addColumn<QString>("script");
    QTest::addColumn<QStringList>("texts");

    QTest::newRow("one") << "SELECT 1;" << QStringList{"SELECT 1"};
    QTest::newRow("two on a line") << "SELECT 1; SELECT 2;" << QStringList{"SELECT 1", "SELECT 2"};
    QTest::newRow("one on two lines") << "SELECT\n 1;" << QStringList{"SELECT\n 1"};
    QTest::newRow("empty ones") << ";; ;\n;" << QStringList();
    QTest::newRow("without an end") << "SELECT 1" << QStringList();

    QTest::newRow("in quotes") << "SELECT ';';" << QStringList{"SELECT ';'"};
    QTest::newRow("in a quoted name")
        << "SELECT 1 AS \"a;b\";" << QStringList{"SELECT 1 AS \"a;b\""};
    QTest::newRow("behind a doubled quote") << "SELECT 'it''s;';" << QStringList{"SELECT 'it''s;'"};
    QTest::newRow("in quotes over lines") << "SELECT 'a;\n;b';" << QStringList{"SELECT 'a;\n;b'"};
    QTest::newRow("backslash in plain quotes")
        << "SELECT '\\'; SELECT 2;" << QStringList{"SELECT '\\'", "SELECT 2"};
    QTest::newRow("escaped quote") << "SELECT E'a\\';b';" << QStringList{"SELECT E'a'';b'"};
    QTest::newRow("escaped quote, lower case") << "SELECT e'\\';';" << QStringList{"SELECT e''';'"};
    QTest::newRow("escaped backslash")
        << "SELECT E'\\\\'; SELECT 2;" << QStringList{"SELECT E'\\\\'", "SELECT 2"};
    QTest::newRow("doubled quote between escapes")
        << "SELECT E'a''\\';';" << QStringList{"SELECT E'a'''';'"};
    QTest::newRow("name that ends in e")
        << "SELECT name'\\'; SELECT 2;" << QStringList{"SELECT name'\\'", "SELECT 2"};

    QTest::newRow("dollar quotes") << "SELECT $$a;b$$;" << QStringList{"SELECT  E'a;b'"};
    QTest::newRow("dollar quotes with a tag")
        << "SELECT $x$a;$$;$y$;$x$;" << QStringList{"SELECT  E'a;$$;$y$;'"};
    QTest::newRow("dollar quotes over lines")
        << "DO $$\nBEGIN;\n$$;" << QStringList{"DO  E'\nBEGIN;\n'"};
    QTest::newRow("quotes in dollar quotes")
        << "SELECT $$it's ? \\$$;" << QStringList{"SELECT  E'it''s ? \\\\'"};
    QTest::newRow("touching a word") << "AS$$a$$;" << QStringList{"AS$$a$$"};
    QTest::newRow("placeholders") << "SELECT $1, $2;" << QStringList{"SELECT $1, $2"};
    QTest::newRow("dollar signs in a name")
        << "SELECT a$b$; SELECT c$b$;" << QStringList{"SELECT a$b$", "SELECT c$b$"};

    QTest::newRow("comment to the line's end")
        << "SELECT 1 -- don't; ?\n+ 2;" << QStringList{"SELECT 1 \n+ 2"};
    QTest::newRow("comment") << "SELECT 1/* don't; ? */+ 2;" << QStringList{"SELECT 1 + 2"};
    QTest::newRow("nested comment")
        << "SELECT 1 /* a /* b; */ c; */+ 2;" << QStringList{"SELECT 1  + 2"};
    QTest::newRow("comment over lines") << "SELECT /* a;\n;b */ 1;" << QStringList{"SELECT  \n 1"};
    QTest::newRow("comment signs in quotes")
        << "SELECT '--', '/*';" << QStringList{"SELECT '--', '/*'"};
    QTest::newRow("nothing but comments") << "-- a;\n/* b; */;" << QStringList();
    QTest::newRow("operators of the signs")
        << "SELECT 1 - -1, 4 / 2 * 3;" << QStringList{"SELECT 1 - -1, 4 / 2 * 3"};

    QTest::newRow("in parentheses")
        << "CREATE RULE r AS ON INSERT TO t DO (SELECT 1; SELECT 2); SELECT 3;"
        << QStringList{"CREATE RULE r AS ON INSERT TO t DO (SELECT 1; SELECT 2)", "SELECT 3"};
    QTest::newRow("closed too often")
        << "SELECT 1); SELECT 2;" << QStringList{"SELECT 1)", "SELECT 2"};
    QTest::newRow("body of a function")
        << "CREATE FUNCTION f() RETURNS int BEGIN ATOMIC SELECT 1; SELECT CASE WHEN true THEN 2 "
           "END; END; SELECT 3;"
        << QStringList{"CREATE FUNCTION f() RETURNS int BEGIN ATOMIC SELECT 1; SELECT CASE WHEN "
                       "true THEN 2 END; END",
                       "SELECT 3"};
    QTest::newRow("body of a procedure")
        << "create or replace procedure p() begin atomic select 1; end; select 3;"
        << QStringList{"create or replace procedure p() begin atomic select 1; end", "select 3"};
    QTest::newRow("BEGIN of a transaction")
        << "BEGIN; SELECT 1; END;" << QStringList{"BEGIN", "SELECT 1", "END"};

    QTest::newRow("command") << "\\tables" << QStringList{"\\tables"};
    QTest::newRow("command in front of a statement")
        << "\\bind 1;\nSELECT ?;" << QStringList{"\\bind 1;", "SELECT ?"};
    QTest::newRow("command behind a statement")
        << "SELECT 1; \\timing on" << QStringList{"SELECT 1", "\\timing on"};
    QTest::newRow("command within a statement")
        << "SELECT\n\\bind 1\n?;" << QStringList{"\\bind 1", "SELECT\n?"};
    QTest::newRow("backslash in quotes over lines")
        << "SELECT '\n\\quit\n';" << QStringList{"SELECT '\n\\quit\n'"};
    QTest::newRow("backslash in a comment")
        << "/*\n\\quit\n*/ SELECT 1;" << QStringList{"SELECT 1"};
    QTest::newRow("other letters")
        << "SELECT 'Привет; 日本';" << QStringList{"SELECT 'Привет; 日本'"};
}

void tst_ConsoleSplitter::pieces()
{
    QFETCH(QString, script);
    QFETCH(QStringList, texts);
    Splitter splitter;
    QCOMPARE(split(script, &splitter), texts);
}

void tst_ConsoleSplitter::openAtTheEndOfALine_data()
{
    QTest::addColumn<QString>("script");
    QTest::addColumn<bool>("empty");
    QTest::addColumn<QString>("open");

    QTest::newRow("nothing") << "" << true << "-";
    QTest::newRow("ended") << "SELECT 1;" << true << "-";
    QTest::newRow("statement") << "SELECT" << false << "-";
    QTest::newRow("quote") << "SELECT '" << false << "'";
    QTest::newRow("escaping quote") << "SELECT E'" << false << "'";
    QTest::newRow("name") << "SELECT \"" << false << "\"";
    QTest::newRow("dollar quote") << "SELECT $a$ $$" << false << "$";
    QTest::newRow("comment") << "/* /* */" << false << "/";
    QTest::newRow("ended comment") << "/* */" << true << "-";
    QTest::newRow("parenthesis") << "SELECT (" << false << "(";
}

void tst_ConsoleSplitter::openAtTheEndOfALine()
{
    QFETCH(QString, script);
    QFETCH(bool, empty);
    QFETCH(QString, open);
    Splitter splitter;
    split(script, &splitter);
    QCOMPARE(splitter.isEmpty(), empty);
    QCOMPARE(QString(splitter.open()), open);
}

void tst_ConsoleSplitter::clearedInTheMidstOfAQuote()
{
    Splitter splitter;
    split("CREATE FUNCTION f() BEGIN ATOMIC (SELECT '", &splitter);
    splitter.clear();
    QVERIFY(splitter.isEmpty());
    QCOMPARE(split("SELECT 1;", &splitter), QStringList{"SELECT 1"});
}

void tst_ConsoleSplitter::restIsTheStatementWithoutItsEnd()
{
    Splitter splitter;
    QCOMPARE(split("SELECT 1; SELECT\n2 -- more", &splitter), QStringList{"SELECT 1"});
    QCOMPARE(splitter.rest(), QString("SELECT\n2"));
}

void tst_ConsoleSplitter::timeGrowsAsTheScriptDoes_data()
{
    QTest::addColumn<QString>("part");
    QTest::newRow("values on one line") << "(1),";
    QTest::newRow("placeholders on one line") << "$1,";
    QTest::newRow("short lines") << ",\n";
    QTest::newRow("blank lines") << "\n";
}

// The processor time that reading statement takes, which is whatever else the machine does; -1 if what was read
// is something else.
static double secondsFor(const QString &statement)
{
    Splitter splitter;
    const std::clock_t begin = std::clock();
    bool isOpen = true;
    for (const QString &line : statement.split('\n')) {
        isOpen = isOpen && splitter.feed(line).isEmpty() && !splitter.isEmpty();
    }
    const std::clock_t end = std::clock();
    return isOpen && splitter.rest() == statement
               ? static_cast<double>(end - begin) / CLOCKS_PER_SEC
               : -1;
}

// As the script itself, not as its square, which would be a hundred times as long.
void tst_ConsoleSplitter::timeGrowsAsTheScriptDoes()
{
    QFETCH(QString, part);
    constexpr int Characters = 50000;
    const double one = secondsFor("VALUES " + part.repeated(Characters / part.size()) + "1");
    const double ten = secondsFor("VALUES " + part.repeated(10 * Characters / part.size()) + "1");
    QVERIFY2(one >= 0 && ten >= 0, "the script is not held whole");
    QVERIFY2(ten < 40 * one, qPrintable(QString("%1 s and %2 s").arg(one).arg(ten)));
}

QTEST_GUILESS_MAIN(tst_ConsoleSplitter)
#include "tst_consolesplitter.moc"
