// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// DorvyDriverPrivate: the driver's database handle and the list of its live results.
#ifndef DORVYDRIVER_P_H
#define DORVYDRIVER_P_H

#include "access/dorvy3database.h"
#include "driver/dorvydriver.h"

#include <private/qsqldriver_p.h>

#include <QtCore/QList>
#include <QtCore/QMutex>

class DorvyResultPrivate;

class DorvyDriverPrivate : public QSqlDriverPrivate
{
    Q_DECLARE_PUBLIC(DorvyDriver)

public:
    explicit DorvyDriverPrivate(const QSharedPointer<Dorvy3Transacted> &pool);

    /*! Releases the server objects of results that outlive the driver, then closes the handle. */
    ~DorvyDriverPrivate() override;

    /*! Registers a live result, and unregisters it; null is ignored. */
    void bind(DorvyResultPrivate *result);
    void unbind(DorvyResultPrivate *result);

    bool unsubscribeFromNotification(const QString &name);

    Dorvy3Database database;
    QList<qint64> results; // addresses of the live results' private objects, oldest first
    QMutex mutex;          // guards results; taken before the pool's lock

private:
    void hlpReleaseResults();
};

#endif // DORVYDRIVER_P_H
