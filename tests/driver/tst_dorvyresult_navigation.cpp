// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// DorvyResult: walking through pages of rows, counts, the last key, and the end of a query.
#include "access/dorvy3.h"
#include "driver/dorvydriver.h"
#include "driver/dorvydriver_p.h"
#include "driver/dorvyresult.h"
#include "driver/dorvyresult_p.h"
#include "tests/driver/openresult.h"
#include "tests/support/connectionhelpers.h"
#include "tests/support/pgcluster.h"
#include "tests/support/someerror.h"
#include "tests/support/sqlmacros.h"
#include "tests/support/testaccess.h"
#include "tests/support/wireproxy.h"

#include <QtSql/QSqlDatabase>
#include <QtSql/QSqlQuery>
#include <QtSql/QSqlRecord>
#include <QtTest/QtTest>

#include <memory>

namespace {

QString series(int rows)
{
    return QStringLiteral("SELECT generate_series(1, %1)").arg(rows);
}

// Rows and page positions of a whole walk.
struct Walk
{
    QList<int> values;
    QList<int> positions;
    QList<int> sizes; // of each page, as it was entered
};

Walk walk(QSqlQuery &query)
{
    Walk walked;
    while (query.next()) {
        walked.values += query.value(0).toInt();
        walked.positions += query.at();
        if (query.at() == 0) {
            walked.sizes += query.size();
        }
    }
    return walked;
}

// The client's words with a leading pair of closes in order: which of the two goes first is the
// client library's business, both are all that counts here.
QStringList closesSorted(QStringList words)
{
    if (words.size() >= 2 && words.at(0) > words.at(1)) {
        words.move(0, 1);
    }
    return words;
}

QList<int> range(int first, int last)
{
    QList<int> numbers;
    for (int i = first; i <= last; ++i) {
        numbers += i;
    }
    return numbers;
}

} // namespace

class tst_DorvyResultNavigation : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void cleanupTestCase();

    void walkThroughPages_data();
    void walkThroughPages();
    void preparedQueryWalksThroughPages();
    void exactlyOnePage();
    void stepAfterTheEndFailsAgain();
    void positionIsWithinThePage();
    void dataIsReadWithinThePage();
    void oldPageIsReleased();
    void recordStaysThroughPages();
    void laterPagesAreNotDescribed();
    void stepsThatSucceedLeaveTheLastError();
    void pageKeepsItsConnection();

    void seekReachesTheFirstPageAlone();
    void seekWithinThePage();
    void fetchCountsWithinThePage_data();
    void fetchCountsWithinThePage();
    void lastIsThePagesLast();
    void firstIsThePagesFirst();
    void previousStopsAtThePagesFirst();
    void previousWithinThePage();
    void queryWithoutRows();
    void nothingHeld();
    void nothingHeldAfterFailure();
    void queryNotStartedStepsToItsFirstRow();
    void errorInALaterPage();
    void lostConnectionInALaterPage();
    void stepOnACommandRunsItAgain();
    void forwardOnlyReadsTheSamePages();

    void sizeOfCommand();
    void rowsAffected_data();
    void rowsAffected();
    void lastInsertIdOfInsert();
    void lastInsertIdOfAnyCommand();
    void lastInsertIdIsTheOwnConnections();
    void lastInsertIdWithoutSequence();
    void lastInsertIdBeyondAnInt();
    void lastInsertIdOfLostConnection();
    void lastInsertIdOfAPageWithoutConnection();
    void lastInsertIdIsAPlainQuery();

    void pagesOnTheWire();
    void exactPageOnTheWire();
    void movesWithinAPageSendNothing();
    void finishedSelectLeavesNothing();
    void finishedCommandLeavesNothing();
    void finishedWalkLeavesNothing();
    void destroyedQueryLeavesNothing();
    void finishOfOneLeavesTheOther();
    void detachClosesOnTheWire();
    void detachKeepsTheRest();
    void newTextClosesTheOld();

    void runAgainKeepsThePosition();
    void runAgainAfterTheEndStaysThere();
    void runAgainWhileHalfRead();

private:
    bool open(const QString &host, int port);
    QSqlQuery query() const { return QSqlQuery(driver->createResult()); }
    DorvyDriverPrivate &half() const
    {
        return *static_cast<DorvyDriverPrivate *>(QObjectPrivate::get(driver.get()));
    }
    QByteArray leftOn(const QSharedPointer<Dorvy3Connection> &connection) const;
    QSharedPointer<Dorvy3Connection> own() const
    {
        return Dorvy3TestAccess::connection(half().database);
    }
    QSharedPointer<Dorvy3Connection> borrowed() const
    {
        return Dorvy3TestAccess::readConnection(half().database);
    }
    // The client's lines of the connection that rows are read on, without its number.
    QStringList said() const;

    PgCluster cluster;
    std::unique_ptr<WireProxy> proxy;
    std::unique_ptr<DorvyDriver> driver;
    std::unique_ptr<OpenResult> result;
};

void tst_DorvyResultNavigation::initTestCase()
{
    QVERIFY2(cluster.start(), qPrintable(cluster.why()));
    proxy.reset(new WireProxy(cluster.socketDir(), cluster.port()));
}

void tst_DorvyResultNavigation::cleanupTestCase()
{
    proxy.reset();
}

bool tst_DorvyResultNavigation::open(const QString &host, int port)
{
    return driver->open(QStringLiteral("postgres"), QStringLiteral("dorvy"), QString(), host, port,
                        QStringLiteral("sslmode=disable;gssencmode=disable"));
}

void tst_DorvyResultNavigation::init()
{
    cluster.run(QStringLiteral("CREATE TABLE t (id serial, a int)"));
    driver.reset(new DorvyDriver(QSharedPointer<Dorvy3Transacted>::create()));
    QVERIFY_SQL(*driver, open(proxy->host(), proxy->port()));
    result.reset(new OpenResult(driver.get()));
    proxy->clear();
}

void tst_DorvyResultNavigation::cleanup()
{
    result.reset();
    driver.reset();
    cluster.run(QStringLiteral("DROP TABLE t"));
}

QStringList tst_DorvyResultNavigation::said() const
{
    QStringList lines;
    const QString prefix = QString::number(proxy->connectionCount()) + QLatin1String("> ");
    for (const QString &line : proxy->frontend(proxy->connectionCount())) {
        lines += line.mid(prefix.size());
    }
    return lines;
}

// Statements and portals that are open there; the cursor of the question itself is unnamed.
QByteArray
tst_DorvyResultNavigation::leftOn(const QSharedPointer<Dorvy3Connection> &connection) const
{
    return ask(connection, "SELECT (SELECT count(*) FROM pg_prepared_statements) || ' ' || "
                           "(SELECT count(*) FROM pg_cursors WHERE name <> '')");
}

void tst_DorvyResultNavigation::walkThroughPages_data()
{
    QTest::addColumn<int>("rows");
    QTest::addColumn<QList<int>>("sizes");
    QTest::newRow("none") << 0 << QList<int>{};
    QTest::newRow("one") << 1 << QList<int>{1};
    QTest::newRow("one less than a page") << 127 << QList<int>{127};
    QTest::newRow("a page") << 128 << QList<int>{128};
    QTest::newRow("one more than a page") << 129 << QList<int>{128, 1};
    QTest::newRow("two pages") << 256 << QList<int>{128, 128};
    QTest::newRow("300") << 300 << QList<int>{128, 128, 44};
}

void tst_DorvyResultNavigation::walkThroughPages()
{
    QFETCH(int, rows);
    QFETCH(QList<int>, sizes);
    QSqlQuery select = query();
    QVERIFY_SQL(select, select.exec(series(rows)));
    const Walk walked = walk(select);
    QList<int> positions;
    for (const int size : sizes) {
        positions += range(0, size - 1);
    }
    QCOMPARE(walked.values, range(1, rows));
    QCOMPARE(walked.positions, positions);
    QCOMPARE(walked.sizes, sizes);
    QCOMPARE(select.at(), int(QSql::AfterLastRow) + (rows == 0 ? 1 : 0));
    VERIFY_NO_ERROR(select.lastError());
    QCOMPARE(select.size(), 0);
}

void tst_DorvyResultNavigation::preparedQueryWalksThroughPages()
{
    QSqlQuery select = query();
    QVERIFY_SQL(select, select.prepare(QStringLiteral("SELECT generate_series(1, ?)")));
    select.addBindValue(300);
    QVERIFY_SQL(select, select.exec());
    const Walk walked = walk(select);
    QCOMPARE(walked.values, range(1, 300));
    QCOMPARE(walked.sizes, (QList<int>{128, 128, 44}));
    VERIFY_NO_ERROR(select.lastError());
}

void tst_DorvyResultNavigation::exactlyOnePage()
{
    QVERIFY(result->reset(series(128)));
    QVERIFY(result->fetchFirst());
    for (int row = 1; row < 128; ++row) {
        QVERIFY(result->fetchNext());
        QCOMPARE(result->at(), row);
    }
    result->setLastError(someError());
    QVERIFY(!result->fetchNext());
    VERIFY_NO_ERROR(result->lastError());
    QCOMPARE(result->at(), 127); // Qt marks the end, not the driver
    QCOMPARE(result->size(), 0);
    QVERIFY(result->half().page); // the empty page
}

void tst_DorvyResultNavigation::stepAfterTheEndFailsAgain()
{
    QVERIFY(result->reset(series(129)));
    for (int row = 0; row < 129; ++row) {
        QVERIFY(result->fetchNext());
    }
    for (int i = 0; i < 3; ++i) {
        QVERIFY(!result->fetchNext());
        VERIFY_NO_ERROR(result->lastError());
        QCOMPARE(result->at(), 0);
        QCOMPARE(result->size(), 0);
    }
    QVERIFY(!result->fetchFirst());
    QVERIFY(!result->fetchLast());
    QVERIFY(!result->fetch(0));
    QVERIFY(!result->fetchPrevious());
}

void tst_DorvyResultNavigation::positionIsWithinThePage()
{
    QVERIFY(result->reset(series(300)));
    for (int row = 0; row < 128; ++row) {
        QVERIFY(result->fetchNext());
    }
    QCOMPARE(result->at(), 127);
    QCOMPARE(result->size(), 128);
    QVERIFY(result->fetchNext());
    QCOMPARE(result->at(), 0);
    QCOMPARE(result->size(), 128);
    QVERIFY(result->fetchLast());
    QVERIFY(result->fetchNext());
    QCOMPARE(result->at(), 0);
    QCOMPARE(result->size(), 44);
    QVERIFY(result->fetchLast());
    QCOMPARE(result->at(), 43);
}

void tst_DorvyResultNavigation::dataIsReadWithinThePage()
{
    QVERIFY(result->reset(series(300)));
    QVERIFY(result->fetchLast());
    QCOMPARE(result->data(0).toInt(), 128);
    QVERIFY(result->fetchNext());
    QCOMPARE(result->data(0).toInt(), 129);
    QVERIFY(result->fetch(5));
    QCOMPARE(result->data(0).toInt(), 134);
}

void tst_DorvyResultNavigation::oldPageIsReleased()
{
    QVERIFY(result->reset(series(300)));
    const QWeakPointer<Dorvy3Result> page = result->half().page;
    QVERIFY(result->fetchLast());
    QVERIFY(page.toStrongRef());
    QVERIFY(result->fetchNext());
    QVERIFY(!page.toStrongRef());
}

void tst_DorvyResultNavigation::recordStaysThroughPages()
{
    QSqlQuery select = query();
    QVERIFY_SQL(select, select.exec(QStringLiteral("SELECT g AS number "
                                                   "FROM generate_series(1, 300) g")));
    QCOMPARE(select.record().fieldName(0), QStringLiteral("number"));
    walk(select);
    QCOMPARE(select.record().count(), 1);
    QCOMPARE(select.record().fieldName(0), QStringLiteral("number"));
}

void tst_DorvyResultNavigation::laterPagesAreNotDescribed()
{
    QVERIFY(result->reset(series(300)));
    result->half().record.clear();
    QVERIFY(result->fetchLast());
    QVERIFY(result->fetchNext());
    QVERIFY(result->record().isEmpty());
}

void tst_DorvyResultNavigation::stepsThatSucceedLeaveTheLastError()
{
    QVERIFY(result->reset(series(300)));
    result->setLastError(someError());
    QVERIFY(result->fetchFirst());
    QVERIFY(result->fetchNext());
    QVERIFY(result->fetchPrevious());
    QVERIFY(result->fetch(126));
    QVERIFY(!result->fetch(128));
    QVERIFY(result->fetchLast());
    QCOMPARE(result->lastError(), someError());
    QVERIFY(result->fetchNext()); // onto the next page
    QCOMPARE(result->at(), 0);
    QCOMPARE(result->lastError(), someError());
}

void tst_DorvyResultNavigation::pageKeepsItsConnection()
{
    QVERIFY(result->reset(series(300)));
    QVERIFY(result->fetchLast());
    const QWeakPointer<Dorvy3Connection> reader = borrowed();
    QVERIFY_SQL(*driver, open(proxy->host(), proxy->port())); // the handle lets go of it
    QVERIFY(!borrowed());
    QVERIFY(reader.toStrongRef());
    QVERIFY_SQL(*result, result->fetchNext());
    QCOMPARE(result->data(0).toInt(), 129);
    result->detachFromResultSet();
    QVERIFY(!reader.toStrongRef());
}

void tst_DorvyResultNavigation::seekReachesTheFirstPageAlone()
{
    QSqlQuery select = query();
    QVERIFY_SQL(select, select.exec(series(300)));
    QVERIFY(!select.seek(200));
    QCOMPARE(select.at(), int(QSql::AfterLastRow)); // Qt's mark
    QCOMPARE(select.size(), 128);
    QVERIFY(select.seek(127));
    QCOMPARE(select.value(0).toInt(), 128);
    QVERIFY(select.seek(0));
    QVERIFY(!select.seek(128)); // not the row behind, so no page is read
    QCOMPARE(select.size(), 128);
}

void tst_DorvyResultNavigation::seekWithinThePage()
{
    QSqlQuery select = query();
    QVERIFY_SQL(select, select.exec(series(300)));
    QVERIFY(select.seek(100));
    QCOMPARE(select.value(0).toInt(), 101);
    QVERIFY(select.seek(-50, true));
    QCOMPARE(select.value(0).toInt(), 51);
    QVERIFY(select.seek(27));
    QCOMPARE(select.value(0).toInt(), 28);
    QVERIFY(!select.seek(-1));
    QCOMPARE(select.at(), int(QSql::BeforeFirstRow));
    QVERIFY(select.next());
    QCOMPARE(select.value(0).toInt(), 1);
}

void tst_DorvyResultNavigation::fetchCountsWithinThePage_data()
{
    QTest::addColumn<int>("row");
    QTest::addColumn<bool>("there");
    QTest::newRow("first") << 0 << true;
    QTest::newRow("within") << 20 << true;
    QTest::newRow("last") << 43 << true;
    QTest::newRow("behind the last") << 44 << false;
    QTest::newRow("of the whole query") << 299 << false;
    QTest::newRow("before the first") << -1 << false;
    QTest::newRow("greatest") << 2147483647 << false;
    QTest::newRow("least") << -2147483647 - 1 << false;
}

void tst_DorvyResultNavigation::fetchCountsWithinThePage()
{
    QFETCH(int, row);
    QFETCH(bool, there);
    QVERIFY(result->reset(series(300)));
    for (int i = 0; i < 256 + 11; ++i) {
        QVERIFY(result->fetchNext());
    }
    QCOMPARE(result->at(), 10);
    proxy->clear();
    QCOMPARE(result->fetch(row), there);
    QCOMPARE(result->at(), there ? row : 10);
    QCOMPARE(proxy->frontend(), QStringList());
    if (there) {
        QCOMPARE(result->data(0).toInt(), 257 + row);
    }
}

void tst_DorvyResultNavigation::lastIsThePagesLast()
{
    QSqlQuery select = query();
    QVERIFY_SQL(select, select.exec(series(300)));
    QVERIFY(select.last());
    QCOMPARE(select.at(), 127);
    QCOMPARE(select.value(0).toInt(), 128);
    QVERIFY(select.next());
    QVERIFY(select.last());
    QCOMPARE(select.value(0).toInt(), 256);
}

void tst_DorvyResultNavigation::firstIsThePagesFirst()
{
    QSqlQuery select = query();
    QVERIFY_SQL(select, select.exec(series(300)));
    QVERIFY(select.seek(20));
    QVERIFY(select.first());
    QCOMPARE(select.value(0).toInt(), 1);
    QVERIFY(select.last());
    QVERIFY(select.next());
    QVERIFY(select.next());
    QVERIFY(select.first());
    QCOMPARE(select.at(), 0);
    QCOMPARE(select.value(0).toInt(), 129);
}

void tst_DorvyResultNavigation::previousStopsAtThePagesFirst()
{
    QVERIFY(result->reset(series(300)));
    QVERIFY(result->fetchLast());
    QVERIFY(result->fetchNext());
    QCOMPARE(result->at(), 0);
    QVERIFY(!result->fetchPrevious());
    QCOMPARE(result->at(), 0);
    QCOMPARE(result->data(0).toInt(), 129);

    QSqlQuery select = query();
    QVERIFY_SQL(select, select.exec(series(300)));
    QVERIFY(select.last());
    QVERIFY(select.next());
    QVERIFY(!select.previous());
    QCOMPARE(select.at(), int(QSql::BeforeFirstRow)); // Qt's mark
}

void tst_DorvyResultNavigation::previousWithinThePage()
{
    QSqlQuery select = query();
    QVERIFY_SQL(select, select.exec(series(3)));
    QVERIFY(select.last());
    QVERIFY(select.previous());
    QCOMPARE(select.value(0).toInt(), 2);
    QVERIFY(select.previous());
    QCOMPARE(select.value(0).toInt(), 1);
    QVERIFY(!select.previous());
    // From beside the page: only a step onto a row of it counts.
    QVERIFY(result->reset(series(3)));
    result->setAt(QSql::BeforeFirstRow);
    QVERIFY(!result->fetchPrevious());
    result->setAt(3);
    QVERIFY(result->fetchPrevious());
    QCOMPARE(result->at(), 2);
    result->setAt(5);
    QVERIFY(!result->fetchPrevious());
    QCOMPARE(result->at(), 5);
}

void tst_DorvyResultNavigation::queryWithoutRows()
{
    QVERIFY(result->reset(QStringLiteral("SELECT 1 WHERE false")));
    QCOMPARE(result->size(), 0);
    QVERIFY(!result->fetchFirst());
    QVERIFY(!result->fetchLast());
    QVERIFY(!result->fetch(0));
    QVERIFY(!result->fetchPrevious());
    QVERIFY(!result->fetchNext());
    VERIFY_NO_ERROR(result->lastError());
    QCOMPARE(result->at(), int(QSql::BeforeFirstRow));
}

#define VERIFY_NOTHING_HELD(result)                                                                \
    do {                                                                                           \
        const int position = (result).at();                                                        \
        (result).setLastError(someError());                                                        \
        QVERIFY(!(result).fetchNext());                                                            \
        QVERIFY(!(result).fetch(0));                                                               \
        QVERIFY(!(result).fetchPrevious());                                                        \
        QVERIFY(!(result).fetchFirst());                                                           \
        QVERIFY(!(result).fetchLast());                                                            \
        QCOMPARE((result).size(), -1);                                                             \
        QCOMPARE((result).numRowsAffected(), -1);                                                  \
        QVERIFY(!(result).lastInsertId().isValid());                                               \
        QCOMPARE((result).lastError(), someError());                                               \
        QCOMPARE((result).at(), position);                                                         \
    } while (false)

void tst_DorvyResultNavigation::nothingHeld()
{
    VERIFY_NOTHING_HELD(*result);
    QVERIFY(result->prepare(series(3)));
    VERIFY_NOTHING_HELD(*result);
    QVERIFY(result->exec());
    QVERIFY(result->fetchFirst());
    result->detachFromResultSet();
    VERIFY_NOTHING_HELD(*result);
}

void tst_DorvyResultNavigation::nothingHeldAfterFailure()
{
    QVERIFY(result->reset(series(3)));
    QVERIFY(result->fetchFirst());
    QVERIFY(!result->reset(QStringLiteral("nonsense")));
    VERIFY_NOTHING_HELD(*result);
    QVERIFY(!result->reset(QStringLiteral("SELECT 1 / 0")));
    VERIFY_NOTHING_HELD(*result);
    QVERIFY(!result->exec());
    VERIFY_NOTHING_HELD(*result);
}

void tst_DorvyResultNavigation::queryNotStartedStepsToItsFirstRow()
{
    QVERIFY(result->reset(series(3)));
    QCOMPARE(result->at(), int(QSql::BeforeFirstRow));
    QVERIFY(result->fetchNext()); // Qt itself calls fetchFirst here
    QCOMPARE(result->at(), 0);
    QCOMPARE(result->data(0).toInt(), 1);
}

void tst_DorvyResultNavigation::errorInALaterPage()
{
    QVERIFY(result->reset(QStringLiteral("SELECT 100 / (g - 200) FROM generate_series(1, 300) g")));
    QVERIFY(result->fetchLast());
    const QWeakPointer<Dorvy3Result> page = result->half().page;
    QVERIFY(!result->fetchNext());
    COMPARE_ERROR(result->lastError(), StatementError, QStringLiteral("ERROR:  division by zero\n"),
                  QStringLiteral("Ошибка при выполнении запроса к СУБД"), QString());
    QVERIFY(!page.toStrongRef());
    QVERIFY(!result->half().page);
    QCOMPARE(result->at(), 127);
    QCOMPARE(result->record().count(), 1);
    VERIFY_NOTHING_HELD(*result);
}

void tst_DorvyResultNavigation::lostConnectionInALaterPage()
{
    QVERIFY(result->reset(series(300)));
    QVERIFY(result->fetchLast());
    proxy->cut();
    QVERIFY(!result->fetchNext());
    QCOMPARE(result->lastError().type(), QSqlError::StatementError);
    QCOMPARE(result->lastError().databaseText(),
             QStringLiteral("Ошибка при выполнении запроса к СУБД"));
    QVERIFY(result->lastError().driverText().contains(QLatin1String("connection")));
    VERIFY_NOTHING_HELD(*result);
}

void tst_DorvyResultNavigation::stepOnACommandRunsItAgain()
{
    // Qt never steps on what is no select; a command knows no later page and starts over.
    QVERIFY(result->reset(QStringLiteral("INSERT INTO t (a) VALUES (1)")));
    QVERIFY(!result->fetchNext());
    VERIFY_NO_ERROR(result->lastError());
    QCOMPARE(cluster.value(QStringLiteral("SELECT count(*) FROM t")), QStringLiteral("2"));

    QSqlQuery insert = query();
    QVERIFY_SQL(insert, insert.exec(QStringLiteral("INSERT INTO t (a) VALUES (1)")));
    QVERIFY(!insert.next());
    QCOMPARE(cluster.value(QStringLiteral("SELECT count(*) FROM t")), QStringLiteral("3"));
}

void tst_DorvyResultNavigation::forwardOnlyReadsTheSamePages()
{
    QSqlQuery select = query();
    select.setForwardOnly(true);
    QVERIFY_SQL(select, select.exec(series(300)));
    const Walk walked = walk(select);
    QCOMPARE(walked.values, range(1, 300));
    QCOMPARE(walked.sizes, (QList<int>{128, 128, 44}));
    QCOMPARE(said().filter(QStringLiteral("Execute")),
             QStringList({QStringLiteral("Execute P1 128"), QStringLiteral("Execute P1 128"),
                          QStringLiteral("Execute P1 128")}));
}

void tst_DorvyResultNavigation::sizeOfCommand()
{
    QVERIFY(result->reset(QStringLiteral("INSERT INTO t (a) SELECT generate_series(1, 5)")));
    QCOMPARE(result->size(), 0);
    QVERIFY(!result->fetchFirst());
    QVERIFY(!result->fetchLast());
}

void tst_DorvyResultNavigation::rowsAffected_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("rows");
    const auto row = [](const char *tag, const char *text, int rows) {
        QTest::newRow(tag) << QString::fromLatin1(text) << rows;
    };
    row("update", "UPDATE t SET a = 7", 5);
    row("update of none", "UPDATE t SET a = 7 WHERE false", 0);
    row("delete", "DELETE FROM t WHERE a < 3", 2);
    row("insert", "INSERT INTO t (a) VALUES (6), (7), (8)", 3);
    row("command without a count", "CREATE TEMPORARY TABLE u (a int)", 0);
    row("select, all in one page", "SELECT a FROM t", 5);
    row("select, more to come", "SELECT generate_series(1, 300)", 0); // the tag is still out
    row("returning", "UPDATE t SET a = 7 RETURNING a", 5);
}

void tst_DorvyResultNavigation::rowsAffected()
{
    QFETCH(QString, text);
    QFETCH(int, rows);
    cluster.run(QStringLiteral("INSERT INTO t (a) SELECT generate_series(1, 5)"));
    QSqlQuery any = query();
    QVERIFY_SQL(any, any.exec(text));
    QCOMPARE(any.numRowsAffected(), rows);
}

void tst_DorvyResultNavigation::lastInsertIdOfInsert()
{
    cluster.run(QStringLiteral("ALTER SEQUENCE t_id_seq RESTART 41"));
    for (const int id : {41, 42}) {
        QVERIFY_SQL(*result, result->reset(QStringLiteral("INSERT INTO t (a) VALUES (1)")));
        QCOMPARE(result->lastInsertId().userType(), int(QMetaType::Int));
        QCOMPARE(result->lastInsertId().toInt(), id);
    }
    QSqlQuery insert = query();
    QVERIFY_SQL(insert, insert.exec(QStringLiteral("INSERT INTO t (a) VALUES (1)")));
    QCOMPARE(insert.lastInsertId(), QVariant(43));
}

void tst_DorvyResultNavigation::lastInsertIdOfAnyCommand()
{
    QVERIFY(result->reset(QStringLiteral("INSERT INTO t (a) VALUES (1)")));
    QVERIFY(result->reset(QStringLiteral("DELETE FROM t")));
    QCOMPARE(result->lastInsertId(), QVariant(1));
}

void tst_DorvyResultNavigation::lastInsertIdIsTheOwnConnections()
{
    QVERIFY(result->reset(QStringLiteral("INSERT INTO t (a) VALUES (1)")));
    OpenResult select(driver.get());
    QVERIFY(select.reset(QStringLiteral("SELECT 1"))); // on the borrowed connection
    QVERIFY(!select.lastInsertId().isValid());
    OpenResult returning(driver.get());
    // The failed question has spoiled the borrowed transaction; a new one begins without readers.
    select.detachFromResultSet();
    QVERIFY_SQL(returning,
                returning.reset(QStringLiteral("INSERT INTO t (a) VALUES (2) RETURNING a")));
    QCOMPARE(returning.lastInsertId(), QVariant(2));
    QCOMPARE(result->lastInsertId(), QVariant(1));
}

void tst_DorvyResultNavigation::lastInsertIdWithoutSequence()
{
    QVERIFY(result->reset(QStringLiteral("UPDATE t SET a = 1")));
    result->setLastError(someError());
    QVERIFY(!result->lastInsertId().isValid());
    QCOMPARE(result->lastError(), someError());
}

void tst_DorvyResultNavigation::lastInsertIdBeyondAnInt()
{
    cluster.run(QStringLiteral("ALTER TABLE t ALTER id TYPE bigint"));
    cluster.run(QStringLiteral("ALTER SEQUENCE t_id_seq AS bigint RESTART 2147483647"));
    for (const int id : {2147483647, 0, 0}) {
        QVERIFY_SQL(*result, result->reset(QStringLiteral("INSERT INTO t (a) VALUES (1)")));
        QCOMPARE(result->lastInsertId().userType(), int(QMetaType::Int));
        QCOMPARE(result->lastInsertId().toInt(), id);
    }
}

void tst_DorvyResultNavigation::lastInsertIdOfLostConnection()
{
    QVERIFY(result->reset(QStringLiteral("INSERT INTO t (a) VALUES (1)")));
    proxy->cut();
    result->setLastError(someError());
    QVERIFY(!result->lastInsertId().isValid()); // finds out
    QVERIFY(!result->lastInsertId().isValid()); // knows
    QCOMPARE(result->lastError(), someError());
    driver->close();
    QVERIFY(!result->lastInsertId().isValid()); // of a finished connection
    QCOMPARE(result->lastError(), someError());
}

void tst_DorvyResultNavigation::lastInsertIdOfAPageWithoutConnection()
{
    result->half().page = QSharedPointer<Dorvy3Result>::create(
        PQmakeEmptyPGresult(nullptr, PGRES_COMMAND_OK), QSharedPointer<Dorvy3Connection>());
    result->setLastError(someError());
    QVERIFY(!result->lastInsertId().isValid());
    QCOMPARE(result->lastError(), someError());
}

void tst_DorvyResultNavigation::lastInsertIdIsAPlainQuery()
{
    QVERIFY(result->reset(QStringLiteral("INSERT INTO t (a) VALUES (1)")));
    proxy->clear();
    QCOMPARE(result->lastInsertId(), QVariant(1));
    QCOMPARE(said(), QStringList(QStringLiteral("Query \"SELECT lastval()\"")));
}

void tst_DorvyResultNavigation::pagesOnTheWire()
{
    QSqlQuery select = query();
    QVERIFY_SQL(select, select.exec(series(300)));
    const QStringList first = said();
    QCOMPARE(first.mid(first.indexOf(QStringLiteral("Bind P1 S1 [] 1"))),
             QStringList({QStringLiteral("Bind P1 S1 [] 1"), QStringLiteral("Describe P P1"),
                          QStringLiteral("Execute P1 128"), QStringLiteral("Sync")}));
    const QStringList page{QStringLiteral("Execute P1 128"), QStringLiteral("Sync")};
    for (const int pageEnd : {128, 256}) {
        proxy->clear();
        for (int row = pageEnd - 128; row < pageEnd; ++row) {
            QVERIFY(select.next());
        }
        // The first of these rows brought its page, except for the very first; none was read ahead.
        QStringList words = said();
        words.replaceInStrings(QRegularExpression(QStringLiteral("P\\d+")), QStringLiteral("P1"));
        QCOMPARE(words, pageEnd == 128 ? QStringList() : page);
    }
    proxy->clear();
    for (int row = 256; row < 300; ++row) {
        QVERIFY(select.next());
    }
    QCOMPARE(said(), page);
    proxy->clear();
    // The portal has told that it is used up, so the last step asks nothing.
    QVERIFY(!select.next());
    QCOMPARE(proxy->frontend(), QStringList());
}

void tst_DorvyResultNavigation::exactPageOnTheWire()
{
    QSqlQuery select = query();
    QVERIFY_SQL(select, select.exec(series(128)));
    proxy->clear();
    for (int row = 0; row < 128; ++row) {
        QVERIFY(select.next());
    }
    QCOMPARE(proxy->frontend(), QStringList());
    QVERIFY(!select.next());
    QCOMPARE(said(), QStringList({QStringLiteral("Execute P1 128"), QStringLiteral("Sync")}));
}

void tst_DorvyResultNavigation::movesWithinAPageSendNothing()
{
    QVERIFY(result->reset(series(300)));
    proxy->clear();
    QVERIFY(result->fetchFirst());
    QVERIFY(result->fetchLast());
    QVERIFY(result->fetch(64));
    QVERIFY(!result->fetch(128));
    QVERIFY(result->fetchPrevious());
    QVERIFY(result->fetchNext());
    QCOMPARE(result->size(), 128);
    QCOMPARE(result->numRowsAffected(), 0);
    QCOMPARE(proxy->frontend(), QStringList());
}

void tst_DorvyResultNavigation::finishedSelectLeavesNothing()
{
    QSqlQuery select = query();
    QVERIFY_SQL(select, select.exec(series(300)));
    QVERIFY(select.next());
    const auto reader = borrowed();
    QVERIFY(reader);
    QCOMPARE(leftOn(reader), QByteArray("1 1"));
    QCOMPARE(leftOn(own()), QByteArray("0 0")); // prepared there first, and closed
    proxy->clear();
    select.finish();
    QVERIFY(!borrowed());
    const QString number = QString::number(proxy->connectionCount());
    QVERIFY(proxy->waitForLine(number + QLatin1String("> Query \"ROLLBACK\"")));
    QCOMPARE(closesSorted(said()),
             QStringList({QStringLiteral("Close P P1"), QStringLiteral("Close S S1"),
                          QStringLiteral("Sync"), QStringLiteral("Query \"ROLLBACK\"")}));
    QCOMPARE(leftOn(reader), QByteArray("0 0"));
    QCOMPARE(leftOn(own()), QByteArray("0 0"));
}

void tst_DorvyResultNavigation::finishedCommandLeavesNothing()
{
    QSqlQuery insert = query();
    QVERIFY_SQL(insert, insert.exec(QStringLiteral("INSERT INTO t (a) VALUES (1)")));
    QCOMPARE(leftOn(own()), QByteArray("1 0"));
    proxy->clear();
    insert.finish();
    const QString number = QString::number(proxy->connectionCount());
    QVERIFY(proxy->waitForLine(number + QLatin1String("> Sync")));
    QCOMPARE(closesSorted(said()),
             QStringList({QStringLiteral("Close P P1"), QStringLiteral("Close S S1"),
                          QStringLiteral("Sync")}));
    QCOMPARE(leftOn(own()), QByteArray("0 0"));
}

void tst_DorvyResultNavigation::finishedWalkLeavesNothing()
{
    QSqlQuery select = query();
    QVERIFY_SQL(select, select.exec(series(300)));
    const auto reader = borrowed();
    walk(select);
    QCOMPARE(leftOn(reader), QByteArray("1 1")); // until the query is finished or gone
    select.finish();
    QCOMPARE(leftOn(reader), QByteArray("0 0"));
}

void tst_DorvyResultNavigation::destroyedQueryLeavesNothing()
{
    QSharedPointer<Dorvy3Connection> reader;
    {
        QSqlQuery select = query();
        QSqlQuery prepared = query();
        QVERIFY_SQL(select, select.exec(series(300)));
        QVERIFY_SQL(prepared, prepared.prepare(QStringLiteral("SELECT 1")));
        reader = borrowed();
        QCOMPARE(leftOn(reader), QByteArray("2 1"));
    }
    QCOMPARE(leftOn(reader), QByteArray("0 0"));
    QCOMPARE(leftOn(own()), QByteArray("0 0"));
    QCOMPARE(PQtransactionStatus(reader->connection()), PQTRANS_IDLE); // rolled back
}

void tst_DorvyResultNavigation::finishOfOneLeavesTheOther()
{
    QSqlQuery first = query();
    QSqlQuery second = query();
    QVERIFY_SQL(first, first.exec(series(300)));
    QVERIFY_SQL(second, second.exec(series(300)));
    QVERIFY(first.next());
    QVERIFY(second.next());
    first.finish();
    QCOMPARE(leftOn(borrowed()), QByteArray("1 1"));
    // As a query of the driver itself sees it, which has a statement and a portal of its own.
    QSqlQuery third = query();
    QVERIFY_SQL(third, third.exec(QStringLiteral("SELECT count(*) FROM pg_prepared_statements")));
    QVERIFY(third.next());
    QCOMPARE(third.value(0).toInt(), 2);
    QCOMPARE(walk(second).values, range(2, 300));
}

void tst_DorvyResultNavigation::detachClosesOnTheWire()
{
    QVERIFY(result->reset(series(300)));
    proxy->clear();
    result->detachFromResultSet();
    const QString number = QString::number(proxy->connectionCount());
    QVERIFY(proxy->waitForLine(number + QLatin1String("> Query \"ROLLBACK\"")));
    QCOMPARE(closesSorted(said()),
             QStringList({QStringLiteral("Close P P1"), QStringLiteral("Close S S1"),
                          QStringLiteral("Sync"), QStringLiteral("Query \"ROLLBACK\"")}));
    proxy->clear();
    result->detachFromResultSet(); // nothing is left to give up
    QCOMPARE(proxy->frontend(), QStringList());
}

void tst_DorvyResultNavigation::detachKeepsTheRest()
{
    QVERIFY(result->reset(QStringLiteral("SELECT g AS number FROM generate_series(1, 300) g")));
    QVERIFY(result->fetch(20));
    const QWeakPointer<Dorvy3Result> page = result->half().page;
    result->detachFromResultSet();
    QVERIFY(!page.toStrongRef());
    QCOMPARE(result->size(), -1);
    QCOMPARE(result->record().count(), 1);
    QCOMPARE(result->record().fieldName(0), QStringLiteral("number"));
    QVERIFY(result->isActive());
    QCOMPARE(result->at(), 20);
}

void tst_DorvyResultNavigation::newTextClosesTheOld()
{
    QVERIFY(result->reset(series(300)));
    QVERIFY(result->reset(QStringLiteral("INSERT INTO t (a) VALUES (1)")));
    QCOMPARE(leftOn(own()), QByteArray("1 0"));
    QVERIFY(!borrowed());
    QVERIFY(result->prepare(QStringLiteral("SELECT 1")));
    QCOMPARE(leftOn(own()), QByteArray("0 0"));
    QCOMPARE(leftOn(borrowed()), QByteArray("1 0"));
}

void tst_DorvyResultNavigation::runAgainKeepsThePosition()
{
    QSqlQuery select = query();
    QVERIFY_SQL(select, select.prepare(series(300)));
    QVERIFY_SQL(select, select.exec());
    for (int row = 0; row < 3; ++row) {
        QVERIFY(select.next());
    }
    QVERIFY_SQL(select, select.exec());
    QCOMPARE(select.at(), 2);
    QCOMPARE(select.value(0).toInt(), 3);
    QVERIFY(select.next());
    QCOMPARE(select.value(0).toInt(), 4);
    QVERIFY_SQL(select, select.exec());
    QVERIFY(!select.seek(-1));
    QCOMPARE(walk(select).values, range(1, 300));
}

void tst_DorvyResultNavigation::runAgainAfterTheEndStaysThere()
{
    QSqlQuery select = query();
    QVERIFY_SQL(select, select.prepare(series(3)));
    QVERIFY_SQL(select, select.exec());
    walk(select);
    QVERIFY_SQL(select, select.exec());
    QCOMPARE(select.at(), int(QSql::AfterLastRow));
    QVERIFY(!select.next());
    QVERIFY(!select.seek(-1));
    QCOMPARE(walk(select).values, range(1, 3));
}

void tst_DorvyResultNavigation::runAgainWhileHalfRead()
{
    QSqlQuery select = query();
    QVERIFY_SQL(select, select.prepare(QStringLiteral("SELECT generate_series(?::int, 300)")));
    select.bindValue(0, 1);
    QVERIFY_SQL(select, select.exec());
    for (int row = 0; row < 200; ++row) {
        QVERIFY(select.next());
    }
    select.bindValue(0, 101);
    QVERIFY_SQL(select, select.exec());
    QVERIFY(!select.seek(-1));
    QCOMPARE(walk(select).values, range(101, 300));
    QCOMPARE(leftOn(borrowed()), QByteArray("1 1"));
}

QTEST_GUILESS_MAIN(tst_DorvyResultNavigation)
#include "tst_dorvyresult_navigation.moc"
