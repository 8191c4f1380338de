// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Units of PostgreSQL's binary formats that the encoder and the decoder share.
#ifndef DORVY3UNITS_P_H
#define DORVY3UNITS_P_H

#include <QtCore/QtGlobal>

constexpr qint64 UsecPerMsec = 1000;
constexpr qint64 UsecPerSec = 1000 * UsecPerMsec;
constexpr qint64 UsecPerMinute = 60 * UsecPerSec;
constexpr qint64 UsecPerHour = 60 * UsecPerMinute;
constexpr qint64 UsecPerDay = 24 * UsecPerHour;

constexpr qint64 PgEpochJulianDay = 2451545; // 2000-01-01, from which the server counts days

// Days of the years 1 to 9999, counted from the epoch. There the server's rules, which go by year,
// month and day, and QDate's own number of a day give the same date; see tst_dorvydecode_binary,
// everyDayOfTheCommonEra, and tst_dorvy3days, everyDayOfTheCommonEra.
constexpr qint64 FirstCommonDay = -730119;
constexpr qint64 LastCommonDay = 2921939;

constexpr bool hlpIsCommonDay(qint64 day)
{
    return day >= FirstCommonDay && day <= LastCommonDay;
}

// A binary numeric is four 16-bit words (digits, weight, sign, display scale) and its digits.
constexpr int NumericBase = 10000;
constexpr int NumericHeaderBytes = 8;
constexpr int NumericDigitBytes = 2;
constexpr quint16 NumericNegative = 0x4000;

#endif // DORVY3UNITS_P_H
