// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// FailingMemory: what libpq and the client extension allocate fails where a test wants it.
#include "tests/support/failingmemory.h"

#include <cstddef>

// The linker's option --wrap sends calls of xyz to __wrap_xyz; __real_xyz is the C library's own.
extern "C" {
void *__real_malloc(size_t bytes);
void *__real_calloc(size_t count, size_t bytes);
void *__real_realloc(void *block, size_t bytes);
char *__real_strdup(const char *text);
void *__wrap_malloc(size_t bytes);
void *__wrap_calloc(size_t count, size_t bytes);
void *__wrap_realloc(void *block, size_t bytes);
char *__wrap_strdup(const char *text);

void *__wrap_malloc(size_t bytes)
{
    return FailingMemory::refuses() ? nullptr : __real_malloc(bytes);
}

void *__wrap_calloc(size_t count, size_t bytes)
{
    return FailingMemory::refuses() ? nullptr : __real_calloc(count, bytes);
}

void *__wrap_realloc(void *block, size_t bytes)
{
    return FailingMemory::refuses() ? nullptr : __real_realloc(block, bytes);
}

char *__wrap_strdup(const char *text)
{
    return FailingMemory::refuses() ? nullptr : __real_strdup(text);
}
}

namespace {

thread_local FailingMemory *watcher = nullptr;

} // namespace

FailingMemory::FailingMemory(int number, Extent range)
    : left(number)
    , extent(range)
    , failed(false)
{
    watcher = this;
}

FailingMemory::~FailingMemory()
{
    watcher = nullptr;
}

bool FailingMemory::refuses()
{
    return watcher && watcher->hlpRefuses();
}

bool FailingMemory::hlpRefuses()
{
    --left;
    const bool now = extent == Once ? left == 0 : left <= 0;
    failed = failed || now;
    return now;
}
