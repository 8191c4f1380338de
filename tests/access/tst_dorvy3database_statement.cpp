// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Dorvy3Database::statement: what is said on which connection, and in which order.
#include "access/dorvy3connection.h"
#include "access/dorvy3database.h"
#include "access/dorvy3statement.h"
#include "access/dorvy3transacted.h"

#include "tests/support/connectionhelpers.h"
#include "tests/support/pgcluster.h"
#include "tests/support/sqlmacros.h"
#include "tests/support/testaccess.h"
#include "tests/support/textlines.h"
#include "tests/support/wireproxy.h"

#include <QtCore/QSharedPointer>
#include <QtTest/QtTest>

#include <memory>

namespace {

using StatementPtr = QSharedPointer<Dorvy3Statement>;
using Access = Dorvy3TestAccess;

// The statement names that the driver has prepared, in the order in which they turned up.
QStringList parsedNames(const QVector<WireMessage> &messages)
{
    QStringList names;
    for (const WireMessage &message : messages) {
        const QString name = QString::fromLatin1(message.body.constData());
        if (message.fromClient && message.type == 'P' && !names.contains(name)) {
            names += name;
        }
    }
    return names;
}

/*!
    The recorded lines with every statement's name in a plain query written S1, S2 and so on, as the
    proxy writes it elsewhere. Of the two messages that close a statement and its portal, the
    portal's stands first here: their order is the client library's own matter.
*/
QStringList normalized(QStringList said, const QVector<WireMessage> &messages)
{
    const QStringList names = parsedNames(messages);
    for (int i = 0; i < names.size(); ++i) {
        said.replaceInStrings(QStringLiteral(" %1\"").arg(names.at(i)),
                              QStringLiteral(" S%1\"").arg(i + 1));
    }
    for (int i = 0; i + 1 < said.size(); ++i) {
        if (said.at(i).contains(QStringLiteral("> Close S ")) &&
            said.at(i + 1).contains(QStringLiteral("> Close P "))) {
            said.move(i + 1, i);
        }
    }
    return said;
}

} // namespace

class tst_Dorvy3DatabaseStatement : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void withoutColumnsStaysOnTheOwnConnection();
    void withoutColumnsInATransactionStandsInASavepoint();
    void placeholdersAreTheServers();
    void textGoesInTheServersEncoding();

    void withColumnsMovesToTheBorrowedConnection();
    void withColumnsInATransactionStandsInASavepointOnTheOwnOnly();
    void returningMovesToTheBorrowedConnection();
    void secondReaderSharesTheBorrowedConnection();
    void schemaIsAskedOncePerBorrowing();
    void handlesSchemaIsNotAskedFor();
    void schemaGoesUnquoted();
    void schemaGoesThroughTheCodecs();
    void noCurrentSchemaSetsNoSearchPath();
    void failedSchemaQuerySetsNoSearchPath();
    void readerDoesNotSeeTheOwnTransaction();

    void sameTextMakesANewStatement();
    void droppedStatementIsClosedWhereItLives();
    void writersDoNotTouchCountOrPool();

    void closedHandle();
    void closedHandleWithoutErrorPointer();
    void lostConnection();
    void failedPreparationOutsideATransaction();
    void failedPreparationLeavesTransactionFailed();
    void failedPreparationInAFailedTransaction();
    void failedPreparationWithoutErrorPointer();
    void noSavepointDuringACopy();
    void savepointAlsoRightAfterAClose();
    void savepointIsLeftBehindByNobody();
    void poolDeliversNone();
    void poolDeliversNoneWithoutErrorPointer();
    void failedSecondPreparationKeepsTheBorrowed();
    void failedSecondPreparationFailsTheBorrowedTransaction();
    void failedSecondPreparationWithoutErrorPointer();
    void successResetsTheError_data();
    void successResetsTheError();

private:
    void open(const QString &schema = QString(),
              const QString &database = QStringLiteral("postgres"),
              const QString &user = QStringLiteral("dorvy"));
    StatementPtr prepare(const QString &query) { return handle->statement(query, &error); }
    QStringList frontend(int connection = 0) const
    {
        return normalized(proxy->frontend(connection), proxy->messages());
    }
    QStringList conversation() const
    {
        return normalized(proxy->conversation(), proxy->messages());
    }
    ConnectionPtr own() const { return Access::connection(*handle); }
    ConnectionPtr borrowed() const { return Access::readConnection(*handle); }

    PgCluster cluster;
    std::unique_ptr<WireProxy> proxy;
    QSharedPointer<Dorvy3Transacted> pool;
    std::unique_ptr<Dorvy3Database> handle;
    QSqlError error;
};

void tst_Dorvy3DatabaseStatement::initTestCase()
{
    QVERIFY2(cluster.start(), qPrintable(cluster.why()));
    cluster.createDatabase(QStringLiteral("db_win1251"), QStringLiteral("WIN1251"));
    cluster.run(QStringLiteral("CREATE TABLE t (a int, b text)"));
    cluster.run(QStringLiteral("CREATE SCHEMA one"));
    cluster.run(QStringLiteral("CREATE SCHEMA \"Mixed\""));
    // One for each test: a backend that is still going counts.
    cluster.run(QStringLiteral("CREATE ROLE single LOGIN CONNECTION LIMIT 1"));
    cluster.run(QStringLiteral("CREATE ROLE lonely LOGIN CONNECTION LIMIT 1"));
    qunsetenv("PGCLIENTENCODING");
}

void tst_Dorvy3DatabaseStatement::init()
{
    proxy.reset(new WireProxy(cluster.socketDir(), cluster.port()));
    pool = QSharedPointer<Dorvy3Transacted>::create();
    handle.reset(new Dorvy3Database(pool));
    error = QSqlError();
}

void tst_Dorvy3DatabaseStatement::cleanup()
{
    handle.reset();
    pool.reset();
    proxy.reset();
}

void tst_Dorvy3DatabaseStatement::open(const QString &schema, const QString &database,
                                       const QString &user)
{
    VERIFY_NO_ERROR(
        handle->open(database, user, QString(), proxy->host(), proxy->port(), QString(), schema));
    proxy->clear();
}

void tst_Dorvy3DatabaseStatement::withoutColumnsStaysOnTheOwnConnection()
{
    open();
    const StatementPtr statement = prepare(QStringLiteral("UPDATE t SET a = 1"));
    QVERIFY(statement);
    VERIFY_NO_ERROR(error);
    QVERIFY(!statement->readonly());
    QCOMPARE(conversation(),
             lines({"1> Parse S1 \"UPDATE t SET a = 1\" 0", "1> Sync", "1< ParseComplete",
                    "1< ReadyForQuery I", "1> Describe S S1", "1> Sync", "1< ParameterDescription",
                    "1< NoData", "1< ReadyForQuery I"}));
    QCOMPARE(Access::description(*statement)->connection, own());
    QCOMPARE(Access::database(*statement), static_cast<const Dorvy3Database *>(nullptr));
    QVERIFY(!borrowed());
    QCOMPARE(proxy->connectionCount(), 1);
}

void tst_Dorvy3DatabaseStatement::withoutColumnsInATransactionStandsInASavepoint()
{
    open();
    VERIFY_NO_ERROR(handle->beginTransaction());
    proxy->clear();
    const StatementPtr statement = prepare(QStringLiteral("UPDATE t SET a = 1"));
    QVERIFY(statement);
    QCOMPARE(conversation(),
             lines({"1> Query \"SAVEPOINT S1\"", "1< CommandComplete \"SAVEPOINT\"",
                    "1< ReadyForQuery T", "1> Parse S1 \"UPDATE t SET a = 1\" 0", "1> Sync",
                    "1< ParseComplete", "1< ReadyForQuery T", "1> Describe S S1", "1> Sync",
                    "1< ParameterDescription", "1< NoData", "1< ReadyForQuery T",
                    "1> Query \"RELEASE SAVEPOINT S1\"", "1< CommandComplete \"RELEASE\"",
                    "1< ReadyForQuery T"}));
    // Written out once: the name that stands for S1 above.
    QCOMPARE(proxy->messages().first().body,
             QByteArray("SAVEPOINT ") + statement->statementname() + '\0');
}

void tst_Dorvy3DatabaseStatement::placeholdersAreTheServers()
{
    open();
    const StatementPtr statement =
        prepare(QStringLiteral("UPDATE t SET a = $1, b = $2 WHERE b <> '%1 ? :x'"));
    QVERIFY(statement);
    const QByteArray body = proxy->messages().first().body;
    QCOMPARE(body.mid(body.indexOf('\0') + 1),
             QByteArray("UPDATE t SET a = $1, b = $2 WHERE b <> '%1 ? :x'\0\0\0", 51));
    QVERIFY(proxy->conversation().contains(QStringLiteral("1< ParameterDescription 23 25")));
}

void tst_Dorvy3DatabaseStatement::textGoesInTheServersEncoding()
{
    open(QString(), QStringLiteral("db_win1251"));
    const StatementPtr statement = prepare(QStringLiteral("DO 'Щи'"));
    const QByteArray body = proxy->messages().first().body;
    QCOMPARE(body.mid(body.indexOf('\0') + 1), QByteArray("DO '\xD9\xE8'\0\0\0", 10));
}

void tst_Dorvy3DatabaseStatement::withColumnsMovesToTheBorrowedConnection()
{
    open();
    const StatementPtr statement = prepare(QStringLiteral("SELECT a, b FROM t"));
    QVERIFY(statement);
    VERIFY_NO_ERROR(error);
    QVERIFY(statement->readonly());
    QCOMPARE(
        frontend(),
        lines({"1> Parse S1 \"SELECT a, b FROM t\" 0", "1> Sync", "1> Describe S S1", "1> Sync",
               "1> Query \"SELECT current_schema()\"", "2> Startup dorvy postgres",
               "2> Query \"SET DATESTYLE TO 'ISO'\"", "2> Query \"SET SEARCH_PATH TO public\"",
               "2> Query \"BEGIN\"", "1> Close P P1", "1> Close S S1", "1> Sync",
               "2> Parse S1 \"SELECT a, b FROM t\" 0", "2> Sync", "2> Describe S S1", "2> Sync"}));
    QCOMPARE(Access::description(*statement)->connection, borrowed());
    QCOMPARE(Access::database(*statement), static_cast<const Dorvy3Database *>(handle.get()));
    QCOMPARE(Access::boundCount(*handle), 1);
    QCOMPARE(ask(own(), "SELECT count(*) FROM pg_prepared_statements"), QByteArray("0"));
    QCOMPARE(ask(borrowed(), "SELECT count(*) FROM pg_prepared_statements"), QByteArray("1"));
    QCOMPARE(status(borrowed()), PQTRANS_INTRANS);
}

void tst_Dorvy3DatabaseStatement::withColumnsInATransactionStandsInASavepointOnTheOwnOnly()
{
    open();
    VERIFY_NO_ERROR(handle->beginTransaction());
    proxy->clear();
    const StatementPtr statement = prepare(QStringLiteral("SELECT a FROM t"));
    QVERIFY(statement);
    QCOMPARE(
        frontend(),
        lines({"1> Query \"SAVEPOINT S1\"", "1> Parse S1 \"SELECT a FROM t\" 0", "1> Sync",
               "1> Describe S S1", "1> Sync", "1> Query \"RELEASE SAVEPOINT S1\"",
               "1> Query \"SELECT current_schema()\"", "2> Startup dorvy postgres",
               "2> Query \"SET DATESTYLE TO 'ISO'\"", "2> Query \"SET SEARCH_PATH TO public\"",
               "2> Query \"BEGIN\"", "1> Close P P1", "1> Close S S1", "1> Sync",
               "2> Parse S1 \"SELECT a FROM t\" 0", "2> Sync", "2> Describe S S1", "2> Sync"}));
}

void tst_Dorvy3DatabaseStatement::returningMovesToTheBorrowedConnection()
{
    open();
    const StatementPtr statement = prepare(QStringLiteral("DELETE FROM t RETURNING a"));
    QVERIFY(statement);
    QVERIFY(statement->readonly());
    QVERIFY(borrowed());
    QCOMPARE(Access::description(*statement)->connection, borrowed());
}

void tst_Dorvy3DatabaseStatement::secondReaderSharesTheBorrowedConnection()
{
    open();
    const StatementPtr first = prepare(QStringLiteral("SELECT 1"));
    const ConnectionPtr shared = borrowed();
    proxy->clear();
    const StatementPtr second = prepare(QStringLiteral("SELECT 2"));
    QVERIFY(first);
    QVERIFY(second);
    QCOMPARE(borrowed(), shared);
    QCOMPARE(Access::description(*first)->connection, shared);
    QCOMPARE(Access::description(*second)->connection, shared);
    QCOMPARE(Access::boundCount(*handle), 2);
    QCOMPARE(proxy->connectionCount(), 2);
    QCOMPARE(frontend(),
             lines({"1> Parse S1 \"SELECT 2\" 0", "1> Sync", "1> Describe S S1", "1> Sync",
                    "1> Close P P1", "1> Close S S1", "1> Sync", "2> Parse S1 \"SELECT 2\" 0",
                    "2> Sync", "2> Describe S S1", "2> Sync"}));
}

void tst_Dorvy3DatabaseStatement::schemaIsAskedOncePerBorrowing()
{
    open();
    prepare(QStringLiteral("SELECT 1")); // dropped at once: the connection goes back
    QVERIFY(!borrowed());
    QCOMPARE(Access::schema(*handle), QString()); // the answer is not kept
    ask(own(), "SET search_path TO one");
    proxy->clear();
    const StatementPtr statement = prepare(QStringLiteral("SELECT 2"));
    QCOMPARE(frontend(),
             lines({"1> Parse S1 \"SELECT 2\" 0", "1> Sync", "1> Describe S S1", "1> Sync",
                    "1> Query \"SELECT current_schema()\"", "2> Query \"SET SEARCH_PATH TO one\"",
                    "2> Query \"BEGIN\"", "1> Close P P1", "1> Close S S1", "1> Sync",
                    "2> Parse S1 \"SELECT 2\" 0", "2> Sync", "2> Describe S S1", "2> Sync"}));
    QCOMPARE(ask(borrowed(), "SHOW search_path"), QByteArray("one"));
    QCOMPARE(proxy->connectionCount(), 2);
}

void tst_Dorvy3DatabaseStatement::handlesSchemaIsNotAskedFor()
{
    open(QStringLiteral("one,  \"Mixed\""));
    const StatementPtr statement = prepare(QStringLiteral("SELECT 1"));
    QVERIFY(statement);
    QCOMPARE(frontend(1), lines({"1> Parse S1 \"SELECT 1\" 0", "1> Sync", "1> Describe S S1",
                                 "1> Sync", "1> Close P P1", "1> Close S S1", "1> Sync"}));
    QCOMPARE(frontend(2).mid(0, 4),
             lines({"2> Startup dorvy postgres", "2> Query \"SET DATESTYLE TO 'ISO'\"",
                    "2> Query \"SET SEARCH_PATH TO one,  \"Mixed\"\"", "2> Query \"BEGIN\""}));
}

void tst_Dorvy3DatabaseStatement::schemaGoesUnquoted()
{
    open();
    ask(own(), "SET search_path TO \"Mixed\"");
    const StatementPtr statement = prepare(QStringLiteral("SELECT 1"));
    QVERIFY(frontend(2).contains(QStringLiteral("2> Query \"SET SEARCH_PATH TO Mixed\"")));
}

void tst_Dorvy3DatabaseStatement::schemaGoesThroughTheCodecs()
{
    open(QString(), QStringLiteral("db_win1251"));
    ask(own(), "CREATE SCHEMA \"\xF9\xE8\"");
    ask(own(), "SET search_path TO \"\xF9\xE8\"");
    proxy->clear();
    const StatementPtr statement = prepare(QStringLiteral("SELECT 1"));
    QVERIFY(statement);
    QList<QByteArray> queries;
    for (const WireMessage &message : proxy->messages()) {
        if (message.connection == 2 && message.fromClient && message.type == 'Q') {
            queries += message.body.left(message.body.size() - 1);
        }
    }
    QCOMPARE(queries,
             QList<QByteArray>({"SET DATESTYLE TO 'ISO'", "SET SEARCH_PATH TO \xF9\xE8", "BEGIN"}));
}

void tst_Dorvy3DatabaseStatement::noCurrentSchemaSetsNoSearchPath()
{
    open();
    ask(own(), "SET search_path TO nowhere"); // the current schema is then NULL
    const StatementPtr statement = prepare(QStringLiteral("SELECT 1"));
    QVERIFY(statement);
    QCOMPARE(frontend(2).mid(0, 3),
             lines({"2> Startup dorvy postgres", "2> Query \"SET DATESTYLE TO 'ISO'\"",
                    "2> Query \"BEGIN\""}));
}

void tst_Dorvy3DatabaseStatement::failedSchemaQuerySetsNoSearchPath()
{
    cluster.run(QStringLiteral("CREATE SCHEMA broken; CREATE FUNCTION broken.current_schema() "
                               "RETURNS name LANGUAGE plpgsql AS $$ BEGIN RAISE EXCEPTION "
                               "'broken'; END $$"));
    open();
    ask(own(), "SET search_path TO broken, pg_catalog");
    // Libpq's, about a row that a failed result does not have. Static: the receiver stays.
    static int complaints;
    complaints = 0;
    PQsetNoticeReceiver(
        own()->connection(), [](void *, const PGresult *) { ++complaints; }, nullptr);
    proxy->clear();
    const StatementPtr statement = prepare(QStringLiteral("SELECT 1"));
    QVERIFY(statement);
    VERIFY_NO_ERROR(error);
    QCOMPARE(complaints, 0);
    QVERIFY(conversation().contains(QStringLiteral("1< ErrorResponse P0001")));
    QCOMPARE(frontend(2).mid(0, 3),
             lines({"2> Startup dorvy postgres", "2> Query \"SET DATESTYLE TO 'ISO'\"",
                    "2> Query \"BEGIN\""}));
}

void tst_Dorvy3DatabaseStatement::readerDoesNotSeeTheOwnTransaction()
{
    open();
    VERIFY_NO_ERROR(handle->beginTransaction());
    ask(own(), "INSERT INTO t VALUES (77, 'uncommitted')");
    const StatementPtr statement = prepare(QStringLiteral("SELECT a FROM t WHERE a = 77"));
    QVERIFY(statement);
    const QSharedPointer<Dorvy3Result> page =
        statement->exec(&error, -1, QSharedPointer<Dorvy3Result>());
    QVERIFY(page);
    QCOMPARE(PQntuples(page->result), 0);
    QCOMPARE(ask(own(), "SELECT count(*) FROM t WHERE a = 77"), QByteArray("1"));
}

void tst_Dorvy3DatabaseStatement::sameTextMakesANewStatement()
{
    open();
    const QString texts[] = {QStringLiteral("SELECT 1"), QStringLiteral("UPDATE t SET a = 1")};
    for (const QString &text : texts) {
        const StatementPtr first = prepare(text);
        const StatementPtr second = prepare(text);
        QVERIFY(first);
        QVERIFY(second);
        QVERIFY(first != second);
        QVERIFY(QByteArray(first->statementname()) != second->statementname());
        const ConnectionPtr connection = Access::description(*first)->connection;
        QCOMPARE(ask(connection, "SELECT count(DISTINCT name) FROM pg_prepared_statements"),
                 QByteArray("2"));
    }
}

void tst_Dorvy3DatabaseStatement::droppedStatementIsClosedWhereItLives()
{
    open();
    StatementPtr writer = prepare(QStringLiteral("UPDATE t SET a = 1"));
    StatementPtr reader = prepare(QStringLiteral("SELECT 1"));
    StatementPtr another = prepare(QStringLiteral("SELECT 2"));
    ask(own(), "SELECT 'nothing outstanding'");
    proxy->clear();
    writer.reset();
    QVERIFY(proxy->waitForLine(QStringLiteral("1< ReadyForQuery I")));
    QCOMPARE(frontend(), lines({"1> Close P P1", "1> Close S S1", "1> Sync"}));
    proxy->clear();
    reader.reset();
    QVERIFY(proxy->waitForLine(QStringLiteral("2< ReadyForQuery T")));
    QCOMPARE(frontend(), lines({"2> Close P P1", "2> Close S S1", "2> Sync"}));
    QCOMPARE(Access::boundCount(*handle), 1);
}

void tst_Dorvy3DatabaseStatement::writersDoNotTouchCountOrPool()
{
    open();
    StatementPtr writer = prepare(QStringLiteral("UPDATE t SET a = 1"));
    QCOMPARE(Access::boundCount(*handle), 0);
    const StatementPtr reader = prepare(QStringLiteral("SELECT 1"));
    const StatementPtr another = prepare(QStringLiteral("DELETE FROM t"));
    QCOMPARE(Access::boundCount(*handle), 1);
    writer.reset();
    QCOMPARE(Access::boundCount(*handle), 1);
    QVERIFY(borrowed());
    QCOMPARE(Access::poolKeys(*pool), QStringList());
}

void tst_Dorvy3DatabaseStatement::closedHandle()
{
    QVERIFY(!prepare(QStringLiteral("SELECT 1")));
    COMPARE_ERROR(error, StatementError, QStringLiteral("Невозможно выполнить запрос"),
                  QStringLiteral("Отсутствует соединение с СУБД"), QString());
    open();
    handle->close();
    error = QSqlError();
    QVERIFY(!prepare(QStringLiteral("SELECT 1")));
    COMPARE_ERROR(error, StatementError, QStringLiteral("Невозможно выполнить запрос"),
                  QStringLiteral("Отсутствует соединение с СУБД"), QString());
    QVERIFY(proxy->waitForLine(QStringLiteral("1> Terminate")));
    QCOMPARE(frontend(), lines({"1> Terminate"}));
}

void tst_Dorvy3DatabaseStatement::closedHandleWithoutErrorPointer()
{
    QVERIFY(!handle->statement(QStringLiteral("SELECT 1"), nullptr));
    QCOMPARE(proxy->connectionCount(), 0);
}

void tst_Dorvy3DatabaseStatement::lostConnection()
{
    open();
    proxy->cut();
    ask(own(), "SELECT 1"); // libpq notices
    proxy->clear();
    QVERIFY(!prepare(QStringLiteral("SELECT 1")));
    COMPARE_ERROR(error, StatementError, QStringLiteral("Невозможно выполнить запрос"),
                  QStringLiteral("Отсутствует соединение с СУБД"), QString());
    QVERIFY(!handle->statement(QStringLiteral("SELECT 1"), nullptr));
    QCOMPARE(proxy->conversation(), QStringList());
}

void tst_Dorvy3DatabaseStatement::failedPreparationOutsideATransaction()
{
    open();
    QVERIFY(!prepare(QStringLiteral("UPDTE t")));
    COMPARE_ERROR(error, StatementError,
                  QStringLiteral("ERROR:  syntax error at or near \"UPDTE\"\n"
                                 "LINE 1: UPDTE t\n        ^\n"),
                  QStringLiteral("Ошибка при подготовке запроса к СУБД"), QString());
    QVERIFY(proxy->waitForLine(QStringLiteral("1< CloseComplete")));
    QCOMPARE(frontend(),
             lines({"1> Parse S1 \"UPDTE t\" 0", "1> Sync", "1> Close S S1", "1> Sync"}));
    QVERIFY(!borrowed());
    QCOMPARE(Access::boundCount(*handle), 0);
    QVERIFY(prepare(QStringLiteral("UPDATE t SET a = 1"))); // nothing is left behind
}

void tst_Dorvy3DatabaseStatement::failedPreparationLeavesTransactionFailed()
{
    open();
    VERIFY_NO_ERROR(handle->beginTransaction());
    ask(own(), "INSERT INTO t VALUES (78, 'lost')");
    proxy->clear();
    QVERIFY(!prepare(QStringLiteral("UPDTE t")));
    COMPARE_ERROR(error, StatementError,
                  QStringLiteral("ERROR:  syntax error at or near \"UPDTE\"\n"
                                 "LINE 1: UPDTE t\n        ^\n"),
                  QStringLiteral("Ошибка при подготовке запроса к СУБД"), QString());
    // The command lacks the word TO on purpose, and the server refuses it.
    QCOMPARE(conversation(),
             lines({"1> Query \"SAVEPOINT S1\"", "1< CommandComplete \"SAVEPOINT\"",
                    "1< ReadyForQuery T", "1> Parse S1 \"UPDTE t\" 0", "1> Sync",
                    "1< ErrorResponse 42601", "1< ReadyForQuery E", "1> Close S S1", "1> Sync",
                    "1< CloseComplete", "1< ReadyForQuery E", "1> Query \"ROLLBACK SAVEPOINT S1\"",
                    "1< ErrorResponse 42601", "1< ReadyForQuery E"}));
    QCOMPARE(status(own()), PQTRANS_INERROR);
    COMPARE_ERROR(handle->commitTransaction(), TransactionError,
                  QStringLiteral("Невозможно завершить транзакцию"),
                  QStringLiteral("Текущее состояние соединения запрещает завершение транзакции"),
                  QString());
    VERIFY_NO_ERROR(handle->rollbackTransaction());
    QCOMPARE(status(own()), PQTRANS_IDLE);
    QCOMPARE(ask(own(), "SELECT count(*) FROM t WHERE a = 78"), QByteArray("0"));
}

void tst_Dorvy3DatabaseStatement::failedPreparationInAFailedTransaction()
{
    open();
    VERIFY_NO_ERROR(handle->beginTransaction());
    ask(own(), "SELECT 1/0");
    proxy->clear();
    QVERIFY(!prepare(QStringLiteral("UPDATE t SET a = 1")));
    COMPARE_ERROR(error, StatementError,
                  QStringLiteral("ERROR:  current transaction is aborted, commands ignored until "
                                 "end of transaction block\n"),
                  QStringLiteral("Ошибка при подготовке запроса к СУБД"), QString());
    QVERIFY(proxy->waitForLine(QStringLiteral("1< CloseComplete")));
    QCOMPARE(frontend(), lines({"1> Parse S1 \"UPDATE t SET a = 1\" 0", "1> Sync", "1> Close S S1",
                                "1> Sync"}));
    // What is allowed in a failed transaction is prepared without a savepoint, too.
    proxy->clear();
    const StatementPtr statement = prepare(QStringLiteral("ROLLBACK"));
    QVERIFY(statement);
    QCOMPARE(frontend(),
             lines({"1> Parse S1 \"ROLLBACK\" 0", "1> Sync", "1> Describe S S1", "1> Sync"}));
}

void tst_Dorvy3DatabaseStatement::failedPreparationWithoutErrorPointer()
{
    open();
    QVERIFY(!handle->statement(QStringLiteral("UPDTE t"), nullptr));
    VERIFY_NO_ERROR(handle->beginTransaction());
    QVERIFY(!handle->statement(QStringLiteral("UPDTE t"), nullptr));
}

void tst_Dorvy3DatabaseStatement::noSavepointDuringACopy()
{
    // The status is "active", not "in transaction"; the preparation itself ends the copy.
    open();
    VERIFY_NO_ERROR(handle->beginTransaction());
    const ResultPtr copy(PQexec(own()->connection(), "COPY (SELECT 7) TO STDOUT"));
    QCOMPARE(PQresultStatus(copy.get()), PGRES_COPY_OUT);
    proxy->clear();
    prepare(QStringLiteral("UPDATE t SET a = 1"));
    QVERIFY(frontend().filter(QStringLiteral("SAVEPOINT")).isEmpty());
}

void tst_Dorvy3DatabaseStatement::savepointAlsoRightAfterAClose()
{
    // A close does not wait for its answer, and until that is read libpq says "active".
    open();
    VERIFY_NO_ERROR(handle->beginTransaction());
    StatementPtr statement = prepare(QStringLiteral("UPDATE t SET a = 1"));
    proxy->clear();
    statement.reset();
    QVERIFY(proxy->waitForLine(QStringLiteral("1< ReadyForQuery T"))); // recorded, not read
    QCOMPARE(status(own()), PQTRANS_ACTIVE);
    proxy->clear();
    statement = prepare(QStringLiteral("UPDATE t SET a = 2"));
    QVERIFY(statement);
    QCOMPARE(frontend(),
             lines({"1> Query \"SAVEPOINT S1\"", "1> Parse S1 \"UPDATE t SET a = 2\" 0", "1> Sync",
                    "1> Describe S S1", "1> Sync", "1> Query \"RELEASE SAVEPOINT S1\""}));
}

void tst_Dorvy3DatabaseStatement::savepointIsLeftBehindByNobody()
{
    open();
    VERIFY_NO_ERROR(handle->beginTransaction());
    const StatementPtr statement = prepare(QStringLiteral("UPDATE t SET a = 1"));
    const QByteArray release = QByteArray("RELEASE SAVEPOINT ") + statement->statementname();
    // From 12 on the server says "savepoint ... does not exist".
    const QByteArray answer = ask(own(), release.constData());
    QVERIFY2(answer.contains("does not exist") || answer.contains("no such savepoint"),
             answer.constData());
}

void tst_Dorvy3DatabaseStatement::poolDeliversNone()
{
    open(QString(), QStringLiteral("postgres"), QStringLiteral("single"));
    QVERIFY(!prepare(QStringLiteral("SELECT 1")));
    COMPARE_ERROR(error, ConnectionError,
                  QStringLiteral("connection to server at \"127.0.0.1\", port %1 failed: FATAL:  "
                                 "too many connections for role \"single\"\n")
                      .arg(proxy->port()),
                  QStringLiteral("Ошибка при установке соединения с СУБД"), QString());
    QVERIFY(!borrowed());
    QCOMPARE(Access::boundCount(*handle), 0);
    QVERIFY(proxy->waitForLine(QStringLiteral("1< CloseComplete")));
    QCOMPARE(frontend(),
             lines({"1> Parse S1 \"SELECT 1\" 0", "1> Sync", "1> Describe S S1", "1> Sync",
                    "1> Query \"SELECT current_schema()\"", "2> Startup single postgres",
                    "1> Close P P1", "1> Close S S1", "1> Sync"}));
    QVERIFY(prepare(QStringLiteral("SET work_mem = 4096"))); // what needs none still works
}

void tst_Dorvy3DatabaseStatement::poolDeliversNoneWithoutErrorPointer()
{
    open(QString(), QStringLiteral("postgres"), QStringLiteral("lonely"));
    QVERIFY(!handle->statement(QStringLiteral("SELECT 1"), nullptr));
}

void tst_Dorvy3DatabaseStatement::failedSecondPreparationKeepsTheBorrowed()
{
    open();
    VERIFY_NO_ERROR(handle->beginTransaction());
    ask(own(), "CREATE TABLE fresh (a int)"); // which the borrowed connection cannot see
    proxy->clear();
    QVERIFY(!prepare(QStringLiteral("SELECT a FROM fresh")));
    COMPARE_ERROR(error, StatementError,
                  QStringLiteral("ERROR:  relation \"fresh\" does not exist\n"
                                 "LINE 1: SELECT a FROM fresh\n                      ^\n"),
                  QStringLiteral("Ошибка при подготовке запроса к СУБД"), QString());
    QVERIFY(proxy->waitForLine(QStringLiteral("2< CloseComplete")));
    QCOMPARE(
        frontend(),
        lines({"1> Query \"SAVEPOINT S1\"", "1> Parse S1 \"SELECT a FROM fresh\" 0", "1> Sync",
               "1> Describe S S1", "1> Sync", "1> Query \"RELEASE SAVEPOINT S1\"",
               "1> Query \"SELECT current_schema()\"", "2> Startup dorvy postgres",
               "2> Query \"SET DATESTYLE TO 'ISO'\"", "2> Query \"SET SEARCH_PATH TO public\"",
               "2> Query \"BEGIN\"", "1> Close P P1", "1> Close S S1", "1> Sync",
               "2> Parse S1 \"SELECT a FROM fresh\" 0", "2> Sync", "2> Close S S1", "2> Sync"}));
    QVERIFY(borrowed());
    QCOMPARE(Access::boundCount(*handle), 0);
    QCOMPARE(Access::poolKeys(*pool), QStringList());
    // The application's own transaction is not hurt.
    VERIFY_NO_ERROR(handle->rollbackTransaction());
    QCOMPARE(ask(own(), "SELECT 'fine'"), QByteArray("fine"));
}

void tst_Dorvy3DatabaseStatement::failedSecondPreparationFailsTheBorrowedTransaction()
{
    open();
    VERIFY_NO_ERROR(handle->beginTransaction());
    ask(own(), "CREATE TABLE fresh (a int)");
    QVERIFY(!prepare(QStringLiteral("SELECT a FROM fresh")));
    VERIFY_NO_ERROR(handle->commitTransaction());
    const ConnectionPtr failed = borrowed();
    // The borrowed connection stays, and with it its failed transaction.
    QVERIFY(!prepare(QStringLiteral("SELECT a FROM fresh")));
    COMPARE_ERROR(error, StatementError,
                  QStringLiteral("ERROR:  current transaction is aborted, commands ignored until "
                                 "end of transaction block\n"),
                  QStringLiteral("Ошибка при подготовке запроса к СУБД"), QString());
    QCOMPARE(borrowed(), failed);
    QCOMPARE(proxy->connectionCount(), 2);
    open();
    QVERIFY(prepare(QStringLiteral("SELECT a FROM fresh")));
    cluster.run(QStringLiteral("DROP TABLE fresh"));
}

void tst_Dorvy3DatabaseStatement::failedSecondPreparationWithoutErrorPointer()
{
    open();
    VERIFY_NO_ERROR(handle->beginTransaction());
    ask(own(), "CREATE TABLE fresh (a int)");
    QVERIFY(!handle->statement(QStringLiteral("SELECT a FROM fresh"), nullptr));
    QVERIFY(borrowed());
}

void tst_Dorvy3DatabaseStatement::successResetsTheError_data()
{
    QTest::addColumn<QString>("query");
    QTest::newRow("without columns") << QStringLiteral("UPDATE t SET a = 1");
    QTest::newRow("with columns") << QStringLiteral("SELECT 1");
}

void tst_Dorvy3DatabaseStatement::successResetsTheError()
{
    QFETCH(QString, query);
    open();
    error = QSqlError(QStringLiteral("old"), QStringLiteral("old"), QSqlError::UnknownError,
                      QStringLiteral("old"));
    QVERIFY(prepare(query));
    VERIFY_NO_ERROR(error);
}

QTEST_GUILESS_MAIN(tst_Dorvy3DatabaseStatement)
#include "tst_dorvy3database_statement.moc"
