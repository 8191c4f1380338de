// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// WireProxy: answers that come late, and where the recording has them.
#include "client/libppq.h"
#include "client/ppqcall.h"
#include "tests/support/libpqowners.h"
#include "tests/support/pgcluster.h"
#include "tests/support/textlines.h"
#include "tests/support/wireproxy.h"

#include <QtCore/QElapsedTimer>
#include <QtTest/QtTest>

#include <atomic>
#include <memory>
#include <thread>

namespace {

constexpr int DelayMsec = 1000; // beside which a loaded machine's own time is little

QByteArray value(const ResultPtr &result)
{
    return PQgetvalue(result.get(), 0, 0);
}

} // namespace

class tst_WireProxy : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY2(cluster.start(), qPrintable(cluster.why())); }
    void init() { proxy.reset(new WireProxy(cluster.socketDir(), cluster.port())); }

    void everyAnswerIsLate();
    void connectionsAreLateTogether();
    void longAnswerIsLateOnce();
    void lateAnswerIsNotOvertaken();
    void lastWordsAreLate();
    void answerToACloseStandsBehindIt();
    void answerIsThatToTheMessage();

private:
    RawConnectionPtr connect() const
    {
        return RawConnectionPtr(PQconnectdb(proxy->conninfo().constData()));
    }

    PgCluster cluster;
    std::unique_ptr<WireProxy> proxy;
};

void tst_WireProxy::everyAnswerIsLate()
{
    const RawConnectionPtr connection = connect();
    proxy->delayReplies(DelayMsec);
    for (int i = 0; i < 3; ++i) {
        QElapsedTimer timer;
        timer.start();
        const ResultPtr result(PQexec(connection.get(), "SELECT 1"));
        QCOMPARE(value(result), QByteArray("1"));
        QVERIFY(timer.elapsed() >= DelayMsec);
    }
    proxy->delayReplies(0);
    QElapsedTimer timer;
    timer.start();
    const ResultPtr result(PQexec(connection.get(), "SELECT 1"));
    QVERIFY(timer.elapsed() < DelayMsec);
}

void tst_WireProxy::connectionsAreLateTogether()
{
    const RawConnectionPtr first = connect();
    const RawConnectionPtr second = connect();
    proxy->delayReplies(DelayMsec);
    QElapsedTimer timer;
    timer.start();
    for (PGconn *connection : {first.get(), second.get()}) {
        QCOMPARE(PQsendQuery(connection, "SELECT 1"), 1);
    }
    for (PGconn *connection : {first.get(), second.get()}) {
        QCOMPARE(value(ResultPtr(PQgetResult(connection))), QByteArray("1"));
        QVERIFY(timer.elapsed() >= DelayMsec);
    }
    QVERIFY(timer.elapsed() < 2 * DelayMsec);
}

void tst_WireProxy::longAnswerIsLateOnce()
{
    const RawConnectionPtr connection = connect();
    proxy->delayReplies(DelayMsec);
    QElapsedTimer timer;
    timer.start();
    const ResultPtr result(PQexec(connection.get(), "SELECT repeat('x', 1000000)"));
    QCOMPARE(value(result), QByteArray(1000000, 'x'));
    QVERIFY(timer.elapsed() >= DelayMsec);
    QVERIFY(timer.elapsed() < 2 * DelayMsec);
}

void tst_WireProxy::lateAnswerIsNotOvertaken()
{
    const RawConnectionPtr connection = connect();
    QCOMPARE(PQenterPipelineMode(connection.get()), 1);
    const auto send = [&connection](const char *sql) {
        QCOMPARE(PQsendQueryParams(connection.get(), sql, 0, nullptr, nullptr, nullptr, nullptr, 0),
                 1);
        QCOMPARE(PQpipelineSync(connection.get()), 1);
    };
    proxy->clear();
    proxy->delayReplies(DelayMsec);
    send("SELECT 1");
    QVERIFY(proxy->waitForLine(QStringLiteral("1< ReadyForQuery I")));
    proxy->delayReplies(0);
    send("SELECT 2");
    for (const char *expected : {"1", "2"}) {
        QCOMPARE(value(ResultPtr(PQgetResult(connection.get()))), QByteArray(expected));
        QVERIFY(!PQgetResult(connection.get()));
        QCOMPARE(PQresultStatus(ResultPtr(PQgetResult(connection.get())).get()),
                 PGRES_PIPELINE_SYNC);
    }
}

void tst_WireProxy::lastWordsAreLate()
{
    const RawConnectionPtr connection = connect();
    proxy->delayReplies(DelayMsec);
    QElapsedTimer timer;
    timer.start();
    const ResultPtr result(
        PQexec(connection.get(), "SELECT pg_terminate_backend(pg_backend_pid())"));
    QVERIFY(timer.elapsed() >= DelayMsec);
    QVERIFY(QByteArray(PQerrorMessage(connection.get())).contains("administrator command"));
}

// The client speaks before the close is answered; the server answers two connections in turn.
void tst_WireProxy::answerToACloseStandsBehindIt()
{
    const RawConnectionPtr first = connect();
    const RawConnectionPtr second = connect();
    proxy->clear();
    proxy->delayReplies(DelayMsec);
    QCOMPARE(PPQclose(first.get(), "po", "st"), 1);
    QVERIFY(proxy->waitForLine(QStringLiteral("1> Sync"))); // or the other may be read first
    QCOMPARE(PPQclose(second.get(), nullptr, "st"), 1);
    QVERIFY(proxy->waitForLine(QStringLiteral("2> Sync")));
    QCOMPARE(value(ResultPtr(ppqExec(first.get(), "SELECT 'a'"))), QByteArray("a"));
    QCOMPARE(value(ResultPtr(ppqExec(second.get(), "SELECT 'b'"))), QByteArray("b"));
    QCOMPARE(proxy->conversation(), lines({"1> Close P \"po\"",
                                           "1> Close S \"st\"",
                                           "1> Sync",
                                           "1< CloseComplete",
                                           "1< CloseComplete",
                                           "1< ReadyForQuery I",
                                           "2> Close S \"st\"",
                                           "2> Sync",
                                           "2< CloseComplete",
                                           "2< ReadyForQuery I",
                                           "1> Query \"SELECT 'a'\"",
                                           "1< RowDescription 1",
                                           "1< DataRow x1",
                                           "1< CommandComplete \"SELECT 1\"",
                                           "1< ReadyForQuery I",
                                           "2> Query \"SELECT 'b'\"",
                                           "2< RowDescription 1",
                                           "2< DataRow x1",
                                           "2< CommandComplete \"SELECT 1\"",
                                           "2< ReadyForQuery I"}));
}

// The query is sent before the close in front of it is answered.
void tst_WireProxy::answerIsThatToTheMessage()
{
    const QString query = QStringLiteral("1> Query \"SELECT 1\"");
    const QString done = QStringLiteral("1< CommandComplete \"SELECT 1\"");
    const RawConnectionPtr connection = connect();
    std::atomic<bool> called{false};
    std::atomic<bool> isDone{false};
    proxy->clear();
    proxy->onAnswer(query, [&] {
        called = true;
        isDone = proxy->conversation().contains(done);
    });
    proxy->holdRequests(true);
    QCOMPARE(PPQclose(connection.get(), nullptr, "st"), 1);
    std::thread release([&] {
        proxy->waitForLine(query);
        proxy->holdRequests(false);
    });
    const ResultPtr result(ppqExec(connection.get(), "SELECT 1"));
    release.join();
    QCOMPARE(value(result), QByteArray("1"));
    QVERIFY(called);
    QVERIFY(isDone);
}

QTEST_GUILESS_MAIN(tst_WireProxy)
#include "tst_wireproxy.moc"
