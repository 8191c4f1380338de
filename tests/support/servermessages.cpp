// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The server's messages in bytes, for peers that say what no real server would.
#include "tests/support/servermessages.h"

#include <QtCore/QtEndian>

namespace {

template<typename Integer>
QByteArray hlpBytes(Integer value)
{
    QByteArray bytes(static_cast<int>(sizeof(value)), '\0');
    qToBigEndian(value, bytes.data());
    return bytes;
}

QByteArray hlpText(const QByteArray &text)
{
    return text + '\0';
}

QByteArray hlpReport(char type, const QByteArray &severity, const QByteArray &sqlState,
                     const QByteArray &text)
{
    return ServerMessage::message(type, 'S' + hlpText(severity) + 'V' + hlpText(severity) + 'C' +
                                            hlpText(sqlState) + 'M' + hlpText(text) + '\0');
}

} // namespace

QByteArray ServerMessage::message(char type, const QByteArray &body, qint32 length)
{
    return type + hlpBytes(length) + body;
}

QByteArray ServerMessage::message(char type, const QByteArray &body)
{
    return message(type, body, body.size() + 4);
}

QByteArray ServerMessage::authentication(qint32 code, const QByteArray &rest)
{
    return message('R', hlpBytes(code) + rest);
}

QByteArray ServerMessage::authenticationOk()
{
    return authentication(0);
}

QByteArray ServerMessage::parameterStatus(const QByteArray &name, const QByteArray &value)
{
    return message('S', hlpText(name) + hlpText(value));
}

QByteArray ServerMessage::backendKeyData(qint32 pid, qint32 key)
{
    return message('K', hlpBytes(pid) + hlpBytes(key));
}

QByteArray ServerMessage::readyForQuery(char status)
{
    return message('Z', QByteArray(1, status));
}

QByteArray ServerMessage::parseComplete()
{
    return message('1');
}

QByteArray ServerMessage::bindComplete()
{
    return message('2');
}

QByteArray ServerMessage::closeComplete()
{
    return message('3');
}

QByteArray ServerMessage::noData()
{
    return message('n');
}

QByteArray ServerMessage::emptyQueryResponse()
{
    return message('I');
}

QByteArray ServerMessage::portalSuspended()
{
    return message('s');
}

QByteArray ServerMessage::commandComplete(const QByteArray &tag)
{
    return message('C', hlpText(tag));
}

QByteArray ServerMessage::parameterDescription(const QList<quint32> &types)
{
    QByteArray body = hlpBytes(static_cast<qint16>(types.size()));
    for (const quint32 type : types) {
        body += hlpBytes(type);
    }
    return message('t', body);
}

QByteArray ServerMessage::rowDescription(const QList<Column> &columns)
{
    QByteArray body = hlpBytes(static_cast<qint16>(columns.size()));
    for (const Column &column : columns) {
        body += hlpText(column.name) + hlpBytes(qint32(0)) + hlpBytes(qint16(0)) +
                hlpBytes(column.type) + hlpBytes(column.size) + hlpBytes(column.modifier) +
                hlpBytes(column.format);
    }
    return message('T', body);
}

QByteArray ServerMessage::dataRow(const QList<QByteArray> &values)
{
    QByteArray body = hlpBytes(static_cast<qint16>(values.size()));
    for (const QByteArray &value : values) {
        body += value.isNull() ? hlpBytes(qint32(-1)) : hlpBytes(qint32(value.size())) + value;
    }
    return message('D', body);
}

QByteArray ServerMessage::errorResponse(const QByteArray &sqlState, const QByteArray &text,
                                        const QByteArray &severity)
{
    return hlpReport('E', severity, sqlState, text);
}

QByteArray ServerMessage::noticeResponse(const QByteArray &text)
{
    return hlpReport('N', "NOTICE", "00000", text);
}

QByteArray ServerMessage::notificationResponse(qint32 pid, const QByteArray &channel,
                                               const QByteArray &payload)
{
    return message('A', hlpBytes(pid) + hlpText(channel) + hlpText(payload));
}
