// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// ConsoleChild: the console as a child process.
#ifndef CONSOLECHILD_H
#define CONSOLECHILD_H

#include "tests/support/pgcluster.h"

#include <QtCore/QProcess>
#include <QtCore/QStringList>

/*! The command line of the console for \a cluster: where to connect, and \a arguments. */
QStringList consoleArguments(const PgCluster &cluster,
                             const QStringList &arguments = QStringList());

/*! Whether the process has a handler of its own for \a signal. */
bool catches(qint64 process, int signal);

/*! What a run has come to. */
struct ConsoleAnswer
{
    int status; // -1 if it did not end of itself
    QString output;
    QString errors;
};

/*! A console whose standard streams are pipes. What still runs is killed when the object goes. */
class ConsoleChild
{
public:
    /*! Starts it with \a variables, as NAME=VALUE, added to the environment. */
    explicit ConsoleChild(const QStringList &arguments,
                          const QStringList &variables = QStringList());
    ~ConsoleChild();

    /*! Hands it \a input, which it reads when it gets there. */
    void type(const QByteArray &input);

    /*! Waits until it has written \a text on standard output; what came before is kept. */
    bool waitForOutput(const QByteArray &text);

    /*! Waits until it has written something, and takes nothing more: it soon has to wait. */
    bool waitForFirstOutput() { return process.waitForReadyRead(LimitMsec); }

    /*! Closes its standard input, and waits for its end. */
    ConsoleAnswer finish();

    qint64 processId() const { return process.processId(); }

    static constexpr int LimitMsec = 60000;

private:
    Q_DISABLE_COPY(ConsoleChild)

    QProcess process;
    QByteArray output;
};

/*! Runs a console to its end, with \a input on its standard input. */
ConsoleAnswer runConsole(const QStringList &arguments, const QByteArray &input = QByteArray(),
                         const QStringList &variables = QStringList());

#endif // CONSOLECHILD_H
