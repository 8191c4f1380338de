// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// LibpqCalls: which connections libpq is asked to make and to finish.
#include "tests/support/libpqcalls.h"

#include <QtCore/QMutexLocker>

#include <atomic>

// The linker's option --wrap sends calls of PQxyz to __wrap_PQxyz; __real_PQxyz is libpq's own.
extern "C" {
PGconn *__real_PQconnectdb(const char *conninfo);
PGconn *__wrap_PQconnectdb(const char *conninfo);
void __real_PQfinish(PGconn *connection);
void __wrap_PQfinish(PGconn *connection);

PGconn *__wrap_PQconnectdb(const char *conninfo)
{
    return LibpqCalls::connect(conninfo);
}

void __wrap_PQfinish(PGconn *connection)
{
    LibpqCalls::finish(connection);
}
}

namespace {

std::atomic<LibpqCalls *> watcher(nullptr);

} // namespace

LibpqCalls::LibpqCalls()
    : refusing(false)
{
    watcher = this;
}

LibpqCalls::~LibpqCalls()
{
    watcher = nullptr;
}

void LibpqCalls::refuseConnections()
{
    const QMutexLocker locker(&mutex);
    refusing = true;
}

QList<QByteArray> LibpqCalls::connected() const
{
    const QMutexLocker locker(&mutex);
    return strings;
}

QList<const PGconn *> LibpqCalls::finished() const
{
    const QMutexLocker locker(&mutex);
    return handles;
}

bool LibpqCalls::hlpNoteConnect(const char *conninfo)
{
    const QMutexLocker locker(&mutex);
    strings.append(conninfo);
    return !refusing;
}

PGconn *LibpqCalls::connect(const char *conninfo)
{
    LibpqCalls *calls = watcher;
    return !calls || calls->hlpNoteConnect(conninfo) ? __real_PQconnectdb(conninfo) : nullptr;
}

void LibpqCalls::finish(PGconn *connection)
{
    if (LibpqCalls *calls = watcher) {
        const QMutexLocker locker(&calls->mutex);
        calls->handles.append(connection);
    }
    __real_PQfinish(connection);
}
