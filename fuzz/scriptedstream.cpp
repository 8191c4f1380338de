// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// ScriptedStream: a connection of libpq whose server's words are all there before the first call.
#include "fuzz/scriptedstream.h"

#include "fuzz/fuzzinput.h"

#include <algorithm>
#include <cstddef>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

// AuthenticationOk, ParameterStatus, ReadyForQuery.
constexpr char Handshake[] = "R\0\0\0\10\0\0\0\0"
                             "S\0\0\0\31client_encoding\0UTF8\0"
                             "Z\0\0\0\5I";
constexpr char Ready[] = "Z\0\0\0\5"; // and the transaction's state
constexpr size_t ReadyBytes = sizeof(Ready);

// What is still to be read of the one stream that there is.
std::string unread;
size_t mostBytes = 0;

// A socket in the abstract name space leaves no file behind, however the process ends.
std::string folder()
{
    return "@dorvy-fuzz-" + std::to_string(getpid());
}

sockaddr_un socketAddress(socklen_t *size)
{
    const std::string name = folder() + "/.s.PGSQL.5432";
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::copy(name.begin() + 1, name.end(), address.sun_path + 1); // "@" stands for a zero
    *size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
    return address;
}

int listenOnce()
{
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    socklen_t size = 0;
    const sockaddr_un address = socketAddress(&size);
    require(bind(listener, reinterpret_cast<const sockaddr *>(&address), size) == 0 &&
                listen(listener, 1) == 0,
            "the peer can listen");
    return listener;
}

void ignoreNotice(void * /*argument*/, const PGresult * /*notice*/)
{
}

} // namespace

extern "C" ssize_t __real_recv(int descriptor, void *buffer, size_t length, int flags);

// In libpq's place: reads as a server's answers come, one by one.
extern "C" __attribute__((visibility("default"))) ssize_t __wrap_recv(int descriptor, void *buffer,
                                                                      size_t length, int flags)
{
    const size_t ready = unread.find(Ready, 0, ReadyBytes - 1);
    const size_t answer = ready == std::string::npos ? unread.size() : ready + ReadyBytes;
    const size_t most = unread.empty() ? length : std::min({length, answer, mostBytes});
    const ssize_t got = __real_recv(descriptor, buffer, most, flags);
    unread.erase(0, got > 0 ? static_cast<size_t>(got) : 0);
    return got;
}

ScriptedStream::ScriptedStream(const std::string &words, size_t bytesPerRead)
    : server(-1)
{
    unread.clear();
    hlpOpen();
    unread = words.substr(0, MostBytes);
    mostBytes = bytesPerRead;
    require(send(server, unread.data(), unread.size(), MSG_DONTWAIT) ==
                static_cast<ssize_t>(unread.size()),
            "the socket's buffer takes the stream");
    shutdown(server, SHUT_WR);
}

ScriptedStream::~ScriptedStream()
{
    conn.reset();
    close(server);
}

void ScriptedStream::hlpOpen()
{
    static const int listener = listenOnce();
    // With a password, so that libpq looks for no file with one.
    const std::string arguments = "host=" + folder() +
                                  " port=5432 user=u dbname=d password=p "
                                  "gssencmode=disable sslmode=disable";
    conn.reset(PQconnectStart(arguments.c_str())); // into the backlog
    server = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    send(server, Handshake, sizeof(Handshake) - 1, MSG_DONTWAIT);
    PostgresPollingStatusType status = PGRES_POLLING_WRITING;
    while (status == PGRES_POLLING_WRITING || status == PGRES_POLLING_READING) {
        status = PQconnectPoll(conn.get());
    }
    require(status == PGRES_POLLING_OK, "the handshake is a handshake");
    PQsetNoticeReceiver(conn.get(), &ignoreNotice, nullptr);
}
