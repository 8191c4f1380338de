// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Which statements begin and end transactions.
#ifndef TRANSACTION_H
#define TRANSACTION_H

#include <QtCore/QString>

/*!
    What a statement is to the transaction. BEGIN, COMMIT and ROLLBACK without options are what
    QSqlDatabase has operations for.
*/
enum class TransactionWord {
    None,
    Begin,
    Commit,
    Rollback,
    BeginByText, // with options, such as BEGIN ISOLATION LEVEL SERIALIZABLE
    EndByText    // COMMIT, ROLLBACK and PREPARE TRANSACTION in a form that ends a transaction
};

/*! What \a statement, which has no comments, is. */
TransactionWord transactionWord(const QString &statement);

#endif // TRANSACTION_H
