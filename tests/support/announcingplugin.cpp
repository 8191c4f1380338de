// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// A plugin that announces "QPSQL" and has no driver.
#include <QtSql/QSqlDriverPlugin>

class AnnouncingPlugin : public QSqlDriverPlugin
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID "org.qt-project.Qt.QSqlDriverFactoryInterface" FILE
                          "announcingplugin.json")

public:
    QSqlDriver *create(const QString & /*key*/) override { return nullptr; }
};

#include "announcingplugin.moc"
