// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// DorvyDriver::tables: its three passes, in which order they come, what they say to the server, and
// what becomes of them when they fail.
#include "tests/driver/catalogserver.h"
#include "tests/support/someerror.h"
#include "tests/support/sqlmacros.h"
#include "tests/support/textlines.h"

#include <QtCore/QRegularExpression>
#include <QtTest/QtTest>

#include <algorithm>

namespace {

QString systemText()
{
    return QStringLiteral(
        "SELECT relname FROM pg_class WHERE (relkind = 'r') AND (relname LIKE 'pg_%')");
}

QString tablesText()
{
    return QStringLiteral("SELECT pg_class.relname, pg_namespace.nspname FROM pg_class LEFT JOIN "
                          "pg_namespace ON (pg_class.relnamespace = pg_namespace.oid) WHERE "
                          "(pg_class.relkind = 'r') AND (pg_class.relname !~ '^Inv') AND "
                          "(pg_class.relname !~ '^pg_') AND "
                          "(pg_namespace.nspname != 'information_schema') ");
}

QString viewsText()
{
    return QStringLiteral("SELECT pg_class.relname, pg_namespace.nspname FROM pg_class LEFT JOIN "
                          "pg_namespace ON (pg_class.relnamespace = pg_namespace.oid) WHERE "
                          "(pg_class.relkind = 'v') AND (pg_class.relname !~ '^Inv') AND "
                          "(pg_class.relname !~ '^pg_') AND "
                          "(pg_namespace.nspname != 'information_schema') ");
}

// Counts the results that it makes.
class CountingDriver : public DorvyDriver
{
public:
    using DorvyDriver::DorvyDriver;

    QSqlResult *createResult() const override
    {
        ++results;
        return DorvyDriver::createResult();
    }

    mutable int results = 0;
};

} // namespace

class tst_DorvyDriverPasses : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();
    void cleanupTestCase();

    void flagsChooseThePasses_data();
    void flagsChooseThePasses();
    void emptySchemaIsLeftOut();
    void manyTablesComeInPages_data();
    void manyTablesComeInPages();
    void manySystemTablesComeInPages();
    void roadOfAPass();
    void passesShareOneResult();
    void passesShareTheBorrowedConnection();
    void nothingIsLeftOnTheServer();
    void halfReadQueryGoesOn();
    void openTransactionGoesOn();
    void failedTransactionListsNothing();
    void failedTransactionOfTheReaderListsNothing();
    void failedPassesListNothing();
    void everyPassIsTriedThoughAllFail();
    void laterPassListsAfterAFailedOne();
    void noSecondConnectionListsNothing();
    void lostConnectionListsNothing();
    void closedDriverSendsNothing();
    void driverIsAskedWhetherItIsOpen();

private:
    QStringList tables(int type) const
    {
        return server.driver->tables(static_cast<QSql::TableType>(type));
    }
    void createShadowed();

    CatalogServer server;
};

void tst_DorvyDriverPasses::initTestCase()
{
    QVERIFY2(server.start(), qPrintable(server.cluster.why()));
    server.createFew();
    createShadowed();
}

void tst_DorvyDriverPasses::cleanup()
{
    server.closeDriver();
}

void tst_DorvyDriverPasses::cleanupTestCase()
{
    server.proxy.reset();
}

// A database whose sessions look into the schema "shadow" before they look into the catalog: its
// LIKE refuses every name, and one of its schemas has no name.
void tst_DorvyDriverPasses::createShadowed()
{
    server.createDatabase(
        QStringLiteral("shadowed"),
        {"CREATE SCHEMA acc", "CREATE SCHEMA shadow", "CREATE TABLE t ()", "CREATE TABLE acc.u ()",
         "CREATE VIEW acc.w AS SELECT 1 AS a",
         "CREATE FUNCTION shadow.refuse(name, text) RETURNS bool LANGUAGE plpgsql AS "
         "$$ BEGIN RAISE 'refused'; END $$",
         "CREATE OPERATOR shadow.~~ (LEFTARG = name, RIGHTARG = text, PROCEDURE = shadow.refuse)",
         "CREATE VIEW shadow.pg_namespace AS SELECT oid, CASE nspname WHEN 'acc' THEN ''::name "
         "ELSE nspname END AS nspname FROM pg_catalog.pg_namespace",
         "ALTER DATABASE shadowed SET search_path = shadow, pg_catalog"});
}

void tst_DorvyDriverPasses::flagsChooseThePasses_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<bool>("system");
    QTest::addColumn<bool>("tables");
    QTest::addColumn<bool>("views");
    QTest::newRow("none") << 0 << false << false << false;
    QTest::newRow("Tables") << int(QSql::Tables) << false << true << false;
    QTest::newRow("SystemTables") << int(QSql::SystemTables) << true << false << false;
    QTest::newRow("Views") << int(QSql::Views) << false << false << true;
    QTest::newRow("Tables, SystemTables")
        << (QSql::Tables | QSql::SystemTables) << true << true << false;
    QTest::newRow("Views, SystemTables")
        << (QSql::Views | QSql::SystemTables) << true << false << true;
    QTest::newRow("Views, Tables") << (QSql::Views | QSql::Tables) << false << true << true;
    QTest::newRow("all three") << (QSql::Views | QSql::Tables | QSql::SystemTables) << true << true
                               << true;
    QTest::newRow("AllTables") << int(QSql::AllTables) << true << true << true;
    QTest::newRow("foreign bit") << 0x08 << false << false << false;
    QTest::newRow("foreign bits") << 0xf8 << false << false << false;
    QTest::newRow("Tables, foreign bits") << 0xf9 << false << true << false;
    QTest::newRow("SystemTables, foreign bits") << 0xfa << true << false << false;
    QTest::newRow("Views, foreign bits") << 0xfc << false << false << true;
}

void tst_DorvyDriverPasses::flagsChooseThePasses()
{
    QFETCH(int, type);
    QFETCH(bool, system);
    QFETCH(bool, tables);
    QFETCH(bool, views);
    QStringList names;
    QStringList texts;
    if (system) {
        names += systemTables(server.cluster, server.few());
        texts += systemText();
    }
    if (tables) {
        names += lines({"acc.u", "t"});
        texts += tablesText();
    }
    if (views) {
        names += lines({"acc.w", "v"});
        texts += viewsText();
    }
    QVERIFY_SQL(*server.driver, server.openDriver(server.few()));
    QStringList listed = this->tables(type);
    // The passes come in this order, the names of one pass in any.
    int at = listed.size();
    for (const bool pass : {views, tables}) {
        if (pass && at >= 2) {
            std::sort(listed.begin() + at - 2, listed.begin() + at);
            at -= 2;
        }
    }
    std::sort(listed.begin(), listed.begin() + at);
    QCOMPARE(listed, names);
    QCOMPARE(server.parsed(server.own), texts);
    QCOMPARE(server.parsed(server.own + 1), texts);
    QCOMPARE(server.proxy->messages().isEmpty(), texts.isEmpty());
}

void tst_DorvyDriverPasses::emptySchemaIsLeftOut()
{
    QVERIFY_SQL(*server.driver, server.openDriver(QStringLiteral("shadowed")));
    // Without a current schema the borrowed connection keeps the search path of the database.
    QVERIFY(server.execute(QStringLiteral("SET search_path TO nowhere")));
    QCOMPARE(sorted(tables(QSql::Tables)), lines({"t", "u"}));
    QCOMPARE(tables(QSql::Views), lines({"w"}));
}

void tst_DorvyDriverPasses::manyTablesComeInPages_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<int>("number");
    QTest::addColumn<QStringList>("pages");
    QTest::newRow("two pages and a part, of tables")
        << int(QSql::Tables) << 300
        << lines({"> Execute P1 128", "< DataRow x128", "< PortalSuspended", "> Execute P1 128",
                  "< DataRow x128", "< PortalSuspended", "> Execute P1 128", "< DataRow x44"});
    QTest::newRow("exactly a page, of views")
        << int(QSql::Views) << 128
        << lines({"> Execute P1 128", "< DataRow x128", "< PortalSuspended", "> Execute P1 128"});
}

void tst_DorvyDriverPasses::manyTablesComeInPages()
{
    QFETCH(int, type);
    QFETCH(int, number);
    QFETCH(QStringList, pages);
    const QString database = QStringLiteral("many%1").arg(number);
    server.createDatabase(database, {"CREATE SCHEMA acc"});
    QStringList names;
    QString script;
    for (int i = 0; i < number; ++i) {
        names += QStringLiteral("acc.n%1").arg(i);
        script += (type == QSql::Tables ? QStringLiteral("CREATE TABLE %1 ();")
                                        : QStringLiteral("CREATE VIEW %1 AS SELECT 1 AS a;"))
                      .arg(names.last());
    }
    server.cluster.run(script, database);
    QVERIFY_SQL(*server.driver, server.openDriver(database));
    QCOMPARE(sorted(tables(type)), sorted(names));
    QStringList said = server.linesWith({"Execute", "DataRow", "Suspended"}, server.own + 1);
    QCOMPARE(said.replaceInStrings(QRegularExpression(QStringLiteral("^\\d+")), QString()), pages);
}

void tst_DorvyDriverPasses::manySystemTablesComeInPages()
{
    const QString database = QStringLiteral("manysystem");
    server.cluster.createDatabase(database);
    QString script;
    for (int i = 0; i < 220; ++i) {
        script += QStringLiteral("CREATE TABLE pg_n%1 ();").arg(i);
    }
    server.cluster.run(script, database);
    const QStringList expected = systemTables(server.cluster, database);
    QVERIFY(expected.size() > 256 && expected.size() < 384);
    QVERIFY_SQL(*server.driver, server.openDriver(database));
    QCOMPARE(sorted(tables(QSql::SystemTables)), expected);
    QCOMPARE(server.linesWith({"Execute"}).size(), 3);
    QCOMPARE(server.linesWith({"DataRow x128"}).size(), 2);
}

void tst_DorvyDriverPasses::roadOfAPass()
{
    QVERIFY_SQL(*server.driver, server.openDriver(server.few()));
    QCOMPARE(sorted(tables(QSql::Views)), lines({"acc.w", "v"}));
    const int borrowed = server.own + 1;
    const QStringList parse{QStringLiteral("> Parse S1 \"") + viewsText() + QStringLiteral("\" 0")};
    const auto behind = [](int connection, const QStringList &words) {
        return QStringList(words).replaceInStrings(QRegularExpression(QStringLiteral("^")),
                                                   QString::number(connection));
    };
    const QStringList described = lines({"> Sync", "> Describe S S1", "> Sync"});
    const QStringList closed = lines({"> Close P P1", "> Close S S1", "> Sync"});
    QCOMPARE(server.proxy->frontend(server.own),
             behind(server.own,
                    parse + described + lines({"> Query \"SELECT current_schema()\""}) + closed));
    QCOMPARE(
        server.proxy->frontend(borrowed),
        behind(borrowed, lines({"> Startup dorvy few", "> Query \"SET DATESTYLE TO 'ISO'\"",
                                "> Query \"SET SEARCH_PATH TO public\"", "> Query \"BEGIN\""}) +
                             parse + described +
                             lines({"> Close P P1", "> Bind P1 S1 [] 1", "> Describe P P1",
                                    "> Execute P1 128", "> Sync"}) +
                             closed + lines({"> Query \"ROLLBACK\""})));
}

void tst_DorvyDriverPasses::passesShareOneResult()
{
    CountingDriver counting(QSharedPointer<Dorvy3Transacted>::create());
    QVERIFY_SQL(counting, server.open(counting, server.few()));
    QCOMPARE(sorted(counting.tables(QSql::TableType(QSql::Tables | QSql::Views))),
             lines({"acc.u", "acc.w", "t", "v"}));
    QCOMPARE(counting.results, 1);
    QVERIFY(!counting.tables(QSql::AllTables).isEmpty());
    QCOMPARE(counting.results, 2);
}

void tst_DorvyDriverPasses::passesShareTheBorrowedConnection()
{
    QVERIFY_SQL(*server.driver, server.openDriver(server.few()));
    tables(QSql::AllTables);
    QCOMPARE(server.proxy->connectionCount(), server.own + 1);
    QCOMPARE(server.linesWith({"> Query"}, server.own + 1),
             numbered(server.own + 1, {"> Query \"SET DATESTYLE TO 'ISO'\"",
                                       "> Query \"SET SEARCH_PATH TO public\"", "> Query \"BEGIN\"",
                                       "> Query \"ROLLBACK\""}));
    // The next walk takes the same connection from the pool.
    const QList<ConnectionPtr> spares = server.spares();
    tables(QSql::AllTables);
    QCOMPARE(server.proxy->connectionCount(), server.own + 1);
    QCOMPARE(server.spares(), spares);
}

void tst_DorvyDriverPasses::nothingIsLeftOnTheServer()
{
    QVERIFY_SQL(*server.driver, server.openDriver(server.few()));
    tables(QSql::AllTables);
    QCOMPARE(server.spares().size(), 1);
    VERIFY_NOTHING_LEFT(server);
}

void tst_DorvyDriverPasses::halfReadQueryGoesOn()
{
    QVERIFY_SQL(*server.driver, server.openDriver(server.few()));
    QSqlQuery query(server.driver->createResult());
    QVERIFY_SQL(query, query.exec(QStringLiteral("SELECT generate_series(1, 300)")));
    QVERIFY(query.next());
    QCOMPARE(sorted(tables(QSql::Tables | QSql::Views)), lines({"acc.u", "acc.w", "t", "v"}));
    QCOMPARE(Dorvy3TestAccess::boundCount(server.driver->half().database), 1);
    QCOMPARE(count(server.borrowedConnection(), "pg_prepared_statements"), QByteArray("1"));
    QCOMPARE(count(server.borrowedConnection(), "pg_cursors"), QByteArray("1"));
    int rows = 1;
    while (query.next()) {
        ++rows;
        QCOMPARE(query.value(0).toInt(), rows);
    }
    QCOMPARE(rows, 300);
}

void tst_DorvyDriverPasses::openTransactionGoesOn()
{
    QVERIFY_SQL(*server.driver, server.openDriver(server.few()));
    QVERIFY_SQL(*server.driver, server.driver->beginTransaction());
    server.proxy->clear();
    tables(QSql::Tables);
    const QStringList commands =
        server.linesWith({"> Query \"SAVEPOINT", "> Query \"RELEASE", "Parse S"})
            .replaceInStrings(QRegularExpression(QStringLiteral(" dstmt[0-9a-f]+\"")),
                              QStringLiteral(" S1\""));
    QCOMPARE(commands,
             QStringList({QStringLiteral("%1> Query \"SAVEPOINT S1\"").arg(server.own),
                          QStringLiteral("%1> Parse S1 \"").arg(server.own) + tablesText() +
                              QStringLiteral("\" 0"),
                          QStringLiteral("%1> Query \"RELEASE SAVEPOINT S1\"").arg(server.own),
                          QStringLiteral("%1> Parse S1 \"").arg(server.own + 1) + tablesText() +
                              QStringLiteral("\" 0")}));
    QVERIFY_SQL(*server.driver, server.driver->commitTransaction()); // which a failed one refuses
}

void tst_DorvyDriverPasses::failedTransactionListsNothing()
{
    QVERIFY_SQL(*server.driver, server.openDriver(server.few()));
    QVERIFY_SQL(*server.driver, server.driver->beginTransaction());
    QVERIFY(!server.execute(QStringLiteral("nonsense")));
    QCOMPARE(tables(QSql::AllTables), QStringList());
    QVERIFY_SQL(*server.driver, server.driver->rollbackTransaction());
    QCOMPARE(sorted(tables(QSql::Tables)), lines({"acc.u", "t"}));
}

void tst_DorvyDriverPasses::failedTransactionOfTheReaderListsNothing()
{
    QVERIFY_SQL(*server.driver, server.openDriver(server.few()));
    {
        QSqlQuery failed(server.driver->createResult());
        QVERIFY_SQL(failed, failed.prepare(QStringLiteral("SELECT 1 / ?::int")));
        failed.addBindValue(0);
        QVERIFY(!failed.exec());
        QCOMPARE(status(server.borrowedConnection()), PQTRANS_INERROR);
        QCOMPARE(tables(QSql::AllTables), QStringList());
    }
    QCOMPARE(sorted(tables(QSql::Tables)), lines({"acc.u", "t"}));
}

void tst_DorvyDriverPasses::failedPassesListNothing()
{
    const QString database = QStringLiteral("nonamespaces");
    server.createDatabase(database, {"CREATE ROLE limited LOGIN", "CREATE TABLE t ()",
                                     "CREATE VIEW v AS SELECT 1 AS a",
                                     "REVOKE SELECT ON pg_namespace FROM PUBLIC"});
    QVERIFY_SQL(*server.driver, server.openDriver(database, QStringLiteral("limited")));
    server.driver->setLastError(someError());
    QCOMPARE(tables(QSql::Tables), QStringList());
    QCOMPARE(tables(QSql::Views), QStringList());
    QCOMPARE(sorted(tables(QSql::AllTables)), systemTables(server.cluster, database));
    QCOMPARE(server.driver->lastError(), someError());
}

void tst_DorvyDriverPasses::everyPassIsTriedThoughAllFail()
{
    const QString database = QStringLiteral("noclasses");
    server.createDatabase(database,
                          {"CREATE ROLE refused LOGIN", "REVOKE SELECT ON pg_class FROM PUBLIC"});
    QVERIFY_SQL(*server.driver, server.openDriver(database, QStringLiteral("refused")));
    QCOMPARE(tables(QSql::AllTables), QStringList());
    QCOMPARE(server.parsed(server.own), QStringList({systemText(), tablesText(), viewsText()}));
}

void tst_DorvyDriverPasses::laterPassListsAfterAFailedOne()
{
    QVERIFY_SQL(*server.driver, server.openDriver(QStringLiteral("shadowed")));
    QVERIFY(server.execute(QStringLiteral("SET search_path TO nowhere")));
    QCOMPARE(tables(QSql::SystemTables), QStringList());
    // The reader's transaction has failed with the first pass, so that the second fails too; that
    // gives the connection back, and the third starts afresh.
    QCOMPARE(tables(QSql::SystemTables | QSql::Tables), QStringList());
    QCOMPARE(tables(QSql::SystemTables | QSql::Tables | QSql::Views), lines({"w"}));
}

void tst_DorvyDriverPasses::noSecondConnectionListsNothing()
{
    server.cluster.run(QStringLiteral("CREATE ROLE lonely LOGIN CONNECTION LIMIT 1"));
    QVERIFY_SQL(*server.driver, server.openDriver(server.few(), QStringLiteral("lonely")));
    QCOMPARE(tables(QSql::AllTables), QStringList());
    QCOMPARE(server.linesWith({"Startup"}).size(), 3); // one attempt in each pass
    QVERIFY(server.driver->isOpen());
}

void tst_DorvyDriverPasses::lostConnectionListsNothing()
{
    QVERIFY_SQL(*server.driver, server.openDriver(server.few()));
    server.proxy->cut();
    QVERIFY(server.driver->isOpen()); // which nobody has noticed yet
    server.driver->setLastError(someError());
    QCOMPARE(tables(QSql::AllTables), QStringList());
    QVERIFY(!server.driver->isOpen());
    QCOMPARE(server.driver->lastError(), someError());
}

void tst_DorvyDriverPasses::closedDriverSendsNothing()
{
    MessageCounter messages;
    QVERIFY_SQL(*server.driver, server.openDriver(server.few()));
    OpenDriver fresh(server.pool);
    QCOMPARE(fresh.tables(QSql::AllTables), QStringList());
    QCOMPARE(tables(QSql::Tables).size(), 2); // which leaves a spare connection
    server.driver->close();
    const int count = server.proxy->connectionCount();
    QTRY_COMPARE(server.linesWith({"Terminate"}).size(), 2);
    server.proxy->clear();
    server.driver->setLastError(someError());
    QCOMPARE(tables(QSql::AllTables), QStringList());
    QCOMPARE(server.proxy->conversation(), QStringList());
    QCOMPARE(server.proxy->connectionCount(), count);
    QCOMPARE(server.driver->lastError(), someError());
    QCOMPARE(messages.count(), 0); // a query on it would warn
}

void tst_DorvyDriverPasses::driverIsAskedWhetherItIsOpen()
{
    MessageCounter messages;
    ShutDriver shut(QSharedPointer<Dorvy3Transacted>::create());
    QVERIFY_SQL(shut, server.open(shut, server.few()));
    server.proxy->clear();
    QCOMPARE(shut.tables(QSql::AllTables), QStringList());
    QCOMPARE(server.proxy->conversation(), QStringList());
    QCOMPARE(messages.count(), 0);
}

QTEST_GUILESS_MAIN(tst_DorvyDriverPasses)
#include "tst_dorvydriver_passes.moc"
