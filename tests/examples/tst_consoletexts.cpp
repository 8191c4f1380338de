// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// What the console makes of values, words and statements.
#include "engine/csvsink.h"
#include "engine/errortext.h"
#include "engine/placeholders.h"
#include "engine/progress.h"
#include "engine/query.h"
#include "engine/transaction.h"
#include "engine/valuetext.h"
#include "engine/words.h"

#include <QtSql/QSqlField>
#include <QtTest/QtTest>

#include <limits>

Q_DECLARE_METATYPE(TransactionWord)

class tst_ConsoleTexts : public QObject
{
    Q_OBJECT

private slots:
    void csv_data();
    void csv();
    void values_data();
    void values();
    void decimalsOfANumericColumn();
    void jsonbWithoutItsVersion();
    void zoneOfATimestampWithZone();
    void wordsOfACommand_data();
    void wordsOfACommand();
    void placeholders_data();
    void placeholders();
    void transactionWords_data();
    void transactionWords();
    void errorHasBothTexts();
    void errorWithoutATextOfTheServers();
    void barMovesToAndFro();
    void countsOfRows();
};

void tst_ConsoleTexts::csv_data()
{
    QTest::addColumn<QStringList>("fields");
    QTest::addColumn<QByteArray>("line");
    QTest::newRow("plain") << QStringList{"a", "b c", "1"} << QByteArray("a,b c,1\r\n");
    QTest::newRow("comma") << QStringList{"a,b", "c"} << QByteArray("\"a,b\",c\r\n");
    QTest::newRow("quote") << QStringList{"say \"a\""} << QByteArray("\"say \"\"a\"\"\"\r\n");
    QTest::newRow("line end") << QStringList{"a\nb"} << QByteArray("\"a\nb\"\r\n");
    QTest::newRow("carriage return") << QStringList{"a\rb"} << QByteArray("\"a\rb\"\r\n");
    QTest::newRow("null and empty") << QStringList{QString(), ""} << QByteArray(",\"\"\r\n");
    QTest::newRow("blanks") << QStringList{" a "} << QByteArray(" a \r\n");
    QTest::newRow("other letters") << QStringList{"日本"} << QByteArray("日本\r\n");
}

void tst_ConsoleTexts::csv()
{
    QFETCH(QStringList, fields);
    QFETCH(QByteArray, line);
    QCOMPARE(csvLine(fields), line);
}

void tst_ConsoleTexts::values_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("text");
    const QDate leap(2024, 2, 29);
    QTest::newRow("int") << QVariant(-5) << "-5";
    QTest::newRow("long") << QVariant(Q_INT64_C(9223372036854775807)) << "9223372036854775807";
    QTest::newRow("bool") << QVariant(true) << "true";
    QTest::newRow("text") << QVariant("a") << "a";
    QTest::newRow("empty text") << QVariant("") << "";
    QTest::newRow("double") << QVariant(0.1) << "0.1";
    QTest::newRow("zero") << QVariant(0.0) << "0";
    QTest::newRow("million") << QVariant(1e6) << "1000000";
    QTest::newRow("large") << QVariant(1e300) << "1e+300";
    QTest::newRow("small") << QVariant(-1.5e-7) << "-1.5e-07";
    QTest::newRow("all digits") << QVariant(0.30000000000000004) << "0.30000000000000004";
    QTest::newRow("float") << QVariant(0.1F) << "0.1";
    QTest::newRow("infinite") << QVariant(-std::numeric_limits<double>::infinity()) << "-Infinity";
    QTest::newRow("no number") << QVariant(std::numeric_limits<double>::quiet_NaN()) << "NaN";
    QTest::newRow("date") << QVariant(leap) << "2024-02-29";
    QTest::newRow("date before the year 1") << QVariant(QDate(-1, 1, 1)) << "?";
    QTest::newRow("date too far for Qt") << QVariant(QDate()) << "?";
    QTest::newRow("timestamp too far for Qt")
        << QVariant(QDateTime(QDate(), QTime(4, 0, 54))) << "?";
    QTest::newRow("text too long for Qt") << QVariant() << "?";
    QTest::newRow("time") << QVariant(QTime(1, 2, 3)) << "01:02:03";
    QTest::newRow("time, milliseconds") << QVariant(QTime(1, 2, 3, 4)) << "01:02:03.004";
    QTest::newRow("timestamp") << QVariant(QDateTime(leap, QTime(1, 2, 3)))
                               << "2024-02-29 01:02:03";
    QTest::newRow("bytes") << QVariant(QByteArray("\x00\xff", 2)) << "\\x00ff";
    QTest::newRow("no bytes") << QVariant(QByteArray("")) << "\\x";
    QTest::newRow("uuid") << QVariant(QUuid("{c4ca4238-a0b9-2382-0dcc-509a6f75849b}"))
                          << "c4ca4238-a0b9-2382-0dcc-509a6f75849b";
}

void tst_ConsoleTexts::values()
{
    QFETCH(QVariant, value);
    QFETCH(QString, text);
    const QString shown = valueText(value, QSqlField("a"));
    QCOMPARE(shown, text);
    QVERIFY(!shown.isNull());
}

void tst_ConsoleTexts::decimalsOfANumericColumn()
{
    QSqlField field("price", QVariant::Double);
    field.setPrecision(2);
    QCOMPARE(valueText(1.5, field), QString("1.50"));
    QCOMPARE(valueText(std::numeric_limits<double>::quiet_NaN(), field), QString("NaN"));
    field.setPrecision(2046); // of numeric(5,-2), as the driver gives it
    QCOMPARE(valueText(1500.0, field), QString("1500"));
    QVERIFY(isNumber(field));
    QVERIFY(!isNumber(QSqlField("name", QVariant::String)));
}

void tst_ConsoleTexts::jsonbWithoutItsVersion()
{
    QSqlField field("j");
    field.setSqlType(3802);
    QCOMPARE(valueText(QByteArray("\x01{\"a\": 1}"), field), QString("{\"a\": 1}"));
    QCOMPARE(valueText(QByteArray(), field), QString(""));
}

void tst_ConsoleTexts::zoneOfATimestampWithZone()
{
    QSqlField field("at");
    field.setSqlType(1184);
    QCOMPARE(valueText(QDateTime(QDate(2024, 2, 29), QTime(1, 2)), field),
             QString("2024-02-29 01:02:00+00"));
}

void tst_ConsoleTexts::wordsOfACommand_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("good");
    QTest::addColumn<QStringList>("words"); // those in quotes with a quote in front
    const QString longText = "'" + QString("a ").repeated(50000);
    QTest::newRow("none") << "  " << true << QStringList();
    QTest::newRow("two") << " a  b " << true << QStringList{"a", "b"};
    QTest::newRow("quoted") << "'a b' c" << true << QStringList{"'a b", "c"};
    QTest::newRow("doubled quote") << "'it''s'" << true << QStringList{"'it's"};
    QTest::newRow("empty") << "''" << true << QStringList{"'"};
    QTest::newRow("NULL in quotes and without")
        << "'NULL' NULL" << true << QStringList{"'NULL", "NULL"};
    QTest::newRow("quote within a word") << "it's" << true << QStringList{"it's"};
    QTest::newRow("not closed") << "a 'b" << false << QStringList{"a"};
    QTest::newRow("long") << longText + "'" << true << QStringList{longText};
    QTest::newRow("many doubled quotes") << "'" + QString("''").repeated(100000) + "'" << true
                                         << QStringList{"'" + QString("'").repeated(100000)};
    QTest::newRow("text behind a quote") << "'a'b" << false << QStringList();
}

void tst_ConsoleTexts::wordsOfACommand()
{
    QFETCH(QString, text);
    QFETCH(bool, good);
    QFETCH(QStringList, words);
    QVector<Word> found;
    QCOMPARE(splitWords(text, &found), good);
    QStringList texts;
    for (const Word &word : qAsConst(found)) {
        texts += (word.quoted ? "'" : "") + word.text;
    }
    QCOMPARE(texts, words);
}

void tst_ConsoleTexts::placeholders_data()
{
    QTest::addColumn<QString>("statement");
    QTest::addColumn<int>("count");
    QTest::newRow("none") << "SELECT 1" << 0;
    QTest::newRow("marks") << "VALUES (?, ?::int)" << 2;
    QTest::newRow("numbers, twice") << "SELECT $2, $1, $2" << 2;
    QTest::newRow("names") << "SELECT :a::int, :b" << 2;
    QTest::newRow("mark in a text") << "SELECT '?', 'it''s ?', ?" << 1;
    QTest::newRow("mark in a quoted name") << "SELECT ? AS \"?\"" << 1;
    QTest::newRow("backslash in a text") << "SELECT E'\\\\', ?, '?'" << 1;
    QTest::newRow("number in a name") << "SELECT a$1, b$2$3" << 0;
    QTest::newRow("long text") << "SELECT ?, '" + QString("?").repeated(1000000) + "'" << 1;
    QTest::newRow("many") << "VALUES (" + QString("?,").repeated(60000) + "?)" << 60001;
}

void tst_ConsoleTexts::placeholders()
{
    QFETCH(QString, statement);
    QFETCH(int, count);
    QCOMPARE(placeholderCount(statement), count);
}

void tst_ConsoleTexts::transactionWords_data()
{
    QTest::addColumn<QString>("statement");
    QTest::addColumn<TransactionWord>("word");
    QTest::newRow("BEGIN") << "BEGIN" << TransactionWord::Begin;
    QTest::newRow("lower case, two lines") << "begin\n  work" << TransactionWord::Begin;
    QTest::newRow("START TRANSACTION") << "START TRANSACTION" << TransactionWord::Begin;
    QTest::newRow("BEGIN with options") << "BEGIN READ ONLY" << TransactionWord::BeginByText;
    QTest::newRow("COMMIT") << "COMMIT" << TransactionWord::Commit;
    QTest::newRow("END") << "END TRANSACTION" << TransactionWord::Commit;
    QTest::newRow("COMMIT AND CHAIN") << "COMMIT AND CHAIN" << TransactionWord::None;
    QTest::newRow("COMMIT AND NO CHAIN") << "COMMIT AND NO CHAIN" << TransactionWord::EndByText;
    QTest::newRow("COMMIT PREPARED") << "COMMIT PREPARED 'a'" << TransactionWord::None;
    QTest::newRow("PREPARE TRANSACTION") << "PREPARE TRANSACTION 'a'" << TransactionWord::EndByText;
    QTest::newRow("ROLLBACK") << "ROLLBACK" << TransactionWord::Rollback;
    QTest::newRow("ABORT") << "ABORT WORK" << TransactionWord::Rollback;
    QTest::newRow("ROLLBACK TO") << "ROLLBACK TO a" << TransactionWord::None;
    QTest::newRow("another") << "SELECT 'BEGIN'" << TransactionWord::None;
    QTest::newRow("a longer word") << "BEGINNING" << TransactionWord::None;
}

void tst_ConsoleTexts::transactionWords()
{
    QFETCH(QString, statement);
    QFETCH(TransactionWord, word);
    QVERIFY(transactionWord(statement) == word);
}

void tst_ConsoleTexts::errorHasBothTexts()
{
    QCOMPARE(errorLines(QSqlError("ERROR: no\nLINE 1: SELECT\n", "Ошибка")),
             (QStringList{"driver:   ERROR: no", "          LINE 1: SELECT", "database: Ошибка"}));
}

void tst_ConsoleTexts::errorWithoutATextOfTheServers()
{
    QCOMPARE(errorLines(QSqlError(QString(), "Ошибка")), QStringList{"database: Ошибка"});
}

void tst_ConsoleTexts::barMovesToAndFro()
{
    QCOMPARE(Progress::text(0, 1000, 1572864, 2000),
             QString("[<=>                 ] 1000 rows, 1.5 MiB, 500 rows/s"));
    QCOMPARE(Progress::text(17, 0, 0, 0),
             QString("[                 <=>] 0 rows, 0.0 MiB, 0 rows/s"));
    QCOMPARE(Progress::text(18, 0, 0, 0), Progress::text(16, 0, 0, 0));
    QCOMPARE(Progress::text(34, 0, 0, 0), Progress::text(0, 0, 0, 0));
}

void tst_ConsoleTexts::countsOfRows()
{
    QCOMPARE(rowsText(0), QString("0 rows"));
    QCOMPARE(rowsText(1), QString("1 row"));
    QCOMPARE(rowsText(2), QString("2 rows"));
}

QTEST_GUILESS_MAIN(tst_ConsoleTexts)
#include "tst_consoletexts.moc"
