// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// PrivateNetwork: a network of two hosts that a test can cut.
#include "tests/support/privatenetwork.h"

#include "tests/support/namespaces.h"

#include <QtCore/QProcess>

#include <thread>

#include <fcntl.h>
#include <unistd.h>

namespace {

// Runs "ip" in the calling thread's namespace; what it says on failure.
QString hlpIp(const QString &arguments)
{
    QProcess ip;
    ip.setProcessChannelMode(QProcess::MergedChannels);
    ip.start(QStringLiteral("ip"), arguments.split(QLatin1Char(' ')));
    const bool ended = ip.waitForStarted() && ip.waitForFinished();
    if (ended && ip.exitStatus() == QProcess::NormalExit && ip.exitCode() == 0) {
        return QString();
    }
    return QStringLiteral("ip %1: %2 %3")
        .arg(arguments, ip.errorString(), QString::fromLocal8Bit(ip.readAll()));
}

QString hlpIp(const QStringList &commands)
{
    QString failures;
    for (const QString &command : commands) {
        failures += hlpIp(command);
    }
    return failures;
}

} // namespace

PrivateNetwork::PrivateNetwork()
    : farNamespace(-1)
{
}

PrivateNetwork::~PrivateNetwork()
{
    if (farNamespace >= 0) {
        close(farNamespace);
    }
}

bool PrivateNetwork::hlpFail(const QString &text)
{
    reason = text;
    return text.isEmpty();
}

bool PrivateNetwork::hlpMakeNear()
{
    if (enterNamespace(CLONE_NEWNET, 0)) {
        return true;
    }
    return hlpFail(
        QStringLiteral("no right to make a network namespace: run this as root, or allow "
                       "user namespaces"));
}

bool PrivateNetwork::hlpMakeFar()
{
    std::thread([this] {
        if (unshare(CLONE_NEWNET) == 0) {
            farNamespace = open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
        }
    }).join();
    return farNamespace >= 0 || hlpFail(QStringLiteral("no second network namespace"));
}

// The addresses of the cards are told to both sides, so that a packet without a way is lost; who asks
// for an address and hears nothing tells the sender.
bool PrivateNetwork::hlpJoin()
{
    QString failures = hlpIp(QStringList{
        QStringLiteral("link set lo up"),
        QStringLiteral("link add near address 02:00:00:00:00:01 type veth peer name far "
                       "address 02:00:00:00:00:02 netns /proc/%1/fd/%2")
            .arg(getpid())
            .arg(farNamespace),
        QStringLiteral("address add 192.0.2.1/30 dev near"), QStringLiteral("link set near up"),
        QStringLiteral("neighbour add 192.0.2.2 lladdr 02:00:00:00:00:02 dev near")});
    inFar([&failures] {
        failures += hlpIp(QStringList{QStringLiteral("address add 192.0.2.2/30 dev far"),
                                      QStringLiteral("link set far up")});
    });
    return hlpFail(failures);
}

bool PrivateNetwork::enter()
{
    return hlpMakeNear() && hlpMakeFar() && hlpJoin();
}

void PrivateNetwork::inFar(const std::function<void()> &code) const
{
    std::thread([this, &code] {
        if (setns(farNamespace, CLONE_NEWNET) != 0) {
            qFatal("the far namespace cannot be entered");
        }
        code();
    }).join();
}

bool PrivateNetwork::hlpFarLink(const QString &state) const
{
    QString failures;
    inFar([&failures, &state] { failures = hlpIp(QStringLiteral("link set far ") + state); });
    return failures.isEmpty();
}
