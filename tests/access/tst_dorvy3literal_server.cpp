// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Dorvy3Database::formatValue: read back by a server, and what libpq has learnt from one.
#include "tests/access/literals.h"
#include "tests/support/libpqowners.h"
#include "tests/support/localzone.h"
#include "tests/support/pgcluster.h"
#include "tests/support/sqlmacros.h"
#include "tests/support/wireproxy.h"

#include <cstring>

class tst_Dorvy3LiteralServer : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void bytesFollowTheConnectionMadeLast_data();
    void bytesFollowTheConnectionMadeLast();
    void bytesFollowASettingThatChanges();
    void bytesKeepTheSettingOfAFinishedConnection();
    void textIsTheSameUnderBothSettings();
    void openConnectionIsNotUsed();
    void readBack_data();
    void readBack();
    void numberReadBack_data();
    void numberReadBack();
    void infinityReadBackLosesItsSign();
    void textReadBackWithoutStandardStrings_data();
    void textReadBackWithoutStandardStrings();
    void textReadWithStandardStrings_data();
    void textReadWithStandardStrings();
    void bytesReadBack_data();
    void bytesReadBack();
    void bytesUnderTheOtherSettingAreMisread();
    void dateTimeReadBack_data();
    void dateTimeReadBack();
    void dateTimeOutsideFourDigitYears();

private:
    RawConnectionPtr connectWith(bool standardStrings) const;
    static QByteArray ask(const RawConnectionPtr &connection, const QString &sql);

    PgCluster cluster;
};

// A new connection; libpq's knowledge of standard_conforming_strings is then that connection's.
RawConnectionPtr tst_Dorvy3LiteralServer::connectWith(bool standardStrings) const
{
    const QByteArray options =
        QByteArray(" client_encoding=UTF8 options='-c escape_string_warning=off "
                   "-c extra_float_digits=3 -c TimeZone=UTC -c standard_conforming_strings=") +
        (standardStrings ? "on'" : "off'");
    const QByteArray conninfo = cluster.conninfo(QStringLiteral("literals")) + options;
    return RawConnectionPtr(PQconnectdb(conninfo.constData()));
}

// The first column of the first row of \a sql, or "error " and the server's error code.
QByteArray tst_Dorvy3LiteralServer::ask(const RawConnectionPtr &connection, const QString &sql)
{
    const ResultPtr result(PQexec(connection.get(), sql.toUtf8().constData()));
    if (PQresultStatus(result.get()) != PGRES_TUPLES_OK) {
        return "error " + QByteArray(PQresultErrorField(result.get(), PG_DIAG_SQLSTATE));
    }
    return PQgetisnull(result.get(), 0, 0) ? QByteArray("null")
                                           : QByteArray(PQgetvalue(result.get(), 0, 0));
}

void tst_Dorvy3LiteralServer::initTestCase()
{
    qunsetenv("PGOPTIONS");
    qunsetenv("PGCLIENTENCODING");
    QVERIFY2(cluster.start(), qPrintable(cluster.why()));
    cluster.createDatabase(QStringLiteral("literals"));
}

void tst_Dorvy3LiteralServer::bytesFollowTheConnectionMadeLast_data()
{
    addByteColumns();
    byteRows();
}

// libpq remembers the setting for the whole process, for the sake of callers without a connection.
void tst_Dorvy3LiteralServer::bytesFollowTheConnectionMadeLast()
{
    QFETCH(QByteArray, value);
    QFETCH(QByteArray, standard);
    QFETCH(QByteArray, backslash);
    const RawConnectionPtr first = connectWith(true);
    QCOMPARE(format(QVariant::ByteArray, value).toUtf8(), standard);
    const RawConnectionPtr second = connectWith(false);
    QCOMPARE(format(QVariant::ByteArray, value).toUtf8(), backslash);
    const RawConnectionPtr third = connectWith(true);
    QCOMPARE(format(QVariant::ByteArray, value).toUtf8(), standard);
}

void tst_Dorvy3LiteralServer::bytesFollowASettingThatChanges()
{
    const RawConnectionPtr changing = connectWith(true);
    const RawConnectionPtr last = connectWith(true);
    QCOMPARE(format(QVariant::ByteArray, QByteArray("\\")), utf8("'\\\\'"));
    ask(changing, QStringLiteral("SET standard_conforming_strings = off"));
    QCOMPARE(format(QVariant::ByteArray, QByteArray("\\")), utf8("'\\\\\\\\'"));
    ask(changing, QStringLiteral("SET standard_conforming_strings = on"));
    QCOMPARE(format(QVariant::ByteArray, QByteArray("\\")), utf8("'\\\\'"));
}

void tst_Dorvy3LiteralServer::bytesKeepTheSettingOfAFinishedConnection()
{
    const RawConnectionPtr lasting = connectWith(true);
    connectWith(false).reset();
    QCOMPARE(format(QVariant::ByteArray, QByteArray("\\")), utf8("'\\\\\\\\'"));
}

void tst_Dorvy3LiteralServer::textIsTheSameUnderBothSettings()
{
    const QString value = utf8("O'Brien\\x");
    const RawConnectionPtr first = connectWith(true);
    QCOMPARE(format(QVariant::String, value), utf8("'O\\'Brien\\\\x'"));
    const RawConnectionPtr second = connectWith(false);
    QCOMPARE(format(QVariant::String, value), utf8("'O\\'Brien\\\\x'"));
}

void tst_Dorvy3LiteralServer::openConnectionIsNotUsed()
{
    WireProxy proxy(cluster.socketDir(), cluster.port());
    Dorvy3Database handle(QSharedPointer<Dorvy3Transacted>::create());
    VERIFY_NO_ERROR(handle.open(QStringLiteral("literals"), cluster.user(), QString(), proxy.host(),
                                proxy.port(), QString(), QString()));
    proxy.clear();
    QCOMPARE(handle.formatValue(fieldOf(QVariant::String, utf8("O'Brien\\x")), false),
             utf8("'O\\'Brien\\\\x'"));
    QCOMPARE(handle.formatValue(fieldOf(QVariant::ByteArray, QByteArray("a'b")), false),
             QStringLiteral("'a''b'"));
    QCOMPARE(handle.formatValue(fieldOf(QVariant::DateTime, utc(QDate(2016, 3, 1), QTime(12, 0))),
                                false),
             QStringLiteral("TIMESTAMP WITH TIME ZONE '2016-03-01T12:00:00.000Z'"));
    QCOMPARE(proxy.conversation(), QStringList());
}

void tst_Dorvy3LiteralServer::readBack_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QByteArray>("serverType");
    QTest::addColumn<QByteArray>("answer");
    const auto check = [](const char *tag, int type, const QVariant &value, const char *serverType,
                          const char *answer) {
        QTest::newRow(tag) << type << value << QByteArray(serverType) << QByteArray(answer);
    };
    check("null", QVariant::Int, QVariant(QVariant::Int), "int4", "null");
    check("null string", QVariant::String, QString(), "text", "null");
    check("true", QVariant::Bool, true, "bool", "t");
    check("false", QVariant::Bool, false, "bool", "f");
    check("int", QVariant::Int, 42, "int4", "42");
    check("largest int", QVariant::Int, std::numeric_limits<int>::max(), "int4", "2147483647");
    check("smallest int", QVariant::Int, std::numeric_limits<int>::min(), "int4", "-2147483648");
    check("largest long long", QVariant::LongLong, std::numeric_limits<qint64>::max(), "int8",
          "9223372036854775807");
    check("smallest long long", QVariant::LongLong, std::numeric_limits<qint64>::min(), "int8",
          "-9223372036854775808");
    check("true in an int", QVariant::Int, true, "int4", "1");
    check("false in a long long", QVariant::LongLong, false, "int8", "0");
    check("empty string", QVariant::String, QStringLiteral(""), "text", "");
    check("string", QVariant::String, utf8(" база \"%1\"\n"), "text", " база \"%1\"\n");
    check("date", QVariant::Date, QDate(2016, 2, 29), "date", "2016-02-29");
    check("date before 1970", QVariant::Date, QDate(1969, 12, 31), "date", "1969-12-31");
    check("date before year 1000", QVariant::Date, QDate(999, 12, 31), "date", "0999-12-31");
    check("first of year 1", QVariant::Date, QDate(1, 1, 1), "date", "0001-01-01");
    check("last of year 9999", QVariant::Date, QDate(9999, 12, 31), "date", "9999-12-31");
    // Error 22007 is an invalid date-time format.
    check("date after year 9999", QVariant::Date, QDate(10000, 1, 1), "date", "error 22007");
    check("invalid date", QVariant::Date, QStringLiteral("no date"), "date", "null");
    check("time", QVariant::Time, QTime(12, 34, 56, 789), "time", "12:34:56.789");
    check("midnight", QVariant::Time, QTime(0, 0), "time", "00:00:00");
    check("last of the day", QVariant::Time, QTime(23, 59, 59, 999), "time", "23:59:59.999");
    check("invalid time", QVariant::Time, QStringLiteral("noon"), "time", "null");
    check("date-time says its type", QVariant::DateTime, utc(QDate(2016, 3, 1), QTime(12, 0)),
          "text", "2016-03-01 12:00:00+00");
    check("invalid date-time", QVariant::DateTime, QStringLiteral("yesterday"), "timestamptz",
          "null");
}

// In parentheses, since a cast binds stronger than a minus sign.
void tst_Dorvy3LiteralServer::readBack()
{
    QFETCH(int, type);
    QFETCH(QVariant, value);
    QFETCH(QByteArray, serverType);
    QFETCH(QByteArray, answer);
    const QString sql = QStringLiteral("SELECT (") + format(type, value) + QStringLiteral(")::") +
                        QString::fromLatin1(serverType);
    for (const bool standardStrings : {true, false}) {
        QCOMPARE(ask(connectWith(standardStrings), sql), answer);
    }
}

void tst_Dorvy3LiteralServer::numberReadBack_data()
{
    QTest::addColumn<double>("value");
    QTest::newRow("zero") << 0.0;
    QTest::newRow("half") << 0.5;
    QTest::newRow("negative") << -2.5;
    QTest::newRow("tenth") << 0.1;
    QTest::newRow("large") << 1e100;
    QTest::newRow("small") << -1e-7;
    QTest::newRow("fifteen digits") << 123456789.012345;
}

void tst_Dorvy3LiteralServer::numberReadBack()
{
    QFETCH(double, value);
    const QByteArray answer =
        ask(connectWith(true),
            QStringLiteral("SELECT (%1)::float8").arg(format(QVariant::Double, value)));
    bool isNumber = false;
    const double read = answer.toDouble(&isNumber);
    QVERIFY2(isNumber, answer.constData());
    QVERIFY2(std::memcmp(&read, &value, sizeof(value)) == 0, answer.constData());
}

void tst_Dorvy3LiteralServer::infinityReadBackLosesItsSign()
{
    const RawConnectionPtr connection = connectWith(true);
    const QString sql = QStringLiteral("SELECT %1::float8");
    QCOMPARE(ask(connection, sql.arg(format(QVariant::Double, Infinity))), QByteArray("Infinity"));
    QCOMPARE(ask(connection, sql.arg(format(QVariant::Double, -Infinity))), QByteArray("Infinity"));
    QCOMPARE(ask(connection, sql.arg(format(QVariant::Double, NotANumber))), QByteArray("NaN"));
}

void tst_Dorvy3LiteralServer::textReadBackWithoutStandardStrings_data()
{
    QTest::addColumn<QByteArray>("value");
    QTest::newRow("quote and backslash in words") << QByteArray("O'Brien\\x");
    QTest::newRow("quote") << QByteArray("'");
    QTest::newRow("backslash") << QByteArray("\\");
    QTest::newRow("quote, backslash") << QByteArray("'\\");
    QTest::newRow("backslash, quote") << QByteArray("\\'");
    QTest::newRow("quote, backslash, quote") << QByteArray("'\\'");
    QTest::newRow("backslash, quote, backslash") << QByteArray("\\'\\");
    QTest::newRow("two of each") << QByteArray("''\\\\");
    QTest::newRow("looks like escapes") << QByteArray("\\n\\101\\x41\\u0041");
    QTest::newRow("looks like SQL") << QByteArray("x' || 42 --");
    QTest::newRow("tabs and newlines") << QByteArray("\t\r\n");
    QTest::newRow("Russian") << QByteArray("база'\\");
}

void tst_Dorvy3LiteralServer::textReadBackWithoutStandardStrings()
{
    QFETCH(QByteArray, value);
    const QString literal = format(QVariant::String, QString::fromUtf8(value));
    const QString sql = QStringLiteral("SELECT ") + literal + QStringLiteral("::text");
    QCOMPARE(ask(connectWith(false), sql), value);
}

void tst_Dorvy3LiteralServer::textReadWithStandardStrings_data()
{
    QTest::addColumn<QByteArray>("value");
    QTest::addColumn<QByteArray>("answer");
    // Each backslash counts for itself there, so that the doubling shows.
    QTest::newRow("backslash is doubled") << QByteArray("\\") << QByteArray("\\\\");
    QTest::newRow("backslashes are doubled")
        << QByteArray("C:\\a\\\\b") << QByteArray("C:\\\\a\\\\\\\\b");
    // A quote ends the text there; 42601 is a syntax error.
    QTest::newRow("quote leaves the rest outside")
        << QByteArray("O'Brien") << QByteArray("error 42601");
    QTest::newRow("quote alone") << QByteArray("'") << QByteArray("error 42601");
    QTest::newRow("quote and backslash") << QByteArray("O'Brien\\x") << QByteArray("error 42601");
    QTest::newRow("what follows a quote runs as SQL")
        << QByteArray("x' || 42 --") << QByteArray("x\\42");
}

void tst_Dorvy3LiteralServer::textReadWithStandardStrings()
{
    QFETCH(QByteArray, value);
    QFETCH(QByteArray, answer);
    const QString literal = format(QVariant::String, QString::fromUtf8(value));
    QCOMPARE(ask(connectWith(true), QStringLiteral("SELECT ") + literal), answer);
}

void tst_Dorvy3LiteralServer::bytesReadBack_data()
{
    addByteColumns();
    byteRows();
}

void tst_Dorvy3LiteralServer::bytesReadBack()
{
    QFETCH(QByteArray, value);
    for (const bool standardStrings : {true, false}) {
        const RawConnectionPtr connection = connectWith(standardStrings);
        const QString sql = QStringLiteral("SELECT encode(") + format(QVariant::ByteArray, value) +
                            QStringLiteral("::bytea, 'hex')");
        QCOMPARE(ask(connection, sql), value.toHex());
    }
}

// Two connections that differ in the setting share libpq's one knowledge of it, the newer one's.
void tst_Dorvy3LiteralServer::bytesUnderTheOtherSettingAreMisread()
{
    const QString sql = QStringLiteral("SELECT encode(%1::bytea, 'hex')");
    const RawConnectionPtr standard = connectWith(true);
    const RawConnectionPtr backslash = connectWith(false);
    // The four characters \000 instead of one zero byte.
    QCOMPARE(ask(standard, sql.arg(format(QVariant::ByteArray, bytes("\0", 1)))),
             QByteArray("5c303030"));
    const RawConnectionPtr newer = connectWith(true);
    // 22P02: a single backslash is no bytea.
    QCOMPARE(ask(backslash, sql.arg(format(QVariant::ByteArray, QByteArray("\\")))),
             QByteArray("error 22P02"));
}

void tst_Dorvy3LiteralServer::dateTimeReadBack_data()
{
    QTest::addColumn<QByteArray>("localZone");
    QTest::addColumn<QDate>("date");
    QTest::addColumn<QTime>("time");
    QTest::addColumn<QByteArray>("sessionZone");
    QTest::addColumn<QByteArray>("answer");
    const QDate date(2016, 3, 1);
    const QTime noon(12, 0);
    const auto row = [](const char *tag, const char *localZone, const QDate &day, const QTime &time,
                        const char *sessionZone, const char *answer) {
        QTest::newRow(tag) << QByteArray(localZone) << day << time << QByteArray(sessionZone)
                           << QByteArray(answer);
    };
    row("session in UTC", Zone, date, noon, "UTC", "2016-03-01 09:00:00+00");
    row("session in the same zone", Zone, date, noon, "MSK-3", "2016-03-01 12:00:00+03");
    row("session far to the west", Zone, date, QTime(1, 2, 3, 4), "PST8",
        "2016-02-29 14:02:03.004-08");
    row("session with a half hour", Zone, date, noon, "IST-5:30", "2016-03-01 14:30:00+05:30");
    row("local summer time", SummerZone, QDate(2016, 7, 1), noon, "UTC", "2016-07-01 10:00:00+00");
    row("local winter time", SummerZone, QDate(2016, 12, 1), noon, "UTC", "2016-12-01 11:00:00+00");
    row("before 1970", Zone, QDate(1969, 12, 31), QTime(23, 59, 59, 999), "MSK-3",
        "1969-12-31 23:59:59.999+03");
    row("before year 1000", "UTC", QDate(999, 12, 31), noon, "UTC", "0999-12-31 12:00:00+00");
}

void tst_Dorvy3LiteralServer::dateTimeReadBack()
{
    QFETCH(QByteArray, localZone);
    QFETCH(QDate, date);
    QFETCH(QTime, time);
    QFETCH(QByteArray, sessionZone);
    QFETCH(QByteArray, answer);
    const LocalZone local(localZone.constData());
    const QString literal = format(QVariant::DateTime, QDateTime(date, time));
    const RawConnectionPtr connection = connectWith(true);
    ask(connection, QStringLiteral("SET TIME ZONE '%1'").arg(QString::fromLatin1(sessionZone)));
    QCOMPARE(ask(connection, QStringLiteral("SELECT %1::timestamptz").arg(literal)), answer);
}

void tst_Dorvy3LiteralServer::dateTimeOutsideFourDigitYears()
{
    const RawConnectionPtr connection = connectWith(true);
    const QTime noon(12, 0);
    const QString after = format(QVariant::DateTime, utc(QDate(10000, 1, 1), noon));
    QCOMPARE(ask(connection, QStringLiteral("SELECT ") + after),
             QByteArray("10000-01-01 12:00:00+00"));
    const QString before = format(QVariant::DateTime, utc(QDate(-1, 12, 31), noon));
    const QByteArray answer = ask(connection, QStringLiteral("SELECT ") + before);
    QVERIFY2(answer.startsWith("error "), answer.constData()); // it wants BC behind it
}

QTEST_GUILESS_MAIN(tst_Dorvy3LiteralServer)
#include "tst_dorvy3literal_server.moc"
