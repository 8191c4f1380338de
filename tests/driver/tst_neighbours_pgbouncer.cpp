// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Through PgBouncer with session pooling: each of the driver's connections has one of the server's. And
// with transaction pooling, which takes the statements from under a connection.
#include "tests/driver/behaviour.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QProcess>

#include <unistd.h>

namespace {

constexpr int BouncerPort = 6432; // of a Unix socket in a private folder, so that it is always free

} // namespace

class tst_NeighboursPgbouncer : public QObject, private Behaviour
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void cleanup()
    {
        QSqlDatabase::removeDatabase("other");
        closeForGood();
    }

    void readsOverSeveralPages();
    void transactions();
    void preparedInserts();
    void errors();
    void twoDatabases();
    void closedAndOpenedAgain();
    void settingsDoNotOutliveASession();
    void serverConnectionThatDies();
    void poolOfOneConnectionHasNoneForReads();
    void optionsThatPgbouncerDoesNotKnow();
    void transactionPoolingLosesStatements();
    void transactionPoolingLosesSettings();

private:
    bool startBouncer();
    QSqlDatabase through(const QString &name, const QString &database) const;

    QString folder;
    QProcess bouncer;
};

// Its folder goes with the server's, and its process with this one, whatever way this one ends.
bool tst_NeighboursPgbouncer::startBouncer()
{
    folder = cluster.socketDir() + "/bouncer";
    const QString ini = QString("[databases]\n"
                                "postgres = host=%1 port=%2\n"
                                "narrow = host=%1 port=%2 dbname=postgres pool_size=1\n"
                                "transact = host=%1 port=%2 dbname=postgres "
                                "pool_mode=transaction\n"
                                "[pgbouncer]\n"
                                "pool_mode = session\n"
                                "unix_socket_dir = %3\n"
                                "listen_port = %4\n"
                                "auth_type = trust\n"
                                "auth_file = %3/users\n"
                                "query_wait_timeout = 3\n")
                            .arg(cluster.socketDir())
                            .arg(cluster.port())
                            .arg(folder)
                            .arg(BouncerPort);
    const auto write = [this](const QString &name, const QString &text) {
        QFile file(folder + '/' + name);
        return file.open(QIODevice::WriteOnly) && file.write(text.toUtf8()) >= 0;
    };
    if (!QDir().mkpath(folder) || !write("pgbouncer.ini", ini) ||
        !write("users", "\"dorvy\" \"\"")) {
        return false;
    }
    QStringList command{"--pdeathsig", "TERM"};
    if (geteuid() == 0) { // it refuses to run as root
        QFile::setPermissions(folder, QFile::permissions(folder) | QFile::WriteOther);
        command += {"--reuid=nobody", "--regid=nogroup", "--clear-groups"};
    }
    bouncer.setProcessChannelMode(QProcess::MergedChannels);
    bouncer.start("setpriv",
                  command + QStringList{"pgbouncer", "--quiet", folder + "/pgbouncer.ini"});
    return bouncer.waitForStarted();
}

QSqlDatabase tst_NeighboursPgbouncer::through(const QString &name, const QString &database) const
{
    QSqlDatabase added = addDorvyDatabase(name, cluster, database, pool);
    added.setHostName(folder);
    added.setPort(BouncerPort);
    return added;
}

void tst_NeighboursPgbouncer::initTestCase()
{
    QVERIFY2(start(), qPrintable(cluster.why()));
    QVERIFY2(startBouncer(), qPrintable(bouncer.errorString()));
    const QString socket = QString("%1/.s.PGSQL.%2").arg(folder).arg(BouncerPort);
    QTRY_VERIFY2(QFile::exists(socket), bouncer.readAll().constData());
}

void tst_NeighboursPgbouncer::cleanupTestCase()
{
    bouncer.terminate();
    bouncer.waitForFinished();
}

void tst_NeighboursPgbouncer::init()
{
    QVERIFY(openAnew("CREATE TABLE t AS SELECT generate_series(1, 300) AS a"));
    db.close();
    db.setHostName(folder);
    db.setPort(BouncerPort);
    QTRY_VERIFY(db.isOpen() || db.open());
}

void tst_NeighboursPgbouncer::readsOverSeveralPages()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("SELECT a, repeat('x', 10000) FROM t ORDER BY a"));
    int row = 0;
    while (query.next()) {
        QCOMPARE(query.value(0).toInt(), ++row);
        QCOMPARE(query.value(1).toString().size(), 10000);
    }
    QCOMPARE(row, 300);
    QVERIFY(!query.lastError().isValid());
}

void tst_NeighboursPgbouncer::transactions()
{
    QSqlQuery query(db);
    QSqlQuery read(db);
    QVERIFY(db.transaction());
    QVERIFY(query.exec("INSERT INTO t VALUES (301)"));
    QVERIFY(read.exec("SELECT max(a) FROM t"));
    QVERIFY(read.next());
    QCOMPARE(read.value(0).toInt(), 300);
    QVERIFY(db.commit());
    QVERIFY(read.exec("SELECT max(a) FROM t"));
    QVERIFY(read.next());
    QCOMPARE(read.value(0).toInt(), 301);

    QVERIFY(db.transaction());
    QVERIFY(query.exec("DELETE FROM t"));
    QVERIFY(db.rollback());
    QCOMPARE(cluster.value("SELECT count(*) FROM t"), QString("301"));
}

void tst_NeighboursPgbouncer::preparedInserts()
{
    QSqlQuery query(db);
    QVERIFY(query.prepare("INSERT INTO t VALUES (?)"));
    for (int value = 301; value <= 310; ++value) {
        query.addBindValue(value);
        QVERIFY(query.exec());
        QCOMPARE(query.numRowsAffected(), 1);
    }
    QCOMPARE(cluster.value("SELECT sum(a) FROM t WHERE a > 300"), QString("3055"));
}

void tst_NeighboursPgbouncer::errors()
{
    QSqlQuery query(db);
    QVERIFY(!query.exec("SELECT a FROM nowhere"));
    QCOMPARE(serversWords(query), QString("ERROR:  relation \"nowhere\" does not exist"));
    QVERIFY(query.exec("SELECT 1 / (200 - a) FROM t"));
    QVERIFY(query.last());
    QVERIFY(!query.next());
    COMPARE_TEXTS(query.lastError(), "ERROR:  division by zero\n", ExecuteFailed);
    query.clear();
    QVERIFY(query.exec("SELECT a FROM t"));
}

void tst_NeighboursPgbouncer::twoDatabases()
{
    QSqlDatabase other = through("other", "postgres");
    QVERIFY(other.open());
    QSqlQuery query(db);
    QSqlQuery otherQuery(other);
    QVERIFY(db.transaction());
    QVERIFY(query.exec("INSERT INTO t VALUES (301)"));
    QVERIFY(otherQuery.exec("INSERT INTO t VALUES (302)"));
    QVERIFY(db.rollback());
    QVERIFY(query.exec("SELECT max(a), pg_backend_pid() FROM t"));
    QVERIFY(query.next());
    QCOMPARE(query.value(0).toInt(), 302);
    QVERIFY(otherQuery.exec("SELECT pg_backend_pid()"));
    QVERIFY(otherQuery.next());
    QVERIFY(otherQuery.value(0).toInt() != query.value(1).toInt());
}

void tst_NeighboursPgbouncer::closedAndOpenedAgain()
{
    for (int round = 1; round <= 5; ++round) {
        {
            QSqlQuery query(db);
            QVERIFY(query.exec("SELECT a FROM t"));
            QVERIFY(query.next()); // and no further
        }
        QVERIFY(db.transaction());
        QVERIFY(QSqlQuery(db).exec("DELETE FROM t"));
        db.close();
        QVERIFY(db.open());
    }
    QCOMPARE(cluster.value("SELECT count(*) FROM t"), QString("300"));
}

void tst_NeighboursPgbouncer::settingsDoNotOutliveASession()
{
    QVERIFY(QSqlQuery(db).exec("SET statement_timeout = '7s'"));
    db.close();
    QVERIFY(db.open()); // on the server's connection of before, after DISCARD ALL
    QVERIFY(QSqlQuery(db).exec("CREATE TABLE seen AS "
                               "SELECT current_setting('statement_timeout') AS a"));
    QCOMPARE(cluster.value("SELECT a FROM seen"), QString("0"));
}

void tst_NeighboursPgbouncer::serverConnectionThatDies()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("SELECT a, pg_backend_pid() FROM t"));
    QVERIFY(query.last());
    cluster.terminate(query.value(1).toInt());
    QVERIFY(!query.next());
    QCOMPARE(serversWords(query),
             QString("FATAL:  terminating connection due to administrator command"));
    query.clear();
    QVERIFY(query.exec("SELECT a FROM t"));
    QVERIFY(query.exec("INSERT INTO t VALUES (301)"));
}

// PgBouncer lets the second connection in and ends it when it has waited for one of the server's.
void tst_NeighboursPgbouncer::poolOfOneConnectionHasNoneForReads()
{
    QSqlDatabase narrow = through("other", "narrow");
    QTRY_VERIFY(narrow.isOpen() || narrow.open());
    QSqlQuery query(narrow);
    QVERIFY(query.exec("INSERT INTO t VALUES (301)"));
    QVERIFY(!query.exec("SELECT a FROM t"));
    COMPARE_TEXTS(query.lastError(), "Невозможно подготовить запрос",
                  "Отсутствует соединение с СУБД");
    QVERIFY(query.exec("INSERT INTO t VALUES (302)"));
    QCOMPARE(cluster.value("SELECT max(a) FROM t"), QString("302"));
}

void tst_NeighboursPgbouncer::optionsThatPgbouncerDoesNotKnow()
{
    db.close();
    db.setConnectOptions("options='-c geqo=off'");
    QVERIFY(!db.open());
    QVERIFY2(db.lastError().driverText().contains("FATAL:  unsupported startup parameter"),
             qPrintable(db.lastError().driverText()));
    QCOMPARE(db.lastError().databaseText(), QString("Ошибка при установке соединения с СУБД"));
}

// A statement is prepared on one of the server's connections and runs on another.
void tst_NeighboursPgbouncer::transactionPoolingLosesStatements()
{
    db.close();
    db.setDatabaseName("transact");
    QTRY_VERIFY(db.isOpen() || db.open());
    QSqlDatabase other = through("other", "transact");
    QVERIFY(other.open());
    QSqlQuery insert(db);
    QVERIFY(insert.prepare("INSERT INTO t VALUES (301)"));
    QVERIFY(insert.exec());       // as long as nobody else is there
    QVERIFY(other.transaction()); // takes the connection that has the statement
    QVERIFY(!insert.exec());
    QVERIFY2(insert.lastError().driverText().contains("does not exist"),
             qPrintable(insert.lastError().driverText()));
    QVERIFY(other.commit());
}

void tst_NeighboursPgbouncer::transactionPoolingLosesSettings()
{
    db.close();
    db.setDatabaseName("transact");
    QTRY_VERIFY(db.isOpen() || db.open());
    QSqlDatabase other = through("other", "transact");
    QVERIFY(other.open());
    QSqlQuery setting(db); // its close would still keep the server's connection busy
    QVERIFY(setting.exec("SET statement_timeout = '7s'"));
    QVERIFY(other.transaction()); // takes the connection that was used last
    QVERIFY(QSqlQuery(other).exec("CREATE TABLE seen AS "
                                  "SELECT current_setting('statement_timeout') AS a"));
    QVERIFY(other.commit());
    QCOMPARE(cluster.value("SELECT a FROM seen"), QString("7s"));
}

QTEST_GUILESS_MAIN(tst_NeighboursPgbouncer)
#include "tst_neighbours_pgbouncer.moc"
