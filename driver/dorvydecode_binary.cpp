// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Column values in binary format.
#include "driver/dorvydecode_p.h"

#include "access/dorvy3bytes_p.h"
#include "access/dorvy3connection.h"
#include "access/dorvy3oids_p.h"
#include "access/dorvy3units_p.h"

#include <QtCore/QDateTime>
#include <QtCore/QUuid>

#include <cmath>

namespace {

constexpr int UuidBytes = 16;
constexpr int FractionDigits = 7; // base-10000 digits behind the point that are looked at

const double decimals[] = {1, 1e4, 1e8, 1e12, 1e16, 1e20, 1e24, 1e28};
constexpr int DecimalsCount = sizeof(decimals) / sizeof(*decimals);

// 10000 to the power of exponent, which is not negative.
double hlpDecimal(int exponent)
{
    return exponent < DecimalsCount ? decimals[exponent]
                                    : std::pow(static_cast<double>(NumericBase), exponent);
}

// Qt's own constructors where it has them: they skip the look-up of the type's construction.
template<typename T>
QVariant hlpToVariant(const T &value)
{
    return QVariant(value);
}

QVariant hlpToVariant(short value)
{
    return QVariant::fromValue(value); // the constructor would make an int of it
}

QVariant hlpToVariant(float value)
{
    return QVariant::fromValue(value); // and a double of this
}

// The variant of a value that a reader gave, if it had enough bytes for it.
template<typename T>
QVariant hlpChecked(const Dorvy3ByteReader &reader, const T &value)
{
    return reader.isGood() ? hlpToVariant(value) : QVariant();
}

template<typename Wire, typename T>
QVariant hlpBinaryToNumber(const Dorvy3Connection * /*connection*/, const char *value, int length)
{
    Dorvy3ByteReader reader(value, length);
    const auto number = static_cast<T>(reader.read<Wire>());
    return hlpChecked(reader, number);
}

QVariant hlpBinaryToBool(const Dorvy3Connection * /*connection*/, const char *value, int length)
{
    Dorvy3ByteReader reader(value, length);
    const bool truth = reader.read<quint8>() != 0;
    return hlpChecked(reader, truth);
}

QVariant hlpBinaryToFloat(const Dorvy3Connection * /*connection*/, const char *value, int length)
{
    Dorvy3ByteReader reader(value, length);
    const float number = reader.readFloat();
    return hlpChecked(reader, number);
}

QVariant hlpBinaryToDouble(const Dorvy3Connection * /*connection*/, const char *value, int length)
{
    Dorvy3ByteReader reader(value, length);
    const double number = reader.readDouble();
    return hlpChecked(reader, number);
}

QDate hlpToDate(qint64 days)
{
    if (hlpIsCommonDay(days)) {
        return QDate::fromJulianDay(days + PgEpochJulianDay);
    }
    int year = 0;
    int month = 0;
    int day = 0;
    hlpDecodePgDate(days, year, month, day);
    return QDate(year, month, day);
}

// microseconds: less than a day, of either sign.
QTime hlpToTime(qint64 microseconds)
{
    if (microseconds >= 0) {
        return QTime::fromMSecsSinceStartOfDay(static_cast<int>(microseconds / UsecPerMsec));
    }
    int hours = 0;
    int minutes = 0;
    int seconds = 0;
    int usec = 0;
    hlpDecodePgTime(microseconds, hours, minutes, seconds, usec);
    return QTime(hours, minutes, seconds, static_cast<int>(usec / UsecPerMsec));
}

QVariant hlpBinaryToDate(const Dorvy3Connection * /*connection*/, const char *value, int length)
{
    Dorvy3ByteReader reader(value, length);
    const auto days = reader.read<qint32>();
    return hlpChecked(reader, hlpToDate(days));
}

QVariant hlpBinaryToTime(const Dorvy3Connection * /*connection*/, const char *value, int length)
{
    Dorvy3ByteReader reader(value, length);
    const auto microseconds = reader.read<qint64>();
    return hlpChecked(reader, hlpToTime(microseconds % UsecPerDay));
}

// The fields are read as local time: no zone conversion. The remainder is cut toward zero, so a
// moment before 2000 with a time of day has a negative time, which QTime refuses and QDateTime
// takes as the midnight that follows. Meant; see tst_dorvydecode_binary, timestamp.
QVariant hlpBinaryToDateTime(const Dorvy3Connection * /*connection*/, const char *value, int length)
{
    Dorvy3ByteReader reader(value, length);
    const auto microseconds = reader.read<qint64>();
    const qint64 time = microseconds % UsecPerDay;
    const qint64 days = (microseconds - time) / UsecPerDay;
    return hlpChecked(reader, QDateTime(hlpToDate(days), hlpToTime(time), Qt::LocalTime));
}

QVariant hlpBinaryToUuid(const Dorvy3Connection * /*connection*/, const char *value, int length)
{
    if (length < UuidBytes) {
        return QVariant();
    }
    return QVariant::fromValue(QUuid::fromRfc4122(QByteArray::fromRawData(value, UuidBytes)));
}

// A view into the libpq result, valid only while that is alive.
QVariant hlpBinaryToBytes(const Dorvy3Connection * /*connection*/, const char *value, int length)
{
    return QVariant(QByteArray::fromRawData(value, length));
}

// Up to the zero that libpq puts behind every value.
QVariant hlpBinaryToText(const Dorvy3Connection *connection, const char *value, int /*length*/)
{
    return QVariant(connection->client(value, -1));
}

QVariant hlpBinaryToPadded(const Dorvy3Connection *connection, const char *value, int /*length*/)
{
    return QVariant(connection->client(value, -1).trimmed());
}

// The sum of count digits, the first of which stands for 10000 to the power of weight. Digits too
// far behind the point are skipped.
double hlpNumericSum(Dorvy3ByteReader &reader, int count, int weight)
{
    double sum = 0.0;
    for (int i = 0; i < count; ++i) {
        const double digit = reader.read<quint16>();
        const int exponent = weight - i;
        if (digit == 0) {
            continue; // beyond the range of a double 0 would be multiplied with infinity
        }
        if (exponent >= 0) {
            sum += digit * hlpDecimal(exponent);
        } else if (-exponent <= FractionDigits) {
            sum += digit / hlpDecimal(-exponent);
        }
    }
    return sum;
}

QVariant hlpBinaryToNumeric(const Dorvy3Connection * /*connection*/, const char *value, int length)
{
    Dorvy3ByteReader reader(value, length);
    const int count = reader.read<quint16>();
    const int weight = reader.read<qint16>();
    const auto sign = reader.read<quint16>();
    reader.read<quint16>(); // display scale
    if (!reader.isGood() || reader.remaining() < static_cast<size_t>(count) * NumericDigitBytes) {
        return QVariant();
    }
    if (count == 0) {
        return QVariant(0.0); // NaN and the infinities too
    }
    const double sum = hlpNumericSum(reader, count, weight);
    return QVariant(sign ? -sum : sum);
}

} // namespace

void hlpDecodePgDate(long days, int &year, int &month, int &day)
{
    constexpr long DaysPer400Years = 146097;
    constexpr long DaysPer4Years = 1461;
    constexpr long MarchEpochDay = PgEpochJulianDay + 32044; // from a 1 March in the far past
    long julian = days + MarchEpochDay;
    const long quad = julian / DaysPer400Years;
    const long extra = julian % DaysPer400Years * 4 + 3;
    julian += 60 + quad * 3 + extra / DaysPer400Years;
    const long cycle = julian / DaysPer4Years;
    julian %= DaysPer4Years;
    const long yearOfCycle = julian * 4 / DaysPer4Years;
    julian = (yearOfCycle != 0 ? (julian + 305) % 365 : (julian + 306) % 366) + 123;
    const long astronomical = cycle * 4 + yearOfCycle - 4800;
    const long q = julian * 2141 / 65536;
    year = static_cast<int>(astronomical < 1 ? astronomical - 1 : astronomical); // no year 0
    month = static_cast<int>((q + 10) % 12 + 1);
    day = static_cast<int>(julian - 7834 * q / 256);
}

void hlpDecodePgTime(long long microseconds, int &hours, int &minutes, int &seconds, int &usec)
{
    hours = static_cast<int>(microseconds / UsecPerHour);
    microseconds %= UsecPerHour;
    minutes = static_cast<int>(microseconds / UsecPerMinute);
    microseconds %= UsecPerMinute;
    seconds = static_cast<int>(microseconds / UsecPerSec);
    usec = static_cast<int>(microseconds % UsecPerSec);
}

DorvyBinaryDecoder hlpBinaryDecoder(int oid)
{
    switch (oid) {
    case Dorvy3Oid::Bool:
        return hlpBinaryToBool;
    case Dorvy3Oid::Bytea:
    case Dorvy3Oid::Unknown:
    case Dorvy3Oid::Jsonb: // its version byte included
        return hlpBinaryToBytes;
    case Dorvy3Oid::Name:
    case Dorvy3Oid::Text:
    case Dorvy3Oid::Varchar:
        return hlpBinaryToText;
    case Dorvy3Oid::Bpchar:
        return hlpBinaryToPadded;
    case Dorvy3Oid::Int8:
        return hlpBinaryToNumber<qint64, qlonglong>;
    case Dorvy3Oid::Int2:
        return hlpBinaryToNumber<qint16, short>;
    case Dorvy3Oid::Int4:
        return hlpBinaryToNumber<qint32, int>;
    case Dorvy3Oid::Float4:
        return hlpBinaryToFloat;
    case Dorvy3Oid::Float8:
        return hlpBinaryToDouble;
    case Dorvy3Oid::Date:
        return hlpBinaryToDate;
    case Dorvy3Oid::Time:
    case Dorvy3Oid::TimeTz: // not reached, as the type table refuses it; its zone is ignored
        return hlpBinaryToTime;
    case Dorvy3Oid::Timestamp:
    case Dorvy3Oid::TimestampTz:
        return hlpBinaryToDateTime;
    case Dorvy3Oid::Numeric:
        return hlpBinaryToNumeric;
    case Dorvy3Oid::Uuid:
        return hlpBinaryToUuid;
    default:
        hlpUnsupportedType(oid);
    }
}

QVariant hlpBinaryPSQLValueToVariant(const QSharedPointer<Dorvy3Connection> &connection, int oid,
                                     int length, const char *value)
{
    return hlpBinaryDecoder(oid)(connection.data(), value, length);
}
