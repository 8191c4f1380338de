// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Qt's SQL module, with the driver that the first argument names: DORVY or QODBC.
#include "bench/clients/run.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QDateTime>
#include <QtCore/QUuid>
#include <QtCore/QVariant>
#include <QtSql/QSqlDatabase>
#include <QtSql/QSqlError>
#include <QtSql/QSqlQuery>

#include <array>

namespace {

constexpr qint64 JulianDayOf2000 = 2451545;
constexpr qint64 MsecPerDay = 86400000;
constexpr double Quarter = 0.25;

const char *driver = nullptr;

// A text and a timestamp to insert.
struct InsertValue
{
    QString text;
    QDateTime at;
};

[[noreturn]] void hlpFail(const QSqlError &error)
{
    benchFail(driver, qPrintable(error.text()));
}

void hlpCheck(bool good, const QSqlQuery &query)
{
    if (!good) {
        hlpFail(query.lastError());
    }
}

// Rows by 128, as the peer would read all of them at once otherwise; its INSERTs prepared on the
// server, which its SELECTs, read through cursors, are not.
QString hlpOdbcName(const BenchRun &run)
{
    return QStringLiteral(
               "Driver=%1;Servername=%2;Port=%3;UserName=%4;Database=%5;UseDeclareFetch=1;"
               "Fetch=%6;UseServerSidePrepare=1;Protocol=7.4-0")
        .arg(QLatin1String(BENCH_PSQLODBC), QString::fromLocal8Bit(run.host),
             QString::fromLatin1(run.port), QString::fromLatin1(run.user),
             QString::fromLatin1(run.database), QString::fromLatin1(run.pageRows));
}

QSqlDatabase hlpOpen(const BenchRun &run, int thread)
{
    QSqlDatabase database =
        QSqlDatabase::addDatabase(QString::fromLatin1(driver), QString::number(thread));
    if (qstrcmp(driver, "QODBC") == 0) {
        database.setDatabaseName(hlpOdbcName(run));
    } else {
        database.setHostName(QString::fromLocal8Bit(run.host));
        database.setPort(QByteArray(run.port).toInt());
        database.setUserName(QString::fromLatin1(run.user));
        database.setDatabaseName(QString::fromLatin1(run.database));
    }
    if (!database.open()) {
        hlpFail(database.lastError());
    }
    return database;
}

void hlpClose(QSqlDatabase *database)
{
    const QString name = database->connectionName();
    *database = QSqlDatabase();
    QSqlDatabase::removeDatabase(name);
}

qint64 hlpBytes(const QByteArray &bytes)
{
    return bytes.size() + static_cast<uchar>(bytes.at(0)) +
           static_cast<uchar>(bytes.at(bytes.size() - 1));
}

qint64 hlpText(const QString &text)
{
    return text.size() + text.at(0).unicode() + text.at(text.size() - 1).unicode();
}

// DORVY gives jsonb as it comes, behind its version; ODBC as text.
qint64 hlpJson(const QVariant &value)
{
    return value.type() == QVariant::ByteArray ? value.toByteArray().size() - 1
                                               : value.toString().size();
}

qint64 hlpDays(const QDate &date)
{
    return date.toJulianDay() - JulianDayOf2000;
}

// Of its date and its time, which cost less than to ask Qt for the seconds since 1970.
qint64 hlpMsecSince2000(const QDateTime &at)
{
    return hlpDays(at.date()) * MsecPerDay + at.time().msecsSinceStartOfDay();
}

qint64 hlpValue(char kind, const QVariant &value)
{
    switch (kind) {
    case 'b':
        return value.toBool() ? 2 : 1;
    case 'y':
        return hlpBytes(value.toByteArray());
    case 'i':
        return value.toLongLong();
    case 'f':
        return static_cast<qint64>(value.toDouble() * 4);
    case 't':
        return hlpText(value.toString());
    case 'n':
        return static_cast<qint64>(value.toDouble());
    case 'd':
        return hlpDays(value.toDate());
    case 'm':
        return value.toTime().msecsSinceStartOfDay();
    case 's':
    case 'z':
        return hlpMsecSince2000(value.toDateTime());
    case 'u':
        return value.toUuid().data1;
    case 'j':
        return hlpJson(value);
    default:
        benchFail("kinds", "unknown letter");
    }
}

// Walks the query to its end.
void hlpAdd(const BenchRun &run, QSqlQuery *query, BenchWork *work)
{
    while (query->next()) {
        for (int column = 0; run.kinds[column]; ++column) {
            const QVariant value = query->value(column);
            work->checksum += static_cast<quint64>(
                value.isNull() ? qint64(BenchNull) : hlpValue(run.kinds[column], value));
        }
        ++work->operations;
    }
    hlpCheck(!query->lastError().isValid(), *query); // the end, or a failure
}

QSqlQuery hlpForwardQuery(const QSqlDatabase &database)
{
    QSqlQuery query(database);
    query.setForwardOnly(true);
    return query;
}

// A query that is prepared and kept: with DORVY, the connection that reads have stays borrowed.
QSqlQuery hlpKeptQuery(const QSqlDatabase &database)
{
    QSqlQuery query = hlpForwardQuery(database);
    hlpCheck(query.prepare(QStringLiteral("SELECT 1")), query);
    return query;
}

BenchWork hlpWalk(const BenchRun &run, const QSqlDatabase &database, int /*thread*/)
{
    BenchWork work = {0, 0};
    const QSqlQuery kept = hlpKeptQuery(database);
    QSqlQuery query = hlpForwardQuery(database);
    benchStart();
    hlpCheck(query.exec(QString::fromLatin1(run.sql)), query);
    hlpAdd(run, &query, &work);
    benchStop();
    return work;
}

BenchWork hlpPoint(const BenchRun &run, const QSqlDatabase &database, int thread)
{
    BenchWork work = {0, 0};
    QSqlQuery query = hlpForwardQuery(database);
    hlpCheck(query.prepare(QString::fromLatin1(run.sql)), query);
    benchStart();
    const quint64 end = benchFirst(&run, thread + 1);
    for (quint64 i = benchFirst(&run, thread); i < end; ++i) {
        query.bindValue(0, qlonglong(benchKey(&run, i)));
        hlpCheck(query.exec(), query);
        query.seek(-1); // DORVY keeps the position of the last walk
        hlpAdd(run, &query, &work);
    }
    benchStop();
    return work;
}

std::array<InsertValue, BenchInsertValues> hlpInsertValues()
{
    const QDateTime from(QDate(2020, 1, 1), QTime(0, 0));
    std::array<InsertValue, BenchInsertValues> values;
    for (int i = 0; i < BenchInsertValues; ++i) {
        std::array<char, BenchTextBytes> text = {};
        benchInsertText(i, text.data());
        values.at(i) = {QString::fromLatin1(text.data()), from.addSecs(i)};
    }
    return values;
}

void hlpInsertRow(QSqlQuery *query, quint64 number, const InsertValue &value)
{
    query->bindValue(0, qlonglong(number));
    query->bindValue(1, static_cast<double>(number) * Quarter);
    query->bindValue(2, value.text);
    query->bindValue(3, value.at);
    hlpCheck(query->exec(), *query);
}

BenchWork hlpInsert(const BenchRun &run, QSqlDatabase database, int /*thread*/)
{
    const std::array<InsertValue, BenchInsertValues> values = hlpInsertValues();
    QSqlQuery query = hlpForwardQuery(database);
    benchStart();
    if (!database.transaction()) {
        hlpFail(database.lastError());
    }
    hlpCheck(query.prepare(QString::fromLatin1(run.sql)), query);
    for (quint64 i = 0; i < run.count; ++i) {
        hlpInsertRow(&query, i, values[i % values.size()]);
    }
    if (!database.commit()) {
        hlpFail(database.lastError());
    }
    benchStop();
    return {run.count, 0};
}

// One query for each text.
BenchWork hlpTexts(const BenchRun &run, const QSqlDatabase &database, int /*thread*/)
{
    BenchWork work = {0, 0};
    const QSqlQuery kept = hlpKeptQuery(database);
    benchStart();
    for (quint64 i = 0; i < run.count; ++i) {
        std::array<char, BenchTextBytes> text = {};
        benchNumberedText(&run, i, text.data());
        QSqlQuery query = hlpForwardQuery(database);
        hlpCheck(query.prepare(QString::fromLatin1(text.data())) && query.exec(), query);
        hlpAdd(run, &query, &work);
    }
    benchStop();
    return work;
}

template<typename Worker, Worker worker>
BenchWork hlpConnected(const BenchRun *run, int thread)
{
    QSqlDatabase database = hlpOpen(*run, thread);
    const BenchWork work = worker(*run, database, thread);
    hlpClose(&database);
    return work;
}

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    if (argc < 2) {
        benchFail(argv[0], "usage: DRIVER OPERATION ...");
    }
    driver = argv[1];
    // Also the first use of Qt's list of drivers, for which it registers a clean-up: two threads at
    // once register it twice, and the end of the application then never comes.
    if (!QSqlDatabase::isDriverAvailable(QString::fromLatin1(driver))) {
        benchFail(driver, "no such driver");
    }
    const std::array<BenchOperation, 5> operations = {
        {{"walk", hlpConnected<decltype(&hlpWalk), hlpWalk>},
         {"point", hlpConnected<decltype(&hlpPoint), hlpPoint>},
         {"insert", hlpConnected<decltype(&hlpInsert), hlpInsert>},
         {"texts", hlpConnected<decltype(&hlpTexts), hlpTexts>},
         {nullptr, nullptr}}};
    return benchMain(argc - 1, argv + 1, operations.data());
}
