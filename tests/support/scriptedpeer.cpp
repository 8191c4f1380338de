// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// ScriptedPeer: a server that sends whatever bytes a test wants, whenever it wants.
#include "tests/support/scriptedpeer.h"

#include "tests/support/wiremessage.h"

#include <QtCore/QMutexLocker>
#include <QtCore/QtEndian>

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>

namespace {

quint32 hlpWord(const QByteArray &bytes)
{
    return bytes.size() < 4 ? 0 : qFromBigEndian<quint32>(bytes.constData());
}

int hlpConnect(int port)
{
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<quint16>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(descriptor, reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0) {
        qFatal("the peer cannot connect to the server");
    }
    return descriptor;
}

// What has come from either goes to the other. False: one of them has gone.
bool hlpPass(int one, int other)
{
    pollfd ends[] = {{one, POLLIN, 0}, {other, POLLIN, 0}};
    if (poll(ends, 2, -1) < 0) {
        return false;
    }
    const bool first = ends[0].revents != 0;
    char bytes[4096];
    const ssize_t count = recv(first ? one : other, bytes, sizeof(bytes), 0);
    return count > 0 &&
           ::send(first ? other : one, bytes, static_cast<size_t>(count), MSG_NOSIGNAL) == count;
}

} // namespace

// A process that is stopped and goes on finds a read with a limit of time interrupted, whole or in part.
QByteArray PeerLink::hlpRead(int count)
{
    QByteArray bytes(count, '\0');
    int have = 0;
    while (have < count) {
        const ssize_t got =
            recv(descriptor, bytes.data() + have, static_cast<size_t>(count - have), MSG_WAITALL);
        if (got > 0) {
            have += static_cast<int>(got);
        } else if (got == 0 || errno != EINTR) {
            overdue = overdue || (got < 0 && errno == EAGAIN);
            return QByteArray();
        }
    }
    return bytes;
}

QByteArray PeerLink::readUntyped()
{
    const QByteArray length = hlpRead(4);
    return length.isEmpty() ? QByteArray() : hlpRead(static_cast<int>(hlpWord(length)) - 4);
}

PeerLink::Message PeerLink::read()
{
    const QByteArray header = hlpRead(5);
    if (header.isEmpty()) {
        return {'\0', QByteArray()};
    }
    body = hlpRead(static_cast<int>(hlpWord(header.mid(1))) - 4);
    return {header.at(0), body};
}

QByteArray PeerLink::readRequest()
{
    QByteArray types;
    do {
        const char type = read().type;
        if (!type) {
            return QByteArray();
        }
        types += type;
    } while (!QByteArray("SQHX").contains(types.at(types.size() - 1)));
    return types;
}

void PeerLink::send(const QByteArray &bytes)
{
    int sent = 0;
    while (sent < bytes.size()) {
        const ssize_t count = ::send(descriptor, bytes.constData() + sent,
                                     static_cast<size_t>(bytes.size() - sent), MSG_NOSIGNAL);
        if (count <= 0) {
            return; // the client has gone, which the next read tells
        }
        sent += static_cast<int>(count);
    }
}

void PeerLink::sendInPieces(const QByteArray &bytes, int size)
{
    for (int at = 0; at < bytes.size(); at += size) {
        send(bytes.mid(at, size));
    }
}

bool PeerLink::greet()
{
    startupBody = readUntyped();
    while (isEncryptionRequest(hlpWord(startupBody))) {
        send("N");
        startupBody = readUntyped();
    }
    if (startupBody.isEmpty()) {
        return false;
    }
    send(ServerMessage::authenticationOk() +
         ServerMessage::parameterStatus("server_encoding", "UTF8") +
         ServerMessage::parameterStatus("client_encoding", "UTF8") +
         ServerMessage::backendKeyData(linkNumber, 1) + ServerMessage::readyForQuery('I'));
    return true;
}

void PeerLink::serveCommands()
{
    while (readRequest() == "Q") {
        send(ServerMessage::commandComplete("OK") + ServerMessage::readyForQuery('I'));
    }
}

void PeerLink::relayTls(int port, const QByteArray &injected)
{
    PeerLink server(hlpConnect(port), 0);
    server.send(QByteArray::fromHex("0000000804d2162f")); // request for TLS
    if (!readUntyped().isEmpty()) {
        send(server.hlpRead(1) + injected);
        while (hlpPass(descriptor, server.descriptor)) {}
    }
    ::close(server.descriptor);
}

void PeerLink::hangUp()
{
    shutdown(descriptor, SHUT_RDWR);
}

void PeerLink::reset()
{
    const linger none = {1, 0};
    setsockopt(descriptor, SOL_SOCKET, SO_LINGER, &none, sizeof(none));
    const int other = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    dup2(other, descriptor); // closes the connection and keeps the number ours
    ::close(other);
}

void PeerLink::awaitByte()
{
    char byte = 0;
    while (recv(descriptor, &byte, 1, MSG_PEEK) < 0 && errno == EINTR) {}
}

void PeerLink::awaitEnd()
{
    while (!hlpRead(1).isEmpty()) {}
}

void PeerLink::setPatience(int seconds)
{
    const timeval most = {seconds, 0};
    setsockopt(descriptor, SOL_SOCKET, SO_RCVTIMEO, &most, sizeof(most));
}

ScriptedPeer::ScriptedPeer(const Script &peerScript)
    : script(peerScript)
    , listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    , listenPort(0)
    , ending(false)
{
    hlpListen();
    thread = std::thread(&ScriptedPeer::hlpServe, this);
}

void ScriptedPeer::hlpListen()
{
    sockaddr_in address = {};
    socklen_t size = sizeof(address);
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (bind(listener, reinterpret_cast<sockaddr *>(&address), size) != 0 ||
        listen(listener, SOMAXCONN) != 0 ||
        getsockname(listener, reinterpret_cast<sockaddr *>(&address), &size) != 0) {
        qFatal("the scripted peer cannot listen");
    }
    listenPort = ntohs(address.sin_port);
}

ScriptedPeer::~ScriptedPeer()
{
    shutdown(listener, SHUT_RDWR);
    {
        const QMutexLocker locker(&mutex);
        ending = true;
        for (PeerLink &link : links) {
            link.hangUp();
        }
    }
    thread.join();
    for (std::thread &running : scripts) {
        running.join();
    }
    for (const PeerLink &link : links) {
        ::close(link.descriptor);
    }
    ::close(listener);
}

QByteArray ScriptedPeer::conninfo() const
{
    return "host=127.0.0.1 port=" + QByteArray::number(listenPort) +
           " user=u dbname=d sslmode=disable gssencmode=disable";
}

void ScriptedPeer::hlpServe()
{
    int client = -1;
    while ((client = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC)) >= 0) {
        const int on = 1;
        setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on)); // pieces stay pieces
        const QMutexLocker locker(&mutex);
        links.push_back(PeerLink(client, static_cast<int>(links.size()) + 1));
        if (ending) {
            links.back().hangUp();
        }
        scripts.emplace_back(&ScriptedPeer::hlpRun, this, std::ref(links.back()));
    }
}

void ScriptedPeer::hlpRun(PeerLink &link)
{
    script(link);
    const QMutexLocker locker(&mutex);
    link.hangUp();
}
