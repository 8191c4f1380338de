// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Asks the server for its version. Where that is, libpq reads from its environment (PGHOST and so on); the
// driver lies beside this program.
#include <QtCore/QCoreApplication>
#include <QtCore/QTextStream>
#include <QtSql/QSqlDatabase>
#include <QtSql/QSqlError>
#include <QtSql/QSqlQuery>

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv); // knows where the program lies
    QTextStream out(stdout);
    QSqlDatabase database = QSqlDatabase::addDatabase(QStringLiteral("DORVY"));
    database.setDatabaseName(QStringLiteral("postgres"));
    if (!database.open()) {
        out << database.lastError().text() << '\n';
        return 1;
    }
    QSqlQuery query(QStringLiteral("SELECT version()"), database);
    if (!query.first()) {
        out << query.lastError().text() << '\n';
        return 1;
    }
    out << query.value(0).toString() << '\n';
    return 0;
}
