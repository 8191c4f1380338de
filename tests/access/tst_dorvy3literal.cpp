// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Dorvy3Database::formatValue: against written-out literals.
#include "tests/access/literals.h"
#include "tests/support/childprocess.h"
#include "tests/support/localzone.h"

#include <QtCore/QBitArray>
#include <QtCore/QLocale>
#include <QtCore/QRect>
#include <QtCore/QRegularExpression>
#include <QtCore/QTimeZone>
#include <QtCore/QUrl>
#include <QtCore/QUuid>

#include <cfloat>

class tst_Dorvy3Literal : public QObject
{
    Q_OBJECT

private slots:
    void bytesBeforeAnyConnection_data();
    void bytesBeforeAnyConnection();
    void nullOfEveryType_data();
    void nullOfEveryType();
    void nullOfAnotherTypeThanTheField_data();
    void nullOfAnotherTypeThanTheField();
    void clearedFieldIsNull();
    void boolean_data();
    void boolean();
    void integer_data();
    void integer();
    void number_data();
    void number();
    void numberHasQtsDigits_data();
    void numberHasQtsDigits();
    void text_data();
    void text();
    void textKeepsItsZeroCharacter();
    void trimmedText_data();
    void trimmedText();
    void trimmingLeavesOtherTypes_data();
    void trimmingLeavesOtherTypes();
    void bytesOfAnotherType_data();
    void bytesOfAnotherType();
    void date_data();
    void date();
    void time_data();
    void time();
    void dateTime_data();
    void dateTime();
    void localDateTimeGoesAsUtc_data();
    void localDateTimeGoesAsUtc();
    void bothHoursAtTheEndOfSummerTime();
    void hourLeftOutAtTheStartOfSummerTimeIsNull();
    void dateTimeWithoutZoneTextIsLocal();
    void dateAndTimeAreNotConverted();
    void defaultLocaleDoesNotMatter();
    void unsupportedTypeIsFatal_data();
    void unsupportedTypeIsFatal();
};

void tst_Dorvy3Literal::bytesBeforeAnyConnection_data()
{
    addByteColumns();
    byteRows();
}

// libpq takes standard_conforming_strings to be off until a server tells it otherwise.
void tst_Dorvy3Literal::bytesBeforeAnyConnection()
{
    QFETCH(QByteArray, value);
    QFETCH(QByteArray, backslash);
    QCOMPARE(format(QVariant::ByteArray, value).toUtf8(), backslash);
}

void tst_Dorvy3Literal::nullOfEveryType_data()
{
    QTest::addColumn<int>("type");
    QTest::newRow("bool") << int(QVariant::Bool);
    QTest::newRow("int") << int(QVariant::Int);
    QTest::newRow("long long") << int(QVariant::LongLong);
    QTest::newRow("double") << int(QVariant::Double);
    QTest::newRow("string") << int(QVariant::String);
    QTest::newRow("byte array") << int(QVariant::ByteArray);
    QTest::newRow("date") << int(QVariant::Date);
    QTest::newRow("time") << int(QVariant::Time);
    QTest::newRow("date-time") << int(QVariant::DateTime);
    QTest::newRow("unsupported: invalid") << int(QVariant::Invalid);
    QTest::newRow("unsupported: unsigned int") << int(QVariant::UInt);
    QTest::newRow("unsupported: unsigned long long") << int(QVariant::ULongLong);
    QTest::newRow("unsupported: char") << int(QVariant::Char);
    QTest::newRow("unsupported: map") << int(QVariant::Map);
    QTest::newRow("unsupported: list") << int(QVariant::List);
    QTest::newRow("unsupported: string list") << int(QVariant::StringList);
    QTest::newRow("unsupported: bit array") << int(QVariant::BitArray);
    QTest::newRow("unsupported: URL") << int(QVariant::Url);
    QTest::newRow("unsupported: UUID") << int(QVariant::Uuid);
    QTest::newRow("unsupported: float") << int(QMetaType::Float);
}

void tst_Dorvy3Literal::nullOfEveryType()
{
    QFETCH(int, type);
    const QSqlField untouched(QStringLiteral("f"), static_cast<QVariant::Type>(type));
    QVERIFY(untouched.isNull());
    QCOMPARE(format(untouched, false), QStringLiteral("NULL"));
    QCOMPARE(format(untouched, true), QStringLiteral("NULL"));
}

void tst_Dorvy3Literal::nullOfAnotherTypeThanTheField_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QVariant>("value");
    QTest::newRow("no value at all in an int") << int(QVariant::Int) << QVariant();
    QTest::newRow("no value at all in a string") << int(QVariant::String) << QVariant();
    QTest::newRow("null bool in an int") << int(QVariant::Int) << QVariant(QVariant::Bool);
    QTest::newRow("null string in an int") << int(QVariant::Int) << QVariant(QString());
    QTest::newRow("null string in a date") << int(QVariant::Date) << QVariant(QString());
    QTest::newRow("null string in a bool") << int(QVariant::Bool) << QVariant(QString());
    QTest::newRow("null string in a string") << int(QVariant::String) << QVariant(QString());
    QTest::newRow("null bytes in bytes") << int(QVariant::ByteArray) << QVariant(QByteArray());
    QTest::newRow("null int in a double") << int(QVariant::Double) << QVariant(QVariant::Int);
    QTest::newRow("null list in a string") << int(QVariant::String) << QVariant(QVariant::List);
    QTest::newRow("null int in an unsigned int") << int(QVariant::UInt) << QVariant(QVariant::Int);
    QTest::newRow("null string in a map") << int(QVariant::Map) << QVariant(QString());
}

void tst_Dorvy3Literal::nullOfAnotherTypeThanTheField()
{
    QFETCH(int, type);
    QFETCH(QVariant, value);
    QCOMPARE(format(type, value), QStringLiteral("NULL"));
}

void tst_Dorvy3Literal::clearedFieldIsNull()
{
    QSqlField field = fieldOf(QVariant::UInt, 7U);
    field.clear();
    QCOMPARE(format(field), QStringLiteral("NULL"));
}

void tst_Dorvy3Literal::boolean_data()
{
    addLiteralColumns();
    row("true", QVariant::Bool, true, "TRUE");
    row("false", QVariant::Bool, false, "FALSE");
    row("int one", QVariant::Bool, 1, "TRUE");
    row("int two", QVariant::Bool, 2, "TRUE");
    row("negative int", QVariant::Bool, -1, "TRUE");
    row("int zero", QVariant::Bool, 0, "FALSE");
    row("long long above 32 bits", QVariant::Bool, Q_INT64_C(4294967296), "TRUE");
    row("double zero", QVariant::Bool, 0.0, "FALSE");
    row("double one", QVariant::Bool, 1.0, "TRUE");
    row("text true", QVariant::Bool, QStringLiteral("true"), "TRUE");
    row("text false", QVariant::Bool, QStringLiteral("false"), "FALSE");
    row("text FALSE", QVariant::Bool, QStringLiteral("FALSE"), "FALSE");
    row("text 0", QVariant::Bool, QStringLiteral("0"), "FALSE");
    row("text 1", QVariant::Bool, QStringLiteral("1"), "TRUE");
    row("empty text", QVariant::Bool, QStringLiteral(""), "FALSE");
    row("any other text", QVariant::Bool, QStringLiteral("no"), "TRUE");
    row("date, which has no truth", QVariant::Bool, QDate(2016, 3, 1), "FALSE");
}

void tst_Dorvy3Literal::boolean()
{
    compareRow(false);
}

void tst_Dorvy3Literal::integer_data()
{
    addLiteralColumns();
    row("int zero", QVariant::Int, 0, "0");
    row("int", QVariant::Int, 42, "42");
    row("negative int", QVariant::Int, -42, "-42");
    row("largest int", QVariant::Int, std::numeric_limits<int>::max(), "2147483647");
    row("smallest int", QVariant::Int, std::numeric_limits<int>::min(), "-2147483648");
    row("long long zero", QVariant::LongLong, Q_INT64_C(0), "0");
    row("long long", QVariant::LongLong, Q_INT64_C(4294967296), "4294967296");
    row("negative long long", QVariant::LongLong, Q_INT64_C(-4294967297), "-4294967297");
    row("largest long long", QVariant::LongLong, std::numeric_limits<qint64>::max(),
        "9223372036854775807");
    row("smallest long long", QVariant::LongLong, std::numeric_limits<qint64>::min(),
        "-9223372036854775808");

    // A boolean counts, in an integer field.
    row("true in an int", QVariant::Int, true, "1");
    row("false in an int", QVariant::Int, false, "0");
    row("true in a long long", QVariant::LongLong, true, "1");
    row("false in a long long", QVariant::LongLong, false, "0");

    // Any other value goes as its text, whatever it says.
    row("long long in an int", QVariant::Int, Q_INT64_C(4294967296), "4294967296");
    row("int in a long long", QVariant::LongLong, -7, "-7");
    row("unsigned int in an int", QVariant::Int, 4294967295U, "4294967295");
    row("unsigned long long in a long long", QVariant::LongLong,
        std::numeric_limits<quint64>::max(), "18446744073709551615");
    row("double in an int", QVariant::Int, 1.5, "1.5");
    row("infinity in an int", QVariant::Int, Infinity, "inf");
    row("text in an int", QVariant::Int, QStringLiteral("17"), "17");
    row("text true in an int", QVariant::Int, QStringLiteral("true"), "true");
    row("words in an int", QVariant::Int, QStringLiteral("it's \\"), "it's \\");
    row("words in a long long", QVariant::LongLong, QStringLiteral("a b"), "a b");
    row("empty text in an int", QVariant::Int, QStringLiteral(""), "");
    row("bytes in an int", QVariant::Int, QByteArray("17"), "17");
    row("date in an int", QVariant::Int, QDate(2016, 3, 1), "2016-03-01");
}

void tst_Dorvy3Literal::integer()
{
    compareRow(false);
}

void tst_Dorvy3Literal::number_data()
{
    addLiteralColumns();
    const double zero = 0.0;
    row("infinity", QVariant::Double, Infinity, "'Infinity'");
    row("negative infinity", QVariant::Double, -Infinity, "'Infinity'");
    row("overflow", QVariant::Double, DBL_MAX * 2, "'Infinity'");
    row("not a number", QVariant::Double, NotANumber, "'NaN'");
    row("negative not a number", QVariant::Double, -NotANumber, "'NaN'");
    row("infinity less infinity", QVariant::Double, Infinity - Infinity, "'NaN'");
    row("zero", QVariant::Double, zero, "0");
    row("one", QVariant::Double, 1.0, "1");
    row("negative", QVariant::Double, -2.5, "-2.5");
    row("half", QVariant::Double, 0.5, "0.5");
    row("tenth", QVariant::Double, 0.1, "0.1");
    row("beyond the integers", QVariant::Double, 1e100, "1e+100");
    row("small", QVariant::Double, -1e-7, "-1e-07");

    row("int", QVariant::Double, -7, "-7");
    row("long long", QVariant::Double, std::numeric_limits<qint64>::max(), "9223372036854775807");
    row("true", QVariant::Double, true, "true");
    row("false", QVariant::Double, false, "false");
    row("text", QVariant::Double, QStringLiteral("1.50"), "1.50");
    row("words", QVariant::Double, QStringLiteral("it's"), "it's");
    row("float", QVariant::Double, QVariant::fromValue(0.25F), "0.25");
    row("infinite float", QVariant::Double,
        QVariant::fromValue(-std::numeric_limits<float>::infinity()), "'Infinity'");
    row("float that is not a number", QVariant::Double,
        QVariant::fromValue(std::numeric_limits<float>::quiet_NaN()), "'NaN'");
}

void tst_Dorvy3Literal::number()
{
    compareRow(false);
}

void tst_Dorvy3Literal::numberHasQtsDigits_data()
{
    QTest::addColumn<double>("value");
    QTest::newRow("third") << 1.0 / 3;
    QTest::newRow("negative zero") << -0.0;
    QTest::newRow("sixteen digits") << 1234567890123456.0;
    QTest::newRow("largest") << DBL_MAX;
    QTest::newRow("lowest") << -DBL_MAX;
    QTest::newRow("smallest normal") << DBL_MIN;
    QTest::newRow("smallest") << std::numeric_limits<double>::denorm_min();
}

// How many digits there are differs between versions of Qt, so Qt tells what is expected.
void tst_Dorvy3Literal::numberHasQtsDigits()
{
    QFETCH(double, value);
    QCOMPARE(format(QVariant::Double, value), QVariant(value).toString());
}

void tst_Dorvy3Literal::text_data()
{
    addLiteralColumns();
    textRow("empty", "", "''");
    textRow("plain", "abc", "'abc'");
    textRow("blanks stay", "  a  ", "'  a  '");
    textRow("blanks alone stay", "   ", "'   '");
    textRow("tabs and newlines stay", "\t\r\na\n\t", "'\t\r\na\n\t'");
    textRow("quote and backslash in words", "O'Brien\\x", "'O\\'Brien\\\\x'");
    textRow("quote", "'", "'\\''");
    textRow("backslash", "\\", "'\\\\'");
    textRow("quote, backslash", "'\\", "'\\'\\\\'");
    textRow("backslash, quote", "\\'", "'\\\\\\''");
    textRow("two quotes", "''", "'\\'\\''");
    textRow("two backslashes", "\\\\", "'\\\\\\\\'");
    textRow("quote, backslash, quote", "'\\'", "'\\'\\\\\\''");
    textRow("backslash, quote, backslash", "\\'\\", "'\\\\\\'\\\\'");
    textRow("backslash in front", "\\a", "'\\\\a'");
    textRow("backslash at the end", "a\\", "'a\\\\'");
    textRow("backslash n is not a newline", "a\\nb", "'a\\\\nb'");
    textRow("double quotes stay", "\"a\"", "'\"a\"'");
    textRow("percent signs stay", "%1 %2 %%", "'%1 %2 %%'");
    textRow("Russian", "база", "'база'");
    textRow("beyond 16 bits", "\xf0\x9f\x90\x98", "'\xf0\x9f\x90\x98'");
    textRow("NULL is a word", "NULL", "'NULL'");

    row("int", QVariant::String, 7, "'7'");
    row("true", QVariant::String, true, "'true'");
    row("double", QVariant::String, 0.5, "'0.5'");
    row("infinity", QVariant::String, Infinity, "'inf'");
    row("bytes", QVariant::String, QByteArray("O'Brien"), "'O\\'Brien'");
    row("date", QVariant::String, QDate(2016, 3, 1), "'2016-03-01'");
    row("character", QVariant::String, QChar(QLatin1Char('\'')), "'\\''");
    row("map, which has no text", QVariant::String,
        QVariantMap{{QStringLiteral("key"), QStringLiteral("value")}}, "''");
}

void tst_Dorvy3Literal::text()
{
    compareRow(false);
}

void tst_Dorvy3Literal::textKeepsItsZeroCharacter()
{
    const QString value = QString::fromLatin1("a\0b", 3);
    QCOMPARE(format(QVariant::String, value), QString::fromLatin1("'a\0b'", 5));
}

void tst_Dorvy3Literal::trimmedText_data()
{
    addLiteralColumns();
    textRow("two blanks, a, two blanks", "  a  ", "'a'");
    textRow("in front", "  a", "'a'");
    textRow("at the end", "a  ", "'a'");
    textRow("blanks inside stay", " a  b ", "'a  b'");
    textRow("tabs and newlines", "\t\r\na\n\v\f\t", "'a'");
    textRow("newline inside stays", "\na\n\nb\n", "'a\n\nb'");
    textRow("no-break space",
            "\xc2\xa0"
            "a\xc2\xa0",
            "'a'");
    textRow("em space",
            "\xe2\x80\x83"
            "a\xe2\x80\x83",
            "'a'");
    textRow("blanks alone", " \t\n ", "''");
    textRow("empty", "", "''");
    textRow("nothing to trim", "abc", "'abc'");
    textRow("quotes keep their blanks", " ' a ' ", "'\\' a \\''");
    textRow("backslashes keep their blanks", " \\ a \\ ", "'\\\\ a \\\\'");
    textRow("backslash and n are no newline", " \\na\\n ", "'\\\\na\\\\n'");
    row("bytes in a string", QVariant::String, QByteArray("  a  "), "'a'");
}

void tst_Dorvy3Literal::trimmedText()
{
    compareRow(true);
}

void tst_Dorvy3Literal::trimmingLeavesOtherTypes_data()
{
    addLiteralColumns();
    row("bytes", QVariant::ByteArray, QByteArray("  a  "), "'  a  '");
    row("text in bytes", QVariant::ByteArray, QStringLiteral("  a  "), "'  a  '");
    row("text in an int", QVariant::Int, QStringLiteral("  7  "), "  7  ");
    row("text in a long long", QVariant::LongLong, QStringLiteral("\t7\n"), "\t7\n");
    row("text in a double", QVariant::Double, QStringLiteral("  7.5  "), "  7.5  ");
    row("bool", QVariant::Bool, true, "TRUE");
    row("date", QVariant::Date, QDate(2016, 3, 1), "'2016-03-01'");
    row("time", QVariant::Time, QTime(12, 34), "'12:34:00.000'");
    row("date-time", QVariant::DateTime, utc(QDate(2016, 3, 1), QTime(12, 0)),
        "TIMESTAMP WITH TIME ZONE '2016-03-01T12:00:00.000Z'");
}

void tst_Dorvy3Literal::trimmingLeavesOtherTypes()
{
    compareRow(true);
}

void tst_Dorvy3Literal::bytesOfAnotherType_data()
{
    addLiteralColumns();
    row("text", QVariant::ByteArray, QStringLiteral("it's"), "'it''s'");
    row("empty text", QVariant::ByteArray, QStringLiteral(""), "''");
    row("int", QVariant::ByteArray, -7, "'-7'");
    row("true", QVariant::ByteArray, true, "'true'");
    row("date, which has no bytes", QVariant::ByteArray, QDate(2016, 3, 1), "''");
}

void tst_Dorvy3Literal::bytesOfAnotherType()
{
    compareRow(false);
}

void tst_Dorvy3Literal::date_data()
{
    addLiteralColumns();
    row("date", QVariant::Date, QDate(2016, 3, 1), "'2016-03-01'");
    row("leap day", QVariant::Date, QDate(2016, 2, 29), "'2016-02-29'");
    row("before 1970", QVariant::Date, QDate(1969, 12, 31), "'1969-12-31'");
    row("before year 1000", QVariant::Date, QDate(999, 12, 31), "'0999-12-31'");
    row("first of year 1", QVariant::Date, QDate(1, 1, 1), "'0001-01-01'");
    row("last of year 9999", QVariant::Date, QDate(9999, 12, 31), "'9999-12-31'");
    // Qt's ISO form has nothing for other years.
    row("year 10000", QVariant::Date, QDate(10000, 1, 1), "''");
    row("year before year 1", QVariant::Date, QDate(-1, 12, 31), "''");

    row("text", QVariant::Date, QStringLiteral("2016-03-01"), "'2016-03-01'");
    row("date-time", QVariant::Date, utc(QDate(2016, 3, 1), QTime(23, 59)), "'2016-03-01'");
    row("day that does not exist", QVariant::Date, QStringLiteral("2015-02-29"), "NULL");
    row("words", QVariant::Date, QStringLiteral("no date"), "NULL");
    row("empty text", QVariant::Date, QStringLiteral(""), "NULL");
    row("int", QVariant::Date, 42430, "NULL");
    row("time", QVariant::Date, QTime(12, 0), "NULL");
    row("invalid date", QVariant::Date, QDate(2015, 2, 29), "NULL");
    row("date-time without a date", QVariant::Date, utc(QDate(), QTime(12, 0)), "NULL");
}

void tst_Dorvy3Literal::date()
{
    compareRow(false);
}

void tst_Dorvy3Literal::time_data()
{
    addLiteralColumns();
    row("time", QVariant::Time, QTime(12, 34, 56, 789), "'12:34:56.789'");
    row("midnight", QVariant::Time, QTime(0, 0), "'00:00:00.000'");
    row("one digit each", QVariant::Time, QTime(1, 2, 3, 4), "'01:02:03.004'");
    row("afternoon has 24 hours", QVariant::Time, QTime(13, 0), "'13:00:00.000'");
    row("last of the day", QVariant::Time, QTime(23, 59, 59, 999), "'23:59:59.999'");
    row("tens of milliseconds", QVariant::Time, QTime(0, 0, 0, 120), "'00:00:00.120'");

    row("text", QVariant::Time, QStringLiteral("12:34:56"), "'12:34:56.000'");
    row("date-time", QVariant::Time, utc(QDate(2016, 3, 1), QTime(12, 34)), "'12:34:00.000'");
    row("hour that does not exist", QVariant::Time, QStringLiteral("25:00:00"), "NULL");
    row("words", QVariant::Time, QStringLiteral("noon"), "NULL");
    row("empty text", QVariant::Time, QStringLiteral(""), "NULL");
    row("int", QVariant::Time, 12, "NULL");
    row("date", QVariant::Time, QDate(2016, 3, 1), "NULL");
    row("invalid time", QVariant::Time, QTime(24, 0), "NULL");
}

void tst_Dorvy3Literal::time()
{
    compareRow(false);
}

void tst_Dorvy3Literal::dateTime_data()
{
    addLiteralColumns();
    const QDate date(2016, 3, 1);
    const QTime noon(12, 0);
    row("UTC", QVariant::DateTime, utc(date, noon),
        "TIMESTAMP WITH TIME ZONE '2016-03-01T12:00:00.000Z'");
    row("one digit each", QVariant::DateTime, utc(QDate(2016, 1, 2), QTime(3, 4, 5, 6)),
        "TIMESTAMP WITH TIME ZONE '2016-01-02T03:04:05.006Z'");
    row("epoch", QVariant::DateTime, utc(QDate(1970, 1, 1), QTime(0, 0)),
        "TIMESTAMP WITH TIME ZONE '1970-01-01T00:00:00.000Z'");
    row("one millisecond before it", QVariant::DateTime,
        utc(QDate(1969, 12, 31), QTime(23, 59, 59, 999)),
        "TIMESTAMP WITH TIME ZONE '1969-12-31T23:59:59.999Z'");
    row("first of year 1", QVariant::DateTime, utc(QDate(1, 1, 1), QTime(0, 0)),
        "TIMESTAMP WITH TIME ZONE '0001-01-01T00:00:00.000Z'");
    row("last of year 9999", QVariant::DateTime, utc(QDate(9999, 12, 31), QTime(23, 59, 59, 999)),
        "TIMESTAMP WITH TIME ZONE '9999-12-31T23:59:59.999Z'");
    row("year 10000", QVariant::DateTime, utc(QDate(10000, 1, 1), QTime(0, 0)),
        "TIMESTAMP WITH TIME ZONE '10000-01-01T00:00:00.000Z'");
    row("year before year 1", QVariant::DateTime, utc(QDate(-1, 12, 31), QTime(0, 0)),
        "TIMESTAMP WITH TIME ZONE '-0001-12-31T00:00:00.000Z'");
    row("offset to the east", QVariant::DateTime,
        QDateTime(date, noon, Qt::OffsetFromUTC, 5 * 3600 + 1800),
        "TIMESTAMP WITH TIME ZONE '2016-03-01T06:30:00.000Z'");
    row("offset to the west", QVariant::DateTime,
        QDateTime(date, noon, Qt::OffsetFromUTC, -8 * 3600),
        "TIMESTAMP WITH TIME ZONE '2016-03-01T20:00:00.000Z'");
    row("offset of nothing", QVariant::DateTime, QDateTime(date, noon, Qt::OffsetFromUTC, 0),
        "TIMESTAMP WITH TIME ZONE '2016-03-01T12:00:00.000Z'");
    row("offset into the leap day", QVariant::DateTime,
        QDateTime(date, QTime(1, 0), Qt::OffsetFromUTC, 2 * 3600),
        "TIMESTAMP WITH TIME ZONE '2016-02-29T23:00:00.000Z'");
    row("offset into the next year", QVariant::DateTime,
        QDateTime(QDate(2015, 12, 31), QTime(23, 30), Qt::OffsetFromUTC, -3600),
        "TIMESTAMP WITH TIME ZONE '2016-01-01T00:30:00.000Z'");
    row("time zone of its own", QVariant::DateTime, QDateTime(date, noon, QTimeZone(3 * 3600)),
        "TIMESTAMP WITH TIME ZONE '2016-03-01T09:00:00.000Z'");
    row("text with Z", QVariant::DateTime, QStringLiteral("2016-03-01T12:00:00Z"),
        "TIMESTAMP WITH TIME ZONE '2016-03-01T12:00:00.000Z'");

    row("without a date", QVariant::DateTime, utc(QDate(), noon), "NULL");
    row("without anything", QVariant::DateTime, QDateTime(), "NULL");
    row("zone that does not exist", QVariant::DateTime,
        QDateTime(date, noon, QTimeZone(QByteArray("No/Where"))), "NULL");
    row("day that does not exist", QVariant::DateTime, QStringLiteral("2015-02-29T12:00:00"),
        "NULL");
    row("words", QVariant::DateTime, QStringLiteral("yesterday"), "NULL");
    row("empty text", QVariant::DateTime, QStringLiteral(""), "NULL");
    row("int", QVariant::DateTime, 0, "NULL");
    row("time", QVariant::DateTime, noon, "NULL");
}

void tst_Dorvy3Literal::dateTime()
{
    QFETCH(int, type);
    QFETCH(QVariant, value);
    QFETCH(QString, literal);
    for (const char *zone : {"UTC", Zone, SummerZone, "PST8"}) {
        const LocalZone local(zone);
        QCOMPARE(format(type, value), literal);
    }
}

void tst_Dorvy3Literal::localDateTimeGoesAsUtc_data()
{
    QTest::addColumn<QByteArray>("zone");
    QTest::addColumn<QDate>("date");
    QTest::addColumn<QTime>("time");
    QTest::addColumn<QString>("utc");
    const auto row = [](const char *tag, const char *zone, const QDate &date, const QTime &time,
                        const char *utc) {
        QTest::newRow(tag) << QByteArray(zone) << date << time << utf8(utc);
    };
    row("noon three hours east", Zone, QDate(2016, 3, 1), QTime(12, 0), "2016-03-01T09:00:00.000");
    row("the day before", Zone, QDate(2016, 3, 1), QTime(1, 0), "2016-02-29T22:00:00.000");
    row("before 1970", Zone, QDate(1969, 12, 31), QTime(23, 59, 59, 999),
        "1969-12-31T20:59:59.999");
    row("local 1970, before it in UTC", Zone, QDate(1970, 1, 1), QTime(1, 0),
        "1969-12-31T22:00:00.000");
    row("before 1901", Zone, QDate(1825, 12, 14), QTime(12, 0), "1825-12-14T09:00:00.000");
    row("after 2038", Zone, QDate(2050, 7, 1), QTime(12, 0), "2050-07-01T09:00:00.000");
    row("local year 1, before it in UTC", Zone, QDate(1, 1, 1), QTime(0, 30),
        "-0001-12-31T21:30:00.000");
    row("zone in UTC", "UTC", QDate(2016, 3, 1), QTime(12, 0, 0, 1), "2016-03-01T12:00:00.001");
    row("half an hour to the west", "NST3:30", QDate(2016, 3, 1), QTime(23, 0),
        "2016-03-02T02:30:00.000");
    row("local 9999, after it in UTC", "BRT3", QDate(9999, 12, 31), QTime(23, 0),
        "10000-01-01T02:00:00.000");
    row("winter", SummerZone, QDate(2016, 12, 1), QTime(12, 0), "2016-12-01T11:00:00.000");
    row("summer", SummerZone, QDate(2016, 7, 1), QTime(12, 0), "2016-07-01T10:00:00.000");
    row("last of winter time", SummerZone, QDate(2016, 3, 27), QTime(1, 59, 59, 999),
        "2016-03-27T00:59:59.999");
    row("first of summer time", SummerZone, QDate(2016, 3, 27), QTime(3, 0),
        "2016-03-27T01:00:00.000");
}

void tst_Dorvy3Literal::localDateTimeGoesAsUtc()
{
    QFETCH(QByteArray, zone);
    QFETCH(QDate, date);
    QFETCH(QTime, time);
    QFETCH(QString, utc);
    const LocalZone local(zone.constData());
    QCOMPARE(format(QVariant::DateTime, QDateTime(date, time)),
             QStringLiteral("TIMESTAMP WITH TIME ZONE '") + utc + QStringLiteral("Z'"));
}

// Half past two comes twice that night.
void tst_Dorvy3Literal::bothHoursAtTheEndOfSummerTime()
{
    const LocalZone local(SummerZone);
    const QDateTime first = utc(QDate(2016, 10, 30), QTime(0, 30)).toLocalTime();
    const QDateTime second = utc(QDate(2016, 10, 30), QTime(1, 30)).toLocalTime();
    QCOMPARE(first.time(), QTime(2, 30));
    QCOMPARE(second.time(), QTime(2, 30));
    QCOMPARE(format(QVariant::DateTime, first),
             QStringLiteral("TIMESTAMP WITH TIME ZONE '2016-10-30T00:30:00.000Z'"));
    QCOMPARE(format(QVariant::DateTime, second),
             QStringLiteral("TIMESTAMP WITH TIME ZONE '2016-10-30T01:30:00.000Z'"));
}

void tst_Dorvy3Literal::hourLeftOutAtTheStartOfSummerTimeIsNull()
{
    const LocalZone local(SummerZone);
    const QDateTime leftOut(QDate(2016, 3, 27), QTime(2, 30));
    QVERIFY(!leftOut.isValid());
    QVERIFY(!leftOut.isNull());
    QCOMPARE(format(QVariant::DateTime, leftOut), QStringLiteral("NULL"));
}

void tst_Dorvy3Literal::dateTimeWithoutZoneTextIsLocal()
{
    const LocalZone local(Zone);
    QCOMPARE(format(QVariant::DateTime, QStringLiteral("2016-03-01T12:00:00")),
             QStringLiteral("TIMESTAMP WITH TIME ZONE '2016-03-01T09:00:00.000Z'"));
    QCOMPARE(format(QVariant::DateTime, QDate(2016, 3, 1)),
             QStringLiteral("TIMESTAMP WITH TIME ZONE '2016-02-29T21:00:00.000Z'"));
}

// A date or a time alone stands as the value has it, in whichever zone that is.
void tst_Dorvy3Literal::dateAndTimeAreNotConverted()
{
    const LocalZone local(Zone);
    const QDate date(2016, 3, 1);
    const QDateTime early(date, QTime(1, 2, 3, 4));
    QCOMPARE(format(QVariant::Date, early), QStringLiteral("'2016-03-01'"));
    QCOMPARE(format(QVariant::Time, early), QStringLiteral("'01:02:03.004'"));
    const QDateTime lateInUtc = utc(date, QTime(23, 0));
    QCOMPARE(format(QVariant::Date, lateInUtc), QStringLiteral("'2016-03-01'"));
    QCOMPARE(format(QVariant::Time, lateInUtc), QStringLiteral("'23:00:00.000'"));
    const QDateTime farOff(date, QTime(23, 0), Qt::OffsetFromUTC, -8 * 3600);
    QCOMPARE(format(QVariant::Date, farOff), QStringLiteral("'2016-03-01'"));
    QCOMPARE(format(QVariant::Time, farOff), QStringLiteral("'23:00:00.000'"));
    QCOMPARE(format(QVariant::Date, date), QStringLiteral("'2016-03-01'"));
    QCOMPARE(format(QVariant::Time, QTime(1, 0)), QStringLiteral("'01:00:00.000'"));
}

// Arabic digits, or a decimal comma, would be a syntax error.
void tst_Dorvy3Literal::defaultLocaleDoesNotMatter()
{
    const QLocale before;
    for (const char *name : {"ar_EG", "de_DE"}) {
        QLocale::setDefault(QLocale(QLatin1String(name)));
        const QString number = format(QVariant::Double, -1234.5);
        const QString integer = format(QVariant::Int, -1234567);
        const QString date = format(QVariant::Date, QDate(2016, 3, 1));
        const QString time = format(QVariant::Time, QTime(1, 2, 3, 4));
        const QString dateTime =
            format(QVariant::DateTime, utc(QDate(2016, 3, 1), QTime(1, 2, 3, 4)));
        QLocale::setDefault(before);
        QCOMPARE(number, QStringLiteral("-1234.5"));
        QCOMPARE(integer, QStringLiteral("-1234567"));
        QCOMPARE(date, QStringLiteral("'2016-03-01'"));
        QCOMPARE(time, QStringLiteral("'01:02:03.004'"));
        QCOMPARE(dateTime, QStringLiteral("TIMESTAMP WITH TIME ZONE '2016-03-01T01:02:03.004Z'"));
    }
}

void tst_Dorvy3Literal::unsupportedTypeIsFatal_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<int>("number");
    QTest::addColumn<QVariant>("value");
    const auto row = [](const char *tag, int type, int number, const QVariant &value) {
        QTest::newRow(tag) << type << number << value;
    };
    row("invalid with a value", QVariant::Invalid, 0, 7);
    row("unsigned int", QVariant::UInt, 3, 7U);
    row("unsigned long long", QVariant::ULongLong, 5, Q_UINT64_C(7));
    row("char", QVariant::Char, 7, QChar(QLatin1Char('a')));
    row("map", QVariant::Map, 8, QVariantMap{{QStringLiteral("key"), 1}});
    row("list", QVariant::List, 9, QVariantList{1});
    row("string list", QVariant::StringList, 11, QStringList(QStringLiteral("a")));
    row("bit array", QVariant::BitArray, 13, QBitArray(1, true));
    row("URL", QVariant::Url, 17, QUrl(QStringLiteral("file:///a")));
    row("locale", QVariant::Locale, 18, QLocale::c());
    row("rectangle", QVariant::Rect, 19, QRect(0, 0, 1, 1));
    row("hash", QVariant::Hash, 28, QVariantHash{{QStringLiteral("key"), 1}});
    row("UUID", QVariant::Uuid, 30,
        QUuid(QStringLiteral("{00000000-0000-0000-0000-000000000001}")));
    row("long", QMetaType::Long, 32, QVariant::fromValue(7L));
    row("short", QMetaType::Short, 33, QVariant::fromValue(short(7)));
    row("one-byte char", QMetaType::Char, 34, QVariant::fromValue('a'));
    row("unsigned char", QMetaType::UChar, 37, QVariant::fromValue(static_cast<uchar>(7)));
    row("float", QMetaType::Float, 38, QVariant::fromValue(0.5F));
    row("signed char", QMetaType::SChar, 40, QVariant::fromValue(static_cast<signed char>(7)));
    row("regular expression", QVariant::RegularExpression, 44,
        QRegularExpression(QStringLiteral("a")));
    row("user type", QVariant::UserType, 1024, 7);

    // The declared type decides, not the value's.
    row("int in an unsigned int", QVariant::UInt, 3, 7);
    row("text in a char", QVariant::Char, 7, QStringLiteral("a"));
    row("double in a float", QMetaType::Float, 38, 0.5);
    row("empty text in a string list", QVariant::StringList, 11, QStringLiteral(""));
}

void tst_Dorvy3Literal::unsupportedTypeIsFatal()
{
    QFETCH(int, type);
    QFETCH(int, number);
    QFETCH(QVariant, value);
    const QSqlField field = fieldOf(type, value);
    QVERIFY(!field.isNull());
    const ChildOutcome outcome = runInChild([&field] { format(field); });
    QCOMPARE(outcome.fatal,
             QStringLiteral("DORVY: hlpPSQLValueToString - unknown field type (%1)").arg(number));
    QVERIFY(outcome.aborted);
}

QTEST_GUILESS_MAIN(tst_Dorvy3Literal)
#include "tst_dorvy3literal.moc"
