/*
 * SPDX-FileCopyrightText: 2026 the DORVY driver developers
 * SPDX-License-Identifier: MIT
 *
 * A Close is not waited for; what comes next goes out behind it, and both answers take one wait.
 */
#include "ppq_p.h"

#include "ppqbytes_p.h"

bool ppqIsCloseUnderWay(const PGconn *conn)
{
    return ppqIsClosing(conn) && conn->asyncStatus == PGASYNC_BUSY && !conn->write_failed &&
           conn->cmd_queue_head->next == NULL && conn->result == NULL && !conn->error_result;
}

bool ppqBeginBehindClose(PGconn *conn)
{
    return (!ppqHasUnsentClose(conn) && ppqIsCloseUnderWay(conn)) || ppqBeginAfterClose(conn);
}

/* What has been sent behind the Close ends a copy that the server asks for in its place. */
static void ppqLeaveCopy(PGconn *conn)
{
    pqCommandQueueAdvance(conn, false, false);
    conn->asyncStatus = PGASYNC_IDLE;
}

/*
 * Takes in the whole answer to a Close and tells in failed whether there was an error in it.  A
 * result is asked for only where there is one: libpq would read on, into the next cycle's answer.
 */
static bool ppqAwaitClosed(PGconn *conn, bool *failed)
{
    bool suspended = false;

    while (ppqAwait(conn, &suspended) && conn->asyncStatus != PGASYNC_IDLE) {
        PGresult *result = PQgetResult(conn);
        const ExecStatusType status = PQresultStatus(result);

        PQclear(result);
        if (status == PGRES_FATAL_ERROR)
            *failed = true;
        if (status == PGRES_COPY_IN) {
            ppqLeaveCopy(conn);
        } else if (!ppqEndCopy(conn, status)) {
            return false;
        }
    }
    return conn->status == CONNECTION_OK;
}

/*
 * An end that comes next is one too many of the Close's, or all that there is of the next cycle's
 * answer.  Another Sync tells, as what has come before cannot be its end: that one stands behind the
 * answer, or in its place.
 */
static bool ppqDropStrayEnds(PGconn *conn, PpqClosed *closed)
{
    int end;

    while ((end = ppqMessageEnd(conn, conn->inStart)) >= 0 &&
           conn->inBuffer[conn->inStart] == 'Z') {
        conn->inStart = end;
        conn->inCursor = end;
        closed->synced = true;
    }
    if (!closed->synced || (ppqReserve(conn, PPQ_HEADER_BYTES) && ppqPutSync(conn)))
        return true;
    ppqGiveUp(conn);
    return false;
}

/* Goes on from the end of the Close's cycle to the one behind it. */
static bool ppqGoOn(PGconn *conn, PpqClosed *closed)
{
    pqClearConnErrorState(conn);
    pqClearAsyncResult(conn);
    conn->asyncStatus = PGASYNC_BUSY;
    return ppqDropStrayEnds(conn, closed);
}

/*
 * Takes the cycle behind a Close out of libpq's sight, which at the end of a cycle takes the queue's
 * head for what has ended.
 */
static PGcmdQueueEntry *ppqDetachBehind(PGconn *conn)
{
    PGcmdQueueEntry *behind = conn->cmd_queue_head->next;

    conn->cmd_queue_head->next = NULL;
    conn->cmd_queue_tail = conn->cmd_queue_head;
    return behind;
}

static void ppqFreeQueueEntry(PGcmdQueueEntry *entry)
{
    free(entry->query);
    free(entry);
}

bool ppqTakeClosed(PGconn *conn, PpqClosed *closed)
{
    PGcmdQueueEntry *behind;
    bool failed = false;

    *closed = (PpqClosed){NULL, false};
    if (!ppqIsClosing(conn) || conn->cmd_queue_head->next == NULL)
        return true;
    closed->ignored = ppqTakeClosing(conn);
    behind = ppqDetachBehind(conn);
    if (!ppqAwaitClosed(conn, &failed)) {
        ppqFreeQueueEntry(behind); /* a lost connection has nothing outstanding */
        free(closed->ignored);
        return false;
    }
    ppqAppendQueueEntry(conn, behind);
    if (!failed) {
        free(closed->ignored);
        closed->ignored = NULL;
    }
    if (ppqGoOn(conn, closed))
        return true;
    free(closed->ignored);
    return false;
}

/* Takes in the end that the further Sync of ppqDropStrayEnds has brought. */
static void ppqTakeEnd(PGconn *conn)
{
    bool failed = false;

    if (ppqEnqueue(conn, PGQUERY_EXTENDED))
        ppqDiscard(conn, &failed);
}

void ppqMakeGood(PGconn *conn, PpqClosed *closed, bool answered)
{
    if (closed->synced && answered && conn->asyncStatus == PGASYNC_IDLE)
        ppqTakeEnd(conn);
    if (closed->ignored != NULL && conn->asyncStatus == PGASYNC_IDLE)
        ppqCloseAgain(conn, closed->ignored);
    free(closed->ignored);
}
