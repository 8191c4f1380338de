// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
// cellText: what a cell shows of each kind of value.
#include "examples/viewer/celltext.h"

#include <QtCore/QDateTime>
#include <QtCore/QUuid>
#include <QtSql/QSqlField>
#include <QtTest/QtTest>

#include <limits>

class tst_ViewerCellText : public QObject
{
    Q_OBJECT

private slots:
    void text_data();
    void text();
    void longTextIsCutOff_data();
    void longTextIsCutOff();
    void jsonbIsCutOffAsAText();
};

void tst_ViewerCellText::text_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("shown");
    const QDate leap(2024, 2, 29);
    const auto row = [](const char *tag, const QVariant &value, const char *shown) {
        QTest::newRow(tag) << value << QString::fromUtf8(shown);
    };
    row("NULL", QVariant(), "NULL");
    row("the word", QStringLiteral("NULL"), "NULL");
    row("empty text", QString(), "");
    row("text", QStringLiteral("жук"), "жук");
    row("true", true, "true");
    row("false", false, "false");
    row("smallint", QVariant::fromValue<short>(-7), "-7");
    row("bigint", std::numeric_limits<qlonglong>::min(), "-9223372036854775808");
    row("double", 0.1, "0.1");
    row("double of many digits", 1.0 / 3, "0.3333333333333333");
    row("real", 0.1F, "0.1");
    row("infinity", std::numeric_limits<double>::infinity(), "Infinity");
    row("empty bytes", QByteArray(), "\\x");
    row("bytes", QByteArray("\0\xff", 2), "\\x00ff");
    row("date", leap, "2024-02-29");
    row("time", QTime(12, 34, 56), "12:34:56");
    row("time with milliseconds", QTime(12, 34, 56, 7), "12:34:56.007");
    row("timestamp", QDateTime(leap, QTime(1, 2, 3)), "2024-02-29 01:02:03");
    row("uuid", QUuid("{12345678-1234-5678-9abc-def012345678}"),
        "12345678-1234-5678-9abc-def012345678");
}

void tst_ViewerCellText::text()
{
    QFETCH(QVariant, value);
    QFETCH(QString, shown);
    QCOMPARE(cellText(value, QSqlField()), shown);
}

void tst_ViewerCellText::longTextIsCutOff_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("shown");
    QTest::newRow("fits") << QVariant(QStringLiteral("12345678")) << QStringLiteral("12345678");
    QTest::newRow("one too many") << QVariant(QStringLiteral("123456789"))
                                  << QStringLiteral("12345678…");
    QTest::newRow("bytes fit") << QVariant(QByteArray(3, '\0')) << QStringLiteral("\\x000000");
    QTest::newRow("one byte too many")
        << QVariant(QByteArray(4, '\0')) << QStringLiteral("\\x000000…");
    QTest::newRow("many bytes") << QVariant(QByteArray(1000, '\0')) << QStringLiteral("\\x000000…");
}

void tst_ViewerCellText::longTextIsCutOff()
{
    QFETCH(QVariant, value);
    QFETCH(QString, shown);
    QCOMPARE(cellText(value, QSqlField(), 8), shown);
}

void tst_ViewerCellText::jsonbIsCutOffAsAText()
{
    QSqlField field;
    field.setSqlType(3802); // jsonb, which comes with its version in front
    const QString text = QStringLiteral("\"жуки\"");
    QCOMPARE(cellText('\x01' + text.toUtf8(), field, 6), text);
    QCOMPARE(cellText('\x01' + text.toUtf8(), field, 5), QStringLiteral("\"жуки…"));
    const QString wide = QStringLiteral("日").repeated(1000);
    QCOMPARE(cellText('\x01' + wide.toUtf8(), field, 5), wide.left(5) + QChar(0x2026));
}

QTEST_GUILESS_MAIN(tst_ViewerCellText)
#include "tst_viewer_celltext.moc"
