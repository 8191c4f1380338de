// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// ServerWaits: how often libpq waits for an answer.
#include "tests/support/serverwaits.h"

#include <atomic>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

// The linker's option --wrap leads calls of send to __wrap_send; __real_send is the C library's.
extern "C" {
ssize_t __real_send(int descriptor, const void *bytes, size_t size, int flags);
ssize_t __wrap_send(int descriptor, const void *bytes, size_t size, int flags);
int __real_poll(pollfd *descriptors, nfds_t count, int msec);
int __wrap_poll(pollfd *descriptors, nfds_t count, int msec);
int __real_close(int descriptor);
int __wrap_close(int descriptor);

ssize_t __wrap_send(int descriptor, const void *bytes, size_t size, int flags)
{
    const ssize_t sent = __real_send(descriptor, bytes, size, flags);
    if (sent > 0) {
        ServerWaits::noteSent(descriptor);
    }
    return sent;
}

// libpq waits for one socket at a time; a time-out of 0 is a look, not a wait.
int __wrap_poll(pollfd *descriptors, nfds_t count, int msec)
{
    if (count == 1 && (descriptors->events & POLLIN) && msec != 0) {
        ServerWaits::noteWait(descriptors->fd);
    }
    return __real_poll(descriptors, count, msec);
}

int __wrap_close(int descriptor)
{
    ServerWaits::noteClosed(descriptor);
    return __real_close(descriptor);
}
}

namespace {

constexpr int AnswerMsec = 5000;

std::atomic<ServerWaits *> watcher(nullptr);

} // namespace

ServerWaits::ServerWaits()
    : thread(std::this_thread::get_id())
    , exchanges(0)
{
    watcher = this;
}

ServerWaits::~ServerWaits()
{
    watcher = nullptr;
}

void ServerWaits::pause()
{
    for (const int descriptor : qAsConst(unanswered)) {
        pollfd one{descriptor, POLLIN, 0};
        __real_poll(&one, 1, AnswerMsec);
    }
    unanswered.clear();
}

// The one that looks at the calling thread; null if none does.
ServerWaits *ServerWaits::hlpWatcher()
{
    ServerWaits *waits = watcher;
    return waits && waits->thread == std::this_thread::get_id() ? waits : nullptr;
}

void ServerWaits::noteSent(int descriptor)
{
    if (ServerWaits *waits = hlpWatcher()) {
        waits->unanswered.insert(descriptor);
    }
}

void ServerWaits::noteWait(int descriptor)
{
    ServerWaits *waits = hlpWatcher();
    if (!waits || !waits->unanswered.contains(descriptor)) {
        return;
    }
    ++waits->exchanges;
    waits->unanswered.clear(); // the latency passes on every connection
}

void ServerWaits::noteClosed(int descriptor)
{
    if (ServerWaits *waits = hlpWatcher()) {
        waits->unanswered.remove(descriptor); // the next socket may have its number
    }
}
