// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
// ConnectionSettings: what a connection is made with, and remembered by.
#ifndef CONNECTIONSETTINGS_H
#define CONNECTIONSETTINGS_H

#include <QtCore/QString>
#include <QtSql/QSqlDatabase>

struct ConnectionSettings
{
    QString driver = QStringLiteral("DORVY"); // the key of a driver plugin
    QString host = QStringLiteral("localhost");
    int port = 5432;
    QString database = QStringLiteral("postgres");
    QString user = QStringLiteral("postgres");
    QString password;
    QString options = QStringLiteral("connect_timeout=10");
};

/*! What saveSettings() kept last, or the defaults. There is no password among it. */
ConnectionSettings loadSettings();

/*! Keeps all but the password for the next time. */
void saveSettings(const ConnectionSettings &settings);

/*! Adds the connection \a name, which is not open yet. */
QSqlDatabase addDatabase(const ConnectionSettings &settings, const QString &name);

#endif // CONNECTIONSETTINGS_H
