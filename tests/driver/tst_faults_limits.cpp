// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// What the driver says when the server refuses for want of places, time, room or rights.
#include "tests/driver/behaviour.h"
#include "tests/support/libpqowners.h"
#include "tests/support/namespaces.h"

#include <vector>

#include <pwd.h>
#include <sys/mount.h>

namespace {

constexpr char ConnectFailed[] = "Ошибка при установке соединения с СУБД";

// Memory in place of what this program and its server see under /srv, and nobody else: it is gone
// with the two, whatever way they end.
bool hlpMountSmallDisk()
{
    // PgCluster's server runs as nobody when the tests run as root.
    const passwd *nobody = getpwnam("nobody");
    const uid_t owner = geteuid() == 0 && nobody ? nobody->pw_uid : geteuid();
    const QByteArray options = "size=1m,mode=700,uid=" + QByteArray::number(owner);
    return enterNamespace(CLONE_NEWNS, owner) &&
           mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("dorvy", "/srv", "tmpfs", MS_NOSUID | MS_NODEV, options.constData()) == 0;
}

QString hlpCopyRefused(int major)
{
    if (major >= 16) {
        return "permission denied to COPY to a file";
    }
    if (major < 11) {
        return "must be superuser to COPY to or from a file";
    }
    return major == 15 ? "must be superuser or have privileges of the pg_write_server_files role "
                         "to COPY to a file"
                       : "must be superuser or a member of the pg_write_server_files role to COPY "
                         "to a file";
}

} // namespace

class tst_FaultsLimits : public QObject, private Behaviour
{
    Q_OBJECT

public:
    // As long as this is the program's only thread; Qt Test has another.
    tst_FaultsLimits()
        : mounted(hlpMountSmallDisk())
    {
    }

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void serverWithoutAPlace();
    void serverWithoutAPlaceForTheDatabase();

    void statementTimeoutInTheFirstPage();
    void statementTimeoutInALaterPage();
    void statementTimeoutCountsEachPage();
    void statementTimeoutInACommand();
    void lockTimeoutInALaterPage();
    void idleTransactionIsEndedHalfRead();
    void idleTransactionIsEndedBeforeCommit();
    void spareIsNotInATransaction();

    void commandOnAFullDisk();
    void readOnAFullDisk();
    void readOverTheLimitOfTemporaryFiles();

    void privilegesAreAskedWhenRun_data();
    void privilegesAreAskedWhenRun();
    void schemaIsAskedWhenPrepared();
    void commandInAReadOnlyTransaction();
    void passwordThatHasExpired();
    void roleThatIsGone();

private:
    bool openAs(const QString &user, const QString &options = QString());
    bool openWith(const QString &options) { return openAs("dorvy", options); }
    void fillServer();
    void emptyServer();
    QString socketSays(const QString &message) const;
    void worksAndKeeps();

    const bool mounted;
    std::vector<RawConnectionPtr> fillers;
};

void tst_FaultsLimits::initTestCase()
{
    QVERIFY2(mounted, "no right to mount: run this as root, or allow user namespaces");
    QVERIFY2(start(), qPrintable(cluster.why()));
    cluster.run("CREATE TABLESPACE small LOCATION '/srv'");
    cluster.run("CREATE ROLE clerk LOGIN");
    cluster.run("CREATE ROLE guest LOGIN PASSWORD 'secret' IN ROLE passworded");
}

void tst_FaultsLimits::init()
{
    QVERIFY(openAnew("CREATE TABLE kept AS SELECT 'committed'::text AS a; "
                     "GRANT ALL ON kept TO PUBLIC; "
                     "CREATE TABLE numbers AS SELECT generate_series(1, 300) AS a"));
}

void tst_FaultsLimits::cleanup()
{
    emptyServer();
    QSqlDatabase::removeDatabase("locker");
    closeForGood();
}

bool tst_FaultsLimits::openAs(const QString &user, const QString &options)
{
    db.close();
    db.setUserName(user);
    db.setConnectOptions(options.isEmpty() ? QString() : "options='" + options + "'");
    return db.open();
}

// Takes all places that the server has.
void tst_FaultsLimits::fillServer()
{
    do {
        fillers.emplace_back(PQconnectdb(cluster.conninfo().constData()));
    } while (PQstatus(fillers.back().get()) == CONNECTION_OK);
    fillers.pop_back();
}

// A place is free a moment after its client has gone.
void tst_FaultsLimits::emptyServer()
{
    if (fillers.empty()) {
        return;
    }
    fillers.resize(1);
    const char *others = "SELECT 1 FROM pg_stat_activity WHERE datname = 'postgres' "
                         "AND application_name = '' AND pid <> pg_backend_pid()";
    int left = 1;
    while (left > 0) {
        const ResultPtr result(PQexec(fillers.front().get(), others));
        left = PQntuples(result.get()) - 2; // the driver's own
    }
    fillers.clear();
}

// How libpq tells what the server has said instead of letting one in.
QString tst_FaultsLimits::socketSays(const QString &message) const
{
    return QString("connection to server on socket \"%1/.s.PGSQL.%2\" failed: %3\n")
        .arg(cluster.socketDir())
        .arg(cluster.port())
        .arg(message);
}

// The own connection is unharmed, a new one is no worse, and what was committed is there.
void tst_FaultsLimits::worksAndKeeps()
{
    QVERIFY(QSqlQuery(db).exec("INSERT INTO kept VALUES ('afterwards')"));
    QVERIFY(openAs("dorvy"));
    QSqlQuery query(db);
    QVERIFY(query.exec("SELECT string_agg(a, ',') FROM kept"));
    QVERIFY(query.next());
    QCOMPARE(query.value(0).toString(), QString("committed,afterwards"));
}

void tst_FaultsLimits::serverWithoutAPlace()
{
    QSqlQuery query(db);
    fillServer();
    QVERIFY(!query.exec("SELECT a FROM kept"));
    COMPARE_TEXTS(query.lastError(), socketSays("FATAL:  sorry, too many clients already").toUtf8(),
                  ConnectFailed);
    QCOMPARE(query.lastError().type(), QSqlError::ConnectionError);
    QVERIFY(db.transaction()); // the own connection has its place
    QVERIFY(query.exec("INSERT INTO numbers VALUES (301)"));
    QVERIFY(db.commit());
    fillers.pop_back();
    QTRY_VERIFY(query.exec("SELECT a FROM kept"));
    query.clear();
    emptyServer();
    worksAndKeeps();
}

void tst_FaultsLimits::serverWithoutAPlaceForTheDatabase()
{
    db.close();
    fillServer();
    QVERIFY(!db.open());
    COMPARE_TEXTS(db.lastError(), socketSays("FATAL:  sorry, too many clients already").toUtf8(),
                  ConnectFailed);
    QCOMPARE(db.lastError().type(), QSqlError::ConnectionError);
    fillers.pop_back();
    QTRY_VERIFY(db.isOpen() || db.open()); // asked once more in the end
    emptyServer();
    worksAndKeeps();
}

void tst_FaultsLimits::statementTimeoutInTheFirstPage()
{
    QVERIFY(openWith("-c statement_timeout=500ms"));
    QSqlQuery query(db);
    QVERIFY(!query.exec("SELECT pg_sleep(600)::text"));
    COMPARE_TEXTS(query.lastError(), "ERROR:  canceling statement due to statement timeout\n",
                  ExecuteFailed);
    QCOMPARE(query.lastError().type(), QSqlError::StatementError);
    query.clear(); // rolls the borrowed connection's transaction back
    QVERIFY(query.exec("SELECT a FROM kept"));
    worksAndKeeps();
}

void tst_FaultsLimits::statementTimeoutInALaterPage()
{
    QVERIFY(openWith("-c statement_timeout=500ms"));
    QSqlQuery query(db);
    QVERIFY(query.exec("SELECT a, CASE WHEN a = 200 THEN pg_sleep(600)::text END FROM numbers"));
    QVERIFY(query.last());
    QCOMPARE(query.value(0).toInt(), 128);
    QVERIFY(!query.next());
    COMPARE_TEXTS(query.lastError(), "ERROR:  canceling statement due to statement timeout\n",
                  ExecuteFailed);
    query.clear();
    QVERIFY(query.exec("SELECT a FROM kept"));
    worksAndKeeps();
}

void tst_FaultsLimits::statementTimeoutCountsEachPage()
{
    QVERIFY(openWith("-c statement_timeout=1s"));
    QSqlQuery query(db);
    QVERIFY(query.exec("SELECT a FROM numbers"));
    QVERIFY(query.last());
    QTest::qSleep(1200);
    QVERIFY(query.next());
    QCOMPARE(query.value(0).toInt(), 129);
    worksAndKeeps();
}

void tst_FaultsLimits::statementTimeoutInACommand()
{
    QVERIFY(openWith("-c statement_timeout=500ms"));
    QSqlQuery query(db);
    QVERIFY(db.transaction());
    QVERIFY(query.exec("INSERT INTO kept VALUES ('lost')"));
    QVERIFY(!query.exec("DO 'BEGIN PERFORM pg_sleep(600); END'"));
    QCOMPARE(serversWords(query), QString("ERROR:  canceling statement due to statement timeout"));
    QVERIFY(!db.commit());
    COMPARE_TEXTS(db.lastError(), "Невозможно завершить транзакцию",
                  "Текущее состояние соединения запрещает завершение транзакции");
    QVERIFY(db.rollback());
    worksAndKeeps();
}

void tst_FaultsLimits::lockTimeoutInALaterPage()
{
    QSqlDatabase locker = another("locker");
    QVERIFY(locker.open());
    QVERIFY(locker.transaction());
    QVERIFY(QSqlQuery(locker).exec("UPDATE numbers SET a = a WHERE a = 200"));

    QVERIFY(openWith("-c lock_timeout=200ms"));
    QSqlQuery query(db);
    QVERIFY(query.exec("SELECT a FROM numbers FOR UPDATE"));
    QVERIFY(query.last());
    QCOMPARE(query.value(0).toInt(), 128);
    QVERIFY(!query.next());
    QCOMPARE(serversWords(query), QString("ERROR:  canceling statement due to lock timeout"));
    QCOMPARE(query.lastError().databaseText(), QString(ExecuteFailed));
    QVERIFY(locker.rollback());
    query.clear();
    QVERIFY(query.exec("SELECT a FROM numbers FOR UPDATE"));
    worksAndKeeps();
}

void tst_FaultsLimits::idleTransactionIsEndedHalfRead()
{
    QVERIFY(openWith("-c idle_in_transaction_session_timeout=1s"));
    QSqlQuery query(db);
    QVERIFY(query.exec("SELECT a, pg_backend_pid() FROM numbers"));
    QVERIFY(query.last());
    const QString borrowed = query.value(1).toString();
    QTRY_COMPARE(cluster.value("SELECT count(*) FROM pg_stat_activity WHERE pid = " + borrowed),
                 QString("0"));
    QVERIFY(!query.next());
    QCOMPARE(serversWords(query),
             QString("FATAL:  terminating connection due to idle-in-transaction timeout"));
    QCOMPARE(query.lastError().databaseText(), QString(ExecuteFailed));
    query.clear();
    QVERIFY(query.exec("SELECT a FROM kept")); // by another connection
    worksAndKeeps();
}

void tst_FaultsLimits::idleTransactionIsEndedBeforeCommit()
{
    QVERIFY(openWith("-c idle_in_transaction_session_timeout=1s -c application_name=idle"));
    QVERIFY(db.transaction());
    QSqlQuery query(db);
    QVERIFY(query.exec("INSERT INTO kept VALUES ('lost')"));
    QTRY_COMPARE(
        cluster.value("SELECT count(*) FROM pg_stat_activity WHERE application_name = 'idle'"),
        QString("0"));
    QVERIFY(!db.commit());
    COMPARE_TEXTS(db.lastError(), "Ошибка при попытке завершить транзакцию",
                  "server closed the connection unexpectedly\n"
                  "\tThis probably means the server terminated abnormally\n"
                  "\tbefore or while processing the request.\n");
    QVERIFY(!db.isOpen());
    QVERIFY(db.open());
    worksAndKeeps();
}

void tst_FaultsLimits::spareIsNotInATransaction()
{
    QVERIFY(openWith("-c idle_in_transaction_session_timeout=1s"));
    QSqlQuery query(db);
    QVERIFY(query.exec("SELECT pg_backend_pid()"));
    QVERIFY(query.next());
    const int borrowed = query.value(0).toInt();
    query.clear();
    QTest::qSleep(1500);
    QVERIFY(query.exec("SELECT pg_backend_pid()"));
    QVERIFY(query.next());
    QCOMPARE(query.value(0).toInt(), borrowed);
    query.clear();
    worksAndKeeps();
}

void tst_FaultsLimits::commandOnAFullDisk()
{
    QSqlQuery query(db);
    QVERIFY(query.exec("CREATE TABLE filler TABLESPACE small AS "
                       "SELECT repeat('x', 1000) FROM generate_series(1, 500)"));
    QVERIFY(query.exec("CREATE TABLE t (a text) TABLESPACE small"));
    QVERIFY(query.exec("INSERT INTO t VALUES ('committed')"));
    QVERIFY(db.transaction());
    QVERIFY(query.exec("INSERT INTO t VALUES ('lost')"));
    QVERIFY(!query.exec("INSERT INTO t SELECT repeat('x', 1000) FROM generate_series(1, 5000)"));
    const QString words = serversWords(query);
    QVERIFY2(words.startsWith("ERROR:  could not extend file \"pg_tblspc/"), qPrintable(words));
    QCOMPARE(query.lastError().databaseText(), QString(ExecuteFailed));
    QVERIFY(!db.commit());
    QVERIFY(db.rollback());
    QCOMPARE(cluster.run("SELECT a FROM t"), QStringList{"committed"});

    QVERIFY(query.exec("DROP TABLE filler")); // makes room
    QVERIFY(query.exec("INSERT INTO t SELECT repeat('x', 1000) FROM generate_series(1, 100)"));
    worksAndKeeps();
}

void tst_FaultsLimits::readOnAFullDisk()
{
    QVERIFY(openWith("-c temp_tablespaces=small -c work_mem=64kB"));
    QSqlQuery query(db);
    QVERIFY(!query.exec("SELECT repeat('x', 1000) || g FROM generate_series(1, 5000) g "
                        "ORDER BY 1 DESC"));
    const QString words = serversWords(query);
    QVERIFY2(words.startsWith("ERROR:  could not write"), qPrintable(words));
    QVERIFY2(words.endsWith("No space left on device"), qPrintable(words));
    QCOMPARE(query.lastError().databaseText(), QString(ExecuteFailed));
    query.clear(); // with the transaction its files go
    QVERIFY(query.exec("SELECT repeat('x', 1000) || g FROM generate_series(1, 500) g "
                       "ORDER BY 1 DESC"));
    worksAndKeeps();
}

void tst_FaultsLimits::readOverTheLimitOfTemporaryFiles()
{
    QVERIFY(openWith("-c temp_file_limit=100kB -c work_mem=64kB"));
    QSqlQuery query(db);
    QVERIFY(!query.exec("SELECT repeat('x', 1000) || g FROM generate_series(1, 5000) g "
                        "ORDER BY 1 DESC"));
    QCOMPARE(serversWords(query).remove('"'), // newer servers quote the setting
             QString("ERROR:  temporary file size exceeds temp_file_limit (100kB)"));
    QCOMPARE(query.lastError().databaseText(), QString(ExecuteFailed));
    query.clear();
    QVERIFY(query.exec("SELECT a FROM kept"));
    worksAndKeeps();
}

void tst_FaultsLimits::privilegesAreAskedWhenRun_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("words");
    const int major = cluster.major();
    const QString kind = major < 11 ? "relation" : "table";
    QTest::newRow("reading") << "SELECT a FROM numbers"
                             << "permission denied for " + kind + " numbers";
    QTest::newRow("inserting") << "INSERT INTO numbers VALUES (1)"
                               << "permission denied for " + kind + " numbers";
    QTest::newRow("updating") << "UPDATE numbers SET a = 1"
                              << "permission denied for " + kind + " numbers";
    QTest::newRow("writing a file") << "COPY kept TO '/srv/kept'" << hlpCopyRefused(major);
}

void tst_FaultsLimits::privilegesAreAskedWhenRun()
{
    QFETCH(QString, text);
    QFETCH(QString, words);
    QVERIFY(openAs("clerk"));
    QSqlQuery query(db);
    QVERIFY(query.prepare(text));
    QVERIFY(!query.exec());
    QCOMPARE(serversWords(query), "ERROR:  " + words);
    QCOMPARE(query.lastError().databaseText(), QString(ExecuteFailed));
    QCOMPARE(query.lastError().type(), QSqlError::StatementError);
    query.clear();
    QVERIFY(query.exec("SELECT a FROM kept"));
    worksAndKeeps();
}

void tst_FaultsLimits::schemaIsAskedWhenPrepared()
{
    cluster.run("CREATE SCHEMA vault; CREATE TABLE vault.t (a int); GRANT ALL ON vault.t TO clerk");
    QVERIFY(openAs("clerk"));
    QSqlQuery query(db);
    QVERIFY(!query.prepare("SELECT a FROM vault.t"));
    QCOMPARE(serversWords(query), QString("ERROR:  permission denied for schema vault"));
    QCOMPARE(query.lastError().databaseText(), QString(PrepareFailed));
    QVERIFY(query.exec("SELECT a FROM kept")); // nothing was borrowed for it
    worksAndKeeps();
}

void tst_FaultsLimits::commandInAReadOnlyTransaction()
{
    QVERIFY(openWith("-c default_transaction_read_only=on"));
    QSqlQuery query(db);
    QVERIFY(!query.exec("INSERT INTO kept VALUES ('lost')"));
    COMPARE_TEXTS(query.lastError(), "ERROR:  cannot execute INSERT in a read-only transaction\n",
                  ExecuteFailed);
    QVERIFY(query.exec("SELECT a FROM kept"));
    QVERIFY(query.exec("SET default_transaction_read_only = off"));
    worksAndKeeps();
}

void tst_FaultsLimits::passwordThatHasExpired()
{
    db.setPassword("secret");
    cluster.run("ALTER ROLE guest VALID UNTIL 'infinity'");
    QVERIFY(openAs("guest"));
    cluster.run("ALTER ROLE guest VALID UNTIL '2000-01-01'");
    QSqlQuery query(db);
    QVERIFY(!query.exec("SELECT a FROM kept"));
    COMPARE_TEXTS(query.lastError(),
                  socketSays("FATAL:  password authentication failed for user \"guest\"").toUtf8(),
                  ConnectFailed);
    QCOMPARE(query.lastError().type(), QSqlError::ConnectionError);

    cluster.run("ALTER ROLE guest VALID UNTIL 'infinity'");
    QVERIFY(query.exec("SELECT a FROM kept"));
    query.clear();
    cluster.run("ALTER ROLE guest VALID UNTIL '2000-01-01'");
    QVERIFY(query.exec("SELECT a FROM kept")); // the spare has been let in
    worksAndKeeps();
}

void tst_FaultsLimits::roleThatIsGone()
{
    cluster.run("CREATE ROLE leaver LOGIN");
    QVERIFY(openAs("leaver"));
    cluster.run("DROP ROLE leaver");
    QSqlQuery query(db);
    QVERIFY(!query.exec("SELECT a FROM kept"));
    COMPARE_TEXTS(query.lastError(), socketSays("FATAL:  role \"leaver\" does not exist").toUtf8(),
                  ConnectFailed);
    QVERIFY(!db.lastError().isValid());
    worksAndKeeps();
}

QTEST_GUILESS_MAIN(tst_FaultsLimits)
#include "tst_faults_limits.moc"
