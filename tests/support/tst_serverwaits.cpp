// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// ServerWaits: what is an exchange, and what is none.
#include "tests/support/libpqowners.h"
#include "tests/support/pgcluster.h"
#include "tests/support/serverwaits.h"

#include <QtCore/QElapsedTimer>
#include <QtTest/QtTest>

#include <thread>

#include <unistd.h>

namespace {

void send(const RawConnectionPtr &connection)
{
    QCOMPARE(PQsendQuery(connection.get(), "SELECT 1"), 1);
}

void take(const RawConnectionPtr &connection)
{
    for (ResultPtr result(PQgetResult(connection.get())); result;
         result.reset(PQgetResult(connection.get()))) {
        QCOMPARE(PQresultStatus(result.get()), PGRES_TUPLES_OK);
    }
}

} // namespace

class tst_ServerWaits : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY2(cluster.start(), qPrintable(cluster.why())); }

    void connecting();
    void answerThatIsWaitedFor();
    void answerOfManyReads();
    void answerAfterAPause();
    void answersOnTwoConnections();
    void answerBehindAnother();
    void writeThatNobodyWaitsFor();
    void closedConnectionIsForgotten();
    void otherThreads();

private:
    RawConnectionPtr connect() const
    {
        return RawConnectionPtr(PQconnectdb(cluster.conninfo().constData()));
    }

    PgCluster cluster;
};

void tst_ServerWaits::connecting()
{
    const ServerWaits waits;
    const RawConnectionPtr connection = connect();
    QCOMPARE(PQstatus(connection.get()), CONNECTION_OK);
    QCOMPARE(waits.count(), 1);
}

// It is one whether or not the answer has come before the wait.
void tst_ServerWaits::answerThatIsWaitedFor()
{
    const RawConnectionPtr connection = connect();
    const ServerWaits waits;
    send(connection);
    take(connection);
    QCOMPARE(waits.count(), 1);
    send(connection);
    QTest::qWait(100);
    take(connection);
    QCOMPARE(waits.count(), 2);
}

void tst_ServerWaits::answerOfManyReads()
{
    const RawConnectionPtr connection = connect();
    const ServerWaits waits;
    const ResultPtr result(PQexec(connection.get(), "SELECT repeat('x', 1000000)"));
    QCOMPARE(PQgetlength(result.get(), 0, 0), 1000000);
    QCOMPARE(waits.count(), 1);
}

void tst_ServerWaits::answerAfterAPause()
{
    const RawConnectionPtr connection = connect();
    ServerWaits waits;
    send(connection);
    waits.pause();
    QCOMPARE(PQconsumeInput(connection.get()), 1);
    QCOMPARE(PQisBusy(connection.get()), 0); // it is there
    take(connection);
    QCOMPARE(waits.count(), 0);
}

void tst_ServerWaits::answersOnTwoConnections()
{
    const RawConnectionPtr first = connect();
    const RawConnectionPtr second = connect();
    const ServerWaits waits;
    send(first);
    send(second);
    take(first);
    take(second);
    QCOMPARE(waits.count(), 1);
}

void tst_ServerWaits::answerBehindAnother()
{
    const RawConnectionPtr first = connect();
    const RawConnectionPtr second = connect();
    const ServerWaits waits;
    send(first);
    take(first);
    send(second);
    take(second);
    QCOMPARE(waits.count(), 2);
}

void tst_ServerWaits::writeThatNobodyWaitsFor()
{
    const ServerWaits waits;
    {
        const RawConnectionPtr connection = connect();
        send(connection);
    }
    QCOMPARE(waits.count(), 1); // connecting
}

void tst_ServerWaits::closedConnectionIsForgotten()
{
    ServerWaits waits;
    connect();
    int ends[2];
    QCOMPARE(pipe(ends), 0); // takes the number of the connection's socket
    QElapsedTimer timer;
    timer.start();
    waits.pause();
    QVERIFY(timer.elapsed() < 4000);
    close(ends[0]);
    close(ends[1]);
}

void tst_ServerWaits::otherThreads()
{
    const ServerWaits waits;
    std::thread([this] {
        const RawConnectionPtr connection = connect();
        QCOMPARE(PQstatus(connection.get()), CONNECTION_OK);
    }).join();
    QCOMPARE(waits.count(), 0);
}

QTEST_GUILESS_MAIN(tst_ServerWaits)
#include "tst_serverwaits.moc"
