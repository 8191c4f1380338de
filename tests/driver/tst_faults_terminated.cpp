// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// A backend that the administrator ends, at every exchange of a query's road.
#include "tests/driver/faults.h"
#include "tests/support/libpqowners.h"
#include "tests/support/testaccess.h"

#include <thread>

namespace {

// When the backend ends.
enum Moment {
    Idle,    // before a step, while nothing is under way
    Held,    // the message is on its way and does not arrive
    Answered // the message has been answered: the end arrives together with the answer
};

struct Fault
{
    const char *road;
    const char *step; // that the message belongs to
    const char *line; // the message's beginning, in the proxy's words
    Moment moment;
};

// What reads do after the query that had the borrowed connection has been cleared.
enum Reads { ReadAnew, BlockedUntilReopened };

} // namespace

Q_DECLARE_METATYPE(Fault)
Q_DECLARE_METATYPE(Reads)

class tst_FaultsTerminated : public QObject, private Faults
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init() { QVERIFY(openThroughProxy()); }
    void cleanup() { closeForGood(); }

    void ownBackend_data();
    void ownBackend();
    void borrowedBackend_data();
    void borrowedBackend();
    void backendAtWork_data();
    void backendAtWork();

    void deadBorrowedConnectionStaysUntilTheLastQueryGoes();
    void preparedQueryStaysRefused_data();
    void preparedQueryStaysRefused();

private:
    void strike(const Fault &fault, int connection);
    void verifyOwnIsLost(const QString &rows);
    std::thread endOnceWaiting(int process) const;
};

void tst_FaultsTerminated::initTestCase()
{
    QVERIFY2(startWithTable(), qPrintable(cluster.why()));
    cluster.run("CREATE TABLE deferring (a int)");
    cluster.run("CREATE FUNCTION wait() RETURNS trigger LANGUAGE plpgsql AS "
                "'BEGIN PERFORM pg_advisory_xact_lock_shared(9); RETURN NULL; END'");
    cluster.run("CREATE CONSTRAINT TRIGGER waits AFTER INSERT ON deferring "
                "DEFERRABLE INITIALLY DEFERRED FOR EACH ROW EXECUTE PROCEDURE wait()");
}

// Ends the backend of connection as the fault says; for the moment before its step.
void tst_FaultsTerminated::strike(const Fault &fault, int connection)
{
    const auto end = [this, connection] { cluster.terminate(backend(connection)); };
    // A Close, too, which nobody waits for: a server that has not answered it tells of its end in the answer.
    QTRY_VERIFY(isAnswered(connection));
    if (fault.moment == Idle) {
        end();
        QVERIFY(proxy->waitUntilBroken(connection));
    } else if (fault.moment == Held) {
        proxy->onLine(fault.line, end);
    } else {
        proxy->onAnswer(fault.line, end);
    }
}

// Nothing works until the database is opened again; rows are those that were committed.
void tst_FaultsTerminated::verifyOwnIsLost(const QString &rows)
{
    Application app(db);
    app.take("append"); // for the loss that nobody has noticed yet
    QVERIFY(!db.isOpen());
    for (const char *step : {"append", "read"}) {
        QVERIFY(!app.take(step));
        compareWith(app.error(), NoError); // Qt itself refuses: "database not open"
    }
    QVERIFY(!app.take("commit"));
    compareWith(app.error(), CommitRefused);
    QVERIFY(!app.take("rollback"));
    compareWith(app.error(), RollbackRefused);
    QCOMPARE(committed(), rows);
}

void tst_FaultsTerminated::ownBackend_data()
{
    QTest::addColumn<Fault>("fault");
    QTest::addColumn<Outcome>("outcome");
    QTest::addColumn<QString>("rows");

    const char *const plain = PlainRoad;
    const char *const inside = TransactionRoad;
    const char *const undone = UndoneRoad;
    const char *const begin = "1> Query \"BEGIN";
    const char *const savepoint = "1> Query \"SAVEPOINT";
    const char *const release = "1> Query \"RELEASE";
    const char *const schema = "1> Query \"SELECT current_schema";
    const char *const commit = "1> Query \"COMMIT";
    const char *const rollback = "1> Query \"ROLLBACK";

    // A command.
    QTest::newRow("before a command")
        << Fault{plain, "insert", "", Idle} << Outcome{"insert", PrepareLost} << "1";
    QTest::newRow("command's Parse")
        << Fault{plain, "insert", "1> Parse", Held} << Outcome{"insert", PrepareLost} << "1";
    QTest::newRow("command is parsed")
        << Fault{plain, "insert", "1> Parse", Answered} << Outcome{"insert", PrepareLost} << "1";
    QTest::newRow("command's Describe")
        << Fault{plain, "insert", "1> Describe", Held} << Outcome{"insert", PrepareLost} << "1";
    QTest::newRow("command is described")
        << Fault{plain, "insert", "1> Describe", Answered} << Outcome{"insert", ExecuteLost} << "1";
    QTest::newRow("command's Execute")
        << Fault{plain, "insert", "1> Bind", Held} << Outcome{"insert", ExecuteLost} << "1";
    QTest::newRow("command is executed")
        << Fault{plain, "insert", "1> Bind", Answered} << Outcome{"read", PrepareLost} << "1 2";

    // A read.
    QTest::newRow("before a read")
        << Fault{plain, "read", "", Idle} << Outcome{"read", PrepareLost} << "1 2";
    QTest::newRow("read's Parse") << Fault{plain, "read", "1> Parse", Held}
                                  << Outcome{"read", PrepareLost} << "1 2";
    QTest::newRow("read is parsed")
        << Fault{plain, "read", "1> Parse", Answered} << Outcome{"read", PrepareLost} << "1 2";
    QTest::newRow("read's Describe")
        << Fault{plain, "read", "1> Describe", Held} << Outcome{"read", PrepareLost} << "1 2";

    // The rest of a read does not need the own connection.
    QTest::newRow("read is described")
        << Fault{plain, "read", "1> Describe", Answered} << Outcome{"append", NoError} << "1 2";
    QTest::newRow("question for the schema")
        << Fault{plain, "read", schema, Held} << Outcome{"append", NoError} << "1 2";
    QTest::newRow("schema is told")
        << Fault{plain, "read", schema, Answered} << Outcome{"append", PrepareLost} << "1 2";
    QTest::newRow("close of what was prepared")
        << Fault{plain, "read", "1> Close", Held} << Outcome{"append", PrepareEnded} << "1 2";
    QTest::newRow("what was prepared is closed")
        << Fault{plain, "read", "1> Close", Answered} << Outcome{"append", PrepareLost} << "1 2";
    QTest::newRow("half read") << Fault{plain, "walk", "", Idle} << Outcome{"append", PrepareLost}
                               << "1 2";
    QTest::newRow("before the last query goes")
        << Fault{plain, "clear", "", Idle} << Outcome{"append", PrepareLost} << "1 2";

    // A read in a transaction.
    QTest::newRow("before a savepoint")
        << Fault{inside, "read", "", Idle} << Outcome{"read", PrepareRefused} << "1";
    QTest::newRow("savepoint") << Fault{inside, "read", savepoint, Held}
                               << Outcome{"read", PrepareRefused} << "1";
    QTest::newRow("savepoint is set")
        << Fault{inside, "read", savepoint, Answered} << Outcome{"read", PrepareLost} << "1";
    QTest::newRow("Parse behind a savepoint")
        << Fault{inside, "read", "1> Parse", Held} << Outcome{"read", PrepareLost} << "1";
    QTest::newRow("release") << Fault{inside, "read", release, Held}
                             << Outcome{"commit", CommitRefused} << "1";
    QTest::newRow("savepoint is released")
        << Fault{inside, "read", release, Answered} << Outcome{"commit", CommitRefused} << "1";
    QTest::newRow("close of what was prepared in a transaction")
        << Fault{inside, "read", "1> Close", Held} << Outcome{"commit", CommitEnded} << "1";
    QTest::newRow("half read in a transaction")
        << Fault{inside, "walk", "", Idle} << Outcome{"commit", CommitLost} << "1";

    // A transaction.
    QTest::newRow("before a begin")
        << Fault{inside, "begin", "", Idle} << Outcome{"begin", BeginLost} << "1";
    QTest::newRow("begin") << Fault{inside, "begin", begin, Held} << Outcome{"begin", BeginLost}
                           << "1";
    QTest::newRow("begun") << Fault{inside, "begin", begin, Answered}
                           << Outcome{"insert", PrepareRefused} << "1";
    QTest::newRow("before a commit")
        << Fault{inside, "commit", "", Idle} << Outcome{"commit", CommitLost} << "1";
    QTest::newRow("commit") << Fault{inside, "commit", commit, Held}
                            << Outcome{"commit", CommitLost} << "1";
    QTest::newRow("committed") << Fault{inside, "commit", commit, Answered} << Outcome{"", NoError}
                               << "1 2";
    QTest::newRow("before a rollback")
        << Fault{undone, "rollback", "", Idle} << Outcome{"rollback", RollbackLost} << "1";
    QTest::newRow("rollback") << Fault{undone, "rollback", rollback, Held}
                              << Outcome{"rollback", RollbackLost} << "1";
    QTest::newRow("rolled back") << Fault{undone, "rollback", rollback, Answered}
                                 << Outcome{"", NoError} << "1";
}

void tst_FaultsTerminated::ownBackend()
{
    QFETCH(const Fault, fault);
    QFETCH(const Outcome, outcome);
    QFETCH(const QString, rows);

    {
        Application app(db);
        QCOMPARE(app.go(fault.road, fault.step, [&] { strike(fault, 1); }), QString(outcome.step));
        compareWith(app.error(), outcome.error);
    }
    QVERIFY(proxy->waitUntilBroken(1));
    verifyOwnIsLost(rows);
    verifyReopens();
    verifyNothingIsLeft();
}

void tst_FaultsTerminated::borrowedBackend_data()
{
    QTest::addColumn<Fault>("fault");
    QTest::addColumn<Outcome>("outcome");
    QTest::addColumn<int>("rowsRead");
    QTest::addColumn<Reads>("reads");

    const char *const inside = TransactionRoad;
    const char *const style = "2> Query \"SET DATESTYLE";
    const char *const path = "2> Query \"SET SEARCH_PATH";
    const char *const begin = "2> Query \"BEGIN";
    const char *const rollback = "2> Query \"ROLLBACK";

    // A connection that is lost before a statement stands on it is nobody's to give back.
    QTest::newRow("date style") << Fault{inside, "read", style, Held}
                                << Outcome{"read", PrepareRefused} << 0 << BlockedUntilReopened;
    QTest::newRow("date style is set")
        << Fault{inside, "read", style, Answered} << Outcome{"read", PrepareRefused} << 0
        << BlockedUntilReopened;
    QTest::newRow("search path") << Fault{inside, "read", path, Held}
                                 << Outcome{"read", PrepareRefused} << 0 << BlockedUntilReopened;
    QTest::newRow("search path is set")
        << Fault{inside, "read", path, Answered} << Outcome{"read", PrepareRefused} << 0
        << BlockedUntilReopened;
    QTest::newRow("begin") << Fault{inside, "read", begin, Held} << Outcome{"read", PrepareRefused}
                           << 0 << BlockedUntilReopened;
    QTest::newRow("begun") << Fault{inside, "read", begin, Answered} << Outcome{"read", PrepareLost}
                           << 0 << BlockedUntilReopened;
    QTest::newRow("Parse") << Fault{inside, "read", "2> Parse", Held}
                           << Outcome{"read", PrepareLost} << 0 << BlockedUntilReopened;
    QTest::newRow("parsed") << Fault{inside, "read", "2> Parse", Answered}
                            << Outcome{"read", PrepareLost} << 0 << BlockedUntilReopened;
    QTest::newRow("Describe") << Fault{inside, "read", "2> Describe S", Held}
                              << Outcome{"read", PrepareLost} << 0 << BlockedUntilReopened;

    QTest::newRow("search path of a spare")
        << Fault{ReuseRoad, "again", path, Held} << Outcome{"again", PrepareRefused} << 0
        << BlockedUntilReopened;
    QTest::newRow("begin on a spare")
        << Fault{ReuseRoad, "again", begin, Held} << Outcome{"again", PrepareRefused} << 0
        << BlockedUntilReopened;
    QTest::newRow("begun on a spare") << Fault{ReuseRoad, "again", begin, Answered}
                                      << Outcome{"again", PrepareLost} << 0 << BlockedUntilReopened;
    QTest::newRow("Parse on a spare") << Fault{ReuseRoad, "again", "2> Parse", Held}
                                      << Outcome{"again", PrepareLost} << 0 << BlockedUntilReopened;

    QTest::newRow("described") << Fault{inside, "read", "2> Describe S", Answered}
                               << Outcome{"read", ExecuteLost} << 0 << ReadAnew;
    QTest::newRow("first page") << Fault{inside, "read", "2> Bind", Held}
                                << Outcome{"read", ExecuteEnded} << 0 << ReadAnew;
    QTest::newRow("first page is sent") << Fault{inside, "read", "2> Bind", Answered}
                                        << Outcome{"walk", ExecuteLost} << 128 << ReadAnew;
    QTest::newRow("before the next page")
        << Fault{inside, "walk", "", Idle} << Outcome{"walk", ExecuteEnded} << 128 << ReadAnew;
    QTest::newRow("next page") << Fault{inside, "walk", "2> Execute", Held}
                               << Outcome{"walk", ExecuteEnded} << 128 << ReadAnew;

    // From here on nothing is asked for that could fail.
    QTest::newRow("last page is sent")
        << Fault{inside, "walk", "2> Execute", Answered} << Outcome{"", NoError} << 130 << ReadAnew;
    QTest::newRow("spare that is taken again")
        << Fault{ReuseRoad, "again", "", Idle} << Outcome{"", NoError} << 130 << ReadAnew;
    QTest::newRow("before the close")
        << Fault{inside, "clear", "", Idle} << Outcome{"", NoError} << 130 << ReadAnew;
    QTest::newRow("close") << Fault{inside, "clear", "2> Close", Held} << Outcome{"", NoError}
                           << 130 << ReadAnew;
    QTest::newRow("closed") << Fault{inside, "clear", "2> Close", Answered} << Outcome{"", NoError}
                            << 130 << ReadAnew;
    QTest::newRow("rollback") << Fault{inside, "clear", rollback, Held} << Outcome{"", NoError}
                              << 130 << ReadAnew;
    QTest::newRow("rolled back") << Fault{inside, "clear", rollback, Answered}
                                 << Outcome{"", NoError} << 130 << ReadAnew;
    QTest::newRow("spare") << Fault{inside, "commit", "", Idle} << Outcome{"", NoError} << 130
                           << ReadAnew;
}

void tst_FaultsTerminated::borrowedBackend()
{
    QFETCH(const Fault, fault);
    QFETCH(const Outcome, outcome);
    QFETCH(const int, rowsRead);
    QFETCH(const Reads, reads);

    {
        Application app(db);
        const QString failed = app.go(fault.road, fault.step, [&] { strike(fault, 2); });
        QCOMPARE(failed, QString(outcome.step));
        compareWith(app.error(), outcome.error);
        QCOMPARE(app.rowsRead(), rowsRead);
        QVERIFY(proxy->waitUntilBroken(2));
        QVERIFY(failed.isEmpty() || app.take("commit")); // the own transaction is unharmed
        QCOMPARE(committed(), QString("1 2"));
    }
    Application app(db);
    QCOMPARE(app.take("read"), reads == ReadAnew);
    compareWith(app.error(), reads == ReadAnew ? NoError : PrepareRefused);
    QVERIFY(app.take("append"));
    QCOMPARE(committed(), QString("1 2 3"));
    app.take("clear");
    verifyReopens();
    verifyNothingIsLeft();
}

// Ends the process once it waits for a lock.
std::thread tst_FaultsTerminated::endOnceWaiting(int process) const
{
    return std::thread([this, process] {
        const QString waits =
            QString("SELECT count(*) FROM pg_locks WHERE pid = %1 AND NOT granted").arg(process);
        for (int i = 0; i < 1000 && cluster.value(waits) == "0"; ++i) {
            QTest::qSleep(5);
        }
        cluster.terminate(process);
    });
}

void tst_FaultsTerminated::backendAtWork_data()
{
    QTest::addColumn<int>("connection");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("line"); // of the request that the server waits at
    QTest::addColumn<QString>("lock"); // that it waits for
    QTest::addColumn<Outcome>("outcome");
    QTest::addColumn<int>("rowsRead");

    const QString locks = "SELECT pg_advisory_lock(%1)";
    const QString rows = "SELECT g, pg_advisory_xact_lock_shared(g / 129) IS NULL "
                         "FROM generate_series(1, 130) g"; // lock 1 on the second page
    QTest::newRow("command is parsed") << 1 << "INSERT INTO t VALUES (2)"
                                       << "1> Parse"
                                       << "LOCK TABLE t" << Outcome{"exec", PrepareLost} << 0;
    QTest::newRow("command is executed")
        << 1 << "INSERT INTO t SELECT 2 WHERE pg_advisory_xact_lock_shared(5) IS NOT NULL"
        << "1> Bind" << locks.arg(5) << Outcome{"exec", ExecuteLost} << 0;
    QTest::newRow("commit") << 1 << "INSERT INTO deferring VALUES (2)"
                            << "1> Query \"COMMIT" << locks.arg(9) << Outcome{"commit", CommitLost}
                            << 0;
    QTest::newRow("read is parsed") << 1 << "SELECT a FROM t"
                                    << "1> Parse"
                                    << "LOCK TABLE t" << Outcome{"exec", PrepareLost} << 0;
    QTest::newRow("read is parsed on the borrowed connection")
        << 2 << "SELECT a FROM t"
        << "2> Parse"
        << "LOCK TABLE t" << Outcome{"exec", PrepareLost} << 0;
    QTest::newRow("first page") << 2 << rows << "2> Bind" << locks.arg(0)
                                << Outcome{"exec", ExecuteEnded} << 0;
    QTest::newRow("next page") << 2 << rows << "2> Bind" << locks.arg(1)
                               << Outcome{"next", ExecuteEnded} << 128;
}

void tst_FaultsTerminated::backendAtWork()
{
    QFETCH(const int, connection);
    QFETCH(const QString, text);
    QFETCH(const QString, line);
    QFETCH(const QString, lock);
    QFETCH(const Outcome, outcome);
    QFETCH(const int, rowsRead);

    RawConnectionPtr holder(PQconnectdb(cluster.conninfo().constData()));
    std::thread end;
    proxy->onLine(line, [&] {
        const ResultPtr begun(PQexec(holder.get(), "BEGIN"));
        const ResultPtr locked(PQexec(holder.get(), lock.toUtf8().constData()));
        end = endOnceWaiting(backend(connection));
    });
    {
        QSqlQuery query(db);
        const bool begun = QString(outcome.step) == "commit" && db.transaction();
        const bool done = query.exec(text);
        int rows = 0;
        while (query.next()) {
            ++rows;
        }
        const bool committed = begun && db.commit();
        end.join();
        holder.reset();
        QCOMPARE(done, QString(outcome.step) != "exec");
        QVERIFY(!committed);
        QCOMPARE(rows, rowsRead);
        compareWith(begun ? db.lastError() : query.lastError(), outcome.error);
    }
    QCOMPARE(db.isOpen(), connection == 2);
    QCOMPARE(committed(), QString("1"));
    QCOMPARE(cluster.value("SELECT count(*) FROM deferring"), QString("0"));
    verifyReopens();
    verifyNothingIsLeft();
}

void tst_FaultsTerminated::deadBorrowedConnectionStaysUntilTheLastQueryGoes()
{
    Application first(db);
    Application second(db);
    QVERIFY(first.take("read"));
    QVERIFY(second.take("read"));
    const auto spares = [this] {
        const QString port = QString("port='%1'").arg(proxy->port());
        const QString key = Dorvy3TestAccess::poolKeys(*pool).filter(port).value(0);
        return Dorvy3TestAccess::spares(*pool, key).size();
    };
    cluster.terminate(backend(2));
    QVERIFY(!first.take("walk"));
    compareWith(first.error(), ExecuteEnded);
    QVERIFY(!second.take("walk")); // the same connection, known to be lost by now
    compareWith(second.error(), ExecuteRefused);

    first.take("clear");
    QVERIFY(!first.take("read"));
    compareWith(first.error(), PrepareRefused);
    QCOMPARE(spares(), 0);
    second.take("clear");
    QCOMPARE(spares(), 1); // the dead one
    QVERIFY(first.take("read"));
    QCOMPARE(spares(), 0);
    QVERIFY(first.take("walk"));
    verifyNothingIsLeft();
}

void tst_FaultsTerminated::preparedQueryStaysRefused_data()
{
    QTest::addColumn<int>("connection");
    QTest::addColumn<QString>("text");
    QTest::addColumn<Error>("found");

    QTest::newRow("command") << 1 << "INSERT INTO t VALUES (?)" << ExecuteLost;
    QTest::newRow("read") << 2 << "SELECT a FROM t WHERE a = ?" << ExecuteEnded;
}

void tst_FaultsTerminated::preparedQueryStaysRefused()
{
    QFETCH(const int, connection);
    QFETCH(const QString, text);
    QFETCH(const Error, found);

    QSqlQuery query(db);
    QVERIFY(query.prepare(text));
    query.bindValue(0, 7);
    QVERIFY(query.exec());
    cluster.terminate(backend(connection));
    QVERIFY(proxy->waitUntilBroken(connection));
    QVERIFY(!query.exec());
    compareWith(query.lastError(), found);
    QVERIFY(!query.exec());
    compareWith(query.lastError(), ExecuteRefused);
    verifyReopens();
    QVERIFY(!query.exec()); // it belongs to the connection that it was prepared on
    compareWith(query.lastError(), ExecuteRefused);
    QVERIFY(query.prepare(text));
    query.bindValue(0, 8);
    QVERIFY_SQL(query, query.exec());
    query.clear();
    verifyNothingIsLeft();
}

QTEST_GUILESS_MAIN(tst_FaultsTerminated)
#include "tst_faults_terminated.moc"
