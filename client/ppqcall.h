/*
 * SPDX-FileCopyrightText: 2026 the DORVY driver developers
 * SPDX-License-Identifier: MIT
 */
/*!
 * \file
 * Calls for a connection on which a PPQclose may be outstanding: they go out behind it, and both
 * answers take one wait.
 */
#ifndef PPQCALL_H
#define PPQCALL_H

#include <libpq-fe.h>

#ifdef __cplusplus
extern "C" {
#endif

/*!
 * PQexec, which would wait for the answer to the close before it sends anything.
 *
 * If closing a portal failed, the close of its statement was ignored with it, and is sent again
 * behind the call, unless that has begun a copy.
 */
PGresult *ppqExec(PGconn *conn, const char *sql);

/*! PQprepare without parameter types; else as ppqExec(). */
PGresult *ppqPrepare(PGconn *conn, const char *stmtName, const char *sql);

/*! PQdescribePrepared; else as ppqExec(). */
PGresult *ppqDescribePrepared(PGconn *conn, const char *stmtName);

/*! PQexecPrepared; else as ppqExec(). */
PGresult *ppqExecPrepared(PGconn *conn, const char *stmtName, int nParams,
                          const char *const *paramValues, const int *paramLengths,
                          const int *paramFormats, int resultFormat);

/*!
 * PPQclose of the portal and PPQexecPrepared, in one cycle: the portal of an earlier run may be
 * open still.
 */
PGresult *ppqExecReopened(PGconn *conn, int maxRows, const char *stmtName, const char *portalName,
                          int nParams, const char *const *paramValues, const int *paramLengths,
                          const int *paramFormats, int resultFormat);

/*!
 * PQtransactionStatus; while a close is outstanding, the state before it in place of
 * PQTRANS_ACTIVE.
 *
 * A close can turn a transaction into a failed one, and does nothing else to it.
 */
PGTransactionStatusType ppqTransactionStatus(const PGconn *conn);

/*!
 * Whether the connection can take a call: it stands, and is not in a COPY BOTH, which no call
 * can end, so that it ends the connection.
 */
int ppqIsReady(PGconn *conn);

#ifdef __cplusplus
}
#endif

#endif /* PPQCALL_H */
