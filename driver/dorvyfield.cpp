// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The description of result columns.
#include "driver/dorvyfield_p.h"

#include "access/dorvy3connection.h"
#include "access/dorvy3oids_p.h"
#include "access/dorvy3result.h"
#include "driver/dorvytypes_p.h"

#include <QtSql/QSqlField>

namespace {

constexpr int ModifierHeader = 4; // a type modifier counts the length word of the value
constexpr uint NumericScaleMask = 0xFFFF;
constexpr int NumericPrecisionShift = 16;
constexpr int MillisecondDigits = 3; // what QDateTime holds of a second
constexpr int UuidTextLength = 38;   // as QUuid::toString writes it, with braces

struct Dimensions
{
    int length;
    int precision;
};

// Unsigned, as the least modifiers have nothing below them.
int hlpNumericScale(uint modifier)
{
    return static_cast<int>((modifier - ModifierHeader) & NumericScaleMask);
}

// size: bytes of the type, -1 if they vary. modifier: -1 if the column has none.
Dimensions hlpDimensions(int oid, int size, int modifier)
{
    switch (oid) {
    case Dorvy3Oid::Timestamp:
    case Dorvy3Oid::TimestampTz:
        return {size, MillisecondDigits};
    case Dorvy3Oid::Bit:
    case Dorvy3Oid::Varbit:
        return {modifier, -1};
    case Dorvy3Oid::Numeric:
        if (modifier == -1) {
            return {size, modifier};
        }
        return {modifier >> NumericPrecisionShift, hlpNumericScale(static_cast<uint>(modifier))};
    case Dorvy3Oid::Uuid:
        return {UuidTextLength, modifier};
    default:
        if (size == -1 && modifier >= ModifierHeader) {
            return {modifier - ModifierHeader, -1};
        }
        return {size, modifier};
    }
}

QSqlField hlpDescribeColumn(const Dorvy3Result &page, int column)
{
    const auto oid = static_cast<int>(PQftype(page.result, column));
    const Dimensions dimensions =
        hlpDimensions(oid, PQfsize(page.result, column), PQfmod(page.result, column));
    QSqlField field(QString(), QVariant::Invalid);
    field.setName(page.connection->client(PQfname(page.result, column), -1));
    field.setType(hlpDecodePSQLType(oid));
    field.setLength(dimensions.length);
    field.setPrecision(dimensions.precision);
    field.setSqlType(oid);
    return field;
}

} // namespace

QSqlRecord hlpDescribeColumns(const Dorvy3Result &page)
{
    QSqlRecord record;
    const int columns = PQnfields(page.result);
    for (int column = 0; column < columns; ++column) {
        record.append(hlpDescribeColumn(page, column));
    }
    return record;
}
