// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
// PagedModel: the rows of a query, which grow as they are scrolled.
#ifndef PAGEDMODEL_H
#define PAGEDMODEL_H

#include <QtCore/QAbstractTableModel>
#include <QtCore/QVector>
#include <QtSql/QSqlError>
#include <QtSql/QSqlQuery>
#include <QtSql/QSqlRecord>

class QSqlDatabase;

/*!
    The rows of one query for a view, read by the page when the view asks for more.

    The driver holds one page of a result: at(), seek() and size() count within it, and once next()
    has turned it there is no way back. A view asks for any row that it has shown. So the model keeps
    the rows that it has read under numbers of its own, and asks the query for nothing but the next
    row. QSqlQueryModel relies on seek() and size() instead, and ends with the first page.

    Memory therefore grows by what has been scrolled to, not by what the query would give.

    Used by the thread that has the database, as Qt SQL demands.
*/
class PagedModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    static constexpr int PageRows = 128; // what the driver reads at once

    explicit PagedModel(QObject *parent = nullptr);

    /*!
        Runs \a sql in place of what was there and reads the first page. False if the server refuses
        it; failed() tells why. A statement without columns runs whole and has no rows.
    */
    bool run(const QSqlDatabase &database, const QString &sql);

    /*!
        Ends a query that is half read: its connection, its transaction and its locks are given back.
        The rows that were read stay.
    */
    void cancel();

    /*! Cancels and forgets all rows and columns. To be called before the database is closed. */
    void clear();

    /*! Whether there may be more rows on the server. */
    bool isReading() const { return state == State::Reading; }

    /*! How many rows there are, as a sentence for the user: "1,280 rows so far". */
    QString summary() const;

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation,
                        int role = Qt::DisplayRole) const override;
    bool canFetchMore(const QModelIndex &parent) const override;
    void fetchMore(const QModelIndex &parent) override;

signals:
    /*! summary() or isReading() may have changed. */
    void progressed();

    /*! The query failed, in whichever page; the rows before that stay. */
    void failed(const QSqlError &error);

private:
    enum class State { Empty, Reading, Complete, Cancelled, Failed, Command };
    using Row = QVector<QVariant>;

    void forget();
    void start();
    QVector<Row> readPage();
    Row readRow() const;
    void end();
    void fail();
    void tell();

    QSqlQuery query;
    QSqlRecord columns;
    QVector<Row> rows;
    State state = State::Empty;
    int affected = 0; // rows that a command changed
    QSqlError error;
};

#endif // PAGEDMODEL_H
