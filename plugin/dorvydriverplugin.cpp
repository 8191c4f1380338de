// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// DORVYDriverPlugin: the entry that Qt's plugin loader finds.
#include "plugin/dorvydriverplugin.h"

#include "access/dorvy3transacted.h"
#include "driver/dorvydriver.h"

#include <QtCore/QMessageLogger>

DORVYDriverPlugin::DORVYDriverPlugin(QObject *parent)
    : QSqlDriverPlugin(parent)
{
    QMessageLogger(nullptr, 0, nullptr).info("DORVY plugin loaded");
    pool = QSharedPointer<Dorvy3Transacted>::create();
}

DORVYDriverPlugin::~DORVYDriverPlugin() = default;

QSqlDriver *DORVYDriverPlugin::create(const QString &key)
{
    if (key == QLatin1String("DORVY") || key == QLatin1String("QPSQL")) {
        return new DorvyDriver(pool, nullptr);
    }
    return nullptr;
}
