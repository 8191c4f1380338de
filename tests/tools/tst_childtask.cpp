// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Work in a process of its own: what it sends, and every way that it can end.
#include "childtask.h"

#include <QtCore/QElapsedTimer>
#include <QtTest/QtTest>

#include <csignal>
#include <cstdio>

#include <unistd.h>

namespace {

constexpr int Seconds = 30;

QJsonObject object(int number)
{
    return {{QStringLiteral("number"), number}};
}

} // namespace

class tst_ChildTask : public QObject
{
    Q_OBJECT

private slots:
    void everythingSentArrives();
    void longObjectArrives();
    void endlessObjectIsGivenUp();
    void fatalMessageIsTheReason();
    void signalIsTheReason();
    void exitIsNoWhole();
    void silenceIsEnded();
    void standardOutputIsThrownAway();
    void errorOutputIsReadInPieces();
};

void tst_ChildTask::everythingSentArrives()
{
    int sum = 0;
    const TaskEnd end = runTask(
        [](const TaskChannel &channel) {
            for (int i = 1; i <= 100; ++i) {
                channel.send(object(i));
            }
        },
        [&sum](const QJsonObject &sent) { sum += sent.value(QStringLiteral("number")).toInt(); },
        Seconds);
    QVERIFY2(end.isWhole, qPrintable(end.reason));
    QCOMPARE(sum, 5050);
}

void tst_ChildTask::longObjectArrives()
{
    const QString text(1000000, QLatin1Char('x'));
    QString received;
    const TaskEnd end = runTask(
        [&text](const TaskChannel &channel) {
            channel.send({{QStringLiteral("text"), text}});
        },
        [&received](const QJsonObject &sent) {
            received = sent.value(QStringLiteral("text")).toString();
        },
        Seconds);
    QVERIFY(end.isWhole);
    QCOMPARE(received, text);
}

// As soon as it has come, though it has no line's end.
void tst_ChildTask::endlessObjectIsGivenUp()
{
    const QString text(65 * 1024 * 1024, QLatin1Char('x'));
    bool isReceived = false;
    QElapsedTimer timer;
    timer.start();
    const TaskEnd end = runTask(
        [&text](const TaskChannel &channel) {
            channel.send({{QStringLiteral("text"), text}});
        },
        [&isReceived](const QJsonObject & /*sent*/) { isReceived = true; }, 4 * Seconds);
    QVERIFY(!end.isWhole);
    QVERIFY(!isReceived);
    QVERIFY2(timer.elapsed() < 2 * Seconds * 1000, qPrintable(QString::number(timer.elapsed())));
}

void tst_ChildTask::fatalMessageIsTheReason()
{
    int received = 0;
    const TaskEnd end = runTask(
        [](const TaskChannel &channel) {
            channel.send(object(1));
            qFatal("the last words");
        },
        [&received](const QJsonObject & /*sent*/) { ++received; }, Seconds);
    QVERIFY(!end.isWhole);
    QCOMPARE(end.reason, QStringLiteral("the last words"));
    QCOMPARE(received, 1);
}

void tst_ChildTask::signalIsTheReason()
{
    const TaskEnd end = runTask([](const TaskChannel & /*channel*/) { raise(SIGKILL); },
                                [](const QJsonObject & /*sent*/) {}, Seconds);
    QVERIFY(!end.isWhole);
    QCOMPARE(end.reason, QStringLiteral("signal 9"));
}

void tst_ChildTask::exitIsNoWhole()
{
    const TaskEnd end = runTask([](const TaskChannel & /*channel*/) { _exit(0); },
                                [](const QJsonObject & /*sent*/) {}, Seconds);
    QVERIFY(!end.isWhole);
    QCOMPARE(end.reason, QStringLiteral("it left the process"));
}

void tst_ChildTask::silenceIsEnded()
{
    const TaskEnd end = runTask([](const TaskChannel & /*channel*/) { pause(); },
                                [](const QJsonObject & /*sent*/) {}, 1);
    QVERIFY(!end.isWhole);
    QCOMPARE(end.reason, QStringLiteral("nothing for 1 s"));
}

void tst_ChildTask::standardOutputIsThrownAway()
{
    int ends[2];
    QVERIFY(pipe(ends) == 0);
    const int before = dup(STDOUT_FILENO);
    dup2(ends[1], STDOUT_FILENO);
    const TaskEnd end = runTask(
        [](const TaskChannel & /*channel*/) {
            std::puts("noise");
            std::fflush(stdout);
        },
        [](const QJsonObject & /*sent*/) {}, Seconds);
    dup2(before, STDOUT_FILENO);
    close(before);
    close(ends[1]);
    char byte = 0;
    QCOMPARE(read(ends[0], &byte, 1), ssize_t(0));
    close(ends[0]);
    QVERIFY(end.isWhole);
}

void tst_ChildTask::errorOutputIsReadInPieces()
{
    QStringList texts;
    const TaskEnd end = runTask(
        [](const TaskChannel &channel) {
            for (const char *word : {"one", "two"}) {
                std::fputs(word, stderr);
                channel.send({{QStringLiteral("text"), QString::fromLatin1(errorOutput())}});
            }
        },
        [&texts](const QJsonObject &sent) {
            texts += sent.value(QStringLiteral("text")).toString();
        },
        Seconds);
    QVERIFY(end.isWhole);
    QCOMPARE(texts, (QStringList{QStringLiteral("one"), QStringLiteral("two")}));
}

QTEST_GUILESS_MAIN(tst_ChildTask)
#include "tst_childtask.moc"
