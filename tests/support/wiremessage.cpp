// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// WireMessage: one message of PostgreSQL's protocol 3.0, in words.
#include "tests/support/wiremessage.h"

#include <QtCore/QStringList>
#include <QtCore/QtEndian>

namespace {

// Walks over a message's body; a read past its end gives zeros, which a test then sees.
class BodyReader
{
public:
    explicit BodyReader(const QByteArray &bytes)
        : body(bytes)
        , at(0)
    {
    }

    QByteArray text()
    {
        const int end = body.indexOf('\0', at);
        const QByteArray bytes = body.mid(at, end - at);
        at = end < 0 ? body.size() : end + 1;
        return bytes;
    }

    QByteArray bytes(int count)
    {
        const QByteArray part = body.mid(at, count);
        at += count;
        return part;
    }

    int int16() { return qFromBigEndian<qint16>(bytes(2).leftJustified(2, '\0').constData()); }
    int int32() { return qFromBigEndian<qint32>(bytes(4).leftJustified(4, '\0').constData()); }

private:
    QByteArray body;
    int at;
};

QString hlpQuoted(const QByteArray &text)
{
    return QLatin1Char('"') + QString::fromUtf8(text) + QLatin1Char('"');
}

QString hlpStartup(BodyReader reader)
{
    reader.int32(); // protocol version
    QString user;
    QString database;
    for (QByteArray key = reader.text(); !key.isEmpty(); key = reader.text()) {
        const QByteArray value = reader.text();
        if (key == "user") {
            user = QString::fromUtf8(value);
        } else if (key == "database") {
            database = QString::fromUtf8(value);
        }
    }
    return QStringLiteral("Startup %1 %2").arg(user, database);
}

QString hlpReport(const char *name, const QByteArray &body)
{
    BodyReader reader(body);
    for (QByteArray kind = reader.bytes(1); !kind.isEmpty() && kind.at(0) != '\0';
         kind = reader.bytes(1)) {
        const QByteArray value = reader.text();
        if (kind == "C") {
            return QLatin1String(name) + QLatin1Char(' ') + QString::fromLatin1(value);
        }
    }
    return QLatin1String(name);
}

QString hlpTypes(BodyReader reader)
{
    QStringList types;
    const int count = reader.int16();
    for (int i = 0; i < count; ++i) {
        types += QString::number(reader.int32());
    }
    return types.join(QLatin1Char(' '));
}

} // namespace

bool isEncryptionRequest(quint32 code)
{
    constexpr quint32 SslRequest = 80877103;
    constexpr quint32 GssRequest = 80877104;
    return code == SslRequest || code == GssRequest;
}

QString WireWords::line(const WireMessage &message)
{
    return QStringLiteral("%1%2 %3").arg(
        QString::number(message.connection),
        message.fromClient ? QStringLiteral(">") : QStringLiteral("<"),
        message.fromClient ? hlpFrontend(message) : hlpBackend(message));
}

QString WireWords::hlpName(const QByteArray &name)
{
    const bool portal = name.startsWith("pdstmt");
    if (!portal && !name.startsWith("dstmt")) {
        return hlpQuoted(name);
    }
    const QByteArray statement = portal ? name.mid(1) : name;
    if (!numbers.contains(statement)) {
        numbers.insert(statement, numbers.size() + 1);
    }
    return (portal ? QStringLiteral("P%1") : QStringLiteral("S%1")).arg(numbers.value(statement));
}

QString WireWords::hlpBind(const QByteArray &body)
{
    BodyReader reader(body);
    const QString portal = hlpName(reader.text());
    const QString statement = hlpName(reader.text());
    QList<int> formats;
    for (int count = reader.int16(); count > 0; --count) {
        formats += reader.int16();
    }
    QStringList values;
    const int count = reader.int16();
    for (int i = 0; i < count; ++i) {
        const int length = reader.int32();
        const QString value =
            length < 0 ? QStringLiteral("NULL") : QString::fromLatin1(reader.bytes(length).toHex());
        values += QStringLiteral("%1:%2").arg(value).arg(formats.value(i));
    }
    reader.int16(); // one result format, for all columns
    return QStringLiteral("Bind %1 %2 [%3] %4")
        .arg(portal, statement, values.join(QStringLiteral(", ")))
        .arg(reader.int16());
}

QString WireWords::hlpFrontend(const WireMessage &message)
{
    BodyReader reader(message.body);
    switch (message.type) {
    case '\0':
        return hlpStartup(reader);
    case 'Q':
        return QStringLiteral("Query ") + hlpQuoted(reader.text());
    case 'P': {
        const QString name = hlpName(reader.text());
        const QString sql = hlpQuoted(reader.text());
        return QStringLiteral("Parse ") + name + QLatin1Char(' ') + sql + QLatin1Char(' ') +
               QString::number(reader.int16());
    }
    case 'B':
        return hlpBind(message.body);
    case 'D':
    case 'C': {
        const QString kind = QString::fromLatin1(reader.bytes(1));
        return (message.type == 'D' ? QStringLiteral("Describe ") : QStringLiteral("Close ")) +
               kind + QLatin1Char(' ') + hlpName(reader.text());
    }
    case 'E': {
        const QString portal = hlpName(reader.text());
        return QStringLiteral("Execute %1 %2").arg(portal).arg(reader.int32());
    }
    case 'S':
        return QStringLiteral("Sync");
    case 'H':
        return QStringLiteral("Flush");
    case 'X':
        return QStringLiteral("Terminate");
    case 'p':
        return QStringLiteral("Password");
    case 'd':
        return QStringLiteral("CopyData");
    case 'c':
        return QStringLiteral("CopyDone");
    case 'f':
        return QStringLiteral("CopyFail");
    default:
        return QStringLiteral("Unknown %1").arg(QLatin1Char(message.type));
    }
}

QString WireWords::hlpBackend(const WireMessage &message)
{
    BodyReader reader(message.body);
    switch (message.type) {
    case 'T':
        return QStringLiteral("RowDescription %1").arg(reader.int16());
    case 'D':
        return QStringLiteral("DataRow");
    case 'C':
        return QStringLiteral("CommandComplete ") + hlpQuoted(reader.text());
    case 's':
        return QStringLiteral("PortalSuspended");
    case 'Z':
        return QStringLiteral("ReadyForQuery ") + QString::fromLatin1(message.body);
    case 'E':
        return hlpReport("ErrorResponse", message.body);
    case 'N':
        return hlpReport("NoticeResponse", message.body);
    case 't':
        return (QStringLiteral("ParameterDescription ") + hlpTypes(reader)).trimmed();
    case '1':
        return QStringLiteral("ParseComplete");
    case '2':
        return QStringLiteral("BindComplete");
    case '3':
        return QStringLiteral("CloseComplete");
    case 'n':
        return QStringLiteral("NoData");
    case 'I':
        return QStringLiteral("EmptyQueryResponse");
    case 'S':
        return QStringLiteral("ParameterStatus");
    case 'K':
        return QStringLiteral("BackendKeyData");
    case 'R':
        return QStringLiteral("Authentication");
    case 'A':
        return QStringLiteral("NotificationResponse");
    case 'G':
        return QStringLiteral("CopyInResponse");
    case 'H':
        return QStringLiteral("CopyOutResponse");
    case 'd':
        return QStringLiteral("CopyData");
    case 'c':
        return QStringLiteral("CopyDone");
    default:
        return QStringLiteral("Unknown %1").arg(QLatin1Char(message.type));
    }
}
