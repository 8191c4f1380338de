// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Which statements begin and end transactions.
#include "transaction.h"

#include <QtCore/QRegularExpression>

TransactionWord transactionWord(const QString &statement)
{
    // In this order: the plain forms first. ROLLBACK TO, COMMIT AND CHAIN and COMMIT PREPARED leave
    // things as they are.
    static const struct
    {
        QRegularExpression form;
        TransactionWord word;
    } forms[] = {
        {QRegularExpression(QStringLiteral("^(BEGIN( WORK| TRANSACTION)?|START TRANSACTION)$")),
         TransactionWord::Begin},
        {QRegularExpression(QStringLiteral("^(COMMIT|END)( WORK| TRANSACTION)?$")),
         TransactionWord::Commit},
        {QRegularExpression(QStringLiteral("^(ROLLBACK|ABORT)( WORK| TRANSACTION)?$")),
         TransactionWord::Rollback},
        {QRegularExpression(QStringLiteral("^(BEGIN|START TRANSACTION)\\b")),
         TransactionWord::BeginByText},
        {QRegularExpression(QStringLiteral("^((COMMIT|END|ROLLBACK|ABORT)( WORK| TRANSACTION)? AND "
                                           "NO CHAIN$|PREPARE TRANSACTION\\b)")),
         TransactionWord::EndByText},
    };
    const QString words = statement.simplified().toUpper();
    for (const auto &form : forms) {
        if (form.form.match(words).hasMatch()) {
            return form.word;
        }
    }
    return TransactionWord::None;
}
