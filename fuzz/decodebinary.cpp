// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The binary decoder, by type and bytes: the last byte of the input chooses the type.
#include "driver/dorvydecode_p.h"

#include "access/dorvy3connection.h"
#include "fuzz/fuzzinput.h"
#include "tests/support/typeoids.h"

#include <QtCore/QUuid>

namespace {

struct Type
{
    int oid;
    int bytes; // that it needs
    int variant;
};

// Every type that the decoder knows; any other ends the process, as its header says.
const Type types[] = {
    {OidBool, 1, QMetaType::Bool},
    {OidBytea, 0, QMetaType::QByteArray},
    {OidUnknown, 0, QMetaType::QByteArray},
    {OidJsonb, 0, QMetaType::QByteArray},
    {OidName, 0, QMetaType::QString},
    {OidText, 0, QMetaType::QString},
    {OidVarchar, 0, QMetaType::QString},
    {OidBpchar, 0, QMetaType::QString},
    {OidInt8, 8, QMetaType::LongLong},
    {OidInt2, 2, QMetaType::Short},
    {OidInt4, 4, QMetaType::Int},
    {OidFloat4, 4, QMetaType::Float},
    {OidFloat8, 8, QMetaType::Double},
    {OidDate, 4, QMetaType::QDate},
    {OidTime, 8, QMetaType::QTime},
    {OidTimeTz, 8, QMetaType::QTime},
    {OidTimestamp, 8, QMetaType::QDateTime},
    {OidTimestampTz, 8, QMetaType::QDateTime},
    {OidNumeric, 8, QMetaType::Double},
    {OidUuid, 16, QMetaType::QUuid},
};

// The first count bytes, as a number in the wire's order.
quint64 bigEndian(const QByteArray &bytes, int count)
{
    quint64 number = 0;
    for (int i = 0; i < count; ++i) {
        number = number << 8 | static_cast<uchar>(bytes.at(i));
    }
    return number;
}

// A numeric has a header, and then the digits that its first word counts.
bool isWhole(const Type &type, const QByteArray &bytes)
{
    constexpr int DigitBytes = 2;
    if (bytes.size() < type.bytes) {
        return false;
    }
    return type.oid != OidNumeric ||
           bytes.size() - type.bytes >= DigitBytes * static_cast<int>(bigEndian(bytes, 2));
}

QString upToZero(const QByteArray &bytes)
{
    return QString::fromLatin1(bytes.constData());
}

// The calendar that counts as the server's does: from its first day, 4713 BC, to its last.
bool isServerDay(qint32 days)
{
    return days >= -2451545 && days < 2145031949;
}

void checkDate(const QByteArray &bytes, const QDate &date)
{
    const auto days = static_cast<qint32>(bigEndian(bytes, 4));
    require(!isServerDay(days) || date == QDate(2000, 1, 1).addDays(days), "the day is the day");
}

void checkTime(const QByteArray &bytes, const QTime &time)
{
    constexpr qint64 UsecOfDay = 86400000000;
    const auto usec = static_cast<qint64>(bigEndian(bytes, 8)) % UsecOfDay;
    require(time.isValid() == (usec > -1000), "a time of day is not negative");
    require(usec < 0 || time.msecsSinceStartOfDay() == usec / 1000, "the time is the time");
}

void checkValue(const Type &type, const QByteArray &bytes, const QVariant &value)
{
    switch (type.oid) {
    case OidBool:
        return require(value.toBool() == (bytes.at(0) != 0), "any bit makes a true");
    case OidBytea:
    case OidUnknown:
    case OidJsonb:
        return require(value.toByteArray() == bytes, "bytes are as they came");
    case OidName:
    case OidText:
    case OidVarchar:
        return require(value.toString() == upToZero(bytes), "a text is as it came");
    case OidBpchar:
        return require(value.toString() == upToZero(bytes).trimmed(), "blanks are cut");
    case OidInt2:
        return require(value.value<short>() == static_cast<qint16>(bigEndian(bytes, 2)), "int2");
    case OidInt4:
        return require(value.toInt() == static_cast<qint32>(bigEndian(bytes, 4)), "int4");
    case OidInt8:
        return require(value.toLongLong() == static_cast<qint64>(bigEndian(bytes, 8)), "int8");
    case OidDate:
        return checkDate(bytes, value.toDate());
    case OidTime:
    case OidTimeTz:
        return checkTime(bytes, value.toTime());
    case OidUuid:
        return require(value.toUuid().toRfc4122() == bytes.left(type.bytes), "uuid");
    default:
        return; // numbers with a fraction, and moments: that they are read at all is the point
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    // Without a server: its texts are Latin-1.
    static const auto connection = QSharedPointer<Dorvy3Connection>::create(nullptr, QString());
    FuzzedDataProvider input(data, size);
    const Type type = input.PickValueInArray(types);
    // libpq puts a zero behind every value; what lies behind that is out of bounds.
    const std::vector<char> value =
        input.ConsumeBytesWithTerminator<char>(input.remaining_bytes(), '\0');
    const QByteArray bytes(value.data(), static_cast<int>(value.size()) - 1);

    const QVariant decoded =
        hlpBinaryPSQLValueToVariant(connection, type.oid, bytes.size(), value.data());
    require(decoded.isValid() == isWhole(type, bytes), "what is too short is invalid");
    if (decoded.isValid()) {
        require(decoded.userType() == type.variant, "the type is that of the table");
        checkValue(type, bytes, decoded);
    }
    return 0;
}
