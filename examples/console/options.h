// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Options: what the command line says.
#ifndef OPTIONS_H
#define OPTIONS_H

#include <QtCore/QString>

class QStringList;

struct Options
{
    enum Wish { Run, Help, Version, Wrong };

    Wish wish = Run;
    QString text; // the help, or what is wrong

    QString host; // what is empty, or -1, is libpq's own choice, as by PGHOST
    int port = -1;
    QString database;
    QString user;
    QString connectOptions;
    QString driver;
    QString command;
    QString file; // of the script; "-" is standard input
    bool hasCommand = false;
    bool passwordFromStdin = false;
    bool keepsGoing = false;
};

/*! The command line \a arguments, the program's name first. */
Options readOptions(const QStringList &arguments);

#endif // OPTIONS_H
