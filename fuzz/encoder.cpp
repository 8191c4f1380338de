// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The parameter encoder, with any value for any type, and back through the binary decoder where what
// was sent is what was given. That is not so for
//   numeric        its fraction is not sent, and from 2^52 on its digits are those of a double
//   int2           the low 16 bits are sent
//   float4         eight bytes are sent, of which the server takes four for malformed
//   timetz         the zone is not sent
//   texts          a character outside the server's encoding is sent as "?"; a zero ends a text
//   timestamps     before 2000 the decoder cuts the time of day toward zero
//   values of a type other than the column's, which Qt converts first
#include "access/dorvy3encoder_p.h"

#include "access/dorvy3connection.h"
#include "driver/dorvydecode_p.h"
#include "fuzz/fuzzinput.h"
#include "tests/support/localzone.h"
#include "tests/support/typeoids.h"

#include <cmath>

namespace {

const int oids[] = {OidBytea,  OidUnknown,   OidName,        OidText,   OidVarchar, OidInt8,
                    OidInt2,   OidInt4,      OidFloat4,      OidFloat8, OidDate,    OidTime,
                    OidTimeTz, OidTimestamp, OidTimestampTz, OidNumeric};

// What stands in the buffer already: another parameter, which must stay as it is.
const char Before[] = "before";

// Without a server: its texts are Latin-1.
const QSharedPointer<Dorvy3Connection> &connection()
{
    static const auto unconnected = QSharedPointer<Dorvy3Connection>::create(nullptr, QString());
    return unconnected;
}

bool isSame(double left, double right)
{
    return left == right || (std::isnan(left) && std::isnan(right));
}

bool isExactNumeric(double number)
{
    constexpr double Limit = 4503599627370496.0; // 2^52
    return std::fabs(number) < Limit;
}

// The calendar goes through a Julian day that is not negative.
bool isServerDate(const QDate &date)
{
    return date.toJulianDay() >= 0;
}

bool isServerMoment(const QDateTime &moment)
{
    return moment.date().year() >= 2000 ||
           (isServerDate(moment.date()) && moment.time() == QTime(0, 0));
}

void checkText(const QString &text, const QString &back)
{
    require(back == QString::fromLatin1(text.toLatin1().constData()), "a text comes back");
}

void checkMoment(const QDateTime &moment, const QDateTime &back)
{
    require(!isServerMoment(moment) ||
                (back.date() == moment.date() && back.time() == moment.time()),
            "a moment's fields come back");
}

void checkNumeric(double number, double back)
{
    require(!isExactNumeric(number) || back == std::trunc(number), "the whole part comes back");
}

void checkTimeless(const QVariant &value, int oid, const QVariant &back)
{
    switch (oid) {
    case OidBytea:
    case OidUnknown:
        return require(back.toByteArray() == value.toByteArray(), "bytes come back");
    case OidName:
    case OidText:
    case OidVarchar:
        return checkText(value.toString(), back.toString());
    case OidInt2:
        return require(back.value<short>() == static_cast<qint16>(value.toInt()), "int2");
    case OidInt4:
        return require(back.toInt() == value.toInt(), "int4 comes back");
    case OidInt8:
        return require(back.toLongLong() == value.toLongLong(), "int8 comes back");
    case OidFloat4:
        return require(isSame(back.toFloat(), value.toFloat()), "a single float comes back");
    case OidFloat8:
        return require(isSame(back.toDouble(), value.toDouble()), "a float comes back");
    default:
        return checkNumeric(value.toDouble(), back.toDouble());
    }
}

void checkRoundTrip(const QVariant &value, int oid, const QVariant &back)
{
    switch (oid) {
    case OidDate:
        return require(!isServerDate(value.toDate()) || back.toDate() == value.toDate(),
                       "a date comes back");
    case OidTime:
    case OidTimeTz:
        return require(back.toTime() == value.toTime(), "a time comes back");
    case OidTimestamp:
    case OidTimestampTz:
        return value.type() == QVariant::DateTime
                   ? checkMoment(value.toDateTime(), back.toDateTime())
                   : void();
    default:
        return checkTimeless(value, oid, back);
    }
}

void checkEncoding(const QVariant &value, int oid)
{
    QByteArray buffer(Before);
    int length = 0;
    const Dorvy3Encoding encoding = hlpEncode(value, oid, *connection(), buffer, &length);
    require(buffer == Before, "the buffer keeps its bytes and its size");
    require(encoding != Dorvy3Encoding::UnknownType, "the type is known");
    if (encoding != Dorvy3Encoding::Done) {
        require(length == 0, "what is not encoded has no length");
        return;
    }
    require(length >= 0 && length <= buffer.capacity() - buffer.size(), "there is room for it");
    buffer.resize(buffer.size() + length);
    require(buffer.startsWith(Before), "what stood there stays");
    const QByteArray sent = buffer.mid(static_cast<int>(std::strlen(Before)));
    const QVariant back =
        hlpBinaryPSQLValueToVariant(connection(), oid, sent.size(), sent.constData());
    require(back.isValid(), "what is sent can be read");
    checkRoundTrip(value, oid, back);
}

void checkUnknown(const QVariant &value, int oid)
{
    QByteArray buffer;
    int length = 0;
    const bool known = std::find(std::begin(oids), std::end(oids), oid) != std::end(oids);
    const Dorvy3Encoding encoding = hlpEncode(value, oid, *connection(), buffer, &length);
    require(known == (encoding != Dorvy3Encoding::UnknownType), "unknown types are told");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const LocalZone zone("UTC"); // local times that no zone leaves out
    FuzzedDataProvider input(data, size);
    const int oid = input.PickValueInArray(oids);
    const QVariant value = takeVariant(input);
    if (!value.isNull()) {
        checkEncoding(value, oid);
        checkUnknown(value, input.ConsumeIntegral<int>());
    }
    return 0;
}
