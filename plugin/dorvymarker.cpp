// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// What a plugin file says of itself to whoever looks for it in the bytes: `strings` or dorvy-check.
// The metadata have the driver's keys and nothing else, and the file exports Qt's two entry points.

namespace {

[[gnu::used]] const char marker[] = "DORVY driver " DORVY_VERSION ", libpq " DORVY_LIBPQ_VERSION;

} // namespace
