// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Dorvy3Connection: one libpq connection with its text codecs and transaction commands.
#ifndef DORVY3CONNECTION_H
#define DORVY3CONNECTION_H

#include "access/dorvy3pgowners_p.h"

#include <libpq-fe.h>

#include <QtCore/QByteArray>
#include <QtCore/QString>
#include <QtSql/QSqlError>

class QTextCodec;

/*!
    One open libpq connection. It owns the handle, sets the connection up as the rest of the layer
    relies on (ISO dates, an optional search path) and converts every text that crosses the wire.

    Held through QSharedPointer by the database handle, the pool and every result, so that it lives
    as long as its last reader. Used by one thread at a time; it takes no lock.

    The class is final: it has a virtual operation but is never destroyed through a base.
*/
class Dorvy3Connection final
{
public:
    /*!
        Takes over \a connection, which may be null: then nothing is sent and texts are Latin-1.

        The codecs follow what the server reports as its own and as the client's encoding.
        \a searchPath is a schema list in SQL syntax and is sent as it stands; empty sends none.
        What the server answers to either setting is not looked at.
    */
    Dorvy3Connection(PGconn *connection, const QString &searchPath);
    ~Dorvy3Connection();

    /*! The libpq handle, which stays the object's; null after close(). */
    virtual PGconn *connection();

    /*! True while there is a handle, whatever its state. */
    bool isOpen() const;

    /*! True when there is a handle and libpq believes it to be connected. */
    bool isValid() const;

    /*!
        isValid() after a look at what has come from the server: a server that has gone away is
        noticed. Nothing is sent or waited for.
    */
    bool isAlive();

    /*! Finishes the handle. A second call does nothing. */
    void close();

    /*! \a text in the server's encoding, for sending. It must not be longer than maxUnits(). */
    QByteArray server(const QString &text) const;

    /*! The most UTF-16 units that Qt's codec for the server's encoding can be given. */
    int maxUnits() const;

    /*!
        \a length bytes of server text, decoded from the client encoding; a negative \a length means
        up to the terminating zero. Null bytes give a null string.
    */
    QString client(const char *bytes, int length) const;

    /*!
        isValid() for a call that is to come: the answer to a close may be under way, which the call
        then goes out behind. A copy in both directions, which no call can end, ends the connection.
    */
    bool isReady();

    /*!
        isValid() after the answer to a close has been taken in, if one is outstanding. A copy that
        is under way is left alone.
    */
    bool settle();

    /*! libpq's, and while a close is outstanding the state before it: not "active". */
    PGTransactionStatusType transactionStatus();

    /*! Runs \a sql as PQexec does; null tells of a lack of memory. */
    PgResultPtr exec(const char *sql);

    /*!
        Sends \a searchPath, a schema list in SQL syntax, as it stands; empty sends nothing. What
        the server answers is not looked at.
    */
    void setSearchPath(const QString &searchPath);

    /*!
        Sends BEGIN, COMMIT or ROLLBACK. The error has the type NoError on success, otherwise
        TransactionError; its driver text names the operation, its database text gives the reason.

        A begin inside a transaction and a commit outside one (or in a failed one) are refused. A
        rollback without a transaction is a silent success.
    */
    QSqlError beginTransaction();

    /*! Sends COMMIT; see beginTransaction(). */
    QSqlError commitTransaction();

    /*! Sends ROLLBACK; see beginTransaction(). */
    QSqlError rollbackTransaction();

private:
    Q_DISABLE_COPY(Dorvy3Connection)

    QSqlError hlpCommand(const char *sql, const QString &failure);
    QSqlError hlpOutcome(const PGresult *result, const QString &failure) const;
    QSqlError hlpRefusal(const QString &refused, const QString &reason);
    void hlpSetUp();

    PGconn *handle;
    QTextCodec *serverCodec;
    QTextCodec *clientCodec;
};

#endif // DORVY3CONNECTION_H
