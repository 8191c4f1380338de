// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Column values in binary format, from bytes written out and from a real server.
#include "driver/dorvydecode_p.h"

#include "access/dorvy3.h"
#include "driver/dorvydriver.h"
#include "tests/support/childprocess.h"
#include "tests/support/dorvydatabase.h"
#include "tests/support/localzone.h"
#include "tests/support/pgcluster.h"
#include "tests/support/sqlmacros.h"
#include "tests/support/typeoids.h"

#include <QtCore/QUuid>
#include <QtCore/QtEndian>
#include <QtSql/QSqlDatabase>
#include <QtSql/QSqlQuery>
#include <QtTest/QtTest>

#include <algorithm>
#include <climits>
#include <cmath>
#include <memory>

namespace {

// Without a server; texts are Latin-1. The bytes of the caller stay alive for raw views.
QVariant decodeBytes(int oid, const QByteArray &bytes)
{
    const auto connection = QSharedPointer<Dorvy3Connection>::create(nullptr, QString());
    return hlpBinaryPSQLValueToVariant(connection, oid, bytes.size(), bytes.constData());
}

QVariant decode(int oid, const char *hex)
{
    const QByteArray bytes = QByteArray::fromHex(hex);
    QVariant decoded = decodeBytes(oid, bytes);
    if (decoded.userType() == QMetaType::QByteArray) {
        const QByteArray view = decoded.toByteArray();
        decoded = QByteArray(view.constData(), view.size());
    }
    return decoded;
}

struct Calendar
{
    int year;
    int month;
    int day;
};

Calendar calendar(long days)
{
    Calendar date{0, 0, 0};
    hlpDecodePgDate(days, date.year, date.month, date.day);
    return date;
}

QTime timeOfDay(qint64 microseconds)
{
    int hours = 0;
    int minutes = 0;
    int seconds = 0;
    int usec = 0;
    hlpDecodePgTime(microseconds, hours, minutes, seconds, usec);
    return QTime(hours, minutes, seconds, usec / 1000);
}

// For the many: what the decoder makes of a number of its own size.
template<typename Integer>
QVariant valueOf(DorvyBinaryDecoder decoder, const Dorvy3Connection &connection, Integer number)
{
    char bytes[sizeof(number) + 1] = {};
    qToBigEndian(number, bytes);
    return decoder(&connection, bytes, int(sizeof(number)));
}

} // namespace

class tst_DorvyDecodeBinary : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();

    void boolIsAnyByteButZero_data();
    void boolIsAnyByteButZero();
    void integers_data();
    void integers();
    void floats_data();
    void floats();
    void floatNotANumber();
    void texts_data();
    void texts();
    void byteArrays_data();
    void byteArrays();
    void byteArraysAreViews_data();
    void byteArraysAreViews();
    void uuid();
    void calendarDate_data();
    void calendarDate();
    void calendarDateOfEveryDayOfFourCenturies();
    void calendarTime_data();
    void calendarTime();
    void date_data();
    void date();
    void dateInfinity();
    void everyDayOfTheCommonEra();
    void time_data();
    void time();
    void timeOutOfRangeIsInvalid();
    void everyMillisecondOfADay();
    void timestamp_data();
    void timestamp();
    void timestampHasNoZone();
    void timestampInfinity();
    void numeric_data();
    void numeric();
    void numericWithoutGroupsHasNoSign();
    void numericBeyondTheRangeIsInfinite();
    void numericOfHostileWeight_data();
    void numericOfHostileWeight();
    void tooShortIsInvalid_data();
    void tooShortIsInvalid();
    void otherTypesAreFatal_data();
    void otherTypesAreFatal();

    void fromServer_data();
    void fromServer();
    void textsFromServer_data();
    void textsFromServer();
    void numericFromServerIgnoresThePolicy();
    void byteArrayFromServerCanBeCopied();
    void thereAndBack_data();
    void thereAndBack();

private:
    QSqlQuery query() const { return QSqlQuery(QSqlDatabase::database(QStringLiteral("binary"))); }

    PgCluster cluster;
};

void tst_DorvyDecodeBinary::initTestCase()
{
    QVERIFY2(cluster.start(), qPrintable(cluster.why()));
    cluster.createDatabase(QStringLiteral("russian"));
    QSqlDatabase db =
        addDorvyDatabase(QStringLiteral("binary"), cluster, QStringLiteral("russian"));
    QVERIFY_SQL(db, db.open());
}

void tst_DorvyDecodeBinary::cleanupTestCase()
{
    QSqlDatabase::removeDatabase(QStringLiteral("binary"));
}

void tst_DorvyDecodeBinary::boolIsAnyByteButZero_data()
{
    QTest::addColumn<QByteArray>("hex");
    QTest::addColumn<bool>("value");
    QTest::newRow("false") << QByteArray("00") << false;
    QTest::newRow("true") << QByteArray("01") << true;
    QTest::newRow("high bit") << QByteArray("80") << true;
    QTest::newRow("all bits") << QByteArray("ff") << true;
}

void tst_DorvyDecodeBinary::boolIsAnyByteButZero()
{
    QFETCH(QByteArray, hex);
    QFETCH(bool, value);
    const QVariant decoded = decode(OidBool, hex.constData());
    QCOMPARE(decoded.userType(), int(QMetaType::Bool));
    QCOMPARE(decoded.toBool(), value);
}

void tst_DorvyDecodeBinary::integers_data()
{
    QTest::addColumn<int>("oid");
    QTest::addColumn<QByteArray>("hex");
    QTest::addColumn<int>("type");
    QTest::addColumn<qint64>("value");
    const auto int2 = [](const char *tag, const char *hex, qint64 value) {
        QTest::newRow(tag) << OidInt2 << QByteArray(hex) << int(QMetaType::Short) << value;
    };
    const auto int4 = [](const char *tag, const char *hex, qint64 value) {
        QTest::newRow(tag) << OidInt4 << QByteArray(hex) << int(QMetaType::Int) << value;
    };
    const auto int8 = [](const char *tag, const char *hex, qint64 value) {
        QTest::newRow(tag) << OidInt8 << QByteArray(hex) << int(QMetaType::LongLong) << value;
    };
    int2("int2 zero", "0000", 0);
    int2("int2 byte order", "0102", 258);
    int2("int2 minus one", "ffff", -1);
    int2("int2 greatest", "7fff", 32767);
    int2("int2 least", "8000", -32768);
    int4("int4 zero", "00000000", 0);
    int4("int4 byte order", "01020304", 16909060);
    int4("int4 minus one", "ffffffff", -1);
    int4("int4 greatest", "7fffffff", 2147483647);
    int4("int4 least", "80000000", Q_INT64_C(-2147483648));
    int8("int8 zero", "0000000000000000", 0);
    int8("int8 byte order", "0102030405060708", Q_INT64_C(72623859790382856));
    int8("int8 minus one", "ffffffffffffffff", -1);
    int8("int8 greatest", "7fffffffffffffff", Q_INT64_C(9223372036854775807));
    int8("int8 least", "8000000000000000", LLONG_MIN);
}

void tst_DorvyDecodeBinary::integers()
{
    QFETCH(int, oid);
    QFETCH(QByteArray, hex);
    QFETCH(int, type);
    QFETCH(qint64, value);
    const QVariant decoded = decode(oid, hex.constData());
    QCOMPARE(decoded.userType(), type);
    QCOMPARE(decoded.toLongLong(), value);
}

void tst_DorvyDecodeBinary::floats_data()
{
    QTest::addColumn<int>("oid");
    QTest::addColumn<QByteArray>("hex");
    QTest::addColumn<double>("value");
    QTest::newRow("float4 zero") << OidFloat4 << QByteArray("00000000") << 0.0;
    QTest::newRow("float4 half") << OidFloat4 << QByteArray("3f000000") << 0.5;
    QTest::newRow("float4 negative") << OidFloat4 << QByteArray("c0200000") << -2.5;
    QTest::newRow("float4 greatest")
        << OidFloat4 << QByteArray("7f7fffff") << 3.40282346638528859812e+38;
    QTest::newRow("float4 smallest")
        << OidFloat4 << QByteArray("00000001") << 1.40129846432481707092e-45;
    QTest::newRow("float4 infinity") << OidFloat4 << QByteArray("7f800000") << qInf();
    QTest::newRow("float8 zero") << OidFloat8 << QByteArray("0000000000000000") << 0.0;
    QTest::newRow("float8 one and a half") << OidFloat8 << QByteArray("3ff8000000000000") << 1.5;
    QTest::newRow("float8 tenth") << OidFloat8 << QByteArray("3fb999999999999a") << 0.1;
    QTest::newRow("float8 negative") << OidFloat8 << QByteArray("c004000000000000") << -2.5;
    QTest::newRow("float8 greatest")
        << OidFloat8 << QByteArray("7fefffffffffffff") << 1.7976931348623157e+308;
    QTest::newRow("float8 smallest") << OidFloat8 << QByteArray("0000000000000001") << 5e-324;
    QTest::newRow("float8 minus infinity")
        << OidFloat8 << QByteArray("fff0000000000000") << -qInf();
}

void tst_DorvyDecodeBinary::floats()
{
    QFETCH(int, oid);
    QFETCH(QByteArray, hex);
    QFETCH(double, value);
    const QVariant decoded = decode(oid, hex.constData());
    QCOMPARE(decoded.userType(), int(oid == OidFloat4 ? QMetaType::Float : QMetaType::Double));
    QVERIFY2(decoded.toDouble() >= value && decoded.toDouble() <= value, // to the last bit
             qPrintable(decoded.toString()));
}

void tst_DorvyDecodeBinary::floatNotANumber()
{
    QVERIFY(std::isnan(decode(OidFloat4, "7fc00000").toFloat()));
    QVERIFY(std::isnan(decode(OidFloat8, "7ff8000000000000").toDouble()));
}

void tst_DorvyDecodeBinary::texts_data()
{
    QTest::addColumn<int>("oid");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("value");
    const QString accented = QString::fromUtf8("\u00e9t\u00e9");
    for (const int oid : {OidName, OidText, OidVarchar, OidBpchar}) {
        const QByteArray name = QByteArray::number(oid);
        QTest::newRow((name + " plain").constData())
            << oid << QByteArray("abc") << QStringLiteral("abc");
        QTest::newRow((name + " empty").constData()) << oid << QByteArray("") << QString();
        QTest::newRow((name + " by the codec").constData())
            << oid << QByteArray("\xe9t\xe9") << accented;
        QTest::newRow((name + " blank inside").constData())
            << oid << QByteArray("a b") << QStringLiteral("a b");
        QTest::newRow((name + " up to the first zero").constData())
            << oid << QByteArray("ab\0cd", 5) << QStringLiteral("ab");
    }
    QTest::newRow("name keeps blanks") << OidName << QByteArray(" ab ") << QStringLiteral(" ab ");
    QTest::newRow("text keeps blanks") << OidText << QByteArray(" ab ") << QStringLiteral(" ab ");
    QTest::newRow("varchar keeps blanks")
        << OidVarchar << QByteArray(" ab ") << QStringLiteral(" ab ");
    QTest::newRow("bpchar loses padding")
        << OidBpchar << QByteArray("ab   ") << QStringLiteral("ab");
    QTest::newRow("bpchar loses leading blanks")
        << OidBpchar << QByteArray("  ab ") << QStringLiteral("ab");
    QTest::newRow("bpchar of blanks") << OidBpchar << QByteArray("     ") << QString();
    QTest::newRow("bpchar loses other white space")
        << OidBpchar << QByteArray("\tab\n") << QStringLiteral("ab");
}

void tst_DorvyDecodeBinary::texts()
{
    QFETCH(int, oid);
    QFETCH(QByteArray, bytes);
    QFETCH(QString, value);
    const QVariant decoded = decodeBytes(oid, bytes);
    QCOMPARE(decoded.userType(), int(QMetaType::QString));
    QCOMPARE(decoded.toString(), value);
}

void tst_DorvyDecodeBinary::byteArrays_data()
{
    QTest::addColumn<int>("oid");
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("bytea") << OidBytea << QByteArray("a\0\\b\xff", 5);
    QTest::newRow("bytea empty") << OidBytea << QByteArray("");
    QTest::newRow("unknown") << OidUnknown << QByteArray("abc");
    QTest::newRow("jsonb with its version") << OidJsonb << QByteArray("\x01{\"a\": 1}");
}

void tst_DorvyDecodeBinary::byteArrays()
{
    QFETCH(int, oid);
    QFETCH(QByteArray, bytes);
    const QVariant decoded = decodeBytes(oid, bytes);
    QCOMPARE(decoded.userType(), int(QMetaType::QByteArray));
    QCOMPARE(decoded.toByteArray(), bytes);
}

void tst_DorvyDecodeBinary::byteArraysAreViews_data()
{
    QTest::addColumn<int>("oid");
    QTest::newRow("bytea") << OidBytea;
    QTest::newRow("unknown") << OidUnknown;
    QTest::newRow("jsonb") << OidJsonb;
}

void tst_DorvyDecodeBinary::byteArraysAreViews()
{
    QFETCH(int, oid);
    const QByteArray bytes("abc");
    const QByteArray decoded = decodeBytes(oid, bytes).toByteArray();
    QCOMPARE(static_cast<const void *>(decoded.constData()),
             static_cast<const void *>(bytes.constData()));
}

void tst_DorvyDecodeBinary::uuid()
{
    const QVariant decoded = decode(OidUuid, "00112233445566778899aabbccddeeff");
    QCOMPARE(decoded.userType(), int(QMetaType::QUuid));
    QCOMPARE(decoded.toUuid(),
             QUuid(0x00112233, 0x4455, 0x6677, 0x88, 0x99, 0xaa, 0xbb, 0xcc, 0xdd, 0xee, 0xff));
}

void tst_DorvyDecodeBinary::calendarDate_data()
{
    QTest::addColumn<qint64>("days");
    QTest::addColumn<int>("year");
    QTest::addColumn<int>("month");
    QTest::addColumn<int>("day");
    const auto row = [](const char *tag, qint64 days, int year, int month, int day) {
        QTest::newRow(tag) << days << year << month << day;
    };
    row("epoch", 0, 2000, 1, 1);
    row("last day before it", -1, 1999, 12, 31);
    row("leap day", 59, 2000, 2, 29);
    row("day after the leap day", 60, 2000, 3, 1);
    row("last day of 2000", 365, 2000, 12, 31);
    row("leap day of 2004", 1520, 2004, 2, 29);
    row("no leap day in 1900", -36466, 1900, 2, 28);
    row("first of March 1900", -36465, 1900, 3, 1);
    row("no leap day in 2100", 36583, 2100, 2, 28);
    row("first of March 2100", 36584, 2100, 3, 1);
    row("day 0 of 1899-12-30", -36526, 1899, 12, 30);
    row("Unix epoch", -10957, 1970, 1, 1);
    row("last day of year 9999", 2921939, 9999, 12, 31);
    row("first day of year 1", -730119, 1, 1, 1);
    row("last day of 1 BC", -730120, -1, 12, 31);
    row("leap day of 1 BC", -730426, -1, 2, 29);
    row("first day of 1 BC", -730485, -1, 1, 1);
    row("last day of 2 BC", -730486, -2, 12, 31);
    row("PostgreSQL's first day", -2451545, -4714, 11, 24);
    row("PostgreSQL's last date", 2145031948, 5874897, 12, 31);
    row("greatest 32-bit number", 2147483647, 5881610, 7, 11);
    // Before March 4801 BC the divisions cut toward zero, and the day is none of the calendar.
    row("least 32-bit number", Q_INT64_C(-2147483648), -5877611, 7, -8);
}

void tst_DorvyDecodeBinary::calendarDate()
{
    QFETCH(qint64, days);
    QFETCH(int, year);
    QFETCH(int, month);
    QFETCH(int, day);
    const Calendar date = calendar(static_cast<long>(days));
    QCOMPARE(date.year, year);
    QCOMPARE(date.month, month);
    QCOMPARE(date.day, day);
}

void tst_DorvyDecodeBinary::calendarDateOfEveryDayOfFourCenturies()
{
    // Around the start of our era, where the numbering of years jumps.
    QDate expected(-200, 1, 1);
    QCOMPARE(expected.daysTo(QDate(2000, 1, 1)), Q_INT64_C(803168));
    for (long days = -803168; days < -803168 + 146097; ++days) {
        const Calendar date = calendar(days);
        if (QDate(date.year, date.month, date.day) != expected) {
            QFAIL(qPrintable(expected.toString(Qt::ISODate)));
        }
        expected = expected.addDays(1);
    }
}

void tst_DorvyDecodeBinary::calendarTime_data()
{
    QTest::addColumn<qint64>("time");
    QTest::addColumn<QVector<int>>("parts");
    QTest::newRow("midnight") << Q_INT64_C(0) << QVector<int>{0, 0, 0, 0};
    QTest::newRow("one microsecond") << Q_INT64_C(1) << QVector<int>{0, 0, 0, 1};
    QTest::newRow("one of each") << Q_INT64_C(3661000001) << QVector<int>{1, 1, 1, 1};
    QTest::newRow("last of the day") << Q_INT64_C(86399999999) << QVector<int>{23, 59, 59, 999999};
    QTest::newRow("a day") << Q_INT64_C(86400000000) << QVector<int>{24, 0, 0, 0};
    QTest::newRow("minus one microsecond") << Q_INT64_C(-1) << QVector<int>{0, 0, 0, -1};
    QTest::newRow("minus one of each") << Q_INT64_C(-3661000001) << QVector<int>{-1, -1, -1, -1};
    QTest::newRow("first of the day before")
        << Q_INT64_C(-86399999999) << QVector<int>{-23, -59, -59, -999999};
}

void tst_DorvyDecodeBinary::calendarTime()
{
    QFETCH(qint64, time);
    QFETCH(QVector<int>, parts);
    int hours = 7;
    int minutes = 7;
    int seconds = 7;
    int usec = 7;
    hlpDecodePgTime(time, hours, minutes, seconds, usec);
    QCOMPARE((QVector<int>{hours, minutes, seconds, usec}), parts);
}

void tst_DorvyDecodeBinary::date_data()
{
    QTest::addColumn<QByteArray>("hex");
    QTest::addColumn<QDate>("value");
    QTest::newRow("epoch") << QByteArray("00000000") << QDate(2000, 1, 1);
    QTest::newRow("last day before it") << QByteArray("ffffffff") << QDate(1999, 12, 31);
    QTest::newRow("leap day") << QByteArray("000005f0") << QDate(2004, 2, 29);
    QTest::newRow("first day of year 1") << QByteArray("fff4dbf9") << QDate(1, 1, 1);
    QTest::newRow("last day of 1 BC") << QByteArray("fff4dbf8") << QDate(-1, 12, 31);
    QTest::newRow("PostgreSQL's first day") << QByteArray("ffda97a7") << QDate(-4714, 11, 24);
    QTest::newRow("PostgreSQL's last date") << QByteArray("7fda970c") << QDate(5874897, 12, 31);
}

void tst_DorvyDecodeBinary::date()
{
    QFETCH(QByteArray, hex);
    QFETCH(QDate, value);
    const QVariant decoded = decode(OidDate, hex.constData());
    QCOMPARE(decoded.userType(), int(QMetaType::QDate));
    QCOMPARE(decoded.toDate(), value);
}

void tst_DorvyDecodeBinary::dateInfinity()
{
    // No date of its own: both numbers go through the calendar like any other.
    QCOMPARE(decode(OidDate, "7fffffff").toDate(), QDate(5881610, 7, 11));
    QCOMPARE(decode(OidDate, "80000000").userType(), int(QMetaType::QDate));
    QVERIFY(!decode(OidDate, "80000000").toDate().isValid());
}

// And of some years before and behind it.
void tst_DorvyDecodeBinary::everyDayOfTheCommonEra()
{
    constexpr int First = -730119; // 0001-01-01
    constexpr int Last = 2921939;  // 9999-12-31
    constexpr int Beside = 1000;   // days before and behind
    const Dorvy3Connection connection(nullptr, QString());
    const DorvyBinaryDecoder decoder = hlpBinaryDecoder(OidDate);
    QCOMPARE(valueOf(decoder, connection, First), QVariant(QDate(1, 1, 1)));
    QCOMPARE(valueOf(decoder, connection, Last), QVariant(QDate(9999, 12, 31)));
    for (int days = First - Beside; days <= Last + Beside; ++days) {
        const Calendar date = calendar(days);
        const QVariant decoded = valueOf(decoder, connection, days);
        if (decoded != QVariant(QDate(date.year, date.month, date.day))) {
            QFAIL(qPrintable(QStringLiteral("day %1: %2").arg(days).arg(decoded.toString())));
        }
    }
}

void tst_DorvyDecodeBinary::time_data()
{
    QTest::addColumn<int>("oid");
    QTest::addColumn<QByteArray>("hex");
    QTest::addColumn<QTime>("value");
    QTest::newRow("midnight") << OidTime << QByteArray("0000000000000000") << QTime(0, 0);
    QTest::newRow("one millisecond")
        << OidTime << QByteArray("00000000000003e8") << QTime(0, 0, 0, 1);
    QTest::newRow("part of a millisecond is cut")
        << OidTime << QByteArray("00000000000007cf") << QTime(0, 0, 0, 1);
    QTest::newRow("12:34:56.789") << OidTime << QByteArray("0000000a8be62608")
                                  << QTime(12, 34, 56, 789);
    QTest::newRow("last of the day")
        << OidTime << QByteArray("000000141dd75fff") << QTime(23, 59, 59, 999);
    QTest::newRow("24:00 is midnight") << OidTime << QByteArray("000000141dd76000") << QTime(0, 0);
    QTest::newRow("a day and a second")
        << OidTime << QByteArray("000000141de6a240") << QTime(0, 0, 1);
    QTest::newRow("timetz without its zone")
        << OidTimeTz << QByteArray("0000000a8be62608ffffd5d0") << QTime(12, 34, 56, 789);
}

void tst_DorvyDecodeBinary::time()
{
    QFETCH(int, oid);
    QFETCH(QByteArray, hex);
    QFETCH(QTime, value);
    const QVariant decoded = decode(oid, hex.constData());
    QCOMPARE(decoded.userType(), int(QMetaType::QTime));
    QCOMPARE(decoded.toTime(), value);
}

void tst_DorvyDecodeBinary::timeOutOfRangeIsInvalid()
{
    // Minus one hour, which no server sends.
    const QVariant decoded = decode(OidTime, "ffffffff296c5c00");
    QCOMPARE(decoded.userType(), int(QMetaType::QTime));
    QVERIFY(!decoded.toTime().isValid());
}

// Not each, which would take minutes: every 997th, and those around every full minute.
void tst_DorvyDecodeBinary::everyMillisecondOfADay()
{
    constexpr int MsecPerMinute = 60 * 1000;
    constexpr int MsecPerDay = 24 * 60 * MsecPerMinute;
    QVector<int> chosen;
    for (int msec = 0; msec < MsecPerDay; msec += 997) {
        chosen += msec;
    }
    for (int minute = 0; minute < MsecPerDay; minute += MsecPerMinute) {
        chosen += {minute, minute + 1, minute + MsecPerMinute - 1};
    }
    const Dorvy3Connection connection(nullptr, QString());
    const DorvyBinaryDecoder decoder = hlpBinaryDecoder(OidTime);
    for (const int msec : qAsConst(chosen)) {
        for (const int usec : {0, 1, 999}) { // of the millisecond
            const qint64 time = Q_INT64_C(1000) * msec + usec;
            const QVariant decoded = valueOf(decoder, connection, time);
            if (decoded != QVariant(timeOfDay(time))) {
                QFAIL(qPrintable(QStringLiteral("%1: %2").arg(time).arg(decoded.toString())));
            }
        }
    }
}

void tst_DorvyDecodeBinary::timestamp_data()
{
    QTest::addColumn<QByteArray>("hex");
    QTest::addColumn<QDate>("date");
    QTest::addColumn<QTime>("time");
    const QDate epoch(2000, 1, 1);
    QTest::newRow("epoch") << QByteArray("0000000000000000") << epoch << QTime(0, 0);
    QTest::newRow("one millisecond")
        << QByteArray("00000000000003e8") << epoch << QTime(0, 0, 0, 1);
    QTest::newRow("last of the first day")
        << QByteArray("000000141dd75fff") << epoch << QTime(23, 59, 59, 999);
    QTest::newRow("second day") << QByteArray("000000141dd76000") << QDate(2000, 1, 2)
                                << QTime(0, 0);
    QTest::newRow("2016-03-01 10:00")
        << QByteArray("0001cff898da6800") << QDate(2016, 3, 1) << QTime(10, 0);
    // A remainder that is cut, not floored: before 2000 every time of day but midnight is lost
    // and the day is the next one.
    QTest::newRow("one microsecond before the epoch")
        << QByteArray("ffffffffffffffff") << epoch << QTime(0, 0);
    QTest::newRow("noon of the day before")
        << QByteArray("fffffff5f1145000") << epoch << QTime(0, 0);
    QTest::newRow("midnight of the day before")
        << QByteArray("ffffffebe228a000") << QDate(1999, 12, 31) << QTime(0, 0);
    QTest::newRow("one microsecond before that")
        << QByteArray("ffffffebe2289fff") << QDate(1999, 12, 31) << QTime(0, 0);
    QTest::newRow("first day of year 1")
        << QByteArray("ff1fe2ffc59c6000") << QDate(1, 1, 1) << QTime(0, 0);
    QTest::newRow("last day of 1 BC")
        << QByteArray("ff1fe2eba7c50000") << QDate(-1, 12, 31) << QTime(0, 0);
    QTest::newRow("PostgreSQL's first day")
        << QByteArray("fd0f7cc1411fa000") << QDate(-4714, 11, 24) << QTime(0, 0);
    QTest::newRow("PostgreSQL's last timestamp")
        << QByteArray("7fffff5bb3b29fff") << QDate(294276, 12, 31) << QTime(23, 59, 59, 999);
}

void tst_DorvyDecodeBinary::timestamp()
{
    QFETCH(QByteArray, hex);
    QFETCH(QDate, date);
    QFETCH(QTime, time);
    for (const int oid : {OidTimestamp, OidTimestampTz}) {
        const QVariant decoded = decode(oid, hex.constData());
        QCOMPARE(decoded.userType(), int(QMetaType::QDateTime));
        QCOMPARE(decoded.toDateTime().date(), date);
        QCOMPARE(decoded.toDateTime().time(), time);
        QCOMPARE(decoded.toDateTime().timeSpec(), Qt::LocalTime);
    }
}

void tst_DorvyDecodeBinary::timestampHasNoZone()
{
    const LocalZone zone(Zone);
    for (const int oid : {OidTimestamp, OidTimestampTz}) {
        const QDateTime decoded = decode(oid, "0001cff898da6800").toDateTime();
        QCOMPARE(decoded.timeSpec(), Qt::LocalTime);
        QCOMPARE(decoded.date(), QDate(2016, 3, 1));
        QCOMPARE(decoded.time(), QTime(10, 0));
    }
}

void tst_DorvyDecodeBinary::timestampInfinity()
{
    const QDateTime decoded = decode(OidTimestamp, "7fffffffffffffff").toDateTime();
    QCOMPARE(decoded.date(), QDate(294277, 1, 9));
    QCOMPARE(decoded.time(), QTime(4, 0, 54, 775));
    const QDateTime least = decode(OidTimestamp, "8000000000000000").toDateTime();
    QCOMPARE(least.date(), QDate(-290278, 12, 24));
    QCOMPARE(least.time(), QTime(0, 0));
}

void tst_DorvyDecodeBinary::numeric_data()
{
    QTest::addColumn<QByteArray>("hex"); // ndigits weight sign dscale digits
    QTest::addColumn<double>("value");
    const auto row = [](const char *tag, const char *hex, double value) {
        QTest::newRow(tag) << QByteArray(hex) << value;
    };
    row("12.5", "0002 0000 0000 0001 000c 1388", 12.5);
    row("-12.5", "0002 0000 4000 0001 000c 1388", -12.5);
    row("scale is ignored", "0002 0000 0000 0000 000c 1388", 12.5);
    row("zero", "0000 0000 0000 0000", 0.0);
    row("zero with weight", "0000 0005 0000 0002", 0.0);
    row("not a number", "0000 0000 c000 0000", 0.0);
    row("infinity", "0000 0000 d000 0000", 0.0);
    row("zero of hostile weight", "0000 7fff 0000 0000", 0.0);
    row("any sign but zero", "0001 0000 0001 0000 0007", -7.0);
    row("one", "0001 0000 0000 0000 0001", 1.0);
    row("9999", "0001 0000 0000 0000 270f", 9999.0);
    row("10000", "0001 0001 0000 0000 0001", 10000.0);
    row("-12345.75", "0003 0001 4000 0002 0001 0929 1d4c", -12345.75);
    row("digits end before the point", "0001 0002 0000 0000 0001", 100000000.0);
    row("two of three groups", "0002 0002 0000 0000 0001 0002", 100020000.0);
    row("0.5", "0001 ffff 0000 0001 1388", 0.5);
    row("0.00005", "0001 fffe 0000 0005 1388", 0.00005);
    row("0.000050001", "0002 fffe 0000 0009 1388 03e8", 0.000050001);
    row("zeros between", "0003 0000 0000 0008 0003 0000 0001", 3.00000001);
    row("group 7 counts", "0008 0000 0000 001c 0000 0000 0000 0000 0000 0000 0000 0001", 1e-28);
    row("group 8 does not", "0009 0000 0000 0020 0001 0000 0000 0000 0000 0000 0000 0000 270f",
        1.0);
    row("first group is 7", "0001 fff9 0000 001c 0001", 1e-28);
    row("first group is 8", "0001 fff8 0000 0020 270f", 0.0);
    row("groups 7 and 8", "0002 fff9 0000 0020 0001 270f", 1e-28);
    row("least weight", "0001 8000 0000 0000 0001", 0.0);
    row("weight 7", "0001 0007 0000 0000 0001", 1e28);
    row("weight 8", "0001 0008 0000 0000 0001", 1e32);
    row("weight 8, next group", "0002 0008 0000 0000 0001 1388", 1.5e32);
    row("weight 9", "0001 0009 4000 0000 0007", -7e36);
    row("weight 20", "0001 0014 0000 0000 0003", 3e80);
    row("weight 77", "0001 004d 0000 0000 0001", 1e308);
    row("more bytes than groups", "0001 0000 0000 0000 0001 0002", 1.0);
}

void tst_DorvyDecodeBinary::numeric()
{
    QFETCH(QByteArray, hex);
    QFETCH(double, value);
    const QVariant decoded = decode(OidNumeric, hex.constData());
    QCOMPARE(decoded.userType(), int(QMetaType::Double));
    QVERIFY2(qAbs(decoded.toDouble() - value) <= qAbs(value) * 1e-14,
             qPrintable(QString::number(decoded.toDouble(), 'g', 17)));
}

void tst_DorvyDecodeBinary::numericWithoutGroupsHasNoSign()
{
    for (const char *hex : {"0000 0000 0000 0000", "0000 0000 4000 0000", "0000 0000 c000 0000"}) {
        QVERIFY(!std::signbit(decode(OidNumeric, hex).toDouble()));
    }
}

void tst_DorvyDecodeBinary::numericBeyondTheRangeIsInfinite()
{
    // A zero group far above the range must not spoil the sum: 0 times infinity is no number.
    const QVariant decoded = decode(OidNumeric, "0003 7ffe 0000 0000 0001 0000 0001");
    QVERIFY(qIsInf(decoded.toDouble()));
}

void tst_DorvyDecodeBinary::numericOfHostileWeight_data()
{
    QTest::addColumn<QByteArray>("hex");
    QTest::newRow("beyond a double") << QByteArray("0001 004e 0000 0000 0001");
    QTest::newRow("greatest weight") << QByteArray("0001 7fff 0000 0000 0001");
    QTest::newRow("greatest weight, more groups")
        << QByteArray("0003 7fff 0000 0000 0001 0002 0003");
    QTest::newRow("groups that are none") << QByteArray("0002 0008 0000 0000 ffff 8000");
}

void tst_DorvyDecodeBinary::numericOfHostileWeight()
{
    QFETCH(QByteArray, hex);
    QCOMPARE(decode(OidNumeric, hex.constData()).userType(), int(QMetaType::Double));
}

void tst_DorvyDecodeBinary::tooShortIsInvalid_data()
{
    QTest::addColumn<int>("oid");
    QTest::addColumn<QByteArray>("hex");
    QTest::newRow("bool") << OidBool << QByteArray("");
    QTest::newRow("int2") << OidInt2 << QByteArray("01");
    QTest::newRow("int4") << OidInt4 << QByteArray("010203");
    QTest::newRow("int4, nothing") << OidInt4 << QByteArray("");
    QTest::newRow("int8") << OidInt8 << QByteArray("01020304050607");
    QTest::newRow("float4") << OidFloat4 << QByteArray("3f0000");
    QTest::newRow("float8") << OidFloat8 << QByteArray("3ff80000000000");
    QTest::newRow("date") << OidDate << QByteArray("000000");
    QTest::newRow("time") << OidTime << QByteArray("00000000000000");
    QTest::newRow("timetz") << OidTimeTz << QByteArray("00000000000000");
    QTest::newRow("timestamp") << OidTimestamp << QByteArray("00000000000000");
    QTest::newRow("timestamptz") << OidTimestampTz << QByteArray("00000000000000");
    QTest::newRow("uuid") << OidUuid << QByteArray("00112233445566778899aabbccddee");
    QTest::newRow("numeric, nothing") << OidNumeric << QByteArray("");
    QTest::newRow("numeric, half a header") << OidNumeric << QByteArray("0000 0000 0000 00");
    QTest::newRow("numeric without its group") << OidNumeric << QByteArray("0001 0000 0000 0000");
    QTest::newRow("numeric, half a group") << OidNumeric << QByteArray("0001 0000 0000 0000 00");
    QTest::newRow("numeric, one group too few")
        << OidNumeric << QByteArray("0003 0002 0000 0000 0001 0002");
    QTest::newRow("numeric of 32767 groups")
        << OidNumeric << QByteArray("7fff 0000 0000 0000 0001");
    QTest::newRow("numeric of minus one groups")
        << OidNumeric << QByteArray("ffff 0000 0000 0000 0001");
    QTest::newRow("numeric of minus 32768 groups")
        << OidNumeric << QByteArray("8000 0000 0000 0000 0001");
}

void tst_DorvyDecodeBinary::tooShortIsInvalid()
{
    QFETCH(int, oid);
    QFETCH(QByteArray, hex);
    const QByteArray bytes = QByteArray::fromHex(hex);
    // In a block without a terminator, so that a read beyond the value leaves the block.
    const auto size = static_cast<size_t>(bytes.size());
    const std::unique_ptr<char[]> block(new char[size]);
    std::copy(bytes.begin(), bytes.end(), block.get());
    const auto connection = QSharedPointer<Dorvy3Connection>::create(nullptr, QString());
    QVERIFY(!hlpBinaryPSQLValueToVariant(connection, oid, bytes.size(), block.get()).isValid());
}

void tst_DorvyDecodeBinary::otherTypesAreFatal_data()
{
    QTest::addColumn<int>("oid");
    QTest::addColumn<QString>("message");
    const auto row = [](const char *tag, int oid, const char *message) {
        QTest::newRow(tag) << oid << QString::fromLatin1(message);
    };
    row("none", 0, "DORVY: hlpPSQLValueToVariant - unsupported ptype (0)");
    row("negative", -1, "DORVY: hlpPSQLValueToVariant - unsupported ptype (-1)");
    row("oid", 26, "DORVY: hlpPSQLValueToVariant - unsupported ptype (26)");
    row("json", 114, "DORVY: hlpPSQLValueToVariant - unsupported ptype (114)");
    row("array of int2", 1005, "DORVY: hlpPSQLValueToVariant - unsupported ptype (1005)");
    row("interval", 1186, "DORVY: hlpPSQLValueToVariant - unsupported ptype (1186)");
    row("bit", 1560, "DORVY: hlpPSQLValueToVariant - unsupported ptype (1560)");
}

void tst_DorvyDecodeBinary::otherTypesAreFatal()
{
    QFETCH(int, oid);
    QFETCH(QString, message);
    const ChildOutcome outcome =
        runInChild([oid]() { decode(oid, "00000000000000000000000000000000"); });
    QCOMPARE(outcome.fatal, message);
    QVERIFY(outcome.aborted);
}

void tst_DorvyDecodeBinary::fromServer_data()
{
    QTest::addColumn<QString>("expression");
    QTest::addColumn<int>("type");
    QTest::addColumn<QVariant>("value");
    const auto row = [](const char *expression, int type, const QVariant &value) {
        QTest::newRow(expression) << QString::fromUtf8(expression) << type << value;
    };
    row("true", QMetaType::Bool, true);
    row("false", QMetaType::Bool, false);
    row("'\\x6100ff'::bytea", QMetaType::QByteArray, QByteArray("a\0\xff", 3));
    row("''::bytea", QMetaType::QByteArray, QByteArray(""));
    row("9223372036854775807::int8", QMetaType::LongLong, Q_INT64_C(9223372036854775807));
    row("(-9223372036854775808)::int8", QMetaType::LongLong, qint64(LLONG_MIN));
    row("(-32768)::int2", QMetaType::Short, -32768);
    row("(-2147483648)::int4", QMetaType::Int, int(INT_MIN));
    row("2147483647", QMetaType::Int, 2147483647);
    row("1.5::float4", QMetaType::Float, 1.5);
    row("'-Infinity'::float8", QMetaType::Double, -qInf());
    row("1e300::float8", QMetaType::Double, 1e300);
    row("'2016-03-01'::date", QMetaType::QDate, QDate(2016, 3, 1));
    row("'0001-12-31 BC'::date", QMetaType::QDate, QDate(-1, 12, 31));
    row("'4714-11-24 BC'::date", QMetaType::QDate, QDate(-4714, 11, 24));
    row("'5874897-12-31'::date", QMetaType::QDate, QDate(5874897, 12, 31));
    row("'infinity'::date", QMetaType::QDate, QDate(5881610, 7, 11));
    row("'12:34:56.789'::time", QMetaType::QTime, QTime(12, 34, 56, 789));
    row("'24:00'::time", QMetaType::QTime, QTime(0, 0));
    row("'2016-03-01 10:00'::timestamp", QMetaType::QDateTime,
        QDateTime(QDate(2016, 3, 1), QTime(10, 0)));
    row("'2016-03-01 10:00+03'::timestamptz", QMetaType::QDateTime,
        QDateTime(QDate(2016, 3, 1), QTime(7, 0)));
    row("'1999-12-31 12:00'::timestamp", QMetaType::QDateTime,
        QDateTime(QDate(2000, 1, 1), QTime(0, 0)));
    row("'0001-12-31 BC'::timestamp", QMetaType::QDateTime,
        QDateTime(QDate(-1, 12, 31), QTime(0, 0)));
    row("'4714-11-24 BC'::timestamp", QMetaType::QDateTime,
        QDateTime(QDate(-4714, 11, 24), QTime(0, 0)));
    row("'294276-12-31 23:59:59.999'::timestamp", QMetaType::QDateTime,
        QDateTime(QDate(294276, 12, 31), QTime(23, 59, 59, 999)));
    row("12.50::numeric", QMetaType::Double, 12.5);
    row("(-12345.75)::numeric(12,2)", QMetaType::Double, -12345.75);
    row("'NaN'::numeric", QMetaType::Double, 0.0);
    row("1e40::numeric", QMetaType::Double, 1e40);
    row("1e-40::numeric", QMetaType::Double, 0.0);
    row("'00112233-4455-6677-8899-aabbccddeeff'::uuid", QMetaType::QUuid,
        QVariant(
            QUuid(0x00112233, 0x4455, 0x6677, 0x88, 0x99, 0xaa, 0xbb, 0xcc, 0xdd, 0xee, 0xff)));
    row("'{\"a\":1}'::jsonb", QMetaType::QByteArray, QByteArray("\x01{\"a\": 1}"));
}

void tst_DorvyDecodeBinary::fromServer()
{
    QFETCH(QString, expression);
    QFETCH(int, type);
    QFETCH(QVariant, value);
    QSqlQuery select = query();
    QVERIFY_SQL(select, select.exec(QStringLiteral("SELECT ") + expression));
    QVERIFY(select.next());
    const QVariant decoded = select.value(0);
    QCOMPARE(decoded.userType(), type);
    if (type == QMetaType::Double || type == QMetaType::Float) {
        QCOMPARE(decoded.toDouble(), value.toDouble());
    } else if (type == QMetaType::Short) {
        QCOMPARE(decoded.toInt(), value.toInt());
    } else {
        QCOMPARE(decoded, value);
    }
}

void tst_DorvyDecodeBinary::textsFromServer_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("value");
    for (const char *type : {"text", "varchar", "varchar(40)", "bpchar", "char(40)", "name"}) {
        const QByteArray tag(type);
        const QString typeName = QString::fromLatin1(type);
        QTest::newRow((tag + " Russian").constData())
            << typeName << QStringLiteral("Съешь ещё этих булок");
        QTest::newRow((tag + " quote and backslash").constData())
            << typeName << QStringLiteral("''\\n''");
        QTest::newRow((tag + " empty").constData()) << typeName << QString();
    }
}

void tst_DorvyDecodeBinary::textsFromServer()
{
    QFETCH(QString, type);
    QFETCH(QString, value);
    QSqlQuery select = query();
    QVERIFY_SQL(select, select.exec(QStringLiteral("SELECT '%1'::%2").arg(value, type)));
    QVERIFY(select.next());
    const QVariant decoded = select.value(0);
    QCOMPARE(decoded.userType(), int(QMetaType::QString));
    QVERIFY(!select.isNull(0));
    QString unquoted = value;
    QCOMPARE(decoded.toString(), unquoted.replace(QLatin1String("''"), QLatin1String("'")));
}

void tst_DorvyDecodeBinary::numericFromServerIgnoresThePolicy()
{
    for (const QSql::NumericalPrecisionPolicy policy :
         {QSql::LowPrecisionInt32, QSql::LowPrecisionInt64, QSql::LowPrecisionDouble,
          QSql::HighPrecision}) {
        QSqlQuery select = query();
        select.setNumericalPrecisionPolicy(policy);
        QVERIFY_SQL(select, select.exec(QStringLiteral("SELECT 12.50::numeric")));
        QVERIFY(select.next());
        QCOMPARE(select.value(0).userType(), int(QMetaType::Double));
        QCOMPARE(select.value(0).toDouble(), 12.5);
    }
}

void tst_DorvyDecodeBinary::byteArrayFromServerCanBeCopied()
{
    QSqlQuery select = query();
    QVERIFY_SQL(select, select.exec(QStringLiteral("SELECT repeat('a', 1000)::bytea")));
    QVERIFY(select.next());
    const QByteArray view = select.value(0).toByteArray();
    const QByteArray again = select.value(0).toByteArray();
    QCOMPARE(static_cast<const void *>(view.constData()),
             static_cast<const void *>(again.constData())); // the result's own memory
    const QByteArray copy(view.constData(), view.size());
    select.finish();
    QCOMPARE(copy, QByteArray(1000, 'a'));
}

void tst_DorvyDecodeBinary::thereAndBack_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QVariant>("value");
    const auto row = [](const char *tag, const char *type, const QVariant &value) {
        QTest::newRow(tag) << QString::fromLatin1(type) << value;
    };
    row("bytea", "bytea", QByteArray("a\0\\\xff", 4));
    row("name", "name", QStringLiteral("имя"));
    row("text", "text", QStringLiteral("Съешь ещё этих мягких французских булок"));
    row("varchar", "varchar", QStringLiteral("да выпей чаю"));
    row("int8", "int8", Q_INT64_C(-5000000000));
    row("int2", "int2", -5);
    row("int4", "int4", -2000000000);
    row("float8", "float8", 0.1);
    row("date", "date", QDate(2016, 3, 1));
    row("date BC", "date", QDate(-44, 3, 15));
    row("date far ahead", "date", QDate(9999, 12, 31));
    row("time", "time", QTime(23, 59, 59, 999));
    row("timestamp", "timestamp", QDateTime(QDate(2016, 3, 1), QTime(10, 11, 12, 345)));
    row("timestamptz", "timestamptz", QDateTime(QDate(2016, 3, 1), QTime(10, 11, 12, 345)));
    row("numeric", "numeric", -12345.0);
}

void tst_DorvyDecodeBinary::thereAndBack()
{
    QFETCH(QString, type);
    QFETCH(QVariant, value);
    QSqlQuery select = query();
    QVERIFY_SQL(select, select.prepare(QStringLiteral("SELECT ?::") + type));
    select.addBindValue(value);
    QVERIFY_SQL(select, select.exec());
    QVERIFY(select.next());
    QVariant decoded = select.value(0);
    QVERIFY(decoded.convert(value.userType()));
    QCOMPARE(decoded, value);
}

QTEST_GUILESS_MAIN(tst_DorvyDecodeBinary)
#include "tst_dorvydecode_binary.moc"
