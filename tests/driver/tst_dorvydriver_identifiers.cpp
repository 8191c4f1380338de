// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// DorvyDriver: quoted identifiers and literals.
#include "tests/driver/catalogserver.h"
#include "tests/support/childprocess.h"
#include "tests/support/someerror.h"
#include "tests/support/sqlmacros.h"

#include <QtSql/QSqlField>
#include <QtSql/QSqlRecord>
#include <QtTest/QtTest>

class tst_DorvyDriverIdentifiers : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();
    void cleanupTestCase();

    void identifierIsQuoted_data();
    void identifierIsQuoted();
    void nullIdentifierStaysNull();
    void quotedIdentifierNamesTheTable();
    void statementsOfQtAreQuoted();
    void basesTestIsLeftAsItIs();

    void literalIsTheHandles_data();
    void literalIsTheHandles();
    void unknownFieldTypeEndsTheProcess();
    void literalReachesTheServer();

    void nothingIsSent();

private:
    CatalogServer server;
};

void tst_DorvyDriverIdentifiers::initTestCase()
{
    QVERIFY2(server.start(), qPrintable(server.cluster.why()));
}

void tst_DorvyDriverIdentifiers::cleanup()
{
    server.closeDriver();
}

void tst_DorvyDriverIdentifiers::cleanupTestCase()
{
    server.proxy.reset();
}

void tst_DorvyDriverIdentifiers::identifierIsQuoted_data()
{
    QTest::addColumn<QString>("identifier");
    QTest::addColumn<QString>("escaped");
    const auto row = [](const char *tag, const char *identifier, const char *escaped) {
        QTest::newRow(tag) << QString::fromUtf8(identifier) << QString::fromUtf8(escaped);
    };
    row("empty", "", "");
    row("plain", "orders", "\"orders\"");
    row("one character", "a", "\"a\"");
    row("upper case", "Orders", "\"Orders\"");
    row("blanks", " my table ", "\" my table \"");
    row("blank alone", " ", "\" \"");
    row("Russian", "Схема.Таблица", "\"Схема\".\"Таблица\"");
    row("outside the basic plane", "a\xf0\x9f\x90\x98.b", "\"a\xf0\x9f\x90\x98\".\"b\"");
    row("apostrophe", "o'brien", "\"o'brien\"");
    row("backslash", "a\\b", "\"a\\b\"");
    row("percent", "%1", "\"%1\"");
    row("brackets", "[a]", "\"[a]\"");

    row("full stop", "my.table", "\"my\".\"table\"");
    row("two full stops", "a.b.c", "\"a\".\"b\".\"c\"");
    row("three full stops", "a.b.c.d", "\"a\".\"b\".\"c\".\"d\"");
    row("full stop first", ".t", "\"\".\"t\"");
    row("full stop last", "t.", "\"t\".\"\"");
    row("full stop alone", ".", "\"\".\"\"");
    row("full stops side by side", "a..b", "\"a\".\"\".\"b\"");

    row("quote inside", "a\"b", "\"a\"\"b\"");
    row("two quotes inside", "a\"b\"c", "\"a\"\"b\"\"c\"");
    row("doubled quote inside", "a\"\"b", "\"a\"\"\"\"b\"");
    row("quote and full stop inside", "a\"b.c\"d", "\"a\"\"b\".\"c\"\"d\"");
    row("second part quoted first", "a.\"b.c", "\"a\".\"\"\"b\".\"c\"");

    row("quoted", "\"orders\"", "\"orders\"");
    row("quoted, upper case", "\"Orders\"", "\"Orders\"");
    row("both quoted", "\"a\".\"b\"", "\"a\".\"b\"");
    row("quoted full stop", "\"a.b\"", "\"a.b\"");
    row("quote first only", "\"orders", "\"orders");
    row("quote first only, full stop", "\"a.b", "\"a.b");
    row("quote last only", "orders\"", "orders\"");
    row("quote last only, full stop", "a.b\"", "a.b\"");
    row("first part quoted", "\"a\".b", "\"a\".b");
    row("second part quoted", "a.\"b\"", "a.\"b\"");
    row("quotes at both ends and inside", "\"a\"b\"", "\"a\"b\"");
    row("quote alone", "\"", "\"");
    row("two quotes", "\"\"", "\"\"");
    row("three quotes", "\"\"\"", "\"\"\"");
    row("blank before the quote", " \"a", "\" \"\"a\"");
}

void tst_DorvyDriverIdentifiers::identifierIsQuoted()
{
    QFETCH(QString, identifier);
    QFETCH(QString, escaped);
    const DorvyDriver closed(QSharedPointer<Dorvy3Transacted>::create());
    QCOMPARE(closed.escapeIdentifier(identifier, QSqlDriver::TableName), escaped);
    QCOMPARE(closed.escapeIdentifier(identifier, QSqlDriver::FieldName), escaped);
    QVERIFY_SQL(*server.driver, server.openDriver(QStringLiteral("postgres")));
    QCOMPARE(server.driver->escapeIdentifier(identifier, QSqlDriver::TableName), escaped);
    QCOMPARE(server.driver->escapeIdentifier(identifier, QSqlDriver::FieldName), escaped);
}

void tst_DorvyDriverIdentifiers::nullIdentifierStaysNull()
{
    const DorvyDriver driver(QSharedPointer<Dorvy3Transacted>::create());
    QVERIFY(driver.escapeIdentifier(QString(), QSqlDriver::TableName).isNull());
    QVERIFY(!driver.escapeIdentifier(QStringLiteral(""), QSqlDriver::TableName).isNull());
}

void tst_DorvyDriverIdentifiers::quotedIdentifierNamesTheTable()
{
    server.createDatabase(QStringLiteral("quoted"),
                          {"CREATE SCHEMA \"My Schema\"",
                           "CREATE TABLE \"My Schema\".\"My \"\"Table\" (\"My \"\" Field\" int)"});
    QVERIFY_SQL(*server.driver, server.openDriver(QStringLiteral("quoted")));
    const auto escape = [this](const char *name, QSqlDriver::IdentifierType type) {
        return server.driver->escapeIdentifier(QString::fromLatin1(name), type);
    };
    QVERIFY(server.execute(QStringLiteral("INSERT INTO ") +
                           escape("My Schema.My \"Table", QSqlDriver::TableName) +
                           QStringLiteral(" (") + escape("My \" Field", QSqlDriver::FieldName) +
                           QStringLiteral(") VALUES (7)")));
    QCOMPARE(server.cluster.value(
                 QStringLiteral("SELECT \"My \"\" Field\" FROM \"My Schema\".\"My \"\"Table\""),
                 QStringLiteral("quoted")),
             QStringLiteral("7"));
}

void tst_DorvyDriverIdentifiers::statementsOfQtAreQuoted()
{
    const DorvyDriver driver(QSharedPointer<Dorvy3Transacted>::create());
    QSqlRecord record;
    record.append(QSqlField(QStringLiteral("First Field"), QVariant::Int));
    record.append(QSqlField(QStringLiteral("second"), QVariant::Int));
    QCOMPARE(driver.sqlStatement(QSqlDriver::SelectStatement, QStringLiteral("acc.orders"), record,
                                 false),
             QStringLiteral("SELECT \"First Field\", \"second\" FROM \"acc\".\"orders\""));
}

void tst_DorvyDriverIdentifiers::basesTestIsLeftAsItIs()
{
    // What is returned unchanged for one quote is not an escaped identifier to Qt.
    const DorvyDriver driver(QSharedPointer<Dorvy3Transacted>::create());
    QVERIFY(!driver.isIdentifierEscaped(QStringLiteral("\"a"), QSqlDriver::TableName));
    QVERIFY(!driver.isIdentifierEscaped(QStringLiteral("a\""), QSqlDriver::TableName));
    QVERIFY(!driver.isIdentifierEscaped(QStringLiteral("\"\""), QSqlDriver::TableName));
    QVERIFY(driver.isIdentifierEscaped(QStringLiteral("\"a\""), QSqlDriver::TableName));
    QCOMPARE(driver.stripDelimiters(QStringLiteral("\"A\""), QSqlDriver::TableName),
             QStringLiteral("A"));
}

void tst_DorvyDriverIdentifiers::literalIsTheHandles_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("kept");
    QTest::addColumn<QString>("trimmed");
    const auto row = [](const char *tag, const QVariant &value, const char *kept,
                        const char *trimmed) {
        QTest::newRow(tag) << value << QString::fromUtf8(kept) << QString::fromUtf8(trimmed);
    };
    row("text with blanks", QStringLiteral("  a  "), "'  a  '", "'a'");
    row("blanks alone", QStringLiteral("  "), "'  '", "''");
    row("text with quote and backslash", QStringLiteral("O'Brien\\x "), "'O\\'Brien\\\\x '",
        "'O\\'Brien\\\\x'");
    row("Russian", QStringLiteral(" Ёж"), "' Ёж'", "'Ёж'");
    row("null text", QVariant(QVariant::String), "NULL", "NULL");
    row("number", 7, "7", "7");
    row("bool", true, "TRUE", "TRUE");
    row("double", 1.5, "1.5", "1.5");
    row("bytes with blanks", QByteArray(" a "), "' a '", "' a '");
    row("date", QDate(2016, 3, 1), "'2016-03-01'", "'2016-03-01'");
    row("null of an unknown type", QVariant(QVariant::UInt), "NULL", "NULL");
}

void tst_DorvyDriverIdentifiers::literalIsTheHandles()
{
    QFETCH(QVariant, value);
    QFETCH(QString, kept);
    QFETCH(QString, trimmed);
    QSqlField field(QStringLiteral("f"), value.type());
    field.setValue(value);
    const DorvyDriver closed(QSharedPointer<Dorvy3Transacted>::create());
    QCOMPARE(closed.formatValue(field, false), kept);
    QCOMPARE(closed.formatValue(field, true), trimmed);
    QVERIFY_SQL(*server.driver, server.openDriver(QStringLiteral("postgres")));
    QCOMPARE(server.driver->formatValue(field, false), kept);
    QCOMPARE(server.driver->formatValue(field, true), trimmed);
    const QSqlDriver &base = *server.driver;
    QCOMPARE(base.formatValue(field), kept); // Qt's own default
}

void tst_DorvyDriverIdentifiers::unknownFieldTypeEndsTheProcess()
{
    VERIFY_FATAL(runInChild([]() {
                     QSqlField field(QStringLiteral("f"), QVariant::UInt);
                     field.setValue(7U);
                     const DorvyDriver driver(QSharedPointer<Dorvy3Transacted>::create());
                     driver.formatValue(field, false);
                 }),
                 "DORVY: hlpPSQLValueToString - unknown field type (3)");
}

void tst_DorvyDriverIdentifiers::literalReachesTheServer()
{
    QVERIFY_SQL(*server.driver, server.openDriver(QStringLiteral("postgres")));
    QSqlField field(QStringLiteral("f"), QVariant::Date);
    field.setValue(QDate(2016, 3, 1));
    QSqlQuery query(server.driver->createResult());
    QVERIFY_SQL(query, query.exec(QStringLiteral("SELECT date ") +
                                  server.driver->formatValue(field, false)));
    QVERIFY(query.next());
    QCOMPARE(query.value(0).toDate(), QDate(2016, 3, 1));
}

void tst_DorvyDriverIdentifiers::nothingIsSent()
{
    QVERIFY_SQL(*server.driver, server.openDriver(QStringLiteral("postgres")));
    server.driver->setLastError(someError());
    QSqlField field(QStringLiteral("f"), QVariant::ByteArray);
    field.setValue(QByteArray("\\\0'", 3));
    server.driver->formatValue(field, true);
    server.driver->escapeIdentifier(QStringLiteral("a.b"), QSqlDriver::TableName);
    QCOMPARE(server.proxy->conversation(), QStringList());
    QCOMPARE(server.driver->lastError(), someError());
}

QTEST_GUILESS_MAIN(tst_DorvyDriverIdentifiers)
#include "tst_dorvydriver_identifiers.moc"
