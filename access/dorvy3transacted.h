// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Dorvy3Transacted: the process-wide pool of spare connections.
#ifndef DORVY3TRANSACTED_H
#define DORVY3TRANSACTED_H

#include <libpq-fe.h>

#include <QtCore/QHash>
#include <QtCore/QList>
#include <QtCore/QMutex>
#include <QtCore/QSharedPointer>
#include <QtCore/QString>
#include <QtSql/QSqlError>

class Dorvy3Connection;

/*!
    The pool from which database handles borrow their second connection. A connection is handed out
    with a transaction begun, and what its holder leaves uncommitted is rolled back when it is given
    back. Connections are grouped by their libpq connection string: only those made with the very
    same arguments are shared. There is no limit and no time-out.

    The plugin makes one and shares it with every driver; it lives as long as its last holder.
    Any thread may call any operation. A connection is in the hands of one holder or in the pool,
    never both. Lock order: a driver's own mutex is taken before this one's, never after.
*/
class Dorvy3Transacted
{
public:
    Dorvy3Transacted();

    /*!
        A connection made with \a connectionString, in a transaction: the spare given back last that
        is still valid, or a new one. Dead spares met on the way are dropped.

        \a searchPath, a schema list in SQL syntax, is set unless it is empty; a reused connection
        then keeps the path of its earlier use. Neither a failed SET nor a failed BEGIN is reported.

        Returns null when no connection can be made and tells why in \a error, which may be null:
        a ConnectionError with libpq's message as driver text. Success resets it.

        The lock is held while a reused connection is made ready, so that no other thread sees the
        pool in between; it is not held while a new one connects.
    */
    QSharedPointer<Dorvy3Connection> get(const QString &connectionString, const QString &searchPath,
                                         QSqlError *error);

    /*!
        Rolls \a connection back, without the lock, and keeps it as a spare. Null is ignored. A dead
        connection is kept too; get() drops it.
    */
    void put(const QString &connectionString, const QSharedPointer<Dorvy3Connection> &connection);

    /*! Drops one spare, the one given back last, if there is any: a closing handle's slot. */
    void del(const QString &connectionString);

    /*! The error of a failed connection attempt; \a connection may be null. */
    QSqlError hlpError(const PGconn *connection, QSqlError::ErrorType type,
                       const QString &text) const;

private:
    Q_DISABLE_COPY(Dorvy3Transacted)
    friend struct Dorvy3TestAccess;

    QSharedPointer<Dorvy3Connection> hlpReuse(const QString &connectionString,
                                              const QString &searchPath);
    QSharedPointer<Dorvy3Connection> hlpTakeValid(const QString &connectionString);
    QSharedPointer<Dorvy3Connection> hlpConnect(const QString &connectionString,
                                                const QString &searchPath, QSqlError *error) const;

    QHash<QString, QList<QSharedPointer<Dorvy3Connection>>> pool; // spares, oldest first
    QMutex lock;                                                  // guards pool
};

#endif // DORVY3TRANSACTED_H
