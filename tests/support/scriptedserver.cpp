// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// ScriptedServer: a peer that says what no real server would.
#include "tests/support/scriptedserver.h"

#include <QtCore/QMutexLocker>
#include <QtCore/QtEndian>

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

ScriptedServer::ScriptedServer(const QByteArray &serverEncoding, const QByteArray &clientEncoding)
    : serverName(serverEncoding)
    , clientName(clientEncoding)
    , state('I')
    , port(0)
    , listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    , client(-1)
{
    sockaddr_in address = {};
    socklen_t size = sizeof(address);
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (bind(listener, reinterpret_cast<sockaddr *>(&address), size) != 0 ||
        listen(listener, 1) != 0 ||
        getsockname(listener, reinterpret_cast<sockaddr *>(&address), &size) != 0) {
        qFatal("the scripted server cannot listen");
    }
    port = ntohs(address.sin_port);
    thread = std::thread(&ScriptedServer::hlpServe, this);
}

ScriptedServer::~ScriptedServer()
{
    shutdown(listener, SHUT_RDWR);
    if (client >= 0) {
        shutdown(client, SHUT_RDWR);
    }
    thread.join();
    if (client >= 0) {
        ::close(client);
    }
    ::close(listener);
}

QByteArray ScriptedServer::hlpRead(int count)
{
    QByteArray bytes(count, '\0');
    const ssize_t got =
        count > 0 ? recv(client, bytes.data(), static_cast<size_t>(count), MSG_WAITALL) : 0;
    return got == count ? bytes : QByteArray();
}

void ScriptedServer::hlpSend(char type, const QByteArray &body)
{
    QByteArray message(5, type);
    qToBigEndian<qint32>(body.size() + 4, message.data() + 1);
    message += body;
    send(client, message.constData(), static_cast<size_t>(message.size()), MSG_NOSIGNAL);
}

void ScriptedServer::hlpReport(const QByteArray &name, const QByteArray &value)
{
    if (!value.isEmpty()) {
        hlpSend('S', name + '\0' + value + '\0');
    }
}

void ScriptedServer::hlpServe()
{
    client = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    const QByteArray length = hlpRead(4);
    if (length.isEmpty()) {
        return;
    }
    hlpRead(qFromBigEndian<qint32>(length.constData()) - 4);
    hlpSend('R', QByteArray(4, '\0'));
    hlpReport("server_encoding", serverName);
    hlpReport("client_encoding", clientName);
    hlpSend('Z', QByteArray(1, state));
    while (hlpAnswer()) {}
}

bool ScriptedServer::hlpAnswer()
{
    const QByteArray header = hlpRead(5);
    if (!header.startsWith('Q')) {
        return false;
    }
    QByteArray sql = hlpRead(qFromBigEndian<qint32>(header.constData() + 1) - 4);
    sql.chop(1);
    const QMutexLocker locker(&mutex);
    received += sql;
    if (refusals.contains(sql)) {
        hlpSend('E', QByteArray("SERROR\0CXX000\0M", 15) + refusals.value(sql) + QByteArray(2, 0));
    } else {
        hlpSend('C', QByteArray("OK\0", 3));
        state = sql == "BEGIN" ? 'T' : sql == "COMMIT" || sql == "ROLLBACK" ? 'I' : state;
    }
    hlpSend('Z', QByteArray(1, state));
    return true;
}
