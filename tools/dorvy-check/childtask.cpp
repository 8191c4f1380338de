// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// runTask: work in a process of its own, which it may end or hold up.
#include "childtask.h"

#include <QtCore/QJsonDocument>
#include <QtCore/QtDebug>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int MsecPerSecond = 1000;
constexpr int MaxSentBytes = 64 * 1024 * 1024; // from one task; more is none of our doing
constexpr int LastWordsBytes = 2000;
constexpr int EndMsec = 2000; // for a task that has said all to end
constexpr useconds_t PollUsec = 10000;

// The end of the error output that errorOutput() has read.
off_t readOutput = 0;

// Qt's fatal message goes to standard error like a crash's last words; all else is not wanted.
void hlpKeepFatal(QtMsgType type, const QMessageLogContext & /*context*/, const QString &message)
{
    if (type == QtFatalMsg) {
        std::fprintf(stderr, "%s\n", message.toUtf8().constData());
    }
}

void hlpEnterChild(int output)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const rlimit none = {0, 0};
    setrlimit(RLIMIT_CORE, &none);
    const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
    dup2(nothing, STDIN_FILENO);
    dup2(nothing, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    qInstallMessageHandler(hlpKeepFatal);
}

QByteArray hlpReadFrom(int file, off_t offset)
{
    QByteArray bytes;
    char buffer[4096];
    ssize_t count = pread(file, buffer, sizeof(buffer), offset);
    while (count > 0 && bytes.size() < MaxSentBytes) {
        bytes.append(buffer, static_cast<int>(count));
        count = pread(file, buffer, sizeof(buffer), offset + bytes.size());
    }
    return bytes;
}

// Hands every whole line of buffer on.
void hlpTakeLines(QByteArray &buffer, const std::function<void(const QJsonObject &)> &received)
{
    int end = buffer.indexOf('\n');
    while (end >= 0) {
        received(QJsonDocument::fromJson(buffer.left(end)).object());
        buffer.remove(0, end + 1);
        end = buffer.indexOf('\n');
    }
}

// Reads until the task has closed its end; false after a silence. What is kept of a line is not looked
// through again for its end, however long the line is.
bool hlpListen(int descriptor, const std::function<void(const QJsonObject &)> &received,
               int seconds)
{
    QByteArray buffer;
    qint64 total = 0;
    char piece[4096];
    pollfd waiting = {descriptor, POLLIN, 0};
    while (total < MaxSentBytes) {
        const int ready = poll(&waiting, 1, seconds * MsecPerSecond);
        if (ready < 0 && errno == EINTR) {
            continue;
        }
        const ssize_t count = ready > 0 ? read(descriptor, piece, sizeof(piece)) : -1;
        if (count <= 0) {
            return count == 0;
        }
        total += count;
        buffer.append(piece, static_cast<int>(count));
        if (std::memchr(piece, '\n', static_cast<size_t>(count))) {
            hlpTakeLines(buffer, received);
        }
    }
    return false;
}

// The status of a task that is to end by itself; it is killed if it does not.
int hlpAwaitEnd(pid_t child)
{
    int status = 0;
    for (int waited = 0; waited < EndMsec * MsecPerSecond; waited += PollUsec) {
        if (waitpid(child, &status, WNOHANG) == child) {
            return status;
        }
        usleep(PollUsec);
    }
    kill(child, SIGKILL);
    waitpid(child, &status, 0);
    return status;
}

// The last line that the task printed, or the signal that ended it.
QString hlpReason(int status, const QByteArray &output)
{
    const QString words =
        QString::fromUtf8(output.trimmed().right(LastWordsBytes)).section(QLatin1Char('\n'), -1);
    if (!WIFSIGNALED(status)) {
        return words.isEmpty() ? QStringLiteral("it left the process") : words;
    }
    const QString signal = QStringLiteral("signal %1").arg(WTERMSIG(status));
    return WTERMSIG(status) == SIGABRT && !words.isEmpty() ? words : signal;
}

// Listens to a task until it has said all, and tells how it ended.
TaskEnd hlpFollow(pid_t child, int descriptor, int output,
                  const std::function<void(const QJsonObject &)> &received, int seconds)
{
    bool isWhole = false;
    const auto take = [&isWhole, &received](const QJsonObject &object) {
        isWhole = isWhole || object.contains(QStringLiteral("end"));
        if (!isWhole) {
            received(object);
        }
    };
    const bool wasHeard = hlpListen(descriptor, take, seconds);
    if (!wasHeard) {
        kill(child, SIGKILL);
    }
    const int status = hlpAwaitEnd(child);
    if (isWhole) {
        return {true, QString()};
    }
    return {false, wasHeard ? hlpReason(status, hlpReadFrom(output, 0))
                            : QStringLiteral("nothing for %1 s").arg(seconds)};
}

[[noreturn]] void hlpRunChild(const std::function<void(const TaskChannel &)> &task, int descriptor,
                              int output)
{
    hlpEnterChild(output);
    task(TaskChannel(descriptor));
    TaskChannel(descriptor).send({{QStringLiteral("end"), true}});
    _exit(0);
}

} // namespace

TaskChannel::TaskChannel(int pipeDescriptor)
    : descriptor(pipeDescriptor)
{
}

void TaskChannel::send(const QJsonObject &object) const
{
    const QByteArray line = QJsonDocument(object).toJson(QJsonDocument::Compact) + '\n';
    for (int sent = 0; sent < line.size();) {
        const ssize_t count =
            write(descriptor, line.constData() + sent, static_cast<size_t>(line.size() - sent));
        if (count < 0 && errno != EINTR) {
            _exit(1); // nobody listens
        }
        sent += static_cast<int>(qMax<ssize_t>(count, 0));
    }
}

TaskEnd runTask(const std::function<void(const TaskChannel &)> &task,
                const std::function<void(const QJsonObject &)> &received, int seconds)
{
    int ends[2];
    const int output = memfd_create("dorvy-check", MFD_CLOEXEC);
    if (output < 0 || pipe2(ends, O_CLOEXEC) != 0) {
        return {false, qt_error_string()};
    }
    std::fflush(nullptr); // or the child would print it once more
    const pid_t child = fork();
    if (child == 0) {
        hlpRunChild(task, ends[1], output);
    }
    close(ends[1]);
    TaskEnd end = child > 0 ? hlpFollow(child, ends[0], output, received, seconds)
                            : TaskEnd{false, qt_error_string()};
    close(ends[0]);
    close(output);
    return end;
}

QByteArray errorOutput()
{
    std::fflush(stderr);
    QByteArray bytes = hlpReadFrom(STDERR_FILENO, readOutput);
    readOutput += bytes.size();
    return bytes;
}
