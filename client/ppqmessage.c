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

/*
 * The puts of a message follow one another without a look at each: ppqReserve has made room for all
 * of them, and the one thing left that can fail is the write of a full buffer in the last.
 */

static int ppqPutParameter(PGconn *conn, const char *const *paramValues, const int *paramLengths,
                           const int *paramFormats, int i)
{
    size_t bytes;
    int failed;

    if (paramValues[i] == NULL)
        return pqPutInt(-1, 4, conn);
    bytes = ppqValueBytes(paramValues, paramLengths, paramFormats, i);
    failed = pqPutInt((int)bytes, 4, conn);
    failed |= pqPutnchar(paramValues[i], bytes, conn);
    return failed;
}

static int ppqPutParameters(PGconn *conn, int nParams, const char *const *paramValues,
                            const int *paramLengths, const int *paramFormats)
{
    int failed = pqPutInt(nParams, 2, conn);

    for (int i = 0; i < nParams; i++)
        failed |= pqPutInt(ppqIsBinary(paramFormats, i) ? 1 : 0, 2, conn);
    failed |= pqPutInt(nParams, 2, conn);
    for (int i = 0; i < nParams; i++)
        failed |= ppqPutParameter(conn, paramValues, paramLengths, paramFormats, i);
    return failed;
}

bool ppqPutBind(PGconn *conn, const char *stmtName, const char *portalName, int nParams,
                const char *const *paramValues, const int *paramLengths, const int *paramFormats,
                int resultFormat)
{
    int failed = pqPutMsgStart('B', conn);

    failed |= pqPuts(portalName, conn);
    failed |= pqPuts(stmtName, conn);
    failed |= ppqPutParameters(conn, nParams, paramValues, paramLengths, paramFormats);
    failed |= pqPutInt(1, 2, conn);
    failed |= pqPutInt(resultFormat, 2, conn);
    failed |= pqPutMsgEnd(conn);
    return failed == 0;
}

bool ppqPutDescribePortal(PGconn *conn, const char *portalName)
{
    int failed = pqPutMsgStart('D', conn);

    failed |= pqPutc('P', conn);
    failed |= pqPuts(portalName, conn);
    failed |= pqPutMsgEnd(conn);
    return failed == 0;
}

bool ppqPutExecute(PGconn *conn, const char *portalName, int maxRows)
{
    int failed = pqPutMsgStart('E', conn);

    failed |= pqPuts(portalName, conn);
    failed |= pqPutInt(maxRows, 4, conn);
    failed |= pqPutMsgEnd(conn);
    return failed == 0;
}

bool ppqPutClose(PGconn *conn, char kind, const char *name)
{
    int failed = pqPutMsgStart('C', conn);

    failed |= pqPutc(kind, conn);
    failed |= pqPuts(name, conn);
    failed |= pqPutMsgEnd(conn);
    return failed == 0;
}

bool ppqPutSync(PGconn *conn)
{
    int failed = pqPutMsgStart('S', conn);

    failed |= pqPutMsgEnd(conn);
    return failed == 0;
}
