// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The one table from PostgreSQL's types to Qt's. The encoder's table, from Qt to PostgreSQL, covers
// other types on purpose; the two are not to be aligned.
#include "driver/dorvytypes_p.h"

#include "access/dorvy3fatal_p.h"
#include "access/dorvy3oids_p.h"

QVariant::Type hlpFindPSQLType(int oid)
{
    switch (oid) {
    case Dorvy3Oid::Bool:
        return QVariant::Bool;
    case Dorvy3Oid::Int8:
        return QVariant::LongLong;
    case Dorvy3Oid::Int2:
    case Dorvy3Oid::Int4:
        return QVariant::Int;
    case Dorvy3Oid::Float4:
    case Dorvy3Oid::Float8:
    case Dorvy3Oid::Numeric:
        return QVariant::Double;
    case Dorvy3Oid::Name:
    case Dorvy3Oid::Bpchar:
    case Dorvy3Oid::Varchar:
    case Dorvy3Oid::Uuid:
        return QVariant::String;
    case Dorvy3Oid::Bytea:
    case Dorvy3Oid::Text:
    case Dorvy3Oid::Unknown:
    case Dorvy3Oid::Jsonb:
        return QVariant::ByteArray;
    case Dorvy3Oid::Date:
        return QVariant::Date;
    case Dorvy3Oid::Time:
        return QVariant::Time;
    case Dorvy3Oid::Timestamp:
    case Dorvy3Oid::TimestampTz:
        return QVariant::DateTime;
    default:
        return QVariant::Invalid;
    }
}

QVariant::Type hlpDecodePSQLType(int oid)
{
    const QVariant::Type type = hlpFindPSQLType(oid);
    if (type == QVariant::Invalid) {
        hlpFatal("DORVY: hlpDecodePSQLType - unknown ptype (%d)", oid);
    }
    return type;
}
