// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// A program that asks Qt for "QPSQL": status 0 if it gets the DORVY driver.
#include <QtCore/QCoreApplication>
#include <QtSql/QSqlDatabase>
#include <QtSql/QSqlDriver>

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    const QSqlDatabase database = QSqlDatabase::addDatabase(QStringLiteral("QPSQL"));
    const QByteArray name = database.driver()->metaObject()->className();
    return name == "DorvyDriver" ? 0 : 1;
}
