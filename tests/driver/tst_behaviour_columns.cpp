// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// What an application has to know of the values it reads.
#include "tests/driver/behaviour.h"
#include "tests/support/localzone.h"

#include <QtCore/QUuid>
#include <QtSql/QSqlField>
#include <QtSql/QSqlRecord>

class tst_BehaviourColumns : public QObject, private Behaviour
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY2(start(), qPrintable(cluster.why())); }
    void init() { QVERIFY(openAnew()); }
    void cleanup() { closeForGood(); }

    void types_data();
    void types();
    void columnThatEndsTheProcess_data();
    void columnThatEndsTheProcess();
    void enumerationEndsTheProcess();
    void columnNotAskedForIsFine();
    void columnThatIsCast_data();
    void columnThatIsCast();
    void describingATable();

    void numericArrivesAsDouble();
    void numericThatIsNoNumberIsZero();
    void bpcharIsTrimmed();
    void nullHasItsType();
    void nullOfATextIsANullByteArray();
    void timestampWithZoneArrivesInUtcAsIfLocal();
    void timestampWithZoneInAChosenZone();
    void timestampBefore2000FallsOnTheNextMidnight();
    void timestampBefore2000InTwoColumns();
    void endOfTheDayIsItsBeginning();

    void bytesAreThePages();
    void bytesCopiedOutliveThePage();
    void jsonbBeginsWithItsVersion();
    void jsonAsBytes();

private:
    // The first value of the first row.
    QVariant value(const QString &sql)
    {
        QSqlQuery query(db);
        return query.exec(sql) && query.next() ? query.value(0) : QVariant();
    }
};

void tst_BehaviourColumns::types_data()
{
    QTest::addColumn<QString>("sql");
    QTest::addColumn<int>("described"); // by the record
    QTest::addColumn<QVariant>("expected");
    const auto row = [](const char *sql, QVariant::Type described, const QVariant &expected) {
        QTest::newRow(sql) << sql << int(described) << expected;
    };
    row("SELECT true", QVariant::Bool, true);
    row("SELECT 5::int2", QVariant::Int, QVariant::fromValue(short(5)));
    row("SELECT 5::int4", QVariant::Int, 5);
    row("SELECT 5::int8", QVariant::LongLong, Q_INT64_C(5));
    row("SELECT 0.5::float4", QVariant::Double, QVariant::fromValue(0.5f));
    row("SELECT 0.5::float8", QVariant::Double, 0.5);
    row("SELECT 0.5::numeric(4,2)", QVariant::Double, 0.5);
    row("SELECT 'abc'::text", QVariant::ByteArray, "abc");
    row("SELECT 'abc'::varchar(9)", QVariant::String, "abc");
    row("SELECT 'abc'::name", QVariant::String, "abc");
    row("SELECT '\\x0102'::bytea", QVariant::ByteArray, QByteArray("\1\2"));
    row("SELECT '2020-02-29'::date", QVariant::Date, QDate(2020, 2, 29));
    row("SELECT '12:30:15.250'::time", QVariant::Time, QTime(12, 30, 15, 250));
    row("SELECT '2020-02-29 12:30:15.25'::timestamp", QVariant::DateTime,
        QDateTime(QDate(2020, 2, 29), QTime(12, 30, 15, 250)));
    row("SELECT '8c8c0a5c-0f8e-4b51-9d4c-7a3a1d1b2c3d'::uuid", QVariant::String,
        QVariant(QUuid("{8c8c0a5c-0f8e-4b51-9d4c-7a3a1d1b2c3d}")));
    row("SELECT '1'::jsonb", QVariant::ByteArray,
        QByteArray("\1"
                   "1"));
    row("SELECT count(*) FROM pg_class WHERE false", QVariant::LongLong, Q_INT64_C(0));
}

void tst_BehaviourColumns::types()
{
    QFETCH(QString, sql);
    QFETCH(int, described);
    QFETCH(QVariant, expected);
    QSqlQuery query(db);
    QVERIFY(query.exec(sql));
    QVERIFY(query.next());
    QCOMPARE(int(query.record().field(0).type()), described);
    QCOMPARE(query.value(0).userType(), expected.userType());
    QCOMPARE(query.value(0), expected);
}

void tst_BehaviourColumns::columnThatEndsTheProcess_data()
{
    QTest::addColumn<QString>("sql");
    QTest::addColumn<int>("oid");
    const auto row = [](const char *sql, int oid) { QTest::newRow(sql) << sql << oid; };
    row("SELECT 'a'::\"char\"", 18);
    row("SELECT 5::oid", 26);
    row("SELECT '5'::xid", 28);
    row("SELECT '{}'::json", 114);
    row("SELECT null::json", 114);
    row("SELECT '{}'::json WHERE false", 114);
    row("SELECT '(1,2)'::point", 600);
    row("SELECT '1'::money", 790);
    row("SELECT '10.0.0.1'::inet", 869);
    row("SELECT ARRAY[1, 2]", 1007);
    row("SELECT '1 day'::interval", 1186);
    row("SELECT '12:00+03'::timetz", 1266);
    row("SELECT B'101'", 1560);
    row("SELECT 'pg_class'::regclass", 2205);
    row("SELECT ROW(1, 2)", 2249);
    row("SELECT pg_advisory_lock(1)", 2278);
}

void tst_BehaviourColumns::columnThatEndsTheProcess()
{
    QFETCH(QString, sql);
    QFETCH(int, oid);
    QCOMPARE(fatalMessage([&sql](QSqlQuery &query) { query.exec(sql); }),
             QString("DORVY: hlpDecodePSQLType - unknown ptype (%1)").arg(oid));
}

void tst_BehaviourColumns::enumerationEndsTheProcess()
{
    cluster.run("CREATE TYPE mood AS ENUM ('fine', 'better')");
    QCOMPARE(fatalMessage([](QSqlQuery &query) { query.exec("SELECT 'fine'::mood"); }),
             "DORVY: hlpDecodePSQLType - unknown ptype (" +
                 cluster.value("SELECT 'mood'::regtype::oid") + ")");
    QCOMPARE(value("SELECT 'fine'::mood::text"), QVariant("fine"));
}

void tst_BehaviourColumns::columnNotAskedForIsFine()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("CREATE TABLE t AS SELECT 5 AS a, '{}'::json AS b"));
    QVERIFY(query.exec("SELECT a FROM t WHERE b IS NOT NULL"));
    QVERIFY(query.next());
    QCOMPARE(query.value(0).toInt(), 5);
}

void tst_BehaviourColumns::columnThatIsCast_data()
{
    QTest::addColumn<QString>("sql");
    QTest::addColumn<QVariant>("expected");
    const auto row = [](const char *sql, const QVariant &expected) {
        QTest::newRow(sql) << sql << expected;
    };
    row("SELECT 4000000000::oid::int8", Q_INT64_C(4000000000));
    row("SELECT '5'::xid::text", "5");
    row("SELECT '{\"a\": 1}'::json::text", "{\"a\": 1}");
    row("SELECT null::json::text", QVariant(QVariant::ByteArray));
    row("SELECT '(1,2)'::point::text", "(1,2)");
    row("SELECT '1'::money::numeric", 1.0);
    row("SELECT '10.0.0.1'::inet::text", "10.0.0.1/32");
    row("SELECT ARRAY[1, 2]::text", "{1,2}");
    row("SELECT array_to_string(ARRAY[1, 2], ' ')", "1 2");
    row("SELECT '1 day'::interval::text", "1 day");
    row("SELECT extract(epoch FROM '1 day'::interval)::int", 86400);
    row("SELECT '12:00+03'::timetz::text", "12:00:00+03");
    row("SELECT B'101'::text", "101");
    row("SELECT B'101'::int", 5);
    row("SELECT 'pg_class'::regclass::text", "pg_class");
    row("SELECT ROW(1, 2)::text", "(1,2)");
    row("SELECT pg_advisory_xact_lock(1)::text", "");
    row("SELECT 'a'::\"char\"::text", "a");
}

void tst_BehaviourColumns::columnThatIsCast()
{
    QFETCH(QString, sql);
    QFETCH(QVariant, expected);
    QCOMPARE(value(sql), expected);
}

void tst_BehaviourColumns::describingATable()
{
    cluster.run("CREATE TABLE t (a int)");
    QSqlQuery query(db);
    if (cluster.major() < 12) { // a column of the catalog that is asked for went with PostgreSQL 12
        QCOMPARE(fatalMessage([](QSqlQuery &) { QSqlDatabase::database("child").record("t"); }),
                 QString("DORVY: hlpDecodePSQLType - unknown ptype (0)"));
    } else {
        QVERIFY(db.record("t").isEmpty());
    }
    QVERIFY(query.exec("SELECT * FROM t LIMIT 0"));
    QCOMPARE(query.record().fieldName(0), QString("a"));
}

void tst_BehaviourColumns::numericArrivesAsDouble()
{
    QCOMPARE(value("SELECT 12345678901234567.89"), QVariant(12345678901234568.0));
    QCOMPARE(value("SELECT 12345678901234567.89::text"), QVariant("12345678901234567.89"));
}

void tst_BehaviourColumns::numericThatIsNoNumberIsZero()
{
    QCOMPARE(value("SELECT 'NaN'::numeric"), QVariant(0.0));
}

void tst_BehaviourColumns::bpcharIsTrimmed()
{
    QCOMPARE(value("SELECT '  ab'::char(6)"), QVariant("ab"));
    QCOMPARE(value("SELECT '  ab'::char(6)::text"), QVariant("  ab"));
}

void tst_BehaviourColumns::nullHasItsType()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("SELECT null::int8"));
    QVERIFY(query.next());
    QVERIFY(query.isNull(0));
    QCOMPARE(query.value(0), QVariant(QVariant::LongLong));
}

void tst_BehaviourColumns::nullOfATextIsANullByteArray()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("SELECT null::text"));
    QVERIFY(query.next());
    QVERIFY(query.isNull(0));
    QCOMPARE(query.value(0).type(), QVariant::ByteArray);
    QCOMPARE(query.value(0).toString(), QString());
}

void tst_BehaviourColumns::timestampWithZoneArrivesInUtcAsIfLocal()
{
    const LocalZone moscow(Zone);
    QSqlQuery query(db);
    QVERIFY(query.exec("SELECT '2020-01-01 12:00:00+03'::timestamptz"));
    QVERIFY(query.next());
    QDateTime read = query.value(0).toDateTime();
    QCOMPARE(read, QDateTime(QDate(2020, 1, 1), QTime(9, 0), Qt::LocalTime));
    read.setTimeSpec(Qt::UTC); // what it is
    QCOMPARE(read.toLocalTime().time(), QTime(12, 0));
}

void tst_BehaviourColumns::timestampWithZoneInAChosenZone()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("SELECT '2020-01-01 12:00:00+03'::timestamptz AT TIME ZONE 'Etc/GMT-3'"));
    QVERIFY(query.next());
    QCOMPARE(query.value(0).toDateTime().time(), QTime(12, 0));
}

void tst_BehaviourColumns::timestampBefore2000FallsOnTheNextMidnight()
{
    QCOMPARE(value("SELECT '1999-12-30 18:00:00'::timestamp").toDateTime(),
             QDateTime(QDate(1999, 12, 31), QTime(0, 0)));
    QCOMPARE(value("SELECT '1999-12-30 00:00:00'::timestamp").toDateTime(),
             QDateTime(QDate(1999, 12, 30), QTime(0, 0)));
}

void tst_BehaviourColumns::timestampBefore2000InTwoColumns()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("SELECT at::date, at::time FROM (VALUES ('1999-12-30 18:00'::timestamp)) "
                       "AS t (at)"));
    QVERIFY(query.next());
    QCOMPARE(QDateTime(query.value(0).toDate(), query.value(1).toTime()),
             QDateTime(QDate(1999, 12, 30), QTime(18, 0)));
}

void tst_BehaviourColumns::endOfTheDayIsItsBeginning()
{
    QCOMPARE(value("SELECT '24:00:00'::time"), QVariant(QTime(0, 0)));
}

void tst_BehaviourColumns::bytesAreThePages()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("SELECT '\\x0102'::bytea"));
    QVERIFY(query.next());
    const QByteArray once = query.value(0).toByteArray();
    const QByteArray again = query.value(0).toByteArray();
    QCOMPARE(static_cast<const void *>(once.constData()),
             static_cast<const void *>(again.constData()));
}

void tst_BehaviourColumns::bytesCopiedOutliveThePage()
{
    QSqlQuery query(db);
    QList<QByteArray> kept;
    QVERIFY(query.exec("SELECT decode(lpad(to_hex(g), 8, '0'), 'hex') "
                       "FROM generate_series(1, 300) g"));
    while (query.next()) {
        const QByteArray bytes = query.value(0).toByteArray();
        kept << QByteArray(bytes.constData(), bytes.size()); // a copy; bytes goes with its page
    }
    query.finish();
    QCOMPARE(kept.size(), 300);
    QCOMPARE(kept.first(), QByteArray::fromHex("00000001"));
    QCOMPARE(kept.last(), QByteArray::fromHex("0000012c"));
}

void tst_BehaviourColumns::jsonbBeginsWithItsVersion()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("SELECT '{\"a\": 1}'::jsonb"));
    QVERIFY(query.next());
    const QByteArray bytes = query.value(0).toByteArray();
    QCOMPARE(bytes, QByteArray("\x01{\"a\": 1}"));
    QCOMPARE(bytes.mid(1), QByteArray("{\"a\": 1}")); // the json, and a copy
}

void tst_BehaviourColumns::jsonAsBytes()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("SELECT '{\"a\": 1}'::json::text::bytea"));
    QVERIFY(query.next());
    QCOMPARE(query.value(0).toByteArray(), QByteArray("{\"a\": 1}"));
}

QTEST_GUILESS_MAIN(tst_BehaviourColumns)
#include "tst_behaviour_columns.moc"
