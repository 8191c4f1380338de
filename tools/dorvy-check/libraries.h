// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// What our plugin needs of the system, and whether it is there.
#ifndef LIBRARIES_H
#define LIBRARIES_H

struct PluginFile;
class Report;

/*!
    Reports the libraries that \a plugin needs and the loader does not find, or finds too old; where its
    own jemalloc is; and which libpq it uses. Nothing of them is loaded.
*/
void reportLibraries(const PluginFile &plugin, Report &report);

#endif // LIBRARIES_H
