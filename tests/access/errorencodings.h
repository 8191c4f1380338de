// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// addEncodingsOfErrors: server messages in several encodings, and how they are asked for.
#ifndef ERRORENCODINGS_H
#define ERRORENCODINGS_H

#include <QtTest/QtTest>

/*!
    Rows of a test: a database, options of its connection, and a text, as bytes on the wire, that asks
    for a column named "Щи", which there is not.
*/
inline void addEncodingsOfErrors()
{
    QTest::addColumn<QString>("database");
    QTest::addColumn<QString>("options");
    QTest::addColumn<QByteArray>("sql");
    QTest::newRow("UTF8") << QStringLiteral("postgres") << QString()
                          << QByteArray("SELECT \"\xD0\xA9\xD0\xB8\"");
    QTest::newRow("WIN1251") << QStringLiteral("db_win1251") << QString()
                             << QByteArray("SELECT \"\xD9\xE8\"");
    QTest::newRow("WIN1251 read as KOI8R")
        << QStringLiteral("db_win1251") << QStringLiteral("client_encoding=KOI8R")
        << QByteArray("SELECT \"\xFD\xC9\"");
    QTest::newRow("WIN1251 read as WIN866, which is CP866")
        << QStringLiteral("db_win1251") << QStringLiteral("client_encoding=WIN866")
        << QByteArray("SELECT \"\x99\xA8\"");
    QTest::newRow("SQL_ASCII is CP1251 whatever the locale")
        << QStringLiteral("db_sql_ascii") << QString() << QByteArray("SELECT \"\xD9\xE8\"");
}

#endif // ERRORENCODINGS_H
