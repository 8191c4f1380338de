// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// From the encoding names that a server reports to Qt's text codecs.
#include "access/dorvy3codec_p.h"

#include <QtCore/QByteArray>
#include <QtCore/QString>
#include <QtCore/QTextCodec>

namespace {

QTextCodec *hlpCodec(const char *encoding, QTextCodec *fallback)
{
    if (QTextCodec *codec = QTextCodec::codecForName(encoding)) {
        return codec;
    }
    QString name = QString::fromLatin1(encoding).toUpper();
    const QString windows = QStringLiteral("WIN");
    if (!name.startsWith(windows)) {
        return fallback;
    }
    QTextCodec *codec =
        QTextCodec::codecForName(name.replace(windows, QStringLiteral("CP")).toLatin1());
    return codec ? codec : fallback;
}

} // namespace

Dorvy3Codecs hlpCodecs(const PGconn *connection, QTextCodec *fallback)
{
    Dorvy3Codecs codecs;
    codecs.server = hlpCodec(PQparameterStatus(connection, "server_encoding"), fallback);
    codecs.client = hlpCodec(PQparameterStatus(connection, "client_encoding"), fallback);
    return codecs;
}
