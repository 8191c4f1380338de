// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// ServerSession: an open database of the driver's, to ask the server through.
#include "serversession.h"

#include "arguments.h"
#include "childtask.h"

#include <QtSql/QSqlQuery>

namespace {

QByteArray hlpMark()
{
    return QByteArrayLiteral("dorvy-check:");
}

} // namespace

ServerSession::ServerSession(const Arguments &arguments)
{
    QSqlDatabase added = QSqlDatabase::addDatabase(QStringLiteral("DORVY"));
    added.setHostName(arguments.host);
    added.setPort(arguments.port);
    added.setDatabaseName(arguments.database);
    added.setUserName(arguments.user);
    added.setPassword(arguments.password);
    added.setConnectOptions(arguments.options);
}

ServerSession::~ServerSession()
{
    QSqlDatabase::removeDatabase(QLatin1String(QSqlDatabase::defaultConnection));
}

bool ServerSession::open()
{
    QSqlDatabase own =
        QSqlDatabase::database(QLatin1String(QSqlDatabase::defaultConnection), false);
    const bool isOpen = own.open();
    lastError = own.lastError();
    return isOpen;
}

QString ServerSession::read(const QString &sql, const QVariantList &values)
{
    QSqlQuery query(database());
    bool isRead = query.prepare(sql);
    for (const QVariant &value : values) {
        query.addBindValue(value);
    }
    isRead = isRead && query.exec() && query.next();
    lastError = query.lastError();
    return isRead ? query.value(0).toString() : QString();
}

QJsonDocument ServerSession::readJson(const QString &sql, const QVariantList &values)
{
    return QJsonDocument::fromJson(read(sql, values).toUtf8());
}

// In hexadecimal digits of UTF-8, since a notice is printed in the client's encoding as it comes.
QJsonDocument ServerSession::tellJson(const QString &sql)
{
    const QString block = QStringLiteral(
        "DO $dorvy$ BEGIN PERFORM set_config('client_min_messages', 'notice', true); "
        "RAISE NOTICE '%1%:', encode(convert_to((%2), 'UTF8'), 'hex'); END $dorvy$");
    errorOutput();
    if (!command(block.arg(QString::fromLatin1(hlpMark()), sql))) {
        return QJsonDocument();
    }
    const QByteArray output = errorOutput();
    const int start = output.indexOf(hlpMark()) + hlpMark().size();
    const QByteArray digits = output.mid(start, output.indexOf(':', start) - start);
    return QJsonDocument::fromJson(QByteArray::fromHex(digits));
}

bool ServerSession::command(const QString &sql)
{
    QSqlQuery query(database());
    const bool isDone = query.exec(sql);
    lastError = query.lastError();
    return isDone;
}
