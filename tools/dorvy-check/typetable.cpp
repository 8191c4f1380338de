// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// What the driver makes of PostgreSQL's types, in words.
//
// Which types a column may have is the driver's own table; what its decoder and its encoder do beyond
// that is told here, and tst_typetable holds it against them.
#include "typetable.h"

#include "access/dorvy3oids_p.h"
#include "driver/dorvytypes_p.h"

namespace {

constexpr int OidType = 26;
constexpr int MoneyType = 790;
constexpr int VoidType = 2278;

QString hlpValue(int oid)
{
    switch (oid) {
    case Dorvy3Oid::Int2:
        return QStringLiteral("short");
    case Dorvy3Oid::Float4:
        return QStringLiteral("float");
    case Dorvy3Oid::Text:
        return QStringLiteral("QString");
    case Dorvy3Oid::Uuid:
        return QStringLiteral("QUuid");
    default:
        return QString::fromLatin1(QVariant::typeToName(static_cast<int>(hlpFindPSQLType(oid))));
    }
}

QString hlpReadNote(int oid)
{
    switch (oid) {
    case Dorvy3Oid::Numeric:
        return QStringLiteral("::text keeps every digit");
    case Dorvy3Oid::TimestampTz:
        return QStringLiteral("in UTC, said to be local; before 2000 read ::text");
    case Dorvy3Oid::Timestamp:
        return QStringLiteral("before 2000 read ::date and ::time");
    case Dorvy3Oid::Jsonb:
        return QStringLiteral("begins with a byte 1; ::text without");
    case Dorvy3Oid::Bpchar:
        return QStringLiteral("without the blanks at both ends");
    default:
        return QString();
    }
}

QString hlpReadCast(int oid)
{
    switch (oid) {
    case OidType:
        return QStringLiteral("::int8");
    case MoneyType:
        return QStringLiteral("::numeric");
    default:
        return QStringLiteral("::text");
    }
}

QString hlpEnd()
{
    return QStringLiteral("a value that is not null ends the process");
}

} // namespace

ReadForm readForm(int oid)
{
    const QVariant::Type type = hlpFindPSQLType(oid);
    if (type == QVariant::Invalid) {
        const QString note =
            oid == VoidType ? QStringLiteral("or call the function in a DO block") : QString();
        return {false, QString(), QString(), note, hlpReadCast(oid)};
    }
    return {true, hlpValue(oid), QString::fromLatin1(QVariant::typeToName(static_cast<int>(type))),
            hlpReadNote(oid), QString()};
}

SendForm sendForm(int oid, const QString &typeName)
{
    switch (oid) {
    case Dorvy3Oid::Name:
    case Dorvy3Oid::Text:
    case Dorvy3Oid::Varchar:
        return {Status::Ok, QStringLiteral("an empty text goes as NULL: coalesce(?, '')"),
                QString()};
    case Dorvy3Oid::Int8:
    case Dorvy3Oid::Float8:
    case Dorvy3Oid::Date:
    case Dorvy3Oid::Time:
    case Dorvy3Oid::Timestamp:
        return {Status::Ok, QString(), QString()};
    case Dorvy3Oid::Int4:
        return {Status::Ok, QStringLiteral("a larger number loses its high bits: ?::int8"),
                QString()};
    case Dorvy3Oid::Int2:
        return {Status::Ok, QStringLiteral("a larger number loses its high bits: ?::int4"),
                QString()};
    case Dorvy3Oid::TimestampTz:
        return {Status::Ok, QStringLiteral("taken as UTC: bind value.toUTC()"), QString()};
    case Dorvy3Oid::Bytea:
    case Dorvy3Oid::Unknown:
        return {Status::Warning, QStringLiteral("an empty value ends the process"),
                QStringLiteral("::text::bytea")};
    case Dorvy3Oid::Numeric:
        return {Status::Warning, QStringLiteral("a value loses its fraction"),
                QStringLiteral("::text::numeric")};
    case Dorvy3Oid::Float4:
        return {Status::Failed, QStringLiteral("the server refuses a value"),
                QStringLiteral("::float8")};
    case Dorvy3Oid::TimeTz:
        return {Status::Failed, QStringLiteral("the server refuses a value"),
                QStringLiteral("::text::timetz")};
    case Dorvy3Oid::Bool:
        return {Status::Failed, hlpEnd(), QStringLiteral("::int::bool")};
    default:
        return {Status::Failed, hlpEnd(), QStringLiteral("::text::") + typeName};
    }
}
