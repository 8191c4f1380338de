// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// DorvyDriver::record: the single read before the first row, and what stands before it. Servers up
// to 11 have the column pg_attrdef.adsrc, which the query asks for; later ones refuse the query.
#include "tests/driver/catalogserver.h"
#include "tests/support/childprocess.h"
#include "tests/support/dorvydatabase.h"
#include "tests/support/someerror.h"
#include "tests/support/sqlmacros.h"
#include "tests/support/textlines.h"

#include <QtCore/QRegularExpression>
#include <QtSql/QSqlDatabase>
#include <QtSql/QSqlRecord>
#include <QtTest/QtTest>

#include <functional>

namespace {

constexpr int LastMajorWithAdsrc = 11;

QString plain()
{
    return QStringLiteral("plain");
}

QString withAdsrc()
{
    return QStringLiteral("with_adsrc");
}

// The query's text; an empty schema stands for a query without one.
QString recordText(const QString &schema, const QString &table)
{
    const QString condition =
        schema.isEmpty() ? QStringLiteral("pg_table_is_visible(pg_class.oid)")
                         : QStringLiteral("pg_class.relnamespace = (SELECT oid FROM pg_namespace "
                                          "WHERE pg_namespace.nspname = '") +
                               schema + QStringLiteral("')");
    return QStringLiteral("SELECT pg_attribute.attname, pg_attribute.atttypid::int, "
                          "pg_attribute.attnotnull, pg_attribute.attlen, pg_attribute.atttypmod, "
                          "pg_attrdef.adsrc FROM pg_class, pg_attribute LEFT join pg_attrdef ON "
                          "(pg_attrdef.adrelid = pg_attribute.attrelid and pg_attrdef.adnum = "
                          "pg_attribute.attnum) WHERE ") +
           condition + QStringLiteral(" AND pg_class.relname = '") + table +
           QStringLiteral("' AND pg_attribute.attnum > 0 AND pg_attribute.attrelid = pg_class.oid "
                          "AND pg_attribute.attisdropped = false ORDER BY pg_attribute.attnum ");
}

} // namespace

class tst_DorvyDriverRecord : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();
    void cleanupTestCase();

    void textsToTheLetter();
    void textOnTheWire_data() { namesToLookUp(); }
    void textOnTheWire();

    void recordOfAnyTable_data() { names(); }
    void recordOfAnyTable();
    void readBeforeTheFirstRowEndsTheProcess_data() { names(); }
    void readBeforeTheFirstRowEndsTheProcess();
    void readInATransactionEndsTheProcess();
    void roadOfAnAcceptedQuery();
    void rejectedTextGivesAnEmptyRecord_data();
    void rejectedTextGivesAnEmptyRecord();

    void roadOfARefusedQuery();
    void missingColumnIsTheReason();
    void refusedQueryFailsTheTransaction();
    void rejectedTextFailsTheTransaction();
    void failedTransactionGivesAnEmptyRecord();
    void nothingIsLeftOnTheServer();
    void lostConnectionGivesAnEmptyRecord();
    void closedDriverSendsNothing();
    void driverIsAskedWhetherItIsOpen();
    void databaseAsksThroughQt();

private:
    static void names();
    bool queryIsRefused() const { return server.cluster.major() > LastMajorWithAdsrc; }
    QStringList textsOf(const QString &name);
    ChildOutcome inChild(const QString &database,
                         const std::function<void(DorvyDriver &)> &code) const;
    void failTransaction(const QString &database, const QString &name);

    CatalogServer server;
};

void tst_DorvyDriverRecord::initTestCase()
{
    QVERIFY2(server.start(), qPrintable(server.cluster.why()));
    for (const QString &database : {plain(), withAdsrc()}) {
        server.createDatabase(
            database, {"CREATE SCHEMA acc",
                       "CREATE TABLE t (id int PRIMARY KEY, name varchar(20) DEFAULT 'abc')",
                       "CREATE TABLE one (a varchar(20) NOT NULL)", "CREATE TABLE empty ()",
                       "CREATE TABLE acc.u (a numeric(12, 2))", "CREATE VIEW v AS SELECT 1 AS a"});
    }
    // Here the catalog is as servers up to 11 have it, on later ones too: the sessions find the
    // schema "shadow" before the catalog, and hand on the search path for which it says so.
    for (const char *command :
         {"CREATE SCHEMA shadow",
          "CREATE VIEW shadow.pg_attrdef AS SELECT oid, adrelid, adnum, adbin, "
          "pg_get_expr(adbin, adrelid) AS adsrc FROM pg_catalog.pg_attrdef",
          "CREATE FUNCTION shadow.current_schema() RETURNS text LANGUAGE sql AS "
          "$$ SELECT 'shadow, pg_catalog, public'::text $$",
          "ALTER DATABASE with_adsrc SET search_path = shadow, pg_catalog, public"}) {
        server.cluster.run(QString::fromLatin1(command), withAdsrc());
    }
}

void tst_DorvyDriverRecord::cleanup()
{
    server.closeDriver();
}

void tst_DorvyDriverRecord::cleanupTestCase()
{
    server.proxy.reset();
}

// What code does with a driver that it opens through the proxy; it may end its process.
ChildOutcome tst_DorvyDriverRecord::inChild(const QString &database,
                                            const std::function<void(DorvyDriver &)> &code) const
{
    return runInChild([this, &database, &code]() {
        DorvyDriver driver(QSharedPointer<Dorvy3Transacted>::create());
        if (!server.open(driver, database)) {
            qFatal("not open");
        }
        code(driver);
    });
}

// The texts that record() prepares on the driver's own connection, whatever comes of it.
QStringList tst_DorvyDriverRecord::textsOf(const QString &name)
{
    server.own = server.proxy->connectionCount() + 1;
    inChild(plain(), [&name](DorvyDriver &driver) { driver.record(name); });
    return server.parsed(server.own);
}

void tst_DorvyDriverRecord::names()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("two columns") << QStringLiteral("t");
    QTest::newRow("one column") << QStringLiteral("one");
    QTest::newRow("no columns") << QStringLiteral("empty");
    QTest::newRow("view") << QStringLiteral("v");
    QTest::newRow("upper case") << QStringLiteral("T");
    QTest::newRow("quoted") << QStringLiteral("\"t\"");
    QTest::newRow("schema") << QStringLiteral("public.t");
    QTest::newRow("other schema") << QStringLiteral("acc.u");
    QTest::newRow("both quoted") << QStringLiteral("\"Acc\".\"U\"");
    QTest::newRow("table of the catalog") << QStringLiteral("pg_class");
    QTest::newRow("unknown table") << QStringLiteral("unknown");
    QTest::newRow("unknown schema") << QStringLiteral("unknown.t");
    QTest::newRow("outside the search path") << QStringLiteral("u");
    QTest::newRow("empty") << QStringLiteral("");
    QTest::newRow("null") << QString();
    QTest::newRow("full stop alone") << QStringLiteral(".");
    QTest::newRow("doubled apostrophe") << QStringLiteral("o''brien");
}

void tst_DorvyDriverRecord::textsToTheLetter()
{
    QCOMPARE(
        textsOf(QStringLiteral("Orders")),
        QStringList{QStringLiteral(
            "SELECT pg_attribute.attname, pg_attribute.atttypid::int, pg_attribute.attnotnull, "
            "pg_attribute.attlen, pg_attribute.atttypmod, pg_attrdef.adsrc FROM pg_class, "
            "pg_attribute LEFT join pg_attrdef ON (pg_attrdef.adrelid = pg_attribute.attrelid and "
            "pg_attrdef.adnum = pg_attribute.attnum) WHERE pg_table_is_visible(pg_class.oid) AND "
            "pg_class.relname = 'orders' AND pg_attribute.attnum > 0 AND pg_attribute.attrelid = "
            "pg_class.oid AND pg_attribute.attisdropped = false ORDER BY pg_attribute.attnum ")});
    QCOMPARE(
        textsOf(QStringLiteral("\"Acc\".Orders")),
        QStringList{QStringLiteral(
            "SELECT pg_attribute.attname, pg_attribute.atttypid::int, pg_attribute.attnotnull, "
            "pg_attribute.attlen, pg_attribute.atttypmod, pg_attrdef.adsrc FROM pg_class, "
            "pg_attribute LEFT join pg_attrdef ON (pg_attrdef.adrelid = pg_attribute.attrelid and "
            "pg_attrdef.adnum = pg_attribute.attnum) WHERE pg_class.relnamespace = (SELECT oid "
            "FROM pg_namespace WHERE pg_namespace.nspname = 'acc') AND pg_class.relname = "
            "'orders' AND pg_attribute.attnum > 0 AND pg_attribute.attrelid = pg_class.oid AND "
            "pg_attribute.attisdropped = false ORDER BY pg_attribute.attnum ")});
}

void tst_DorvyDriverRecord::textOnTheWire()
{
    QFETCH(QString, name);
    QFETCH(QString, schema);
    QFETCH(QString, table);
    QCOMPARE(textsOf(name), QStringList{recordText(schema, table)});
}

void tst_DorvyDriverRecord::recordOfAnyTable()
{
    QFETCH(QString, name);
    if (!queryIsRefused()) {
        VERIFY_FATAL(inChild(plain(), [&name](DorvyDriver &driver) { driver.record(name); }),
                     "DORVY: hlpDecodePSQLType - unknown ptype (0)");
        return;
    }
    QVERIFY_SQL(*server.driver, server.openDriver(plain()));
    server.driver->setLastError(someError());
    QVERIFY(server.driver->record(name).isEmpty());
    QCOMPARE(server.driver->lastError(), someError());
    QVERIFY(server.driver->isOpen());
    QVERIFY(server.execute(QStringLiteral("SELECT 1")));
}

void tst_DorvyDriverRecord::readBeforeTheFirstRowEndsTheProcess()
{
    QFETCH(QString, name);
    VERIFY_FATAL(inChild(withAdsrc(), [&name](DorvyDriver &driver) { driver.record(name); }),
                 "DORVY: hlpDecodePSQLType - unknown ptype (0)");
}

void tst_DorvyDriverRecord::readInATransactionEndsTheProcess()
{
    VERIFY_FATAL(inChild(withAdsrc(),
                         [](DorvyDriver &driver) {
                             driver.beginTransaction();
                             driver.record(QStringLiteral("t"));
                         }),
                 "DORVY: hlpDecodePSQLType - unknown ptype (0)");
}

void tst_DorvyDriverRecord::roadOfAnAcceptedQuery()
{
    const int own = server.proxy->connectionCount() + 1;
    const int borrowed = own + 1;
    server.proxy->clear();
    VERIFY_FATAL(
        inChild(withAdsrc(), [](DorvyDriver &driver) { driver.record(QStringLiteral("t")); }),
        "DORVY: hlpDecodePSQLType - unknown ptype (0)");
    const QString text = recordText(QString(), QStringLiteral("t"));
    QCOMPARE(server.parsed(own), QStringList{text});
    QCOMPARE(server.parsed(borrowed), QStringList{text});
    QCOMPARE(server.linesWith({"> Execute", "DataRow"}, borrowed),
             numbered(borrowed, {"> Execute P1 128", "< DataRow x2"}));
}

void tst_DorvyDriverRecord::rejectedTextGivesAnEmptyRecord_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("in the table") << QStringLiteral("o'brien");
    QTest::newRow("in the schema") << QStringLiteral("o'brien.t");
    QTest::newRow("at the end") << QStringLiteral("t'");
    QTest::newRow("before a question mark") << QStringLiteral("a'?");
}

void tst_DorvyDriverRecord::rejectedTextGivesAnEmptyRecord()
{
    QFETCH(QString, name); // with an apostrophe, which ends the text's own
    for (const QString &database : {plain(), withAdsrc()}) {
        QVERIFY_SQL(*server.driver, server.openDriver(database));
        server.driver->setLastError(someError());
        QVERIFY(server.driver->record(name).isEmpty());
        QCOMPARE(server.driver->lastError(), someError());
        QCOMPARE(server.parsed().size(), 1);
    }
}

void tst_DorvyDriverRecord::roadOfARefusedQuery()
{
    QVERIFY_SQL(*server.driver, server.openDriver(withAdsrc()));
    QVERIFY(server.driver->record(QStringLiteral("o'brien")).isEmpty());
    // Nothing is borrowed for it.
    QCOMPARE(server.proxy->connectionCount(), server.own);
    QVERIFY(server.proxy->waitForLine(QStringLiteral("%1> Close S S1").arg(server.own)));
    QCOMPARE(
        server.linesWith({"> Parse", "> Describe", "> Close", "> Query", "Error"}),
        QStringList({QStringLiteral("%1> Parse S1 \"").arg(server.own) +
                         recordText(QString(), QStringLiteral("o'brien")) + QStringLiteral("\" 0"),
                     QStringLiteral("%1< ErrorResponse 42601").arg(server.own),
                     QStringLiteral("%1> Close S S1").arg(server.own)}));
}

void tst_DorvyDriverRecord::missingColumnIsTheReason()
{
    if (!queryIsRefused()) {
        return; // the column is there
    }
    QVERIFY_SQL(*server.driver, server.openDriver(plain()));
    QVERIFY(server.driver->record(QStringLiteral("t")).isEmpty());
    QCOMPARE(server.proxy->connectionCount(), server.own);
    QCOMPARE(server.linesWith({"Error"}), numbered(server.own, {"< ErrorResponse 42703"}));
}

void tst_DorvyDriverRecord::refusedQueryFailsTheTransaction()
{
    if (!queryIsRefused()) {
        VERIFY_FATAL(inChild(plain(),
                             [](DorvyDriver &driver) {
                                 driver.beginTransaction();
                                 driver.record(QStringLiteral("t"));
                             }),
                     "DORVY: hlpDecodePSQLType - unknown ptype (0)");
        return;
    }
    failTransaction(plain(), QStringLiteral("t"));
}

void tst_DorvyDriverRecord::rejectedTextFailsTheTransaction()
{
    failTransaction(withAdsrc(), QStringLiteral("o'brien"));
}

// A query that the server refuses to prepare leaves the application's transaction failed.
void tst_DorvyDriverRecord::failTransaction(const QString &database, const QString &name)
{
    QVERIFY_SQL(*server.driver, server.openDriver(database));
    QVERIFY_SQL(*server.driver, server.driver->beginTransaction());
    QVERIFY(server.execute(QStringLiteral("INSERT INTO one VALUES ('lost')")));
    server.proxy->clear();
    QVERIFY(server.driver->record(name).isEmpty());
    QStringList said = server.linesWith({"> Query", "> Parse"});
    said.replaceInStrings(QRegularExpression(QStringLiteral(" dstmt[0-9a-f]+\"")),
                          QStringLiteral(" S1\""));
    // The record numbers statements by address: S1 was the INSERT, if that lay elsewhere.
    said.replaceInStrings(QRegularExpression(QStringLiteral("Parse S[0-9]+ ")),
                          QStringLiteral("Parse S1 "));
    QCOMPARE(said,
             QStringList({QStringLiteral("%1> Query \"SAVEPOINT S1\"").arg(server.own),
                          QStringLiteral("%1> Parse S1 \"").arg(server.own) +
                              recordText(QString(), name) + QStringLiteral("\" 0"),
                          QStringLiteral("%1> Query \"ROLLBACK SAVEPOINT S1\"").arg(server.own)}));

    QSqlQuery query(server.driver->createResult());
    QVERIFY(!query.exec(QStringLiteral("INSERT INTO one VALUES ('refused')")));
    COMPARE_ERROR(query.lastError(), StatementError,
                  QStringLiteral("ERROR:  current transaction is aborted, commands ignored until "
                                 "end of transaction block\n"),
                  QStringLiteral("Ошибка при подготовке запроса к СУБД"), QString());
    QVERIFY(!server.driver->commitTransaction());
    COMPARE_ERROR(server.driver->lastError(), TransactionError,
                  QStringLiteral("Невозможно завершить транзакцию"),
                  QStringLiteral("Текущее состояние соединения запрещает завершение транзакции"),
                  QString());
    QVERIFY_SQL(*server.driver, server.driver->rollbackTransaction());
    QVERIFY_SQL(query, query.exec(QStringLiteral("INSERT INTO one VALUES ('kept')")));
    QCOMPARE(server.cluster.run(QStringLiteral("DELETE FROM one RETURNING a"), database),
             lines({"kept"}));
}

void tst_DorvyDriverRecord::failedTransactionGivesAnEmptyRecord()
{
    QVERIFY_SQL(*server.driver, server.openDriver(withAdsrc()));
    QVERIFY_SQL(*server.driver, server.driver->beginTransaction());
    QVERIFY(!server.execute(QStringLiteral("nonsense")));
    QVERIFY(server.driver->record(QStringLiteral("t")).isEmpty());
    QVERIFY_SQL(*server.driver, server.driver->rollbackTransaction());
}

void tst_DorvyDriverRecord::nothingIsLeftOnTheServer()
{
    QVERIFY_SQL(*server.driver, server.openDriver(withAdsrc()));
    QVERIFY(server.driver->record(QStringLiteral("o'brien")).isEmpty());
    QVERIFY(server.spares().isEmpty());
    VERIFY_NOTHING_LEFT(server);
}

void tst_DorvyDriverRecord::lostConnectionGivesAnEmptyRecord()
{
    QVERIFY_SQL(*server.driver, server.openDriver(withAdsrc()));
    server.proxy->cut();
    server.driver->setLastError(someError());
    QVERIFY(server.driver->record(QStringLiteral("t")).isEmpty());
    QVERIFY(!server.driver->isOpen());
    QCOMPARE(server.driver->lastError(), someError());
}

void tst_DorvyDriverRecord::closedDriverSendsNothing()
{
    MessageCounter messages;
    const DorvyDriver fresh(QSharedPointer<Dorvy3Transacted>::create());
    QVERIFY(fresh.record(QStringLiteral("t")).isEmpty());
    QVERIFY_SQL(*server.driver, server.openDriver(withAdsrc()));
    server.driver->close();
    QTRY_COMPARE(server.linesWith({"Terminate"}).size(), 1);
    server.proxy->clear();
    server.driver->setLastError(someError());
    QVERIFY(server.driver->record(QStringLiteral("t")).isEmpty());
    QCOMPARE(server.proxy->conversation(), QStringList());
    QCOMPARE(server.proxy->connectionCount(), server.own);
    QCOMPARE(server.driver->lastError(), someError());
    QCOMPARE(messages.count(), 0); // a query on it would warn
}

void tst_DorvyDriverRecord::driverIsAskedWhetherItIsOpen()
{
    MessageCounter messages;
    ShutDriver shut(QSharedPointer<Dorvy3Transacted>::create());
    QVERIFY_SQL(shut, server.open(shut, plain()));
    server.proxy->clear();
    // A text that no server accepts, so that the process outlives a query after all.
    QVERIFY(shut.record(QStringLiteral("o'brien")).isEmpty());
    QCOMPARE(server.proxy->conversation(), QStringList());
    QCOMPARE(messages.count(), 0);
}

void tst_DorvyDriverRecord::databaseAsksThroughQt()
{
    const auto ask = [this](const QString &database, const QString &table, int &fields) {
        const QString name = QStringLiteral("throughqt");
        {
            QSqlDatabase db = addDorvyDatabase(name, server.cluster, database);
            fields = db.open() ? db.record(table).count() : -1;
        }
        QSqlDatabase::removeDatabase(name);
    };
    int fields = -1;
    ask(withAdsrc(), QStringLiteral("o'brien"), fields);
    QCOMPARE(fields, 0);
    VERIFY_FATAL(runInChild([&ask, &fields]() { ask(withAdsrc(), QStringLiteral("t"), fields); }),
                 "DORVY: hlpDecodePSQLType - unknown ptype (0)");
}

QTEST_GUILESS_MAIN(tst_DorvyDriverRecord)
#include "tst_dorvydriver_record.moc"
