// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The connection attempt, and all that is asked through it.
#ifndef CONNECTIONCHECK_H
#define CONNECTIONCHECK_H

struct Arguments;
class Report;

/*!
    Connects through Qt and the driver, in a process of its own, and reports what came of it: the server,
    and the columns that the arguments ask for.
*/
void reportConnection(const Arguments &arguments, Report &report);

#endif // CONNECTIONCHECK_H
