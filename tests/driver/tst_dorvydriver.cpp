// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// DorvyDriver: open and close, transactions, the list of live results, and its end.
#include "driver/dorvydriver.h"

#include "access/dorvy3.h"
#include "driver/dorvydriver_p.h"
#include "driver/dorvyresult.h"
#include "driver/dorvyresult_p.h"
#include "tests/driver/opendriver.h"
#include "tests/driver/openresult.h"
#include "tests/support/dorvydatabase.h"
#include "tests/support/pgcluster.h"
#include "tests/support/someerror.h"
#include "tests/support/sqlmacros.h"
#include "tests/support/testaccess.h"
#include "tests/support/wireproxy.h"

#include <QtSql/QSqlDatabase>
#include <QtSql/QSqlField>
#include <QtSql/QSqlQuery>
#include <QtSql/QSqlRecord>
#include <QtTest/QtTest>

#include <atomic>
#include <functional>
#include <memory>
#include <thread>
#include <type_traits>

namespace {

QString applicationOptions(const char *name)
{
    return QStringLiteral("sslmode=disable;gssencmode=disable;application_name=") +
           QLatin1String(name);
}

// Whether an operation is declared in Class and not in one of its bases.
template<typename Class, typename Declaring, typename Signature>
bool declaredIn(Signature Declaring::* /*operation*/)
{
    return std::is_same<Class, Declaring>::value;
}

// Whether step, on a thread of its own, is still not done after msec while mutex is locked.
bool waitsFor(QMutex &mutex, const std::function<void()> &step, int msec)
{
    std::atomic<bool> done(false);
    mutex.lock();
    std::thread other([&step, &done]() {
        step();
        done = true;
    });
    QElapsedTimer timer;
    timer.start();
    while (!done && timer.elapsed() < msec) {
        QTest::qSleep(5);
    }
    const bool waited = !done;
    mutex.unlock();
    other.join();
    return waited;
}

// A line of the proxy's record, of the client's on one connection.
QString said(int connection, const char *words)
{
    return QString::number(connection) + QLatin1String("> ") + QLatin1String(words);
}

} // namespace

class tst_DorvyDriver : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void cleanupTestCase();

    void newDriverIsClosed();
    void dataLiveInThePrivateHalf();
    void operationsOfItsOwn();
    void operationsThatStayQts();
    void features_data();
    void features();
    void featureAboveTheLastIsFalse();
    void handleIsInvalid();

    void openTellsTheHandle();
    void openPassesItsArguments();
    void openSetsNoSearchPath();
    void failedOpen();
    void openOfUnknownDatabaseTellsTheServersReason();
    void openClearsEarlierError();
    void openLeavesQtsFlagsAlone();
    void openAgainConnectsAnew();
    void failedOpenAgainCloses();
    void isOpenAsksEachTime();
    void closeKeepsTheLastError();
    void closeOfClosedDriverDoesNothing();
    void databaseOpensThroughQt();

    void transactionsRunOnTheOwnConnection();
    void transactionWithoutConnection_data();
    void transactionWithoutConnection();
    void nestedTransactionIsRefused();
    void commitAfterFailedCommitClearsTheError();
    void beginClearsTheError();
    void rollbackClearsTheError();

    void bindKeepsOrder();
    void bindIgnoresNull();
    void unbindRemovesEveryEntry();
    void bindAndUnbindTakeTheLock();
    void resultsAreListedWhileTheyLive();
    void createResultMakesADorvyResult();

    void notificationsAreNotDelivered();
    void unsubscribeFromNothingReleasesAllResults();
    void unsubscribeGivesTheBorrowedConnectionBack();
    void unsubscribeClosesOnTheServer();
    void unsubscribeLeavesQueriesUsable();
    void unsubscribeFromANameChangesNothing_data();
    void unsubscribeFromANameChangesNothing();
    void unsubscribeFromANameTakesNoLock_data();
    void unsubscribeFromANameTakesNoLock();
    void unsubscribeHoldsItsLockWhileItTakesThePools();
    void unsubscribeReleasesInTheOrderOfCreation();
    void unsubscribeLeavesTheListUnlocked();
    void unsubscribeLeavesOtherDriversAlone();

    void driversShareOnePool();
    void poolLivesAsLongAsADriver();

    void queryOutlivesDriver();
    void resultOutlivesDeletedDriver();
    void removedDatabaseLeavesNoConnection();

private:
    bool openDriver(DorvyDriver &target, const QString &options = QString()) const;
    QSqlDatabase addDatabase(const QString &name) const;
    int backends(const char *application) const;

    PgCluster cluster;
    std::unique_ptr<WireProxy> proxy;
    QSharedPointer<Dorvy3Transacted> pool;
    std::unique_ptr<OpenDriver> driver;
};

void tst_DorvyDriver::initTestCase()
{
    QVERIFY2(cluster.start(), qPrintable(cluster.why()));
    proxy.reset(new WireProxy(cluster.socketDir(), cluster.port()));
    cluster.run(QStringLiteral("CREATE TABLE written (a int)"));
}

void tst_DorvyDriver::cleanupTestCase()
{
    proxy.reset();
}

void tst_DorvyDriver::init()
{
    pool = QSharedPointer<Dorvy3Transacted>::create();
    driver.reset(new OpenDriver(pool));
}

void tst_DorvyDriver::cleanup()
{
    driver.reset();
    pool.reset();
    cluster.run(QStringLiteral("TRUNCATE written"));
}

bool tst_DorvyDriver::openDriver(DorvyDriver &target, const QString &options) const
{
    return target.open(QStringLiteral("postgres"), cluster.user(), QString(), proxy->host(),
                       proxy->port(), options.isEmpty() ? applicationOptions("test") : options);
}

QSqlDatabase tst_DorvyDriver::addDatabase(const QString &name) const
{
    QSqlDatabase db = addDorvyDatabase(name, cluster, QStringLiteral("postgres"), pool);
    db.setConnectOptions(QStringLiteral("application_name=") + name);
    return db;
}

int tst_DorvyDriver::backends(const char *application) const
{
    return cluster
        .value(QStringLiteral("SELECT count(*) FROM pg_stat_activity WHERE application_name = '") +
               QLatin1String(application) + QLatin1Char('\''))
        .toInt();
}

void tst_DorvyDriver::newDriverIsClosed()
{
    QVERIFY(!driver->isOpen());
    QVERIFY(!driver->isOpenError());
    VERIFY_NO_ERROR(driver->lastError());
    QCOMPARE(driver->numericalPrecisionPolicy(), QSql::LowPrecisionDouble);
    QCOMPARE(driver->dbmsType(), QSqlDriver::PostgreSQL);
    QVERIFY(driver->half().results.isEmpty());
    QVERIFY(!driver->parent());
    QObject parent;
    const auto *child = new DorvyDriver(pool, &parent);
    QCOMPARE(child->parent(), &parent);
}

void tst_DorvyDriver::dataLiveInThePrivateHalf()
{
    QCOMPARE(sizeof(DorvyDriver), sizeof(QSqlDriver));
    // In this order, so that the handle goes last: it is what the list's results run on.
    const auto address = [](const auto &field) { return reinterpret_cast<quintptr>(&field); };
    const DorvyDriverPrivate &half = driver->half();
    QVERIFY(address(half.database) < address(half.results));
    QVERIFY(address(half.results) < address(half.mutex));
}

void tst_DorvyDriver::operationsOfItsOwn()
{
    QVERIFY(declaredIn<DorvyDriver>(&DorvyDriver::isOpen));
    QVERIFY(declaredIn<DorvyDriver>(&DorvyDriver::beginTransaction));
    QVERIFY(declaredIn<DorvyDriver>(&DorvyDriver::commitTransaction));
    QVERIFY(declaredIn<DorvyDriver>(&DorvyDriver::rollbackTransaction));
    QVERIFY(declaredIn<DorvyDriver>(&DorvyDriver::tables));
    QVERIFY(declaredIn<DorvyDriver>(&DorvyDriver::primaryIndex));
    QVERIFY(declaredIn<DorvyDriver>(&DorvyDriver::record));
    QVERIFY(declaredIn<DorvyDriver>(&DorvyDriver::formatValue));
    QVERIFY(declaredIn<DorvyDriver>(&DorvyDriver::escapeIdentifier));
    QVERIFY(declaredIn<DorvyDriver>(&DorvyDriver::handle));
    QVERIFY(declaredIn<DorvyDriver>(&DorvyDriver::hasFeature));
    QVERIFY(declaredIn<DorvyDriver>(&DorvyDriver::close));
    QVERIFY(declaredIn<DorvyDriver>(&DorvyDriver::createResult));
    QVERIFY(declaredIn<DorvyDriver>(&DorvyDriver::open));
    QVERIFY(declaredIn<DorvyDriver>(&DorvyDriver::subscribeToNotification));
    QVERIFY(declaredIn<DorvyDriver>(&DorvyDriver::unsubscribeFromNotification));
    QVERIFY(declaredIn<DorvyDriver>(&DorvyDriver::subscribedToNotifications));
}

void tst_DorvyDriver::operationsThatStayQts()
{
    QVERIFY(declaredIn<QSqlDriver>(&OpenDriver::sqlStatement));
    QVERIFY(declaredIn<QSqlDriver>(&OpenDriver::isIdentifierEscaped));
    QVERIFY(declaredIn<QSqlDriver>(&OpenDriver::stripDelimiters));
    QVERIFY(declaredIn<QSqlDriver>(&OpenDriver::cancelQuery));
    QVERIFY(declaredIn<QSqlDriver>(&OpenDriver::setOpen));
    QVERIFY(declaredIn<QSqlDriver>(&OpenDriver::setOpenError));
    QVERIFY(declaredIn<QSqlDriver>(&OpenDriver::setLastError));
}

void tst_DorvyDriver::features_data()
{
    QTest::addColumn<int>("feature");
    QTest::addColumn<bool>("answer");
    QTest::newRow("Transactions") << int(QSqlDriver::Transactions) << true;
    QTest::newRow("QuerySize") << int(QSqlDriver::QuerySize) << true;
    QTest::newRow("BLOB") << int(QSqlDriver::BLOB) << true;
    QTest::newRow("Unicode") << int(QSqlDriver::Unicode) << true;
    QTest::newRow("PreparedQueries") << int(QSqlDriver::PreparedQueries) << true;
    QTest::newRow("NamedPlaceholders") << int(QSqlDriver::NamedPlaceholders) << false;
    QTest::newRow("PositionalPlaceholders") << int(QSqlDriver::PositionalPlaceholders) << true;
    QTest::newRow("LastInsertId") << int(QSqlDriver::LastInsertId) << true;
    QTest::newRow("BatchOperations") << int(QSqlDriver::BatchOperations) << false;
    QTest::newRow("SimpleLocking") << int(QSqlDriver::SimpleLocking) << false;
    QTest::newRow("LowPrecisionNumbers") << int(QSqlDriver::LowPrecisionNumbers) << true;
    QTest::newRow("EventNotifications") << int(QSqlDriver::EventNotifications) << true;
    QTest::newRow("FinishQuery") << int(QSqlDriver::FinishQuery) << false;
    QTest::newRow("MultipleResultSets") << int(QSqlDriver::MultipleResultSets) << false;
    QTest::newRow("CancelQuery") << int(QSqlDriver::CancelQuery) << false;
}

void tst_DorvyDriver::features()
{
    QFETCH(int, feature);
    QFETCH(bool, answer);
    QCOMPARE(driver->hasFeature(static_cast<QSqlDriver::DriverFeature>(feature)), answer);
    QVERIFY(openDriver(*driver)); // the same when open
    QCOMPARE(driver->hasFeature(static_cast<QSqlDriver::DriverFeature>(feature)), answer);
}

void tst_DorvyDriver::featureAboveTheLastIsFalse()
{
    QVERIFY(!driver->hasFeature(static_cast<QSqlDriver::DriverFeature>(15)));
}

void tst_DorvyDriver::handleIsInvalid()
{
    QVERIFY(!driver->handle().isValid());
    QVERIFY(openDriver(*driver));
    QVERIFY(!driver->handle().isValid());
}

void tst_DorvyDriver::openTellsTheHandle()
{
    QVERIFY_SQL(*driver, openDriver(*driver));
    QVERIFY(driver->isOpen());
    VERIFY_NO_ERROR(driver->lastError());
    driver->close();
    QVERIFY(!driver->isOpen());
    QVERIFY_SQL(*driver, openDriver(*driver));
    QVERIFY(driver->isOpen());
}

void tst_DorvyDriver::openPassesItsArguments()
{
    // What has no password does not ask for one.
    QVERIFY_SQL(*driver, driver->open(QStringLiteral("postgres"), QStringLiteral("dorvy"),
                                      QStringLiteral("se'cret"), proxy->host(), proxy->port(),
                                      applicationOptions("arguments")));
    QCOMPARE(Dorvy3TestAccess::connectionString(driver->half().database),
             QStringLiteral("host='127.0.0.1' dbname='postgres' user='dorvy' "
                            "password='se\\'cret' port='%1' sslmode=disable gssencmode=disable "
                            "application_name=arguments")
                 .arg(proxy->port()));
    QCOMPARE(backends("arguments"), 1);
}

void tst_DorvyDriver::openSetsNoSearchPath()
{
    proxy->clear();
    QVERIFY_SQL(*driver, openDriver(*driver));
    QVERIFY(Dorvy3TestAccess::schema(driver->half().database).isEmpty());
    const int own = proxy->connectionCount();
    QCOMPARE(proxy->frontend(own), QStringList({said(own, "Startup dorvy postgres"),
                                                said(own, "Query \"SET DATESTYLE TO 'ISO'\"")}));
}

void tst_DorvyDriver::failedOpen()
{
    // A folder without a server's socket.
    QVERIFY(!driver->open(QStringLiteral("postgres"), QStringLiteral("dorvy"), QString(),
                          QStringLiteral("/nowhere"), 5432, QString()));
    COMPARE_ERROR(
        driver->lastError(), ConnectionError,
        QStringLiteral("connection to server on socket \"/nowhere/.s.PGSQL.5432\" failed: No such "
                       "file or directory\n\tIs the server running locally and accepting "
                       "connections on that socket?\n"),
        QStringLiteral("Ошибка при установке соединения с СУБД"), QString());
    QVERIFY(!driver->isOpen());
    QVERIFY(!driver->isOpenError());
}

void tst_DorvyDriver::openOfUnknownDatabaseTellsTheServersReason()
{
    QVERIFY(!driver->open(QStringLiteral("unknown"), QStringLiteral("dorvy"), QString(),
                          cluster.socketDir(), cluster.port(), QString()));
    COMPARE_ERROR(driver->lastError(), ConnectionError,
                  QStringLiteral("connection to server on socket \"%1/.s.PGSQL.%2\" failed: "
                                 "FATAL:  database \"unknown\" does not exist\n")
                      .arg(cluster.socketDir())
                      .arg(cluster.port()),
                  QStringLiteral("Ошибка при установке соединения с СУБД"), QString());
    QVERIFY(!driver->isOpenError());
}

void tst_DorvyDriver::openClearsEarlierError()
{
    driver->setLastError(someError());
    QVERIFY(openDriver(*driver));
    VERIFY_NO_ERROR(driver->lastError());
}

void tst_DorvyDriver::openLeavesQtsFlagsAlone()
{
    driver->setOpenError(true);
    QVERIFY_SQL(*driver, openDriver(*driver));
    QVERIFY(driver->isOpen());
    QVERIFY(!driver->QSqlDriver::isOpen()); // nothing asks it
    QVERIFY(driver->isOpenError());
    driver->setOpenError(false);
    driver->setOpen(true);
    driver->close();
    QVERIFY(!driver->isOpen());
    QVERIFY(driver->QSqlDriver::isOpen());
}

void tst_DorvyDriver::openAgainConnectsAnew()
{
    QVERIFY(openDriver(*driver, applicationOptions("first")));
    QVERIFY(openDriver(*driver, applicationOptions("second")));
    QVERIFY(driver->isOpen());
    QTRY_COMPARE(backends("first"), 0);
    QCOMPARE(backends("second"), 1);
}

void tst_DorvyDriver::failedOpenAgainCloses()
{
    QVERIFY(openDriver(*driver));
    QVERIFY(
        !driver->open(QString(), QString(), QString(), QStringLiteral("/nowhere"), -1, QString()));
    QVERIFY(!driver->isOpen());
    QVERIFY(!driver->isOpenError());
}

void tst_DorvyDriver::isOpenAsksEachTime()
{
    QVERIFY(openDriver(*driver));
    proxy->cut();
    driver->beginTransaction(); // which finds out
    QVERIFY(!driver->isOpen());
}

void tst_DorvyDriver::closeKeepsTheLastError()
{
    QVERIFY(openDriver(*driver));
    QVERIFY(!driver->commitTransaction());
    const QSqlError before = driver->lastError();
    driver->close();
    QVERIFY(!driver->isOpen());
    QCOMPARE(driver->lastError(), before);
    QCOMPARE(driver->lastError().driverText(), QStringLiteral("Невозможно завершить транзакцию"));
}

void tst_DorvyDriver::closeOfClosedDriverDoesNothing()
{
    driver->setLastError(someError());
    driver->close();
    QCOMPARE(driver->lastError(), someError());
    QVERIFY(openDriver(*driver));
    driver->close();
    driver->close();
    QVERIFY(!driver->isOpen());
}

void tst_DorvyDriver::databaseOpensThroughQt()
{
    const QString name = QStringLiteral("throughqt");
    {
        QSqlDatabase db = addDatabase(name);
        QVERIFY(!db.isOpen());
        QVERIFY_SQL(db, db.open());
        QVERIFY(db.isOpen());
        QVERIFY(db.isValid());
        db.close();
        QVERIFY(!db.isOpen());
        db.setHostName(QStringLiteral("/nowhere"));
        QVERIFY(!db.open());
        QVERIFY(!db.isOpenError());
        QCOMPARE(db.lastError().type(), QSqlError::ConnectionError);
    }
    QSqlDatabase::removeDatabase(name);
}

void tst_DorvyDriver::transactionsRunOnTheOwnConnection()
{
    QVERIFY(openDriver(*driver));
    OpenResult rows(driver.get());
    QVERIFY(rows.reset(QStringLiteral("SELECT generate_series(1, 300)"))); // borrows another
    proxy->clear();
    QVERIFY_SQL(*driver, driver->beginTransaction());
    QVERIFY_SQL(*driver, driver->commitTransaction());
    QVERIFY_SQL(*driver, driver->beginTransaction());
    QVERIFY_SQL(*driver, driver->rollbackTransaction());
    const int own = proxy->connectionCount() - 1;
    QCOMPARE(proxy->frontend(),
             QStringList({said(own, "Query \"BEGIN\""), said(own, "Query \"COMMIT\""),
                          said(own, "Query \"BEGIN\""), said(own, "Query \"ROLLBACK\"")}));
}

void tst_DorvyDriver::transactionWithoutConnection_data()
{
    QTest::addColumn<QString>("operation");
    QTest::addColumn<QString>("driverText");
    QTest::newRow("begin") << QStringLiteral("begin")
                           << QStringLiteral("Невозможно начать транзакцию");
    QTest::newRow("commit") << QStringLiteral("commit")
                            << QStringLiteral("Невозможно завершить транзакцию");
    QTest::newRow("rollback") << QStringLiteral("rollback")
                              << QStringLiteral("Невозможно отменить транзакцию");
}

void tst_DorvyDriver::transactionWithoutConnection()
{
    QFETCH(QString, operation);
    QFETCH(QString, driverText);
    bool done = true;
    if (operation == QLatin1String("begin")) {
        done = driver->beginTransaction();
    } else if (operation == QLatin1String("commit")) {
        done = driver->commitTransaction();
    } else {
        done = driver->rollbackTransaction();
    }
    QVERIFY(!done);
    COMPARE_ERROR(driver->lastError(), TransactionError, driverText,
                  QStringLiteral("Отсутствует соединение с СУБД"), QString());
}

void tst_DorvyDriver::nestedTransactionIsRefused()
{
    QVERIFY(openDriver(*driver));
    QVERIFY(driver->beginTransaction());
    QVERIFY(!driver->beginTransaction());
    COMPARE_ERROR(
        driver->lastError(), TransactionError, QStringLiteral("Невозможно начать транзакцию"),
        QStringLiteral("Текущее состояние соединения запрещает начало транзакции"), QString());
    QVERIFY(driver->commitTransaction()); // the open one is still there
}

void tst_DorvyDriver::commitAfterFailedCommitClearsTheError()
{
    QVERIFY(openDriver(*driver));
    QVERIFY(!driver->commitTransaction());
    COMPARE_ERROR(
        driver->lastError(), TransactionError, QStringLiteral("Невозможно завершить транзакцию"),
        QStringLiteral("Текущее состояние соединения запрещает завершение транзакции"), QString());
    QVERIFY(driver->half().database.beginTransaction().type() == QSqlError::NoError);
    QVERIFY(driver->commitTransaction());
    VERIFY_NO_ERROR(driver->lastError());
}

void tst_DorvyDriver::beginClearsTheError()
{
    QVERIFY(openDriver(*driver));
    driver->setLastError(someError());
    QVERIFY(driver->beginTransaction());
    VERIFY_NO_ERROR(driver->lastError());
}

void tst_DorvyDriver::rollbackClearsTheError()
{
    QVERIFY(openDriver(*driver));
    driver->setLastError(someError());
    QVERIFY(driver->rollbackTransaction()); // also when there is nothing to roll back
    VERIFY_NO_ERROR(driver->lastError());
}

void tst_DorvyDriver::bindKeepsOrder()
{
    DorvyDriverPrivate &half = driver->half();
    const OpenResult first(driver.get());
    const OpenResult second(driver.get());
    const OpenResult third(driver.get());
    QCOMPARE(half.results, (QList<qint64>{first.address(), second.address(), third.address()}));
}

void tst_DorvyDriver::bindIgnoresNull()
{
    DorvyDriverPrivate &half = driver->half();
    half.bind(nullptr);
    QVERIFY(half.results.isEmpty());
    const OpenResult result(driver.get());
    half.unbind(nullptr);
    QCOMPARE(half.results, QList<qint64>{result.address()});
}

void tst_DorvyDriver::unbindRemovesEveryEntry()
{
    DorvyDriverPrivate &half = driver->half();
    const OpenResult other(driver.get());
    const OpenResult result(driver.get());
    auto *entry = reinterpret_cast<DorvyResultPrivate *>(result.address());
    half.bind(entry);
    QCOMPARE(half.results, (QList<qint64>{other.address(), result.address(), result.address()}));
    half.unbind(entry);
    QCOMPARE(half.results, QList<qint64>{other.address()});
    half.unbind(entry); // which is not there any more
    QCOMPARE(half.results, QList<qint64>{other.address()});
}

void tst_DorvyDriver::bindAndUnbindTakeTheLock()
{
    DorvyDriverPrivate &half = driver->half();
    const OpenResult result(driver.get());
    auto *entry = reinterpret_cast<DorvyResultPrivate *>(result.address());
    QVERIFY(waitsFor(
        half.mutex, [&half, entry]() { half.bind(entry); }, 50));
    QVERIFY(waitsFor(
        half.mutex, [&half, entry]() { half.unbind(entry); }, 50));
    QVERIFY(half.results.isEmpty());
    half.bind(entry); // again, for the result's own end
}

void tst_DorvyDriver::resultsAreListedWhileTheyLive()
{
    const OpenResult first(driver.get());
    {
        const OpenResult second(driver.get());
        QCOMPARE(driver->half().results.size(), 2);
    }
    QCOMPARE(driver->half().results, QList<qint64>{first.address()});
    QVERIFY(openDriver(*driver)); // open and closed alike
    driver->close();
    QCOMPARE(driver->half().results, QList<qint64>{first.address()});
}

void tst_DorvyDriver::createResultMakesADorvyResult()
{
    const std::unique_ptr<QSqlResult> result(driver->createResult());
    QVERIFY(dynamic_cast<DorvyResult *>(result.get()));
    QCOMPARE(driver->half().results.size(), 1);
}

void tst_DorvyDriver::notificationsAreNotDelivered()
{
    QVERIFY(openDriver(*driver));
    driver->setLastError(someError());
    QVERIFY(!driver->subscribeToNotification(QStringLiteral("news")));
    QCOMPARE(driver->subscribedToNotifications(), QStringList());
    QVERIFY(!driver->unsubscribeFromNotification(QStringLiteral("news")));
    QVERIFY(!driver->unsubscribeFromNotification(QString()));
    QCOMPARE(driver->lastError(), someError());
}

void tst_DorvyDriver::unsubscribeFromNothingReleasesAllResults()
{
    QVERIFY(openDriver(*driver));
    OpenResult walking(driver.get());
    OpenResult prepared(driver.get());
    OpenResult written(driver.get());
    QVERIFY(walking.reset(QStringLiteral("SELECT generate_series(1, 300)")));
    QVERIFY(walking.fetchFirst());
    QVERIFY(prepared.prepare(QStringLiteral("SELECT ?::int")));
    QVERIFY(written.reset(QStringLiteral("INSERT INTO written VALUES (1)")));
    const QList<qint64> listed = driver->half().results;
    QVERIFY(!driver->unsubscribeFromNotification(QString()));
    QCOMPARE(driver->half().results, listed); // alive and registered
    QVERIFY(!walking.fetchNext());
    VERIFY_NO_ERROR(walking.lastError());
    QCOMPARE(walking.size(), -1);
    QCOMPARE(written.size(), -1);
    QCOMPARE(walking.record().count(), 1);
    QVERIFY(walking.isActive());
    QVERIFY(!prepared.exec());
    COMPARE_ERROR(prepared.lastError(), StatementError,
                  QStringLiteral("Невозможно выполнить запрос"),
                  QStringLiteral("Запрос не подготовлен"), QStringLiteral("0"));
}

void tst_DorvyDriver::unsubscribeGivesTheBorrowedConnectionBack()
{
    QVERIFY(openDriver(*driver));
    const Dorvy3Database &database = driver->half().database;
    OpenResult first(driver.get());
    OpenResult second(driver.get());
    QVERIFY(first.reset(QStringLiteral("SELECT 1")));
    QVERIFY(second.reset(QStringLiteral("SELECT 2")));
    QCOMPARE(Dorvy3TestAccess::boundCount(database), 2);
    const auto borrowed = Dorvy3TestAccess::readConnection(database);
    QVERIFY(!driver->unsubscribeFromNotification(QString()));
    QCOMPARE(Dorvy3TestAccess::boundCount(database), 0);
    QVERIFY(!Dorvy3TestAccess::readConnection(database));
    const auto spares =
        Dorvy3TestAccess::spares(*pool, Dorvy3TestAccess::connectionString(database));
    QCOMPARE(spares.size(), 1);
    QCOMPARE(spares.first(), borrowed);
}

void tst_DorvyDriver::unsubscribeClosesOnTheServer()
{
    QVERIFY(openDriver(*driver));
    OpenResult first(driver.get());
    OpenResult second(driver.get());
    QVERIFY(first.reset(QStringLiteral("SELECT generate_series(1, 300)")));
    QVERIFY(second.reset(QStringLiteral("INSERT INTO written VALUES (1)")));
    const int borrowed = proxy->connectionCount();
    const int own = proxy->connectionCount() - 1;
    proxy->clear();
    QVERIFY(!driver->unsubscribeFromNotification(QString()));
    QVERIFY(proxy->waitForLine(said(own, "Sync"))); // which nobody waits for
    QStringList words = proxy->frontend();
    words.sort();
    QStringList expected{said(own, "Close P P2"),
                         said(own, "Close S S2"),
                         said(own, "Sync"),
                         said(borrowed, "Close P P1"),
                         said(borrowed, "Close S S1"),
                         said(borrowed, "Sync"),
                         said(borrowed, "Query \"ROLLBACK\"")};
    expected.sort();
    QCOMPARE(words, expected);
}

void tst_DorvyDriver::unsubscribeLeavesQueriesUsable()
{
    QVERIFY(openDriver(*driver));
    OpenResult result(driver.get());
    QVERIFY(result.reset(QStringLiteral("SELECT 1")));
    QVERIFY(!driver->unsubscribeFromNotification(QString()));
    QVERIFY_SQL(result, result.reset(QStringLiteral("SELECT 2")));
    QVERIFY(result.fetchFirst());
    QVERIFY_SQL(result, result.prepare(QStringLiteral("SELECT 3")));
    QVERIFY_SQL(result, result.exec());
    QVERIFY(result.fetchFirst());
}

void tst_DorvyDriver::unsubscribeFromANameChangesNothing_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("empty, not null") << QStringLiteral("");
    QTest::newRow("some name") << QStringLiteral("news");
    QTest::newRow("blank") << QStringLiteral(" ");
}

void tst_DorvyDriver::unsubscribeFromANameChangesNothing()
{
    QFETCH(QString, name);
    QVERIFY(!name.isNull());
    QVERIFY(openDriver(*driver));
    OpenResult walking(driver.get());
    OpenResult prepared(driver.get());
    QVERIFY(walking.reset(QStringLiteral("SELECT generate_series(1, 300)")));
    QVERIFY(walking.fetchFirst());
    QVERIFY(prepared.prepare(QStringLiteral("SELECT 1")));
    const int count = proxy->connectionCount();
    proxy->clear();
    QVERIFY(!driver->unsubscribeFromNotification(name));
    QCOMPARE(proxy->frontend(), QStringList());
    QCOMPARE(proxy->connectionCount(), count);
    QVERIFY(walking.fetchNext());
    QCOMPARE(walking.size(), 128);
    QVERIFY_SQL(prepared, prepared.exec());
}

void tst_DorvyDriver::unsubscribeFromANameTakesNoLock_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("empty, not null") << QStringLiteral("");
    QTest::newRow("some name") << QStringLiteral("news");
}

void tst_DorvyDriver::unsubscribeFromANameTakesNoLock()
{
    QFETCH(QString, name);
    DorvyDriverPrivate &half = driver->half();
    QVERIFY(!waitsFor(
        half.mutex, [&half, &name]() { half.unsubscribeFromNotification(name); }, 5000));
}

void tst_DorvyDriver::unsubscribeHoldsItsLockWhileItTakesThePools()
{
    QVERIFY(openDriver(*driver));
    OpenResult result(driver.get());
    QVERIFY(result.reset(QStringLiteral("SELECT 1")));
    DorvyDriverPrivate &half = driver->half();
    QMutex &poolsLock = Dorvy3TestAccess::lock(*pool);
    poolsLock.lock();
    std::thread walk([&half]() { half.unsubscribeFromNotification(QString()); });
    // The last statement's end gives the borrowed connection back to the pool, which is locked.
    for (int i = 0; i < 1000 && Dorvy3TestAccess::boundCount(half.database) > 0; ++i) {
        QTest::qSleep(5);
    }
    const bool held = !half.mutex.tryLock();
    if (!held) {
        half.mutex.unlock();
    }
    poolsLock.unlock();
    walk.join();
    QVERIFY(held);
    QCOMPARE(Dorvy3TestAccess::boundCount(half.database), 0);
    QCOMPARE(result.size(), -1);
}

void tst_DorvyDriver::unsubscribeReleasesInTheOrderOfCreation()
{
    QVERIFY(openDriver(*driver));
    OpenResult first(driver.get());
    OpenResult second(driver.get());
    proxy->clear();
    // Prepared the other way round: the order is that of the results, not of their statements.
    QVERIFY(second.prepare(QStringLiteral("INSERT INTO written VALUES (2)")));
    QVERIFY(first.prepare(QStringLiteral("INSERT INTO written VALUES (1)")));
    QVERIFY(!driver->unsubscribeFromNotification(QString()));
    QTRY_COMPARE(proxy->frontend().filter(QStringLiteral("Close S")).size(), 2);
    const int own = proxy->connectionCount();
    QCOMPARE(proxy->frontend().filter(QStringLiteral("Close S")),
             QStringList({said(own, "Close S S2"), said(own, "Close S S1")}));
}

void tst_DorvyDriver::unsubscribeLeavesTheListUnlocked()
{
    const OpenResult result(driver.get());
    QVERIFY(!driver->unsubscribeFromNotification(QString()));
    QVERIFY(driver->half().mutex.tryLock());
    QVERIFY(!driver->half().mutex.tryLock()); // a plain one, not recursive
    driver->half().mutex.unlock();
}

void tst_DorvyDriver::unsubscribeLeavesOtherDriversAlone()
{
    OpenDriver other(pool);
    QVERIFY(openDriver(*driver));
    QVERIFY(openDriver(other));
    OpenResult result(&other);
    QVERIFY(result.reset(QStringLiteral("SELECT generate_series(1, 300)")));
    QVERIFY(!driver->unsubscribeFromNotification(QString()));
    QVERIFY(result.fetchFirst());
}

void tst_DorvyDriver::driversShareOnePool()
{
    OpenDriver other(pool);
    QVERIFY(openDriver(*driver));
    QVERIFY(openDriver(other));
    QSharedPointer<Dorvy3Connection> borrowed;
    {
        OpenResult result(driver.get());
        QVERIFY(result.reset(QStringLiteral("SELECT 1")));
        borrowed = Dorvy3TestAccess::readConnection(driver->half().database);
        QVERIFY(borrowed);
    }
    OpenResult result(&other);
    QVERIFY(result.reset(QStringLiteral("SELECT 1")));
    QCOMPARE(Dorvy3TestAccess::readConnection(other.half().database), borrowed);
}

void tst_DorvyDriver::poolLivesAsLongAsADriver()
{
    const QWeakPointer<Dorvy3Transacted> watched = pool;
    std::unique_ptr<OpenDriver> other(new OpenDriver(pool));
    pool.reset(); // as the plugin object does when it goes
    driver.reset();
    QVERIFY(watched.toStrongRef());
    other.reset();
    QVERIFY(!watched.toStrongRef());
}

void tst_DorvyDriver::queryOutlivesDriver()
{
    const QString name = QStringLiteral("outlived");
    std::unique_ptr<QSqlQuery> halfRead;
    std::unique_ptr<QSqlQuery> prepared;
    std::unique_ptr<QSqlQuery> executed;
    {
        QSqlDatabase db = addDatabase(name);
        QVERIFY_SQL(db, db.open());
        halfRead.reset(new QSqlQuery(db));
        prepared.reset(new QSqlQuery(db));
        executed.reset(new QSqlQuery(db));
    }
    QVERIFY_SQL(*halfRead, halfRead->exec(QStringLiteral("SELECT generate_series(1, 300)")));
    for (int i = 0; i < 200; ++i) {
        QVERIFY(halfRead->next());
    }
    QVERIFY_SQL(*prepared, prepared->prepare(QStringLiteral("SELECT ?::int")));
    QVERIFY_SQL(*executed, executed->exec(QStringLiteral("INSERT INTO written VALUES (1)")));
    QSqlDatabase::removeDatabase(name);

    for (QSqlQuery *query : {halfRead.get(), prepared.get(), executed.get()}) {
        QVERIFY(!query->driver());
        QVERIFY(!query->value(0).isValid());
        QCOMPARE(query->isNull(0), query != halfRead.get()); // Qt's own answer without a row
        QVERIFY(!query->record().value(0).isValid());
        QCOMPARE(query->numRowsAffected(), -1);
        QVERIFY(!query->lastInsertId().isValid());
        QVERIFY(!query->next());
        QVERIFY(!query->seek(5));
        QVERIFY(!query->seek(0));
        QVERIFY(!query->previous());
        QVERIFY(!query->first());
        QVERIFY(!query->last());
        QVERIFY(!query->next());
        QVERIFY(!query->lastError().isValid());
        QVERIFY(!query->result()->handle().isValid());
        query->addBindValue(7);
        QVERIFY(!query->exec());
        COMPARE_ERROR(query->lastError(), StatementError,
                      QStringLiteral("Невозможно выполнить запрос"),
                      QStringLiteral("Запрос не подготовлен"), QStringLiteral("0"));
        QVERIFY(!query->isActive());
        QVERIFY(!query->next());
        query->finish();
        QVERIFY(!query->exec());
    }
}

void tst_DorvyDriver::resultOutlivesDeletedDriver()
{
    std::unique_ptr<OpenResult> halfRead(new OpenResult(driver.get()));
    std::unique_ptr<OpenResult> untouched(new OpenResult(driver.get()));
    QVERIFY(openDriver(*driver));
    QVERIFY(halfRead->reset(QStringLiteral("SELECT generate_series(1, 300)")));
    QVERIFY(halfRead->fetchFirst());
    driver.reset(); // without a close() before
    QVERIFY(!halfRead->fetchNext());
    QCOMPARE(halfRead->size(), -1);
    QVERIFY(!halfRead->exec());
    QVERIFY(!untouched->exec());
    halfRead.reset();
    untouched.reset();
}

void tst_DorvyDriver::removedDatabaseLeavesNoConnection()
{
    const QString name = QStringLiteral("removed");
    std::unique_ptr<QSqlQuery> halfRead;
    {
        QSqlDatabase db = addDatabase(name);
        QVERIFY_SQL(db, db.open());
        halfRead.reset(new QSqlQuery(db));
    }
    QVERIFY_SQL(*halfRead, halfRead->exec(QStringLiteral("SELECT generate_series(1, 300)")));
    QVERIFY(halfRead->next());
    QCOMPARE(backends("removed"), 2);
    QSqlDatabase::removeDatabase(name);
    QTRY_COMPARE(backends("removed"), 0);
}

QTEST_GUILESS_MAIN(tst_DorvyDriver)
#include "tst_dorvydriver.moc"
