// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// How wide a text is on a terminal, and texts that keep to one line.
#ifndef TEXTWIDTH_H
#define TEXTWIDTH_H

#include <QtCore/QString>

/*!
    The columns that \a text takes: two for a wide character, none for a combining one, as the
    locale's wcwidth() says. One of which it knows nothing counts one.
*/
int textWidth(const QString &text);

/*!
    \a text with what would move the cursor or reach the terminal's own commands replaced by the
    pictures of control characters: a line end by U+240A.
*/
QString onOneLine(QString text);

/*! \a text with blanks up to \a width columns, behind it or in front of it. */
QString padded(const QString &text, int width, bool toTheRight);

#endif // TEXTWIDTH_H
