// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Day numbers.
#include "access/dorvy3days.h"

#include "access/dorvy3units_p.h"

#include <cmath>

namespace {

// Made when the library is loaded: the bases of the day numbers.
const QDate based(1899, 12, 30);
const QTime baset(0, 0, 0, 0);

constexpr double MsecPerDay = 86400000.0;
constexpr double MaxDays = 1e12; // a Julian day that QDate can hold has fewer

} // namespace

qint64 hlpPgDay(int year, int month, int day)
{
    qint64 y = year < 0 ? qint64(year) + 1 : year;
    qint64 m = month;
    if (month > 2) {
        m += 1;
        y += 4800;
    } else {
        m += 13;
        y += 4799;
    }
    const qint64 century = y / 100;
    const qint64 julian = y * 365 - 32167 + y / 4 - century + century / 4 + 7834 * m / 256 + day;
    return julian - PgEpochJulianDay;
}

qint64 hlpPgDay(const QDate &date)
{
    const qint64 day = date.toJulianDay() - PgEpochJulianDay;
    return hlpIsCommonDay(day) ? day : hlpPgDay(date.year(), date.month(), date.day());
}

int hlpEncodePgDate(int year, int month, int day)
{
    return static_cast<int>(hlpPgDay(year, month, day));
}

QDate delphidate(double value)
{
    if (!(std::fabs(value) < MaxDays)) { // NaN too
        return QDate();
    }
    double days = 0;
    std::modf(value, &days);
    return based.addDays(static_cast<qint64>(days));
}

QTime delphitime(double value)
{
    if (std::isnan(value)) {
        return QTime();
    }
    double days = 0;
    return baset.addMSecs(static_cast<int>(std::modf(value, &days) * MsecPerDay));
}

QDateTime delphidatetime(double value)
{
    return QDateTime(delphidate(value), delphitime(value), Qt::LocalTime);
}
