// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// What docs/transactions.md says beyond docs/behaviour.md: snapshots, isolation, and which statement runs
// where.
#include "tests/driver/behaviour.h"
#include "tests/support/sqlmacros.h"

class tst_TransactionsPage : public QObject, private Behaviour
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY2(start(), qPrintable(cluster.why())); }
    void init() { QVERIFY(openAnew("CREATE TABLE t AS SELECT generate_series(1, 300) AS a")); }
    void cleanup() { closeForGood(); }

    void walkSeesOneSnapshot();
    void isolationOfReads();
    void repeatableReadsSeeOneState();
    void connectionOfAStatement_data();
    void connectionOfAStatement();
    void cursorIsNotReached();

private:
    QString answer(const QString &sql)
    {
        QSqlQuery query(db);
        return query.exec(sql) && query.next() ? query.value(0).toString()
                                               : query.lastError().driverText();
    }
    bool openWith(const QString &options)
    {
        db.close();
        db.setConnectOptions(options);
        return db.open();
    }
};

void tst_TransactionsPage::walkSeesOneSnapshot()
{
    QSqlQuery query(db);
    QVERIFY_SQL(query, query.exec("SELECT a FROM t ORDER BY a"));
    cluster.run("DELETE FROM t WHERE a > 200");
    int rows = 0;
    while (query.next()) {
        ++rows;
    }
    QCOMPARE(rows, 300);
    QCOMPARE(answer("SELECT count(*) FROM t"), QString("200"));
}

void tst_TransactionsPage::isolationOfReads()
{
    const QString asked = "SELECT current_setting('transaction_isolation')";
    QCOMPARE(answer(asked), QString("read committed"));
    QVERIFY(openWith("options='-c default_transaction_isolation=repeatable\\\\ read'"));
    QCOMPARE(answer(asked), QString("repeatable read"));
}

void tst_TransactionsPage::repeatableReadsSeeOneState()
{
    QVERIFY(openWith("options='-c default_transaction_isolation=repeatable\\\\ read'"));
    QSqlQuery first(db);
    QVERIFY_SQL(first, first.exec("SELECT count(*) FROM t"));
    cluster.run("DELETE FROM t WHERE a > 200");
    QCOMPARE(answer("SELECT count(*) FROM t"), QString("300"));
    first.clear(); // the last read, whose transaction ends
    QCOMPARE(answer("SELECT count(*) FROM t"), QString("200"));
}

void tst_TransactionsPage::connectionOfAStatement_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("isRead");
    QTest::newRow("SELECT") << "SELECT a FROM t" << true;
    QTest::newRow("VALUES") << "VALUES (1)" << true;
    QTest::newRow("TABLE") << "TABLE t" << true;
    QTest::newRow("SHOW") << "SHOW datestyle" << true;
    QTest::newRow("EXPLAIN") << "EXPLAIN SELECT a FROM t" << true;
    QTest::newRow("INSERT with RETURNING") << "INSERT INTO t VALUES (301) RETURNING a" << true;
    QTest::newRow("UPDATE with RETURNING") << "UPDATE t SET a = a RETURNING a" << true;
    QTest::newRow("DELETE with RETURNING") << "DELETE FROM t RETURNING a" << true;
    QTest::newRow("INSERT") << "INSERT INTO t VALUES (301)" << false;
    QTest::newRow("UPDATE") << "UPDATE t SET a = a" << false;
    QTest::newRow("DELETE") << "DELETE FROM t" << false;
    QTest::newRow("CREATE") << "CREATE TABLE u (a int)" << false;
    QTest::newRow("ALTER") << "ALTER TABLE t ADD b int" << false;
    QTest::newRow("DROP") << "DROP TABLE t" << false;
    QTest::newRow("SET") << "SET lock_timeout = '1s'" << false;
    QTest::newRow("DO") << "DO 'BEGIN NULL; END'" << false;
    QTest::newRow("LOCK") << "LOCK TABLE t" << false;
    QTest::newRow("NOTIFY") << "NOTIFY news" << false;
}

// A read takes the second connection, which only then is there.
void tst_TransactionsPage::connectionOfAStatement()
{
    QFETCH(QString, text);
    QFETCH(bool, isRead);
    // Of its own: a server takes its time to let the connections of the row before go.
    const QString name = QString("page %1").arg(QTest::currentDataTag());
    QVERIFY(openWith("application_name='" + name + "'"));
    QVERIFY(db.transaction()); // for LOCK
    QSqlQuery query(db);
    QVERIFY_SQL(query, query.exec(text));
    QCOMPARE(query.isSelect(), isRead);
    const QString there = cluster.value(
        "SELECT count(*) FROM pg_stat_activity WHERE application_name = '" + name + "'");
    QCOMPARE(there, isRead ? QString("2") : QString("1"));
    QVERIFY(db.rollback());
}

void tst_TransactionsPage::cursorIsNotReached()
{
    QVERIFY(db.transaction());
    QSqlQuery query(db);
    QVERIFY_SQL(query, query.exec("DECLARE c CURSOR FOR SELECT a FROM t"));
    const QString said = answer("FETCH 10 FROM c");
    QVERIFY2(said.startsWith("ERROR:  cursor \"c\" does not exist"), qPrintable(said));
}

QTEST_GUILESS_MAIN(tst_TransactionsPage)
#include "tst_transactionspage.moc"
