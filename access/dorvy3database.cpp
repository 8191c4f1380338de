// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Dorvy3Database: opening, closing, transactions and the count of statements.
#include "access/dorvy3database.h"

#include "access/dorvy3connection.h"
#include "access/dorvy3errors_p.h"
#include "access/dorvy3pgowners_p.h"
#include "access/dorvy3texts_p.h"
#include "access/dorvy3transacted.h"

#include <QtCore/QStringList>

#include <utility>

using namespace Dorvy3Texts;

Dorvy3Database::Dorvy3Database(const QSharedPointer<Dorvy3Transacted> &sharedPool)
    : pool(sharedPool)
{
}

Dorvy3Database::~Dorvy3Database()
{
    close();
}

QString Dorvy3Database::hlpQuote(QString value) const
{
    // Backslashes first, so that those put before quotes are not doubled again.
    value.replace(QLatin1String("\\"), QLatin1String("\\\\"));
    value.replace(QLatin1String("'"), QLatin1String("\\'"));
    return QLatin1Char('\'') + value + QLatin1Char('\'');
}

QString Dorvy3Database::hlpConnectionString(const QString &db, const QString &user,
                                            const QString &password, const QString &host, int port,
                                            const QString &connOpts) const
{
    QStringList parts;
    const auto append = [this, &parts](QLatin1String key, const QString &value) {
        if (!value.isEmpty()) {
            parts.append(key + hlpQuote(value));
        }
    };
    append(QLatin1String("host="), host);
    append(QLatin1String("dbname="), db);
    append(QLatin1String("user="), user);
    append(QLatin1String("password="), password);
    append(QLatin1String("port="), port == -1 ? QString() : QString::number(port));
    if (!connOpts.isEmpty()) {
        parts.append(QString(connOpts).replace(QLatin1Char(';'), QLatin1Char(' ')));
    }
    return parts.join(QLatin1Char(' '));
}

QSqlError Dorvy3Database::open(const QString &db, const QString &user, const QString &password,
                               const QString &host, int port, const QString &connOpts,
                               const QString &schemaList)
{
    connection.reset();
    readConnection.reset();
    connectionString.clear();
    schema.clear();
    const QString arguments = hlpConnectionString(db, user, password, host, port, connOpts);
    PgConnectionPtr handle(PQconnectdb(arguments.toLatin1().constData()));
    if (PQstatus(handle.get()) != CONNECTION_OK) { // a null handle is not OK either
        return hlpError(handle.get(), QSqlError::ConnectionError, connectFailed());
    }
    connectionString = arguments;
    schema = schemaList;
    connection = QSharedPointer<Dorvy3Connection>::create(handle.release(), schema);
    return QSqlError();
}

bool Dorvy3Database::isOpen() const
{
    return connection && connection->isOpen() && connection->isValid();
}

void Dorvy3Database::close()
{
    if (!connection) {
        return;
    }
    connection->close();
    connection.reset();
    if (readConnection) {
        readConnection->close();
        readConnection.reset();
    } else {
        pool->del(connectionString);
    }
    connectionString.clear();
    schema.clear();
}

QSqlError Dorvy3Database::beginTransaction()
{
    if (!connection) {
        return QSqlError(cannotBegin(), noConnection(), QSqlError::TransactionError);
    }
    return connection->beginTransaction();
}

QSqlError Dorvy3Database::commitTransaction()
{
    if (!connection) {
        return QSqlError(cannotCommit(), noConnection(), QSqlError::TransactionError);
    }
    return connection->commitTransaction();
}

QSqlError Dorvy3Database::rollbackTransaction()
{
    if (!connection) {
        return QSqlError(cannotRollback(), noConnection(), QSqlError::TransactionError);
    }
    return connection->rollbackTransaction();
}

void Dorvy3Database::bind(Dorvy3Statement * /*statement*/)
{
    boundCount.ref();
}

void Dorvy3Database::unbind(Dorvy3Statement * /*statement*/)
{
    if (boundCount.deref()) {
        return;
    }
    const QSharedPointer<Dorvy3Connection> borrowed = std::exchange(readConnection, {});
    pool->put(connectionString, borrowed);
}

QSqlError Dorvy3Database::hlpError(const PGconn *handle, QSqlError::ErrorType type,
                                   const QString &text) const
{
    return hlpConnectionError(handle, type, text);
}
