// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Shell: takes lines, runs what they say, tells what came of it.
#include "shell.h"

#include "interrupt.h"

#include "engine/csvsink.h"
#include "engine/errortext.h"
#include "engine/tablesink.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QRegularExpression>
#include <QtSql/QSqlQuery>

#include <unistd.h>

namespace {

constexpr double NsecPerMsec = 1e6;

bool changesRows(const QString &text)
{
    static const QRegularExpression change(QStringLiteral("^(INSERT|UPDATE|DELETE|MERGE|COPY)\\b"),
                                           QRegularExpression::CaseInsensitiveOption);
    return change.match(text).hasMatch();
}

// What a statement with columns has changed goes with the transaction of the reads.
bool isLostInARead(const QString &text)
{
    static const QRegularExpression change(QStringLiteral("^(INSERT|UPDATE|DELETE|MERGE|CALL)\\b"),
                                           QRegularExpression::CaseInsensitiveOption);
    return change.match(text).hasMatch();
}

// What a statement has come to; empty where its error says it all.
QString whatCame(const Outcome &outcome, const QString &text, const QString &exportFile)
{
    QString rows = rowsText(outcome.rows);
    if (outcome.hasColumns && exportFile.isEmpty()) {
        return rows;
    }
    if (!outcome.good) {
        return QString();
    }
    if (outcome.hasColumns) {
        return QStringLiteral("%1 in %2").arg(rows, exportFile);
    }
    return changesRows(text) ? rows + QStringLiteral(" changed") : QStringLiteral("done");
}

// The name is a read's answer; without one the prompt does without.
QString nameOf(const QSqlDatabase &database)
{
    QSqlQuery query(database);
    return query.exec(QStringLiteral("SELECT current_database()")) && query.next()
               ? query.value(0).toString()
               : database.databaseName();
}

} // namespace

Shell::Shell(const QSqlDatabase &database, LineSource &sourceOfLines, const Manner &mannerOfShell)
    : session(database)
    , commands(session, output, mannerOfShell.onTerminal ? Table::OnEachPage : Table::Once)
    , source(sourceOfLines)
    , manner(mannerOfShell)
{
}

int Shell::run()
{
    if (manner.isInteractive) {
        greet();
    }
    while (!ended) {
        output.flush();
        take(source.next(prompt()));
    }
    output.flush();
    if (!output.isGood()) {
        output.errorLine(QStringLiteral("standard output cannot be written"));
        status = qMax<int>(status, StatementStatus);
    }
    return status;
}

void Shell::greet()
{
    ignoreInterrupts();
    name = nameOf(session.database());
    commands.setTimed(true);
    output.line(QStringLiteral("dorvy-console " DORVY_VERSION "; \\help lists the commands"));
}

// The signs are psql's: = before a statement, what is open within one; * and ! in a transaction.
QString Shell::prompt() const
{
    const QChar marks[] = {QLatin1Char('='), QLatin1Char('*'), QLatin1Char('!')};
    const QChar mark = splitter.isEmpty() ? marks[session.transaction()] : splitter.open();
    return name + mark + QStringLiteral("> ");
}

void Shell::take(const Line &line)
{
    switch (line.kind) {
    case Line::Text: {
        const QVector<Piece> pieces = splitter.feed(line.text);
        for (int i = 0; i < pieces.size() && !ended; ++i) {
            runPiece(pieces.at(i));
        }
        break;
    }
    case Line::Cleared:
        splitter.clear();
        break;
    case Line::Broken: // what else stands there cannot be trusted either
        fail(line.text);
        end();
        break;
    case Line::End:
        endOfLines();
        break;
    }
}

void Shell::runPiece(const Piece &piece)
{
    if (piece.kind == Piece::Command) {
        runCommand(piece.text);
    } else {
        runStatement(piece.text);
    }
}

void Shell::runCommand(const QString &text)
{
    if (!commands.run(text)) {
        fail(commands.why());
        if (!manner.isInteractive) {
            isConnected(); // a user's next statement makes the connection anew
        }
    }
    if (commands.hasQuit()) {
        end();
    }
}

void Shell::runStatement(const QString &text)
{
    const QString exportFile = commands.takeExportFile();
    const Statement statement{text, commands.takeValues()};
    if (!isConnected()) {
        return;
    }
    QElapsedTimer timer;
    timer.start();
    const Outcome outcome = runInto(statement, exportFile);
    report(outcome, text, exportFile, timer.nsecsElapsed());
    endIfInterrupted();
    isConnected();
}

Outcome Shell::runInto(const Statement &statement, const QString &exportFile)
{
    const InterruptWatch watch;
    if (exportFile.isEmpty()) {
        TableSink sink(output, manner.onTerminal ? Table::OnEachPage : Table::Once);
        return session.run(statement, sink, &InterruptWatch::isInterrupted);
    }
    Progress progress(isatty(STDERR_FILENO) == 1);
    CsvSink sink(exportFile, progress);
    return session.run(statement, sink, &InterruptWatch::isInterrupted);
}

QString Shell::summary(const QString &what, bool wasInterrupted, qint64 nanoseconds) const
{
    QStringList parts{what};
    if (wasInterrupted) {
        parts += QStringLiteral("interrupted");
    }
    if (commands.isTimed()) {
        const double msec = static_cast<double>(nanoseconds) / NsecPerMsec;
        parts += QStringLiteral("%1 ms").arg(msec, 0, 'f', 3);
    }
    return QStringLiteral("(%1)").arg(parts.join(QStringLiteral(", ")));
}

void Shell::report(const Outcome &outcome, const QString &text, const QString &exportFile,
                   qint64 nanoseconds)
{
    const QString what = whatCame(outcome, text, exportFile);
    if (!what.isEmpty()) {
        output.line(summary(what, outcome.interrupted, nanoseconds));
    }
    if (!outcome.good) {
        reportFailure(outcome);
    } else if (!outcome.hasColumns && !exportFile.isEmpty()) {
        fail(QStringLiteral("the statement gives no rows; %1 is not written").arg(exportFile));
    } else if (outcome.hasColumns && isLostInARead(text)) {
        output.errorLine(QStringLiteral("note: what gives rows is a read and is rolled back; leave "
                                        "out RETURNING to change the table"));
    }
}

void Shell::reportFailure(const Outcome &outcome)
{
    if (outcome.error.isValid()) {
        fail(QStringLiteral("the statement failed"), errorLines(outcome.error));
    } else if (!outcome.interrupted) {
        fail(outcome.refusal);
    }
    if (!ended && session.database().isOpen() && !session.canRead()) {
        output.errorLine(QStringLiteral(
            "note: reads do not work on this connection any more; \\reconnect makes it anew"));
    }
}

// Ctrl-C is meant for the script, and a statement without rows does not look for it.
void Shell::endIfInterrupted()
{
    if (!manner.isInteractive && !ended && InterruptWatch::isInterrupted()) {
        fail(QStringLiteral("interrupted"));
        end();
    }
}

// A lost connection is the end of a script, whose transaction or settings went with it. A user is
// told, and asked nothing.
bool Shell::isConnected()
{
    if (session.database().isOpen()) {
        return true;
    }
    output.errorLine(source.place() + QStringLiteral("the connection is lost"));
    if (!manner.isInteractive) {
        status = ConnectionStatus;
        end();
        return false;
    }
    const bool again = session.reopen();
    output.errorLine(again ? QStringLiteral("connected anew")
                           : errorLines(session.database().lastError()).join(QLatin1Char('\n')));
    return again;
}

void Shell::endOfLines()
{
    if (!manner.isInteractive && !splitter.isEmpty()) {
        if (splitter.open() == QLatin1Char('-')) {
            runStatement(splitter.rest()); // the last semicolon may be missing
        } else {
            fail(QStringLiteral("the script ends within a quote, a comment or parentheses"));
        }
    }
    const QString unused = commands.takeExportFile();
    if (!unused.isEmpty()) {
        fail(QStringLiteral("no statement follows \\export %1").arg(unused));
    }
    end();
}

void Shell::end()
{
    if (!ended && session.transaction() != Session::NoTransaction) {
        output.errorLine(QStringLiteral("note: the open transaction is rolled back"));
    }
    ended = true;
}

void Shell::fail(const QString &what, const QStringList &lines)
{
    const QString place = source.place();
    const QString indent = place.isEmpty() ? QString() : QStringLiteral("  ");
    if (lines.isEmpty() || !place.isEmpty()) {
        output.errorLine(place + what);
    }
    for (const QString &line : lines) {
        output.errorLine(indent + line);
    }
    if (manner.isInteractive) { // the user has seen it
        return;
    }
    status = qMax<int>(status, StatementStatus);
    if (!manner.keepsGoing) {
        end();
    }
}
