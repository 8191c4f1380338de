// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// What a server that lets us in is like.
#ifndef SERVERCHECK_H
#define SERVERCHECK_H

#include "finding.h"

#include <functional>

struct Arguments;
class ServerSession;

using TakeFinding = std::function<void(const Finding &)>;

/*! Reports the second connection, versions, encodings, places and the time of an exchange. */
void checkServer(ServerSession &session, const Arguments &arguments, const TakeFinding &report);

#endif // SERVERCHECK_H
