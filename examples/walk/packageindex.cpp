// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The machine's package index, as apt-cache prints it.
#include "packageindex.h"

#include <QtCore/QIODevice>

namespace {

void setField(Package &package, const QByteArray &key, const QByteArray &value)
{
    if (key == "Package") {
        package.name = QString::fromUtf8(value);
    } else if (key == "Version") {
        package.version = QString::fromUtf8(value);
    } else if (key == "Section") {
        package.section = QString::fromUtf8(value);
    } else if (key == "Architecture") {
        package.architecture = QString::fromUtf8(value);
    } else if (key == "Description") {
        package.description = QString::fromUtf8(value);
    } else if (key == "Description-md5") {
        package.descriptionMd5 = QByteArray::fromHex(value);
    } else if (key == "Installed-Size") {
        package.installedKib = value.toLongLong();
    } else if (key == "Size") {
        package.archiveBytes = value.toLongLong();
    } else if (key == "Essential") {
        package.essential = value == "yes";
    }
}

} // namespace

QVector<Package> readPackageIndex(QIODevice &device)
{
    QVector<Package> packages;
    Package package;
    while (!device.atEnd()) {
        const QByteArray line = device.readLine();
        const int colon = line.indexOf(':');
        if (line == "\n") {
            packages.append(package);
            package = Package();
        } else if (colon > 0 && line.at(0) != ' ') { // not the next line of a long field
            setField(package, line.left(colon), line.mid(colon + 1).trimmed());
        }
    }
    if (!package.name.isEmpty()) {
        packages.append(package);
    }
    return packages;
}
