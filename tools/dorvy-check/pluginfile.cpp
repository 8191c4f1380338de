// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// PluginFile: one file of a sqldrivers folder, as Qt's loader sees it.
#include "pluginfile.h"

#include "childtask.h"
#include "elffile.h"
#include "jsontext.h"

#include <QtCore/QFileInfo>
#include <QtCore/QJsonArray>
#include <QtCore/QPluginLoader>
#include <QtCore/QRegularExpression>

namespace {

constexpr int ReadSeconds = 10;
constexpr int ByteBits = 8;
constexpr int ByteMask = 0xFF;
constexpr int VersionBytes = 64; // room for the versions behind the marker

// "5.15", as Qt writes it: a number of three bytes, the last one for the patch.
void hlpTakeMetadata(PluginFile &file, const QJsonObject &metadata)
{
    file.iid = jsonText(metadata, "IID");
    file.className = jsonText(metadata, "className");
    const int version = metadata.value(QStringLiteral("version")).toInt();
    file.qtMajor = (version >> (2 * ByteBits)) & ByteMask;
    file.qtMinor = (version >> ByteBits) & ByteMask;
    file.isDebug = metadata.value(QStringLiteral("debug")).toBool();
    const QJsonObject own = metadata.value(QStringLiteral("MetaData")).toObject();
    const QJsonArray keys = own.value(QStringLiteral("Keys")).toArray();
    for (const QJsonValue &key : keys) {
        file.keys += key.toString();
    }
}

QString hlpReadMetadata(PluginFile &file)
{
    const QString path = file.path;
    QJsonObject metadata;
    const TaskEnd end = runTask(
        [path](const TaskChannel &channel) { channel.send(QPluginLoader(path).metaData()); },
        [&metadata](const QJsonObject &object) { metadata = object; }, ReadSeconds);
    if (!end.isWhole) {
        return QStringLiteral("ends Qt's reader of plugins: ") + end.reason;
    }
    hlpTakeMetadata(file, metadata);
    return metadata.isEmpty() ? QStringLiteral("has no metadata of a Qt plugin") : QString();
}

// What the loader asks of a plugin: the interface, and a Qt that is no newer than the one here.
QString hlpRefusal(const PluginFile &file)
{
    if (file.iid != QLatin1String("org.qt-project.Qt.QSqlDriverFactoryInterface")) {
        return QStringLiteral("is no SQL driver, but a plugin for ") + file.iid;
    }
    constexpr int hereMajor = QT_VERSION_MAJOR;
    const int hereMinor = QString::fromLatin1(qVersion()).section(QLatin1Char('.'), 1, 1).toInt();
    if (file.qtMajor != hereMajor || file.qtMinor > hereMinor) {
        return QStringLiteral("was built for Qt %1.%2, which Qt %3 refuses")
            .arg(file.qtMajor)
            .arg(file.qtMinor)
            .arg(QString::fromLatin1(qVersion()));
    }
    return QString();
}

// The plugin says "DORVY driver 1.0.0, libpq 15.3" among its constants.
void hlpTakeMarker(PluginFile &file, const QByteArray &bytes)
{
    static const QRegularExpression versions(
        QStringLiteral("^DORVY driver (\\d[0-9.]*), libpq (\\d[0-9.]*)"));
    const QByteArray marker("DORVY driver ");
    int at = bytes.indexOf(marker);
    while (at >= 0) {
        const auto match =
            versions.match(QString::fromLatin1(bytes.mid(at, VersionBytes).constData()));
        if (match.hasMatch()) {
            file.driverVersion = match.captured(1);
            file.libpqVersion = match.captured(2);
            return;
        }
        at = bytes.indexOf(marker, at + 1);
    }
}

} // namespace

QString driverFileName()
{
    return QStringLiteral("libqsqldorvy.so");
}

bool PluginFile::isOurs() const
{
    return className == QLatin1String("DORVYDriverPlugin") || !driverVersion.isEmpty() ||
           QFileInfo(path).fileName() == driverFileName();
}

bool PluginFile::announces(const QString &key) const
{
    return isUsable() && keys.contains(key, Qt::CaseInsensitive);
}

PluginFile readPluginFile(const QString &path)
{
    PluginFile file;
    file.path = path;
    const ElfFile elf(path);
    hlpTakeMarker(file, elf.bytes());
    file.problem = elf.problem();
    if (file.problem.isEmpty()) {
        file.problem = hlpReadMetadata(file);
    }
    if (file.problem.isEmpty()) {
        file.problem = hlpRefusal(file);
    }
    return file;
}
