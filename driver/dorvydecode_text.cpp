// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Column values in text format.
#include "driver/dorvydecode_p.h"

#include "access/dorvy3connection.h"
#include "access/dorvy3fatal_p.h"
#include "access/dorvy3oids_p.h"

#include <QtCore/QDateTime>

#include <memory>

namespace {

struct PgMemoryFree
{
    void operator()(unsigned char *memory) const { PQfreemem(memory); }
};

// A negative number keeps its bit pattern: the value is stored unsigned.
QVariant hlpTextToInt(const QString &text)
{
    bool ok = false;
    const uint number =
        text.startsWith(QLatin1Char('-')) ? static_cast<uint>(text.toInt(&ok)) : text.toUInt(&ok);
    return ok ? QVariant(number) : QVariant();
}

QVariant hlpTextToLongLong(const QString &text)
{
    bool ok = false;
    const qulonglong number = text.startsWith(QLatin1Char('-'))
                                  ? static_cast<qulonglong>(text.toLongLong(&ok))
                                  : text.toULongLong(&ok);
    return ok ? QVariant(number) : QVariant();
}

// Toward zero. QVariant would round, and by adding a half, which the odd numbers from 2^52 on have
// no room for: it makes the next even number of them. What does not fit is left to it.
qlonglong hlpToWhole(double number)
{
    constexpr double Limit = 9223372036854775808.0; // 2^63
    return number >= -Limit && number < Limit ? static_cast<qlonglong>(number)
                                              : QVariant(number).toLongLong();
}

QVariant hlpTextToNumeric(const QString &text, QSql::NumericalPrecisionPolicy policy)
{
    if (policy == QSql::HighPrecision) {
        return QVariant(text);
    }
    bool ok = false;
    const double number = text.toDouble(&ok);
    if (!ok) {
        return QVariant();
    }
    switch (policy) {
    case QSql::LowPrecisionInt64:
        return QVariant(hlpToWhole(number));
    case QSql::LowPrecisionInt32:
        return QVariant(static_cast<int>(hlpToWhole(number)));
    case QSql::LowPrecisionDouble:
        return QVariant(number);
    default:
        return QVariant();
    }
}

QVariant hlpTextToDouble(int oid, const QString &text, QSql::NumericalPrecisionPolicy policy)
{
    return oid == Dorvy3Oid::Numeric ? hlpTextToNumeric(text, policy) : QVariant(text.toDouble());
}

QVariant hlpTextToByteArray(const char *value)
{
    size_t length = 0;
    const std::unique_ptr<unsigned char, PgMemoryFree> bytes(
        PQunescapeBytea(reinterpret_cast<const unsigned char *>(value), &length));
    return QVariant(
        QByteArray(reinterpret_cast<const char *>(bytes.get()), static_cast<int>(length)));
}

QVariant hlpTextToDate(const QString &text)
{
    return QVariant(text.isEmpty() ? QDate() : QDate::fromString(text, Qt::ISODate));
}

QVariant hlpTextToDateTime(QString text)
{
    constexpr int DateDigits = 9; // one less than the shortest date that can have a time behind it
    if (text.size() <= DateDigits) {
        return QVariant(QDateTime());
    }
    // The server shortens the offset of a zone of whole hours; Qt wants its minutes.
    const QChar sign = text.at(text.size() - 3);
    if (sign == QLatin1Char('+') || sign == QLatin1Char('-')) {
        text += QLatin1String(":00");
    }
    return QVariant(QDateTime::fromString(text, Qt::ISODate).toTimeSpec(Qt::LocalTime));
}

} // namespace

void hlpUnsupportedType(int oid)
{
    // Both decoders say this name.
    hlpFatal("DORVY: hlpPSQLValueToVariant - unsupported ptype (%d)", oid);
}

QVariant hlpPSQLValueToVariant(const QSharedPointer<Dorvy3Connection> &connection,
                               QVariant::Type type, int oid, QSql::NumericalPrecisionPolicy policy,
                               const char *value)
{
    switch (type) {
    case QVariant::Bool:
        return QVariant(*value == 't');
    case QVariant::Int:
        return hlpTextToInt(QString::fromLatin1(value));
    case QVariant::LongLong:
        return hlpTextToLongLong(QString::fromLatin1(value));
    case QVariant::Double:
        return hlpTextToDouble(oid, QString::fromLatin1(value), policy);
    case QVariant::String:
        return QVariant(connection->client(value, -1));
    case QVariant::ByteArray:
        return hlpTextToByteArray(value);
    case QVariant::Date:
        return hlpTextToDate(QString::fromLatin1(value));
    case QVariant::DateTime:
        return hlpTextToDateTime(QString::fromLatin1(value));
    default:
        hlpUnsupportedType(oid);
    }
}
