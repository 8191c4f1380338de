// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// TableSink: prints the rows of a query as a table.
#include "tablesink.h"

#include "valuetext.h"

#include <QtSql/QSqlField>
#include <QtSql/QSqlQuery>

TableSink::TableSink(Output &outputOfLines, Table::Head headOfPages)
    : output(outputOfLines)
    , head(headOfPages)
{
}

bool TableSink::begin(const QSqlRecord &columns)
{
    record = columns;
    QVector<TableColumn> names;
    for (int column = 0; column < record.count(); ++column) {
        names.append({record.fieldName(column), isNumber(record.field(column))});
    }
    table = std::make_unique<Table>(names, head);
    return true;
}

bool TableSink::row(const QSqlQuery &query)
{
    QStringList cells;
    for (int column = 0; column < record.count(); ++column) {
        cells += columnText(query, column, record.field(column));
    }
    table->add(cells);
    return !table->isPageFull() || printPage();
}

// What was read before a failure is shown, too.
bool TableSink::end(bool complete)
{
    Q_UNUSED(complete)
    return printPage();
}

bool TableSink::printPage()
{
    output.lines(table->takePage());
    output.flush();
    return output.isGood();
}
