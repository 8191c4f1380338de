// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// What a query model of Qt's holds on the server, and how its tables are written beside it.
#include "tests/driver/editableitems.h"
#include "tests/driver/models.h"

#include <QtSql/QSqlQueryModel>

class tst_ModelsHolding : public QObject, private Models
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY2(start(), qPrintable(cluster.why())); }
    void init() { QVERIFY_SQL(db, openAnew()); }
    void cleanup() { closeForGood(); }

    void modelHoldsATransactionUntilItIsCleared();
    void modelBlocksAlterTableUntilItIsCleared();
    void modelKeepsItsPageAfterClose();
    void modelDoesNotSeeTheOpenTransaction();
    void failingModelSpoilsTheTransaction();
    void ownUpdateThenSetQueryAgain();
    void ownInsertAndDeleteThenSetQueryAgain();
    void editableModelWritesEachEdit();
    void editableModelTellsTheServersError();
    void editToAnEmptyTextIsNull();
    void editToAnEmptyTextIsRefusedWhereNullIs();
    void editInATransactionShowsAfterCommit();
};

void tst_ModelsHolding::modelHoldsATransactionUntilItIsCleared()
{
    const QString held =
        "SELECT count(*) FROM pg_stat_activity WHERE state = 'idle in transaction'";
    QSqlQueryModel model;
    model.setQuery("SELECT id FROM item WHERE id <= 10", db); // read to its end
    QCOMPARE(cluster.value(held), QString("1"));
    model.clear();
    QTRY_COMPARE(cluster.value(held), QString("0"));
}

void tst_ModelsHolding::modelBlocksAlterTableUntilItIsCleared()
{
    QSqlQueryModel model;
    model.setQuery("SELECT id FROM item WHERE id <= 10", db);
    QSqlQuery command(db);
    QVERIFY_SQL(command, command.exec("SET lock_timeout TO '200ms'")); // else it waits for ever
    QVERIFY(!command.exec("ALTER TABLE item ADD note text"));
    COMPARE_ERROR(command.lastError(), StatementError,
                  "ERROR:  canceling statement due to lock timeout\n",
                  "Ошибка при выполнении запроса к СУБД", "");
    model.clear();
    QVERIFY_SQL(command, command.exec("ALTER TABLE item ADD note text"));
}

void tst_ModelsHolding::modelKeepsItsPageAfterClose()
{
    QSqlQueryModel model;
    model.setQuery("SELECT id FROM item ORDER BY id", db);
    db.close();
    QCOMPARE(firstColumn(model), range(1, 128));
    QTest::ignoreMessage(QtWarningMsg, "QSqlQuery::exec: database not open");
    model.setQuery("SELECT id FROM item ORDER BY id", db);
    QCOMPARE(model.rowCount(), 0);
    VERIFY_NO_ERROR(model.lastError()); // Qt has not asked the driver
}

void tst_ModelsHolding::modelDoesNotSeeTheOpenTransaction()
{
    QSqlQueryModel model;
    QSqlQuery update(db);
    QVERIFY_SQL(db, db.transaction());
    QVERIFY_SQL(update, update.exec("UPDATE item SET name = 'renamed' WHERE id = 1"));
    model.setQuery("SELECT name FROM item WHERE id = 1", db);
    QCOMPARE(model.data(model.index(0, 0)), QVariant("item 1"));
    QVERIFY_SQL(db, db.commit());
    QCOMPARE(model.data(model.index(0, 0)), QVariant("item 1")); // until it is asked again
    model.setQuery("SELECT name FROM item WHERE id = 1", db);
    QCOMPARE(model.data(model.index(0, 0)), QVariant("renamed"));
}

void tst_ModelsHolding::failingModelSpoilsTheTransaction()
{
    QSqlQueryModel model;
    QSqlQuery update(db);
    QVERIFY_SQL(db, db.transaction());
    model.setQuery("SELECT nothing FROM item", db);
    QVERIFY(!update.exec("UPDATE item SET price = 1"));
    COMPARE_ERROR(update.lastError(), StatementError, AbortedTransaction, FailedPreparation, "");
    QVERIFY_SQL(db, db.rollback());
    QVERIFY_SQL(update, update.exec("UPDATE item SET price = 1"));
}

void tst_ModelsHolding::ownUpdateThenSetQueryAgain()
{
    QSqlQueryModel model;
    model.setQuery("SELECT id, name FROM item ORDER BY id LIMIT 128", db);
    proxy->clear();
    QSqlQuery update(db);
    update.prepare("UPDATE item SET name = ? WHERE id = ?");
    update.addBindValue("renamed");
    update.addBindValue(model.record(0).value("id"));
    update.exec();
    VERIFY_NO_ERROR(update.lastError());
    QCOMPARE(parsed(), QStringList({"own: UPDATE item SET name = $1 WHERE id = $2"}));
    QCOMPARE(model.data(model.index(0, 1)), QVariant("item 1")); // as it was read
    model.setQuery("SELECT id, name FROM item ORDER BY id LIMIT 128", db);
    QCOMPARE(model.data(model.index(0, 1)), QVariant("renamed"));
    QCOMPARE(cluster.value("SELECT name FROM item WHERE id = 1"), QString("renamed"));
}

void tst_ModelsHolding::ownInsertAndDeleteThenSetQueryAgain()
{
    QSqlQueryModel model;
    QSqlQuery command(db);
    command.prepare("INSERT INTO item (id, name) VALUES (?, ?)");
    command.addBindValue(0);
    command.addBindValue("first");
    command.exec();
    VERIFY_NO_ERROR(command.lastError());
    command.exec("DELETE FROM item WHERE id BETWEEN 2 AND 299");
    VERIFY_NO_ERROR(command.lastError());
    QCOMPARE(command.numRowsAffected(), 298);
    model.setQuery("SELECT id, name FROM item ORDER BY id LIMIT 128", db);
    QCOMPARE(firstColumn(model), QList<int>({0, 1, 300}));
    QCOMPARE(model.data(model.index(0, 1)), QVariant("first"));
}

void tst_ModelsHolding::editableModelWritesEachEdit()
{
    EditableItems model(db);
    const QModelIndex name = model.index(4, 1);
    QVERIFY(model.flags(name) & Qt::ItemIsEditable);
    QVERIFY(!(model.flags(model.index(4, 0)) & Qt::ItemIsEditable));
    QSignalSpy reset(&model, &QAbstractItemModel::modelReset);
    QVERIFY_SQL(model, model.setData(name, "O'Hara \\ Имя"));
    QCOMPARE(reset.count(), 1);
    QCOMPARE(model.data(model.index(4, 1)), QVariant("O'Hara \\ Имя"));
    QCOMPARE(cluster.value("SELECT name FROM item WHERE id = 5"), QString("O'Hara \\ Имя"));
    QVERIFY(!model.setData(model.index(4, 0), 6));
    QCOMPARE(model.rowCount(), 128);
}

void tst_ModelsHolding::editableModelTellsTheServersError()
{
    cluster.run("ALTER TABLE item ADD CHECK (name <> 'refused')");
    EditableItems model(db);
    QVERIFY(!model.setData(model.index(0, 1), "refused"));
    QVERIFY(isServersError(model.lastError(), "violates check constraint \"item_name_check\"",
                           FailedExecution));
    QCOMPARE(model.rowCount(), 128);
    QCOMPARE(model.data(model.index(0, 1)), QVariant("item 1"));
}

void tst_ModelsHolding::editToAnEmptyTextIsNull()
{
    cluster.run("ALTER TABLE item ALTER name DROP NOT NULL");
    EditableItems model(db);
    QVERIFY_SQL(model, model.setData(model.index(0, 1), ""));
    QVERIFY(model.data(model.index(0, 1)).isNull());
    QCOMPARE(cluster.value("SELECT name IS NULL FROM item WHERE id = 1"), QString("t"));
}

void tst_ModelsHolding::editToAnEmptyTextIsRefusedWhereNullIs()
{
    EditableItems model(db);
    QVERIFY(!model.setData(model.index(0, 1), ""));
    QVERIFY(isServersError(model.lastError(), "null value in column \"name\"", FailedExecution));
    QCOMPARE(model.data(model.index(0, 1)), QVariant("item 1"));
}

void tst_ModelsHolding::editInATransactionShowsAfterCommit()
{
    EditableItems model(db);
    QVERIFY_SQL(db, db.transaction());
    QVERIFY_SQL(model, model.setData(model.index(0, 1), "renamed"));
    QCOMPARE(model.data(model.index(0, 1)), QVariant("item 1"));
    QVERIFY_SQL(db, db.commit());
    model.refresh();
    QCOMPARE(model.data(model.index(0, 1)), QVariant("renamed"));
}

QTEST_GUILESS_MAIN(tst_ModelsHolding)
#include "tst_models_holding.moc"
