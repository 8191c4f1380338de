// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Whether Qt loads our plugin and gets a driver from it.
#ifndef LOADCHECK_H
#define LOADCHECK_H

struct PluginFile;
class Report;

/*! Loads \a plugin in a process of its own and reports what came of it. */
void reportLoading(const PluginFile &plugin, Report &report);

#endif // LOADCHECK_H
