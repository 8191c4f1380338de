// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// InterruptWatch: Ctrl-C while a statement runs.
#include "interrupt.h"

namespace {

volatile std::sig_atomic_t interrupted = 0;

void note(int signal)
{
    Q_UNUSED(signal)
    interrupted = 1;
}

} // namespace

InterruptWatch::InterruptWatch()
    : before()
{
    interrupted = 0;
    struct sigaction action = {};
    action.sa_handler = note;
    action.sa_flags = static_cast<int>(SA_RESETHAND | SA_RESTART);
    sigaction(SIGINT, &action, &before);
}

InterruptWatch::~InterruptWatch()
{
    sigaction(SIGINT, &before, nullptr);
}

bool InterruptWatch::isInterrupted()
{
    return interrupted != 0;
}

void ignoreInterrupts()
{
    std::signal(SIGINT, SIG_IGN);
}
