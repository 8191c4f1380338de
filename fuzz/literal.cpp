// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The literal formatter, with any value in a field of any type that it knows: one well-formed literal,
// which tells the value given. An integer or double field with a text in it is written as that text, as
// QVariant has it, and is not looked at here.
#include "access/dorvy3.h"

#include "fuzz/fuzzinput.h"
#include "tests/support/localzone.h"

#include <QtCore/qnumeric.h>
#include <QtSql/QSqlField>

#include <memory>

namespace {

const QVariant::Type types[] = {QVariant::Bool,   QVariant::Int,    QVariant::LongLong,
                                QVariant::Double, QVariant::String, QVariant::ByteArray,
                                QVariant::Date,   QVariant::Time,   QVariant::DateTime};

using Unescaped = std::unique_ptr<unsigned char, decltype(&PQfreemem)>;

// What stands between the quotes.
QString inner(const QString &literal)
{
    require(literal.size() >= 2 && literal.startsWith(QLatin1Char('\'')) &&
                literal.endsWith(QLatin1Char('\'')),
            "a literal stands in quotes");
    return literal.mid(1, literal.size() - 2);
}

bool isOf(const QString &text, const char *characters)
{
    const QLatin1String allowed(characters);
    return std::all_of(text.begin(), text.end(),
                       [allowed](QChar c) { return QString(allowed).contains(c); });
}

// Takes the backslashes away that stand before quotes and backslashes.
QString unescaped(const QString &text)
{
    QString plain;
    for (int at = 0; at < text.size(); ++at) {
        const bool escape = text.at(at) == QLatin1Char('\\');
        require(escape || text.at(at) != QLatin1Char('\''), "a quote has its backslash");
        at += escape ? 1 : 0;
        require(at < text.size(), "a backslash stands before something");
        require(!escape || isOf(text.mid(at, 1), "'\\"), "no other escapes");
        plain += text.at(at);
    }
    return plain;
}

void checkString(const QVariant &value, bool trimStrings, const QString &literal)
{
    const QString text = value.toString();
    require(unescaped(inner(literal)) == (trimStrings ? text.trimmed() : text), "the text");
}

// As the server reads it where standard_conforming_strings is off, libpq's default.
QByteArray readBytea(const QString &literal)
{
    const QString text = inner(literal).replace(QLatin1String("''"), QLatin1String("\\'"));
    const QByteArray escaped = unescaped(text).toLatin1();
    size_t length = 0;
    const Unescaped bytes(
        PQunescapeBytea(reinterpret_cast<const unsigned char *>(escaped.constData()), &length),
        &PQfreemem);
    return QByteArray(reinterpret_cast<const char *>(bytes.get()), static_cast<int>(length));
}

void checkInteger(const QVariant &value, const QString &literal)
{
    switch (value.type()) {
    case QVariant::Bool:
        return require(literal == QLatin1String(value.toBool() ? "1" : "0"), "a truth as a number");
    case QVariant::Int:
    case QVariant::UInt:
    case QVariant::LongLong:
        return require(literal.toLongLong() == value.toLongLong(), "the number");
    case QVariant::ULongLong:
        return require(literal.toULongLong() == value.toULongLong(), "the number");
    default:
        return;
    }
}

void checkDouble(const QVariant &value, const QString &literal)
{
    const double number = value.toDouble();
    if (qIsNaN(number)) {
        return require(literal == QLatin1String("'NaN'"), "NaN");
    }
    if (qIsInf(number)) {
        return require(literal == QLatin1String("'Infinity'"), "an infinity");
    }
    if (value.type() == QVariant::Double) {
        require(literal.toDouble() == number && isOf(literal, "0123456789+-.e"), "the number");
    }
}

// Whether there is no value to write, which must then be null.
bool isNoValue(bool isValid, const QString &literal)
{
    require(isValid || literal == QLatin1String("NULL"), "what is no date or time is null");
    return !isValid;
}

void checkDate(const QDate &date, const QString &literal)
{
    if (isNoValue(date.isValid(), literal)) {
        return;
    }
    const QString text = inner(literal);
    const bool hasForm = date.year() >= 1 && date.year() <= 9999; // in Qt::ISODate
    require(isOf(text, "0123456789-"), "a date's characters");
    require(!hasForm || QDate::fromString(text, Qt::ISODate) == date, "the date");
}

void checkTime(const QTime &time, const QString &literal)
{
    if (isNoValue(time.isValid(), literal)) {
        return;
    }
    require(QTime::fromString(inner(literal), QStringLiteral("hh:mm:ss.zzz")) == time, "the time");
}

void checkDateTime(const QDateTime &moment, const QString &literal)
{
    if (isNoValue(moment.isValid(), literal)) {
        return;
    }
    const QString type = QStringLiteral("TIMESTAMP WITH TIME ZONE ");
    require(literal.startsWith(type), "the literal names its type");
    const QString text = inner(literal.mid(type.size()));
    require(isOf(text, "0123456789-:.TZ") && text.endsWith(QLatin1Char('Z')), "a moment in UTC");
}

void checkLiteral(const QSqlField &field, bool trimStrings, const QString &literal)
{
    const QVariant value = field.value();
    switch (field.type()) {
    case QVariant::Bool:
        return require(literal == QLatin1String(value.toBool() ? "TRUE" : "FALSE"), "the truth");
    case QVariant::Int:
    case QVariant::LongLong:
        return checkInteger(value, literal);
    case QVariant::Double:
        return checkDouble(value, literal);
    case QVariant::String:
        return checkString(value, trimStrings, literal);
    case QVariant::ByteArray:
        return require(readBytea(literal) == value.toByteArray(), "the bytes");
    case QVariant::Date:
        return checkDate(value.toDate(), literal);
    case QVariant::Time:
        return checkTime(value.toTime(), literal);
    default:
        return checkDateTime(value.toDateTime(), literal);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const LocalZone zone(Zone);
    static const Dorvy3Database database(QSharedPointer<Dorvy3Transacted>::create());
    FuzzedDataProvider input(data, size);
    QSqlField field(QStringLiteral("f"), input.PickValueInArray(types));
    const bool trimStrings = input.ConsumeBool();
    field.setValue(takeVariant(input));

    const QString literal = database.formatValue(field, trimStrings);
    if (field.isNull()) {
        require(literal == QLatin1String("NULL"), "null is null");
    } else {
        checkLiteral(field, trimStrings, literal);
    }
    return 0;
}
