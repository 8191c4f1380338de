// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Column values as texts.
#include "valuetext.h"

#include <QtCore/QDateTime>
#include <QtCore/QUuid>
#include <QtSql/QSqlField>
#include <QtSql/QSqlQuery>

#include <charconv>
#include <cmath>

namespace {

// PostgreSQL catalog, pg_type; the driver gives them as QSqlField::typeID().
constexpr int OidTimestampTz = 1184;
constexpr int OidJsonb = 3802;

constexpr double PlainFrom = 1e-5; // numbers without an exponent, from here
constexpr double PlainTo = 1e16;   // to here
constexpr int HighestScale = 1000; // of numeric; what is more stands for a negative one
constexpr int UuidDigits = 36;     // without the braces

// The shortest digits that read back as the same number.
template<typename Number>
QString shortest(Number number)
{
    const auto size = std::fabs(static_cast<double>(number));
    const bool plain = size == 0 || (size >= PlainFrom && size < PlainTo);
    char digits[64];
    const auto end =
        std::to_chars(digits, digits + sizeof(digits), number,
                      plain ? std::chars_format::fixed : std::chars_format::scientific);
    return QString::fromLatin1(digits, static_cast<int>(end.ptr - digits));
}

QString infiniteText(double number)
{
    if (std::isnan(number)) {
        return QStringLiteral("NaN");
    }
    return number < 0 ? QStringLiteral("-Infinity") : QStringLiteral("Infinity");
}

// A numeric column of so many decimals shows them all; the driver gives it as a double.
QString numberText(const QVariant &value, const QSqlField &field)
{
    const double number = value.toDouble();
    if (!std::isfinite(number)) {
        return infiniteText(number);
    }
    if (field.precision() >= 0 && field.precision() <= HighestScale) {
        return QString::number(number, 'f', field.precision());
    }
    return value.userType() == QMetaType::Float ? shortest(value.toFloat()) : shortest(number);
}

// What Qt has no text for, such as a date before the year 1.
QString known(const QString &text)
{
    return text.isEmpty() ? QStringLiteral("?") : text;
}

QString timeText(QTime time)
{
    return time.toString(time.msec() == 0 ? QStringLiteral("HH:mm:ss")
                                          : QStringLiteral("HH:mm:ss.zzz"));
}

// The driver reads a timestamp with time zone in UTC, and says that it is local.
QString momentText(const QDateTime &moment, const QSqlField &field)
{
    const QString date = moment.date().toString(Qt::ISODate);
    if (date.isEmpty()) {
        return known(date);
    }
    return date + QLatin1Char(' ') + timeText(moment.time()) +
           (field.typeID() == OidTimestampTz ? QStringLiteral("+00") : QString());
}

// jsonb comes with the version of its format in front of its text, which is in the encoding of the
// connection: UTF-8 as a rule.
QString bytesText(const QByteArray &bytes, const QSqlField &field)
{
    return field.typeID() == OidJsonb
               ? QString::fromUtf8(bytes.constData() + 1, qMax(0, bytes.size() - 1))
               : QStringLiteral("\\x") + QString::fromLatin1(bytes.toHex());
}

QString textOf(const QVariant &value, const QSqlField &field)
{
    switch (value.userType()) {
    case QMetaType::UnknownType: // longer than a QString can be
        return known(QString());
    case QMetaType::Double:
    case QMetaType::Float:
        return numberText(value, field);
    case QMetaType::QDate:
        return known(value.toDate().toString(Qt::ISODate));
    case QMetaType::QTime:
        return known(timeText(value.toTime()));
    case QMetaType::QDateTime:
        return momentText(value.toDateTime(), field);
    case QMetaType::QByteArray:
        return bytesText(value.toByteArray(), field);
    case QMetaType::QUuid:
        return value.toUuid().toString().mid(1, UuidDigits);
    default:
        return value.toString();
    }
}

} // namespace

QString valueText(const QVariant &value, const QSqlField &field)
{
    const QString text = textOf(value, field);
    return text.isNull() ? QStringLiteral("") : text;
}

QString columnText(const QSqlQuery &query, int column, const QSqlField &field)
{
    return query.isNull(column) ? QString() : valueText(query.value(column), field);
}

bool isNumber(const QSqlField &field)
{
    switch (field.type()) {
    case QVariant::Int:
    case QVariant::LongLong:
    case QVariant::Double:
        return true;
    default:
        return false;
    }
}
