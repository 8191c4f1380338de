// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// ScriptedStream: a connection of libpq whose server's words are all there before the first call.
#ifndef SCRIPTEDSTREAM_H
#define SCRIPTEDSTREAM_H

#include "tests/support/libpqowners.h"

#include <string>

/*!
    Makes a connection and puts \a words into it, what the server says after the handshake. The
    write side is shut down behind them, so that no read ever waits.

    As a server that waits for its next command does, a read ends behind every ReadyForQuery, and
    brings at most \a bytesPerRead otherwise.

    One at a time, in one thread. A program that uses it is linked with --wrap=recv.
*/
class ScriptedStream
{
public:
    /*! More than this is cut off: it might not fit the socket's buffer. */
    static constexpr size_t MostBytes = 64 * 1024;

    ScriptedStream(const std::string &words, size_t bytesPerRead);
    ~ScriptedStream();

    ScriptedStream(const ScriptedStream &) = delete;
    ScriptedStream &operator=(const ScriptedStream &) = delete;

    PGconn *connection() const { return conn.get(); }

private:
    void hlpOpen();

    RawConnectionPtr conn;
    int server; // the other end
};

#endif // SCRIPTEDSTREAM_H
