// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// From the encoding names that a server reports to Qt's text codecs.
#include "access/dorvy3codec_p.h"

#include "access/dorvy3encoding_p.h"

namespace {

QTextCodec *hlpCodec(const char *encoding, QTextCodec *fallback)
{
    QTextCodec *codec = hlpFindCodec(encoding);
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
