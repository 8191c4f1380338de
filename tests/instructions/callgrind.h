// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Instructions of a program, counted by valgrind's callgrind.
#ifndef CALLGRIND_H
#define CALLGRIND_H

#include <QtCore/QMap>
#include <QtCore/QString>
#include <QtCore/QStringList>

/*!
    Instructions by the object file, without its folder, that they stand in; those of code whose
    source is known stand under fromSource() of it. A library that is linked in as it came in a
    package, such as libpq's archive, has no known source.
*/
using Instructions = QMap<QString, qint64>;

inline QString fromSource(const QString &object)
{
    return object + QStringLiteral(" from source");
}

/*! What a run has done. */
struct Profile
{
    Instructions instructions;
    qint64 allocations = 0; // calls of malloc, calloc and realloc
};

/*!
    Runs \a command to its end in an environment of TZ=UTC and the plugins of the build tree alone:
    what Qt and the C library do depends on it, and the C library searches it for the time zone with
    every local time. Empty, with the reason on standard error, when the command fails.
*/
Profile profileOf(const QStringList &command);

/*! What a unit of the work costs. */
struct UnitCost
{
    QMap<QString, double> instructions;
    double allocations;
};

/*! What each of \a count more units costs, of a run of more and a run of fewer. */
UnitCost costOfUnit(const Profile &more, const Profile &fewer, int count);

#endif // CALLGRIND_H
