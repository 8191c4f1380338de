// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Type numbers of the PostgreSQL catalog, pg_type, for the decoders' tests: their own copy, so that
// a wrong number in the driver shows.
#ifndef TYPEOIDS_H
#define TYPEOIDS_H

constexpr int OidBool = 16;
constexpr int OidBytea = 17;
constexpr int OidName = 19;
constexpr int OidInt8 = 20;
constexpr int OidInt2 = 21;
constexpr int OidInt4 = 23;
constexpr int OidText = 25;
constexpr int OidOid = 26;
constexpr int OidFloat4 = 700;
constexpr int OidFloat8 = 701;
constexpr int OidUnknown = 705;
constexpr int OidBpchar = 1042;
constexpr int OidVarchar = 1043;
constexpr int OidDate = 1082;
constexpr int OidTime = 1083;
constexpr int OidTimestamp = 1114;
constexpr int OidTimestampTz = 1184;
constexpr int OidTimeTz = 1266;
constexpr int OidNumeric = 1700;
constexpr int OidUuid = 2950;
constexpr int OidJsonb = 3802;

#endif // TYPEOIDS_H
