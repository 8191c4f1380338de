// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
// The SELECT that shows a table.
#ifndef TABLEQUERY_H
#define TABLEQUERY_H

#include <QtCore/QString>

class QSqlDatabase;
class QSqlError;

/*!
    A SELECT of every column of \a table, which is named as QSqlDatabase::tables() names it. Columns
    of types that the driver does not read, or reads with less than the server has, are cast to text.

    Empty on failure; \a error says why.
*/
QString selectOf(const QSqlDatabase &database, const QString &table, QSqlError *error);

#endif // TABLEQUERY_H
