// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// ScriptedServer: a peer that reports encodings of one's choice and refuses what one wants.
#include "tests/support/scriptedserver.h"

#include <QtCore/QMutexLocker>

using namespace ServerMessage;

namespace {

QByteArray hlpReport(const QByteArray &name, const QByteArray &value)
{
    return value.isEmpty() ? QByteArray() : parameterStatus(name, value);
}

} // namespace

ScriptedServer::ScriptedServer(const QByteArray &serverEncoding, const QByteArray &clientEncoding)
    : serverName(serverEncoding)
    , clientName(clientEncoding)
    , peer([this](PeerLink &link) { hlpServe(link); })
{
}

void ScriptedServer::hlpServe(PeerLink &link)
{
    if (link.readUntyped().isEmpty()) {
        return;
    }
    char state = 'I';
    link.send(authenticationOk() + hlpReport("server_encoding", serverName) +
              hlpReport("client_encoding", clientName) + readyForQuery(state));
    while (link.readRequest() == "Q") {
        const QByteArray sql = link.lastBody();
        link.send(hlpAnswer(sql.left(sql.size() - 1), &state));
    }
}

QByteArray ScriptedServer::hlpAnswer(const QByteArray &sql, char *state)
{
    const QMutexLocker locker(&mutex);
    received += sql;
    if (refusals.contains(sql)) {
        return errorResponse("XX000", refusals.value(sql)) + readyForQuery(*state);
    }
    *state = sql == "BEGIN" ? 'T' : sql == "COMMIT" || sql == "ROLLBACK" ? 'I' : *state;
    return commandComplete("OK") + readyForQuery(*state);
}
