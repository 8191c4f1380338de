// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Both texts of an error, as an application would show them.
#ifndef ERRORTEXT_H
#define ERRORTEXT_H

#include <QtCore/QStringList>

class QSqlError;

/*! The lines that tell \a error: what the driver says, which has the server's words, and the other. */
QStringList errorLines(const QSqlError &error);

#endif // ERRORTEXT_H
