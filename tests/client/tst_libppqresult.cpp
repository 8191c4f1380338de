// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Questions to a result, asked of results that no server made.
#include "client/ppqresult.h"

#include "tests/support/libpqowners.h"

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtTest/QtTest>

#include <limits>
#include <vector>

namespace {

constexpr int Least = std::numeric_limits<int>::min();
constexpr int Most = std::numeric_limits<int>::max();

struct Attribute
{
    QByteArray name;
    Oid type = 25;
    int size = -1;
    int modifier = -1;
    int format = 1;
    Oid table = 0;
    int column = 0; // of the table
};

using Attributes = QList<Attribute>;
using Row = QList<QByteArray>; // a null value is SQL NULL

ResultPtr makeResult(const Attributes &attributes, const QList<Row> &rows = QList<Row>())
{
    QList<QByteArray> names;
    std::vector<PGresAttDesc> descriptions;
    for (const Attribute &attribute : attributes) {
        names += attribute.name;
        descriptions.push_back({names.last().data(), attribute.table, attribute.column,
                                attribute.format, attribute.type, attribute.size,
                                attribute.modifier});
    }
    ResultPtr result(PQmakeEmptyPGresult(nullptr, PGRES_TUPLES_OK));
    PQsetResultAttrs(result.get(), attributes.size(), descriptions.data());
    for (int row = 0; row < rows.size(); ++row) {
        for (int column = 0; column < attributes.size(); ++column) {
            QByteArray value = rows.at(row).at(column);
            PQsetvalue(result.get(), row, column, value.isNull() ? nullptr : value.data(),
                       value.isNull() ? -1 : value.size());
        }
    }
    return result;
}

Attribute named(const QByteArray &name)
{
    Attribute attribute;
    attribute.name = name;
    return attribute;
}

// One that has nothing of its default.
Attribute number()
{
    Attribute attribute;
    attribute.name = "number";
    attribute.type = 1700;
    attribute.size = 8;
    attribute.modifier = 655366;
    return attribute;
}

Attribute numberWith(void (*change)(Attribute &))
{
    Attribute attribute = number();
    change(attribute);
    return attribute;
}

} // namespace

Q_DECLARE_METATYPE(Attributes)

class tst_LibPpqResult : public QObject
{
    Q_OBJECT

private slots:
    void values_data();
    void values();
    void noValues_data();
    void noValues();
    void noValuesWithoutRows_data();
    void noValuesWithoutRows();
    void sameColumns_data();
    void sameColumns();
    void oneOfManyColumnsDiffers_data();
    void oneOfManyColumnsDiffers();
    void rowsAreNoPartOfTheColumns();
};

void tst_LibPpqResult::values_data()
{
    QTest::addColumn<QByteArray>("value");
    QTest::newRow("one byte") << QByteArray("a");
    QTest::newRow("empty") << QByteArray("");
    QTest::newRow("a zero") << QByteArray("\0", 1);
    QTest::newRow("zeros inside and at the end") << QByteArray("a\0b\0", 4);
    QTest::newRow("long") << QByteArray(100000, 'x');
}

// In every place of a result.
void tst_LibPpqResult::values()
{
    QFETCH(QByteArray, value);
    for (int row = 0; row < 3; ++row) {
        for (int column = 0; column < 3; ++column) {
            QList<Row> rows{Row{"b", QByteArray(), ""}, Row{QByteArray(), "", "c"},
                            Row{"", "d", QByteArray()}};
            rows[row][column] = value;
            const ResultPtr result = makeResult({named("a"), named("b"), named("c")}, rows);
            const char *bytes = nullptr;
            QCOMPARE(ppqValue(result.get(), row, column, &bytes), value.size());
            QCOMPARE(QByteArray(bytes, value.size()), value);
            QCOMPARE(bytes[value.size()], '\0');
            QCOMPARE(static_cast<const void *>(bytes),
                     static_cast<const void *>(PQgetvalue(result.get(), row, column)));
        }
    }
}

void tst_LibPpqResult::noValues_data()
{
    QTest::addColumn<int>("row");
    QTest::addColumn<int>("column");
    QTest::newRow("null") << 0 << 1;
    QTest::newRow("null in the last place") << 1 << 2;
    QTest::newRow("row -1") << -1 << 0;
    QTest::newRow("row behind the last") << 2 << 0;
    QTest::newRow("greatest row") << Most << 0;
    QTest::newRow("least row") << Least << 0;
    QTest::newRow("column -1") << 0 << -1;
    QTest::newRow("column -1 of the last row") << 1 << -1;
    QTest::newRow("column behind the last") << 0 << 3;
    QTest::newRow("column behind the last of the last row") << 1 << 3;
    QTest::newRow("greatest column") << 0 << Most;
    QTest::newRow("least column") << 0 << Least;
    QTest::newRow("neither") << 2 << 3;
    QTest::newRow("both -1") << -1 << -1;
    QTest::newRow("both greatest") << Most << Most;
    QTest::newRow("both least") << Least << Least;
}

void tst_LibPpqResult::noValues()
{
    QFETCH(int, row);
    QFETCH(int, column);
    const ResultPtr result = makeResult({named("a"), named("b"), named("c")},
                                        {{"1", QByteArray(), "3"}, {"4", "5", QByteArray()}});
    const char untouched[] = "untouched";
    const char *bytes = untouched;
    QCOMPARE(ppqValue(result.get(), row, column, &bytes), -1);
    QVERIFY(bytes == untouched);
}

void tst_LibPpqResult::noValuesWithoutRows_data()
{
    QTest::addColumn<int>("columnCount");
    QTest::addColumn<int>("status");
    QTest::newRow("no rows") << 1 << int(PGRES_TUPLES_OK);
    QTest::newRow("neither rows nor columns") << 0 << int(PGRES_TUPLES_OK);
    QTest::newRow("command") << 0 << int(PGRES_COMMAND_OK);
    QTest::newRow("error") << 0 << int(PGRES_FATAL_ERROR);
}

void tst_LibPpqResult::noValuesWithoutRows()
{
    QFETCH(int, columnCount);
    QFETCH(int, status);
    const ResultPtr described = makeResult({named("a")});
    const ResultPtr bare(PQmakeEmptyPGresult(nullptr, static_cast<ExecStatusType>(status)));
    const PGresult *result = columnCount > 0 ? described.get() : bare.get();
    for (const int row : {-1, 0, 1}) {
        for (const int column : {-1, 0, 1}) {
            const char untouched[] = "untouched";
            const char *bytes = untouched;
            QCOMPARE(ppqValue(result, row, column, &bytes), -1);
            QVERIFY(bytes == untouched);
        }
    }
}

void tst_LibPpqResult::sameColumns_data()
{
    QTest::addColumn<Attributes>("one");
    QTest::addColumn<Attributes>("other");
    QTest::addColumn<bool>("same");
    const auto row = [](const char *tag, const Attributes &one, const Attributes &other,
                        bool same) { QTest::newRow(tag) << one << other << same; };
    const auto changed = [&row](const char *tag, bool same, void (*change)(Attribute &)) {
        row(tag, {number()}, {numberWith(change)}, same);
    };
    row("the same", {number()}, {number()}, true);
    row("no columns", {}, {}, true);
    changed("other name", false, [](Attribute &a) { a.name = "other"; });
    changed("longer name", false, [](Attribute &a) { a.name = "numbers"; });
    changed("shorter name", false, [](Attribute &a) { a.name = "numbe"; });
    changed("no name", false, [](Attribute &a) { a.name = ""; });
    changed("name in capitals", false, [](Attribute &a) { a.name = "Number"; });
    changed("other type", false, [](Attribute &a) { a.type = 1701; });
    changed("greatest type", false, [](Attribute &a) { a.type = 0xffffffff; });
    changed("other size", false, [](Attribute &a) { a.size = 9; });
    changed("negative size", false, [](Attribute &a) { a.size = -8; });
    changed("other modifier", false, [](Attribute &a) { a.modifier = 655365; });
    changed("no modifier", false, [](Attribute &a) { a.modifier = -1; });
    changed("least modifier", false, [](Attribute &a) { a.modifier = Least; });
    changed("other format", true, [](Attribute &a) { a.format = 0; });
    changed("of a table", true, [](Attribute &a) {
        a.table = 16384;
        a.column = 1;
    });
    row("names empty", {named("")}, {named("")}, true);
    row("none and one", {}, {number()}, false);
    row("one more", {number()}, {number(), number()}, false);
    row("one more, without a name", {number()}, {number(), named("")}, false);
    row("in another order", {number(), named("a")}, {named("a"), number()}, false);
    row("twice the same name", {named("a"), named("a")}, {named("a"), named("a")}, true);
}

void tst_LibPpqResult::sameColumns()
{
    QFETCH(Attributes, one);
    QFETCH(Attributes, other);
    QFETCH(bool, same);
    const ResultPtr first = makeResult(one);
    const ResultPtr second = makeResult(other);
    QCOMPARE(ppqHasSameColumns(first.get(), second.get()) != 0, same);
    QCOMPARE(ppqHasSameColumns(second.get(), first.get()) != 0, same);
    QVERIFY(ppqHasSameColumns(first.get(), first.get()));
}

void tst_LibPpqResult::oneOfManyColumnsDiffers_data()
{
    QTest::addColumn<int>("place");
    QTest::newRow("first") << 0;
    QTest::newRow("in the middle") << 800;
    QTest::newRow("last") << 1599;
}

void tst_LibPpqResult::oneOfManyColumnsDiffers()
{
    QFETCH(int, place);
    const Attributes many = QVector<Attribute>(1600, number()).toList();
    const ResultPtr one = makeResult(many);
    QVERIFY(ppqHasSameColumns(one.get(), makeResult(many).get()));
    for (void (*const change)(Attribute &) :
         {+[](Attribute &a) { a.name = "other"; }, +[](Attribute &a) { a.type = 20; },
          +[](Attribute &a) { a.size = 4; }, +[](Attribute &a) { a.modifier = 5; }}) {
        Attributes changed = many;
        changed[place] = numberWith(change);
        const ResultPtr other = makeResult(changed);
        QVERIFY(!ppqHasSameColumns(one.get(), other.get()));
        QVERIFY(!ppqHasSameColumns(other.get(), one.get()));
    }
}

void tst_LibPpqResult::rowsAreNoPartOfTheColumns()
{
    const ResultPtr none = makeResult({number()});
    const ResultPtr some = makeResult({number()}, {{"1"}, {QByteArray()}});
    QVERIFY(ppqHasSameColumns(none.get(), some.get()));
    const ResultPtr bare(PQmakeEmptyPGresult(nullptr, PGRES_COMMAND_OK));
    QVERIFY(ppqHasSameColumns(bare.get(), makeResult({}).get()));
    QVERIFY(!ppqHasSameColumns(bare.get(), some.get()));
}

QTEST_GUILESS_MAIN(tst_LibPpqResult)
#include "tst_libppqresult.moc"
