// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// WireProxy: stands between a client and a PostgreSQL server and writes down what they say.
#include "tests/support/wireproxy.h"

#include <QtCore/QFile>
#include <QtCore/QMutexLocker>
#include <QtCore/QThread>
#include <QtCore/QtEndian>

#include <algorithm>
#include <utility>
#include <vector>

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

constexpr int StepMsec = 5;
constexpr qint64 NsecPerMsec = 1000000;

int hlpListen(const QString &host, int &port)
{
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_in address = {};
    socklen_t size = sizeof(address);
    address.sin_family = AF_INET;
    if (inet_pton(AF_INET, host.toLatin1().constData(), &address.sin_addr) != 1 ||
        bind(descriptor, reinterpret_cast<sockaddr *>(&address), size) != 0 ||
        listen(descriptor, 16) != 0 ||
        getsockname(descriptor, reinterpret_cast<sockaddr *>(&address), &size) != 0) {
        qFatal("the proxy cannot listen");
    }
    port = ntohs(address.sin_port);
    return descriptor;
}

int hlpConnect(const QByteArray &path)
{
    const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    qstrncpy(address.sun_path, path.constData(), sizeof(address.sun_path));
    if (connect(descriptor, reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0) {
        close(descriptor);
        return -1;
    }
    return descriptor;
}

bool hlpIsReadable(int descriptor)
{
    pollfd one{descriptor, POLLIN, 0};
    return poll(&one, 1, 0) > 0;
}

quint32 hlpLength(const QByteArray &bytes, int at)
{
    return qFromBigEndian<quint32>(bytes.constData() + at);
}

// Puts the answers to closes behind their Sync.
class CloseOrder
{
public:
    QVector<WireMessage> ordered(const QVector<WireMessage> &messages)
    {
        for (const WireMessage &message : messages) {
            if (message.fromClient) {
                addRequest(message);
            } else {
                addReply(message);
            }
        }
        return result;
    }

private:
    // From the client's messages up to a Sync, or its query, to the server's ReadyForQuery.
    struct Cycle
    {
        int connection;
        bool isClose; // and nothing else
        bool isAsked; // its last message was sent
        int end;      // where the next message of its answer belongs
    };

    Cycle &cycleOf(const WireMessage &request)
    {
        for (Cycle &cycle : cycles) {
            if (cycle.connection == request.connection && !cycle.isAsked) {
                return cycle;
            }
        }
        cycles.append({request.connection, true, false, 0});
        return cycles.last();
    }

    void addRequest(const WireMessage &request)
    {
        Cycle &cycle = cycleOf(request);
        result.append(request);
        cycle.isAsked = request.type == 'S' || request.type == 'Q';
        cycle.isClose = cycle.isClose && (request.type == 'C' || request.type == 'S');
        cycle.end = result.size();
    }

    void addReply(const WireMessage &reply)
    {
        const auto cycle = std::find_if(cycles.begin(), cycles.end(), [&](const Cycle &any) {
            return any.connection == reply.connection;
        });
        if (cycle == cycles.end() || !cycle->isClose) {
            result.append(reply);
        } else {
            insert(cycle->end, reply);
        }
        if (cycle != cycles.end() && reply.type == 'Z') {
            cycles.erase(cycle);
        }
    }

    void insert(int position, const WireMessage &reply)
    {
        result.insert(position, reply);
        for (Cycle &cycle : cycles) {
            cycle.end += cycle.end >= position ? 1 : 0;
        }
    }

    QList<Cycle> cycles; // unanswered, in the order in which they began
    QVector<WireMessage> result;
};

} // namespace

WireProxy::WireProxy(const QString &serverSocketDir, int serverPort, const QString &address)
    : serverPath(QFile::encodeName(serverSocketDir) + "/.s.PGSQL." + QByteArray::number(serverPort))
    , listenAddress(address)
    , listener(-1)
    , listenPort(0)
    , connections(0)
    , hookCalled(false)
    , replyDelayMsec(0)
    , repliesHeld(false)
    , requestsHeld(false)
    , cutWanted(false)
    , stopWanted(false)
{
    clock.start();
    listener = hlpListen(listenAddress, listenPort);
    thread = std::thread(&WireProxy::hlpServe, this);
}

WireProxy::~WireProxy()
{
    stopWanted = true;
    thread.join();
    for (Link &link : links) {
        hlpDrop(link);
    }
    close(listener);
}

QByteArray WireProxy::conninfo(const QString &database) const
{
    return QStringLiteral("host=%1 port=%2 user=dorvy dbname=%3 sslmode=disable "
                          "gssencmode=disable")
        .arg(host())
        .arg(port())
        .arg(database)
        .toLatin1();
}

void WireProxy::clear()
{
    const QMutexLocker locker(&mutex);
    recorded.clear();
}

QVector<WireMessage> WireProxy::messages() const
{
    const QMutexLocker locker(&mutex);
    // Not shared with the reader: Qt looks at a reference count without a barrier, so it would not
    // order the end of the reading before the next record.
    return CloseOrder().ordered(recorded);
}

QStringList WireProxy::conversation() const
{
    WireWords words;
    QStringList lines;
    int rows = 0;
    const QVector<WireMessage> all = messages();
    for (int i = 0; i < all.size(); ++i) {
        const QString line = words.line(all.at(i));
        if (!line.endsWith(QStringLiteral("< DataRow"))) {
            lines += line;
            continue;
        }
        ++rows;
        const bool last = i + 1 == all.size() || all.at(i + 1).type != 'D' ||
                          all.at(i + 1).fromClient ||
                          all.at(i + 1).connection != all.at(i).connection;
        if (last) {
            lines += line + QStringLiteral(" x%1").arg(rows);
            rows = 0;
        }
    }
    return lines;
}

QStringList WireProxy::frontend(int connection) const
{
    WireWords words;
    QStringList lines;
    for (const WireMessage &message : messages()) {
        const QString line = words.line(message); // of every message, so that names count alike
        if (message.fromClient && (connection == 0 || message.connection == connection)) {
            lines += line;
        }
    }
    return lines;
}

bool WireProxy::waitForLine(const QString &line, int msec) const
{
    QElapsedTimer timer;
    timer.start();
    while (!conversation().contains(line)) {
        if (timer.elapsed() > msec) {
            return false;
        }
        QThread::msleep(StepMsec);
    }
    return true;
}

int WireProxy::connectionCount() const
{
    const QMutexLocker locker(&mutex);
    return connections;
}

void WireProxy::onLine(const QString &start, const std::function<void()> &action)
{
    hlpHook(start, [action](Link & /*link*/) { action(); });
}

void WireProxy::onAnswer(const QString &start, const std::function<void()> &action)
{
    hlpHook(start,
            [this, action](Link &link) { hlpHookReady(link.number, link.unanswered, action); });
}

// Behind the ends of so many earlier answers.
void WireProxy::hlpHookReady(int connection, int earlier, const std::function<void()> &action)
{
    hlpHook(QStringLiteral("%1< ReadyForQuery").arg(connection), [=](Link & /*link*/) {
        if (earlier > 0) {
            hlpHookReady(connection, earlier - 1, action);
        } else {
            action();
        }
    });
}

void WireProxy::cutReply(const QString &start, int bytes)
{
    hlpHook(start, [bytes](Link &link) {
        link.replyBytes = bytes;
        link.answersBefore = link.unanswered;
    });
}

void WireProxy::hlpHook(const QString &start, const std::function<void(Link &)> &call)
{
    const QMutexLocker locker(&mutex);
    hook = {start, call, WireWords()};
}

bool WireProxy::waitUntilBroken(int connection, int msec) const
{
    QElapsedTimer timer;
    timer.start();
    while (true) {
        {
            const QMutexLocker locker(&mutex);
            if (!linked.contains(connection)) {
                return true;
            }
        }
        if (timer.elapsed() > msec) {
            return false;
        }
        QThread::msleep(StepMsec);
    }
}

void WireProxy::cut()
{
    cutWanted = true;
    while (cutWanted) {
        QThread::msleep(StepMsec);
    }
}

void WireProxy::hlpServe()
{
    while (!stopWanted) {
        hlpStep();
    }
}

void WireProxy::hlpStep()
{
    std::vector<pollfd> descriptors{{listener, POLLIN, 0}};
    for (const Link &link : qAsConst(links)) {
        descriptors.push_back({link.requests.ended ? -1 : link.client, POLLIN, 0});
        descriptors.push_back({link.replies.ended ? -1 : link.server, POLLIN, 0});
    }
    const timespec stepTime{0, hlpStepNsec()};
    ppoll(descriptors.data(), descriptors.size(), &stepTime, nullptr);
    const bool cutting = cutWanted; // one that is asked for further down is the next step's
    for (int i = 0; i < links.size(); ++i) {
        Link &link = links[i];
        const auto at = static_cast<size_t>(2 * i + 1);
        if (descriptors[at].revents) {
            link.requests.ended = !hlpRead(link, true);
        }
        if (descriptors[at + 1].revents) {
            link.replies.ended = !hlpReadReplies(link);
        }
        hlpTakeDue(link);
        hlpPass(link.requests, link.server, requestsHeld);
        hlpPass(link.replies, link.client, repliesHeld);
        const bool repliesDone =
            link.replies.ended && link.replies.waiting.isEmpty() && link.late.isEmpty();
        if (repliesDone || (link.requests.ended && link.requests.waiting.isEmpty()) || cutting) {
            hlpDrop(link);
        }
    }
    links.erase(std::remove_if(links.begin(), links.end(),
                               [](const Link &link) { return link.client < 0; }),
                links.end());
    if (cutting) {
        cutWanted = false;
    }
    if (descriptors.front().revents) {
        hlpAccept();
    }
}

void WireProxy::hlpAccept()
{
    const int client = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (client < 0) {
        return;
    }
    const int on = 1;
    setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    Link link;
    link.client = client;
    link.server = hlpConnect(serverPath);
    {
        const QMutexLocker locker(&mutex);
        link.number = ++connections;
        linked.insert(link.number);
    }
    links.append(link);
    if (link.server < 0) {
        hlpDrop(links.last());
    }
}

bool WireProxy::hlpRead(Link &link, bool fromClient)
{
    char buffer[65536];
    const ssize_t count = recv(fromClient ? link.client : link.server, buffer, sizeof(buffer), 0);
    if (count <= 0) {
        return false;
    }
    Direction &direction = fromClient ? link.requests : link.replies;
    direction.partial.append(buffer, static_cast<int>(count));
    ++direction.chunks;
    if (!fromClient || link.started || hlpRecordStartup(link)) {
        hlpRecord(link, fromClient);
    }
    return !direction.ended;
}

// A server that a hook has ended has said its last words when the hook returns.
bool WireProxy::hlpReadReplies(Link &link)
{
    hookCalled = false;
    bool more = hlpRead(link, false);
    while (more && hookCalled && hlpIsReadable(link.server)) {
        more = hlpRead(link, false);
    }
    return more;
}

// The first messages of a client have no type byte; requests for encryption are refused here.
bool WireProxy::hlpRecordStartup(Link &link)
{
    Direction &requests = link.requests;
    while (requests.partial.size() >= 8) {
        const quint32 length = hlpLength(requests.partial, 0);
        const quint32 code = hlpLength(requests.partial, 4);
        if (static_cast<quint32>(requests.partial.size()) < length) {
            return false;
        }
        const QByteArray message = requests.partial.left(static_cast<int>(length));
        requests.partial.remove(0, message.size());
        if (isEncryptionRequest(code)) {
            link.replies.waiting.append('N');
            continue;
        }
        hlpRecordMessage(link, {link.number, true, '\0', message.mid(4), requests.chunks});
        requests.waiting.append(message);
        link.started = true;
        return true;
    }
    return false;
}

void WireProxy::hlpRecord(Link &link, bool fromClient)
{
    Direction &direction = fromClient ? link.requests : link.replies;
    int at = 0;
    int before = 0; // bytes of answers that are not to be cut
    while (direction.partial.size() - at >= 5) {
        const auto length = static_cast<qint64>(hlpLength(direction.partial, at + 1));
        if (direction.partial.size() - at < length + 1) {
            break;
        }
        const int size = static_cast<int>(length) + 1;
        hlpRecordMessage(link, {link.number, fromClient, direction.partial.at(at),
                                direction.partial.mid(at + 5, size - 5), direction.chunks});
        at += size;
        if (!fromClient && link.answersBefore > 0) {
            before = at;
            link.answersBefore -= direction.partial.at(at - size) == 'Z' ? 1 : 0;
        }
    }
    QByteArray whole = direction.partial.left(at);
    direction.partial.remove(0, at);
    if (fromClient) {
        direction.waiting.append(whole);
        return;
    }
    hlpCut(link, whole, before);
    link.late.append({clock.nsecsElapsed() + replyDelayMsec * NsecPerMsec, whole});
}

void WireProxy::hlpTakeDue(Link &link)
{
    while (!link.late.isEmpty() && link.late.first().due <= clock.nsecsElapsed()) {
        link.replies.waiting.append(link.late.takeFirst().bytes);
    }
}

// The most that a step waits. A late reply is due to the fraction of a millisecond, as the delays of
// many exchanges add up.
qint64 WireProxy::hlpStepNsec() const
{
    qint64 wait = StepMsec * NsecPerMsec;
    for (const Link &link : links) {
        if (!link.late.isEmpty()) {
            wait = qBound(Q_INT64_C(0), link.late.first().due - clock.nsecsElapsed(), wait);
        }
    }
    return wait;
}

void WireProxy::hlpRecordMessage(Link &link, const WireMessage &message)
{
    const Hook found = hlpTakeHook(message);
    if (found.call) {
        hookCalled = true;
        found.call(link); // may set the next hook
    }
    if (message.fromClient && (message.type == 'S' || message.type == 'Q')) {
        ++link.unanswered;
    } else if (!message.fromClient && message.type == 'Z') {
        link.unanswered = std::max(0, link.unanswered - 1); // the startup's is none of these
    }
}

// Records the message; the hook that waited for it, or an empty one.
WireProxy::Hook WireProxy::hlpTakeHook(const WireMessage &message)
{
    const QMutexLocker locker(&mutex);
    recorded.append(message);
    const bool found = !hook.start.isEmpty() && hook.words.line(message).startsWith(hook.start);
    return found ? std::exchange(hook, Hook()) : Hook();
}

// Takes off what is beyond the last byte that may pass, and ends the replies there. The first bytes
// belong to earlier answers.
void WireProxy::hlpCut(Link &link, QByteArray &bytes, int before)
{
    if (link.replyBytes < 0 || link.answersBefore > 0) {
        return;
    }
    const int passing = before + link.replyBytes;
    link.replies.ended = bytes.size() > passing;
    bytes.truncate(passing);
    link.replyBytes -= bytes.size() - before;
}

void WireProxy::hlpPass(Direction &direction, int to, bool held)
{
    if (held || direction.waiting.isEmpty()) {
        return;
    }
    const ssize_t count =
        send(to, direction.waiting.constData(), static_cast<size_t>(direction.waiting.size()),
             MSG_NOSIGNAL | MSG_DONTWAIT);
    if (count > 0) {
        direction.waiting.remove(0, static_cast<int>(count));
    } else if (errno != EAGAIN && errno != EWOULDBLOCK) {
        direction.waiting.clear(); // the peer's end shows where it is read, behind its last words
    }
}

void WireProxy::hlpDrop(Link &link)
{
    if (link.client >= 0) {
        close(link.client);
    }
    if (link.server >= 0) {
        close(link.server);
    }
    link.client = -1;
    link.server = -1;
    const QMutexLocker locker(&mutex);
    linked.remove(link.number);
}
