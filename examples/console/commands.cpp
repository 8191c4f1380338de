// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Commands: what begins with a backslash.
#include "commands.h"

#include "engine/errortext.h"
#include "fatal.h"

#include <QtSql/QSqlField>
#include <QtSql/QSqlIndex>

const Commands::Command Commands::list[] = {
    {"bind", "VALUE...", "values of the next statement's placeholders, ? or $1; NULL, 'a text'",
     &Commands::bind},
    {"tables", "", "tables and views", &Commands::tables},
    {"key", "TABLE", "columns of the table's primary key", &Commands::key},
    {"export", "FILE.csv", "writes the rows of the next statement into the file",
     &Commands::exportNext},
    {"timing", "[on|off]", "tells how long each statement took", &Commands::timing},
    {"reconnect", "", "makes the connection anew", &Commands::reconnect},
    {"help", "", "this list", &Commands::help},
    {"quit", "", "ends the program, as Ctrl-D does", &Commands::quit},
};

namespace {

constexpr char notes[] =
    "\n"
    "Statements end in a semicolon. BEGIN, COMMIT and ROLLBACK are the transaction of those that\n"
    "give no rows. What gives rows is read on a connection of its own, which does not see the "
    "open\n"
    "transaction, temporary tables or SET, and whose changes are rolled back: leave out RETURNING\n"
    "where a row is to stay.\n"
    "\n"
    "Ctrl-C clears what is typed, and ends a result while it is printed; a second one ends the\n"
    "program, also where the server is still at work.\n"
    "\n";

QVariant valueOf(const Word &word)
{
    const bool isNull =
        !word.quoted && word.text.compare(QLatin1String("NULL"), Qt::CaseInsensitive) == 0;
    return isNull ? QVariant(QVariant::String) : QVariant(word.text);
}

} // namespace

Commands::Commands(Session &sessionOfStatements, Output &outputOfLines, Table::Head headOfPages)
    : session(sessionOfStatements)
    , output(outputOfLines)
    , head(headOfPages)
{
}

bool Commands::run(const QString &text)
{
    QVector<Word> words;
    if (!splitWords(text.mid(1), &words) || words.isEmpty()) {
        return fail(
            QStringLiteral("%1: a quote is not closed, or the command is missing").arg(text));
    }
    const QString name = words.takeFirst().text;
    for (const Command &command : list) {
        if (name == QLatin1String(command.name)) {
            return (this->*command.run)(words);
        }
    }
    return fail(QStringLiteral("\\%1 is no command; \\help lists them").arg(name));
}

QVector<QVariant> Commands::takeValues()
{
    QVector<QVariant> taken;
    taken.swap(values);
    return taken;
}

QString Commands::takeExportFile()
{
    QString taken;
    taken.swap(exportFile);
    return taken;
}

bool Commands::bind(const Words &words)
{
    values.clear();
    for (const Word &word : words) {
        values += valueOf(word);
    }
    return true;
}

bool Commands::tables(const Words &words)
{
    Q_UNUSED(words)
    QVector<QStringList> rows;
    const QPair<QSql::TableType, QString> kinds[] = {{QSql::Tables, QStringLiteral("table")},
                                                     {QSql::Views, QStringLiteral("view")}};
    for (const auto &kind : kinds) {
        QStringList names = session.database().tables(kind.first);
        names.sort();
        for (const QString &name : qAsConst(names)) {
            rows += QStringList{name, kind.second};
        }
    }
    if (rows.isEmpty() && !session.check()) { // an empty list is all that Qt says
        return fail(QStringLiteral("the catalog cannot be read"));
    }
    print({QStringLiteral("name"), QStringLiteral("kind")}, rows);
    return true;
}

// Not QSqlDatabase::record(), with which the driver does not describe a table.
bool Commands::key(const Words &words)
{
    if (words.size() != 1) {
        return fail(QStringLiteral("\\key wants the name of one table"));
    }
    const QString &table = words.first().text;
    const QSqlIndex index = session.database().primaryIndex(table);
    if (index.isEmpty() && !session.check()) {
        return fail(QStringLiteral("the catalog cannot be read"));
    }
    if (index.isEmpty()) {
        output.line(QStringLiteral("%1 has no primary key, or is no table").arg(table));
        return true;
    }
    QVector<QStringList> rows;
    for (int column = 0; column < index.count(); ++column) {
        rows += QStringList{
            index.fieldName(column),
            QString::fromLatin1(QMetaType::typeName(static_cast<int>(index.field(column).type())))};
    }
    print({QStringLiteral("column"), QStringLiteral("type")}, rows);
    return true;
}

bool Commands::exportNext(const Words &words)
{
    if (words.size() != 1) {
        return fail(QStringLiteral("\\export wants the name of one file"));
    }
    exportFile = words.first().text;
    return true;
}

bool Commands::timing(const Words &words)
{
    const QString word = words.isEmpty() ? QString() : words.first().text;
    if (!word.isNull() && word != QLatin1String("on") && word != QLatin1String("off")) {
        return fail(QStringLiteral("\\timing wants on, off or nothing"));
    }
    timed = word.isNull() ? !timed : word == QLatin1String("on");
    output.line(timed ? QStringLiteral("timing is on") : QStringLiteral("timing is off"));
    return true;
}

bool Commands::reconnect(const Words &words)
{
    Q_UNUSED(words)
    if (session.reopen()) {
        output.line(QStringLiteral("connected anew"));
        return true;
    }
    return fail(errorLines(session.database().lastError()).join(QLatin1Char('\n')));
}

bool Commands::help(const Words &words)
{
    Q_UNUSED(words)
    for (const Command &command : list) {
        const QString usage = QLatin1Char('\\') + QLatin1String(command.name) + QLatin1Char(' ') +
                              QLatin1String(command.arguments);
        output.line(QStringLiteral("  ") + usage.leftJustified(18) + QLatin1String(command.help));
    }
    output.line(QLatin1String(notes) + fatalAdvice());
    return true;
}

bool Commands::quit(const Words &words)
{
    Q_UNUSED(words)
    quits = true;
    return true;
}

bool Commands::fail(const QString &text)
{
    reason = text;
    return false;
}

void Commands::print(const QStringList &names, const QVector<QStringList> &rows)
{
    QVector<TableColumn> columns;
    for (const QString &name : names) {
        columns.append({name, false});
    }
    Table table(columns, head);
    for (const QStringList &row : rows) {
        table.add(row);
        if (table.isPageFull()) {
            output.lines(table.takePage());
        }
    }
    output.lines(table.takePage());
    output.line(QStringLiteral("(%1)").arg(rowsText(rows.size())));
}
