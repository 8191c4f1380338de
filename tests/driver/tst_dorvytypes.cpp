// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The table from PostgreSQL's types to Qt's.
#include "driver/dorvytypes_p.h"

#include "tests/support/childprocess.h"

#include <QtTest/QtTest>

Q_DECLARE_METATYPE(QVariant::Type)

class tst_DorvyTypes : public QObject
{
    Q_OBJECT

private slots:
    void knownTypes_data();
    void knownTypes();
    void unknownTypesAreFatal_data();
    void unknownTypesAreFatal();
    void tableHasNoOtherType();
};

void tst_DorvyTypes::knownTypes_data()
{
    QTest::addColumn<int>("oid");
    QTest::addColumn<QVariant::Type>("type");
    QTest::newRow("bool") << 16 << QVariant::Bool;
    QTest::newRow("bytea") << 17 << QVariant::ByteArray;
    QTest::newRow("name") << 19 << QVariant::String;
    QTest::newRow("int8") << 20 << QVariant::LongLong;
    QTest::newRow("int2") << 21 << QVariant::Int;
    QTest::newRow("int4") << 23 << QVariant::Int;
    QTest::newRow("text, as bytes") << 25 << QVariant::ByteArray;
    QTest::newRow("float4") << 700 << QVariant::Double;
    QTest::newRow("float8") << 701 << QVariant::Double;
    QTest::newRow("unknown") << 705 << QVariant::ByteArray;
    QTest::newRow("bpchar") << 1042 << QVariant::String;
    QTest::newRow("varchar") << 1043 << QVariant::String;
    QTest::newRow("date") << 1082 << QVariant::Date;
    QTest::newRow("time") << 1083 << QVariant::Time;
    QTest::newRow("timestamp") << 1114 << QVariant::DateTime;
    QTest::newRow("timestamptz") << 1184 << QVariant::DateTime;
    QTest::newRow("numeric") << 1700 << QVariant::Double;
    QTest::newRow("uuid, as text") << 2950 << QVariant::String;
    QTest::newRow("jsonb, as bytes") << 3802 << QVariant::ByteArray;
}

void tst_DorvyTypes::knownTypes()
{
    QFETCH(int, oid);
    QFETCH(QVariant::Type, type);
    QCOMPARE(hlpDecodePSQLType(oid), type);
}

void tst_DorvyTypes::unknownTypesAreFatal_data()
{
    QTest::addColumn<int>("oid");
    QTest::addColumn<QString>("message");
    const auto row = [](const char *tag, int oid, const char *message) {
        QTest::newRow(tag) << oid << QString::fromLatin1(message);
    };
    row("none", 0, "DORVY: hlpDecodePSQLType - unknown ptype (0)");
    row("negative", -1, "DORVY: hlpDecodePSQLType - unknown ptype (-1)");
    row("char", 18, "DORVY: hlpDecodePSQLType - unknown ptype (18)");
    row("oid", 26, "DORVY: hlpDecodePSQLType - unknown ptype (26)");
    row("json", 114, "DORVY: hlpDecodePSQLType - unknown ptype (114)");
    row("xml", 142, "DORVY: hlpDecodePSQLType - unknown ptype (142)");
    row("money", 790, "DORVY: hlpDecodePSQLType - unknown ptype (790)");
    row("inet", 869, "DORVY: hlpDecodePSQLType - unknown ptype (869)");
    row("array of int2", 1005, "DORVY: hlpDecodePSQLType - unknown ptype (1005)");
    row("array of int4", 1007, "DORVY: hlpDecodePSQLType - unknown ptype (1007)");
    row("array of text", 1009, "DORVY: hlpDecodePSQLType - unknown ptype (1009)");
    row("interval", 1186, "DORVY: hlpDecodePSQLType - unknown ptype (1186)");
    row("timetz", 1266, "DORVY: hlpDecodePSQLType - unknown ptype (1266)");
    row("bit", 1560, "DORVY: hlpDecodePSQLType - unknown ptype (1560)");
    row("bit varying", 1562, "DORVY: hlpDecodePSQLType - unknown ptype (1562)");
    row("of a user", 16384, "DORVY: hlpDecodePSQLType - unknown ptype (16384)");
    row("greatest", 2147483647, "DORVY: hlpDecodePSQLType - unknown ptype (2147483647)");
}

void tst_DorvyTypes::unknownTypesAreFatal()
{
    QFETCH(int, oid);
    QFETCH(QString, message);
    const ChildOutcome outcome = runInChild([oid]() { hlpDecodePSQLType(oid); });
    QCOMPARE(outcome.fatal, message);
    QVERIFY(outcome.aborted);
}

void tst_DorvyTypes::tableHasNoOtherType()
{
    // The neighbours of every entry, in one go each: a type that got in by mistake shows here.
    const QList<int> known{16,   17,   19,   20,   21,   23,   25,   700,  701, 705,
                           1042, 1043, 1082, 1083, 1114, 1184, 1700, 2950, 3802};
    for (const int entry : known) {
        for (const int oid : {entry - 1, entry + 1}) {
            if (!known.contains(oid)) {
                const ChildOutcome outcome = runInChild([oid]() { hlpDecodePSQLType(oid); });
                QVERIFY2(outcome.aborted, qPrintable(QString::number(oid)));
            }
        }
    }
}

QTEST_GUILESS_MAIN(tst_DorvyTypes)
#include "tst_dorvytypes.moc"
