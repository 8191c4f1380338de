/*
 * SPDX-FileCopyrightText: 2026 the DORVY driver developers
 * SPDX-License-Identifier: MIT
 *
 * The beginning of a query cycle on libpq's connection structure: what is outstanding is taken in,
 * and a Close that the server has ignored is sent again.
 */
#include "ppq_p.h"

#include "pqexpbuffer.h"

#include "ppqbytes_p.h"
#include "ppqsettle.h"

void ppqSetError(PGconn *conn, const char *text)
{
    pqClearConnErrorState(conn);
    appendPQExpBuffer(&conn->errorMessage, "%s\n", text);
}

bool ppqCanSend(PGconn *conn)
{
    /* Unless the text belongs to an answer that is outstanding. */
    if (conn->cmd_queue_head == NULL)
        pqClearConnErrorState(conn);
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

bool ppqEndCopy(PGconn *conn, ExecStatusType status)
{
    if (status == PGRES_COPY_IN)
        return PQputCopyEnd(conn, "COPY terminated by a new command") >= 0;
    if (status == PGRES_COPY_OUT)
        conn->asyncStatus = PGASYNC_BUSY; /* libpq then drops the rest of the data */
    if (status == PGRES_COPY_BOTH) {
        ppqSetError(conn, "portal operations are not allowed during COPY BOTH");
        ppqGiveUp(conn); /* no other operation can end it either */
        return false;
    }
    return true;
}

bool ppqDiscard(PGconn *conn, bool *failed)
{
    bool suspended = false;
    PGresult *result;

    while ((result = ppqGetResult(conn, false, &suspended)) != NULL) {
        const ExecStatusType status = PQresultStatus(result);

        PQclear(result);
        if (status == PGRES_FATAL_ERROR)
            *failed = true;
        if (!ppqEndCopy(conn, status) || conn->status == CONNECTION_BAD)
            return false;
    }
    if (conn->status == CONNECTION_BAD)
        return false;
    if (conn->asyncStatus != PGASYNC_IDLE) {
        /* The result that stands for a copy under way could not be made. */
        ppqSetError(conn, "out of memory");
        return false;
    }
    pqClearConnErrorState(conn);
    pqClearAsyncResult(conn);
    conn->singleRowMode = false;
    return true;
}

bool ppqIsClosing(const PGconn *conn)
{
    return conn->asyncStatus != PGASYNC_IDLE && conn->cmd_queue_head != NULL &&
           conn->cmd_queue_head->queryclass == PPQ_QUERY_CLOSE;
}

char *ppqTakeClosing(PGconn *conn)
{
    char *name;

    if (!ppqIsClosing(conn))
        return NULL;
    name = conn->cmd_queue_head->query;
    conn->cmd_queue_head->query = NULL;
    return name;
}

bool ppqCloseAgain(PGconn *conn, const char *stmtName)
{
    bool failed = false;

    if (!ppqReserve(conn, ppqNameBytes(stmtName) + PPQ_HEADER_BYTES) ||
        !ppqEnqueue(conn, PGQUERY_EXTENDED))
        return false;
    if (!ppqPutClose(conn, 'S', stmtName) || !ppqPutSync(conn)) {
        ppqGiveUp(conn);
        return false;
    }
    return ppqDiscard(conn, &failed);
}

bool ppqBegin(PGconn *conn)
{
    char *stmtName = ppqTakeClosing(conn);
    bool failed = false;
    bool ready = ppqDiscard(conn, &failed);

    if (ready && failed && stmtName != NULL)
        ready = ppqCloseAgain(conn, stmtName);
    free(stmtName);
    return ready;
}

int ppqSettle(PGconn *conn)
{
    if (conn == NULL || conn->status != CONNECTION_OK)
        return 0;
    /* A COPY BOTH would stand in the way of every call to come. */
    if (!ppqIsClosing(conn) && conn->asyncStatus != PGASYNC_COPY_BOTH)
        return 1;
    return ppqBegin(conn);
}

bool ppqHasUnsentClose(const PGconn *conn)
{
    PpqBytes unsent = {conn->outBuffer, conn->outBuffer + conn->outCount};
    uint32 length;

    if (!ppqIsClosing(conn) || conn->asyncStatus != PGASYNC_BUSY || conn->nonblocking)
        return false;
    while (ppqReadMessageLength(unsent, &length) && *unsent.at == 'C') {
        if (length < PPQ_LENGTH_BYTES || ppqReadBytes(&unsent, (size_t)length + 1) == NULL)
            return false;
    }
    return unsent.at > conn->outBuffer && unsent.end - unsent.at == PPQ_HEADER_BYTES &&
           *unsent.at == 'S';
}

bool ppqBeginAfterClose(PGconn *conn)
{
    if (!ppqHasUnsentClose(conn))
        return ppqBegin(conn);
    /* The cycle that the Close opened goes with its Sync; its entry is there for the next one. */
    conn->outCount -= PPQ_HEADER_BYTES;
    pqCommandQueueAdvance(conn, false, false);
    conn->asyncStatus = PGASYNC_IDLE;
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

void ppqAppendQueueEntry(PGconn *conn, PGcmdQueueEntry *entry)
{
    entry->next = NULL;
    if (conn->cmd_queue_head == NULL) {
        conn->cmd_queue_head = entry;
    } else {
        conn->cmd_queue_tail->next = entry;
    }
    conn->cmd_queue_tail = entry;
}

bool ppqEnqueue(PGconn *conn, PGQueryClass queryClass)
{
    PGcmdQueueEntry *entry = ppqTakeQueueEntry(conn);

    if (entry == NULL) {
        ppqSetError(conn, "out of memory");
        return false;
    }
    entry->queryclass = queryClass;
    entry->query = NULL;
    ppqAppendQueueEntry(conn, entry);
    conn->asyncStatus = PGASYNC_BUSY;
    return true;
}
