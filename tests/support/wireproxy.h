// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// WireProxy: stands between a client and a PostgreSQL server and writes down what they say.
#ifndef WIREPROXY_H
#define WIREPROXY_H

#include "tests/support/wiremessage.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QMutex>
#include <QtCore/QSet>
#include <QtCore/QStringList>
#include <QtCore/QVector>

#include <atomic>
#include <functional>
#include <thread>

/*!
    A proxy on a TCP port for the server behind a Unix socket. It refuses TLS and GSS, so that it
    can read everything, and records each message before it passes it on: what a client has an
    answer to has been recorded. It listens on loopback, or on another \a address of the network
    namespace that it is made in.

    It has a thread of its own; every operation may be called from the test's thread.
*/
class WireProxy
{
public:
    WireProxy(const QString &serverSocketDir, int serverPort,
              const QString &address = QStringLiteral("127.0.0.1"));
    ~WireProxy();

    QString host() const { return listenAddress; }
    int port() const { return listenPort; }

    /*! A connection string for libpq, through the proxy, as the superuser. */
    QByteArray conninfo(const QString &database = QStringLiteral("postgres")) const;

    /*! Forgets what was recorded; connections keep their numbers, names start anew. */
    void clear();

    /*!
        What was recorded. The answer to closes, which the driver does not wait for, stands behind
        their Sync, also when the server was slower than what the client sent next.
    */
    QVector<WireMessage> messages() const;

    /*! All messages in words; a run of DataRow messages is one line, "DataRow x3". */
    QStringList conversation() const;

    /*! The client's messages in words, of one connection or (0) of all. */
    QStringList frontend(int connection = 0) const;

    /*! Waits until a line of conversation() is \a line, with its number and direction. */
    bool waitForLine(const QString &line, int msec = 5000) const;

    /*! How many connections there were. */
    int connectionCount() const;

    /*! While on, the server's bytes are not passed on; switching it off passes them on. */
    void holdReplies(bool hold) { repliesHeld = hold; }

    /*! While on, the client's bytes are not passed on; new connections stay without an answer. */
    void holdRequests(bool hold) { requestsHeld = hold; }

    /*!
        From now on the server's bytes are passed on \a msec after they have come, each connection's
        for themselves, as a long way would bring them: none overtakes another.
    */
    void delayReplies(int msec) { replyDelayMsec = msec; }

    /*!
        Calls \a action once, when a message comes whose line begins with \a start, such as
        "2> Execute"; the driver's names count from this call on. That is on the proxy's thread and
        before the message is passed on: nothing flows as long as \a action runs. What the server
        has said by the end of it goes along with a message of the server's. Takes the place of an
        earlier one, onAnswer() or cutReply() that has not found its message.
    */
    void onLine(const QString &start, const std::function<void()> &action);

    /*!
        Calls \a action as onLine() does, when the end of the answer comes to the message that
        \a start finds: answers to earlier messages may come before.
    */
    void onAnswer(const QString &start, const std::function<void()> &action);

    /*!
        Of the reply to the message that \a start finds as for onLine(), passes on \a bytes and
        breaks the connection at the next one.
    */
    void cutReply(const QString &start, int bytes);

    /*! Waits until \a connection has been broken, by either side or by the proxy. */
    bool waitUntilBroken(int connection, int msec = 5000) const;

    /*! Breaks every connection there is. */
    void cut();

private:
    Q_DISABLE_COPY(WireProxy)

    struct Direction
    {
        QByteArray waiting; // recorded, not passed on yet
        QByteArray partial; // of a message whose end has not come
        int chunks = 0;
        bool ended = false;
    };

    struct LateReply
    {
        qint64 due; // nanoseconds on the clock
        QByteArray bytes;
    };

    struct Link
    {
        int number = 0;
        int client = -1;
        int server = -1;
        bool started = false;  // the startup message has come
        int replyBytes = -1;   // how many of the server's are passed on yet; -1 is all
        int answersBefore = 0; // answers to earlier messages, which replyBytes does not count
        int unanswered = 0;    // Syncs and queries
        Direction requests;
        Direction replies;
        QList<LateReply> late; // recorded, on their way to replies
    };

    struct Hook
    {
        QString start; // of the line that it waits for; empty when there is none
        std::function<void(Link &)> call;
        WireWords words;
    };

    void hlpServe();
    void hlpAccept();
    bool hlpRead(Link &link, bool fromClient);
    bool hlpReadReplies(Link &link);
    void hlpRecord(Link &link, bool fromClient);
    void hlpRecordMessage(Link &link, const WireMessage &message);
    void hlpHook(const QString &start, const std::function<void(Link &)> &call);
    void hlpHookReady(int connection, int earlier, const std::function<void()> &action);
    Hook hlpTakeHook(const WireMessage &message);
    bool hlpRecordStartup(Link &link);
    void hlpTakeDue(Link &link);
    qint64 hlpStepNsec() const;
    void hlpPass(Direction &direction, int to, bool held);
    void hlpCut(Link &link, QByteArray &bytes, int before);
    void hlpDrop(Link &link);
    void hlpStep();

    QByteArray serverPath;
    QString listenAddress;
    int listener;
    int listenPort;
    int connections;
    QList<Link> links;    // the proxy's thread alone
    bool hookCalled;      // likewise: while a chunk was read
    mutable QMutex mutex; // guards recorded, connections, linked and hook
    QVector<WireMessage> recorded;
    QSet<int> linked; // the connections that stand
    Hook hook;
    QElapsedTimer clock; // the proxy's thread alone
    std::atomic<int> replyDelayMsec;
    std::atomic<bool> repliesHeld;
    std::atomic<bool> requestsHeld;
    std::atomic<bool> cutWanted;
    std::atomic<bool> stopWanted;
    std::thread thread;
};

#endif // WIREPROXY_H
