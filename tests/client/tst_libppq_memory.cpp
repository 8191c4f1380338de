// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The client extension without memory: every allocation that it and libpq make fails once.
#include "client/libppq.h"
#include "client/ppqcall.h"
#include "client/ppqsettle.h"

#include "tests/support/failingmemory.h"
#include "tests/support/libpqowners.h"
#include "tests/support/pgcluster.h"

#include <QtTest/QtTest>

#include <functional>

#include <sys/ioctl.h>

namespace {

// A connection of its own for each allocation, so that libpq's buffers have yet to grow.
struct Scene
{
    RawConnectionPtr conn;
    ResultPtr page; // the last that came without a fault
};

using Approach = std::function<void(Scene &)>;
using Operation = std::function<QByteArray(Scene &)>;

// What becomes of the statement "st".
enum Fate {
    Stays,
    GoesIfClosed, // when the operation says that it closed it
    Goes          // in any case: it was closed before
};

constexpr int AllocationsAtMost = 400; // far more than any operation makes

QByteArray failure(const QByteArray &what, const char *text)
{
    return what + ": " + QByteArray(text ? text : "no text");
}

// The rows, the bytes of their values, and the command tag.
QByteArray pageInWords(PGresult *page)
{
    int bytes = 0;
    for (int row = 0; row < PQntuples(page); ++row) {
        for (int column = 0; column < PQnfields(page); ++column) {
            bytes += PQgetlength(page, row, column);
        }
    }
    return QByteArray::number(PQntuples(page)) + " rows, " + QByteArray::number(bytes) +
           " bytes, '" + QByteArray(PQcmdStatus(page)) + "'";
}

QByteArray inWords(const PGconn *conn, PGresult *result)
{
    switch (PQresultStatus(result)) {
    case PGRES_TUPLES_OK:
        return pageInWords(result);
    case PGRES_COMMAND_OK:
        return "command '" + QByteArray(PQcmdStatus(result)) + "'";
    case PGRES_COPY_IN:
        return "copy";
    default:
        return result ? failure("error", PQresultErrorMessage(result))
                      : failure("null", PQerrorMessage(conn));
    }
}

QByteArray inWords(const PGconn *conn, int status)
{
    return status == 1 ? QByteArray("done") : failure("refused", PQerrorMessage(conn));
}

void command(const Scene &scene, const char *sql)
{
    const ResultPtr result(PQexec(scene.conn.get(), sql));
    QVERIFY2(PQresultStatus(result.get()) == PGRES_COMMAND_OK, PQerrorMessage(scene.conn.get()));
}

QByteArray value(const Scene &scene, const char *sql)
{
    const ResultPtr result(PQexec(scene.conn.get(), sql));
    return PQresultStatus(result.get()) == PGRES_TUPLES_OK
               ? QByteArray(PQgetvalue(result.get(), 0, 0))
               : QByteArray(PQresultErrorMessage(result.get()));
}

ResultPtr bindAndRun(const Scene &scene, int rows, const char *statement = "st")
{
    return ResultPtr(
        PPQexecPrepared(scene.conn.get(), rows, statement, "po", 0, nullptr, nullptr, nullptr, 0));
}

Operation firstPage(int rows, const char *statement = "st")
{
    return [rows, statement](Scene &scene) {
        const ResultPtr page = bindAndRun(scene, rows, statement);
        return inWords(scene.conn.get(), page.get());
    };
}

// A text, a null and a binary value, the first and the last of that many bytes.
Operation firstPageWithParameters(int bytes)
{
    return [bytes](Scene &scene) {
        const QByteArray text(bytes, 'x');
        const char *const values[] = {text.constData(), nullptr, text.constData()};
        const int lengths[] = {0, 0, bytes};
        const int formats[] = {0, 0, 1};
        const ResultPtr page(
            PPQexecPrepared(scene.conn.get(), 5, "st", "po", 3, values, lengths, formats, 1));
        return inWords(scene.conn.get(), page.get());
    };
}

Operation nextPage(int rows)
{
    return [rows](Scene &scene) {
        const ResultPtr page(PPQfetch(scene.conn.get(), rows, "po", scene.page.get()));
        return inWords(scene.conn.get(), page.get());
    };
}

Operation close(const char *portal, const char *statement)
{
    return [portal, statement](Scene &scene) {
        return inWords(scene.conn.get(), PPQclose(scene.conn.get(), portal, statement));
    };
}

QByteArray settle(Scene &scene)
{
    return inWords(scene.conn.get(), ppqSettle(scene.conn.get()));
}

QByteArray plainCommand(Scene &scene)
{
    const ResultPtr result(ppqExec(scene.conn.get(), "SELECT 'x'"));
    return inWords(scene.conn.get(), result.get());
}

QByteArray preparation(Scene &scene)
{
    const ResultPtr result(ppqPrepare(scene.conn.get(), "new", "SELECT 1"));
    return inWords(scene.conn.get(), result.get());
}

void nothing(Scene &)
{
}

void closeUnderWay(Scene &scene)
{
    QCOMPARE(PPQclose(scene.conn.get(), nullptr, "unknown"), 1);
}

void halfReadAndCloseUnderWay(Scene &scene)
{
    scene.page = bindAndRun(scene, 2);
    closeUnderWay(scene);
}

void halfRead(Scene &scene)
{
    scene.page = bindAndRun(scene, 2);
    QVERIFY2(PQntuples(scene.page.get()) == 2, PQerrorMessage(scene.conn.get()));
}

void readToTheEnd(Scene &scene)
{
    scene.page = bindAndRun(scene, 100);
    QCOMPARE(QByteArray(PQcmdStatus(scene.page.get())), QByteArray("SELECT 5"));
}

void portalClosed(Scene &scene)
{
    halfRead(scene);
    QCOMPARE(PPQclose(scene.conn.get(), "po", nullptr), 1);
}

void transactionFailed(Scene &scene)
{
    halfRead(scene);
    const ResultPtr result(PQexec(scene.conn.get(), "SELECT 1 / 0"));
    QCOMPARE(PQresultStatus(result.get()), PGRES_FATAL_ERROR);
}

// Leaves the answer that begins a copy unfetched.
Approach unfetchedCopy(const char *sql)
{
    return [sql](Scene &scene) { QVERIFY(PQsendQuery(scene.conn.get(), sql)); };
}

// Leaves a copy that has begun.
Approach begunCopy(const char *sql)
{
    return [sql](Scene &scene) { const ResultPtr begun(PQexec(scene.conn.get(), sql)); };
}

// Leaves an unfetched row that needs all of libpq's first input buffer but some bytes, and waits
// until that buffer can be filled at once.
void rowOfTheBuffersSizeUnderWay(Scene &scene)
{
    constexpr int BufferBytes = 16384;
    QVERIFY(PQsendQuery(scene.conn.get(), "SELECT repeat('x', 16365)"));
    const auto arrived = [&scene] {
        int bytes = 0;
        ioctl(PQsocket(scene.conn.get()), FIONREAD, &bytes);
        return bytes;
    };
    QTRY_VERIFY(arrived() >= BufferBytes);
}

} // namespace

Q_DECLARE_METATYPE(Approach)
Q_DECLARE_METATYPE(Operation)
Q_DECLARE_METATYPE(Fate)

class tst_LibPpqMemory : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();

    void oneAllocationFails_data() { operations(); }
    void oneAllocationFails() { failEachAllocation(FailingMemory::Once); }
    void allocationsFailFromThenOn_data() { operations(); }
    void allocationsFailFromThenOn() { failEachAllocation(FailingMemory::FromThenOn); }
    void closeOfPortalAloneNeedsNoMemory();
    void parametersWithoutRoomKeepTheConnection();

private:
    void operations() const;
    void pages() const;
    void pagesBehindSomethingElse() const;
    void laterPages() const;
    void closes() const;
    void closesThatTheServerFails() const;

    void failEachAllocation(FailingMemory::Extent extent);
    void failAllocation(int number, FailingMemory::Extent extent, bool *failed);
    Scene openScene(const QByteArray &statement) const;
    void verifyOutcome(const QByteArray &outcome) const;
    void verifyInStep(Scene &scene, bool closed) const;
    Approach halfReadFarAway() const;
    Approach failedClose() const;

    PgCluster cluster;
};

void tst_LibPpqMemory::initTestCase()
{
    QVERIFY2(cluster.start(), qPrintable(cluster.why()));
    cluster.run("CREATE TABLE numbers AS SELECT generate_series(1, 1000) AS a");
    cluster.run("CREATE FUNCTION noisy(i int) RETURNS text LANGUAGE plpgsql AS $$ BEGIN "
                "RAISE NOTICE 'row %', i; "
                "PERFORM set_config('application_name', 'row' || i, false); "
                "RETURN 'r' || i; END $$");
    // A foreign table's portal fails to close when its server's backend is gone.
    cluster.run("CREATE EXTENSION postgres_fdw");
    cluster.run(QStringLiteral("CREATE SERVER away FOREIGN DATA WRAPPER postgres_fdw OPTIONS "
                               "(host '%1', port '%2', dbname 'postgres')")
                    .arg(cluster.socketDir())
                    .arg(cluster.port()));
    cluster.run("CREATE USER MAPPING FOR dorvy SERVER away OPTIONS (user 'dorvy')");
    cluster.run("CREATE FOREIGN TABLE far (a int) SERVER away OPTIONS (table_name 'numbers')");
}

void tst_LibPpqMemory::operations() const
{
    QTest::addColumn<QByteArray>("statement");
    QTest::addColumn<Approach>("approach");
    QTest::addColumn<Operation>("operation");
    QTest::addColumn<QByteArray>("expected");
    QTest::addColumn<Fate>("fate");
    pages();
    pagesBehindSomethingElse();
    laterPages();
    closes();
    closesThatTheServerFails();
}

void tst_LibPpqMemory::pages() const
{
    const Approach none = nothing;
    const QByteArray five("SELECT generate_series(1, 5)");
    QTest::newRow("suspended page")
        << five << none << firstPage(3) << QByteArray("3 rows, 3 bytes, ''") << Stays;
    QTest::newRow("whole page") << five << none << firstPage(9)
                                << QByteArray("5 rows, 5 bytes, 'SELECT 5'") << Stays;
    QTest::newRow("page longer than the buffer")
        << QByteArray("SELECT repeat('x', 10000) FROM generate_series(1, 40)") << none
        << firstPage(128) << QByteArray("40 rows, 400000 bytes, 'SELECT 40'") << Stays;
    QTest::newRow("page of rows longer than the buffer")
        << QByteArray("SELECT repeat('x', 100000) FROM generate_series(1, 9)") << none
        << firstPage(4) << QByteArray("4 rows, 400000 bytes, ''") << Stays;
    QTest::newRow("page of many rows")
        << QByteArray("SELECT a FROM numbers") << none << firstPage(999)
        << QByteArray("999 rows, 2889 bytes, ''") << Stays;
    QTest::newRow("page of many rows, longer than the buffer")
        << QByteArray("SELECT a, repeat('x', 97), NULL FROM numbers") << none << firstPage(999)
        << QByteArray("999 rows, 99792 bytes, ''") << Stays;
    const QByteArray parameters("SELECT $1::text, $2::text, $3::bytea");
    QTest::newRow("short parameters") << parameters << none << firstPageWithParameters(3)
                                      << QByteArray("1 rows, 6 bytes, 'SELECT 1'") << Stays;
    QTest::newRow("parameters longer than the buffer")
        << parameters << none << firstPageWithParameters(50000)
        << QByteArray("1 rows, 100000 bytes, 'SELECT 1'") << Stays;
    QTest::newRow("copy") << QByteArray("COPY numbers FROM STDIN") << none << firstPage(5)
                          << QByteArray("copy") << Stays;
    QTest::newRow("without rows") << QByteArray("INSERT INTO numbers VALUES (1), (2)") << none
                                  << firstPage(5) << QByteArray("command 'INSERT 0 2'") << Stays;
    QTest::newRow("error") << QByteArray("SELECT 1 / (a - 1) FROM numbers") << none << firstPage(5)
                           << QByteArray("error: ERROR:  division by zero\n") << Stays;
    QTest::newRow("error, the first of the connection")
        << QByteArray() << none << firstPage(5)
        << QByteArray("error: ERROR:  prepared statement \"st\" does not exist\n") << Stays;
    QTest::newRow("error behind rows")
        << QByteArray("SELECT 1 / (a - 4) FROM numbers") << none << firstPage(5)
        << QByteArray("error: ERROR:  division by zero\n") << Stays;
    QTest::newRow("notices and parameters between rows")
        << QByteArray("SELECT noisy(g) FROM generate_series(1, 5) g") << none << firstPage(3)
        << QByteArray("3 rows, 6 bytes, ''") << Stays;
}

void tst_LibPpqMemory::pagesBehindSomethingElse() const
{
    const QByteArray five("SELECT generate_series(1, 5)");
    const QByteArray page("3 rows, 3 bytes, ''");
    QTest::newRow("behind the close of its portal")
        << five << Approach(portalClosed) << firstPage(3) << page << Stays;
    QTest::newRow("behind a close")
        << five << Approach(closeUnderWay) << firstPage(3) << page << Stays;
    QTest::newRow("behind a row of the buffer's size")
        << five << Approach(rowOfTheBuffersSizeUnderWay) << firstPage(3) << page << Stays;
    const char *const fromServer = "COPY (SELECT repeat('x', 20000)) TO STDOUT";
    QTest::newRow("behind an unfetched copy from the server")
        << five << unfetchedCopy(fromServer) << firstPage(3) << page << Stays;
    QTest::newRow("behind a copy from the server")
        << five << begunCopy(fromServer) << firstPage(3) << page << Stays;
    const char *const toServer = "COPY numbers FROM STDIN";
    const QByteArray aborted(
        "error: ERROR:  current transaction is aborted, commands ignored until "
        "end of transaction block\n");
    QTest::newRow("behind an unfetched copy to the server")
        << five << unfetchedCopy(toServer) << firstPage(3) << aborted << Stays;
    QTest::newRow("behind a copy to the server")
        << five << begunCopy(toServer) << firstPage(3) << aborted << Stays;
}

void tst_LibPpqMemory::laterPages() const
{
    const Approach half = halfRead;
    const Operation next = nextPage(5);
    QTest::newRow("later page, suspended") << QByteArray("SELECT generate_series(1, 9)") << half
                                           << next << QByteArray("5 rows, 5 bytes, ''") << Stays;
    QTest::newRow("later page behind a close")
        << QByteArray("SELECT generate_series(1, 9)") << Approach(halfReadAndCloseUnderWay) << next
        << QByteArray("5 rows, 5 bytes, ''") << Stays;
    QTest::newRow("later page, the last")
        << QByteArray("SELECT generate_series(1, 5)") << half << next
        << QByteArray("3 rows, 3 bytes, 'SELECT 3'") << Stays;
    QTest::newRow("later page longer than the buffer")
        << QByteArray("SELECT repeat('x', g * 10000) FROM generate_series(1, 9) g") << half << next
        << QByteArray("5 rows, 250000 bytes, ''") << Stays;
    QTest::newRow("later page of many rows, longer than the buffer")
        << QByteArray("SELECT repeat('x', 100), NULL FROM numbers") << half << nextPage(900)
        << QByteArray("900 rows, 90000 bytes, ''") << Stays;
    QTest::newRow("later page with a long description")
        << "SELECT " +
               QByteArray("a AS a_column_with_a_rather_long_name_of_its_own, ").repeated(99) +
               "a FROM numbers"
        << half << next << QByteArray("5 rows, 500 bytes, ''") << Stays;
    QTest::newRow("later page, error")
        << QByteArray("SELECT 1 / (a - 4) FROM numbers") << half << next
        << QByteArray("error: ERROR:  division by zero\n") << Stays;
    QTest::newRow("page behind the last")
        << QByteArray("SELECT generate_series(1, 5)") << Approach(readToTheEnd) << next
        << QByteArray("0 rows, 0 bytes, 'SELECT 0'") << Stays;
}

void tst_LibPpqMemory::closes() const
{
    const QByteArray five("SELECT generate_series(1, 5)");
    const QByteArray done("done");
    QTest::newRow("close statement")
        << five << Approach(halfRead) << close(nullptr, "st") << done << GoesIfClosed;
    QTest::newRow("close both") << five << Approach(halfRead) << close("po", "st") << done
                                << GoesIfClosed;
    QTest::newRow("close both behind the close of the portal")
        << five << Approach(portalClosed) << close("po", "st") << done << GoesIfClosed;
    QTest::newRow("close both behind a row of the buffer's size")
        << five << Approach(rowOfTheBuffersSizeUnderWay) << close("po", "st") << done
        << GoesIfClosed;
    QTest::newRow("close both in a failed transaction")
        << five << Approach(transactionFailed) << close("po", "st") << done << GoesIfClosed;
    QTest::newRow("close, the first of the connection")
        << QByteArray() << Approach(nothing) << close(nullptr, "st") << done << GoesIfClosed;
    QTest::newRow("command behind a close")
        << five << Approach(closeUnderWay) << Operation(plainCommand)
        << QByteArray("1 rows, 1 bytes, 'SELECT 1'") << Stays;
    QTest::newRow("preparation behind a close")
        << five << Approach(closeUnderWay) << Operation(preparation) << QByteArray("command ''")
        << Stays;
    QTest::newRow("close unknown")
        << five << Approach(nothing) << close("unknown", "unknown") << done << Stays;
}

void tst_LibPpqMemory::closesThatTheServerFails() const
{
    const QByteArray far("SELECT a FROM far");
    const QByteArray aborted(
        "error: ERROR:  current transaction is aborted, commands ignored until "
        "end of transaction block\n");
    QTest::newRow("close that fails")
        << far << halfReadFarAway() << close("po", "st") << QByteArray("done") << GoesIfClosed;
    QTest::newRow("failed close, settled")
        << far << failedClose() << Operation(settle) << QByteArray("done") << Goes;
    QTest::newRow("failed close, then another")
        << far << failedClose() << close(nullptr, "unknown") << QByteArray("done") << Goes;
    QTest::newRow("failed close, then a page")
        << far << failedClose() << firstPage(5, "other") << aborted << Goes;
    QTest::newRow("failed close, then a command")
        << far << failedClose() << Operation(plainCommand) << aborted << Goes;
}

// A page of a foreign table whose server has gone.
Approach tst_LibPpqMemory::halfReadFarAway() const
{
    return [this](Scene &scene) {
        halfRead(scene);
        // One of an earlier connection may be on its way out beside it.
        const QString backends("SELECT pid FROM pg_stat_activity WHERE application_name = "
                               "'postgres_fdw'");
        for (const QString &backend : cluster.run(backends)) {
            cluster.terminate(backend.toInt());
        }
    };
}

Approach tst_LibPpqMemory::failedClose() const
{
    return [this](Scene &scene) {
        halfReadFarAway()(scene);
        QCOMPARE(PPQclose(scene.conn.get(), "po", "st"), 1);
    };
}

// With the statement, in a transaction; without one nothing has been sent yet.
Scene tst_LibPpqMemory::openScene(const QByteArray &statement) const
{
    Scene scene;
    scene.conn.reset(PQconnectdb(cluster.conninfo().constData()));
    PQsetNoticeReceiver(
        scene.conn.get(), [](void *, const PGresult *) {}, nullptr);
    if (!statement.isEmpty()) {
        const ResultPtr result(
            PQprepare(scene.conn.get(), "st", statement.constData(), 0, nullptr));
        const ResultPtr other(PQprepare(scene.conn.get(), "other", "SELECT 1", 0, nullptr));
        command(scene, "BEGIN");
    }
    return scene;
}

// Where the operation does not do what it does with memory, it says that there is none; of the
// server's error the severity may be lost.
void tst_LibPpqMemory::verifyOutcome(const QByteArray &outcome) const
{
    QFETCH(QByteArray, expected);
    const QByteArray withoutSeverity = QByteArray(expected).replace("ERROR:  ", "");
    QVERIFY2(outcome == expected || outcome == withoutSeverity || outcome.contains("memory"),
             outcome.constData());
    // What came behind is not taken for something else.
    QVERIFY2(!outcome.contains("unexpected"), outcome.constData());
}

// The next query has its own answer, and what is open can be closed by its name.
void tst_LibPpqMemory::verifyInStep(Scene &scene, bool closed) const
{
    if (!closed) {
        QCOMPARE(PPQclose(scene.conn.get(), "po", "st"), 1);
    }
    QCOMPARE(ppqSettle(scene.conn.get()), 1);
    command(scene, "ROLLBACK");
    QCOMPARE(value(scene, "SELECT 'its own'"), QByteArray("its own"));
    QCOMPARE(value(scene, "SELECT count(*) FROM pg_prepared_statements WHERE name = 'st'"),
             QByteArray("0"));
}

// The operation with the allocation of that number failing; tells in failed whether there was one.
void tst_LibPpqMemory::failAllocation(int number, FailingMemory::Extent extent, bool *failed)
{
    QFETCH(QByteArray, statement);
    QFETCH(Approach, approach);
    QFETCH(Operation, operation);
    QFETCH(QByteArray, expected);
    QFETCH(Fate, fate);
    Scene scene = openScene(statement);
    approach(scene);
    QByteArray outcome;
    {
        const FailingMemory memory(number, extent);
        outcome = operation(scene);
        *failed = memory.hasFailed();
    }
    verifyOutcome(outcome);
    if (PQstatus(scene.conn.get()) == CONNECTION_OK) {
        verifyInStep(scene, fate == Goes || (fate == GoesIfClosed && outcome == expected));
    }
    if (!*failed) {
        QCOMPARE(outcome, expected);
    }
}

void tst_LibPpqMemory::failEachAllocation(FailingMemory::Extent extent)
{
    bool failed = true;
    int number = 0;
    while (failed && number < AllocationsAtMost) {
        failAllocation(++number, extent, &failed);
        QVERIFY2(!QTest::currentTestFailed(), qPrintable(QString::number(number)));
    }
    QVERIFY(number > 1); // one has failed
    QVERIFY(!failed);
}

void tst_LibPpqMemory::closeOfPortalAloneNeedsNoMemory()
{
    Scene scene = openScene("SELECT generate_series(1, 5)");
    halfRead(scene);
    {
        const FailingMemory memory(1, FailingMemory::FromThenOn);
        QCOMPARE(PPQclose(scene.conn.get(), "po", nullptr), 1);
        QVERIFY(!memory.hasFailed());
    }
    QCOMPARE(value(scene, "SELECT count(*) FROM pg_cursors"), QByteArray("0"));
}

void tst_LibPpqMemory::parametersWithoutRoomKeepTheConnection()
{
    Scene scene = openScene("SELECT $1::text, $2::text, $3::bytea");
    {
        const FailingMemory memory(1, FailingMemory::FromThenOn);
        QCOMPARE(firstPageWithParameters(50000)(scene),
                 QByteArray("null: cannot allocate memory for output buffer\n"));
    }
    QCOMPARE(PQtransactionStatus(scene.conn.get()), PQTRANS_INTRANS); // nothing was sent
    QCOMPARE(firstPageWithParameters(3)(scene), QByteArray("1 rows, 6 bytes, 'SELECT 1'"));
}

QTEST_GUILESS_MAIN(tst_LibPpqMemory)
#include "tst_libppq_memory.moc"
