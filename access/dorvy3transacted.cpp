// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Dorvy3Transacted: the process-wide pool of spare connections.
#include "access/dorvy3transacted.h"

#include "access/dorvy3connection.h"
#include "access/dorvy3errors_p.h"
#include "access/dorvy3pgowners_p.h"
#include "access/dorvy3texts_p.h"

#include <QtCore/QMutexLocker>

Dorvy3Transacted::Dorvy3Transacted() = default;

QSharedPointer<Dorvy3Connection> Dorvy3Transacted::get(const QString &connectionString,
                                                       const QString &searchPath, QSqlError *error)
{
    hlpClearError(error);
    QSharedPointer<Dorvy3Connection> connection = hlpReuse(connectionString, searchPath);
    return connection ? connection : hlpConnect(connectionString, searchPath, error);
}

QSharedPointer<Dorvy3Connection> Dorvy3Transacted::hlpReuse(const QString &connectionString,
                                                            const QString &searchPath)
{
    const QMutexLocker locker(&lock);
    QSharedPointer<Dorvy3Connection> connection = hlpTakeValid(connectionString);
    if (connection) {
        connection->setSearchPath(searchPath);
        connection->beginTransaction();
    }
    return connection;
}

QSharedPointer<Dorvy3Connection> Dorvy3Transacted::hlpTakeValid(const QString &connectionString)
{
    const auto spares = pool.find(connectionString);
    if (spares == pool.end()) {
        return {};
    }
    while (!spares->isEmpty()) {
        QSharedPointer<Dorvy3Connection> connection = spares->takeLast();
        // Settled here, a connection that cannot go on is passed over.
        if (connection && connection->isAlive() && connection->settle()) {
            return connection;
        }
    }
    return {};
}

QSharedPointer<Dorvy3Connection> Dorvy3Transacted::hlpConnect(const QString &connectionString,
                                                              const QString &searchPath,
                                                              QSqlError *error) const
{
    PgConnectionPtr handle(PQconnectdb(connectionString.toLatin1().constData()));
    if (PQstatus(handle.get()) != CONNECTION_OK) { // a null handle is not OK either
        hlpReport(error,
                  hlpError(handle.get(), QSqlError::ConnectionError, Dorvy3Texts::connectFailed()));
        return {};
    }
    auto connection = QSharedPointer<Dorvy3Connection>::create(handle.release(), searchPath);
    if (connection->isValid()) {
        connection->beginTransaction();
    }
    return connection;
}

void Dorvy3Transacted::put(const QString &connectionString,
                           const QSharedPointer<Dorvy3Connection> &connection)
{
    if (!connection) {
        return;
    }
    connection->rollbackTransaction();
    const QMutexLocker locker(&lock);
    pool[connectionString].append(connection);
}

void Dorvy3Transacted::del(const QString &connectionString)
{
    const QMutexLocker locker(&lock);
    const auto spares = pool.find(connectionString);
    if (spares != pool.end() && !spares->isEmpty()) {
        spares->removeLast();
    }
}

QSqlError Dorvy3Transacted::hlpError(const PGconn *connection, QSqlError::ErrorType type,
                                     const QString &text) const
{
    return hlpConnectionError(connection, type, text);
}
