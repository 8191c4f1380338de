/*
 * SPDX-FileCopyrightText: 2026 the DORVY driver developers
 * SPDX-License-Identifier: MIT
 *
 * PPQexecPrepared, and the same behind a close of the portal: the first page.
 */
#include "ppq_p.h"

#include "libppq.h"
#include "ppqcall.h"

static bool ppqHasLengths(int nParams, const char *const *paramValues, const int *paramLengths,
                          const int *paramFormats)
{
    for (int i = 0; i < nParams; i++) {
        if (paramValues[i] == NULL || paramFormats == NULL || paramFormats[i] == 0)
            continue;
        if (paramLengths == NULL || paramLengths[i] < 0)
            return false;
    }
    return true;
}

static const char *ppqParameterFault(int nParams, const char *const *paramValues,
                                     const int *paramLengths, const int *paramFormats)
{
    if (nParams < 0 || nParams > PQ_QUERY_PARAM_MAX_LIMIT)
        return "number of parameters must be between 0 and 65535";
    if (nParams > 0 && paramValues == NULL)
        return "parameters without values";
    if (!ppqHasLengths(nParams, paramValues, paramLengths, paramFormats))
        return "length must be given for binary parameter";
    return NULL;
}

static const char *ppqExecFault(int maxRows, const char *stmtName, const char *portalName)
{
    if (stmtName == NULL)
        return "statement name is a null pointer";
    if (portalName == NULL)
        return "portal name is a null pointer";
    if (maxRows < 1)
        return "number of rows must be at least 1";
    return NULL;
}

/* PPQexecPrepared, behind a Close of the portal where reopen says so. */
static PGresult *ppqRun(PGconn *conn, bool reopen, int maxRows, const char *stmtName,
                        const char *portalName, int nParams, const char *const *paramValues,
                        const int *paramLengths, const int *paramFormats, int resultFormat)
{
    const char *fault;
    size_t bytes;

    if (conn == NULL || !ppqCanSend(conn))
        return NULL;
    fault = ppqExecFault(maxRows, stmtName, portalName);
    if (fault == NULL)
        fault = ppqParameterFault(nParams, paramValues, paramLengths, paramFormats);
    if (fault != NULL) {
        ppqSetError(conn, fault);
        return NULL;
    }
    bytes = ppqBindBytes(stmtName, portalName, nParams, paramValues, paramLengths, paramFormats) +
            3 * ppqNameBytes(portalName) + PPQ_HEADER_BYTES;
    if (!ppqReserve(conn, bytes) || !ppqBeginBehindClose(conn) ||
        !ppqEnqueue(conn, PGQUERY_EXTENDED))
        return NULL;
    if ((reopen && !ppqPutClose(conn, 'P', portalName)) ||
        !ppqPutBind(conn, stmtName, portalName, nParams, paramValues, paramLengths, paramFormats,
                    resultFormat) ||
        !ppqPutDescribePortal(conn, portalName) || !ppqPutExecute(conn, portalName, maxRows) ||
        !ppqPutSync(conn)) {
        ppqGiveUp(conn);
        return NULL;
    }
    return ppqFinish(conn, NULL);
}

PGresult *PPQexecPrepared(PGconn *conn, int maxRows, const char *stmtName, const char *portalName,
                          int nParams, const char *const *paramValues, const int *paramLengths,
                          const int *paramFormats, int resultFormat)
{
    return ppqRun(conn, false, maxRows, stmtName, portalName, nParams, paramValues, paramLengths,
                  paramFormats, resultFormat);
}

PGresult *ppqExecReopened(PGconn *conn, int maxRows, const char *stmtName, const char *portalName,
                          int nParams, const char *const *paramValues, const int *paramLengths,
                          const int *paramFormats, int resultFormat)
{
    return ppqRun(conn, true, maxRows, stmtName, portalName, nParams, paramValues, paramLengths,
                  paramFormats, resultFormat);
}
