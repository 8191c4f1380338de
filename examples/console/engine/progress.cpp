// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Progress: how far a long work is, on a terminal.
#include "progress.h"

#include <cstdio>

namespace {

constexpr int StepMsec = 100;
constexpr int BarWidth = 20;
constexpr int BlockWidth = 3;
constexpr double Mib = 1024.0 * 1024.0;
constexpr int RowsBetweenLooks = 64; // at the clock

} // namespace

Progress::Progress(bool on)
    : isOn(on)
{
    timer.start();
}

void Progress::show(qint64 rows, qint64 bytes)
{
    if (!isOn || rows % RowsBetweenLooks != 0 || timer.elapsed() < next) {
        return;
    }
    next = timer.elapsed() + StepMsec;
    const QByteArray line = text(steps++, rows, bytes, timer.elapsed()).toUtf8();
    std::fprintf(stderr, "\r%s\x1b[K", line.constData());
    std::fflush(stderr);
}

void Progress::clear()
{
    if (steps > 0) {
        std::fputs("\r\x1b[K", stderr);
        std::fflush(stderr);
    }
}

QString Progress::text(int step, qint64 rows, qint64 bytes, qint64 msec)
{
    constexpr int ways = BarWidth - BlockWidth; // from one end to the other
    const int at = step % (2 * ways);
    QString bar(BarWidth, QLatin1Char(' '));
    bar.replace(at <= ways ? at : 2 * ways - at, BlockWidth, QStringLiteral("<=>"));
    return QStringLiteral("[%1] %2 rows, %3 MiB, %4 rows/s")
        .arg(bar)
        .arg(rows)
        .arg(static_cast<double>(bytes) / Mib, 0, 'f', 1)
        .arg(rows * 1000 / qMax<qint64>(1, msec));
}
