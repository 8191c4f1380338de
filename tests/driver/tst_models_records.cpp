// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Records, statements made from them, and steps within a query, as an application uses them.
#include "tests/driver/models.h"

#include <QtSql/QSqlDriver>
#include <QtSql/QSqlField>
#include <QtSql/QSqlIndex>
#include <QtSql/QSqlRecord>

Q_DECLARE_METATYPE(QSqlDriver::StatementType)

class tst_ModelsRecords : public QObject, private Models
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY2(start(), qPrintable(cluster.why())); }
    void init() { QVERIFY_SQL(db, openAnew()); }
    void cleanup() { closeForGood(); }

    void databaseRecordIsEmpty();
    void columnsOfATableFromAQuery();
    void tablesOfTheDatabase();
    void tablesDoNotShowTheOpenTransaction();
    void statementsFromARecord_data();
    void statementsFromARecord();
    void nullInARecordsWhere();
    void preparedUpdateFromARecord();
    void literalOfATextColumnIsOfBytes();
    void boundValuesByName();
    void boundValuesByPositionAreNamedAsTheServersAre();
    void tenBoundValuesAreNotInOrder();
    void sizeIsThePages();
    void lastStaysInThePage();
    void relativeSeekWithinThePage();
    void relativeSeekByOneTurnsThePage();
    void relativeSeekByMoreStopsAtThePagesEnd();
};

void tst_ModelsRecords::databaseRecordIsEmpty()
{
    if (cluster.major() < 12) {
        VERIFY_FATAL(inChild([](QSqlDatabase own) { own.record("item"); }),
                     "DORVY: hlpDecodePSQLType - unknown ptype (0)");
        return;
    }
    QVERIFY(db.record("item").isEmpty());
    VERIFY_NO_ERROR(db.lastError()); // not even an error tells why
    QVERIFY_SQL(db, db.transaction());
    QVERIFY(db.record("item").isEmpty());
    QVERIFY(!db.commit());
    QVERIFY_SQL(db, db.rollback());
}

void tst_ModelsRecords::columnsOfATableFromAQuery()
{
    QSqlQuery select("SELECT * FROM item WHERE false", db);
    const QSqlRecord columns = select.record();
    QCOMPARE(columns.count(), 4);
    QCOMPARE(columns.fieldName(2), QString("price"));
    QCOMPARE(columns.field(2).length(), 8);
    QCOMPARE(columns.field(2).precision(), 2);
    QCOMPARE(columns.indexOf("supplier"), 3);
}

void tst_ModelsRecords::tablesOfTheDatabase()
{
    cluster.run("CREATE VIEW cheap AS SELECT id FROM item WHERE price < 10");
    QStringList tables = db.tables();
    tables.sort(); // they come in the catalog's order
    QCOMPARE(tables, QStringList({"item", "supplier"}));
    QCOMPARE(db.tables(QSql::Views), QStringList({"cheap"}));
    QVERIFY(db.tables(QSql::SystemTables).contains("pg_class"));
}

void tst_ModelsRecords::tablesDoNotShowTheOpenTransaction()
{
    QSqlQuery create(db);
    QVERIFY_SQL(db, db.transaction());
    QVERIFY_SQL(create, create.exec("CREATE TABLE fresh (id int PRIMARY KEY)"));
    QVERIFY(!db.tables().contains("fresh"));
    QVERIFY(db.primaryIndex("fresh").isEmpty());
    QVERIFY_SQL(db, db.commit());
    QVERIFY(db.tables().contains("fresh"));
    QCOMPARE(db.primaryIndex("fresh").fieldName(0), QString("id"));
}

void tst_ModelsRecords::statementsFromARecord_data()
{
    QTest::addColumn<QSqlDriver::StatementType>("type");
    QTest::addColumn<bool>("isPrepared");
    QTest::addColumn<QString>("text");
    const auto row = [](const char *tag, QSqlDriver::StatementType type, bool isPrepared,
                        const char *text) { QTest::newRow(tag) << type << isPrepared << text; };
    row("select", QSqlDriver::SelectStatement, false, R"(SELECT "id", "name" FROM "item")");
    row("select, prepared", QSqlDriver::SelectStatement, true,
        R"(SELECT "id", "name" FROM "item")");
    row("where", QSqlDriver::WhereStatement, false,
        R"(WHERE "item"."id" = 1 AND "item"."name" = 'item 1')");
    row("where, prepared", QSqlDriver::WhereStatement, true,
        R"(WHERE "item"."id" = ? AND "item"."name" = ?)");
    row("insert", QSqlDriver::InsertStatement, false,
        R"(INSERT INTO "item" ("id", "name") VALUES (1, 'item 1'))");
    row("insert, prepared", QSqlDriver::InsertStatement, true,
        R"(INSERT INTO "item" ("id", "name") VALUES (?, ?))");
    row("update", QSqlDriver::UpdateStatement, false,
        R"(UPDATE "item" SET "id"=1, "name"='item 1')");
    row("update, prepared", QSqlDriver::UpdateStatement, true,
        R"(UPDATE "item" SET "id"=?, "name"=?)");
    row("delete", QSqlDriver::DeleteStatement, false, R"(DELETE FROM "item")");
    row("delete, prepared", QSqlDriver::DeleteStatement, true, R"(DELETE FROM "item")");
}

void tst_ModelsRecords::statementsFromARecord()
{
    QFETCH(QSqlDriver::StatementType, type);
    QFETCH(bool, isPrepared);
    QFETCH(QString, text);
    QSqlQuery select("SELECT id, name, price FROM item WHERE id = 1", db);
    QVERIFY(select.next());
    QSqlRecord row = select.record();
    row.setGenerated("price", false);
    QCOMPARE(db.driver()->sqlStatement(type, "item", row, isPrepared), text);
}

void tst_ModelsRecords::nullInARecordsWhere()
{
    QSqlQuery select("SELECT id, NULL::text AS name FROM item WHERE id = 1", db);
    QVERIFY(select.next());
    const QSqlDriver *driver = db.driver();
    for (const bool isPrepared : {false, true}) {
        QCOMPARE(driver
                     ->sqlStatement(QSqlDriver::WhereStatement, "public.item", select.record(),
                                    isPrepared)
                     .section(" AND ", 1),
                 QString("\"public\".\"item\".\"name\" IS NULL"));
    }
    QCOMPARE(driver->sqlStatement(QSqlDriver::InsertStatement, "item", select.record(), false),
             QString("INSERT INTO \"item\" (\"id\", \"name\") VALUES (1, NULL)"));
}

void tst_ModelsRecords::preparedUpdateFromARecord()
{
    QSqlQuery select("SELECT id, name FROM item WHERE id = 1", db);
    QVERIFY(select.next());
    const QSqlRecord key = select.record().keyValues(db.primaryIndex("item"));
    QSqlRecord changed;
    changed.append(select.record().field("name"));
    changed.setValue("name", "O'Hara \\ Имя");
    const QSqlDriver *driver = db.driver();
    QSqlQuery update(db);
    update.prepare(driver->sqlStatement(QSqlDriver::UpdateStatement, "item", changed, true) + ' ' +
                   driver->sqlStatement(QSqlDriver::WhereStatement, "item", key, true));
    update.addBindValue(changed.value("name"));
    update.addBindValue(key.value("id"));
    update.exec();
    VERIFY_NO_ERROR(update.lastError());
    QCOMPARE(update.numRowsAffected(), 1);
    QCOMPARE(update.lastQuery(),
             QString("UPDATE \"item\" SET \"name\"=? WHERE \"item\".\"id\" = ?"));
    QCOMPARE(cluster.value("SELECT name FROM item WHERE id = 1"), QString("O'Hara \\ Имя"));
}

void tst_ModelsRecords::literalOfATextColumnIsOfBytes()
{
    // A text column is described as a byte array, and its literal is one of bytes.
    QSqlQuery select("SELECT id, name FROM item WHERE id = 1", db);
    QVERIFY(select.next());
    QSqlRecord row = select.record();
    row.setValue("id", 301);
    row.setValue("name", "O'Hara \\ Имя");
    const QString text = db.driver()->sqlStatement(QSqlDriver::InsertStatement, "item", row, false);
    QCOMPARE(text, QString(R"(INSERT INTO "item" ("id", "name") VALUES (301, )"
                           R"('O''Hara \\ \320\230\320\274\321\217'))"));
    QVERIFY_SQL(select, select.exec(text));
    QCOMPARE(cluster.value("SELECT name FROM item WHERE id = 301"),
             QString(R"(O'Hara \\ \320\230\320\274\321\217)"));
}

void tst_ModelsRecords::boundValuesByName()
{
    QSqlQuery select(db);
    QVERIFY_SQL(select, select.prepare("SELECT :id::int, :name::text"));
    select.bindValue(":id", 7);
    select.bindValue(":name", "Имя");
    const QMap<QString, QVariant> expected{{":id", 7}, {":name", "Имя"}};
    QCOMPARE(select.boundValues(), expected);
    QCOMPARE(select.executedQuery(), QString("SELECT ?::int, ?::text"));
    QVERIFY_SQL(select, select.exec());
    QVERIFY(select.next());
    QCOMPARE(select.value(1), QVariant("Имя"));
    QCOMPARE(select.boundValues(), expected);
}

void tst_ModelsRecords::boundValuesByPositionAreNamedAsTheServersAre()
{
    QSqlQuery select(db);
    QVERIFY_SQL(select, select.prepare("SELECT ?::int, ?::text"));
    select.addBindValue(7);
    select.addBindValue("Имя");
    const QMap<QString, QVariant> expected{{"$1", 7}, {"$2", "Имя"}};
    QCOMPARE(select.boundValues(), expected);
    QCOMPARE(select.boundValue(0), QVariant(7));
    QCOMPARE(select.boundValue(1), QVariant("Имя"));
    QVERIFY_SQL(select, select.exec());
    QCOMPARE(select.boundValues(), expected);
}

void tst_ModelsRecords::tenBoundValuesAreNotInOrder()
{
    QSqlQuery insert(db);
    QVERIFY_SQL(insert, insert.prepare("SELECT ?::int, ?::int, ?::int, ?::int, ?::int, "
                                       "?::int, ?::int, ?::int, ?::int, ?::int"));
    for (int value = 1; value <= 10; ++value) {
        insert.addBindValue(value);
    }
    // In the order of the map's keys: $1, $10, $2.
    QCOMPARE(insert.boundValues().values(), QVariantList({1, 10, 2, 3, 4, 5, 6, 7, 8, 9}));
    QCOMPARE(insert.boundValue(9), QVariant(10));
}

void tst_ModelsRecords::sizeIsThePages()
{
    QSqlQuery select("SELECT id FROM item ORDER BY id", db);
    const int size = select.size(); // 128, of 300
    QCOMPARE(size, 128);
    QList<int> sizes;
    while (select.next()) {
        if (select.at() == 0) {
            sizes += select.size();
        }
    }
    QCOMPARE(sizes, (QList<int>{128, 128, 44}));
    QCOMPARE(select.size(), 0); // after the end
    QVERIFY_SQL(select, select.exec("SELECT count(*) FROM item"));
    QVERIFY(select.next());
    QCOMPARE(select.value(0).toInt(), 300);
}

void tst_ModelsRecords::lastStaysInThePage()
{
    QSqlQuery select("SELECT id FROM item ORDER BY id", db);
    QVERIFY(select.last());
    QCOMPARE(select.value(0), QVariant(128));
    QVERIFY(!select.seek(299));
    QVERIFY_SQL(select, select.exec("SELECT id FROM item ORDER BY id DESC LIMIT 1"));
    QVERIFY(select.next());
    QCOMPARE(select.value(0), QVariant(300));
}

void tst_ModelsRecords::relativeSeekWithinThePage()
{
    QSqlQuery select("SELECT id FROM item ORDER BY id", db);
    QVERIFY(select.seek(10, true)); // from before the first row
    QCOMPARE(select.at(), 9);
    QVERIFY(select.seek(-3, true));
    QCOMPARE(select.value(0), QVariant(7));
    QVERIFY(select.seek(121, true));
    QCOMPARE(select.value(0), QVariant(128));
    QCOMPARE(select.at(), 127);
}

void tst_ModelsRecords::relativeSeekByOneTurnsThePage()
{
    QSqlQuery select("SELECT id FROM item ORDER BY id", db);
    QVERIFY(select.last());
    QVERIFY(select.seek(1, true)); // as next() does
    QCOMPARE(select.at(), 0);
    QCOMPARE(select.value(0), QVariant(129));
    QVERIFY(select.seek(100, true));
    QCOMPARE(select.value(0), QVariant(229));
    QVERIFY(!select.seek(-101, true)); // no way back to the first page
    QCOMPARE(select.at(), int(QSql::BeforeFirstRow));
    QVERIFY(select.next());
    QCOMPARE(select.value(0), QVariant(129));
}

void tst_ModelsRecords::relativeSeekByMoreStopsAtThePagesEnd()
{
    QSqlQuery select("SELECT id FROM item ORDER BY id", db);
    QVERIFY(select.seek(126));
    QVERIFY(!select.seek(2, true));
    QCOMPARE(select.at(), int(QSql::AfterLastRow));
    QVERIFY(!select.next()); // which ends the walk, 172 rows early
    QVERIFY(select.seek(-1, true));
    QCOMPARE(select.value(0), QVariant(128));
    QVERIFY(select.next()); // from here it goes on
    QCOMPARE(select.value(0), QVariant(129));
}

QTEST_GUILESS_MAIN(tst_ModelsRecords)
#include "tst_models_records.moc"
