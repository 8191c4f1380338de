// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Owners of libpq's results and connections, until one of our objects takes them over.
#ifndef DORVY3PGOWNERS_P_H
#define DORVY3PGOWNERS_P_H

#include <libpq-fe.h>

#include <memory>

struct PgResultClear
{
    void operator()(PGresult *result) const { PQclear(result); }
};

using PgResultPtr = std::unique_ptr<PGresult, PgResultClear>;

struct PgConnectionFinish
{
    void operator()(PGconn *connection) const { PQfinish(connection); }
};

using PgConnectionPtr = std::unique_ptr<PGconn, PgConnectionFinish>;

#endif // DORVY3PGOWNERS_P_H
