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
 */
static bool ppqPutCloses(PGconn *conn, const char *portalName, const char *stmtName)
{
    if (portalName != NULL && !ppqPutClose(conn, 'P', portalName))
        return false;
    if (stmtName != NULL && !ppqPutClose(conn, 'S', stmtName))
        return false;
    return ppqPutSync(conn);
}

static size_t ppqCloseBytes(const char *portalName, const char *stmtName)
{
    return PPQ_HEADER_BYTES + (portalName != NULL ? ppqNameBytes(portalName) : 0) +
           (stmtName != NULL ? ppqNameBytes(stmtName) : 0);
}

/*
 * Opens a cycle for the messages and notes the statement with it: a portal's Close can fail, and
 * then takes the one behind it along; see ppqBegin.
 */
static bool ppqBeginClose(PGconn *conn, const char *stmtName)
{
    char *name = stmtName != NULL ? strdup(stmtName) : NULL;

    if (stmtName != NULL && name == NULL) {
        ppqSetError(conn, "out of memory");
        return false;
    }
    if (!ppqBeginAfterClose(conn) || !ppqEnqueue(conn, PPQ_QUERY_CLOSE)) {
        free(name);
        return false;
    }
    conn->cmd_queue_tail->query = name;
    return true;
}

int PPQclose(PGconn *conn, const char *portalName, const char *stmtName)
{
    if (conn == NULL)
        return 0;
    if (portalName == NULL && stmtName == NULL)
        return 1;
    if (!ppqCanSend(conn) || !ppqReserve(conn, ppqCloseBytes(portalName, stmtName)) ||
        !ppqBeginClose(conn, stmtName))
        return 0;
    if (!ppqPutCloses(conn, portalName, stmtName)) {
        ppqGiveUp(conn);
        return 0;
    }
    /* A portal alone waits for the Bind that reopens it, to share its write and its Sync. */
    return stmtName == NULL || pqFlush(conn) >= 0;
}
