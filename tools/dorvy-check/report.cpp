// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Report: the findings, on standard output.
#include "report.h"

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>

#include <algorithm>
#include <cstdio>

namespace {

void hlpPrint(const QByteArray &line)
{
    std::fwrite(line.constData(), 1, static_cast<size_t>(line.size()), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

} // namespace

Report::Report(Format outputFormat)
    : format(outputFormat)
{
}

void Report::add(const Finding &finding)
{
    findings.append(finding);
    if (format == Text) {
        hlpPrint(toLine(finding).toLocal8Bit());
    }
}

bool Report::hasFailed(const QString &id) const
{
    return std::any_of(findings.begin(), findings.end(), [&id](const Finding &finding) {
        return finding.id == id && finding.status == Status::Failed;
    });
}

Status Report::worst() const
{
    Status status = Status::Ok;
    for (const Finding &finding : findings) {
        status = std::max(status, finding.status);
    }
    return status;
}

void Report::finish() const
{
    if (format != Json) {
        return;
    }
    QJsonArray list;
    for (const Finding &finding : findings) {
        list.append(toJson(finding));
    }
    const QJsonObject whole{{QStringLiteral("version"), QStringLiteral(DORVY_VERSION)},
                            {QStringLiteral("status"), statusName(worst())},
                            {QStringLiteral("findings"), list}};
    hlpPrint(QJsonDocument(whole).toJson(QJsonDocument::Compact));
}
