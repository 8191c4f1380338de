// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Which plugin Qt asks for a driver's name.
#ifndef PLUGINKEYS_H
#define PLUGINKEYS_H

class PluginSearch;
class Report;

/*!
    Reports for "DORVY" and "QPSQL" which plugin answers and who else announces the name. Qt takes the
    first plugin that announces it, and looks no further if that gives no driver.
*/
void reportKeys(const PluginSearch &search, Report &report);

/*! Whether Qt asks our plugin for "DORVY". */
bool isAnsweredByOurs(const PluginSearch &search);

#endif // PLUGINKEYS_H
