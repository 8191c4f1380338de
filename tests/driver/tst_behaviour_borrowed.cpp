// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// What an application has to know of the second connection, on which everything with columns runs.
#include "tests/driver/behaviour.h"

class tst_BehaviourBorrowed : public QObject, private Behaviour
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init() { QVERIFY(openAnew()); }
    void cleanup() { closeForGood(); }

    void insertReturningIsRolledBack();
    void writingFunctionInASelectIsRolledBack();
    void writingFunctionInADoBlockStays();
    void writingFunctionInAnInsertStays();
    void procedureWithAnOutputIsRolledBack();
    void procedureWithoutOutputStays();
    void readsDoNotSeeUncommittedChanges();
    void readsSeeCommittedChanges();
    void nowStandsStillWhileAQueryLives();

    void lastInsertIdIsTheInsertsKey();
    void keyOfInsertCannotBeAskedWithCurrval();
    void keyTakenBeforeTheInsert();
    void largeKeyIsZeroToLastInsertId();

    void settingDoesNotReachReads();
    void settingOfAReadIsUndone();
    void timeZoneDoesNotReachReads();
    void roleDoesNotReachReads();
    void settingInTheOptionsReachesReads();
    void roleInTheOptionsReachesReads();
    void roleInTheOptionsCanBeLaidDown();
    void settingOfTheRoleReachesReads();

    void searchPathIsItsFirstSchemaAlone();
    void searchPathIsReadAtBorrowing();

    void transactionLockIsHeldAsLongAsAQuery();
    void sessionLockStaysWithTheSpare();
    void commandCannotReleaseALockOfASelect();

private:
    QString advisoryLocks() const
    {
        return cluster.value("SELECT count(*) FROM pg_locks WHERE locktype = 'advisory'");
    }
};

void tst_BehaviourBorrowed::initTestCase()
{
    QVERIFY2(start(), qPrintable(cluster.why()));
    cluster.run("CREATE ROLE clerk");
    cluster.run("CREATE ROLE teller SUPERUSER LOGIN");
    cluster.run("ALTER ROLE teller SET statement_timeout = '7s'");
}

void tst_BehaviourBorrowed::insertReturningIsRolledBack()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("CREATE TABLE t (a serial, b text)"));
    QVERIFY(query.exec("INSERT INTO t (b) VALUES ('lost') RETURNING a"));
    QVERIFY(query.next());
    QCOMPARE(query.value(0).toInt(), 1);
    query.finish();
    QCOMPARE(cluster.value("SELECT count(*) FROM t"), QString("0"));
}

void tst_BehaviourBorrowed::writingFunctionInASelectIsRolledBack()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("CREATE TABLE t (a int)"));
    QVERIFY(query.exec("CREATE FUNCTION add(int) RETURNS int LANGUAGE sql "
                       "AS 'INSERT INTO t VALUES ($1) RETURNING a'"));
    QVERIFY(query.exec("SELECT add(5)"));
    QVERIFY(query.next());
    QCOMPARE(query.value(0).toInt(), 5);
    query.finish();
    QCOMPARE(cluster.value("SELECT count(*) FROM t"), QString("0"));
}

void tst_BehaviourBorrowed::writingFunctionInADoBlockStays()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("CREATE TABLE t (a int)"));
    QVERIFY(query.exec("CREATE FUNCTION add(int) RETURNS int LANGUAGE sql "
                       "AS 'INSERT INTO t VALUES ($1) RETURNING a'"));
    QVERIFY(query.exec("DO 'BEGIN PERFORM add(5); END'"));
    QCOMPARE(cluster.value("SELECT count(*) FROM t"), QString("1"));
}

void tst_BehaviourBorrowed::writingFunctionInAnInsertStays()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("CREATE TABLE t (a int)"));
    QVERIFY(query.exec("CREATE TABLE answers (a int)"));
    QVERIFY(query.exec("CREATE FUNCTION add(int) RETURNS int LANGUAGE sql "
                       "AS 'INSERT INTO t VALUES ($1) RETURNING a'"));
    QVERIFY(query.prepare("INSERT INTO answers SELECT add(?)")); // a DO block takes no values
    query.addBindValue(5);
    QVERIFY(query.exec());
    QCOMPARE(cluster.value("SELECT a FROM t"), QString("5"));
}

void tst_BehaviourBorrowed::procedureWithAnOutputIsRolledBack()
{
    if (cluster.major() < 11) {
        return; // procedures came with PostgreSQL 11
    }
    QSqlQuery query(db);
    QVERIFY(query.exec("CREATE TABLE t (a int)"));
    QVERIFY(query.exec("CREATE PROCEDURE add(INOUT a int) LANGUAGE sql "
                       "AS 'INSERT INTO t VALUES ($1) RETURNING a'"));
    QVERIFY(query.exec("CALL add(5)"));
    QVERIFY(query.next());
    QCOMPARE(query.value(0).toInt(), 5);
    query.finish();
    QCOMPARE(cluster.value("SELECT count(*) FROM t"), QString("0"));
}

void tst_BehaviourBorrowed::procedureWithoutOutputStays()
{
    if (cluster.major() < 11) {
        return; // procedures came with PostgreSQL 11
    }
    QSqlQuery query(db);
    QVERIFY(query.exec("CREATE TABLE t (a int)"));
    QVERIFY(query.exec("CREATE PROCEDURE add(int) LANGUAGE sql AS 'INSERT INTO t VALUES ($1)'"));
    QVERIFY(query.prepare("CALL add(?)"));
    query.addBindValue(5);
    QVERIFY(query.exec());
    QCOMPARE(cluster.value("SELECT a FROM t"), QString("5"));
}

void tst_BehaviourBorrowed::readsDoNotSeeUncommittedChanges()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("CREATE TABLE t (a int)"));
    QVERIFY(db.transaction());
    QVERIFY(query.exec("INSERT INTO t VALUES (1)"));
    QVERIFY(query.exec("SELECT count(*) FROM t"));
    QVERIFY(query.next());
    QCOMPARE(query.value(0).toInt(), 0);
    QVERIFY(db.commit());
}

void tst_BehaviourBorrowed::readsSeeCommittedChanges()
{
    QSqlQuery query(db);
    QSqlQuery longer(db);
    QVERIFY(query.exec("CREATE TABLE t (a int)"));
    QVERIFY(longer.exec("SELECT count(*) FROM t"));
    QVERIFY(db.transaction());
    QVERIFY(query.exec("INSERT INTO t VALUES (1)"));
    QVERIFY(db.commit());
    QVERIFY(query.exec("SELECT count(*) FROM t")); // beside a query that is older than the change
    QVERIFY(query.next());
    QCOMPARE(query.value(0).toInt(), 1);
}

void tst_BehaviourBorrowed::nowStandsStillWhileAQueryLives()
{
    QSqlQuery first(db);
    QSqlQuery second(db);
    QVERIFY(first.exec("SELECT now(), clock_timestamp()"));
    QVERIFY(first.next());
    QTest::qSleep(20);
    QVERIFY(second.exec("SELECT now(), clock_timestamp()"));
    QVERIFY(second.next());
    QCOMPARE(second.value(0).toDateTime(), first.value(0).toDateTime());
    QVERIFY(second.value(1).toDateTime() > first.value(1).toDateTime());
}

void tst_BehaviourBorrowed::lastInsertIdIsTheInsertsKey()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("CREATE TABLE t (a serial, b text)"));
    QVERIFY(query.exec("INSERT INTO t (b) VALUES ('kept')"));
    const QVariant key = query.lastInsertId();
    QCOMPARE(key, QVariant(1));
    QCOMPARE(cluster.value("SELECT b FROM t WHERE a = " + key.toString()), QString("kept"));
}

void tst_BehaviourBorrowed::keyOfInsertCannotBeAskedWithCurrval()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("CREATE TABLE t (a serial, b text)"));
    QVERIFY(query.exec("INSERT INTO t (b) VALUES ('kept')"));
    QVERIFY(!query.exec("SELECT currval('t_a_seq')"));
    QCOMPARE(serversWords(query), QString("ERROR:  currval of sequence \"t_a_seq\" is not yet "
                                          "defined in this session"));
}

void tst_BehaviourBorrowed::keyTakenBeforeTheInsert()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("CREATE TABLE t (a bigserial, b text)"));
    QVERIFY(query.exec("SELECT nextval('t_a_seq')")); // a sequence is not rolled back
    QVERIFY(query.next());
    const qlonglong key = query.value(0).toLongLong();
    QVERIFY(query.prepare("INSERT INTO t (a, b) VALUES (?, ?)"));
    query.addBindValue(key);
    query.addBindValue("kept");
    QVERIFY(query.exec());
    QVERIFY(query.exec("INSERT INTO t (b) VALUES ('next')"));
    QCOMPARE(cluster.run("SELECT a, b FROM t"), (QStringList{"1|kept", "2|next"}));
}

void tst_BehaviourBorrowed::largeKeyIsZeroToLastInsertId()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("CREATE TABLE t (a bigserial, b text)"));
    QVERIFY(query.exec("ALTER SEQUENCE t_a_seq RESTART 2147483648"));
    QVERIFY(query.exec("INSERT INTO t (b) VALUES ('kept')"));
    QCOMPARE(query.lastInsertId(), QVariant(0));
}

void tst_BehaviourBorrowed::settingDoesNotReachReads()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("SET statement_timeout = '7s'"));
    QVERIFY(query.exec("SHOW statement_timeout"));
    QVERIFY(query.next());
    QCOMPARE(query.value(0).toString(), QString("0"));
}

void tst_BehaviourBorrowed::settingOfAReadIsUndone()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("SELECT set_config('statement_timeout', '7s', false)"));
    QVERIFY(query.exec("SHOW statement_timeout")); // the query before lived until here
    QVERIFY(query.next());
    QCOMPARE(query.value(0).toString(), QString("7s"));
    query.clear();
    QVERIFY(query.exec("SHOW statement_timeout"));
    QVERIFY(query.next());
    QCOMPARE(query.value(0).toString(), QString("0"));
}

void tst_BehaviourBorrowed::timeZoneDoesNotReachReads()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("SET TIME ZONE 3"));
    QVERIFY(query.exec("SELECT ('2020-01-01 12:00:00+00'::timestamptz)::text"));
    QVERIFY(query.next());
    QCOMPARE(query.value(0).toString(), QString("2020-01-01 12:00:00+00"));
}

void tst_BehaviourBorrowed::roleDoesNotReachReads()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("CREATE TABLE secret AS SELECT 'salary'::text AS a"));
    QVERIFY(query.exec("SET ROLE clerk"));
    QVERIFY(!query.exec("DELETE FROM secret"));
    QVERIFY(serversWords(query).startsWith("ERROR:  permission denied for "));

    QVERIFY(query.exec("SELECT a, current_user FROM secret"));
    QVERIFY(query.next());
    QCOMPARE(query.value(0).toString(), QString("salary"));
    QCOMPARE(query.value(1).toString(), QString("dorvy")); // the user that logged in
}

void tst_BehaviourBorrowed::settingInTheOptionsReachesReads()
{
    db.close();
    db.setConnectOptions("options='-c statement_timeout=7s -c TimeZone=Etc/GMT-3'");
    QVERIFY(db.open());

    QSqlQuery query(db);
    QVERIFY(query.exec("SHOW statement_timeout"));
    QVERIFY(query.next());
    QCOMPARE(query.value(0).toString(), QString("7s"));
    QVERIFY(query.exec("SELECT ('2020-01-01 12:00:00+00'::timestamptz)::text"));
    QVERIFY(query.next());
    QCOMPARE(query.value(0).toString(), QString("2020-01-01 15:00:00+03"));
    QVERIFY(query.exec("CREATE TABLE t AS SELECT current_setting('statement_timeout') AS a"));
    QCOMPARE(cluster.value("SELECT a FROM t"), QString("7s")); // commands have it as well
}

void tst_BehaviourBorrowed::roleInTheOptionsReachesReads()
{
    cluster.run("CREATE TABLE secret AS SELECT 'salary'::text AS a");
    db.close();
    db.setConnectOptions("options='-c role=clerk'");
    QVERIFY(db.open());

    QSqlQuery query(db);
    QVERIFY(!query.exec("SELECT a FROM secret"));
    QVERIFY(serversWords(query).startsWith("ERROR:  permission denied for "));
}

void tst_BehaviourBorrowed::roleInTheOptionsCanBeLaidDown()
{
    cluster.run("CREATE TABLE secret AS SELECT 'salary'::text AS a");
    db.close();
    db.setConnectOptions("options='-c role=clerk'");
    QVERIFY(db.open());
    QSqlQuery laidDown(db);
    QSqlQuery query(db);
    QVERIFY(laidDown.exec("SELECT set_config('role', 'none', false)"));
    QVERIFY(query.exec("SELECT a FROM secret"));
}

void tst_BehaviourBorrowed::settingOfTheRoleReachesReads()
{
    // ALTER ROLE teller SET statement_timeout = '7s'
    db.close();
    db.setUserName("teller");
    QVERIFY(db.open());

    QSqlQuery query(db);
    QVERIFY(query.exec("SHOW statement_timeout"));
    QVERIFY(query.next());
    QCOMPARE(query.value(0).toString(), QString("7s"));
}

void tst_BehaviourBorrowed::searchPathIsItsFirstSchemaAlone()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("CREATE SCHEMA one"));
    QVERIFY(query.exec("CREATE SCHEMA two"));
    QVERIFY(query.exec("CREATE TABLE one.a AS SELECT 1 AS v"));
    QVERIFY(query.exec("CREATE TABLE two.b AS SELECT 2 AS v"));
    QVERIFY(query.exec("SET search_path TO one, two"));
    {
        QSqlQuery read(db);
        QVERIFY(read.exec("SELECT v FROM a"));
        QVERIFY(!read.exec("SELECT v FROM b"));
        QCOMPARE(serversWords(read), QString("ERROR:  relation \"b\" does not exist"));
    }
    QVERIFY(query.exec("SELECT v FROM two.b"));
}

void tst_BehaviourBorrowed::searchPathIsReadAtBorrowing()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("CREATE SCHEMA one"));
    QVERIFY(query.exec("CREATE TABLE one.a AS SELECT 1 AS v"));
    {
        QSqlQuery living(db);
        QVERIFY(living.exec("SELECT 1"));
        QVERIFY(query.exec("SET search_path TO one"));
        QVERIFY(!query.exec("SELECT v FROM a"));
    }
    QVERIFY(query.exec("SELECT v FROM a"));
}

void tst_BehaviourBorrowed::transactionLockIsHeldAsLongAsAQuery()
{
    QSqlQuery query(db);
    QSqlQuery other(db);
    QVERIFY(query.exec("SELECT pg_try_advisory_xact_lock(1)"));
    QVERIFY(other.exec("SELECT 1"));
    query.finish();
    QCOMPARE(advisoryLocks(), QString("1")); // the other query still keeps the connection
    other.finish();
    QCOMPARE(advisoryLocks(), QString("0"));
}

void tst_BehaviourBorrowed::sessionLockStaysWithTheSpare()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("SELECT pg_try_advisory_lock(1)"));
    query.finish();
    QCOMPARE(advisoryLocks(), QString("1"));
    db.close();
    QTRY_COMPARE(advisoryLocks(), QString("0"));
}

void tst_BehaviourBorrowed::commandCannotReleaseALockOfASelect()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("DO 'BEGIN PERFORM pg_advisory_lock(1); END'")); // on the own connection
    QVERIFY(query.exec("SELECT pg_try_advisory_lock(1)"));
    QVERIFY(query.next());
    QCOMPARE(query.value(0).toBool(), false);
    query.finish();
    QVERIFY(query.exec("DO 'BEGIN PERFORM pg_advisory_unlock(1); END'"));
    QCOMPARE(advisoryLocks(), QString("0"));
}

QTEST_GUILESS_MAIN(tst_BehaviourBorrowed)
#include "tst_behaviour_borrowed.moc"
