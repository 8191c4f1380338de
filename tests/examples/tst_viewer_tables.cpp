// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
// selectOf: any table can be shown, whatever its names and its types.
#include "examples/viewer/connectionsettings.h"
#include "examples/viewer/tablequery.h"
#include "tests/support/pgcluster.h"
#include "tests/support/sqlmacros.h"

#include <QtSql/QSqlQuery>
#include <QtSql/QSqlRecord>
#include <QtTest/QtTest>

class tst_ViewerTables : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();

    void columnOfType_data();
    void columnOfType();
    void everyTypeOfTheServer();
    void nameIsQuoted_data();
    void nameIsQuoted();
    void systemTables();
    void droppedColumnIsLeftOut();
    void tableWithoutColumns();
    void tablesOfOneNameAreNotMixed();
    void unknownTable();
    void lostConnection();

private:
    QString select(const QString &table) const;

    PgCluster cluster;
    QSqlDatabase database;
};

void tst_ViewerTables::initTestCase()
{
    QVERIFY2(cluster.start(), qPrintable(cluster.why()));
    ConnectionSettings settings;
    settings.host = cluster.socketDir();
    settings.port = cluster.port();
    settings.user = cluster.user();
    database = addDatabase(settings, QStringLiteral("tables"));
    QVERIFY_SQL(database, database.open());
}

void tst_ViewerTables::cleanupTestCase()
{
    database = QSqlDatabase();
    QSqlDatabase::removeDatabase(QStringLiteral("tables"));
}

void tst_ViewerTables::columnOfType_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("value");
    QTest::addColumn<QString>("column");
    const auto row = [](const char *type, const char *value, const char *column) {
        QTest::newRow(type) << QString::fromLatin1(type) << QString::fromUtf8(value)
                            << QString::fromLatin1(column);
    };
    row("int4", "7", "a");
    row("text", "жук", "a");
    row("varchar(9)", "жук", "a");
    row("char(5)", "  ab", "a::text");
    row("uuid", "12345678-1234-5678-9abc-def012345678", "a");
    row("numeric", "12345678901234567890.123456789", "a::text");
    row("date", "infinity", "a::text");
    row("time", "24:00:00", "a::text");
    row("timestamp", "1999-12-31 18:00:00", "a::text");
    row("jsonb", "{\"a\": 1}", "a::text");
    row("inet", "10.0.0.1/24", "a::text");
    row("interval", "1 day", "a::text");
    row("int4[]", "{1,2}", "a::text");
    row("point", "(1,2)", "a::text");
}

void tst_ViewerTables::columnOfType()
{
    QFETCH(QString, type);
    QFETCH(QString, value);
    QFETCH(QString, column);
    cluster.run(QStringLiteral("CREATE TABLE typed (a %1); INSERT INTO typed VALUES ('%2')")
                    .arg(type, value));
    const QString text = select(QStringLiteral("typed"));
    QCOMPARE(text, QStringLiteral("SELECT %1 FROM public.typed").arg(column));
    QSqlQuery query(database);
    QVERIFY_SQL(query, query.exec(text));
    QVERIFY(query.next());
    const QVariant shown = query.value(0);
    QCOMPARE(shown.type() == QVariant::Uuid ? shown.toUuid().toString().mid(1, 36)
                                            : shown.toString(),
             value);
    QCOMPARE(query.record().fieldName(0), QStringLiteral("a"));
    query.finish();
    cluster.run(QStringLiteral("DROP TABLE typed"));
}

// One that was forgotten would end this process.
void tst_ViewerTables::everyTypeOfTheServer()
{
    cluster.run(QStringLiteral(
        "CREATE TYPE mood AS ENUM ('good'); CREATE DOMAIN host AS inet;"
        "CREATE TYPE pair AS (a int, b text); CREATE TYPE span AS RANGE (subtype = float8);"
        "DO $$ BEGIN EXECUTE (SELECT 'CREATE TABLE every (' || string_agg("
        "'c' || oid || ' ' || format_type(oid, NULL), ', ') || ')' FROM pg_type "
        "WHERE typtype <> 'p' AND typisdefined AND typdefault IS NULL AND oid NOT IN (SELECT "
        "reltype FROM pg_class "
        "WHERE relkind <> 'c') AND (typelem = 0 OR typelem NOT IN (SELECT reltype FROM pg_class "
        "WHERE relkind <> 'c')) AND typelem NOT IN (SELECT oid FROM pg_type WHERE typtype = 'p'));"
        "END $$; INSERT INTO every DEFAULT VALUES"));
    QSqlQuery query(database);
    QVERIFY_SQL(query, query.exec(select(QStringLiteral("every"))));
    QVERIFY(query.next());
    QVERIFY(query.record().count() > 100);
    for (int column = 0; column < query.record().count(); ++column) {
        QVERIFY(query.isNull(column));
    }
}

void tst_ViewerTables::nameIsQuoted_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("plain") << QStringLiteral("plain");
    QTest::newRow("mixed case and a space") << QStringLiteral("Mixed Case");
    QTest::newRow("keyword") << QStringLiteral("select");
    QTest::newRow("full stop") << QStringLiteral("a.b");
    QTest::newRow("quote in it") << QStringLiteral("a\"b");
    QTest::newRow("quote before it") << QStringLiteral("\"a");
    QTest::newRow("quote behind it") << QStringLiteral("a\"");
    QTest::newRow("apostrophe") << QStringLiteral("a'b");
    QTest::newRow("question mark") << QStringLiteral("why?");
    QTest::newRow("colon") << QStringLiteral("a:b");
    QTest::newRow("statement behind it") << QStringLiteral("a\"; DROP TABLE b; --");
    QTest::newRow("Cyrillic") << QStringLiteral("жук");
}

// As a schema, a table and a column.
void tst_ViewerTables::nameIsQuoted()
{
    QFETCH(QString, name);
    const QString quoted = QLatin1Char('"') +
                           QString(name).replace(QLatin1Char('"'), QLatin1String("\"\"")) +
                           QLatin1Char('"');
    cluster.run(QStringLiteral("CREATE SCHEMA %1; CREATE TABLE %1.%1 (%1 text); "
                               "INSERT INTO %1.%1 VALUES ('found')")
                    .arg(quoted));
    const QString table = name + QLatin1Char('.') + name;
    QVERIFY(database.tables().contains(table));
    QSqlQuery query(database);
    QVERIFY_SQL(query, query.exec(select(table)));
    QVERIFY(query.next());
    QCOMPARE(query.record().fieldName(0), name);
    QCOMPARE(query.value(0).toString(), QStringLiteral("found"));
    query.finish();
    cluster.run(QStringLiteral("DROP SCHEMA %1 CASCADE").arg(quoted));
}

void tst_ViewerTables::systemTables()
{
    QSqlQuery query(database);
    QVERIFY_SQL(query, query.exec(select(QStringLiteral("pg_catalog.pg_class"))));
    QVERIFY(query.next());
}

void tst_ViewerTables::droppedColumnIsLeftOut()
{
    cluster.run(QStringLiteral("CREATE TABLE shrunk (a int, b int, c int); "
                               "ALTER TABLE shrunk DROP COLUMN b"));
    QCOMPARE(select(QStringLiteral("shrunk")), QStringLiteral("SELECT a, c FROM public.shrunk"));
}

void tst_ViewerTables::tableWithoutColumns()
{
    cluster.run(QStringLiteral("CREATE TABLE bare ()"));
    QSqlQuery query(database);
    QVERIFY_SQL(query, query.exec(select(QStringLiteral("bare"))));
}

// "twin.a" in the schema "public", and "a" in the schema "twin".
void tst_ViewerTables::tablesOfOneNameAreNotMixed()
{
    cluster.run(QStringLiteral("CREATE SCHEMA twin; CREATE TABLE twin.a (first int); "
                               "CREATE TABLE \"twin.a\" (second int)"));
    QCOMPARE(select(QStringLiteral("twin.a")), QStringLiteral("SELECT first FROM twin.a"));
}

void tst_ViewerTables::unknownTable()
{
    QSqlError error;
    QCOMPARE(selectOf(database, QStringLiteral("nowhere"), &error), QString());
    QCOMPARE(error.driverText(), QStringLiteral("There is no table \"nowhere\" any more."));
}

void tst_ViewerTables::lostConnection()
{
    cluster.stop();
    QSqlError error;
    QCOMPARE(selectOf(database, QStringLiteral("plain"), &error), QString());
    QVERIFY(error.isValid());
    QVERIFY(!error.driverText().contains(QStringLiteral("any more")));
    QVERIFY(cluster.restart());
    QVERIFY_SQL(database, database.open());
}

QString tst_ViewerTables::select(const QString &table) const
{
    QSqlError error;
    const QString text = selectOf(database, table, &error);
    return error.isValid() ? error.text() : text;
}

QTEST_GUILESS_MAIN(tst_ViewerTables)
#include "tst_viewer_tables.moc"
