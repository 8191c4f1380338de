/*
 * SPDX-FileCopyrightText: 2026 the DORVY driver developers
 * SPDX-License-Identifier: MIT
 *
 * What the three operations share: the query cycle on libpq's connection structure and the
 * messages that they put into its send buffer.
 */
#ifndef PPQ_P_H
#define PPQ_P_H

#include "postgres_fe.h"

#include "libpq-fe.h"
#include "libpq-int.h"

StaticAssertDecl(PG_VERSION_NUM / 10000 == 15, "the extension works on libpq 15's structures");

/* A frontend message without a body: its type byte and its length word, which counts itself. */
#define PPQ_LENGTH_BYTES 4
#define PPQ_HEADER_BYTES 5

/*
 * The class of a PPQclose in libpq's command queue.  libpq compares classes with its own only, and
 * so treats it like PGQUERY_EXTENDED.  The entry's query, which libpq frees, is the name of a
 * statement whose Close stands behind that of its portal, or NULL.
 */
#define PPQ_QUERY_CLOSE ((PGQueryClass)'C')

/* ---- ppqbegin.c: the beginning of a query cycle, from an idle connection ---- */

/* Whether the connection can take an extended query; says why not in its error message. */
bool ppqCanSend(PGconn *conn);

/* Replaces the connection's error message.  text ends without a newline. */
void ppqSetError(PGconn *conn, const char *text);

/*
 * Takes in what is outstanding and starts a new cycle.  False: the connection is lost or in a
 * copy that cannot be ended; its error message says so.
 */
bool ppqBegin(PGconn *conn);

/*
 * Starts a cycle that goes on from a Close which is still in the send buffer: its Sync is taken
 * back, so that the messages to come share one Sync with it.  Where there is none, this is
 * ppqBegin.
 */
bool ppqBeginAfterClose(PGconn *conn);

/*
 * Whether the send buffer holds nothing but Close messages and their Sync.  A connection in
 * blocking mode keeps no other call's bytes there, so these are whole and unsent.
 */
bool ppqHasUnsentClose(const PGconn *conn);

/* Whether the answer to a PPQclose is outstanding. */
bool ppqIsClosing(const PGconn *conn);

/*
 * The statement whose Close stands behind its portal's in the outstanding cycle; NULL if there is
 * none.  The name is the caller's to free.
 */
char *ppqTakeClosing(PGconn *conn);

/* Takes in and drops every result that is outstanding; tells in failed whether one was an error. */
bool ppqDiscard(PGconn *conn, bool *failed);

/* Ends the copy that a discarded result announces; libpq's answer to it is discarded in turn. */
bool ppqEndCopy(PGconn *conn, ExecStatusType status);

/* Closes a statement whose Close the server has ignored, and takes the answer in. */
bool ppqCloseAgain(PGconn *conn, const char *stmtName);

/*
 * Enters the cycle into libpq's command queue: from here on its answer is outstanding.  False:
 * no memory; nothing has been sent.
 */
bool ppqEnqueue(PGconn *conn, PGQueryClass queryClass);

void ppqAppendQueueEntry(PGconn *conn, PGcmdQueueEntry *entry);

/* ---- ppqcycle.c: the end of a query cycle, to an idle connection ---- */

/*
 * Gives up a connection whose messages could be sent, or whose answer could be received, only in
 * part.  Its error message tells why.
 */
void ppqGiveUp(PGconn *conn);

/*
 * PQgetResult, with a parser that knows PortalSuspended, and sets suspended when it meets one that
 * ends a page.  NULL also when the connection is lost.  Where more is to come behind the cycle,
 * nothing is read beyond its end; libpq would throw it away.
 */
PGresult *ppqGetResult(PGconn *conn, bool more, bool *suspended);

/*
 * Sends what is in the buffer, takes in the whole answer and returns its one result; NULL when the
 * connection is lost or the answer is none.  Rows that come without a description join page, which
 * is taken over and may be NULL.
 */
PGresult *ppqFinish(PGconn *conn, PGresult *page);

/* Whether a result begins a copy. */
bool ppqIsCopy(ExecStatusType status);

/* Waits for a result or for the end of the cycle.  False: the connection is lost. */
bool ppqAwait(PGconn *conn, bool *suspended);

/* ---- ppqbehind.c: what goes out behind a Close whose answer is under way ---- */

/* What there is to make good after a Close has been answered. */
typedef struct PpqClosed
{
    char *ignored; /* the statement whose Close the server has ignored, or NULL */
    bool synced;   /* another Sync was sent, the end of which stands behind an answer */
} PpqClosed;

/* Whether the answer to a PPQclose is all that is outstanding, and none of it has been looked at. */
bool ppqIsCloseUnderWay(const PGconn *conn);

/*
 * Starts a cycle that goes out behind a Close whose answer is under way, which ppqFinish takes in
 * first.  Where there is none, this is ppqBeginAfterClose.
 */
bool ppqBeginBehindClose(PGconn *conn);

/*
 * Takes in the answer to a Close, if another cycle has gone out behind it, so that this one's is
 * what is outstanding.  False: the connection is lost, and there is nothing to make good.
 */
bool ppqTakeClosed(PGconn *conn, PpqClosed *closed);

/*
 * Makes good what the answer has left, at the end of the cycle that has gone out behind; answered
 * tells whether that has had a result.
 */
void ppqMakeGood(PGconn *conn, PpqClosed *closed, bool answered);

/* ---- ppqrows.c: the rows of a page ---- */

/*
 * Where the next message is a DataRow: adds it and those that have been received behind it to the
 * result that is being built, up to the first message that is no good row.  False: it has added
 * none; libpq's parser has to look at the message.
 */
bool ppqTakeRows(PGconn *conn);

/* ---- ppqmessage.c: the messages ---- */

/* What a Bind says; the parameters are described at PPQexecPrepared (libppq.h). */
typedef struct PpqBinding
{
    const char *stmtName;
    const char *portalName;
    int nParams;
    const char *const *paramValues;
    const int *paramLengths;
    const int *paramFormats;
    int resultFormat;
} PpqBinding;

static inline bool ppqIsBinary(const PpqBinding *binding, int parameter)
{
    return binding->paramFormats != NULL && binding->paramFormats[parameter] != 0;
}

/* What the messages need in the send buffer, in bytes. */
size_t ppqBindBytes(const PpqBinding *binding);
size_t ppqNameBytes(const char *name);

/* Makes room, so that the puts below can fail only with the connection. */
bool ppqReserve(PGconn *conn, size_t bytes);

/* Each puts one whole message into the send buffer; false with the connection's error set. */
bool ppqPutBind(PGconn *conn, const PpqBinding *binding);
bool ppqPutDescribePortal(PGconn *conn, const char *portalName);
bool ppqPutExecute(PGconn *conn, const char *portalName, int maxRows);
bool ppqPutClose(PGconn *conn, char kind, const char *name);
bool ppqPutSync(PGconn *conn);

#endif /* PPQ_P_H */
