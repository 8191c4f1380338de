// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Memory stays flat, however large the result.
#include "tests/support/pgcluster.h"

#include <QtTest/QtTest>

class tst_Memory : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void peakDoesNotGrowWithRows();

private:
    qint64 peakKib(const QString &rows) const;

    PgCluster cluster;
};

void tst_Memory::initTestCase()
{
    QVERIFY2(cluster.start(), qPrintable(cluster.why()));
}

// -1 if the walk failed.
qint64 tst_Memory::peakKib(const QString &rows) const
{
    QProcess process;
    process.start(QStringLiteral(DORVY_HOST), {QStringLiteral("walk"), cluster.socketDir(),
                                               QString::number(cluster.port()), rows});
    if (!process.waitForFinished(240000) || process.exitCode() != 0) {
        process.kill();
        return -1;
    }
    return process.readAllStandardOutput().trimmed().toLongLong();
}

void tst_Memory::peakDoesNotGrowWithRows()
{
    const qint64 few = peakKib(QStringLiteral("10000"));
    const qint64 many = peakKib(QStringLiteral("10000000"));
    qInfo("peak: %lld KiB with 10,000 rows, %lld KiB with 10,000,000", few, many);
    QVERIFY(few > 0);
    QVERIFY(many > 0);
    QVERIFY2(qAbs(many - few) <= 2048, "more than 2 MiB apart");
}

QTEST_GUILESS_MAIN(tst_Memory)
#include "tst_memory.moc"
