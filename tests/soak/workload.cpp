// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// What a user's program does with the driver, over and over.
#include "tests/soak/workload.h"

#include <QtSql/QSqlError>
#include <QtSql/QSqlQuery>
#include <QtSql/QSqlRecord>

#include <QtCore/QVariant>

#include <cstdio>

namespace {

constexpr int WalkedRows = 200; // two pages

bool complain(const char *what, const QSqlError &error)
{
    std::fprintf(stderr, "soak: %s: %s / %s\n", what, qPrintable(error.driverText()),
                 qPrintable(error.databaseText()));
    return false;
}

bool command(const QSqlDatabase &database, const QString &text)
{
    QSqlQuery query(database);
    return query.exec(text) || complain(qPrintable(text), query.lastError());
}

bool refused(const QSqlDatabase &database, const QString &text, const QString &why)
{
    QSqlQuery query(database);
    return (!query.exec(text) && query.lastError().driverText().startsWith(why)) ||
           complain(qPrintable(text), query.lastError());
}

// 3 queries
bool walkPrepared(const QSqlDatabase &database)
{
    QSqlQuery query(database);
    query.setForwardOnly(true);
    query.prepare(QStringLiteral("SELECT g, 'row ' || g FROM generate_series(1, ?) g"));
    for (int run = 0; run < 3; ++run) {
        query.addBindValue(WalkedRows);
        if (!query.exec()) {
            return complain("walk", query.lastError());
        }
        int rows = 0;
        query.seek(-1); // executing again leaves the position where it is
        while (query.next()) {
            rows += query.value(1).toString().startsWith(QLatin1String("row ")) ? 1 : 0;
        }
        if (rows != WalkedRows) {
            return complain("walk: rows are missing", query.lastError());
        }
    }
    return true;
}

bool readsTwo(QSqlQuery &query)
{
    query.seek(-1);
    return (query.next() && query.next() && query.value(0).toInt() == 2) ||
           complain("half-read", query.lastError());
}

// 3 queries: one is run again half-read, and all are left so
bool abandon(const QSqlDatabase &database)
{
    QSqlQuery again(database);
    QSqlQuery once(database);
    again.prepare(QStringLiteral("SELECT g FROM generate_series(1, 1000) g"));
    return again.exec() && readsTwo(again) &&
           once.exec(QStringLiteral("SELECT g FROM generate_series(1, 500) g")) && readsTwo(once) &&
           again.exec() && readsTwo(again);
}

// 2 queries
bool readNewText(const QSqlDatabase &database, int number)
{
    QSqlQuery query(database);
    for (const int value : {number, -number}) {
        if (!query.exec(QStringLiteral("SELECT %1 AS \"c%1\", 'text'").arg(value)) ||
            !query.first() || query.value(0).toInt() != value) {
            return complain("new text", query.lastError());
        }
    }
    return true;
}

// 3 queries
bool storeBytes(const QSqlDatabase &database, int number)
{
    const QByteArray bytes(3000, static_cast<char>(number));
    QSqlQuery query(database);
    query.prepare(QStringLiteral("INSERT INTO soak VALUES (?, ?)"));
    query.addBindValue(number);
    query.addBindValue(bytes);
    if (!query.exec()) {
        return complain("bytes stored", query.lastError());
    }
    query.prepare(QStringLiteral("SELECT b FROM soak WHERE a = ?"));
    query.addBindValue(number);
    if (!query.exec() || !query.first() || query.value(0).toByteArray() != bytes) {
        return complain("bytes read", query.lastError());
    }
    return command(database, QStringLiteral("DELETE FROM soak"));
}

// 2 queries beside the transaction's own commands
bool transact(QSqlDatabase database, int number)
{
    const QString insert = QStringLiteral("INSERT INTO soak VALUES (%1)");
    if (!database.transaction() || !command(database, insert.arg(number)) ||
        !command(database, insert.arg(-number))) {
        return complain("transaction", database.lastError());
    }
    const bool ended = number % 2 == 0 ? database.commit() : database.rollback();
    return ended || complain("end of transaction", database.lastError());
}

// 3 queries
bool fail(const QSqlDatabase &database)
{
    const QString division = QStringLiteral("ERROR:  division by zero");
    return refused(database, QStringLiteral("SELECT 1 / (g - 3) FROM generate_series(1, 9) g"),
                   division) &&
           refused(database, QStringLiteral("SELEC 1"),
                   QStringLiteral("ERROR:  syntax error at or near")) &&
           refused(database, QStringLiteral("INSERT INTO soak VALUES (1 / 0)"), division);
}

// 1 query
bool notice(const QSqlDatabase &database)
{
    return command(database, QStringLiteral("DO 'BEGIN RAISE NOTICE ''soaked''; END'"));
}

// 1 statement that is prepared and never run
bool prepareOnly(const QSqlDatabase &database, int number)
{
    QSqlQuery query(database);
    return query.prepare(QStringLiteral("SELECT %1, CAST(? AS text)").arg(number)) ||
           complain("prepare", query.lastError());
}

bool openFails(QSqlDatabase database)
{
    database.setDatabaseName(QStringLiteral("nowhere"));
    return !database.open() || complain("opened what is not there", database.lastError());
}

bool openReadAndWrite(QSqlDatabase database, int number)
{
    if (!database.open()) {
        return complain("open", database.lastError());
    }
    return readNewText(database, number) && command(database, QStringLiteral("DELETE FROM soak"));
}

bool useOnce(const QSqlDatabase &model, const QString &name, int number)
{
    QSqlDatabase database = QSqlDatabase::cloneDatabase(model, name);
    if (number % 3 == 0) {
        return openFails(database);
    }
    const bool used = openReadAndWrite(database, number);
    if (number % 3 == 1) {
        database.close();
    }
    return used;
}

} // namespace

bool makeTables(const QSqlDatabase &database)
{
    return command(database, QStringLiteral("CREATE TABLE soak (a int, b bytea)")) &&
           command(database, QStringLiteral("CREATE TABLE held (statements int, cursors int)"));
}

bool runRound(const QSqlDatabase &database, int number)
{
    return walkPrepared(database) && abandon(database) && readNewText(database, number) &&
           storeBytes(database, number) && transact(database, number) && fail(database) &&
           notice(database) && prepareOnly(database, number);
}

bool runCycle(const QSqlDatabase &model, const QString &name, int number)
{
    const bool used = useOnce(model, name, number);
    QSqlDatabase::removeDatabase(name);
    return used;
}
