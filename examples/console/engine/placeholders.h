// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// How many placeholders a statement has.
#ifndef PLACEHOLDERS_H
#define PLACEHOLDERS_H

class QString;

/*!
    How many values the placeholders of \a statement take: ?, $1 or, as Qt has them, :name. It is one
    that Splitter gives, without comments and with one kind of quotes. Never fewer than there are.
*/
int placeholderCount(const QString &statement);

#endif // PLACEHOLDERS_H
