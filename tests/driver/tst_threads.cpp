// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Many threads, each with a driver of its own on the one pool, and objects that end on another thread
// than they began on. With ThreadSanitizer a race or a second order of the locks fails the run.
#include "access/dorvy3.h"
#include "access/dorvy3encoding_p.h"

#include "tests/driver/opendriver.h"
#include "tests/driver/openresult.h"
#include "tests/driver/randomuser.h"
#include "tests/support/connectionhelpers.h"
#include "tests/support/libpqcalls.h"
#include "tests/support/pgcluster.h"
#include "tests/support/sqlmacros.h"
#include "tests/support/testaccess.h"

#include <QtCore/QTextCodec>
#include <QtSql/QSqlQuery>
#include <QtTest/QtTest>

#include <atomic>
#include <functional>
#include <memory>
#include <random>
#include <thread>
#include <vector>

namespace {

constexpr int Users = 16;
constexpr int UserSeconds = 3; // unless DORVY_TEST_RACE_SECONDS says otherwise
constexpr int Threads = 4;
constexpr int Rounds = 25;

/*! Runs code(0) to code(count - 1), each on a thread of its own, which start together. */
void onThreads(int count, const std::function<void(int)> &code)
{
    std::atomic<int> missing(count);
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back([&missing, &code, i] {
            --missing;
            while (missing > 0) {
                std::this_thread::yield();
            }
            code(i);
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
}

/*! Runs code to its end on a thread of its own. */
void onAnotherThread(const std::function<void()> &code)
{
    onThreads(1, [&code](int /*number*/) { code(); });
}

int fromEnvironment(const char *name, int otherwise)
{
    bool given = false;
    const int value = qEnvironmentVariableIntValue(name, &given);
    return given ? value : otherwise;
}

QString generated(int rows)
{
    return QStringLiteral("SELECT generate_series(1, %1)").arg(rows);
}

} // namespace

class tst_Threads : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void codecsAreFoundAtOnce();
    void everyUserGetsItsOwnRows();

    void walksGoOnBesideThePool();
    void resultsOfOneDriverComeAndGoOnManyThreads();

    void lastPageEndsTheConnection();
    void pagesDroppedAtOnceEndTheConnectionOnce();
    void statementsDroppedAtOnceCloseOnce();
    void driversDroppedAtOnceEndThePool();
    void driverEndsOnAnotherThread();
    void queryOutlivesItsDriverOnAnotherThread();

private:
    bool openDriver(DorvyDriver &driver) const;
    std::unique_ptr<OpenDriver> makeDriver() const;
    QString key() const;
    QString backends() const;
    void printFigures(const std::vector<std::unique_ptr<RandomUser>> &users) const;
    void verifySparesAreClean();

    PgCluster cluster;
    QSharedPointer<Dorvy3Transacted> pool;
};

void tst_Threads::initTestCase()
{
    QVERIFY2(cluster.start({QStringLiteral("max_connections = 150"),
                            QStringLiteral("log_min_messages = error")}),
             qPrintable(cluster.why()));
    for (int i = 0; i < Users; ++i) {
        cluster.run(RandomUser::table(i));
    }
}

void tst_Threads::init()
{
    pool = QSharedPointer<Dorvy3Transacted>::create();
}

// Whatever was opened is closed, on the server too.
void tst_Threads::cleanup()
{
    pool.reset();
    QTRY_COMPARE(backends(), QStringLiteral("0"));
    QCOMPARE(cluster.value(QStringLiteral("SELECT count(*) FROM pg_prepared_xacts")),
             QStringLiteral("0"));
}

bool tst_Threads::openDriver(DorvyDriver &driver) const
{
    return driver.open(QStringLiteral("postgres"), cluster.user(), QString(), cluster.socketDir(),
                       cluster.port(), QStringLiteral("application_name=threads"));
}

std::unique_ptr<OpenDriver> tst_Threads::makeDriver() const
{
    std::unique_ptr<OpenDriver> driver(new OpenDriver(pool));
    if (!openDriver(*driver)) {
        qFatal("not opened: %s", qPrintable(driver->lastError().driverText()));
    }
    return driver;
}

// A connection string that finds the same server as openDriver().
QString tst_Threads::key() const
{
    return QString::fromUtf8(cluster.conninfo()) + QStringLiteral(" application_name=threads");
}

QString tst_Threads::backends() const
{
    return cluster.value(QStringLiteral(
        "SELECT count(*) FROM pg_stat_activity WHERE application_name LIKE 'threads%'"));
}

void tst_Threads::printFigures(const std::vector<std::unique_ptr<RandomUser>> &users) const
{
    QMap<QString, int> sums;
    for (const std::unique_ptr<RandomUser> &user : users) {
        const QMap<QString, int> done = user->done();
        for (auto kind = done.begin(); kind != done.end(); ++kind) {
            sums[kind.key()] += kind.value();
        }
    }
    for (auto kind = sums.begin(); kind != sums.end(); ++kind) {
        qInfo("%8d  %s", kind.value(), qPrintable(kind.key()));
    }
}

// A spare has no transaction, statement or cursor of an earlier use.
void tst_Threads::verifySparesAreClean()
{
    for (const QString &name : Dorvy3TestAccess::poolKeys(*pool)) {
        for (const ConnectionPtr &spare : Dorvy3TestAccess::spares(*pool, name)) {
            if (!spare->isAlive()) {
                continue; // lost while it was lent; the next borrower drops it
            }
            QCOMPARE(status(spare), PQTRANS_IDLE);
            QCOMPARE(ask(spare, "SELECT count(*) FROM pg_prepared_statements"), QByteArray("0"));
            QCOMPARE(ask(spare, "SELECT count(*) FROM pg_cursors"), QByteArray("0"));
        }
    }
}

// As the first connections of several threads do.
void tst_Threads::codecsAreFoundAtOnce()
{
    const QList<QByteArray> names = QTextCodec::availableCodecs();
    std::atomic<int> missing(0);
    onThreads(Threads, [&names, &missing](int /*number*/) {
        for (const QByteArray &name : names) {
            missing += hlpFindCodec(name.constData()) ? 0 : 1;
        }
    });
    QVERIFY(names.size() > 10);
    QCOMPARE(missing.load(), 0);
}

void tst_Threads::everyUserGetsItsOwnRows()
{
    const int seconds = fromEnvironment("DORVY_TEST_RACE_SECONDS", UserSeconds);
    const int seed =
        fromEnvironment("DORVY_TEST_RACE_SEED", static_cast<int>(std::random_device()() >> 1));
    qInfo("%d threads, %d s, DORVY_TEST_RACE_SEED=%d", Users, seconds, seed);
    std::vector<std::unique_ptr<RandomUser>> users;
    for (int i = 0; i < Users; ++i) {
        users.emplace_back(new RandomUser(cluster, pool, i,
                                          static_cast<unsigned>(seed) + static_cast<unsigned>(i)));
    }
    onThreads(Users,
              [&users, seconds](int i) { users.at(static_cast<size_t>(i))->work(seconds * 1000); });
    printFigures(users);
    for (const std::unique_ptr<RandomUser> &user : users) {
        QCOMPARE(user->surprise(), QString());
    }
    verifySparesAreClean();
}

// Half of the threads walk their results' list, which gives a connection back under the driver's
// lock; the others use the pool alone.
void tst_Threads::walksGoOnBesideThePool()
{
    std::atomic<int> walks(0);
    std::atomic<int> uses(0);
    onThreads(2 * Threads, [this, &walks, &uses](int number) {
        const std::unique_ptr<OpenDriver> driver = makeDriver();
        const QString name = Dorvy3TestAccess::connectionString(driver->half().database);
        for (int round = 0; round < Rounds; ++round) {
            if (number % 2 == 0) {
                OpenResult first(driver.get());
                OpenResult second(driver.get());
                const bool read = first.reset(generated(300)) && first.fetchFirst() &&
                                  second.reset(generated(300)) && second.fetchFirst();
                driver->unsubscribeFromNotification(QString());
                walks += read && first.size() == -1 && second.size() == -1 ? 1 : 0;
            } else {
                const ConnectionPtr connection = pool->get(name, QString(), nullptr);
                uses += connection && ask(connection, "SELECT 'mine'") == "mine" ? 1 : 0;
                pool->put(name, connection);
                pool->del(name);
            }
        }
    });
    QCOMPARE(walks.load(), Threads * Rounds);
    QCOMPARE(uses.load(), Threads * Rounds);
}

void tst_Threads::resultsOfOneDriverComeAndGoOnManyThreads()
{
    OpenDriver driver(pool);
    const OpenResult staying(&driver);
    onThreads(Threads, [&driver](int /*number*/) {
        for (int round = 0; round < 1000; ++round) {
            const OpenResult first(&driver);
            const OpenResult second(&driver);
        }
    });
    QCOMPARE(driver.half().results, QList<qint64>{staying.address()});
}

void tst_Threads::lastPageEndsTheConnection()
{
    QSharedPointer<Dorvy3Result> page;
    {
        const std::unique_ptr<OpenDriver> driver = makeDriver();
        OpenResult result(driver.get());
        QVERIFY(result.reset(generated(300)));
        page = result.half().page;
        result.detachFromResultSet();
    }
    pool.reset();
    QCOMPARE(PQntuples(page->result), 128);
    QTRY_COMPARE(backends(), QStringLiteral("1"));
    onAnotherThread([&page] { page.reset(); });
    QTRY_COMPARE(backends(), QStringLiteral("0"));
}

void tst_Threads::pagesDroppedAtOnceEndTheConnectionOnce()
{
    for (int round = 0; round < Rounds; ++round) {
        ConnectionPtr connection = pool->get(key(), QString(), nullptr);
        const PGconn *handle = connection->connection();
        std::vector<QSharedPointer<Dorvy3Result>> pages;
        for (int i = 0; i < Threads; ++i) {
            pages.push_back(QSharedPointer<Dorvy3Result>::create(nullptr, connection));
        }
        connection.reset();
        const LibpqCalls calls;
        onThreads(Threads, [&pages](int i) { pages.at(static_cast<size_t>(i)).reset(); });
        QCOMPARE(calls.finished(), QList<const PGconn *>{handle});
    }
}

void tst_Threads::statementsDroppedAtOnceCloseOnce()
{
    const std::unique_ptr<OpenDriver> driver = makeDriver();
    Dorvy3Database &database = driver->half().database;
    for (int round = 0; round < Rounds; ++round) {
        QSharedPointer<Dorvy3Statement> statement = database.statement(generated(300), nullptr);
        QVERIFY(statement);
        QVERIFY(statement->exec(nullptr, -1, {}));
        std::vector<QSharedPointer<Dorvy3Statement>> holders(Threads, statement);
        statement.reset();
        onThreads(Threads, [&holders](int i) { holders.at(static_cast<size_t>(i)).reset(); });
        QCOMPARE(Dorvy3TestAccess::boundCount(database), 0);
        QVERIFY(!Dorvy3TestAccess::readConnection(database));
    }
    QCOMPARE(Dorvy3TestAccess::spares(*pool, Dorvy3TestAccess::connectionString(database)).size(),
             1);
    verifySparesAreClean();
}

void tst_Threads::driversDroppedAtOnceEndThePool()
{
    for (int round = 0; round < Rounds; ++round) {
        pool = QSharedPointer<Dorvy3Transacted>::create();
        for (int spare = 0; spare < 2; ++spare) {
            pool->put(key(), pool->get(key(), QString(), nullptr));
        }
        std::vector<std::unique_ptr<OpenDriver>> drivers;
        for (int i = 0; i < Threads; ++i) {
            drivers.push_back(makeDriver());
            QVERIFY(QSqlQuery(drivers.back()->createResult()).exec(generated(1)));
        }
        const QWeakPointer<Dorvy3Transacted> watched = pool;
        pool.reset();
        onThreads(Threads, [&drivers](int i) { drivers.at(static_cast<size_t>(i)).reset(); });
        QVERIFY(!watched.toStrongRef());
    }
}

void tst_Threads::driverEndsOnAnotherThread()
{
    std::unique_ptr<OpenDriver> driver;
    bool read = false;
    onAnotherThread([this, &driver] { driver = makeDriver(); });
    onAnotherThread([&driver, &read] {
        QSqlQuery query(driver->createResult());
        read = query.exec(generated(300)) && query.next();
    });
    onAnotherThread([&driver] { driver.reset(); });
    QVERIFY(read);
    QTRY_COMPARE(backends(), QStringLiteral("0"));
}

void tst_Threads::queryOutlivesItsDriverOnAnotherThread()
{
    std::unique_ptr<OpenDriver> driver = makeDriver();
    std::unique_ptr<QSqlQuery> query(new QSqlQuery(driver->createResult()));
    QVERIFY_SQL(*query, query->exec(generated(300)));
    QVERIFY(query->next());
    onAnotherThread([&driver] { driver.reset(); });
    bool more = true;
    onAnotherThread([&query, &more] {
        more = query->next();
        query.reset();
    });
    QVERIFY(!more);
}

QTEST_GUILESS_MAIN(tst_Threads)
#include "tst_threads.moc"
