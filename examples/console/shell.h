// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Shell: takes lines, runs what they say, tells what came of it.
#ifndef SHELL_H
#define SHELL_H

#include "commands.h"
#include "linesource.h"

#include "engine/output.h"
#include "engine/session.h"
#include "engine/splitter.h"

/*! Statuses that the program ends with, beside 0 for success and FatalStatus. */
enum Status { StatementStatus = 1, UsageStatus = 2, ConnectionStatus = 3 };

/*!
    Runs the statements and commands of a source of lines on an open database. With a user at a
    terminal it asks, goes on after errors and makes a lost connection anew; a script ends at either.
*/
class Shell
{
public:
    struct Manner
    {
        bool isInteractive;
        bool keepsGoing; // after an error in a script
        bool onTerminal; // standard output
    };

    Shell(const QSqlDatabase &database, LineSource &sourceOfLines, const Manner &mannerOfShell);

    /*! Takes all lines, and tells the status to end with. */
    int run();

private:
    void greet();
    QString prompt() const;
    void take(const Line &line);
    void runPiece(const Piece &piece);
    void runCommand(const QString &text);
    void runStatement(const QString &text);
    Outcome runInto(const Statement &statement, const QString &exportFile);
    QString summary(const QString &what, bool wasInterrupted, qint64 nanoseconds) const;
    void report(const Outcome &outcome, const QString &text, const QString &exportFile,
                qint64 nanoseconds);
    void reportFailure(const Outcome &outcome);
    void endIfInterrupted();
    bool isConnected();
    void endOfLines();
    void end();
    void fail(const QString &what, const QStringList &lines = QStringList());

    Output output;
    Session session;
    Commands commands;
    Splitter splitter;
    LineSource &source;
    Manner manner;
    QString name; // of the database
    int status = 0;
    bool ended = false;
};

#endif // SHELL_H
