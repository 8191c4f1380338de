// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Values as SQL literals, for statement texts that Qt puts together itself.
#include "access/dorvy3database.h"

#include "access/dorvy3fatal_p.h"
#include "access/dorvy3sizes_p.h"

#include <libpq-fe.h>

#include <QtCore/QDateTime>
#include <QtCore/QLocale>
#include <QtCore/QVariant>
#include <QtCore/qnumeric.h>
#include <QtSql/QSqlField>

#include <memory>

namespace {

using EscapedPtr = std::unique_ptr<unsigned char, decltype(&PQfreemem)>;

QString hlpNull()
{
    return QStringLiteral("NULL");
}

QString hlpQuoted(const QString &text)
{
    return QLatin1Char('\'') + text + QLatin1Char('\'');
}

QString hlpBool(const QVariant &value)
{
    return value.toBool() ? QStringLiteral("TRUE") : QStringLiteral("FALSE");
}

// PostgreSQL has no cast from TRUE to an integer column on assignment, so a truth value in an
// integer field goes as a number.
QString hlpInteger(const QVariant &value)
{
    if (value.type() == QVariant::Bool) {
        return value.toBool() ? QStringLiteral("1") : QStringLiteral("0");
    }
    return value.toString();
}

QString hlpDouble(const QVariant &value)
{
    const double number = value.toDouble();
    if (qIsNaN(number)) {
        return QStringLiteral("'NaN'");
    }
    if (qIsInf(number)) {
        return QStringLiteral("'Infinity'"); // of either sign: meant; tst_dorvy3literal, number
    }
    return value.toString();
}

// The backslashes first, so that those put before quotes are not doubled again. No "E" before the
// literal: meant, see tst_dorvy3literal, text.
QString hlpString(const QVariant &value, bool trimStrings)
{
    QString text = trimStrings ? value.toString().trimmed() : value.toString();
    text.replace(QLatin1Char('\\'), QStringLiteral("\\\\"));
    text.replace(QLatin1Char('\''), QStringLiteral("\\'"));
    return hlpQuoted(text);
}

QString hlpByteArray(const QVariant &value)
{
    const QByteArray bytes = value.toByteArray();
    size_t length = 0; // with the terminating zero
    const EscapedPtr escaped(PQescapeBytea(reinterpret_cast<const unsigned char *>(bytes.data()),
                                           static_cast<size_t>(bytes.size()), &length),
                             &PQfreemem);
    Q_CHECK_PTR(escaped.get());
    if (length > MaxDecodedBytes) {
        qBadAlloc(); // Qt would take the low bits of the length for all of it
    }
    return hlpQuoted(QString::fromUtf8(reinterpret_cast<const char *>(escaped.get())));
}

QString hlpDate(const QVariant &value)
{
    const QDate date = value.toDate();
    return date.isValid() ? hlpQuoted(date.toString(Qt::ISODate)) : hlpNull();
}

// In the C locale: QTime's own toString() writes the digits of the system's locale.
QString hlpTime(const QVariant &value)
{
    const QTime time = value.toTime();
    if (!time.isValid()) {
        return hlpNull();
    }
    return hlpQuoted(QLocale::c().toString(time, QStringLiteral("hh:mm:ss.zzz")));
}

// The type and the zone stand in the literal, so that the server reads an instant whatever its own
// time zone is.
QString hlpDateTime(const QVariant &value)
{
    const QDateTime moment = value.toDateTime();
    if (!moment.isValid()) {
        return hlpNull();
    }
    const QDateTime utc = moment.toTimeSpec(Qt::UTC);
    return QStringLiteral("TIMESTAMP WITH TIME ZONE ") +
           hlpQuoted(QLocale::c().toString(utc, QStringLiteral("yyyy-MM-ddThh:mm:ss.zzz")) +
                     QLatin1Char('Z'));
}

} // namespace

QString Dorvy3Database::formatValue(const QSqlField &field, bool trimStrings) const
{
    if (field.isNull()) {
        return hlpNull();
    }
    const QVariant value = field.value();
    switch (field.type()) {
    case QVariant::Bool:
        return hlpBool(value);
    case QVariant::Int:
    case QVariant::LongLong:
        return hlpInteger(value);
    case QVariant::Double:
        return hlpDouble(value);
    case QVariant::String:
        return hlpString(value, trimStrings);
    case QVariant::ByteArray:
        return hlpByteArray(value);
    case QVariant::Date:
        return hlpDate(value);
    case QVariant::Time:
        return hlpTime(value);
    case QVariant::DateTime:
        return hlpDateTime(value);
    default:
        hlpFatal("DORVY: hlpPSQLValueToString - unknown field type (%d)",
                 static_cast<int>(field.type()));
    }
}
