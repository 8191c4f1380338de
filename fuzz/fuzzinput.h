// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// What the fuzz targets share: a check that ends the run, and Qt's values out of the input.
//
// Source: LLVM documentation, libFuzzer (FuzzedDataProvider: texts are taken from the front of the
// input, numbers from its back).
#ifndef FUZZINPUT_H
#define FUZZINPUT_H

#include <QtCore/QDateTime>
#include <QtCore/QVariant>

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdio>
#include <cstdlib>

/*! A finding, unless \a promise holds. */
inline void require(bool held, const char *promise)
{
    if (!held) {
        std::fprintf(stderr, "does not hold: %s\n", promise);
        std::abort();
    }
}

inline QByteArray takeBytes(FuzzedDataProvider &input)
{
    return QByteArray::fromStdString(input.ConsumeRandomLengthString());
}

/*! Any bytes, read as UTF-8. */
inline QString takeText(FuzzedDataProvider &input)
{
    return QString::fromUtf8(takeBytes(input));
}

/*! Between them the two ranges have what other programs know as a date, and all that QDate holds. */
inline QDate takeDate(FuzzedDataProvider &input)
{
    constexpr qint64 LastFourDigitYear = 5373484; // Julian day of 9999-12-31
    constexpr qint64 Farthest = 784350574879;     // QDate holds as many days either side of 0
    return QDate::fromJulianDay(input.ConsumeBool()
                                    ? input.ConsumeIntegralInRange<qint64>(0, LastFourDigitYear)
                                    : input.ConsumeIntegralInRange<qint64>(-Farthest, Farthest));
}

/*! One time in 86400001 is invalid, and where the input is at its end it is midnight. */
inline QTime takeTime(FuzzedDataProvider &input)
{
    constexpr int MsecPerDay = 86400000;
    const int msec = input.ConsumeIntegralInRange(0, MsecPerDay);
    return msec == MsecPerDay ? QTime() : QTime::fromMSecsSinceStartOfDay(msec);
}

inline QDateTime takeDateTime(FuzzedDataProvider &input)
{
    constexpr int HalfDay = 12 * 3600; // seconds
    const QDate date = takeDate(input);
    const QTime time = takeTime(input);
    switch (input.ConsumeIntegralInRange(0, 2)) {
    case 0:
        return QDateTime(date, time, Qt::LocalTime);
    case 1:
        return QDateTime(date, time, Qt::UTC);
    default:
        return QDateTime(date, time, Qt::OffsetFromUTC,
                         input.ConsumeIntegralInRange(-HalfDay, HalfDay));
    }
}

/*! The bits of any double: every NaN, infinity and denormal number. */
inline double takeDouble(FuzzedDataProvider &input)
{
    const auto bits = input.ConsumeIntegral<quint64>();
    double number = 0;
    static_assert(sizeof(number) == sizeof(bits), "IEEE 754 sizes");
    std::memcpy(&number, &bits, sizeof(number));
    return number;
}

/*! A value of any type that applications bind or put into fields. */
inline QVariant takeVariant(FuzzedDataProvider &input)
{
    switch (input.ConsumeIntegralInRange(0, 11)) {
    case 0:
        return QVariant(takeText(input));
    case 1:
        return QVariant(takeBytes(input));
    case 2:
        return QVariant(input.ConsumeBool());
    case 3:
        return QVariant(input.ConsumeIntegral<int>());
    case 4:
        return QVariant(input.ConsumeIntegral<uint>());
    case 5:
        return QVariant(input.ConsumeIntegral<qlonglong>());
    case 6:
        return QVariant(input.ConsumeIntegral<qulonglong>());
    case 7:
        return QVariant(takeDouble(input));
    case 8:
        return QVariant::fromValue(static_cast<float>(takeDouble(input)));
    case 9:
        return QVariant(takeDate(input));
    case 10:
        return QVariant(takeTime(input));
    default:
        return QVariant(takeDateTime(input));
    }
}

#endif // FUZZINPUT_H
