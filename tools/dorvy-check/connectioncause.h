// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Why a server, or libpq, refuses a connection.
#ifndef CONNECTIONCAUSE_H
#define CONNECTIONCAUSE_H

#include <QtCore/QString>

struct ConnectionCause
{
    QString id;      // for programs: "refused", "password"; "other" if the text says nothing known
    QString meaning; // a few words, which the server's own text follows
    QString remedy;
};

/*!
    The cause that the text of a failed connection tells. libpq's part of it must be English; the
    server's part is in the server's own language, of which English and Russian are known.
*/
ConnectionCause connectionCause(const QString &text);

/*!
    The text of a failed connection as it was meant. A server that refuses a login has not told its
    encoding yet, so the driver reads the text as CP1251; mostly it was UTF-8.
*/
QString asItWasMeant(const QString &text);

#endif // CONNECTIONCAUSE_H
