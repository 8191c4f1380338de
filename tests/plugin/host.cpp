// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// A stock Qt program that uses the plugin as an application would; built several times, with other
// libraries beside it. Its exit status says whether all went well.
//
//     host query HOST PORT OPTIONS          opens, writes, reads
//     host driver KEY                       prints the class of the driver that KEY gets, or "none"
//     host thread PLUGIN HOST PORT OPTIONS  uses the plugin on a thread and unloads it before the
//                                           thread ends
//     host threads HOST PORT THREADS        uses the plugin on so many threads at once, each with a
//                                           database of its own
//     host walk HOST PORT ROWS              walks over ROWS rows; prints the peak of its memory,
//                                           KiB
//     host texts HOST PORT ROWS SIZE        walks over ROWS texts of SIZE characters
#include <QtCore/QCoreApplication>
#include <QtCore/QFile>
#include <QtCore/QPluginLoader>
#include <QtSql/QSqlDatabase>
#include <QtSql/QSqlDriver>
#include <QtSql/QSqlDriverPlugin>
#include <QtSql/QSqlError>
#include <QtSql/QSqlQuery>

#include <atomic>
#include <cstdio>
#include <thread>
#include <vector>

#ifdef HOST_LIBPQ
#include <libpq-fe.h>
#endif

namespace {

bool complain(const QSqlError &error)
{
    std::fprintf(stderr, "%s / %s\n", qPrintable(error.driverText()),
                 qPrintable(error.databaseText()));
    return false;
}

bool open(QSqlDatabase &database, const QString &host, const QString &port, const QString &options)
{
    database.setHostName(host);
    database.setPort(port.toInt());
    database.setDatabaseName(QStringLiteral("postgres"));
    database.setUserName(QStringLiteral("dorvy"));
    database.setConnectOptions(options);
    return database.open() || complain(database.lastError());
}

// Reads one page and more, and one value that was bound.
bool readAndWrite(const QSqlDatabase &database)
{
    QSqlQuery query(database);
    int rows = 0;
    if (!query.exec(QStringLiteral("SELECT generate_series(1, 300)"))) {
        return complain(query.lastError());
    }
    while (query.next()) {
        ++rows;
    }
    query.prepare(QStringLiteral("SELECT CAST(? AS text)"));
    query.addBindValue(QStringLiteral("Привет"));
    if (!query.exec() || !query.first()) {
        return complain(query.lastError());
    }
    return rows == 300 && query.value(0).toString() == QStringLiteral("Привет");
}

// The application's own libpq, if it has one, beside the plugin's.
bool useOwnLibpq(const QString &host, const QString &port)
{
#ifdef HOST_LIBPQ
    const QByteArray info =
        QStringLiteral("host='%1' port=%2 user=dorvy dbname=postgres").arg(host, port).toUtf8();
    PGconn *conn = PQconnectdb(info.constData());
    PGresult *result = PQexec(conn, "SELECT 1");
    const bool good = PQresultStatus(result) == PGRES_TUPLES_OK;
    PQclear(result);
    PQfinish(conn);
    return good;
#else
    Q_UNUSED(host)
    Q_UNUSED(port)
    return true;
#endif
}

bool query(const QStringList &arguments)
{
    const QString &host = arguments.at(0);
    const QString &port = arguments.at(1);
    QSqlDatabase database = QSqlDatabase::addDatabase(QStringLiteral("DORVY"));
    return useOwnLibpq(host, port) && open(database, host, port, arguments.at(2)) &&
           readAndWrite(database) && useOwnLibpq(host, port);
}

bool driver(const QStringList &arguments)
{
    const QSqlDatabase database = QSqlDatabase::addDatabase(arguments.at(0));
    std::puts(database.isValid() ? database.driver()->metaObject()->className() : "none");
    return true;
}

bool use(QSqlDriver *driver, const QStringList &arguments)
{
    const QString name = QStringLiteral("thread");
    bool worked = false;
    {
        QSqlDatabase database = QSqlDatabase::addDatabase(driver, name);
        worked = open(database, arguments.at(1), arguments.at(2), arguments.at(3)) &&
                 readAndWrite(database);
    }
    QSqlDatabase::removeDatabase(name);
    return worked;
}

bool useAndUnload(const QStringList &arguments)
{
    QPluginLoader loader(arguments.at(0));
    loader.setLoadHints(QLibrary::LoadHints()); // Qt's own hint would keep it loaded
    auto *plugin = qobject_cast<QSqlDriverPlugin *>(loader.instance());
    if (!plugin) {
        std::fprintf(stderr, "%s\n", qPrintable(loader.errorString()));
        return false;
    }
    const bool good = use(plugin->create(QStringLiteral("DORVY")), arguments);
    return loader.unload() && good;
}

bool thread(const QStringList &arguments)
{
    bool good = false;
    // Not a QThread, whose wait() does not wait for what libraries have left for the thread's end.
    std::thread worker([&good, &arguments] { good = useAndUnload(arguments); });
    worker.join();
    return good;
}

bool useByName(const QString &name, const QStringList &arguments)
{
    bool worked = false;
    {
        QSqlDatabase database = QSqlDatabase::addDatabase(QStringLiteral("DORVY"), name);
        worked =
            open(database, arguments.at(0), arguments.at(1), QString()) && readAndWrite(database);
    }
    QSqlDatabase::removeDatabase(name);
    return worked;
}

bool threads(const QStringList &arguments)
{
    // Also the first use of Qt's list of drivers, for which it registers a clean-up: two threads at
    // once may register it twice, and the end of the application then never comes.
    if (!QSqlDatabase::isDriverAvailable(QStringLiteral("DORVY"))) {
        return false;
    }
    const int count = arguments.at(2).toInt();
    std::atomic<int> waiting(count);
    std::atomic<int> good(0);
    std::vector<std::thread> workers;
    for (int i = 0; i < count; ++i) {
        workers.emplace_back([&, i] {
            for (--waiting; waiting > 0;) {} // so that all begin at once
            good += useByName(QString::number(i), arguments);
        });
    }
    for (std::thread &worker : workers) {
        worker.join();
    }
    return good == count;
}

qint64 peakKib()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly)) {
        return -1;
    }
    const QByteArray text = status.readAll();
    const int at = text.indexOf("VmHWM:") + 6;
    return text.mid(at, text.indexOf('k', at) - at).trimmed().toLongLong();
}

bool walk(const QStringList &arguments)
{
    QSqlDatabase database = QSqlDatabase::addDatabase(QStringLiteral("DORVY"));
    if (!open(database, arguments.at(0), arguments.at(1), QString())) {
        return false;
    }
    QSqlQuery query(database);
    query.setForwardOnly(true);
    if (!query.exec(QStringLiteral("SELECT g, 'row ' || g FROM generate_series(1, %1) g")
                        .arg(arguments.at(2)))) {
        return complain(query.lastError());
    }
    qint64 rows = 0;
    qint64 sum = 0;
    while (query.next()) {
        ++rows;
        sum += query.value(0).toLongLong();
        if (query.value(1).toString().size() < 5) {
            return false;
        }
    }
    std::printf("%lld\n", static_cast<long long>(peakKib()));
    const qint64 expected = arguments.at(2).toLongLong();
    return rows == expected && sum == expected * (expected + 1) / 2;
}

bool texts(const QStringList &arguments)
{
    QSqlDatabase database = QSqlDatabase::addDatabase(QStringLiteral("DORVY"));
    if (!open(database, arguments.at(0), arguments.at(1), QString())) {
        return false;
    }
    QSqlQuery query(database);
    if (!query.exec(QStringLiteral("SELECT repeat('x', %2) FROM generate_series(1, %1)")
                        .arg(arguments.at(2), arguments.at(3)))) {
        return complain(query.lastError());
    }
    int rows = 0;
    while (query.next() && query.value(0).toString().size() == arguments.at(3).toInt()) {
        ++rows;
    }
    return rows == arguments.at(2).toInt();
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    QStringList arguments = application.arguments().mid(1);
    const QString mode = arguments.takeFirst();
    const bool good = mode == QStringLiteral("query")     ? query(arguments)
                      : mode == QStringLiteral("driver")  ? driver(arguments)
                      : mode == QStringLiteral("thread")  ? thread(arguments)
                      : mode == QStringLiteral("texts")   ? texts(arguments)
                      : mode == QStringLiteral("threads") ? threads(arguments)
                                                          : walk(arguments);
    return good ? 0 : 1;
}
