/*
 * SPDX-FileCopyrightText: 2026 the DORVY driver developers
 * SPDX-License-Identifier: MIT
 *
 * One query cycle on libpq's connection structure: begin, send, and a message loop that knows
 * PortalSuspended, which libpq's own parser does not.
 */
#include "ppq_p.h"

#include <string.h>

#include "port/pg_bswap.h"
#include "pqexpbuffer.h"

void ppqSetError(PGconn *conn, const char *text)
{
    pqClearConnErrorState(conn);
    appendPQExpBuffer(&conn->errorMessage, "%s\n", text);
}

bool ppqCanSend(PGconn *conn)
{
    if (conn->status != CONNECTION_OK) {
        ppqSetError(conn, "no connection to the server");
        return false;
    }
    if (conn->pipelineStatus != PQ_PIPELINE_OFF) {
        ppqSetError(conn, "portal operations are not allowed in pipeline mode");
        return false;
    }
    return true;
}

/* Ends the copy that a discarded result announces; libpq's answer to it is discarded in turn. */
static bool ppqEndCopy(PGconn *conn, ExecStatusType status)
{
    if (status == PGRES_COPY_IN)
        return PQputCopyEnd(conn, "COPY terminated by a new command") >= 0;
    if (status == PGRES_COPY_OUT)
        conn->asyncStatus = PGASYNC_BUSY; /* libpq then drops the rest of the data */
    if (status == PGRES_COPY_BOTH) {
        ppqSetError(conn, "portal operations are not allowed during COPY BOTH");
        return false;
    }
    return true;
}

bool ppqBegin(PGconn *conn)
{
    PGresult *result;

    while ((result = PQgetResult(conn)) != NULL) {
        const ExecStatusType status = PQresultStatus(result);

        PQclear(result);
        if (!ppqEndCopy(conn, status) || conn->status == CONNECTION_BAD)
            return false;
    }
    pqClearConnErrorState(conn);
    pqClearAsyncResult(conn);
    conn->singleRowMode = false;
    return true;
}

/* The length word of the message at buffer, which has at least a whole header. */
static uint32 ppqMessageLength(const char *buffer)
{
    uint32 length;

    memcpy(&length, buffer + 1, sizeof(length));
    return pg_ntoh32(length);
}

/*
 * Whether the send buffer holds nothing but Close messages and their Sync.  A connection in
 * blocking mode keeps no other call's bytes there, so these are whole and unsent.
 */
static bool ppqHasUnsentClose(const PGconn *conn)
{
    int at = 0;

    if (conn->asyncStatus != PGASYNC_BUSY || conn->nonblocking)
        return false;
    while (conn->outCount - at >= PPQ_HEADER_BYTES && conn->outBuffer[at] == 'C') {
        const uint32 length = ppqMessageLength(conn->outBuffer + at);

        if (length < PPQ_LENGTH_BYTES || length >= (uint32)(conn->outCount - at))
            return false;
        at += 1 + (int)length;
    }
    return at > 0 && conn->outCount - at == PPQ_HEADER_BYTES && conn->outBuffer[at] == 'S';
}

bool ppqBeginAfterClose(PGconn *conn)
{
    if (!ppqHasUnsentClose(conn))
        return ppqBegin(conn);
    /* The cycle that the Close opened stays in libpq's queue and becomes ours. */
    conn->outCount -= PPQ_HEADER_BYTES;
    return true;
}

/* libpq keeps used entries for the next command; it frees them all with the connection. */
static PGcmdQueueEntry *ppqTakeQueueEntry(PGconn *conn)
{
    PGcmdQueueEntry *entry = conn->cmd_queue_recycle;

    if (entry == NULL)
        return (PGcmdQueueEntry *)malloc(sizeof(PGcmdQueueEntry));
    conn->cmd_queue_recycle = entry->next;
    return entry;
}

bool ppqEnqueue(PGconn *conn)
{
    PGcmdQueueEntry *entry;

    if (conn->asyncStatus != PGASYNC_IDLE)
        return true; /* taken over from the Close in front */
    entry = ppqTakeQueueEntry(conn);
    if (entry == NULL) {
        ppqSetError(conn, "out of memory");
        return false;
    }
    entry->queryclass = PGQUERY_EXTENDED;
    entry->query = NULL;
    entry->next = NULL;
    if (conn->cmd_queue_head == NULL) {
        conn->cmd_queue_head = entry;
    } else {
        conn->cmd_queue_tail->next = entry;
    }
    conn->cmd_queue_tail = entry;
    conn->asyncStatus = PGASYNC_BUSY;
    return true;
}

/*
 * The offset of the first whole PortalSuspended message among those received, or -1.  Only
 * message boundaries count: row data is full of its type byte.  Lengths that no message can
 * have are left for libpq to complain about.
 */
static int ppqFindSuspended(const PGconn *conn)
{
    int at = conn->inStart;

    while (conn->inEnd - at >= PPQ_HEADER_BYTES) {
        const uint32 length = ppqMessageLength(conn->inBuffer + at);

        if (length < PPQ_LENGTH_BYTES)
            return -1;
        if (conn->inBuffer[at] == 's' && length == PPQ_LENGTH_BYTES)
            return at;
        if (length >= (uint32)(conn->inEnd - at))
            return -1;
        at += 1 + (int)length;
    }
    return -1;
}

/* Whether the result that is being built is a page, or an error that a page ended in. */
static bool ppqIsPage(const PGconn *conn)
{
    return conn->error_result ||
           (conn->result != NULL && conn->result->resultStatus == PGRES_TUPLES_OK);
}

/* Hands libpq's parser the messages in front of the given offset, which is a boundary. */
static void ppqParseUpTo(PGconn *conn, int offset)
{
    const int end = conn->inEnd;

    conn->inEnd = offset;
    pqParseInput3(conn);
    /* A parser that gave the connection up has emptied the buffer. */
    if (conn->status != CONNECTION_BAD)
        conn->inEnd = end;
}

/*
 * Parses what has been received.  To libpq's parser EmptyQueryResponse has PortalSuspended's
 * length and, behind a column description, its meaning: the result is complete.  So the one is
 * handed over as the other; where no page is being built it stays what it is, and libpq reports
 * an unexpected message.
 */
static void ppqParse(PGconn *conn)
{
    int suspended;

    while (conn->asyncStatus == PGASYNC_BUSY && (suspended = ppqFindSuspended(conn)) >= 0) {
        ppqParseUpTo(conn, suspended);
        /* A message in front that the parser did not take holds up everything behind it. */
        if (conn->asyncStatus != PGASYNC_BUSY || conn->inStart != suspended)
            return;
        if (ppqIsPage(conn))
            conn->inBuffer[suspended] = 'I';
        ppqParseUpTo(conn, suspended + PPQ_HEADER_BYTES);
    }
    pqParseInput3(conn);
}

/* Sends what is unsent and reads what has come, waiting for it. */
static bool ppqExchange(PGconn *conn)
{
    int unsent;

    while ((unsent = pqFlush(conn)) > 0) {
        if (pqWait(false, true, conn) != 0)
            return false;
    }
    return unsent == 0 && pqWait(true, false, conn) == 0 && pqReadData(conn) >= 0;
}

/* Turns the connection's error message into the result of a cycle that has failed. */
static PGresult *ppqFailedResult(PGconn *conn)
{
    pqSaveErrorResult(conn);
    conn->asyncStatus = PGASYNC_IDLE;
    return pqPrepareAsyncResult(conn);
}

PGresult *ppqFailedSend(PGconn *conn)
{
    pqDropConnection(conn, true);
    conn->status = CONNECTION_BAD;
    return ppqFailedResult(conn);
}

/* libpq keeps a write error back, in case the server's last words explain it better. */
static PGresult *ppqWriteFailedResult(PGconn *conn)
{
    const char *reason = conn->write_err_msg;

    appendPQExpBufferStr(&conn->errorMessage, reason != NULL ? reason : "write to server failed\n");
    return ppqFailedResult(conn);
}

/* PQgetResult, with a parser that knows PortalSuspended. */
static PGresult *ppqGetResult(PGconn *conn)
{
    ppqParse(conn);
    while (conn->asyncStatus == PGASYNC_BUSY) {
        if (!ppqExchange(conn))
            return ppqFailedResult(conn);
        ppqParse(conn);
        if (conn->write_failed && conn->asyncStatus == PGASYNC_BUSY)
            return ppqWriteFailedResult(conn);
    }
    return PQgetResult(conn);
}

static bool ppqIsCopy(ExecStatusType status)
{
    return status == PGRES_COPY_IN || status == PGRES_COPY_OUT || status == PGRES_COPY_BOTH;
}

/*
 * The last result of a cycle counts, as with PQexec: an error that follows the rows, from the
 * commit that a Sync implies, takes their place.
 */
PGresult *ppqFinish(PGconn *conn)
{
    PGresult *last = NULL;
    PGresult *result;

    while ((result = ppqGetResult(conn)) != NULL) {
        PQclear(last);
        last = result;
        if (ppqIsCopy(PQresultStatus(result)) || conn->status == CONNECTION_BAD)
            break;
    }
    if (last == NULL) {
        ppqSetError(conn, "the server answered without a result");
        return NULL;
    }
    /* libpq's complaints about a row or column out of range stay off standard error. */
    last->noticeHooks.noticeRec = NULL;
    return last;
}
