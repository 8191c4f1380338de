// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Runs one statement and hands its rows to a sink.
#ifndef QUERY_H
#define QUERY_H

#include <QtCore/QString>
#include <QtCore/QVariant>
#include <QtCore/QVector>
#include <QtSql/QSqlError>

#include <functional>

class QSqlDatabase;
class RowSink;

struct Statement
{
    QString text;
    QVector<QVariant> values; // of its placeholders, ? or $1
};

struct Outcome
{
    bool good = false;
    bool hasColumns = false;  // it was a query, whose rows went to the sink
    bool interrupted = false; // the walk was ended by the user
    qint64 rows = 0;          // read, or changed by a command
    QSqlError error;          // of the database
    QString refusal;          // of the sink, or why the statement was not run
};

/*! "1 row", "2 rows". */
QString rowsText(qint64 rows);

/*! Asked before each row: whether the user wants no more. */
using Stop = std::function<bool()>;

/*!
    Runs \a statement and hands its rows to \a sink, if it has columns. Only the page that is being
    read is held; nothing is held on the server when this returns.
*/
Outcome runQuery(const QSqlDatabase &database, const Statement &statement, RowSink &sink,
                 const Stop &stop);

#endif // QUERY_H
