// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// DorvyResult: moving over the rows, counting them, reading them and letting them go.
#include "driver/dorvyresult.h"

#include "access/dorvy3connection.h"
#include "access/dorvy3pgowners_p.h"
#include "access/dorvy3statement.h"
#include "driver/dorvydecode_p.h"
#include "driver/dorvyresult_p.h"
#include "driver/dorvytypes_p.h"

#include <QtSql/QSqlError>

#include <new>
#include <utility>

bool DorvyResult::hlpMoveTo(int row)
{
    Q_D(const DorvyResult);
    if (!d->page || row < 0 || row >= PQntuples(d->page->result)) {
        return false;
    }
    setAt(row);
    return true;
}

bool DorvyResult::fetchNext()
{
    Q_D(DorvyResult);
    if (!d->page) {
        return false;
    }
    if (hlpMoveTo(d->idx + 1)) {
        return true;
    }
    const QSharedPointer<Dorvy3Result> previous = std::move(d->page);
    hlpRun(previous, &d->pageError);
    // Within its page the first row of the next one is row 0.
    if (hlpMoveTo(0)) {
        return true;
    }
    setLastError(d->pageError);
    return false;
}

bool DorvyResult::fetch(int row)
{
    return hlpMoveTo(row);
}

bool DorvyResult::fetchPrevious()
{
    return hlpMoveTo(at() - 1);
}

bool DorvyResult::fetchFirst()
{
    return hlpMoveTo(0);
}

bool DorvyResult::fetchLast()
{
    return hlpMoveTo(size() - 1);
}

int DorvyResult::size()
{
    Q_D(DorvyResult);
    return d->page ? PQntuples(d->page->result) : -1;
}

int DorvyResult::numRowsAffected()
{
    Q_D(DorvyResult);
    return d->page ? QString::fromLatin1(PQcmdTuples(d->page->result)).toInt() : -1;
}

QVariant DorvyResult::lastInsertId() const
{
    Q_D(const DorvyResult);
    if (!d->page) {
        return QVariant();
    }
    const QSharedPointer<Dorvy3Connection> connection = d->page->connection;
    if (!connection || !connection->isReady()) {
        return QVariant();
    }
    const PgResultPtr result = connection->exec("SELECT lastval()");
    if (PQresultStatus(result.get()) != PGRES_TUPLES_OK) { // a null result has failed, too
        return QVariant();
    }
    return QVariant(QString::fromLatin1(PQgetvalue(result.get(), 0, 0)).toInt());
}

void DorvyResult::detachFromResultSet()
{
    Q_D(DorvyResult);
    d->release();
}

// A value of a page that is no described, binary one.
QVariant DorvyResult::hlpUndescribed(int column) const
{
    Q_D(const DorvyResult);
    const Dorvy3Result &page = *d->page;
    // Signed: a negative column goes on to libpq, whose OID 0 for it the type table refuses.
    if (column >= PQnfields(page.result)) {
        return QVariant();
    }
    const auto oid = static_cast<int>(PQftype(page.result, column));
    const QVariant::Type type = hlpDecodePSQLType(oid);
    const char *value = nullptr;
    const int length = page.value(d->idx, column, &value);
    if (!value) {
        return QVariant(type);
    }
    return PQbinaryTuples(page.result)
               ? hlpBinaryPSQLValueToVariant(page.connection, oid, length, value)
               : hlpPSQLValueToVariant(page.connection, type, oid, numericalPrecisionPolicy(),
                                       value);
}

QVariant DorvyResult::data(int column)
{
    Q_D(DorvyResult);
    if (!d->page) {
        return QVariant();
    }
    try {
        if (column < 0 || column >= d->columns.size()) {
            return hlpUndescribed(column);
        }
        const DorvyColumn &reader = d->columns.at(column);
        const char *value = nullptr;
        const int length = d->page->value(d->idx, column, &value);
        return value ? reader.decode(d->page->connection.data(), value, length)
                     : QVariant(reader.type);
    } catch (const std::bad_alloc &) {
        return QVariant(); // among them the server's largest texts, which no QString can hold
    }
}

bool DorvyResult::isNull(int column)
{
    Q_D(DorvyResult);
    return d->page && PQgetisnull(d->page->result, at(), column);
}
