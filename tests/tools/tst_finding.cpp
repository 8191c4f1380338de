// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// A finding as a line: texts from servers and foreign files do nothing to a terminal.
#include "finding.h"

#include <QtTest/QtTest>

class tst_Finding : public QObject
{
    Q_OBJECT

private slots:
    void lines_data();
    void lines();
};

void tst_Finding::lines_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("shown");
    QTest::newRow("letters") << QStringLiteral("роль \"a\"") << QStringLiteral("роль \"a\"");
    QTest::newRow("lines") << QStringLiteral("one\n\ttwo\r") << QStringLiteral("one two");
    QTest::newRow("escape") << QStringLiteral("a\x1b[31mb") << QStringLiteral("a?[31mb");
    QTest::newRow("C1 escape") << QStringLiteral("a\u009bb") << QStringLiteral("a?b");
    for (const int mark : {0x200e, 0x200f, 0x202a, 0x202e, 0x2066, 0x2069}) {
        QTest::newRow(qPrintable(QStringLiteral("mark %1").arg(mark, 0, 16)))
            << QStringLiteral("a%1b").arg(QChar(mark)) << QStringLiteral("a?b");
    }
}

void tst_Finding::lines()
{
    QFETCH(QString, text);
    QFETCH(QString, shown);
    const QString head = QStringLiteral("FAILED   table              ");
    const QString id = QStringLiteral("table");
    QCOMPARE(toLine(failed(id, text, QString())), head + shown);
    QCOMPARE(toLine(failed(id, QStringLiteral("x"), text)), head + QStringLiteral("x -> ") + shown);
}

QTEST_GUILESS_MAIN(tst_Finding)
#include "tst_finding.moc"
