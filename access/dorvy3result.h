// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Dorvy3Result: owner of one libpq result.
#ifndef DORVY3RESULT_H
#define DORVY3RESULT_H

#include "client/ppqresult.h"

#include <libpq-fe.h>

#include <QtCore/QSharedPointer>

class Dorvy3Connection;

/*!
    One libpq result, freed when the object goes, with a shared reference to the connection that
    produced it: a connection outlives every result read from it. Every execution, every page of
    rows and every statement description is one, held through QSharedPointer.
*/
class Dorvy3Result
{
public:
    /*! Takes \a result over, which may be null. */
    Dorvy3Result(PGresult *result, const QSharedPointer<Dorvy3Connection> &connection);
    ~Dorvy3Result();

    /*!
        The bytes of a value, as many as it returns, with a zero behind them. -1 for SQL NULL, and
        for a row or a column that is not there; \a bytes stays as it is then.
    */
    int value(int row, int column, const char **bytes) const
    {
        return ppqValue(result, row, column, bytes);
    }

    /*! Whether \a other has the same columns: names, types, sizes and type modifiers. */
    bool hasColumnsOf(const Dorvy3Result &other) const
    {
        return ppqHasSameColumns(result, other.result);
    }

    PGresult *result;                            //!< cleared when the owner goes
    QSharedPointer<Dorvy3Connection> connection; //!< that it came from, kept alive

private:
    Q_DISABLE_COPY(Dorvy3Result)
};

#endif // DORVY3RESULT_H
