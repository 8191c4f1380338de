// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Dorvy3Result: owner of one libpq result.
#include "access/dorvy3result.h"

#include "access/dorvy3connection.h"

Dorvy3Result::Dorvy3Result(PGresult *pgResult, const QSharedPointer<Dorvy3Connection> &producer)
    : result(pgResult)
    , connection(producer)
{
}

Dorvy3Result::~Dorvy3Result()
{
    PQclear(result); // null is allowed
    result = nullptr;
}
