// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The client extension against a real server, its words recorded on the wire.
#include "client/libppq.h"
#include "client/ppqsettle.h"

#include "tests/support/libpqowners.h"
#include "tests/support/pgcluster.h"
#include "tests/support/wireproxy.h"

#include <QtTest/QtTest>

#include <memory>

namespace {

using ConnectionPtr = RawConnectionPtr;

QByteArray value(const ResultPtr &result, int row, int column = 0)
{
    return QByteArray(PQgetvalue(result.get(), row, column),
                      PQgetlength(result.get(), row, column));
}

bool isSuspended(const ResultPtr &result)
{
    return PQresultStatus(result.get()) == PGRES_TUPLES_OK && *PQcmdStatus(result.get()) == '\0';
}

// The rows of a last page and what ran; of a statement without rows the whole command tag. (What a
// last page's tag counts depends on the server's version.)
QByteArray endInWords(const ResultPtr &result)
{
    const ExecStatusType status = PQresultStatus(result.get());
    if (status != PGRES_TUPLES_OK && status != PGRES_COMMAND_OK) {
        return PQresStatus(status);
    }
    const QByteArray tag = PQcmdStatus(result.get());
    return status == PGRES_COMMAND_OK
               ? tag
               : QByteArray::number(PQntuples(result.get())) + ' ' + tag.split(' ').first();
}

} // namespace

class tst_LibPpq : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void cleanupTestCase();

    void walkInPages();
    void exactPage();
    void exhaustedFetchSendsNothing();
    void pageHasDescriptionAndFormat();
    void rowsFullOfTypeBytes();
    void rowsLongerThanTheBuffer();
    void parametersTextBinaryAndNull();
    void parametersWithoutFormats();
    void statementWithoutRows();
    void errorInFirstPage();
    void errorInLaterPage();
    void errorAfterRowsReplacesThem();
    void noticesAndParametersBetweenRows();
    void statementsOfEveryKind_data();
    void statementsOfEveryKind();

    void closeDoesNotWait();
    void closeSharesTheNextSync();
    void closeOfPortalAloneIsSentByAnyCall();
    void closeOfUnknownNames();
    void closesInARow();
    void closeLeavesNothing();
    void closeKeepsStandardCallsWorking();
    void closeEndsCopyIn();
    void closeEndsCopyOut();
    void failedCloseLosesNothing_data();
    void failedCloseLosesNothing();
    void settleLeavesCopiesAlone();
    void settleWithoutConnection();

    void misuseNull();
    void misuseNames_data();
    void misuseNames();
    void misuseParameters();
    void misusePipeline();
    void misuseLostConnection();
    void misuseFetchFromNoPage();
    void outOfRangePrintsNothing();
    void lostConnectionHasNoResult_data();
    void lostConnectionHasNoResult();
    void terminatedBackendHasNoResult();
    void nonblockingConnection();

private:
    ConnectionPtr connect() const;
    ResultPtr run(const char *sql) const { return ResultPtr(PQexec(conn.get(), sql)); }
    void prepare(const char *sql, const char *name = "st");
    ResultPtr start(int rows, const char *statement = "st", const char *portal = "po") const
    {
        return ResultPtr(
            PPQexecPrepared(conn.get(), rows, statement, portal, 0, nullptr, nullptr, nullptr, 0));
    }
    ResultPtr fetch(int rows, const ResultPtr &previous, const char *portal = "po") const
    {
        return ResultPtr(PPQfetch(conn.get(), rows, portal, previous.get()));
    }

    PgCluster cluster;
    std::unique_ptr<WireProxy> proxy;
    ConnectionPtr conn;
};

void tst_LibPpq::initTestCase()
{
    QVERIFY2(cluster.start(), qPrintable(cluster.why()));
    proxy.reset(new WireProxy(cluster.socketDir(), cluster.port()));
}

void tst_LibPpq::cleanupTestCase()
{
    proxy.reset();
}

ConnectionPtr tst_LibPpq::connect() const
{
    return ConnectionPtr(PQconnectdb(proxy->conninfo().constData()));
}

void tst_LibPpq::init()
{
    conn = connect();
    QCOMPARE(PQstatus(conn.get()), CONNECTION_OK);
    // A named portal lives until the end of its transaction.
    QCOMPARE(PQresultStatus(run("BEGIN").get()), PGRES_COMMAND_OK);
    proxy->clear();
}

void tst_LibPpq::cleanup()
{
    proxy->holdReplies(false);
    conn.reset();
}

void tst_LibPpq::prepare(const char *sql, const char *name)
{
    const ResultPtr result(PQprepare(conn.get(), name, sql, 0, nullptr));
    QVERIFY2(PQresultStatus(result.get()) == PGRES_COMMAND_OK, PQerrorMessage(conn.get()));
    proxy->clear();
}

void tst_LibPpq::walkInPages()
{
    prepare("SELECT generate_series(1, 5)");
    const ResultPtr first = start(2);
    QCOMPARE(PQresultStatus(first.get()), PGRES_TUPLES_OK);
    QCOMPARE(PQntuples(first.get()), 2);
    QCOMPARE(QByteArray(PQcmdStatus(first.get())), QByteArray());
    const ResultPtr second = fetch(2, first);
    QCOMPARE(PQntuples(second.get()), 2);
    QCOMPARE(value(second, 0), QByteArray("3"));
    const ResultPtr third = fetch(2, second);
    QCOMPARE(PQresultStatus(third.get()), PGRES_TUPLES_OK);
    QCOMPARE(PQntuples(third.get()), 1);
    QCOMPARE(value(third, 0), QByteArray("5"));
    QCOMPARE(QByteArray(PQcmdStatus(third.get())), QByteArray("SELECT 1"));
    const QStringList expected{"2> Bind \"po\" \"st\" [] 0",
                               "2> Describe P \"po\"",
                               "2> Execute \"po\" 2",
                               "2> Sync",
                               "2< BindComplete",
                               "2< RowDescription 1",
                               "2< DataRow x2",
                               "2< PortalSuspended",
                               "2< ReadyForQuery T",
                               "2> Execute \"po\" 2",
                               "2> Sync",
                               "2< DataRow x2",
                               "2< PortalSuspended",
                               "2< ReadyForQuery T",
                               "2> Execute \"po\" 2",
                               "2> Sync",
                               "2< DataRow x1",
                               "2< CommandComplete \"SELECT 1\"",
                               "2< ReadyForQuery T"};
    const QString own = QString::number(proxy->connectionCount());
    QStringList numbered = expected;
    numbered.replaceInStrings(QRegularExpression("^2"), own);
    QCOMPARE(proxy->conversation(), numbered);
}

void tst_LibPpq::exactPage()
{
    prepare("SELECT generate_series(1, 4)");
    const ResultPtr first = start(4);
    QCOMPARE(PQntuples(first.get()), 4);
    QCOMPARE(QByteArray(PQcmdStatus(first.get())), QByteArray());
    // A suspended page asks the server, also when nothing is left.
    const ResultPtr second = fetch(4, first);
    QCOMPARE(PQresultStatus(second.get()), PGRES_TUPLES_OK);
    QCOMPARE(PQntuples(second.get()), 0);
    QCOMPARE(PQnfields(second.get()), 1);
    QCOMPARE(QByteArray(PQcmdStatus(second.get())), QByteArray("SELECT 0"));
}

void tst_LibPpq::exhaustedFetchSendsNothing()
{
    prepare("SELECT generate_series(1, 3)");
    const ResultPtr first = start(10);
    QCOMPARE(QByteArray(PQcmdStatus(first.get())), QByteArray("SELECT 3"));
    proxy->clear();
    const ResultPtr second = fetch(10, first);
    QCOMPARE(PQresultStatus(second.get()), PGRES_TUPLES_OK);
    QCOMPARE(PQntuples(second.get()), 0);
    QCOMPARE(PQnfields(second.get()), 1);
    QCOMPARE(QByteArray(PQcmdStatus(second.get())),
             QByteArray("SELECT 0")); // the server's own words
    QCOMPARE(QByteArray(PQcmdStatus(first.get())), QByteArray("SELECT 3")); // untouched
    const ResultPtr third = fetch(10, second);
    QCOMPARE(PQresultStatus(third.get()), PGRES_TUPLES_OK);
    QCOMPARE(PQntuples(third.get()), 0);
    QCOMPARE(proxy->conversation(), QStringList());
}

void tst_LibPpq::pageHasDescriptionAndFormat()
{
    prepare("SELECT g AS number, 'x'::varchar(7) AS word FROM generate_series(1, 3) g");
    const ResultPtr first(
        PPQexecPrepared(conn.get(), 2, "st", "po", 0, nullptr, nullptr, nullptr, 1));
    const ResultPtr second = fetch(2, first);
    for (const ResultPtr *page : {&first, &second}) {
        QCOMPARE(PQbinaryTuples(page->get()), 1);
        QCOMPARE(PQnfields(page->get()), 2);
        QCOMPARE(QByteArray(PQfname(page->get(), 0)), QByteArray("number"));
        QCOMPARE(QByteArray(PQfname(page->get(), 1)), QByteArray("word"));
        QCOMPARE(PQftype(page->get(), 0), Oid(23));
        QCOMPARE(PQftype(page->get(), 1), Oid(1043));
        QCOMPARE(PQfsize(page->get(), 0), 4);
        QCOMPARE(PQfmod(page->get(), 1), 11);
    }
    QCOMPARE(value(second, 0), QByteArray("\0\0\0\3", 4));
}

void tst_LibPpq::rowsFullOfTypeBytes()
{
    // What looks like PortalSuspended, EmptyQueryResponse and ReadyForQuery inside the rows.
    prepare("SELECT decode('730000000449000000045a0000000549730000000473', 'hex') "
            "FROM generate_series(1, 300)");
    const QByteArray bytes = QByteArray::fromHex("730000000449000000045a0000000549730000000473");
    ResultPtr page(PPQexecPrepared(conn.get(), 128, "st", "po", 0, nullptr, nullptr, nullptr, 1));
    int rows = 0;
    while (PQntuples(page.get()) > 0) {
        for (int row = 0; row < PQntuples(page.get()); ++row) {
            QCOMPARE(value(page, row), bytes);
            ++rows;
        }
        page = fetch(128, page);
        QCOMPARE(PQresultStatus(page.get()), PGRES_TUPLES_OK);
    }
    QCOMPARE(rows, 300);
}

void tst_LibPpq::rowsLongerThanTheBuffer()
{
    prepare("SELECT repeat('s', 300000) || g FROM generate_series(1, 9) g");
    ResultPtr page = start(4);
    int rows = 0;
    while (PQntuples(page.get()) > 0) {
        for (int row = 0; row < PQntuples(page.get()); ++row) {
            ++rows;
            QCOMPARE(value(page, row), QByteArray(300000, 's') + QByteArray::number(rows));
        }
        page = fetch(4, page);
        QCOMPARE(PQresultStatus(page.get()), PGRES_TUPLES_OK);
    }
    QCOMPARE(rows, 9);
}

void tst_LibPpq::parametersTextBinaryAndNull()
{
    prepare("SELECT $1::int + 1, $2::int, $3::text, $4::bytea");
    const char number[] = {0, 0, 0, 41};
    const char *values[] = {number, "17", nullptr, "a\0b"};
    const int lengths[] = {4, 0, 0, 3};
    const int formats[] = {1, 0, 1, 1};
    const ResultPtr page(
        PPQexecPrepared(conn.get(), 5, "st", "po", 4, values, lengths, formats, 0));
    QCOMPARE(PQresultStatus(page.get()), PGRES_TUPLES_OK);
    QCOMPARE(value(page, 0, 0), QByteArray("42"));
    QCOMPARE(value(page, 0, 1), QByteArray("17"));
    QCOMPARE(PQgetisnull(page.get(), 0, 2), 1);
    QCOMPARE(value(page, 0, 3), QByteArray("\\x610062"));
    QVERIFY(proxy->frontend().first().endsWith(
        "Bind \"po\" \"st\" [00000029:1, 3137:0, NULL:1, 610062:1] 0"));
}

void tst_LibPpq::parametersWithoutFormats()
{
    prepare("SELECT $1::int");
    const char *values[] = {"5"};
    const ResultPtr page(
        PPQexecPrepared(conn.get(), 5, "st", "po", 1, values, nullptr, nullptr, 0));
    QCOMPARE(value(page, 0), QByteArray("5"));
}

void tst_LibPpq::statementWithoutRows()
{
    prepare("CREATE TEMPORARY TABLE t AS SELECT 1 AS a");
    const ResultPtr result = start(5);
    QCOMPARE(PQresultStatus(result.get()), PGRES_COMMAND_OK);
    QCOMPARE(PQnfields(result.get()), 0);
    QCOMPARE(QByteArray(PQcmdTuples(result.get())), QByteArray("1"));
}

void tst_LibPpq::errorInFirstPage()
{
    prepare("SELECT 1 / (g - 2) FROM generate_series(1, 9) g");
    const ResultPtr page = start(5);
    QCOMPARE(PQresultStatus(page.get()), PGRES_FATAL_ERROR);
    QCOMPARE(QByteArray(PQresultErrorField(page.get(), PG_DIAG_SQLSTATE)), QByteArray("22012"));
    QCOMPARE(QByteArray(PQresultErrorMessage(page.get())),
             QByteArray("ERROR:  division by zero\n"));
    QCOMPARE(PQtransactionStatus(conn.get()), PQTRANS_INERROR);
}

void tst_LibPpq::errorInLaterPage()
{
    prepare("SELECT 1 / (g - 4) FROM generate_series(1, 9) g");
    const ResultPtr first = start(2);
    QCOMPARE(PQntuples(first.get()), 2);
    const ResultPtr second = fetch(2, first);
    QCOMPARE(PQresultStatus(second.get()), PGRES_FATAL_ERROR);
    QCOMPARE(QByteArray(PQresultErrorMessage(second.get())),
             QByteArray("ERROR:  division by zero\n"));
    QCOMPARE(PQntuples(first.get()), 2); // the page before is untouched
    QCOMPARE(PQtransactionStatus(conn.get()), PQTRANS_INERROR);
}

void tst_LibPpq::errorAfterRowsReplacesThem()
{
    cluster.run("CREATE TABLE deferred (a int UNIQUE DEFERRABLE INITIALLY DEFERRED)");
    QCOMPARE(PQresultStatus(run("COMMIT").get()), PGRES_COMMAND_OK);
    prepare("INSERT INTO deferred VALUES (1), (1) RETURNING a");
    const ResultPtr page = start(5);
    QCOMPARE(PQresultStatus(page.get()), PGRES_FATAL_ERROR); // from the commit that Sync implies
    QCOMPARE(QByteArray(PQresultErrorField(page.get(), PG_DIAG_SQLSTATE)), QByteArray("23505"));
    QCOMPARE(PQtransactionStatus(conn.get()), PQTRANS_IDLE);
    cluster.run("DROP TABLE deferred");
}

void tst_LibPpq::noticesAndParametersBetweenRows()
{
    cluster.run("CREATE FUNCTION noisy(i int) RETURNS text LANGUAGE plpgsql AS $$ BEGIN "
                "RAISE NOTICE 'row %', i; "
                "PERFORM set_config('application_name', 'row' || i, false); "
                "RETURN 'r' || i; END $$");
    int notices = 0;
    PQsetNoticeReceiver(
        conn.get(), [](void *count, const PGresult *) { ++*static_cast<int *>(count); }, &notices);
    prepare("SELECT noisy(g) FROM generate_series(1, 5) g");
    const ResultPtr first = start(3);
    QCOMPARE(PQntuples(first.get()), 3);
    const ResultPtr second = fetch(3, first);
    QCOMPARE(PQntuples(second.get()), 2);
    QCOMPARE(value(second, 1), QByteArray("r5"));
    QCOMPARE(notices, 5);
    QCOMPARE(QByteArray(PQparameterStatus(conn.get(), "application_name")), QByteArray("row5"));
    cluster.run("DROP FUNCTION noisy(int)");
}

void tst_LibPpq::statementsOfEveryKind_data()
{
    QTest::addColumn<QByteArray>("sql");
    QTest::addColumn<QByteArray>("walked"); // the rows of each page of two, and its end
    const auto add = [](const char *tag, const char *sql, const char *walked) {
        QTest::newRow(tag) << QByteArray(sql) << QByteArray(walked);
    };
    add("select, one row", "SELECT 1", "1 SELECT");
    add("select, no row", "SELECT 1 WHERE false", "0 SELECT");
    add("select, no column", "SELECT FROM generate_series(1, 3)", "2 1 SELECT");
    add("values", "VALUES (1), (2), (3)", "2 1 SELECT");
    add("for update", "SELECT a FROM kinds FOR UPDATE", "2 1 SELECT");
    add("insert returning", "INSERT INTO kinds VALUES (4), (5), (6) RETURNING a", "2 1 INSERT");
    add("insert returning, exact page", "INSERT INTO kinds VALUES (4), (5) RETURNING a",
        "2 0 INSERT");
    add("update returning", "UPDATE kinds SET a = a RETURNING a", "2 1 UPDATE");
    add("delete returning", "DELETE FROM kinds WHERE a = 1 RETURNING a", "1 DELETE");
    add("data-modifying with", "WITH d AS (DELETE FROM kinds RETURNING a) SELECT a FROM d",
        "2 1 SELECT");
    add("show", "SHOW server_encoding", "1 SHOW");
    add("explain", "EXPLAIN (COSTS OFF) SELECT a FROM kinds ORDER BY a", "2 1 EXPLAIN");
    add("fetch", "FETCH 3 FROM cur", "2 1 FETCH");
    add("fetch, no row", "FETCH 0 FROM cur", "0 FETCH");
    add("execute", "EXECUTE three", "2 1 SELECT");
    if (cluster.major() >= 11) { // the first with procedures
        add("call with an output", "CALL pg_temp.answer(1)", "1 CALL");
    }
    add("rule instead of an insert", "INSERT INTO ruled VALUES (1) RETURNING a", "1 INSERT");

    add("insert", "INSERT INTO kinds VALUES (7), (8)", "INSERT 0 2");
    add("insert that a rule drops", "INSERT INTO mute VALUES (1)", "INSERT 0 0");
    add("insert that a rule answers", "INSERT INTO chatty VALUES (1)", "INSERT 0 1");
    add("move", "MOVE 2 FROM cur", "MOVE 2");
    add("do with notices", "DO 'BEGIN RAISE NOTICE ''a''; RAISE NOTICE ''b''; END'", "DO");
    add("notify", "NOTIFY kinds", "NOTIFY");
    add("set that is reported", "SET application_name = 'kinds'", "SET");
    add("set up a cursor", "DECLARE other CURSOR FOR SELECT 1", "DECLARE CURSOR");
    add("empty", "", "PGRES_EMPTY_QUERY");
    add("comment", "-- nothing", "PGRES_EMPTY_QUERY");
}

void tst_LibPpq::statementsOfEveryKind()
{
    QFETCH(QByteArray, sql);
    QFETCH(QByteArray, walked);
    PQsetNoticeReceiver(
        conn.get(), [](void *, const PGresult *) {}, nullptr);
    run("CREATE TEMPORARY TABLE kinds AS SELECT generate_series(1, 3) AS a; "
        "CREATE TEMPORARY TABLE mute (a int); "
        "CREATE RULE r AS ON INSERT TO mute DO INSTEAD NOTHING; "
        "CREATE TEMPORARY TABLE chatty (a int); "
        "CREATE RULE r AS ON INSERT TO chatty DO ALSO SELECT generate_series(1, 5); "
        "CREATE TEMPORARY TABLE ruled (a int); "
        "CREATE RULE r AS ON INSERT TO ruled DO INSTEAD "
        "INSERT INTO kinds VALUES (new.a) RETURNING a; "
        "PREPARE three AS SELECT generate_series(1, 3); "
        "DECLARE cur CURSOR FOR SELECT a FROM kinds; "
        "LISTEN kinds");
    if (sql.startsWith("CALL")) {
        run("CREATE PROCEDURE pg_temp.answer(INOUT a int) LANGUAGE sql AS 'SELECT 42'");
    }
    prepare(sql.constData());
    QByteArray seen;
    ResultPtr page = start(2);
    while (isSuspended(page)) {
        seen += QByteArray::number(PQntuples(page.get())) + ' ';
        page = fetch(2, page);
    }
    seen += endInWords(page);
    QCOMPARE(seen, walked);
    QCOMPARE(PQresultStatus(run("COMMIT").get()), PGRES_COMMAND_OK);
}

void tst_LibPpq::closeDoesNotWait()
{
    prepare("SELECT generate_series(1, 9)");
    start(2);
    proxy->clear();
    proxy->holdReplies(true);
    QElapsedTimer timer;
    timer.start();
    QCOMPARE(PPQclose(conn.get(), "po", "st"), 1);
    QVERIFY(timer.elapsed() < 1000);
    const QString own = QString::number(proxy->connectionCount());
    QVERIFY(proxy->waitForLine(own + "< ReadyForQuery T")); // held back by the proxy
    QCOMPARE(PQtransactionStatus(conn.get()), PQTRANS_ACTIVE);
    proxy->holdReplies(false);
    QCOMPARE(value(run("SELECT 'next'"), 0), QByteArray("next"));
    QCOMPARE(proxy->frontend(), QStringList({own + "> Close P \"po\"", own + "> Close S \"st\"",
                                             own + "> Sync", own + "> Query \"SELECT 'next'\""}));
}

void tst_LibPpq::closeSharesTheNextSync()
{
    prepare("SELECT generate_series(1, 9)");
    start(2);
    proxy->clear();
    QCOMPARE(PPQclose(conn.get(), "po", nullptr), 1);
    const ResultPtr again = start(2);
    QCOMPARE(value(again, 0), QByteArray("1"));
    const QString own = QString::number(proxy->connectionCount());
    QCOMPARE(
        proxy->conversation(),
        QStringList({own + "> Close P \"po\"", own + "> Bind \"po\" \"st\" [] 0",
                     own + "> Describe P \"po\"", own + "> Execute \"po\" 2", own + "> Sync",
                     own + "< CloseComplete", own + "< BindComplete", own + "< RowDescription 1",
                     own + "< DataRow x2", own + "< PortalSuspended", own + "< ReadyForQuery T"}));
    const int chunk = proxy->messages().first().chunk;
    for (int i = 0; i < 5; ++i) {
        QCOMPARE(proxy->messages().at(i).chunk, chunk); // one write
    }
}

void tst_LibPpq::closeOfPortalAloneIsSentByAnyCall()
{
    prepare("SELECT generate_series(1, 9)");
    start(2);
    proxy->clear();
    QCOMPARE(PPQclose(conn.get(), "po", nullptr), 1);
    QCOMPARE(value(run("SELECT 'next'"), 0), QByteArray("next"));
    const QString own = QString::number(proxy->connectionCount());
    QCOMPARE(proxy->conversation(),
             QStringList({own + "> Close P \"po\"", own + "> Sync", own + "< CloseComplete",
                          own + "< ReadyForQuery T", own + "> Query \"SELECT 'next'\"",
                          own + "< RowDescription 1", own + "< DataRow x1",
                          own + "< CommandComplete \"SELECT 1\"", own + "< ReadyForQuery T"}));
}

void tst_LibPpq::closeOfUnknownNames()
{
    QCOMPARE(PPQclose(conn.get(), "nobody", "nothing"), 1);
    QCOMPARE(PQresultStatus(run("SELECT 1").get()), PGRES_TUPLES_OK);
    QCOMPARE(PQtransactionStatus(conn.get()), PQTRANS_INTRANS);
    QCOMPARE(PPQclose(conn.get(), nullptr, nullptr), 1);
    QCOMPARE(PQtransactionStatus(conn.get()), PQTRANS_INTRANS); // nothing was sent
}

void tst_LibPpq::closesInARow()
{
    int complaints = 0;
    PQsetNoticeReceiver(
        conn.get(), [](void *count, const PGresult *) { ++*static_cast<int *>(count); },
        &complaints);
    for (int i = 0; i < 20; ++i) {
        prepare("SELECT 1");
        start(1);
        QCOMPARE(PPQclose(conn.get(), "po", nullptr), 1);
        QCOMPARE(PPQclose(conn.get(), "po", "st"), 1);
        QCOMPARE(PPQclose(conn.get(), nullptr, "st"), 1);
    }
    QCOMPARE(PQresultStatus(run("SELECT 1").get()), PGRES_TUPLES_OK);
    QCOMPARE(complaints, 0);
}

void tst_LibPpq::closeLeavesNothing()
{
    prepare("SELECT generate_series(1, 9)");
    start(2);
    const char *count = "SELECT (SELECT count(*) FROM pg_prepared_statements) || ' ' || "
                        "(SELECT count(*) FROM pg_cursors WHERE name = 'po')";
    QCOMPARE(value(run(count), 0), QByteArray("1 1"));
    PPQclose(conn.get(), "po", nullptr);
    QCOMPARE(value(run(count), 0), QByteArray("1 0"));
    PPQclose(conn.get(), nullptr, "st");
    QCOMPARE(value(run(count), 0), QByteArray("0 0"));
}

void tst_LibPpq::closeKeepsStandardCallsWorking()
{
    prepare("SELECT generate_series(1, 9)");
    start(2);
    PPQclose(conn.get(), "po", "st");
    const ResultPtr prepared(PQprepare(conn.get(), "other", "SELECT 'two'", 0, nullptr));
    QCOMPARE(PQresultStatus(prepared.get()), PGRES_COMMAND_OK);
    PPQclose(conn.get(), "po", "st");
    const ResultPtr described(PQdescribePrepared(conn.get(), "other"));
    QCOMPARE(PQnfields(described.get()), 1);
    PPQclose(conn.get(), "po", "st");
    const ResultPtr executed(PQexecPrepared(conn.get(), "other", 0, nullptr, nullptr, nullptr, 0));
    QCOMPARE(value(executed, 0), QByteArray("two"));
    PPQclose(conn.get(), "po", "st");
    QCOMPARE(value(start(2, "other", "otherportal"), 0), QByteArray("two"));
    PPQclose(conn.get(), "po", "st");
    QVERIFY(PQgetResult(conn.get()) == nullptr);
    QCOMPARE(PQtransactionStatus(conn.get()), PQTRANS_INTRANS);
}

void tst_LibPpq::closeEndsCopyIn()
{
    run("CREATE TEMPORARY TABLE c (a int)");
    prepare("SELECT 1");
    QCOMPARE(PQresultStatus(run("COPY c FROM STDIN").get()), PGRES_COPY_IN);
    QCOMPARE(PPQclose(conn.get(), "po", "st"), 1);
    QCOMPARE(PQresultStatus(run("ROLLBACK").get()), PGRES_COMMAND_OK);
    QCOMPARE(PQresultStatus(run("EXECUTE st").get()), PGRES_FATAL_ERROR); // it was closed
}

void tst_LibPpq::closeEndsCopyOut()
{
    QCOMPARE(PQresultStatus(run("COPY (SELECT generate_series(1, 5)) TO STDOUT").get()),
             PGRES_COPY_OUT);
    QCOMPARE(PPQclose(conn.get(), "po", "st"), 1);
    QCOMPARE(value(run("SELECT 'next'"), 0), QByteArray("next"));
    QCOMPARE(PQtransactionStatus(conn.get()), PQTRANS_INTRANS);
}

void tst_LibPpq::failedCloseLosesNothing_data()
{
    QTest::addColumn<bool>("settle");
    QTest::newRow("settled before libpq's own calls") << true;
    QTest::newRow("followed by a portal operation") << false;
}

void tst_LibPpq::failedCloseLosesNothing()
{
    QFETCH(bool, settle);
    // A foreign table's portal fails to close when its server is gone.
    PgCluster remote;
    QVERIFY2(remote.start(), qPrintable(remote.why()));
    remote.run("CREATE TABLE far AS SELECT generate_series(1, 100000) AS a");
    run("ROLLBACK");
    run("CREATE EXTENSION postgres_fdw");
    const QByteArray server =
        QStringLiteral("CREATE SERVER away FOREIGN DATA WRAPPER postgres_fdw OPTIONS "
                       "(host '%1', port '%2', dbname 'postgres')")
            .arg(remote.socketDir())
            .arg(remote.port())
            .toLatin1();
    run(server.constData());
    run("CREATE USER MAPPING FOR dorvy SERVER away OPTIONS (user 'dorvy')");
    run("CREATE FOREIGN TABLE far (a int) SERVER away");
    prepare("SELECT a FROM far");
    QCOMPARE(PQresultStatus(run("BEGIN").get()), PGRES_COMMAND_OK);
    const ResultPtr page = start(2);
    QVERIFY2(PQntuples(page.get()) == 2, PQerrorMessage(conn.get()));
    remote.stop("immediate");
    QCOMPARE(PPQclose(conn.get(), "po", "st"), 1);
    if (settle) {
        QCOMPARE(ppqSettle(conn.get()), 1);
        QCOMPARE(PQtransactionStatus(conn.get()), PQTRANS_INERROR);
    } else {
        QCOMPARE(PPQclose(conn.get(), nullptr, "other"), 1); // takes the answer in likewise
    }
    QCOMPARE(PQresultStatus(run("ROLLBACK").get()), PGRES_COMMAND_OK);
    QCOMPARE(PQtransactionStatus(conn.get()), PQTRANS_IDLE);
    QCOMPARE(value(run("SELECT count(*) FROM pg_prepared_statements"), 0), QByteArray("0"));
    run("DROP EXTENSION postgres_fdw CASCADE");
}

void tst_LibPpq::settleLeavesCopiesAlone()
{
    QCOMPARE(PQresultStatus(run("COPY (SELECT 1) TO STDOUT").get()), PGRES_COPY_OUT);
    QCOMPARE(ppqSettle(conn.get()), 1);
    QCOMPARE(PQtransactionStatus(conn.get()), PQTRANS_ACTIVE);
    char *line = nullptr;
    QCOMPARE(PQgetCopyData(conn.get(), &line, 0), 2);
    PQfreemem(line);
}

void tst_LibPpq::settleWithoutConnection()
{
    QCOMPARE(ppqSettle(nullptr), 0);
    const ConnectionPtr lost(PQconnectdb("host=/nowhere"));
    QCOMPARE(ppqSettle(lost.get()), 0);
}

void tst_LibPpq::misuseNull()
{
    QVERIFY(!PPQexecPrepared(nullptr, 1, "st", "po", 0, nullptr, nullptr, nullptr, 1));
    QVERIFY(!PPQfetch(nullptr, 1, "po", nullptr));
    QCOMPARE(PPQclose(nullptr, "po", "st"), 0);
}

void tst_LibPpq::misuseNames_data()
{
    QTest::addColumn<int>("rows");
    QTest::addColumn<bool>("statement");
    QTest::addColumn<bool>("portal");
    QTest::addColumn<QByteArray>("message");
    QTest::newRow("no statement") << 1 << false << true
                                  << QByteArray("statement name is a null pointer\n");
    QTest::newRow("no portal") << 1 << true << false
                               << QByteArray("portal name is a null pointer\n");
    QTest::newRow("no rows") << 0 << true << true
                             << QByteArray("number of rows must be at least 1\n");
    QTest::newRow("less than no rows")
        << -1 << true << true << QByteArray("number of rows must be at least 1\n");
}

void tst_LibPpq::misuseNames()
{
    QFETCH(int, rows);
    QFETCH(bool, statement);
    QFETCH(bool, portal);
    QFETCH(QByteArray, message);
    prepare("SELECT 1");
    QVERIFY(!start(rows, statement ? "st" : nullptr, portal ? "po" : nullptr));
    QCOMPARE(QByteArray(PQerrorMessage(conn.get())), message);
    if (statement) {
        const ResultPtr page = start(1);
        proxy->clear();
        QVERIFY(!fetch(rows, page, portal ? "po" : nullptr));
        QCOMPARE(QByteArray(PQerrorMessage(conn.get())), message);
    }
    QCOMPARE(proxy->conversation(), QStringList());
}

void tst_LibPpq::misuseParameters()
{
    prepare("SELECT $1::int");
    const char *values[] = {"abcd"};
    const int negative[] = {-1};
    const int binary[] = {1};
    PGconn *c = conn.get();
    QVERIFY(!PPQexecPrepared(c, 1, "st", "po", 65536, values, nullptr, nullptr, 1));
    QCOMPARE(QByteArray(PQerrorMessage(c)),
             QByteArray("number of parameters must be between 0 and 65535\n"));
    QVERIFY(!PPQexecPrepared(c, 1, "st", "po", -1, values, nullptr, nullptr, 1));
    QVERIFY(!PPQexecPrepared(c, 1, "st", "po", 1, nullptr, nullptr, nullptr, 1));
    QCOMPARE(QByteArray(PQerrorMessage(c)), QByteArray("parameters without values\n"));
    QVERIFY(!PPQexecPrepared(c, 1, "st", "po", 1, values, nullptr, binary, 1));
    QCOMPARE(QByteArray(PQerrorMessage(c)),
             QByteArray("length must be given for binary parameter\n"));
    QVERIFY(!PPQexecPrepared(c, 1, "st", "po", 1, values, negative, binary, 1));
    QCOMPARE(proxy->conversation(), QStringList());
    QCOMPARE(PQresultStatus(run("SELECT 1").get()), PGRES_TUPLES_OK);
    // The most there can be: the server's own limit answers.
    const std::vector<const char *> many(65535, "1");
    const ResultPtr result(
        PPQexecPrepared(c, 1, "st", "po", 65535, many.data(), nullptr, nullptr, 1));
    QCOMPARE(QByteArray(PQresultErrorField(result.get(), PG_DIAG_SQLSTATE)), QByteArray("08P01"));
}

void tst_LibPpq::misusePipeline()
{
    prepare("SELECT 1");
    const ResultPtr page = start(1);
    QCOMPARE(PQenterPipelineMode(conn.get()), 1);
    proxy->clear();
    const QByteArray message("portal operations are not allowed in pipeline mode\n");
    QVERIFY(!start(1));
    QCOMPARE(QByteArray(PQerrorMessage(conn.get())), message);
    QVERIFY(!fetch(1, page));
    QCOMPARE(QByteArray(PQerrorMessage(conn.get())), message);
    QCOMPARE(PPQclose(conn.get(), "po", "st"), 0);
    QCOMPARE(QByteArray(PQerrorMessage(conn.get())), message);
    QCOMPARE(proxy->conversation(), QStringList());
    QCOMPARE(PQexitPipelineMode(conn.get()), 1);
    QCOMPARE(PQresultStatus(fetch(1, page).get()), PGRES_TUPLES_OK);
}

void tst_LibPpq::misuseLostConnection()
{
    const ConnectionPtr lost(PQconnectdb("host=/nowhere"));
    QVERIFY(!PPQexecPrepared(lost.get(), 1, "st", "po", 0, nullptr, nullptr, nullptr, 1));
    QCOMPARE(QByteArray(PQerrorMessage(lost.get())), QByteArray("no connection to the server\n"));
    QVERIFY(!PPQfetch(lost.get(), 1, "po", nullptr));
    QCOMPARE(PPQclose(lost.get(), "po", "st"), 0);
}

void tst_LibPpq::misuseFetchFromNoPage()
{
    const QByteArray message("the previous result is not a page of rows\n");
    QVERIFY(!PPQfetch(conn.get(), 1, "po", nullptr));
    QCOMPARE(QByteArray(PQerrorMessage(conn.get())), message);
    const ResultPtr command = run("SET work_mem = '8MB'");
    QVERIFY(!fetch(1, command));
    QCOMPARE(QByteArray(PQerrorMessage(conn.get())), message);
}

void tst_LibPpq::outOfRangePrintsNothing()
{
    int complaints = 0;
    PQsetNoticeReceiver(
        conn.get(), [](void *count, const PGresult *) { ++*static_cast<int *>(count); },
        &complaints);
    prepare("SELECT generate_series(1, 3)");
    const ResultPtr first = start(2);
    const ResultPtr second = fetch(2, first);
    for (const ResultPtr *page : {&first, &second}) {
        QCOMPARE(PQgetisnull(page->get(), 7, 0), 1);
        QCOMPARE(PQgetisnull(page->get(), -1, 0), 1);
        QCOMPARE(PQftype(page->get(), -1), Oid(0));
    }
    QCOMPARE(complaints, 0);
}

void tst_LibPpq::lostConnectionHasNoResult_data()
{
    QTest::addColumn<bool>("laterPage");
    QTest::newRow("first page") << false;
    QTest::newRow("later page") << true;
}

void tst_LibPpq::lostConnectionHasNoResult()
{
    QFETCH(bool, laterPage);
    prepare("SELECT generate_series(1, 9)");
    const ResultPtr page = start(2);
    proxy->cut();
    const ResultPtr next = laterPage ? fetch(2, page) : start(2, "st", "another");
    QVERIFY(!next);
    QCOMPARE(QByteArray(PQerrorMessage(conn.get())),
             QByteArray("server closed the connection unexpectedly\n"
                        "\tThis probably means the server terminated abnormally\n"
                        "\tbefore or while processing the request.\n"));
    QCOMPARE(PQstatus(conn.get()), CONNECTION_BAD);
    QCOMPARE(PQntuples(page.get()), 2); // the page before is untouched
    QCOMPARE(PPQclose(conn.get(), "po", "st"), 0);
}

void tst_LibPpq::terminatedBackendHasNoResult()
{
    prepare("SELECT pg_terminate_backend(pg_backend_pid()), pg_sleep(10)");
    QVERIFY(!start(2));
    QCOMPARE(QByteArray(PQerrorMessage(conn.get())),
             QByteArray("FATAL:  terminating connection due to administrator command\n"
                        "server closed the connection unexpectedly\n"
                        "\tThis probably means the server terminated abnormally\n"
                        "\tbefore or while processing the request.\n"));
    QCOMPARE(PQstatus(conn.get()), CONNECTION_BAD);
}

void tst_LibPpq::nonblockingConnection()
{
    prepare("SELECT generate_series(1, 3)");
    QCOMPARE(PQsetnonblocking(conn.get(), 1), 0);
    ResultPtr page = start(2);
    QCOMPARE(PQntuples(page.get()), 2);
    page = fetch(2, page);
    QCOMPARE(PQntuples(page.get()), 1);
    QCOMPARE(PPQclose(conn.get(), "po", nullptr), 1);
    QCOMPARE(PQntuples(start(2).get()), 2);
    QCOMPARE(PPQclose(conn.get(), "po", "st"), 1);
    QCOMPARE(PQresultStatus(run("SELECT 1").get()), PGRES_TUPLES_OK);
}

QTEST_GUILESS_MAIN(tst_LibPpq)
#include "tst_libppq.moc"
