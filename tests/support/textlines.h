// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Expected lines of the proxy's record, from C strings.
#ifndef TEXTLINES_H
#define TEXTLINES_H

#include <QtCore/QStringList>

#include <initializer_list>

/*! The UTF-8 \a texts as they stand. */
QStringList lines(std::initializer_list<const char *> texts);

/*! The UTF-8 \a texts with \a connection, the proxy's number of it, in front of each. */
QStringList numbered(int connection, std::initializer_list<const char *> texts);

#endif // TEXTLINES_H
