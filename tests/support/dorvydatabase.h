// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// addDorvyDatabase: a QSqlDatabase with the driver linked in, for the tests of the driver alone.
#ifndef DORVYDATABASE_H
#define DORVYDATABASE_H

#include "access/dorvy3.h"
#include "driver/dorvydriver.h"

#include "tests/support/pgcluster.h"

#include <QtSql/QSqlDatabase>

/*!
    Adds the connection \a name to \a database of \a cluster, as the superuser, through the Unix
    socket. It is not open yet, and the caller removes it.
*/
inline QSqlDatabase addDorvyDatabase(
    const QString &name, const PgCluster &cluster,
    const QString &database = QStringLiteral("postgres"),
    const QSharedPointer<Dorvy3Transacted> &pool = QSharedPointer<Dorvy3Transacted>::create())
{
    QSqlDatabase added = QSqlDatabase::addDatabase(new DorvyDriver(pool), name);
    added.setHostName(cluster.socketDir());
    added.setPort(cluster.port());
    added.setUserName(cluster.user());
    added.setDatabaseName(database);
    return added;
}

#endif // DORVYDATABASE_H
