/*
 * SPDX-FileCopyrightText: 2026 the DORVY driver developers
 * SPDX-License-Identifier: MIT
 *
 * PPQclose: the end of a portal, a prepared statement, or both.
 */
#include "ppq_p.h"

#include "libppq.h"

/*
 * A Close that fails on the server makes it ignore everything up to the next Sync, a plain query
 * too; so a Close never stands in the send buffer without its Sync behind it.
 *
 * Only a portal's can fail, as it shuts the executor down (seen with a foreign table whose server
 * is gone).  The statement's therefore goes in front of it: behind it, it would be ignored, and the
 * name would meet the next statement that is given it.  To the server the order is the same, as an
 * open portal keeps the plan that it runs.
 */
static bool ppqPutCloses(PGconn *conn, const char *portalName, const char *stmtName)
{
    if (stmtName != NULL && !ppqPutClose(conn, 'S', stmtName))
        return false;
    if (portalName != NULL && !ppqPutClose(conn, 'P', portalName))
        return false;
    return ppqPutSync(conn);
}

int PPQclose(PGconn *conn, const char *portalName, const char *stmtName)
{
    size_t bytes = PPQ_HEADER_BYTES;

    if (conn == NULL)
        return 0;
    if (portalName == NULL && stmtName == NULL)
        return 1;
    if (!ppqCanSend(conn))
        return 0;
    if (portalName != NULL)
        bytes += ppqNameBytes(portalName);
    if (stmtName != NULL)
        bytes += ppqNameBytes(stmtName);
    if (!ppqReserve(conn, bytes) || !ppqBeginAfterClose(conn) || !ppqEnqueue(conn))
        return 0;
    if (!ppqPutCloses(conn, portalName, stmtName)) {
        PQclear(ppqFailedSend(conn));
        return 0;
    }
    /* A portal alone waits for the Bind that reopens it, to share its write and its Sync. */
    return stmtName == NULL || pqFlush(conn) >= 0;
}
