/*
 * SPDX-FileCopyrightText: 2026 the DORVY driver developers
 * SPDX-License-Identifier: MIT
 *
 * The end of a query cycle on libpq's connection structure: a message loop that knows
 * PortalSuspended, which libpq's own parser does not.
 */
#include "ppq_p.h"

#include "pqexpbuffer.h"

#include "ppqbytes_p.h"

/* Whether the result that is being built is a page, or an error that a page ended in. */
static bool ppqIsPage(const PGconn *conn)
{
    return conn->error_result ||
           (conn->result != NULL && conn->result->resultStatus == PGRES_TUPLES_OK);
}

/*
 * To libpq's parser EmptyQueryResponse has PortalSuspended's length and, behind a column
 * description, its meaning: the result is complete.  So the one is handed over as the other, and
 * suspended is set; where no page is being built it stays what it is, and libpq reports an
 * unexpected message.
 */
static void ppqSuspend(PGconn *conn, int end, bool *suspended)
{
    if (end - conn->inStart == PPQ_HEADER_BYTES && ppqIsPage(conn)) {
        conn->inBuffer[conn->inStart] = 'I';
        *suspended = true;
    }
}

/*
 * Sees to what libpq's parser does not know, does slowly or forgets, in the next message, which
 * ends at the given offset.  True: the message has been taken, and as many as belong to it.
 */
static bool ppqTakeOwn(PGconn *conn, int end, bool *suspended)
{
    switch (conn->inBuffer[conn->inStart]) {
    case 'D':
        return ppqTakeRows(conn);
    case 's':
        ppqSuspend(conn, end, suspended);
        return false;
    case 'G':
    case 'H':
    case 'W':
    case 't':
        /* The result that these begin takes the place of the one being built, and that leaks. */
        PQclear(conn->result);
        conn->result = NULL;
        return false;
    default:
        return false;
    }
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
 * Parses what has been received, one message at a time: libpq's parser reads on behind a message
 * that ends too early, or waits for more of it.  False: there is such a message.
 */
static bool ppqParse(PGconn *conn, bool *suspended)
{
    int end;

    while (conn->asyncStatus == PGASYNC_BUSY && (end = ppqMessageEnd(conn, conn->inStart)) >= 0) {
        if (ppqTakeOwn(conn, end, suspended))
            continue;
        ppqParseUpTo(conn, end);
        if (conn->asyncStatus == PGASYNC_BUSY && conn->inStart != end)
            return false;
    }
    /*
     * What is left is the beginning of a message: libpq looks at its length and makes room.  Behind
     * the end of the cycle it is another one's, which libpq would throw away.
     */
    if (conn->asyncStatus == PGASYNC_BUSY)
        pqParseInput3(conn);
    return true;
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

/* libpq leaves a message unread for either reason, and does not say for which. */
static void ppqGiveUpParsing(PGconn *conn)
{
    ppqSetError(conn, "out of memory, or a message of the server ends too early");
    ppqGiveUp(conn);
}

bool ppqAwait(PGconn *conn, bool *suspended)
{
    bool parsed = ppqParse(conn, suspended);

    while (parsed && conn->asyncStatus == PGASYNC_BUSY) {
        if (!ppqExchange(conn)) {
            ppqGiveUp(conn);
            return false;
        }
        parsed = ppqParse(conn, suspended);
        if (conn->write_failed && conn->asyncStatus == PGASYNC_BUSY) {
            ppqGiveUpWriting(conn);
            return false;
        }
    }
    if (!parsed)
        ppqGiveUpParsing(conn);
    return parsed;
}

PGresult *ppqGetResult(PGconn *conn, bool more, bool *suspended)
{
    if (!ppqAwait(conn, suspended) || (more && conn->asyncStatus == PGASYNC_IDLE))
        return NULL;
    return PQgetResult(conn);
}

bool ppqIsCopy(ExecStatusType status)
{
    return status == PGRES_COPY_IN || status == PGRES_COPY_OUT || status == PGRES_COPY_BOTH;
}

/* Whether a success was ended: by a tag, or a page's rows by the portal's suspension. */
static bool ppqHasEnd(const PGresult *result, bool suspended)
{
    switch (PQresultStatus(result)) {
    case PGRES_TUPLES_OK:
        return suspended || result->cmdStatus[0] != '\0';
    case PGRES_COMMAND_OK:
        return result->cmdStatus[0] != '\0';
    default:
        return true;
    }
}

/*
 * Why the results of a cycle, of which the last one is given, are no answer; NULL if they are.
 * libpq hands on whatever a server says: where it had to skip a row, a command tag that follows
 * makes a result of its own, and looks like success.
 */
static const char *ppqAnswerFault(const PGresult *last, int count, bool suspended)
{
    if (last == NULL)
        return "the server answered without a result";
    if (PQresultStatus(last) == PGRES_FATAL_ERROR)
        return NULL;
    if (count > 1)
        return "the server answered with more than one result";
    if (!ppqHasEnd(last, suspended))
        return "the server answered with a result that has no end";
    return NULL;
}

/*
 * Takes in the results of a cycle, counts them and returns the one that matters: the first error,
 * which also takes the place of the rows before it (it comes from the commit that a Sync implies).
 */
static PGresult *ppqTakeResults(PGconn *conn, bool more, int *count, bool *suspended)
{
    PGresult *last = NULL;
    PGresult *result;

    while ((result = ppqGetResult(conn, more, suspended)) != NULL) {
        const bool copy = ppqIsCopy(PQresultStatus(result));

        (*count)++;
        if (last != NULL && PQresultStatus(last) == PGRES_FATAL_ERROR) {
            PQclear(result);
        } else {
            PQclear(last);
            last = result;
        }
        if (copy || conn->status == CONNECTION_BAD)
            break;
    }
    /* Something that nobody ended before the cycle did. */
    if (conn->asyncStatus == PGASYNC_IDLE && pgHavePendingResult(conn))
        (*count)++;
    return last;
}

PGresult *ppqFinish(PGconn *conn, PGresult *page)
{
    int count = 0;
    bool suspended = false;
    PGresult *last;
    const char *fault;
    PpqClosed closed;

    if (!ppqTakeClosed(conn, &closed)) {
        PQclear(page);
        return NULL;
    }
    conn->result = page;
    last = ppqTakeResults(conn, closed.synced, &count, &suspended);
    fault = ppqAnswerFault(last, count, suspended);
    ppqMakeGood(conn, &closed, last != NULL);
    if (conn->status == CONNECTION_BAD) {
        /* Its error message has the server's last words, too; the last result does not. */
        PQclear(last);
        return NULL;
    }
    if (fault != NULL) {
        PQclear(last);
        ppqSetError(conn, fault);
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
