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

    bool beginTransaction() override;
    bool commitTransaction() override;
    bool rollbackTransaction() override;

    /*! Always invalid: no native handle is exposed. */
    QVariant handle() const override;
    bool hasFeature(DriverFeature feature) const override;
    void close() override;
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
    QStringList subscribedToNotifications() const override;

private:
    bool hlpTake(const QSqlError &error);
};

#endif // DORVYDRIVER_H
