// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// ViewerTest: a viewer's window on a private server, typed into and clicked as a user does.
#ifndef VIEWERTEST_H
#define VIEWERTEST_H

#include "examples/viewer/connectiondialog.h"
#include "examples/viewer/errorbar.h"
#include "examples/viewer/viewerwindow.h"
#include "tests/support/pgcluster.h"

#include <QtCore/QSettings>
#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>
#include <QtWidgets/QAction>
#include <QtWidgets/QLabel>
#include <QtWidgets/QListWidget>
#include <QtWidgets/QPlainTextEdit>
#include <QtWidgets/QScrollBar>
#include <QtWidgets/QTableView>
#include <QtWidgets/QToolBar>

#include <memory>

inline void type(QWidget *field, const QString &text)
{
    QTest::keyClick(field, Qt::Key_A, Qt::ControlModifier);
    QTest::keyClick(field, Qt::Key_Delete);
    QTest::keyClicks(field, text);
}

/*!
    A server with the tables item (5,000 rows, "item 1" and so on) and store.shelf (one), and the view
    cheap (nine), and a window that is connected to it; what it remembers goes into a folder of its own.
*/
class ViewerTest
{
protected:
    static constexpr int ItemRows = 5000;

    /*! For initTestCase(). */
    bool start()
    {
        QCoreApplication::setOrganizationName(QStringLiteral("DORVY"));
        QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, home.path());
        if (!cluster.start()) {
            qWarning("%s", qPrintable(cluster.why()));
            return false;
        }
        cluster.run(
            QStringLiteral("CREATE TABLE item (id int PRIMARY KEY, name text);"
                           "INSERT INTO item SELECT g, 'item ' || g FROM generate_series(1, %1) g;"
                           "CREATE VIEW cheap AS SELECT * FROM item WHERE id < 10;"
                           "CREATE SCHEMA store; CREATE TABLE store.shelf (id int, place inet);"
                           "INSERT INTO store.shelf VALUES (1, '10.0.0.1')")
                .arg(ItemRows));
        return true;
    }

    /*! For init(): a window of the test's own, connected. */
    bool openWindow()
    {
        QSettings().clear();
        window.reset(new ViewerWindow);
        window->show();
        return QTest::qWaitForWindowExposed(window.get()) &&
               !window->connectTo(settings()).isValid();
    }

    /*! For cleanup(): whatever a test leaves, closing the window gives back. */
    void closeWindow()
    {
        window.reset();
        QTRY_COMPARE(transactions(), 0);
        QVERIFY(!QSqlDatabase::contains(QStringLiteral("viewer")));
    }

    ConnectionSettings settings() const
    {
        ConnectionSettings settings;
        settings.host = QStringLiteral("127.0.0.1");
        settings.port = cluster.port();
        settings.user = cluster.user();
        settings.options = QStringLiteral("application_name='viewer test';connect_timeout=10");
        return settings;
    }

    QAction *action(const QString &text) const
    {
        for (QAction *action : window->findChild<QToolBar *>()->actions()) {
            if (action->text().remove(QLatin1Char('&')) == text) {
                return action;
            }
        }
        return nullptr;
    }

    /*! Clicks a button of the tool bar. */
    void press(const QString &text) const
    {
        QTest::mouseClick(window->findChild<QToolBar *>()->widgetForAction(action(text)),
                          Qt::LeftButton);
    }

    /*! Clicks a table of the list. */
    void choose(const QString &table) const
    {
        const QListWidgetItem *item = tables()->findItems(table, Qt::MatchExactly).value(0);
        QVERIFY2(item, qPrintable(table));
        QTest::mouseClick(tables()->viewport(), Qt::LeftButton, Qt::NoModifier,
                          tables()->visualItemRect(item).center());
    }

    /*! Types a statement and runs it. */
    void query(const QString &text) const
    {
        type(window->findChild<QPlainTextEdit *>(QStringLiteral("sql")), text);
        press(QStringLiteral("Run"));
    }

    void scrollToBottom() const
    {
        QScrollBar *bar = rows()->verticalScrollBar();
        bar->setValue(bar->minimum());
        bar->setValue(bar->maximum());
        QCoreApplication::processEvents();
    }

    QString cell(int row, int column) const
    {
        return rows()->model()->data(rows()->model()->index(row, column)).toString();
    }

    QString rowCount() const
    {
        return window->findChild<QLabel *>(QStringLiteral("rowCount"))->text();
    }

    /*! That of the window itself. */
    ErrorBar *errorBar() const { return window->centralWidget()->findChild<ErrorBar *>(); }

    QTableView *rows() const { return window->findChild<QTableView *>(QStringLiteral("rows")); }

    QListWidget *tables() const
    {
        return window->findChild<QListWidget *>(QStringLiteral("tables"));
    }

    /*! The sessions of windows, those that meet \a condition. */
    int sessions(const QString &condition = QStringLiteral("true")) const
    {
        return cluster
            .value(QStringLiteral("SELECT count(*) FROM pg_stat_activity WHERE "
                                  "application_name = 'viewer test' AND %1")
                       .arg(condition))
            .toInt();
    }

    /*! The transactions that sessions of windows are in, failed ones too. */
    int transactions() const
    {
        return sessions(QStringLiteral("state LIKE 'idle in transaction%'"));
    }

    PgCluster cluster;
    QTemporaryDir home;
    std::unique_ptr<ViewerWindow> window;
};

#endif // VIEWERTEST_H
