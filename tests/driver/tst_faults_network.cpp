// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// What the driver says when the network loses packets, and when the server is there and silent.
#include "tests/driver/behaviour.h"
#include "tests/support/privatenetwork.h"
#include "tests/support/wireproxy.h"

#include <QtCore/QElapsedTimer>

#include <atomic>
#include <csignal>
#include <future>
#include <memory>
#include <thread>

namespace {

// Packets are given up after half a second in place of a quarter of an hour, and a wait for an answer
// is looked after every second.
constexpr char Watchful[] = "sslmode=disable;gssencmode=disable;tcp_user_timeout=500;"
                            "keepalives_idle=1;keepalives_interval=1;keepalives_count=2";
constexpr char Unwatched[] = "sslmode=disable;gssencmode=disable";
constexpr int PatienceMsec = 20000; // far from a quarter of an hour, on a busy machine too
constexpr int TimeoutMsec = 500;    // Watchful's
constexpr int SilenceMsec = 3000;   // longer than the timers above need

constexpr char TimedOut[] = "could not receive data from server: Connection timed out\n";
constexpr char HungUp[] = "server closed the connection unexpectedly\n"
                          "\tThis probably means the server terminated abnormally\n"
                          "\tbefore or while processing the request.\n";

// A process that does nothing, with a kernel that goes on in its place.
class Silenced
{
public:
    explicit Silenced(pid_t process)
        : pid(process)
    {
        kill(pid, SIGSTOP);
    }
    ~Silenced() { speak(); }
    void speak() const { kill(pid, SIGCONT); }

private:
    Q_DISABLE_COPY(Silenced)

    const pid_t pid;
};

QString hlpTableCount(const QString &name)
{
    return "SELECT count(*) FROM pg_tables WHERE tablename = '" + name + "'";
}

} // namespace

class tst_FaultsNetwork : public QObject, private Behaviour
{
    Q_OBJECT

public:
    // As long as this is the program's only thread; Qt Test has another.
    tst_FaultsNetwork()
        : started(start())
        , entered(started && network.enter())
    {
    }

private slots:
    void initTestCase();
    void cleanupTestCase() { proxy.reset(); }
    void init();
    void cleanup();

    void commandInProgressIsGivenUp();
    void readInProgressIsGivenUp();
    void commandThatDoesNotArriveIsGivenUp();
    void nextPageIsGivenUp();
    void commitThatDoesNotArriveHasNotHappened();
    void commitWhoseAnswerIsLostHasHappened();
    void rollbackIsGivenUp();
    void givingBackIsGivenUp();
    void closingDoesNotWait();
    void openingIsGivenUp();
    void outageThatNobodyNoticesIsSurvived();

    void silentServerIsWaitedForUntilItIsCut();
    void silentSpareKeepsOtherBorrowersWaiting();

private:
    bool openWith(const QSqlDatabase &database, const char *options) const;
    std::thread pullWhen(const QString &condition) const;
    bool writesAndReads(const QString &name) const;
    void worksAgain();

    PrivateNetwork network;
    const bool started;
    const bool entered;
    std::unique_ptr<WireProxy> proxy;
    QElapsedTimer waited;
};

void tst_FaultsNetwork::initTestCase()
{
    QVERIFY2(started, qPrintable(cluster.why()));
    QVERIFY2(entered, qPrintable(network.why()));
    network.inFar([this] {
        proxy.reset(new WireProxy(cluster.socketDir(), cluster.port(), network.farAddress()));
    });
}

void tst_FaultsNetwork::init()
{
    QVERIFY(openAnew("CREATE TABLE kept AS SELECT 'committed'::text AS a"));
    QVERIFY(openWith(db, Watchful));
}

// The server still serves what the driver has given up.
void tst_FaultsNetwork::cleanup()
{
    QSqlDatabase::removeDatabase("locker");
    closeForGood();
    QVERIFY(network.plug());
    proxy->holdReplies(false);
    proxy->holdRequests(false);
    proxy->cut();
    proxy->clear();
    const QString others = "FROM pg_stat_activity WHERE application_name = 'faulty'";
    cluster.run("SELECT pg_terminate_backend(pid) " + others);
    QTRY_COMPARE(cluster.value("SELECT count(*) " + others), QString("0"));
}

bool tst_FaultsNetwork::openWith(const QSqlDatabase &database, const char *options) const
{
    QSqlDatabase opened = database;
    opened.close();
    opened.setHostName(proxy->host());
    opened.setPort(proxy->port());
    opened.setConnectOptions(QString("application_name=faulty;") + options);
    return opened.open();
}

// Cuts the cable as soon as one of the driver's sessions meets the condition.
std::thread tst_FaultsNetwork::pullWhen(const QString &condition) const
{
    return std::thread([this, condition] {
        const QString met =
            "SELECT count(*) FROM pg_stat_activity WHERE application_name = 'faulty' AND " +
            condition;
        QElapsedTimer timer;
        timer.start();
        while (cluster.value(met) == "0" && !timer.hasExpired(PatienceMsec)) {
            QTest::qSleep(10);
        }
        network.pull();
    });
}

// Opens a database, makes a table on its own connection and reads through a borrowed one.
bool tst_FaultsNetwork::writesAndReads(const QString &name) const
{
    bool done = false;
    {
        QSqlDatabase database = another(name);
        if (openWith(database, Watchful)) {
            QSqlQuery query(database);
            done = query.exec("CREATE TABLE " + name + " (a int)") && query.exec("SELECT 1");
        }
    }
    QSqlDatabase::removeDatabase(name);
    return done;
}

void tst_FaultsNetwork::worksAgain()
{
    QVERIFY(waited.elapsed() < PatienceMsec);
    QVERIFY(network.plug());
    db.close();
    QVERIFY(db.open());
    QSqlQuery query(db);
    QVERIFY(query.exec("SELECT a FROM kept"));
    QVERIFY(query.next());
    QCOMPARE(query.value(0).toString(), QString("committed"));
    QVERIFY(query.exec("CREATE TABLE more (a int)"));
}

void tst_FaultsNetwork::commandInProgressIsGivenUp()
{
    QSqlQuery query(db);
    std::thread cut = pullWhen("wait_event = 'PgSleep'");
    waited.start();
    const bool executed = query.exec("DO 'BEGIN PERFORM pg_sleep(600); END'");
    cut.join();
    QVERIFY(!executed);
    COMPARE_TEXTS(query.lastError(), TimedOut, ExecuteFailed);
    QVERIFY(!db.isOpen());
    worksAgain();
}

void tst_FaultsNetwork::readInProgressIsGivenUp()
{
    QSqlQuery query(db);
    std::thread cut = pullWhen("wait_event = 'PgSleep'");
    waited.start();
    const bool executed = query.exec("SELECT pg_sleep(600)");
    cut.join();
    QVERIFY(!executed);
    COMPARE_TEXTS(query.lastError(), TimedOut, ExecuteFailed);
    worksAgain();
}

void tst_FaultsNetwork::commandThatDoesNotArriveIsGivenUp()
{
    QSqlQuery query(db);
    QVERIFY(query.prepare("INSERT INTO kept VALUES (?)"));
    query.addBindValue("lost");
    QVERIFY(network.pull());
    waited.start();
    QVERIFY(!query.exec());
    COMPARE_TEXTS(query.lastError(), TimedOut, ExecuteFailed);
    QVERIFY(!db.isOpen());
    worksAgain();
    QCOMPARE(cluster.value("SELECT count(*) FROM kept"), QString("1"));
}

void tst_FaultsNetwork::nextPageIsGivenUp()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("SELECT generate_series(1, 300)"));
    QVERIFY(network.pull());
    QVERIFY(query.last());
    QCOMPARE(query.value(0).toInt(), 128); // what has come is there
    waited.start();
    QVERIFY(!query.next());
    COMPARE_TEXTS(query.lastError(), TimedOut, ExecuteFailed);
    worksAgain();
}

void tst_FaultsNetwork::commitThatDoesNotArriveHasNotHappened()
{
    QSqlQuery query(db);
    QVERIFY(db.transaction());
    QVERIFY(query.exec("INSERT INTO kept VALUES ('lost')"));
    QVERIFY(network.pull());
    waited.start();
    QVERIFY(!db.commit());
    COMPARE_TEXTS(db.lastError(), "Ошибка при попытке завершить транзакцию", TimedOut);
    QCOMPARE(db.lastError().type(), QSqlError::TransactionError);
    worksAgain();
    QCOMPARE(cluster.run("SELECT a FROM kept"), QStringList{"committed"});
}

void tst_FaultsNetwork::commitWhoseAnswerIsLostHasHappened()
{
    cluster.run("CREATE FUNCTION slow() RETURNS trigger LANGUAGE plpgsql "
                "AS 'BEGIN PERFORM pg_advisory_xact_lock(1); RETURN NULL; END'");
    cluster.run("CREATE CONSTRAINT TRIGGER slow AFTER INSERT ON kept INITIALLY DEFERRED "
                "FOR EACH ROW EXECUTE PROCEDURE slow()");
    QSqlDatabase locker = another("locker");
    QVERIFY(locker.open());
    QVERIFY(QSqlQuery(locker).exec("DO 'BEGIN PERFORM pg_advisory_lock(1); END'"));
    QSqlQuery query(db);
    QVERIFY(db.transaction());
    QVERIFY(query.exec("INSERT INTO kept VALUES ('after all')"));
    std::thread cut = pullWhen("wait_event = 'advisory'"); // the commit has arrived
    waited.start();
    const bool committed = db.commit();
    cut.join();
    QVERIFY(!committed);
    COMPARE_TEXTS(db.lastError(), "Ошибка при попытке завершить транзакцию", TimedOut);
    QVERIFY(QSqlQuery(locker).exec("DO 'BEGIN PERFORM pg_advisory_unlock(1); END'"));
    QTRY_COMPARE(cluster.run("SELECT a FROM kept"), (QStringList{"committed", "after all"}));
    worksAgain();
}

void tst_FaultsNetwork::rollbackIsGivenUp()
{
    QVERIFY(db.transaction());
    QVERIFY(network.pull());
    waited.start();
    QVERIFY(!db.rollback());
    COMPARE_TEXTS(db.lastError(), "Ошибка при попытке отменить транзакцию", TimedOut);
    worksAgain();
}

// The borrowed connection rolls its transaction back and waits for the answer.
void tst_FaultsNetwork::givingBackIsGivenUp()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("SELECT generate_series(1, 300)"));
    QVERIFY(network.pull());
    waited.start();
    query.clear();
    QVERIFY(waited.hasExpired(TimeoutMsec - 100));
    QVERIFY(!query.lastError().isValid());
    worksAgain();
}

void tst_FaultsNetwork::closingDoesNotWait()
{
    QVERIFY(openWith(db, Unwatched)); // a wait would last a quarter of an hour
    QSqlQuery query(db);
    QVERIFY(query.exec("SELECT generate_series(1, 300)"));
    QVERIFY(db.transaction());
    QVERIFY(network.pull());
    waited.start();
    db.close();
    QVERIFY(!db.isOpen());
    QVERIFY(!query.lastError().isValid());
    worksAgain();
}

void tst_FaultsNetwork::openingIsGivenUp()
{
    db.close();
    db.setConnectOptions("connect_timeout=2"); // seconds, and the least that libpq takes
    QVERIFY(network.pull());
    waited.start();
    QVERIFY(!db.open());
    COMPARE_TEXTS(
        db.lastError(),
        QString("connection to server at \"192.0.2.2\", port %1 failed: timeout expired\n")
            .arg(proxy->port())
            .toUtf8(),
        "Ошибка при установке соединения с СУБД");
    QCOMPARE(db.lastError().type(), QSqlError::ConnectionError);
    worksAgain();
}

void tst_FaultsNetwork::outageThatNobodyNoticesIsSurvived()
{
    QVERIFY(openWith(db, Unwatched));
    QSqlQuery query(db);
    QVERIFY(db.transaction());
    QVERIFY(query.exec("INSERT INTO kept VALUES ('before')"));
    QSqlQuery read(db);
    QVERIFY(read.exec("SELECT generate_series(1, 300)"));
    QVERIFY(network.pull());
    QTest::qSleep(100); // an outage of any length, as nothing is sent
    QVERIFY(network.plug());
    QVERIFY(query.exec("INSERT INTO kept VALUES ('behind')"));
    QVERIFY(db.commit());
    QVERIFY(read.last());
    QVERIFY(read.next());
    QCOMPARE(read.value(0).toInt(), 129);
    QCOMPARE(cluster.value("SELECT count(*) FROM kept"), QString("3"));
}

// No timer of the network's helps, as the server's host is well.
void tst_FaultsNetwork::silentServerIsWaitedForUntilItIsCut()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("SELECT generate_series(1, 300)"));
    QVERIFY(query.last());
    proxy->holdReplies(true);
    std::atomic<bool> returned(false);
    std::atomic<bool> early(false);
    std::thread end([&] {
        QTest::qSleep(SilenceMsec);
        early = returned.load();
        proxy->cut();
    });
    const bool turned = query.next();
    returned = true;
    end.join();
    QVERIFY(!turned);
    QVERIFY(!early);
    COMPARE_TEXTS(query.lastError(), HungUp, ExecuteFailed);
    proxy->holdReplies(false);
    waited.start();
    worksAgain();
}

// A spare is made ready under the pool's lock.
void tst_FaultsNetwork::silentSpareKeepsOtherBorrowersWaiting()
{
    {
        QSqlQuery query(db);
        QVERIFY(query.exec("SELECT 1"));
    }
    const QString spare = cluster.value("SELECT pid FROM pg_stat_activity WHERE application_name = "
                                        "'faulty' AND query LIKE 'ROLLBACK%'");
    QVERIFY(spare.toInt() > 0);
    std::future<bool> first;
    std::future<bool> second;
    const int number = proxy->connectionCount();
    proxy->clear();
    const Silenced silenced(spare.toInt()); // speaks before the two are waited for
    first = std::async(std::launch::async, [this] { return writesAndReads("first"); });
    QVERIFY(proxy->waitForLine(QString("%1> Query \"SET SEARCH_PATH TO public\"").arg(number)));
    second = std::async(std::launch::async, [this] { return writesAndReads("second"); });
    QTRY_COMPARE(cluster.value(hlpTableCount("second")), QString("1"));
    QCOMPARE(second.wait_for(std::chrono::milliseconds(SilenceMsec)), std::future_status::timeout);
    QCOMPARE(first.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
    QVERIFY(QSqlQuery(db).exec("CREATE TABLE third (a int)")); // commands need no spare

    cluster.run("SELECT pg_terminate_backend(" + spare + ")");
    silenced.speak();
    QVERIFY(!first.get()); // had the spare
    QVERIFY(second.get());
}

QTEST_GUILESS_MAIN(tst_FaultsNetwork)
#include "tst_faults_network.moc"
