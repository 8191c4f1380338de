// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Dorvy3Statement from its name to its end: preparing, describing, closing.
#include "access/dorvy3.h"

#include "tests/support/connectionhelpers.h"
#include "tests/support/pgcluster.h"
#include "tests/support/someerror.h"
#include "tests/support/sqlmacros.h"
#include "tests/support/testaccess.h"
#include "tests/support/textlines.h"
#include "tests/support/wireproxy.h"

#include <QtTest/QtTest>

#include <malloc.h>

#include <algorithm>
#include <memory>
#include <new>
#include <thread>

namespace {

using Access = Dorvy3TestAccess;

QString prepareFailed()
{
    return QStringLiteral("Ошибка при подготовке запроса к СУБД");
}

// What prep() says where there is no connection to prepare on.
QSqlError noConnection()
{
    return QSqlError(QStringLiteral("Невозможно подготовить запрос"),
                     QStringLiteral("Отсутствует соединение с СУБД"), QSqlError::StatementError,
                     QStringLiteral("0"));
}

QByteArray nameOf(const void *address)
{
    return QByteArray("pdstmt") + QByteArray::number(reinterpret_cast<qint64>(address), 16);
}

QByteArray preparedOn(const ConnectionPtr &connection)
{
    return ask(connection, "SELECT count(*) FROM pg_prepared_statements");
}

// The lines with the two closes at their beginning sorted: which of them goes first has a test of
// its own.
QStringList closesInOrder(QStringList lines)
{
    std::sort(lines.begin(), lines.begin() + qMin(2, lines.size()));
    return lines;
}

// A text with a thousand parameters, all int4.
QString thousandIntegers()
{
    QStringList columns;
    for (int i = 1; i <= 1000; ++i) {
        columns += QStringLiteral("$%1::int4").arg(i);
    }
    return QStringLiteral("SELECT ") + columns.join(QLatin1Char(','));
}

} // namespace

Q_DECLARE_METATYPE(QSharedPointer<Dorvy3Connection>)

class tst_Dorvy3Statement : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void cleanupTestCase();

    void namesComeFromTheAddress();
    void statementNameIsThePortalNameWithoutP();
    void liveStatementsNeverShareAName();
    void newStatementIsEmpty();

    void prepSendsTheTextWithoutTypes();
    void textGoesInTheServerEncoding();
    void serverInfersTheTypes_data();
    void serverInfersTheTypes();
    void parameterBlockIsOne();
    void noParametersNoBlock();
    void thousandParameters();
    void blockHasTwentyBytesPerParameter();
    void descriptionKeepsTheConnection();
    void readonlyMeansColumns_data();
    void readonlyMeansColumns();

    void prepAgainClosesFirst();
    void prepAgainMovesToTheOtherConnection();
    void prepAgainWithoutParametersFreesTheBlock();
    void reusedAddressReusesTheName();

    void noConnectionIsRefused_data();
    void noConnectionIsRefused();
    void refusalDropsTheEarlierPreparation();
    void rejectedTextLeavesNothing();
    void failedPrepDropsTheEarlierPreparation();
    void failedDescribeClosesTheStatement();
    void nullResultReportsTheConnectionsMessage();
    void serverGoneWhilePreparing();
    void serverMessageIsDecoded();
    void failedTransactionRefusesPreparation();
    void nullErrorIsAllowed();
    void successResetsTheError();

    void errorOfAResult();
    void errorOfNoResult();
    void errorOfNoConnection();

    void prepRegistersWithTheDatabase();
    void failedPrepDoesNotRegister();
    void destructorUnregisters();

    void clearClosesPortalAndStatement();
    void portalIsClosedBeforeTheStatement();
    void clearKeepsQueryAndNames();
    void clearOfAnEmptyStatementSendsNothing();
    void clearTwiceClosesOnce();
    void clearWithoutAConnectionOnlyForgets();
    void clearClosesBeforeItUnregisters();
    void lostConnectionStaysPreparedUntilCleared_data();
    void lostConnectionStaysPreparedUntilCleared();
    void destructorClosesOnTheServer();

private:
    ConnectionPtr connect(const QString &database = QStringLiteral("postgres")) const;
    QSqlError open(Dorvy3Database &database) const;
    QStringList numbered(std::initializer_list<const char *> lines) const;
    void verifyEmpty(const Dorvy3Statement &statement);

    PgCluster cluster;
    std::unique_ptr<WireProxy> proxy;
    ConnectionPtr connection;
};

void tst_Dorvy3Statement::initTestCase()
{
    QVERIFY2(cluster.start(), qPrintable(cluster.why()));
    cluster.run(QStringLiteral("CREATE TABLE kept (a int, b text)"));
    cluster.createDatabase(QStringLiteral("cyrillic"), QStringLiteral("WIN1251"));
    proxy.reset(new WireProxy(cluster.socketDir(), cluster.port()));
}

void tst_Dorvy3Statement::cleanupTestCase()
{
    proxy.reset();
}

ConnectionPtr tst_Dorvy3Statement::connect(const QString &database) const
{
    return connectThrough(*proxy, database);
}

QSqlError tst_Dorvy3Statement::open(Dorvy3Database &database) const
{
    return database.open(QStringLiteral("postgres"), QStringLiteral("dorvy"), QString(),
                         cluster.socketDir(), cluster.port(), QString(), QString());
}

void tst_Dorvy3Statement::init()
{
    connection = connect();
    QVERIFY(connection->isValid());
    proxy->clear();
}

void tst_Dorvy3Statement::cleanup()
{
    proxy->holdReplies(false);
    connection.clear();
}

// The lines with the newest connection's number.
QStringList tst_Dorvy3Statement::numbered(std::initializer_list<const char *> lines) const
{
    return ::numbered(proxy->connectionCount(), lines);
}

void tst_Dorvy3Statement::verifyEmpty(const Dorvy3Statement &statement)
{
    QVERIFY(Access::description(statement).isNull());
    QVERIFY(!Access::database(statement));
    QVERIFY(!Access::params(statement));
    QVERIFY(!Access::paramValues(statement));
    QVERIFY(!Access::paramLengths(statement));
    QVERIFY(!Access::paramFormats(statement));
    QVERIFY(!Access::paramTypes(statement));
    QVERIFY(!statement.readonly());
}

void tst_Dorvy3Statement::namesComeFromTheAddress()
{
    const Dorvy3Statement onStack;
    QCOMPARE(QByteArray(onStack.portalname()), nameOf(&onStack));
    const auto onHeap = QSharedPointer<Dorvy3Statement>::create();
    QCOMPARE(QByteArray(onHeap->portalname()), nameOf(onHeap.data()));
}

void tst_Dorvy3Statement::statementNameIsThePortalNameWithoutP()
{
    const Dorvy3Statement statement;
    QCOMPARE(QByteArray(statement.statementname()), nameOf(&statement).mid(1));
    QVERIFY(statement.statementname() == statement.portalname() + 1); // one buffer
    QVERIFY(QByteArray(statement.statementname()).startsWith("dstmt"));
}

void tst_Dorvy3Statement::liveStatementsNeverShareAName()
{
    QList<QSharedPointer<Dorvy3Statement>> statements;
    QSet<QByteArray> names;
    for (int i = 0; i < 100; ++i) {
        statements += QSharedPointer<Dorvy3Statement>::create();
        names += QByteArray(statements.last()->portalname());
        names += QByteArray(statements.last()->statementname());
    }
    QCOMPARE(names.size(), 200);
}

void tst_Dorvy3Statement::newStatementIsEmpty()
{
    const Dorvy3Statement statement;
    verifyEmpty(statement);
    QCOMPARE(Access::query(statement), QString());
}

void tst_Dorvy3Statement::prepSendsTheTextWithoutTypes()
{
    Dorvy3Statement statement;
    QSqlError error;
    const QString text = QStringLiteral("SELECT $1::int8, b FROM kept WHERE a = $2");
    QVERIFY(statement.prep(text, connection, &error, nullptr));
    VERIFY_NO_ERROR(error);
    QCOMPARE(Access::query(statement), text);
    QCOMPARE(proxy->conversation(),
             numbered({"> Parse S1 \"SELECT $1::int8, b FROM kept WHERE a = $2\" 0", "> Sync",
                       "< ParseComplete", "< ReadyForQuery I", "> Describe S S1", "> Sync",
                       "< ParameterDescription 20 23", "< RowDescription 2", "< ReadyForQuery I"}));
    QCOMPARE(ask(connection, "SELECT name FROM pg_prepared_statements"),
             QByteArray(statement.statementname()));
}

void tst_Dorvy3Statement::textGoesInTheServerEncoding()
{
    const ConnectionPtr cyrillic = connect(QStringLiteral("cyrillic"));
    proxy->clear();
    Dorvy3Statement statement;
    const QString text = QStringLiteral("SELECT 'жук'");
    QVERIFY(statement.prep(text, cyrillic, nullptr, nullptr));
    QCOMPARE(Access::query(statement), text);
    const QByteArray parse = proxy->messages().first().body;
    QCOMPARE(parse.mid(parse.indexOf('\0')), QByteArray("\0SELECT '\xe6\xf3\xea'\0\0\0", 16));
    statement.hlpClear();
    proxy->clear();
    QVERIFY(statement.prep(text, connection, nullptr, nullptr));
    const QVector<WireMessage> messages = proxy->messages();
    QVERIFY(std::any_of(messages.begin(), messages.end(), [](const WireMessage &message) {
        return message.type == 'P' && message.body.contains("\xd0\xb6\xd1\x83\xd0\xba");
    }));
}

void tst_Dorvy3Statement::serverInfersTheTypes_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QList<int>>("types");
    QTest::newRow("none") << QStringLiteral("SELECT 1") << QList<int>();
    QTest::newRow("by cast") << QStringLiteral("SELECT $1::date") << QList<int>{1082};
    QTest::newRow("by column") << QStringLiteral("INSERT INTO kept VALUES ($1, $2)")
                               << QList<int>{23, 25};
    QTest::newRow("by operator") << QStringLiteral("SELECT 1.5 + $1") << QList<int>{1700};
    QTest::newRow("nothing to go by") << QStringLiteral("SELECT $1") << QList<int>{25};
    QTest::newRow("out of order") << QStringLiteral("SELECT $3::time, $1::int2, $2::bool")
                                  << QList<int>{21, 16, 1083};
    QTest::newRow("one twice") << QStringLiteral("SELECT $1::int4, $1") << QList<int>{23};
}

void tst_Dorvy3Statement::serverInfersTheTypes()
{
    QFETCH(QString, text);
    QFETCH(QList<int>, types);
    Dorvy3Statement statement;
    QVERIFY(statement.prep(text, connection, nullptr, nullptr));
    QCOMPARE(PQnparams(Access::description(statement)->result), types.size());
    for (int i = 0; i < types.size(); ++i) {
        QCOMPARE(Access::paramTypes(statement)[i], Oid(types.at(i)));
    }
}

void tst_Dorvy3Statement::parameterBlockIsOne()
{
    Dorvy3Statement statement;
    QVERIFY(statement.prep(QStringLiteral("SELECT $1::int8, $2::int2, $3::text"), connection,
                           nullptr, nullptr));
    const char *block = static_cast<const char *>(Access::params(statement));
    QVERIFY(block);
    const auto offset = [block](const void *array) {
        return static_cast<int>(static_cast<const char *>(array) - block);
    };
    QCOMPARE(offset(Access::paramValues(statement)), 0);
    QCOMPARE(offset(Access::paramLengths(statement)), 24);
    QCOMPARE(offset(Access::paramFormats(statement)), 36);
    QCOMPARE(offset(Access::paramTypes(statement)), 48);
    QCOMPARE(Access::paramTypes(statement)[0], Oid(20));
    QCOMPARE(Access::paramTypes(statement)[1], Oid(21));
    QCOMPARE(Access::paramTypes(statement)[2], Oid(25));
}

void tst_Dorvy3Statement::noParametersNoBlock()
{
    Dorvy3Statement statement;
    QVERIFY(statement.prep(QStringLiteral("SELECT 1"), connection, nullptr, nullptr));
    QVERIFY(!Access::description(statement).isNull());
    QVERIFY(!Access::params(statement));
    QVERIFY(!Access::paramValues(statement));
    QVERIFY(!Access::paramLengths(statement));
    QVERIFY(!Access::paramFormats(statement));
    QVERIFY(!Access::paramTypes(statement));
}

void tst_Dorvy3Statement::thousandParameters()
{
    Dorvy3Statement statement;
    QVERIFY(statement.prep(thousandIntegers(), connection, nullptr, nullptr));
    QCOMPARE(PQnparams(Access::description(statement)->result), 1000);
    for (int i = 0; i < 1000; ++i) {
        QCOMPARE(Access::paramTypes(statement)[i], Oid(23));
    }
}

void tst_Dorvy3Statement::blockHasTwentyBytesPerParameter()
{
    Dorvy3Statement statement;
    QVERIFY(statement.prep(thousandIntegers(), connection, nullptr, nullptr));
    const std::size_t bytes = malloc_usable_size(const_cast<void *>(Access::params(statement)));
    QVERIFY(bytes >= 20000);
    QVERIFY2(bytes <= 20480, QByteArray::number(qulonglong(bytes))); // what an allocator rounds up
}

void tst_Dorvy3Statement::descriptionKeepsTheConnection()
{
    const QWeakPointer<Dorvy3Connection> watch = connection;
    Dorvy3Statement statement;
    QVERIFY(statement.prep(QStringLiteral("SELECT 1 AS one"), connection, nullptr, nullptr));
    const QSharedPointer<Dorvy3Result> description = Access::description(statement);
    QCOMPARE(description->connection, connection);
    QCOMPARE(PQresultStatus(description->result), PGRES_COMMAND_OK);
    QCOMPARE(PQnfields(description->result), 1);
    QCOMPARE(QByteArray(PQfname(description->result, 0)), QByteArray("one"));
    QCOMPARE(PQftype(description->result, 0), Oid(23));
    connection.clear();
    statement.hlpClear();
    QVERIFY(!watch.isNull()); // the description that this test holds
    QCOMPARE(QByteArray(PQfname(description->result, 0)), QByteArray("one"));
}

void tst_Dorvy3Statement::readonlyMeansColumns_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("readonly");
    QTest::newRow("SELECT") << QStringLiteral("SELECT a FROM kept") << true;
    QTest::newRow("VALUES") << QStringLiteral("VALUES (1)") << true;
    QTest::newRow("SHOW") << QStringLiteral("SHOW work_mem") << true;
    QTest::newRow("EXPLAIN") << QStringLiteral("EXPLAIN SELECT 1") << true;
    QTest::newRow("SELECT of no columns") << QStringLiteral("SELECT") << false;
    QTest::newRow("INSERT") << QStringLiteral("INSERT INTO kept VALUES (1)") << false;
    QTest::newRow("INSERT returning")
        << QStringLiteral("INSERT INTO kept VALUES (1) RETURNING a") << true;
    QTest::newRow("UPDATE") << QStringLiteral("UPDATE kept SET a = 1") << false;
    QTest::newRow("DELETE returning") << QStringLiteral("DELETE FROM kept RETURNING *") << true;
    QTest::newRow("changing WITH")
        << QStringLiteral("WITH d AS (DELETE FROM kept RETURNING a) SELECT a FROM d") << true;
    QTest::newRow("CREATE TABLE") << QStringLiteral("CREATE TABLE other (a int)") << false;
    QTest::newRow("SET") << QStringLiteral("SET work_mem = '8MB'") << false;
    QTest::newRow("COPY") << QStringLiteral("COPY kept TO STDOUT") << false;
    QTest::newRow("BEGIN") << QStringLiteral("BEGIN") << false;
    QTest::newRow("empty") << QString() << false;
    QTest::newRow("comment") << QStringLiteral("-- nothing") << false;
}

void tst_Dorvy3Statement::readonlyMeansColumns()
{
    QFETCH(QString, text);
    QFETCH(bool, readonly);
    Dorvy3Statement statement;
    QSqlError error;
    QVERIFY2(statement.prep(text, connection, &error, nullptr), qPrintable(error.text()));
    QCOMPARE(statement.readonly(), readonly);
    statement.hlpClear();
    QVERIFY(!statement.readonly());
}

void tst_Dorvy3Statement::prepAgainClosesFirst()
{
    Dorvy3Statement statement;
    const QByteArray name = statement.portalname();
    QVERIFY(statement.prep(QStringLiteral("SELECT $1::int4"), connection, nullptr, nullptr));
    proxy->clear();
    QVERIFY(statement.prep(QStringLiteral("SELECT $1::int8"), connection, nullptr, nullptr));
    QCOMPARE(
        closesInOrder(proxy->conversation()),
        numbered({"> Close P P1", "> Close S S1", "> Sync", "< CloseComplete", "< CloseComplete",
                  "< ReadyForQuery I", "> Parse S1 \"SELECT $1::int8\" 0", "> Sync",
                  "< ParseComplete", "< ReadyForQuery I", "> Describe S S1", "> Sync",
                  "< ParameterDescription 20", "< RowDescription 1", "< ReadyForQuery I"}));
    QCOMPARE(QByteArray(statement.portalname()), name);
    QCOMPARE(Access::query(statement), QStringLiteral("SELECT $1::int8"));
    QCOMPARE(Access::paramTypes(statement)[0], Oid(20));
    QCOMPARE(preparedOn(connection), QByteArray("1"));
}

void tst_Dorvy3Statement::prepAgainMovesToTheOtherConnection()
{
    const ConnectionPtr other = connect();
    Dorvy3Statement statement;
    QVERIFY(statement.prep(QStringLiteral("SELECT 1"), connection, nullptr, nullptr));
    QCOMPARE(preparedOn(connection), QByteArray("1"));
    QVERIFY(statement.prep(QStringLiteral("SELECT 1"), other, nullptr, nullptr));
    QCOMPARE(Access::description(statement)->connection, other);
    QCOMPARE(preparedOn(connection), QByteArray("0"));
    QCOMPARE(preparedOn(other), QByteArray("1"));
}

void tst_Dorvy3Statement::prepAgainWithoutParametersFreesTheBlock()
{
    Dorvy3Statement statement;
    QVERIFY(statement.prep(QStringLiteral("SELECT $1::int4"), connection, nullptr, nullptr));
    QVERIFY(Access::params(statement));
    QVERIFY(statement.prep(QStringLiteral("SELECT 1"), connection, nullptr, nullptr));
    QVERIFY(!Access::params(statement));
    QVERIFY(!Access::paramValues(statement));
    QVERIFY(!Access::paramTypes(statement));
}

void tst_Dorvy3Statement::reusedAddressReusesTheName()
{
    alignas(Dorvy3Statement) char place[sizeof(Dorvy3Statement)];
    QByteArray names[2];
    for (QByteArray &name : names) {
        auto *statement = new (place) Dorvy3Statement;
        name = statement->portalname();
        QSqlError error;
        QVERIFY2(statement->prep(QStringLiteral("SELECT 1"), connection, &error, nullptr),
                 qPrintable(error.text()));
        statement->~Dorvy3Statement();
    }
    QCOMPARE(names[0], names[1]);
    QCOMPARE(preparedOn(connection), QByteArray("0"));
}

void tst_Dorvy3Statement::noConnectionIsRefused_data()
{
    QTest::addColumn<ConnectionPtr>("refused");
    const ConnectionPtr closed = connect();
    closed->close();
    QTest::newRow("null") << ConnectionPtr();
    QTest::newRow("without a handle") << ConnectionPtr::create(nullptr, QString());
    QTest::newRow("closed") << closed;
    QTest::newRow("never connected")
        << ConnectionPtr::create(PQconnectdb("host=/nowhere"), QString());
}

void tst_Dorvy3Statement::noConnectionIsRefused()
{
    QFETCH(ConnectionPtr, refused);
    Dorvy3Statement statement;
    QSqlError error = someError();
    QVERIFY(!statement.prep(QStringLiteral("SELECT 1"), refused, &error, nullptr));
    COMPARE_ERROR(error, StatementError, noConnection().driverText(), noConnection().databaseText(),
                  QStringLiteral("0"));
    verifyEmpty(statement);
    QCOMPARE(Access::query(statement), QString());
    QVERIFY(!statement.prep(QStringLiteral("SELECT 1"), refused, nullptr, nullptr));
}

void tst_Dorvy3Statement::refusalDropsTheEarlierPreparation()
{
    Dorvy3Statement statement;
    QVERIFY(statement.prep(QStringLiteral("SELECT $1::int4"), connection, nullptr, nullptr));
    QVERIFY(!statement.prep(QStringLiteral("SELECT 2"), ConnectionPtr(), nullptr, nullptr));
    verifyEmpty(statement);
    QCOMPARE(Access::query(statement), QStringLiteral("SELECT $1::int4"));
    QCOMPARE(preparedOn(connection), QByteArray("0"));
}

void tst_Dorvy3Statement::rejectedTextLeavesNothing()
{
    Dorvy3Statement statement;
    QSqlError error;
    QVERIFY(!statement.prep(QStringLiteral("SELEC 1"), connection, &error, nullptr));
    COMPARE_ERROR(error, StatementError,
                  QStringLiteral("ERROR:  syntax error at or near \"SELEC\"\n"
                                 "LINE 1: SELEC 1\n"
                                 "        ^\n"),
                  prepareFailed(), QString());
    verifyEmpty(statement);
    QCOMPARE(Access::query(statement), QString());
    QCOMPARE(preparedOn(connection), QByteArray("0"));
    // The names are not known to the server here, which is no error. No portal is closed.
    QCOMPARE(proxy->conversation().mid(0, 8),
             numbered({"> Parse S1 \"SELEC 1\" 0", "> Sync", "< ErrorResponse 42601",
                       "< ReadyForQuery I", "> Close S S1", "> Sync", "< CloseComplete",
                       "< ReadyForQuery I"}));
}

void tst_Dorvy3Statement::failedPrepDropsTheEarlierPreparation()
{
    Dorvy3Statement statement;
    const QString text = QStringLiteral("SELECT a FROM kept WHERE a = $1");
    QVERIFY(statement.prep(text, connection, nullptr, nullptr));
    QSqlError error;
    QVERIFY(!statement.prep(QStringLiteral("SELECT nothing"), connection, &error, nullptr));
    QCOMPARE(error.databaseText(), prepareFailed());
    verifyEmpty(statement);
    QCOMPARE(Access::query(statement), text); // as last prepared with success
    QCOMPARE(preparedOn(connection), QByteArray("0"));
}

void tst_Dorvy3Statement::failedDescribeClosesTheStatement()
{
    // The table goes between the preparation and its description: the answer to the former is
    // held back until it has.
    cluster.run(QStringLiteral("CREATE TABLE passing (a int)"));
    const QString prepared = numbered({"< ReadyForQuery I"}).first();
    bool dropped = false;
    proxy->holdReplies(true);
    std::thread dropper([&] {
        if (proxy->waitForLine(prepared)) {
            cluster.run(QStringLiteral("DROP TABLE passing"));
            dropped = true;
        }
        proxy->holdReplies(false);
    });
    Dorvy3Statement statement;
    QSqlError error;
    const bool done =
        statement.prep(QStringLiteral("SELECT a FROM passing"), connection, &error, nullptr);
    dropper.join();
    QVERIFY(dropped);
    QVERIFY(!done);
    COMPARE_ERROR(error, StatementError,
                  QStringLiteral("ERROR:  relation \"passing\" does not exist at character 15\n"),
                  prepareFailed(), QString());
    verifyEmpty(statement);
    QCOMPARE(Access::query(statement), QString());
    QCOMPARE(preparedOn(connection), QByteArray("0"));
    QCOMPARE(proxy->conversation().mid(0, 13),
             numbered({"> Parse S1 \"SELECT a FROM passing\" 0", "> Sync", "< ParseComplete",
                       "< ReadyForQuery I", "> Describe S S1", "> Sync", "< ParameterDescription",
                       "< ErrorResponse 42P01", "< ReadyForQuery I", "> Close S S1", "> Sync",
                       "< CloseComplete", "< ReadyForQuery I"}));
}

void tst_Dorvy3Statement::nullResultReportsTheConnectionsMessage()
{
    // Libpq refuses synchronous calls in pipeline mode with a null result.
    QCOMPARE(PQenterPipelineMode(connection->connection()), 1);
    Dorvy3Statement statement;
    QSqlError error;
    QVERIFY(!statement.prep(QStringLiteral("SELECT 1"), connection, &error, nullptr));
    // Of the preparation, not of the close behind it, which is refused in pipeline mode as well.
    COMPARE_ERROR(error, StatementError,
                  QStringLiteral("synchronous command execution functions are not allowed in "
                                 "pipeline mode\n"),
                  prepareFailed(), QString());
    verifyEmpty(statement);
    QCOMPARE(PQexitPipelineMode(connection->connection()), 1);
}

void tst_Dorvy3Statement::serverGoneWhilePreparing()
{
    proxy->cut();
    Dorvy3Statement statement;
    QSqlError error;
    QVERIFY(!statement.prep(QStringLiteral("SELECT 1"), connection, &error, nullptr));
    QCOMPARE(error.type(), QSqlError::StatementError);
    QCOMPARE(error.databaseText(), prepareFailed());
    QVERIFY2(error.driverText().contains(QStringLiteral("connection")),
             qPrintable(error.driverText()));
    QCOMPARE(error.nativeErrorCode(), QString());
    verifyEmpty(statement);
    // From now on libpq knows that the connection is lost.
    QVERIFY(!statement.prep(QStringLiteral("SELECT 1"), connection, &error, nullptr));
    QCOMPARE(error, noConnection());
    QCOMPARE(error.driverText(), noConnection().driverText());
    QCOMPARE(error.databaseText(), noConnection().databaseText());
}

void tst_Dorvy3Statement::serverMessageIsDecoded()
{
    const ConnectionPtr cyrillic = connect(QStringLiteral("cyrillic"));
    for (const ConnectionPtr &each : {connection, cyrillic}) {
        Dorvy3Statement statement;
        QSqlError error;
        QVERIFY(!statement.prep(QStringLiteral("SELECT жук"), each, &error, nullptr));
        COMPARE_ERROR(error, StatementError,
                      QStringLiteral("ERROR:  column \"жук\" does not exist\n"
                                     "LINE 1: SELECT жук\n"
                                     "               ^\n"),
                      prepareFailed(), QString());
    }
}

void tst_Dorvy3Statement::failedTransactionRefusesPreparation()
{
    command(connection, "BEGIN");
    Dorvy3Statement statement;
    QVERIFY(!statement.prep(QStringLiteral("SELECT nothing"), connection, nullptr, nullptr));
    QSqlError error;
    QVERIFY(!statement.prep(QStringLiteral("SELECT 1"), connection, &error, nullptr));
    COMPARE_ERROR(error, StatementError,
                  QStringLiteral("ERROR:  current transaction is aborted, commands ignored until "
                                 "end of transaction block\n"),
                  prepareFailed(), QString());
    command(connection, "ROLLBACK");
    QVERIFY(statement.prep(QStringLiteral("SELECT 1"), connection, &error, nullptr));
    VERIFY_NO_ERROR(error);
}

void tst_Dorvy3Statement::nullErrorIsAllowed()
{
    Dorvy3Statement statement;
    QVERIFY(!statement.prep(QStringLiteral("SELEC"), connection, nullptr, nullptr));
    QVERIFY(!statement.prep(QStringLiteral("SELECT 1"), ConnectionPtr(), nullptr, nullptr));
    QVERIFY(statement.prep(QStringLiteral("SELECT 1"), connection, nullptr, nullptr));
}

void tst_Dorvy3Statement::successResetsTheError()
{
    Dorvy3Statement statement;
    QSqlError error = someError();
    QVERIFY(statement.prep(QStringLiteral("SELECT 1"), connection, &error, nullptr));
    VERIFY_NO_ERROR(error);
}

void tst_Dorvy3Statement::errorOfAResult()
{
    const ConnectionPtr cyrillic = connect(QStringLiteral("cyrillic"));
    PGresult *result =
        PQexec(cyrillic->connection(), cyrillic->server(QStringLiteral("жук")).constData());
    // A later failure on the connection must not take the place of the result's message.
    PQclear(PQexec(cyrillic->connection(), "SELECT 1 / 0"));
    const Dorvy3Statement statement;
    const QSqlError error = statement.hlpError(result, cyrillic, QStringLiteral("текст"));
    PQclear(result);
    COMPARE_ERROR(error, StatementError,
                  QStringLiteral("ERROR:  syntax error at or near \"жук\"\n"
                                 "LINE 1: жук\n"
                                 "        ^\n"),
                  QStringLiteral("текст"), QString());
}

void tst_Dorvy3Statement::errorOfNoResult()
{
    PQclear(PQexec(connection->connection(), "SELECT 1 / 0"));
    const Dorvy3Statement statement;
    const QSqlError error = statement.hlpError(nullptr, connection, QStringLiteral("текст"));
    COMPARE_ERROR(error, StatementError, QStringLiteral("ERROR:  division by zero\n"),
                  QStringLiteral("текст"), QString());
}

void tst_Dorvy3Statement::errorOfNoConnection()
{
    PGresult *result = PQexec(connection->connection(), "SELECT 1 / 0");
    const Dorvy3Statement statement;
    const QSqlError error = statement.hlpError(result, ConnectionPtr(), QStringLiteral("текст"));
    PQclear(result);
    COMPARE_ERROR(error, StatementError, QString(), QStringLiteral("текст"), QString());
}

void tst_Dorvy3Statement::prepRegistersWithTheDatabase()
{
    Dorvy3Database database(QSharedPointer<Dorvy3Transacted>::create());
    VERIFY_NO_ERROR(open(database));
    Dorvy3Statement statement;
    const QString text = QStringLiteral("SELECT 1");
    QVERIFY(statement.prep(text, Access::connection(database), nullptr, &database));
    QCOMPARE(Access::database(statement), &database);
    QCOMPARE(Access::boundCount(database), 1);
    QVERIFY(statement.prep(text, Access::connection(database), nullptr, &database));
    QCOMPARE(Access::boundCount(database), 1);
    QVERIFY(statement.prep(text, Access::connection(database), nullptr, nullptr));
    QVERIFY(!Access::database(statement));
    QCOMPARE(Access::boundCount(database), 0);
    QVERIFY(statement.prep(text, Access::connection(database), nullptr, &database));
    statement.hlpClear();
    QVERIFY(!Access::database(statement));
    QCOMPARE(Access::boundCount(database), 0);
    statement.hlpClear();
    QCOMPARE(Access::boundCount(database), 0);
}

void tst_Dorvy3Statement::failedPrepDoesNotRegister()
{
    Dorvy3Database database(QSharedPointer<Dorvy3Transacted>::create());
    VERIFY_NO_ERROR(open(database));
    Dorvy3Statement statement;
    QVERIFY(
        !statement.prep(QStringLiteral("SELEC"), Access::connection(database), nullptr, &database));
    QVERIFY(!Access::database(statement));
    QCOMPARE(Access::boundCount(database), 0);
    QVERIFY(!statement.prep(QStringLiteral("SELECT 1"), ConnectionPtr(), nullptr, &database));
    QVERIFY(!Access::database(statement));
    QCOMPARE(Access::boundCount(database), 0);
    QVERIFY(statement.prep(QStringLiteral("SELECT 1"), Access::connection(database), nullptr,
                           &database));
    QVERIFY(
        !statement.prep(QStringLiteral("SELEC"), Access::connection(database), nullptr, &database));
    QCOMPARE(Access::boundCount(database), 0);
}

void tst_Dorvy3Statement::destructorUnregisters()
{
    Dorvy3Database database(QSharedPointer<Dorvy3Transacted>::create());
    VERIFY_NO_ERROR(open(database));
    auto first = QSharedPointer<Dorvy3Statement>::create();
    auto second = QSharedPointer<Dorvy3Statement>::create();
    const QString text = QStringLiteral("SELECT 1");
    QVERIFY(first->prep(text, Access::connection(database), nullptr, &database));
    QVERIFY(second->prep(text, Access::connection(database), nullptr, &database));
    QCOMPARE(Access::boundCount(database), 2);
    first.clear();
    QCOMPARE(Access::boundCount(database), 1);
    second.clear();
    QCOMPARE(Access::boundCount(database), 0);
}

void tst_Dorvy3Statement::clearClosesPortalAndStatement()
{
    command(connection, "BEGIN"); // without it the portal would go by itself
    Dorvy3Statement statement;
    QVERIFY(statement.prep(QStringLiteral("SELECT generate_series($1::int4, 9)"), connection,
                           nullptr, nullptr));
    const auto page = statement.exec({QVariant(1)}, nullptr, 2);
    QVERIFY(page);
    const QByteArray names = "SELECT (SELECT count(*) FROM pg_prepared_statements) || ' ' || "
                             "(SELECT count(*) FROM pg_cursors WHERE name LIKE 'pdstmt%')";
    QCOMPARE(ask(connection, names), QByteArray("1 1"));
    proxy->clear();
    statement.hlpClear();
    verifyEmpty(statement);
    QCOMPARE(ask(connection, names), QByteArray("0 0"));
    QCOMPARE(closesInOrder(proxy->conversation().mid(0, 6)),
             numbered({"> Close P P1", "> Close S S1", "> Sync", "< CloseComplete",
                       "< CloseComplete", "< ReadyForQuery T"}));
}

void tst_Dorvy3Statement::portalIsClosedBeforeTheStatement()
{
    Dorvy3Statement statement;
    QVERIFY(statement.prep(QStringLiteral("SELECT 1"), connection, nullptr, nullptr));
    proxy->clear();
    statement.hlpClear();
    ask(connection, "SELECT 2");
    QCOMPARE(proxy->frontend().mid(0, 2), numbered({"> Close P P1", "> Close S S1"}));
}

void tst_Dorvy3Statement::clearKeepsQueryAndNames()
{
    Dorvy3Statement statement;
    QVERIFY(statement.prep(QStringLiteral("SELECT 1"), connection, nullptr, nullptr));
    statement.hlpClear();
    QCOMPARE(Access::query(statement), QStringLiteral("SELECT 1"));
    QCOMPARE(QByteArray(statement.portalname()), nameOf(&statement));
    QCOMPARE(QByteArray(statement.statementname()), nameOf(&statement).mid(1));
}

void tst_Dorvy3Statement::clearOfAnEmptyStatementSendsNothing()
{
    Dorvy3Statement statement;
    statement.hlpClear();
    QVERIFY(!statement.prep(QStringLiteral("SELEC"), connection, nullptr, nullptr));
    ask(connection, "SELECT 1");
    proxy->clear();
    statement.hlpClear();
    ask(connection, "SELECT 2");
    QCOMPARE(proxy->frontend(), numbered({"> Query \"SELECT 2\""}));
}

void tst_Dorvy3Statement::clearTwiceClosesOnce()
{
    Dorvy3Statement statement;
    QVERIFY(statement.prep(QStringLiteral("SELECT 1"), connection, nullptr, nullptr));
    proxy->clear();
    statement.hlpClear();
    statement.hlpClear();
    ask(connection, "SELECT 2");
    QCOMPARE(closesInOrder(proxy->frontend()),
             numbered({"> Close P P1", "> Close S S1", "> Sync", "> Query \"SELECT 2\""}));
}

void tst_Dorvy3Statement::clearWithoutAConnectionOnlyForgets()
{
    Dorvy3Statement statement;
    QVERIFY(statement.prep(QStringLiteral("SELECT $1::int4"), connection, nullptr, nullptr));
    Access::description(statement)->connection.clear();
    statement.hlpClear();
    verifyEmpty(statement);
    QCOMPARE(preparedOn(connection), QByteArray("1")); // there was nobody to close it
}

void tst_Dorvy3Statement::clearClosesBeforeItUnregisters()
{
    // The last one to unregister gives the borrowed connection back, which ends its transaction.
    Dorvy3Database database(QSharedPointer<Dorvy3Transacted>::create());
    VERIFY_NO_ERROR(database.open(QStringLiteral("postgres"), QStringLiteral("dorvy"), QString(),
                                  proxy->host(), proxy->port(), QString(), QString()));
    const auto statement = database.statement(QStringLiteral("SELECT 1"), nullptr);
    QVERIFY(statement);
    const ConnectionPtr borrowed = Access::readConnection(database);
    QVERIFY(borrowed);
    proxy->clear();
    statement->hlpClear();
    QCOMPARE(closesInOrder(proxy->frontend(proxy->connectionCount())),
             numbered({"> Close P P1", "> Close S S1", "> Sync", "> Query \"ROLLBACK\""}));
    QVERIFY(!Access::readConnection(database));
    QCOMPARE(preparedOn(borrowed), QByteArray("0"));
}

void tst_Dorvy3Statement::lostConnectionStaysPreparedUntilCleared_data()
{
    QTest::addColumn<bool>("closed");
    QTest::newRow("closed here") << true;
    QTest::newRow("cut off") << false;
}

void tst_Dorvy3Statement::lostConnectionStaysPreparedUntilCleared()
{
    QFETCH(bool, closed);
    Dorvy3Database database(QSharedPointer<Dorvy3Transacted>::create());
    VERIFY_NO_ERROR(open(database));
    Dorvy3Statement statement;
    QVERIFY(statement.prep(QStringLiteral("SELECT $1::int4"), connection, nullptr, &database));
    if (closed) {
        connection->close();
    } else {
        proxy->cut();
        PQclear(PQexec(connection->connection(), "SELECT 1"));
    }
    QVERIFY(!connection->isValid());
    proxy->clear();
    QVERIFY(!Access::description(statement).isNull());
    QVERIFY(statement.readonly());
    QCOMPARE(Access::boundCount(database), 1);
    statement.hlpClear();
    verifyEmpty(statement);
    QCOMPARE(Access::boundCount(database), 0);
    QVERIFY(!proxy->conversation().join(QLatin1Char('\n')).contains(QStringLiteral("Close")));
}

void tst_Dorvy3Statement::destructorClosesOnTheServer()
{
    auto statement = QSharedPointer<Dorvy3Statement>::create();
    QVERIFY(statement->prep(QStringLiteral("SELECT 1"), connection, nullptr, nullptr));
    QSharedPointer<Dorvy3Statement> other = statement;
    statement.clear();
    QCOMPARE(preparedOn(connection), QByteArray("1"));
    proxy->clear();
    other.clear();
    QCOMPARE(preparedOn(connection), QByteArray("0"));
    QCOMPARE(closesInOrder(proxy->frontend().mid(0, 3)),
             numbered({"> Close P P1", "> Close S S1", "> Sync"}));
}

QTEST_GUILESS_MAIN(tst_Dorvy3Statement)
#include "tst_dorvy3statement.moc"
