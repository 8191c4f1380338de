// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Table: rows in columns, a page at a time.
#ifndef TABLE_H
#define TABLE_H

#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVector>

struct TableColumn
{
    QString name;
    bool isNumber; // stands to the right
};

/*!
    Lays rows out a page at a time, so that a result of any length takes the memory of one page: the
    columns are as wide as that page needs them.

    A null string is NULL; a text that reads like it gets quotes, so that the two are never one.
*/
class Table
{
public:
    enum Head {
        OnEachPage, // for a terminal, where the last head has scrolled away
        Once        // the columns then never get narrower than they were under it
    };

    static constexpr int PageRows = 128;

    Table(const QVector<TableColumn> &columns, Head head);

    /*! One row, with a text for each column. */
    void add(const QStringList &row);

    /*! Whether it is time for takePage(). */
    bool isPageFull() const { return rows.size() >= PageRows; }

    /*! The lines of the rows since the last page, with a head; the first page has one in any case. */
    QStringList takePage();

private:
    QString line(const QStringList &cells) const;
    QString rule() const;

    QVector<TableColumn> columns;
    QVector<QStringList> rows;
    QVector<int> widths;
    Head head;
    bool isFirstPage = true;
};

#endif // TABLE_H
