// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Dorvy3Result: owner of one libpq result.
#ifndef DORVY3RESULT_H
#define DORVY3RESULT_H

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

    PGresult *result;
    QSharedPointer<Dorvy3Connection> connection;

private:
    Q_DISABLE_COPY(Dorvy3Result)
};

#endif // DORVY3RESULT_H
