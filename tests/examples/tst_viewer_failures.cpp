// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// ViewerWindow where a query, or the server, fails.
#include "tests/examples/viewertest.h"

#include <QtWidgets/QApplication>
#include <QtWidgets/QToolButton>

class tst_ViewerFailures : public QObject, private ViewerTest
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY(start()); }
    void init() { QVERIFY(openWindow()); }
    void cleanup() { closeWindow(); }

    void refusedQueryIsInTheErrorBar();
    void emptyTextRunsNothing();
    void errorBarCanBeClosed();
    void errorBarGoesWithTheNextQuery();
    void failureInALaterPage();
    void queryWorksAfterAFailure();
    void droppedTableIsToldOf();
    void serverThatDiesInTheMiddle();
    void reconnectAfterARestart();
    void closingWithAHalfReadResult();
};

void tst_ViewerFailures::refusedQueryIsInTheErrorBar()
{
    query(QStringLiteral("SELECT nothing FROM nowhere"));
    QVERIFY(errorBar()->isVisible());
    QVERIFY2(errorBar()->text().startsWith(
                 QStringLiteral("ERROR:  relation \"nowhere\" does not exist")),
             qPrintable(errorBar()->text()));
    QVERIFY(errorBar()->text().contains(QStringLiteral("Ошибка при подготовке запроса к СУБД")));
    QVERIFY(!QApplication::activeModalWidget());
    QCOMPARE(rowCount(), QStringLiteral("0 rows, then an error"));
}

void tst_ViewerFailures::emptyTextRunsNothing()
{
    query(QStringLiteral("SELECT 7"));
    query(QStringLiteral(" "));
    QCOMPARE(rowCount(), QStringLiteral("1 row"));
    QCOMPARE(cell(0, 0), QStringLiteral("7"));
    QVERIFY(!errorBar()->isVisible());
}

void tst_ViewerFailures::errorBarCanBeClosed()
{
    query(QStringLiteral("SELECT nothing FROM nowhere"));
    QTest::mouseClick(errorBar()->findChild<QToolButton *>(), Qt::LeftButton);
    QVERIFY(!errorBar()->isVisible());
}

void tst_ViewerFailures::errorBarGoesWithTheNextQuery()
{
    query(QStringLiteral("SELECT nothing FROM nowhere"));
    query(QStringLiteral("SELECT 1"));
    QVERIFY(!errorBar()->isVisible());
}

void tst_ViewerFailures::failureInALaterPage()
{
    query(QStringLiteral("SELECT 1 / (200 - g) FROM generate_series(1, 300) g"));
    QVERIFY(!errorBar()->isVisible());
    QCOMPARE(rowCount(), QStringLiteral("128 rows so far"));
    scrollToBottom();
    QVERIFY(errorBar()->isVisible());
    QVERIFY(errorBar()->text().contains(QStringLiteral("division by zero")));
    QCOMPARE(rowCount(), QStringLiteral("128 rows, then an error"));
    QCOMPARE(rows()->model()->rowCount(), 128);
    QTRY_COMPARE(transactions(), 0);
}

void tst_ViewerFailures::queryWorksAfterAFailure()
{
    query(QStringLiteral("SELECT 1 / 0"));
    QVERIFY(errorBar()->isVisible());
    choose(QStringLiteral("cheap"));
    QVERIFY2(!errorBar()->isVisible(), qPrintable(errorBar()->text()));
    query(QStringLiteral("SELECT 1 / 0"));
    query(QStringLiteral("SELECT 2"));
    QVERIFY2(!errorBar()->isVisible(), qPrintable(errorBar()->text()));
    QCOMPARE(cell(0, 0), QStringLiteral("2"));
}

void tst_ViewerFailures::droppedTableIsToldOf()
{
    cluster.run(QStringLiteral("CREATE TABLE gone (a int)"));
    press(QStringLiteral("Refresh"));
    cluster.run(QStringLiteral("DROP TABLE gone"));
    choose(QStringLiteral("gone"));
    QCOMPARE(errorBar()->text(), QStringLiteral("There is no table \"gone\" any more."));
    QVERIFY(errorBar()->isVisible());
}

void tst_ViewerFailures::serverThatDiesInTheMiddle()
{
    choose(QStringLiteral("item"));
    cluster.stop(QStringLiteral("immediate"));
    scrollToBottom();
    QVERIFY(errorBar()->isVisible());
    QCOMPARE(rowCount(), QStringLiteral("128 rows, then an error"));
    QCOMPARE(cell(127, 1), QStringLiteral("item 128"));
    press(QStringLiteral("Refresh"));
    QVERIFY(errorBar()->isVisible());
    press(QStringLiteral("Reconnect"));
    QVERIFY(errorBar()->isVisible());
    QVERIFY(cluster.restart());
}

void tst_ViewerFailures::reconnectAfterARestart()
{
    choose(QStringLiteral("item"));
    cluster.stop();
    QVERIFY(cluster.restart());
    query(QStringLiteral("SELECT 1"));
    QVERIFY(errorBar()->isVisible());
    press(QStringLiteral("Reconnect"));
    QVERIFY(!errorBar()->isVisible());
    choose(QStringLiteral("item"));
    QCOMPARE(rowCount(), QStringLiteral("128 rows so far"));
}

void tst_ViewerFailures::closingWithAHalfReadResult()
{
    choose(QStringLiteral("item"));
    scrollToBottom();
    QVERIFY(window->close());
    window.reset();
    QTRY_COMPARE(sessions(), 0);
}

QTEST_MAIN(tst_ViewerFailures)
#include "tst_viewer_failures.moc"
