// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Instructions of a program, counted by valgrind's callgrind.
#ifndef CALLGRIND_H
#define CALLGRIND_H

#include <QtCore/QMap>
#include <QtCore/QString>
#include <QtCore/QStringList>

/*! Instructions by the object file, without its folder, that they stand in. */
using Instructions = QMap<QString, qint64>;

/*!
    Runs \a command to its end in an environment of TZ=UTC and the plugins of the build tree alone:
    what Qt and the C library do depends on it, and the C library searches it for the time zone with
    every local time. Empty, with the reason on standard error, when the command fails.
*/
Instructions countInstructions(const QStringList &command);

/*! What each of \a count more units costs, of a run of more and a run of fewer. */
QMap<QString, double> costOfUnit(const Instructions &more, const Instructions &fewer, int count);

#endif // CALLGRIND_H
