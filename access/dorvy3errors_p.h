// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Errors that several classes of the access layer build alike.
#ifndef DORVY3ERRORS_P_H
#define DORVY3ERRORS_P_H

#include <libpq-fe.h>

#include <QtCore/QString>
#include <QtSql/QSqlError>

/*!
    The error of a connection attempt: libpq's message is the driver text, \a text the database
    text. The message is read in the encoding that \a connection reports, and as CP1251 where it
    reports none, as a connection that failed usually does. A null \a connection has no message.
*/
QSqlError hlpConnectionError(const PGconn *connection, QSqlError::ErrorType type,
                             const QString &text);

/*! The error of a statement that the driver itself refuses before the server has seen it. */
QSqlError hlpRefusal(const QString &operation, const QString &reason);

/*! Writes \a value to \a error, which may be null. */
inline void hlpReport(QSqlError *error, const QSqlError &value)
{
    if (error) {
        *error = value;
    }
}

/*!
    Makes \a error, which may be null, an empty one. One that is empty stays as it is: every QSqlError
    that is made takes memory, and most operations succeed after one that has.
*/
inline void hlpClearError(QSqlError *error)
{
    if (error && (error->type() != QSqlError::NoError || !error->driverText().isEmpty() ||
                  !error->databaseText().isEmpty() || !error->nativeErrorCode().isEmpty())) {
        *error = QSqlError();
    }
}

#endif // DORVY3ERRORS_P_H
