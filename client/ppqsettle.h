/*
 * SPDX-FileCopyrightText: 2026 the DORVY driver developers
 * SPDX-License-Identifier: MIT
 */
/*!
 * \file
 * ppqSettle: the end of an outstanding PPQclose, for a caller that goes on with libpq's own calls.
 */
#ifndef PPQSETTLE_H
#define PPQSETTLE_H

#include <libpq-fe.h>

#ifdef __cplusplus
extern "C" {
#endif

/*!
 * Take in the answer to a PPQclose, if one is outstanding.
 *
 * After it PQtransactionStatus tells the true state.  If closing the portal failed on the server,
 * the close of its statement was ignored with it; it is then sent again and waited for, which
 * libpq's own calls cannot know to do.  Anything else that is outstanding, such as a copy, is left
 * alone; but a COPY BOTH, which no other call can end, ends the connection.
 *
 * \return 1 when the connection can go on, 0 when it is lost or there is none.
 */
int ppqSettle(PGconn *conn);

#ifdef __cplusplus
}
#endif

#endif /* PPQSETTLE_H */
