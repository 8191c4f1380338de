// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// ScriptedServer: a peer that says what no real server would.
#ifndef SCRIPTEDSERVER_H
#define SCRIPTEDSERVER_H

#include <QtCore/QByteArray>
#include <QtCore/QHash>
#include <QtCore/QList>
#include <QtCore/QMutex>

#include <atomic>
#include <thread>

/*!
    A peer that speaks just enough of the protocol to report encodings of one's choice and to refuse
    commands that a real server never refuses. It serves one connection.
*/
class ScriptedServer
{
public:
    /*! An empty encoding is not reported at all. */
    ScriptedServer(const QByteArray &serverEncoding, const QByteArray &clientEncoding);
    ~ScriptedServer();

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

    QByteArray conninfo() const
    {
        return "host=127.0.0.1 port=" + QByteArray::number(port) +
               " user=u dbname=d sslmode=disable gssencmode=disable";
    }

private:
    Q_DISABLE_COPY(ScriptedServer)

    void hlpServe();
    QByteArray hlpRead(int count);
    bool hlpAnswer();
    void hlpSend(char type, const QByteArray &body);
    void hlpReport(const QByteArray &name, const QByteArray &value);

    QByteArray serverName;
    QByteArray clientName;
    char state; // of the transaction, as ReadyForQuery tells it
    int port;
    int listener;
    std::atomic<int> client;
    mutable QMutex mutex; // guards refusals and received
    QHash<QByteArray, QByteArray> refusals;
    QList<QByteArray> received;
    std::thread thread;
};

#endif // SCRIPTEDSERVER_H
