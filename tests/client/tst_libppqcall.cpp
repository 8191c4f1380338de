// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Calls that go out behind a close whose answer is under way.
#include "client/libppq.h"
#include "client/ppqcall.h"
#include "client/ppqsettle.h"

#include "tests/support/libpqowners.h"
#include "tests/support/pgcluster.h"
#include "tests/support/textlines.h"
#include "tests/support/wireproxy.h"

#include <QtCore/QThread>
#include <QtTest/QtTest>

#include <functional>
#include <memory>
#include <thread>

namespace {

using Call = std::function<PGresult *(PGconn *, const PGresult *page)>;

PGresult *exec(PGconn *conn, const PGresult * /*page*/)
{
    return ppqExec(conn, "SELECT 'one'");
}

PGresult *fail(PGconn *conn, const PGresult * /*page*/)
{
    return ppqExec(conn, "SELECT 1 / 0");
}

PGresult *prepare(PGconn *conn, const PGresult * /*page*/)
{
    return ppqPrepare(conn, "new", "SELECT 'new'");
}

PGresult *describe(PGconn *conn, const PGresult * /*page*/)
{
    return ppqDescribePrepared(conn, "kept");
}

PGresult *execPrepared(PGconn *conn, const PGresult * /*page*/)
{
    return ppqExecPrepared(conn, "kept", 0, nullptr, nullptr, nullptr, 0);
}

PGresult *firstPage(PGconn *conn, const PGresult * /*page*/)
{
    return PPQexecPrepared(conn, 2, "kept", "other", 0, nullptr, nullptr, nullptr, 0);
}

PGresult *reopened(PGconn *conn, const PGresult * /*page*/)
{
    return ppqExecReopened(conn, 2, "kept", "keptportal", 0, nullptr, nullptr, nullptr, 0);
}

PGresult *nextPage(PGconn *conn, const PGresult *page)
{
    return PPQfetch(conn, 2, "keptportal", page);
}

// The status, the columns, the first value of each row, and the tag or the error.
QByteArray inWords(const ResultPtr &result)
{
    QByteArray words = PQresStatus(PQresultStatus(result.get()));
    words += ' ' + QByteArray::number(PQnfields(result.get()));
    for (int row = 0; row < PQntuples(result.get()); ++row) {
        words += ' ' + QByteArray(PQgetvalue(result.get(), row, 0));
    }
    words.append(" | ").append(PQcmdStatus(result.get()));
    return words.append(PQresultErrorMessage(result.get()));
}

} // namespace

Q_DECLARE_METATYPE(Call)

class tst_LibPpqCall : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY2(cluster.start(), qPrintable(cluster.why())); }
    void init();
    void cleanup();

    void goesOutBehindAClose_data();
    void goesOutBehindAClose();
    void statusIsThatBeforeTheClose_data();
    void statusIsThatBeforeTheClose();
    void closesNothingTwice();
    void copiesAreLeftAlone();
    void noConnection();
    void copyBehindAClose_data();
    void copyBehindAClose();
    void errorHasItsPosition();
    void lastWordsOfATerminatedServer_data();
    void lastWordsOfATerminatedServer();
    void lostBehindAClose_data();
    void lostBehindAClose();
    void resetAfterALossBehindAClose();

private:
    void command(const char *sql) const;
    ResultPtr open();
    void loseBehindAClose(const Call &call) const;

    PgCluster cluster;
    std::unique_ptr<WireProxy> proxy;
    RawConnectionPtr conn;
};

void tst_LibPpqCall::init()
{
    proxy.reset(new WireProxy(cluster.socketDir(), cluster.port()));
    conn.reset(PQconnectdb(proxy->conninfo().constData()));
    QVERIFY2(PQstatus(conn.get()) == CONNECTION_OK, PQerrorMessage(conn.get()));
}

void tst_LibPpqCall::cleanup()
{
    conn.reset();
    proxy.reset();
}

void tst_LibPpqCall::command(const char *sql) const
{
    const ResultPtr result(PQexec(conn.get(), sql));
    QVERIFY2(PQresultStatus(result.get()) == PGRES_COMMAND_OK, PQerrorMessage(conn.get()));
}

// In a transaction, the statements "kept", read to its second row, and "closed".
ResultPtr tst_LibPpqCall::open()
{
    command("BEGIN");
    command("PREPARE kept AS SELECT generate_series(1, 5)");
    command("PREPARE closed AS SELECT 1");
    return ResultPtr(
        PPQexecPrepared(conn.get(), 2, "kept", "keptportal", 0, nullptr, nullptr, nullptr, 0));
}

// Makes the call behind a close that is never answered, and ends the connection meanwhile.
void tst_LibPpqCall::loseBehindAClose(const Call &call) const
{
    proxy->holdReplies(true);
    QCOMPARE(PPQclose(conn.get(), nullptr, "closed"), 1);
    std::thread end([this] {
        QThread::msleep(200);
        proxy->cut();
    });
    const ResultPtr result(call(conn.get(), nullptr));
    end.join();
    QVERIFY(PQresultStatus(result.get()) == PGRES_FATAL_ERROR); // no result is one, too
}

void tst_LibPpqCall::goesOutBehindAClose_data()
{
    QTest::addColumn<Call>("call");
    QTest::addColumn<QByteArray>("words");
    QTest::addColumn<QStringList>("said");
    QTest::newRow("exec") << Call(exec) << QByteArray("PGRES_TUPLES_OK 1 one | SELECT 1")
                          << lines({"1> Query \"SELECT 'one'\""});
    QTest::newRow("exec that fails")
        << Call(fail) << QByteArray("PGRES_FATAL_ERROR 0 | ERROR:  division by zero\n")
        << lines({"1> Query \"SELECT 1 / 0\""});
    QTest::newRow("prepare") << Call(prepare) << QByteArray("PGRES_COMMAND_OK 0 | ")
                             << lines({"1> Parse \"new\" \"SELECT 'new'\" 0", "1> Sync"});
    QTest::newRow("describe") << Call(describe) << QByteArray("PGRES_COMMAND_OK 1 | ")
                              << lines({"1> Describe S \"kept\"", "1> Sync"});
    QTest::newRow("execute") << Call(execPrepared)
                             << QByteArray("PGRES_TUPLES_OK 1 1 2 3 4 5 | SELECT 5")
                             << lines({"1> Bind \"\" \"kept\" [] 0", "1> Describe P \"\"",
                                       "1> Execute \"\" 0", "1> Sync"});
    QTest::newRow("first page") << Call(firstPage) << QByteArray("PGRES_TUPLES_OK 1 1 2 | ")
                                << lines({"1> Bind \"other\" \"kept\" [] 0",
                                          "1> Describe P \"other\"", "1> Execute \"other\" 2",
                                          "1> Sync"});
    QTest::newRow("first page of an open portal")
        << Call(reopened) << QByteArray("PGRES_TUPLES_OK 1 1 2 | ")
        << lines({"1> Close P \"keptportal\"", "1> Bind \"keptportal\" \"kept\" [] 0",
                  "1> Describe P \"keptportal\"", "1> Execute \"keptportal\" 2", "1> Sync"});
    QTest::newRow("next page") << Call(nextPage) << QByteArray("PGRES_TUPLES_OK 1 3 4 | ")
                               << lines({"1> Execute \"keptportal\" 2", "1> Sync"});
}

void tst_LibPpqCall::goesOutBehindAClose()
{
    QFETCH(Call, call);
    QFETCH(QByteArray, words);
    QFETCH(QStringList, said);
    const ResultPtr page = open();
    proxy->clear();
    proxy->holdReplies(true);
    QCOMPARE(PPQclose(conn.get(), nullptr, "closed"), 1);
    bool wasSent = false;
    std::thread release([&] {
        wasSent = proxy->waitForLine(said.first());
        proxy->holdReplies(false);
    });
    const ResultPtr result(call(conn.get(), page.get()));
    release.join();
    QVERIFY(wasSent); // while the answer to the close was held back
    QCOMPARE(inWords(result), words);
    QCOMPARE(proxy->frontend(), lines({"1> Close S \"closed\"", "1> Sync"}) + said);
    QCOMPARE(PQtransactionStatus(conn.get()),
             PQresultStatus(result.get()) == PGRES_FATAL_ERROR ? PQTRANS_INERROR : PQTRANS_INTRANS);
    command("ROLLBACK"); // the connection goes on
    const ResultPtr left(PQexec(conn.get(), "SELECT string_agg(name, ' ' ORDER BY name) FROM "
                                            "pg_prepared_statements WHERE name <> 'new'"));
    QCOMPARE(QByteArray(PQgetvalue(left.get(), 0, 0)), QByteArray("kept"));
}

void tst_LibPpqCall::statusIsThatBeforeTheClose_data()
{
    QTest::addColumn<QByteArray>("sql");
    QTest::addColumn<int>("status");
    QTest::newRow("idle") << QByteArray("SELECT 1") << int(PQTRANS_IDLE);
    QTest::newRow("in transaction") << QByteArray("BEGIN") << int(PQTRANS_INTRANS);
    QTest::newRow("in failed transaction")
        << QByteArray("BEGIN; SELECT 1 / 0") << int(PQTRANS_INERROR);
}

void tst_LibPpqCall::statusIsThatBeforeTheClose()
{
    QFETCH(QByteArray, sql);
    QFETCH(int, status);
    const ResultPtr result(PQexec(conn.get(), sql.constData()));
    QCOMPARE(int(ppqTransactionStatus(conn.get())), status);
    QCOMPARE(PPQclose(conn.get(), nullptr, "closed"), 1);
    QCOMPARE(int(PQtransactionStatus(conn.get())), int(PQTRANS_ACTIVE));
    QCOMPARE(int(ppqTransactionStatus(conn.get())), status);
    QCOMPARE(ppqIsReady(conn.get()), 1);
    QCOMPARE(int(PQtransactionStatus(conn.get())), int(PQTRANS_ACTIVE)); // it did not wait
    QCOMPARE(ppqSettle(conn.get()), 1);
    QCOMPARE(int(ppqTransactionStatus(conn.get())), status);
}

// A close behind a close, and libpq's own calls behind both.
void tst_LibPpqCall::closesNothingTwice()
{
    const ResultPtr page = open();
    QCOMPARE(PPQclose(conn.get(), "keptportal", "kept"), 1);
    QCOMPARE(PPQclose(conn.get(), nullptr, "closed"), 1);
    const ResultPtr count(ppqExec(conn.get(), "SELECT (SELECT count(*) FROM pg_cursors) || ' ' || "
                                              "(SELECT count(*) FROM pg_prepared_statements)"));
    QCOMPARE(QByteArray(PQgetvalue(count.get(), 0, 0)), QByteArray("0 0"));
    const ResultPtr own(PQexec(conn.get(), "SELECT 'own'"));
    QCOMPARE(QByteArray(PQgetvalue(own.get(), 0, 0)), QByteArray("own"));
}

void tst_LibPpqCall::copiesAreLeftAlone()
{
    const ResultPtr copy(ppqExec(conn.get(), "COPY (SELECT 1) TO STDOUT"));
    QCOMPARE(PQresultStatus(copy.get()), PGRES_COPY_OUT);
    QCOMPARE(ppqIsReady(conn.get()), 1);
    QCOMPARE(int(ppqTransactionStatus(conn.get())), int(PQTRANS_ACTIVE));
    char *line = nullptr;
    QCOMPARE(PQgetCopyData(conn.get(), &line, 0), 2);
    PQfreemem(line);
}

void tst_LibPpqCall::noConnection()
{
    const RawConnectionPtr lost(PQconnectdb("host=/nowhere"));
    for (PGconn *none : {static_cast<PGconn *>(nullptr), lost.get()}) {
        QCOMPARE(ppqIsReady(none), 0);
        QCOMPARE(int(ppqTransactionStatus(none)), int(PQTRANS_UNKNOWN));
        QVERIFY(!ResultPtr(ppqExec(none, "SELECT 1")));
        QVERIFY(!ResultPtr(ppqPrepare(none, "st", "SELECT 1")));
        QVERIFY(!ResultPtr(ppqDescribePrepared(none, "st")));
        QVERIFY(!ResultPtr(ppqExecPrepared(none, "st", 0, nullptr, nullptr, nullptr, 0)));
        QVERIFY(!ResultPtr(ppqExecReopened(none, 1, "st", "po", 0, nullptr, nullptr, nullptr, 0)));
    }
}

void tst_LibPpqCall::copyBehindAClose_data()
{
    QTest::addColumn<QByteArray>("sql");
    QTest::addColumn<int>("status");
    QTest::newRow("out") << QByteArray("COPY (SELECT 1) TO STDOUT") << int(PGRES_COPY_OUT);
    QTest::newRow("in") << QByteArray("COPY t FROM STDIN") << int(PGRES_COPY_IN);
}

void tst_LibPpqCall::copyBehindAClose()
{
    QFETCH(QByteArray, sql);
    QFETCH(int, status);
    command("CREATE TEMPORARY TABLE t (a int)");
    QCOMPARE(PPQclose(conn.get(), nullptr, "closed"), 1);
    const ResultPtr copy(ppqExec(conn.get(), sql.constData()));
    QCOMPARE(int(PQresultStatus(copy.get())), status);
    const ResultPtr next(ppqExec(conn.get(), "SELECT 'next'"));
    QCOMPARE(inWords(next), QByteArray("PGRES_TUPLES_OK 1 next | SELECT 1"));
}

void tst_LibPpqCall::errorHasItsPosition()
{
    QCOMPARE(PPQclose(conn.get(), nullptr, "closed"), 1);
    const ResultPtr behind(ppqExec(conn.get(), "SELECT nothing_of_this_name"));
    const ResultPtr alone(PQexec(conn.get(), "SELECT nothing_of_this_name"));
    QCOMPARE(inWords(behind), inWords(alone));
}

void tst_LibPpqCall::lastWordsOfATerminatedServer_data()
{
    QTest::addColumn<Call>("call");
    QTest::newRow("libpq's own, for comparison")
        << Call([](PGconn *lost, const PGresult *) { return PQexec(lost, "SELECT 'one'"); });
    QTest::newRow("exec") << Call(exec);
    QTest::newRow("prepare") << Call(prepare);
    QTest::newRow("first page") << Call(firstPage);
}

// The reason stands in front of the end of the connection, whoever reads it first.
void tst_LibPpqCall::lastWordsOfATerminatedServer()
{
    QFETCH(Call, call);
    const RawConnectionPtr direct(PQconnectdb(cluster.conninfo().constData()));
    cluster.terminate(PQbackendPID(direct.get()));
    PPQclose(direct.get(), nullptr, "closed");
    ResultPtr(call(direct.get(), nullptr));
    const QByteArray said = PQerrorMessage(direct.get());
    QVERIFY2(said.contains("terminating connection due to administrator command"), said);
}

void tst_LibPpqCall::lostBehindAClose_data()
{
    QTest::addColumn<Call>("call");
    QTest::newRow("libpq's own, for comparison")
        << Call([](PGconn *lost, const PGresult *) { return PQexec(lost, "SELECT 'one'"); });
    QTest::newRow("exec") << Call(exec);
    QTest::newRow("first page") << Call(firstPage);
}

// A lost connection has nothing outstanding, so that libpq begins each call with an empty message.
void tst_LibPpqCall::lostBehindAClose()
{
    QFETCH(Call, call);
    loseBehindAClose(call);
    QCOMPARE(PQstatus(conn.get()), CONNECTION_BAD);
    for (int i = 0; i < 2; ++i) {
        QVERIFY(!ResultPtr(PQexec(conn.get(), "SELECT 1")));
        QCOMPARE(QByteArray(PQerrorMessage(conn.get())),
                 QByteArray("no connection to the server\n"));
    }
}

void tst_LibPpqCall::resetAfterALossBehindAClose()
{
    loseBehindAClose(exec);
    proxy->holdReplies(false);
    PQreset(conn.get());
    QCOMPARE(PQstatus(conn.get()), CONNECTION_OK);
    QCOMPARE(inWords(ResultPtr(exec(conn.get(), nullptr))),
             QByteArray("PGRES_TUPLES_OK 1 one | SELECT 1"));
}

QTEST_GUILESS_MAIN(tst_LibPpqCall)
#include "tst_libppqcall.moc"
