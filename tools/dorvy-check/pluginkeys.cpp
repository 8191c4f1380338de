// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Which plugin Qt asks for a driver's name.
#include "pluginkeys.h"

#include "pluginsearch.h"
#include "report.h"

namespace {

QVector<PluginFile> hlpAnnouncing(const PluginSearch &search, const QString &key)
{
    QVector<PluginFile> files;
    for (const PluginFile &file : search.files()) {
        if (file.announces(key)) {
            files.append(file);
        }
    }
    return files;
}

QString hlpRemedy(const QString &key, const PluginFile &foreign)
{
    const QString remove = QStringLiteral("remove %1").arg(foreign.path);
    return key == QLatin1String("DORVY")
               ? remove
               : QStringLiteral("say addDatabase(\"DORVY\"), or ") + remove;
}

Finding hlpTaken(const QString &key, const PluginFile &first)
{
    const QString id = QStringLiteral("key");
    const QJsonObject data{{QStringLiteral("key"), key}, {QStringLiteral("path"), first.path}};
    if (first.isOurs()) {
        return ok(id, QStringLiteral("\"%1\" is answered by %2").arg(key, first.path), data);
    }
    return failed(
        id,
        QStringLiteral("\"%1\" is answered by %2, not by the DORVY driver").arg(key, first.path),
        hlpRemedy(key, first), data);
}

void hlpReportKey(const PluginSearch &search, const QString &key, Report &report)
{
    const QVector<PluginFile> files = hlpAnnouncing(search, key);
    if (files.isEmpty()) {
        return; // there is no plugin of ours, which is told already
    }
    report.add(hlpTaken(key, files.first()));
    for (const PluginFile &file : files) {
        if (file.isOurs() || &file == &files.first()) {
            continue;
        }
        report.add(warning(QStringLiteral("key"),
                           QStringLiteral("\"%1\" is announced by %2 too; Qt takes %3")
                               .arg(key, file.path, files.first().path),
                           hlpRemedy(key, file),
                           {{QStringLiteral("key"), key}, {QStringLiteral("path"), file.path}}));
    }
}

} // namespace

void reportKeys(const PluginSearch &search, Report &report)
{
    hlpReportKey(search, QStringLiteral("DORVY"), report);
    hlpReportKey(search, QStringLiteral("QPSQL"), report);
}

bool isAnsweredByOurs(const PluginSearch &search)
{
    const QVector<PluginFile> files = hlpAnnouncing(search, QStringLiteral("DORVY"));
    return !files.isEmpty() && files.first().isOurs();
}
