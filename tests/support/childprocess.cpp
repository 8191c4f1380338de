// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// runInChild: code that is meant to end its process.
#include "tests/support/childprocess.h"

#include <QtCore/QByteArray>
#include <QtCore/QMessageLogContext>

#include <csignal>
#include <cstdio>
#include <cstdlib>

#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr unsigned LimitSeconds = 60;

#ifdef DORVY_COVERAGE
extern "C" void __gcov_dump(); // NOLINT: gcov's own name

// A process that is ended by a signal, or by _exit, writes no counts of its own accord.
void hlpDumpCoverage()
{
    __gcov_dump();
}
#else
void hlpDumpCoverage()
{
}
#endif

int fatalDescriptor = -1;

const char *hlpOrNull(const char *text)
{
    return text ? text : "(null)";
}

void hlpWriteAll(int descriptor, const QByteArray &bytes)
{
    if (write(descriptor, bytes.constData(), static_cast<size_t>(bytes.size())) != bytes.size()) {
        _exit(EXIT_FAILURE);
    }
}

void hlpHandleMessage(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    if (type != QtFatalMsg) {
        hlpWriteAll(STDERR_FILENO, message.toUtf8() + '\n');
        return;
    }
    const QByteArray where = QByteArray(hlpOrNull(context.category)) + ' ' +
                             hlpOrNull(context.file) + ' ' + QByteArray::number(context.line) +
                             ' ' + hlpOrNull(context.function);
    hlpWriteAll(fatalDescriptor, where + '\n' + message.toUtf8());
    hlpDumpCoverage(); // abort() comes next
}

[[noreturn]] void hlpRunChild(const std::function<void()> &code, int fatal, int output)
{
    const rlimit noCore = {0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    // Qt Test's own handlers would report the end as the test program's.
    for (const int number : {SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTERM, SIGALRM}) {
        std::signal(number, SIG_DFL);
    }
    alarm(LimitSeconds);
    fatalDescriptor = fatal;
    qInstallMessageHandler(hlpHandleMessage);
    try {
        code();
    } catch (...) {
        _exit(
            EXIT_FAILURE); // Qt Test would take it for the test program's and run on, in the child
    }
    std::fflush(nullptr);
    hlpDumpCoverage();
    _exit(EXIT_SUCCESS);
}

// Reads both pipes to their ends.
void hlpReadAll(int fatal, QByteArray &fatalText, int output, QByteArray &outputText)
{
    pollfd pipes[] = {{fatal, POLLIN, 0}, {output, POLLIN, 0}};
    QByteArray *texts[] = {&fatalText, &outputText};
    int open = 2;
    while (open > 0 && poll(pipes, 2, -1) >= 0) {
        for (int i = 0; i < 2; ++i) {
            if (pipes[i].fd < 0 || !pipes[i].revents) {
                continue;
            }
            char buffer[4096];
            const ssize_t count = read(pipes[i].fd, buffer, sizeof(buffer));
            if (count > 0) {
                texts[i]->append(buffer, static_cast<int>(count));
            } else {
                pipes[i].fd = -1;
                --open;
            }
        }
    }
}

} // namespace

ChildOutcome runInChild(const std::function<void()> &code)
{
    int fatal[2];
    int output[2];
    if (pipe(fatal) != 0 || pipe(output) != 0) {
        qFatal("no pipe");
    }
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        hlpRunChild(code, fatal[1], output[1]);
    }
    close(fatal[1]);
    close(output[1]);
    QByteArray fatalText;
    QByteArray outputText;
    hlpReadAll(fatal[0], fatalText, output[0], outputText);
    close(fatal[0]);
    close(output[0]);
    int status = 0;
    waitpid(child, &status, 0);
    const int end = fatalText.indexOf('\n');
    ChildOutcome outcome;
    outcome.aborted = WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT;
    outcome.context = QString::fromUtf8(fatalText.left(end));
    outcome.fatal = QString::fromUtf8(fatalText.mid(end + 1));
    outcome.output = QString::fromUtf8(outputText);
    return outcome;
}
