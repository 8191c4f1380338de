// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Commands: what begins with a backslash.
#ifndef COMMANDS_H
#define COMMANDS_H

#include "engine/output.h"
#include "engine/session.h"
#include "engine/table.h"
#include "engine/words.h"

/*! Runs commands, and keeps what they say about the statements to come. */
class Commands
{
public:
    Commands(Session &sessionOfStatements, Output &outputOfLines, Table::Head headOfPages);

    /*! Runs \a text, which begins with the backslash; false on failure, why() says why. */
    bool run(const QString &text);

    QString why() const { return reason; }

    /*! What \\bind and \\export gave for the next statement, which has them once. */
    QVector<QVariant> takeValues();
    QString takeExportFile();

    bool isTimed() const { return timed; }
    void setTimed(bool on) { timed = on; }

    /*! Whether \\quit has come. */
    bool hasQuit() const { return quits; }

private:
    using Words = QVector<Word>;
    struct Command
    {
        const char *name;
        const char *arguments;
        const char *help;
        bool (Commands::*run)(const Words &words);
    };
    static const Command list[];

    bool bind(const Words &words);
    bool tables(const Words &words);
    bool key(const Words &words);
    bool exportNext(const Words &words);
    bool timing(const Words &words);
    bool reconnect(const Words &words);
    bool help(const Words &words);
    bool quit(const Words &words);
    bool fail(const QString &text);
    void print(const QStringList &head, const QVector<QStringList> &rows);

    Session &session;
    Output &output;
    Table::Head head;
    QVector<QVariant> values;
    QString exportFile;
    QString reason;
    bool timed = false;
    bool quits = false;
};

#endif // COMMANDS_H
