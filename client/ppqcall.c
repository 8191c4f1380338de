/*
 * SPDX-FileCopyrightText: 2026 the DORVY driver developers
 * SPDX-License-Identifier: MIT
 *
 * libpq's own calls behind a Close whose answer is under way.
 */
#include "ppq_p.h"

#include "ppqcall.h"
#include "ppqsettle.h"

/*
 * Lets libpq send although the answer to a Close is outstanding: its entry stays at the head of the
 * queue, where the call's comes behind it.  False: libpq has to make its call itself.
 */
static bool ppqGoBehindClose(PGconn *conn)
{
    if (conn == NULL || conn->status != CONNECTION_OK || !ppqIsCloseUnderWay(conn))
        return false;
    conn->asyncStatus = PGASYNC_IDLE;
    return true;
}

/*
 * The last result of a call, as PQexec has it; a copy stays under way.  Where more is to come
 * behind the call's answer, libpq must not read on.
 */
static PGresult *ppqLastResult(PGconn *conn, bool more)
{
    PGresult *last = NULL;
    PGresult *result;
    bool suspended = false;

    while ((result = more ? ppqGetResult(conn, more, &suspended) : PQgetResult(conn)) != NULL) {
        PQclear(last);
        last = result;
        if (ppqIsCopy(PQresultStatus(result)) || conn->status == CONNECTION_BAD)
            break;
    }
    return last;
}

/* Takes in the answers to the Close and to the call behind it, if that was sent. */
static PGresult *ppqFinishCall(PGconn *conn, int sent)
{
    PGresult *result;
    PpqClosed closed;

    if (!sent) {
        if (conn->cmd_queue_head != NULL)
            conn->asyncStatus = PGASYNC_BUSY;
        return NULL;
    }
    if (!ppqTakeClosed(conn, &closed))
        return NULL;
    result = ppqLastResult(conn, closed.synced);
    ppqMakeGood(conn, &closed, result != NULL);
    return result;
}

PGresult *ppqExec(PGconn *conn, const char *sql)
{
    if (!ppqGoBehindClose(conn))
        return PQexec(conn, sql);
    return ppqFinishCall(conn, PQsendQuery(conn, sql));
}

PGresult *ppqPrepare(PGconn *conn, const char *stmtName, const char *sql)
{
    if (!ppqGoBehindClose(conn))
        return PQprepare(conn, stmtName, sql, 0, NULL);
    return ppqFinishCall(conn, PQsendPrepare(conn, stmtName, sql, 0, NULL));
}

PGresult *ppqDescribePrepared(PGconn *conn, const char *stmtName)
{
    if (!ppqGoBehindClose(conn))
        return PQdescribePrepared(conn, stmtName);
    return ppqFinishCall(conn, PQsendDescribePrepared(conn, stmtName));
}

PGresult *ppqExecPrepared(PGconn *conn, const char *stmtName, int nParams,
                          const char *const *paramValues, const int *paramLengths,
                          const int *paramFormats, int resultFormat)
{
    if (!ppqGoBehindClose(conn)) {
        return PQexecPrepared(conn, stmtName, nParams, paramValues, paramLengths, paramFormats,
                              resultFormat);
    }
    return ppqFinishCall(conn, PQsendQueryPrepared(conn, stmtName, nParams, paramValues,
                                                   paramLengths, paramFormats, resultFormat));
}

PGTransactionStatusType ppqTransactionStatus(const PGconn *conn)
{
    return conn != NULL && conn->status == CONNECTION_OK && ppqIsCloseUnderWay(conn)
               ? conn->xactStatus
               : PQtransactionStatus(conn);
}

int ppqIsReady(PGconn *conn)
{
    if (conn == NULL || conn->status != CONNECTION_OK)
        return 0;
    return ppqIsCloseUnderWay(conn) || ppqSettle(conn);
}
