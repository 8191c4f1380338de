// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// What an application has to know of its server connections: how many, spares, lost ones.
#include "tests/driver/behaviour.h"

#include <csignal>
#include <thread>

class tst_BehaviourConnections : public QObject, private Behaviour
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY2(start(), qPrintable(cluster.why()));
        cluster.run("CREATE ROLE single LOGIN CONNECTION LIMIT 1");
    }
    void init() { QVERIFY(openAnew()); }
    void cleanup()
    {
        closeForGood();
        QTRY_COMPARE(connections(), QString("0")); // borrowed() is to find the next test's
    }

    void readsTakeASecondConnection();
    void everyReadSharesTheSecondConnection();
    void readWithoutASecondConnectionFails();
    void databasesShareTheirSpares();

    void connectionThatDiedWhileReadIsReplaced();
    void spareThatIsKnownToBeDeadIsReplaced();
    void spareThatIsFoundDeadBlocksReadsUntilReopened();
    void afterARestartOfTheServerOpenIsEnough();
    void queryFromBeforeTheReopenHoldsTheNewConnection();
    void lostConnectionInATransaction();

private:
    // Opens the database anew so that borrowed() finds the connection of its reads.
    bool openNamed()
    {
        db.close();
        db.setConnectOptions("application_name=borrowed");
        return db.open() && QSqlQuery(db).exec("SET application_name = 'own'");
    }
    QString connections() const
    {
        return cluster.value("SELECT count(*) FROM pg_stat_activity "
                             "WHERE application_name IN ('own', 'borrowed')");
    }
    // The process that serves the reads.
    QString borrowed() const
    {
        return cluster.value(
            "SELECT pid FROM pg_stat_activity WHERE application_name = 'borrowed'");
    }
    // Stops the process now, and ends it after the own connection has done its part of a read.
    std::thread terminateOnceUsed(const QString &process) const
    {
        QSqlQuery(db).exec("SET lock_timeout = 0"); // so that its last text is another
        kill(process.toInt(), SIGSTOP);
        return std::thread([this, process] {
            const QString done = "SELECT count(*) FROM pg_stat_activity WHERE application_name = "
                                 "'own' AND query = 'SELECT current_schema()' AND state = 'idle'";
            for (int i = 0; i < 2000 && cluster.value(done) != "1"; ++i) {
                QTest::qSleep(10);
            }
            QTest::qSleep(1000);
            cluster.run("SELECT pg_terminate_backend(" + process + ")");
            kill(process.toInt(), SIGCONT);
        });
    }
};

void tst_BehaviourConnections::readsTakeASecondConnection()
{
    QVERIFY(openNamed());
    QCOMPARE(connections(), QString("1"));
    QSqlQuery query(db);
    QVERIFY(query.exec("SELECT 1"));
    QCOMPARE(connections(), QString("2"));
    query.clear();
    QCOMPARE(connections(), QString("2")); // a spare, for the next read
    db.close();
    QTRY_COMPARE(connections(), QString("0"));
}

void tst_BehaviourConnections::everyReadSharesTheSecondConnection()
{
    QVERIFY(openNamed());
    QSqlQuery one(db);
    QSqlQuery two(db);
    QVERIFY(one.exec("SELECT pg_backend_pid()"));
    QVERIFY(two.exec("SELECT pg_backend_pid()"));
    QVERIFY(one.next());
    QVERIFY(two.next());
    QCOMPARE(one.value(0).toInt(), two.value(0).toInt());
    QCOMPARE(connections(), QString("2"));
}

void tst_BehaviourConnections::readWithoutASecondConnectionFails()
{
    db.close();
    db.setUserName("single"); // CREATE ROLE single LOGIN CONNECTION LIMIT 1
    QVERIFY(db.open());
    QSqlQuery query(db);
    QVERIFY(query.exec("SET lock_timeout = '1s'"));
    QVERIFY(!query.exec("SELECT 1"));
    QCOMPARE(query.lastError().type(), QSqlError::ConnectionError);
    QVERIFY(query.lastError().driverText().contains("too many connections for role \"single\""));
}

void tst_BehaviourConnections::databasesShareTheirSpares()
{
    {
        QSqlDatabase other = another("other"); // with the same arguments
        QVERIFY(other.open());
        QSqlQuery query(db);
        QVERIFY(query.exec("SELECT pg_try_advisory_lock(1)"));
        query.clear();
        QSqlQuery otherQuery(other);
        QVERIFY(otherQuery.exec("SELECT pg_try_advisory_lock(1)"));
        QVERIFY(otherQuery.next());
        QCOMPARE(otherQuery.value(0).toBool(), true); // the lock is its own by now
    }
    QSqlDatabase::removeDatabase("other");
}

void tst_BehaviourConnections::connectionThatDiedWhileReadIsReplaced()
{
    QVERIFY(openNamed());
    QSqlQuery query(db);
    QVERIFY(query.exec("SELECT generate_series(1, 300)"));
    cluster.terminate(borrowed().toInt());
    QVERIFY(query.last());
    QVERIFY(!query.next());
    QVERIFY(query.lastError().isValid());
    query.clear();
    QVERIFY(query.exec("SELECT 1"));
}

void tst_BehaviourConnections::spareThatIsKnownToBeDeadIsReplaced()
{
    QVERIFY(openNamed());
    QSqlQuery query(db);
    QVERIFY(query.exec("SELECT 1"));
    query.clear(); // its connection is a spare now
    cluster.terminate(borrowed().toInt());
    QVERIFY(query.exec("SELECT 1"));
}

void tst_BehaviourConnections::spareThatIsFoundDeadBlocksReadsUntilReopened()
{
    QVERIFY(openNamed());
    QSqlQuery query(db);
    QVERIFY(query.exec("SELECT 1"));
    query.clear();
    // A connection that a firewall has dropped looks like this: alive until it is used.
    const QString spare = borrowed();
    std::thread end = terminateOnceUsed(spare);
    const bool read = query.exec("SELECT 1");
    end.join();
    QVERIFY(!read);
    for (int attempt = 1; attempt <= 3; ++attempt) {
        query.clear();
        QVERIFY(!query.exec("SELECT 1"));
        COMPARE_TEXTS(query.lastError(), "Невозможно подготовить запрос",
                      "Отсутствует соединение с СУБД");
    }
    db.close();
    QVERIFY(db.open());
    QVERIFY(query.exec("SELECT 1"));
}

void tst_BehaviourConnections::afterARestartOfTheServerOpenIsEnough()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("SELECT 1"));
    query.clear();
    cluster.stop();
    QVERIFY(cluster.restart());
    QVERIFY(db.isOpen()); // nobody has asked the server yet
    QVERIFY(!query.exec("CREATE TABLE t (a int)"));
    QVERIFY(!db.isOpen());
    QVERIFY(db.open());
    QVERIFY(query.exec("CREATE TABLE t (a int)"));
    QVERIFY(query.exec("SELECT a FROM t"));
}

void tst_BehaviourConnections::queryFromBeforeTheReopenHoldsTheNewConnection()
{
    cluster.run("CREATE TABLE t (a int)");
    QSqlQuery old(db);
    QSqlQuery query(db);
    QVERIFY(old.exec("SELECT 1"));
    db.close();
    QVERIFY(db.open());
    QVERIFY(query.exec("SELECT a FROM t"));
    query.finish();
    QVERIFY(query.exec("SET lock_timeout = '100ms'"));
    QVERIFY(!query.exec("DROP TABLE t"));
    old.clear();
    QVERIFY(query.exec("DROP TABLE t"));
}

void tst_BehaviourConnections::lostConnectionInATransaction()
{
    QVERIFY(openNamed());
    QSqlQuery query(db);
    QVERIFY(query.exec("CREATE TABLE t (a int)"));
    QVERIFY(db.transaction());
    QVERIFY(query.exec("INSERT INTO t VALUES (1)"));
    cluster.terminate(
        cluster.value("SELECT pid FROM pg_stat_activity WHERE application_name = 'own'").toInt());
    QVERIFY(!query.exec("INSERT INTO t VALUES (2)"));
    QVERIFY(!db.commit());
    COMPARE_TEXTS(db.lastError(), "Невозможно завершить транзакцию",
                  "Отсутствует соединение с СУБД");
    QVERIFY(!db.isOpen());
    QCOMPARE(cluster.value("SELECT count(*) FROM t"), QString("0"));
}

QTEST_GUILESS_MAIN(tst_BehaviourConnections)
#include "tst_behaviour_connections.moc"
