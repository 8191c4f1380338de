// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// FailingMemory: what libpq and the client extension allocate fails where a test wants it.
#ifndef FAILINGMEMORY_H
#define FAILINGMEMORY_H

#include <QtCore/QtGlobal>

/*!
    While one lives, the calls of malloc, calloc, realloc and strdup that its thread makes from the
    code that is linked into the program (libpq's archive and our own, not Qt or the C library) are
    counted, and one of them fails, or that and all behind it. At most one lives at a time on a
    thread. The program that uses it links dorvy_failing_memory, whose linker options lead the calls
    here.
*/
class FailingMemory
{
public:
    enum Extent { Once, FromThenOn };

    /*! The allocation \a number fails, counted from 1. */
    FailingMemory(int number, Extent extent);
    ~FailingMemory();

    /*! Whether an allocation has failed. */
    bool hasFailed() const { return failed; }

    /*! Whether the allocation that is about to be made is to fail, for the linker's names. */
    static bool refuses();

private:
    Q_DISABLE_COPY(FailingMemory)

    bool hlpRefuses();

    int left; // allocations until the one that fails, that included
    Extent extent;
    bool failed;
};

#endif // FAILINGMEMORY_H
