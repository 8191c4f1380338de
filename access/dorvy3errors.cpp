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
        message = codecs.client->toUnicode(PQerrorMessage(connection));
    }
    return QSqlError(message, text, type);
}
