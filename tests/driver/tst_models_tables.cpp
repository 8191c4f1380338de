// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Qt's table models on this driver, as an application tries them.
#include "tests/driver/models.h"

#include <QtSql/QSqlField>
#include <QtSql/QSqlIndex>
#include <QtSql/QSqlQueryModel>
#include <QtSql/QSqlRecord>
#include <QtSql/QSqlRelationalTableModel>
#include <QtSql/QSqlTableModel>

class tst_ModelsTables : public QObject, private Models
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY2(start(), qPrintable(cluster.why())); }
    void init() { QVERIFY_SQL(db, openAnew()); }
    void cleanup() { closeForGood(); }

    void tableModelFindsNoTable();
    void tableModelFindsNoTableByAnyName_data();
    void tableModelFindsNoTableByAnyName();
    void tableModelKnowsThePrimaryKey();
    void primaryKeyOfUnknownTypeEndsTheProcess();
    void tableModelAsksTheCatalog();
    void tableModelSelectsNothing();
    void tableModelWritesNothing();
    void tableModelSubmitsNoInsertedRow();
    void tableModelSpoilsTheTransaction();
    void tableModelBeforeTheTransactionIsHarmless();
    void tableModelWithoutATableSaysSo();
    void tableModelOfClosedDatabaseFindsNoTable();
    void relationalModelFindsNoTable();
    void relationModelFindsNoTable();
    void joinedRowsInAQueryModel();
};

void tst_ModelsTables::tableModelFindsNoTable()
{
    if (cluster.major() < 12) {
        VERIFY_FATAL(
            inChild([](QSqlDatabase own) { QSqlTableModel(nullptr, own).setTable("item"); }),
            "DORVY: hlpDecodePSQLType - unknown ptype (0)");
        return;
    }
    QSqlTableModel model(nullptr, db);
    model.setTable("item");
    const bool selected = model.select(); // false
    QVERIFY(!selected);
    COMPARE_ERROR(model.lastError(), StatementError, "Unable to find table item", "", "");
    QCOMPARE(model.tableName(), QString("item"));
    QVERIFY(model.record().isEmpty());
    QCOMPARE(model.rowCount(), 0);
    QCOMPARE(model.columnCount(), 0);
    QCOMPARE(model.fieldIndex("id"), -1);
    QCOMPARE(model.headerData(0, Qt::Horizontal), QVariant(1));
    QVERIFY(!model.canFetchMore());
}

void tst_ModelsTables::tableModelFindsNoTableByAnyName_data()
{
    QTest::addColumn<QString>("table");
    QTest::newRow("plain") << "item";
    QTest::newRow("in its schema") << "public.item";
    QTest::newRow("quoted") << "\"item\"";
    QTest::newRow("not there") << "nothing";
}

void tst_ModelsTables::tableModelFindsNoTableByAnyName()
{
    // The same for every way to write a name, and for a table that is not there.
    QFETCH(QString, table);
    if (cluster.major() < 12) {
        VERIFY_FATAL(
            inChild([table](QSqlDatabase own) { QSqlTableModel(nullptr, own).setTable(table); }),
            "DORVY: hlpDecodePSQLType - unknown ptype (0)");
        return;
    }
    QSqlTableModel model(nullptr, db);
    model.setTable(table);
    QCOMPARE(model.lastError().driverText(), "Unable to find table " + table);
}

void tst_ModelsTables::tableModelKnowsThePrimaryKey()
{
    if (cluster.major() < 12) {
        return; // see tableModelFindsNoTable
    }
    QSqlTableModel model(nullptr, db);
    model.setTable("item");
    QCOMPARE(model.primaryKey().count(), 1);
    QCOMPARE(model.primaryKey().fieldName(0), QString("id"));
    QCOMPARE(model.primaryKey().name(), QString("item_pkey"));
}

void tst_ModelsTables::primaryKeyOfUnknownTypeEndsTheProcess()
{
    cluster.run("CREATE TABLE fresh (address inet PRIMARY KEY)");
    VERIFY_FATAL(inChild([](QSqlDatabase own) { own.primaryIndex("fresh"); }),
                 "DORVY: hlpDecodePSQLType - unknown ptype (869)");
    const ChildOutcome outcome =
        inChild([](QSqlDatabase own) { QSqlTableModel(nullptr, own).setTable("fresh"); });
    QVERIFY(outcome.aborted);
    // The model asks for the columns first, which no server before 12 lets pass.
    QCOMPARE(outcome.fatal, cluster.major() < 12
                                ? QString("DORVY: hlpDecodePSQLType - unknown ptype (0)")
                                : QString("DORVY: hlpDecodePSQLType - unknown ptype (869)"));
}

void tst_ModelsTables::tableModelAsksTheCatalog()
{
    if (cluster.major() < 12) {
        return; // see tableModelFindsNoTable
    }
    QSqlTableModel model(nullptr, db);
    QCOMPARE(proxy->frontend(), QStringList());
    model.setTable("item");
    QCOMPARE(parsed(), QStringList({"own: columns", "own: primary key", "borrowed: primary key"}));
}

void tst_ModelsTables::tableModelSelectsNothing()
{
    if (cluster.major() < 12) {
        return; // see tableModelFindsNoTable
    }
    QSqlTableModel model(nullptr, db);
    model.setTable("item");
    proxy->clear();
    model.setFilter("id < 10");
    model.setSort(0, Qt::AscendingOrder);
    QVERIFY(!model.select());
    COMPARE_ERROR(model.lastError(), StatementError, NoTable, "", "");
    QCOMPARE(model.rowCount(), 0);
    model.sort(0, Qt::DescendingOrder);
    QVERIFY(!model.selectRow(0));
    QCOMPARE(model.rowCount(), 0);
    QCOMPARE(model.filter(), QString("id < 10"));
    QCOMPARE(proxy->frontend(), QStringList()); // no statement of any kind
}

void tst_ModelsTables::tableModelWritesNothing()
{
    if (cluster.major() < 12) {
        return; // see tableModelFindsNoTable
    }
    QSqlTableModel model(nullptr, db);
    model.setTable("item");
    proxy->clear();
    QSqlRecord item;
    item.append(QSqlField("id", QVariant::Int));
    item.setValue("id", 301);
    QVERIFY(!model.insertRecord(-1, item));
    COMPARE_ERROR(model.lastError(), StatementError, NoTable, "", "");
    QVERIFY(!model.setData(model.index(0, 0), 301));
    QVERIFY(!model.removeRow(0));
    QCOMPARE(model.rowCount(), 0);
    QVERIFY(!model.isDirty());
    QVERIFY(model.submitAll()); // of no change at all
    QCOMPARE(proxy->frontend(), QStringList());
}

void tst_ModelsTables::tableModelSubmitsNoInsertedRow()
{
    if (cluster.major() < 12) {
        return; // see tableModelFindsNoTable
    }
    QSqlTableModel model(nullptr, db);
    model.setTable("item");
    model.setEditStrategy(QSqlTableModel::OnManualSubmit);
    proxy->clear();
    QVERIFY(model.insertRow(0)); // a row without columns
    QCOMPARE(model.rowCount(), 1);
    QCOMPARE(model.columnCount(), 0);
    QVERIFY(model.isDirty());
    QVERIFY(!model.setData(model.index(0, 0), 301));
    QVERIFY(!model.submitAll());
    COMPARE_ERROR(model.lastError(), StatementError, "No Fields to update", "", "");
    model.revertAll();
    QCOMPARE(model.rowCount(), 0);
    QCOMPARE(proxy->frontend(), QStringList());
}

void tst_ModelsTables::tableModelSpoilsTheTransaction()
{
    if (cluster.major() < 12) {
        return; // see tableModelFindsNoTable
    }
    QSqlTableModel model(nullptr, db);
    QSqlQuery update(db);
    db.transaction();
    QVERIFY_SQL(update, update.exec("UPDATE item SET price = 1 WHERE id = 1"));
    model.setTable("item"); // from here on the transaction can only be rolled back
    QCOMPARE(model.lastError().driverText(), QString(NoTable));
    QVERIFY(model.primaryKey().isEmpty()); // the second question fails with the first
    QVERIFY(!update.exec("UPDATE item SET price = 2 WHERE id = 2"));
    COMPARE_ERROR(update.lastError(), StatementError, AbortedTransaction, FailedPreparation, "");
    QVERIFY(!db.commit());
    COMPARE_ERROR(db.lastError(), TransactionError, "Невозможно завершить транзакцию",
                  "Текущее состояние соединения запрещает завершение транзакции", "");
    QVERIFY_SQL(db, db.rollback());
    QCOMPARE(cluster.value("SELECT price FROM item WHERE id = 1"), QString("1.25"));
}

void tst_ModelsTables::tableModelBeforeTheTransactionIsHarmless()
{
    if (cluster.major() < 12) {
        return; // see tableModelFindsNoTable
    }
    QSqlTableModel model(nullptr, db);
    model.setTable("item");
    QSqlQuery update(db);
    QVERIFY_SQL(db, db.transaction());
    QVERIFY(!model.select());
    QVERIFY_SQL(update, update.exec("UPDATE item SET price = 1 WHERE id = 1"));
    QVERIFY_SQL(db, db.commit());
    QCOMPARE(cluster.value("SELECT price FROM item WHERE id = 1"), QString("1.00"));
}

void tst_ModelsTables::tableModelWithoutATableSaysSo()
{
    QSqlTableModel model(nullptr, db);
    QVERIFY(!model.select());
    QCOMPARE(model.lastError().driverText(), QString("No table name given"));
    QCOMPARE(proxy->frontend(), QStringList());
}

void tst_ModelsTables::tableModelOfClosedDatabaseFindsNoTable()
{
    db.close(); // on every server: a closed driver does not ask
    QSqlTableModel model(nullptr, db);
    model.setTable("item");
    COMPARE_ERROR(model.lastError(), StatementError, NoTable, "", "");
    QVERIFY(!model.select());
}

void tst_ModelsTables::relationalModelFindsNoTable()
{
    if (cluster.major() < 12) {
        VERIFY_FATAL(inChild([](QSqlDatabase own) {
                         QSqlRelationalTableModel(nullptr, own).setTable("item");
                     }),
                     "DORVY: hlpDecodePSQLType - unknown ptype (0)");
        return;
    }
    QSqlRelationalTableModel model(nullptr, db);
    model.setTable("item");
    COMPARE_ERROR(model.lastError(), StatementError, NoTable, "", "");
    model.setRelation(3, QSqlRelation("supplier", "id", "name"));
    QVERIFY(model.relation(3).isValid());
    proxy->clear();
    QVERIFY(!model.select());
    COMPARE_ERROR(model.lastError(), StatementError, NoTable, "", "");
    QCOMPARE(model.rowCount(), 0);
    QCOMPARE(proxy->frontend(), QStringList());
}

void tst_ModelsTables::relationModelFindsNoTable()
{
    // The table behind a relation is a table model too, and is made when it is asked for.
    if (cluster.major() < 12) {
        return; // see relationalModelFindsNoTable
    }
    QSqlRelationalTableModel model(nullptr, db);
    model.setTable("item");
    model.setRelation(3, QSqlRelation("supplier", "id", "name"));
    proxy->clear();
    const QSqlTableModel *suppliers = model.relationModel(3);
    QVERIFY(suppliers);
    QCOMPARE(suppliers->lastError().driverText(), QString("Unable to find table supplier"));
    QCOMPARE(suppliers->rowCount(), 0);
    QCOMPARE(parsed(), QStringList({"own: columns", "own: primary key", "borrowed: primary key"}));

    // Which costs an open transaction, as setTable() does.
    QSqlRelationalTableModel another(nullptr, db);
    another.setTable("item");
    another.setRelation(3, QSqlRelation("supplier", "id", "name"));
    QVERIFY_SQL(db, db.transaction());
    QVERIFY(another.relationModel(3));
    QVERIFY(!db.commit());
    QVERIFY_SQL(db, db.rollback());
}

void tst_ModelsTables::joinedRowsInAQueryModel()
{
    QSqlQueryModel model;
    model.setQuery("SELECT item.id, item.name, supplier.name AS supplier FROM item "
                   "JOIN supplier ON supplier.id = item.supplier ORDER BY item.id LIMIT 128",
                   db);
    QCOMPARE(model.rowCount(), 128);
    QCOMPARE(model.headerData(2, Qt::Horizontal), QVariant("supplier"));
    QCOMPARE(model.data(model.index(0, 2)), QVariant("Süd"));
    QCOMPARE(model.data(model.index(1, 2)), QVariant("Nord"));
    QSqlQueryModel suppliers; // for a combo box
    suppliers.setQuery("SELECT id, name FROM supplier ORDER BY name LIMIT 128", db);
    QCOMPARE(firstColumn(suppliers), range(1, 2));
}

QTEST_GUILESS_MAIN(tst_ModelsTables)
#include "tst_models_tables.moc"
