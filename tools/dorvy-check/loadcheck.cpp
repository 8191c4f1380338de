// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Whether Qt loads our plugin and gets a driver from it.
#include "loadcheck.h"

#include "childtask.h"
#include "pluginfile.h"
#include "report.h"

#include <QtCore/QPluginLoader>
#include <QtSql/QSqlDriver>
#include <QtSql/QSqlDriverPlugin>

#include <memory>

namespace {

constexpr int LoadSeconds = 30;

QString hlpLoadId()
{
    return QStringLiteral("load");
}

Finding hlpRefused(const QString &path, const QString &words)
{
    const bool isTls = words.contains(QLatin1String("static TLS"));
    return failed(
        hlpLoadId(), QStringLiteral("Qt does not load %1: %2").arg(path, words),
        isTls ? QStringLiteral("use the package's own jemalloc, or start the application with "
                               "LD_PRELOAD=libjemalloc.so.2")
              : QStringLiteral("see to what the loader names, or install libqt5sql5-dorvy again"));
}

Finding hlpLoad(const QString &path)
{
    QPluginLoader loader(path);
    if (!loader.load()) {
        return hlpRefused(path, loader.errorString());
    }
    auto *factory = qobject_cast<QSqlDriverPlugin *>(loader.instance());
    const std::unique_ptr<QSqlDriver> driver(factory ? factory->create(QStringLiteral("DORVY"))
                                                     : nullptr);
    return driver
               ? ok(hlpLoadId(), QStringLiteral("Qt loads it, and it gives a driver"))
               : failed(hlpLoadId(), QStringLiteral("%1 gives no driver for \"DORVY\"").arg(path),
                        QStringLiteral("install libqt5sql5-dorvy again"));
}

} // namespace

void reportLoading(const PluginFile &plugin, Report &report)
{
    const QString path = plugin.path;
    const TaskEnd end = runTask(
        [path](const TaskChannel &channel) { channel.send(toJson(hlpLoad(path))); },
        [&report](const QJsonObject &object) { report.add(fromJson(object)); }, LoadSeconds);
    if (!end.isWhole) {
        report.add(failed(hlpLoadId(),
                          QStringLiteral("loading %1 ends the process: %2").arg(path, end.reason),
                          QStringLiteral("install libqt5sql5-dorvy again")));
    }
}
