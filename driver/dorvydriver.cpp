// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// DorvyDriver: one Qt database connection.
#include "driver/dorvydriver.h"

#include "driver/dorvydriver_p.h"
#include "driver/dorvyresult.h"
#include "driver/dorvyresult_p.h"

#include <QtCore/QMutexLocker>
#include <QtSql/QSqlError>

DorvyDriverPrivate::DorvyDriverPrivate(const QSharedPointer<Dorvy3Transacted> &pool)
    : database(pool)
{
    // Beyond information: it makes Qt read square brackets as ordinary characters when it looks
    // for placeholders.
    dbmsType = QSqlDriver::PostgreSQL;
}

DorvyDriverPrivate::~DorvyDriverPrivate()
{
    // A statement points back at the handle; see tst_dorvydriver, queryOutlivesDriver.
    hlpReleaseResults();
}

void DorvyDriverPrivate::bind(DorvyResultPrivate *result)
{
    if (!result) {
        return;
    }
    const QMutexLocker locker(&mutex);
    results.append(reinterpret_cast<qint64>(result));
}

void DorvyDriverPrivate::unbind(DorvyResultPrivate *result)
{
    if (!result) {
        return;
    }
    const QMutexLocker locker(&mutex);
    results.removeAll(reinterpret_cast<qint64>(result));
}

bool DorvyDriverPrivate::unsubscribeFromNotification(const QString &name)
{
    if (name.isNull()) {
        hlpReleaseResults();
    }
    return false;
}

void DorvyDriverPrivate::hlpReleaseResults()
{
    const QMutexLocker locker(&mutex);
    for (const qint64 address : qAsConst(results)) {
        // The list keeps addresses as numbers. NOLINTNEXTLINE(performance-no-int-to-ptr)
        reinterpret_cast<DorvyResultPrivate *>(address)->release();
    }
}

DorvyDriver::DorvyDriver(const QSharedPointer<Dorvy3Transacted> &pool, QObject *parent)
    : QSqlDriver(*new DorvyDriverPrivate(pool), parent)
{
}

DorvyDriver::~DorvyDriver() = default;

// Every outcome becomes the last error, success included: it clears an earlier one.
bool DorvyDriver::hlpTake(const QSqlError &error)
{
    setLastError(error);
    return error.type() == QSqlError::NoError;
}

bool DorvyDriver::open(const QString &db, const QString &user, const QString &password,
                       const QString &host, int port, const QString &connOpts)
{
    Q_D(DorvyDriver);
    // No schema: the connection keeps the server's default search path.
    return hlpTake(d->database.open(db, user, password, host, port, connOpts, QString()));
}

bool DorvyDriver::isOpen() const
{
    Q_D(const DorvyDriver);
    return d->database.isOpen();
}

void DorvyDriver::close()
{
    Q_D(DorvyDriver);
    d->database.close();
}

bool DorvyDriver::beginTransaction()
{
    Q_D(DorvyDriver);
    return hlpTake(d->database.beginTransaction());
}

bool DorvyDriver::commitTransaction()
{
    Q_D(DorvyDriver);
    return hlpTake(d->database.commitTransaction());
}

bool DorvyDriver::rollbackTransaction()
{
    Q_D(DorvyDriver);
    return hlpTake(d->database.rollbackTransaction());
}

bool DorvyDriver::hasFeature(DriverFeature feature) const
{
    switch (feature) {
    case Transactions:
    case QuerySize: // of the page held
    case BLOB:
    case Unicode:
    case PreparedQueries:
    case PositionalPlaceholders:
    case LastInsertId:
    case LowPrecisionNumbers:
    case EventNotifications: // though subscribing fails: meant, see tst_dorvydriver, features
        return true;
    default:
        return false;
    }
}

QVariant DorvyDriver::handle() const
{
    return QVariant();
}

QSqlResult *DorvyDriver::createResult() const
{
    return new DorvyResult(this);
}

bool DorvyDriver::subscribeToNotification(const QString & /*name*/)
{
    return false;
}

bool DorvyDriver::unsubscribeFromNotification(const QString &name)
{
    Q_D(DorvyDriver);
    return d->unsubscribeFromNotification(name);
}

QStringList DorvyDriver::subscribedToNotifications() const
{
    return QStringList();
}
