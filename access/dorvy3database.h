// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Dorvy3Database: the server side of one driver.
#ifndef DORVY3DATABASE_H
#define DORVY3DATABASE_H

#include <libpq-fe.h>

#include <QtCore/QAtomicInt>
#include <QtCore/QSharedPointer>
#include <QtCore/QString>
#include <QtSql/QSqlError>

class Dorvy3Connection;
class Dorvy3Statement;
class Dorvy3Transacted;
class QSqlField;

/*!
    The database handle: it opens the driver's own connection, on which transactions run and
    statements without rows stay, and borrows a second one from the pool while statements that
    return rows are registered with it.

    A plain member of the driver's private object, neither copied nor shared; used by one thread at
    a time. It only counts its statements; they point back at it and must be cleared before it goes.
*/
class Dorvy3Database
{
public:
    /*! A closed handle that is to borrow from \a pool. */
    explicit Dorvy3Database(const QSharedPointer<Dorvy3Transacted> &pool);
    ~Dorvy3Database();

    /*!
        Connects with the given arguments, dropping any earlier connection first. An empty text and
        a \a port of -1 are left out, so that libpq's default applies. \a connOpts are libpq's
        key=value pairs with semicolons between them, passed on unquoted. \a schema, a schema list
        in SQL syntax, becomes the search path; empty means the server's default.

        Returns an error of type NoError on success, else a ConnectionError with libpq's message as
        driver text; the handle is then closed. Characters outside Latin-1 reach libpq as "?".

        Source: PostgreSQL documentation, libpq, Connection Strings.
    */
    QSqlError open(const QString &db, const QString &user, const QString &password,
                   const QString &host, int port, const QString &connOpts, const QString &schema);

    /*! True while the own connection is there and libpq believes it to be connected. */
    bool isOpen() const;

    /*!
        Finishes the own connection, and the borrowed one if one is held; if none is, drops one
        spare from the pool instead. Does nothing on a handle that is not open.
    */
    void close();

    /*! Begins a transaction on the own connection; see Dorvy3Connection. */
    QSqlError beginTransaction();

    /*! Commits the own connection's transaction; see Dorvy3Connection. */
    QSqlError commitTransaction();

    /*! Rolls the own connection's transaction back; see Dorvy3Connection. */
    QSqlError rollbackTransaction();

    /*! Counts a statement in. */
    void bind(Dorvy3Statement *statement);

    /*! Counts a statement out; the last one gives the borrowed connection back to the pool. */
    void unbind(Dorvy3Statement *statement);

    /*!
        A new statement for \a query, prepared and on the connection on which it is to run: the own
        one, or the borrowed one if it returns columns. Placeholders are the server's ($1, $2).

        While a transaction is open, the preparation on the own connection stands in a savepoint.

        Returns null on failure and tells why in \a error, which may be null.
    */
    QSharedPointer<Dorvy3Statement> statement(const QString &query, QSqlError *error);

    /*!
        \a field as an SQL literal by its declared type, "NULL" for a null field or an invalid date
        or time. \a trimStrings takes white space from both ends of a string. Needs no connection.

        Quotes and backslashes in a string get a backslash: the server reads them back where
        standard_conforming_strings is off. Any type but bool, int, long long, double, string, byte
        array, date, time and date-time ends the process. A literal that no QString can hold is a
        std::bad_alloc, as with Qt's own texts.

        Source: PostgreSQL documentation, Lexical Structure, String Constants; libpq,
        PQescapeBytea.
    */
    QString formatValue(const QSqlField &field, bool trimStrings) const;

    /*! \a value in the quotes of a connection string, backslashes and quotes escaped. */
    QString hlpQuote(QString value) const;

    /*! The error of a failed connection attempt; \a connection may be null. */
    QSqlError hlpError(const PGconn *connection, QSqlError::ErrorType type,
                       const QString &text) const;

private:
    Q_DISABLE_COPY(Dorvy3Database)
    friend struct Dorvy3TestAccess;

    QString hlpConnectionString(const QString &db, const QString &user, const QString &password,
                                const QString &host, int port, const QString &connOpts) const;
    void hlpSavepoint(const QString &command, const Dorvy3Statement &statement);
    bool hlpPrepareOnOwn(Dorvy3Statement &statement, const QString &query, QSqlError *error);
    bool hlpMoveToBorrowed(Dorvy3Statement &statement, const QString &query, QSqlError *error);
    bool hlpBorrow(QSqlError *error);
    QString hlpCurrentSchema();

    QSharedPointer<Dorvy3Transacted> pool;
    QString connectionString; // of the last successful open(); the pool's key
    QString schema;
    QSharedPointer<Dorvy3Connection> connection;
    QSharedPointer<Dorvy3Connection> readConnection; // borrowed; null while none is
    QAtomicInt boundCount;                           // statements registered through bind()
};

#endif // DORVY3DATABASE_H
