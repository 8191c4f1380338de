// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Samples: what a long run holds, taken on the way and compared at its end.
#include "tests/soak/samples.h"

#include <QtCore/QDir>
#include <QtCore/QFile>

#include <cstdio>

#include <malloc.h>

namespace {

qint64 residentKib()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly)) {
        return -1;
    }
    const QByteArray text = status.readAll();
    const int at = text.indexOf("VmRSS:") + 6;
    return text.mid(at, text.indexOf('k', at) - at).trimmed().toLongLong();
}

// Blocks of the heap and those that were too large for it.
qint64 inUseKib()
{
    const struct mallinfo2 info = mallinfo2();
    return static_cast<qint64>((info.uordblks + info.hblkhd) / 1024);
}

int descriptors()
{
    return QDir(QStringLiteral("/proc/self/fd"))
        .entryList(QDir::NoDotAndDotDot | QDir::AllEntries | QDir::System)
        .size();
}

} // namespace

Samples::Samples(const QString &name, qint64 growth)
    : phase(name)
    , growthKib(growth)
{
    std::printf("%9s %6s %13s %11s %9s %11s %8s\n", qPrintable(phase), "files", "resident, KiB",
                "in use, KiB", "backends", "statements", "cursors");
}

void Samples::take(int done, const ServerSide &server)
{
    const Sample sample{done, descriptors(), residentKib(), inUseKib(), server};
    samples += sample;
    std::printf("%9d %6d %13lld %11lld %9d %11d %8d\n", sample.done, sample.descriptors,
                static_cast<long long>(sample.residentKib), static_cast<long long>(sample.inUseKib),
                server.backends, server.statements, server.cursors);
    std::fflush(stdout);
}

QStringList Samples::hlpClientFaults() const
{
    const Sample &first = samples.first();
    const Sample &last = samples.last();
    QStringList faults;
    if (last.residentKib - first.residentKib > growthKib) {
        faults += phase + QStringLiteral(": resident memory grew by %1 KiB")
                              .arg(last.residentKib - first.residentKib);
    }
    if (last.inUseKib - first.inUseKib > growthKib) {
        faults +=
            phase +
            QStringLiteral(": memory in use grew by %1 KiB").arg(last.inUseKib - first.inUseKib);
    }
    for (const Sample &sample : samples) {
        if (sample.descriptors != first.descriptors) {
            faults += phase + QStringLiteral(": %1 open files after %2, %3 before")
                                  .arg(sample.descriptors)
                                  .arg(sample.done)
                                  .arg(first.descriptors);
        }
    }
    return faults;
}

QStringList Samples::faults(int backends) const
{
    QStringList faults = hlpClientFaults();
    for (const Sample &sample : samples) {
        const ServerSide &server = sample.server;
        if (server.backends != backends || server.statements != 0 || server.cursors != 0) {
            faults += phase + QStringLiteral(": %1 backends, %2 statements, %3 cursors after %4")
                                  .arg(server.backends)
                                  .arg(server.statements)
                                  .arg(server.cursors)
                                  .arg(sample.done);
        }
    }
    return faults;
}
