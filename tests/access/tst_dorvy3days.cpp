// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The day-number functions against written-out days, dates and times.
#include "access/dorvy3days.h"

#include <QtTest/QtTest>

#include <cmath>
#include <limits>

namespace {

constexpr double Infinity = std::numeric_limits<double>::infinity();
constexpr double NotANumber = std::numeric_limits<double>::quiet_NaN();

} // namespace

class tst_Dorvy3Days : public QObject
{
    Q_OBJECT

private slots:
    void everyDayOfTheCommonEra();
    void pgDateCountsFromTheYear2000_data();
    void pgDateCountsFromTheYear2000();
    void pgDateKeepsTheLow32Bits_data();
    void pgDateKeepsTheLow32Bits();
    void everyDayIsOneMoreThanTheDayBefore();

    void dayNumber_data();
    void dayNumber();
    void dayNumberOfNoDay_data();
    void dayNumberOfNoDay();
    void timeNeedsNoDate_data();
    void timeNeedsNoDate();
    void fractionIsCutToMilliseconds_data();
    void fractionIsCutToMilliseconds();
    void dayNumberIsLocalTime();
};

void tst_Dorvy3Days::pgDateCountsFromTheYear2000_data()
{
    QTest::addColumn<int>("year");
    QTest::addColumn<int>("month");
    QTest::addColumn<int>("day");
    QTest::addColumn<int>("number");
    QTest::newRow("epoch") << 2000 << 1 << 1 << 0;
    QTest::newRow("last day before it") << 1999 << 12 << 31 << -1;
    QTest::newRow("day after it") << 2000 << 1 << 2 << 1;
    QTest::newRow("base of the other day numbers") << 1899 << 12 << 30 << -36526;
    QTest::newRow("Unix epoch") << 1970 << 1 << 1 << -10957;
    QTest::newRow("leap day of a fourth year") << 2004 << 2 << 29 << 1520;
    QTest::newRow("day after it in March") << 2004 << 3 << 1 << 1521;
    QTest::newRow("leap day of a 400th year") << 2000 << 2 << 29 << 59;
    QTest::newRow("first of March, 400th year") << 2000 << 3 << 1 << 60;
    QTest::newRow("end of February, 100th year") << 2100 << 2 << 28 << 36583;
    QTest::newRow("first of March, 100th year") << 2100 << 3 << 1 << 36584;
    QTest::newRow("end of a leap year") << 2000 << 12 << 31 << 365;
    QTest::newRow("start of the next year") << 2001 << 1 << 1 << 366;
    QTest::newRow("Gregorian also before 1582") << 1582 << 10 << 4 << -152395;
    QTest::newRow("first Gregorian day") << 1582 << 10 << 15 << -152384;
    QTest::newRow("first day of our era") << 1 << 1 << 1 << -730119;
    QTest::newRow("last day of 1 BC") << -1 << 12 << 31 << -730120;
    QTest::newRow("1 BC is a leap year") << -1 << 2 << 29 << -730426;
    QTest::newRow("first day of 1 BC") << -1 << 1 << 1 << -730485;
    QTest::newRow("Julian day 0, the server's first") << -4714 << 11 << 24 << -2451545;
    // Before 4800 BC the divisions still cut toward zero, which is a day off.
    QTest::newRow("long before the server's first") << -10000 << 3 << 1 << -4382484;
    QTest::newRow("four digits of year") << 9999 << 12 << 31 << 2921939;
    QTest::newRow("the server's last timestamp day") << 294276 << 12 << 31 << 106751982;
    QTest::newRow("the server's last date") << 5874897 << 12 << 31 << 2145031948;
}

void tst_Dorvy3Days::pgDateCountsFromTheYear2000()
{
    QFETCH(int, year);
    QFETCH(int, month);
    QFETCH(int, day);
    QFETCH(int, number);
    QCOMPARE(hlpEncodePgDate(year, month, day), number);
    QCOMPARE(hlpPgDay(year, month, day), qint64(number));
}

void tst_Dorvy3Days::pgDateKeepsTheLow32Bits_data()
{
    QTest::addColumn<int>("day");
    QTest::addColumn<int>("number");
    QTest::addColumn<qint64>("wide");
    QTest::newRow("last day that fits") << 11 << 2147483647 << Q_INT64_C(2147483647);
    QTest::newRow("first day that does not") << 12 << int(0x80000000u) << Q_INT64_C(2147483648);
}

void tst_Dorvy3Days::pgDateKeepsTheLow32Bits()
{
    QFETCH(int, day);
    QFETCH(int, number);
    QFETCH(qint64, wide);
    QCOMPARE(hlpEncodePgDate(5881610, 7, day), number);
    QCOMPARE(hlpPgDay(5881610, 7, day), wide);
}

void tst_Dorvy3Days::everyDayIsOneMoreThanTheDayBefore()
{
    // Two whole cycles of 400 years, across the missing year 0.
    QDate date(-401, 1, 1);
    int number = hlpEncodePgDate(-401, 1, 1);
    QCOMPARE(number, -876582);
    while (date < QDate(401, 1, 1)) {
        date = date.addDays(1);
        ++number;
        QCOMPARE(hlpEncodePgDate(date.year(), date.month(), date.day()), number);
    }
}

void tst_Dorvy3Days::dayNumber_data()
{
    QTest::addColumn<double>("number");
    QTest::addColumn<QDate>("date");
    QTest::addColumn<QTime>("time");
    const QTime midnight(0, 0, 0, 0);
    QTest::newRow("base") << 0.0 << QDate(1899, 12, 30) << midnight;
    QTest::newRow("negative zero") << -0.0 << QDate(1899, 12, 30) << midnight;
    QTest::newRow("one day on") << 1.0 << QDate(1899, 12, 31) << midnight;
    QTest::newRow("one day back") << -1.0 << QDate(1899, 12, 29) << midnight;
    QTest::newRow("no leap day in 1900") << 61.0 << QDate(1900, 3, 1) << midnight;
    QTest::newRow("quarter of a day") << 0.25 << QDate(1899, 12, 30) << QTime(6, 0, 0, 0);
    QTest::newRow("noon") << 36526.5 << QDate(2000, 1, 1) << QTime(12, 0, 0, 0);
    QTest::newRow("Unix epoch") << 25569.0 << QDate(1970, 1, 1) << midnight;
    QTest::newRow("evening") << 43890.75 << QDate(2020, 2, 29) << QTime(18, 0, 0, 0);
    // The date goes toward the base date, the fraction back from midnight.
    QTest::newRow("negative with a fraction") << -1.25 << QDate(1899, 12, 29) << QTime(18, 0, 0, 0);
    QTest::newRow("negative below one day") << -0.75 << QDate(1899, 12, 30) << QTime(6, 0, 0, 0);
    QTest::newRow("negative noon") << -2.5 << QDate(1899, 12, 28) << QTime(12, 0, 0, 0);
    QTest::newRow("last day of year 9999") << 2958465.0 << QDate(9999, 12, 31) << midnight;
    QTest::newRow("first day of our era") << -693593.0 << QDate(1, 1, 1) << midnight;
    QTest::newRow("last day of 1 BC") << -693594.0 << QDate(-1, 12, 31) << midnight;
}

void tst_Dorvy3Days::dayNumber()
{
    QFETCH(double, number);
    QFETCH(QDate, date);
    QFETCH(QTime, time);
    QCOMPARE(delphidate(number), date);
    QCOMPARE(delphitime(number), time);
    QCOMPARE(delphidatetime(number).date(), date);
    QCOMPARE(delphidatetime(number).time(), time);
}

void tst_Dorvy3Days::dayNumberOfNoDay_data()
{
    QTest::addColumn<double>("number");
    QTest::newRow("infinity") << Infinity;
    QTest::newRow("negative infinity") << -Infinity;
    QTest::newRow("NaN") << NotANumber;
    QTest::newRow("beyond QDate") << 1e15;
    QTest::newRow("before QDate") << -1e15;
    QTest::newRow("beyond 64 bits") << 1e19;
    QTest::newRow("before 64 bits") << -1e19;
    QTest::newRow("largest double") << std::numeric_limits<double>::max();
}

void tst_Dorvy3Days::dayNumberOfNoDay()
{
    QFETCH(double, number);
    QVERIFY(!delphidate(number).isValid());
    QVERIFY(!delphidatetime(number).isValid());
}

void tst_Dorvy3Days::timeNeedsNoDate_data()
{
    QTest::addColumn<double>("number");
    QTest::addColumn<QTime>("time");
    // The fraction counts, also of a day that no QDate holds.
    QTest::newRow("quarter beyond QDate") << 4e12 + 0.25 << QTime(6, 0, 0, 0);
    QTest::newRow("quarter before QDate") << -4e12 - 0.25 << QTime(18, 0, 0, 0);
    QTest::newRow("whole days beyond 64 bits") << 1e19 << QTime(0, 0, 0, 0);
    QTest::newRow("largest double") << std::numeric_limits<double>::max() << QTime(0, 0, 0, 0);
    // The infinite have the fraction 0.
    QTest::newRow("infinity") << Infinity << QTime(0, 0, 0, 0);
    QTest::newRow("negative infinity") << -Infinity << QTime(0, 0, 0, 0);
    QTest::newRow("NaN") << NotANumber << QTime();
}

void tst_Dorvy3Days::timeNeedsNoDate()
{
    QFETCH(double, number);
    QFETCH(QTime, time);
    QCOMPARE(delphitime(number), time);
}

void tst_Dorvy3Days::fractionIsCutToMilliseconds_data()
{
    QTest::addColumn<double>("number");
    QTest::addColumn<QTime>("time");
    // A fraction of 1 / 2^27 of a day is 0.64 milliseconds; all of these are exact doubles.
    const double unit = std::ldexp(1.0, -27);
    QTest::newRow("below one") << unit << QTime(0, 0, 0, 0);
    QTest::newRow("one and a part") << 3 * unit << QTime(0, 0, 0, 1);
    QTest::newRow("almost midnight") << 1 - unit << QTime(23, 59, 59, 999);
    QTest::newRow("below one, negative") << -unit << QTime(0, 0, 0, 0);
    QTest::newRow("one and a part, negative") << -3 * unit << QTime(23, 59, 59, 999);
    QTest::newRow("almost a day back") << unit - 1 << QTime(0, 0, 0, 1);
    QTest::newRow("beside whole days") << 41 + 3 * unit << QTime(0, 0, 0, 1);
}

void tst_Dorvy3Days::fractionIsCutToMilliseconds()
{
    QFETCH(double, number);
    QFETCH(QTime, time);
    QCOMPARE(delphitime(number), time);
    QCOMPARE(delphidatetime(number).time(), time);
}

void tst_Dorvy3Days::dayNumberIsLocalTime()
{
    QCOMPARE(delphidatetime(36526.5).timeSpec(), Qt::LocalTime);
    QCOMPARE(delphidatetime(36526.5),
             QDateTime(QDate(2000, 1, 1), QTime(12, 0, 0, 0), Qt::LocalTime));
}

// Its days take QDate's own number; those around them, the rule by year, month and day.
void tst_Dorvy3Days::everyDayOfTheCommonEra()
{
    constexpr int Around = 1000;
    const QDate end = QDate(9999, 12, 31).addDays(Around);
    for (QDate date = QDate(1, 1, 1).addDays(-Around); date <= end; date = date.addDays(1)) {
        const int expected = hlpEncodePgDate(date.year(), date.month(), date.day());
        if (hlpPgDay(date) != expected) {
            QCOMPARE(hlpPgDay(date), qint64(expected));
        }
    }
}

QTEST_GUILESS_MAIN(tst_Dorvy3Days)
#include "tst_dorvy3days.moc"
