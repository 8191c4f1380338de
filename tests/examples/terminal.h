// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Terminal: a program on a terminal of its own, and somebody who types.
#ifndef TERMINAL_H
#define TERMINAL_H

#include <QtCore/QByteArray>
#include <QtCore/QStringList>

#include <sys/types.h>

/*!
    Runs a program on a pseudo terminal, of a kind that knows no colours. What the program writes is
    read by waitFor() and finish() alone. What still runs is killed when the object goes.
*/
class Terminal
{
public:
    /*! Starts \a program with \a variables, as NAME=VALUE, added to the environment. */
    Terminal(const QByteArray &program, const QStringList &arguments, const QStringList &variables);
    ~Terminal();

    /*! Types \a keys: what a line end, Ctrl-C or Ctrl-D does is the terminal's or the program's. */
    void type(const QByteArray &keys);

    /*! Waits until \a text comes, from where the last one ended; false if it does not. */
    bool waitFor(const QByteArray &text);

    pid_t processId() const { return child; }

    /*! What has been read so far, whole. */
    QByteArray screen() const { return read; }

    /*!
        Waits for the program's end, and brings it about when it does not come: the exit status, or
        minus the number of a signal.
    */
    int finish();

private:
    Q_DISABLE_COPY(Terminal)

    bool readMore(int msec);

    pid_t child;
    int descriptor;
    QByteArray read;
    int seen = 0; // by waitFor()
};

#endif // TERMINAL_H
