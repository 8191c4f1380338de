// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// RandomUser: a driver put to every use, at random, with every answer checked.
#include "tests/driver/randomuser.h"

#include "access/dorvy3transacted.h"

#include <QtCore/QElapsedTimer>
#include <QtSql/QSqlError>
#include <QtSql/QSqlIndex>

namespace {

constexpr int MostRows = 400;   // three pages and a bit
constexpr size_t MostWalks = 3; // at a time

QString hlpTable(int number)
{
    return QStringLiteral("kept_%1").arg(number);
}

} // namespace

Walk::Walk(const QSqlQuery &startedQuery, int lastRow)
    : query(startedQuery)
    , row(0)
    , last(lastRow)
{
}

bool Walk::hlpIsRight() const
{
    return query.value(0).toInt() == row &&
           query.value(1).toString() == QStringLiteral("row %1").arg(row);
}

bool Walk::goOn(int rows)
{
    for (int i = 0; i < rows && row < last; ++i) {
        if (!query.next()) {
            return false;
        }
        ++row;
        if (!hlpIsRight()) {
            return false;
        }
    }
    return true;
}

bool Walk::goToTheEnd()
{
    return goOn(last) && !query.next() && query.lastError().type() == QSqlError::NoError;
}

bool Walk::goOnWithoutServer()
{
    while (query.next()) {
        ++row;
        if (!hlpIsRight()) {
            return false;
        }
    }
    return row == last || query.lastError().type() != QSqlError::NoError;
}

bool Walk::isEmpty()
{
    return !query.next();
}

RandomUser::RandomUser(const PgCluster &server, const QSharedPointer<Dorvy3Transacted> &sharedPool,
                       int userNumber, unsigned seed)
    : cluster(server)
    , pool(sharedPool)
    , number(userNumber)
    , random(seed)
    , driver(new OpenDriver(pool))
    , kept(0)
{
}

RandomUser::~RandomUser() = default;

QString RandomUser::table(int number)
{
    return QStringLiteral("CREATE TABLE %1 (a int PRIMARY KEY)").arg(hlpTable(number));
}

const std::vector<RandomUser::Kind> &RandomUser::hlpKinds()
{
    static const std::vector<Kind> kinds = {
        {"read", &RandomUser::hlpRead, 6},
        {"abandon", &RandomUser::hlpAbandon, 6},
        {"continue", &RandomUser::hlpContinue, 6},
        {"transaction", &RandomUser::hlpTransact, 3},
        {"lose own connection", &RandomUser::hlpLoseOwn, 1},
        {"lose borrowed connection", &RandomUser::hlpLoseBorrowed, 1},
        {"close and open", &RandomUser::hlpReopen, 2},
        {"unsubscribe", &RandomUser::hlpUnsubscribe, 2},
        {"replace driver", &RandomUser::hlpReplaceDriver, 1},
        {"look up key", &RandomUser::hlpLookUpKey, 1},
    };
    return kinds;
}

void RandomUser::work(int msec)
{
    QElapsedTimer timer;
    timer.start();
    hlpOpen();
    while (what.isEmpty() && timer.elapsed() < msec) {
        hlpStep();
    }
    walks.clear();
}

void RandomUser::hlpStep()
{
    std::vector<int> weights;
    for (const Kind &kind : hlpKinds()) {
        weights.push_back(kind.weight);
    }
    std::discrete_distribution<size_t> choice(weights.begin(), weights.end());
    const Kind &kind = hlpKinds().at(choice(random));
    if ((this->*kind.operation)()) {
        ++counts[QLatin1String(kind.name)];
    } else {
        what = QStringLiteral("user %1, %2: %3").arg(number).arg(QLatin1String(kind.name), what);
    }
}

int RandomUser::hlpRandom(int from, int to)
{
    return std::uniform_int_distribution<int>(from, to)(random);
}

// Keeps the first surprise, with the error that belongs to it.
bool RandomUser::hlpExpect(bool holds, const char *expectation, const QSqlError &error)
{
    if (!holds && what.isEmpty()) {
        what = QStringLiteral("not so: %1 (%2 / %3)")
                   .arg(QLatin1String(expectation), error.driverText(), error.databaseText());
    }
    return holds;
}

QSqlQuery RandomUser::hlpQuery() const
{
    QSqlQuery query(driver->createResult());
    query.setForwardOnly(true);
    return query;
}

bool RandomUser::hlpOpen()
{
    const bool opened =
        driver->open(QStringLiteral("postgres"), cluster.user(), QString(), cluster.socketDir(),
                     cluster.port(), QStringLiteral("application_name=threads%1").arg(number % 2));
    return hlpExpect(opened, "opened", driver->lastError());
}

// A query that has run, with rows rows to walk over; null on failure.
std::unique_ptr<Walk> RandomUser::hlpStart(int rows)
{
    QSqlQuery query = hlpQuery();
    bool run = false;
    if (hlpRandom(0, 1) == 0) {
        run = query.exec(
            QStringLiteral("SELECT i, 'row ' || i FROM generate_series(1, %1) i").arg(rows));
    } else {
        run = query.prepare(QStringLiteral("SELECT i, 'row ' || i FROM generate_series(1, ?) i"));
        query.addBindValue(rows);
        run = run && query.exec();
    }
    if (!hlpExpect(run, "a read runs", query.lastError())) {
        return nullptr;
    }
    return std::unique_ptr<Walk>(new Walk(query, rows));
}

bool RandomUser::hlpRead()
{
    const std::unique_ptr<Walk> walk = hlpStart(hlpRandom(0, MostRows));
    return walk && hlpExpect(walk->goToTheEnd(), "every row is right, and the last is the end");
}

bool RandomUser::hlpAbandon()
{
    const int rows = hlpRandom(1, MostRows);
    std::unique_ptr<Walk> walk = hlpStart(rows);
    if (!walk || !hlpExpect(walk->goOn(hlpRandom(0, rows)), "the first rows are right")) {
        return false;
    }
    walks.push_back(std::move(walk));
    if (walks.size() > MostWalks) {
        walks.erase(walks.begin() + hlpRandom(0, static_cast<int>(walks.size()) - 1));
    }
    return true;
}

bool RandomUser::hlpContinue()
{
    for (const std::unique_ptr<Walk> &walk : walks) {
        if (!hlpExpect(walk->goOn(hlpRandom(0, MostRows)), "the next rows are right")) {
            return false;
        }
    }
    if (hlpRandom(0, 1) == 0) {
        walks.clear();
    }
    return true;
}

bool RandomUser::hlpInsert(int rows)
{
    QSqlQuery query = hlpQuery();
    if (!query.prepare(QStringLiteral("INSERT INTO %1 VALUES (?)").arg(hlpTable(number)))) {
        return hlpExpect(false, "an insertion is prepared", query.lastError());
    }
    for (int i = 1; i <= rows; ++i) {
        query.bindValue(0, kept + i);
        if (!hlpExpect(query.exec(), "an insertion runs", query.lastError())) {
            return false;
        }
    }
    return true;
}

bool RandomUser::hlpCompareTable()
{
    QSqlQuery query = hlpQuery();
    const bool read =
        query.exec(QStringLiteral("SELECT count(*), max(a) FROM ") + hlpTable(number)) &&
        query.next();
    return hlpExpect(read, "the table is read", query.lastError()) &&
           hlpExpect(query.value(0).toInt() == kept && query.value(1).toInt() == kept,
                     "the table has what was committed, and no more");
}

bool RandomUser::hlpTransact()
{
    const int rows = hlpRandom(1, 5);
    if (!hlpExpect(driver->beginTransaction(), "a transaction begins", driver->lastError()) ||
        !hlpInsert(rows)) {
        return false;
    }
    if (hlpRandom(0, 2) == 0) {
        return hlpExpect(driver->rollbackTransaction(), "it is rolled back", driver->lastError()) &&
               hlpCompareTable();
    }
    if (!hlpExpect(driver->commitTransaction(), "it is committed", driver->lastError())) {
        return false;
    }
    kept += rows;
    return hlpCompareTable();
}

// Ends the connection on which sql runs from the inside; the error then has the words given.
bool RandomUser::hlpTerminate(const QString &sql, const QString &words)
{
    QSqlQuery query = hlpQuery();
    return hlpExpect(!query.exec(sql), "a terminated command fails") &&
           hlpExpect(query.lastError().driverText().contains(words), "it tells why",
                     query.lastError());
}

bool RandomUser::hlpLoseOwn()
{
    if (!hlpTerminate(
            QStringLiteral("DO $$ BEGIN PERFORM pg_terminate_backend(pg_backend_pid()); END $$"),
            QStringLiteral("server closed the connection unexpectedly")) ||
        !hlpExpect(!driver->isOpen(), "the driver is not open without its connection") ||
        !hlpContinue()) { // on the borrowed connection
        return false;
    }
    if (hlpRandom(0, 1) == 0) {
        driver->close();
        walks.clear(); // closed with the driver
    }
    return hlpOpen() && hlpRead();
}

bool RandomUser::hlpLoseBorrowed()
{
    if (!hlpTerminate(QStringLiteral("SELECT pg_terminate_backend(pg_backend_pid())"),
                      QStringLiteral("terminating connection due to administrator command"))) {
        return false;
    }
    for (const std::unique_ptr<Walk> &walk : walks) {
        if (!hlpExpect(walk->goOnWithoutServer(), "a lost walk has right rows and then an error")) {
            return false;
        }
    }
    walks.clear(); // with the last of them the connection goes
    return hlpExpect(driver->isOpen(), "the own connection is still there") && hlpRead();
}

bool RandomUser::hlpReopen()
{
    driver->close();
    if (!hlpExpect(!driver->isOpen(), "closed")) {
        return false;
    }
    for (const std::unique_ptr<Walk> &walk : walks) {
        if (!hlpExpect(walk->goOnWithoutServer(), "a page stays, and what follows is an error")) {
            return false;
        }
    }
    if (hlpRandom(0, 1) == 0) {
        walks.clear();
    }
    const bool good = hlpOpen() && hlpRead();
    walks.clear();
    return good;
}

bool RandomUser::hlpUnsubscribe()
{
    if (!hlpExpect(!driver->unsubscribeFromNotification(QString()),
                   "unsubscribing answers false")) {
        return false;
    }
    for (const std::unique_ptr<Walk> &walk : walks) {
        if (!hlpExpect(walk->isEmpty(), "every result has given its page up")) {
            return false;
        }
    }
    walks.clear();
    return true;
}

bool RandomUser::hlpReplaceDriver()
{
    driver.reset(new OpenDriver(pool));
    for (const std::unique_ptr<Walk> &walk : walks) {
        if (!hlpExpect(walk->isEmpty(), "a result without its driver is empty")) {
            return false;
        }
    }
    walks.clear();
    return hlpOpen();
}

bool RandomUser::hlpLookUpKey()
{
    const QSqlIndex key = driver->primaryIndex(hlpTable(number));
    return hlpExpect(key.count() == 1 && key.fieldName(0) == QLatin1String("a"),
                     "the table's key is its column");
}
