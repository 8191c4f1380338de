// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// What the walk prints, and the verdict at its end.
#ifndef REPORT_H
#define REPORT_H

#include "engine/output.h"

#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVector>

class QSqlError;

class Report
{
public:
    void chapter(const QString &title);
    void line(const QString &text);

    /*! A line with a tick or a cross; a cross makes the whole walk fail. Returns \a good. */
    bool check(bool good, const QString &text);

    /*! Both texts of an error, as an application would show them. */
    void error(const QSqlError &error);

    /*! Rows as the console prints them; \a head names the columns, a null string is NULL. */
    void table(const QStringList &head, const QVector<QStringList> &rows);

    bool isGood() const { return failures == 0; }

private:
    void print(const QString &text);
    void indented(const QStringList &lines);

    Output output;
    int failures = 0;
};

/*! Memory that the process holds now, in KiB, as the kernel counts it. */
qint64 residentKib();

#endif // REPORT_H
