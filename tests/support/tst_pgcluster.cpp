// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// PgCluster: a server that does not start is told of at once, with its own words.
#include "tests/support/pgcluster.h"

#include <QtCore/QElapsedTimer>
#include <QtTest/QtTest>

namespace {

// initdb and several starts, under a sanitizer and on a busy machine
constexpr int AtOnceMsec = 15000;

} // namespace

class tst_PgCluster : public QObject
{
    Q_OBJECT

private slots:
    void settingThatTheServerRefuses();
};

void tst_PgCluster::settingThatTheServerRefuses()
{
    PgCluster cluster;
    QElapsedTimer timer;
    timer.start();
    QVERIFY(!cluster.start({QStringLiteral("work_mem = 'much'")}));
    QVERIFY2(timer.elapsed() < AtOnceMsec, qPrintable(QString::number(timer.elapsed())));
    QVERIFY2(cluster.why().contains(QLatin1String("invalid value for parameter \"work_mem\"")),
             qPrintable(cluster.why()));
}

QTEST_GUILESS_MAIN(tst_PgCluster)
#include "tst_pgcluster.moc"
