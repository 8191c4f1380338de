// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// DorvyDriver: one Qt database connection.
#ifndef DORVYDRIVER_H
#define DORVYDRIVER_H

#include <QtCore/QSharedPointer>
#include <QtSql/QSqlDriver>

class Dorvy3Transacted;
class DorvyDriverPrivate;

/*!
    The driver that an application gets under the keys "DORVY" and "QPSQL". It passes open, close
    and the transaction calls to its database handle and makes the results of its queries.

    Qt owns it and uses it on one thread at a time. Results may outlive it; it takes their server
    objects from them when it goes.
*/
class DorvyDriver : public QSqlDriver
{
    Q_OBJECT
    Q_DECLARE_PRIVATE(DorvyDriver)
    friend class DorvyResult;
    friend class DorvyResultPrivate;

public:
    /*! \a pool is the process's connection pool, shared with every other driver. */
    explicit DorvyDriver(const QSharedPointer<Dorvy3Transacted> &pool, QObject *parent = nullptr);
    ~DorvyDriver() override;

    /*! Whether the database handle's own connection is there; never the flag that Qt keeps. */
    bool isOpen() const override;

    /*! BEGIN on the driver's own connection; refused where a transaction is open. */
    bool beginTransaction() override;

    /*! COMMIT on the driver's own connection; refused outside of a transaction and in a failed one. */
    bool commitTransaction() override;

    /*! ROLLBACK on the driver's own connection; without a transaction a silent success. */
    bool rollbackTransaction() override;

    /*!
        The names of system tables, tables and views, in this order, by the flags in \a type. A
        table or view outside the schema "public" comes as schema.table, unquoted; a system table
        never carries its schema. Empty when the driver is closed or a query fails.
    */
    QStringList tables(QSql::TableType type) const override;

    /*!
        The columns of a table's primary key, the index named as on the server and its cursor name
        \a tableName as given. \a tableName is a table or schema.table, each of which may stand in
        double quotes and is looked up in lower case. Without fields when the table has no primary
        key or cannot be found; a key column of a type that the driver does not know is fatal.
    */
    QSqlIndex primaryIndex(const QString &tableName) const override;

    /*!
        On servers from 12 on an empty record, since the catalog's column adsrc is gone there; on
        older ones the process ends. \a tableName is as in primaryIndex().
    */
    QSqlRecord record(const QString &tableName) const override;

    /*!
        \a field as an SQL literal; see Dorvy3Database::formatValue. Empty where memory or a QString
        cannot hold it: no statement that it is pasted into can then be mistaken for the right one.
    */
    QString formatValue(const QSqlField &field, bool trimStrings) const override;

    /*!
        \a identifier in double quotes, each part of schema.table in its own. A name that begins or
        ends with a double quote, and an empty one, comes back as it is. \a type is not used.
    */
    QString escapeIdentifier(const QString &identifier, IdentifierType type) const override;

    /*! Always invalid: no native handle is exposed. */
    QVariant handle() const override;

    /*! What the driver announces to Qt, EventNotifications among it, though subscribing fails. */
    bool hasFeature(DriverFeature feature) const override;

    /*! Closes the database handle, with both of its connections. */
    void close() override;

    /*! A result that the caller owns, with the driver's database handle under it. */
    QSqlResult *createResult() const override;

    /*!
        Connects. \a connOpts are libpq's key=value pairs, separated by semicolons. On failure the
        last error is a ConnectionError; Qt's open-error flag is left alone.
    */
    bool open(const QString &db, const QString &user, const QString &password, const QString &host,
              int port, const QString &connOpts) override;

    /*! Notifications are not delivered: false, without an error. */
    bool subscribeToNotification(const QString &name) override;

    /*!
        False, without an error. With a null \a name every live result of the driver gives its
        statement and its page up, as QSqlQuery::finish does for one.
    */
    bool unsubscribeFromNotification(const QString &name) override;

    /*! Always empty: no notification is delivered. */
    QStringList subscribedToNotifications() const override;

private:
    bool hlpTake(const QSqlError &error);
};

#endif // DORVYDRIVER_H
