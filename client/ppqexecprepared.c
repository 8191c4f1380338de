/*
 * SPDX-FileCopyrightText: 2026 the DORVY driver developers
 * SPDX-License-Identifier: MIT
 *
 * PPQexecPrepared, and the same behind a close of the portal: the first page.
 */
#include "ppq_p.h"

#include "libppq.h"
#include "ppqcall.h"

static bool ppqHasLengths(const PpqBinding *binding)
{
    for (int i = 0; i < binding->nParams; i++) {
        if (binding->paramValues[i] == NULL || !ppqIsBinary(binding, i))
            continue;
        if (binding->paramLengths == NULL || binding->paramLengths[i] < 0)
            return false;
    }
    return true;
}

static const char *ppqBindingFault(const PpqBinding *binding)
{
    if (binding->stmtName == NULL)
        return "statement name is a null pointer";
    if (binding->portalName == NULL)
        return "portal name is a null pointer";
    if (binding->nParams < 0 || binding->nParams > PQ_QUERY_PARAM_MAX_LIMIT)
        return "number of parameters must be between 0 and 65535";
    if (binding->nParams > 0 && binding->paramValues == NULL)
        return "parameters without values";
    if (!ppqHasLengths(binding))
        return "length must be given for binary parameter";
    return NULL;
}

static bool ppqCanRun(PGconn *conn, int maxRows, const PpqBinding *binding)
{
    const char *fault;

    if (conn == NULL || !ppqCanSend(conn))
        return false;
    fault = maxRows < 1 ? "number of rows must be at least 1" : ppqBindingFault(binding);
    if (fault != NULL)
        ppqSetError(conn, fault);
    return fault == NULL;
}

static bool ppqBeginRun(PGconn *conn, const PpqBinding *binding)
{
    const size_t bytes =
        ppqBindBytes(binding) + 3 * ppqNameBytes(binding->portalName) + PPQ_HEADER_BYTES;

    return ppqReserve(conn, bytes) && ppqBeginBehindClose(conn) &&
           ppqEnqueue(conn, PGQUERY_EXTENDED);
}

static bool ppqPutRun(PGconn *conn, bool reopen, int maxRows, const PpqBinding *binding)
{
    if (reopen && !ppqPutClose(conn, 'P', binding->portalName))
        return false;
    return ppqPutBind(conn, binding) && ppqPutDescribePortal(conn, binding->portalName) &&
           ppqPutExecute(conn, binding->portalName, maxRows) && ppqPutSync(conn);
}

/* PPQexecPrepared, behind a Close of the portal where reopen says so. */
static PGresult *ppqRun(PGconn *conn, bool reopen, int maxRows, const PpqBinding *binding)
{
    if (!ppqCanRun(conn, maxRows, binding) || !ppqBeginRun(conn, binding))
        return NULL;
    if (!ppqPutRun(conn, reopen, maxRows, binding)) {
        ppqGiveUp(conn);
        return NULL;
    }
    return ppqFinish(conn, NULL);
}

PGresult *PPQexecPrepared(PGconn *conn, int maxRows, const char *stmtName, const char *portalName,
                          int nParams, const char *const *paramValues, const int *paramLengths,
                          const int *paramFormats, int resultFormat)
{
    const PpqBinding binding = {stmtName,     portalName,   nParams,     paramValues,
                                paramLengths, paramFormats, resultFormat};

    return ppqRun(conn, false, maxRows, &binding);
}

PGresult *ppqExecReopened(PGconn *conn, int maxRows, const char *stmtName, const char *portalName,
                          int nParams, const char *const *paramValues, const int *paramLengths,
                          const int *paramFormats, int resultFormat)
{
    const PpqBinding binding = {stmtName,     portalName,   nParams,     paramValues,
                                paramLengths, paramFormats, resultFormat};

    return ppqRun(conn, true, maxRows, &binding);
}
