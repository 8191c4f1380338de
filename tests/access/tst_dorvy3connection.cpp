// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Dorvy3Connection: its settings, its codecs and the transaction commands in every state.
#include "access/dorvy3connection.h"
#include "client/libppq.h"

#include "tests/support/connectionhelpers.h"
#include "tests/support/namedcodec.h"
#include "tests/support/pgcluster.h"
#include "tests/support/scriptedpeer.h"
#include "tests/support/scriptedserver.h"
#include "tests/support/sqlmacros.h"
#include "tests/support/textlines.h"
#include "tests/support/wireproxy.h"

#include <QtCore/QSharedPointer>
#include <QtCore/QTextCodec>
#include <QtCore/QThread>
#include <QtTest/QtTest>

#include <memory>
#include <thread>
#include <type_traits>

Q_DECLARE_METATYPE(QSqlError::ErrorType)
Q_DECLARE_METATYPE(PGTransactionStatusType)

class tst_Dorvy3Connection : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void constructionSendsDateStyleOnly();
    void searchPathIsSentVerbatim();
    void searchPathIsSentInServersEncoding();
    void failedSettingsAreSilent();
    void dateStyleGoesThroughNoCodec();
    void dateStyleIsIso();
    void setSearchPathSendsIt();

    void connectionIsTheOnlyVirtualOperation();
    void nullHandleSendsNothing();
    void nullHandleSpeaksLatin1();
    void isOpenFollowsTheHandle();
    void isValidFollowsTheStatus();
    void closeFinishesOnce();
    void destructorFinishes();
    void destructorAfterCloseFinishesNothing();

    void codecsByReportedName_data();
    void codecsByReportedName();
    void codecsOfWindowsNames_data();
    void codecsOfWindowsNames();
    void localeCodecIsChosenAtConstruction();
    void clientReadsExactlyItsLength();
    void clientOfNullBytesIsNull();
    void russianBothWays_data();
    void russianBothWays();
    void serverTextFollowsServersEncodingAndClientTextClients();

    void commandWithoutConnection_data();
    void commandWithoutConnection();
    void commandByTransactionStatus_data();
    void commandByTransactionStatus();
    void commandDuringCopyIsLeftAlone();
    void copyRefusesBeginAndCommit();
    void refusedCommandGivesServersMessage_data();
    void refusedCommandGivesServersMessage();
    void nullResultGivesConnectionsMessage_data();
    void nullResultGivesConnectionsMessage();
    void nullResultIsReadInTheClientsEncoding_data();
    void nullResultIsReadInTheClientsEncoding();
    void lostConnectionGivesLibpqsMessage_data();
    void lostConnectionGivesLibpqsMessage();
    void failedCommitGivesServersTextInItsEncoding();
    void failedTransactionIsClearedByRollbackOnly();
    void failedCommitLeavesServersState();
    void commandAfterOutstandingClose_data();
    void commandAfterOutstandingClose();
    void commandGoesOutBehindAClose();
    void commitBehindAFailedClose();
    void refusalOnALostConnection_data();
    void refusalOnALostConnection();

private:
    void compareCommand(bool behindAClose);
    PGconn *connectRaw(const QString &options = QString(),
                       const QString &database = QStringLiteral("postgres")) const;
    ConnectionPtr connect(const QString &searchPath = QString(),
                          const QString &database = QStringLiteral("postgres")) const;

    PgCluster cluster;
    std::unique_ptr<WireProxy> proxy;
};

void tst_Dorvy3Connection::initTestCase()
{
    QVERIFY2(cluster.start(), qPrintable(cluster.why()));
    cluster.createDatabase(QStringLiteral("db_utf8"), QStringLiteral("UTF8"));
    cluster.createDatabase(QStringLiteral("db_win1251"), QStringLiteral("WIN1251"));
    cluster.createDatabase(QStringLiteral("db_koi8r"), QStringLiteral("KOI8R"));
    cluster.createDatabase(QStringLiteral("db_sql_ascii"), QStringLiteral("SQL_ASCII"));
    cluster.run(QStringLiteral("CREATE SCHEMA one"));
    cluster.run(QStringLiteral("CREATE SCHEMA two"));
    qunsetenv("PGCLIENTENCODING"); // the servers' own choice is tested
    for (const char *name : {"WIN9", "CP9", "CP9CP", "XCP9"}) {
        new NamedCodec(name); // Qt's registry takes it
    }
}

void tst_Dorvy3Connection::init()
{
    proxy.reset(new WireProxy(cluster.socketDir(), cluster.port()));
}

void tst_Dorvy3Connection::cleanup()
{
    QTextCodec::setCodecForLocale(nullptr); // back to the environment's
    proxy.reset();
}

PGconn *tst_Dorvy3Connection::connectRaw(const QString &options, const QString &database) const
{
    const QByteArray info = proxy->conninfo(database) + ' ' + options.toLatin1();
    return PQconnectdb(info.constData());
}

ConnectionPtr tst_Dorvy3Connection::connect(const QString &searchPath,
                                            const QString &database) const
{
    return ConnectionPtr(new Dorvy3Connection(connectRaw(QString(), database), searchPath));
}

void tst_Dorvy3Connection::constructionSendsDateStyleOnly()
{
    const ConnectionPtr connection = connect();
    QVERIFY(connection->isValid());
    QCOMPARE(proxy->frontend(),
             lines({"1> Startup dorvy postgres", "1> Query \"SET DATESTYLE TO 'ISO'\""}));
}

void tst_Dorvy3Connection::searchPathIsSentVerbatim()
{
    const ConnectionPtr connection = connect(QStringLiteral("two,  \"one\", public"));
    QCOMPARE(proxy->frontend(),
             lines({"1> Startup dorvy postgres", "1> Query \"SET DATESTYLE TO 'ISO'\"",
                    "1> Query \"SET SEARCH_PATH TO two,  \"one\", public\""}));
    QCOMPARE(ask(connection, "SHOW search_path"), QByteArray("two, one, public"));
}

void tst_Dorvy3Connection::searchPathIsSentInServersEncoding()
{
    connect(QStringLiteral("\"Щи\""), QStringLiteral("db_win1251"));
    const QVector<WireMessage> messages = proxy->messages();
    QByteArray last;
    for (const WireMessage &message : messages) {
        if (message.fromClient && message.type == 'Q') {
            last = message.body;
        }
    }
    QCOMPARE(last, QByteArray("SET SEARCH_PATH TO \"\xD9\xE8\"\0", 24));
}

void tst_Dorvy3Connection::failedSettingsAreSilent()
{
    ScriptedServer server("UTF8", "UTF8");
    server.refuse("SET DATESTYLE TO 'ISO'", "no");
    server.refuse("SET SEARCH_PATH TO one", "no");
    Dorvy3Connection connection(PQconnectdb(server.conninfo().constData()), QStringLiteral("one"));
    QVERIFY(connection.isValid());
    QCOMPARE(server.queries(),
             QList<QByteArray>({"SET DATESTYLE TO 'ISO'", "SET SEARCH_PATH TO one"}));
    VERIFY_NO_ERROR(connection.beginTransaction());
}

void tst_Dorvy3Connection::dateStyleGoesThroughNoCodec()
{
    ScriptedServer server("CP9", "CP9");
    Dorvy3Connection connection(PQconnectdb(server.conninfo().constData()), QStringLiteral("one"));
    QCOMPARE(server.queries(),
             QList<QByteArray>({"SET DATESTYLE TO 'ISO'", "CP9:SET SEARCH_PATH TO one"}));
}

void tst_Dorvy3Connection::dateStyleIsIso()
{
    const ConnectionPtr connection(new Dorvy3Connection(
        connectRaw(QStringLiteral("options='-c datestyle=German'")), QString()));
    QCOMPARE(ask(connection, "SELECT date '2024-02-29'"), QByteArray("2024-02-29"));
}

void tst_Dorvy3Connection::setSearchPathSendsIt()
{
    const ConnectionPtr connection = connect();
    proxy->clear();
    connection->setSearchPath(QString());
    QCOMPARE(proxy->frontend(), QStringList());
    connection->setSearchPath(QStringLiteral("one, two"));
    QCOMPARE(proxy->frontend(), lines({"1> Query \"SET SEARCH_PATH TO one, two\""}));
}

void tst_Dorvy3Connection::connectionIsTheOnlyVirtualOperation()
{
    // The pool calls it through the virtual table; nobody destroys through a base.
    QVERIFY(std::is_polymorphic<Dorvy3Connection>::value);
    QVERIFY(!std::has_virtual_destructor<Dorvy3Connection>::value);
    QCOMPARE(sizeof(Dorvy3Connection), 4 * sizeof(void *)); // the table, a handle, two codecs
}

void tst_Dorvy3Connection::nullHandleSendsNothing()
{
    Dorvy3Connection connection(nullptr, QStringLiteral("one"));
    QVERIFY(!connection.connection());
    QVERIFY(!connection.isOpen());
    QVERIFY(!connection.isValid());
    QVERIFY(!connection.settle());
    connection.close();
    QCOMPARE(proxy->connectionCount(), 0);
}

void tst_Dorvy3Connection::nullHandleSpeaksLatin1()
{
    // Whatever the locale says: there is no server to agree with.
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("CP1251"));
    const Dorvy3Connection connection(nullptr, QString());
    QCOMPARE(connection.server(QStringLiteral("é Щи")), QByteArray("\xE9 ??"));
    QCOMPARE(connection.client("\xE9\xD9", -1), QStringLiteral("éÙ"));
    QCOMPARE(connection.client("\xE9\xD9", 1), QStringLiteral("é"));
}

void tst_Dorvy3Connection::isOpenFollowsTheHandle()
{
    PGconn *raw = connectRaw();
    Dorvy3Connection connection(raw, QString());
    QCOMPARE(connection.connection(), raw);
    QVERIFY(connection.isOpen());
    QVERIFY(connection.isValid());
    connection.close();
    QVERIFY(!connection.connection());
    QVERIFY(!connection.isOpen());
    QVERIFY(!connection.isValid());
}

void tst_Dorvy3Connection::isValidFollowsTheStatus()
{
    const ConnectionPtr connection = connect();
    proxy->cut();
    QCOMPARE(PQstatus(connection->connection()), CONNECTION_OK); // libpq has not noticed
    QVERIFY(connection->isValid());
    QVERIFY(!run(connection, "SET work_mem = '8MB'"));
    QVERIFY(!connection->isValid());
    QVERIFY(connection->isOpen());
}

void tst_Dorvy3Connection::closeFinishesOnce()
{
    const ConnectionPtr connection = connect();
    proxy->clear();
    connection->close();
    connection->close();
    QVERIFY(proxy->waitForLine(QStringLiteral("1> Terminate")));
    QCOMPARE(proxy->conversation(), lines({"1> Terminate"}));
}

void tst_Dorvy3Connection::destructorFinishes()
{
    ConnectionPtr connection = connect();
    proxy->clear();
    connection.reset();
    QVERIFY(proxy->waitForLine(QStringLiteral("1> Terminate")));
}

void tst_Dorvy3Connection::destructorAfterCloseFinishesNothing()
{
    // A second PQfinish would be a double free, which ends the test program.
    ConnectionPtr connection = connect();
    proxy->clear();
    connection->close();
    connection.reset();
    QVERIFY(proxy->waitForLine(QStringLiteral("1> Terminate")));
    QCOMPARE(proxy->conversation(), lines({"1> Terminate"}));
}

void tst_Dorvy3Connection::codecsByReportedName_data()
{
    QTest::addColumn<QByteArray>("serverName");
    QTest::addColumn<QByteArray>("clientName");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QByteArray>("sent");
    QTest::addColumn<QByteArray>("received");

    const QString soup = QStringLiteral("Щи");
    const QByteArray utf8("\xD0\xA9\xD0\xB8");
    const QByteArray cp1251("\xD9\xE8");
    const QByteArray koi8("\xFD\xC9");
    const QByteArray locale("\xC9\xD8"); // ISO-8859-5, which no row reports
    const QByteArray none;

    QTest::newRow("UTF8") << QByteArray("UTF8") << QByteArray("UTF8") << soup << utf8 << utf8;
    QTest::newRow("WIN1251 is CP1251")
        << QByteArray("WIN1251") << QByteArray("WIN1251") << soup << cp1251 << cp1251;
    QTest::newRow("WIN in lower case")
        << QByteArray("win1251") << QByteArray("Win1251") << soup << cp1251 << cp1251;
    QTest::newRow("WIN1250 is CP1250")
        << QByteArray("WIN1250") << QByteArray("WIN1250") << QStringLiteral("Łódź")
        << QByteArray("\xA3\xF3\x64\x9F") << QByteArray("\xA3\xF3\x64\x9F");
    QTest::newRow("WIN866 is CP866") << QByteArray("WIN866") << QByteArray("WIN866") << soup
                                     << QByteArray("\x99\xA8") << QByteArray("\x99\xA8");
    QTest::newRow("KOI8R") << QByteArray("KOI8R") << QByteArray("KOI8R") << soup << koi8 << koi8;
    QTest::newRow("LATIN1") << QByteArray("LATIN1") << QByteArray("LATIN1") << QStringLiteral("é")
                            << QByteArray("\xE9") << QByteArray("\xE9");
    QTest::newRow("SQL_ASCII is the locale's")
        << QByteArray("SQL_ASCII") << QByteArray("SQL_ASCII") << soup << locale << locale;
    QTest::newRow("MULE_INTERNAL is the locale's")
        << QByteArray("MULE_INTERNAL") << QByteArray("MULE_INTERNAL") << soup << locale << locale;
    QTest::newRow("WIN inside the name is the locale's")
        << QByteArray("XWIN1251") << QByteArray("XWIN1251") << soup << locale << locale;
    QTest::newRow("unknown WIN is the locale's")
        << QByteArray("WINNOWHERE") << QByteArray("WINNOWHERE") << soup << locale << locale;
    QTest::newRow("none reported is the locale's") << none << none << soup << locale << locale;
    QTest::newRow("server and client differ")
        << QByteArray("WIN1251") << QByteArray("UTF8") << soup << cp1251 << utf8;
    QTest::newRow("client and server differ")
        << QByteArray("UTF8") << QByteArray("KOI8R") << soup << utf8 << koi8;
    QTest::newRow("client alone is the locale's")
        << QByteArray("UTF8") << QByteArray("SQL_ASCII") << soup << utf8 << locale;
}

void tst_Dorvy3Connection::codecsByReportedName()
{
    QFETCH(QByteArray, serverName);
    QFETCH(QByteArray, clientName);
    QFETCH(QString, text);
    QFETCH(QByteArray, sent);
    QFETCH(QByteArray, received);
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("ISO-8859-5"));
    const ScriptedServer server(serverName, clientName);
    const Dorvy3Connection connection(PQconnectdb(server.conninfo().constData()), QString());
    QVERIFY(connection.isValid());
    QCOMPARE(connection.server(text), sent);
    QCOMPARE(connection.client(received.constData(), -1), text);
    QCOMPARE(connection.client(received.constData(), received.size()), text);
}

void tst_Dorvy3Connection::codecsOfWindowsNames_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QByteArray>("sent");
    QTest::addColumn<QString>("received");

    QTest::newRow("as reported before CP")
        << QByteArray("WIN9") << QByteArray("WIN9:a") << QStringLiteral("WIN9:a");
    QTest::newRow("every WIN becomes CP")
        << QByteArray("WIN9WIN") << QByteArray("CP9CP:a") << QStringLiteral("CP9CP:a");
    QTest::newRow("every win becomes CP")
        << QByteArray("win9Win") << QByteArray("CP9CP:a") << QStringLiteral("CP9CP:a");
    QTest::newRow("WIN inside the name stays")
        << QByteArray("XWIN9") << QByteArray("a") << QStringLiteral("a");
}

void tst_Dorvy3Connection::codecsOfWindowsNames()
{
    QFETCH(QByteArray, name);
    QFETCH(QByteArray, sent);
    QFETCH(QString, received);
    const ScriptedServer server(name, name);
    const Dorvy3Connection connection(PQconnectdb(server.conninfo().constData()), QString());
    QVERIFY(connection.isValid());
    QCOMPARE(connection.server(QStringLiteral("a")), sent);
    QCOMPARE(connection.client("a", -1), received);
}

void tst_Dorvy3Connection::localeCodecIsChosenAtConstruction()
{
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("KOI8-R"));
    const ConnectionPtr connection = connect(QString(), QStringLiteral("db_sql_ascii"));
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
    QCOMPARE(connection->server(QStringLiteral("Щи")), QByteArray("\xFD\xC9"));
    QCOMPARE(connection->client("\xFD\xC9", -1), QStringLiteral("Щи"));
}

void tst_Dorvy3Connection::clientReadsExactlyItsLength()
{
    const ConnectionPtr connection = connect(QString(), QStringLiteral("db_win1251"));
    const char bytes[] = "\xD9\xE8\0\xE9";
    QCOMPARE(connection->client(bytes, -1), QStringLiteral("Щи"));
    QCOMPARE(connection->client(bytes, -7), QStringLiteral("Щи"));
    QCOMPARE(connection->client(bytes, 1), QStringLiteral("Щ"));
    QCOMPARE(connection->client(bytes, 4), QStringLiteral("Щи") + QChar(0) + QStringLiteral("й"));
    QCOMPARE(connection->client(bytes, 0), QString());
}

void tst_Dorvy3Connection::clientOfNullBytesIsNull()
{
    const ConnectionPtr connection = connect();
    QVERIFY(connection->client(nullptr, -1).isNull());
    QVERIFY(connection->client(nullptr, 3).isNull());
    const Dorvy3Connection codecless(nullptr, QString());
    QVERIFY(codecless.client(nullptr, -1).isNull());
}

void tst_Dorvy3Connection::russianBothWays_data()
{
    QTest::addColumn<QString>("database");
    QTest::addColumn<QByteArray>("locale");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QByteArray>("serversLength");

    const QByteArray utf8("\xD0\x9F\xD1\x80\xD0\xB8\xD0\xB2\xD0\xB5\xD1\x82");
    QTest::newRow("UTF8") << QStringLiteral("db_utf8") << QByteArray("KOI8-R") << utf8
                          << QByteArray("6");
    QTest::newRow("WIN1251") << QStringLiteral("db_win1251") << QByteArray("UTF-8")
                             << QByteArray("\xCF\xF0\xE8\xE2\xE5\xF2") << QByteArray("6");
    QTest::newRow("KOI8R") << QStringLiteral("db_koi8r") << QByteArray("UTF-8")
                           << QByteArray("\xF0\xD2\xC9\xD7\xC5\xD4") << QByteArray("6");
    QTest::newRow("SQL_ASCII, locale IBM866")
        << QStringLiteral("db_sql_ascii") << QByteArray("IBM866")
        << QByteArray("\x8F\xE0\xA8\xA2\xA5\xE2") << QByteArray("6");
    QTest::newRow("SQL_ASCII, locale UTF-8")
        << QStringLiteral("db_sql_ascii") << QByteArray("UTF-8") << utf8 << QByteArray("12");
}

void tst_Dorvy3Connection::russianBothWays()
{
    QFETCH(QString, database);
    QFETCH(QByteArray, locale);
    QFETCH(QByteArray, bytes);
    QFETCH(QByteArray, serversLength);
    QTextCodec::setCodecForLocale(QTextCodec::codecForName(locale));
    const QString text = QStringLiteral("Привет");
    const ConnectionPtr connection = connect(QString(), database);
    QCOMPARE(connection->server(text), bytes);
    const QByteArray sql = connection->server(QStringLiteral("SELECT '%1'").arg(text));
    const QByteArray answer = ask(connection, sql);
    QCOMPARE(answer, bytes);
    QCOMPARE(connection->client(answer.constData(), -1), text);
    // The server itself takes the bytes for these letters.
    QCOMPARE(ask(connection, connection->server(QStringLiteral("SELECT length('Привет')"))),
             serversLength);
}

void tst_Dorvy3Connection::serverTextFollowsServersEncodingAndClientTextClients()
{
    const ConnectionPtr connection(new Dorvy3Connection(
        connectRaw(QStringLiteral("client_encoding=UTF8"), QStringLiteral("db_win1251")),
        QString()));
    QCOMPARE(connection->server(QStringLiteral("Щи")), QByteArray("\xD9\xE8"));
    const QByteArray answer = ask(connection, "SELECT chr(217) || chr(232)");
    QCOMPARE(answer, QByteArray("\xD0\xA9\xD0\xB8"));
    QCOMPARE(connection->client(answer.constData(), -1), QStringLiteral("Щи"));
}

void tst_Dorvy3Connection::commandWithoutConnection_data()
{
    QTest::addColumn<QString>("operation");
    QTest::addColumn<QString>("driverText");
    const QString begin = QStringLiteral("Невозможно начать транзакцию");
    const QString commit = QStringLiteral("Невозможно завершить транзакцию");
    const QString rollback = QStringLiteral("Невозможно отменить транзакцию");
    QTest::newRow("begin") << QStringLiteral("begin") << begin;
    QTest::newRow("commit") << QStringLiteral("commit") << commit;
    QTest::newRow("rollback") << QStringLiteral("rollback") << rollback;
}

void tst_Dorvy3Connection::commandWithoutConnection()
{
    QFETCH(QString, operation);
    QFETCH(QString, driverText);
    const QString reason = QStringLiteral("Отсутствует соединение с СУБД");

    Dorvy3Connection null(nullptr, QString());
    COMPARE_ERROR(transactionCommand(null, operation), TransactionError, driverText, reason,
                  QString());

    const ConnectionPtr closed = connect();
    closed->close();
    COMPARE_ERROR(transactionCommand(*closed, operation), TransactionError, driverText, reason,
                  QString());

    const ConnectionPtr lost = connect();
    proxy->cut();
    QVERIFY(!run(lost, "BEGIN")); // libpq notices
    COMPARE_ERROR(transactionCommand(*lost, operation), TransactionError, driverText, reason,
                  QString());

    Dorvy3Connection failed(PQconnectdb("host=/nowhere"), QString());
    QVERIFY(failed.isOpen());
    COMPARE_ERROR(transactionCommand(failed, operation), TransactionError, driverText, reason,
                  QString());
}

void tst_Dorvy3Connection::commandByTransactionStatus_data()
{
    QTest::addColumn<QString>("operation");
    QTest::addColumn<QStringList>("before");
    QTest::addColumn<QSqlError::ErrorType>("type");
    QTest::addColumn<QString>("driverText");
    QTest::addColumn<QString>("databaseText");
    QTest::addColumn<QStringList>("sent");
    QTest::addColumn<PGTransactionStatusType>("after");

    const QString begin = QStringLiteral("begin");
    const QString commit = QStringLiteral("commit");
    const QString rollback = QStringLiteral("rollback");
    const QStringList idle;
    const QStringList open = lines({"BEGIN"});
    const QStringList failed = lines({"BEGIN", "SELECT 1/0"});
    const QString noBegin = QStringLiteral("Невозможно начать транзакцию");
    const QString noBeginNow =
        QStringLiteral("Текущее состояние соединения запрещает начало транзакции");
    const QString noCommit = QStringLiteral("Невозможно завершить транзакцию");
    const QString noCommitNow =
        QStringLiteral("Текущее состояние соединения запрещает завершение транзакции");
    const auto fine = QSqlError::NoError;
    const auto error = QSqlError::TransactionError;
    const QString none;
    const QStringList nothing;

    QTest::newRow("begin, idle") << begin << idle << fine << none << none
                                 << lines({"1> Query \"BEGIN\""}) << PQTRANS_INTRANS;
    QTest::newRow("begin, in transaction")
        << begin << open << error << noBegin << noBeginNow << nothing << PQTRANS_INTRANS;
    QTest::newRow("begin, in failed transaction")
        << begin << failed << error << noBegin << noBeginNow << nothing << PQTRANS_INERROR;
    QTest::newRow("commit, idle") << commit << idle << error << noCommit << noCommitNow << nothing
                                  << PQTRANS_IDLE;
    QTest::newRow("commit, in transaction")
        << commit << open << fine << none << none << lines({"1> Query \"COMMIT\""}) << PQTRANS_IDLE;
    QTest::newRow("commit, in failed transaction")
        << commit << failed << error << noCommit << noCommitNow << nothing << PQTRANS_INERROR;
    QTest::newRow("rollback, idle")
        << rollback << idle << fine << none << none << nothing << PQTRANS_IDLE;
    QTest::newRow("rollback, in transaction") << rollback << open << fine << none << none
                                              << lines({"1> Query \"ROLLBACK\""}) << PQTRANS_IDLE;
    QTest::newRow("rollback, in failed transaction")
        << rollback << failed << fine << none << none << lines({"1> Query \"ROLLBACK\""})
        << PQTRANS_IDLE;
}

// One row of the command table, on a connection that may have a close outstanding.
void tst_Dorvy3Connection::compareCommand(bool behindAClose)
{
    QFETCH(QString, operation);
    QFETCH(QStringList, before);
    QFETCH(QSqlError::ErrorType, type);
    QFETCH(QString, driverText);
    QFETCH(QString, databaseText);
    QFETCH(QStringList, sent);
    QFETCH(PGTransactionStatusType, after);
    const ConnectionPtr connection = connect();
    for (const QString &sql : before) {
        run(connection, sql.toLatin1());
    }
    proxy->clear();
    if (behindAClose) {
        QCOMPARE(PPQclose(connection->connection(), nullptr, "st"), 1);
        QCOMPARE(PQtransactionStatus(connection->connection()), PQTRANS_ACTIVE); // not the true one
        sent = lines({"1> Close S \"st\"", "1> Sync"}) + sent;
    }
    const QSqlError error = transactionCommand(*connection, operation);
    QCOMPARE(error.type(), type);
    QCOMPARE(error.driverText(), driverText);
    QCOMPARE(error.databaseText(), databaseText);
    QCOMPARE(error.nativeErrorCode(), QString());
    QCOMPARE(proxy->frontend(), sent);
    QCOMPARE(PQtransactionStatus(connection->connection()), after);
}

void tst_Dorvy3Connection::commandByTransactionStatus()
{
    compareCommand(false);
}

void tst_Dorvy3Connection::commandDuringCopyIsLeftAlone()
{
    // The status is "active": a rollback has nothing to send and does not end the copy either.
    const ConnectionPtr connection = connect();
    const ResultPtr copy(PQexec(connection->connection(), "COPY (SELECT 7) TO STDOUT"));
    QCOMPARE(PQresultStatus(copy.get()), PGRES_COPY_OUT);
    proxy->clear();
    VERIFY_NO_ERROR(connection->rollbackTransaction());
    QCOMPARE(proxy->frontend(), QStringList());
    char *row = nullptr;
    QCOMPARE(PQgetCopyData(connection->connection(), &row, 0), 2);
    QCOMPARE(QByteArray(row), QByteArray("7\n"));
    PQfreemem(row);
}

void tst_Dorvy3Connection::copyRefusesBeginAndCommit()
{
    const ConnectionPtr connection = connect();
    VERIFY_NO_ERROR(connection->beginTransaction());
    const ResultPtr copy(PQexec(connection->connection(), "COPY (SELECT 7) TO STDOUT"));
    QCOMPARE(PQresultStatus(copy.get()), PGRES_COPY_OUT);
    proxy->clear();
    COMPARE_ERROR(connection->beginTransaction(), TransactionError,
                  QStringLiteral("Невозможно начать транзакцию"),
                  QStringLiteral("Текущее состояние соединения запрещает начало транзакции"),
                  QString());
    COMPARE_ERROR(connection->commitTransaction(), TransactionError,
                  QStringLiteral("Невозможно завершить транзакцию"),
                  QStringLiteral("Текущее состояние соединения запрещает завершение транзакции"),
                  QString());
    QCOMPARE(proxy->frontend(), QStringList());
}

void tst_Dorvy3Connection::refusedCommandGivesServersMessage_data()
{
    QTest::addColumn<QString>("operation");
    QTest::addColumn<QByteArray>("sql");
    QTest::addColumn<QString>("driverText");
    QTest::newRow("begin") << QStringLiteral("begin") << QByteArray("BEGIN")
                           << QStringLiteral("Ошибка при попытке начать транзакцию");
    QTest::newRow("commit") << QStringLiteral("commit") << QByteArray("COMMIT")
                            << QStringLiteral("Ошибка при попытке завершить транзакцию");
    QTest::newRow("rollback") << QStringLiteral("rollback") << QByteArray("ROLLBACK")
                              << QStringLiteral("Ошибка при попытке отменить транзакцию");
}

void tst_Dorvy3Connection::refusedCommandGivesServersMessage()
{
    QFETCH(QString, operation);
    QFETCH(QByteArray, sql);
    QFETCH(QString, driverText);
    ScriptedServer server("UTF8", "WIN1251"); // the message comes in the client's encoding
    Dorvy3Connection connection(PQconnectdb(server.conninfo().constData()), QString());
    if (sql != "BEGIN") {
        VERIFY_NO_ERROR(connection.beginTransaction());
    }
    server.refuse(sql, "\xD9\xE8");
    COMPARE_ERROR(transactionCommand(connection, operation), TransactionError, driverText,
                  QStringLiteral("ERROR:  Щи\n"), QString());
    QCOMPARE(server.queries().last(), sql);
    QVERIFY(connection.isValid());
}

void tst_Dorvy3Connection::nullResultGivesConnectionsMessage_data()
{
    refusedCommandGivesServersMessage_data();
}

void tst_Dorvy3Connection::nullResultGivesConnectionsMessage()
{
    QFETCH(QString, operation);
    QFETCH(QByteArray, sql);
    QFETCH(QString, driverText);
    const ConnectionPtr connection = connect();
    if (sql != "BEGIN") {
        VERIFY_NO_ERROR(connection->beginTransaction());
    }
    QCOMPARE(PQenterPipelineMode(connection->connection()), 1); // PQexec gives null in it
    proxy->clear();
    COMPARE_ERROR(transactionCommand(*connection, operation), TransactionError, driverText,
                  QStringLiteral("synchronous command execution functions are not allowed in "
                                 "pipeline mode\n"),
                  QString());
    QCOMPARE(proxy->frontend(), QStringList());
    QVERIFY(connection->isValid());
}

void tst_Dorvy3Connection::nullResultIsReadInTheClientsEncoding_data()
{
    refusedCommandGivesServersMessage_data();
}

void tst_Dorvy3Connection::nullResultIsReadInTheClientsEncoding()
{
    QFETCH(QString, operation);
    QFETCH(QByteArray, sql);
    QFETCH(QString, driverText);
    const ScriptedServer server("UTF8", "CP9");
    Dorvy3Connection connection(PQconnectdb(server.conninfo().constData()), QString());
    if (sql != "BEGIN") {
        VERIFY_NO_ERROR(connection.beginTransaction());
    }
    QCOMPARE(PQenterPipelineMode(connection.connection()), 1);
    COMPARE_ERROR(transactionCommand(connection, operation), TransactionError, driverText,
                  QStringLiteral("CP9:synchronous command execution functions are not allowed in "
                                 "pipeline mode\n"),
                  QString());
}

void tst_Dorvy3Connection::lostConnectionGivesLibpqsMessage_data()
{
    refusedCommandGivesServersMessage_data();
}

void tst_Dorvy3Connection::lostConnectionGivesLibpqsMessage()
{
    QFETCH(QString, operation);
    QFETCH(QByteArray, sql);
    QFETCH(QString, driverText);
    const ConnectionPtr connection = connect();
    if (sql != "BEGIN") {
        VERIFY_NO_ERROR(connection->beginTransaction());
    }
    proxy->cut(); // unnoticed: the status is still good
    COMPARE_ERROR(transactionCommand(*connection, operation), TransactionError, driverText,
                  QStringLiteral("server closed the connection unexpectedly\n"
                                 "\tThis probably means the server terminated abnormally\n"
                                 "\tbefore or while processing the request.\n"),
                  QString());
    QVERIFY(!connection->isValid());
    QVERIFY(connection->isOpen()); // an error closes nothing
}

void tst_Dorvy3Connection::failedCommitGivesServersTextInItsEncoding()
{
    const QString database = QStringLiteral("db_win1251");
    cluster.run(QStringLiteral("CREATE TABLE guarded (a int); "
                               "CREATE FUNCTION guard() RETURNS trigger LANGUAGE plpgsql AS "
                               "$$ BEGIN RAISE EXCEPTION '%', "
                               "convert_from('\\xcde5ebfce7ff', 'WIN1251'); END $$; "
                               "CREATE CONSTRAINT TRIGGER guard AFTER INSERT ON guarded "
                               "DEFERRABLE INITIALLY DEFERRED FOR EACH ROW EXECUTE PROCEDURE "
                               "guard()"),
                database);
    const ConnectionPtr connection = connect(QString(), database);
    VERIFY_NO_ERROR(connection->beginTransaction());
    QVERIFY(run(connection, "INSERT INTO guarded VALUES (1)"));
    const QSqlError error = connection->commitTransaction();
    QCOMPARE(error.type(), QSqlError::TransactionError);
    QCOMPARE(error.driverText(), QStringLiteral("Ошибка при попытке завершить транзакцию"));
    QVERIFY2(error.databaseText().startsWith(QStringLiteral("ERROR:  Нельзя\n")),
             qPrintable(error.databaseText()));
    QCOMPARE(error.nativeErrorCode(), QString());
}

void tst_Dorvy3Connection::failedTransactionIsClearedByRollbackOnly()
{
    const ConnectionPtr connection = connect();
    VERIFY_NO_ERROR(connection->beginTransaction());
    QVERIFY(!run(connection, "SELECT 1/0"));
    for (int i = 0; i < 2; ++i) {
        COMPARE_ERROR(
            connection->commitTransaction(), TransactionError,
            QStringLiteral("Невозможно завершить транзакцию"),
            QStringLiteral("Текущее состояние соединения запрещает завершение транзакции"),
            QString());
    }
    VERIFY_NO_ERROR(connection->rollbackTransaction());
    VERIFY_NO_ERROR(connection->beginTransaction());
    VERIFY_NO_ERROR(connection->commitTransaction());
}

void tst_Dorvy3Connection::failedCommitLeavesServersState()
{
    cluster.run(QStringLiteral("CREATE TABLE deferred (a int UNIQUE DEFERRABLE INITIALLY "
                               "DEFERRED)"));
    const ConnectionPtr connection = connect();
    VERIFY_NO_ERROR(connection->beginTransaction());
    QVERIFY(run(connection, "INSERT INTO deferred VALUES (1), (1)"));
    QCOMPARE(connection->commitTransaction().type(), QSqlError::TransactionError);
    QCOMPARE(PQtransactionStatus(connection->connection()), PQTRANS_IDLE);
    VERIFY_NO_ERROR(connection->beginTransaction());
    cluster.run(QStringLiteral("DROP TABLE deferred"));
}

void tst_Dorvy3Connection::commandAfterOutstandingClose_data()
{
    commandByTransactionStatus_data();
}

void tst_Dorvy3Connection::commandAfterOutstandingClose()
{
    compareCommand(true);
}

void tst_Dorvy3Connection::commandGoesOutBehindAClose()
{
    const ConnectionPtr connection = connect();
    VERIFY_NO_ERROR(connection->beginTransaction());
    proxy->clear();
    proxy->holdReplies(true);
    QCOMPARE(PPQclose(connection->connection(), nullptr, "st"), 1);
    bool wasSent = false;
    std::thread release([this, &wasSent] {
        wasSent = proxy->waitForLine(QStringLiteral("1> Query \"ROLLBACK\""));
        proxy->holdReplies(false);
    });
    const QSqlError error = connection->rollbackTransaction();
    release.join();
    VERIFY_NO_ERROR(error);
    QVERIFY(wasSent); // while the answer to the close was held back
    QCOMPARE(
        proxy->conversation(),
        lines({"1> Close S \"st\"", "1> Sync", "1< CloseComplete", "1< ReadyForQuery T",
               "1> Query \"ROLLBACK\"", "1< CommandComplete \"ROLLBACK\"", "1< ReadyForQuery I"}));
}

// The close fails the transaction, which the server then rolls back in place of the commit.
void tst_Dorvy3Connection::commitBehindAFailedClose()
{
    using namespace ServerMessage;
    const ScriptedPeer peer([](PeerLink &link) {
        link.setPatience(10);
        link.greet();
        link.readRequest();
        link.send(commandComplete("SET") + readyForQuery('I'));
        link.readRequest();
        link.send(commandComplete("BEGIN") + readyForQuery('T'));
        link.readRequest();
        link.send(errorResponse("XX000", "the portal cannot be closed") + readyForQuery('E'));
        link.readRequest();
        link.send(commandComplete("ROLLBACK") + readyForQuery('I'));
        link.readRequest(); // the statement is closed again
        link.send(closeComplete() + readyForQuery('I'));
        link.awaitEnd();
    });
    Dorvy3Connection connection(PQconnectdb(peer.conninfo().constData()), QString());
    VERIFY_NO_ERROR(connection.beginTransaction());
    QCOMPARE(PPQclose(connection.connection(), "po", "st"), 1);
    COMPARE_ERROR(connection.commitTransaction(), TransactionError,
                  QStringLiteral("Невозможно завершить транзакцию"),
                  QStringLiteral("Текущее состояние соединения запрещает завершение транзакции"),
                  QString());
    QCOMPARE(PQtransactionStatus(connection.connection()), PQTRANS_IDLE);
}

void tst_Dorvy3Connection::refusalOnALostConnection_data()
{
    QTest::addColumn<QString>("operation");
    QTest::addColumn<bool>("inTransaction");
    QTest::addColumn<QString>("driverText");
    QTest::newRow("begin") << QStringLiteral("begin") << true
                           << QStringLiteral("Невозможно начать транзакцию");
    QTest::newRow("commit") << QStringLiteral("commit") << false
                            << QStringLiteral("Невозможно завершить транзакцию");
    QTest::newRow("rollback") << QStringLiteral("rollback") << false
                              << QStringLiteral("Невозможно отменить транзакцию");
}

// That the connection is gone comes to light when the answer to the close is taken in.
void tst_Dorvy3Connection::refusalOnALostConnection()
{
    QFETCH(QString, operation);
    QFETCH(bool, inTransaction);
    QFETCH(QString, driverText);
    const ConnectionPtr connection = connect();
    if (inTransaction) {
        VERIFY_NO_ERROR(connection->beginTransaction());
    }
    proxy->holdReplies(true);
    QCOMPARE(PPQclose(connection->connection(), nullptr, "st"), 1);
    proxy->cut();
    COMPARE_ERROR(transactionCommand(*connection, operation), TransactionError, driverText,
                  QStringLiteral("Отсутствует соединение с СУБД"), QString());
}

QTEST_GUILESS_MAIN(tst_Dorvy3Connection)
#include "tst_dorvy3connection.moc"
