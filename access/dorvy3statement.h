// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Dorvy3Statement: one server-side prepared statement and its portal.
#ifndef DORVY3STATEMENT_H
#define DORVY3STATEMENT_H

#include <libpq-fe.h>

#include <QtCore/QByteArray>
#include <QtCore/QSharedPointer>
#include <QtCore/QString>
#include <QtCore/QVariant>
#include <QtCore/QVector>
#include <QtSql/QSqlError>

class Dorvy3Connection;
class Dorvy3Database;
class Dorvy3Result;
class QSqlField;

/*!
    One named prepared statement on one connection, with the named portal through which its rows are
    read. The server infers every parameter's type; values are encoded for the types it chose.

    Held through QSharedPointer; the last reference closes statement and portal on the server. Used
    by one thread at a time. It points at the database that it is registered with, which must
    outlive the registration.
*/
class Dorvy3Statement
{
public:
    /*! Makes the names, from the object's address: unique among the live statements. */
    Dorvy3Statement();
    ~Dorvy3Statement();

    /*!
        Prepares \a query on \a connection, has the server describe it, and registers with
        \a database unless that is null. Whatever was prepared before is closed first, also when
        this preparation then fails; so a second prep() moves a statement to another connection.

        Returns false on failure and tells why in \a error, which may be null: a StatementError with
        the server's message as driver text, or the driver's own where the text of the query is too
        large for one message. Nothing of the name is left on the server then.
    */
    bool prep(const QString &query, const QSharedPointer<Dorvy3Connection> &connection,
              QSqlError *error, Dorvy3Database *database);

    /*! Closes statement and portal on the server and forgets everything but query and names. */
    void hlpClear();

    /*! True when the statement returns columns, whether or not it also changes data. */
    bool readonly() const;

    /*! Whether \a page has the columns that the server has described for the statement. */
    bool isDescribing(const Dorvy3Result &page) const;

    /*! The statement's name on the server: the portal's without its leading "p". */
    const char *statementname() const;

    /*! The portal's name on the server. */
    const char *portalname() const;

    /*!
        Runs the statement without parameters and returns one page of its rows.

        \a rows is the page size in rows; below 1 it means 128. \a previous is the page to go on
        from; null starts at the first row. A statement without columns ignores it and runs to its
        end.

        Returns null on failure and tells why in \a error, which may be null; success resets it.
        The page owns its PGresult and keeps the connection alive.

        Source: PostgreSQL protocol 3.0, message flow, Extended Query (Execute with a row limit).
    */
    QSharedPointer<Dorvy3Result> exec(QSqlError *error, int rows,
                                      const QSharedPointer<Dorvy3Result> &previous);

    /*!
        Runs the statement with \a values and returns its first page. Surplus values are ignored;
        missing ones are not sent, and the server reports the mismatch. A value that cannot be
        encoded for its parameter ends the process. Values that are too large for one message are
        refused before anything is sent.
    */
    QSharedPointer<Dorvy3Result> exec(const QVector<QVariant> &values, QSqlError *error, int rows);

    /*! The error of a failed server call: the server's message as driver text. */
    QSqlError hlpError(const PGresult *result, const QSharedPointer<Dorvy3Connection> &connection,
                       const QString &text) const;

    /*! What no message can hold, in place of a number of bytes or of values. */
    static constexpr int TooLarge = -1;

    /*!
        Writes the value of \a field, in PostgreSQL's binary format for type \a ptype, behind the
        end of \a out: into its reserved space, without changing its size.

        Returns the number of bytes to take in, 0 for SQL NULL, or TooLarge where no message can
        hold them behind those of \a out. An unknown type and a value that cannot be converted end
        the process. The statement must be prepared.
    */
    int hlpEncodePSQLValue(const QSqlField &field, int ptype, QByteArray &out) const;

private:
    Q_DISABLE_COPY(Dorvy3Statement)
    friend struct Dorvy3TestAccess;

    bool hlpPrepare(const QString &text, const QSharedPointer<Dorvy3Connection> &connection,
                    QSqlError *error);
    bool hlpDescribe(const QString &text, const QSharedPointer<Dorvy3Connection> &connection,
                     QSqlError *error);
    bool hlpFailPrep(const PGresult *result, const QSharedPointer<Dorvy3Connection> &connection,
                     QSqlError *error);
    void hlpAllocateParams();
    void hlpFreeParams();
    bool hlpIsUsable(QSqlError *error) const;
    bool hlpFitsMessage(int valueBytes, int count) const;
    int hlpEncodeValue(const QVariant &value, int ptype, QByteArray &out) const;
    int hlpEncodeValues(const QVector<QVariant> &values, QByteArray &buffer);
    PGresult *hlpRun(PGconn *conn, int count, int rows) const;
    QSharedPointer<Dorvy3Result> hlpFinish(PGresult *result, QSqlError *error) const;

    QString query;                            // as last prepared with success
    QByteArray name;                          // of the portal
    Dorvy3Database *database;                 // that the statement is registered with, or null
    QSharedPointer<Dorvy3Result> description; // set exactly while prepared on the server
    void *params; // the block that the four arrays are views into; null without parameters
    const char **paramValues; // encoded bytes each, null for SQL NULL
    int *paramLengths;        // bytes
    int *paramFormats;        // 1: binary
    Oid *paramTypes;          // as the server inferred them
};

#endif // DORVY3STATEMENT_H
