// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// ViewerWindow: tables, queries, and rows that grow as they are scrolled.
#include "examples/viewer/pagedmodel.h"
#include "tests/examples/viewertest.h"

#include <QtWidgets/QApplication>

#include <unistd.h>

namespace {

// Memory that the process holds now, as the kernel counts it.
qint64 residentKib()
{
    QFile file(QStringLiteral("/proc/self/statm"));
    if (!file.open(QIODevice::ReadOnly)) {
        return -1;
    }
    return file.readAll().split(' ').value(1).toLongLong() * sysconf(_SC_PAGESIZE) / 1024;
}

} // namespace

class tst_Viewer : public QObject, private ViewerTest
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY(start()); }
    void init() { QVERIFY(openWindow()); }
    void cleanup() { closeWindow(); }

    void tablesAndViewsAreListed();
    void refreshListsANewTable();
    void chosenTableShowsItsFirstPage();
    void choiceByKeyboard();
    void scrollingGrowsByAPage();
    void scrollingToTheEnd();
    void bytesOutliveTheirPage();
    void memoryFollowsWhatWasScrolledTo();
    void cancelGivesTheConnectionBackAndKeepsTheRows();
    void escapeCancels();
    void resultReadToItsEndHoldsNothing();
    void typedQueryRuns();
    void controlReturnRuns();
    void commandTellsHowManyRowsItChanged();
};

void tst_Viewer::tablesAndViewsAreListed()
{
    QStringList listed;
    for (int i = 0; i < tables()->count(); ++i) {
        listed += tables()->item(i)->text() + QLatin1Char(' ') + tables()->item(i)->toolTip();
    }
    QCOMPARE(listed, QStringList({QStringLiteral("item Table"), QStringLiteral("store.shelf Table"),
                                  QStringLiteral("cheap View")}));
}

void tst_Viewer::refreshListsANewTable()
{
    cluster.run(QStringLiteral("CREATE TABLE newer (a int)"));
    QCOMPARE(tables()->findItems(QStringLiteral("newer"), Qt::MatchExactly).size(), 0);
    press(QStringLiteral("Refresh"));
    QCOMPARE(tables()->findItems(QStringLiteral("newer"), Qt::MatchExactly).size(), 1);
    cluster.run(QStringLiteral("DROP TABLE newer"));
}

void tst_Viewer::chosenTableShowsItsFirstPage()
{
    choose(QStringLiteral("item"));
    QCOMPARE(window->findChild<QPlainTextEdit *>(QStringLiteral("sql"))->toPlainText(),
             QStringLiteral("SELECT id, name FROM public.item"));
    QCOMPARE(rows()->model()->rowCount(), 128);
    QCOMPARE(rowCount(), QStringLiteral("128 rows so far"));
    QCOMPARE(rows()->model()->headerData(1, Qt::Horizontal).toString(), QStringLiteral("name"));
    QCOMPARE(cell(0, 0), QStringLiteral("1"));
    QCOMPARE(cell(127, 1), QStringLiteral("item 128"));
    choose(QStringLiteral("store.shelf"));
    QCOMPARE(cell(0, 1), QStringLiteral("10.0.0.1/32"));
    QCOMPARE(rowCount(), QStringLiteral("1 row"));
}

void tst_Viewer::choiceByKeyboard()
{
    choose(QStringLiteral("item"));
    QTest::keyClick(tables(), Qt::Key_End);
    QCOMPARE(rowCount(), QStringLiteral("9 rows"));
}

// Row for row: what is shown under a number is the row of that number, past the thousandth, too.
void tst_Viewer::scrollingGrowsByAPage()
{
    choose(QStringLiteral("item"));
    for (int pages = 2; pages <= 9; ++pages) {
        scrollToBottom();
        QCOMPARE(rows()->model()->rowCount(), pages * PagedModel::PageRows);
    }
    QCOMPARE(rowCount(), QStringLiteral("1,152 rows so far"));
    rows()->scrollTo(rows()->model()->index(999, 0), QAbstractItemView::PositionAtTop);
    QCoreApplication::processEvents();
    QVERIFY(rows()->rowAt(0) >= 999);
    QCOMPARE(rows()->model()->headerData(rows()->rowAt(0), Qt::Vertical).toInt(),
             rows()->rowAt(0) + 1);
    for (int row = 0; row < rows()->model()->rowCount(); ++row) {
        QCOMPARE(cell(row, 1), QStringLiteral("item %1").arg(row + 1));
    }
}

void tst_Viewer::scrollingToTheEnd()
{
    choose(QStringLiteral("item"));
    for (int pages = 0; pages <= ItemRows / PagedModel::PageRows; ++pages) {
        scrollToBottom();
    }
    QCOMPARE(rowCount(), QStringLiteral("5,000 rows"));
    QVERIFY(!action(QStringLiteral("Cancel"))->isEnabled());
    QCOMPARE(cell(ItemRows - 1, 0), QStringLiteral("5000"));
}

void tst_Viewer::bytesOutliveTheirPage()
{
    query(QStringLiteral("SELECT decode(lpad(to_hex(g), 64, '0'), 'hex') "
                         "FROM generate_series(1, 300) g"));
    scrollToBottom();
    scrollToBottom();
    QCOMPARE(rowCount(), QStringLiteral("300 rows"));
    for (int row = 0; row < 300; ++row) {
        QCOMPARE(cell(row, 0), QStringLiteral("\\x%1").arg(row + 1, 64, 16, QLatin1Char('0')));
    }
}

// Ten million rows of a hundred bytes, a gigabyte, are not fetched because a few hundred are looked at.
void tst_Viewer::memoryFollowsWhatWasScrolledTo()
{
    query(QStringLiteral("SELECT 1")); // what a first query takes once
    const qint64 before = residentKib();
    query(QStringLiteral("SELECT generate_series(1, 10000000), repeat('x', 100)"));
    for (int pages = 2; pages <= 5; ++pages) {
        scrollToBottom();
    }
    QCOMPARE(rowCount(), QStringLiteral("640 rows so far"));
    const qint64 grown = residentKib() - before;
    QVERIFY2(grown < 65536, qPrintable(QStringLiteral("%1 KiB").arg(grown)));
}

void tst_Viewer::cancelGivesTheConnectionBackAndKeepsTheRows()
{
    choose(QStringLiteral("item"));
    scrollToBottom();
    QCOMPARE(transactions(), 1);
    press(QStringLiteral("Cancel"));
    QTRY_COMPARE(transactions(), 0);
    QCOMPARE(rowCount(), QStringLiteral("256 rows, then cancelled"));
    scrollToBottom();
    QCOMPARE(rows()->model()->rowCount(), 256);
    QCOMPARE(cell(255, 1), QStringLiteral("item 256"));
    QVERIFY(!action(QStringLiteral("Cancel"))->isEnabled());
}

void tst_Viewer::escapeCancels()
{
    QApplication::setActiveWindow(window.get());
    choose(QStringLiteral("item"));
    QTest::keyClick(window.get(), Qt::Key_Escape);
    QCOMPARE(rowCount(), QStringLiteral("128 rows, then cancelled"));
}

void tst_Viewer::resultReadToItsEndHoldsNothing()
{
    choose(QStringLiteral("cheap"));
    QCOMPARE(rowCount(), QStringLiteral("9 rows"));
    QTRY_COMPARE(transactions(), 0);
}

void tst_Viewer::typedQueryRuns()
{
    query(QStringLiteral("SELECT g AS number, NULL AS nothing FROM generate_series(1, 300) g"));
    QCOMPARE(rowCount(), QStringLiteral("128 rows so far"));
    QCOMPARE(rows()->model()->headerData(0, Qt::Horizontal).toString(), QStringLiteral("number"));
    QCOMPARE(cell(0, 1), QStringLiteral("NULL"));
    const QVariant font = rows()->model()->data(rows()->model()->index(0, 1), Qt::FontRole);
    QVERIFY(font.value<QFont>().italic());
}

void tst_Viewer::controlReturnRuns()
{
    QApplication::setActiveWindow(window.get());
    auto *sql = window->findChild<QPlainTextEdit *>(QStringLiteral("sql"));
    sql->setFocus();
    type(sql, QStringLiteral("SELECT 7"));
    QTest::keyClick(sql, Qt::Key_Return, Qt::ControlModifier);
    QCOMPARE(cell(0, 0), QStringLiteral("7"));
    QCOMPARE(sql->toPlainText(), QStringLiteral("SELECT 7"));
}

void tst_Viewer::commandTellsHowManyRowsItChanged()
{
    query(QStringLiteral("UPDATE store.shelf SET id = id"));
    QCOMPARE(rowCount(), QStringLiteral("1 row affected"));
    QCOMPARE(rows()->model()->columnCount(), 0);
    QVERIFY(!errorBar()->isVisible());
}

QTEST_MAIN(tst_Viewer)
#include "tst_viewer.moc"
