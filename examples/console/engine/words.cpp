// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The words behind a command.
#include "words.h"

#include <QtCore/QRegularExpression>

bool splitWords(const QString &text, QVector<Word> *words)
{
    // Possessive: a way back for each character of a long text would be time and memory for nothing.
    static const QRegularExpression word(
        QStringLiteral("\\s*(?:'((?:[^']++|'')*+)'(?=\\s|$)|([^\\s']\\S*))"));
    int at = 0;
    const QString rest = text.trimmed();
    auto matches = word.globalMatch(rest, 0, QRegularExpression::NormalMatch,
                                    QRegularExpression::AnchoredMatchOption);
    while (matches.hasNext()) {
        const QRegularExpressionMatch match = matches.next();
        const bool quoted = match.capturedStart(2) < 0;
        words->append({quoted ? match.captured(1).replace(QLatin1String("''"), QLatin1String("'"))
                              : match.captured(2),
                       quoted});
        at = match.capturedEnd();
    }
    return at == rest.size();
}
