// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// dorvy-check before plugins that are missing, broken or in each other's way.
#include "debianpackage.h"
#include "elffile.h"
#include "loaderanswer.h"

#include "tests/tools/checktree.h"

#include <QtCore/QJsonArray>
#include <QtTest/QtTest>

class tst_DorvyCheckPlugin : public QObject
{
    Q_OBJECT

private slots:
    void nothingIsWrong();
    void versionsAreTheBuilds();
    void pluginIsMissing();
    void runPathIsBroken();
    void runPathIsEmpty();
    void jemallocOfTheSystemIsTaken();
    void preloadedJemallocServes();
    void staticTlsIsFull();
    void libraryIsHidden();
    void libraryIsDamaged();
    void libraryOfTheListHasItsPackage();
    void anotherPluginAnswersBefore();
    void anotherPluginStandsBehind();
    void takenPluginIsQtsChoice_data();
    void takenPluginIsQtsChoice();
    void otherQtVersion_data();
    void otherQtVersion();
    void brokenFile_data();
    void brokenFile();
    void brokenFileBesideIsPassedOver();
    void pluginThatEndsTheProcess();
    void anotherCopy();
    void pluginPathThatIsNoFolder();
    void pluginPathOneFolderTooDeep();
    void json();
    void jsonOfAFailure();
    void wrongUse_data();
    void wrongUse();
    void helpTellsTheStatus();
    void version();
};

namespace {

const QString failedWord = QStringLiteral("FAILED");

QString announced(const CheckTree &tree, const QString &name)
{
    tree.copy(QStringLiteral(DORVY_ANNOUNCING), CheckTree::driver(name));
    return QStringLiteral("TREE/") + CheckTree::driver(name);
}

// Qt's number in a plugin's metadata: "QTMETADATA !", a byte 0, then major and minor.
void setQtVersion(const CheckTree &tree, char majorNumber, char minorNumber)
{
    QByteArray bytes = tree.read(CheckTree::plugin());
    const int at = bytes.indexOf(QByteArray("QTMETADATA !\0", 13));
    if (at < 0) {
        qFatal("no metadata");
    }
    bytes[at + 13] = majorNumber;
    bytes[at + 14] = minorNumber;
    tree.write(CheckTree::plugin(), bytes);
}

} // namespace

void tst_DorvyCheckPlugin::nothingIsWrong()
{
    CheckTree tree;
    tree.run();
    QCOMPARE(tree.all(failedWord), QStringList());
    QCOMPARE(tree.status(), 0);
    QCOMPARE(tree.found(QStringLiteral("ok"), QStringLiteral("load")),
             QStringList{QStringLiteral("Qt loads it, and it gives a driver")});
    QCOMPARE(tree.found(QStringLiteral("ok"), QStringLiteral("jemalloc")),
             QStringList{QStringLiteral("TREE/plugins/dorvy/libjemalloc.so.2")});
    QCOMPARE(tree.all(QStringLiteral("warning")),
             QStringList{QStringLiteral("connection not tried -> say where the server is: --host, "
                                        "--port, --database, --user")});
}

void tst_DorvyCheckPlugin::versionsAreTheBuilds()
{
    CheckTree tree;
    tree.run();
    QCOMPARE(tree.found(QStringLiteral("ok"), QStringLiteral("plugin")),
             QStringList{QStringLiteral("TREE/plugins/sqldrivers/libqsqldorvy.so, version " //
                                        DORVY_VERSION)});
    const QString libpq = tree.found(QStringLiteral("ok"), QStringLiteral("libpq")).value(0);
    QVERIFY2(QRegularExpression(QStringLiteral("^libpq 15\\.\\d+ inside the plugin; "))
                 .match(libpq)
                 .hasMatch(),
             qPrintable(libpq));
    const QString qt = QString::fromLatin1(qVersion());
    QCOMPARE(tree.found(QStringLiteral("ok"), QStringLiteral("qt")),
             QStringList{QStringLiteral("the plugin was built for Qt %1, this is Qt %2")
                             .arg(qt.section(QLatin1Char('.'), 0, 1), qt)});
}

void tst_DorvyCheckPlugin::pluginIsMissing()
{
    CheckTree tree;
    tree.remove(CheckTree::plugin());
    tree.run();
    QCOMPARE(
        tree.all(failedWord),
        QStringList{QStringLiteral("plugin libqsqldorvy.so is in no sqldrivers folder where Qt "
                                   "looks -> install libqt5sql5-dorvy, or set QT_PLUGIN_PATH to "
                                   "the folder above the sqldrivers folder that has it")});
    QCOMPARE(tree.status(), 1);
}

void tst_DorvyCheckPlugin::runPathIsBroken()
{
    CheckTree tree;
    tree.patch({QStringLiteral("--set-rpath"), QStringLiteral("$ORIGIN/../nowhere")});
    tree.run();
    QCOMPARE(tree.all(failedWord).size(), 1);
    const QString text = tree.found(failedWord, QStringLiteral("jemalloc")).value(0);
    QVERIFY2(text.startsWith(QStringLiteral("RUNPATH is $ORIGIN/../nowhere "
                                            "(TREE/plugins/sqldrivers/../nowhere), jemalloc is not "
                                            "there")),
             qPrintable(text));
    QCOMPARE(tree.status(), 1);
}

void tst_DorvyCheckPlugin::runPathIsEmpty()
{
    CheckTree tree;
    tree.patch({QStringLiteral("--remove-rpath")});
    tree.run();
    const QString text = tree.found(failedWord, QStringLiteral("jemalloc")).value(0);
    QVERIFY2(text.startsWith(QStringLiteral("RUNPATH is empty, jemalloc is not there")),
             qPrintable(text));
}

// Debian's, which wants room in the static block.
void tst_DorvyCheckPlugin::jemallocOfTheSystemIsTaken()
{
    CheckTree tree;
    tree.remove(CheckTree::jemalloc());
    tree.run();
    const QString text = tree.found(failedWord, QStringLiteral("jemalloc")).value(0);
    QVERIFY2(text.contains(QStringLiteral("; the loader takes /")), qPrintable(text));
    QVERIFY2(text.contains(QStringLiteral(", which wants static TLS: no plugin can load it -> ")),
             qPrintable(text));
}

void tst_DorvyCheckPlugin::preloadedJemallocServes()
{
    if (!QByteArray(DORVY_SANITIZE).isEmpty()) {
        QSKIP("a sanitizer's run-time library must be the first that is loaded");
    }
    CheckTree tree;
    tree.remove(CheckTree::jemalloc());
    tree.run({}, {}, {QStringLiteral("LD_PRELOAD=libjemalloc.so.2")});
    const QString preloaded = tree.found(QStringLiteral("ok"), QStringLiteral("jemalloc")).value(0);
    QVERIFY2(preloaded.startsWith(QStringLiteral("the process has it already: /")),
             qPrintable(preloaded));
    QCOMPARE(tree.all(failedWord), QStringList());
}

// By its path, so that nothing is amiss before the loader tries.
void tst_DorvyCheckPlugin::staticTlsIsFull()
{
    CheckTree tree;
    tree.remove(CheckTree::jemalloc());
    const QString debians =
        askLoader(tree.path(CheckTree::plugin())).found.value(QStringLiteral("libjemalloc.so.2"));
    tree.patch({QStringLiteral("--replace-needed"), QStringLiteral("libjemalloc.so.2"), debians});
    tree.run();
    const QString text = tree.found(failedWord, QStringLiteral("load")).value(0);
    QVERIFY2(text.contains(QStringLiteral("static TLS")), qPrintable(text));
    QVERIFY2(text.endsWith(QStringLiteral(" -> use the package's own jemalloc, or start the "
                                          "application with LD_PRELOAD=libjemalloc.so.2")),
             qPrintable(text));
}

void tst_DorvyCheckPlugin::libraryIsHidden()
{
    CheckTree tree;
    tree.patch({QStringLiteral("--add-needed"), QStringLiteral("libdorvyhidden.so.1")});
    tree.run();
    QCOMPARE(tree.all(failedWord),
             QStringList{QStringLiteral("library libdorvyhidden.so.1 is missing, needed by "
                                        "libqsqldorvy.so -> install the package that has it")});
    QCOMPARE(tree.status(), 1);
}

void tst_DorvyCheckPlugin::libraryIsDamaged()
{
    CheckTree tree;
    tree.write(QStringLiteral("libldap-2.5.so.0"), QByteArray());
    tree.run({}, {}, {QStringLiteral("LD_LIBRARY_PATH=") + tree.path()});
    const QString text = tree.found(failedWord, QStringLiteral("library")).value(0);
    QVERIFY2(text.contains(QStringLiteral("libldap-2.5.so.0: file too short")), qPrintable(text));
    QCOMPARE(tree.all(failedWord).size(), 1);
}

void tst_DorvyCheckPlugin::libraryOfTheListHasItsPackage()
{
    QCOMPARE(debianPackage(QStringLiteral("libldap-2.5.so.0")), QStringLiteral("libldap-2.5-0"));
    QCOMPARE(debianPackage(QStringLiteral("libx.so")), QString());
    const QStringList needed = ElfFile(QStringLiteral(DORVY_PLUGIN)).needed();
    for (const QString &library : needed) {
        const bool isOwn = library == QStringLiteral("libjemalloc.so.2") ||
                           !QByteArray(DORVY_SANITIZE).isEmpty(); // with libraries of its own
        QVERIFY2(isOwn || !debianPackage(library).isEmpty(), qPrintable(library));
    }
}

// Qt asks the files of a folder in the order of their names.
void tst_DorvyCheckPlugin::anotherPluginAnswersBefore()
{
    CheckTree tree;
    const QString other = announced(tree, QStringLiteral("libannounces.so"));
    tree.run();
    QCOMPARE(
        tree.all(failedWord),
        QStringList{QStringLiteral("key \"QPSQL\" is answered by %1, not by the DORVY driver -> "
                                   "say addDatabase(\"DORVY\"), or remove %1")
                        .arg(other)});
    QCOMPARE(tree.found(QStringLiteral("ok"), QStringLiteral("load")).size(), 1);
    QCOMPARE(tree.status(), 1);
}

void tst_DorvyCheckPlugin::anotherPluginStandsBehind()
{
    CheckTree tree;
    const QString other = announced(tree, QStringLiteral("libqsqlpsql.so"));
    tree.run();
    QCOMPARE(tree.all(failedWord), QStringList());
    QCOMPARE(tree.found(QStringLiteral("warning"), QStringLiteral("key")),
             QStringList{QStringLiteral("\"QPSQL\" is announced by %1 too; Qt takes "
                                        "TREE/plugins/sqldrivers/libqsqldorvy.so -> say "
                                        "addDatabase(\"DORVY\"), or remove %1")
                             .arg(other)});
    QCOMPARE(tree.status(), 0);
}

void tst_DorvyCheckPlugin::takenPluginIsQtsChoice_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("before") << QStringLiteral("liba.so");
    QTest::newRow("before, in capitals") << QStringLiteral("LIBA.so");
    QTest::newRow("behind") << QStringLiteral("libz.so");
    QTest::newRow("behind, in capitals") << QStringLiteral("LIBZ.so");
}

// A stock program that says addDatabase("QPSQL") gets our driver or none.
void tst_DorvyCheckPlugin::takenPluginIsQtsChoice()
{
    QFETCH(QString, name);
    CheckTree tree;
    announced(tree, name);
    tree.run();
    const QStringList taken = tree.found(QStringLiteral("ok"), QStringLiteral("key"));
    const bool saysOurs = taken.join(QLatin1Char('\n')).contains(QStringLiteral("\"QPSQL\""));
    QProcess stock;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("QT_PLUGIN_PATH"), tree.path(QStringLiteral("plugins")));
    stock.setProcessEnvironment(environment);
    stock.setProcessChannelMode(QProcess::MergedChannels);
    stock.start(QStringLiteral(DORVY_STOCK), QStringList());
    QVERIFY(stock.waitForFinished());
    QCOMPARE(stock.exitCode() == 0, saysOurs);
}

void tst_DorvyCheckPlugin::otherQtVersion_data()
{
    QTest::addColumn<int>("majorNumber");
    QTest::addColumn<int>("minorNumber");
    QTest::addColumn<QString>("refusal"); // Qt's, if it refuses
    const int minorNumber = QT_VERSION_MINOR;
    const QString here = QString::fromLatin1(qVersion());
    QTest::newRow("older") << 5 << minorNumber - 1 << QString();
    QTest::newRow("newer") << 5 << minorNumber + 1
                           << QStringLiteral(" was built for Qt 5.%1, which Qt %2 refuses")
                                  .arg(minorNumber + 1)
                                  .arg(here);
    QTest::newRow("next") << 6 << 0
                          << QStringLiteral(" was built for Qt 6.0, which Qt %1 refuses").arg(here);
}

void tst_DorvyCheckPlugin::otherQtVersion()
{
    QFETCH(int, majorNumber);
    QFETCH(int, minorNumber);
    QFETCH(QString, refusal);
    CheckTree tree;
    setQtVersion(tree, static_cast<char>(majorNumber), static_cast<char>(minorNumber));
    tree.run();
    const QString text = tree.found(failedWord, QStringLiteral("qt")).value(0);
    QVERIFY2(text.startsWith(QStringLiteral("the plugin was built for Qt %1.%2, this is Qt %3: it "
                                            "uses private classes of Qt's Sql module")
                                 .arg(majorNumber)
                                 .arg(minorNumber)
                                 .arg(QString::fromLatin1(qVersion()))),
             qPrintable(text));
    const QString plugin = tree.found(failedWord, QStringLiteral("plugin")).value(0);
    QCOMPARE(plugin.contains(refusal) && !plugin.isEmpty(), !refusal.isEmpty());
    QCOMPARE(tree.status(), 1);
}

void tst_DorvyCheckPlugin::brokenFile_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("problem");
    QFile plugin(QStringLiteral(DORVY_PLUGIN));
    QVERIFY(plugin.open(QIODevice::ReadOnly));
    const QByteArray whole = plugin.readAll();
    QByteArray other = whole;
    other[18] = '\xb7';
    QTest::newRow("empty") << QByteArray() << QStringLiteral("is empty");
    QTest::newRow("text") << QByteArray("Hello") << QStringLiteral("is no shared object");
    QTest::newRow("half") << whole.left(whole.size() / 2)
                          << QStringLiteral("is truncated: it has %1 bytes").arg(whole.size() / 2);
    QTest::newRow("other machine")
        << other << QStringLiteral("is for another machine (AArch64), and Qt here is for x86-64");
}

void tst_DorvyCheckPlugin::brokenFile()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, problem);
    CheckTree tree;
    tree.write(CheckTree::plugin(), bytes);
    tree.run();
    QCOMPARE(tree.all(failedWord),
             QStringList{QStringLiteral("plugin TREE/plugins/sqldrivers/libqsqldorvy.so %1 -> "
                                        "install libqt5sql5-dorvy again")
                             .arg(problem)});
}

void tst_DorvyCheckPlugin::brokenFileBesideIsPassedOver()
{
    CheckTree tree;
    tree.write(CheckTree::driver(QStringLiteral("liba.so")), "Hello");
    tree.write(CheckTree::driver(QStringLiteral("libb.so")),
               tree.read(CheckTree::plugin()).left(100000));
    tree.run();
    QCOMPARE(tree.status(), 0);
}

void tst_DorvyCheckPlugin::pluginThatEndsTheProcess()
{
    CheckTree tree;
    tree.copy(QStringLiteral(DORVY_ENDING), CheckTree::plugin());
    tree.run({QStringLiteral("--port"), QStringLiteral("1")});
    QCOMPARE(tree.found(failedWord, QStringLiteral("load")),
             QStringList{QStringLiteral("loading TREE/plugins/sqldrivers/libqsqldorvy.so ends the "
                                        "process: signal 6 -> install libqt5sql5-dorvy again")});
    QCOMPARE(
        tree.found(QStringLiteral("warning"), QStringLiteral("connection")),
        QStringList{QStringLiteral("not tried, for want of a driver -> see what failed above")});
    QCOMPARE(tree.status(), 1);
}

void tst_DorvyCheckPlugin::anotherCopy()
{
    CheckTree tree;
    QDir(tree.path()).mkpath(QStringLiteral("bin/sqldrivers"));
    tree.copy(QStringLiteral(DORVY_PLUGIN), QStringLiteral("bin/sqldrivers/libqsqldorvy.so"));
    tree.run();
    QCOMPARE(
        tree.found(QStringLiteral("warning"), QStringLiteral("copy")),
        QStringList{QStringLiteral("another copy is TREE/bin/sqldrivers/libqsqldorvy.so; Qt "
                                   "takes TREE/plugins/sqldrivers/libqsqldorvy.so -> remove the "
                                   "one that is not wanted")});
    QCOMPARE(tree.status(), 0);
}

void tst_DorvyCheckPlugin::pluginPathThatIsNoFolder()
{
    CheckTree tree;
    tree.run({}, {}, {QStringLiteral("QT_PLUGIN_PATH=/nonexistent")});
    QCOMPARE(tree.found(QStringLiteral("warning"), QStringLiteral("path")),
             QStringList{QStringLiteral("/nonexistent of QT_PLUGIN_PATH is no folder -> correct "
                                        "QT_PLUGIN_PATH")});
}

void tst_DorvyCheckPlugin::pluginPathOneFolderTooDeep()
{
    CheckTree tree;
    tree.run({}, {},
             {QStringLiteral("QT_PLUGIN_PATH=") + tree.path(QStringLiteral("plugins/sqldrivers"))});
    QCOMPARE(tree.found(QStringLiteral("warning"), QStringLiteral("path")),
             QStringList{QStringLiteral("TREE/plugins/sqldrivers of QT_PLUGIN_PATH is a sqldrivers "
                                        "folder itself, and Qt looks for one inside it -> say "
                                        "TREE/plugins")});
}

void tst_DorvyCheckPlugin::json()
{
    CheckTree tree;
    tree.run({QStringLiteral("--json")});
    QCOMPARE(tree.status(), 0);
    QCOMPARE(tree.json().value(QStringLiteral("version")).toString(),
             QStringLiteral(DORVY_VERSION));
    QCOMPARE(tree.json().value(QStringLiteral("status")).toString(), QStringLiteral("warning"));
    const QJsonArray findings = tree.json().value(QStringLiteral("findings")).toArray();
    QVERIFY(findings.size() > 8);
    for (const QJsonValue &finding : findings) {
        QCOMPARE(
            finding.toObject().keys(),
            (QStringList{QStringLiteral("data"), QStringLiteral("id"), QStringLiteral("message"),
                         QStringLiteral("remedy"), QStringLiteral("status")}));
    }
}

void tst_DorvyCheckPlugin::jsonOfAFailure()
{
    CheckTree tree;
    tree.remove(CheckTree::plugin());
    tree.run({QStringLiteral("--json")});
    QCOMPARE(tree.status(), 1);
    QCOMPARE(tree.json().value(QStringLiteral("status")).toString(), QStringLiteral("failed"));
}

void tst_DorvyCheckPlugin::wrongUse_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("unknown option") << QStringList{QStringLiteral("--nonsense")};
    QTest::newRow("no option") << QStringList{QStringLiteral("nonsense")};
    QTest::newRow("port in words") << QStringList{QStringLiteral("--port"), QStringLiteral("x")};
    QTest::newRow("port 0") << QStringList{QStringLiteral("--port"), QStringLiteral("0")};
    QTest::newRow("port too large") << QStringList{QStringLiteral("--port=65536")};
    QTest::newRow("no value") << QStringList{QStringLiteral("--host")};
    QTest::newRow("empty query") << QStringList{QStringLiteral("--query="), QStringLiteral("")};
}

void tst_DorvyCheckPlugin::wrongUse()
{
    QFETCH(QStringList, arguments);
    CheckTree tree;
    tree.run(arguments);
    QCOMPARE(tree.status(), 2);
    QCOMPARE(tree.standardOutput(), QByteArray());
    QVERIFY(tree.standardError().startsWith("dorvy-check: "));
}

void tst_DorvyCheckPlugin::helpTellsTheStatus()
{
    CheckTree tree;
    tree.run({QStringLiteral("--help")});
    QCOMPARE(tree.status(), 0);
    QVERIFY(
        tree.standardOutput().contains("Exit status: 0 nothing failed, 1 something did, 2 wrong"));
}

void tst_DorvyCheckPlugin::version()
{
    CheckTree tree;
    tree.run({QStringLiteral("--version")});
    QCOMPARE(tree.status(), 0);
    QCOMPARE(tree.standardOutput(), QByteArray("dorvy-check " DORVY_VERSION "\n"));
}

QTEST_GUILESS_MAIN(tst_DorvyCheckPlugin)
#include "tst_dorvycheck_plugin.moc"
