// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Dorvy3Statement at work: binding values, running, and reading rows page by page.
#include "access/dorvy3.h"

#include "tests/support/childprocess.h"
#include "tests/support/connectionhelpers.h"
#include "tests/support/pgcluster.h"
#include "tests/support/someerror.h"
#include "tests/support/sqlmacros.h"
#include "tests/support/testaccess.h"
#include "tests/support/textlines.h"
#include "tests/support/wireproxy.h"

#include <QtTest/QtTest>

#include <memory>

namespace {

using Access = Dorvy3TestAccess;
using Page = QSharedPointer<Dorvy3Result>;
using Values = QVector<QVariant>;

constexpr int QuietMilliseconds = 200; // in which an unasked-for message would have come

QString unable()
{
    return QStringLiteral("Невозможно выполнить подготовленный запрос");
}

QString noConnection()
{
    return QStringLiteral("Отсутствует соединение с СУБД");
}

QString executeFailed()
{
    return QStringLiteral("Ошибка при выполнении запроса к СУБД");
}

QByteArray value(const Page &page, int row, int column = 0)
{
    return QByteArray(PQgetvalue(page->result, row, column),
                      PQgetlength(page->result, row, column));
}

bool isNull(const Page &page, int row, int column = 0)
{
    return PQgetisnull(page->result, row, column) == 1;
}

// A binary int4.
int number(const Page &page, int row)
{
    return qFromBigEndian<qint32>(value(page, row).leftJustified(4, '\0', true).constData());
}

} // namespace

class tst_Dorvy3Statement_Exec : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void cleanupTestCase();

    void pageSize_data();
    void pageSize();
    void threeHundredRowsOnTheWire();
    void fullLastPage();
    void noRows();
    void pageSizeMayChangeBetweenPages();
    void pagesAreBinaryAndDescribed();
    void returningIsReadInPages();
    void laterPageFails();
    void laterPageNeedsTheTransaction();

    void statementWithoutColumnsOnTheWire();
    void statementWithoutColumnsIgnoresPrevious();
    void selectOfNoColumnsRunsToItsEnd();

    void noPreviousRestarts();
    void rerunWhileHalfRead();
    void rerunAfterAFailure();
    void earlierRowsStayReadable();
    void twoStatementsReadInTurns();

    void valuesOnTheWire();
    void valuesOnTheWireWithoutColumns();
    void secondPageAfterValues();
    void emptyTextIsNull_data();
    void emptyTextIsNull();
    void nullsOfEveryKind_data();
    void nullsOfEveryKind();
    void moreValuesAreIgnored();
    void fewerValuesFail_data();
    void fewerValuesFail();
    void noValuesForParametersFail();
    void unusedPlacesAreCleared();
    void placesAreMadeOncePerPreparation();
    void shorterValuesReplaceLongerOnes();
    void manyLongValues();
    void textGoesInTheServerEncoding();
    void valueWithoutAFormIsFatal();

    void notPreparedIsRefused_data();
    void notPreparedIsRefused();
    void noConnectionIsRefused_data();
    void noConnectionIsRefused();
    void descriptionWithoutAConnectionIsRefused_data();
    void descriptionWithoutAConnectionIsRefused();
    void serverErrorIsReported_data();
    void serverErrorIsReported();
    void failureLeavesThePortalToTheNextRun();
    void emptyQueryFails_data();
    void emptyQueryFails();
    void copyFails_data();
    void copyFails();
    void nullResultReportsTheConnectionsMessage();
    void serverGoneWhileRunning();
    void lastWordsOfTheServerAreReported();
    void nullErrorIsAllowed();
    void successResetsTheError();
    void resultKeepsTheConnection();

private:
    ConnectionPtr connect(const QString &database = QStringLiteral("postgres")) const;
    QStringList numbered(std::initializer_list<const char *> lines) const;
    void prepare(const QString &text);
    Page run(Dorvy3Statement &from, bool withValues, QSqlError *error, int rows = -1) const;

    PgCluster cluster;
    std::unique_ptr<WireProxy> proxy;
    ConnectionPtr connection;
    std::unique_ptr<Dorvy3Statement> statement;
};

void tst_Dorvy3Statement_Exec::initTestCase()
{
    QVERIFY2(cluster.start(), qPrintable(cluster.why()));
    cluster.run(QStringLiteral("CREATE TABLE counted (n int4); INSERT INTO counted VALUES (0)"));
    cluster.run(QStringLiteral("CREATE TABLE kept (a int4, b text)"));
    cluster.createDatabase(QStringLiteral("cyrillic"), QStringLiteral("WIN1251"));
    proxy.reset(new WireProxy(cluster.socketDir(), cluster.port()));
}

void tst_Dorvy3Statement_Exec::cleanupTestCase()
{
    proxy.reset();
}

ConnectionPtr tst_Dorvy3Statement_Exec::connect(const QString &database) const
{
    return connectThrough(*proxy, database);
}

void tst_Dorvy3Statement_Exec::init()
{
    cluster.run(QStringLiteral("UPDATE counted SET n = 0"));
    cluster.run(QStringLiteral("TRUNCATE kept"));
    connection = connect();
    QVERIFY(connection->isValid());
    command(connection, "BEGIN"); // a portal lives until the end of its transaction
    statement.reset(new Dorvy3Statement);
}

void tst_Dorvy3Statement_Exec::cleanup()
{
    statement.reset();
    connection.clear();
}

// The lines with the newest connection's number.
QStringList tst_Dorvy3Statement_Exec::numbered(std::initializer_list<const char *> lines) const
{
    return ::numbered(proxy->connectionCount(), lines);
}

void tst_Dorvy3Statement_Exec::prepare(const QString &text)
{
    QSqlError error;
    QVERIFY2(statement->prep(text, connection, &error, nullptr), qPrintable(error.text()));
    proxy->clear();
}

// Runs by the form with values, without any, or by the one without.
Page tst_Dorvy3Statement_Exec::run(Dorvy3Statement &from, bool withValues, QSqlError *error,
                                   int rows) const
{
    return withValues ? from.exec(Values(), error, rows) : from.exec(error, rows, Page());
}

void tst_Dorvy3Statement_Exec::pageSize_data()
{
    QTest::addColumn<int>("rows");
    QTest::addColumn<bool>("withValues");
    QTest::addColumn<int>("asked");
    for (const bool withValues : {false, true}) {
        const QByteArray form = withValues ? ", values" : "";
        QTest::newRow("minus one" + form) << -1 << withValues << 128;
        QTest::newRow("zero" + form) << 0 << withValues << 128;
        QTest::newRow("lowest" + form) << std::numeric_limits<int>::min() << withValues << 128;
        QTest::newRow("one" + form) << 1 << withValues << 1;
        QTest::newRow("127" + form) << 127 << withValues << 127;
        QTest::newRow("129" + form) << 129 << withValues << 129;
    }
}

void tst_Dorvy3Statement_Exec::pageSize()
{
    QFETCH(int, rows);
    QFETCH(bool, withValues);
    QFETCH(int, asked);
    prepare(QStringLiteral("SELECT generate_series(1, 300)"));
    const Page first = run(*statement, withValues, nullptr, rows);
    QCOMPARE(PQntuples(first->result), asked);
    const QString execute = numbered({"> Execute P1 %1"}).first().arg(asked);
    QCOMPARE(proxy->frontend().filter(QStringLiteral("Execute")), QStringList(execute));
    const Page second = statement->exec(nullptr, rows, first);
    QCOMPARE(PQntuples(second->result), asked);
    QCOMPARE(number(second, 0), asked + 1);
    QCOMPARE(proxy->frontend().filter(QStringLiteral("Execute")), QStringList({execute, execute}));
}

void tst_Dorvy3Statement_Exec::threeHundredRowsOnTheWire()
{
    prepare(QStringLiteral("SELECT generate_series(1, 300)"));
    const Page first = statement->exec(nullptr, -1, Page());
    QCOMPARE(PQntuples(first->result), 128);
    // Nothing is asked for before the caller does.
    QTest::qWait(QuietMilliseconds);
    QCOMPARE(proxy->conversation(),
             numbered({"> Close P P1", "> Bind P1 S1 [] 1", "> Describe P P1", "> Execute P1 128",
                       "> Sync", "< CloseComplete", "< BindComplete", "< RowDescription 1",
                       "< DataRow x128", "< PortalSuspended", "< ReadyForQuery T"}));
    proxy->clear();
    const Page second = statement->exec(nullptr, -1, first);
    QCOMPARE(PQntuples(second->result), 128);
    QTest::qWait(QuietMilliseconds);
    QCOMPARE(proxy->conversation(), numbered({"> Execute P1 128", "> Sync", "< DataRow x128",
                                              "< PortalSuspended", "< ReadyForQuery T"}));
    proxy->clear();
    const Page third = statement->exec(nullptr, -1, second);
    QCOMPARE(PQntuples(third->result), 44);
    QTest::qWait(QuietMilliseconds);
    QCOMPARE(proxy->conversation(),
             numbered({"> Execute P1 128", "> Sync", "< DataRow x44",
                       "< CommandComplete \"SELECT 44\"", "< ReadyForQuery T"}));
    proxy->clear();
    // The tag said that there are no more, so nobody is asked.
    const Page last = statement->exec(nullptr, -1, third);
    QCOMPARE(PQntuples(last->result), 0);
    QTest::qWait(QuietMilliseconds);
    QCOMPARE(proxy->conversation(), QStringList());
    QCOMPARE(number(first, 0), 1);
    QCOMPARE(number(first, 127), 128);
    QCOMPARE(number(second, 0), 129);
    QCOMPARE(number(second, 127), 256);
    QCOMPARE(number(third, 0), 257);
    QCOMPARE(number(third, 43), 300);
}

void tst_Dorvy3Statement_Exec::fullLastPage()
{
    prepare(QStringLiteral("SELECT generate_series(1, 128)"));
    const Page first = statement->exec(nullptr, -1, Page());
    QCOMPARE(PQntuples(first->result), 128);
    QSqlError error = someError();
    const Page second = statement->exec(&error, -1, first);
    QCOMPARE(PQntuples(second->result), 0);
    QCOMPARE(PQnfields(second->result), 1);
    VERIFY_NO_ERROR(error);
}

void tst_Dorvy3Statement_Exec::noRows()
{
    prepare(QStringLiteral("SELECT a FROM kept"));
    QSqlError error;
    const Page page = statement->exec(&error, -1, Page());
    VERIFY_NO_ERROR(error);
    QCOMPARE(PQresultStatus(page->result), PGRES_TUPLES_OK);
    QCOMPARE(PQntuples(page->result), 0);
    QCOMPARE(PQnfields(page->result), 1);
}

void tst_Dorvy3Statement_Exec::pageSizeMayChangeBetweenPages()
{
    prepare(QStringLiteral("SELECT generate_series(1, 200)"));
    const Page first = statement->exec(nullptr, 1, Page());
    QCOMPARE(PQntuples(first->result), 1);
    const Page second = statement->exec(nullptr, 3, first);
    QCOMPARE(PQntuples(second->result), 3);
    QCOMPARE(number(second, 0), 2);
    const Page third = statement->exec(nullptr, 0, second);
    QCOMPARE(PQntuples(third->result), 128);
    QCOMPARE(number(third, 127), 132);
}

void tst_Dorvy3Statement_Exec::pagesAreBinaryAndDescribed()
{
    prepare(QStringLiteral("SELECT g AS n, 1.5::float8 AS f, NULL::text AS t "
                           "FROM generate_series(1, 130) g"));
    const Page first = statement->exec(nullptr, -1, Page());
    const Page second = statement->exec(nullptr, -1, first);
    for (const Page &page : {first, second}) {
        QCOMPARE(PQbinaryTuples(page->result), 1);
        QCOMPARE(PQnfields(page->result), 3);
        QCOMPARE(QByteArray(PQfname(page->result, 0)), QByteArray("n"));
        QCOMPARE(PQftype(page->result, 0), Oid(23));
        QCOMPARE(PQftype(page->result, 1), Oid(701));
        QCOMPARE(value(page, 1, 1).toHex(), QByteArray("3ff8000000000000"));
        QVERIFY(isNull(page, 1, 2));
        QCOMPARE(page->connection, connection);
    }
    QCOMPARE(value(first, 0).toHex(), QByteArray("00000001"));
    QCOMPARE(value(second, 1).toHex(), QByteArray("00000082"));
}

void tst_Dorvy3Statement_Exec::returningIsReadInPages()
{
    prepare(QStringLiteral("INSERT INTO kept SELECT generate_series(1, 130) RETURNING a"));
    QVERIFY(statement->readonly());
    const Page first = statement->exec(nullptr, -1, Page());
    QCOMPARE(PQntuples(first->result), 128);
    const Page second = statement->exec(nullptr, -1, first);
    QCOMPARE(PQntuples(second->result), 2);
    QCOMPARE(number(second, 1), 130);
    command(connection, "COMMIT");
    QCOMPARE(cluster.value(QStringLiteral("SELECT count(*) FROM kept")), QStringLiteral("130"));
}

void tst_Dorvy3Statement_Exec::laterPageFails()
{
    prepare(QStringLiteral("SELECT 1 / (g - 200) FROM generate_series(1, 300) g"));
    const Page first = statement->exec(nullptr, -1, Page());
    QCOMPARE(PQntuples(first->result), 128);
    QSqlError error;
    QVERIFY(!statement->exec(&error, -1, first));
    COMPARE_ERROR(error, StatementError, QStringLiteral("ERROR:  division by zero\n"),
                  executeFailed(), QString());
    QCOMPARE(PQntuples(first->result), 128); // untouched
}

void tst_Dorvy3Statement_Exec::laterPageNeedsTheTransaction()
{
    command(connection, "COMMIT");
    prepare(QStringLiteral("SELECT generate_series(1, 300)"));
    const Page first = statement->exec(nullptr, -1, Page());
    QCOMPARE(PQntuples(first->result), 128);
    QSqlError error;
    QVERIFY(!statement->exec(&error, -1, first));
    COMPARE_ERROR(error, StatementError,
                  QStringLiteral("ERROR:  portal \"%1\" does not exist\n")
                      .arg(QString::fromLatin1(statement->portalname())),
                  executeFailed(), QString());
}

void tst_Dorvy3Statement_Exec::statementWithoutColumnsOnTheWire()
{
    prepare(QStringLiteral("UPDATE counted SET n = n + 1"));
    QSqlError error = someError();
    const Page result = statement->exec(&error, -1, Page());
    VERIFY_NO_ERROR(error);
    QCOMPARE(PQresultStatus(result->result), PGRES_COMMAND_OK);
    QCOMPARE(QByteArray(PQcmdTuples(result->result)), QByteArray("1"));
    // The unnamed portal, and no limit.
    QCOMPARE(proxy->conversation(),
             numbered({"> Bind \"\" S1 [] 1", "> Describe P \"\"", "> Execute \"\" 0", "> Sync",
                       "< BindComplete", "< NoData", "< CommandComplete \"UPDATE 1\"",
                       "< ReadyForQuery T"}));
}

void tst_Dorvy3Statement_Exec::statementWithoutColumnsIgnoresPrevious()
{
    prepare(QStringLiteral("UPDATE counted SET n = n + 1"));
    const Page first = statement->exec(nullptr, -1, Page());
    QVERIFY(first);
    proxy->clear();
    const Page second = statement->exec(nullptr, 1, first);
    QVERIFY(second);
    QCOMPARE(proxy->frontend(),
             numbered({"> Bind \"\" S1 [] 1", "> Describe P \"\"", "> Execute \"\" 0", "> Sync"}));
    command(connection, "COMMIT");
    QCOMPARE(cluster.value(QStringLiteral("SELECT n FROM counted")), QStringLiteral("2"));
}

void tst_Dorvy3Statement_Exec::selectOfNoColumnsRunsToItsEnd()
{
    prepare(QStringLiteral("SELECT FROM generate_series(1, 200)"));
    const Page page = statement->exec(nullptr, 5, Page());
    QVERIFY(page);
    QCOMPARE(PQresultStatus(page->result), PGRES_TUPLES_OK);
    QCOMPARE(PQntuples(page->result), 200);
}

void tst_Dorvy3Statement_Exec::noPreviousRestarts()
{
    prepare(QStringLiteral("SELECT generate_series(1, 300)"));
    const Page first = statement->exec(nullptr, 10, Page());
    const Page second = statement->exec(nullptr, 10, first);
    QCOMPARE(number(second, 0), 11);
    const Page again = statement->exec(nullptr, 10, Page());
    QCOMPARE(number(again, 0), 1);
    QCOMPARE(PQntuples(again->result), 10);
    const Page next = statement->exec(nullptr, 10, again);
    QCOMPARE(number(next, 0), 11);
}

void tst_Dorvy3Statement_Exec::rerunWhileHalfRead()
{
    prepare(QStringLiteral("SELECT generate_series($1::int4, 1000)"));
    QSqlError error;
    const Page old = statement->exec({QVariant(1)}, &error, 10);
    QCOMPARE(number(old, 9), 10);
    proxy->clear();
    const Page fresh = statement->exec({QVariant(501)}, &error, 10);
    VERIFY_NO_ERROR(error);
    QCOMPARE(number(fresh, 0), 501);
    QCOMPARE(proxy->conversation(),
             numbered({"> Close P P1", "> Bind P1 S1 [000001f5:1] 1", "> Describe P P1",
                       "> Execute P1 10", "> Sync", "< CloseComplete", "< BindComplete",
                       "< RowDescription 1", "< DataRow x10", "< PortalSuspended",
                       "< ReadyForQuery T"}));
    // The old run's portal is gone: what follows its page are the new run's rows.
    QCOMPARE(number(old, 0), 1);
    const Page next = statement->exec(&error, 10, old);
    VERIFY_NO_ERROR(error);
    QCOMPARE(number(next, 0), 511);
}

void tst_Dorvy3Statement_Exec::rerunAfterAFailure()
{
    command(connection, "COMMIT");
    prepare(QStringLiteral("SELECT 10 / $1::int4"));
    QSqlError error;
    QVERIFY(!statement->exec({QVariant(0)}, &error, -1));
    QCOMPARE(error.driverText(), QStringLiteral("ERROR:  division by zero\n"));
    const Page page = statement->exec({QVariant(5)}, &error, -1);
    VERIFY_NO_ERROR(error);
    QCOMPARE(number(page, 0), 2);
}

void tst_Dorvy3Statement_Exec::earlierRowsStayReadable()
{
    prepare(QStringLiteral("SELECT generate_series(1, 300)"));
    const Page first = statement->exec(nullptr, -1, Page());
    const Page second = statement->exec(nullptr, -1, first);
    statement.reset();
    command(connection, "ROLLBACK");
    QCOMPARE(number(first, 127), 128);
    QCOMPARE(number(second, 127), 256);
}

void tst_Dorvy3Statement_Exec::twoStatementsReadInTurns()
{
    Dorvy3Statement other;
    prepare(QStringLiteral("SELECT generate_series(1, 300)"));
    QVERIFY(other.prep(QStringLiteral("SELECT generate_series(1001, 1300)"), connection, nullptr,
                       nullptr));
    const Page first = statement->exec(nullptr, -1, Page());
    const Page otherFirst = other.exec(nullptr, -1, Page());
    const Page second = statement->exec(nullptr, -1, first);
    const Page otherSecond = other.exec(nullptr, -1, otherFirst);
    QCOMPARE(number(second, 0), 129);
    QCOMPARE(number(otherSecond, 0), 1129);
}

void tst_Dorvy3Statement_Exec::valuesOnTheWire()
{
    prepare(QStringLiteral("SELECT $1::int4, $2::text, $3::text, $4::int2, $5::text"));
    const Page page =
        statement->exec({QVariant(7), QVariant(QString()), QVariant(QStringLiteral("ж")),
                         QVariant(-1), QVariant(QStringLiteral("xyz"))},
                        nullptr, -1);
    QVERIFY(page);
    const char *bind = "> Bind P1 S1 [00000007:1, NULL:1, d0b6:1, ffff:1, 78797a:1] 1";
    QCOMPARE(proxy->conversation(),
             numbered({"> Close P P1", bind, "> Describe P P1", "> Execute P1 128", "> Sync",
                       "< CloseComplete", "< BindComplete", "< RowDescription 5", "< DataRow x1",
                       "< CommandComplete \"SELECT 1\"", "< ReadyForQuery T"}));
    QCOMPARE(value(page, 0, 0).toHex(), QByteArray("00000007"));
    QVERIFY(isNull(page, 0, 1));
    QCOMPARE(value(page, 0, 2), QByteArray("ж"));
    QCOMPARE(value(page, 0, 3).toHex(), QByteArray("ffff"));
    QCOMPARE(value(page, 0, 4), QByteArray("xyz"));
}

void tst_Dorvy3Statement_Exec::valuesOnTheWireWithoutColumns()
{
    prepare(QStringLiteral("INSERT INTO kept VALUES ($1, $2)"));
    const Page result =
        statement->exec({QVariant(258), QVariant(QStringLiteral("two"))}, nullptr, -1);
    QVERIFY(result);
    QCOMPARE(QByteArray(PQcmdTuples(result->result)), QByteArray("1"));
    QCOMPARE(proxy->conversation(),
             numbered({"> Bind \"\" S1 [00000102:1, 74776f:1] 1", "> Describe P \"\"",
                       "> Execute \"\" 0", "> Sync", "< BindComplete", "< NoData",
                       "< CommandComplete \"INSERT 0 1\"", "< ReadyForQuery T"}));
    command(connection, "COMMIT");
    QCOMPARE(cluster.run(QStringLiteral("SELECT a, b FROM kept")),
             QStringList(QStringLiteral("258|two")));
}

void tst_Dorvy3Statement_Exec::secondPageAfterValues()
{
    prepare(QStringLiteral("SELECT generate_series($1::int4, $2::int4)"));
    const Page first = statement->exec({QVariant(11), QVariant(150)}, nullptr, -1);
    proxy->clear();
    const Page second = statement->exec(nullptr, -1, first);
    QCOMPARE(PQntuples(second->result), 12);
    QCOMPARE(number(second, 0), 139);
    QCOMPARE(proxy->frontend(), numbered({"> Execute P1 128", "> Sync"}));
}

void tst_Dorvy3Statement_Exec::emptyTextIsNull_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QVariant>("value");
    QTest::newRow("text") << QStringLiteral("text") << QVariant(QStringLiteral(""));
    QTest::newRow("varchar") << QStringLiteral("varchar") << QVariant(QStringLiteral(""));
    QTest::newRow("name") << QStringLiteral("name") << QVariant(QStringLiteral(""));
    QTest::newRow("text from bytes") << QStringLiteral("text") << QVariant(QByteArray(""));
}

void tst_Dorvy3Statement_Exec::emptyTextIsNull()
{
    QFETCH(QString, type);
    QFETCH(QVariant, value);
    QVERIFY(!value.isNull());
    prepare(QStringLiteral("SELECT ($1::%1 IS NULL)::text").arg(type));
    const Page page = statement->exec({value}, nullptr, -1);
    QVERIFY(page);
    QCOMPARE(::value(page, 0), QByteArray("true"));
    QCOMPARE(proxy->frontend().at(1), numbered({"> Bind P1 S1 [NULL:1] 1"}).first());
}

void tst_Dorvy3Statement_Exec::nullsOfEveryKind_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QVariant>("value");
    QTest::newRow("invalid for int4") << QStringLiteral("int4") << QVariant();
    QTest::newRow("null int for int4") << QStringLiteral("int4") << QVariant(QVariant::Int);
    QTest::newRow("null string for int4") << QStringLiteral("int4") << QVariant(QString());
    QTest::newRow("null string for date") << QStringLiteral("date") << QVariant(QString());
    QTest::newRow("null date for text") << QStringLiteral("text") << QVariant(QDate());
    QTest::newRow("null bytes for bytea") << QStringLiteral("bytea") << QVariant(QByteArray());
    QTest::newRow("null double for numeric")
        << QStringLiteral("numeric") << QVariant(QVariant::Double);
    // The encoder does not know these types, and need not for a null.
    QTest::newRow("invalid for bool") << QStringLiteral("bool") << QVariant();
    QTest::newRow("null string for uuid") << QStringLiteral("uuid") << QVariant(QString());
}

void tst_Dorvy3Statement_Exec::nullsOfEveryKind()
{
    QFETCH(QString, type);
    QFETCH(QVariant, value);
    prepare(QStringLiteral("SELECT ($1::%1 IS NULL)::text").arg(type));
    const Page page = statement->exec({value}, nullptr, -1);
    QVERIFY(page);
    QCOMPARE(::value(page, 0), QByteArray("true"));
    QCOMPARE(proxy->frontend().at(1), numbered({"> Bind P1 S1 [NULL:1] 1"}).first());
}

void tst_Dorvy3Statement_Exec::moreValuesAreIgnored()
{
    prepare(QStringLiteral("SELECT $1::int4 + $2::int4"));
    QSqlError error = someError();
    // The surplus is not even looked at: a value of that type has no form in any parameter.
    const Page page =
        statement->exec({QVariant(1), QVariant(2), QVariant(QVariantList{3})}, &error, -1);
    VERIFY_NO_ERROR(error);
    QCOMPARE(number(page, 0), 3);
    QCOMPARE(proxy->frontend().at(1),
             numbered({"> Bind P1 S1 [00000001:1, 00000002:1] 1"}).first());
    Dorvy3Statement plain;
    QVERIFY(plain.prep(QStringLiteral("UPDATE counted SET n = 5"), connection, nullptr, nullptr));
    proxy->clear();
    QVERIFY(plain.exec({QVariant(1)}, &error, -1));
    VERIFY_NO_ERROR(error);
    QCOMPARE(proxy->frontend().first(), numbered({"> Bind \"\" S1 [] 1"}).first());
}

void tst_Dorvy3Statement_Exec::fewerValuesFail_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("bind");
    QTest::newRow("with columns") << QStringLiteral("SELECT $1::int4 + $2::int4")
                                  << QStringLiteral("> Bind P1 S1 [00000001:1] 1");
    QTest::newRow("without columns") << QStringLiteral("INSERT INTO kept VALUES ($1, $2)")
                                     << QStringLiteral("> Bind \"\" S1 [00000001:1] 1");
}

void tst_Dorvy3Statement_Exec::fewerValuesFail()
{
    QFETCH(QString, text);
    QFETCH(QString, bind);
    prepare(text);
    QSqlError error;
    QVERIFY(!statement->exec({QVariant(1)}, &error, -1));
    COMPARE_ERROR(error, StatementError,
                  QStringLiteral("ERROR:  bind message supplies 1 parameters, but prepared "
                                 "statement \"%1\" requires 2\n")
                      .arg(QString::fromLatin1(statement->statementname())),
                  executeFailed(), QString());
    QVERIFY(proxy->frontend().contains(QString::number(proxy->connectionCount()) + bind));
}

void tst_Dorvy3Statement_Exec::noValuesForParametersFail()
{
    for (const bool withValues : {false, true}) {
        command(connection, "ROLLBACK; BEGIN");
        prepare(QStringLiteral("SELECT $1::int4"));
        QSqlError error;
        QVERIFY(!run(*statement, withValues, &error));
        QVERIFY2(error.driverText().startsWith(
                     QStringLiteral("ERROR:  bind message supplies 0 parameters")),
                 qPrintable(error.driverText()));
        QCOMPARE(error.databaseText(), executeFailed());
    }
}

void tst_Dorvy3Statement_Exec::unusedPlacesAreCleared()
{
    prepare(QStringLiteral("SELECT $1::int4, $2::text, $3::int8"));
    QVERIFY(
        statement->exec({QVariant(1), QVariant(QStringLiteral("abc")), QVariant(2)}, nullptr, -1));
    QCOMPARE(Access::paramLengths(*statement)[1], 3);
    QCOMPARE(Access::paramLengths(*statement)[2], 8);
    QCOMPARE(Access::paramFormats(*statement)[2], 1);
    QVERIFY(!statement->exec({QVariant(1)}, nullptr, -1));
    QCOMPARE(Access::paramLengths(*statement)[0], 4);
    QCOMPARE(Access::paramFormats(*statement)[0], 1);
    for (const int i : {1, 2}) {
        QVERIFY(!Access::paramValues(*statement)[i]);
        QCOMPARE(Access::paramLengths(*statement)[i], 0);
        QCOMPARE(Access::paramFormats(*statement)[i], 0);
    }
}

void tst_Dorvy3Statement_Exec::placesAreMadeOncePerPreparation()
{
    prepare(QStringLiteral("SELECT $1::int4, $2::text"));
    const void *block = Access::params(*statement);
    const void *values = Access::paramValues(*statement);
    const void *lengths = Access::paramLengths(*statement);
    const void *formats = Access::paramFormats(*statement);
    const void *types = Access::paramTypes(*statement);
    for (const int number : {1, 2}) {
        QVERIFY(statement->exec({QVariant(number), QVariant(QString(5000, QLatin1Char('x')))},
                                nullptr, -1));
        QVERIFY(Access::params(*statement) == block);
        QVERIFY(Access::paramValues(*statement) == values);
        QVERIFY(Access::paramLengths(*statement) == lengths);
        QVERIFY(Access::paramFormats(*statement) == formats);
        QVERIFY(Access::paramTypes(*statement) == types);
        QCOMPARE(Access::paramTypes(*statement)[0], Oid(23));
        QCOMPARE(Access::paramTypes(*statement)[1], Oid(25));
    }
}

void tst_Dorvy3Statement_Exec::shorterValuesReplaceLongerOnes()
{
    prepare(QStringLiteral("SELECT $1::text, $2::text"));
    QVERIFY(statement->exec({QVariant(QStringLiteral("long")), QVariant(QStringLiteral("words"))},
                            nullptr, -1));
    const Page page = statement->exec({QVariant(), QVariant(QStringLiteral("b"))}, nullptr, -1);
    QVERIFY(isNull(page, 0, 0));
    QCOMPARE(value(page, 0, 1), QByteArray("b"));
    const Page third = statement->exec({QVariant(QStringLiteral("a")), QVariant()}, nullptr, -1);
    QCOMPARE(value(third, 0, 0), QByteArray("a"));
    QVERIFY(isNull(third, 0, 1));
}

void tst_Dorvy3Statement_Exec::manyLongValues()
{
    // The buffer of the values grows, and so moves, many times over.
    QStringList places;
    Values values;
    QByteArray expected;
    for (int i = 1; i <= 300; ++i) {
        const QString text(i * 10, QLatin1Char(char('a' + i % 26)));
        places += QStringLiteral("coalesce($%1::text, '-')").arg(i);
        values += i % 7 == 0 ? QVariant() : QVariant(text);
        expected += i % 7 == 0 ? QByteArray("-") : text.toLatin1();
    }
    prepare(QStringLiteral("SELECT concat_ws('', VARIADIC ARRAY[%1])")
                .arg(places.join(QLatin1Char(','))));
    const Page page = statement->exec(values, nullptr, -1);
    QVERIFY(page);
    QCOMPARE(value(page, 0), expected);
}

void tst_Dorvy3Statement_Exec::textGoesInTheServerEncoding()
{
    const ConnectionPtr cyrillic = connect(QStringLiteral("cyrillic"));
    Dorvy3Statement other;
    QVERIFY(other.prep(QStringLiteral("SELECT length($1::text)"), cyrillic, nullptr, nullptr));
    proxy->clear();
    const Page page = other.exec({QVariant(QStringLiteral("жук"))}, nullptr, -1);
    QCOMPARE(number(page, 0), 3);
    QCOMPARE(proxy->frontend().at(1), numbered({"> Bind P1 S1 [e6f3ea:1] 1"}).first());
}

void tst_Dorvy3Statement_Exec::valueWithoutAFormIsFatal()
{
    const QByteArray info = cluster.conninfo();
    VERIFY_FATAL(runInChild([&info] {
                     const auto own =
                         ConnectionPtr::create(PQconnectdb(info.constData()), QString());
                     Dorvy3Statement child;
                     child.prep(QStringLiteral("SELECT $1::int4"), own, nullptr, nullptr);
                     child.exec({QVariant(QStringLiteral("seven"))}, nullptr, -1);
                 }),
                 "DORVY: hlpEncodePSQLValue - failed to encode ptype (23) from QVariant::Type "
                 "(10)");
    VERIFY_FATAL(runInChild([&info] {
                     const auto own =
                         ConnectionPtr::create(PQconnectdb(info.constData()), QString());
                     Dorvy3Statement child;
                     child.prep(QStringLiteral("SELECT $1::bool"), own, nullptr, nullptr);
                     child.exec({QVariant(true)}, nullptr, -1);
                 }),
                 "DORVY: hlpEncodePSQLValue - unknown ptype (16)");
}

void tst_Dorvy3Statement_Exec::notPreparedIsRefused_data()
{
    QTest::addColumn<bool>("withValues");
    QTest::newRow("without values") << false;
    QTest::newRow("with values") << true;
}

void tst_Dorvy3Statement_Exec::notPreparedIsRefused()
{
    QFETCH(bool, withValues);
    proxy->clear();
    QSqlError error = someError();
    QVERIFY(!run(*statement, withValues, &error));
    COMPARE_ERROR(error, StatementError, unable(), executeFailed(), QStringLiteral("0"));
    QVERIFY(!run(*statement, withValues, nullptr));
    QCOMPARE(proxy->conversation(), QStringList());
    prepare(QStringLiteral("SELECT 1"));
    statement->hlpClear();
    error = someError();
    QVERIFY(!run(*statement, withValues, &error));
    COMPARE_ERROR(error, StatementError, unable(), executeFailed(), QStringLiteral("0"));
}

void tst_Dorvy3Statement_Exec::noConnectionIsRefused_data()
{
    QTest::addColumn<bool>("withValues");
    QTest::addColumn<bool>("closed");
    QTest::addColumn<QString>("text");
    const QString query = QStringLiteral("SELECT 1");
    const QString command = QStringLiteral("UPDATE counted SET n = 1");
    QTest::newRow("closed") << false << true << query;
    QTest::newRow("closed, values") << true << true << query;
    QTest::newRow("closed, without columns") << false << true << command;
    QTest::newRow("cut off") << false << false << query;
    QTest::newRow("cut off, values") << true << false << query;
    QTest::newRow("cut off, without columns, values") << true << false << command;
}

void tst_Dorvy3Statement_Exec::noConnectionIsRefused()
{
    QFETCH(bool, withValues);
    QFETCH(bool, closed);
    QFETCH(QString, text);
    prepare(text);
    if (closed) {
        connection->close();
    } else {
        proxy->cut();
        PQclear(PQexec(connection->connection(), "SELECT 1"));
    }
    QVERIFY(!connection->isValid());
    QSqlError error = someError();
    QVERIFY(!run(*statement, withValues, &error));
    COMPARE_ERROR(error, StatementError, unable(), noConnection(), QStringLiteral("0"));
    QVERIFY(!run(*statement, withValues, nullptr));
}

void tst_Dorvy3Statement_Exec::descriptionWithoutAConnectionIsRefused_data()
{
    notPreparedIsRefused_data();
}

void tst_Dorvy3Statement_Exec::descriptionWithoutAConnectionIsRefused()
{
    QFETCH(bool, withValues);
    prepare(QStringLiteral("SELECT 1"));
    Access::description(*statement)->connection.clear();
    QSqlError error = someError();
    QVERIFY(!run(*statement, withValues, &error));
    COMPARE_ERROR(error, StatementError, unable(), noConnection(), QStringLiteral("0"));
    QVERIFY(!run(*statement, withValues, nullptr));
    QCOMPARE(proxy->conversation(), QStringList());
}

void tst_Dorvy3Statement_Exec::serverErrorIsReported_data()
{
    QTest::addColumn<bool>("withValues");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("message");
    const QString query = QStringLiteral("SELECT 1 / (n - n) FROM counted");
    const QString command = QStringLiteral("UPDATE counted SET n = 1 / (n - n)");
    const QString own = QStringLiteral("DO $$ BEGIN RAISE EXCEPTION 'жук'; END $$");
    const QString zero = QStringLiteral("ERROR:  division by zero\n");
    const QString raised =
        QStringLiteral("ERROR:  жук\n"
                       "CONTEXT:  PL/pgSQL function inline_code_block line 1 at RAISE\n");
    QTest::newRow("with columns") << false << query << zero;
    QTest::newRow("with columns, values") << true << query << zero;
    QTest::newRow("without columns") << false << command << zero;
    QTest::newRow("without columns, values") << true << command << zero;
    QTest::newRow("text of its own") << false << own << raised;
}

void tst_Dorvy3Statement_Exec::serverErrorIsReported()
{
    QFETCH(bool, withValues);
    QFETCH(QString, text);
    QFETCH(QString, message);
    prepare(text);
    QSqlError error = someError();
    QVERIFY(!run(*statement, withValues, &error));
    COMPARE_ERROR(error, StatementError, message, executeFailed(), QString());
}

void tst_Dorvy3Statement_Exec::failureLeavesThePortalToTheNextRun()
{
    prepare(QStringLiteral("SELECT 10 / $1::int4"));
    QVERIFY(!statement->exec({QVariant(0)}, nullptr, -1));
    ask(connection, "ROLLBACK");
    QCOMPARE(proxy->frontend(),
             numbered({"> Close P P1", "> Bind P1 S1 [00000000:1] 1", "> Describe P P1",
                       "> Execute P1 128", "> Sync", "> Query \"ROLLBACK\""}));
}

void tst_Dorvy3Statement_Exec::emptyQueryFails_data()
{
    QTest::addColumn<bool>("withValues");
    QTest::addColumn<QString>("text");
    QTest::newRow("empty") << false << QString();
    QTest::newRow("empty, values") << true << QString();
    QTest::newRow("comment") << false << QStringLiteral("/* nothing */");
    QTest::newRow("semicolon") << true << QStringLiteral(";");
}

void tst_Dorvy3Statement_Exec::emptyQueryFails()
{
    QFETCH(bool, withValues);
    QFETCH(QString, text);
    prepare(text);
    QSqlError error = someError();
    QVERIFY(!run(*statement, withValues, &error));
    COMPARE_ERROR(error, StatementError, QString(), executeFailed(), QString());
    QVERIFY(proxy->conversation().contains(numbered({"< EmptyQueryResponse"}).first()));
}

void tst_Dorvy3Statement_Exec::copyFails_data()
{
    QTest::addColumn<bool>("withValues");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("answer");
    const QString out = QStringLiteral("COPY counted TO STDOUT");
    const QString in = QStringLiteral("COPY counted FROM STDIN");
    const QString outAnswer = QStringLiteral("< CopyOutResponse");
    const QString inAnswer = QStringLiteral("< CopyInResponse");
    QTest::newRow("out") << false << out << outAnswer;
    QTest::newRow("out, values") << true << out << outAnswer;
    QTest::newRow("in") << false << in << inAnswer;
    QTest::newRow("in, values") << true << in << inAnswer;
}

void tst_Dorvy3Statement_Exec::copyFails()
{
    QFETCH(bool, withValues);
    QFETCH(QString, text);
    QFETCH(QString, answer);
    command(connection, "COMMIT");
    prepare(text);
    QSqlError error = someError();
    QVERIFY(!run(*statement, withValues, &error));
    COMPARE_ERROR(error, StatementError, QString(), executeFailed(), QString());
    QVERIFY(proxy->conversation().contains(QString::number(proxy->connectionCount()) + answer));
    // The connection is as good as before, and nothing was copied.
    prepare(QStringLiteral("SELECT count(*)::int4 FROM counted"));
    const Page page = statement->exec(&error, -1, Page());
    QVERIFY2(page, qPrintable(error.text()));
    QCOMPARE(number(page, 0), 1);
}

void tst_Dorvy3Statement_Exec::nullResultReportsTheConnectionsMessage()
{
    // Libpq refuses synchronous calls in pipeline mode with a null result.
    for (const char *text : {"SELECT 1", "UPDATE counted SET n = 1"}) {
        for (const bool withValues : {false, true}) {
            prepare(QString::fromLatin1(text));
            command(connection, "COMMIT; BEGIN"); // takes in all answers
            QCOMPARE(PQenterPipelineMode(connection->connection()), 1);
            QSqlError error;
            QVERIFY(!run(*statement, withValues, &error));
            const QString message =
                statement->readonly()
                    ? QStringLiteral("portal operations are not allowed in pipeline mode\n")
                    : QStringLiteral("synchronous command execution functions are not allowed in "
                                     "pipeline mode\n");
            COMPARE_ERROR(error, StatementError, message, executeFailed(), QString());
            QCOMPARE(PQexitPipelineMode(connection->connection()), 1);
        }
    }
}

void tst_Dorvy3Statement_Exec::serverGoneWhileRunning()
{
    prepare(QStringLiteral("SELECT generate_series(1, 300)"));
    const Page first = statement->exec(nullptr, -1, Page());
    QVERIFY(first);
    proxy->cut();
    QSqlError error;
    QVERIFY(!statement->exec(&error, -1, first));
    COMPARE_ERROR(error, StatementError,
                  QStringLiteral("server closed the connection unexpectedly\n"
                                 "\tThis probably means the server terminated abnormally\n"
                                 "\tbefore or while processing the request.\n"),
                  executeFailed(), QString());
    QCOMPARE(number(first, 127), 128);
    QVERIFY(!statement->exec(&error, -1, first));
    COMPARE_ERROR(error, StatementError, unable(), noConnection(), QStringLiteral("0"));
}

void tst_Dorvy3Statement_Exec::lastWordsOfTheServerAreReported()
{
    prepare(QStringLiteral("SELECT pg_terminate_backend(pg_backend_pid()), pg_sleep(10)"));
    QSqlError error;
    QVERIFY(!statement->exec(&error, -1, Page()));
    COMPARE_ERROR(error, StatementError,
                  QStringLiteral("FATAL:  terminating connection due to administrator command\n"
                                 "server closed the connection unexpectedly\n"
                                 "\tThis probably means the server terminated abnormally\n"
                                 "\tbefore or while processing the request.\n"),
                  executeFailed(), QString());
}

void tst_Dorvy3Statement_Exec::nullErrorIsAllowed()
{
    for (const bool withValues : {false, true}) {
        prepare(QStringLiteral("SELECT 1"));
        QVERIFY(run(*statement, withValues, nullptr));
        prepare(QStringLiteral("SELECT 1 / (n - n) FROM counted"));
        QVERIFY(!run(*statement, withValues, nullptr));
        command(connection, "ROLLBACK; BEGIN");
    }
}

void tst_Dorvy3Statement_Exec::successResetsTheError()
{
    prepare(QStringLiteral("SELECT generate_series(1, 300)"));
    for (const bool withValues : {false, true}) {
        QSqlError error = someError();
        const Page first = run(*statement, withValues, &error);
        VERIFY_NO_ERROR(error);
        error = someError();
        QVERIFY(statement->exec(&error, -1, first));
        VERIFY_NO_ERROR(error);
    }
}

void tst_Dorvy3Statement_Exec::resultKeepsTheConnection()
{
    const QWeakPointer<Dorvy3Connection> watch = connection;
    prepare(QStringLiteral("SELECT generate_series(1, 300)"));
    Page page = statement->exec(nullptr, -1, Page());
    QCOMPARE(page->connection, connection);
    statement.reset();
    connection.clear();
    QVERIFY(watch.toStrongRef()->isValid());
    QCOMPARE(number(page, 127), 128);
    page.clear();
    QVERIFY(watch.isNull());
}

QTEST_GUILESS_MAIN(tst_Dorvy3Statement_Exec)
#include "tst_dorvy3statement_exec.moc"
