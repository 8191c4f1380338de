// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// What the walk prints, and the verdict at its end.
#ifndef REPORT_H
#define REPORT_H

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

    /*! Rows in columns as wide as they need to be; \a head names the columns. */
    void table(const QStringList &head, const QVector<QStringList> &rows);

    bool isGood() const { return failures == 0; }

private:
    int failures = 0;
};

/*! Memory that the process holds now, in KiB, as the kernel counts it. */
qint64 residentKib();

#endif // REPORT_H
