// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// A long run of a user's program on the plugin: open files, memory, and what the server holds for it
// stay what they are after the first tenth. The exit status says so.
//
//     soak QUERIES CYCLES [GROWTH]
//
// QUERIES are run on one connection, then CYCLES connections are opened and closed. Memory may grow
// by GROWTH KiB in either. It starts a PostgreSQL of its own.
#include "tests/soak/samples.h"
#include "tests/soak/workload.h"
#include "tests/support/pgcluster.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QElapsedTimer>
#include <QtCore/QThread>
#include <QtCore/QVariant>
#include <QtSql/QSqlDatabase>
#include <QtSql/QSqlError>
#include <QtSql/QSqlQuery>

#include <cstdio>

namespace {

// The C library asks the system for memory by 128 KiB and gives it back by as much; the pieces that
// several libraries keep, and pages of code used for the first time, come on top. One byte lost with
// each of a million queries is as much.
constexpr qint64 GrowthKib = 1024;
constexpr int SamplesOfPhase = 10;
constexpr int EndMsec = 30000; // for backends to go
constexpr int PollMsec = 20;
constexpr int SessionsOfDatabase = 2; // its own and the borrowed one

// The session that counts has a statement and a portal open for it.
const char *const Count = "SELECT (SELECT count(*) FROM pg_prepared_statements WHERE statement NOT "
                          "LIKE '%pg_cursors%'), (SELECT count(*) FROM pg_cursors WHERE statement "
                          "NOT LIKE '%pg_cursors%')";

QSqlDatabase model(const PgCluster &cluster)
{
    QSqlDatabase database = QSqlDatabase::addDatabase(QStringLiteral("DORVY"));
    database.setHostName(cluster.socketDir());
    database.setPort(cluster.port());
    database.setUserName(cluster.user());
    database.setDatabaseName(QStringLiteral("postgres"));
    database.setConnectOptions(QStringLiteral("application_name=soak"));
    return database;
}

int backends(const PgCluster &cluster)
{
    return cluster
        .value(QStringLiteral("SELECT count(*) FROM pg_stat_activity WHERE application_name = "
                              "'soak'"))
        .toInt();
}

// A backend ends some time after its client has gone.
int backendsAtLast(const PgCluster &cluster, int expected)
{
    QElapsedTimer timer;
    timer.start();
    while (backends(cluster) != expected && timer.elapsed() < EndMsec) {
        QThread::msleep(PollMsec);
    }
    return backends(cluster);
}

bool complain(const QSqlQuery &query)
{
    std::fprintf(stderr, "soak: %s / %s\n", qPrintable(query.lastError().driverText()),
                 qPrintable(query.lastError().databaseText()));
    return false;
}

// What both sessions of the database hold: reads run on the one, commands on the other.
bool count(const PgCluster &cluster, const QSqlDatabase &database, ServerSide *server)
{
    QSqlQuery read(database);
    QSqlQuery write(database);
    if (!read.exec(QString::fromLatin1(Count)) || !read.first()) {
        return complain(read);
    }
    if (!write.exec(QStringLiteral("INSERT INTO held ") + QString::fromLatin1(Count))) {
        return complain(write);
    }
    const auto written = [&cluster](const char *column) {
        return cluster.value(QStringLiteral("SELECT %1 FROM held").arg(QLatin1String(column)))
            .toInt();
    };
    server->statements = read.value(0).toInt() + written("statements");
    server->cursors = read.value(1).toInt() + written("cursors");
    server->backends = backends(cluster);
    cluster.run(QStringLiteral("TRUNCATE held"));
    return true;
}

// Whether the tenth of the whole that ends with done is full.
bool isTenth(int done, int step, int whole)
{
    const auto tenths = [whole](int count) { return qint64(count) * SamplesOfPhase / whole; };
    return tenths(done) > tenths(done - step);
}

bool runQueries(const PgCluster &cluster, const QSqlDatabase &database, int queries,
                Samples *samples)
{
    for (int done = QueriesPerRound; done - QueriesPerRound < queries; done += QueriesPerRound) {
        if (!runRound(database, done / QueriesPerRound)) {
            return false;
        }
        ServerSide server;
        if (isTenth(done, QueriesPerRound, queries)) {
            if (!count(cluster, database, &server)) {
                return false;
            }
            samples->take(done, server);
        }
    }
    return true;
}

bool runCycles(const PgCluster &cluster, const QSqlDatabase &database, int cycles, Samples *samples)
{
    for (int done = 1; done <= cycles; ++done) {
        if (!runCycle(database, QStringLiteral("cycle"), done)) {
            return false;
        }
        if (isTenth(done, 1, cycles)) {
            ServerSide server;
            server.backends = backendsAtLast(cluster, 0);
            samples->take(done, server);
        }
    }
    return true;
}

// The faults of both phases in lines; a phase that stops is one.
QStringList soak(const PgCluster &cluster, int queries, int cycles, qint64 growth)
{
    QSqlDatabase database = model(cluster);
    if (!database.open() || !makeTables(database)) {
        return {database.lastError().driverText()};
    }
    Samples ofQueries(QStringLiteral("queries"), growth);
    if (!runQueries(cluster, database, queries, &ofQueries)) {
        return {QStringLiteral("the queries stopped")};
    }
    database.close();
    Samples ofCycles(QStringLiteral("cycles"), growth);
    if (!runCycles(cluster, database, cycles, &ofCycles)) {
        return {QStringLiteral("the cycles stopped")};
    }
    return ofQueries.faults(SessionsOfDatabase) + ofCycles.faults(0);
}

int tell(const QStringList &faults, qint64 seconds)
{
    for (const QString &fault : faults) {
        std::printf("%s\n", qPrintable(fault));
    }
    std::printf("soak: %s after %lld s\n", faults.isEmpty() ? "all flat" : "FAILED",
                static_cast<long long>(seconds));
    return faults.isEmpty() ? 0 : 1;
}

// A run of the counts that the arguments name.
QStringList run(const QStringList &arguments)
{
    const int queries = arguments.value(1).toInt();
    const int cycles = arguments.value(2).toInt();
    if (queries < 1 || cycles < 1) {
        return {QStringLiteral("usage: soak QUERIES CYCLES [GROWTH]")};
    }
    PgCluster cluster;
    if (!cluster.start({QStringLiteral("autovacuum = on")})) { // as a server that lives long has it
        return {cluster.why()};
    }
    const qint64 growth = arguments.size() > 3 ? arguments.at(3).toLongLong() : GrowthKib;
    return soak(cluster, queries, cycles, growth);
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    QElapsedTimer timer;
    timer.start();
    const QStringList faults = run(application.arguments());
    return tell(faults, timer.elapsed() / 1000);
}
