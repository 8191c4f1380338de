/*
 * SPDX-FileCopyrightText: 2026 the DORVY driver developers
 * SPDX-License-Identifier: MIT
 *
 * The end of a query cycle on libpq's connection structure: a message loop that knows
 * PortalSuspended, which libpq's own parser does not.
 */
#include "ppq_p.h"

#include <string.h>

#include "port/pg_bswap.h"
#include "pqexpbuffer.h"

uint32 ppqMessageLength(const char *buffer)
{
    uint32 length;

    memcpy(&length, buffer + 1, sizeof(length));
    return pg_ntoh32(length);
}

/*
 * The bytes of the message at the offset, among those received; 0 where it has not come whole.
 * Lengths that no message can have are left for libpq to complain about.
 */
static int ppqWholeBytes(const PGconn *conn, int at)
{
    uint32 length;

    if (conn->inEnd - at < PPQ_HEADER_BYTES)
        return 0;
    length = ppqMessageLength(conn->inBuffer + at);
    if (length < PPQ_LENGTH_BYTES || length >= (uint32)(conn->inEnd - at))
        return 0;
    return 1 + (int)length;
}

/*
 * The offset of the first whole PortalSuspended message among those received, or -1.  Only
 * message boundaries count: row data is full of its type byte.
 */
static int ppqFindSuspended(const PGconn *conn)
{
    int bytes;

    for (int at = conn->inStart; (bytes = ppqWholeBytes(conn, at)) > 0; at += bytes) {
        if (conn->inBuffer[at] == 's' && bytes == PPQ_HEADER_BYTES)
            return at;
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

/* The rest of an answer may still be under way, and would be taken for that of the next cycle. */
void ppqGiveUp(PGconn *conn)
{
    pqDropConnection(conn, true);
    conn->status = CONNECTION_BAD;
    pqClearAsyncResult(conn);
    conn->asyncStatus = PGASYNC_IDLE;
}

/* libpq keeps a write error back, in case the server's last words explain it better. */
static void ppqGiveUpWriting(PGconn *conn)
{
    const char *reason = conn->write_err_msg;

    appendPQExpBufferStr(&conn->errorMessage, reason != NULL ? reason : "write to server failed\n");
    ppqGiveUp(conn);
}

/*
 * Whether the parser has left a whole message where it is: libpq had no memory for the start of a
 * copy, or the message ends before its fields do.  It then waits for more bytes of that message,
 * and the server may have none to send.
 */
static bool ppqIsStuck(const PGconn *conn)
{
    return conn->asyncStatus == PGASYNC_BUSY && ppqWholeBytes(conn, conn->inStart) > 0;
}

/* Exchanges bytes and parses them; false when the connection is given up. */
static bool ppqGoOn(PGconn *conn)
{
    if (ppqIsStuck(conn)) {
        ppqSetError(conn, "out of memory, or a malformed message from the server");
        ppqGiveUp(conn);
        return false;
    }
    if (!ppqExchange(conn)) {
        ppqGiveUp(conn);
        return false;
    }
    ppqParse(conn);
    if (conn->write_failed && conn->asyncStatus == PGASYNC_BUSY) {
        ppqGiveUpWriting(conn);
        return false;
    }
    return true;
}

PGresult *ppqGetResult(PGconn *conn)
{
    ppqParse(conn);
    while (conn->asyncStatus == PGASYNC_BUSY) {
        if (!ppqGoOn(conn))
            return NULL;
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
    if (conn->status == CONNECTION_BAD) {
        /* Its error message has the server's last words, too; the last result does not. */
        PQclear(last);
        return NULL;
    }
    if (last == NULL) {
        ppqSetError(conn, "the server answered without a result");
        return NULL;
    }
    /*
     * libpq's complaints about a row or column out of range stay off standard error.  Only a page's:
     * the error that tells of no memory is a constant.
     */
    if (PQresultStatus(last) == PGRES_TUPLES_OK)
        last->noticeHooks.noticeRec = NULL;
    return last;
}
