// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The plugin in processes that know nothing of it: loaded, used, unloaded, outlived.
#include "tests/support/certificate.h"
#include "tests/support/pgcluster.h"

#include <QtCore/QFile>
#include <QtCore/QJsonArray>
#include <QtCore/QJsonObject>
#include <QtCore/QLibrary>
#include <QtCore/QPluginLoader>
#include <QtSql/QSqlDriverPlugin>
#include <QtTest/QtTest>

#include <memory>

#include <dlfcn.h>

namespace {

QList<QtMsgType> messageTypes;
QStringList messages;
QStringList contexts;

void keepMessage(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    messageTypes += type;
    messages += message;
    contexts += QStringLiteral("%1 %2 %3 %4")
                    .arg(QString::fromLatin1(context.category ? context.category : "none"),
                         context.file ? QStringLiteral("file") : QStringLiteral("-"),
                         QString::number(context.line),
                         context.function ? QStringLiteral("function") : QStringLiteral("-"));
}

} // namespace

class tst_Load : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void metadata();
    void metadataOfTheBuild();
    void oneInstance();
    void instanceFunctionHandsOutOneObject();
    void metadataFunction();
    void loadMessage();
    void nothingButTheLoadMessageIsLogged();
    void driverOfKey_data();
    void driverOfKey();
    void stockProgram();
    void programWithSystemLibpq();
    void programOnSystemJemalloc();
    void programOfTheReadme();
    void threadsBehindTheFirstUseOfTheList();
    void unloadedBeforeItsThreadEnds_data();
    void unloadedBeforeItsThreadEnds();
    void staysMappedAfterUnload();
    void mallocStaysTheProcess();

private:
    // Runs a host and tells what it said, "" if all went well.
    QString run(const char *host, const QStringList &arguments,
                const QStringList &environment = QStringList());
    QStringList socket(const QString &options = QString()) const
    {
        return {cluster.socketDir(), QString::number(cluster.port()), options};
    }

    PgCluster cluster;
};

void tst_Load::initTestCase()
{
    QVERIFY2(cluster.start(), qPrintable(cluster.why()));
    // TLS, which leaves handlers for the end of a thread behind.
    const Certificate made = makeSelfSigned();
    cluster.writeFile(QStringLiteral("server.crt"), made.certificate);
    cluster.writeFile(QStringLiteral("server.key"), made.key);
    cluster.run(QStringLiteral("ALTER SYSTEM SET ssl = on"));
    cluster.reload();
    QCOMPARE(cluster.value(QStringLiteral("SHOW ssl")), QStringLiteral("on"));
}

QString tst_Load::run(const char *host, const QStringList &arguments,
                      const QStringList &environment)
{
    QProcess process;
    QProcessEnvironment variables = QProcessEnvironment::systemEnvironment();
    for (const QString &variable : environment) {
        variables.insert(variable.section(QLatin1Char('='), 0, 0),
                         variable.section(QLatin1Char('='), 1));
    }
    process.setProcessEnvironment(variables);
    process.start(QString::fromLocal8Bit(host), arguments);
    if (!process.waitForFinished(60000)) {
        process.kill();
        process.waitForFinished();
        return QStringLiteral("does not end");
    }
    if (process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0) {
        return QString();
    }
    return QStringLiteral("status %1: ").arg(process.exitCode()) +
           QString::fromUtf8(process.readAllStandardError());
}

void tst_Load::metadata()
{
    const QJsonObject metadata = QPluginLoader(QStringLiteral(DORVY_PLUGIN)).metaData();
    QCOMPARE(metadata.value(QStringLiteral("IID")).toString(),
             QStringLiteral("org.qt-project.Qt.QSqlDriverFactoryInterface"));
    QCOMPARE(metadata.value(QStringLiteral("className")).toString(),
             QStringLiteral("DORVYDriverPlugin"));
    const QJsonObject own = metadata.value(QStringLiteral("MetaData")).toObject();
    QCOMPARE(own.keys(), QStringList{QStringLiteral("Keys")});
    QCOMPARE(
        own.value(QStringLiteral("Keys")).toArray(),
        QJsonArray({QStringLiteral("QPSQL7"), QStringLiteral("QPSQL"), QStringLiteral("DORVY")}));
}

void tst_Load::metadataOfTheBuild()
{
    const QJsonObject metadata = QPluginLoader(QStringLiteral(DORVY_PLUGIN)).metaData();
    // Qt writes the version without its last part.
    QCOMPARE(metadata.value(QStringLiteral("version")).toInt(),
             QT_VERSION_CHECK(QT_VERSION_MAJOR, QT_VERSION_MINOR, 0));
#ifdef QT_NO_DEBUG
    const bool debug = false;
#else
    const bool debug = true;
#endif
    QCOMPARE(metadata.value(QStringLiteral("debug")), QJsonValue(debug));
}

void tst_Load::oneInstance()
{
    QPluginLoader first(QStringLiteral(DORVY_PLUGIN));
    QPluginLoader second(QStringLiteral(DORVY_PLUGIN));
    QVERIFY2(first.instance(), qPrintable(first.errorString()));
    QCOMPARE(first.instance(), second.instance());
    QCOMPARE(first.instance()->parent(), nullptr);
    QCOMPARE(QByteArray(first.instance()->metaObject()->className()),
             QByteArray("DORVYDriverPlugin"));
    second.unload();
    first.unload();
}

void tst_Load::instanceFunctionHandsOutOneObject()
{
    QLibrary library(QStringLiteral(DORVY_PLUGIN));
    const auto instance = reinterpret_cast<QObject *(*)()>(library.resolve("qt_plugin_instance"));
    QVERIFY2(instance, qPrintable(library.errorString()));
    std::unique_ptr<QObject> first(instance());
    QVERIFY(qobject_cast<QSqlDriverPlugin *>(first.get()));
    QVERIFY(!first->parent());
    QCOMPARE(instance(), first.get());
    first.reset(); // which ends its time as the one object
    std::unique_ptr<QObject> second(instance());
    QVERIFY(qobject_cast<QSqlDriverPlugin *>(second.get()));
    QCOMPARE(instance(), second.get());
    second.reset();
    library.unload();
}

void tst_Load::metadataFunction()
{
    QLibrary library(QStringLiteral(DORVY_PLUGIN));
    const auto query =
        reinterpret_cast<const char *(*)()>(library.resolve("qt_plugin_query_metadata"));
    QVERIFY2(query, qPrintable(library.errorString()));
    QCOMPARE(QByteArray(query(), 10), QByteArray("QTMETADATA"));
    library.unload();
}

void tst_Load::loadMessage()
{
    messages.clear();
    QPluginLoader loader(QStringLiteral(DORVY_PLUGIN));
    const QtMessageHandler before = qInstallMessageHandler(keepMessage);
    loader.instance();
    loader.instance();
    qInstallMessageHandler(before);
    loader.unload();
    QCOMPARE(messages, QStringList{QStringLiteral("DORVY plugin loaded")});
    QCOMPARE(messageTypes, QList<QtMsgType>{QtInfoMsg});
    QCOMPARE(contexts, QStringList{QStringLiteral("default - 0 -")});
}

void tst_Load::nothingButTheLoadMessageIsLogged()
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(QStringLiteral(DORVY_HOST), QStringList{QStringLiteral("query")} + socket());
    QVERIFY(process.waitForFinished(60000));
    QCOMPARE(process.exitCode(), 0);
    QCOMPARE(process.readAll(), QByteArray("DORVY plugin loaded\n"));
}

void tst_Load::driverOfKey_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QByteArray>("driver");
    QTest::newRow("its own key") << QStringLiteral("DORVY") << QByteArray("DorvyDriver\n");
    QTest::newRow("Qt's key of PostgreSQL")
        << QStringLiteral("QPSQL") << QByteArray("DorvyDriver\n");
    QTest::newRow("announced, but without a driver")
        << QStringLiteral("QPSQL7") << QByteArray("none\n");
    QTest::newRow("lower case") << QStringLiteral("dorvy") << QByteArray("none\n");
    QTest::newRow("not announced") << QStringLiteral("QPSQL8") << QByteArray("none\n");
}

void tst_Load::driverOfKey()
{
    QFETCH(QString, key);
    QFETCH(QByteArray, driver);
    QProcess process;
    process.start(QStringLiteral(DORVY_HOST), {QStringLiteral("driver"), key});
    QVERIFY(process.waitForFinished(60000));
    QCOMPARE(process.readAllStandardOutput(), driver);
    const QByteArray said = process.readAllStandardError();
    // What is announced, in whatever case, is loaded, and only then gives no driver.
    QCOMPARE(said.contains("DORVY plugin loaded"), key != QLatin1String("QPSQL8"));
    QCOMPARE(said.contains("driver not loaded"), driver == "none\n");
}

void tst_Load::stockProgram()
{
    QCOMPARE(run(DORVY_HOST, QStringList{QStringLiteral("query")} + socket()), QString());
}

void tst_Load::programWithSystemLibpq()
{
    QCOMPARE(run(DORVY_HOST_LIBPQ, QStringList{QStringLiteral("query")} + socket()), QString());
}

void tst_Load::programOnSystemJemalloc()
{
    if (QByteArray(DORVY_SANITIZE).size()) {
        QSKIP("a sanitizer's run-time library must be the first that is loaded");
    }
    const QStringList preload{QStringLiteral("LD_PRELOAD=libjemalloc.so.2")};
    QCOMPARE(run(DORVY_HOST, QStringList{QStringLiteral("query")} + socket(), preload), QString());
}

void tst_Load::programOfTheReadme()
{
    QProcess process;
    QProcessEnvironment variables = QProcessEnvironment::systemEnvironment();
    variables.insert(QStringLiteral("PGPORT"), QString::number(cluster.port()));
    variables.insert(QStringLiteral("PGUSER"), cluster.user());
    process.setProcessEnvironment(variables);
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(QStringLiteral(DORVY_README), QStringList());
    QVERIFY(process.waitForFinished(60000));
    const QStringList lines =
        QString::fromUtf8(process.readAll()).trimmed().split(QLatin1Char('\n'));
    QCOMPARE(process.exitCode(), 0);
    QCOMPARE(lines.value(0), QStringLiteral("DORVY plugin loaded"));
    QVERIFY(lines.value(1).startsWith(QStringLiteral("\"pg_aggregate\" ")));
    QVERIFY(lines.size() > 10);
}

// Without that use one process in three hundred never ended; so a loss of it shows in some runs only.
void tst_Load::threadsBehindTheFirstUseOfTheList()
{
    constexpr int Processes = 60;
    const QStringList arguments{QStringLiteral("threads"), cluster.socketDir(),
                                QString::number(cluster.port()), QStringLiteral("4")};
    for (int process = 0; process < Processes; ++process) {
        QCOMPARE(run(DORVY_HOST, arguments), QString());
    }
}

void tst_Load::unloadedBeforeItsThreadEnds_data()
{
    QTest::addColumn<QString>("host");
    QTest::addColumn<QString>("options");
    QTest::newRow("socket") << cluster.socketDir() << QString();
    QTest::newRow("TLS") << QStringLiteral("127.0.0.1") << QStringLiteral("sslmode=require");
}

void tst_Load::unloadedBeforeItsThreadEnds()
{
    QFETCH(QString, host);
    QFETCH(QString, options);
    QCOMPARE(run(DORVY_HOST, {QStringLiteral("thread"), QStringLiteral(DORVY_PLUGIN), host,
                              QString::number(cluster.port()), options}),
             QString());
}

void tst_Load::staysMappedAfterUnload()
{
    QPluginLoader loader(QStringLiteral(DORVY_PLUGIN));
    loader.setLoadHints(QLibrary::LoadHints()); // Qt's own hint would keep it
    QVERIFY(loader.instance());
    QVERIFY(loader.unload());
    for (const char *library : {DORVY_PLUGIN, DORVY_BUNDLED_JEMALLOC}) {
        void *handle = dlopen(library, RTLD_NOLOAD | RTLD_LAZY);
        QVERIFY2(handle, library);
        dlclose(handle);
    }
}

void tst_Load::mallocStaysTheProcess()
{
    void *before = dlsym(RTLD_DEFAULT, "malloc");
    QPluginLoader loader(QStringLiteral(DORVY_PLUGIN));
    QVERIFY(loader.instance());
    QCOMPARE(dlsym(RTLD_DEFAULT, "malloc"), before);
}

QTEST_GUILESS_MAIN(tst_Load)
#include "tst_load.moc"
