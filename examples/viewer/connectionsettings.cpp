// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
// ConnectionSettings: what a connection is made with, and remembered by.
#include "examples/viewer/connectionsettings.h"

#include <QtCore/QSettings>

namespace {

const QLatin1String Group("connection");

} // namespace

ConnectionSettings loadSettings()
{
    ConnectionSettings settings;
    QSettings kept;
    kept.beginGroup(Group);
    const auto load = [&kept](const QString &key, QString &value) {
        value = kept.value(key, value).toString();
    };
    load(QStringLiteral("driver"), settings.driver);
    load(QStringLiteral("host"), settings.host);
    load(QStringLiteral("database"), settings.database);
    load(QStringLiteral("user"), settings.user);
    load(QStringLiteral("options"), settings.options);
    settings.port = kept.value(QStringLiteral("port"), settings.port).toInt();
    return settings;
}

void saveSettings(const ConnectionSettings &settings)
{
    QSettings kept;
    kept.beginGroup(Group);
    kept.setValue(QStringLiteral("driver"), settings.driver);
    kept.setValue(QStringLiteral("host"), settings.host);
    kept.setValue(QStringLiteral("port"), settings.port);
    kept.setValue(QStringLiteral("database"), settings.database);
    kept.setValue(QStringLiteral("user"), settings.user);
    kept.setValue(QStringLiteral("options"), settings.options);
}

QSqlDatabase addDatabase(const ConnectionSettings &settings, const QString &name)
{
    QSqlDatabase database = QSqlDatabase::addDatabase(settings.driver, name);
    database.setHostName(settings.host);
    database.setPort(settings.port);
    database.setDatabaseName(settings.database);
    database.setUserName(settings.user);
    database.setPassword(settings.password);
    database.setConnectOptions(settings.options);
    return database;
}
