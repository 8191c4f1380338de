// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// How many placeholders a statement has.
#include "placeholders.h"

#include <QtCore/QRegularExpression>

int placeholderCount(const QString &statement)
{
    // What is to be passed over comes first: texts, quoted names, and names with a dollar sign.
    static const QRegularExpression part(
        QStringLiteral("'[^']*+'|\"[^\"]*+\"|[\\w\\x{80}-\\x{ffff}][\\w$\\x{80}-\\x{ffff}]*+|"
                       "\\$(\\d+)|(\\?|(?<!:):(?=\\w))"));
    int marks = 0;
    int highest = 0;
    auto parts = part.globalMatch(statement);
    while (parts.hasNext()) {
        const QRegularExpressionMatch match = parts.next();
        marks += match.capturedLength(2) > 0 ? 1 : 0;
        highest = qMax(highest, match.capturedRef(1).toInt());
    }
    return qMax(marks, highest);
}
