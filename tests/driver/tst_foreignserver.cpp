// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// A portal whose close fails on the server: a foreign table's, when its own server is gone.
#include "access/dorvy3.h"
#include "driver/dorvydriver.h"
#include "tests/support/dorvydatabase.h"
#include "tests/support/pgcluster.h"
#include "tests/support/sqlmacros.h"

#include <QtSql/QSqlDatabase>
#include <QtSql/QSqlQuery>
#include <QtTest/QtTest>

class tst_ForeignServer : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void finishOfHalfReadQuery();
    void otherQueryOfTheSameTransaction();
    void runningAgainReportsTheFailure();

private:
    bool halfRead(QSqlQuery &query);

    PgCluster cluster;
    PgCluster remote;
    QSqlDatabase database;
};

void tst_ForeignServer::initTestCase()
{
    QVERIFY2(cluster.start(), qPrintable(cluster.why()));
    QVERIFY2(remote.start(), qPrintable(remote.why()));
    remote.run(QStringLiteral("CREATE TABLE far AS SELECT generate_series(1, 100000) AS a"));
    cluster.run(QStringLiteral("CREATE EXTENSION postgres_fdw"));
    cluster.run(QStringLiteral("CREATE SERVER away FOREIGN DATA WRAPPER postgres_fdw OPTIONS "
                               "(host '%1', port '%2', dbname 'postgres')")
                    .arg(remote.socketDir())
                    .arg(remote.port()));
    cluster.run(QStringLiteral("CREATE USER MAPPING FOR dorvy SERVER away OPTIONS (user 'dorvy')"));
    cluster.run(QStringLiteral("CREATE FOREIGN TABLE far (a int) SERVER away"));
    remote.stop();
}

void tst_ForeignServer::init()
{
    QVERIFY2(remote.restart(), qPrintable(remote.why()));
    database = addDorvyDatabase(QStringLiteral("foreign"), cluster);
    QVERIFY_SQL(database, database.open());
}

void tst_ForeignServer::cleanup()
{
    database = QSqlDatabase();
    QSqlDatabase::removeDatabase(QStringLiteral("foreign"));
    remote.stop(QStringLiteral("immediate"));
}

// Reads two rows, then the remote server is killed.
bool tst_ForeignServer::halfRead(QSqlQuery &query)
{
    const bool read = query.exec(QStringLiteral("SELECT a FROM far")) && query.next() &&
                      query.next() && query.value(0).toInt() == 2;
    remote.stop(QStringLiteral("immediate"));
    return read;
}

void tst_ForeignServer::finishOfHalfReadQuery()
{
    QSqlQuery query(database);
    QVERIFY_SQL(query, halfRead(query));
    query.finish();
    QSqlQuery next(database);
    QVERIFY_SQL(next, next.exec(QStringLiteral("SELECT 'alive'")) && next.next());
    QCOMPARE(next.value(0).toString(), QStringLiteral("alive"));
    QVERIFY_SQL(database, database.transaction());
    QVERIFY_SQL(database, database.commit());
}

void tst_ForeignServer::otherQueryOfTheSameTransaction()
{
    QSqlQuery other(database);
    QVERIFY_SQL(other, other.exec(QStringLiteral("SELECT generate_series(1, 300)")));
    QSqlQuery query(database);
    QVERIFY_SQL(query, halfRead(query));
    query.finish();
    // The failed close has failed the borrowed connection's transaction, and says so.
    for (int row = 0; row < 128; ++row) {
        QVERIFY_SQL(other, other.next());
    }
    QVERIFY(!other.next());
    QCOMPARE(other.lastError().type(), QSqlError::StatementError);
    other.finish();
    QSqlQuery next(database);
    QVERIFY_SQL(next, next.exec(QStringLiteral("SELECT 1")));
}

void tst_ForeignServer::runningAgainReportsTheFailure()
{
    QSqlQuery query(database);
    QVERIFY_SQL(query, query.prepare(QStringLiteral("SELECT a FROM far")));
    QVERIFY_SQL(query, query.exec() && query.next());
    remote.stop(QStringLiteral("immediate"));
    QVERIFY(!query.exec());
    QCOMPARE(query.lastError().type(), QSqlError::StatementError);
    QVERIFY(!query.lastError().driverText().isEmpty());
    query.clear(); // the last statement on the borrowed connection, which is rolled back
    QSqlQuery next(database);
    QVERIFY_SQL(next, next.exec(QStringLiteral("SELECT 1")));
}

QTEST_GUILESS_MAIN(tst_ForeignServer)
#include "tst_foreignserver.moc"
