// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// PluginSearch: where Qt looks for SQL drivers, and what it finds there.
#include "pluginsearch.h"

#include "report.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QFileInfo>

#include <algorithm>

namespace {

QString hlpDrivers()
{
    return QStringLiteral("sqldrivers");
}

QString hlpInstall()
{
    return QStringLiteral("install libqt5sql5-dorvy, or set QT_PLUGIN_PATH to the folder above the "
                          "sqldrivers folder that has it");
}

Finding hlpVersions(const PluginFile &file)
{
    return ok(
        QStringLiteral("plugin"),
        QStringLiteral("%1, version %2")
            .arg(file.path,
                 file.driverVersion.isEmpty() ? QStringLiteral("not told") : file.driverVersion),
        {{QStringLiteral("path"), file.path}, {QStringLiteral("version"), file.driverVersion}});
}

// The driver derives from private classes of the Sql module, whose layout holds for a minor version.
Finding hlpQtVersion(const PluginFile &file)
{
    const QString built = QStringLiteral("%1.%2").arg(file.qtMajor).arg(file.qtMinor);
    const QString here = QString::fromLatin1(qVersion());
    const QJsonObject data{{QStringLiteral("built"), built},
                           {QStringLiteral("running"), here},
                           {QStringLiteral("debug"), file.isDebug}};
    if (here.startsWith(built + QLatin1Char('.'))) {
        return ok(QStringLiteral("qt"),
                  QStringLiteral("the plugin was built for Qt %1, this is Qt %2").arg(built, here),
                  data);
    }
    return failed(
        QStringLiteral("qt"),
        QStringLiteral("the plugin was built for Qt %1, this is Qt %2: it uses private "
                       "classes of Qt's Sql module, so the minor version must be the same")
            .arg(built, here),
        QStringLiteral("install the package, or build the plugin, for Qt %1")
            .arg(here.section(QLatin1Char('.'), 0, 1)),
        data);
}

void hlpReportCopies(const PluginSearch &search, const PluginFile &taken, Report &report)
{
    for (const PluginFile &file : search.files()) {
        if (!file.isOurs() || &file == &taken) {
            continue;
        }
        const QString what =
            file.isUsable() ? QString() : QStringLiteral(", which ") + file.problem;
        report.add(warning(
            QStringLiteral("copy"),
            QStringLiteral("another copy is %1%2; Qt takes %3").arg(file.path, what, taken.path),
            QStringLiteral("remove the one that is not wanted"),
            {{QStringLiteral("path"), file.path},
             {QStringLiteral("version"), file.driverVersion}}));
    }
}

} // namespace

PluginSearch::PluginSearch(Report &report)
{
    hlpReportVariable(report);
    const QStringList folders = QCoreApplication::libraryPaths();
    for (const QString &folder : folders) {
        hlpLook(folder, report);
    }
}

// Qt leaves out folders that do not exist, without a word.
void PluginSearch::hlpReportVariable(Report &report) const
{
    QStringList folders =
        QString::fromLocal8Bit(qgetenv("QT_PLUGIN_PATH")).split(QDir::listSeparator());
    folders.removeAll(QString());
    for (const QString &folder : qAsConst(folders)) {
        const QString id = QStringLiteral("path");
        if (!QFileInfo(folder).isDir()) {
            report.add(warning(id, QStringLiteral("%1 of QT_PLUGIN_PATH is no folder").arg(folder),
                               QStringLiteral("correct QT_PLUGIN_PATH")));
        } else if (QDir(folder).dirName() == hlpDrivers()) {
            report.add(
                warning(id,
                        QStringLiteral("%1 of QT_PLUGIN_PATH is a sqldrivers folder itself, "
                                       "and Qt looks for one inside it")
                            .arg(folder),
                        QStringLiteral("say %1").arg(QFileInfo(QDir(folder).path()).path())));
        }
    }
}

// The list of files and its order are those of Qt's loader.
void PluginSearch::hlpLook(const QString &folder, Report &report)
{
    const QDir drivers(folder + QLatin1Char('/') + hlpDrivers());
    const QStringList names = drivers.entryList(QDir::Files);
    QStringList keys;
    for (const QString &name : names) {
        const QString path = drivers.filePath(name);
        const QString whole = QFileInfo(path).canonicalFilePath();
        if (std::none_of(found.begin(), found.end(), [&whole](const PluginFile &other) {
                return QFileInfo(other.path).canonicalFilePath() == whole;
            })) {
            found.append(readPluginFile(path));
        }
    }
    const QString content =
        !drivers.exists() ? QStringLiteral("no sqldrivers folder")
        : names.isEmpty() ? QStringLiteral("sqldrivers is empty")
                          : QStringLiteral("sqldrivers has ") + names.join(QStringLiteral(", "));
    const QString own = folder == QCoreApplication::applicationDirPath()
                            ? QStringLiteral(" (this program's folder; yours looks in its own)")
                            : QString();
    report.add(ok(QStringLiteral("path"), QStringLiteral("%1: %2%3").arg(folder, content, own),
                  {{QStringLiteral("folder"), folder}}));
}

const PluginFile *PluginSearch::ours() const
{
    const auto isUsable = [](const PluginFile &file) { return file.isOurs() && file.isUsable(); };
    const auto isOurs = [](const PluginFile &file) { return file.isOurs(); };
    auto file = std::find_if(found.begin(), found.end(), isUsable);
    if (file == found.end()) {
        file = std::find_if(found.begin(), found.end(), isOurs);
    }
    return file == found.end() ? nullptr : &*file;
}

void reportOurs(const PluginSearch &search, Report &report)
{
    const PluginFile *file = search.ours();
    if (!file) {
        report.add(
            failed(QStringLiteral("plugin"),
                   QStringLiteral("libqsqldorvy.so is in no sqldrivers folder where Qt looks"),
                   hlpInstall()));
        return;
    }
    if (file->qtMajor != 0) {
        report.add(hlpQtVersion(*file));
    }
    if (file->isUsable()) {
        report.add(hlpVersions(*file));
    } else {
        report.add(failed(QStringLiteral("plugin"),
                          QStringLiteral("%1 %2").arg(file->path, file->problem),
                          QStringLiteral("install libqt5sql5-dorvy again"),
                          {{QStringLiteral("path"), file->path}}));
    }
    hlpReportCopies(search, *file, report);
}
