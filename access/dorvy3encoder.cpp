// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The parameter encoder: one bound value to PostgreSQL's binary format.
#include "access/dorvy3encoder_p.h"

#include "access/dorvy3bytes_p.h"
#include "access/dorvy3connection.h"
#include "access/dorvy3days.h"
#include "access/dorvy3fatal_p.h"
#include "access/dorvy3oids_p.h"
#include "access/dorvy3result.h"
#include "access/dorvy3sizes_p.h"
#include "access/dorvy3statement.h"
#include "access/dorvy3units_p.h"

#include <QtCore/QDateTime>
#include <QtCore/QVarLengthArray>
#include <QtSql/QSqlField>

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

constexpr int Float8Bytes = 8;

// Base-10000 digits, least significant first. The largest double has 78.
using NumericDigits = QVarLengthArray<quint16, 80>;

Dorvy3Encoding hlpWriteBytes(const QByteArray &bytes, QByteArray &out, int *length)
{
    if (bytes.size() > MaxMessageBytes - out.size()) {
        return Dorvy3Encoding::TooLarge;
    }
    Dorvy3ByteWriter(out, bytes.size()).writeBytes(bytes.constData(), bytes.size());
    *length = bytes.size();
    return Dorvy3Encoding::Done;
}

// Whether Qt can convert the bytes of the value to a text, if that is what they are.
bool hlpIsDecodable(const QVariant &value)
{
    return value.type() != QVariant::ByteArray || value.toByteArray().size() <= MaxDecodedBytes;
}

// Whether Qt can convert the text of the value to bytes, if that is what it is.
bool hlpIsEncodable(const QVariant &value)
{
    return value.type() != QVariant::String || value.toString().size() <= MaxUtf8Units;
}

Dorvy3Encoding hlpEncodeText(const QVariant &value, const Dorvy3Connection &connection,
                             QByteArray &out, int *length)
{
    if (!hlpIsDecodable(value)) {
        return Dorvy3Encoding::TooLarge;
    }
    const QString text = value.toString();
    if (text.size() > connection.maxUnits()) {
        return Dorvy3Encoding::TooLarge;
    }
    return hlpWriteBytes(connection.server(text), out, length);
}

Dorvy3Encoding hlpEncodeBytes(const QVariant &value, QByteArray &out, int *length)
{
    if (!hlpIsEncodable(value)) {
        return Dorvy3Encoding::TooLarge;
    }
    const QByteArray bytes = value.toByteArray();
    // Length 0 would read as SQL NULL, which an empty array is not.
    return bytes.isEmpty() ? Dorvy3Encoding::NoConversion : hlpWriteBytes(bytes, out, length);
}

template<typename Integer>
Dorvy3Encoding hlpWriteInteger(bool ok, Integer value, QByteArray &out, int *length)
{
    if (!ok) {
        return Dorvy3Encoding::NoConversion;
    }
    *length = static_cast<int>(sizeof(value));
    Dorvy3ByteWriter(out, *length).write(value);
    return Dorvy3Encoding::Done;
}

Dorvy3Encoding hlpEncodeInt2(const QVariant &value, QByteArray &out, int *length)
{
    bool ok = false;
    const int number = value.toInt(&ok);
    return hlpWriteInteger(ok, static_cast<qint16>(number), out, length); // its low 16 bits
}

Dorvy3Encoding hlpEncodeInt4(const QVariant &value, QByteArray &out, int *length)
{
    bool ok = false;
    const qint32 number = value.toInt(&ok);
    return hlpWriteInteger(ok, number, out, length);
}

Dorvy3Encoding hlpEncodeInt8(const QVariant &value, QByteArray &out, int *length)
{
    bool ok = false;
    const qint64 number = value.toLongLong(&ok);
    return hlpWriteInteger(ok, number, out, length);
}

Dorvy3Encoding hlpEncodeFloat4(const QVariant &value, QByteArray &out, int *length)
{
    bool ok = false;
    const float number = value.toFloat(&ok);
    if (!ok) {
        return Dorvy3Encoding::NoConversion;
    }
    // Eight bytes are taken in and sent, although a float4 has four; so the other four must not
    // be what the buffer held before. Meant; see tst_dorvy3encoder, float4SendsEightBytes.
    *length = Float8Bytes;
    Dorvy3ByteWriter writer(out, *length);
    writer.writeFloat(number);
    writer.write<quint32>(0);
    return Dorvy3Encoding::Done;
}

Dorvy3Encoding hlpEncodeFloat8(const QVariant &value, QByteArray &out, int *length)
{
    bool ok = false;
    const double number = value.toDouble(&ok);
    if (!ok) {
        return Dorvy3Encoding::NoConversion;
    }
    *length = Float8Bytes;
    Dorvy3ByteWriter(out, *length).writeDouble(number);
    return Dorvy3Encoding::Done;
}

Dorvy3Encoding hlpEncodeDate(const QVariant &value, QByteArray &out, int *length)
{
    const QDate date = value.toDate();
    if (!date.isValid()) {
        return Dorvy3Encoding::NoConversion;
    }
    const qint64 day = hlpPgDay(date);
    const bool fits =
        day >= std::numeric_limits<qint32>::min() && day <= std::numeric_limits<qint32>::max();
    return hlpWriteInteger(fits, static_cast<qint32>(day), out, length);
}

qint64 hlpUsecOfDay(const QTime &time)
{
    return time.msecsSinceStartOfDay() * UsecPerMsec;
}

Dorvy3Encoding hlpEncodeTime(const QVariant &value, QByteArray &out, int *length)
{
    const QTime time = value.toTime();
    return hlpWriteInteger(time.isValid(), time.isValid() ? hlpUsecOfDay(time) : 0, out, length);
}

QDateTime hlpToDateTime(const QVariant &value)
{
    QDateTime moment = value.toDateTime();
    if (moment.isValid() || value.type() != QVariant::Double) {
        return moment;
    }
    return delphidatetime(value.toDouble());
}

// Microseconds from 2000-01-01; false where they do not fit into 64 bits.
bool hlpToUsec(qint64 day, qint64 usecOfDay, qint64 *usec)
{
    // Towards zero, so that a day whose midnight does not fit can have a time that does.
    if (day < 0) {
        ++day;
        usecOfDay -= UsecPerDay;
    }
    return !__builtin_mul_overflow(day, UsecPerDay, usec) &&
           !__builtin_add_overflow(*usec, usecOfDay, usec);
}

// The fields go as they stand: no conversion to UTC, for timestamptz neither.
Dorvy3Encoding hlpEncodeTimestamp(const QVariant &value, QByteArray &out, int *length)
{
    const QDateTime moment = hlpToDateTime(value);
    if (!moment.isValid()) {
        return Dorvy3Encoding::NoConversion;
    }
    qint64 usec = 0;
    const bool fits = hlpToUsec(hlpPgDay(moment.date()), hlpUsecOfDay(moment.time()), &usec);
    return hlpWriteInteger(fits, usec, out, length);
}

// The digits of a whole number that is not negative.
NumericDigits hlpNumericDigits(double whole)
{
    NumericDigits digits;
    while (whole > 0) {
        const double digit = std::modf(whole / NumericBase, &whole);
        digits.append(static_cast<quint16>(std::lround(digit * NumericBase)));
    }
    return digits;
}

/*
    Only the integer part is sent, truncated toward zero: the fraction's digits are lost. Meant; see
    tst_dorvy3encoder, numericCarriesIntegerPart. Zero, NaN and everything between -1 and 1 go as
   the numeric without digits, which the server reads as 0.
*/
Dorvy3Encoding hlpEncodeNumeric(const QVariant &value, QByteArray &out, int *length)
{
    bool ok = false;
    const double number = value.toDouble(&ok);
    if (!ok || std::isinf(number)) {
        return Dorvy3Encoding::NoConversion;
    }
    const NumericDigits digits = hlpNumericDigits(std::trunc(std::fabs(number)));
    const auto isDigit = [](quint16 digit) { return digit != 0; };
    const auto lowest = std::find_if(digits.begin(), digits.end(), isDigit);
    const auto highest = std::find_if(std::make_reverse_iterator(digits.end()),
                                      std::make_reverse_iterator(lowest), isDigit);
    const auto count = static_cast<int>(highest.base() - lowest);
    const auto weight = count ? static_cast<int>(highest.base() - digits.begin()) - 1 : 0;
    *length = NumericHeaderBytes + NumericDigitBytes * count;
    Dorvy3ByteWriter writer(out, *length);
    writer.write(static_cast<quint16>(count));
    writer.write(static_cast<qint16>(weight));
    writer.write(count && number < 0 ? NumericNegative : quint16(0));
    writer.write<quint16>(0); // display scale
    std::for_each(highest, std::make_reverse_iterator(lowest),
                  [&writer](quint16 digit) { writer.write(digit); });
    return Dorvy3Encoding::Done;
}

} // namespace

Dorvy3Encoding hlpEncode(const QVariant &value, int ptype, const Dorvy3Connection &connection,
                         QByteArray &out, int *length)
{
    switch (ptype) {
    case Dorvy3Oid::Bytea:
    case Dorvy3Oid::Unknown:
        return hlpEncodeBytes(value, out, length);
    case Dorvy3Oid::Name:
    case Dorvy3Oid::Text:
    case Dorvy3Oid::Varchar:
        return hlpEncodeText(value, connection, out, length);
    case Dorvy3Oid::Int8:
        return hlpEncodeInt8(value, out, length);
    case Dorvy3Oid::Int2:
        return hlpEncodeInt2(value, out, length);
    case Dorvy3Oid::Int4:
        return hlpEncodeInt4(value, out, length);
    case Dorvy3Oid::Float4:
        return hlpEncodeFloat4(value, out, length);
    case Dorvy3Oid::Float8:
        return hlpEncodeFloat8(value, out, length);
    case Dorvy3Oid::Date:
        return hlpEncodeDate(value, out, length);
    case Dorvy3Oid::Time:
    case Dorvy3Oid::TimeTz: // without the zone of the server's format
        return hlpEncodeTime(value, out, length);
    case Dorvy3Oid::Timestamp:
    case Dorvy3Oid::TimestampTz:
        return hlpEncodeTimestamp(value, out, length);
    case Dorvy3Oid::Numeric:
        return hlpEncodeNumeric(value, out, length);
    default:
        return Dorvy3Encoding::UnknownType;
    }
}

int Dorvy3Statement::hlpEncodePSQLValue(const QSqlField &field, int ptype, QByteArray &out) const
{
    return hlpEncodeValue(field.value(), ptype, out);
}

int Dorvy3Statement::hlpEncodeValue(const QVariant &value, int ptype, QByteArray &out) const
{
    if (value.isNull()) {
        return 0;
    }
    int length = 0;
    switch (hlpEncode(value, ptype, *description->connection, out, &length)) {
    case Dorvy3Encoding::Done:
        break;
    case Dorvy3Encoding::UnknownType:
        hlpFatal("DORVY: hlpEncodePSQLValue - unknown ptype (%d)", ptype);
    case Dorvy3Encoding::NoConversion:
        hlpFatal("DORVY: hlpEncodePSQLValue - failed to encode ptype (%d) from "
                 "QVariant::Type (%d)",
                 ptype, static_cast<int>(value.type()));
    case Dorvy3Encoding::TooLarge:
        return TooLarge;
    }
    return length;
}
