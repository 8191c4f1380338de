// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
// dorvy-viewer as a program: its arguments, and a connection straight away.
#include "tests/support/pgcluster.h"

#include <QtCore/QProcess>
#include <QtTest/QtTest>

class tst_ViewerProgram : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void versionIsTold();
    void helpNamesEveryOption();
    void wrongArgumentIsRefused_data();
    void wrongArgumentIsRefused();
    void optionsConnectStraightAway();

private:
    QString connections() const;

    PgCluster cluster;
};

namespace {

// Runs to its end with what it printed on \a channel.
QString printed(const QStringList &arguments, int expected,
                QProcess::ProcessChannel channel = QProcess::StandardOutput)
{
    QProcess process;
    process.start(QStringLiteral(DORVY_VIEWER), arguments);
    if (!process.waitForFinished(60000) || process.exitCode() != expected) {
        return QStringLiteral("ended with %1").arg(process.exitCode());
    }
    process.setReadChannel(channel);
    return QString::fromUtf8(process.readAll());
}

} // namespace

void tst_ViewerProgram::initTestCase()
{
    QVERIFY2(cluster.start(), qPrintable(cluster.why()));
    qputenv("QT_QPA_PLATFORM", "offscreen");
}

void tst_ViewerProgram::versionIsTold()
{
    QCOMPARE(printed({QStringLiteral("--version")}, 0),
             QStringLiteral("dorvy-viewer " DORVY_VERSION "\n"));
}

void tst_ViewerProgram::helpNamesEveryOption()
{
    const QString help = printed({QStringLiteral("--help")}, 0);
    for (const char *option : {"host", "port", "database", "user", "options", "driver"}) {
        QVERIFY2(help.contains(QStringLiteral("--%1 <%1>").arg(QLatin1String(option))), option);
    }
}

void tst_ViewerProgram::wrongArgumentIsRefused_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("complaint");
    QTest::newRow("unknown option")
        << QStringList{QStringLiteral("--colour")} << QStringLiteral("Unknown option 'colour'.");
    QTest::newRow("option without its value")
        << QStringList{QStringLiteral("--host")} << QStringLiteral("Missing value after '--host'.");
    QTest::newRow("port too large")
        << QStringList{QStringLiteral("--port=65536")} << QStringLiteral("not a port: 65536");
    QTest::newRow("port 0") << QStringList{QStringLiteral("--port=0")}
                            << QStringLiteral("not a port: 0");
    QTest::newRow("port in words")
        << QStringList{QStringLiteral("--port=http")} << QStringLiteral("not a port: http");
    QTest::newRow("a word alone") << QStringList{QStringLiteral("postgres")}
                                  << QStringLiteral("unknown argument: postgres");
}

void tst_ViewerProgram::wrongArgumentIsRefused()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, complaint);
    const QString said = printed(arguments, 2, QProcess::StandardError);
    QVERIFY2(said.endsWith(QStringLiteral("dorvy-viewer: %1\n").arg(complaint)), qPrintable(said));
}

void tst_ViewerProgram::optionsConnectStraightAway()
{
    QProcess process;
    process.start(QStringLiteral(DORVY_VIEWER),
                  {QStringLiteral("--host"), cluster.socketDir(), QStringLiteral("--port"),
                   QString::number(cluster.port()), QStringLiteral("--user"), cluster.user(),
                   QStringLiteral("--options"), QStringLiteral("application_name=program")});
    QTRY_VERIFY_WITH_TIMEOUT(connections() != QLatin1String("0"), 30000);
    process.terminate();
    QVERIFY(process.waitForFinished(60000));
    QTRY_COMPARE(connections(), QStringLiteral("0"));
}

QString tst_ViewerProgram::connections() const
{
    return cluster.value(
        QStringLiteral("SELECT count(*) FROM pg_stat_activity WHERE application_name = 'program'"));
}

QTEST_GUILESS_MAIN(tst_ViewerProgram)
#include "tst_viewer_program.moc"
