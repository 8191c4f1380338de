// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Column values, from the two formats that results can arrive in.
#ifndef DORVYDECODE_P_H
#define DORVYDECODE_P_H

#include <QtCore/QSharedPointer>
#include <QtCore/QVariant>
#include <QtSql/QSqlResult>

class Dorvy3Connection;

/*!
    A value in text format: \a value up to its terminating zero, as \a type, which is that of the
    type table for \a oid. \a policy decides about numeric only. Text that does not parse gives an
    invalid or empty value; a type that cannot arrive as text (time) ends the process.

    Dates are read in ISO form, which every connection is set to.
*/
QVariant hlpPSQLValueToVariant(const QSharedPointer<Dorvy3Connection> &connection,
                               QVariant::Type type, int oid, QSql::NumericalPrecisionPolicy policy,
                               const char *value);

/*!
    Decodes a value in binary format: \a length bytes at \a value, with a zero behind them.
*/
using DorvyBinaryDecoder = QVariant (*)(const Dorvy3Connection *connection, const char *value,
                                        int length);

/*! The decoder of values of the type with the OID \a oid. An unsupported one ends the process. */
DorvyBinaryDecoder hlpBinaryDecoder(int oid);

/*!
    A value in binary format: \a length bytes at \a value. Byte arrays are not copied: they are
    views into the libpq result. Fewer bytes than the type needs, which only a broken server sends,
    give an invalid value. An unsupported type ends the process.

    Source: PostgreSQL's send functions of the types.
*/
QVariant hlpBinaryPSQLValueToVariant(const QSharedPointer<Dorvy3Connection> &connection, int oid,
                                     int length, const char *value);

/*!
    The calendar date of \a days from 2000-01-01. A year before 1 is a BC year as QDate counts: -1
    is 1 BC.

    Source: PostgreSQL, j2date (calendar date of a Julian day).
*/
void hlpDecodePgDate(long days, int &year, int &month, int &day);

/*! \a microseconds in hours, minutes, seconds and microseconds; all take its sign. */
void hlpDecodePgTime(long long microseconds, int &hours, int &minutes, int &seconds, int &usec);

/*! What either decoder says of a type that it does not know, and the end of the process. */
[[noreturn]] void hlpUnsupportedType(int oid);

#endif // DORVYDECODE_P_H
