// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The parameter encoder: against written-out bytes, and through a server that tells what it got.
#include "access/dorvy3.h"
#include "access/dorvy3encoder_p.h"

#include "tests/support/childprocess.h"
#include "tests/support/connectionhelpers.h"
#include "tests/support/pgcluster.h"
#include "tests/support/sqlmacros.h"
#include "tests/support/wireproxy.h"

#include <QtSql/QSqlField>
#include <QtTest/QtTest>

#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <limits>
#include <memory>

// Types of an application's own, which QVariant all counts as one.
struct Circle
{
    int radius;
};
Q_DECLARE_METATYPE(Circle)

struct Square
{
    int side;
};
Q_DECLARE_METATYPE(Square)

namespace {

using Page = QSharedPointer<Dorvy3Result>;

constexpr int Bytea = 17;
constexpr int Name = 19;
constexpr int Int8 = 20;
constexpr int Int2 = 21;
constexpr int Int4 = 23;
constexpr int Text = 25;
constexpr int Float4 = 700;
constexpr int Float8 = 701;
constexpr int Unknown = 705;
constexpr int Varchar = 1043;
constexpr int Date = 1082;
constexpr int Time = 1083;
constexpr int Timestamp = 1114;
constexpr int TimestampTz = 1184;
constexpr int TimeTz = 1266;
constexpr int Numeric = 1700;

constexpr double Infinity = std::numeric_limits<double>::infinity();
constexpr double NotANumber = std::numeric_limits<double>::quiet_NaN();

QSqlField fieldOf(const QVariant &value)
{
    QSqlField field(QString(), value.type());
    if (value.isNull()) {
        field.clear();
    } else {
        field.setValue(value);
    }
    return field;
}

void row(const char *tag, int ptype, const QVariant &value, const char *hex)
{
    QTest::newRow(tag) << ptype << value << QByteArray(hex);
}

void integerRows()
{
    row("int8 zero", Int8, 0, "0000000000000000");
    row("int8 one", Int8, 1, "0000000000000001");
    row("int8 minus two", Int8, -2, "fffffffffffffffe");
    row("int8 above 32 bits", Int8, Q_INT64_C(4294967296), "0000000100000000");
    row("int8 highest", Int8, std::numeric_limits<qint64>::max(), "7fffffffffffffff");
    row("int8 lowest", Int8, std::numeric_limits<qint64>::min(), "8000000000000000");
    row("int8 of a text", Int8, QStringLiteral("-2"), "fffffffffffffffe");
    row("int8 of a bool", Int8, true, "0000000000000001");
    row("int2 zero", Int2, 0, "0000");
    row("int2 minus one", Int2, -1, "ffff");
    row("int2 highest", Int2, 32767, "7fff");
    row("int2 lowest", Int2, -32768, "8000");
    row("int2 above its range", Int2, 70000, "1170"); // the low 16 bits, 4464
    row("int2 one above its range", Int2, 32768, "8000");
    row("int2 below its range", Int2, -32769, "7fff");
    row("int2 of 65536", Int2, 65536, "0000");
    row("int2 of a text", Int2, QStringLiteral("258"), "0102");
    row("int4 zero", Int4, 0, "00000000");
    row("int4 minus one", Int4, -1, "ffffffff");
    row("int4 in order", Int4, 0x01020304, "01020304");
    row("int4 highest", Int4, 2147483647, "7fffffff");
    row("int4 lowest", Int4, std::numeric_limits<int>::min(), "80000000");
    row("int4 of a text", Int4, QStringLiteral("41"), "00000029");
    row("int4 of bytes", Int4, QByteArray("41"), "00000029");
    row("int4 of a double", Int4, 41.0, "00000029");
    row("int4 of a bool", Int4, true, "00000001");
}

void floatRows()
{
    // The length of a float4 is 8; its last 4 bytes are zero.
    row("float4 zero", Float4, 0.0, "0000000000000000");
    row("float4 one and a half", Float4, 1.5, "3fc0000000000000");
    row("float4 negative", Float4, -42.25, "c229000000000000");
    row("float4 negative zero", Float4, -0.0, "8000000000000000");
    row("float4 rounded", Float4, 0.1, "3dcccccd00000000");
    row("float4 of a float", Float4, QVariant(1.5f), "3fc0000000000000");
    row("float4 of a text", Float4, QStringLiteral("1.5"), "3fc0000000000000");
    row("float4 of an int", Float4, -1, "bf80000000000000");
    row("float4 largest", Float4, double(FLT_MAX), "7f7fffff00000000");
    row("float4 smallest", Float4, double(std::numeric_limits<float>::denorm_min()),
        "0000000100000000");
    row("float4 infinity", Float4, Infinity, "7f80000000000000");
    row("float8 zero", Float8, 0.0, "0000000000000000");
    row("float8 one and a half", Float8, 1.5, "3ff8000000000000");
    row("float8 negative", Float8, -42.25, "c045200000000000");
    row("float8 negative zero", Float8, -0.0, "8000000000000000");
    row("float8 one tenth", Float8, 0.1, "3fb999999999999a");
    row("float8 of a text", Float8, QStringLiteral("1e30"), "46293e5939a08cea");
    row("float8 of an int", Float8, 1, "3ff0000000000000");
    row("float8 largest", Float8, DBL_MAX, "7fefffffffffffff");
    row("float8 smallest", Float8, std::numeric_limits<double>::denorm_min(), "0000000000000001");
    row("float8 infinity", Float8, Infinity, "7ff0000000000000");
    row("float8 negative infinity", Float8, -Infinity, "fff0000000000000");
    row("float8 NaN", Float8, NotANumber, "7ff8000000000000");
}

void textRows()
{
    struct
    {
        const char *name;
        int ptype;
    } const types[] = {{"text", Text}, {"varchar", Varchar}, {"name", Name}};
    for (const auto &type : types) {
        const QByteArray name(type.name);
        row(name + " of one letter", type.ptype, QStringLiteral("x"), "78");
        row(name + " keeps its spaces", type.ptype, QStringLiteral(" a b "), "2061206220");
        row(name + " in UTF-8", type.ptype, QStringLiteral("жук"), "d0b6d183d0ba");
        row(name + " beyond 16 bits", type.ptype, QString::fromUtf8("\xf0\x9f\x90\x9e"),
            "f09f909e");
        row(name + " of an int", type.ptype, -17, "2d3137");
        row(name + " of a date", type.ptype, QDate(2004, 2, 29), "323030342d30322d3239");
        row(name + " of an empty text", type.ptype, QStringLiteral(""), "");
    }
}

void byteRows()
{
    struct
    {
        const char *name;
        int ptype;
    } const types[] = {{"bytea", Bytea}, {"unknown", Unknown}};
    for (const auto &type : types) {
        const QByteArray name(type.name);
        row(name + " of any bytes", type.ptype, QByteArray("\0a\xff\\", 4), "0061ff5c");
        row(name + " of one zero", type.ptype, QByteArray(1, '\0'), "00");
        row(name + " of a text", type.ptype, QStringLiteral("жук"), "d0b6d183d0ba");
        row(name + " of an int", type.ptype, 17, "3137");
    }
}

void dateRows()
{
    row("date epoch", Date, QDate(2000, 1, 1), "00000000");
    row("date before the epoch", Date, QDate(1999, 12, 31), "ffffffff");
    row("date leap day", Date, QDate(2004, 2, 29), "000005f0");
    row("date 1899-12-30", Date, QDate(1899, 12, 30), "ffff7152");
    row("date first of our era", Date, QDate(1, 1, 1), "fff4dbf9");
    row("date last of 1 BC", Date, QDate(-1, 12, 31), "fff4dbf8");
    row("date first of the server's", Date, QDate(-4714, 11, 24), "ffda97a7");
    row("date last of the server's", Date, QDate(5874897, 12, 31), "7fda970c");
    row("date last of 32 bits", Date, QDate(5881610, 7, 11), "7fffffff");
    row("date of a date-time", Date, QDateTime(QDate(2004, 2, 29), QTime(23, 59)), "000005f0");
    row("date of a text", Date, QStringLiteral("2004-02-29"), "000005f0");
}

void timeRows()
{
    struct
    {
        const char *name;
        int ptype;
    } const types[] = {{"time", Time}, {"timetz", TimeTz}};
    for (const auto &type : types) {
        const QByteArray name(type.name);
        row(name + " midnight", type.ptype, QTime(0, 0, 0, 0), "0000000000000000");
        row(name + " millisecond", type.ptype, QTime(0, 0, 0, 1), "00000000000003e8");
        row(name + " second", type.ptype, QTime(0, 0, 1, 0), "00000000000f4240");
        row(name + " minute", type.ptype, QTime(0, 1, 0, 0), "0000000003938700");
        row(name + " hour", type.ptype, QTime(1, 0, 0, 0), "00000000d693a400");
        row(name + " all parts", type.ptype, QTime(1, 2, 3, 4), "00000000dde88860");
        row(name + " last of the day", type.ptype, QTime(23, 59, 59, 999), "000000141dd75c18");
        row(name + " of a date-time", type.ptype, QDateTime(QDate(2004, 2, 29), QTime(12, 0)),
            "0000000a0eebb000");
        row(name + " of a text", type.ptype, QStringLiteral("01:02:03.004"), "00000000dde88860");
    }
}

void timestampRows()
{
    struct
    {
        const char *name;
        int ptype;
    } const types[] = {{"timestamp", Timestamp}, {"timestamptz", TimestampTz}};
    const QTime midnight(0, 0);
    const QDateTime noon(QDate(2020, 7, 1), QTime(12, 0));
    for (const auto &type : types) {
        const QByteArray name(type.name);
        const int ptype = type.ptype;
        row(name + " epoch", ptype, QDateTime(QDate(2000, 1, 1), midnight), "0000000000000000");
        row(name + " before the epoch", ptype,
            QDateTime(QDate(1999, 12, 31), QTime(23, 59, 59, 999)), "fffffffffffffc18");
        row(name + " all parts", ptype, QDateTime(QDate(2004, 2, 29), QTime(1, 2, 3, 4)),
            "000077720cb28860");
        row(name + " Unix epoch", ptype, QDateTime(QDate(1970, 1, 1), midnight),
            "fffca2fec4c82000");
        row(name + " 1899-12-30", ptype, QDateTime(QDate(1899, 12, 30), midnight),
            "fff4c9c6405cc000");
        row(name + " first of our era", ptype, QDateTime(QDate(1, 1, 1), midnight),
            "ff1fe2ffc59c6000");
        row(name + " noon in 1 BC", ptype, QDateTime(QDate(-1, 12, 31), QTime(12, 0)),
            "ff1fe2f5b6b0b000");
        row(name + " first of the server's", ptype, QDateTime(QDate(-4714, 11, 24), midnight),
            "fd0f7cc1411fa000");
        row(name + " last of the server's", ptype,
            QDateTime(QDate(294276, 12, 31), QTime(23, 59, 59, 999)), "7fffff5bb3b29c18");
        // Wall-clock time, whatever zone it is in.
        row(name + " local", ptype, noon, "00024c5ecccc5000");
        row(name + " in UTC", ptype, QDateTime(noon.date(), noon.time(), Qt::UTC),
            "00024c5ecccc5000");
        row(name + " off UTC", ptype,
            QDateTime(noon.date(), noon.time(), Qt::OffsetFromUTC, 3 * 3600), "00024c5ecccc5000");
        row(name + " of a day number", ptype, 36526.5, "0000000a0eebb000");
        row(name + " of day number 0", ptype, 0.0, "fff4c9c6405cc000");
        row(name + " of a negative day number", ptype, -1.25, "fff4c9c138e6e800");
        row(name + " of a date", ptype, QDate(1970, 1, 1), "fffca2fec4c82000");
        row(name + " of a text", ptype, QStringLiteral("2004-02-29T01:02:03.004"),
            "000077720cb28860");
    }
}

void numericRows()
{
    // Number of digits, weight, sign, scale; the digits in base 10000.
    row("numeric zero", Numeric, 0.0, "0000000000000000");
    row("numeric negative zero", Numeric, -0.0, "0000000000000000");
    row("numeric NaN", Numeric, NotANumber, "0000000000000000");
    row("numeric half", Numeric, 0.5, "0000000000000000");
    row("numeric negative half", Numeric, -0.5, "0000000000000000");
    row("numeric almost one", Numeric, 0.9999999999999999, "0000000000000000");
    row("numeric almost minus one", Numeric, -0.9999999999999999, "0000000000000000");
    row("numeric smallest", Numeric, std::numeric_limits<double>::denorm_min(), "0000000000000000");
    row("numeric one", Numeric, 1.0, "00010000000000000001");
    row("numeric minus one", Numeric, -1.0, "00010000400000000001");
    row("numeric 1.5", Numeric, 1.5, "00010000000000000001");
    row("numeric 2.9", Numeric, 2.9, "00010000000000000002");
    row("numeric -2.9", Numeric, -2.9, "00010000400000000002");
    row("numeric -12345.75", Numeric, -12345.75, "000200014000000000010929");
    row("numeric 9999", Numeric, 9999, "0001000000000000270f");
    row("numeric 9999.9999", Numeric, 9999.9999, "0001000000000000270f");
    row("numeric 10000", Numeric, 10000, "00010001000000000001");
    row("numeric 10001", Numeric, 10001, "000200010000000000010001");
    row("numeric 100000000", Numeric, 100000000, "00010002000000000001");
    row("numeric 100000001", Numeric, 100000001, "0003000200000000000100000001");
    row("numeric 123456789012", Numeric, Q_INT64_C(123456789012), "000300020000000004d2162e2334");
    row("numeric four groups of nines", Numeric, 999999999999999.0,
        "000400030000000003e7270f270f270f");
    row("numeric 2^53", Numeric, 9007199254740992.0, "0004000300000000232f07c8156203e0");
    row("numeric 10^22", Numeric, 1e22, "00010005000000000064");
    row("numeric of eleven groups", Numeric, 1e40, "0001000a000000000001");
    row("numeric largest", Numeric, DBL_MAX, "0005004d0000000000011f28246112fe0c52");
    row("numeric lowest", Numeric, -DBL_MAX, "0005004d4000000000011f28246112fe0c52");
    row("numeric of a text", Numeric, QStringLiteral("-12345.75"), "000200014000000000010929");
    row("numeric of an int", Numeric, 7, "00010000000000000007");
}

void allRows()
{
    QTest::addColumn<int>("ptype");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QByteArray>("hex");
    integerRows();
    floatRows();
    textRows();
    byteRows();
    dateRows();
    timeRows();
    timestampRows();
    numericRows();
}

void unknownTypeRows()
{
    QTest::addColumn<int>("ptype");
    QTest::addColumn<QString>("message");
    const auto add = [](const char *tag, int ptype, const QString &message) {
        QTest::newRow(tag) << ptype << message;
    };
    add("none", 0, QStringLiteral("DORVY: hlpEncodePSQLValue - unknown ptype (0)"));
    add("negative", -1, QStringLiteral("DORVY: hlpEncodePSQLValue - unknown ptype (-1)"));
    add("bool", 16, QStringLiteral("DORVY: hlpEncodePSQLValue - unknown ptype (16)"));
    add("char", 18, QStringLiteral("DORVY: hlpEncodePSQLValue - unknown ptype (18)"));
    add("int2vector", 22, QStringLiteral("DORVY: hlpEncodePSQLValue - unknown ptype (22)"));
    add("oid", 26, QStringLiteral("DORVY: hlpEncodePSQLValue - unknown ptype (26)"));
    add("json", 114, QStringLiteral("DORVY: hlpEncodePSQLValue - unknown ptype (114)"));
    add("xml", 142, QStringLiteral("DORVY: hlpEncodePSQLValue - unknown ptype (142)"));
    add("int4 array", 1007, QStringLiteral("DORVY: hlpEncodePSQLValue - unknown ptype (1007)"));
    add("bpchar", 1042, QStringLiteral("DORVY: hlpEncodePSQLValue - unknown ptype (1042)"));
    add("interval", 1186, QStringLiteral("DORVY: hlpEncodePSQLValue - unknown ptype (1186)"));
    add("bit", 1560, QStringLiteral("DORVY: hlpEncodePSQLValue - unknown ptype (1560)"));
    add("uuid", 2950, QStringLiteral("DORVY: hlpEncodePSQLValue - unknown ptype (2950)"));
    add("jsonb", 3802, QStringLiteral("DORVY: hlpEncodePSQLValue - unknown ptype (3802)"));
    add("a table's own", 16384,
        QStringLiteral("DORVY: hlpEncodePSQLValue - unknown ptype (16384)"));
}

// A value that has no form in its parameter's type, and the number of the value's own.
void refused(const char *tag, int ptype, const QVariant &value, int type)
{
    QTest::newRow(tag) << ptype << value
                       << QStringLiteral("DORVY: hlpEncodePSQLValue - failed to encode ptype (%1) "
                                         "from QVariant::Type (%2)")
                              .arg(ptype)
                              .arg(type);
}

void refusedNumberRows()
{
    const QString word = QStringLiteral("seven");
    const QString empty = QStringLiteral("");
    const QDate date(2000, 1, 1);
    refused("int8 of a word", Int8, word, 10);
    refused("int8 of an empty text", Int8, empty, 10);
    refused("int8 of too many digits", Int8, QStringLiteral("9223372036854775808"), 10);
    refused("int8 of a date", Int8, date, 14);
    refused("int8 of a list", Int8, QVariantList{1}, 9);
    refused("int2 of a word", Int2, word, 10);
    refused("int2 of a number and more", Int2, QStringLiteral("12x"), 10);
    refused("int2 of a time", Int2, QTime(1, 0), 15);
    refused("int4 of a word", Int4, word, 10);
    refused("int4 of an empty text", Int4, empty, 10);
    refused("int4 of bytes", Int4, QByteArray("\xff"), 12);
    refused("int4 of a date-time", Int4, QDateTime(date, QTime(1, 0)), 16);
    refused("float4 of a word", Float4, word, 10);
    refused("float4 of a date", Float4, date, 14);
    refused("float8 of a word", Float8, word, 10);
    refused("float8 of a decimal comma", Float8, QStringLiteral("1,5"), 10);
    refused("float8 of an empty text", Float8, empty, 10);
    refused("float8 of a list", Float8, QVariantList{1}, 9);
    refused("numeric of a word", Numeric, word, 10);
    refused("numeric of a date", Numeric, date, 14);
    refused("numeric of infinity", Numeric, Infinity, 6);
    refused("numeric of negative infinity", Numeric, -Infinity, 6);
    refused("numeric of infinity in a text", Numeric, QStringLiteral("inf"), 10);
}

void refusedOwnTypeRows()
{
    qRegisterMetaType<Circle>(); // so that the other one's own number is not the common one
    const QVariant square = QVariant::fromValue(Square{1});
    refused("int4 of an own type", Int4, square, 1024);
    refused("numeric of an own type", Numeric, square, 1024);
    refused("bytea of an own type", Bytea, square, 1024);
    refused("date of an own type", Date, square, 1024);
    refused("timestamp of an own type", Timestamp, square, 1024);
}

void refusedByteRows()
{
    refused("bytea of no bytes", Bytea, QByteArray(""), 12);
    refused("bytea of an empty text", Bytea, QStringLiteral(""), 10);
    refused("bytea of a date", Bytea, QDate(2000, 1, 1), 14);
    refused("unknown of no bytes", Unknown, QByteArray(""), 12);
    refused("unknown of an empty text", Unknown, QStringLiteral(""), 10);
}

void refusedTimeRows()
{
    const QString word = QStringLiteral("tomorrow");
    const QDateTime noDate(QDate(), QTime(1, 0));
    refused("date of a word", Date, word, 10);
    refused("date of no such day", Date, QStringLiteral("2001-02-29"), 10);
    refused("date of a time", Date, QTime(1, 0), 15);
    refused("date of an int", Date, 36526, 2);
    refused("date of a date-time without date", Date, noDate, 16);
    refused("date beyond 32 bits", Date, QDate(5881610, 7, 12), 14);
    refused("date far beyond 32 bits", Date, QDate(20000000, 1, 1), 14);
    refused("time of a word", Time, word, 10);
    refused("time of no such hour", Time, QStringLiteral("25:00:00"), 10);
    refused("time of a date", Time, QDate(2000, 1, 1), 14);
    refused("time of a double", Time, 0.5, 6);
    refused("timetz of a word", TimeTz, word, 10);
    refused("timetz of an int", TimeTz, 5, 2);
    for (const int ptype : {Timestamp, TimestampTz}) {
        const QByteArray name = ptype == Timestamp ? "timestamp" : "timestamptz";
        refused(name + " of a word", ptype, word, 10);
        refused(name + " of a day number in a text", ptype, QStringLiteral("36526.5"), 10);
        refused(name + " of an int", ptype, 36526, 2);
        refused(name + " of a float", ptype, QVariant(36526.5f), 38);
        refused(name + " of a time", ptype, QTime(1, 0), 15);
        refused(name + " without date", ptype, noDate, 16);
        refused(name + " of NaN", ptype, NotANumber, 6);
        refused(name + " of infinity", ptype, Infinity, 6);
        refused(name + " beyond 64 bits", ptype,
                QDateTime(QDate(294277, 1, 9), QTime(4, 0, 54, 776)), 16);
        refused(name + " far beyond 64 bits", ptype, QDateTime(QDate(5000000, 1, 1), QTime(0, 0)),
                16);
        refused(name + " beyond any date", ptype, 1e300, 6);
    }
}

void refusedRows()
{
    QTest::addColumn<int>("ptype");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("message");
    refusedNumberRows();
    refusedOwnTypeRows();
    refusedByteRows();
    refusedTimeRows();
}

} // namespace

class tst_Dorvy3Encoder : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void cleanupTestCase();

    void bytes_data() { allRows(); }
    void bytes();
    void verdictDone_data() { allRows(); }
    void verdictDone();
    void unknownTypeIsFatal_data() { unknownTypeRows(); }
    void unknownTypeIsFatal();
    void verdictUnknownType_data() { unknownTypeRows(); }
    void verdictUnknownType();
    void valueWithoutAFormIsFatal_data() { refusedRows(); }
    void valueWithoutAFormIsFatal();
    void verdictNoConversion_data() { refusedRows(); }
    void verdictNoConversion();
    void nullHasNoBytes_data();
    void nullHasNoBytes();

    void sizeIsUnchanged_data();
    void sizeIsUnchanged();
    void sharedArrayIsDetached_data();
    void sharedArrayIsDetached();
    void spaceIsReserved();
    void valuesInARow();

    void textFollowsTheServerEncoding();
    void textWithoutAConnectionIsLatin1();
    void timestampUsesAll64Bits_data();
    void timestampUsesAll64Bits();
    void localTimeIsTakenAsItStands_data();
    void localTimeIsTakenAsItStands();

    void serverGets_data();
    void serverGets();
    void numericCarriesIntegerPart_data();
    void numericCarriesIntegerPart();
    void largestDoubleIsAccepted();
    void numericOfEverySizeIsAccepted();
    void float4SendsEightBytes();
    void timeTzHasNoZone();
    void timestampTzIsReadAsUtc();

private:
    ConnectionPtr connect(const QString &database = QStringLiteral("postgres")) const;
    Page ask(const QString &text, const QVariant &value, QSqlError *error = nullptr);
    QByteArray encoded(const QVariant &value, int ptype) const;

    PgCluster cluster;
    std::unique_ptr<WireProxy> proxy;
    ConnectionPtr connection;
    std::unique_ptr<Dorvy3Statement> statement;
};

void tst_Dorvy3Encoder::initTestCase()
{
    QVERIFY2(cluster.start(), qPrintable(cluster.why()));
    cluster.createDatabase(QStringLiteral("cyrillic"), QStringLiteral("WIN1251"));
    proxy.reset(new WireProxy(cluster.socketDir(), cluster.port()));
    connection = connect();
    QVERIFY(connection->isValid());
}

void tst_Dorvy3Encoder::cleanupTestCase()
{
    connection.clear();
    proxy.reset();
}

void tst_Dorvy3Encoder::init()
{
    statement.reset(new Dorvy3Statement);
    QVERIFY(statement->prep(QStringLiteral("SELECT 1"), connection, nullptr, nullptr));
}

void tst_Dorvy3Encoder::cleanup()
{
    statement.reset();
}

ConnectionPtr tst_Dorvy3Encoder::connect(const QString &database) const
{
    return connectThrough(*proxy, database);
}

// Runs \a text with one value.
Page tst_Dorvy3Encoder::ask(const QString &text, const QVariant &value, QSqlError *error)
{
    if (!statement->prep(text, connection, error, nullptr)) {
        return Page();
    }
    proxy->clear();
    return statement->exec({value}, error, -1);
}

// The bytes that the encoder has for a value, in hexadecimal.
QByteArray tst_Dorvy3Encoder::encoded(const QVariant &value, int ptype) const
{
    QByteArray out;
    const int length = statement->hlpEncodePSQLValue(fieldOf(value), ptype, out);
    out.resize(length);
    return out.toHex();
}

void tst_Dorvy3Encoder::bytes()
{
    QFETCH(int, ptype);
    QFETCH(QVariant, value);
    QFETCH(QByteArray, hex);
    QByteArray out;
    const int length = statement->hlpEncodePSQLValue(fieldOf(value), ptype, out);
    QCOMPARE(length, hex.size() / 2);
    QCOMPARE(out.size(), 0);
    out.resize(length);
    QCOMPARE(out.toHex(), hex);
}

void tst_Dorvy3Encoder::verdictDone()
{
    QFETCH(int, ptype);
    QFETCH(QVariant, value);
    QFETCH(QByteArray, hex);
    QByteArray out("before");
    int length = -1;
    QVERIFY(hlpEncode(value, ptype, *connection, out, &length) == Dorvy3Encoding::Done);
    QCOMPARE(length, hex.size() / 2);
    QCOMPARE(out, QByteArray("before"));
    out.resize(6 + length);
    QCOMPARE(out.left(6), QByteArray("before"));
    QCOMPARE(out.mid(6).toHex(), hex);
}

void tst_Dorvy3Encoder::unknownTypeIsFatal()
{
    QFETCH(int, ptype);
    QFETCH(QString, message);
    const QByteArray info = cluster.conninfo();
    const ChildOutcome outcome = runInChild([&] {
        const auto own = ConnectionPtr::create(PQconnectdb(info.constData()), QString());
        Dorvy3Statement child;
        child.prep(QStringLiteral("SELECT 1"), own, nullptr, nullptr);
        QByteArray out;
        child.hlpEncodePSQLValue(fieldOf(1), ptype, out);
    });
    QCOMPARE(outcome.fatal, message);
    QVERIFY(outcome.aborted);
}

void tst_Dorvy3Encoder::verdictUnknownType()
{
    QFETCH(int, ptype);
    for (const QVariant &value : {QVariant(1), QVariant(QStringLiteral("")), QVariant(QDate())}) {
        QByteArray out("before");
        int length = 0;
        QVERIFY(hlpEncode(value, ptype, *connection, out, &length) == Dorvy3Encoding::UnknownType);
        QCOMPARE(out, QByteArray("before"));
    }
}

void tst_Dorvy3Encoder::valueWithoutAFormIsFatal()
{
    QFETCH(int, ptype);
    QFETCH(QVariant, value);
    QFETCH(QString, message);
    const QByteArray info = cluster.conninfo();
    const ChildOutcome outcome = runInChild([&] {
        const auto own = ConnectionPtr::create(PQconnectdb(info.constData()), QString());
        Dorvy3Statement child;
        child.prep(QStringLiteral("SELECT 1"), own, nullptr, nullptr);
        QByteArray out;
        child.hlpEncodePSQLValue(fieldOf(value), ptype, out);
    });
    QCOMPARE(outcome.fatal, message);
    QVERIFY(outcome.aborted);
}

void tst_Dorvy3Encoder::verdictNoConversion()
{
    QFETCH(int, ptype);
    QFETCH(QVariant, value);
    QByteArray out("before");
    int length = 0;
    QVERIFY(hlpEncode(value, ptype, *connection, out, &length) == Dorvy3Encoding::NoConversion);
    QCOMPARE(out, QByteArray("before"));
}

void tst_Dorvy3Encoder::nullHasNoBytes_data()
{
    QTest::addColumn<int>("ptype");
    QTest::addColumn<QVariant>("value");
    for (const int ptype :
         {Bytea, Name, Int8,      Int2,        Int4,   Text,    Float4, Float8, Unknown, Varchar,
          Date,  Time, Timestamp, TimestampTz, TimeTz, Numeric, 16,     2950,   0,       -1}) {
        const QByteArray tag = QByteArray::number(ptype);
        QTest::newRow("invalid for " + tag) << ptype << QVariant();
        QTest::newRow("null int for " + tag) << ptype << QVariant(QVariant::Int);
        QTest::newRow("null text for " + tag) << ptype << QVariant(QString());
        QTest::newRow("null bytes for " + tag) << ptype << QVariant(QByteArray());
        QTest::newRow("no date for " + tag) << ptype << QVariant(QDate());
    }
}

void tst_Dorvy3Encoder::nullHasNoBytes()
{
    QFETCH(int, ptype);
    QFETCH(QVariant, value);
    QByteArray out("before");
    const QByteArray shared = out;
    QCOMPARE(statement->hlpEncodePSQLValue(fieldOf(value), ptype, out), 0);
    QCOMPARE(out, QByteArray("before"));
    QVERIFY(out.constData() == shared.constData()); // nothing to write, nothing to detach for
}

void tst_Dorvy3Encoder::sizeIsUnchanged_data()
{
    QTest::addColumn<int>("ptype");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QByteArray>("hex");
    row("bytea", Bytea, QByteArray("xyz"), "78797a");
    row("name", Name, QStringLiteral("xyz"), "78797a");
    row("int8", Int8, 1, "0000000000000001");
    row("int2", Int2, 1, "0001");
    row("int4", Int4, 1, "00000001");
    row("text", Text, QStringLiteral("xyz"), "78797a");
    row("float4", Float4, 1.5, "3fc0000000000000");
    row("float8", Float8, 1.5, "3ff8000000000000");
    row("unknown", Unknown, QByteArray("xyz"), "78797a");
    row("varchar", Varchar, QStringLiteral("xyz"), "78797a");
    row("date", Date, QDate(2000, 1, 2), "00000001");
    row("time", Time, QTime(0, 0, 0, 1), "00000000000003e8");
    row("timestamp", Timestamp, QDateTime(QDate(2000, 1, 1), QTime(0, 0, 1)), "00000000000f4240");
    row("timestamptz", TimestampTz, QDateTime(QDate(2000, 1, 1), QTime(0, 0, 1)),
        "00000000000f4240");
    row("timetz", TimeTz, QTime(0, 0, 0, 1), "00000000000003e8");
    row("numeric", Numeric, 10001.0, "000200010000000000010001");
    row("empty numeric", Numeric, 0.0, "0000000000000000");
}

void tst_Dorvy3Encoder::sizeIsUnchanged()
{
    QFETCH(int, ptype);
    QFETCH(QVariant, value);
    QFETCH(QByteArray, hex);
    QByteArray out("abc\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff");
    out.reserve(64);
    out.resize(3); // the bytes behind the end are not zero
    const int length = statement->hlpEncodePSQLValue(fieldOf(value), ptype, out);
    QCOMPARE(out.size(), 3);
    QVERIFY(out.capacity() >= 3 + length);
    out.resize(3 + length);
    QCOMPARE(out.left(3), QByteArray("abc"));
    QCOMPARE(out.mid(3).toHex(), hex);
}

void tst_Dorvy3Encoder::sharedArrayIsDetached_data()
{
    sizeIsUnchanged_data();
}

void tst_Dorvy3Encoder::sharedArrayIsDetached()
{
    QFETCH(int, ptype);
    QFETCH(QVariant, value);
    QFETCH(QByteArray, hex);
    QByteArray out("abc.............");
    out.reserve(64); // room for all: only the sharing calls for a copy
    out.resize(3);
    const QByteArray other = out;
    QVERIFY(other.constData() == out.constData());
    const int length = statement->hlpEncodePSQLValue(fieldOf(value), ptype, out);
    QVERIFY(other.constData() != out.constData());
    out.resize(3 + length);
    QCOMPARE(out.mid(3).toHex(), hex);
    // resize() itself ends the array with a zero, so look past it.
    QCOMPARE(QByteArray(other.constData() + 4, 12), QByteArray("............"));
    QCOMPARE(other, QByteArray("abc"));
}

void tst_Dorvy3Encoder::spaceIsReserved()
{
    const QByteArray large(100000, 'x');
    QByteArray out("abc");
    QCOMPARE(statement->hlpEncodePSQLValue(fieldOf(large), Bytea, out), 100000);
    QCOMPARE(out, QByteArray("abc"));
    QVERIFY(out.capacity() >= 100003);
    out.resize(100003);
    QCOMPARE(out, QByteArray("abc") + large);
}

void tst_Dorvy3Encoder::valuesInARow()
{
    QByteArray out;
    QByteArray expected;
    const auto append = [&](const QVariant &value, int ptype, const char *hex) {
        out.resize(out.size() + statement->hlpEncodePSQLValue(fieldOf(value), ptype, out));
        expected += hex;
    };
    for (int i = 0; i < 200; ++i) {
        append(1, Int2, "0001");
        append(QStringLiteral(""), Text, "");
        append(1.5, Float4, "3fc0000000000000");
        append(QVariant(), Int8, "");
        append(QStringLiteral("ж"), Text, "d0b6");
        append(-12345.75, Numeric, "000200014000000000010929");
    }
    QCOMPARE(out.toHex(), expected);
}

void tst_Dorvy3Encoder::textFollowsTheServerEncoding()
{
    const ConnectionPtr cyrillic = connect(QStringLiteral("cyrillic"));
    QVERIFY(statement->prep(QStringLiteral("SELECT 1"), cyrillic, nullptr, nullptr));
    for (const int ptype : {Text, Varchar, Name}) {
        QCOMPARE(encoded(QStringLiteral("жук"), ptype), QByteArray("e6f3ea"));
    }
    // Bytes are not texts.
    QCOMPARE(encoded(QStringLiteral("жук"), Bytea), QByteArray("d0b6d183d0ba"));
}

void tst_Dorvy3Encoder::textWithoutAConnectionIsLatin1()
{
    const Dorvy3Connection none(nullptr, QString());
    for (const int ptype : {Text, Varchar, Name}) {
        QByteArray out;
        int length = -1;
        QVERIFY(hlpEncode(QStringLiteral("é!"), ptype, none, out, &length) == Dorvy3Encoding::Done);
        out.resize(length);
        QCOMPARE(out.toHex(), QByteArray("e921"));
    }
}

void tst_Dorvy3Encoder::timestampUsesAll64Bits_data()
{
    QTest::addColumn<int>("ptype");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QByteArray>("hex");
    const QDate last(294277, 1, 9);
    row("last whole day", Timestamp, QDateTime(QDate(294277, 1, 8), QTime(23, 59, 59, 999)),
        "7ffffffca26d9c18");
    row("midnight after it", Timestamp, QDateTime(last, QTime(0, 0)), "7ffffffca26da000");
    row("last millisecond", Timestamp, QDateTime(last, QTime(4, 0, 54, 775)), "7ffffffffffffcd8");
}

void tst_Dorvy3Encoder::timestampUsesAll64Bits()
{
    QFETCH(int, ptype);
    QFETCH(QVariant, value);
    QFETCH(QByteArray, hex);
    QByteArray out;
    int length = 0;
    QVERIFY(hlpEncode(value, ptype, *connection, out, &length) == Dorvy3Encoding::Done);
    out.resize(length);
    QCOMPARE(out.toHex(), hex);
}

void tst_Dorvy3Encoder::localTimeIsTakenAsItStands_data()
{
    QTest::addColumn<QByteArray>("zone");
    QTest::newRow("west of UTC") << QByteArray("America/New_York");
    QTest::newRow("east of UTC") << QByteArray("Asia/Kolkata");
}

void tst_Dorvy3Encoder::localTimeIsTakenAsItStands()
{
    QFETCH(QByteArray, zone);
    const ChildOutcome outcome = runInChild([&] {
        qputenv("TZ", zone);
        tzset();
        const Dorvy3Connection none(nullptr, QString());
        for (const QVariant &value :
             {QVariant(QDateTime(QDate(2020, 7, 1), QTime(12, 0))), QVariant(36526.5),
              QVariant(QDateTime(QDate(2020, 7, 1), QTime(12, 0), Qt::UTC))}) {
            for (const int ptype : {Timestamp, TimestampTz}) {
                QByteArray out;
                int length = 0;
                hlpEncode(value, ptype, none, out, &length);
                out.resize(length);
                std::printf("%s ", out.toHex().constData());
            }
        }
        const QDateTime local(QDate(2020, 7, 1), QTime(12, 0));
        std::printf("%d", local.offsetFromUtc() == 0); // else the zone was not heeded
    });
    QCOMPARE(outcome.output, QStringLiteral("00024c5ecccc5000 00024c5ecccc5000 "
                                            "0000000a0eebb000 0000000a0eebb000 "
                                            "00024c5ecccc5000 00024c5ecccc5000 0"));
}

void tst_Dorvy3Encoder::serverGets_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("text");
    const auto add = [](const char *tag, const char *type, const QVariant &value,
                        const char *text) {
        QTest::newRow(tag) << QString::fromLatin1(type) << value << QString::fromUtf8(text);
    };
    add("int8 highest", "int8", std::numeric_limits<qint64>::max(), "9223372036854775807");
    add("int8 lowest", "int8", std::numeric_limits<qint64>::min(), "-9223372036854775808");
    add("int2", "int2", -32768, "-32768");
    add("int2 cut", "int2", 70000, "4464");
    add("int4", "int4", -2147483647, "-2147483647");
    add("float8", "float8", 0.1, "0.1");
    add("float8 large", "float8", 1e308, "1e+308");
    add("float8 infinity", "float8", -Infinity, "-Infinity");
    add("float8 NaN", "float8", NotANumber, "NaN");
    add("text", "text", QStringLiteral("жук 'и' \\"), "жук 'и' \\");
    add("varchar", "varchar", QStringLiteral("жук"), "жук");
    add("name", "name", QStringLiteral("жук"), "жук");
    add("bytea", "bytea", QByteArray("\0'\\\xff", 4), "\\x00275cff");
    add("date", "date", QDate(2004, 2, 29), "2004-02-29");
    add("date of 1 BC", "date", QDate(-1, 2, 29), "0001-02-29 BC");
    add("date first of the server's", "date", QDate(-4714, 11, 24), "4714-11-24 BC");
    add("date last of the server's", "date", QDate(5874897, 12, 31), "5874897-12-31");
    add("time", "time", QTime(23, 59, 59, 999), "23:59:59.999");
    add("midnight", "time", QTime(0, 0), "00:00:00");
    add("timestamp", "timestamp", QDateTime(QDate(1999, 12, 31), QTime(23, 59, 59, 999)),
        "1999-12-31 23:59:59.999");
    add("timestamp of 1 BC", "timestamp", QDateTime(QDate(-1, 12, 31), QTime(12, 0)),
        "0001-12-31 12:00:00 BC");
    add("timestamp last of the server's", "timestamp",
        QDateTime(QDate(294276, 12, 31), QTime(23, 59, 59, 999)), "294276-12-31 23:59:59.999");
    add("timestamp of a day number", "timestamp", 36526.5, "2000-01-01 12:00:00");
    add("timestamp of a negative day number", "timestamp", -1.25, "1899-12-29 18:00:00");
    add("numeric", "numeric", 123456789012.0, "123456789012");
}

void tst_Dorvy3Encoder::serverGets()
{
    QFETCH(QString, type);
    QFETCH(QVariant, value);
    QFETCH(QString, text);
    QSqlError error;
    const Page page = ask(QStringLiteral("SELECT $1::%1::text").arg(type), value, &error);
    QVERIFY2(page, qPrintable(error.text()));
    QCOMPARE(QString::fromUtf8(PQgetvalue(page->result, 0, 0)), text);
}

void tst_Dorvy3Encoder::numericCarriesIntegerPart_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("text");
    QTest::newRow("1.5") << QVariant(1.5) << QStringLiteral("1");
    QTest::newRow("2.9") << QVariant(2.9) << QStringLiteral("2");
    QTest::newRow("-2.9") << QVariant(-2.9) << QStringLiteral("-2");
    QTest::newRow("0.5") << QVariant(0.5) << QStringLiteral("0");
    QTest::newRow("-0.5") << QVariant(-0.5) << QStringLiteral("0");
    QTest::newRow("zero") << QVariant(0) << QStringLiteral("0");
    QTest::newRow("NaN") << QVariant(NotANumber) << QStringLiteral("0");
    QTest::newRow("-12345.75") << QVariant(-12345.75) << QStringLiteral("-12345");
    QTest::newRow("10000") << QVariant(10000.25) << QStringLiteral("10000");
    QTest::newRow("100000000") << QVariant(100000000) << QStringLiteral("100000000");
    QTest::newRow("2^53") << QVariant(9007199254740992.0) << QStringLiteral("9007199254740992");
    QTest::newRow("text") << QVariant(QStringLiteral("19.99")) << QStringLiteral("19");
}

void tst_Dorvy3Encoder::numericCarriesIntegerPart()
{
    QFETCH(QVariant, value);
    QFETCH(QString, text);
    QSqlError error;
    const Page page = ask(QStringLiteral("SELECT $1::numeric::text"), value, &error);
    QVERIFY2(page, qPrintable(error.text()));
    QCOMPARE(QString::fromUtf8(PQgetvalue(page->result, 0, 0)), text);
}

void tst_Dorvy3Encoder::largestDoubleIsAccepted()
{
    for (const double sign : {1.0, -1.0}) {
        QSqlError error;
        const Page page = ask(QStringLiteral("SELECT $1::numeric::text"), sign * DBL_MAX, &error);
        QVERIFY2(page, qPrintable(error.text()));
        const QByteArray expected = (sign < 0 ? QByteArray("-") : QByteArray()) +
                                    "17976931348623154" + QByteArray(292, '0');
        QCOMPARE(QByteArray(PQgetvalue(page->result, 0, 0)), expected);
    }
}

void tst_Dorvy3Encoder::numericOfEverySizeIsAccepted()
{
    // The server refuses a digit above 9999. The last digits of such numbers are not exact.
    QVERIFY(statement->prep(QStringLiteral("SELECT ($1::numeric / $2::text::numeric)::float8"),
                            connection, nullptr, nullptr));
    for (int exponent = 0; exponent <= 308; ++exponent) {
        for (const double front : {1.0, 1.2345678901234567, 1.7976931348623157}) {
            const double value = front * std::pow(10.0, exponent);
            QSqlError error;
            const Page page =
                statement->exec({value, QStringLiteral("1e%1").arg(exponent)}, &error, -1);
            QVERIFY2(page, qPrintable(error.text()));
            const QByteArray bytes(PQgetvalue(page->result, 0, 0), 8);
            quint64 bits = qFromBigEndian<quint64>(bytes.constData());
            double quotient;
            std::memcpy(&quotient, &bits, sizeof(quotient));
            const double whole =
                exponent < 15 ? std::trunc(value) / std::pow(10.0, exponent) : front;
            QVERIFY2(std::fabs(quotient - whole) < 1e-14,
                     qPrintable(QString::number(value, 'g', 17)));
        }
    }
}

void tst_Dorvy3Encoder::float4SendsEightBytes()
{
    // The server reads four of them and refuses the rest.
    QSqlError error;
    QVERIFY(!ask(QStringLiteral("SELECT $1::float4"), 1.5, &error));
    const QString bind =
        QStringLiteral("1> Bind P1 S1 [3fc0000000000000:1] 1"); // the first connection
    QVERIFY2(proxy->frontend().contains(bind),
             qPrintable(proxy->frontend().join(QLatin1Char('\n'))));
    QCOMPARE(error.type(), QSqlError::StatementError);
    QVERIFY2(error.driverText().startsWith(
                 QStringLiteral("ERROR:  incorrect binary data format in bind parameter 1\n")),
             qPrintable(error.driverText()));
}

void tst_Dorvy3Encoder::timeTzHasNoZone()
{
    // The server misses the zone's four bytes.
    QSqlError error;
    QVERIFY(!ask(QStringLiteral("SELECT $1::timetz"), QTime(12, 0), &error));
    const QString bind =
        QStringLiteral("1> Bind P1 S1 [0000000a0eebb000:1] 1"); // the first connection
    QVERIFY2(proxy->frontend().contains(bind),
             qPrintable(proxy->frontend().join(QLatin1Char('\n'))));
    QCOMPARE(error.type(), QSqlError::StatementError);
    QVERIFY2(error.driverText().startsWith(
                 QStringLiteral("ERROR:  insufficient data left in message\n")),
             qPrintable(error.driverText()));
}

void tst_Dorvy3Encoder::timestampTzIsReadAsUtc()
{
    const ConnectionPtr moscow = connect();
    PQclear(PQexec(moscow->connection(), "SET timezone = 'Europe/Moscow'"));
    Dorvy3Statement other;
    QVERIFY(other.prep(QStringLiteral("SELECT $1::timestamptz::text"), moscow, nullptr, nullptr));
    const Page page = other.exec({QDateTime(QDate(2020, 7, 1), QTime(12, 0))}, nullptr, -1);
    QVERIFY(page);
    QCOMPARE(QByteArray(PQgetvalue(page->result, 0, 0)), QByteArray("2020-07-01 15:00:00+03"));
}

QTEST_GUILESS_MAIN(tst_Dorvy3Encoder)
#include "tst_dorvy3encoder.moc"
