// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// What the tests of the access layer do with a connection: open, ask, command.
#ifndef CONNECTIONHELPERS_H
#define CONNECTIONHELPERS_H

#include "access/dorvy3connection.h"

#include "tests/support/libpqowners.h"
#include "tests/support/wireproxy.h"

#include <QtCore/QSharedPointer>
#include <QtTest/QtTest>

using ConnectionPtr = QSharedPointer<Dorvy3Connection>;

/*! A connection through \a proxy to \a database, which sets no search path. It may have failed. */
inline ConnectionPtr connectThrough(const WireProxy &proxy, const QString &database)
{
    return ConnectionPtr::create(PQconnectdb(proxy.conninfo(database).constData()), QString());
}

/*! The first column of the first row that \a sql has, or the server's message on failure. */
inline QByteArray ask(const ConnectionPtr &connection, const QByteArray &sql)
{
    const ResultPtr result(PQexec(connection->connection(), sql.constData()));
    return PQresultStatus(result.get()) == PGRES_TUPLES_OK
               ? QByteArray(PQgetvalue(result.get(), 0, 0))
               : QByteArray(PQresultErrorMessage(result.get()));
}

/*! Runs \a sql, which has no rows; false when the server refuses it. */
inline bool run(const ConnectionPtr &connection, const QByteArray &sql)
{
    const ResultPtr result(PQexec(connection->connection(), sql.constData()));
    return PQresultStatus(result.get()) == PGRES_COMMAND_OK;
}

/*! Runs \a sql, which has no rows; a refusal fails the test with the server's message. */
inline void command(const ConnectionPtr &connection, const QByteArray &sql)
{
    const ResultPtr result(PQexec(connection->connection(), sql.constData()));
    QVERIFY2(PQresultStatus(result.get()) == PGRES_COMMAND_OK, PQresultErrorMessage(result.get()));
}

inline PGTransactionStatusType status(const ConnectionPtr &connection)
{
    return PQtransactionStatus(connection->connection());
}

/*!
    The transaction command that \a operation names, "begin", "commit" or "rollback", of a
    connection or a database handle.
*/
template<typename Target>
QSqlError transactionCommand(Target &target, const QString &operation)
{
    if (operation == QStringLiteral("begin")) {
        return target.beginTransaction();
    }
    if (operation == QStringLiteral("commit")) {
        return target.commitTransaction();
    }
    return target.rollbackTransaction();
}

#endif // CONNECTIONHELPERS_H
