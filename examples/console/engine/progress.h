// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Progress: how far a long work is, on a terminal.
#ifndef PROGRESS_H
#define PROGRESS_H

#include <QtCore/QElapsedTimer>
#include <QtCore/QString>

/*!
    A line on standard error that is written over again: a bar, rows, bytes, rows a second. Nobody
    knows how many rows will come without reading them twice, so the bar moves to and fro. Shows
    nothing where it is not switched on, as beside a standard error that is no terminal.
*/
class Progress
{
public:
    explicit Progress(bool on);

    /*! Shows \a rows and \a bytes, though not more often than the eye follows. */
    void show(qint64 rows, qint64 bytes);

    /*! Takes the line away. */
    void clear();

    /*! The line after \a msec, at its \a step. */
    static QString text(int step, qint64 rows, qint64 bytes, qint64 msec);

private:
    bool isOn;
    int steps = 0;
    qint64 next = 0; // when to show it again, milliseconds
    QElapsedTimer timer;
};

#endif // PROGRESS_H
