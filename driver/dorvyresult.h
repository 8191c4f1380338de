// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// DorvyResult: the result of one query.
#ifndef DORVYRESULT_H
#define DORVYRESULT_H

#include <QtCore/QSharedPointer>
#include <QtSql/QSqlResult>

class Dorvy3Result;
class Dorvy3Statement;
class DorvyDriver;
class DorvyResultPrivate;

/*!
    What Qt makes for every query object. It turns a text into a prepared statement, runs it, and
    holds one page of its rows, at most 128: positions and sizes are those of the page.

    Qt owns it and uses it on the driver's thread. It may outlive its driver: it then has no server
    objects left, and every operation answers false or an invalid value.
*/
class DorvyResult : public QSqlResult
{
    Q_DECLARE_PRIVATE(DorvyResult)

public:
    /*! A result of \a driver, which knows of it as long as both live. */
    explicit DorvyResult(const DorvyDriver *driver);
    ~DorvyResult() override;

    /*! Always invalid: no native handle is exposed. */
    QVariant handle() const override;

protected:
    /*!
        Prepares \a query and runs it without values. False on failure, which the last error tells
        of; a success clears it. Every "?" outside quotes is a parameter. Moves no position.
    */
    bool reset(const QString &query) override;

    /*! Prepares \a query for exec(); else as reset(). */
    bool prepare(const QString &query) override;

    /*! Runs what prepare() has prepared, with the values bound; else as reset(). */
    bool exec() override;

    /*! The columns of the last run that had any; prepare() alone describes none. */
    QSqlRecord record() const override;

    /*!
        The value at the current row; invalid without a page, beyond its columns, and where memory
        or a QString cannot hold it.
    */
    QVariant data(int column) override;

    /*! Whether the value at the current row is NULL; true beyond its columns, false without a page. */
    bool isNull(int column) override;

    /*! The next row, reading the next page only when the one held is used up. */
    bool fetchNext() override;

    /*! Moves to row \a row of the page held, counted from 0, and sends nothing. */
    bool fetch(int row) override;

    /*! Moves to the row before, within the page held, and sends nothing. */
    bool fetchPrevious() override;

    /*! Moves to the first row of the page held and sends nothing. */
    bool fetchFirst() override;

    /*! Moves to the last row of the page held and sends nothing. */
    bool fetchLast() override;

    /*! Rows of the page held; -1 without a page. */
    int size() override;

    /*! The count in the command tag, 0 when it has none; -1 without a page. */
    int numRowsAffected() override;

    /*!
        The last sequence value of the connection that the page came from, as an int: 0 when it does
        not fit one, invalid when there is none. Sets no error.
    */
    QVariant lastInsertId() const override;

    /*! Gives up the statement and the page; record, position and active flag stay. */
    void detachFromResultSet() override;

private:
    bool hlpFail(const QSqlError &error);
    bool hlpFinish();
    void hlpStart();
    bool hlpLookUp(const QString &query, QSqlError *error);
    void hlpRun(const QSharedPointer<Dorvy3Result> &previous, QSqlError *error);
    bool hlpMoveTo(int row);
    QVariant hlpUndescribed(int column) const;

    QSharedPointer<Dorvy3Statement> statement; // of the current text
};

#endif // DORVYRESULT_H
