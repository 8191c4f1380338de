// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// OrdinaryAnswers: what a simple server says, up to the moment that a test makes its own.
#include "tests/support/ordinaryanswers.h"

#include <QtCore/QtEndian>

#include <algorithm>

using namespace ServerMessage;

namespace {

constexpr int PatienceSeconds = 30; // with nothing to read, the client waits for us

QByteArray hlpFirstWord(const QByteArray &sql)
{
    return sql.split(' ').first();
}

// The value of a plain SELECT.
QByteArray hlpPlainValue(const QByteArray &sql)
{
    if (sql == "SELECT current_schema()") {
        return "public";
    }
    return sql == "SELECT lastval()" ? QByteArray("7") : sql;
}

} // namespace

QByteArray PeerRequest::text() const
{
    if (types.startsWith('Q')) {
        return bodies.first().chopped(1);
    }
    const int parse = types.indexOf('P');
    return parse < 0 ? QByteArray() : bodies.at(parse).split('\0').at(1);
}

PeerRequest PeerRequest::read(PeerLink &link)
{
    PeerRequest request;
    do {
        const PeerLink::Message message = link.read();
        if (!message.type) {
            return PeerRequest();
        }
        request.types += message.type;
        request.bodies += message.body;
    } while (!QByteArray("SQX").contains(request.types.at(request.types.size() - 1)));
    return request;
}

OrdinaryAnswers::OrdinaryAnswers(const QList<Column> &serverColumns, const QList<Row> &serverRows)
    : columns(serverColumns)
    , rows(serverRows)
    , state('I')
    , selecting(true)
    , position(0)
{
}

QByteArray OrdinaryAnswers::to(const PeerRequest &request)
{
    QByteArray bytes;
    for (int i = 0; i < request.types.size(); ++i) {
        bytes += hlpToMessage(request.types.at(i), request.bodies.at(i));
    }
    return bytes;
}

QByteArray OrdinaryAnswers::hlpToMessage(char type, const QByteArray &body)
{
    switch (type) {
    case 'P':
        return hlpToParse(body);
    case 'D':
        return hlpToDescribe(body.at(0));
    case 'B':
        position = 0;
        return bindComplete();
    case 'E':
        return hlpPage(qFromBigEndian<qint32>(body.right(4).constData()));
    case 'C':
        return closeComplete();
    case 'S':
        return readyForQuery(state);
    case 'Q':
        return hlpToQuery(body.chopped(1));
    default:
        return QByteArray();
    }
}

QByteArray OrdinaryAnswers::hlpToParse(const QByteArray &body)
{
    word = hlpFirstWord(body.split('\0').at(1));
    selecting = word == "SELECT";
    return parseComplete();
}

QByteArray OrdinaryAnswers::hlpToQuery(const QByteArray &sql)
{
    hlpFollow(sql);
    return hlpResult(sql) + readyForQuery(state);
}

QByteArray OrdinaryAnswers::hlpResult(const QByteArray &sql) const
{
    if (own.contains(sql)) {
        return own.value(sql);
    }
    if (!sql.startsWith("SELECT")) {
        return commandComplete(hlpFirstWord(sql));
    }
    Column column;
    column.name = "text";
    column.format = 0;
    return rowDescription({column}) + dataRow({hlpPlainValue(sql)}) + commandComplete("SELECT 1");
}

QByteArray OrdinaryAnswers::hlpToDescribe(char kind) const
{
    const QByteArray described = selecting ? rowDescription(columns) : noData();
    return kind == 'S' ? parameterDescription() + described : described;
}

QByteArray OrdinaryAnswers::hlpPage(int most)
{
    if (!selecting) {
        return commandComplete(word);
    }
    const int left = rows.size() - position;
    const int count = most > 0 ? std::min(most, left) : left;
    QByteArray bytes;
    for (int i = 0; i < count; ++i) {
        bytes += dataRow(rows.at(position++));
    }
    return bytes + (count == most ? portalSuspended()
                                  : commandComplete("SELECT " + QByteArray::number(count)));
}

void OrdinaryAnswers::hlpFollow(const QByteArray &sql)
{
    if (sql == "BEGIN") {
        state = 'T';
    } else if (sql == "COMMIT" || sql == "ROLLBACK") {
        state = 'I';
    }
}

bool PeerMoment::is(const PeerLink &peer, const PeerRequest &request) const
{
    return (link == 0 || peer.number() == link) && request.types == types &&
           request.text().startsWith(text);
}

ScriptedPeer::Script ordinaryUntil(const PeerMoment &moment,
                                   const std::function<void(PeerLink &)> &instead,
                                   const OrdinaryAnswers &answers, std::atomic<bool> &overdue)
{
    return [moment, instead, answers, &overdue](PeerLink &link) {
        OrdinaryAnswers ordinary = answers;
        bool over = false;
        link.setPatience(PatienceSeconds);
        bool there = link.greet();
        while (there) {
            const PeerRequest request = PeerRequest::read(link);
            there = !request.types.isEmpty();
            if (!over && moment.is(link, request)) {
                over = true;
                instead(link);
            } else {
                link.send(ordinary.to(request));
            }
        }
        if (link.isOverdue()) {
            overdue = true;
        }
    };
}
