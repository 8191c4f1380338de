// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// DORVYDriverPlugin: the entry that Qt's plugin loader finds.
#ifndef DORVYDRIVERPLUGIN_H
#define DORVYDRIVERPLUGIN_H

#include <QtCore/QSharedPointer>
#include <QtSql/QSqlDriverPlugin>

class Dorvy3Transacted;

/*!
    The factory of drivers. Qt makes one object per process; it owns the process's connection pool
    and gives every driver a reference to it.
*/
class DORVYDriverPlugin : public QSqlDriverPlugin
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID "org.qt-project.Qt.QSqlDriverFactoryInterface" FILE "dorvy.json")

public:
    /*! Makes the pool, and tells Qt's log that the plugin is loaded. */
    explicit DORVYDriverPlugin(QObject *parent = nullptr);
    ~DORVYDriverPlugin() override;

    /*!
        A new driver, which the caller owns, for "DORVY" and "QPSQL"; null for any other key.
        "QPSQL7" is announced to Qt and yet has no driver: meant, tst_dorvydriverplugin holds it.
    */
    QSqlDriver *create(const QString &key) override;

private:
    friend struct Dorvy3TestAccess;

    QSharedPointer<Dorvy3Transacted> pool;
};

#endif // DORVYDRIVERPLUGIN_H
