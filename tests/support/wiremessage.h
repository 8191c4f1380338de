// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// WireMessage: one message of PostgreSQL's protocol 3.0, in words.
#ifndef WIREMESSAGE_H
#define WIREMESSAGE_H

#include <QtCore/QByteArray>
#include <QtCore/QHash>
#include <QtCore/QString>

struct WireMessage
{
    int connection;  // counted from 1 in the order in which connections came
    bool fromClient; // frontend message, otherwise backend
    char type;       // type byte; 0 for the startup message, which has none
    QByteArray body; // without type and length
    int chunk;       // which read brought its first byte, counted per connection and direction
};

/*!
    Whether a client's first message, of which \a code is the first word, asks for TLS or GSS in front
    of the startup message: "PostgreSQL frontend/backend protocol 3.0, Message Formats" has the words.
*/
bool isEncryptionRequest(quint32 code);

/*!
    Puts messages into words, one line each, such as

        1> Parse S1 "SELECT 1"
        1< PortalSuspended

    (the connection's number, the direction, the message). The driver's names are made from
    addresses, so they are renamed in the order in which they turn up: statement S1 has the portal
    P1.

    Frontend: Startup USER DATABASE, Query "SQL", Parse S "SQL" TYPES, Bind P S [V, V] RESULTFORMAT
    (a value is its bytes in hexadecimal, or NULL, before a colon and its format), Describe S|P
    NAME, Execute P ROWS, Close S|P NAME, Sync, Flush, Terminate, Password, CopyData, CopyDone,
    CopyFail.

    Backend: RowDescription COLUMNS, DataRow, CommandComplete "TAG", PortalSuspended, ReadyForQuery
    I|T|E, ErrorResponse SQLSTATE, NoticeResponse SQLSTATE, ParameterDescription TYPES, and the rest
    by their bare names.
*/
class WireWords
{
public:
    QString line(const WireMessage &message);

private:
    QString hlpFrontend(const WireMessage &message);
    QString hlpBackend(const WireMessage &message);
    QString hlpBind(const QByteArray &body);
    QString hlpName(const QByteArray &name);

    QHash<QByteArray, int> numbers; // of the driver's statement names, by order of appearance
};

#endif // WIREMESSAGE_H
