// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Dorvy3Database: its connection string, opening and closing, and the borrowed connection's way
// back to the pool.
#include "access/dorvy3connection.h"
#include "access/dorvy3database.h"
#include "access/dorvy3statement.h"
#include "access/dorvy3transacted.h"

#include "tests/access/errorencodings.h"
#include "tests/support/connectionhelpers.h"
#include "tests/support/libpqcalls.h"
#include "tests/support/pgcluster.h"
#include "tests/support/sqlmacros.h"
#include "tests/support/testaccess.h"
#include "tests/support/textlines.h"
#include "tests/support/wireproxy.h"

#include <libpq-events.h>

#include <QtCore/QSharedPointer>
#include <QtCore/QStringList>
#include <QtCore/QTextCodec>
#include <QtCore/QWeakPointer>
#include <QtTest/QtTest>

#include <memory>
#include <thread>
#include <type_traits>
#include <vector>

namespace {

using StatementPtr = QSharedPointer<Dorvy3Statement>;
using Access = Dorvy3TestAccess;

/*! Whether a handle still holds its borrowed connection when an answer to the latter comes in. */
struct Answers
{
    const Dorvy3Database *handle;
    QStringList found;

    static int note(PGEventId event, void *info, void *answers)
    {
        if (event == PGEVT_RESULTCREATE) {
            auto *self = static_cast<Answers *>(answers);
            const auto *created = static_cast<PGEventResultCreate *>(info);
            self->found += QString::fromLatin1(PQcmdStatus(created->result)) +
                           (Access::readConnection(*self->handle) ? QStringLiteral(", held")
                                                                  : QStringLiteral(", given up"));
        }
        return 1;
    }
};

const char *const ServerVariables[] = {"PGHOST", "PGPORT", "PGUSER", "PGDATABASE"};

} // namespace

class tst_Dorvy3Database : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void quotesForTheConnectionString_data();
    void quotesForTheConnectionString();
    void connectionString_data();
    void connectionString();
    void emptyArgumentsMakeAnEmptyString();
    void portIsLeftOutAtMinusOneOnly_data();
    void portIsLeftOutAtMinusOneOnly();
    void optionsReachTheServer();
    void quotedValuesReachTheServer();
    void connectionStringGoesAsLatin1ButIsKeptWhole();
    void passwordOpens_data();
    void passwordOpens();
    void wrongPasswordIsRefused();

    void isAPlainMember();
    void keepsThePool();
    void startsClosed();
    void openSetsUpTheConnection();
    void openSetsTheSchema();
    void secondOpenDropsTheOldConnection();
    void secondOpenLeavesAHeldConnectionOpen();
    void secondOpenDropsTheBorrowedConnection();
    void failedSecondOpenLeavesClosed();
    void failedOpenTellsLibpqsMessage();
    void failedOpenFinishesTheHandle();
    void noHandleTellsNoMessage();
    void failedOpenIsReadAsCp1251();
    void isOpenSeesALostConnection();

    void closeForgetsEverything();
    void closeOfNeverOpenedLeavesThePool();
    void closeTwiceDropsOneSpare();
    void closeWithoutBorrowedDropsTheNewestSpare();
    void closeWithBorrowedFinishesIt();
    void closeFinishesTheOwnConnectionFirst();
    void closeFinishesBeforeItAsksThePool();
    void statementClearedAfterClose();
    void closeKeepsTheCount();
    void destructorCloses();

    void transactionsWithoutConnection_data();
    void transactionsWithoutConnection();
    void transactionsOnALostConnection_data();
    void transactionsOnALostConnection();
    void transactionsRunOnTheOwnConnection();
    void transactionErrorsComeUnchanged();

    void lastUnbindGivesBackTheBorrowed();
    void borrowedIsGivenUpBeforeThePoolHasIt();
    void unbindAboveZeroKeepsTheBorrowed();
    void unbindWithoutBorrowedPoolsNothing();
    void givenBackIsBorrowedAgain();
    void handlesShareSparesOfOneString();
    void boundCountIsAtomic();

    void errorOfNullHandle();
    void errorOfLiveHandleFollowsClientEncoding_data();
    void errorOfLiveHandleFollowsClientEncoding();

private:
    QSqlError open(const QString &database = QStringLiteral("postgres"),
                   const QString &schema = QString())
    {
        return handle->open(database, QStringLiteral("dorvy"), QString(), proxy->host(),
                            proxy->port(), QString(), schema);
    }
    StatementPtr select() { return handle->statement(QStringLiteral("SELECT 1"), nullptr); }
    QString key() const { return Access::connectionString(*handle); }
    QList<ConnectionPtr> spares(const QString &string) const
    {
        return Access::spares(*pool, string);
    }
    ConnectionPtr makeSpare(const QString &string);

    PgCluster cluster;
    std::unique_ptr<WireProxy> proxy;
    QSharedPointer<Dorvy3Transacted> pool;
    std::unique_ptr<Dorvy3Database> handle;
};

void tst_Dorvy3Database::initTestCase()
{
    QVERIFY2(cluster.start(), qPrintable(cluster.why()));
    cluster.createDatabase(QStringLiteral("db_win1251"), QStringLiteral("WIN1251"));
    cluster.createDatabase(QStringLiteral("db_sql_ascii"), QStringLiteral("SQL_ASCII"));
    cluster.createDatabase(QStringLiteral("\"????\""));
    cluster.createDatabase(QStringLiteral("\"it's a \\ base\""));
    cluster.run(QStringLiteral("CREATE SCHEMA one"));
    qunsetenv("PGCLIENTENCODING");
    qunsetenv("PGPASSWORD");
}

void tst_Dorvy3Database::init()
{
    proxy.reset(new WireProxy(cluster.socketDir(), cluster.port()));
    pool = QSharedPointer<Dorvy3Transacted>::create();
    handle.reset(new Dorvy3Database(pool));
}

void tst_Dorvy3Database::cleanup()
{
    handle.reset();
    pool.reset();
    proxy.reset();
    QTextCodec::setCodecForLocale(nullptr); // back to the environment's
    for (const char *name : ServerVariables) {
        qunsetenv(name);
    }
}

// A spare that was never this handle's.
ConnectionPtr tst_Dorvy3Database::makeSpare(const QString &string)
{
    const ConnectionPtr spare =
        pool->get(QString::fromUtf8(cluster.conninfo()), QString(), nullptr);
    pool->put(string, spare);
    return spare;
}

void tst_Dorvy3Database::quotesForTheConnectionString_data()
{
    QTest::addColumn<QString>("value");
    QTest::addColumn<QString>("quoted");
    QTest::newRow("empty") << QString() << QStringLiteral("''");
    QTest::newRow("plain") << QStringLiteral("base") << QStringLiteral("'base'");
    QTest::newRow("space") << QStringLiteral("a b") << QStringLiteral("'a b'");
    QTest::newRow("quote") << QStringLiteral("a'b") << QStringLiteral("'a\\'b'");
    QTest::newRow("backslash") << QStringLiteral("a\\b") << QStringLiteral("'a\\\\b'");
    QTest::newRow("backslash, quote") << QStringLiteral("a\\'b") << QStringLiteral("'a\\\\\\'b'");
    QTest::newRow("quote, backslash") << QStringLiteral("'\\") << QStringLiteral("'\\'\\\\'");
    QTest::newRow("two of each") << QStringLiteral("''\\\\") << QStringLiteral("'\\'\\'\\\\\\\\'");
    QTest::newRow("Russian") << QStringLiteral("база") << QStringLiteral("'база'");
    QTest::newRow("double quotes and percent stay")
        << QStringLiteral("\"%1\"") << QStringLiteral("'\"%1\"'");
}

void tst_Dorvy3Database::quotesForTheConnectionString()
{
    QFETCH(QString, value);
    QFETCH(QString, quoted);
    QCOMPARE(handle->hlpQuote(value), quoted);
}

void tst_Dorvy3Database::connectionString_data()
{
    QTest::addColumn<QString>("db");
    QTest::addColumn<QString>("user");
    QTest::addColumn<QString>("password");
    QTest::addColumn<QString>("host");
    QTest::addColumn<bool>("port");
    QTest::addColumn<QString>("options");
    QTest::addColumn<QString>("expected"); // PORT is the server's

    const QString none;
    const QString db = QStringLiteral("postgres");
    const QString user = QStringLiteral("dorvy");
    const QString host = QStringLiteral("127.0.0.1");
    QTest::newRow("everything")
        << db << user << QStringLiteral("a'b") << host << true
        << QStringLiteral("sslmode=disable;connect_timeout=5")
        << QStringLiteral("host='127.0.0.1' dbname='postgres' user='dorvy' password='a\\'b' "
                          "port='PORT' sslmode=disable connect_timeout=5");
    QTest::newRow("host alone") << none << none << none << host << false << none
                                << QStringLiteral("host='127.0.0.1'");
    QTest::newRow("database alone")
        << db << none << none << none << false << none << QStringLiteral("dbname='postgres'");
    QTest::newRow("user alone") << none << user << none << none << false << none
                                << QStringLiteral("user='dorvy'");
    QTest::newRow("password alone") << none << none << QStringLiteral("p w") << none << false
                                    << none << QStringLiteral("password='p w'");
    QTest::newRow("port alone") << none << none << none << none << true << none
                                << QStringLiteral("port='PORT'");
    QTest::newRow("options alone")
        << none << none << none << none << false << QStringLiteral("sslmode=disable")
        << QStringLiteral("sslmode=disable");
    QTest::newRow("no database") << none << user << none << host << true << none
                                 << QStringLiteral("host='127.0.0.1' user='dorvy' port='PORT'");
    QTest::newRow("no host, no port")
        << db << user << none << none << false << QStringLiteral("connect_timeout=5")
        << QStringLiteral("dbname='postgres' user='dorvy' connect_timeout=5");
    QTest::newRow("password of backslash and quote")
        << none << none << QStringLiteral("a\\'b") << none << false << none
        << QStringLiteral("password='a\\\\\\'b'");
    QTest::newRow("options follow the port unquoted")
        << none << none << none << none << true
        << QStringLiteral("sslmode=prefer;application_name=x")
        << QStringLiteral("port='PORT' sslmode=prefer application_name=x");
    QTest::newRow("every semicolon is one space")
        << none << none << none << none << false
        << QStringLiteral(";sslmode=disable;;application_name='a b';")
        << QStringLiteral(" sslmode=disable  application_name='a b' ");
}

void tst_Dorvy3Database::connectionString()
{
    QFETCH(QString, db);
    QFETCH(QString, user);
    QFETCH(QString, password);
    QFETCH(QString, host);
    QFETCH(bool, port);
    QFETCH(QString, options);
    QFETCH(QString, expected);
    const QByteArray number = QByteArray::number(cluster.port());
    // What is left out comes from the environment, so that every row connects.
    qputenv("PGHOST", cluster.socketDir().toLocal8Bit());
    qputenv("PGPORT", number);
    qputenv("PGUSER", "dorvy");
    qputenv("PGDATABASE", "postgres");
    VERIFY_NO_ERROR(
        handle->open(db, user, password, host, port ? cluster.port() : -1, options, QString()));
    QCOMPARE(Access::connectionString(*handle),
             expected.replace(QStringLiteral("PORT"), QString::fromLatin1(number)));
}

void tst_Dorvy3Database::emptyArgumentsMakeAnEmptyString()
{
    qputenv("PGHOST", proxy->host().toLatin1());
    qputenv("PGPORT", QByteArray::number(proxy->port()));
    qputenv("PGUSER", "dorvy");
    qputenv("PGDATABASE", "db_win1251");
    const LibpqCalls calls;
    VERIFY_NO_ERROR(
        handle->open(QString(), QString(), QString(), QString(), -1, QString(), QString()));
    QCOMPARE(calls.connected(), QList<QByteArray>({""}));
    QCOMPARE(Access::connectionString(*handle), QString());
    QVERIFY(handle->isOpen());
    QCOMPARE(proxy->frontend().first(), QStringLiteral("1> Startup dorvy db_win1251"));
}

void tst_Dorvy3Database::portIsLeftOutAtMinusOneOnly_data()
{
    QTest::addColumn<int>("port");
    QTest::addColumn<QByteArray>("string");
    QTest::addColumn<QString>("message");
    QTest::newRow("zero") << 0 << QByteArray("host='127.0.0.1' port='0'")
                          << QStringLiteral("invalid port number: \"0\"\n");
    QTest::newRow("minus two") << -2 << QByteArray("host='127.0.0.1' port='-2'")
                               << QStringLiteral("invalid port number: \"-2\"\n");
}

void tst_Dorvy3Database::portIsLeftOutAtMinusOneOnly()
{
    QFETCH(int, port);
    QFETCH(QByteArray, string);
    QFETCH(QString, message);
    const LibpqCalls calls;
    COMPARE_ERROR(
        handle->open(QString(), QString(), QString(), proxy->host(), port, QString(), QString()),
        ConnectionError, message, QStringLiteral("Ошибка при установке соединения с СУБД"),
        QString());
    QCOMPARE(calls.connected(), QList<QByteArray>({string}));
}

void tst_Dorvy3Database::optionsReachTheServer()
{
    VERIFY_NO_ERROR(handle->open(QStringLiteral("postgres"), QStringLiteral("dorvy"), QString(),
                                 proxy->host(), proxy->port(),
                                 QStringLiteral("sslmode=disable;application_name=x"), QString()));
    QCOMPARE(ask(Access::connection(*handle), "SHOW application_name"), QByteArray("x"));
}

void tst_Dorvy3Database::quotedValuesReachTheServer()
{
    VERIFY_NO_ERROR(open(QStringLiteral("it's a \\ base")));
    QCOMPARE(ask(Access::connection(*handle), "SELECT current_database()"),
             QByteArray("it's a \\ base"));
}

void tst_Dorvy3Database::connectionStringGoesAsLatin1ButIsKeptWhole()
{
    VERIFY_NO_ERROR(open(QStringLiteral("база")));
    QCOMPARE(proxy->frontend().first(), QStringLiteral("1> Startup dorvy ????"));
    QCOMPARE(
        Access::connectionString(*handle),
        QStringLiteral("host='127.0.0.1' dbname='база' user='dorvy' port='%1'").arg(proxy->port()));
}

void tst_Dorvy3Database::passwordOpens_data()
{
    QTest::addColumn<QString>("role");
    QTest::addColumn<QString>("literal");
    QTest::addColumn<QString>("password");
    QTest::newRow("plain") << QStringLiteral("plain") << QStringLiteral("secret")
                           << QStringLiteral("secret");
    QTest::newRow("a, backslash, quote, b")
        << QStringLiteral("quoted") << QStringLiteral("a\\''b") << QStringLiteral("a\\'b");
    QTest::newRow("spaces") << QStringLiteral("spaced") << QStringLiteral(" a = b ")
                            << QStringLiteral(" a = b ");
    QTest::newRow("backslash last")
        << QStringLiteral("slashed") << QStringLiteral("a\\") << QStringLiteral("a\\");
}

void tst_Dorvy3Database::passwordOpens()
{
    QFETCH(QString, role);
    QFETCH(QString, literal);
    QFETCH(QString, password);
    cluster.run(
        QStringLiteral("CREATE ROLE %1 LOGIN PASSWORD '%2' IN ROLE passworded").arg(role, literal));
    VERIFY_NO_ERROR(handle->open(QStringLiteral("postgres"), role, password, proxy->host(),
                                 proxy->port(), QString(), QString()));
    QCOMPARE(ask(Access::connection(*handle), "SELECT current_user"), role.toLatin1());
    QVERIFY(proxy->frontend().contains(QStringLiteral("1> Password")));
}

void tst_Dorvy3Database::wrongPasswordIsRefused()
{
    cluster.run(QStringLiteral("CREATE ROLE guarded LOGIN PASSWORD 'right' IN ROLE passworded"));
    COMPARE_ERROR(handle->open(QStringLiteral("postgres"), QStringLiteral("guarded"),
                               QStringLiteral("wrong"), proxy->host(), proxy->port(), QString(),
                               QString()),
                  ConnectionError,
                  QStringLiteral("connection to server at \"127.0.0.1\", port %1 failed: FATAL:  "
                                 "password authentication failed for user \"guarded\"\n")
                      .arg(proxy->port()),
                  QStringLiteral("Ошибка при установке соединения с СУБД"), QString());
    QVERIFY(!handle->isOpen());
}

void tst_Dorvy3Database::isAPlainMember()
{
    QVERIFY(!std::is_polymorphic<Dorvy3Database>::value);
    QVERIFY(!std::is_copy_constructible<Dorvy3Database>::value);
    QVERIFY(!std::is_copy_assignable<Dorvy3Database>::value);
}

void tst_Dorvy3Database::keepsThePool()
{
    const QWeakPointer<Dorvy3Transacted> watched = pool;
    pool.reset();
    VERIFY_NO_ERROR(open());
    handle->close();
    QVERIFY(watched.toStrongRef()); // also when closed
    handle.reset();
    QVERIFY(!watched.toStrongRef());
}

void tst_Dorvy3Database::startsClosed()
{
    QVERIFY(!handle->isOpen());
    QCOMPARE(Access::connectionString(*handle), QString());
    QCOMPARE(Access::schema(*handle), QString());
    QVERIFY(!Access::connection(*handle));
    QVERIFY(!Access::readConnection(*handle));
    QCOMPARE(Access::boundCount(*handle), 0);
}

void tst_Dorvy3Database::openSetsUpTheConnection()
{
    VERIFY_NO_ERROR(open());
    QVERIFY(handle->isOpen());
    QVERIFY(!Access::readConnection(*handle));
    QCOMPARE(Access::schema(*handle), QString());
    QCOMPARE(proxy->frontend(),
             lines({"1> Startup dorvy postgres", "1> Query \"SET DATESTYLE TO 'ISO'\""}));
    QCOMPARE(Access::poolKeys(*pool), QStringList());
}

void tst_Dorvy3Database::openSetsTheSchema()
{
    VERIFY_NO_ERROR(open(QStringLiteral("postgres"), QStringLiteral("one, public")));
    QCOMPARE(Access::schema(*handle), QStringLiteral("one, public"));
    QCOMPARE(proxy->frontend(),
             lines({"1> Startup dorvy postgres", "1> Query \"SET DATESTYLE TO 'ISO'\"",
                    "1> Query \"SET SEARCH_PATH TO one, public\""}));
}

void tst_Dorvy3Database::secondOpenDropsTheOldConnection()
{
    VERIFY_NO_ERROR(open(QStringLiteral("postgres"), QStringLiteral("one")));
    proxy->clear();
    VERIFY_NO_ERROR(open(QStringLiteral("db_win1251")));
    QCOMPARE(proxy->frontend(), lines({"1> Terminate", "2> Startup dorvy db_win1251",
                                       "2> Query \"SET DATESTYLE TO 'ISO'\""}));
    QVERIFY(handle->isOpen());
    QCOMPARE(Access::schema(*handle), QString());
    QCOMPARE(key(), QStringLiteral("host='127.0.0.1' dbname='db_win1251' user='dorvy' port='%1'")
                        .arg(proxy->port()));
    QCOMPARE(proxy->connectionCount(), 2);
    QCOMPARE(Access::poolKeys(*pool), QStringList()); // not a close: the pool is not asked
}

void tst_Dorvy3Database::secondOpenLeavesAHeldConnectionOpen()
{
    VERIFY_NO_ERROR(open());
    ConnectionPtr held = Access::connection(*handle);
    VERIFY_NO_ERROR(open());
    QVERIFY(Access::connection(*handle) != held);
    QCOMPARE(ask(held, "SELECT 'still'"), QByteArray("still"));
    proxy->clear();
    held.reset();
    QVERIFY(proxy->waitForLine(QStringLiteral("1> Terminate")));
}

void tst_Dorvy3Database::secondOpenDropsTheBorrowedConnection()
{
    VERIFY_NO_ERROR(open());
    StatementPtr statement = select();
    QVERIFY(statement);
    const QString first = key();
    VERIFY_NO_ERROR(open());
    QVERIFY(!Access::readConnection(*handle));
    QCOMPARE(Access::boundCount(*handle), 1);
    proxy->clear();
    statement.reset();
    QVERIFY(proxy->waitForLine(QStringLiteral("2> Terminate"))); // the statement held it last
    QCOMPARE(Access::boundCount(*handle), 0);
    QCOMPARE(spares(first).size(), 0);
}

void tst_Dorvy3Database::failedSecondOpenLeavesClosed()
{
    VERIFY_NO_ERROR(open(QStringLiteral("postgres"), QStringLiteral("one")));
    StatementPtr statement = select();
    QVERIFY(Access::readConnection(*handle));
    QCOMPARE(open(QStringLiteral("missing")).type(), QSqlError::ConnectionError);
    QVERIFY(!handle->isOpen());
    QVERIFY(!Access::connection(*handle));
    QVERIFY(!Access::readConnection(*handle));
    QCOMPARE(Access::connectionString(*handle), QString());
    QCOMPARE(Access::schema(*handle), QString());
    QVERIFY(proxy->waitForLine(QStringLiteral("1> Terminate")));
}

void tst_Dorvy3Database::failedOpenTellsLibpqsMessage()
{
    COMPARE_ERROR(open(QStringLiteral("missing")), ConnectionError,
                  QStringLiteral("connection to server at \"127.0.0.1\", port %1 failed: FATAL:  "
                                 "database \"missing\" does not exist\n")
                      .arg(proxy->port()),
                  QStringLiteral("Ошибка при установке соединения с СУБД"), QString());
    COMPARE_ERROR(handle->open(QString(), QString(), QString(), QStringLiteral("/nowhere"), 7,
                               QString(), QString()),
                  ConnectionError,
                  QStringLiteral("connection to server on socket \"/nowhere/.s.PGSQL.7\" failed: "
                                 "No such file or directory\n"
                                 "\tIs the server running locally and accepting connections on "
                                 "that socket?\n"),
                  QStringLiteral("Ошибка при установке соединения с СУБД"), QString());
    COMPARE_ERROR(handle->open(QString(), QString(), QString(), QString(), -1,
                               QStringLiteral("nonsense=1"), QString()),
                  ConnectionError, QStringLiteral("invalid connection option \"nonsense\"\n"),
                  QStringLiteral("Ошибка при установке соединения с СУБД"), QString());
}

void tst_Dorvy3Database::failedOpenFinishesTheHandle()
{
    const LibpqCalls calls;
    for (int i = 0; i < 3; ++i) {
        QCOMPARE(open(QStringLiteral("missing")).type(), QSqlError::ConnectionError);
        QVERIFY(!Access::connection(*handle));
    }
    QCOMPARE(calls.connected().size(), 3);
    QCOMPARE(calls.finished().size(), 3);
    VERIFY_NO_ERROR(open());
    QCOMPARE(calls.finished().size(), 3);
}

void tst_Dorvy3Database::noHandleTellsNoMessage()
{
    LibpqCalls calls;
    calls.refuseConnections();
    COMPARE_ERROR(open(), ConnectionError, QString(),
                  QStringLiteral("Ошибка при установке соединения с СУБД"), QString());
    QVERIFY(!handle->isOpen());
    QCOMPARE(Access::connectionString(*handle), QString());
    QCOMPARE(calls.connected().size(), 1);
    QCOMPARE(calls.finished().size(), 0);
}

void tst_Dorvy3Database::failedOpenIsReadAsCp1251()
{
    // The server repeats the name's byte E9, which is this letter in CP1251.
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("KOI8-R"));
    COMPARE_ERROR(open(QStringLiteral("é")), ConnectionError,
                  QStringLiteral("connection to server at \"127.0.0.1\", port %1 failed: FATAL:  "
                                 "database \"й\" does not exist\n")
                      .arg(proxy->port()),
                  QStringLiteral("Ошибка при установке соединения с СУБД"), QString());
}

void tst_Dorvy3Database::isOpenSeesALostConnection()
{
    VERIFY_NO_ERROR(open());
    proxy->cut();
    QVERIFY(handle->isOpen()); // libpq has not noticed
    ask(Access::connection(*handle), "SELECT 1");
    QVERIFY(!handle->isOpen());
}

void tst_Dorvy3Database::closeForgetsEverything()
{
    VERIFY_NO_ERROR(open(QStringLiteral("postgres"), QStringLiteral("one")));
    const ConnectionPtr held = Access::connection(*handle);
    handle->close();
    QVERIFY(!handle->isOpen());
    QVERIFY(!held->isOpen()); // finished, whoever else holds it
    QVERIFY(!Access::connection(*handle));
    QCOMPARE(Access::connectionString(*handle), QString());
    QCOMPARE(Access::schema(*handle), QString());
    QVERIFY(proxy->waitForLine(QStringLiteral("1> Terminate")));
}

void tst_Dorvy3Database::closeOfNeverOpenedLeavesThePool()
{
    const ConnectionPtr spare = makeSpare(QString()); // under the string of a closed handle
    handle->close();
    QCOMPARE(spares(QString()), QList<ConnectionPtr>({spare}));
}

void tst_Dorvy3Database::closeTwiceDropsOneSpare()
{
    VERIFY_NO_ERROR(open());
    const QString string = key();
    makeSpare(string);
    makeSpare(string);
    makeSpare(string);
    handle->close();
    handle->close();
    QCOMPARE(spares(string).size(), 2);
}

void tst_Dorvy3Database::closeWithoutBorrowedDropsTheNewestSpare()
{
    VERIFY_NO_ERROR(open());
    const QString string = key();
    const ConnectionPtr oldest = makeSpare(string);
    const ConnectionPtr middle = makeSpare(string);
    const ConnectionPtr newest = makeSpare(string);
    handle->close();
    QCOMPARE(spares(string), QList<ConnectionPtr>({oldest, middle}));
    QVERIFY(newest->isOpen()); // the test holds it
}

void tst_Dorvy3Database::closeWithBorrowedFinishesIt()
{
    VERIFY_NO_ERROR(open());
    const QString string = key();
    const StatementPtr statement = select();
    const ConnectionPtr borrowed = Access::readConnection(*handle);
    QVERIFY(borrowed);
    const ConnectionPtr spare = makeSpare(string);
    proxy->clear();
    handle->close();
    QVERIFY(!borrowed->isOpen());
    QVERIFY(!Access::readConnection(*handle));
    QCOMPARE(spares(string), QList<ConnectionPtr>({spare})); // neither added to nor taken from
    QVERIFY(proxy->waitForLine(QStringLiteral("2> Terminate")));
    QVERIFY(proxy->waitForLine(QStringLiteral("1> Terminate")));
    QVERIFY(!proxy->frontend().contains(QStringLiteral("2> Query \"ROLLBACK\"")));
}

void tst_Dorvy3Database::closeFinishesTheOwnConnectionFirst()
{
    VERIFY_NO_ERROR(open());
    const StatementPtr statement = select();
    const PGconn *own = Access::connection(*handle)->connection();
    const PGconn *borrowed = Access::readConnection(*handle)->connection();
    const LibpqCalls calls;
    handle->close();
    QCOMPARE(calls.finished(), QList<const PGconn *>({own, borrowed}));
}

void tst_Dorvy3Database::closeFinishesBeforeItAsksThePool()
{
    VERIFY_NO_ERROR(open());
    const PGconn *own = Access::connection(*handle)->connection();
    pool->put(key(), ConnectionPtr::create(PQconnectdb(proxy->conninfo().constData()), QString()));
    const PGconn *spare = spares(key()).first()->connection();
    const LibpqCalls calls;
    handle->close();
    QCOMPARE(calls.finished(), QList<const PGconn *>({own, spare}));
}

void tst_Dorvy3Database::statementClearedAfterClose()
{
    VERIFY_NO_ERROR(open());
    StatementPtr statement = select();
    QCOMPARE(Access::boundCount(*handle), 1);
    handle->close();
    statement.reset();
    QCOMPARE(Access::boundCount(*handle), 0);
    QCOMPARE(Access::poolKeys(*pool), QStringList());
}

void tst_Dorvy3Database::closeKeepsTheCount()
{
    VERIFY_NO_ERROR(open());
    const StatementPtr statement = select();
    handle->close();
    QCOMPARE(Access::boundCount(*handle), 1);
}

void tst_Dorvy3Database::destructorCloses()
{
    VERIFY_NO_ERROR(open());
    const QString string = key();
    makeSpare(string);
    const ConnectionPtr held = Access::connection(*handle);
    handle.reset();
    QVERIFY(!held->isOpen());
    QCOMPARE(spares(string).size(), 0);
    QVERIFY(proxy->waitForLine(QStringLiteral("1> Terminate")));
}

void tst_Dorvy3Database::transactionsWithoutConnection_data()
{
    QTest::addColumn<QString>("operation");
    QTest::addColumn<QString>("driverText");
    QTest::newRow("begin") << QStringLiteral("begin")
                           << QStringLiteral("Невозможно начать транзакцию");
    QTest::newRow("commit") << QStringLiteral("commit")
                            << QStringLiteral("Невозможно завершить транзакцию");
    QTest::newRow("rollback") << QStringLiteral("rollback")
                              << QStringLiteral("Невозможно отменить транзакцию");
}

void tst_Dorvy3Database::transactionsWithoutConnection()
{
    QFETCH(QString, operation);
    QFETCH(QString, driverText);
    const QString reason = QStringLiteral("Отсутствует соединение с СУБД");
    COMPARE_ERROR(transactionCommand(*handle, operation), TransactionError, driverText, reason,
                  QString());
    VERIFY_NO_ERROR(open());
    handle->close();
    COMPARE_ERROR(transactionCommand(*handle, operation), TransactionError, driverText, reason,
                  QString());
}

void tst_Dorvy3Database::transactionsOnALostConnection_data()
{
    transactionsWithoutConnection_data();
}

void tst_Dorvy3Database::transactionsOnALostConnection()
{
    QFETCH(QString, operation);
    QFETCH(QString, driverText);
    VERIFY_NO_ERROR(open());
    proxy->cut();
    ask(Access::connection(*handle), "SELECT 1"); // libpq notices
    COMPARE_ERROR(transactionCommand(*handle, operation), TransactionError, driverText,
                  QStringLiteral("Отсутствует соединение с СУБД"), QString());
}

void tst_Dorvy3Database::transactionsRunOnTheOwnConnection()
{
    VERIFY_NO_ERROR(open());
    const StatementPtr statement = select();
    const ConnectionPtr own = Access::connection(*handle);
    const ConnectionPtr borrowed = Access::readConnection(*handle);
    ask(own, "SELECT 1"); // takes in the answer to the statement's move
    proxy->clear();
    VERIFY_NO_ERROR(handle->beginTransaction());
    QCOMPARE(status(own), PQTRANS_INTRANS);
    VERIFY_NO_ERROR(handle->commitTransaction());
    QCOMPARE(status(own), PQTRANS_IDLE);
    VERIFY_NO_ERROR(handle->beginTransaction());
    VERIFY_NO_ERROR(handle->rollbackTransaction());
    VERIFY_NO_ERROR(handle->rollbackTransaction());
    QCOMPARE(proxy->frontend(), lines({"1> Query \"BEGIN\"", "1> Query \"COMMIT\"",
                                       "1> Query \"BEGIN\"", "1> Query \"ROLLBACK\""}));
    QCOMPARE(status(borrowed), PQTRANS_INTRANS);
}

void tst_Dorvy3Database::transactionErrorsComeUnchanged()
{
    VERIFY_NO_ERROR(open());
    COMPARE_ERROR(handle->commitTransaction(), TransactionError,
                  QStringLiteral("Невозможно завершить транзакцию"),
                  QStringLiteral("Текущее состояние соединения запрещает завершение транзакции"),
                  QString());
    VERIFY_NO_ERROR(handle->beginTransaction());
    COMPARE_ERROR(handle->beginTransaction(), TransactionError,
                  QStringLiteral("Невозможно начать транзакцию"),
                  QStringLiteral("Текущее состояние соединения запрещает начало транзакции"),
                  QString());
    proxy->cut();
    COMPARE_ERROR(handle->rollbackTransaction(), TransactionError,
                  QStringLiteral("Ошибка при попытке отменить транзакцию"),
                  QStringLiteral("server closed the connection unexpectedly\n"
                                 "\tThis probably means the server terminated abnormally\n"
                                 "\tbefore or while processing the request.\n"),
                  QString());
}

void tst_Dorvy3Database::lastUnbindGivesBackTheBorrowed()
{
    VERIFY_NO_ERROR(open());
    StatementPtr first = select();
    StatementPtr second = select();
    const ConnectionPtr borrowed = Access::readConnection(*handle);
    QCOMPARE(Access::boundCount(*handle), 2);

    first.reset();
    QCOMPARE(Access::boundCount(*handle), 1);
    QCOMPARE(Access::readConnection(*handle), borrowed);
    QCOMPARE(Access::poolKeys(*pool), QStringList());
    QVERIFY(!proxy->frontend().contains(QStringLiteral("2> Query \"ROLLBACK\"")));

    second.reset();
    QCOMPARE(Access::boundCount(*handle), 0);
    QVERIFY(!Access::readConnection(*handle));
    QCOMPARE(Access::poolKeys(*pool), QStringList(key()));
    QCOMPARE(spares(key()), QList<ConnectionPtr>({borrowed}));
    QCOMPARE(proxy->frontend().last(), QStringLiteral("2> Query \"ROLLBACK\""));
    QCOMPARE(status(borrowed), PQTRANS_IDLE);
}

void tst_Dorvy3Database::borrowedIsGivenUpBeforeThePoolHasIt()
{
    VERIFY_NO_ERROR(open());
    StatementPtr statement = select();
    const ConnectionPtr borrowed = Access::readConnection(*handle);
    Answers answers = {handle.get(), {}};
    QCOMPARE(PQregisterEventProc(borrowed->connection(), Answers::note, "test", &answers), 1);
    statement.reset();
    QCOMPARE(answers.found.last(), QStringLiteral("ROLLBACK, given up"));
    QCOMPARE(spares(key()), QList<ConnectionPtr>({borrowed}));
}

void tst_Dorvy3Database::unbindAboveZeroKeepsTheBorrowed()
{
    VERIFY_NO_ERROR(open());
    StatementPtr statement = select();
    const ConnectionPtr borrowed = Access::readConnection(*handle);
    handle->bind(nullptr);
    statement->hlpClear();
    QCOMPARE(Access::boundCount(*handle), 1);
    QCOMPARE(Access::readConnection(*handle), borrowed);
    handle->unbind(nullptr);
    QCOMPARE(Access::boundCount(*handle), 0);
    QVERIFY(!Access::readConnection(*handle));
    QCOMPARE(spares(key()), QList<ConnectionPtr>({borrowed}));
}

void tst_Dorvy3Database::unbindWithoutBorrowedPoolsNothing()
{
    VERIFY_NO_ERROR(open());
    handle->bind(nullptr);
    QCOMPARE(Access::boundCount(*handle), 1);
    handle->unbind(nullptr);
    QCOMPARE(Access::boundCount(*handle), 0);
    QCOMPARE(Access::poolKeys(*pool), QStringList());
}

void tst_Dorvy3Database::givenBackIsBorrowedAgain()
{
    VERIFY_NO_ERROR(open());
    StatementPtr statement = select();
    const ConnectionPtr borrowed = Access::readConnection(*handle);
    statement.reset();
    statement = select();
    QCOMPARE(Access::readConnection(*handle), borrowed);
    QCOMPARE(spares(key()).size(), 0);
    QCOMPARE(proxy->connectionCount(), 2);
}

void tst_Dorvy3Database::handlesShareSparesOfOneString()
{
    VERIFY_NO_ERROR(open());
    select();
    QCOMPARE(spares(key()).size(), 1);
    const ConnectionPtr spare = spares(key()).first();
    Dorvy3Database other(pool);
    VERIFY_NO_ERROR(other.open(QStringLiteral("postgres"), QStringLiteral("dorvy"), QString(),
                               proxy->host(), proxy->port(), QString(), QString()));
    const StatementPtr statement = other.statement(QStringLiteral("SELECT 2"), nullptr);
    QVERIFY(statement);
    QCOMPARE(Access::readConnection(other), spare);
}

void tst_Dorvy3Database::boundCountIsAtomic()
{
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([this] {
            for (int round = 0; round < 20000; ++round) {
                handle->bind(nullptr);
                handle->bind(nullptr);
                handle->unbind(nullptr);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    QCOMPARE(Access::boundCount(*handle), 80000);
}

void tst_Dorvy3Database::errorOfNullHandle()
{
    COMPARE_ERROR(handle->hlpError(nullptr, QSqlError::ConnectionError, QStringLiteral("Беда")),
                  ConnectionError, QString(), QStringLiteral("Беда"), QString());
}

void tst_Dorvy3Database::errorOfLiveHandleFollowsClientEncoding_data()
{
    addEncodingsOfErrors();
}

void tst_Dorvy3Database::errorOfLiveHandleFollowsClientEncoding()
{
    QFETCH(QString, database);
    QFETCH(QString, options);
    QFETCH(QByteArray, sql);
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
    VERIFY_NO_ERROR(handle->open(database, QStringLiteral("dorvy"), QString(), proxy->host(),
                                 proxy->port(), options, QString()));
    PGconn *raw = Access::connection(*handle)->connection();
    const ResultPtr failed(PQexec(raw, sql.constData()));
    QCOMPARE(PQresultStatus(failed.get()), PGRES_FATAL_ERROR);
    const QSqlError error =
        handle->hlpError(raw, QSqlError::StatementError, QStringLiteral("Беда"));
    QCOMPARE(error.driverText().section(QLatin1Char('\n'), 0, 0),
             QStringLiteral("ERROR:  column \"Щи\" does not exist"));
    QCOMPARE(error.databaseText(), QStringLiteral("Беда"));
    QCOMPARE(error.type(), QSqlError::StatementError);
    QCOMPARE(error.nativeErrorCode(), QString());
}

QTEST_GUILESS_MAIN(tst_Dorvy3Database)
#include "tst_dorvy3database.moc"
