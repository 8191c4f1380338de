// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// dorvy-check: tells why a Qt program does not get the DORVY driver, or no connection through it.
#include "arguments.h"
#include "connectioncheck.h"
#include "libraries.h"
#include "loadcheck.h"
#include "pluginkeys.h"
#include "pluginsearch.h"
#include "report.h"

#include <QtCore/QCoreApplication>

namespace {

// Whether a program that says addDatabase("DORVY") gets our driver. What is wrong is named once: a
// plugin without its libraries is not loaded, too.
bool hlpCheckPlugin(Report &report)
{
    const PluginSearch search(report);
    reportOurs(search, report);
    reportKeys(search, report);
    const PluginFile *plugin = search.ours();
    if (!plugin || !plugin->isUsable()) {
        return false;
    }
    reportLibraries(*plugin, report);
    if (report.hasFailed(QStringLiteral("library")) ||
        report.hasFailed(QStringLiteral("jemalloc"))) {
        return false;
    }
    reportLoading(*plugin, report);
    return !report.hasFailed(QStringLiteral("load")) && isAnsweredByOurs(search);
}

void hlpCheckServer(const Arguments &arguments, bool hasDriver, Report &report)
{
    const QString id = QStringLiteral("connection");
    if (!arguments.hasConnection()) {
        report.add(warning(id, QStringLiteral("not tried"),
                           QStringLiteral("say where the server is: --host, --port, --database, "
                                          "--user")));
    } else if (!hasDriver) {
        report.add(warning(id, QStringLiteral("not tried, for want of a driver"),
                           QStringLiteral("see what failed above")));
    } else {
        reportConnection(arguments, report);
    }
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("dorvy-check"));
    QCoreApplication::setApplicationVersion(QStringLiteral(DORVY_VERSION));
    const Arguments arguments = takeArguments();
    Report report(arguments.isJson ? Report::Json : Report::Text);
    const bool hasDriver = hlpCheckPlugin(report);
    hlpCheckServer(arguments, hasDriver, report);
    report.finish();
    return report.worst() == Status::Failed ? 1 : 0;
}
