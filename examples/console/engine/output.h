// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Output: lines for standard output and standard error.
#ifndef OUTPUT_H
#define OUTPUT_H

#include <QtCore/QStringList>

/*!
    Lines on standard output and standard error, in UTF-8 and in the order in which they were written.
*/
class Output
{
public:
    void line(const QString &text);
    void lines(const QStringList &texts);

    /*! A line on standard error. */
    void errorLine(const QString &text);

    /*! Hands on what waits to be written. */
    void flush();

    /*! False once standard output has taken a line no more, as on a full disk. */
    bool isGood() const { return good; }

private:
    bool good = true;
};

#endif // OUTPUT_H
