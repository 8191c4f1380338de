// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// What an application has to know of its reads: pages, positions, counts, locks and failures.
#include "tests/driver/behaviour.h"

#include <QtSql/QSqlQueryModel>

namespace {

constexpr char LockTimeout[] = "ERROR:  canceling statement due to lock timeout\n";

} // namespace

class tst_BehaviourReads : public QObject, private Behaviour
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY2(start(), qPrintable(cluster.why())); }
    void init() { QVERIFY(openAnew()); }
    void cleanup() { closeForGood(); }

    void positionsAndSizeAreThePages();
    void lastIsThePagesLast();
    void seekReachesThePageAlone();
    void failedSeekStandsAfterTheLastRow();
    void seekOneRowOnIsNext();
    void previousStopsAtThePagesFirst();
    void queryModelShowsOnePage();
    void executedAgainKeepsItsPosition();
    void executedAgainAfterTheEndGivesNoRows();
    void seekBeforeTheFirstStartsAgain();
    void rowsAffectedBySelectAreThePagesWhenItIsTheLast();
    void endAndFailureAreToldApartByTheError();

    void tableBeingReadCannotBeDropped();
    void exhaustedQueryHoldsItsLocks();
    void preparedQueryHoldsItsLocks();
    void finishedQueryIsNotPreparedAnyMore();
    void rowsLockedByOnesOwnReadCannotBeUpdated();
    void rowsLockedInADoBlockCanBeUpdated();

    void failedReadBlocksTheOthers();
    void failedReadBlocksItsOwnQueryOnce();
    void clearEndsAFailedRead();
    void finishDoesNotEndAFailedRead();
    void rejectedTextBlocksNothing();
    void temporaryTableBlocksReadsUntilReopened();
    void temporaryTableBesideALivingReadBlocksUntilItGoes();
    void uncommittedTableBlocksReadsUntilReopened();
};

void tst_BehaviourReads::positionsAndSizeAreThePages()
{
    QList<int> restarts;
    QList<int> sizes;
    QSqlQuery query(db);
    QVERIFY(query.exec("SELECT generate_series(1, 300)"));
    while (query.next()) {
        if (query.at() == 0) {
            restarts << query.value(0).toInt();
            sizes << query.size();
        }
    }
    QCOMPARE(restarts, (QList<int>{1, 129, 257}));
    QCOMPARE(sizes, (QList<int>{128, 128, 44}));
    QCOMPARE(query.size(), 0);
}

void tst_BehaviourReads::lastIsThePagesLast()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("SELECT generate_series(1, 300)"));
    QVERIFY(query.last());
    QCOMPARE(query.value(0).toInt(), 128);
    QVERIFY(query.next()); // goes on with the next page
    QCOMPARE(query.value(0).toInt(), 129);
    QCOMPARE(query.at(), 0);
}

void tst_BehaviourReads::seekReachesThePageAlone()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("SELECT generate_series(1, 300)"));
    QVERIFY(query.seek(127));
    QCOMPARE(query.value(0).toInt(), 128);
    QVERIFY(!query.seek(200));
}

void tst_BehaviourReads::failedSeekStandsAfterTheLastRow()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("SELECT generate_series(1, 300)"));
    QVERIFY(!query.seek(128)); // one row beyond the page
    QCOMPARE(query.at(), int(QSql::AfterLastRow));
    QVERIFY(!query.next());
    QVERIFY(query.seek(0));
    QCOMPARE(query.value(0).toInt(), 1);
}

void tst_BehaviourReads::seekOneRowOnIsNext()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("SELECT generate_series(1, 300)"));
    QVERIFY(query.seek(127));
    QVERIFY(query.seek(128)); // Qt makes a step of it, and that reads the next page
    QCOMPARE(query.value(0).toInt(), 129);
    QCOMPARE(query.at(), 0);
}

void tst_BehaviourReads::previousStopsAtThePagesFirst()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("SELECT generate_series(1, 300)"));
    QVERIFY(query.last());
    QVERIFY(query.next());
    QCOMPARE(query.value(0).toInt(), 129);
    QVERIFY(!query.previous());
}

void tst_BehaviourReads::queryModelShowsOnePage()
{
    QSqlQueryModel model;
    model.setQuery("SELECT generate_series(1, 300)", db);
    QCOMPARE(model.rowCount(), 128);
    QVERIFY(!model.canFetchMore());
}

void tst_BehaviourReads::executedAgainKeepsItsPosition()
{
    QSqlQuery query(db);
    QVERIFY(query.prepare("SELECT generate_series(1, 3)"));
    QVERIFY(query.exec());
    QVERIFY(query.next());
    QCOMPARE(query.value(0).toInt(), 1);
    QVERIFY(query.exec());
    QCOMPARE(query.at(), 0);
    QVERIFY(query.next()); // the first row is passed over
    QCOMPARE(query.value(0).toInt(), 2);
}

void tst_BehaviourReads::executedAgainAfterTheEndGivesNoRows()
{
    QSqlQuery query(db);
    QVERIFY(query.prepare("SELECT generate_series(1, 3)"));
    QVERIFY(query.exec());
    while (query.next()) {}
    QVERIFY(query.exec());
    QCOMPARE(query.at(), int(QSql::AfterLastRow));
    QVERIFY(!query.next());
}

void tst_BehaviourReads::seekBeforeTheFirstStartsAgain()
{
    QSqlQuery query(db);
    QVERIFY(query.prepare("SELECT generate_series(1, ?)"));
    for (int count = 1; count <= 3; ++count) {
        query.bindValue(0, count);
        QVERIFY(query.exec());
        query.seek(-1); // before the first row; its answer is always false
        int rows = 0;
        while (query.next()) {
            ++rows;
        }
        QCOMPARE(rows, count);
    }
}

void tst_BehaviourReads::rowsAffectedBySelectAreThePagesWhenItIsTheLast()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("SELECT generate_series(1, 5)"));
    QCOMPARE(query.numRowsAffected(), 5);
    QVERIFY(query.exec("SELECT generate_series(1, 300)"));
    QCOMPARE(query.numRowsAffected(), 0);
}

void tst_BehaviourReads::endAndFailureAreToldApartByTheError()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("SELECT 1 / (200 - g) FROM generate_series(1, 300) g"));
    int rows = 0;
    while (query.next()) {
        ++rows;
    }
    QCOMPARE(rows, 128);
    QVERIFY(query.lastError().isValid());
    COMPARE_TEXTS(query.lastError(), "ERROR:  division by zero\n", ExecuteFailed);
}

void tst_BehaviourReads::tableBeingReadCannotBeDropped()
{
    QSqlQuery command(db);
    QVERIFY(command.exec("CREATE TABLE t AS SELECT generate_series(1, 300) AS a"));
    QVERIFY(command.exec("SET lock_timeout = '100ms'")); // without it the next DROP waits for ever

    QSqlQuery query(db);
    QVERIFY(query.exec("SELECT a FROM t"));
    QVERIFY(query.next());
    QVERIFY(!command.exec("DROP TABLE t"));
    COMPARE_TEXTS(command.lastError(), LockTimeout, ExecuteFailed);
    QVERIFY(!command.exec("ALTER TABLE t ADD b int"));

    query.finish();
    QVERIFY(command.exec("DROP TABLE t"));
}

void tst_BehaviourReads::exhaustedQueryHoldsItsLocks()
{
    QSqlQuery command(db);
    QVERIFY(command.exec("CREATE TABLE t (a int)"));
    QVERIFY(command.exec("SET lock_timeout = '100ms'"));

    QSqlQuery query(db);
    QVERIFY(query.exec("SELECT a FROM t"));
    while (query.next()) {}
    QVERIFY(!command.exec("DROP TABLE t"));
    query.finish();
    QVERIFY(command.exec("DROP TABLE t"));
}

void tst_BehaviourReads::preparedQueryHoldsItsLocks()
{
    QSqlQuery command(db);
    QVERIFY(command.exec("CREATE TABLE t (a int)"));
    QVERIFY(command.exec("SET lock_timeout = '100ms'"));

    QSqlQuery query(db);
    QVERIFY(query.prepare("SELECT a FROM t")); // and not executed
    QVERIFY(!command.exec("DROP TABLE t"));
    query.finish(); // does nothing for a query that is not active
    QVERIFY(!command.exec("DROP TABLE t"));
    query.clear();
    QVERIFY(command.exec("DROP TABLE t"));
}

void tst_BehaviourReads::finishedQueryIsNotPreparedAnyMore()
{
    QSqlQuery query(db);
    QVERIFY(query.prepare("SELECT 1"));
    QVERIFY(query.exec());
    query.finish();
    QVERIFY(!query.exec());
    COMPARE_TEXTS(query.lastError(), "Невозможно выполнить запрос", "Запрос не подготовлен");
    QVERIFY(query.prepare("SELECT 1"));
    QVERIFY(query.exec());
}

void tst_BehaviourReads::rowsLockedByOnesOwnReadCannotBeUpdated()
{
    QSqlQuery command(db);
    QVERIFY(command.exec("CREATE TABLE t AS SELECT 1 AS a"));
    QVERIFY(command.exec("SET lock_timeout = '100ms'"));

    QSqlQuery query(db);
    QVERIFY(query.exec("SELECT a FROM t FOR UPDATE"));
    QVERIFY(!command.exec("UPDATE t SET a = 2"));
    QCOMPARE(serversWords(command), QString("ERROR:  canceling statement due to lock timeout"));
    query.finish();
    QVERIFY(command.exec("UPDATE t SET a = 2"));
}

void tst_BehaviourReads::rowsLockedInADoBlockCanBeUpdated()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("CREATE TABLE t AS SELECT 1 AS a"));
    QVERIFY(db.transaction());
    QVERIFY(query.exec("DO 'BEGIN PERFORM a FROM t FOR UPDATE; END'"));
    QCOMPARE(cluster.run("SELECT a FROM t FOR UPDATE SKIP LOCKED"), QStringList());
    QVERIFY(query.exec("UPDATE t SET a = 2"));
    QVERIFY(db.commit());
    QCOMPARE(cluster.run("SELECT a FROM t FOR UPDATE SKIP LOCKED"), QStringList("2"));
}

void tst_BehaviourReads::failedReadBlocksTheOthers()
{
    QSqlQuery before(db);
    QSqlQuery failing(db);
    QVERIFY(before.exec("SELECT generate_series(1, 300)"));
    QVERIFY(!failing.exec("SELECT 1/0"));

    QSqlQuery after(db);
    QVERIFY(!after.exec("SELECT 1"));
    COMPARE_TEXTS(after.lastError(), Aborted, PrepareFailed);
    QVERIFY(before.last());
    QVERIFY(!before.next()); // its next page does not come either
    COMPARE_TEXTS(before.lastError(), Aborted, ExecuteFailed);

    failing.clear();
    QVERIFY(!after.exec("SELECT 1"));
    before.clear(); // the last of them
    QVERIFY(after.exec("SELECT 1"));
}

void tst_BehaviourReads::failedReadBlocksItsOwnQueryOnce()
{
    QSqlQuery query(db);
    QVERIFY(!query.exec("SELECT 1/0"));
    QVERIFY(!query.exec("SELECT 1"));
    COMPARE_TEXTS(query.lastError(), Aborted, PrepareFailed);
    QVERIFY(query.exec("SELECT 1"));
}

void tst_BehaviourReads::clearEndsAFailedRead()
{
    QSqlQuery query(db);
    QVERIFY(!query.exec("SELECT 1/0"));
    query.clear();
    QVERIFY(query.exec("SELECT 1"));
}

void tst_BehaviourReads::finishDoesNotEndAFailedRead()
{
    QSqlQuery query(db);
    QVERIFY(!query.exec("SELECT 1/0"));
    query.finish();
    QVERIFY(!query.exec("SELECT 1"));
}

void tst_BehaviourReads::rejectedTextBlocksNothing()
{
    QSqlQuery query(db);
    QSqlQuery other(db);
    QVERIFY(other.exec("SELECT 1"));
    QVERIFY(!query.exec("SELECT a FROM no_such_table"));
    QVERIFY(query.exec("SELECT 1"));
}

void tst_BehaviourReads::temporaryTableBlocksReadsUntilReopened()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("CREATE TEMPORARY TABLE t (a int)"));
    QVERIFY(!query.exec("SELECT a FROM t"));
    QCOMPARE(serversWords(query), QString("ERROR:  relation \"t\" does not exist"));
    for (int attempt = 1; attempt <= 3; ++attempt) {
        query.clear();
        QVERIFY(!query.exec("SELECT 1"));
        COMPARE_TEXTS(query.lastError(), Aborted, PrepareFailed);
    }
    db.close();
    QVERIFY(db.open());
    QVERIFY(query.exec("SELECT 1"));
}

void tst_BehaviourReads::temporaryTableBesideALivingReadBlocksUntilItGoes()
{
    QSqlQuery living(db);
    QSqlQuery query(db);
    QVERIFY(query.exec("CREATE TEMPORARY TABLE t (a int)"));
    QVERIFY(living.exec("SELECT 1"));
    QVERIFY(!query.exec("SELECT a FROM t"));
    QVERIFY(!query.exec("SELECT 1"));
    living.clear();
    QVERIFY(query.exec("SELECT 1"));
}

void tst_BehaviourReads::uncommittedTableBlocksReadsUntilReopened()
{
    QSqlQuery query(db);
    QVERIFY(db.transaction());
    QVERIFY(query.exec("CREATE TABLE t (a int)"));
    QVERIFY(!query.exec("SELECT a FROM t"));
    QVERIFY(!query.exec("SELECT 1"));
    QVERIFY(db.commit()); // helps no more
    QVERIFY(!query.exec("SELECT a FROM t"));
    COMPARE_TEXTS(query.lastError(), Aborted, PrepareFailed);
    db.close();
    QVERIFY(db.open());
    QVERIFY(query.exec("SELECT a FROM t"));
}

QTEST_GUILESS_MAIN(tst_BehaviourReads)
#include "tst_behaviour_reads.moc"
