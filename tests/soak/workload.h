// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// What a user's program does with the driver, over and over.
#ifndef WORKLOAD_H
#define WORKLOAD_H

#include <QtSql/QSqlDatabase>

constexpr int QueriesPerRound = 18;

/*! Makes the table that a round works on. */
bool makeTables(const QSqlDatabase &database);

/*!
    A round of queries, most of them good and some not: prepared ones walked to their end and
    abandoned, texts of their own, values, transactions, notices. \a number makes the texts differ.
    False when an answer is not what it has to be; the reason is on standard error.
*/
bool runRound(const QSqlDatabase &database, int number);

/*!
    Opens a connection \a name like \a model, reads and writes, and closes it: by close(), by
    removing it, or, every third \a number, after an attempt to open what is not there.
*/
bool runCycle(const QSqlDatabase &model, const QString &name, int number);

#endif // WORKLOAD_H
