// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The console holds a page, however many rows it exports or prints.
#include "tests/examples/consolechild.h"

#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>

class tst_ConsoleMemory : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY2(cluster.start(), qPrintable(cluster.why())); }
    void peakDoesNotGrowWithRows_data();
    void peakDoesNotGrowWithRows();

private:
    qint64 peakKib(const QByteArray &before, int rows) const;

    PgCluster cluster;
    QTemporaryDir folder;
};

static qint64 peakOf(qint64 processId)
{
    QFile status(QString("/proc/%1/status").arg(processId));
    if (!status.open(QIODevice::ReadOnly)) {
        return -1;
    }
    const QByteArray text = status.readAll();
    const int at = text.indexOf("VmHWM:") + 6;
    return text.mid(at, text.indexOf('k', at) - at).trimmed().toLongLong();
}

// At the end of a query of so many rows, while the console waits for the next; -1 if it failed.
qint64 tst_ConsoleMemory::peakKib(const QByteArray &before, int rows) const
{
    const QByteArray count = QByteArray::number(rows);
    ConsoleChild child(consoleArguments(cluster));
    child.type(before + "SELECT g AS id, 'row ' || g AS name FROM generate_series(1, " + count +
               ") g;\n");
    if (!child.waitForOutput("(" + count + " rows")) {
        return -1;
    }
    const qint64 peak = peakOf(child.processId());
    return child.finish().status == 0 ? peak : -1;
}

void tst_ConsoleMemory::peakDoesNotGrowWithRows_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::newRow("exported") << "\\export " + folder.filePath("a.csv").toUtf8() + '\n';
    QTest::newRow("printed") << QByteArray();
}

void tst_ConsoleMemory::peakDoesNotGrowWithRows()
{
    QFETCH(QByteArray, before);
    const qint64 few = peakKib(before, 1000);
    const qint64 many = peakKib(before, 100000);
    qInfo("peak: %lld KiB with 1,000 rows, %lld KiB with 100,000", few, many);
    QVERIFY(few > 0);
    QVERIFY(many > 0);
    QVERIFY2(qAbs(many - few) <= 2048, "more than 2 MiB apart");
    if (!before.isEmpty()) {
        QFile file(folder.filePath("a.csv"));
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll().count('\n'), 1 + 100000);
    }
}

QTEST_GUILESS_MAIN(tst_ConsoleMemory)
#include "tst_consolememory.moc"
