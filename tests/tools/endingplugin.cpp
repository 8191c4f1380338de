// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// A plugin that announces the driver's names and ends the process that loads it.
#include <QtSql/QSqlDriverPlugin>

#include <cstdlib>

namespace {

[[gnu::constructor]] void endProcess()
{
    std::abort();
}

} // namespace

class EndingPlugin : public QSqlDriverPlugin
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID "org.qt-project.Qt.QSqlDriverFactoryInterface" FILE "endingplugin.json")

public:
    QSqlDriver *create(const QString & /*key*/) override { return nullptr; }
};

#include "endingplugin.moc"
