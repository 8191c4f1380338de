// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Owners of libpq's connections and results in the tests.
#ifndef LIBPQOWNERS_H
#define LIBPQOWNERS_H

#include <libpq-fe.h>

#include <memory>

struct FinishConnection
{
    void operator()(PGconn *connection) const { PQfinish(connection); }
};

struct ClearResult
{
    void operator()(PGresult *result) const { PQclear(result); }
};

using RawConnectionPtr = std::unique_ptr<PGconn, FinishConnection>;
using ResultPtr = std::unique_ptr<PGresult, ClearResult>;

#endif // LIBPQOWNERS_H
