// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// ServerWaits: how often libpq waits for an answer.
#ifndef SERVERWAITS_H
#define SERVERWAITS_H

#include <QtCore/QSet>

#include <thread>

/*!
    While one lives, counts the exchanges with servers on the thread that made it: the waits for
    input behind a write to the same socket. A write that nobody waits for is none; where what comes
    next has to wait for its answer first, that wait is one.

    The count is that of a network on which every answer takes the same time, its latency, and
    nothing else takes any. So it does not matter whether an answer is there already when the wait
    begins: there it would not be, unless another wait or a pause() has let a latency pass since the
    write, on whatever connection. The order of the calls decides, not the speed of the machine.

    At most one lives at a time. The program that uses it links dorvy_server_waits, whose linker
    options lead the calls of send, poll and close here.
*/
class ServerWaits
{
public:
    ServerWaits();
    ~ServerWaits();

    /*! The exchanges up to now. */
    int count() const { return exchanges; }

    /*! Lets a latency pass, and waits until everything that was sent has indeed been answered. */
    void pause();

    /*! What has happened on the calling thread, for the linker's names. */
    static void noteSent(int descriptor);
    static void noteWait(int descriptor);
    static void noteClosed(int descriptor);

private:
    Q_DISABLE_COPY(ServerWaits)

    static ServerWaits *hlpWatcher();

    const std::thread::id thread;
    QSet<int> unanswered; // sockets that were written to, and no latency has passed since
    int exchanges;
};

#endif // SERVERWAITS_H
