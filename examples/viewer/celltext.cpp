// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
// The text of a cell, from a column's value.
#include "examples/viewer/celltext.h"

#include "engine/valuetext.h"

#include <QtSql/QSqlField>

namespace {

constexpr int Utf8Bytes = 4; // of a character, at the most
const QChar Ellipsis(0x2026);

// Cut before they are written out: with all bytes of one character more, which the ellipsis replaces, and
// of the version in front of a jsonb.
QVariant shortened(const QVariant &value, int characters)
{
    return value.userType() == QMetaType::QByteArray
               ? value.toByteArray().left(Utf8Bytes * (characters + 1) + 1)
               : value;
}

} // namespace

QString cellText(const QVariant &value, const QSqlField &field, int characters)
{
    if (!value.isValid()) {
        return QStringLiteral("NULL");
    }
    const QString text = valueText(shortened(value, characters), field);
    return text.size() <= characters ? text : text.left(characters) + Ellipsis;
}
