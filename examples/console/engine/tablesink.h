// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// TableSink: prints the rows of a query as a table.
#ifndef TABLESINK_H
#define TABLESINK_H

#include "output.h"
#include "rowsink.h"
#include "table.h"

#include <QtSql/QSqlRecord>

#include <memory>

/*! Prints each page of rows when it is full, so that the first rows are seen while others are read. */
class TableSink : public RowSink
{
public:
    TableSink(Output &output, Table::Head head);

    bool begin(const QSqlRecord &columns) override;
    bool row(const QSqlQuery &query) override;
    bool end(bool complete) override;
    QString why() const override { return QStringLiteral("standard output cannot be written"); }

private:
    bool printPage();

    Output &output;
    Table::Head head;
    QSqlRecord record;
    std::unique_ptr<Table> table;
};

#endif // TABLESINK_H
