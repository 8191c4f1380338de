// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The server's messages in bytes, for peers that say what no real server would.
#ifndef SERVERMESSAGES_H
#define SERVERMESSAGES_H

#include <QtCore/QByteArray>
#include <QtCore/QList>

/*!
    Each function gives one whole message; a peer sends any number of them, changed or cut, in one
    write or in many.

    Source: PostgreSQL protocol 3.0, message formats.
*/
namespace ServerMessage {

struct Column
{
    QByteArray name;
    quint32 type = 25; // OID
    qint16 size = -1;
    qint32 modifier = -1;
    qint16 format = 1;
};

/*! A message of any type; \a length stands in its length word, counting itself. */
QByteArray message(char type, const QByteArray &body, qint32 length);

/*! A message with the length that its body has. */
QByteArray message(char type, const QByteArray &body = QByteArray());

QByteArray authenticationOk();
QByteArray authentication(qint32 code, const QByteArray &rest = QByteArray());
QByteArray parameterStatus(const QByteArray &name, const QByteArray &value);
QByteArray backendKeyData(qint32 pid, qint32 key);

/*! \a status is I (idle), T (in a transaction) or E (in a failed one). */
QByteArray readyForQuery(char status);

QByteArray parseComplete();
QByteArray bindComplete();
QByteArray closeComplete();
QByteArray noData();
QByteArray emptyQueryResponse();
QByteArray portalSuspended();
QByteArray commandComplete(const QByteArray &tag);
QByteArray parameterDescription(const QList<quint32> &types = QList<quint32>());
QByteArray rowDescription(const QList<Column> &columns);

/*! A value that is null (QByteArray()) goes as SQL NULL. */
QByteArray dataRow(const QList<QByteArray> &values);

QByteArray errorResponse(const QByteArray &sqlState, const QByteArray &text,
                         const QByteArray &severity = "ERROR");
QByteArray noticeResponse(const QByteArray &text);
QByteArray notificationResponse(qint32 pid, const QByteArray &channel, const QByteArray &payload);

} // namespace ServerMessage

#endif // SERVERMESSAGES_H
