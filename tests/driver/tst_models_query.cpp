// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Qt's query model on this driver, as an application uses it.
#include "tests/driver/allrows.h"
#include "tests/driver/models.h"

#include <QtCore/QSortFilterProxyModel>
#include <QtSql/QSqlField>
#include <QtSql/QSqlQueryModel>
#include <QtSql/QSqlRecord>

class tst_ModelsQuery : public QObject, private Models
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY2(start(), qPrintable(cluster.why())); }
    void init() { QVERIFY_SQL(db, openAnew()); }
    void cleanup() { closeForGood(); }

    void modelShowsTheFirstPage_data();
    void modelShowsTheFirstPage();
    void moreThanAPageIsCutOff();
    void rowsOfTheModel_data();
    void rowsOfTheModel();
    void columnsOfTheModel();
    void headersOfTheModel();
    void cellsHaveTheirTypes_data();
    void cellsHaveTheirTypes();
    void modelIsReadOnly();
    void recordAfterTheLastRowTurnsThePage();
    void recordFarAfterTheLastRowIsEmpty();
    void walkingTheModelsQueryTurnsItsPage();
    void walkedModelHasEmptyCells();
    void walkOfTheQueryHandedOverMovesTheModel();
    void walkSeesAllRows();
    void pagesByOffset();
    void pagesByKey();
    void allRowsInAModelOfOnesOwn();
    void allRowsKeepTheirBytes();
    void proxySortsThePageAlone();
    void proxyFiltersThePageAlone();
    void orderByAndWhereSeeAllRows();
    void proxySortsAllRowsOfOnesOwnModel();
    void failingQueryLeavesTheModelEmpty();
    void queryFailingWhenRunLeavesTheModelEmpty();
    void queryNotRunLeavesTheModelEmpty();
    void errorInALaterPageIsNotTheModels();
    void forwardOnlyQueryIsRefused();
    void commandInTheModelRunsOnce();
    void clearedModelIsEmpty();
};

void tst_ModelsQuery::modelShowsTheFirstPage_data()
{
    QTest::addColumn<bool>("isPrepared");
    QTest::newRow("setQuery(text, db)") << false;
    QTest::newRow("setQuery(prepared query)") << true;
}

void tst_ModelsQuery::modelShowsTheFirstPage()
{
    QFETCH(bool, isPrepared);
    QSqlQueryModel model;
    if (isPrepared) {
        QSqlQuery select(db);
        select.prepare("SELECT id, name FROM item WHERE id > ? ORDER BY id");
        select.addBindValue(0);
        QVERIFY_SQL(select, select.exec());
        model.setQuery(select);
    } else {
        model.setQuery("SELECT id, name FROM item ORDER BY id", db);
    }
    VERIFY_NO_ERROR(model.lastError());
    QCOMPARE(model.rowCount(), 128);
    QCOMPARE(model.columnCount(), 2);
    QCOMPARE(firstColumn(model), range(1, 128));
    QCOMPARE(model.data(model.index(0, 1)), QVariant("item 1"));
    QCOMPARE(model.data(model.index(127, 1)), QVariant("item 128"));
    QCOMPARE(firstColumn(model), range(1, 128)); // and again, from its start
}

void tst_ModelsQuery::moreThanAPageIsCutOff()
{
    QSqlQueryModel model;
    model.setQuery("SELECT id, name FROM item ORDER BY id", db);
    const int rows = model.rowCount();          // 128, of 300
    const bool canFetch = model.canFetchMore(); // false
    QCOMPARE(rows, 128);
    QVERIFY(!canFetch);
    proxy->clear();
    model.fetchMore();
    QCOMPARE(model.rowCount(), 128);
    QCOMPARE(proxy->frontend(), QStringList());
    for (const int row : {128, 299}) {
        QVERIFY(!model.index(row, 0).isValid());
        QVERIFY(!model.data(model.index(row, 0)).isValid());
    }
}

void tst_ModelsQuery::rowsOfTheModel_data()
{
    QTest::addColumn<int>("inTheTable");
    QTest::addColumn<int>("inTheModel");
    QTest::newRow("none") << 0 << 0;
    QTest::newRow("one") << 1 << 1;
    QTest::newRow("ten") << 10 << 10;
    QTest::newRow("one less than a page") << 127 << 127;
    QTest::newRow("exactly a page") << 128 << 128;
    QTest::newRow("one more than a page") << 129 << 128;
    QTest::newRow("three pages") << 300 << 128;
}

void tst_ModelsQuery::rowsOfTheModel()
{
    QFETCH(int, inTheTable);
    QFETCH(int, inTheModel);
    QSqlQueryModel model;
    model.setQuery(QString("SELECT id FROM item WHERE id <= %1 ORDER BY id").arg(inTheTable), db);
    VERIFY_NO_ERROR(model.lastError());
    QCOMPARE(model.rowCount(), inTheModel);
    QCOMPARE(model.columnCount(), 1);
    QVERIFY(!model.canFetchMore());
    model.fetchMore();
    QCOMPARE(firstColumn(model), range(1, inTheModel));
    QCOMPARE(model.headerData(0, Qt::Horizontal), QVariant("id"));
}

void tst_ModelsQuery::columnsOfTheModel()
{
    QSqlQueryModel model;
    model.setQuery("SELECT id, name, price FROM item ORDER BY id", db);
    QCOMPARE(model.record().count(), 3);
    QCOMPARE(model.record().field("id").type(), QVariant::Int);
    QCOMPARE(model.record().field("name").type(), QVariant::ByteArray); // text, of whatever length
    QCOMPARE(model.record().field("price").type(), QVariant::Double);
    QVERIFY(model.record().value("id").isNull());
    const QSqlRecord last = model.record(127);
    QCOMPARE(last.value("id"), QVariant(128));
    QCOMPARE(last.value("name"), QVariant("item 128"));
    QCOMPARE(last.value("price"), QVariant(128.25));
}

void tst_ModelsQuery::headersOfTheModel()
{
    QSqlQueryModel model;
    model.setQuery("SELECT id, name AS \"Имя\" FROM item ORDER BY id", db);
    QCOMPARE(model.headerData(0, Qt::Horizontal), QVariant("id"));
    QCOMPARE(model.headerData(1, Qt::Horizontal), QVariant("Имя"));
    QCOMPARE(model.headerData(0, Qt::Vertical), QVariant(1));
    model.setHeaderData(0, Qt::Horizontal, "Number");
    QCOMPARE(model.headerData(0, Qt::Horizontal), QVariant("Number"));
    QCOMPARE(model.record().fieldName(0), QString("id"));
}

void tst_ModelsQuery::cellsHaveTheirTypes_data()
{
    QTest::addColumn<QString>("expression");
    QTest::addColumn<QVariant>("cell");
    const auto row = [](const char *expression, const QVariant &cell) {
        QTest::newRow(expression) << QString(expression) << cell;
    };
    row("7", QVariant(7));
    row("7::int8", QVariant(Q_INT64_C(7)));
    row("'Имя'::text", QVariant("Имя"));
    row("'Имя'::varchar(20)", QVariant("Имя"));
    row("''::text", QVariant(""));
    row("12.50::numeric(8,2)", QVariant(12.5));
    row("true", QVariant(true));
    row("date '2024-02-29'", QVariant(QDate(2024, 2, 29)));
    row("timestamp '2024-02-29 12:30'", QVariant(QDateTime(QDate(2024, 2, 29), QTime(12, 30))));
    row("'\\x00ff'::bytea", QVariant(QByteArray("\x00\xff", 2)));
    row("NULL::int", QVariant(QVariant::Int));
    row("NULL::varchar", QVariant(QVariant::String));
    row("NULL::text", QVariant(QVariant::ByteArray)); // null texts have the column's type
}

void tst_ModelsQuery::cellsHaveTheirTypes()
{
    QFETCH(QString, expression);
    QFETCH(QVariant, cell);
    QSqlQueryModel model;
    model.setQuery("SELECT " + expression, db);
    QCOMPARE(model.rowCount(), 1);
    const QVariant shown = model.data(model.index(0, 0));
    QCOMPARE(shown.userType(), cell.userType());
    QCOMPARE(shown, cell);
    QCOMPARE(shown.isNull(), cell.isNull());
    QCOMPARE(model.data(model.index(0, 0), Qt::EditRole), cell);
    QVERIFY(!model.data(model.index(0, 0), Qt::DecorationRole).isValid());
}

void tst_ModelsQuery::modelIsReadOnly()
{
    QSqlQueryModel model;
    model.setQuery("SELECT id, name FROM item ORDER BY id", db);
    const QModelIndex cell = model.index(0, 1);
    QCOMPARE(model.flags(cell),
             Qt::ItemIsSelectable | Qt::ItemIsEnabled | Qt::ItemNeverHasChildren);
    QVERIFY(!model.setData(cell, "renamed"));
    QVERIFY(!model.insertRow(0));
    QVERIFY(!model.removeRow(0));
    QCOMPARE(model.data(cell), QVariant("item 1"));
    QVERIFY(model.removeColumn(0)); // of the model, not of the table
    QCOMPARE(model.columnCount(), 1);
    QCOMPARE(model.data(model.index(0, 0)), QVariant("item 1"));
}

void tst_ModelsQuery::recordAfterTheLastRowTurnsThePage()
{
    // Qt asks for one row more than it has counted, and the step from row 127 is the one that reads
    // the next page.
    QSqlQueryModel model;
    model.setQuery("SELECT id, name FROM item ORDER BY id", db);
    model.record(127);
    const QSqlRecord beyond = model.record(128);
    QCOMPARE(beyond.value("id"), QVariant(129));
    QVERIFY(beyond.value("name").isNull()); // asked for after the page had turned
    QCOMPARE(firstColumn(model), range(129, 256));
}

void tst_ModelsQuery::recordFarAfterTheLastRowIsEmpty()
{
    QSqlQueryModel model;
    model.setQuery("SELECT id, name FROM item ORDER BY id", db);
    for (const int row : {128, 299}) {
        model.record(0);
        const QSqlRecord beyond = model.record(row);
        QCOMPARE(beyond.count(), 2);
        QVERIFY(beyond.value("id").isNull());
    }
    QCOMPARE(firstColumn(model), range(1, 128));
}

void tst_ModelsQuery::walkingTheModelsQueryTurnsItsPage()
{
    QSqlQueryModel model;
    model.setQuery("SELECT id, name FROM item ORDER BY id", db);
    QSqlQuery walk = model.query(); // the model's own rows, not a copy of them
    for (int row = 1; row <= 129; ++row) {
        QVERIFY(walk.next());
        QCOMPARE(walk.value("id").toInt(), row);
    }
    QCOMPARE(model.rowCount(), 128);
    QCOMPARE(firstColumn(model), range(129, 256));
}

void tst_ModelsQuery::walkedModelHasEmptyCells()
{
    QSqlQueryModel model;
    model.setQuery("SELECT id, name FROM item ORDER BY id", db);
    QSqlQuery walk = model.query();
    int rows = 0;
    while (walk.next()) {
        ++rows;
    }
    QCOMPARE(rows, 300);
    QCOMPARE(model.rowCount(), 128); // which Qt counted once
    QVERIFY(!model.data(model.index(0, 0)).isValid());
    QVERIFY(!model.data(model.index(127, 1)).isValid());
    VERIFY_NO_ERROR(model.lastError());
}

void tst_ModelsQuery::walkOfTheQueryHandedOverMovesTheModel()
{
    QSqlQuery select(db);
    QVERIFY_SQL(select, select.exec("SELECT id FROM item ORDER BY id"));
    QSqlQueryModel model;
    model.setQuery(select);
    for (int row = 0; row < 129; ++row) {
        QVERIFY(select.next());
    }
    QCOMPARE(firstColumn(model), range(129, 256));
    // A new text gives the query rows of its own and leaves the model its page.
    QVERIFY_SQL(select, select.exec("SELECT 1"));
    QCOMPARE(firstColumn(model), range(129, 256));
}

void tst_ModelsQuery::walkSeesAllRows()
{
    QStringList names;
    QSqlQuery select("SELECT name FROM item ORDER BY id", db);
    while (select.next()) {
        names += select.value(0).toString();
    }
    QCOMPARE(names.size(), 300);
    QCOMPARE(names.first(), QString("item 1"));
    QCOMPARE(names.at(127), QString("item 128"));
    QCOMPARE(names.at(128), QString("item 129"));
    QCOMPARE(names.last(), QString("item 300"));
}

void tst_ModelsQuery::pagesByOffset()
{
    const QString text = "SELECT id, name FROM item ORDER BY id LIMIT 128 OFFSET %1";
    QSqlQueryModel model;
    QList<int> rows;
    for (int offset = 0; offset < 300; offset += 128) {
        model.setQuery(text.arg(offset), db);
        rows += model.rowCount(); // 128, 128, 44
        QCOMPARE(model.data(model.index(0, 0)), QVariant(offset + 1));
    }
    QCOMPARE(rows, (QList<int>{128, 128, 44}));
    QCOMPARE(firstColumn(model), range(257, 300));
}

void tst_ModelsQuery::pagesByKey()
{
    QSqlQueryModel model;
    QList<int> seen;
    int last = 0;
    do {
        QSqlQuery page(db);
        page.prepare("SELECT id, name FROM item WHERE id > ? ORDER BY id LIMIT 128");
        page.addBindValue(last);
        page.exec();
        VERIFY_NO_ERROR(page.lastError());
        model.setQuery(page);
        seen += firstColumn(model);
        QVERIFY(seen.size() <= 300);
        last = model.record(model.rowCount() - 1).value("id").toInt();
    } while (model.rowCount() == 128);
    QCOMPARE(seen, range(1, 300));
}

void tst_ModelsQuery::allRowsInAModelOfOnesOwn()
{
    QSqlQuery select("SELECT id, name FROM item ORDER BY id", db);
    AllRows model;
    model.load(select);
    select.finish(); // nothing is held on the server any more
    QCOMPARE(model.rowCount(), 300);
    QCOMPARE(model.columnCount(), 2);
    QCOMPARE(firstColumn(model), range(1, 300));
    QCOMPARE(model.data(model.index(299, 1)), QVariant("item 300"));
    QCOMPARE(model.headerData(1, Qt::Horizontal, Qt::DisplayRole), QVariant("name"));
}

void tst_ModelsQuery::allRowsKeepTheirBytes()
{
    QSqlQuery select("SELECT id, decode('00ff' || lpad(to_hex(id), 4, '0'), 'hex') FROM item "
                     "ORDER BY id",
                     db);
    AllRows model;
    model.load(select);
    select.finish();
    QCOMPARE(model.data(model.index(0, 1)), QVariant(QByteArray("\x00\xff\x00\x01", 4)));
    QCOMPARE(model.data(model.index(127, 1)), QVariant(QByteArray("\x00\xff\x00\x80", 4)));
    QCOMPARE(model.data(model.index(299, 1)), QVariant(QByteArray("\x00\xff\x01\x2c", 4)));
}

void tst_ModelsQuery::proxySortsThePageAlone()
{
    QSqlQueryModel model;
    model.setQuery("SELECT id, name FROM item ORDER BY id", db);
    QSortFilterProxyModel sorted;
    sorted.setSourceModel(&model);
    sorted.sort(0, Qt::DescendingOrder);
    const int greatest = sorted.data(sorted.index(0, 0)).toInt(); // 128, of 300
    QCOMPARE(greatest, 128);
    QCOMPARE(sorted.rowCount(), 128);
    QCOMPARE(sorted.data(sorted.index(127, 0)).toInt(), 1);
}

void tst_ModelsQuery::proxyFiltersThePageAlone()
{
    QSqlQueryModel model;
    model.setQuery("SELECT id, name FROM item ORDER BY id", db);
    QSortFilterProxyModel filtered;
    filtered.setSourceModel(&model);
    filtered.setFilterKeyColumn(1);
    filtered.setFilterFixedString("item 12"); // 12 and 120 to 129
    QCOMPARE(firstColumn(filtered), QList<int>({12}) + range(120, 128));
    filtered.setFilterFixedString("item 200");
    QCOMPARE(filtered.rowCount(), 0);
}

void tst_ModelsQuery::orderByAndWhereSeeAllRows()
{
    QSqlQueryModel model;
    model.setQuery("SELECT id, name FROM item ORDER BY id DESC LIMIT 128", db);
    QCOMPARE(model.data(model.index(0, 0)), QVariant(300));
    model.setQuery("SELECT id, name FROM item WHERE name = 'item 200'", db);
    QCOMPARE(firstColumn(model), range(200, 200));
}

void tst_ModelsQuery::proxySortsAllRowsOfOnesOwnModel()
{
    QSqlQuery select("SELECT id, name FROM item ORDER BY id", db);
    AllRows model;
    model.load(select);
    QSortFilterProxyModel sorted;
    sorted.setSourceModel(&model);
    sorted.sort(0, Qt::DescendingOrder);
    QCOMPARE(sorted.rowCount(), 300);
    QCOMPARE(sorted.data(sorted.index(0, 0)), QVariant(300));
}

void tst_ModelsQuery::failingQueryLeavesTheModelEmpty()
{
    QSqlQueryModel model;
    model.setQuery("SELECT id FROM item", db);
    model.setQuery("SELECT nothing FROM item", db);
    QCOMPARE(model.rowCount(), 0);
    QCOMPARE(model.columnCount(), 0);
    QVERIFY(model.record().isEmpty());
    QVERIFY(!model.canFetchMore());
    COMPARE_ERROR(model.lastError(), StatementError,
                  "ERROR:  column \"nothing\" does not exist\nLINE 1: SELECT nothing FROM item\n"
                  "               ^\n",
                  "Ошибка при подготовке запроса к СУБД", "");
    model.setQuery("SELECT id FROM item", db);
    VERIFY_NO_ERROR(model.lastError());
    QCOMPARE(model.rowCount(), 128);
}

void tst_ModelsQuery::queryFailingWhenRunLeavesTheModelEmpty()
{
    QSqlQuery select(db);
    QVERIFY_SQL(select, select.prepare("SELECT 1 / ?::int"));
    select.addBindValue(0);
    QVERIFY(!select.exec());
    QSqlQueryModel model;
    model.setQuery(select);
    QCOMPARE(model.rowCount(), 0);
    COMPARE_ERROR(model.lastError(), StatementError, "ERROR:  division by zero\n",
                  "Ошибка при выполнении запроса к СУБД", "");
}

void tst_ModelsQuery::queryNotRunLeavesTheModelEmpty()
{
    QSqlQuery select(db);
    QVERIFY_SQL(select, select.prepare("SELECT id FROM item"));
    QSqlQueryModel model;
    model.setQuery(select);
    QCOMPARE(model.rowCount(), 0);
    QCOMPARE(model.columnCount(), 0);
    VERIFY_NO_ERROR(model.lastError());
}

void tst_ModelsQuery::errorInALaterPageIsNotTheModels()
{
    // The model has no later page; who walks the query meets the error there.
    const QString text = "SELECT 1 / (200 - id) FROM item ORDER BY id";
    QSqlQueryModel model;
    model.setQuery(text, db);
    QCOMPARE(model.rowCount(), 128);
    VERIFY_NO_ERROR(model.lastError());
    QSqlQuery walk(text, db);
    int rows = 0;
    while (walk.next()) {
        ++rows;
    }
    QCOMPARE(rows, 128);
    COMPARE_ERROR(walk.lastError(), StatementError, "ERROR:  division by zero\n",
                  "Ошибка при выполнении запроса к СУБД", "");
}

void tst_ModelsQuery::forwardOnlyQueryIsRefused()
{
    QSqlQuery select(db);
    select.setForwardOnly(true);
    QVERIFY_SQL(select, select.exec("SELECT id FROM item"));
    QSqlQueryModel model;
    model.setQuery(select);
    QCOMPARE(model.rowCount(), 0);
    QCOMPARE(model.lastError().driverText(),
             QString("Forward-only queries cannot be used in a data model"));
}

void tst_ModelsQuery::commandInTheModelRunsOnce()
{
    QSqlQueryModel model;
    model.setQuery("UPDATE item SET price = price + 1 WHERE id <= 5", db);
    VERIFY_NO_ERROR(model.lastError());
    QCOMPARE(model.rowCount(), 0);
    QCOMPARE(model.columnCount(), 0);
    QCOMPARE(model.query().numRowsAffected(), 5);
    QVERIFY(model.canFetchMore()); // Qt's word for "no size known", which stays
    model.fetchMore();
    QCOMPARE(model.rowCount(), 0);
    QCOMPARE(cluster.value("SELECT price FROM item WHERE id = 5"), QString("6.25"));
}

void tst_ModelsQuery::clearedModelIsEmpty()
{
    QSqlQueryModel model;
    model.setQuery("SELECT id FROM item ORDER BY id", db);
    model.setHeaderData(0, Qt::Horizontal, "Number");
    model.clear();
    QCOMPARE(model.rowCount(), 0);
    QCOMPARE(model.columnCount(), 0);
    QVERIFY(model.record().isEmpty());
    QVERIFY(!model.query().isActive());
    QCOMPARE(model.headerData(0, Qt::Horizontal), QVariant(1));
    model.setQuery("SELECT id FROM item ORDER BY id", db);
    QCOMPARE(model.rowCount(), 128);
    QCOMPARE(model.headerData(0, Qt::Horizontal), QVariant("id"));
}

QTEST_GUILESS_MAIN(tst_ModelsQuery)
#include "tst_models_query.moc"
