// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// What our plugin needs of the system, and whether it is there.
#include "libraries.h"

#include "debianpackage.h"
#include "elffile.h"
#include "loaderanswer.h"
#include "pluginfile.h"
#include "report.h"

#include <QtCore/QFileInfo>
#include <QtCore/QJsonArray>
#include <QtCore/QVector>

#include <algorithm>

namespace {

QString hlpJemalloc()
{
    return QStringLiteral("libjemalloc.so.2");
}

QString hlpInstall(const QString &library)
{
    const QString package = debianPackage(library);
    return package.isEmpty() ? QStringLiteral("install the package that has it")
                             : QStringLiteral("install ") + package;
}

// The files that ask for a library by this name.
QString hlpNeededBy(const QString &library, const QString &plugin, const LoaderAnswer &answer)
{
    QStringList names;
    QStringList paths = answer.found.values();
    paths.prepend(plugin);
    for (const QString &path : qAsConst(paths)) {
        if (ElfFile(path).needed().contains(library)) {
            names += QFileInfo(path).fileName();
        }
    }
    return names.join(QStringLiteral(", "));
}

// What the loader takes in place of the plugin's own jemalloc. One that wants room in the static block of
// thread-local storage does not load behind a program that has started.
QString hlpInstead(const QString &path)
{
    if (path.isEmpty()) {
        return QString();
    }
    return QStringLiteral("; the loader takes %1").arg(path) +
           (ElfFile(path).hasStaticTls()
                ? QStringLiteral(", which wants static TLS: no plugin can load it")
                : QString());
}

Finding hlpLostJemalloc(const ElfFile &elf, const QString &instead)
{
    const QString path = elf.runPath().isEmpty() ? QStringLiteral("empty") : elf.runPath();
    const QString folders = elf.runPathFolders().join(QLatin1Char(':'));
    const QString where = folders.isEmpty() ? QString() : QStringLiteral(" (%1)").arg(folders);
    return failed(QStringLiteral("jemalloc"),
                  QStringLiteral("RUNPATH is %1%2, jemalloc is not there%3")
                      .arg(path, where, hlpInstead(instead)),
                  QStringLiteral("install libqt5sql5-dorvy again; whoever copies sqldrivers copies "
                                 "the folder dorvy beside it too"),
                  {{QStringLiteral("runpath"), elf.runPath()}});
}

// The plugin's own jemalloc, which its run path leads to.
void hlpReportJemalloc(const ElfFile &elf, const LoaderAnswer &answer, Report &report)
{
    const QString name = hlpJemalloc();
    const QString id = QStringLiteral("jemalloc");
    if (!elf.needed().contains(name)) {
        return;
    }
    const QString path = answer.found.value(name);
    const QStringList folders = elf.runPathFolders();
    const bool isThere =
        std::any_of(folders.begin(), folders.end(), [&name](const QString &folder) {
            return QFileInfo::exists(folder + QLatin1Char('/') + name);
        });
    if (isLoadedHere(name)) {
        report.add(ok(id, QStringLiteral("the process has it already: ") + path));
    } else if (isThere) {
        report.add(ok(id, QFileInfo(path).canonicalFilePath()));
    } else {
        report.add(hlpLostJemalloc(elf, path));
    }
}

void hlpReportMissing(const QString &plugin, const LoaderAnswer &answer, Report &report)
{
    for (const QString &library : answer.missing) {
        if (library == hlpJemalloc()) {
            continue; // told with the run path
        }
        report.add(failed(QStringLiteral("library"),
                          QStringLiteral("%1 is missing, needed by %2")
                              .arg(library, hlpNeededBy(library, plugin, answer)),
                          hlpInstall(library),
                          {{QStringLiteral("library"), library},
                           {QStringLiteral("package"), debianPackage(library)}}));
    }
}

void hlpReportTooOld(const LoaderAnswer &answer, Report &report)
{
    for (const MissingVersion &version : answer.tooOld) {
        const QString name = QFileInfo(version.library).fileName();
        report.add(failed(
            QStringLiteral("library"),
            QStringLiteral("%1 is too old: it has no %2, needed by %3")
                .arg(version.library, version.version, QFileInfo(version.requiredBy).fileName()),
            QStringLiteral("upgrade ") +
                (debianPackage(name).isEmpty() ? name : debianPackage(name)),
            {{QStringLiteral("library"), name}, {QStringLiteral("version"), version.version}}));
    }
}

// Only where no library is missing, which would explain it.
void hlpReportUndefined(const LoaderAnswer &answer, Report &report)
{
    if (answer.undefined.isEmpty() || !answer.missing.isEmpty() || !answer.tooOld.isEmpty()) {
        return;
    }
    report.add(
        failed(QStringLiteral("library"),
               QStringLiteral("the libraries found lack %1 functions, %2 among them")
                   .arg(answer.undefined.size())
                   .arg(answer.undefined.first()),
               QStringLiteral("look for libraries of another version in LD_LIBRARY_PATH"),
               {{QStringLiteral("undefined"), QJsonArray::fromStringList(answer.undefined)}}));
}

Finding hlpLibpq(const PluginFile &plugin, const LoaderAnswer &answer)
{
    const QString id = QStringLiteral("libpq");
    const QString foreign = answer.found.value(QStringLiteral("libpq.so.5"));
    if (!foreign.isEmpty()) {
        return warning(id, QStringLiteral("the plugin loads %1").arg(foreign),
                       QStringLiteral("use a plugin with libpq inside, as the package has it"));
    }
    return ok(id,
              QStringLiteral("libpq %1 inside the plugin; a libpq of the system is not used")
                  .arg(plugin.libpqVersion),
              {{QStringLiteral("version"), plugin.libpqVersion}});
}

} // namespace

void reportLibraries(const PluginFile &plugin, Report &report)
{
    const LoaderAnswer answer = askLoader(plugin.path);
    if (!answer.failure.isEmpty()) {
        report.add(failed(
            QStringLiteral("library"),
            QStringLiteral("the loader says of %1: %2").arg(plugin.path, answer.failure),
            QStringLiteral("see to the file that it names, or install libqt5sql5-dorvy again")));
        return;
    }
    hlpReportJemalloc(ElfFile(plugin.path), answer, report);
    hlpReportMissing(plugin.path, answer, report);
    hlpReportTooOld(answer, report);
    hlpReportUndefined(answer, report);
    if (!report.hasFailed(QStringLiteral("library"))) {
        report.add(ok(QStringLiteral("library"),
                      QStringLiteral("all %1 others that the plugin needs are there")
                          .arg(answer.found.size() - answer.found.count(hlpJemalloc()))));
    }
    report.add(hlpLibpq(plugin, answer));
}
