// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// PgResultPtr: a libpq result that clears itself.
#ifndef DORVY3PGRESULT_P_H
#define DORVY3PGRESULT_P_H

#include <libpq-fe.h>

#include <memory>

struct PgResultClear
{
    void operator()(PGresult *result) const { PQclear(result); }
};

/*! Owner of a result from the line it is born on; release() hands it to a Dorvy3Result. */
using PgResultPtr = std::unique_ptr<PGresult, PgResultClear>;

#endif // DORVY3PGRESULT_P_H
