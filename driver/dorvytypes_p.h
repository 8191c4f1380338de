// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The one table from PostgreSQL's types to Qt's.
#ifndef DORVYTYPES_P_H
#define DORVYTYPES_P_H

#include <QtCore/QVariant>

/*!
    The Qt type of the PostgreSQL type with the OID \a oid; Invalid for one that the driver does not
    know.
*/
QVariant::Type hlpFindPSQLType(int oid);

/*! The same, for a column that is to be read: an unknown type ends the process. */
QVariant::Type hlpDecodePSQLType(int oid);

#endif // DORVYTYPES_P_H
