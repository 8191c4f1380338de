// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Session: statements on one database, one after the other.
#include "session.h"

#include "placeholders.h"

#include <QtSql/QSqlQuery>

namespace {

// Values that no placeholder takes go unsaid with Qt and with the server; too few do not.
QString whyRefused(const Statement &statement)
{
    const int values = statement.values.size();
    const int placeholders = values > 0 ? placeholderCount(statement.text) : 0;
    return values > placeholders ? QStringLiteral("more values are bound than the statement has "
                                                  "placeholders: %1, not %2")
                                       .arg(values)
                                       .arg(placeholders)
                                 : QString();
}

} // namespace

Session::Session(const QSqlDatabase &databaseOfStatements)
    : db(databaseOfStatements)
{
}

Outcome Session::run(const Statement &statement, RowSink &sink, const Stop &stop)
{
    const TransactionWord word = transactionWord(statement.text);
    Outcome outcome;
    outcome.refusal = whyRefused(statement);
    if (!outcome.refusal.isEmpty()) {
        return outcome;
    }
    outcome = word == TransactionWord::Begin || word == TransactionWord::Commit ||
                      word == TransactionWord::Rollback
                  ? runTransaction(word)
                  : runQuery(db, statement, sink, stop);
    if (outcome.error.isValid()) {
        lookAround(word);
    } else if (outcome.good) {
        follow(word);
    }
    return outcome;
}

// Statements with columns run on a connection of their own, which the driver keeps in a transaction
// of its own; what the user means is the transaction of the commands. QSqlDatabase's operations are
// the portable way to reach that one, whatever connections a driver has.
Outcome Session::runTransaction(TransactionWord word)
{
    Outcome outcome;
    outcome.good = word == TransactionWord::Begin    ? db.transaction()
                   : word == TransactionWord::Commit ? db.commit()
                                                     : db.rollback();
    if (!outcome.good) {
        outcome.error = db.lastError();
    }
    return outcome;
}

// Every statement, also a read, is first prepared on the connection of the commands. So in a failed
// transaction nothing succeeds but what ends it, or opens it again: ROLLBACK TO, AND CHAIN.
void Session::follow(TransactionWord word)
{
    switch (word) {
    case TransactionWord::Begin:
    case TransactionWord::BeginByText:
        current = OpenTransaction;
        break;
    case TransactionWord::Commit:
    case TransactionWord::Rollback:
    case TransactionWord::EndByText:
        current = NoTransaction;
        break;
    case TransactionWord::None:
        if (current == FailedTransaction) {
            current = OpenTransaction;
        }
        break;
    }
}

// After a failure: Qt does not tell what became of the connections and the transaction, so it is
// tried. A failed transaction lets no command through; one that could not be committed is over. A
// read that fails on its own connection, as that of a temporary table, can leave that connection
// failed with nobody to give it back.
void Session::lookAround(TransactionWord word)
{
    const bool commandsWork = works(QStringLiteral("DISCARD PLANS")); // does nothing that is seen
    if (!db.isOpen()) {
        current = NoTransaction;
        return;
    }
    if (current != NoTransaction && !commandsWork) {
        current = FailedTransaction;
    } else if (word == TransactionWord::Commit || word == TransactionWord::EndByText) {
        current = NoTransaction;
    }
    readable = !commandsWork || works(QStringLiteral("SELECT 1"));
}

bool Session::check()
{
    if (db.isOpen()) {
        lookAround(TransactionWord::None);
    }
    return db.isOpen() && readable && current != FailedTransaction;
}

bool Session::works(const QString &text) const
{
    QSqlQuery query(db);
    return db.isOpen() && query.exec(text); // Qt would warn on its own
}

bool Session::reopen()
{
    db.close();
    current = NoTransaction;
    readable = db.open();
    return readable;
}
