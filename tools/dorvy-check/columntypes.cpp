// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Which columns of a table or a query the driver reads, found out without reading them.
#include "columntypes.h"

#include "serversession.h"
#include "typetable.h"

#include <QtCore/QJsonArray>
#include <QtCore/QRegularExpression>
#include <QtCore/QVector>
#include <QtSql/QSqlQuery>

namespace {

// A type as the server tells it: base is the type that is sent for a domain.
struct ServerType
{
    QString name;
    int oid;
    int base;
};

ServerType hlpType(const QJsonObject &object)
{
    // OIDs have 32 bits without a sign; the driver's have one.
    const auto oid = [&object](const char *key) {
        return static_cast<int>(static_cast<uint>(object.value(QLatin1String(key)).toDouble()));
    };
    return {object.value(QStringLiteral("type")).toString(), oid("oid"), oid("base")};
}

// The columns "oid", "type", "base" for an expression that is the OID of a type.
QString hlpTypeColumns(const QString &oid, const QString &modifier)
{
    return QStringLiteral(
               "%1::int8 AS oid, format_type(%1, %2) AS type, "
               "(WITH RECURSIVE b(oid, base) AS (SELECT oid, typbasetype FROM pg_type "
               "WHERE oid = %1 UNION ALL SELECT p.oid, p.typbasetype FROM pg_type p JOIN b "
               "ON p.oid = b.base) SELECT b.oid::int8 FROM b WHERE b.base = 0) AS base")
        .arg(oid, modifier);
}

// Types by their OIDs, in the order of the array that the text in source gives.
QString hlpTypesOf(const QString &source)
{
    return QStringLiteral("SELECT json_agg(row_to_json(t) ORDER BY t.n)::text FROM (SELECT u.n, %1 "
                          "FROM (%2) s(oids), unnest(s.oids) WITH ORDINALITY AS u(oid, n)) t")
        .arg(hlpTypeColumns(QStringLiteral("u.oid"), QStringLiteral("NULL")), source);
}

QJsonObject hlpData(const QString &name, const ServerType &type)
{
    return {{QStringLiteral("name"), name},
            {QStringLiteral("type"), type.name},
            {QStringLiteral("oid"), static_cast<double>(static_cast<uint>(type.oid))}};
}

// As SQL takes it: what is not all lower case stands in quotes.
QString hlpIdentifier(const QString &name)
{
    static const QRegularExpression plain(QStringLiteral("^[a-z_][a-z0-9_]*$"));
    if (plain.match(name).hasMatch()) {
        return name;
    }
    return QLatin1Char('"') + QString(name).replace(QLatin1Char('"'), QLatin1String("\"\"")) +
           QLatin1Char('"');
}

QString hlpWhat(const QString &name, const ServerType &type)
{
    return QStringLiteral("%1 %2 (%3)")
        .arg(name, type.name, QString::number(static_cast<uint>(type.oid)));
}

Finding hlpColumn(const QString &name, const ServerType &type)
{
    const QString id = QStringLiteral("column");
    const ReadForm form = readForm(type.base);
    QJsonObject data = hlpData(name, type);
    data.insert(QStringLiteral("value"), form.value);
    data.insert(QStringLiteral("described"), form.described);
    data.insert(QStringLiteral("cast"), form.cast);
    if (!form.isRead) {
        return failed(
            id, hlpWhat(name, type) + QStringLiteral(": reading it ends the process"),
            QStringLiteral("write %1%2 %3").arg(hlpIdentifier(name), form.cast, form.note), data);
    }
    QString what = hlpWhat(name, type) + QStringLiteral(": ") + form.value;
    if (!form.note.isEmpty()) {
        what += QStringLiteral(", ") + form.note;
    }
    return ok(id, what, data);
}

Finding hlpParameter(const QString &name, const ServerType &type)
{
    const QString id = QStringLiteral("parameter");
    const SendForm form = sendForm(type.oid, type.name);
    QJsonObject data = hlpData(name, type);
    data.insert(QStringLiteral("cast"), form.cast);
    const QString what = hlpWhat(name, type) + QStringLiteral(": ") +
                         (form.note.isEmpty() ? QStringLiteral("sent as it is") : form.note);
    const QString remedy =
        form.cast.isEmpty() ? QString() : QStringLiteral("write ?%1").arg(form.cast);
    return {form.status, id, what, remedy, data};
}

// What a column takes as a parameter is told beside it; it is not what was asked.
Finding hlpTableColumn(const QString &name, const ServerType &type)
{
    Finding finding = hlpColumn(name, type);
    const SendForm form = sendForm(type.oid, type.name);
    if (!form.cast.isEmpty()) {
        finding.message += QStringLiteral("; as a parameter ?") + form.cast;
    }
    return finding;
}

Finding hlpRefused(const QString &id, const QSqlError &error)
{
    return failed(id, QStringLiteral("the server says: ") + error.driverText(),
                  QStringLiteral("correct it; reads see neither temporary nor uncommitted tables"));
}

QString hlpTableQuestion()
{
    return QStringLiteral("SELECT json_agg(row_to_json(c) ORDER BY c.n)::text FROM "
                          "(SELECT a.attnum AS n, a.attname AS name, %1 FROM pg_attribute a "
                          "WHERE a.attrelid = to_regclass(?::text) AND a.attnum > 0 "
                          "AND NOT a.attisdropped) c")
        .arg(hlpTypeColumns(QStringLiteral("a.atttypid"), QStringLiteral("a.atttypmod")));
}

// The query beside one row, with nulls in its columns and never run.
QString hlpBeside(const QString &query, const QString &alias)
{
    return QStringLiteral("(SELECT 1) d LEFT JOIN (\n%1\n) %2 ON false").arg(query, alias);
}

// A name that is no column's: row_to_json(t) would take a column t for the row.
QString hlpNamesQuestion(const QString &query)
{
    return QStringLiteral("SELECT json_agg(k.name ORDER BY k.n)::text FROM "
                          "(SELECT row_to_json(dorvy_check_row) FROM (SELECT q.* FROM %1) "
                          "dorvy_check_row) r(row), "
                          "json_object_keys(r.row) WITH ORDINALITY AS k(name, n)")
        .arg(hlpBeside(query, QStringLiteral("q")));
}

QString hlpTypesQuestion(const QString &query, int columns)
{
    QStringList names;
    QStringList types;
    for (int i = 1; i <= columns; ++i) {
        names += QStringLiteral("c%1").arg(i);
        types += QStringLiteral("pg_typeof(q.c%1)::oid").arg(i);
    }
    const QString alias = QStringLiteral("q(%1)").arg(names.join(QLatin1Char(',')));
    return hlpTypesOf(QStringLiteral("SELECT ARRAY[%1] FROM %2")
                          .arg(types.join(QLatin1Char(',')), hlpBeside(query, alias)));
}

// Types of the statement that a connection prepared last, but for the one that asks. list is an array of
// types in p, a row of pg_prepared_statements.
QString hlpPreparedQuestion(const QString &list)
{
    return hlpTypesOf(QStringLiteral("SELECT %1 FROM pg_prepared_statements p WHERE NOT p.from_sql "
                                     "AND p.statement NOT LIKE '%pg_prepared_statements%' "
                                     "ORDER BY p.prepare_time DESC LIMIT 1")
                          .arg(list));
}

// The driver has prepared a statement with columns on its second connection, any other on its own.
QJsonArray hlpAskPrepared(ServerSession &session, bool hasColumns, const QString &list)
{
    const QString question = hlpPreparedQuestion(list);
    return (hasColumns ? session.readJson(question) : session.tellJson(question)).array();
}

void hlpReportColumns(const QStringList &names, const QJsonArray &types, const TakeFinding &report)
{
    for (int i = 0; i < types.size(); ++i) {
        const QString name = names.value(i, QStringLiteral("column %1").arg(i + 1));
        report(hlpColumn(name, hlpType(types.at(i).toObject())));
    }
}

// From PostgreSQL 16 on a prepared statement tells its columns' types, for what cannot be joined. Before,
// the row has no such member.
void hlpReportPrepared(ServerSession &session, const QSqlError &refusal, const TakeFinding &report)
{
    const QString list = QStringLiteral(
        "ARRAY(SELECT r.name::regtype::oid FROM json_array_elements_text(to_json(p) -> "
        "'result_types') WITH ORDINALITY r(name, n) ORDER BY r.n)");
    const QJsonArray types = hlpAskPrepared(session, true, list);
    if (!types.isEmpty()) {
        hlpReportColumns({}, types, report);
        return;
    }
    report(warning(QStringLiteral("query"),
                   QStringLiteral("its columns cannot be told without running it: ") +
                       refusal.driverText(),
                   QStringLiteral("leave out what stands behind its last semicolon, or ask for the "
                                  "table whose columns it returns, with --table")));
}

void hlpReportResult(ServerSession &session, const QString &query, int parameters,
                     const TakeFinding &report)
{
    QVariantList nulls;
    for (int i = 0; i < parameters; ++i) {
        nulls.append(QVariant());
    }
    QStringList names;
    const QJsonArray list = session.readJson(hlpNamesQuestion(query), nulls).array();
    for (const QJsonValue &name : list) {
        names += name.toString();
    }
    const QJsonArray types =
        names.isEmpty() ? QJsonArray()
                        : session.readJson(hlpTypesQuestion(query, names.size()), nulls).array();
    if (types.isEmpty()) {
        hlpReportPrepared(session, session.error(), report);
        return;
    }
    hlpReportColumns(names, types, report);
}

// Without what ends a statement, which cannot stand in parentheses.
QString hlpBare(const QString &query)
{
    QString bare = query.trimmed();
    while (bare.endsWith(QLatin1Char(';'))) {
        bare = bare.left(bare.size() - 1).trimmed();
    }
    return bare;
}

} // namespace

void checkTable(ServerSession &session, const QString &name, const TakeFinding &report)
{
    const QString id = QStringLiteral("table");
    const QString text = session.read(hlpTableQuestion(), {name});
    const QJsonArray columns = QJsonDocument::fromJson(text.toUtf8()).array();
    if (session.error().isValid()) {
        report(hlpRefused(id, session.error()));
        return;
    }
    if (columns.isEmpty()) {
        report(
            failed(id, QStringLiteral("there is no table or view %1").arg(name),
                   QStringLiteral("write schema.table; capitals need quotes inside: '\"Table\"'")));
        return;
    }
    for (const QJsonValue &column : columns) {
        const QJsonObject object = column.toObject();
        report(hlpTableColumn(object.value(QStringLiteral("name")).toString(), hlpType(object)));
    }
}

void checkQuery(ServerSession &session, const QString &query, const TakeFinding &report)
{
    const QString id = QStringLiteral("query");
    const QString bare = hlpBare(query);
    QSqlQuery prepared(session.database());
    if (!prepared.prepare(bare)) {
        report(hlpRefused(id, prepared.lastError()));
        return;
    }
    const bool returnsColumns = prepared.isSelect();
    const QJsonArray parameters =
        hlpAskPrepared(session, returnsColumns, QStringLiteral("p.parameter_types::oid[]"));
    int number = 0;
    for (const QJsonValue &parameter : parameters) {
        report(hlpParameter(QStringLiteral("$%1").arg(++number), hlpType(parameter.toObject())));
    }
    if (!returnsColumns) {
        report(ok(id, QStringLiteral("returns no columns")));
        return;
    }
    hlpReportResult(session, bare, parameters.size(), report);
}
