// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// An error to set before a step, to see whether the step resets or replaces it.
#ifndef SOMEERROR_H
#define SOMEERROR_H

#include <QtSql/QSqlError>

/*! An error that no operation of the driver makes. */
inline QSqlError someError()
{
    return QSqlError(QStringLiteral("driver"), QStringLiteral("database"), QSqlError::UnknownError,
                     QStringLiteral("7"));
}

#endif // SOMEERROR_H
