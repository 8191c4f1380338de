// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// A Qt program that does one kind of work so many times and nothing beside it:
//
//     sqlwork DRIVER WORK COUNT HOST PORT
//
// DRIVER is DORVY or IDLE. WORK is walk (a result of COUNT rows), point (COUNT runs of a query for one
// row) or insert (COUNT runs in one transaction, which is rolled back), on the tables walked and
// inserted.
#include "tests/instructions/idledriver.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QDateTime>
#include <QtCore/QVariant>
#include <QtSql/QSqlDatabase>
#include <QtSql/QSqlError>
#include <QtSql/QSqlQuery>

namespace {

constexpr int Columns = 4;
constexpr int Keys = 1000; // as many rows as the table has at least

void check(bool good, const QSqlQuery &query)
{
    if (!good) {
        qFatal("%s", qPrintable(query.lastError().text()));
    }
}

QSqlDatabase openDatabase(const QStringList &arguments)
{
    const bool isIdle = arguments.at(1) == QLatin1String("IDLE");
    QSqlDatabase database = isIdle ? QSqlDatabase::addDatabase(new IdleDriver)
                                   : QSqlDatabase::addDatabase(arguments.at(1));
    database.setHostName(arguments.at(4));
    database.setPort(arguments.at(5).toInt());
    database.setUserName(QStringLiteral("dorvy"));
    database.setDatabaseName(QStringLiteral("postgres"));
    if (!database.open()) {
        qFatal("%s", qPrintable(database.lastError().text()));
    }
    return database;
}

// Takes every value of every row; the number of rows.
int takeRows(QSqlQuery *query)
{
    int rows = 0;
    for (bool row = query->first(); row; row = query->next()) {
        for (int column = 0; column < Columns; ++column) {
            const QVariant value = query->value(column);
            Q_UNUSED(value)
        }
        ++rows;
    }
    return rows;
}

int walk(QSqlQuery *query, int count)
{
    check(query->prepare(QStringLiteral("SELECT id, number, label, at FROM walked WHERE id <= ?")),
          *query);
    query->bindValue(0, qlonglong(count));
    check(query->exec(), *query);
    return takeRows(query);
}

int point(QSqlQuery *query, int count)
{
    check(query->prepare(QStringLiteral("SELECT id, number, label, at FROM walked WHERE id = ?")),
          *query);
    int rows = 0;
    for (int i = 0; i < count; ++i) {
        query->bindValue(0, qlonglong(i % Keys + 1));
        check(query->exec(), *query);
        rows += takeRows(query);
    }
    return rows;
}

int insert(QSqlQuery *query, int count)
{
    const QString label = QStringLiteral("text number 00012345");
    const QDateTime moment(QDate(2020, 2, 29), QTime(12, 34, 56));
    check(query->prepare(QStringLiteral("INSERT INTO inserted VALUES (?, ?, ?, ?)")), *query);
    for (int i = 0; i < count; ++i) {
        query->bindValue(0, qlonglong(i));
        query->bindValue(1, 0.25 * i);
        query->bindValue(2, label);
        query->bindValue(3, moment);
        check(query->exec(), *query);
    }
    return count;
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    QSqlDatabase database = openDatabase(arguments);
    QSqlQuery query(database);
    query.setForwardOnly(true);
    const QString work = arguments.at(2);
    const int count = arguments.at(3).toInt();
    if (work == QLatin1String("walk")) {
        return walk(&query, count) == count ? 0 : 1;
    }
    if (work == QLatin1String("point")) {
        return point(&query, count) == count ? 0 : 1;
    }
    database.transaction();
    const int done = insert(&query, count);
    return database.rollback() && done == count ? 0 : 1;
}
