// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Checks that print the database's own error.
#ifndef SQLMACROS_H
#define SQLMACROS_H

#include <QtSql/QSqlError>
#include <QtTest/QtTest>

/*! Verifies that \a condition holds, and prints \a object's lastError() where it does not. */
#define QVERIFY_SQL(object, condition)                                                             \
    do {                                                                                           \
        const bool sqlHolds = (condition);                                                         \
        const QSqlError sqlError = (object).lastError();                                           \
        QVERIFY2(sqlHolds, qPrintable(sqlError.driverText() + QStringLiteral(" / ") +              \
                                      sqlError.databaseText()));                                   \
    } while (false)

/*! Compares an error field by field; \a code is its nativeErrorCode(). */
#define COMPARE_ERROR(error, errorType, driver, databaseTextOfError, code)                         \
    do {                                                                                           \
        const QSqlError &comparedError = (error);                                                  \
        QCOMPARE(comparedError.driverText(), QString(driver));                                     \
        QCOMPARE(comparedError.databaseText(), QString(databaseTextOfError));                      \
        QCOMPARE(comparedError.type(), QSqlError::errorType);                                      \
        QCOMPARE(comparedError.nativeErrorCode(), QString(code));                                  \
    } while (false)

/*! Verifies that \a error is the empty error of a success. */
#define VERIFY_NO_ERROR(error) COMPARE_ERROR(error, NoError, QString(), QString(), QString())

#endif // SQLMACROS_H
