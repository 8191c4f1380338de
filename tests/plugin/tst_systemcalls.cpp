// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// What a page costs in system calls: one write, and as a rule one read.
#include "tests/support/pgcluster.h"

#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>

namespace {

constexpr int PageRows = 128;
constexpr int Pages = 100;
constexpr int ChildMsec = 120000;

} // namespace

// The calls on sockets, and poll, which libpq calls before every read of an answer.
struct Calls
{
    int writes;
    int waits;
    int reads;
};

class tst_SystemCalls : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY2(cluster.start(), qPrintable(cluster.why())); }
    void page_data();
    void page();

private:
    Calls callsOfWalk(int rows, int characters);

    PgCluster cluster;
    QTemporaryDir folder;
};

// A walk through a Unix socket in a process of its own; without calls if it fails.
Calls tst_SystemCalls::callsOfWalk(int rows, int characters)
{
    const QString trace = folder.filePath(QStringLiteral("trace"));
    QProcess strace;
    strace.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    strace.start(QStringLiteral("strace"),
                 {QStringLiteral("-f"), QStringLiteral("-qq"), QStringLiteral("-o"), trace,
                  QStringLiteral("-e"), QStringLiteral("trace=sendto,poll,recvfrom"),
                  QStringLiteral(DORVY_HOST), QStringLiteral("texts"), cluster.socketDir(),
                  QString::number(cluster.port()), QString::number(rows),
                  QString::number(characters)});
    QFile file(trace);
    if (!strace.waitForFinished(ChildMsec) || strace.exitCode() != 0 ||
        !file.open(QIODevice::ReadOnly)) {
        strace.kill();
        return {};
    }
    const QByteArray text = file.readAll();
    return {text.count(" sendto("), text.count(" poll("), text.count(" recvfrom(")};
}

void tst_SystemCalls::page_data()
{
    QTest::addColumn<int>("characters"); // of a row, which has 11 bytes besides
    QTest::addColumn<int>("reads");
    QTest::newRow("2 KiB") << 5 << 1;
    QTest::newRow("8.6 KB, more than the server sends at a time") << 56 << 2;
    // The server sends 8 KiB at a time, and libpq has room for 16: the fewest are 4.
    QTest::newRow("60 KiB") << 469 << 8;
}

// Pages in the middle of a walk are what a long one has more than a short one.
void tst_SystemCalls::page()
{
    QFETCH(int, characters);
    QFETCH(int, reads);
    const Calls one = callsOfWalk(1, characters);
    const Calls more = callsOfWalk(Pages * PageRows + 1, characters);
    qInfo("%d pages: %d writes, %d waits, %d reads", Pages, more.writes - one.writes,
          more.waits - one.waits, more.reads - one.reads);
    QVERIFY2(one.writes > 0, "strace, or the program under it, has failed");
    QCOMPARE(more.writes - one.writes, Pages);
    QVERIFY(more.reads - one.reads <= Pages * reads * 11 / 10);
    QCOMPARE(more.waits - one.waits, more.reads - one.reads);
}

QTEST_GUILESS_MAIN(tst_SystemCalls)
#include "tst_systemcalls.moc"
