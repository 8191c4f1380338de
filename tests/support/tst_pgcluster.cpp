// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// PgCluster: a server that does not start is told of at once, with its own words; a port stays a server's.
#include "tests/support/pgcluster.h"

#include <QtCore/QElapsedTimer>
#include <QtTest/QtTest>

#include <cerrno>

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

// initdb and several starts, under a sanitizer and on a busy machine; waiting takes a minute for each start.
constexpr int AtOnceMsec = 60000;

// The error of binding another socket to a port of loopback, 0 for none.
int hlpBindError(int port)
{
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<quint16>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int failed = bind(descriptor, reinterpret_cast<sockaddr *>(&address), sizeof(address));
    const int error = failed ? errno : 0;
    close(descriptor);
    return error;
}

} // namespace

class tst_PgCluster : public QObject
{
    Q_OBJECT

private slots:
    void settingThatTheServerRefuses();
    void portOfAStoppedServerIsNobodyElses();
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

void tst_PgCluster::portOfAStoppedServerIsNobodyElses()
{
    PgCluster cluster;
    QVERIFY2(cluster.start(), qPrintable(cluster.why()));
    cluster.stop();
    QCOMPARE(hlpBindError(cluster.port()), EADDRINUSE);
    QVERIFY2(cluster.restart(), qPrintable(cluster.why()));
    QCOMPARE(cluster.value(QStringLiteral("SELECT 1")), QStringLiteral("1"));
}

QTEST_GUILESS_MAIN(tst_PgCluster)
#include "tst_pgcluster.moc"
