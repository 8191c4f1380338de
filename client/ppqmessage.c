/*
 * SPDX-FileCopyrightText: 2026 the DORVY driver developers
 * SPDX-License-Identifier: MIT
 *
 * The frontend messages of the extended query, written into libpq's send buffer.
 *
 * Source: PostgreSQL protocol 3.0, message formats (Bind, Close, Describe, Execute, Sync).
 */
#include "ppq_p.h"

static size_t ppqValueBytes(const PpqBinding *binding, int i)
{
    if (ppqIsBinary(binding, i))
        return (size_t)binding->paramLengths[i];
    return strlen(binding->paramValues[i]);
}

/* A message that holds one name: header, kind byte, the name with its terminator, four bytes. */
size_t ppqNameBytes(const char *name)
{
    return PPQ_HEADER_BYTES + 1 + strlen(name) + 1 + 4;
}

size_t ppqBindBytes(const PpqBinding *binding)
{
    /* two counts, the result format's count and the format itself, two bytes each */
    size_t bytes = ppqNameBytes(binding->stmtName) + ppqNameBytes(binding->portalName) + 8;

    for (int i = 0; i < binding->nParams; i++) {
        bytes += 2 + 4;
        if (binding->paramValues[i] != NULL)
            bytes += ppqValueBytes(binding, i);
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

static int ppqPutParameter(PGconn *conn, const PpqBinding *binding, int i)
{
    size_t bytes;
    int failed;

    if (binding->paramValues[i] == NULL)
        return pqPutInt(-1, 4, conn);
    bytes = ppqValueBytes(binding, i);
    failed = pqPutInt((int)bytes, 4, conn);
    failed |= pqPutnchar(binding->paramValues[i], bytes, conn);
    return failed;
}

static int ppqPutParameters(PGconn *conn, const PpqBinding *binding)
{
    int failed = pqPutInt(binding->nParams, 2, conn);

    for (int i = 0; i < binding->nParams; i++)
        failed |= pqPutInt(ppqIsBinary(binding, i) ? 1 : 0, 2, conn);
    failed |= pqPutInt(binding->nParams, 2, conn);
    for (int i = 0; i < binding->nParams; i++)
        failed |= ppqPutParameter(conn, binding, i);
    return failed;
}

bool ppqPutBind(PGconn *conn, const PpqBinding *binding)
{
    int failed = pqPutMsgStart('B', conn);

    failed |= pqPuts(binding->portalName, conn);
    failed |= pqPuts(binding->stmtName, conn);
    failed |= ppqPutParameters(conn, binding);
    failed |= pqPutInt(1, 2, conn);
    failed |= pqPutInt(binding->resultFormat, 2, conn);
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
