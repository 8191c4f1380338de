// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Options: what the command line says.
#include "options.h"

#include <QtCore/QCommandLineParser>

namespace {

constexpr int HighestPort = 65535;

constexpr char description[] =
    "A small SQL shell: runs the statements of a script, of --command or of a terminal, and "
    "prints\n"
    "what they give. Statements end in a semicolon, commands begin with a backslash; \\help lists\n"
    "them.\n"
    "\n"
    "A script ends at its first error, and an open transaction is then rolled back. All texts are\n"
    "in UTF-8. The password comes from standard input (--password-stdin), from PGPASSWORD or from\n"
    "where else libpq finds one.\n"
    "\n"
    "Exit status: 0 all went well, 1 a statement or a command of a script failed, or the script\n"
    "cannot be read to its end, 2 the command line is wrong, or the script cannot be opened,\n"
    "3 there is no connection, or it was lost, 4 the driver ended the program because of a type\n"
    "that it does not take.";

void add(QCommandLineParser &parser, const char *name, const char *text, const char *value = "")
{
    parser.addOption(QCommandLineOption(QString::fromLatin1(name), QString::fromLatin1(text),
                                        QString::fromLatin1(value)));
}

void describe(QCommandLineParser &parser)
{
    parser.setApplicationDescription(QString::fromLatin1(description));
    parser.addHelpOption();
    parser.addVersionOption();
    add(parser, "host", "Server's host, or the folder of its socket.", "host");
    add(parser, "port", "Server's port.", "port");
    add(parser, "database", "Database.", "name");
    add(parser, "user", "User.", "name");
    add(parser, "options", "Connect options, as in \"sslmode=require;connect_timeout=5\".", "text");
    add(parser, "driver", "Key of the Qt SQL driver; DORVY if it is not given.", "key");
    add(parser, "password-stdin", "The first line of standard input is the password.");
    add(parser, "command", "Runs this text in place of a script.", "text");
    add(parser, "keep-going", "Goes on after an error in a script.");
    parser.addPositionalArgument(
        QStringLiteral("script"),
        QStringLiteral(
            "File to run, or - for standard input. Without one, standard input too, with "
            "a prompt if it is a terminal."),
        QStringLiteral("[script]"));
}

Options wrong(const QString &text)
{
    Options options;
    options.wish = Options::Wrong;
    options.text = text;
    return options;
}

// -1 where the option is not there, 0 where it is no port.
int portOf(const QCommandLineParser &parser)
{
    if (!parser.isSet(QStringLiteral("port"))) {
        return -1;
    }
    const int port = parser.value(QStringLiteral("port")).toInt();
    return port >= 1 && port <= HighestPort ? port : 0;
}

Options values(const QCommandLineParser &parser)
{
    Options options;
    options.host = parser.value(QStringLiteral("host"));
    options.port = portOf(parser);
    options.database = parser.value(QStringLiteral("database"));
    options.user = parser.value(QStringLiteral("user"));
    options.connectOptions = parser.value(QStringLiteral("options"));
    options.driver = parser.isSet(QStringLiteral("driver")) ? parser.value(QStringLiteral("driver"))
                                                            : QStringLiteral("DORVY");
    options.command = parser.value(QStringLiteral("command"));
    options.hasCommand = parser.isSet(QStringLiteral("command"));
    options.passwordFromStdin = parser.isSet(QStringLiteral("password-stdin"));
    options.keepsGoing = parser.isSet(QStringLiteral("keep-going"));
    options.file = parser.positionalArguments().value(0);
    return options;
}

} // namespace

Options readOptions(const QStringList &arguments)
{
    QCommandLineParser parser;
    describe(parser);
    if (!parser.parse(arguments)) {
        return wrong(parser.errorText());
    }
    Options options = values(parser);
    if (parser.isSet(QStringLiteral("help"))) {
        options.wish = Options::Help;
        options.text = parser.helpText();
    } else if (parser.isSet(QStringLiteral("version"))) {
        options.wish = Options::Version;
    } else if (options.port == 0) {
        return wrong(QStringLiteral("%1 is no port.").arg(parser.value(QStringLiteral("port"))));
    } else if (parser.positionalArguments().size() + (options.hasCommand ? 1 : 0) > 1) {
        return wrong(QStringLiteral("One script, or one --command."));
    }
    return options;
}
