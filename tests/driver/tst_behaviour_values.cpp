// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// What an application has to know of the values it binds.
#include "tests/driver/behaviour.h"
#include "tests/support/localzone.h"

#include <QtCore/QUuid>

class tst_BehaviourValues : public QObject, private Behaviour
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY2(start(), qPrintable(cluster.why())); }
    void init()
    {
        QVERIFY(openAnew(
            "CREATE TABLE t (id int, txt text, num numeric, big int8, small int2, f float4, "
            "tz timetz, bin bytea, d date, at timestamptz, "
            "must text NOT NULL DEFAULT 'x')"));
    }
    void cleanup() { closeForGood(); }

    void emptyTextIsStoredAsNull();
    void emptyTextBreaksNotNull();
    void emptyTextComparesWithNothing();
    void coalesceBringsTheEmptyTextBack();
    void emptyBytesEndTheProcess();
    void coalesceBringsTheEmptyBytesBack();
    void bytesAsHexTextMayBeEmpty();

    void numericLosesItsFraction();
    void numericLosesItsFractionInAComparison();
    void numericAsFloatKeepsIt();
    void numericAsTextKeepsEveryDigit();
    void smallintWrapsAround();
    void smallintCheckedByTheServer();
    void integerWrapsAround();
    void integerCheckedByTheServer();
    void fractionBoundToAnIntegerIsRounded();
    void realIsRefused();
    void realAsDoubleIsTaken();
    void timeWithZoneIsRefused();
    void timeWithZoneAsTextIsTaken();

    void typeThatEndsTheProcess_data();
    void typeThatEndsTheProcess();
    void enumerationEndsTheProcess();
    void nullOfSuchATypeIsFine();
    void typeThatGoesAsText_data();
    void typeThatGoesAsText();
    void flagGoesAsNumber();
    void valueThatDoesNotConvert_data();
    void valueThatDoesNotConvert();

    void timestampWithZoneIsTakenAsUtc();
    void timestampWithZoneConvertedByTheApplication();
    void batchRunsRowByRow();
    void parameterNeedsATypeFromItsContext();
    void parameterOfABareSelectIsText();

private:
    QString stored(const QString &column) const
    {
        return cluster.value("SELECT " + column + " FROM t");
    }
};

void tst_BehaviourValues::emptyTextIsStoredAsNull()
{
    QSqlQuery query(db);
    QVERIFY(query.prepare("INSERT INTO t (txt) VALUES (?)"));
    query.addBindValue("");
    QVERIFY(query.exec());
    QCOMPARE(stored("txt IS NULL"), QString("t"));

    QVERIFY(query.exec("UPDATE t SET txt = ''")); // in the text itself it stays what it is
    QCOMPARE(stored("txt IS NULL"), QString("f"));
}

void tst_BehaviourValues::emptyTextBreaksNotNull()
{
    QSqlQuery query(db);
    QVERIFY(query.prepare("INSERT INTO t (must) VALUES (?)"));
    query.addBindValue("");
    QVERIFY(!query.exec());
    QVERIFY(serversWords(query).startsWith("ERROR:  null value in column \"must\""));
}

void tst_BehaviourValues::emptyTextComparesWithNothing()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("INSERT INTO t (txt) VALUES ('')"));
    QVERIFY(query.prepare("SELECT txt FROM t WHERE txt = ?"));
    query.addBindValue("");
    QVERIFY(query.exec());
    QVERIFY(!query.next());
}

void tst_BehaviourValues::coalesceBringsTheEmptyTextBack()
{
    QSqlQuery query(db);
    QVERIFY(query.prepare("INSERT INTO t (must) VALUES (coalesce(?, ''))"));
    query.addBindValue("");
    QVERIFY(query.exec());
    QCOMPARE(stored("must = ''"), QString("t"));
}

void tst_BehaviourValues::emptyBytesEndTheProcess()
{
    QCOMPARE(fatalMessage([](QSqlQuery &query) {
                 query.prepare("INSERT INTO t (bin) VALUES (?)");
                 query.addBindValue(QByteArray(""));
                 query.exec();
             }),
             QString("DORVY: hlpEncodePSQLValue - failed to encode ptype (17) "
                     "from QVariant::Type (12)"));
}

void tst_BehaviourValues::coalesceBringsTheEmptyBytesBack()
{
    QSqlQuery query(db);
    QByteArray bytes("");
    QVERIFY(query.prepare("INSERT INTO t (bin) VALUES (coalesce(?, ''::bytea))"));
    query.addBindValue(bytes.isEmpty() ? QVariant(QVariant::ByteArray) : QVariant(bytes));
    QVERIFY(query.exec());
    QCOMPARE(stored("length(bin)"), QString("0"));
}

void tst_BehaviourValues::bytesAsHexTextMayBeEmpty()
{
    QSqlQuery query(db);
    QByteArray bytes("");
    QVERIFY(query.prepare("INSERT INTO t (bin) VALUES (?::text::bytea)"));
    query.addBindValue(QString("\\x" + bytes.toHex()));
    QVERIFY(query.exec());
    QCOMPARE(stored("length(bin)"), QString("0"));
}

void tst_BehaviourValues::numericLosesItsFraction()
{
    QSqlQuery query(db);
    QVERIFY(query.prepare("INSERT INTO t (num) VALUES (?)"));
    query.addBindValue(12.75);
    QVERIFY(query.exec());
    QCOMPARE(stored("num"), QString("12"));
}

void tst_BehaviourValues::numericLosesItsFractionInAComparison()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("INSERT INTO t (num) VALUES (12.5)"));
    QVERIFY(query.prepare("SELECT num FROM t WHERE num < ?"));
    query.addBindValue(12.75); // compares with 12
    QVERIFY(query.exec());
    QVERIFY(!query.next());
}

void tst_BehaviourValues::numericAsFloatKeepsIt()
{
    QSqlQuery query(db);
    QVERIFY(query.prepare("INSERT INTO t (num) VALUES (CAST(? AS float8)::numeric)"));
    query.addBindValue(12.75);
    QVERIFY(query.exec());
    QCOMPARE(stored("num"), QString("12.75"));
}

void tst_BehaviourValues::numericAsTextKeepsEveryDigit()
{
    QSqlQuery query(db);
    QVERIFY(query.prepare("INSERT INTO t (num) VALUES (?::text::numeric)"));
    query.addBindValue("12345678901234567890.12");
    QVERIFY(query.exec());
    QCOMPARE(stored("num"), QString("12345678901234567890.12"));
}

void tst_BehaviourValues::smallintWrapsAround()
{
    QSqlQuery query(db);
    QVERIFY(query.prepare("INSERT INTO t (small) VALUES (?)"));
    query.addBindValue(70000);
    QVERIFY(query.exec());
    QCOMPARE(stored("small"), QString("4464"));
}

void tst_BehaviourValues::smallintCheckedByTheServer()
{
    QSqlQuery query(db);
    QVERIFY(query.prepare("INSERT INTO t (small) VALUES (?::int4)"));
    query.addBindValue(70000);
    QVERIFY(!query.exec());
    QCOMPARE(serversWords(query), QString("ERROR:  smallint out of range"));
}

void tst_BehaviourValues::integerWrapsAround()
{
    QSqlQuery query(db);
    QVERIFY(query.prepare("INSERT INTO t (id) VALUES (?)"));
    query.addBindValue(Q_INT64_C(5000000000));
    QVERIFY(query.exec());
    QCOMPARE(stored("id"), QString("705032704"));
}

void tst_BehaviourValues::integerCheckedByTheServer()
{
    QSqlQuery query(db);
    QVERIFY(query.prepare("INSERT INTO t (id) VALUES (?::int8)"));
    query.addBindValue(Q_INT64_C(5000000000));
    QVERIFY(!query.exec());
    QCOMPARE(serversWords(query), QString("ERROR:  integer out of range"));
}

void tst_BehaviourValues::fractionBoundToAnIntegerIsRounded()
{
    QSqlQuery query(db);
    QVERIFY(query.prepare("INSERT INTO t (id) VALUES (?)"));
    query.addBindValue(2.7);
    QVERIFY(query.exec());
    QCOMPARE(stored("id"), QString("3"));
}

void tst_BehaviourValues::realIsRefused()
{
    QSqlQuery query(db);
    QVERIFY(query.prepare("INSERT INTO t (f) VALUES (?)"));
    query.addBindValue(1.5);
    QVERIFY(!query.exec());
    QCOMPARE(serversWords(query), QString("ERROR:  incorrect binary data format in bind "
                                          "parameter 1"));
}

void tst_BehaviourValues::realAsDoubleIsTaken()
{
    QSqlQuery query(db);
    QVERIFY(query.prepare("INSERT INTO t (f) VALUES (?::float8)"));
    query.addBindValue(1.5);
    QVERIFY(query.exec());
    QCOMPARE(stored("f"), QString("1.5"));
}

void tst_BehaviourValues::timeWithZoneIsRefused()
{
    QSqlQuery query(db);
    QVERIFY(query.prepare("INSERT INTO t (tz) VALUES (?)"));
    query.addBindValue(QTime(12, 0));
    QVERIFY(!query.exec());
    QCOMPARE(serversWords(query), QString("ERROR:  insufficient data left in message"));
}

void tst_BehaviourValues::timeWithZoneAsTextIsTaken()
{
    QSqlQuery query(db);
    QVERIFY(query.prepare("INSERT INTO t (tz) VALUES (?::text::timetz)"));
    query.addBindValue("12:00:00+03");
    QVERIFY(query.exec());
    QCOMPARE(stored("tz"), QString("12:00:00+03"));
}

void tst_BehaviourValues::typeThatEndsTheProcess_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<int>("oid");
    QTest::newRow("truth value") << "bool" << 16;
    QTest::newRow("single byte") << "\"char\"" << 18;
    QTest::newRow("object identifier") << "oid" << 26;
    QTest::newRow("json") << "json" << 114;
    QTest::newRow("address") << "inet" << 869;
    QTest::newRow("array of integers") << "int[]" << 1007;
    QTest::newRow("array of texts") << "text[]" << 1009;
    QTest::newRow("text of fixed length") << "char(3)" << 1042;
    QTest::newRow("interval") << "interval" << 1186;
    QTest::newRow("bits") << "bit(3)" << 1560;
    QTest::newRow("uuid") << "uuid" << 2950;
    QTest::newRow("jsonb") << "jsonb" << 3802;
}

void tst_BehaviourValues::typeThatEndsTheProcess()
{
    QFETCH(QString, type);
    QFETCH(int, oid);
    QCOMPARE(fatalMessage([&type](QSqlQuery &query) {
                 query.exec("CREATE TABLE o (a " + type + ")");
                 query.prepare("INSERT INTO o VALUES (?)");
                 query.addBindValue(1);
                 query.exec();
             }),
             QString("DORVY: hlpEncodePSQLValue - unknown ptype (%1)").arg(oid));
}

void tst_BehaviourValues::enumerationEndsTheProcess()
{
    cluster.run("CREATE TYPE mood AS ENUM ('fine', 'better')");
    const QString message = fatalMessage([](QSqlQuery &query) {
        query.exec("CREATE TABLE o (a mood)");
        query.prepare("INSERT INTO o VALUES (?)");
        query.addBindValue("fine");
        query.exec();
    });
    QCOMPARE(message, "DORVY: hlpEncodePSQLValue - unknown ptype (" +
                          cluster.value("SELECT 'mood'::regtype::oid") + ")");
}

void tst_BehaviourValues::nullOfSuchATypeIsFine()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("CREATE TABLE o (a bool)"));
    QVERIFY(query.prepare("INSERT INTO o VALUES (?)"));
    query.addBindValue(QVariant(QVariant::Bool));
    QVERIFY(query.exec());
    QCOMPARE(cluster.value("SELECT a IS NULL FROM o"), QString("t"));
}

void tst_BehaviourValues::typeThatGoesAsText_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("expected");
    const QUuid uuid("{8c8c0a5c-0f8e-4b51-9d4c-7a3a1d1b2c3d}");
    QTest::newRow("truth value") << "bool" << QVariant(true) << "t";
    QTest::newRow("object identifier") << "oid" << QVariant(4000000000u) << "4000000000";
    QTest::newRow("json") << "json" << QVariant("{\"a\": 1}") << "{\"a\": 1}";
    QTest::newRow("jsonb") << "jsonb" << QVariant("{\"a\": 1}") << "{\"a\": 1}";
    QTest::newRow("address") << "inet" << QVariant("10.0.0.1") << "10.0.0.1";
    QTest::newRow("array of integers") << "int[]" << QVariant("{1,2}") << "{1,2}";
    QTest::newRow("text of fixed length") << "char(3)" << QVariant("ab") << "ab ";
    QTest::newRow("interval") << "interval" << QVariant("1 day") << "1 day";
    QTest::newRow("bits") << "bit(3)" << QVariant("101") << "101";
    QTest::newRow("uuid") << "uuid" << QVariant(uuid) << "8c8c0a5c-0f8e-4b51-9d4c-7a3a1d1b2c3d";
}

void tst_BehaviourValues::typeThatGoesAsText()
{
    QFETCH(QString, type);
    QFETCH(QVariant, value);
    QFETCH(QString, expected);
    QSqlQuery query(db);
    QVERIFY(query.exec("CREATE TABLE o (a " + type + ")"));
    QVERIFY(query.prepare("INSERT INTO o VALUES (?::text::" + type + ")"));
    query.addBindValue(value);
    QVERIFY(query.exec());
    QCOMPARE(cluster.value("SELECT a FROM o"), expected);
}

void tst_BehaviourValues::flagGoesAsNumber()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("CREATE TABLE o (a bool)"));
    QVERIFY(query.prepare("INSERT INTO o VALUES (?::int::bool)"));
    query.addBindValue(true);
    QVERIFY(query.exec());
    QCOMPARE(cluster.value("SELECT a FROM o"), QString("t"));
}

void tst_BehaviourValues::valueThatDoesNotConvert_data()
{
    QTest::addColumn<QString>("column");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("numbers");
    QTest::newRow("words for a number") << "big" << QVariant("many") << "20|10";
    QTest::newRow("comma for a point") << "num" << QVariant("12,75") << "1700|10";
    QTest::newRow("date not in ISO form") << "d" << QVariant("31.12.2020") << "1082|10";
    QTest::newRow("no such day") << "d" << QVariant(QString("2021-02-29")) << "1082|10";
}

void tst_BehaviourValues::valueThatDoesNotConvert()
{
    QFETCH(QString, column);
    QFETCH(QVariant, value);
    QFETCH(QString, numbers);
    const QString message = fatalMessage([&column, &value](QSqlQuery &query) {
        query.prepare("INSERT INTO t (" + column + ") VALUES (?)");
        query.addBindValue(value);
        query.exec();
    });
    QCOMPARE(message, QString("DORVY: hlpEncodePSQLValue - failed to encode ptype (%1) "
                              "from QVariant::Type (%2)")
                          .arg(numbers.section('|', 0, 0), numbers.section('|', 1, 1)));
}

void tst_BehaviourValues::timestampWithZoneIsTakenAsUtc()
{
    const LocalZone moscow(Zone);
    QSqlQuery query(db);
    QVERIFY(query.prepare("INSERT INTO t (at) VALUES (?)"));
    query.addBindValue(QDateTime(QDate(2020, 1, 1), QTime(12, 0))); // noon in Moscow
    QVERIFY(query.exec());
    QCOMPARE(stored("at AT TIME ZONE 'UTC'"), QString("2020-01-01 12:00:00")); // three hours late
}

void tst_BehaviourValues::timestampWithZoneConvertedByTheApplication()
{
    const LocalZone moscow(Zone);
    QSqlQuery query(db);
    const QDateTime noon(QDate(2020, 1, 1), QTime(12, 0));
    QVERIFY(query.prepare("INSERT INTO t (at) VALUES (?)"));
    query.addBindValue(noon.toUTC());
    QVERIFY(query.exec());
    QCOMPARE(stored("at AT TIME ZONE 'UTC'"), QString("2020-01-01 09:00:00"));

    QVERIFY(query.exec("SELECT at FROM t"));
    QVERIFY(query.next());
    QDateTime read = query.value(0).toDateTime();
    QCOMPARE(read, QDateTime(QDate(2020, 1, 1), QTime(9, 0))); // UTC, said to be local
    read.setTimeSpec(Qt::UTC);
    QCOMPARE(read, noon);
}

void tst_BehaviourValues::batchRunsRowByRow()
{
    QSqlQuery query(db);
    QVERIFY(query.prepare("INSERT INTO t (id, txt) VALUES (?, ?)"));
    query.addBindValue(QVariantList{1, 2, 3});
    query.addBindValue(QVariantList{"one", "two", "three"});
    QVERIFY(query.execBatch());
    QCOMPARE(cluster.run("SELECT id, txt FROM t"), (QStringList{"1|one", "2|two", "3|three"}));
}

void tst_BehaviourValues::parameterNeedsATypeFromItsContext()
{
    QSqlQuery query(db);
    QVERIFY(!query.prepare("SELECT 1 WHERE ? IS NULL"));
    QCOMPARE(serversWords(query), QString("ERROR:  could not determine data type of parameter $1"));
    QVERIFY(query.prepare("SELECT 1 WHERE ?::int IS NULL"));
    query.addBindValue(QVariant(QVariant::Int));
    QVERIFY(query.exec());
    QVERIFY(query.next());
}

void tst_BehaviourValues::parameterOfABareSelectIsText()
{
    QSqlQuery query(db);
    QVERIFY(query.prepare("SELECT ?"));
    query.addBindValue(5);
    QVERIFY(query.exec());
    QVERIFY(query.next());
    QCOMPARE(query.value(0), QVariant("5"));
}

QTEST_GUILESS_MAIN(tst_BehaviourValues)
#include "tst_behaviour_values.moc"
