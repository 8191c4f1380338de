// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Table: rows in columns, a page at a time.
#include "table.h"

#include "textwidth.h"

#include <QtCore/QRegularExpression>

namespace {

QString cellOf(const QString &text)
{
    static const QRegularExpression looksLikeNull(QStringLiteral("^'*NULL'*\\z"));
    if (text.isNull()) {
        return QStringLiteral("NULL");
    }
    return looksLikeNull.match(text).hasMatch() ? QLatin1Char('\'') + text + QLatin1Char('\'')
                                                : onOneLine(text);
}

QString withoutBlanksBehind(QString text)
{
    while (text.endsWith(QLatin1Char(' '))) {
        text.chop(1);
    }
    return text;
}

} // namespace

Table::Table(const QVector<TableColumn> &columnsOfRows, Head headOfPages)
    : columns(columnsOfRows)
    , head(headOfPages)
{
    for (TableColumn &column : columns) {
        column.name = onOneLine(column.name);
        widths.append(textWidth(column.name));
    }
}

void Table::add(const QStringList &row)
{
    QStringList cells;
    for (int column = 0; column < columns.size(); ++column) {
        cells += cellOf(row.at(column));
        widths[column] = qMax(widths.at(column), textWidth(cells.last()));
    }
    rows.append(cells);
}

QStringList Table::takePage()
{
    QStringList lines;
    if (isFirstPage || (head == OnEachPage && !rows.isEmpty())) {
        QStringList names;
        for (const TableColumn &column : qAsConst(columns)) {
            names += column.name;
        }
        lines << line(names) << rule();
    }
    for (const QStringList &row : qAsConst(rows)) {
        lines += line(row);
    }
    isFirstPage = false;
    rows.clear();
    if (head == OnEachPage) {
        for (int column = 0; column < columns.size(); ++column) {
            widths[column] = textWidth(columns.at(column).name);
        }
    }
    return lines;
}

QString Table::line(const QStringList &cells) const
{
    QStringList parts;
    for (int column = 0; column < cells.size(); ++column) {
        parts += padded(cells.at(column), widths.at(column), columns.at(column).isNumber);
    }
    return withoutBlanksBehind(QLatin1Char(' ') + parts.join(QStringLiteral(" | ")));
}

QString Table::rule() const
{
    QStringList parts;
    for (const int width : widths) {
        parts += QString(width + 2, QLatin1Char('-'));
    }
    return parts.join(QLatin1Char('+'));
}
