// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The text decoder, by type, numerical precision policy and text: the last byte of the input chooses
// the type, the one before it the policy.
#include "driver/dorvydecode_p.h"

#include "access/dorvy3connection.h"
#include "driver/dorvytypes_p.h"
#include "fuzz/fuzzinput.h"
#include "tests/support/typeoids.h"

namespace {

// Every type of the type table that arrives as text; time does not, and ends the process.
const int oids[] = {OidBool, OidBytea,     OidName,        OidInt8,    OidInt2,   OidInt4,
                    OidText, OidFloat4,    OidFloat8,      OidUnknown, OidBpchar, OidVarchar,
                    OidDate, OidTimestamp, OidTimestampTz, OidNumeric, OidUuid,   OidJsonb};

const QSql::NumericalPrecisionPolicy policies[] = {QSql::LowPrecisionInt32, QSql::LowPrecisionInt64,
                                                   QSql::LowPrecisionDouble, QSql::HighPrecision};

bool isPlainInteger(const QByteArray &text)
{
    constexpr int Digits = 9; // any number of so many fits
    return !text.isEmpty() && text.size() <= Digits &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

void checkInteger(const QByteArray &text, const QVariant &value)
{
    require(!isPlainInteger(text) || (value.isValid() && value.toLongLong() == std::atoll(text)),
            "digits are their number");
}

QMetaType::Type numericType(QSql::NumericalPrecisionPolicy policy)
{
    switch (policy) {
    case QSql::LowPrecisionInt32:
        return QMetaType::Int;
    case QSql::LowPrecisionInt64:
        return QMetaType::LongLong;
    case QSql::LowPrecisionDouble:
        return QMetaType::Double;
    default:
        return QMetaType::QString;
    }
}

void checkNumeric(const QByteArray &text, QSql::NumericalPrecisionPolicy policy,
                  const QVariant &value)
{
    require(!value.isValid() || value.userType() == numericType(policy),
            "the policy says the type");
    checkInteger(text, value);
    require(policy != QSql::HighPrecision || value.toString() == QString::fromLatin1(text),
            "high precision is the text itself");
}

void checkValue(QVariant::Type type, int oid, QSql::NumericalPrecisionPolicy policy,
                const QByteArray &text, const QVariant &value)
{
    switch (type) {
    case QVariant::Bool:
        return require(value.toBool() == text.startsWith('t'), "true begins with t");
    case QVariant::Int:
    case QVariant::LongLong:
        return checkInteger(text, value);
    case QVariant::Double:
        return oid == OidNumeric ? checkNumeric(text, policy, value)
                                 : require(value.userType() == QMetaType::Double, "a number");
    case QVariant::String:
        return require(value.toString() == QString::fromLatin1(text), "a text is as it came");
    case QVariant::ByteArray:
        return require(value.toByteArray().size() <= text.size(), "bytes are written longer");
    case QVariant::DateTime:
        return require(!value.toDateTime().isValid() ||
                           value.toDateTime().timeSpec() == Qt::LocalTime,
                       "a moment is in local time");
    default:
        return require(value.type() == type, "the type is that of the table");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    // Without a server: its texts are Latin-1.
    static const auto connection = QSharedPointer<Dorvy3Connection>::create(nullptr, QString());
    FuzzedDataProvider input(data, size);
    const int oid = input.PickValueInArray(oids);
    const QSql::NumericalPrecisionPolicy policy = input.PickValueInArray(policies);
    const std::vector<char> value =
        input.ConsumeBytesWithTerminator<char>(input.remaining_bytes(), '\0');

    const QVariant::Type type = hlpDecodePSQLType(oid);
    checkValue(type, oid, policy, QByteArray(value.data()),
               hlpPSQLValueToVariant(connection, type, oid, policy, value.data()));
    return 0;
}
