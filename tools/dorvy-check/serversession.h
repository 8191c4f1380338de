// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// ServerSession: an open database of the driver's, to ask the server through.
#ifndef SERVERSESSION_H
#define SERVERSESSION_H

#include <QtCore/QJsonDocument>
#include <QtCore/QVariant>
#include <QtSql/QSqlDatabase>
#include <QtSql/QSqlError>

struct Arguments;

/*!
    One connection named "DORVY", and the ways to ask through it that cannot end the process: every
    question is one text.
*/
class ServerSession
{
public:
    explicit ServerSession(const Arguments &arguments);
    ~ServerSession();

    bool open();
    QSqlDatabase database() const { return QSqlDatabase::database(); }
    QSqlError error() const { return lastError; }

    /*!
        The first column of the first row of \a sql, which must be a text; \a values are its
        parameters. Null on failure. A read: it needs the driver's second connection.
    */
    QString read(const QString &sql, const QVariantList &values = QVariantList());

    /*! read(), of a text in JSON. Null on failure. */
    QJsonDocument readJson(const QString &sql, const QVariantList &values = QVariantList());

    /*!
        The same without a second connection and without parameters: the own connection tells it as a
        notice of a DO block. Nothing stays behind, nothing is logged. Null on failure.
    */
    QJsonDocument tellJson(const QString &sql);

    /*! What prepares or runs on the own connection, without rows. */
    bool command(const QString &sql);

private:
    QSqlError lastError;
};

#endif // SERVERSESSION_H
