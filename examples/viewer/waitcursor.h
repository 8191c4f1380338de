// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
// WaitCursor: the hourglass, for as long as the server is asked.
#ifndef WAITCURSOR_H
#define WAITCURSOR_H

#include <QtGui/QCursor>
#include <QtGui/QGuiApplication>

/*! Qt SQL waits for the server where it is called: in an object of this class the user sees why. */
class WaitCursor
{
public:
    WaitCursor() { QGuiApplication::setOverrideCursor(Qt::WaitCursor); }
    ~WaitCursor() { QGuiApplication::restoreOverrideCursor(); }

private:
    Q_DISABLE_COPY(WaitCursor)
};

#endif // WAITCURSOR_H
