// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Column values in text format.
#include "driver/dorvydecode_p.h"

#include "access/dorvy3connection.h"
#include "tests/support/childprocess.h"
#include "tests/support/localzone.h"
#include "tests/support/typeoids.h"

#include <QtTest/QtTest>

#include <limits>

Q_DECLARE_METATYPE(QVariant::Type)
Q_DECLARE_METATYPE(QSql::NumericalPrecisionPolicy)

namespace {

QVariant decode(QVariant::Type type, int oid, const QByteArray &text,
                QSql::NumericalPrecisionPolicy policy = QSql::LowPrecisionDouble)
{
    // Without a server: its texts are Latin-1.
    const auto connection = QSharedPointer<Dorvy3Connection>::create(nullptr, QString());
    return hlpPSQLValueToVariant(connection, type, oid, policy, text.constData());
}

int metaType(const QVariant &value)
{
    return value.userType();
}

} // namespace

class tst_DorvyDecodeText : public QObject
{
    Q_OBJECT

private slots:
    void boolIsTheLetterT_data();
    void boolIsTheLetterT();
    void int32IsUnsigned_data();
    void int32IsUnsigned();
    void negativeInt32KeepsItsPattern();
    void int64IsUnsigned_data();
    void int64IsUnsigned();
    void badIntegerIsInvalid_data();
    void badIntegerIsInvalid();
    void floatingPoint_data();
    void floatingPoint();
    void badFloatingPointIsZero();
    void numericByPolicy_data();
    void numericByPolicy();
    void badNumericIsInvalid_data();
    void badNumericIsInvalid();
    void badNumericIsTextAtHighPrecision();
    void unknownPolicyIsInvalid();
    void stringsAreDecoded_data();
    void stringsAreDecoded();
    void bytesAreUnescaped_data();
    void bytesAreUnescaped();
    void bytesAreTheirOwn();
    void dates_data();
    void dates();
    void badDateIsInvalid_data();
    void badDateIsInvalid();
    void dateTimes_data();
    void dateTimes();
    void shortDateTimeIsNull_data();
    void shortDateTimeIsNull();
    void badDateTimeIsInvalid();
    void otherTypesAreFatal_data();
    void otherTypesAreFatal();
};

void tst_DorvyDecodeText::boolIsTheLetterT_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<bool>("value");
    QTest::newRow("true") << QByteArray("t") << true;
    QTest::newRow("false") << QByteArray("f") << false;
    QTest::newRow("first character decides") << QByteArray("ture") << true;
    QTest::newRow("capital") << QByteArray("T") << false;
    QTest::newRow("number") << QByteArray("1") << false;
    QTest::newRow("empty") << QByteArray("") << false;
}

void tst_DorvyDecodeText::boolIsTheLetterT()
{
    QFETCH(QByteArray, text);
    QFETCH(bool, value);
    const QVariant decoded = decode(QVariant::Bool, OidBool, text);
    QCOMPARE(metaType(decoded), int(QMetaType::Bool));
    QCOMPARE(decoded.toBool(), value);
}

void tst_DorvyDecodeText::int32IsUnsigned_data()
{
    QTest::addColumn<int>("oid");
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<uint>("value");
    QTest::newRow("zero") << OidInt4 << QByteArray("0") << 0U;
    QTest::newRow("positive") << OidInt4 << QByteArray("42") << 42U;
    QTest::newRow("int2") << OidInt2 << QByteArray("-32768") << 4294934528U;
    QTest::newRow("minus one") << OidInt4 << QByteArray("-1") << 4294967295U;
    QTest::newRow("greatest int4") << OidInt4 << QByteArray("2147483647") << 2147483647U;
    QTest::newRow("least int4") << OidInt4 << QByteArray("-2147483648") << 2147483648U;
    QTest::newRow("greatest unsigned") << OidInt4 << QByteArray("4294967295") << 4294967295U;
}

void tst_DorvyDecodeText::int32IsUnsigned()
{
    QFETCH(int, oid);
    QFETCH(QByteArray, text);
    QFETCH(uint, value);
    const QVariant decoded = decode(QVariant::Int, oid, text);
    QCOMPARE(metaType(decoded), int(QMetaType::UInt));
    QCOMPARE(decoded.toUInt(), value);
}

void tst_DorvyDecodeText::negativeInt32KeepsItsPattern()
{
    const QVariant decoded = decode(QVariant::Int, OidInt4, "-5");
    QCOMPARE(metaType(decoded), int(QMetaType::UInt));
    QCOMPARE(decoded.toInt(), -5);
    QCOMPARE(decoded.toLongLong(), Q_INT64_C(4294967291));
}

void tst_DorvyDecodeText::int64IsUnsigned_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<quint64>("value");
    QTest::newRow("zero") << QByteArray("0") << Q_UINT64_C(0);
    QTest::newRow("beyond 32 bits") << QByteArray("4294967296") << Q_UINT64_C(4294967296);
    QTest::newRow("minus five") << QByteArray("-5") << Q_UINT64_C(18446744073709551611);
    QTest::newRow("greatest int8")
        << QByteArray("9223372036854775807") << Q_UINT64_C(9223372036854775807);
    QTest::newRow("least int8") << QByteArray("-9223372036854775808")
                                << Q_UINT64_C(9223372036854775808);
    QTest::newRow("greatest unsigned")
        << QByteArray("18446744073709551615") << Q_UINT64_C(18446744073709551615);
}

void tst_DorvyDecodeText::int64IsUnsigned()
{
    QFETCH(QByteArray, text);
    QFETCH(quint64, value);
    const QVariant decoded = decode(QVariant::LongLong, OidInt8, text);
    QCOMPARE(metaType(decoded), int(QMetaType::ULongLong));
    QCOMPARE(decoded.toULongLong(), value);
}

void tst_DorvyDecodeText::badIntegerIsInvalid_data()
{
    QTest::addColumn<QVariant::Type>("type");
    QTest::addColumn<QByteArray>("text");
    for (const QVariant::Type type : {QVariant::Int, QVariant::LongLong}) {
        const QByteArray name(QVariant::typeToName(type));
        const auto row = [&name, type](const char *what, const char *text) {
            QTest::newRow((name + ' ' + what).constData()) << type << QByteArray(text);
        };
        row("letters", "abc");
        row("empty", "");
        row("minus alone", "-");
        row("fraction", "1.5");
        row("tail", "12abc");
        row("hexadecimal", "0x10");
        row("above every integer", "18446744073709551616");
        row("below every integer", "-9223372036854775809");
    }
    QTest::newRow("above 32 bits") << QVariant::Int << QByteArray("4294967296");
    QTest::newRow("below 32 bits") << QVariant::Int << QByteArray("-2147483649");
}

void tst_DorvyDecodeText::badIntegerIsInvalid()
{
    QFETCH(QVariant::Type, type);
    QFETCH(QByteArray, text);
    QVERIFY(!decode(type, type == QVariant::Int ? OidInt4 : OidInt8, text).isValid());
}

void tst_DorvyDecodeText::floatingPoint_data()
{
    QTest::addColumn<int>("oid");
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<double>("value");
    QTest::newRow("float4") << OidFloat4 << QByteArray("1.5") << 1.5;
    QTest::newRow("float8") << OidFloat8 << QByteArray("-2.25") << -2.25;
    QTest::newRow("float8 with exponent") << OidFloat8 << QByteArray("1e+300") << 1e300;
    QTest::newRow("float8 smallest") << OidFloat8 << QByteArray("5e-324") << 5e-324;
    QTest::newRow("whole") << OidFloat8 << QByteArray("7") << 7.0;
}

void tst_DorvyDecodeText::floatingPoint()
{
    QFETCH(int, oid);
    QFETCH(QByteArray, text);
    QFETCH(double, value);
    // The policy is for numeric alone.
    for (const QSql::NumericalPrecisionPolicy policy :
         {QSql::LowPrecisionInt32, QSql::LowPrecisionInt64, QSql::LowPrecisionDouble,
          QSql::HighPrecision}) {
        const QVariant decoded = decode(QVariant::Double, oid, text, policy);
        QCOMPARE(metaType(decoded), int(QMetaType::Double));
        QCOMPARE(decoded.toDouble(), value);
    }
}

void tst_DorvyDecodeText::badFloatingPointIsZero()
{
    // The server's own word for the infinite is none of Qt's.
    for (const char *text : {"", "abc", "1.5x", "Infinity", "-Infinity"}) {
        const QVariant decoded = decode(QVariant::Double, OidFloat8, text);
        QCOMPARE(metaType(decoded), int(QMetaType::Double));
        QCOMPARE(decoded.toDouble(), 0.0);
    }
}

void tst_DorvyDecodeText::numericByPolicy_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QSql::NumericalPrecisionPolicy>("policy");
    QTest::addColumn<QVariant>("value");
    QTest::newRow("text itself") << QByteArray("12.50") << QSql::HighPrecision
                                 << QVariant(QStringLiteral("12.50"));
    QTest::newRow("int32") << QByteArray("12.50") << QSql::LowPrecisionInt32 << QVariant(12);
    QTest::newRow("int64") << QByteArray("12.50") << QSql::LowPrecisionInt64
                           << QVariant(Q_INT64_C(12));
    QTest::newRow("double") << QByteArray("12.50") << QSql::LowPrecisionDouble << QVariant(12.5);
    QTest::newRow("int32 toward zero")
        << QByteArray("-12.99") << QSql::LowPrecisionInt32 << QVariant(-12);
    QTest::newRow("int64 toward zero")
        << QByteArray("-12.99") << QSql::LowPrecisionInt64 << QVariant(Q_INT64_C(-12));
    QTest::newRow("int64 beyond 32 bits") << QByteArray("5000000000.75") << QSql::LowPrecisionInt64
                                          << QVariant(Q_INT64_C(5000000000));
    QTest::newRow("least int32") << QByteArray("-2147483648") << QSql::LowPrecisionInt32
                                 << QVariant(int(-2147483647 - 1));
    QTest::newRow("greatest int32")
        << QByteArray("2147483647.99") << QSql::LowPrecisionInt32 << QVariant(2147483647);
    // Odd numbers from 2^52 on have no room for the half that rounding to the nearest would add.
    QTest::newRow("int64 odd, 53 bits") << QByteArray("4503599627370497") << QSql::LowPrecisionInt64
                                        << QVariant(Q_INT64_C(4503599627370497));
    QTest::newRow("int64 of 53 ones") << QByteArray("9007199254740991") << QSql::LowPrecisionInt64
                                      << QVariant(Q_INT64_C(9007199254740991));
    QTest::newRow("int64 odd, negative")
        << QByteArray("-4503599627370497") << QSql::LowPrecisionInt64
        << QVariant(Q_INT64_C(-4503599627370497));
    QTest::newRow("least int64") << QByteArray("-9223372036854775808") << QSql::LowPrecisionInt64
                                 << QVariant(std::numeric_limits<qint64>::min());
    QTest::newRow("long text itself")
        << QByteArray("123456789012345678901234567890.123456789") << QSql::HighPrecision
        << QVariant(QStringLiteral("123456789012345678901234567890.123456789"));
    QTest::newRow("text itself, as Latin-1")
        << QByteArray("12\xe9") << QSql::HighPrecision << QVariant(QString::fromUtf8("12\u00e9"));
}

void tst_DorvyDecodeText::numericByPolicy()
{
    QFETCH(QByteArray, text);
    QFETCH(QSql::NumericalPrecisionPolicy, policy);
    QFETCH(QVariant, value);
    const QVariant decoded = decode(QVariant::Double, OidNumeric, text, policy);
    QCOMPARE(metaType(decoded), metaType(value));
    QCOMPARE(decoded, value);
}

void tst_DorvyDecodeText::badNumericIsInvalid_data()
{
    QTest::addColumn<QSql::NumericalPrecisionPolicy>("policy");
    QTest::newRow("int32") << QSql::LowPrecisionInt32;
    QTest::newRow("int64") << QSql::LowPrecisionInt64;
    QTest::newRow("double") << QSql::LowPrecisionDouble;
}

void tst_DorvyDecodeText::badNumericIsInvalid()
{
    QFETCH(QSql::NumericalPrecisionPolicy, policy);
    for (const char *text : {"", "abc", "12.5x"}) {
        QVERIFY(!decode(QVariant::Double, OidNumeric, text, policy).isValid());
    }
}

void tst_DorvyDecodeText::badNumericIsTextAtHighPrecision()
{
    const QVariant decoded = decode(QVariant::Double, OidNumeric, "abc", QSql::HighPrecision);
    QCOMPARE(metaType(decoded), int(QMetaType::QString));
    QCOMPARE(decoded.toString(), QStringLiteral("abc"));
}

void tst_DorvyDecodeText::unknownPolicyIsInvalid()
{
    const auto policy = static_cast<QSql::NumericalPrecisionPolicy>(3);
    QVERIFY(!decode(QVariant::Double, OidNumeric, "12.50", policy).isValid());
}

void tst_DorvyDecodeText::stringsAreDecoded_data()
{
    QTest::addColumn<int>("oid");
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("value");
    QTest::newRow("name") << OidName << QByteArray("pg_class") << QStringLiteral("pg_class");
    QTest::newRow("varchar") << OidVarchar << QByteArray("ab c") << QStringLiteral("ab c");
    QTest::newRow("bpchar keeps its blanks")
        << OidBpchar << QByteArray(" ab  ") << QStringLiteral(" ab  ");
    QTest::newRow("uuid") << OidUuid << QByteArray("00112233-4455-6677-8899-aabbccddeeff")
                          << QStringLiteral("00112233-4455-6677-8899-aabbccddeeff");
    QTest::newRow("empty") << OidVarchar << QByteArray("") << QString();
    QTest::newRow("by the connection's codec")
        << OidVarchar << QByteArray("\xe9t\xe9") << QString::fromUtf8("\u00e9t\u00e9");
}

void tst_DorvyDecodeText::stringsAreDecoded()
{
    QFETCH(int, oid);
    QFETCH(QByteArray, text);
    QFETCH(QString, value);
    const QVariant decoded = decode(QVariant::String, oid, text);
    QCOMPARE(metaType(decoded), int(QMetaType::QString));
    QCOMPARE(decoded.toString(), value);
}

void tst_DorvyDecodeText::bytesAreUnescaped_data()
{
    QTest::addColumn<int>("oid");
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QByteArray>("value");
    QTest::newRow("hexadecimal") << OidBytea << QByteArray("\\x61006263") << QByteArray("a\0bc", 4);
    QTest::newRow("escaped") << OidBytea << QByteArray("a\\000b\\\\c") << QByteArray("a\0b\\c", 5);
    QTest::newRow("empty") << OidBytea << QByteArray("") << QByteArray("");
    QTest::newRow("text") << OidText << QByteArray("abc") << QByteArray("abc");
    QTest::newRow("text is unescaped too") << OidText << QByteArray("a\\101") << QByteArray("aA");
    QTest::newRow("unknown") << OidUnknown << QByteArray("\\x6162") << QByteArray("ab");
    QTest::newRow("jsonb") << OidJsonb << QByteArray("{\"a\": 1}") << QByteArray("{\"a\": 1}");
}

void tst_DorvyDecodeText::bytesAreUnescaped()
{
    QFETCH(int, oid);
    QFETCH(QByteArray, text);
    QFETCH(QByteArray, value);
    const QVariant decoded = decode(QVariant::ByteArray, oid, text);
    QCOMPARE(metaType(decoded), int(QMetaType::QByteArray));
    QCOMPARE(decoded.toByteArray(), value);
}

void tst_DorvyDecodeText::bytesAreTheirOwn()
{
    QByteArray text("\\x6162");
    const QVariant decoded = decode(QVariant::ByteArray, OidBytea, text);
    text.fill('z');
    QCOMPARE(decoded.toByteArray(), QByteArray("ab"));
}

void tst_DorvyDecodeText::dates_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QDate>("value");
    QTest::newRow("day") << QByteArray("2016-03-01") << QDate(2016, 3, 1);
    QTest::newRow("leap day") << QByteArray("2000-02-29") << QDate(2000, 2, 29);
    QTest::newRow("first year") << QByteArray("0001-01-01") << QDate(1, 1, 1);
    QTest::newRow("last year of four digits") << QByteArray("9999-12-31") << QDate(9999, 12, 31);
}

void tst_DorvyDecodeText::dates()
{
    QFETCH(QByteArray, text);
    QFETCH(QDate, value);
    const QVariant decoded = decode(QVariant::Date, OidDate, text);
    QCOMPARE(metaType(decoded), int(QMetaType::QDate));
    QCOMPARE(decoded.toDate(), value);
}

void tst_DorvyDecodeText::badDateIsInvalid_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::newRow("empty") << QByteArray("");
    QTest::newRow("infinity") << QByteArray("infinity");
    QTest::newRow("letters") << QByteArray("abcdefghij");
    QTest::newRow("no such day") << QByteArray("2015-02-29");
}

void tst_DorvyDecodeText::badDateIsInvalid()
{
    QFETCH(QByteArray, text);
    const QVariant decoded = decode(QVariant::Date, OidDate, text);
    QCOMPARE(metaType(decoded), int(QMetaType::QDate));
    QVERIFY(decoded.isNull());
    QVERIFY(!decoded.toDate().isValid());
}

void tst_DorvyDecodeText::dateTimes_data()
{
    QTest::addColumn<int>("oid");
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QDate>("date"); // as the clock three hours east of Greenwich shows it
    QTest::addColumn<QTime>("time");
    const QDate march(2016, 3, 1);
    QTest::newRow("local") << OidTimestamp << QByteArray("2016-03-01 10:00:00") << march
                           << QTime(10, 0);
    QTest::newRow("local, milliseconds")
        << OidTimestamp << QByteArray("2016-03-01 10:00:00.123") << march << QTime(10, 0, 0, 123);
    QTest::newRow("local, tenths")
        << OidTimestamp << QByteArray("2016-03-01 10:00:00.5") << march << QTime(10, 0, 0, 500);
    QTest::newRow("own zone") << OidTimestampTz << QByteArray("2016-03-01 10:00:00+03") << march
                              << QTime(10, 0);
    QTest::newRow("Greenwich") << OidTimestampTz << QByteArray("2016-03-01 10:00:00+00") << march
                               << QTime(13, 0);
    QTest::newRow("west") << OidTimestampTz << QByteArray("2016-03-01 10:00:00-08") << march
                          << QTime(21, 0);
    QTest::newRow("over midnight") << OidTimestampTz << QByteArray("2016-03-01 18:30:00-08")
                                   << QDate(2016, 3, 2) << QTime(5, 30);
    QTest::newRow("half an hour") << OidTimestampTz << QByteArray("2016-03-01 10:00:00+05:30")
                                  << march << QTime(7, 30);
    QTest::newRow("fraction and zone") << OidTimestampTz << QByteArray("2016-03-01 10:00:00.25+04")
                                       << march << QTime(9, 0, 0, 250);
}

void tst_DorvyDecodeText::dateTimes()
{
    QFETCH(int, oid);
    QFETCH(QByteArray, text);
    QFETCH(QDate, date);
    QFETCH(QTime, time);
    const LocalZone zone(Zone);
    const QVariant decoded = decode(QVariant::DateTime, oid, text);
    QCOMPARE(metaType(decoded), int(QMetaType::QDateTime));
    QCOMPARE(decoded.toDateTime().timeSpec(), Qt::LocalTime);
    QCOMPARE(decoded.toDateTime().date(), date);
    QCOMPARE(decoded.toDateTime().time(), time);
}

void tst_DorvyDecodeText::shortDateTimeIsNull_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::newRow("empty") << QByteArray("");
    QTest::newRow("infinity") << QByteArray("infinity");
    QTest::newRow("nine characters") << QByteArray("-infinity");
    QTest::newRow("nine characters of a date") << QByteArray("2016-3-01");
}

void tst_DorvyDecodeText::shortDateTimeIsNull()
{
    QFETCH(QByteArray, text);
    const QVariant decoded = decode(QVariant::DateTime, OidTimestamp, text);
    QCOMPARE(metaType(decoded), int(QMetaType::QDateTime));
    QVERIFY(decoded.isNull());
    QVERIFY(decoded.toDateTime().isNull());
}

void tst_DorvyDecodeText::badDateTimeIsInvalid()
{
    // The end of a date alone looks like an offset and gets minutes, which no date has.
    for (const char *text :
         {"abcdefghij", "2016-13-01 10:00:00", "2016-03-01 25:00:00+03", "2016-03-01"}) {
        const QVariant decoded = decode(QVariant::DateTime, OidTimestampTz, text);
        QCOMPARE(metaType(decoded), int(QMetaType::QDateTime));
        QVERIFY(!decoded.toDateTime().isValid());
    }
}

void tst_DorvyDecodeText::otherTypesAreFatal_data()
{
    QTest::addColumn<QVariant::Type>("type");
    QTest::addColumn<int>("oid");
    QTest::addColumn<QString>("message");
    QTest::newRow("time") << QVariant::Time << OidTime
                          << QStringLiteral("DORVY: hlpPSQLValueToVariant - unsupported ptype "
                                            "(1083)");
    QTest::newRow("none") << QVariant::Invalid << OidOid
                          << QStringLiteral("DORVY: hlpPSQLValueToVariant - unsupported ptype "
                                            "(26)");
    QTest::newRow("unsigned") << QVariant::UInt << OidInt4
                              << QStringLiteral("DORVY: hlpPSQLValueToVariant - unsupported ptype "
                                                "(23)");
}

void tst_DorvyDecodeText::otherTypesAreFatal()
{
    QFETCH(QVariant::Type, type);
    QFETCH(int, oid);
    QFETCH(QString, message);
    const ChildOutcome outcome = runInChild([type, oid]() { decode(type, oid, "10:00:00"); });
    QCOMPARE(outcome.fatal, message);
    QVERIFY(outcome.aborted);
}

QTEST_GUILESS_MAIN(tst_DorvyDecodeText)
#include "tst_dorvydecode_text.moc"
