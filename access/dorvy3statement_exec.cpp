// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Dorvy3Statement: execution and paging.
#include "access/dorvy3statement.h"

#include "access/dorvy3connection.h"
#include "access/dorvy3errors_p.h"
#include "access/dorvy3pgowners_p.h"
#include "access/dorvy3result.h"
#include "access/dorvy3sizes_p.h"
#include "access/dorvy3texts_p.h"
#include "client/libppq.h"
#include "client/ppqcall.h"

#include <algorithm>
#include <cstring>

using namespace Dorvy3Texts;

namespace {

constexpr int PageRows = 128;   // rows in one portal page
constexpr int BinaryFormat = 1; // PostgreSQL protocol 3.0, format codes

int hlpPageRows(int rows)
{
    return rows > 0 ? rows : PageRows;
}

} // namespace

// Whether the statement is prepared on a connection that can run it.
bool Dorvy3Statement::hlpIsUsable(QSqlError *error) const
{
    hlpClearError(error);
    if (!description) {
        hlpReport(error, hlpRefusal(cannotExecutePrepared(), executeFailed()));
        return false;
    }
    if (!description->connection || !description->connection->isReady()) {
        hlpReport(error, hlpRefusal(cannotExecutePrepared(), noConnection()));
        return false;
    }
    return true;
}

QSharedPointer<Dorvy3Result> Dorvy3Statement::exec(QSqlError *error, int rows,
                                                   const QSharedPointer<Dorvy3Result> &previous)
{
    if (!hlpIsUsable(error)) {
        return {};
    }
    PGconn *conn = description->connection->connection();
    PGresult *result = readonly() && previous
                           ? PPQfetch(conn, hlpPageRows(rows), portalname(), previous->result)
                           : hlpRun(conn, 0, rows);
    return hlpFinish(result, error);
}

QSharedPointer<Dorvy3Result> Dorvy3Statement::exec(const QVector<QVariant> &values,
                                                   QSqlError *error, int rows)
{
    if (!hlpIsUsable(error)) {
        return {};
    }
    QByteArray buffer;
    const int count = hlpEncodeValues(values, buffer);
    if (count == TooLarge) {
        hlpReport(error,
                  QSqlError(parametersTooLarge(), executeFailed(), QSqlError::StatementError));
        return {};
    }
    return hlpFinish(hlpRun(description->connection->connection(), count, rows), error);
}

// Runs the statement from its start with the first count parameters.
PGresult *Dorvy3Statement::hlpRun(PGconn *conn, int count, int rows) const
{
    if (!readonly()) {
        return ppqExecPrepared(conn, statementname(), count, paramValues, paramLengths,
                               paramFormats, BinaryFormat);
    }
    // A run that is only partly read leaves its portal open, and the server binds no open portal.
    return ppqExecReopened(conn, hlpPageRows(rows), statementname(), portalname(), count,
                           paramValues, paramLengths, paramFormats, BinaryFormat);
}

// Whether the Bind message of so many parameters, NULLs among them, is one that the server takes.
bool Dorvy3Statement::hlpFitsMessage(int valueBytes, int count) const
{
    constexpr qint64 FixedBytes = 4 + 4 * 2; // its length; three counts, the results' format
    constexpr qint64 ParameterBytes = 2 + 4; // format and length
    const qint64 nameBytes = Q_INT64_C(2) * (name.size() + 1); // portal and statement
    return FixedBytes + nameBytes + ParameterBytes * count + valueBytes <= MaxMessageBytes;
}

// Encodes as many values as there are parameters into buffer and points the arrays at them. Returns
// their number, or TooLarge.
int Dorvy3Statement::hlpEncodeValues(const QVector<QVariant> &values, QByteArray &buffer)
{
    const int count = std::max(PQnparams(description->result), 0);
    const int bound = std::min(count, values.size());
    std::fill_n(paramLengths, count, 0);
    std::fill_n(paramFormats, count, 0);
    std::fill_n(paramValues, count, nullptr);
    for (int i = 0; i < bound; ++i) {
        paramLengths[i] = hlpEncodeValue(values.at(i), static_cast<int>(paramTypes[i]), buffer);
        if (paramLengths[i] == TooLarge) {
            return TooLarge;
        }
        paramFormats[i] = BinaryFormat;
        buffer.resize(buffer.size() + paramLengths[i]);
    }
    if (!hlpFitsMessage(buffer.size(), bound)) {
        return TooLarge;
    }
    // Only now: the buffer moves while it grows.
    const char *position = buffer.constData();
    for (int i = 0; i < bound; ++i) {
        // Length 0 is SQL NULL to the caller, so an empty text goes as NULL. Meant; see
        // tst_dorvy3statement_exec, emptyTextIsNull.
        paramValues[i] = paramLengths[i] ? position : nullptr;
        position += paramLengths[i];
    }
    return bound;
}

// Takes over result, which may be null.
QSharedPointer<Dorvy3Result> Dorvy3Statement::hlpFinish(PGresult *result, QSqlError *error) const
{
    const QSharedPointer<Dorvy3Connection> &connection = description->connection;
    PgResultPtr owner(result);
    const ExecStatusType status = PQresultStatus(result); // of a null result: fatal error
    if (status != PGRES_COMMAND_OK && status != PGRES_TUPLES_OK) {
        hlpReport(error, hlpError(result, connection, executeFailed()));
        return {};
    }
    auto page = QSharedPointer<Dorvy3Result>::create(result, connection);
    owner.release(); // NOLINT(bugprone-unused-return-value): the page has it
    return page;
}
