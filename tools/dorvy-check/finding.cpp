// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Finding: one thing that was looked at, and what to do about it.
#include "finding.h"

namespace {

constexpr int StatusWidth = 8;
constexpr int IdWidth = 18;

Status hlpStatus(const QString &name)
{
    for (const Status status : {Status::Ok, Status::Warning}) {
        if (name == statusName(status)) {
            return status;
        }
    }
    return Status::Failed;
}

// On one line, and nothing that a terminal would obey, or that would turn its letters round: texts come
// from servers and foreign files.
QString hlpPlain(const QString &text)
{
    QString plain = text.simplified();
    for (QChar &character : plain) {
        const QChar::Category category = character.category();
        if (category == QChar::Other_Control || category == QChar::Other_Format) {
            character = QLatin1Char('?');
        }
    }
    return plain;
}

} // namespace

QString statusName(Status status)
{
    switch (status) {
    case Status::Ok:
        return QStringLiteral("ok");
    case Status::Warning:
        return QStringLiteral("warning");
    case Status::Failed:
        break;
    }
    return QStringLiteral("failed");
}

QJsonObject toJson(const Finding &finding)
{
    return {{QStringLiteral("id"), finding.id},
            {QStringLiteral("status"), statusName(finding.status)},
            {QStringLiteral("message"), finding.message},
            {QStringLiteral("remedy"), finding.remedy},
            {QStringLiteral("data"), finding.data}};
}

Finding fromJson(const QJsonObject &object)
{
    return {hlpStatus(object.value(QStringLiteral("status")).toString()),
            object.value(QStringLiteral("id")).toString(),
            object.value(QStringLiteral("message")).toString(),
            object.value(QStringLiteral("remedy")).toString(),
            object.value(QStringLiteral("data")).toObject()};
}

QString toLine(const Finding &finding)
{
    // A problem stands out among the rest.
    const QString status = finding.status == Status::Failed ? statusName(finding.status).toUpper()
                                                            : statusName(finding.status);
    QString line = status.leftJustified(StatusWidth) + QLatin1Char(' ') +
                   finding.id.leftJustified(IdWidth) + QLatin1Char(' ') + hlpPlain(finding.message);
    if (!finding.remedy.isEmpty()) {
        line += QStringLiteral(" -> ") + hlpPlain(finding.remedy);
    }
    return line;
}
