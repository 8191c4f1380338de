// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The end of the process, for a type or a value that the driver cannot carry.
#ifndef DORVY3FATAL_P_H
#define DORVY3FATAL_P_H

#include <QtCore/QMessageLogger>

/*! Ends the process through Qt's fatal message, which carries no file, line or function. */
template<typename... Numbers>
[[noreturn]] void hlpFatal(const char *format, Numbers... numbers)
{
    QMessageLogger(nullptr, 0, nullptr).fatal(format, numbers...);
}

#endif // DORVY3FATAL_P_H
