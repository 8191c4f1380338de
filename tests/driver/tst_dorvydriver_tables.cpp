// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// DorvyDriver::tables: which relations it lists, and under which names.
#include "tests/driver/catalogserver.h"
#include "tests/support/dorvydatabase.h"
#include "tests/support/someerror.h"
#include "tests/support/sqlmacros.h"
#include "tests/support/textlines.h"

#include <QtSql/QSqlDatabase>
#include <QtTest/QtTest>

namespace {

QString kinds()
{
    return QStringLiteral("kinds");
}

} // namespace

class tst_DorvyDriverTables : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();
    void cleanupTestCase();

    void relationIsListedByItsKind_data();
    void relationIsListedByItsKind();
    void nothingOfTheInformationSchemaIsListed();
    void systemTablesAreListedOncePerSchema();
    void temporaryTableCarriesItsSchema();
    void namesComeInTheServersEncoding();
    void uncommittedTableIsNotListed();
    void lastErrorStays();
    void databaseListsThroughQt();

private:
    QStringList tables(int type) const
    {
        return server.driver->tables(static_cast<QSql::TableType>(type));
    }
    void createKinds();

    CatalogServer server;
};

void tst_DorvyDriverTables::initTestCase()
{
    QVERIFY2(server.start(), qPrintable(server.cluster.why()));
    server.createFew();
    createKinds();
}

void tst_DorvyDriverTables::cleanup()
{
    server.closeDriver();
}

void tst_DorvyDriverTables::cleanupTestCase()
{
    server.proxy.reset();
}

void tst_DorvyDriverTables::createKinds()
{
    server.createDatabase(kinds(), {"CREATE SCHEMA acc",
                                    "CREATE SCHEMA \"Public\"",
                                    "CREATE SCHEMA \"PUBLIC\"",
                                    "CREATE SCHEMA \"public \"",
                                    "CREATE SCHEMA \"a.b\"",
                                    "CREATE SCHEMA \"q\"\"s\"",
                                    "CREATE SCHEMA \"Information_Schema\"",
                                    "CREATE SCHEMA \"Склад\"",
                                    "CREATE TABLE plain (a int PRIMARY KEY)",
                                    "CREATE UNLOGGED TABLE unlogged (a int)",
                                    "CREATE TABLE \"Mixed Case\" ()",
                                    "CREATE TABLE \"with.dot\" ()",
                                    "CREATE TABLE \"with\"\"quote\" ()",
                                    "CREATE TABLE \"with'apostrophe\" ()",
                                    "CREATE TABLE \"Таблица\" ()",
                                    "CREATE TABLE \"%1\" ()",
                                    "CREATE TABLE \" \" ()",
                                    "CREATE TABLE \" blanks \" ()",
                                    "CREATE TABLE acc.plain ()",
                                    "CREATE TABLE acc.\"Other Case\" ()",
                                    "CREATE TABLE \"Public\".capital ()",
                                    "CREATE TABLE \"PUBLIC\".capitals ()",
                                    "CREATE TABLE \"public \".blank ()",
                                    "CREATE TABLE \"a.b\".c ()",
                                    "CREATE TABLE \"q\"\"s\".quoted ()",
                                    "CREATE TABLE \"Information_Schema\".other ()",
                                    "CREATE TABLE \"Склад\".\"Товар\" ()",

                                    "CREATE TABLE pg_own ()",
                                    "CREATE TABLE acc.pg_inner ()",
                                    "CREATE TABLE pgbench ()",
                                    "CREATE TABLE acc.pgpool ()",
                                    "CREATE TABLE \" pg blanks \" ()",
                                    "CREATE TABLE \"pg blanks \" ()",
                                    "CREATE TABLE pg ()",
                                    "CREATE TABLE \"Pg_upper\" ()",
                                    "CREATE TABLE \"PG_UPPER\" ()",
                                    "CREATE TABLE my_pg_x ()",
                                    "CREATE TABLE \"Inv\" ()",
                                    "CREATE TABLE \"Inventory\" ()",
                                    "CREATE TABLE acc.\"Invoice\" ()",
                                    "CREATE TABLE inventory ()",
                                    "CREATE TABLE \"INV\" ()",
                                    "CREATE TABLE \"xInv\" ()",

                                    "CREATE VIEW seen AS SELECT 1 AS a",
                                    "CREATE VIEW acc.\"Seen\" AS SELECT 1 AS a",
                                    "CREATE VIEW \"Public\".seen AS SELECT 1 AS a",
                                    "CREATE VIEW pg_seen AS SELECT 1 AS a",
                                    "CREATE VIEW pgseen AS SELECT 1 AS a",
                                    "CREATE VIEW \"InvSeen\" AS SELECT 1 AS a",
                                    "CREATE RECURSIVE VIEW counted (n) AS SELECT 1",

                                    "CREATE INDEX indexed ON plain (a)",
                                    "CREATE SEQUENCE counter",
                                    "CREATE TYPE composed AS (a int)",
                                    "CREATE MATERIALIZED VIEW stored AS SELECT 1 AS a",
                                    "CREATE FOREIGN DATA WRAPPER nowhere",
                                    "CREATE SERVER nowhere FOREIGN DATA WRAPPER nowhere",
                                    "CREATE FOREIGN TABLE distant (a int) SERVER nowhere",
                                    "CREATE TABLE parted (a int) PARTITION BY LIST (a)",
                                    "CREATE TABLE part PARTITION OF parted FOR VALUES IN (1)"});
}

void tst_DorvyDriverTables::relationIsListedByItsKind_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("where"); // first letters of the lists that have it
    const auto row = [](const char *tag, const char *name, const char *where) {
        QTest::newRow(tag) << QString::fromUtf8(name) << QString::fromLatin1(where);
    };
    row("table", "plain", "T");
    row("unlogged table", "unlogged", "T");
    row("partition", "part", "T");
    row("upper case and blank", "Mixed Case", "T");
    row("full stop", "with.dot", "T");
    row("quote", "with\"quote", "T");
    row("apostrophe", "with'apostrophe", "T");
    row("Russian", "Таблица", "T");
    row("percent", "%1", "T");
    row("blank", " ", "T");
    row("blanks at both ends", " blanks ", "T");

    row("other schema", "acc.plain", "T");
    row("upper case in other schema", "acc.Other Case", "T");
    row("schema Public", "Public.capital", "T");
    row("schema Public, left out", "capital", "");
    row("schema PUBLIC", "PUBLIC.capitals", "T");
    row("schema public and a blank", "public .blank", "T");
    row("schema with full stop", "a.b.c", "T");
    row("schema with quote", "q\"s.quoted", "T");
    row("schema Information_Schema", "Information_Schema.other", "T");
    row("Russian schema", "Склад.Товар", "T");
    row("schema public, named", "public.plain", "");
    row("schema public, quoted", "\"plain\"", "");

    row("pg_ in public", "pg_own", "S");
    row("pg_ in other schema", "pg_inner", "S");
    row("pg_ with its schema", "acc.pg_inner", "");
    row("pg_ of the catalog", "pg_class", "S");
    row("pg_ of the catalog, with schema", "pg_catalog.pg_class", "");
    // The underscore of LIKE stands for any character.
    row("pg and any character", "pgbench", "ST");
    row("pg and any character, other schema", "acc.pgpool", "T");
    row("pg and any character, without schema", "pgpool", "S");
    row("pg and a blank", "pg blanks ", "ST");
    row("pg behind a blank", " pg blanks ", "T");
    row("pg alone", "pg", "T");
    row("Pg_", "Pg_upper", "T");
    row("PG_", "PG_UPPER", "T");
    row("pg_ inside", "my_pg_x", "T");
    row("Inv alone", "Inv", "");
    row("Inv first", "Inventory", "");
    row("Inv first, other schema", "acc.Invoice", "");
    row("Inv first, without schema", "Invoice", "");
    row("inv", "inventory", "T");
    row("INV", "INV", "T");
    row("Inv inside", "xInv", "T");

    row("view", "seen", "V");
    row("view in other schema", "acc.Seen", "V");
    row("view in schema Public", "Public.seen", "V");
    row("recursive view", "counted", "V");
    row("view pg_", "pg_seen", "");
    row("view of the catalog", "pg_tables", "");
    row("view pg and any character", "pgseen", "V");
    row("view Inv", "InvSeen", "");

    row("index", "indexed", "");
    row("index of a key", "plain_pkey", "");
    row("sequence", "counter", "");
    row("composite type", "composed", "");
    row("materialized view", "stored", "");
    row("foreign table", "distant", "");
    row("partitioned table", "parted", "");
    row("index of the catalog", "pg_class_oid_index", "");
}

void tst_DorvyDriverTables::relationIsListedByItsKind()
{
    QFETCH(QString, name);
    QFETCH(QString, where);
    QVERIFY_SQL(*server.driver, server.openDriver(kinds()));
    QCOMPARE(tables(QSql::SystemTables).count(name), where.count(QLatin1Char('S')));
    QCOMPARE(tables(QSql::Tables).count(name), where.count(QLatin1Char('T')));
    QCOMPARE(tables(QSql::Views).count(name), where.count(QLatin1Char('V')));
}

void tst_DorvyDriverTables::nothingOfTheInformationSchemaIsListed()
{
    QVERIFY_SQL(*server.driver, server.openDriver(server.few()));
    const QStringList all = tables(QSql::AllTables);
    QVERIFY(all.filter(QStringLiteral("information_schema")).isEmpty());
    QVERIFY(!all.contains(QStringLiteral("sql_features"))); // a table of it
    QVERIFY(!all.contains(QStringLiteral("columns")));      // a view of it
}

void tst_DorvyDriverTables::systemTablesAreListedOncePerSchema()
{
    server.createDatabase(QStringLiteral("twice"),
                          {"CREATE SCHEMA acc", "CREATE TABLE pg_same ()",
                           "CREATE TABLE acc.pg_same ()", "CREATE TABLE acc.pg_class ()"});
    QVERIFY_SQL(*server.driver, server.openDriver(QStringLiteral("twice")));
    QCOMPARE(tables(QSql::SystemTables).count(QStringLiteral("pg_same")), 2);
    QCOMPARE(tables(QSql::SystemTables).count(QStringLiteral("pg_class")), 2);
    QCOMPARE(sorted(tables(QSql::SystemTables)),
             systemTables(server.cluster, QStringLiteral("twice")));
}

void tst_DorvyDriverTables::temporaryTableCarriesItsSchema()
{
    QVERIFY_SQL(*server.driver, server.openDriver(server.few()));
    QVERIFY(server.execute(QStringLiteral("CREATE TEMPORARY TABLE passing (a int)")));
    const QString schema =
        QString::fromUtf8(ask(server.ownConnection(),
                              "SELECT nspname FROM pg_namespace WHERE oid = pg_my_temp_schema()"));
    QVERIFY(schema.startsWith(QStringLiteral("pg_temp_")));
    QCOMPARE(sorted(tables(QSql::Tables)),
             QStringList({QStringLiteral("acc.u"), schema + QStringLiteral(".passing"),
                          QStringLiteral("t")}));
}

void tst_DorvyDriverTables::namesComeInTheServersEncoding()
{
    const QString database = QStringLiteral("cyrillic");
    server.cluster.createDatabase(database, QStringLiteral("WIN1251"));
    QVERIFY_SQL(*server.driver, server.openDriver(database));
    QVERIFY(server.execute(QStringLiteral("CREATE SCHEMA \"Склад\"")));
    QVERIFY(server.execute(QStringLiteral("CREATE TABLE \"Склад\".\"Товар\" (a int)")));
    QVERIFY(server.execute(QStringLiteral("CREATE TABLE \"Ёж\" (a int)")));
    QVERIFY(server.execute(QStringLiteral("CREATE VIEW \"Вид\" AS SELECT 1 AS a")));
    QCOMPARE(tables(QSql::Views), lines({"Вид"}));
    QCOMPARE(sorted(tables(QSql::Tables)), lines({"Ёж", "Склад.Товар"}));
    QVERIFY(server.execute(QStringLiteral("CREATE TABLE \"pg_Ёж\" (a int)")));
    QVERIFY(tables(QSql::SystemTables).contains(QStringLiteral("pg_Ёж")));
}

void tst_DorvyDriverTables::uncommittedTableIsNotListed()
{
    QVERIFY_SQL(*server.driver, server.openDriver(server.few()));
    QVERIFY_SQL(*server.driver, server.driver->beginTransaction());
    QVERIFY(server.execute(QStringLiteral("CREATE TABLE fresh (a int)")));
    QVERIFY(server.execute(QStringLiteral("CREATE VIEW fresher AS SELECT 1 AS a")));
    QVERIFY(server.execute(QStringLiteral("CREATE TABLE pg_freshest (a int)")));
    QCOMPARE(sorted(tables(QSql::Tables | QSql::Views)), lines({"acc.u", "acc.w", "t", "v"}));
    QVERIFY(!tables(QSql::SystemTables).contains(QStringLiteral("pg_freshest")));
    QVERIFY_SQL(*server.driver, server.driver->commitTransaction());
    QCOMPARE(sorted(tables(QSql::Tables | QSql::Views)),
             lines({"acc.u", "acc.w", "fresh", "fresher", "t", "v"}));
    QVERIFY(tables(QSql::SystemTables).contains(QStringLiteral("pg_freshest")));
    QVERIFY(server.execute(QStringLiteral("DROP TABLE fresh, pg_freshest")));
    QVERIFY(server.execute(QStringLiteral("DROP VIEW fresher")));
}

void tst_DorvyDriverTables::lastErrorStays()
{
    QVERIFY_SQL(*server.driver, server.openDriver(server.few()));
    server.driver->setLastError(someError());
    QCOMPARE(tables(QSql::Tables).size(), 2);
    QCOMPARE(server.driver->lastError(), someError());
}

void tst_DorvyDriverTables::databaseListsThroughQt()
{
    const QString name = QStringLiteral("throughqt");
    {
        QSqlDatabase db = addDorvyDatabase(name, server.cluster, server.few());
        QCOMPARE(db.tables(), QStringList());
        QVERIFY_SQL(db, db.open());
        QCOMPARE(sorted(db.tables()), lines({"acc.u", "t"})); // tables, unless told otherwise
        QCOMPARE(sorted(db.tables(QSql::Views)), lines({"acc.w", "v"}));
        QCOMPARE(sorted(db.tables(QSql::SystemTables)), systemTables(server.cluster, server.few()));
        VERIFY_NO_ERROR(db.lastError());
    }
    QSqlDatabase::removeDatabase(name);
}

QTEST_GUILESS_MAIN(tst_DorvyDriverTables)
#include "tst_dorvydriver_tables.moc"
