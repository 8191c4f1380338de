// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// PeerPages: pages of a scripted server, for the tests of the client extension.
#ifndef PEERPAGES_H
#define PEERPAGES_H

#include "client/libppq.h"

#include "tests/support/libpqowners.h"
#include "tests/support/ordinaryanswers.h"

#include <QtTest/QtTest>

#include <atomic>
#include <functional>
#include <memory>

constexpr char Run[] = "BDES"; // what PPQexecPrepared sends
constexpr char Fetch[] = "ES"; // PPQfetch

inline QList<ServerMessage::Column> columns(int count, qint16 format = 1)
{
    QList<ServerMessage::Column> list;
    for (int i = 0; i < count; ++i) {
        ServerMessage::Column column;
        column.name = "c" + QByteArray::number(i);
        column.format = format;
        list += column;
    }
    return list;
}

/*!
    What the tests of one program share: a scripted server and a connection to it, on which the
    portal "po" of the statement "st" is read.
*/
class PeerPages
{
protected:
    using Answer = std::function<void(PeerLink &)>;

    /*! Has \a answer answer the request of those \a types, and \a ordinary all others. */
    void play(const QByteArray &types, const Answer &answer, const OrdinaryAnswers &ordinary);
    void play(const OrdinaryAnswers &ordinary);

    /*! A new connection to the server. */
    void connectAnew();
    /*! Ends both. False: the client waited until the server hung up. */
    bool endInTime();

    ResultPtr run(int rows = 2) const
    {
        return ResultPtr(
            PPQexecPrepared(conn.get(), rows, "st", "po", 0, nullptr, nullptr, nullptr, 1));
    }
    ResultPtr fetch(const ResultPtr &previous, int rows = 2) const
    {
        return ResultPtr(PPQfetch(conn.get(), rows, "po", previous.get()));
    }

    std::atomic<bool> overdue{false};
    std::unique_ptr<ScriptedPeer> peer;
    RawConnectionPtr conn;
    int notices = 0; // since the connection was made

private:
    static void hlpNotice(void *pages, const PGresult * /*notice*/)
    {
        ++static_cast<PeerPages *>(pages)->notices;
    }
    void hlpPlay(const PeerMoment &moment, const Answer &answer, const OrdinaryAnswers &ordinary);
};

inline void PeerPages::hlpPlay(const PeerMoment &moment, const Answer &answer,
                               const OrdinaryAnswers &ordinary)
{
    peer.reset(new ScriptedPeer(ordinaryUntil(moment, answer, ordinary, overdue)));
    connectAnew();
}

inline void PeerPages::play(const QByteArray &types, const Answer &answer,
                            const OrdinaryAnswers &ordinary)
{
    PeerMoment moment;
    moment.link = 0; // any
    moment.types = types;
    hlpPlay(moment, answer, ordinary);
}

inline void PeerPages::play(const OrdinaryAnswers &ordinary)
{
    hlpPlay(
        PeerMoment(), [](PeerLink &) {}, ordinary);
}

inline void PeerPages::connectAnew()
{
    conn.reset(PQconnectdb(peer->conninfo().constData()));
    notices = 0;
    PQsetNoticeReceiver(conn.get(), hlpNotice, this);
    QCOMPARE(PQstatus(conn.get()), CONNECTION_OK);
}

inline bool PeerPages::endInTime()
{
    conn.reset();
    peer.reset();
    return !overdue.exchange(false);
}

#endif // PEERPAGES_H
