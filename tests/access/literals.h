// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// What the tests of literals share: fields, tables of literals, bytes as libpq writes them.
#ifndef LITERALS_H
#define LITERALS_H

#include "access/dorvy3.h"

#include <QtCore/QDateTime>
#include <QtSql/QSqlField>
#include <QtTest/QtTest>

#include <limits>

constexpr double Infinity = std::numeric_limits<double>::infinity();
constexpr double NotANumber = std::numeric_limits<double>::quiet_NaN();

// Central Europe, with summer time, written so that no zone files are needed.
constexpr char SummerZone[] = "CET-1CEST,M3.5.0,M10.5.0/3";

// The bytes 0 to 255 as libpq writes them where standard_conforming_strings is on, 16 a line.
constexpr char EveryByte[] =
    "\\000\\001\\002\\003\\004\\005\\006\\007\\010\\011\\012\\013\\014\\015\\016\\017"
    "\\020\\021\\022\\023\\024\\025\\026\\027\\030\\031\\032\\033\\034\\035\\036\\037"
    " !\"#$%&''()*+,-./"
    "0123456789:;<=>?"
    "@ABCDEFGHIJKLMNO"
    "PQRSTUVWXYZ[\\\\]^_"
    "`abcdefghijklmno"
    "pqrstuvwxyz{|}~\\177"
    "\\200\\201\\202\\203\\204\\205\\206\\207\\210\\211\\212\\213\\214\\215\\216\\217"
    "\\220\\221\\222\\223\\224\\225\\226\\227\\230\\231\\232\\233\\234\\235\\236\\237"
    "\\240\\241\\242\\243\\244\\245\\246\\247\\250\\251\\252\\253\\254\\255\\256\\257"
    "\\260\\261\\262\\263\\264\\265\\266\\267\\270\\271\\272\\273\\274\\275\\276\\277"
    "\\300\\301\\302\\303\\304\\305\\306\\307\\310\\311\\312\\313\\314\\315\\316\\317"
    "\\320\\321\\322\\323\\324\\325\\326\\327\\330\\331\\332\\333\\334\\335\\336\\337"
    "\\340\\341\\342\\343\\344\\345\\346\\347\\350\\351\\352\\353\\354\\355\\356\\357"
    "\\360\\361\\362\\363\\364\\365\\366\\367\\370\\371\\372\\373\\374\\375\\376\\377";

inline QString utf8(const char *text)
{
    return QString::fromUtf8(text);
}

inline QSqlField fieldOf(int type, const QVariant &value)
{
    QSqlField field(QStringLiteral("f"), static_cast<QVariant::Type>(type));
    field.setValue(value);
    return field;
}

inline QString format(const QSqlField &field, bool trimStrings = false)
{
    const Dorvy3Database neverOpened(QSharedPointer<Dorvy3Transacted>::create());
    return neverOpened.formatValue(field, trimStrings);
}

inline QString format(int type, const QVariant &value, bool trimStrings = false)
{
    return format(fieldOf(type, value), trimStrings);
}

inline QDateTime utc(const QDate &date, const QTime &time)
{
    return QDateTime(date, time, Qt::UTC);
}

inline QByteArray bytes(const char *data, int size)
{
    return QByteArray(data, size);
}

inline QByteArray everyByte()
{
    QByteArray all;
    for (int byte = 0; byte < 256; ++byte) {
        all.append(static_cast<char>(byte));
    }
    return all;
}

inline void addLiteralColumns()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("literal");
}

inline void row(const char *tag, int type, const QVariant &value, const char *literal)
{
    QTest::newRow(tag) << type << value << utf8(literal);
}

// The test function of a table of literals.
inline void compareRow(bool trimStrings)
{
    QFETCH(int, type);
    QFETCH(QVariant, value);
    QFETCH(QString, literal);
    QCOMPARE(format(type, value, trimStrings), literal);
}

inline void textRow(const char *tag, const char *text, const char *literal)
{
    row(tag, QVariant::String, utf8(text), literal);
}

inline void addByteColumns()
{
    QTest::addColumn<QByteArray>("value");
    QTest::addColumn<QByteArray>("standard");  // where standard_conforming_strings is on
    QTest::addColumn<QByteArray>("backslash"); // where it is off
}

inline void byteRow(const char *tag, const QByteArray &value, const QByteArray &standard,
                    const QByteArray &backslash)
{
    QTest::newRow(tag) << value << standard << backslash;
}

inline void byteRows()
{
    byteRow("empty", QByteArray(""), "''", "''");
    byteRow("plain", QByteArray("abc"), "'abc'", "'abc'");
    byteRow("blanks stay", QByteArray("  a "), "'  a '", "'  a '");
    byteRow("zero byte", bytes("\0", 1), "'\\000'", "'\\\\000'");
    byteRow("after a zero byte", bytes("a\0b\0\0", 5), "'a\\000b\\000\\000'",
            "'a\\\\000b\\\\000\\\\000'");
    byteRow("quote is doubled", QByteArray("'"), "''''", "''''");
    byteRow("backslash", QByteArray("\\"), "'\\\\'", "'\\\\\\\\'");
    byteRow("quote, backslash", QByteArray("'\\"), "'''\\\\'", "'''\\\\\\\\'");
    byteRow("backslash, quote", QByteArray("\\'"), "'\\\\'''", "'\\\\\\\\'''");
    byteRow("UTF-8 letter", QByteArray("\xd0\xb9"), "'\\320\\271'", "'\\\\320\\\\271'");
    byteRow("percent signs", QByteArray("%1%2"), "'%1%2'", "'%1%2'");
    const QByteArray every = QByteArray("'") + EveryByte + "'";
    byteRow("every byte", everyByte(), every, QByteArray(every).replace("\\", "\\\\"));
}

#endif // LITERALS_H
