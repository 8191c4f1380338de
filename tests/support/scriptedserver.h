// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// ScriptedServer: a peer that reports encodings of one's choice and refuses what one wants.
#ifndef SCRIPTEDSERVER_H
#define SCRIPTEDSERVER_H

#include "tests/support/scriptedpeer.h"

#include <QtCore/QHash>
#include <QtCore/QList>

/*!
    A peer that speaks just enough of the protocol to report encodings of one's choice and to refuse
    commands that a real server never refuses.
*/
class ScriptedServer
{
public:
    /*! An empty encoding is not reported at all. */
    ScriptedServer(const QByteArray &serverEncoding, const QByteArray &clientEncoding);

    /*! Answers \a sql with an error of that text from now on. */
    void refuse(const QByteArray &sql, const QByteArray &text)
    {
        const QMutexLocker locker(&mutex);
        refusals.insert(sql, text);
    }

    QList<QByteArray> queries() const
    {
        const QMutexLocker locker(&mutex);
        return received;
    }

    QByteArray conninfo() const { return peer.conninfo(); }

private:
    Q_DISABLE_COPY(ScriptedServer)

    void hlpServe(PeerLink &link);
    QByteArray hlpAnswer(const QByteArray &sql, char *state);

    const QByteArray serverName;
    const QByteArray clientName;
    mutable QMutex mutex; // guards refusals and received
    QHash<QByteArray, QByteArray> refusals;
    QList<QByteArray> received;
    ScriptedPeer peer; // last: its threads use the rest
};

#endif // SCRIPTEDSERVER_H
