// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// What docs/scaling.md says: how many connections so many databases make, and work on several servers.
#include "tests/driver/behaviour.h"
#include "tests/support/documenttable.h"
#include "tests/support/libpqcalls.h"
#include "tests/support/sqlmacros.h"

#include <atomic>
#include <thread>
#include <vector>

namespace {

constexpr int Rows = 300; // more than two pages

// A number of the page, which writes thousands with a comma.
int number(const QString &cell)
{
    return QString(cell).remove(',').toInt();
}

} // namespace

class tst_Scaling : public QObject, private Behaviour
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void openAndReading_data();
    void openAndReading();
    void sparesStayUntilADatabaseIsClosed();
    void readersOneAfterAnotherShareASpare();
    void closeGivesUpOneSpare();
    void closeFinishesWhatIsBorrowed();
    void otherArgumentsShareNoSpare();
    void openAgainWithoutCloseLeavesTheSpare();
    void threadsNeverHaveMoreThanTwoEach();

    void eachShardHasItsOwnDatabase();
    void transactionOverTwoShards();
    void foreignPartition();

private:
    // So many databases with the same arguments, open.
    bool open(int count, const QString &options = "application_name=scaling");
    bool read(int database); // and keep the query
    // How many connections there are to the server; \a expected is waited for.
    QString connections(int expected) const;
    bool walk(const QSqlDatabase &database) const;

    PgCluster second;
    QStringList names;
    std::vector<QSqlQuery> queries;
};

void tst_Scaling::initTestCase()
{
    const QString prepared = "max_prepared_transactions = 2";
    QVERIFY2(cluster.start({"max_connections = 100", prepared}), qPrintable(cluster.why()));
    QVERIFY2(second.start({prepared}), qPrintable(second.why()));
}

void tst_Scaling::init()
{
    QVERIFY(openAnew());
    db.close();
    second.run("DROP TABLE IF EXISTS account; CREATE TABLE account (id int PRIMARY KEY)");
}

void tst_Scaling::cleanup()
{
    queries.clear();
    for (const QString &name : names) {
        QSqlDatabase::removeDatabase(name);
    }
    names.clear();
    closeForGood();
}

bool tst_Scaling::open(int count, const QString &options)
{
    bool good = true;
    for (int i = 0; i < count; ++i) {
        names.append(QString("database %1").arg(names.size()));
        QSqlDatabase database = another(names.last());
        database.setConnectOptions(options);
        good = database.open() && good;
    }
    return good;
}

bool tst_Scaling::read(int database)
{
    queries.emplace_back(QSqlDatabase::database(names.at(database)));
    return queries.back().exec(QString("SELECT generate_series(1, %1)").arg(Rows));
}

QString tst_Scaling::connections(int expected) const
{
    const QString text = "SELECT count(*) FROM pg_stat_activity WHERE application_name = 'scaling'";
    // A backend that was taken leave of takes its time to go.
    for (int i = 0; i < 500 && cluster.value(text) != QString::number(expected); ++i) {
        QTest::qSleep(10);
    }
    return cluster.value(text);
}

bool tst_Scaling::walk(const QSqlDatabase &database) const
{
    QSqlQuery query(database);
    int rows = 0;
    query.exec(QString("SELECT generate_series(1, %1)").arg(Rows));
    while (query.next()) {
        ++rows;
    }
    return rows == Rows;
}

// The page's own figures.
void tst_Scaling::openAndReading_data()
{
    QTest::addColumn<int>("databases");
    QTest::addColumn<int>("reading");
    QTest::addColumn<int>("expected");
    for (const QStringList &cells : documentTable("scaling.md", "Databases open")) {
        QTest::newRow(qPrintable(cells.join(", ")))
            << number(cells.at(0)) << number(cells.at(1)) << number(cells.at(2));
    }
}

void tst_Scaling::openAndReading()
{
    QFETCH(int, databases);
    QFETCH(int, reading);
    QFETCH(int, expected);
    QCOMPARE(expected, databases + reading);
    QVERIFY(open(databases));
    for (int i = 0; i < reading; ++i) {
        QVERIFY(read(i));
    }
    QCOMPARE(connections(expected), QString::number(expected));
}

void tst_Scaling::sparesStayUntilADatabaseIsClosed()
{
    QVERIFY(open(4));
    for (const int database : {0, 1, 2}) {
        QVERIFY(read(database));
    }
    queries.clear();
    QCOMPARE(connections(7), QString("7"));
    QVERIFY(read(3)); // by one of the spares
    QCOMPARE(connections(7), QString("7"));
}

void tst_Scaling::readersOneAfterAnotherShareASpare()
{
    QVERIFY(open(8));
    for (int database = 0; database < 8; ++database) {
        QVERIFY(read(database));
        queries.clear();
    }
    QCOMPARE(connections(9), QString("9"));
}

void tst_Scaling::closeGivesUpOneSpare()
{
    QVERIFY(open(4));
    for (const int database : {0, 1}) {
        QVERIFY(read(database));
    }
    queries.clear();
    const int left[] = {6, 4, 2, 1, 0}; // own and spare, twice; then the own ones alone
    for (int closed = 0; closed <= 4; ++closed) {
        QCOMPARE(connections(left[closed]), QString::number(left[closed]));
        if (closed < 4) {
            QSqlDatabase::database(names.at(closed), false).close();
        }
    }
}

void tst_Scaling::closeFinishesWhatIsBorrowed()
{
    QVERIFY(open(3));
    for (const int database : {0, 1}) {
        QVERIFY(read(database));
    }
    QCOMPARE(connections(5), QString("5"));
    QSqlDatabase::database(names.at(0), false).close(); // with its query alive
    QCOMPARE(connections(3), QString("3"));
}

void tst_Scaling::otherArgumentsShareNoSpare()
{
    QVERIFY(open(1));
    QVERIFY(open(1, "application_name=scaling;connect_timeout=7"));
    for (const int database : {0, 1}) {
        QVERIFY(read(database));
        queries.clear();
    }
    QCOMPARE(connections(4), QString("4"));
}

void tst_Scaling::openAgainWithoutCloseLeavesTheSpare()
{
    QVERIFY(open(1));
    QVERIFY(read(0));
    queries.clear();
    QSqlDatabase database = QSqlDatabase::database(names.at(0), false);
    database.setConnectOptions("application_name=scaling;connect_timeout=7");
    QVERIFY(database.open());
    QVERIFY(read(0));
    queries.clear();
    QCOMPARE(connections(3), QString("3")); // own, spare, and the spare of the old arguments
    database.close();
    QCOMPARE(connections(1), QString("1"));
}

void tst_Scaling::threadsNeverHaveMoreThanTwoEach()
{
    constexpr int Threads = 12;
    const LibpqCalls calls;
    std::atomic<int> most(0);
    std::atomic<bool> good(true);
    const auto work = [&](int thread) {
        const QString name = QString("thread %1").arg(thread);
        for (int round = 0; round < 20; ++round) {
            {
                QSqlDatabase database = another(name);
                if (!database.open() || !walk(database) || !walk(database)) {
                    good = false;
                }
                // In this order, so that none is counted that is not there any more.
                const int made = calls.connected().size();
                const int now = made - calls.finished().size();
                for (int before = most; now > before && !most.compare_exchange_weak(before, now);) {
                }
            }
            QSqlDatabase::removeDatabase(name);
        }
    };
    std::vector<std::thread> threads;
    for (int thread = 0; thread < Threads; ++thread) {
        threads.emplace_back(work, thread);
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    QVERIFY(good);
    QVERIFY2(most > Threads && most <= 2 * Threads, qPrintable(QString::number(most)));
    QCOMPARE(calls.connected().size(), calls.finished().size());
}

void tst_Scaling::eachShardHasItsOwnDatabase()
{
    cluster.run("CREATE TABLE account AS SELECT generate_series(1, 300, 2) AS id");
    second.run("INSERT INTO account SELECT generate_series(2, 300, 2)");
    names = QStringList{"odd", "even"};
    QSqlDatabase odd = addDorvyDatabase("odd", cluster, "postgres", pool);
    QSqlDatabase even = addDorvyDatabase("even", second, "postgres", pool);
    QVERIFY(odd.open() && even.open());
    QSqlQuery fromOdd(odd);
    QSqlQuery fromEven(even);
    QVERIFY(fromOdd.exec("SELECT id FROM account ORDER BY id"));
    QVERIFY(fromEven.exec("SELECT id FROM account ORDER BY id"));
    int sum = 0;
    while (fromOdd.next() && fromEven.next()) {
        sum += fromOdd.value(0).toInt() + fromEven.value(0).toInt();
    }
    QCOMPARE(sum, 300 * 301 / 2);
}

void tst_Scaling::transactionOverTwoShards()
{
    cluster.run("CREATE TABLE account (id int PRIMARY KEY)");
    names = QStringList{"one", "two"};
    QSqlDatabase one = addDorvyDatabase("one", cluster, "postgres", pool);
    QSqlDatabase two = addDorvyDatabase("two", second, "postgres", pool);
    QVERIFY(one.open() && two.open());
    for (QSqlDatabase *shard : {&one, &two}) {
        QSqlQuery query(*shard);
        QVERIFY(shard->transaction());
        QVERIFY_SQL(query, query.exec("INSERT INTO account VALUES (7)"));
        QVERIFY_SQL(query, query.exec("PREPARE TRANSACTION 'transfer 7'"));
        QVERIFY(!shard->commit()); // there is none to commit any more
    }
    QCOMPARE(second.value("SELECT count(*) FROM account"), QString("0"));
    for (const QSqlDatabase &shard : {one, two}) {
        QSqlQuery query(shard);
        QVERIFY_SQL(query, query.exec("COMMIT PREPARED 'transfer 7'"));
    }
    QCOMPARE(cluster.value("SELECT id FROM account"), QString("7"));
    QCOMPARE(second.value("SELECT id FROM account"), QString("7"));
}

void tst_Scaling::foreignPartition()
{
    if (cluster.major() < 11) {
        return; // whose foreign partitions take no rows
    }
    cluster.run(QString("CREATE EXTENSION postgres_fdw; "
                        "CREATE SERVER away FOREIGN DATA WRAPPER postgres_fdw OPTIONS "
                        "(host '%1', port '%2', dbname 'postgres'); "
                        "CREATE USER MAPPING FOR dorvy SERVER away OPTIONS (user 'dorvy'); "
                        "CREATE TABLE whole (id int) PARTITION BY RANGE (id); "
                        "CREATE TABLE near PARTITION OF whole FOR VALUES FROM (1) TO (151); "
                        "CREATE FOREIGN TABLE far PARTITION OF whole FOR VALUES FROM (151) TO "
                        "(301) SERVER away OPTIONS (table_name 'account')")
                    .arg(second.socketDir())
                    .arg(second.port()));
    QVERIFY(db.open());
    QSqlQuery query(db);
    QVERIFY(db.transaction());
    QVERIFY_SQL(query, query.exec("INSERT INTO whole SELECT generate_series(1, 300)"));
    QVERIFY(db.commit());
    QCOMPARE(second.value("SELECT count(*) FROM account"), QString("150"));
    QVERIFY_SQL(query, query.exec("SELECT id FROM whole ORDER BY id"));
    int rows = 0;
    while (query.next()) {
        QCOMPARE(query.value(0).toInt(), ++rows);
    }
    QCOMPARE(rows, 300);
}

QTEST_GUILESS_MAIN(tst_Scaling)
#include "tst_scaling.moc"
