// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// LocalZone: the process's time zone for the length of a block.
#ifndef LOCALZONE_H
#define LOCALZONE_H

#include <QtCore/QByteArray>
#include <QtCore/QtGlobal>

#include <ctime>

/*! Three hours east of Greenwich all year, which needs no zone files. */
constexpr char Zone[] = "MSK-3";

/*! Sets the environment's TZ, and puts the old one back at the end. */
class LocalZone
{
public:
    explicit LocalZone(const char *zone)
        : old(qgetenv("TZ"))
    {
        qputenv("TZ", zone);
        tzset();
    }
    ~LocalZone()
    {
        qputenv("TZ", old);
        tzset();
    }

private:
    Q_DISABLE_COPY(LocalZone)

    QByteArray old;
};

#endif // LOCALZONE_H
