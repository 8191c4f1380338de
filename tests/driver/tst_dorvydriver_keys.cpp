// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// DorvyDriver::primaryIndex: which key it finds under which name, and how it asks for it.
#include "tests/driver/catalogserver.h"
#include "tests/support/childprocess.h"
#include "tests/support/dorvydatabase.h"
#include "tests/support/someerror.h"
#include "tests/support/sqlmacros.h"
#include "tests/support/textlines.h"

#include <QtCore/QRegularExpression>
#include <QtSql/QSqlDatabase>
#include <QtSql/QSqlField>
#include <QtSql/QSqlIndex>
#include <QtTest/QtTest>

Q_DECLARE_METATYPE(QVariant::Type)

namespace {

QString keys()
{
    return QStringLiteral("keys");
}

// The query's text; an empty schema stands for a query without one.
QString keyText(const QString &schema, const QString &table)
{
    const QString condition =
        schema.isEmpty()
            ? QStringLiteral("pg_table_is_visible(pg_class.oid) AND")
            : QStringLiteral("pg_class.relnamespace = (SELECT oid FROM pg_namespace WHERE "
                             "pg_namespace.nspname = '") +
                  schema + QStringLiteral("') AND ");
    return QStringLiteral("SELECT pg_attribute.attname, pg_attribute.atttypid::int, "
                          "pg_class.relname FROM pg_attribute, pg_class WHERE ") +
           condition +
           QStringLiteral(" pg_class.oid IN (SELECT indexrelid FROM pg_index WHERE indisprimary = "
                          "true AND indrelid IN  (SELECT oid FROM pg_class WHERE relname = '") +
           table +
           QStringLiteral("')) AND pg_attribute.attrelid = pg_class.oid AND "
                          "pg_attribute.attisdropped = false ORDER BY pg_attribute.attnum");
}

QStringList fieldNames(const QSqlRecord &record)
{
    QStringList names;
    for (int i = 0; i < record.count(); ++i) {
        names += record.fieldName(i);
    }
    return names;
}

// An index of this cursor name without fields and name.
#define VERIFY_NO_KEY(index, cursor)                                                               \
    do {                                                                                           \
        const QSqlIndex &emptyIndex = (index);                                                     \
        QCOMPARE(emptyIndex.cursorName(), QString(cursor));                                        \
        QCOMPARE(emptyIndex.name(), QString());                                                    \
        QCOMPARE(emptyIndex.count(), 0);                                                           \
    } while (false)

} // namespace

class tst_DorvyDriverKeys : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();
    void cleanupTestCase();

    void textsToTheLetter();
    void textOnTheWire_data() { namesToLookUp(); }
    void textOnTheWire();
    void cursorIsTheNameAsGiven_data() { namesToLookUp(); }
    void cursorIsTheNameAsGiven();

    void keyIsFound_data();
    void keyIsFound();
    void keyIsNotFound_data();
    void keyIsNotFound();
    void fieldHasNameAndTypeOnly();
    void typesOfTheTable_data();
    void typesOfTheTable();
    void unknownTypeEndsTheProcess_data();
    void unknownTypeEndsTheProcess();
    void ownTypeEndsTheProcess_data();
    void ownTypeEndsTheProcess();
    void includedColumnsAreListed();
    void keyOfAPartitionedTable();
    void nameInTheServersEncoding();

    void unqualifiedNameFollowsTheCurrentSchema();
    void keysOfVisibleIndexesComeTogether();
    void nameIsTheLastRows();
    void hiddenIndexIsFoundWithItsSchemaOnly();

    void roadOfTheQuery();
    void nothingIsLeftOnTheServer();
    void uncommittedKeyIsNotSeen();
    void openTransactionGoesOn();
    void failedTransactionHasNoKey();
    void failedTransactionOfTheReaderHasNoKey();
    void apostropheFailsTheTransaction();
    void lostConnectionHasNoKey();
    void closedDriverSendsNothing();
    void driverIsAskedWhetherItIsOpen();
    void lastErrorStays();
    void databaseAsksThroughQt();

private:
    QSqlIndex primaryIndex(const char *table) const
    {
        return server.driver->primaryIndex(QString::fromUtf8(table));
    }
    void createTable(const QString &definition) const;
    ChildOutcome askInChild(const QString &table) const;

    CatalogServer server;
};

void tst_DorvyDriverKeys::initTestCase()
{
    QVERIFY2(server.start(), qPrintable(server.cluster.why()));
    server.createDatabase(
        keys(), {"CREATE SCHEMA acc",
                 "CREATE SCHEMA \"Upper\"",
                 "CREATE TABLE one (id int PRIMARY KEY)",
                 "CREATE TABLE several (a text, b int, c date, d bool, PRIMARY KEY (c, a))",
                 "CREATE TABLE named (a int, CONSTRAINT \"Named Key\" PRIMARY KEY (a))",
                 "CREATE TABLE keyless (a int)",
                 "CREATE TABLE merely_unique (a int UNIQUE NOT NULL, b int)",
                 "CREATE UNIQUE INDEX ON merely_unique (b)",
                 "CREATE VIEW seen AS SELECT id FROM one",
                 "CREATE TABLE \"Column Case\" (a int)",
                 "CREATE TABLE columns (\"Mixed Case\" int, \"full.stop\" int, \"Колонка\" int, "
                 "PRIMARY KEY (\"Mixed Case\", \"full.stop\", \"Колонка\"))",
                 "CREATE TABLE \"Mixed\" (id int PRIMARY KEY)",
                 "CREATE TABLE lower (id int PRIMARY KEY)",
                 "CREATE TABLE \"a.b\" (id int PRIMARY KEY)",
                 "CREATE TABLE \"o'brien\" (id int PRIMARY KEY)",
                 "CREATE TABLE \"%1\" (id int PRIMARY KEY)",
                 "CREATE TABLE \"a?\" (id int PRIMARY KEY)",
                 "CREATE TABLE \"таблица\" (id int PRIMARY KEY)",
                 "CREATE TABLE acc.orders (id bigint, line int, CONSTRAINT orders_key PRIMARY KEY "
                 "(id, line))",
                 "CREATE TABLE \"Upper\".inside (id int PRIMARY KEY)",
                 "CREATE TABLE twin (a int, CONSTRAINT twin_public PRIMARY KEY (a))",
                 "CREATE TABLE acc.twin (b int, c int, CONSTRAINT twin_acc PRIMARY KEY (b, c))",
                 "CREATE TABLE hidden (id int PRIMARY KEY)",
                 "CREATE TABLE acc.hidden_pkey ()",
                 "CREATE TABLE same (a int PRIMARY KEY)",
                 "CREATE TABLE acc.same (b int PRIMARY KEY)"});
}

void tst_DorvyDriverKeys::cleanup()
{
    server.closeDriver();
}

void tst_DorvyDriverKeys::cleanupTestCase()
{
    server.proxy.reset();
}

// Makes the table "typed" anew.
void tst_DorvyDriverKeys::createTable(const QString &definition) const
{
    server.cluster.run(QStringLiteral("DROP TABLE IF EXISTS typed"), keys());
    server.cluster.run(QStringLiteral("CREATE TABLE typed ") + definition, keys());
}

ChildOutcome tst_DorvyDriverKeys::askInChild(const QString &table) const
{
    return runInChild([this, table]() {
        DorvyDriver driver(QSharedPointer<Dorvy3Transacted>::create());
        if (!driver.open(keys(), server.cluster.user(), QString(), server.cluster.socketDir(),
                         server.cluster.port(), QString())) {
            qFatal("not open");
        }
        driver.primaryIndex(table);
    });
}

void tst_DorvyDriverKeys::textsToTheLetter()
{
    QVERIFY_SQL(*server.driver, server.openDriver(keys()));
    primaryIndex("One");
    QCOMPARE(server.parsed(server.own),
             QStringList{QStringLiteral(
                 "SELECT pg_attribute.attname, pg_attribute.atttypid::int, pg_class.relname FROM "
                 "pg_attribute, pg_class WHERE pg_table_is_visible(pg_class.oid) AND pg_class.oid "
                 "IN (SELECT indexrelid FROM pg_index WHERE indisprimary = true AND indrelid IN  "
                 "(SELECT oid FROM pg_class WHERE relname = 'one')) AND pg_attribute.attrelid = "
                 "pg_class.oid AND pg_attribute.attisdropped = false ORDER BY "
                 "pg_attribute.attnum")});
    server.proxy->clear();
    primaryIndex("Acc.\"Orders\"");
    QCOMPARE(server.parsed(server.own),
             QStringList{QStringLiteral(
                 "SELECT pg_attribute.attname, pg_attribute.atttypid::int, pg_class.relname FROM "
                 "pg_attribute, pg_class WHERE pg_class.relnamespace = (SELECT oid FROM "
                 "pg_namespace WHERE pg_namespace.nspname = 'acc') AND  pg_class.oid IN (SELECT "
                 "indexrelid FROM pg_index WHERE indisprimary = true AND indrelid IN  (SELECT oid "
                 "FROM pg_class WHERE relname = 'orders')) AND pg_attribute.attrelid = "
                 "pg_class.oid AND pg_attribute.attisdropped = false ORDER BY "
                 "pg_attribute.attnum")});
}

void tst_DorvyDriverKeys::textOnTheWire()
{
    QFETCH(QString, name);
    QFETCH(QString, schema);
    QFETCH(QString, table);
    QVERIFY_SQL(*server.driver, server.openDriver(keys()));
    server.driver->primaryIndex(name);
    QCOMPARE(server.parsed(server.own), QStringList{keyText(schema, table)});
    // What the server accepts, it runs on the borrowed connection under the same text.
    const QStringList borrowed = server.parsed(server.own + 1);
    if (!borrowed.isEmpty()) {
        QCOMPARE(borrowed, QStringList{keyText(schema, table)});
    }
}

void tst_DorvyDriverKeys::cursorIsTheNameAsGiven()
{
    QFETCH(QString, name);
    OpenDriver closed(QSharedPointer<Dorvy3Transacted>::create());
    VERIFY_NO_KEY(closed.primaryIndex(name), QString());
    QVERIFY_SQL(*server.driver, server.openDriver(keys()));
    QCOMPARE(server.driver->primaryIndex(name).cursorName(), name);
}

void tst_DorvyDriverKeys::keyIsFound_data()
{
    QTest::addColumn<QString>("table");
    QTest::addColumn<QString>("index");
    QTest::addColumn<QStringList>("fields");
    const auto row = [](const char *tag, const char *table, const char *index,
                        std::initializer_list<const char *> fields) {
        QTest::newRow(tag) << QString::fromUtf8(table) << QString::fromUtf8(index) << lines(fields);
    };
    row("one column", "one", "one_pkey", {"id"});
    row("several columns, in the key's order", "several", "several_pkey", {"c", "a"});
    row("name of its own", "named", "Named Key", {"a"});
    row("upper case", "ONE", "one_pkey", {"id"});
    row("quoted", "\"One\"", "one_pkey", {"id"});
    row("schema public", "public.one", "one_pkey", {"id"});
    row("other schema", "acc.orders", "orders_key", {"id", "line"});
    row("other schema in upper case", "ACC.Orders", "orders_key", {"id", "line"});
    row("both quoted", "\"Acc\".\"Orders\"", "orders_key", {"id", "line"});
    row("names of columns", "columns", "columns_pkey", {"Mixed Case", "full.stop", "Колонка"});
    row("Russian in upper case", "ТАБЛИЦА", "таблица_pkey", {"id"});
    row("full stop in the table", "public.a.b", "a.b_pkey", {"id"});
    row("quoted full stop in the table", "public.\"A.B\"", "a.b_pkey", {"id"});
    row("no schema before the full stop", ".one", "one_pkey", {"id"});
    row("doubled apostrophe", "o''brien", "o'brien_pkey", {"id"});
    row("percent", "%1", "%1_pkey", {"id"});
    row("question mark", "a?", "a?_pkey", {"id"});
    // The name is put into the text as it stands.
    row("text that goes on", "nothing' OR relname = 'one", "one_pkey", {"id"});

    row("two of a name, without schema", "twin", "twin_public", {"a"});
    row("two of a name, the first schema", "public.twin", "twin_public", {"a"});
    row("two of a name, the second schema", "acc.twin", "twin_acc", {"b", "c"});
    row("two of a name and index, without schema", "same", "same_pkey", {"a"});
    row("two of a name and index, first", "public.same", "same_pkey", {"a"});
    row("two of a name and index, second", "acc.same", "same_pkey", {"b"});
}

void tst_DorvyDriverKeys::keyIsFound()
{
    QFETCH(QString, table);
    QFETCH(QString, index);
    QFETCH(QStringList, fields);
    QVERIFY_SQL(*server.driver, server.openDriver(keys()));
    const QSqlIndex found = server.driver->primaryIndex(table);
    QCOMPARE(found.cursorName(), table);
    QCOMPARE(found.name(), index);
    QCOMPARE(fieldNames(found), fields);
}

void tst_DorvyDriverKeys::keyIsNotFound_data()
{
    QTest::addColumn<QString>("table");
    QTest::newRow("no key") << QStringLiteral("keyless");
    QTest::newRow("unique columns") << QStringLiteral("merely_unique");
    QTest::newRow("view") << QStringLiteral("seen");
    QTest::newRow("unknown table") << QStringLiteral("unknown");
    QTest::newRow("index") << QStringLiteral("one_pkey");
    QTest::newRow("part of a name") << QStringLiteral("on");
    QTest::newRow("pattern") << QStringLiteral("%");
    QTest::newRow("schema outside the search path") << QStringLiteral("orders");
    QTest::newRow("wrong schema") << QStringLiteral("acc.one");
    QTest::newRow("unknown schema") << QStringLiteral("unknown.one");
    QTest::newRow("upper case on the server") << QStringLiteral("Mixed");
    QTest::newRow("upper case on the server, quoted") << QStringLiteral("\"Mixed\"");
    QTest::newRow("upper case schema on the server") << QStringLiteral("\"Upper\".inside");
    QTest::newRow("full stop without schema") << QStringLiteral("a.b");
    QTest::newRow("quoted full stop without schema") << QStringLiteral("\"a.b\"");
    QTest::newRow("apostrophe") << QStringLiteral("o'brien");
    QTest::newRow("%1 for a schema") << QStringLiteral("%1.one");
    QTest::newRow("empty") << QStringLiteral("");
    QTest::newRow("null") << QString();
    QTest::newRow("full stop alone") << QStringLiteral(".");
    QTest::newRow("full stop last") << QStringLiteral("public.");
    QTest::newRow("blank behind") << QStringLiteral("one ");
}

void tst_DorvyDriverKeys::keyIsNotFound()
{
    QFETCH(QString, table);
    QVERIFY_SQL(*server.driver, server.openDriver(keys()));
    server.driver->setLastError(someError());
    VERIFY_NO_KEY(server.driver->primaryIndex(table), table);
    QCOMPARE(server.driver->lastError(), someError());
    QCOMPARE(server.parsed(server.own).size(), 1);
}

void tst_DorvyDriverKeys::fieldHasNameAndTypeOnly()
{
    QVERIFY_SQL(*server.driver, server.openDriver(keys()));
    const QSqlIndex index = primaryIndex("acc.orders");
    QCOMPARE(index.field(0), QSqlField(QStringLiteral("id"), QVariant::LongLong));
    QCOMPARE(index.field(1), QSqlField(QStringLiteral("line"), QVariant::Int));
    for (int i = 0; i < 2; ++i) {
        QCOMPARE(index.field(i).requiredStatus(), QSqlField::Unknown);
        QCOMPARE(index.field(i).length(), -1);
        QCOMPARE(index.field(i).precision(), -1);
        QVERIFY(index.field(i).isNull());
        QVERIFY(!index.isDescending(i));
    }
}

void tst_DorvyDriverKeys::typesOfTheTable_data()
{
    QTest::addColumn<QString>("declared");
    QTest::addColumn<QVariant::Type>("type");
    const auto row = [](const char *declared, QVariant::Type type) {
        QTest::newRow(declared) << QString::fromLatin1(declared) << type;
    };
    row("bool", QVariant::Bool);
    row("bytea", QVariant::ByteArray);
    row("int8", QVariant::LongLong);
    row("int2", QVariant::Int);
    row("int4", QVariant::Int);
    row("text", QVariant::ByteArray);
    row("float4", QVariant::Double);
    row("float8", QVariant::Double);
    row("char(5)", QVariant::String);
    row("varchar(20)", QVariant::String);
    row("date", QVariant::Date);
    row("time", QVariant::Time);
    row("timestamp", QVariant::DateTime);
    row("timestamptz", QVariant::DateTime);
    row("numeric(12,2)", QVariant::Double);
    row("uuid", QVariant::String);
    row("jsonb", QVariant::ByteArray);
    row("bigserial", QVariant::LongLong);
}

void tst_DorvyDriverKeys::typesOfTheTable()
{
    QFETCH(QString, declared);
    QFETCH(QVariant::Type, type);
    createTable(QStringLiteral("(k %1 PRIMARY KEY)").arg(declared));
    QVERIFY_SQL(*server.driver, server.openDriver(keys()));
    const QSqlIndex index = primaryIndex("typed");
    QCOMPARE(fieldNames(index), lines({"k"}));
    QCOMPARE(index.field(0).type(), type);
}

void tst_DorvyDriverKeys::unknownTypeEndsTheProcess_data()
{
    QTest::addColumn<QString>("declared");
    QTest::addColumn<QString>("message");
    const auto row = [](const char *declared, const char *message) {
        QTest::newRow(declared) << QString::fromLatin1(declared) << QString::fromLatin1(message);
    };
    row("\"char\"", "DORVY: hlpDecodePSQLType - unknown ptype (18)");
    row("oid", "DORVY: hlpDecodePSQLType - unknown ptype (26)");
    row("inet", "DORVY: hlpDecodePSQLType - unknown ptype (869)");
    row("int4[]", "DORVY: hlpDecodePSQLType - unknown ptype (1007)");
    row("interval", "DORVY: hlpDecodePSQLType - unknown ptype (1186)");
    row("timetz", "DORVY: hlpDecodePSQLType - unknown ptype (1266)");
    row("bit(8)", "DORVY: hlpDecodePSQLType - unknown ptype (1560)");
    // An index keeps a name as a cstring, which the driver does not know.
    row("name", "DORVY: hlpDecodePSQLType - unknown ptype (2275)");
}

void tst_DorvyDriverKeys::unknownTypeEndsTheProcess()
{
    QFETCH(QString, declared);
    QFETCH(QString, message);
    // Also behind a column that it knows.
    createTable(QStringLiteral("(a int, k %1, PRIMARY KEY (a, k))").arg(declared));
    const ChildOutcome outcome = askInChild(QStringLiteral("typed"));
    QCOMPARE(outcome.fatal, message);
    QVERIFY(outcome.aborted);
}

void tst_DorvyDriverKeys::ownTypeEndsTheProcess_data()
{
    QTest::addColumn<QString>("command");
    QTest::newRow("domain") << QStringLiteral("CREATE DOMAIN mine AS int");
    QTest::newRow("enumeration") << QStringLiteral("CREATE TYPE mine AS ENUM ('a', 'b')");
}

void tst_DorvyDriverKeys::ownTypeEndsTheProcess()
{
    QFETCH(QString, command);
    server.cluster.run(QStringLiteral("DROP TYPE IF EXISTS mine CASCADE"), keys());
    server.cluster.run(command, keys());
    createTable(QStringLiteral("(k mine PRIMARY KEY)"));
    const QString oid = server.cluster.value(QStringLiteral("SELECT 'mine'::regtype::oid"), keys());
    const ChildOutcome outcome = askInChild(QStringLiteral("typed"));
    QCOMPARE(outcome.fatal,
             QStringLiteral("DORVY: hlpDecodePSQLType - unknown ptype (%1)").arg(oid));
    QVERIFY(outcome.aborted);
}

void tst_DorvyDriverKeys::includedColumnsAreListed()
{
    if (server.cluster.major() < 11) {
        return; // an index includes no columns there
    }
    createTable(QStringLiteral("(a int, b varchar(3), c json, PRIMARY KEY (a) INCLUDE (b))"));
    QVERIFY_SQL(*server.driver, server.openDriver(keys()));
    QCOMPARE(fieldNames(primaryIndex("typed")), lines({"a", "b"}));
    createTable(QStringLiteral("(a int, b varchar(3), c json, PRIMARY KEY (a) INCLUDE (c))"));
    VERIFY_FATAL(askInChild(QStringLiteral("typed")),
                 "DORVY: hlpDecodePSQLType - unknown ptype (114)");
}

void tst_DorvyDriverKeys::keyOfAPartitionedTable()
{
    if (server.cluster.major() < 11) {
        return; // a partitioned table has no key there
    }
    createTable(QStringLiteral("(a int, b int, PRIMARY KEY (b, a)) PARTITION BY LIST (a)"));
    QVERIFY_SQL(*server.driver, server.openDriver(keys()));
    QCOMPARE(fieldNames(primaryIndex("typed")), lines({"b", "a"}));
    QCOMPARE(primaryIndex("typed").name(), QStringLiteral("typed_pkey"));
}

void tst_DorvyDriverKeys::nameInTheServersEncoding()
{
    const QString database = QStringLiteral("cyrillic");
    server.cluster.createDatabase(database, QStringLiteral("WIN1251"));
    QVERIFY_SQL(*server.driver, server.openDriver(database));
    QVERIFY(server.execute(QStringLiteral("CREATE SCHEMA \"склад\"")));
    QVERIFY(server.execute(QStringLiteral("CREATE TABLE \"склад\".\"товар\" (\"Ёж\" int, "
                                          "CONSTRAINT \"Ключ\" PRIMARY KEY (\"Ёж\"))")));
    const QSqlIndex index = primaryIndex("СКЛАД.\"Товар\"");
    QCOMPARE(index.cursorName(), QStringLiteral("СКЛАД.\"Товар\""));
    QCOMPARE(index.name(), QStringLiteral("Ключ"));
    QCOMPARE(fieldNames(index), lines({"Ёж"}));
}

void tst_DorvyDriverKeys::unqualifiedNameFollowsTheCurrentSchema()
{
    QVERIFY_SQL(*server.driver, server.openDriver(keys()));
    QVERIFY(server.execute(QStringLiteral("SET search_path TO acc, public")));
    QCOMPARE(primaryIndex("orders").name(), QStringLiteral("orders_key"));
    QCOMPARE(primaryIndex("twin").name(), QStringLiteral("twin_acc"));
    // The reader looks into the first schema of the path alone.
    VERIFY_NO_KEY(primaryIndex("one"), QStringLiteral("one"));
}

void tst_DorvyDriverKeys::keysOfVisibleIndexesComeTogether()
{
    QVERIFY_SQL(*server.driver,
                server.openDriver(keys(), QStringLiteral("dorvy"),
                                  QStringLiteral("options=-csearch_path=public,acc")));
    // Without a current schema the borrowed connection keeps the search path of the options.
    QVERIFY(server.execute(QStringLiteral("SET search_path TO nowhere")));
    const QSqlIndex index = primaryIndex("twin");
    QStringList first = fieldNames(index).mid(0, 2);
    first.sort();
    QCOMPARE(first, lines({"a", "b"})); // the first column of either key
    QCOMPARE(fieldNames(index).mid(2), lines({"c"}));
    QCOMPARE(index.name(), QStringLiteral("twin_acc")); // the last column's
    // Of two indexes of one name the first alone is visible.
    QCOMPARE(fieldNames(primaryIndex("same")), lines({"a"}));
    QCOMPARE(fieldNames(primaryIndex("acc.twin")), lines({"b", "c"}));
}

void tst_DorvyDriverKeys::nameIsTheLastRows()
{
    // A catalog in which the columns of the second key come behind all of the first, so that the
    // order of the rows is certain.
    server.cluster.run(QStringLiteral("CREATE SCHEMA shadow"), keys());
    server.cluster.run(QStringLiteral("CREATE VIEW shadow.pg_attribute AS SELECT attrelid, "
                                      "attname, atttypid, attisdropped, attnum + CASE WHEN attname "
                                      "IN ('b', 'c') THEN 10 ELSE 0 END AS attnum "
                                      "FROM pg_catalog.pg_attribute"),
                       keys());
    QVERIFY_SQL(
        *server.driver,
        server.openDriver(keys(), QStringLiteral("dorvy"),
                          QStringLiteral("options=-csearch_path=shadow,pg_catalog,public,acc")));
    QVERIFY(server.execute(QStringLiteral("SET search_path TO nowhere")));
    const QSqlIndex index = primaryIndex("twin");
    QCOMPARE(fieldNames(index), lines({"a", "b", "c"}));
    QCOMPARE(index.name(), QStringLiteral("twin_acc"));
}

void tst_DorvyDriverKeys::hiddenIndexIsFoundWithItsSchemaOnly()
{
    QVERIFY_SQL(*server.driver,
                server.openDriver(keys(), QStringLiteral("dorvy"),
                                  QStringLiteral("options=-csearch_path=acc,public")));
    QVERIFY(server.execute(QStringLiteral("SET search_path TO nowhere")));
    // The table is visible; its index stands behind a table of the index's name.
    VERIFY_NO_KEY(primaryIndex("hidden"), QStringLiteral("hidden"));
    QCOMPARE(fieldNames(primaryIndex("public.hidden")), lines({"id"}));
    QCOMPARE(fieldNames(primaryIndex("one")), lines({"id"}));
}

void tst_DorvyDriverKeys::roadOfTheQuery()
{
    QVERIFY_SQL(*server.driver, server.openDriver(keys()));
    primaryIndex("several");
    const QStringList parse{QStringLiteral("%1> Parse S1 \"") +
                            keyText(QString(), QStringLiteral("several")) + QStringLiteral("\" 0")};
    const int borrowed = server.own + 1;
    QCOMPARE(server.proxy->connectionCount(), borrowed);
    QCOMPARE(
        server.linesWith({"> Parse", "> Bind", "> Execute", "> Query"}, server.own),
        QStringList({parse.first().arg(server.own),
                     QStringLiteral("%1> Query \"SELECT current_schema()\"").arg(server.own)}));
    QCOMPARE(server.linesWith({"> Parse", "> Bind", "> Execute", "BEGIN", "ROLLBACK\""}, borrowed)
                 .filter(QStringLiteral("> ")),
             QStringList({QStringLiteral("%1> Query \"BEGIN\"").arg(borrowed),
                          parse.first().arg(borrowed),
                          QStringLiteral("%1> Bind P1 S1 [] 1").arg(borrowed),
                          QStringLiteral("%1> Execute P1 128").arg(borrowed),
                          QStringLiteral("%1> Query \"ROLLBACK\"").arg(borrowed)}));
}

void tst_DorvyDriverKeys::nothingIsLeftOnTheServer()
{
    QVERIFY_SQL(*server.driver, server.openDriver(keys()));
    QCOMPARE(primaryIndex("several").count(), 2);
    VERIFY_NO_KEY(primaryIndex("o'brien"), QStringLiteral("o'brien"));
    QCOMPARE(server.spares().size(), 1);
    VERIFY_NOTHING_LEFT(server);
}

void tst_DorvyDriverKeys::uncommittedKeyIsNotSeen()
{
    QVERIFY_SQL(*server.driver, server.openDriver(keys()));
    QVERIFY_SQL(*server.driver, server.driver->beginTransaction());
    QVERIFY(server.execute(QStringLiteral("CREATE TABLE fresh (a int PRIMARY KEY)")));
    VERIFY_NO_KEY(primaryIndex("fresh"), QStringLiteral("fresh"));
    QVERIFY_SQL(*server.driver, server.driver->commitTransaction());
    QCOMPARE(primaryIndex("fresh").name(), QStringLiteral("fresh_pkey"));
    QVERIFY(server.execute(QStringLiteral("DROP TABLE fresh")));
}

void tst_DorvyDriverKeys::openTransactionGoesOn()
{
    QVERIFY_SQL(*server.driver, server.openDriver(keys()));
    QVERIFY_SQL(*server.driver, server.driver->beginTransaction());
    server.proxy->clear();
    QCOMPARE(primaryIndex("one").count(), 1);
    QStringList commands = server.linesWith({"> Query"}, server.own);
    commands.replaceInStrings(QRegularExpression(QStringLiteral(" dstmt[0-9a-f]+\"")),
                              QStringLiteral(" S1\""));
    QCOMPARE(commands,
             numbered(server.own, {"> Query \"SAVEPOINT S1\"", "> Query \"RELEASE SAVEPOINT S1\"",
                                   "> Query \"SELECT current_schema()\""}));
    QVERIFY_SQL(*server.driver, server.driver->commitTransaction());
}

void tst_DorvyDriverKeys::failedTransactionHasNoKey()
{
    QVERIFY_SQL(*server.driver, server.openDriver(keys()));
    QVERIFY_SQL(*server.driver, server.driver->beginTransaction());
    QVERIFY(!server.execute(QStringLiteral("nonsense")));
    VERIFY_NO_KEY(primaryIndex("one"), QStringLiteral("one"));
    QVERIFY_SQL(*server.driver, server.driver->rollbackTransaction());
    QCOMPARE(primaryIndex("one").count(), 1);
}

void tst_DorvyDriverKeys::failedTransactionOfTheReaderHasNoKey()
{
    QVERIFY_SQL(*server.driver, server.openDriver(keys()));
    QSqlQuery failed(server.driver->createResult());
    QVERIFY_SQL(failed, failed.prepare(QStringLiteral("SELECT 1 / ?::int")));
    failed.addBindValue(0);
    QVERIFY(!failed.exec());
    VERIFY_NO_KEY(primaryIndex("one"), QStringLiteral("one"));
    failed.finish();
    failed.clear();
    QCOMPARE(primaryIndex("one").count(), 1);
}

void tst_DorvyDriverKeys::apostropheFailsTheTransaction()
{
    QVERIFY_SQL(*server.driver, server.openDriver(keys()));
    QVERIFY_SQL(*server.driver, server.driver->beginTransaction());
    VERIFY_NO_KEY(primaryIndex("o'brien"), QStringLiteral("o'brien"));
    QVERIFY(!server.execute(QStringLiteral("UPDATE keyless SET a = 1")));
    QVERIFY(!server.driver->commitTransaction());
    QVERIFY_SQL(*server.driver, server.driver->rollbackTransaction());
}

void tst_DorvyDriverKeys::lostConnectionHasNoKey()
{
    QVERIFY_SQL(*server.driver, server.openDriver(keys()));
    server.proxy->cut();
    server.driver->setLastError(someError());
    VERIFY_NO_KEY(primaryIndex("one"), QStringLiteral("one"));
    QCOMPARE(server.driver->lastError(), someError());
    // Now that the loss is known, the driver is closed.
    VERIFY_NO_KEY(primaryIndex("one"), QString());
}

void tst_DorvyDriverKeys::closedDriverSendsNothing()
{
    MessageCounter messages;
    QVERIFY_SQL(*server.driver, server.openDriver(keys()));
    QCOMPARE(primaryIndex("one").count(), 1); // which leaves a spare connection
    server.driver->close();
    const int count = server.proxy->connectionCount();
    QTRY_COMPARE(server.linesWith({"Terminate"}).size(), 2);
    server.proxy->clear();
    server.driver->setLastError(someError());
    VERIFY_NO_KEY(primaryIndex("one"), QString());
    QCOMPARE(server.proxy->conversation(), QStringList());
    QCOMPARE(server.proxy->connectionCount(), count);
    QCOMPARE(server.driver->lastError(), someError());
    QCOMPARE(messages.count(), 0); // a query on it would warn
}

void tst_DorvyDriverKeys::driverIsAskedWhetherItIsOpen()
{
    MessageCounter messages;
    ShutDriver shut(QSharedPointer<Dorvy3Transacted>::create());
    QVERIFY_SQL(shut, server.open(shut, keys()));
    server.proxy->clear();
    VERIFY_NO_KEY(shut.primaryIndex(QStringLiteral("one")), QString());
    QCOMPARE(server.proxy->conversation(), QStringList());
    QCOMPARE(messages.count(), 0);
}

void tst_DorvyDriverKeys::lastErrorStays()
{
    QVERIFY_SQL(*server.driver, server.openDriver(keys()));
    server.driver->setLastError(someError());
    QCOMPARE(primaryIndex("one").count(), 1);
    QCOMPARE(server.driver->lastError(), someError());
}

void tst_DorvyDriverKeys::databaseAsksThroughQt()
{
    const QString name = QStringLiteral("throughqt");
    {
        QSqlDatabase db = addDorvyDatabase(name, server.cluster, keys());
        QCOMPARE(db.primaryIndex(QStringLiteral("one")).count(), 0);
        QVERIFY_SQL(db, db.open());
        const QSqlIndex index = db.primaryIndex(QStringLiteral("Acc.Orders"));
        QCOMPARE(index.cursorName(), QStringLiteral("Acc.Orders"));
        QCOMPARE(index.name(), QStringLiteral("orders_key"));
        QCOMPARE(fieldNames(index), lines({"id", "line"}));
        VERIFY_NO_ERROR(db.lastError());
    }
    QSqlDatabase::removeDatabase(name);
}

QTEST_GUILESS_MAIN(tst_DorvyDriverKeys)
#include "tst_dorvydriver_keys.moc"
