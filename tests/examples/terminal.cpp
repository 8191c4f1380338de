// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Terminal: a program on a terminal of its own, and somebody who types.
#include "tests/examples/terminal.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QProcessEnvironment>
#include <QtCore/QThread>
#include <QtCore/QVector>

#include <csignal>

#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int LimitMsec = 20000;
constexpr winsize Window = {24, 80, 0, 0};

// The form that execve() takes; as long as texts live.
QVector<char *> pointers(QList<QByteArray> &texts)
{
    QVector<char *> pointed;
    for (QByteArray &text : texts) {
        pointed += text.data();
    }
    pointed += nullptr;
    return pointed;
}

QList<QByteArray> bytesOf(const QStringList &texts)
{
    QList<QByteArray> bytes;
    for (const QString &text : texts) {
        bytes += text.toUtf8();
    }
    return bytes;
}

QList<QByteArray> environmentWith(const QStringList &variables)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("TERM"), QStringLiteral("dumb"));
    for (const QString &variable : variables) {
        environment.insert(variable.section(QLatin1Char('='), 0, 0),
                           variable.section(QLatin1Char('='), 1));
    }
    return bytesOf(environment.toStringList());
}

} // namespace

Terminal::Terminal(const QByteArray &program, const QStringList &arguments,
                   const QStringList &variables)
    : child(-1)
    , descriptor(-1)
{
    QList<QByteArray> words = QList<QByteArray>{program} + bytesOf(arguments);
    QList<QByteArray> environment = environmentWith(variables);
    const QVector<char *> argv = pointers(words);
    const QVector<char *> envp = pointers(environment);
    child = forkpty(&descriptor, nullptr, nullptr, &Window);
    if (child == 0) {
        execve(argv.first(), argv.constData(), envp.constData());
        _exit(127);
    }
    if (child < 0) {
        qFatal("no pseudo terminal");
    }
}

Terminal::~Terminal()
{
    close(descriptor);
    if (child > 0) {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
}

void Terminal::type(const QByteArray &keys)
{
    if (write(descriptor, keys.constData(), static_cast<size_t>(keys.size())) != keys.size()) {
        qWarning("the terminal takes no keys");
    }
}

// False at the end of what the program has to say, and when nothing comes for msec.
bool Terminal::readMore(int msec)
{
    pollfd ready = {descriptor, POLLIN, 0};
    char buffer[4096];
    if (poll(&ready, 1, msec) <= 0) {
        return false;
    }
    const ssize_t count = ::read(descriptor, buffer, sizeof(buffer));
    if (count > 0) {
        read.append(buffer, static_cast<int>(count));
    }
    return count > 0;
}

bool Terminal::waitFor(const QByteArray &text)
{
    QElapsedTimer timer;
    timer.start();
    for (;;) {
        const int at = read.indexOf(text, seen);
        if (at >= 0) {
            seen = at + text.size();
            return true;
        }
        if (timer.elapsed() > LimitMsec || !readMore(LimitMsec)) {
            return false;
        }
    }
}

int Terminal::finish()
{
    while (readMore(LimitMsec)) {}
    QElapsedTimer timer;
    timer.start();
    int status = 0;
    while (waitpid(child, &status, WNOHANG) == 0) {
        if (timer.elapsed() > LimitMsec) {
            kill(child, SIGKILL);
        }
        QThread::msleep(10);
    }
    child = -1;
    return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}
