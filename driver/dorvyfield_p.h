// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The description of result columns.
#ifndef DORVYFIELD_P_H
#define DORVYFIELD_P_H

#include <QtSql/QSqlRecord>

class Dorvy3Result;

/*!
    One field for each column of \a page: name, type, length and precision as Qt counts them, and
    the OID as SQL type. A column of an unknown type ends the process.

    Source: PostgreSQL catalog, pg_attribute (atttypmod) and the types' modifier functions.
*/
QSqlRecord hlpDescribeColumns(const Dorvy3Result &page);

#endif // DORVYFIELD_P_H
