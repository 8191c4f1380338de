// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Errors that several classes of the access layer build alike.
#include "access/dorvy3errors_p.h"

#include "access/dorvy3codec_p.h"

#include <QtCore/QTextCodec>

QSqlError hlpConnectionError(const PGconn *connection, QSqlError::ErrorType type,
                             const QString &text)
{
    QString message;
    if (connection) {
        const Dorvy3Codecs codecs = hlpCodecs(connection, QTextCodec::codecForName("CP1251"));
        const char *text8 = PQerrorMessage(connection);
        message = codecs.client ? codecs.client->toUnicode(text8) : QString::fromLatin1(text8);
    }
    return QSqlError(message, text, type);
}

QSqlError hlpRefusal(const QString &operation, const QString &reason)
{
    // The code is what Qt's constructor with a native number gives for 0.
    return QSqlError(operation, reason, QSqlError::StatementError, QStringLiteral("0"));
}
