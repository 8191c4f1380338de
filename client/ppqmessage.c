/*
 * SPDX-FileCopyrightText: 2026 the DORVY driver developers
 * SPDX-License-Identifier: MIT
 *
 * The frontend messages of the extended query, written into libpq's send buffer.
 *
 * Source: PostgreSQL protocol 3.0, message formats (Bind, Close, Describe, Execute, Sync).
 */
#include "ppq_p.h"

static bool ppqIsBinary(const int *paramFormats, int i)
{
    return paramFormats != NULL && paramFormats[i] != 0;
}

static size_t ppqValueBytes(const char *const *paramValues, const int *paramLengths,
                            const int *paramFormats, int i)
{
    if (ppqIsBinary(paramFormats, i))
        return (size_t)paramLengths[i];
    return strlen(paramValues[i]);
}

/* A message that holds one name: header, kind byte, the name with its terminator, four bytes. */
size_t ppqNameBytes(const char *name)
{
    return PPQ_HEADER_BYTES + 1 + strlen(name) + 1 + 4;
}

size_t ppqBindBytes(const char *stmtName, const char *portalName, int nParams,
                    const char *const *paramValues, const int *paramLengths,
                    const int *paramFormats)
{
    /* two counts, the result format's count and the format itself, two bytes each */
    size_t bytes = ppqNameBytes(stmtName) + ppqNameBytes(portalName) + 8;

    for (int i = 0; i < nParams; i++) {
        bytes += 2 + 4;
        if (paramValues[i] != NULL)
            bytes += ppqValueBytes(paramValues, paramLengths, paramFormats, i);
    }
    return bytes;
}

bool ppqReserve(PGconn *conn, size_t bytes)
{
    return pqCheckOutBufferSpace((size_t)conn->outCount + bytes, conn) == 0;
}

static bool ppqPutParameter(PGconn *conn, const char *const *paramValues, const int *paramLengths,
                            const int *paramFormats, int i)
{
    size_t bytes;

    if (paramValues[i] == NULL)
        return pqPutInt(-1, 4, conn) == 0;
    bytes = ppqValueBytes(paramValues, paramLengths, paramFormats, i);
    return pqPutInt((int)bytes, 4, conn) == 0 && pqPutnchar(paramValues[i], bytes, conn) == 0;
}

static bool ppqPutParameters(PGconn *conn, int nParams, const char *const *paramValues,
                             const int *paramLengths, const int *paramFormats)
{
    bool put = pqPutInt(nParams, 2, conn) == 0;

    for (int i = 0; put && i < nParams; i++)
        put = pqPutInt(ppqIsBinary(paramFormats, i) ? 1 : 0, 2, conn) == 0;
    put = put && pqPutInt(nParams, 2, conn) == 0;
    for (int i = 0; put && i < nParams; i++)
        put = ppqPutParameter(conn, paramValues, paramLengths, paramFormats, i);
    return put;
}

bool ppqPutBind(PGconn *conn, const char *stmtName, const char *portalName, int nParams,
                const char *const *paramValues, const int *paramLengths, const int *paramFormats,
                int resultFormat)
{
    return pqPutMsgStart('B', conn) == 0 && pqPuts(portalName, conn) == 0 &&
           pqPuts(stmtName, conn) == 0 &&
           ppqPutParameters(conn, nParams, paramValues, paramLengths, paramFormats) &&
           pqPutInt(1, 2, conn) == 0 && pqPutInt(resultFormat, 2, conn) == 0 &&
           pqPutMsgEnd(conn) == 0;
}

bool ppqPutDescribePortal(PGconn *conn, const char *portalName)
{
    return pqPutMsgStart('D', conn) == 0 && pqPutc('P', conn) == 0 &&
           pqPuts(portalName, conn) == 0 && pqPutMsgEnd(conn) == 0;
}

bool ppqPutExecute(PGconn *conn, const char *portalName, int maxRows)
{
    return pqPutMsgStart('E', conn) == 0 && pqPuts(portalName, conn) == 0 &&
           pqPutInt(maxRows, 4, conn) == 0 && pqPutMsgEnd(conn) == 0;
}

bool ppqPutClose(PGconn *conn, char kind, const char *name)
{
    return pqPutMsgStart('C', conn) == 0 && pqPutc(kind, conn) == 0 && pqPuts(name, conn) == 0 &&
           pqPutMsgEnd(conn) == 0;
}

bool ppqPutSync(PGconn *conn)
{
    return pqPutMsgStart('S', conn) == 0 && pqPutMsgEnd(conn) == 0;
}
