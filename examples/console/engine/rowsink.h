// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// RowSink: where the rows of a query go.
#ifndef ROWSINK_H
#define ROWSINK_H

#include <QtCore/QString>

class QSqlQuery;
class QSqlRecord;

/*! Takes the rows of one query, one after the other. Where an operation is false, why() says why. */
class RowSink
{
public:
    RowSink() = default;
    virtual ~RowSink() = default;

    /*! The columns, before the first row. */
    virtual bool begin(const QSqlRecord &columns) = 0;

    /*! The row that \a query stands on. */
    virtual bool row(const QSqlQuery &query) = 0;

    /*! No more rows; \a complete says whether that were all. */
    virtual bool end(bool complete) = 0;

    virtual QString why() const = 0;

private:
    Q_DISABLE_COPY(RowSink)
};

#endif // ROWSINK_H
