// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// OrdinaryAnswers: what a simple server says, up to the moment that a test makes its own.
#ifndef ORDINARYANSWERS_H
#define ORDINARYANSWERS_H

#include "tests/support/scriptedpeer.h"

#include <QtCore/QHash>
#include <QtCore/QList>

#include <atomic>
#include <functional>

/*! What the client says in one go: its messages up to and with a Sync, a Query or a Terminate. */
struct PeerRequest
{
    QByteArray types; // such as "BDES"; empty when the client has gone
    QList<QByteArray> bodies;

    /*! Of the Query or the Parse; empty if there is none. */
    QByteArray text() const;

    static PeerRequest read(PeerLink &link);
};

/*!
    The answers of a server on which every SELECT of the extended protocol has the same columns and
    rows, on one connection.

    A plain SELECT has one row with one text: its own, but "public" for current_schema() and "7" for
    lastval(). Every other statement succeeds with its first word as the tag.
*/
class OrdinaryAnswers
{
public:
    using Row = QList<QByteArray>;

    OrdinaryAnswers(const QList<ServerMessage::Column> &columns, const QList<Row> &rows);

    /*! Has the plain query \a sql answered with \a bytes, which a ReadyForQuery follows. */
    void answer(const QByteArray &sql, const QByteArray &bytes) { own.insert(sql, bytes); }

    QByteArray to(const PeerRequest &request);

private:
    QByteArray hlpToMessage(char type, const QByteArray &body);
    QByteArray hlpToParse(const QByteArray &body);
    QByteArray hlpToQuery(const QByteArray &sql);
    QByteArray hlpResult(const QByteArray &sql) const;
    QByteArray hlpToDescribe(char kind) const;
    QByteArray hlpPage(int most);
    void hlpFollow(const QByteArray &sql);

    const QList<ServerMessage::Column> columns;
    const QList<Row> rows;
    QHash<QByteArray, QByteArray> own;
    char state;      // what the next ReadyForQuery says: I or T
    bool selecting;  // the statement that was parsed last has rows
    QByteArray word; // of the statement that was parsed last
    int position;    // of the portal
};

/*! The moment at which a test says something else, once; by default it never comes. */
struct PeerMoment
{
    int link = -1;    // the number of the connection; 0: any
    QByteArray types; // of the request, as PeerRequest has them
    QByteArray text;  // with which the request's own begins

    bool is(const PeerLink &peer, const PeerRequest &request) const;
};

/*!
    A script for a ScriptedPeer: logs every connection in and gives it \a answers, but has \a instead
    answer the request at \a moment. A connection from which nothing comes for longer than a test
    can take is hung up, and \a overdue is set.
*/
ScriptedPeer::Script ordinaryUntil(const PeerMoment &moment,
                                   const std::function<void(PeerLink &)> &instead,
                                   const OrdinaryAnswers &answers, std::atomic<bool> &overdue);

#endif // ORDINARYANSWERS_H
