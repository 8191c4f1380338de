// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// ConsoleChild: the console as a child process.
#include "tests/examples/consolechild.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QFile>

QStringList consoleArguments(const PgCluster &cluster, const QStringList &arguments)
{
    return QStringList{"--host", cluster.socketDir(), "--port",     QString::number(cluster.port()),
                       "--user", cluster.user(),      "--database", "postgres"} +
           arguments;
}

bool catches(qint64 process, int signal)
{
    QFile status(QStringLiteral("/proc/%1/status").arg(process));
    if (!status.open(QIODevice::ReadOnly)) {
        return false;
    }
    const QByteArray text = status.readAll();
    const QByteArray mask = text.mid(text.indexOf("SigCgt:") + 7, 17).trimmed();
    return mask.toULongLong(nullptr, 16) >> (signal - 1) & 1;
}

ConsoleChild::ConsoleChild(const QStringList &arguments, const QStringList &variables)
{
    process.setProgram(DORVY_CONSOLE);
    process.setArguments(arguments);
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (const QString &variable : variables) {
        environment.insert(variable.section('=', 0, 0), variable.section('=', 1));
    }
    process.setProcessEnvironment(environment);
    process.start();
}

ConsoleChild::~ConsoleChild()
{
    if (process.state() != QProcess::NotRunning) {
        process.kill();
        process.waitForFinished();
    }
}

void ConsoleChild::type(const QByteArray &input)
{
    process.write(input);
}

bool ConsoleChild::waitForOutput(const QByteArray &text)
{
    QElapsedTimer timer;
    timer.start();
    while (!output.contains(text)) {
        if (timer.elapsed() > LimitMsec || !process.waitForReadyRead(LimitMsec)) {
            return false;
        }
        output += process.readAllStandardOutput();
    }
    return true;
}

ConsoleAnswer ConsoleChild::finish()
{
    process.closeWriteChannel();
    const bool ended = process.waitForFinished(LimitMsec);
    output += process.readAllStandardOutput();
    const bool normal = ended && process.exitStatus() == QProcess::NormalExit;
    return {normal ? process.exitCode() : -1, QString::fromUtf8(output),
            QString::fromUtf8(process.readAllStandardError())};
}

ConsoleAnswer runConsole(const QStringList &arguments, const QByteArray &input,
                         const QStringList &variables)
{
    ConsoleChild child(arguments, variables);
    child.type(input);
    return child.finish();
}
