// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Session: statements on one database, one after the other.
#ifndef SESSION_H
#define SESSION_H

#include "query.h"
#include "transaction.h"

#include <QtSql/QSqlDatabase>

/*!
    Runs statements on a database and keeps in mind what they have come to: whether a transaction is
    open, and what a failure has left behind.
*/
class Session
{
public:
    enum Transaction { NoTransaction, OpenTransaction, FailedTransaction };

    explicit Session(const QSqlDatabase &databaseOfStatements);

    QSqlDatabase &database() { return db; }

    /*!
        Runs \a statement as runQuery() does, transactions by QSqlDatabase's own operations. One with
        more values than placeholders is not run.
    */
    Outcome run(const Statement &statement, RowSink &sink, const Stop &stop);

    Transaction transaction() const { return current; }

    /*! Whether reads work; false after a failure that nothing mends but reopen(). */
    bool canRead() const { return readable; }

    /*! Looks whether reads work now, for questions whose failure Qt does not tell. */
    bool check();

    /*! Makes the connection anew. What belonged to the old one, an open transaction too, is gone. */
    bool reopen();

private:
    Outcome runTransaction(TransactionWord word);
    void follow(TransactionWord word);
    void lookAround(TransactionWord word);
    bool works(const QString &text) const;

    QSqlDatabase db;
    Transaction current = NoTransaction;
    bool readable = true;
};

#endif // SESSION_H
