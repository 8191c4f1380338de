// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The access layer's face: everything that the layers above may use of it.
#ifndef DORVY3_H
#define DORVY3_H

#include "access/dorvy3connection.h"
#include "access/dorvy3database.h"
#include "access/dorvy3days.h"
#include "access/dorvy3result.h"
#include "access/dorvy3statement.h"
#include "access/dorvy3transacted.h"

#endif // DORVY3_H
