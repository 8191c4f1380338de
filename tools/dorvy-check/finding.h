// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Finding: one thing that was looked at, and what to do about it.
#ifndef FINDING_H
#define FINDING_H

#include <QtCore/QJsonObject>
#include <QtCore/QString>

enum class Status { Ok, Warning, Failed };

struct Finding
{
    Status status;
    QString id;      // stable, for scripts: "plugin", "library", "connection"
    QString message; // one line
    QString remedy;  // what to do, one line; empty if there is nothing
    QJsonObject data;
};

inline Finding ok(const QString &id, const QString &message, const QJsonObject &data = {})
{
    return {Status::Ok, id, message, QString(), data};
}

inline Finding warning(const QString &id, const QString &message, const QString &remedy,
                       const QJsonObject &data = {})
{
    return {Status::Warning, id, message, remedy, data};
}

inline Finding failed(const QString &id, const QString &message, const QString &remedy,
                      const QJsonObject &data = {})
{
    return {Status::Failed, id, message, remedy, data};
}

/*! "ok", "warning" or "failed". */
QString statusName(Status status);

/*! A finding as an object of JSON, and back. */
QJsonObject toJson(const Finding &finding);
Finding fromJson(const QJsonObject &object);

/*! The finding as one line: status, id, message and, behind "->", what to do. */
QString toLine(const Finding &finding);

#endif // FINDING_H
