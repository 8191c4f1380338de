// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// InterruptWatch: Ctrl-C while a statement runs.
#ifndef INTERRUPT_H
#define INTERRUPT_H

#include <QtCore/QtGlobal>

#include <csignal>

/*!
    While there is one, Ctrl-C does not end the program: the first is kept for isInterrupted(). The
    second ends it, as the server may be busy with the statement and nothing else comes before its
    answer. One at a time.
*/
class InterruptWatch
{
public:
    InterruptWatch();
    ~InterruptWatch();

    /*! Whether Ctrl-C has come to the watch there is, or was last. */
    static bool isInterrupted();

private:
    Q_DISABLE_COPY(InterruptWatch)

    struct sigaction before;
};

/*!
    For a user at a terminal: what Ctrl-C does while there is no InterruptWatch, which is nothing. The
    one that was meant for a result comes just after its end now and then.
*/
void ignoreInterrupts();

#endif // INTERRUPT_H
