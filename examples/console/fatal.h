// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// What the program does with messages of Qt and the driver.
#ifndef FATAL_H
#define FATAL_H

#include <QtCore/QString>

/*! The status with which the program ends at a type that the driver does not take. */
constexpr int FatalStatus = 4;

/*! What to do about such an end, for the help and for the end itself. */
QString fatalAdvice();

/*!
    From now on, warnings go to standard error and the driver's greeting goes nowhere. A fatal message
    ends the program, as it would without this, but with an advice in place of a core file.
*/
void installMessageHandler();

#endif // FATAL_H
