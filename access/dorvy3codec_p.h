// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// From the encoding names that a server reports to Qt's text codecs.
#ifndef DORVY3CODEC_P_H
#define DORVY3CODEC_P_H

#include <libpq-fe.h>

class QTextCodec;

struct Dorvy3Codecs
{
    QTextCodec *server; // of server_encoding: for text that is sent
    QTextCodec *client; // of client_encoding: for text that is received
};

/*!
    The codecs for the encodings that \a connection reports. An encoding whose name Qt does not know
    (a connection that failed reports none) gets \a fallback.
*/
Dorvy3Codecs hlpCodecs(const PGconn *connection, QTextCodec *fallback);

#endif // DORVY3CODEC_P_H
