// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
// The SELECT that shows a table.
#include "examples/viewer/tablequery.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QStringList>
#include <QtCore/QVariant>
#include <QtSql/QSqlDatabase>
#include <QtSql/QSqlError>
#include <QtSql/QSqlQuery>

namespace {

// The tables that tables() calls by this name, column by column. QSqlDatabase::record() would be the
// plain way, but does not describe tables in this driver. The server quotes the names: to
// escapeIdentifier() a full stop in a name is one between two names, and a quote at a name's end means
// that the name is quoted already.
QString columnsText()
{
    return QStringLiteral(
        "SELECT quote_ident(n.nspname) || '.' || quote_ident(c.relname), quote_ident(a.attname), "
        "a.atttypid::int8 "
        "FROM pg_class c JOIN pg_namespace n ON n.oid = c.relnamespace "
        "LEFT JOIN pg_attribute a ON a.attrelid = c.oid AND a.attnum > 0 AND NOT a.attisdropped "
        "WHERE c.relkind IN ('r', 'v') AND ? = "
        "CASE n.nspname WHEN 'public' THEN '' ELSE n.nspname || '.' END || c.relname "
        "ORDER BY c.oid, a.attnum");
}

// A column of a type that the driver does not know ends the process, so only these are read as they
// are. Numeric would lose digits and char(n) leading blanks, dates and times have values that Qt has not
// (infinity, 24:00), and jsonb has a version in front: as text they are what the server shows.
bool isReadAsItIs(qlonglong type)
{
    switch (type) { // an OID in pg_type
    case 16:        // bool
    case 17:        // bytea
    case 19:        // name
    case 20:        // int8
    case 21:        // int2
    case 23:        // int4
    case 25:        // text
    case 700:       // float4
    case 701:       // float8
    case 1043:      // varchar
    case 2950:      // uuid
        return true;
    default:
        return false;
    }
}

QString columnText(const QSqlQuery &query)
{
    const QString name = query.value(1).toString();
    return isReadAsItIs(query.value(2).toLongLong()) ? name : name + QStringLiteral("::text");
}

QSqlError unknownTable(const QString &table)
{
    return QSqlError(
        QCoreApplication::translate("TableQuery", "There is no table \"%1\" any more.").arg(table),
        QString(), QSqlError::StatementError);
}

} // namespace

QString selectOf(const QSqlDatabase &database, const QString &table, QSqlError *error)
{
    QSqlQuery query(database);
    if (query.prepare(columnsText())) {
        query.addBindValue(table);
        query.exec();
    }
    QString from;
    QStringList columns;
    // Two tables may have one name there: "b" in a schema "a", and "a.b" in the schema "public".
    while (query.next() && (from.isEmpty() || from == query.value(0).toString())) {
        from = query.value(0).toString();
        if (!query.isNull(1)) { // a table may have no columns
            columns.append(columnText(query));
        }
    }
    *error = query.lastError();
    if (error->isValid()) {
        return QString();
    }
    if (from.isEmpty()) {
        *error = unknownTable(table);
        return QString();
    }
    return QStringLiteral("SELECT %1 FROM %2").arg(columns.join(QStringLiteral(", ")), from);
}
