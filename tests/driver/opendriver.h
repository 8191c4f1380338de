// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// OpenDriver: the driver with what Qt alone calls, and its private half, in the open.
#ifndef OPENDRIVER_H
#define OPENDRIVER_H

#include "driver/dorvydriver.h"
#include "driver/dorvydriver_p.h"

class OpenDriver : public DorvyDriver
{
public:
    using DorvyDriver::DorvyDriver;
    using DorvyDriver::setLastError;
    using DorvyDriver::setOpen;
    using DorvyDriver::setOpenError;

    DorvyDriverPrivate &half() { return *static_cast<DorvyDriverPrivate *>(d_ptr.data()); }
};

#endif // OPENDRIVER_H
