// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// DorvyDriver: what it tells of tables, and how names and values are quoted in statement texts.
//
// The catalog is asked by ordinary queries of this driver, so the answers come from the borrowed
// connection and do not see what the application has not committed.
#include "driver/dorvydriver.h"

#include "driver/dorvydriver_p.h"
#include "driver/dorvytypes_p.h"

#include <QtSql/QSqlField>
#include <QtSql/QSqlIndex>
#include <QtSql/QSqlQuery>
#include <QtSql/QSqlRecord>

#include <new>

namespace {

// A type of variable length has attlen -1; its declared length follows four bytes of header in the
// type modifier.
constexpr int VariableLength = -1;
constexpr int ModifierHeaderBytes = 4;

const QLatin1Char Quote('"');
const QLatin1Char FullStop('.');

QString hlpSystemTablesText()
{
    return QStringLiteral(
        "SELECT relname FROM pg_class WHERE (relkind = 'r') AND (relname LIKE 'pg_%')");
}

// %1 is a kind of relation: r for tables, v for views.
QString hlpRelationsText()
{
    return QStringLiteral(
        "SELECT pg_class.relname, pg_namespace.nspname FROM pg_class "
        "LEFT JOIN pg_namespace ON (pg_class.relnamespace = pg_namespace.oid) "
        "WHERE (pg_class.relkind = '%1') AND (pg_class.relname !~ '^Inv') "
        "AND (pg_class.relname !~ '^pg_') AND (pg_namespace.nspname != 'information_schema') ");
}

// %1 is a condition on the schema, %2 the table.
QString hlpPrimaryIndexText()
{
    return QStringLiteral(
        "SELECT pg_attribute.attname, pg_attribute.atttypid::int, pg_class.relname "
        "FROM pg_attribute, pg_class WHERE %1 pg_class.oid IN "
        "(SELECT indexrelid FROM pg_index WHERE indisprimary = true AND indrelid IN  "
        "(SELECT oid FROM pg_class WHERE relname = '%2')) "
        "AND pg_attribute.attrelid = pg_class.oid AND pg_attribute.attisdropped = false "
        "ORDER BY pg_attribute.attnum");
}

// %1 and %2 as above. The server lost adsrc with version 12: from then on the query fails and every
// table's record is empty.
QString hlpRecordText()
{
    return QStringLiteral(
        "SELECT pg_attribute.attname, pg_attribute.atttypid::int, pg_attribute.attnotnull, "
        "pg_attribute.attlen, pg_attribute.atttypmod, pg_attrdef.adsrc "
        "FROM pg_class, pg_attribute LEFT join pg_attrdef "
        "ON (pg_attrdef.adrelid = pg_attribute.attrelid and pg_attrdef.adnum = "
        "pg_attribute.attnum) WHERE %1 AND pg_class.relname = '%2' AND pg_attribute.attnum > 0 "
        "AND pg_attribute.attrelid = pg_class.oid AND pg_attribute.attisdropped = false "
        "ORDER BY pg_attribute.attnum ");
}

QString hlpVisibleText()
{
    return QStringLiteral("pg_table_is_visible(pg_class.oid)");
}

// %1 is the schema.
QString hlpInSchemaText()
{
    return QStringLiteral("pg_class.relnamespace = (SELECT oid FROM pg_namespace WHERE "
                          "pg_namespace.nspname = '%1')");
}

void hlpAppendSystemTables(QSqlQuery &query, QStringList &names)
{
    query.exec(hlpSystemTablesText());
    while (query.next()) {
        names.append(query.value(0).toString());
    }
}

QString hlpNameInSchema(const QString &schema, const QString &name)
{
    const bool isPlain = schema.isEmpty() || schema == QStringLiteral("public");
    return isPlain ? name : schema + FullStop + name;
}

void hlpAppendRelations(QSqlQuery &query, QLatin1Char kind, QStringList &names)
{
    query.exec(hlpRelationsText().arg(kind));
    while (query.next()) {
        names.append(hlpNameInSchema(query.value(1).toString(), query.value(0).toString()));
    }
}

struct TableName
{
    QString schema;
    QString table;
};

// Quoted or not, a name loses its case: meant, see tst_dorvydriver_keys, keyIsFound.
QString hlpFolded(const QSqlDriver &driver, const QString &part)
{
    const bool isEscaped = driver.isIdentifierEscaped(part, QSqlDriver::TableName);
    return (isEscaped ? driver.stripDelimiters(part, QSqlDriver::TableName) : part).toLower();
}

TableName hlpSplit(const QSqlDriver &driver, const QString &name)
{
    const int stop = name.indexOf(FullStop);
    const QString schema = stop < 0 ? QString() : name.left(stop);
    return {hlpFolded(driver, schema), hlpFolded(driver, name.mid(stop + 1))};
}

// Names go into the text as they stand, a quote inside them included: meant, see
// tst_dorvydriver_keys, textOnTheWire.
QString hlpPrimaryIndexOf(const TableName &name)
{
    const QString condition = name.schema.isEmpty()
                                  ? hlpVisibleText() + QStringLiteral(" AND")
                                  : hlpInSchemaText().arg(name.schema) + QStringLiteral(" AND ");
    // One after the other: a %2 in the schema's name is replaced as well. Meant, see the same test.
    return hlpPrimaryIndexText().arg(condition).arg(name.table);
}

QString hlpRecordOf(const TableName &name)
{
    const QString condition =
        name.schema.isEmpty() ? hlpVisibleText() : hlpInSchemaText().arg(name.schema);
    return hlpRecordText().arg(condition).arg(name.table);
}

// A default that is a text loses its first and its last character, whatever that one is: meant, see
// tst_dorvydriver_columns, defaultIsDescribed.
QString hlpDefaultValue(QString source)
{
    if (source.startsWith(QLatin1Char('\''))) {
        source = source.mid(1, source.length() - 2);
    }
    return source;
}

// From the values of hlpRecordText(), by their place in it.
QSqlField hlpColumn(const QSqlQuery &query)
{
    int length = query.value(3).toInt();
    int precision = query.value(4).toInt();
    if (length == VariableLength && precision >= 0) {
        length = precision - ModifierHeaderBytes;
        precision = -1;
    }
    const QString defaultValue = hlpDefaultValue(query.value(5).toString());
    const int oid = query.value(1).toInt();

    QSqlField column(query.value(0).toString(), hlpDecodePSQLType(oid));
    column.setRequired(query.value(2).toBool());
    column.setLength(length);
    column.setPrecision(precision);
    column.setDefaultValue(defaultValue);
    column.setSqlType(oid);
    return column;
}

} // namespace

QStringList DorvyDriver::tables(QSql::TableType type) const
{
    QStringList names;
    if (!isOpen()) {
        return names;
    }
    QSqlQuery query(createResult());
    if (type & QSql::SystemTables) {
        hlpAppendSystemTables(query, names);
    }
    if (type & QSql::Tables) {
        hlpAppendRelations(query, QLatin1Char('r'), names);
    }
    if (type & QSql::Views) {
        hlpAppendRelations(query, QLatin1Char('v'), names);
    }
    return names;
}

QSqlIndex DorvyDriver::primaryIndex(const QString &tableName) const
{
    if (!isOpen()) {
        return QSqlIndex();
    }
    QSqlIndex index(tableName);
    QSqlQuery query(createResult());
    if (!query.exec(hlpPrimaryIndexOf(hlpSplit(*this, tableName)))) {
        return index;
    }
    while (query.next()) {
        index.append(
            QSqlField(query.value(0).toString(), hlpDecodePSQLType(query.value(1).toInt())));
        index.setName(query.value(2).toString());
    }
    return index;
}

QSqlRecord DorvyDriver::record(const QString &tableName) const
{
    QSqlRecord record;
    if (!isOpen()) {
        return record;
    }
    QSqlQuery query(createResult());
    // One column is read, and before the first row, where there is no type: wherever the query
    // succeeds, the process ends. Meant, see tst_dorvydriver_record,
    // readBeforeTheFirstRowEndsTheProcess.
    if (query.exec(hlpRecordOf(hlpSplit(*this, tableName))) && query.isActive()) {
        record.append(hlpColumn(query));
    }
    return record;
}

QString DorvyDriver::escapeIdentifier(const QString &identifier, IdentifierType /*type*/) const
{
    // One quote at either end is enough to count as quoted already; the base class wants both.
    if (identifier.isEmpty() || identifier.startsWith(Quote) || identifier.endsWith(Quote)) {
        return identifier;
    }
    QString escaped = identifier;
    escaped.replace(Quote, QStringLiteral("\"\""));
    escaped = Quote + escaped + Quote;
    return escaped.replace(FullStop, QStringLiteral("\".\""));
}

QString DorvyDriver::formatValue(const QSqlField &field, bool trimStrings) const
{
    Q_D(const DorvyDriver);
    try {
        return d->database.formatValue(field, trimStrings);
    } catch (const std::bad_alloc &) {
        return QString();
    }
}
