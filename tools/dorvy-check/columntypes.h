// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Which columns of a table or a query the driver reads, found out without reading them.
#ifndef COLUMNTYPES_H
#define COLUMNTYPES_H

#include "servercheck.h"

/*! Reports each column of the table, view or the like that is called \a name. */
void checkTable(ServerSession &session, const QString &name, const TakeFinding &report);

/*!
    Reports each column of \a query and each of its parameters. The query is not run: it is prepared,
    and then joined to one row on a condition that is never true, so that the server tells its types
    beside nulls.
*/
void checkQuery(ServerSession &session, const QString &query, const TakeFinding &report);

#endif // COLUMNTYPES_H
