// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The machine's package index, as apt-cache prints it.
#ifndef PACKAGEINDEX_H
#define PACKAGEINDEX_H

#include <QtCore/QByteArray>
#include <QtCore/QString>
#include <QtCore/QVector>

class QIODevice;

struct Package
{
    QString name;
    QString version;
    QString section;
    QString architecture;
    QString description;
    QByteArray descriptionMd5; // 16 bytes; empty if the index has none
    qint64 installedKib = -1;  // -1 if the index does not say
    qint64 archiveBytes = 0;
    bool essential = false;
};

/*! Reads the stanzas of "apt-cache dumpavail" to the end of \a device. */
QVector<Package> readPackageIndex(QIODevice &device);

#endif // PACKAGEINDEX_H
