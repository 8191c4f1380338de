// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// PluginFile: one file of a sqldrivers folder, as Qt's loader sees it.
#ifndef PLUGINFILE_H
#define PLUGINFILE_H

#include <QtCore/QStringList>

/*!
    What is known of a file without loading it: Qt's metadata, and the words in which our plugin tells
    its version. Qt's reader of metadata works in a process of its own.
*/
struct PluginFile
{
    QString path;    // as it was found
    QString problem; // why Qt passes it over; empty if Qt does not
    QString iid;
    QString className;
    QStringList keys;
    int qtMajor = 0;
    int qtMinor = 0;
    bool isDebug = false;
    QString driverVersion; // of our plugin: "1.0.0"
    QString libpqVersion;  // of the libpq inside it: "15.3"

    /*! Whether it is our driver, or was before something happened to it. */
    bool isOurs() const;

    /*! Whether Qt takes it for a SQL driver that it could load. */
    bool isUsable() const { return problem.isEmpty(); }

    /*! Whether Qt would ask it for a driver with this name; letters count alike, large or small. */
    bool announces(const QString &key) const;
};

/*! The file that our plugin is installed as. */
QString driverFileName();

PluginFile readPluginFile(const QString &path);

#endif // PLUGINFILE_H
