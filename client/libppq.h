/*
 * SPDX-FileCopyrightText: 2026 the DORVY driver developers
 * SPDX-License-Identifier: MIT
 */
/*!
 * \file
 * The client extension's face: a prepared statement is run through a named portal and read in
 * pages.
 *
 * The operations work on a connection of the libpq that this library is linked with, beside
 * libpq's own calls: a connection may be used with both, one call at a time, by one thread at a
 * time.  Like PQexec, an operation that sends first discards results that nobody fetched and
 * ends a copy that is under way; a COPY BOTH ends with the connection.  They are for synchronous
 * use; a connection in pipeline mode is refused.
 *
 * Misuse (no connection or a lost one, pipeline mode, a missing name, a bad count) is answered
 * with NULL and a message in PQerrorMessage, or just NULL where there is no connection to keep
 * one.
 */
#ifndef LIBPPQ_H
#define LIBPPQ_H

#include <libpq-fe.h>

#ifdef __cplusplus
extern "C" {
#endif

/*!
 * Bind a prepared statement to a named portal and run it for its first rows.
 *
 * \param conn          the connection
 * \param maxRows       most rows in this page, at least 1
 * \param stmtName      the prepared statement
 * \param portalName    the portal to open; it must not be open on the server
 * \param nParams       number of parameters, 0 to 65535
 * \param paramValues   a value each, NULL for SQL NULL; may be NULL when nParams is 0
 * \param paramLengths  bytes of each binary value; ignored for text and for NULL
 * \param paramFormats  0 text, 1 binary each; NULL means all text
 * \param resultFormat  0 text, 1 binary, for all columns
 *
 * \return a result to free with PQclear.  PGRES_TUPLES_OK: a page with its column description;
 * its command tag (PQcmdStatus) is empty when the portal was suspended after maxRows rows and
 * is still open, and set when the statement ran to its end.  PGRES_COMMAND_OK: a statement
 * without columns, run to its end.  An error status: the server's message.  NULL: misuse, no
 * memory, or a connection that is lost or answers without one whole result; PQerrorMessage says
 * which.
 *
 * The parameters are copied into libpq's buffer before the call returns.
 *
 * Source: PostgreSQL protocol 3.0, message flow, Extended Query (Execute with a row limit).
 */
PGresult *PPQexecPrepared(PGconn *conn, int maxRows, const char *stmtName, const char *portalName,
                          int nParams, const char *const *paramValues, const int *paramLengths,
                          const int *paramFormats, int resultFormat);

/*!
 * Run an open portal for its next rows.
 *
 * \param conn          the connection
 * \param maxRows       most rows in this page, at least 1
 * \param portalName    the portal
 * \param previous      the page before; lends its column description and stays the caller's
 *
 * \return a result to free with PQclear: PGRES_TUPLES_OK (no rows: the portal is exhausted) or
 * an error status with the server's message.  NULL: misuse, no memory, or a connection that is
 * lost or answers without one whole result; PQerrorMessage says which.
 *
 * A previous page with a command tag proves that the portal is exhausted: the answer is then an
 * empty page with the same tag for no rows, as the server would give it, and nothing is sent.
 *
 * Source: PostgreSQL protocol 3.0, message flow, Extended Query.
 */
PGresult *PPQfetch(PGconn *conn, int maxRows, const char *portalName, const PGresult *previous);

/*!
 * Close a portal, a prepared statement, or both.
 *
 * \param conn          the connection
 * \param portalName    the portal, closed first; NULL for none
 * \param stmtName      the prepared statement; NULL for none
 *
 * A name that the server does not know is not an error.  The call does not wait for the server's
 * answer: whatever comes next on the connection takes it in, as it would any unfetched result,
 * and PQtransactionStatus says PQTRANS_ACTIVE until then.  A failure on the server is therefore
 * dropped with the answer; the transaction status tells that one happened.  Closing a portal can
 * fail, and the server then ignores the close of the statement behind it: the operations here
 * send that again, libpq's own calls do not (those of ppqcall.h do, and ppqSettle, in
 * ppqsettle.h, before them).
 *
 * The close of a portal alone stays in the send buffer, for the run that binds the portal again
 * to take it along; any other call on the connection, PQflush included, sends it.
 *
 * \return 1 when the messages were queued or there was nothing to close, 0 when the connection
 * cannot take them (PQerrorMessage says why).
 *
 * Source: PostgreSQL protocol 3.0, message flow, Extended Query (Close).
 */
int PPQclose(PGconn *conn, const char *portalName, const char *stmtName);

#ifdef __cplusplus
}
#endif

#endif /* LIBPPQ_H */
