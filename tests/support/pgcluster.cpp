// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// PgCluster: a private PostgreSQL server for one test program.
#include "tests/support/pgcluster.h"

#include <libpq-fe.h>

#include <QtCore/QDir>
#include <QtCore/QElapsedTimer>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QThread>

#include <memory>

#include <arpa/inet.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int StartMsec = 60000;
constexpr int PollMsec = 20;
constexpr int PortAttempts = 5;

using ConnectionPtr = std::unique_ptr<PGconn, decltype(&PQfinish)>;
using ResultPtr = std::unique_ptr<PGresult, decltype(&PQclear)>;

QString hlpBinDir()
{
    const QByteArray chosen = qgetenv("DORVY_TEST_PGBIN");
    return chosen.isEmpty() ? QStringLiteral(DORVY_PG_BINDIR) : QString::fromLocal8Bit(chosen);
}

// A process that has ended is kept as a zombie until its parent, here the keeper, asks for it.
bool hlpIsAlive(int process)
{
    QFile status(QStringLiteral("/proc/%1/stat").arg(process));
    if (!status.open(QIODevice::ReadOnly)) {
        return false;
    }
    const QByteArray line = status.readAll(); // "PID (NAME) STATE ...", NAME may have any character
    return line.mid(line.lastIndexOf(')') + 2, 1) != "Z";
}

bool hlpWrite(const QString &path, const QByteArray &bytes, QIODevice::OpenMode mode)
{
    QFile file(path);
    return file.open(mode) && file.write(bytes) == bytes.size();
}

} // namespace

PgCluster::PgCluster()
    : portHolder(-1)
    , serverPort(0)
{
}

PgCluster::~PgCluster()
{
    if (keeper.state() != QProcess::NotRunning) {
        keeper.closeWriteChannel(); // the keeper's sign to stop the server and clean up
        keeper.waitForFinished(StartMsec);
    }
    hlpReleasePort();
}

// A port of loopback, which nobody else is given as long as a socket is bound to it. As that does not
// listen, a server may, which like PostgreSQL's asks for SO_REUSEADDR; where none does, connecting is refused.
bool PgCluster::hlpHoldPort()
{
    hlpReleasePort();
    portHolder = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    sockaddr_in address = {};
    socklen_t size = sizeof(address);
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (setsockopt(portHolder, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) != 0 ||
        bind(portHolder, reinterpret_cast<sockaddr *>(&address), size) != 0 ||
        getsockname(portHolder, reinterpret_cast<sockaddr *>(&address), &size) != 0) {
        return hlpFail(QStringLiteral("no free port"));
    }
    serverPort = ntohs(address.sin_port);
    return true;
}

void PgCluster::hlpReleasePort()
{
    if (portHolder >= 0) {
        close(portHolder);
    }
    portHolder = -1;
}

bool PgCluster::hlpFail(const QString &text)
{
    reason = text;
    return false;
}

bool PgCluster::hlpMakeFolder()
{
    QByteArray pattern = QFile::encodeName(QDir::tempPath() + QStringLiteral("/dorvy-XXXXXX"));
    if (!mkdtemp(pattern.data())) {
        return hlpFail(QStringLiteral("no temporary folder"));
    }
    folder = QFile::decodeName(pattern);
    return true;
}

// data says where the data folder comes from: an option of initdb, or of the keeper.
bool PgCluster::hlpStartKeeper(const QString &data)
{
    keeper.setWorkingDirectory(QStringLiteral("/"));
    keeper.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    keeper.start(QStringLiteral("setsid"),
                 {QStringLiteral(DORVY_KEEP_CLUSTER), hlpBinDir(), folder, data});
    if (!keeper.waitForStarted(StartMsec)) {
        return hlpFail(QStringLiteral("the keeper does not start"));
    }
    const QString answer = hlpAsk(QString());
    return answer == QStringLiteral("ready") || hlpFail(answer);
}

// One line of the keeper's, in answer to command; an empty command only waits for it.
QString PgCluster::hlpAsk(const QString &command)
{
    if (!command.isEmpty()) {
        keeper.write(command.toLatin1() + '\n');
    }
    while (!keeper.canReadLine()) {
        if (!keeper.waitForReadyRead(StartMsec)) {
            return QStringLiteral("the keeper does not answer");
        }
    }
    return QString::fromLocal8Bit(keeper.readLine()).trimmed();
}

bool PgCluster::hlpConfigure(const QStringList &settings) const
{
    QStringList lines{QStringLiteral("listen_addresses = '127.0.0.1'"),
                      QStringLiteral("unix_socket_directories = '%1'").arg(folder),
                      QStringLiteral("fsync = off"),
                      QStringLiteral("autovacuum = off"), // its locks are in the way of a test's
                      QStringLiteral("max_connections = 40"),
                      QStringLiteral("shared_buffers = 32MB"),
                      QStringLiteral("password_encryption = 'scram-sha-256'"),
                      QStringLiteral("lc_messages = 'C'"),
                      QStringLiteral("timezone = 'UTC'")};
    lines += settings;
    const QByteArray access = "local all +passworded scram-sha-256\n"
                              "host all +passworded 127.0.0.1/32 scram-sha-256\n"
                              "host all +passworded ::1/128 scram-sha-256\n"
                              "local all all trust\n"
                              "local replication all trust\n"
                              "host all all 127.0.0.1/32 trust\n"
                              "host all all ::1/128 trust\n";
    const QString data = folder + QStringLiteral("/data/");
    return hlpWrite(data + QStringLiteral("postgresql.conf"),
                    lines.join(QLatin1Char('\n')).toUtf8() + '\n',
                    QIODevice::WriteOnly | QIODevice::Append) &&
           hlpWrite(data + QStringLiteral("pg_hba.conf"), access, QIODevice::WriteOnly);
}

// Waits until the server that was just started answers; false when it has given up.
bool PgCluster::hlpAwait(int server) const
{
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < StartMsec && hlpIsAlive(server)) {
        if (PQping(conninfo().constData()) == PQPING_OK) {
            return true;
        }
        QThread::msleep(PollMsec);
    }
    return false;
}

// The server's own file and words changed in PostgreSQL 12.
bool PgCluster::hlpFollow(const PgCluster &primary) const
{
    const QString from =
        QString::fromUtf8(primary.conninfo()).replace(QLatin1Char('\''), QLatin1String("''"));
    const QByteArray line = QStringLiteral("primary_conninfo = '%1'\n").arg(from).toUtf8();
    if (primary.major() < 12) {
        writeFile(QStringLiteral("recovery.conf"), "standby_mode = on\n" + line);
        return true;
    }
    writeFile(QStringLiteral("standby.signal"), QByteArray());
    return hlpWrite(folder + QStringLiteral("/data/postgresql.conf"), line,
                    QIODevice::WriteOnly | QIODevice::Append);
}

// Another program may have the port at another address that the server is to listen on.
bool PgCluster::hlpStartServer()
{
    for (int attempt = 0; attempt < PortAttempts && hlpHoldPort(); ++attempt) {
        if (restart()) {
            return true;
        }
        stop();
    }
    return false;
}

bool PgCluster::start(const QStringList &settings)
{
    if (!hlpMakeFolder() || !hlpStartKeeper(QStringLiteral("--locale=C.UTF-8"))) {
        return false;
    }
    if (!hlpConfigure(settings)) {
        return hlpFail(QStringLiteral("cannot write the configuration"));
    }
    if (!hlpStartServer()) {
        return false;
    }
    run(QStringLiteral("CREATE ROLE passworded"));
    return true;
}

bool PgCluster::startStandbyOf(PgCluster &primary)
{
    primary.stop(); // the files of a running server are no whole
    const bool copied =
        hlpMakeFolder() && hlpStartKeeper(QStringLiteral("--copy-of=") + primary.folder);
    if (!primary.restart()) {
        return hlpFail(primary.why());
    }
    if (!copied) {
        return false;
    }
    if (!hlpConfigure({QStringLiteral("wal_retrieve_retry_interval = '200ms'")}) ||
        !hlpFollow(primary)) {
        return hlpFail(QStringLiteral("cannot write the configuration"));
    }
    return hlpStartServer();
}

void PgCluster::promote()
{
    hlpAsk(QStringLiteral("promote"));
}

bool PgCluster::restart()
{
    const QString started = hlpAsk(QStringLiteral("start %1").arg(serverPort));
    return hlpAwait(started.section(QLatin1Char(' '), 1).toInt()) ||
           hlpFail(QStringLiteral("the server does not start: ") + log().join(QLatin1Char('\n')));
}

void PgCluster::stop(const QString &mode)
{
    hlpAsk(QStringLiteral("stop ") + mode);
}

int PgCluster::major() const
{
    return value(QStringLiteral("SHOW server_version_num")).toInt() / 10000;
}

QByteArray PgCluster::conninfo(const QString &database) const
{
    return QStringLiteral("host='%1' port=%2 user=dorvy dbname='%3'")
        .arg(folder)
        .arg(serverPort)
        .arg(database)
        .toUtf8();
}

QStringList PgCluster::run(const QString &sql, const QString &database) const
{
    const ConnectionPtr connection(PQconnectdb(conninfo(database).constData()), &PQfinish);
    const ResultPtr result(PQexec(connection.get(), sql.toUtf8().constData()), &PQclear);
    const ExecStatusType status = PQresultStatus(result.get());
    if (status != PGRES_TUPLES_OK && status != PGRES_COMMAND_OK) {
        qFatal("%s: %s", qPrintable(sql), PQerrorMessage(connection.get()));
    }
    QStringList rows;
    for (int row = 0; row < PQntuples(result.get()); ++row) {
        QStringList columns;
        for (int column = 0; column < PQnfields(result.get()); ++column) {
            columns += QString::fromUtf8(PQgetvalue(result.get(), row, column));
        }
        rows += columns.join(QLatin1Char('|'));
    }
    return rows;
}

QString PgCluster::value(const QString &sql, const QString &database) const
{
    return run(sql, database).value(0).section(QLatin1Char('|'), 0, 0);
}

void PgCluster::createDatabase(const QString &name, const QString &encoding)
{
    run(QStringLiteral("CREATE DATABASE %1 TEMPLATE template0 ENCODING '%2' LC_COLLATE 'C' "
                       "LC_CTYPE 'C'")
            .arg(name, encoding));
}

void PgCluster::terminate(int pid) const
{
    run(QStringLiteral("SELECT pg_terminate_backend(%1)").arg(pid));
    QElapsedTimer timer;
    timer.start();
    while (kill(pid, 0) == 0 && timer.elapsed() < StartMsec) {
        QThread::msleep(PollMsec);
    }
}

void PgCluster::writeFile(const QString &name, const QByteArray &bytes) const
{
    const QString data = folder + QStringLiteral("/data/");
    const QFileInfo owner(data + QStringLiteral("PG_VERSION"));
    const QByteArray path = QFile::encodeName(data + name);
    if (!hlpWrite(data + name, bytes, QIODevice::WriteOnly) || chmod(path.constData(), 0600) != 0 ||
        chown(path.constData(), owner.ownerId(), owner.groupId()) != 0) {
        qFatal("cannot write %s", path.constData());
    }
}

void PgCluster::reload() const
{
    const QString loadTime = QStringLiteral("SELECT pg_conf_load_time()");
    const QString before = value(loadTime);
    run(QStringLiteral("SELECT pg_reload_conf()"));
    QElapsedTimer timer;
    timer.start();
    while (value(loadTime) == before) {
        if (timer.elapsed() > StartMsec) {
            qFatal("the server does not read its configuration");
        }
        QThread::msleep(PollMsec);
    }
}

QStringList PgCluster::log() const
{
    QFile file(folder + QStringLiteral("/server.log"));
    if (!file.open(QIODevice::ReadOnly)) {
        return QStringList();
    }
    return QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'));
}
