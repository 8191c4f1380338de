// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Runs one statement and hands its rows to a sink.
#include "query.h"

#include "rowsink.h"

#include <QtSql/QSqlDatabase>
#include <QtSql/QSqlQuery>
#include <QtSql/QSqlRecord>

namespace {

bool start(QSqlQuery &query, const Statement &statement)
{
    if (statement.values.isEmpty()) {
        return query.exec(statement.text);
    }
    if (!query.prepare(statement.text)) {
        return false;
    }
    for (const QVariant &value : statement.values) {
        query.addBindValue(value);
    }
    return query.exec();
}

// Hands the rows on until the end, a failure or the user's sign; false for all but the end.
bool walk(QSqlQuery &query, RowSink &sink, const Stop &stop, Outcome &outcome)
{
    while (query.next()) {
        outcome.interrupted = stop();
        if (outcome.interrupted) {
            return false;
        }
        if (!sink.row(query)) {
            outcome.refusal = sink.why();
            return false;
        }
        ++outcome.rows;
    }
    outcome.error = query.lastError(); // next() is false at the end, and when a page cannot be read
    return !outcome.error.isValid();
}

void read(QSqlQuery &query, RowSink &sink, const Stop &stop, Outcome &outcome)
{
    if (!sink.begin(query.record())) {
        outcome.refusal = sink.why();
        return;
    }
    const bool complete = walk(query, sink, stop, outcome);
    outcome.good = sink.end(complete) && complete;
    if (complete && !outcome.good) {
        outcome.refusal = sink.why();
    }
}

} // namespace

// Each statement has a QSqlQuery of its own, which goes with it: as long as one lives, it holds the
// connection of the reads with a transaction, and after a failure its next text would fail as well.
Outcome runQuery(const QSqlDatabase &database, const Statement &statement, RowSink &sink,
                 const Stop &stop)
{
    Outcome outcome;
    QSqlQuery query(database);
    query.setForwardOnly(true);
    if (!start(query, statement)) {
        outcome.error = query.lastError();
        return outcome;
    }
    outcome.hasColumns = query.isSelect();
    if (outcome.hasColumns) {
        read(query, sink, stop, outcome);
    } else {
        outcome.good = true;
        outcome.rows = query.numRowsAffected();
    }
    return outcome;
}

QString rowsText(qint64 rows)
{
    return rows == 1 ? QStringLiteral("1 row") : QStringLiteral("%1 rows").arg(rows);
}
