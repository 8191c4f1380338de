// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The console lays rows out in columns.
#include "engine/table.h"
#include "engine/textwidth.h"

#include <QtTest/QtTest>

class tst_ConsoleTable : public QObject
{
    Q_OBJECT

private slots:
    void columnsAreAsWideAsTheirWidestCell();
    void headStandsAlone();
    void headOnEachPage();
    void headOnce();
    void pageIsFull();
    void nullIsNoText_data();
    void nullIsNoText();
    void width_data();
    void width();
    void controlCharactersBecomePictures_data();
    void controlCharactersBecomePictures();
    void paddedByColumnsOfTheTerminal();
};

void tst_ConsoleTable::columnsAreAsWideAsTheirWidestCell()
{
    Table table({{"id", true}, {"name", false}, {"n", false}}, Table::Once);
    table.add({"1", "apple", "x"});
    table.add({"200", "日本", ""});
    table.add({"30", "Привет", "y"});
    QCOMPARE(table.takePage(),
             (QStringList{"  id | name   | n", "-----+--------+---", "   1 | apple  | x",
                          " 200 | 日本   |", "  30 | Привет | y"}));
}

void tst_ConsoleTable::headStandsAlone()
{
    Table table({{"id", true}, {"a\nb", false}}, Table::OnEachPage);
    QCOMPARE(table.takePage(), (QStringList{" id | a␊b", "----+-----"}));
    QCOMPARE(table.takePage(), QStringList());
}

void tst_ConsoleTable::headOnEachPage()
{
    Table table({{"n", true}}, Table::OnEachPage);
    table.add({"1000"});
    QCOMPARE(table.takePage(), (QStringList{"    n", "------", " 1000"}));
    table.add({"10"});
    QCOMPARE(table.takePage(), (QStringList{"  n", "----", " 10"}));
}

void tst_ConsoleTable::headOnce()
{
    Table table({{"n", true}}, Table::Once);
    table.add({"1000"});
    QCOMPARE(table.takePage(), (QStringList{"    n", "------", " 1000"}));
    table.add({"10"});
    QCOMPARE(table.takePage(), QStringList{"   10"});
    table.add({"1000000"});
    QCOMPARE(table.takePage(), QStringList{" 1000000"});
}

void tst_ConsoleTable::pageIsFull()
{
    Table table({{"n", true}}, Table::Once);
    for (int row = 1; row < Table::PageRows; ++row) {
        table.add({QString::number(row)});
    }
    QVERIFY(!table.isPageFull());
    table.add({"128"});
    QVERIFY(table.isPageFull());
    QCOMPARE(table.takePage().size(), 2 + Table::PageRows);
    QVERIFY(!table.isPageFull());
}

void tst_ConsoleTable::nullIsNoText_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("cell");
    QTest::newRow("null") << QString() << " NULL";
    QTest::newRow("empty text") << ""
                                << "";
    QTest::newRow("the text") << "NULL"
                              << " 'NULL'";
    QTest::newRow("the text in quotes") << "'NULL'"
                                        << " ''NULL''";
    QTest::newRow("in lower case") << "null"
                                   << " null";
    QTest::newRow("with a line end") << "NULL\n"
                                     << " NULL␊";
    QTest::newRow("with more") << "NULLs"
                               << " NULLs";
}

void tst_ConsoleTable::nullIsNoText()
{
    QFETCH(QString, text);
    QFETCH(QString, cell);
    Table table({{"a", false}}, Table::Once);
    table.add({text});
    QCOMPARE(table.takePage().last(), cell);
}

void tst_ConsoleTable::width_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("columns");
    QTest::newRow("empty") << "" << 0;
    QTest::newRow("ASCII") << "abc" << 3;
    QTest::newRow("Cyrillic") << "Привет" << 6;
    QTest::newRow("wide") << "日本" << 4;
    QTest::newRow("wide, beyond the first plane") << "𠀀" << 2;
    QTest::newRow("combining") << QString("e") + QChar(0x301) << 1;
    QTest::newRow("zero width") << QString("a") + QChar(0x200b) + "b" << 2;
    QTest::newRow("half width") << "ｱ" << 1;
    QTest::newRow("nothing known of it") << QString(QChar(0x378)) << 1;
}

void tst_ConsoleTable::width()
{
    QFETCH(QString, text);
    QFETCH(int, columns);
    QCOMPARE(textWidth(text), columns);
}

void tst_ConsoleTable::controlCharactersBecomePictures_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("shown");
    QTest::newRow("none") << "a b"
                          << "a b";
    QTest::newRow("line end") << "a\nb"
                              << "a␊b";
    QTest::newRow("tabulator") << "a\tb"
                               << "a␉b";
    QTest::newRow("escape") << "\x1b[31m"
                            << "␛[31m";
    QTest::newRow("delete") << "\x7f"
                            << "␡";
    QTest::newRow("of the second set") << QString(QChar(0x9b)) + "31m"
                                       << "\uFFFD31m";
}

void tst_ConsoleTable::controlCharactersBecomePictures()
{
    QFETCH(QString, text);
    QFETCH(QString, shown);
    QCOMPARE(onOneLine(text), shown);
    QCOMPARE(textWidth(shown), text.size());
}

void tst_ConsoleTable::paddedByColumnsOfTheTerminal()
{
    QCOMPARE(padded("日", 4, false), QString("日  "));
    QCOMPARE(padded("日", 4, true), QString("  日"));
    QCOMPARE(padded("日本", 3, true), QString("日本"));
}

QTEST_GUILESS_MAIN(tst_ConsoleTable)
#include "tst_consoletable.moc"
