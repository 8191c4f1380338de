// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// What an application has to know of its transactions.
#include "tests/driver/behaviour.h"

#include <QtSql/QSqlRecord>

namespace {

constexpr char CannotBegin[] = "Невозможно начать транзакцию";
constexpr char CannotCommit[] = "Невозможно завершить транзакцию";
constexpr char StateForbidsBegin[] = "Текущее состояние соединения запрещает начало транзакции";
constexpr char StateForbidsCommit[] =
    "Текущее состояние соединения запрещает завершение транзакции";

} // namespace

class tst_BehaviourTransactions : public QObject, private Behaviour
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY2(start(), qPrintable(cluster.why())); }
    void init()
    {
        QVERIFY(openAnew("CREATE TABLE t (a int PRIMARY KEY, b text); "
                         "CREATE TABLE numbered (a serial, b text)"));
    }
    void cleanup() { closeForGood(); }

    void commitKeeps();
    void rollbackUndoes();
    void beginInsideATransactionIsRefused();
    void commitOutsideATransactionIsRefused();
    void rollbackOutsideATransactionIsASuccess();
    void plainCommandsOpenATransactionToo();
    void closeRollsBack();

    void failedStatementFailsTheTransaction();
    void rollbackMendsAFailedTransaction();
    void rejectedTextFailsTheTransaction();
    void rejectedReadFailsTheTransaction();
    void failedReadLeavesTheTransactionAlone();
    void readInAFailedTransactionFails();
    void describingATableFailsTheTransaction();
    void onesOwnSavepointMends();

    void lastInsertIdIsAnInt();
    void lastInsertIdWithoutASequenceFailsTheTransaction();
    void lastInsertIdGivesAnEarlierInsertsKey();
    void lastInsertIdOfAReadAsksTheBorrowedConnection();

private:
    QString rows() const { return cluster.value("SELECT count(*) FROM t"); }
};

void tst_BehaviourTransactions::commitKeeps()
{
    QSqlQuery query(db);
    QVERIFY(db.transaction());
    QVERIFY(query.exec("INSERT INTO t VALUES (1, 'kept')"));
    QCOMPARE(rows(), QString("0"));
    QVERIFY(db.commit());
    QCOMPARE(rows(), QString("1"));
}

void tst_BehaviourTransactions::rollbackUndoes()
{
    QSqlQuery query(db);
    QVERIFY(db.transaction());
    QVERIFY(query.exec("INSERT INTO t VALUES (1, 'lost')"));
    QVERIFY(db.rollback());
    QCOMPARE(rows(), QString("0"));
}

void tst_BehaviourTransactions::beginInsideATransactionIsRefused()
{
    QVERIFY(db.transaction());
    QVERIFY(!db.transaction());
    COMPARE_TEXTS(db.lastError(), CannotBegin, StateForbidsBegin);
    QVERIFY(db.commit()); // the first one is still there
}

void tst_BehaviourTransactions::commitOutsideATransactionIsRefused()
{
    QVERIFY(!db.commit());
    COMPARE_TEXTS(db.lastError(), CannotCommit, StateForbidsCommit);
}

void tst_BehaviourTransactions::rollbackOutsideATransactionIsASuccess()
{
    QVERIFY(db.rollback());
    QVERIFY(!db.lastError().isValid());
}

void tst_BehaviourTransactions::plainCommandsOpenATransactionToo()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("BEGIN ISOLATION LEVEL SERIALIZABLE"));
    QVERIFY(query.exec("INSERT INTO t VALUES (1, 'kept')"));
    QVERIFY(db.commit());
    QCOMPARE(rows(), QString("1"));
}

void tst_BehaviourTransactions::closeRollsBack()
{
    QSqlQuery query(db);
    QVERIFY(db.transaction());
    QVERIFY(query.exec("INSERT INTO t VALUES (1, 'lost')"));
    db.close();
    QVERIFY(db.open());
    QCOMPARE(rows(), QString("0"));
    QVERIFY(db.transaction());
}

void tst_BehaviourTransactions::failedStatementFailsTheTransaction()
{
    QSqlQuery query(db);
    QVERIFY(db.transaction());
    QVERIFY(query.exec("INSERT INTO t VALUES (1, 'first')"));
    QVERIFY(!query.exec("INSERT INTO t VALUES (1, 'the same key')"));
    QVERIFY(!query.exec("INSERT INTO t VALUES (2, 'second')"));
    QCOMPARE(query.lastError().driverText(), QString(Aborted));
    QVERIFY(!db.commit());
    COMPARE_TEXTS(db.lastError(), CannotCommit, StateForbidsCommit);
    QVERIFY(db.rollback());
    QCOMPARE(rows(), QString("0"));
}

void tst_BehaviourTransactions::rollbackMendsAFailedTransaction()
{
    QSqlQuery query(db);
    QVERIFY(db.transaction());
    QVERIFY(!query.exec("INSERT INTO t VALUES (1/0, 'lost')"));
    QVERIFY(!db.transaction());
    QVERIFY(db.rollback());
    QVERIFY(db.transaction());
    QVERIFY(query.exec("INSERT INTO t VALUES (1, 'kept')"));
    QVERIFY(db.commit());
    QCOMPARE(rows(), QString("1"));
}

void tst_BehaviourTransactions::rejectedTextFailsTheTransaction()
{
    QSqlQuery query(db);
    QVERIFY(db.transaction());
    QVERIFY(query.exec("INSERT INTO t VALUES (1, 'lost')"));
    QVERIFY(!query.prepare("INSERT INTO no_such_table VALUES (?)"));
    QVERIFY(!query.exec("INSERT INTO t VALUES (2, 'second')"));
    QCOMPARE(query.lastError().driverText(), QString(Aborted));
    QVERIFY(!db.commit());
    QVERIFY(db.rollback());
}

void tst_BehaviourTransactions::rejectedReadFailsTheTransaction()
{
    QSqlQuery query(db);
    QVERIFY(db.transaction());
    QVERIFY(!query.exec("SELECT no_such_column FROM t"));
    QVERIFY(!db.commit());
    QVERIFY(db.rollback());
}

void tst_BehaviourTransactions::failedReadLeavesTheTransactionAlone()
{
    QSqlQuery query(db);
    QVERIFY(db.transaction());
    QVERIFY(query.exec("INSERT INTO t VALUES (1, 'kept')"));
    QVERIFY(!query.exec("SELECT 1/0"));
    QVERIFY(db.commit());
    QCOMPARE(rows(), QString("1"));
}

void tst_BehaviourTransactions::readInAFailedTransactionFails()
{
    QSqlQuery query(db);
    QVERIFY(db.transaction());
    QVERIFY(!query.exec("INSERT INTO t VALUES (1/0, 'lost')"));
    QVERIFY(!query.exec("SELECT 1")); // a text is always prepared in the transaction first
    QCOMPARE(query.lastError().driverText(), QString(Aborted));
    QVERIFY(db.rollback());
    QVERIFY(query.exec("SELECT 1"));
}

void tst_BehaviourTransactions::describingATableFailsTheTransaction()
{
    if (cluster.major() < 12) {
        return; // the text that it sends is good for servers before PostgreSQL 12
    }
    QVERIFY(db.transaction());
    QVERIFY(db.record("t").isEmpty());
    QVERIFY(!db.commit());
    QVERIFY(db.rollback());
}

void tst_BehaviourTransactions::onesOwnSavepointMends()
{
    QSqlQuery query(db);
    QVERIFY(db.transaction());
    QVERIFY(query.exec("INSERT INTO t VALUES (1, 'kept')"));
    QVERIFY(query.exec("SAVEPOINT before"));
    QVERIFY(!query.exec("INSERT INTO t VALUES (1, 'the same key')"));
    QVERIFY(query.exec("ROLLBACK TO SAVEPOINT before"));
    QVERIFY(!query.exec("INSERT INTO no_such_table VALUES (1)"));
    QVERIFY(query.exec("ROLLBACK TO SAVEPOINT before"));
    QVERIFY(query.exec("INSERT INTO t VALUES (2, 'kept')"));
    QVERIFY(db.commit());
    QCOMPARE(rows(), QString("2"));
}

void tst_BehaviourTransactions::lastInsertIdIsAnInt()
{
    QSqlQuery query(db);
    QVERIFY(db.transaction());
    QVERIFY(query.exec("INSERT INTO numbered (b) VALUES ('kept')"));
    QCOMPARE(query.lastInsertId().userType(), int(QMetaType::Int));
    QCOMPARE(query.lastInsertId().toInt(), 1);
    QVERIFY(db.commit());
}

void tst_BehaviourTransactions::lastInsertIdWithoutASequenceFailsTheTransaction()
{
    QSqlQuery query(db);
    QVERIFY(db.transaction());
    QVERIFY(query.exec("INSERT INTO t VALUES (1, 'lost')"));
    QVERIFY(!query.lastInsertId().isValid());
    QVERIFY(!query.lastError().isValid());
    QVERIFY(!db.commit());
    QVERIFY(db.rollback());
    QCOMPARE(rows(), QString("0"));
}

void tst_BehaviourTransactions::lastInsertIdGivesAnEarlierInsertsKey()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("INSERT INTO numbered (b) VALUES ('kept')"));
    QVERIFY(query.exec("INSERT INTO t VALUES (77, 'kept')")); // takes nothing from a sequence
    QCOMPARE(query.lastInsertId().toInt(), 1);
}

void tst_BehaviourTransactions::lastInsertIdOfAReadAsksTheBorrowedConnection()
{
    QSqlQuery insert(db);
    QSqlQuery read(db);
    QVERIFY(insert.exec("INSERT INTO numbered (b) VALUES ('kept')"));
    QVERIFY(read.exec("SELECT a FROM numbered"));
    QVERIFY(!read.lastInsertId().isValid());

    // The failure is one on the borrowed connection, and blocks every read like any other.
    QSqlQuery other(db);
    QVERIFY(!other.exec("SELECT 1"));
    QCOMPARE(other.lastError().driverText(), QString(Aborted));
    read.clear();
    QVERIFY(other.exec("SELECT 1"));
}

QTEST_GUILESS_MAIN(tst_BehaviourTransactions)
#include "tst_behaviour_transactions.moc"
