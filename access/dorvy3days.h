// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Day numbers.
#ifndef DORVY3DAYS_H
#define DORVY3DAYS_H

#include <QtCore/QDateTime>

/*!
    \file
    Day numbers: PostgreSQL's, from 2000-01-01, and those from 1899-12-30 that many programs keep
    dates in (whole days, and the fraction of a day for the time).
*/

/*!
    Days from 2000-01-01 to a date of the proleptic Gregorian calendar. There is no year 0: year -1
    is 1 BC. Days that do not fit are cut to the low 32 bits; see hlpPgDay.

    Source: PostgreSQL, date2j (Julian day of a calendar date).
*/
int hlpEncodePgDate(int year, int month, int day);

/*! The same in 64 bits, for any date that a QDate can hold. */
qint64 hlpPgDay(int year, int month, int day);

/*! The same of \a date. */
qint64 hlpPgDay(const QDate &date);

/*!
    The date of a day number from 1899-12-30. A negative value is rounded
    toward the base date, and its fraction goes back from midnight: -1.25 is 1899-12-29 18:00.
    A value beyond what QDate can hold gives an invalid date, but still has its time, which for the
    infinite is midnight. NaN has neither.
*/
QDate delphidate(double value);

/*! The time of day of a day number; see delphidate(). */
QTime delphitime(double value);

/*! Date and time of a day number; see delphidate(). */
QDateTime delphidatetime(double value);

#endif // DORVY3DAYS_H
