// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Dorvy3TestAccess: what the tests see of the access layer's private fields.
#ifndef TESTACCESS_H
#define TESTACCESS_H

#include "access/dorvy3.h"

struct Dorvy3TestAccess
{
    // The pool's hash.
    static QStringList poolKeys(const Dorvy3Transacted &pool) { return pool.pool.keys(); }
    static QList<QSharedPointer<Dorvy3Connection>> spares(const Dorvy3Transacted &pool,
                                                          const QString &key)
    {
        return pool.pool.value(key);
    }
    static QMutex &lock(Dorvy3Transacted &pool) { return pool.lock; }

    // The pool that a plugin, a driver or a handle holds; templates, so that the tests of the
    // access layer need no header from above it.
    template<typename Plugin>
    static auto pool(const Plugin &plugin) -> decltype(plugin.pool)
    {
        return plugin.pool;
    }

    // The database handle.
    static QString composedString(const Dorvy3Database &database, const QString &db,
                                  const QString &user, const QString &password, const QString &host,
                                  int port, const QString &connOpts)
    {
        return database.hlpConnectionString(db, user, password, host, port, connOpts);
    }
    static QString connectionString(const Dorvy3Database &database)
    {
        return database.connectionString;
    }
    static QString schema(const Dorvy3Database &database) { return database.schema; }
    static QSharedPointer<Dorvy3Connection> connection(const Dorvy3Database &database)
    {
        return database.connection;
    }
    static QSharedPointer<Dorvy3Connection> readConnection(const Dorvy3Database &database)
    {
        return database.readConnection;
    }
    static int boundCount(const Dorvy3Database &database)
    {
        return database.boundCount.loadAcquire();
    }

    // The statement.
    static QString query(const Dorvy3Statement &statement) { return statement.query; }
    static const Dorvy3Database *database(const Dorvy3Statement &statement)
    {
        return statement.database;
    }
    static QSharedPointer<Dorvy3Result> description(const Dorvy3Statement &statement)
    {
        return statement.description;
    }
    static const void *params(const Dorvy3Statement &statement) { return statement.params; }
    static const char *const *paramValues(const Dorvy3Statement &statement)
    {
        return statement.paramValues;
    }
    static const int *paramLengths(const Dorvy3Statement &statement)
    {
        return statement.paramLengths;
    }
    static const int *paramFormats(const Dorvy3Statement &statement)
    {
        return statement.paramFormats;
    }
    static const Oid *paramTypes(const Dorvy3Statement &statement) { return statement.paramTypes; }
};

#endif // TESTACCESS_H
