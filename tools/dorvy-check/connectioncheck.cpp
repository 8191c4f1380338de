// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The connection attempt, and all that is asked through it.
#include "connectioncheck.h"

#include "arguments.h"
#include "childtask.h"
#include "columntypes.h"
#include "connectioncause.h"
#include "report.h"
#include "servercheck.h"
#include "serversession.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QRegularExpression>

#include <clocale>

namespace {

constexpr int ConnectSeconds = 10;
constexpr int MaxConnectSeconds = 600;
constexpr int SilenceSeconds = 30; // beyond connecting; a finding needs a few exchanges at most
constexpr int Attempts = 4;        // a name can have two addresses, and there are two connections

QString hlpConnectionId()
{
    return QStringLiteral("connection");
}

// libpq takes the option before the variable.
int hlpConnectSeconds(const Arguments &arguments)
{
    static const QRegularExpression option(QStringLiteral("connect_timeout\\s*=\\s*'?(\\d+)"));
    const auto match = option.match(arguments.options);
    const QString variable = QString::fromLocal8Bit(qgetenv("PGCONNECT_TIMEOUT"));
    const int seconds = match.hasMatch() ? match.captured(1).toInt() : variable.toInt();
    return seconds > 0 ? qMin(seconds, MaxConnectSeconds) : ConnectSeconds;
}

// English from libpq, so that its texts can be told apart, and an end to waiting.
void hlpPrepareLibpq()
{
    std::setlocale(LC_MESSAGES, "C"); // NOLINT(concurrency-mt-unsafe): there is one thread
    if (qEnvironmentVariableIsEmpty("PGCONNECT_TIMEOUT")) {
        qputenv("PGCONNECT_TIMEOUT", QByteArray::number(ConnectSeconds));
    }
}

Finding hlpRefused(const QSqlError &error)
{
    const QString told = asItWasMeant(error.driverText());
    const ConnectionCause cause = connectionCause(told);
    QString text = maskPasswords(told);
    if (cause.id == QLatin1String("options")) {
        text = QStringLiteral("(its text is left out, as it may show a password)");
    }
    return failed(hlpConnectionId(), cause.meaning + QStringLiteral(": ") + text, cause.remedy,
                  {{QStringLiteral("cause"), cause.id}});
}

void hlpAsk(const Arguments &arguments, const TakeFinding &report)
{
    hlpPrepareLibpq();
    ServerSession session(arguments);
    QElapsedTimer timer;
    timer.start();
    if (!session.open()) {
        report(hlpRefused(session.error()));
        return;
    }
    report(ok(hlpConnectionId(), QStringLiteral("made in %1 ms").arg(timer.elapsed())));
    checkServer(session, arguments, report);
    if (!arguments.table.isEmpty()) {
        checkTable(session, arguments.table, report);
    }
    if (!arguments.query.isEmpty()) {
        checkQuery(session, arguments.query, report);
    }
}

} // namespace

void reportConnection(const Arguments &arguments, Report &report)
{
    report.add(ok(QStringLiteral("target"), arguments.target()));
    const TaskEnd end = runTask(
        [&arguments](const TaskChannel &channel) {
            hlpAsk(arguments,
                   [&channel](const Finding &finding) { channel.send(toJson(finding)); });
        },
        [&report](const QJsonObject &object) { report.add(fromJson(object)); },
        SilenceSeconds + Attempts * hlpConnectSeconds(arguments));
    if (!end.isWhole) {
        report.add(failed(hlpConnectionId(),
                          QStringLiteral("the exchange with the server did not end: ") + end.reason,
                          QStringLiteral("look at the server's log, and at what is in between")));
    }
}
