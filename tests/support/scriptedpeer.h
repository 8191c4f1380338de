// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// ScriptedPeer: a server that sends whatever bytes a test wants, whenever it wants.
#ifndef SCRIPTEDPEER_H
#define SCRIPTEDPEER_H

#include "tests/support/servermessages.h"

#include <QtCore/QByteArray>
#include <QtCore/QMutex>

#include <functional>
#include <list>
#include <thread>

/*! One connection of a client to a ScriptedPeer, in the hands of the peer's script. */
class PeerLink
{
public:
    /*! A message of the client's; its type is 0 when the client has gone. */
    struct Message
    {
        char type;
        QByteArray body; // without type and length
    };

    /*! Counted from 1 in the order in which connections came. */
    int number() const { return linkNumber; }

    /*! A message without a type byte: a startup message or a request for encryption. Empty: gone. */
    QByteArray readUntyped();

    Message read();

    /*!
        Reads up to and with the message that wants an answer: Sync, Query, Flush or Terminate.
        Returns the types, such as "PS"; empty when the client has gone.
    */
    QByteArray readRequest();

    /*! The body of the last message that read() or readRequest() has read. */
    QByteArray lastBody() const { return body; }

    void send(const QByteArray &bytes);

    /*! One write for each \a size bytes, which the client's kernel sees one by one. */
    void sendInPieces(const QByteArray &bytes, int size);

    /*!
        Refuses encryption, takes the startup message and answers like a server that needs no
        password, with UTF8 as both encodings. False: the client has gone.
    */
    bool greet();

    /*! The startup message that greet() has taken, without its length. */
    QByteArray startup() const { return startupBody; }

    /*! Answers each command as done until the client goes. */
    void serveCommands();

    /*!
        A man in the middle: takes the request for TLS to the server at \a port of loopback, brings
        its answer back with \a injected in the same write, and passes on what either says then.
    */
    void relayTls(int port, const QByteArray &injected = QByteArray());

    /*! Ends the connection in order (the client reads what was sent) or by a reset. */
    void hangUp();
    void reset();

    /*! Waits for the next byte of the client's and leaves it unread. */
    void awaitByte();

    /*! Waits until the client hangs up; what it sends is read and dropped. */
    void awaitEnd();

    /*! From now on a read for which nothing comes for that long ends as if the client had gone. */
    void setPatience(int seconds);

    /*! True once a read has ended so. */
    bool isOverdue() const { return overdue; }

private:
    friend class ScriptedPeer;
    PeerLink(int socket, int number)
        : descriptor(socket)
        , linkNumber(number)
        , overdue(false)
    {
    }

    QByteArray hlpRead(int count);

    int descriptor;
    int linkNumber;
    bool overdue;
    QByteArray body;
    QByteArray startupBody;
};

/*!
    Listens on a port of loopback and runs the script once for each connection, in a thread of its
    own; the connection ends with the script. The object's end breaks the connections that are left
    and waits for their scripts.
*/
class ScriptedPeer
{
public:
    using Script = std::function<void(PeerLink &)>;

    explicit ScriptedPeer(const Script &script);
    ~ScriptedPeer();

    QString host() const { return QStringLiteral("127.0.0.1"); }
    int port() const { return listenPort; }

    /*! A connection string for libpq, without encryption. */
    QByteArray conninfo() const;

private:
    Q_DISABLE_COPY(ScriptedPeer)

    void hlpListen();
    void hlpServe();
    void hlpRun(PeerLink &link);

    Script script;
    int listener;
    int listenPort;
    QMutex mutex; // guards the descriptors in links, and ending
    bool ending;
    std::list<PeerLink> links;
    std::list<std::thread> scripts; // the listening thread's alone, until it has ended
    std::thread thread;
};

#endif // SCRIPTEDPEER_H
