// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// PluginSearch: where Qt looks for SQL drivers, and what it finds there.
#ifndef PLUGINSEARCH_H
#define PLUGINSEARCH_H

#include "pluginfile.h"

#include <QtCore/QVector>

class Report;

/*! The files of all sqldrivers folders, in the order in which Qt asks them. */
class PluginSearch
{
public:
    /*! Looks where a Qt program like this one does, and reports each place. */
    explicit PluginSearch(Report &report);

    const QVector<PluginFile> &files() const { return found; }

    /*! Our plugin: the copy that Qt takes, or else one that it cannot use. Null if there is none. */
    const PluginFile *ours() const;

private:
    void hlpReportVariable(Report &report) const;
    void hlpLook(const QString &folder, Report &report);

    QVector<PluginFile> found;
};

/*! Reports whether our plugin is there, its versions, and other copies of it. */
void reportOurs(const PluginSearch &search, Report &report);

#endif // PLUGINSEARCH_H
