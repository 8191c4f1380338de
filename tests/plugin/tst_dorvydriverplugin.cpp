// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The factory of drivers.
#include "plugin/dorvydriverplugin.h"

#include "driver/dorvydriver.h"
#include "driver/dorvydriver_p.h"
#include "tests/support/testaccess.h"

#include <QtTest/QtTest>

#include <memory>

namespace {

// The pool in the driver's database handle.
QSharedPointer<Dorvy3Transacted> poolOf(QSqlDriver &driver)
{
    auto *own = static_cast<DorvyDriverPrivate *>(QObjectPrivate::get(&driver));
    return Dorvy3TestAccess::pool(own->database);
}

} // namespace

class tst_DORVYDriverPlugin : public QObject
{
    Q_OBJECT

private slots:
    void poolIsItsOneField();
    void create_data();
    void create();
    void createdDriverHasNoParent();
    void driversShareThePool();
    void poolOutlivesThePlugin();
};

void tst_DORVYDriverPlugin::poolIsItsOneField()
{
    QObject parent;
    const auto *plugin = new DORVYDriverPlugin(&parent);
    QCOMPARE(plugin->parent(), &parent);
    QVERIFY(Dorvy3TestAccess::pool(*plugin));
    QCOMPARE(sizeof(DORVYDriverPlugin),
             sizeof(QSqlDriverPlugin) + sizeof(QSharedPointer<Dorvy3Transacted>));
}

void tst_DORVYDriverPlugin::create_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<bool>("made");
    QTest::newRow("its own key") << QStringLiteral("DORVY") << true;
    QTest::newRow("Qt's key of PostgreSQL") << QStringLiteral("QPSQL") << true;
    QTest::newRow("announced, but without a driver") << QStringLiteral("QPSQL7") << false;
    QTest::newRow("lower case") << QStringLiteral("dorvy") << false;
    QTest::newRow("empty") << QStringLiteral("") << false;
    QTest::newRow("null") << QString() << false;
    QTest::newRow("trailing blank") << QStringLiteral("DORVY ") << false;
}

void tst_DORVYDriverPlugin::create()
{
    QFETCH(QString, key);
    QFETCH(bool, made);
    DORVYDriverPlugin plugin;
    const std::unique_ptr<QSqlDriver> driver(plugin.create(key));
    QCOMPARE(driver != nullptr, made);
    QCOMPARE(qobject_cast<DorvyDriver *>(driver.get()) != nullptr, made);
}

void tst_DORVYDriverPlugin::createdDriverHasNoParent()
{
    DORVYDriverPlugin plugin;
    const std::unique_ptr<QSqlDriver> driver(plugin.create(QStringLiteral("DORVY")));
    QCOMPARE(driver->parent(), nullptr);
}

void tst_DORVYDriverPlugin::driversShareThePool()
{
    DORVYDriverPlugin plugin;
    const std::unique_ptr<QSqlDriver> first(plugin.create(QStringLiteral("DORVY")));
    const std::unique_ptr<QSqlDriver> second(plugin.create(QStringLiteral("QPSQL")));
    const QSharedPointer<Dorvy3Transacted> pool = Dorvy3TestAccess::pool(plugin);
    QVERIFY(pool);
    QCOMPARE(poolOf(*first), pool);
    QCOMPARE(poolOf(*second), pool);
}

void tst_DORVYDriverPlugin::poolOutlivesThePlugin()
{
    auto plugin = std::make_unique<DORVYDriverPlugin>();
    const QWeakPointer<Dorvy3Transacted> pool = Dorvy3TestAccess::pool(*plugin);
    std::unique_ptr<QSqlDriver> driver(plugin->create(QStringLiteral("DORVY")));
    plugin.reset();
    QVERIFY(!pool.isNull());
    driver.reset();
    QVERIFY(pool.isNull());
}

QTEST_GUILESS_MAIN(tst_DORVYDriverPlugin)
#include "tst_dorvydriverplugin.moc"
