// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Dorvy3Transacted: which spare is handed out, what is sent to it, and what the lock covers.
#include "access/dorvy3connection.h"
#include "access/dorvy3transacted.h"
#include "client/libppq.h"

#include "tests/access/errorencodings.h"
#include "tests/support/connectionhelpers.h"
#include "tests/support/libpqcalls.h"
#include "tests/support/pgcluster.h"
#include "tests/support/sqlmacros.h"
#include "tests/support/testaccess.h"
#include "tests/support/textlines.h"
#include "tests/support/wireproxy.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QMutex>
#include <QtCore/QSet>
#include <QtCore/QSharedPointer>
#include <QtCore/QTextCodec>
#include <QtCore/QThread>
#include <QtCore/QWeakPointer>
#include <QtTest/QtTest>

#include <atomic>
#include <functional>
#include <memory>
#include <thread>
#include <type_traits>
#include <vector>

namespace {

constexpr int PromptMsec = 10000; // what nobody blocks is over by then, and what is blocked never
constexpr int StallMsec = 150;    // long enough to see that something is blocked

bool isFree(QMutex &mutex)
{
    if (!mutex.tryLock()) {
        return false;
    }
    mutex.unlock();
    return true;
}

/*! A thread that the test outlives also when a check fails: the proxy then lets everything pass. */
class Background
{
public:
    Background(WireProxy &stallingProxy, const std::function<void()> &code)
        : proxy(stallingProxy)
        , done(false)
        , thread([this, code] {
            code();
            done = true;
        })
    {
    }

    ~Background()
    {
        proxy.holdReplies(false);
        proxy.holdRequests(false);
        if (thread.joinable()) {
            thread.join();
        }
    }

    bool isDone() const { return done; }
    void join() { thread.join(); }

private:
    Q_DISABLE_COPY(Background)

    WireProxy &proxy;
    std::atomic<bool> done;
    std::thread thread;
};

} // namespace

class tst_Dorvy3Transacted : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void hasNoVirtualOperation();
    void unknownStringCreatesNoKey();
    void failedGetCreatesNoKey();
    void newConnectionIsSetUpThenBegins();
    void newConnectionWithoutSearchPath();
    void newConnectionIsNotPooled();
    void reusedConnectionGetsSearchPathThenBegin();
    void reusedConnectionKeepsItsSearchPath();
    void searchPathOfAReusedConnectionIsInServersEncoding();
    void lastGivenBackIsTakenFirst();
    void keysAreNotMixed();
    void keyStaysWhenItsListRunsEmpty();
    void deadSparesAreDroppedNewestFirst();
    void onlyDeadSparesMakeANewConnection();
    void spareWithoutItsServerIsSkipped();
    void spareLostUnnoticedIsSkipped();
    void spareWithoutHandleIsSkipped();
    void deadSpareHeldElsewhereStaysOpen();
    void deadSpareIsDroppedUnderTheLock();

    void failedSearchPathIsSilent_data();
    void failedSearchPathIsSilent();
    void failedBeginIsSilent();
    void failedConnectionTellsLibpqsMessage();
    void failedConnectionIsFinished();
    void failedConnectionWithoutErrorPointer();
    void noHandleTellsNoMessage();
    void missingDatabaseTellsServersMessage();
    void successResetsTheError_data();
    void successResetsTheError();
    void connectionStringGoesAsLatin1();

    void putRollsBack_data();
    void putRollsBack();
    void putOfIdleConnectionSendsNothing();
    void putOfNullDoesNothing();
    void putOfDeadConnectionPoolsIt();
    void putWithFailedRollbackPoolsIt();
    void putSeesTheTransactionBehindAClose();
    void getSeesTheStateBehindAClose();

    void delDropsOneSpareTheNewest();
    void delOfAbsentKeyDoesNothing();
    void delOfEmptyListDoesNothing();
    void delOfConnectionHeldElsewhereKeepsItOpen();
    void delDropsUnderTheLock();
    void destructionClosesTheSpares();

    void errorOfNullHandle();
    void errorOfFailedHandleIsReadAsCp1251();
    void errorOfLiveHandleFollowsClientEncoding_data();
    void errorOfLiveHandleFollowsClientEncoding();

    void lockIsNotRecursive();
    void connectingBlocksNobody();
    void newConnectionNeedsNoLock();
    void makingASpareReadyHoldsTheLock_data();
    void makingASpareReadyHoldsTheLock();
    void beginAfterSearchPathHoldsTheLockToo();
    void sparesOfOtherKeysWaitForASpareMadeReady();
    void rollbackComesBeforeTheLock();
    void putWaitsForTheLock();
    void delWaitsForTheLock();
    void getWaitsForTheLock();
    void threadsNeverShareAConnection();

private:
    QString key(const QString &database = QStringLiteral("postgres")) const;
    QString direct() const { return QString::fromUtf8(cluster.conninfo()); }
    ConnectionPtr borrow(const QString &searchPath = QString())
    {
        return pool->get(key(), searchPath, nullptr);
    }
    ConnectionPtr makeWatched(const QString &database, QStringList *log);
    QList<ConnectionPtr> spares() const { return Dorvy3TestAccess::spares(*pool, key()); }
    QMutex &lock() { return Dorvy3TestAccess::lock(*pool); }

    PgCluster cluster;
    std::unique_ptr<WireProxy> proxy;
    std::unique_ptr<Dorvy3Transacted> pool;
};

void tst_Dorvy3Transacted::initTestCase()
{
    QVERIFY2(cluster.start(), qPrintable(cluster.why()));
    cluster.createDatabase(QStringLiteral("db_win1251"), QStringLiteral("WIN1251"));
    cluster.createDatabase(QStringLiteral("db_sql_ascii"), QStringLiteral("SQL_ASCII"));
    cluster.createDatabase(QStringLiteral("\"????\""));
    cluster.run(QStringLiteral("CREATE SCHEMA one"));
    qunsetenv("PGCLIENTENCODING");
}

void tst_Dorvy3Transacted::init()
{
    proxy.reset(new WireProxy(cluster.socketDir(), cluster.port()));
    pool.reset(new Dorvy3Transacted);
}

void tst_Dorvy3Transacted::cleanup()
{
    pool.reset();
    proxy.reset();
    QTextCodec::setCodecForLocale(nullptr); // back to the environment's
}

QString tst_Dorvy3Transacted::key(const QString &database) const
{
    return QStringLiteral("host=127.0.0.1 port=%1 user=dorvy dbname='%2' sslmode=disable "
                          "gssencmode=disable")
        .arg(proxy->port())
        .arg(database);
}

// A connection that writes down whether the pool was locked when its last reference went.
ConnectionPtr tst_Dorvy3Transacted::makeWatched(const QString &database, QStringList *log)
{
    PGconn *raw = PQconnectdb(proxy->conninfo(database).constData());
    return ConnectionPtr(new Dorvy3Connection(raw, QString()),
                         [this, log](Dorvy3Connection *connection) {
                             log->append(isFree(lock()) ? QStringLiteral("closed in the open")
                                                        : QStringLiteral("closed under the lock"));
                             delete connection;
                         });
}

void tst_Dorvy3Transacted::hasNoVirtualOperation()
{
    QVERIFY(!std::is_polymorphic<Dorvy3Transacted>::value);
}

void tst_Dorvy3Transacted::unknownStringCreatesNoKey()
{
    const ConnectionPtr connection = borrow();
    QVERIFY(connection);
    QCOMPARE(Dorvy3TestAccess::poolKeys(*pool), QStringList());
    pool->put(key(), connection);
    QCOMPARE(Dorvy3TestAccess::poolKeys(*pool), QStringList(key()));
}

void tst_Dorvy3Transacted::failedGetCreatesNoKey()
{
    QVERIFY(!pool->get(QStringLiteral("host=/nowhere"), QString(), nullptr));
    QCOMPARE(Dorvy3TestAccess::poolKeys(*pool), QStringList());
}

void tst_Dorvy3Transacted::newConnectionIsSetUpThenBegins()
{
    const ConnectionPtr connection = borrow(QStringLiteral("one, public"));
    QCOMPARE(proxy->frontend(),
             lines({"1> Startup dorvy postgres", "1> Query \"SET DATESTYLE TO 'ISO'\"",
                    "1> Query \"SET SEARCH_PATH TO one, public\"", "1> Query \"BEGIN\""}));
    QCOMPARE(status(connection), PQTRANS_INTRANS);
}

void tst_Dorvy3Transacted::newConnectionWithoutSearchPath()
{
    const ConnectionPtr connection = borrow();
    QCOMPARE(proxy->frontend(),
             lines({"1> Startup dorvy postgres", "1> Query \"SET DATESTYLE TO 'ISO'\"",
                    "1> Query \"BEGIN\""}));
    QCOMPARE(status(connection), PQTRANS_INTRANS);
}

void tst_Dorvy3Transacted::newConnectionIsNotPooled()
{
    const ConnectionPtr first = borrow();
    const ConnectionPtr second = borrow();
    QVERIFY(first != second);
    QCOMPARE(proxy->connectionCount(), 2);
    QCOMPARE(spares().size(), 0);
}

void tst_Dorvy3Transacted::reusedConnectionGetsSearchPathThenBegin()
{
    const ConnectionPtr connection = borrow();
    pool->put(key(), connection);
    proxy->clear();
    QCOMPARE(borrow(QStringLiteral("one,  public")), connection);
    QCOMPARE(proxy->frontend(),
             lines({"1> Query \"SET SEARCH_PATH TO one,  public\"", "1> Query \"BEGIN\""}));
    QCOMPARE(status(connection), PQTRANS_INTRANS);
    QCOMPARE(ask(connection, "SHOW search_path"), QByteArray("one, public"));
    QCOMPARE(spares().size(), 0);
}

void tst_Dorvy3Transacted::reusedConnectionKeepsItsSearchPath()
{
    pool->put(key(), borrow(QStringLiteral("one")));
    proxy->clear();
    const ConnectionPtr connection = borrow();
    QCOMPARE(proxy->frontend(), lines({"1> Query \"BEGIN\""}));
    QCOMPARE(ask(connection, "SHOW search_path"), QByteArray("one"));
}

void tst_Dorvy3Transacted::searchPathOfAReusedConnectionIsInServersEncoding()
{
    const QString win = key(QStringLiteral("db_win1251"));
    pool->put(win, pool->get(win, QString(), nullptr));
    proxy->clear();
    const ConnectionPtr connection = pool->get(win, QStringLiteral("\"Щи\""), nullptr);
    QVERIFY(connection);
    QCOMPARE(proxy->messages().first().body, QByteArray("SET SEARCH_PATH TO \"\xD9\xE8\"\0", 24));
}

void tst_Dorvy3Transacted::lastGivenBackIsTakenFirst()
{
    const ConnectionPtr first = borrow();
    const ConnectionPtr second = borrow();
    pool->put(key(), first);
    pool->put(key(), second);
    QCOMPARE(spares(), QList<ConnectionPtr>({first, second}));
    QCOMPARE(borrow(), second);
    QCOMPARE(borrow(), first);
    QCOMPARE(proxy->connectionCount(), 2);
}

void tst_Dorvy3Transacted::keysAreNotMixed()
{
    const ConnectionPtr connection = borrow();
    pool->put(key(), connection);
    const QString other = key() + QStringLiteral(" application_name=x");
    const ConnectionPtr another = pool->get(other, QString(), nullptr);
    QVERIFY(another != connection);
    QCOMPARE(spares(), QList<ConnectionPtr>({connection}));
    pool->del(other);
    QCOMPARE(spares(), QList<ConnectionPtr>({connection}));
}

void tst_Dorvy3Transacted::keyStaysWhenItsListRunsEmpty()
{
    pool->put(key(), borrow());
    borrow();
    QCOMPARE(Dorvy3TestAccess::poolKeys(*pool), QStringList(key()));
    QCOMPARE(spares().size(), 0);
    borrow(); // finds the list empty
    QCOMPARE(Dorvy3TestAccess::poolKeys(*pool), QStringList(key()));
}

void tst_Dorvy3Transacted::deadSparesAreDroppedNewestFirst()
{
    ConnectionPtr oldest = borrow();
    ConnectionPtr alive = borrow();
    ConnectionPtr dead = borrow();
    ConnectionPtr deader = borrow();
    for (const ConnectionPtr &connection : {oldest, alive, dead, deader}) {
        pool->put(key(), connection);
    }
    dead->close();
    deader->close();
    const QWeakPointer<Dorvy3Connection> watched[] = {dead, deader};
    dead.reset();
    deader.reset();
    QCOMPARE(borrow(), alive);
    QVERIFY(!watched[0].toStrongRef());
    QVERIFY(!watched[1].toStrongRef());
    QCOMPARE(spares(), QList<ConnectionPtr>({oldest}));
    QCOMPARE(proxy->connectionCount(), 4);
}

void tst_Dorvy3Transacted::onlyDeadSparesMakeANewConnection()
{
    ConnectionPtr dead = borrow();
    pool->put(key(), dead);
    dead->close();
    const ConnectionPtr fresh = borrow();
    QVERIFY(fresh);
    QVERIFY(fresh != dead);
    QCOMPARE(status(fresh), PQTRANS_INTRANS);
    QCOMPARE(spares().size(), 0);
    QCOMPARE(proxy->connectionCount(), 2);
}

void tst_Dorvy3Transacted::spareWithoutItsServerIsSkipped()
{
    ConnectionPtr survivor = borrow();
    ConnectionPtr orphan = borrow();
    const QByteArray pid = ask(orphan, "SELECT pg_backend_pid()");
    cluster.terminate(pid.toInt());
    pool->put(key(), survivor);
    pool->put(key(), orphan); // its ROLLBACK finds the server gone
    QCOMPARE(spares().size(), 2);
    const QWeakPointer<Dorvy3Connection> watched = orphan;
    orphan.reset();
    QCOMPARE(borrow(), survivor);
    QVERIFY(!watched.toStrongRef());
    QCOMPARE(spares().size(), 0);
}

void tst_Dorvy3Transacted::spareLostUnnoticedIsSkipped()
{
    // Nobody has used the connection since its server went, so libpq has not noticed yet.
    const ConnectionPtr survivor = pool->get(direct(), QString(), nullptr);
    const ConnectionPtr orphan = pool->get(direct(), QString(), nullptr);
    const QByteArray pid = ask(orphan, "SELECT pg_backend_pid()");
    pool->put(direct(), survivor);
    pool->put(direct(), orphan);
    cluster.terminate(pid.toInt());
    QVERIFY(orphan->isValid());
    QSqlError error;
    QCOMPARE(pool->get(direct(), QString(), &error), survivor);
    VERIFY_NO_ERROR(error);
    QVERIFY(!orphan->isValid());
    QVERIFY(Dorvy3TestAccess::spares(*pool, direct()).isEmpty());
}

void tst_Dorvy3Transacted::spareWithoutHandleIsSkipped()
{
    const ConnectionPtr survivor = borrow();
    const ConnectionPtr closed(new Dorvy3Connection(nullptr, QString()));
    pool->put(key(), survivor);
    pool->put(key(), closed);
    QCOMPARE(spares(), QList<ConnectionPtr>({survivor, closed}));
    QCOMPARE(borrow(), survivor);
}

void tst_Dorvy3Transacted::deadSpareHeldElsewhereStaysOpen()
{
    const ConnectionPtr dead = borrow();
    proxy->cut();
    pool->put(key(), dead);
    QVERIFY(!dead->isValid());
    QVERIFY(borrow() != dead);
    QVERIFY(dead->isOpen());
}

void tst_Dorvy3Transacted::deadSpareIsDroppedUnderTheLock()
{
    QStringList log;
    pool->put(key(), makeWatched(QStringLiteral("missing"), &log));
    QCOMPARE(log, QStringList());
    QVERIFY(borrow());
    QCOMPARE(log, lines({"closed under the lock"}));
}

void tst_Dorvy3Transacted::failedSearchPathIsSilent_data()
{
    QTest::addColumn<bool>("reused");
    QTest::newRow("new connection") << false;
    QTest::newRow("reused connection") << true;
}

void tst_Dorvy3Transacted::failedSearchPathIsSilent()
{
    QFETCH(bool, reused);
    if (reused) {
        pool->put(key(), borrow());
    }
    QSqlError error;
    const ConnectionPtr connection = pool->get(key(), QStringLiteral("not, a, (path"), &error);
    QVERIFY(connection);
    VERIFY_NO_ERROR(error);
    QCOMPARE(status(connection), PQTRANS_INTRANS);
    QVERIFY(proxy->conversation().contains(QStringLiteral("1< ErrorResponse 42601")));
}

void tst_Dorvy3Transacted::failedBeginIsSilent()
{
    const ConnectionPtr connection = borrow();
    pool->put(key(), connection);
    QCOMPARE(PQenterPipelineMode(connection->connection()), 1); // refuses plain commands
    QSqlError error;
    QCOMPARE(pool->get(key(), QStringLiteral("one"), &error), connection);
    VERIFY_NO_ERROR(error);
    QCOMPARE(status(connection), PQTRANS_IDLE);
}

void tst_Dorvy3Transacted::failedConnectionTellsLibpqsMessage()
{
    QSqlError error;
    QVERIFY(!pool->get(QStringLiteral("host=/nowhere port=7"), QString(), &error));
    COMPARE_ERROR(error, ConnectionError,
                  QStringLiteral("connection to server on socket \"/nowhere/.s.PGSQL.7\" failed: "
                                 "No such file or directory\n"
                                 "\tIs the server running locally and accepting connections on "
                                 "that socket?\n"),
                  QStringLiteral("Ошибка при установке соединения с СУБД"), QString());
}

void tst_Dorvy3Transacted::failedConnectionIsFinished()
{
    const LibpqCalls calls;
    QSqlError error;
    QVERIFY(!pool->get(key(QStringLiteral("missing")), QString(), &error));
    QVERIFY(!pool->get(key(QStringLiteral("missing")), QString(), nullptr));
    QCOMPARE(calls.connected().size(), 2);
    QCOMPARE(calls.finished().size(), 2);
}

void tst_Dorvy3Transacted::failedConnectionWithoutErrorPointer()
{
    QVERIFY(!pool->get(QStringLiteral("host=/nowhere port=7"), QString(), nullptr));
}

void tst_Dorvy3Transacted::noHandleTellsNoMessage()
{
    LibpqCalls calls;
    calls.refuseConnections();
    QSqlError error;
    QVERIFY(!pool->get(key(), QString(), &error));
    COMPARE_ERROR(error, ConnectionError, QString(),
                  QStringLiteral("Ошибка при установке соединения с СУБД"), QString());
    QVERIFY(!pool->get(key(), QString(), nullptr));
    QCOMPARE(calls.connected(), QList<QByteArray>({key().toLatin1(), key().toLatin1()}));
    QCOMPARE(calls.finished().size(), 0);
}

void tst_Dorvy3Transacted::missingDatabaseTellsServersMessage()
{
    QSqlError error;
    QVERIFY(!pool->get(key(QStringLiteral("missing")), QString(), &error));
    COMPARE_ERROR(error, ConnectionError,
                  QStringLiteral("connection to server at \"127.0.0.1\", port %1 failed: FATAL:  "
                                 "database \"missing\" does not exist\n")
                      .arg(proxy->port()),
                  QStringLiteral("Ошибка при установке соединения с СУБД"), QString());
    QCOMPARE(proxy->connectionCount(), 1);
}

void tst_Dorvy3Transacted::successResetsTheError_data()
{
    failedSearchPathIsSilent_data();
}

void tst_Dorvy3Transacted::successResetsTheError()
{
    QFETCH(bool, reused);
    if (reused) {
        pool->put(key(), borrow());
    }
    QSqlError error(QStringLiteral("old"), QStringLiteral("old"), QSqlError::UnknownError,
                    QStringLiteral("old"));
    QVERIFY(pool->get(key(), QString(), &error));
    VERIFY_NO_ERROR(error);
}

void tst_Dorvy3Transacted::connectionStringGoesAsLatin1()
{
    const ConnectionPtr connection = pool->get(key(QStringLiteral("база")), QString(), nullptr);
    QVERIFY(connection);
    QCOMPARE(proxy->frontend().first(), QStringLiteral("1> Startup dorvy ????"));
    QCOMPARE(ask(connection, "SELECT current_database()"), QByteArray("????"));
}

void tst_Dorvy3Transacted::putRollsBack_data()
{
    QTest::addColumn<QByteArray>("sql");
    QTest::newRow("open transaction") << QByteArray("CREATE TABLE leftover (a int)");
    QTest::newRow("failed transaction") << QByteArray("SELECT 1/0");
}

void tst_Dorvy3Transacted::putRollsBack()
{
    QFETCH(QByteArray, sql);
    const ConnectionPtr connection = borrow();
    run(connection, sql.constData());
    proxy->clear();
    pool->put(key(), connection);
    QCOMPARE(
        proxy->conversation(),
        lines({"1> Query \"ROLLBACK\"", "1< CommandComplete \"ROLLBACK\"", "1< ReadyForQuery I"}));
    QCOMPARE(spares(), QList<ConnectionPtr>({connection}));
    QCOMPARE(cluster.value(QStringLiteral("SELECT count(*) FROM pg_class WHERE relname = "
                                          "'leftover'")),
             QStringLiteral("0"));
}

void tst_Dorvy3Transacted::putOfIdleConnectionSendsNothing()
{
    const ConnectionPtr connection = borrow();
    QVERIFY(run(connection, "COMMIT"));
    proxy->clear();
    pool->put(key(), connection);
    QCOMPARE(proxy->conversation(), QStringList());
    QCOMPARE(spares(), QList<ConnectionPtr>({connection}));
}

void tst_Dorvy3Transacted::putOfNullDoesNothing()
{
    pool->put(key(), ConnectionPtr());
    QCOMPARE(Dorvy3TestAccess::poolKeys(*pool), QStringList());
    const ConnectionPtr connection = borrow();
    pool->put(key(), connection);
    pool->put(key(), ConnectionPtr());
    QCOMPARE(spares(), QList<ConnectionPtr>({connection}));
}

void tst_Dorvy3Transacted::putOfDeadConnectionPoolsIt()
{
    const ConnectionPtr connection = borrow();
    connection->close();
    pool->put(key(), connection);
    QCOMPARE(spares(), QList<ConnectionPtr>({connection}));
}

void tst_Dorvy3Transacted::putWithFailedRollbackPoolsIt()
{
    const ConnectionPtr connection = borrow();
    proxy->cut();
    pool->put(key(), connection);
    QCOMPARE(spares(), QList<ConnectionPtr>({connection}));
    QVERIFY(!connection->isValid());
}

void tst_Dorvy3Transacted::putSeesTheTransactionBehindAClose()
{
    const ConnectionPtr connection = borrow();
    QCOMPARE(PPQclose(connection->connection(), nullptr, "st"), 1);
    QCOMPARE(status(connection), PQTRANS_ACTIVE);
    proxy->clear();
    pool->put(key(), connection);
    QVERIFY(proxy->frontend().contains(QStringLiteral("1> Query \"ROLLBACK\"")));
    QCOMPARE(status(connection), PQTRANS_IDLE);
}

void tst_Dorvy3Transacted::getSeesTheStateBehindAClose()
{
    const ConnectionPtr connection = borrow();
    pool->put(key(), connection);
    QCOMPARE(PPQclose(connection->connection(), nullptr, "st"), 1);
    QCOMPARE(borrow(), connection);
    QCOMPARE(status(connection), PQTRANS_INTRANS);
}

void tst_Dorvy3Transacted::delDropsOneSpareTheNewest()
{
    const ConnectionPtr first = borrow();
    const ConnectionPtr second = borrow();
    ConnectionPtr third = borrow();
    for (const ConnectionPtr &connection : {first, second, third}) {
        pool->put(key(), connection);
    }
    proxy->clear();
    third.reset();
    pool->del(key());
    QCOMPARE(spares(), QList<ConnectionPtr>({first, second}));
    QVERIFY(proxy->waitForLine(QStringLiteral("3> Terminate")));
    QCOMPARE(proxy->conversation(), lines({"3> Terminate"}));
}

void tst_Dorvy3Transacted::delOfAbsentKeyDoesNothing()
{
    pool->del(key());
    QCOMPARE(Dorvy3TestAccess::poolKeys(*pool), QStringList());
}

void tst_Dorvy3Transacted::delOfEmptyListDoesNothing()
{
    pool->put(key(), borrow());
    pool->del(key());
    pool->del(key());
    QCOMPARE(Dorvy3TestAccess::poolKeys(*pool), QStringList(key()));
    QCOMPARE(spares().size(), 0);
}

void tst_Dorvy3Transacted::delOfConnectionHeldElsewhereKeepsItOpen()
{
    const ConnectionPtr connection = borrow();
    pool->put(key(), connection);
    pool->del(key());
    QVERIFY(connection->isOpen());
    QCOMPARE(ask(connection, "SELECT 'still'"), QByteArray("still"));
}

void tst_Dorvy3Transacted::delDropsUnderTheLock()
{
    QStringList log;
    pool->put(key(), makeWatched(QStringLiteral("postgres"), &log));
    proxy->clear();
    pool->del(key());
    QCOMPARE(log, lines({"closed under the lock"}));
    QVERIFY(proxy->waitForLine(QStringLiteral("1> Terminate")));
}

void tst_Dorvy3Transacted::destructionClosesTheSpares()
{
    const ConnectionPtr held = borrow();
    pool->put(key(), borrow());
    pool->put(key(), held);
    proxy->clear();
    pool.reset();
    QVERIFY(proxy->waitForLine(QStringLiteral("2> Terminate")));
    QCOMPARE(ask(held, "SELECT 'still'"), QByteArray("still"));
    QCOMPARE(proxy->frontend(), lines({"2> Terminate", "1> Query \"SELECT 'still'\""}));
}

void tst_Dorvy3Transacted::errorOfNullHandle()
{
    COMPARE_ERROR(pool->hlpError(nullptr, QSqlError::ConnectionError, QStringLiteral("Беда")),
                  ConnectionError, QString(), QStringLiteral("Беда"), QString());
}

void tst_Dorvy3Transacted::errorOfFailedHandleIsReadAsCp1251()
{
    // The server repeats the name's byte E9, which is this letter in CP1251.
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("KOI8-R"));
    QSqlError error;
    QVERIFY(!pool->get(key(QStringLiteral("é")), QString(), &error));
    COMPARE_ERROR(error, ConnectionError,
                  QStringLiteral("connection to server at \"127.0.0.1\", port %1 failed: FATAL:  "
                                 "database \"й\" does not exist\n")
                      .arg(proxy->port()),
                  QStringLiteral("Ошибка при установке соединения с СУБД"), QString());
}

void tst_Dorvy3Transacted::errorOfLiveHandleFollowsClientEncoding_data()
{
    addEncodingsOfErrors();
}

void tst_Dorvy3Transacted::errorOfLiveHandleFollowsClientEncoding()
{
    QFETCH(QString, database);
    QFETCH(QString, options);
    QFETCH(QByteArray, sql);
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
    const ConnectionPtr connection =
        pool->get(key(database) + QLatin1Char(' ') + options, QString(), nullptr);
    QVERIFY(connection);
    QVERIFY(!run(connection, sql.constData()));
    const QSqlError error =
        pool->hlpError(connection->connection(), QSqlError::StatementError, QStringLiteral("Беда"));
    QCOMPARE(error.driverText().section(QLatin1Char('\n'), 0, 0),
             QStringLiteral("ERROR:  column \"Щи\" does not exist"));
    QCOMPARE(error.databaseText(), QStringLiteral("Беда"));
    QCOMPARE(error.type(), QSqlError::StatementError);
    QCOMPARE(error.nativeErrorCode(), QString());
}

void tst_Dorvy3Transacted::lockIsNotRecursive()
{
    QVERIFY(!lock().isRecursive());
}

void tst_Dorvy3Transacted::connectingBlocksNobody()
{
    const ConnectionPtr spare = pool->get(direct(), QString(), nullptr);
    pool->put(direct(), spare);
    proxy->holdRequests(true); // the server never hears of whoever connects through the proxy
    ConnectionPtr slow;
    Background connecting(*proxy, [&] { slow = borrow(); });
    QTRY_COMPARE(proxy->connectionCount(), 1);

    QElapsedTimer timer;
    timer.start();
    QVERIFY(isFree(lock()));
    QCOMPARE(pool->get(direct(), QString(), nullptr), spare); // reused
    pool->put(direct(), spare);
    const ConnectionPtr fresh =
        pool->get(direct() + QStringLiteral(" application_name=x"), QString(), nullptr); // new
    QVERIFY(fresh);
    pool->put(key(), fresh);
    pool->del(key());
    QVERIFY(timer.elapsed() < PromptMsec);
    QVERIFY(!connecting.isDone());

    proxy->holdRequests(false);
    connecting.join();
    QVERIFY(slow);
    QCOMPARE(status(slow), PQTRANS_INTRANS);
}

void tst_Dorvy3Transacted::newConnectionNeedsNoLock()
{
    proxy->holdRequests(true); // past the pool, not connected yet
    ConnectionPtr fresh;
    Background connecting(*proxy, [&] { fresh = borrow(QStringLiteral("one")); });
    QTRY_COMPARE(proxy->connectionCount(), 1);
    {
        const QMutexLocker locker(&lock());
        proxy->holdRequests(false);
        QTRY_VERIFY(connecting.isDone()); // set up and begun with the lock in other hands
    }
    connecting.join();
    QCOMPARE(status(fresh), PQTRANS_INTRANS);
}

void tst_Dorvy3Transacted::makingASpareReadyHoldsTheLock_data()
{
    QTest::addColumn<QString>("searchPath");
    QTest::addColumn<QString>("stalledAt");
    QTest::newRow("SET") << QStringLiteral("one")
                         << QStringLiteral("1> Query \"SET SEARCH_PATH TO one\"");
    QTest::newRow("BEGIN") << QString() << QStringLiteral("1> Query \"BEGIN\"");
}

void tst_Dorvy3Transacted::makingASpareReadyHoldsTheLock()
{
    QFETCH(QString, searchPath);
    QFETCH(QString, stalledAt);
    const ConnectionPtr spare = borrow();
    pool->put(key(), spare);
    proxy->clear();
    proxy->holdReplies(true);
    ConnectionPtr taken;
    Background borrowing(*proxy, [&] { taken = borrow(searchPath); });
    QVERIFY(proxy->waitForLine(stalledAt));
    QVERIFY(!lock().tryLock(StallMsec));
    QVERIFY(!borrowing.isDone());

    proxy->holdReplies(false);
    borrowing.join();
    QCOMPARE(taken, spare);
    QVERIFY(isFree(lock()));
}

void tst_Dorvy3Transacted::beginAfterSearchPathHoldsTheLockToo()
{
    const ConnectionPtr spare = borrow();
    pool->put(key(), spare);
    proxy->clear();
    // The lock is never free between the first message and the last answer.
    proxy->holdReplies(true);
    ConnectionPtr taken;
    Background borrowing(*proxy, [&] { taken = borrow(QStringLiteral("one")); });
    QVERIFY(proxy->waitForLine(QStringLiteral("1< ReadyForQuery I"))); // read, not passed on
    proxy->holdRequests(true); // BEGIN will be heard, but not passed on
    proxy->holdReplies(false);
    QVERIFY(proxy->waitForLine(QStringLiteral("1> Query \"BEGIN\"")));
    QVERIFY(!lock().tryLock(StallMsec));
    QVERIFY(!borrowing.isDone());

    proxy->holdRequests(false);
    borrowing.join();
    QCOMPARE(taken, spare);
    QCOMPARE(status(spare), PQTRANS_INTRANS);
}

void tst_Dorvy3Transacted::sparesOfOtherKeysWaitForASpareMadeReady()
{
    const ConnectionPtr spare = borrow();
    pool->put(key(), spare);
    const ConnectionPtr other = pool->get(direct(), QString(), nullptr);
    pool->put(direct(), other);
    proxy->clear();
    proxy->holdReplies(true);
    Background borrowing(*proxy, [&] { borrow(); });
    QVERIFY(proxy->waitForLine(QStringLiteral("1> Query \"BEGIN\"")));
    ConnectionPtr got;
    Background waiting(*proxy, [&] { got = pool->get(direct(), QString(), nullptr); });
    QThread::msleep(StallMsec);
    QVERIFY(!waiting.isDone());

    proxy->holdReplies(false);
    borrowing.join();
    waiting.join();
    QCOMPARE(got, other);
}

void tst_Dorvy3Transacted::rollbackComesBeforeTheLock()
{
    const ConnectionPtr connection = borrow();
    proxy->clear();
    proxy->holdReplies(true);
    Background giving(*proxy, [&] { pool->put(key(), connection); });
    QVERIFY(proxy->waitForLine(QStringLiteral("1> Query \"ROLLBACK\"")));
    QThread::msleep(StallMsec);
    QVERIFY(!giving.isDone());
    QVERIFY(isFree(lock()));
    QCOMPARE(spares().size(), 0); // nobody can take it before it is rolled back

    proxy->holdReplies(false);
    giving.join();
    QCOMPARE(spares(), QList<ConnectionPtr>({connection}));
}

void tst_Dorvy3Transacted::putWaitsForTheLock()
{
    const ConnectionPtr connection = borrow();
    proxy->clear();
    QMutexLocker locker(&lock());
    Background giving(*proxy, [&] { pool->put(key(), connection); });
    const bool rolledBack = proxy->waitForLine(QStringLiteral("1< ReadyForQuery I"));
    QThread::msleep(StallMsec);
    const bool early = giving.isDone();
    const int pooled = spares().size();
    locker.unlock();
    giving.join();
    QVERIFY(rolledBack); // without the lock
    QVERIFY(!early);
    QCOMPARE(pooled, 0);
    QCOMPARE(spares(), QList<ConnectionPtr>({connection}));
}

void tst_Dorvy3Transacted::delWaitsForTheLock()
{
    pool->put(key(), borrow());
    QMutexLocker locker(&lock());
    Background dropping(*proxy, [&] { pool->del(key()); });
    QThread::msleep(StallMsec);
    const bool early = dropping.isDone();
    const int pooled = spares().size();
    locker.unlock();
    dropping.join();
    QVERIFY(!early);
    QCOMPARE(pooled, 1);
    QCOMPARE(spares().size(), 0);
}

void tst_Dorvy3Transacted::getWaitsForTheLock()
{
    const ConnectionPtr spare = borrow();
    pool->put(key(), spare);
    proxy->clear();
    QMutexLocker locker(&lock());
    ConnectionPtr taken;
    Background borrowing(*proxy, [&] { taken = borrow(); });
    QThread::msleep(StallMsec);
    const bool early = borrowing.isDone();
    const QStringList said = proxy->frontend();
    locker.unlock();
    borrowing.join();
    QVERIFY(!early);
    QCOMPARE(said, QStringList());
    QCOMPARE(taken, spare);
}

void tst_Dorvy3Transacted::threadsNeverShareAConnection()
{
    QMutex mutex;
    QSet<PGconn *> held;
    std::atomic<int> clashes(0);
    std::atomic<int> rounds(0);
    const auto work = [&] {
        for (int i = 0; i < 40; ++i) {
            const ConnectionPtr connection = pool->get(direct(), QString(), nullptr);
            PGconn *raw = connection->connection();
            {
                const QMutexLocker locker(&mutex);
                clashes += held.contains(raw) ? 1 : 0;
                held.insert(raw);
            }
            rounds += ask(connection, "SELECT 'mine'") == "mine" ? 1 : 0;
            {
                const QMutexLocker locker(&mutex);
                held.remove(raw);
            }
            pool->put(direct(), connection);
            if (i % 10 == 9) {
                pool->del(direct());
            }
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back(work);
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    QCOMPARE(clashes.load(), 0);
    QCOMPARE(rounds.load(), 160);
    QVERIFY(Dorvy3TestAccess::spares(*pool, direct()).size() <= 4);
    for (const ConnectionPtr &spare : Dorvy3TestAccess::spares(*pool, direct())) {
        QCOMPARE(status(spare), PQTRANS_IDLE);
    }
}

QTEST_GUILESS_MAIN(tst_Dorvy3Transacted)
#include "tst_dorvy3transacted.moc"
