// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The OIDs of PostgreSQL's built-in types that the driver knows.
//
// Source: PostgreSQL catalog, pg_type.
#ifndef DORVY3OIDS_P_H
#define DORVY3OIDS_P_H

namespace Dorvy3Oid {

enum Type : int {
    Bool = 16,
    Bytea = 17,
    Name = 19,
    Int8 = 20,
    Int2 = 21,
    Int4 = 23,
    Text = 25,
    Float4 = 700,
    Float8 = 701,
    Unknown = 705,
    Bpchar = 1042,
    Varchar = 1043,
    Date = 1082,
    Time = 1083,
    Timestamp = 1114,
    TimestampTz = 1184,
    TimeTz = 1266,
    Bit = 1560,
    Varbit = 1562,
    Numeric = 1700,
    Uuid = 2950,
    Jsonb = 3802
};

} // namespace Dorvy3Oid

#endif // DORVY3OIDS_P_H
