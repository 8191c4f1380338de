// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// examples/python/walk.py: the plugin in a Python program.
#include "tests/support/pgcluster.h"

#include <QtCore/QProcess>
#include <QtTest/QtTest>

class tst_PythonWalk : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void everyCountIsRight();
    void helpTellsArgumentsAndExitStatus();
    void wrongArgumentIsRefused_data();
    void wrongArgumentIsRefused();
    void noConnection_data();
    void noConnection();
    void tableOfThatNameIsLeftAlone();
    void failedStepLeavesNoTable();

private:
    // The arguments of a connection to the cluster, and \a more.
    QStringList connecting(const QStringList &more = QStringList()) const;
    bool hasTable() const;

    PgCluster cluster;
};

namespace {

struct Outcome
{
    int status;
    QString output;
    QString errors;
};

Outcome walk(const QStringList &arguments)
{
    QProcess process;
    process.start(QStringLiteral("/usr/bin/python3"),
                  QStringList{QStringLiteral("-B"), QStringLiteral(DORVY_WALK)} + arguments);
    const bool ended = process.waitForFinished(60000);
    return {ended && process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}

} // namespace

void tst_PythonWalk::initTestCase()
{
    QVERIFY2(cluster.start(), qPrintable(cluster.why()));
}

void tst_PythonWalk::everyCountIsRight()
{
    const Outcome outcome = walk(connecting());
    QVERIFY2(outcome.status == 0, qPrintable(outcome.errors));
    for (const char *line :
         {"300 rows inserted with positional values", "30 of them updated with named values",
          "300 rows, each with its own number", "in 3 pages of 128 rows", "30 NULLs",
          "digest     QByteArray 0014", "listed     QDate      2024-02-09",
          "ERROR:  division by zero", "every count is right"}) {
        QVERIFY2(outcome.output.contains(QLatin1String(line)), line);
    }
    QVERIFY(!hasTable());
}

void tst_PythonWalk::helpTellsArgumentsAndExitStatus()
{
    const Outcome outcome = walk({QStringLiteral("--help")});
    QCOMPARE(outcome.status, 0);
    for (const char *word :
         {"--host", "--port", "--database", "--user", "--options", "--driver", "Exit status"}) {
        QVERIFY2(outcome.output.contains(QLatin1String(word)), word);
    }
}

void tst_PythonWalk::wrongArgumentIsRefused_data()
{
    QTest::addColumn<QString>("argument");
    QTest::newRow("unknown option") << QStringLiteral("--colour=red");
    QTest::newRow("port in words") << QStringLiteral("--port=http");
    QTest::newRow("port too large") << QStringLiteral("--port=65536");
}

void tst_PythonWalk::wrongArgumentIsRefused()
{
    QFETCH(QString, argument);
    const Outcome outcome = walk({argument});
    QCOMPARE(outcome.status, 2);
    QVERIFY2(outcome.errors.startsWith(QStringLiteral("usage: ")), qPrintable(outcome.errors));
}

void tst_PythonWalk::noConnection_data()
{
    QTest::addColumn<QString>("argument");
    QTest::addColumn<QString>("reason");
    QTest::newRow("no such database")
        << QStringLiteral("--database=nowhere") << QStringLiteral("\"nowhere\" does not exist");
    QTest::newRow("no server") << QStringLiteral("--host=/nowhere")
                               << QStringLiteral("No such file or directory");
    QTest::newRow("no such driver")
        << QStringLiteral("--driver=QNOTHING") << QStringLiteral("Driver not loaded");
}

void tst_PythonWalk::noConnection()
{
    QFETCH(QString, argument);
    QFETCH(QString, reason);
    const Outcome outcome = walk(connecting({argument}));
    QCOMPARE(outcome.status, 3);
    QVERIFY2(outcome.errors.contains(reason), qPrintable(outcome.errors));
    QVERIFY(!outcome.errors.contains(QStringLiteral("Traceback")));
}

void tst_PythonWalk::tableOfThatNameIsLeftAlone()
{
    cluster.run(QStringLiteral("CREATE TABLE walk (mine int)"));
    const Outcome outcome = walk(connecting());
    QCOMPARE(outcome.status, 1);
    QVERIFY2(outcome.errors.contains(QStringLiteral("\"walk\" already exists")),
             qPrintable(outcome.errors));
    QCOMPARE(cluster.value(QStringLiteral("SELECT count(mine) FROM walk")), QStringLiteral("0"));
    cluster.run(QStringLiteral("DROP TABLE walk"));
}

// Reads need a second connection, which this user does not get.
void tst_PythonWalk::failedStepLeavesNoTable()
{
    cluster.run(QStringLiteral("CREATE ROLE single LOGIN CONNECTION LIMIT 1; "
                               "GRANT ALL ON SCHEMA public TO single"));
    const Outcome outcome = walk(connecting({QStringLiteral("--user=single")}));
    QCOMPARE(outcome.status, 1);
    QVERIFY2(outcome.output.contains(QStringLiteral("300 rows inserted")),
             qPrintable(outcome.output));
    QVERIFY2(outcome.errors.contains(QStringLiteral("failed: SELECT")), qPrintable(outcome.errors));
    QVERIFY(!hasTable());
}

QStringList tst_PythonWalk::connecting(const QStringList &more) const
{
    return QStringList{QStringLiteral("--host"), cluster.socketDir(),
                       QStringLiteral("--port"), QString::number(cluster.port()),
                       QStringLiteral("--user"), cluster.user()} +
           more;
}

bool tst_PythonWalk::hasTable() const
{
    return cluster.value(QStringLiteral("SELECT count(*) FROM pg_class WHERE relname = 'walk'")) !=
           QLatin1String("0");
}

QTEST_GUILESS_MAIN(tst_PythonWalk)
#include "tst_python_walk.moc"
