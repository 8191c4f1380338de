// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// DorvyResultPrivate: the page that a result holds and the description of its columns.
#ifndef DORVYRESULT_P_H
#define DORVYRESULT_P_H

#include "access/dorvy3result.h"
#include "driver/dorvydecode_p.h"
#include "driver/dorvydriver.h"
#include "driver/dorvyresult.h"

#include <private/qsqlresult_p.h>

#include <QtCore/QVector>
#include <QtSql/QSqlError>
#include <QtSql/QSqlRecord>

class Dorvy3Statement;
class DorvyDriverPrivate;

constexpr int DefaultRows = -1; // asks the statement for its own page size

/*! How the values of one column are read. */
struct DorvyColumn
{
    QVariant::Type type; // of SQL NULL
    DorvyBinaryDecoder decode;
};

class DorvyResultPrivate : public QSqlResultPrivate
{
    Q_DECLARE_PUBLIC(DorvyResult)

public:
    DorvyResultPrivate(DorvyResult *result, const DorvyDriver *driver);
    ~DorvyResultPrivate() override;

    /*! The server's placeholder for the question mark \a i, counted from 0: $1 for the first. */
    QString fieldSerial(int i) const override;

    /*! The private object of the driver; null once the driver is gone. */
    DorvyDriverPrivate *driverPrivate() const;

    /*! Drops the result's statement, then its page. */
    void release();

    /*! Describes the columns of the page, the first of a run of \a statement. */
    void describe(const Dorvy3Statement &statement);

    /*! Forgets the columns. */
    void clearDescription();

    QSharedPointer<Dorvy3Result> page; // of the last run, while it is held
    QSqlRecord record;
    QVector<DorvyColumn> columns; // of the pages; empty unless they are described and binary
    QSqlError pageError;     // of the last change of pages; each error that is made takes memory
    bool describesStatement; // whether both are of pages that have the statement's columns
};

#endif // DORVYRESULT_P_H
