// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Arguments: what the command line asks for.
#include "arguments.h"

#include <QtCore/QCommandLineParser>
#include <QtCore/QRegularExpression>
#include <QtCore/QTextStream>

#include <cstdio>
#include <cstdlib>

namespace {

constexpr int WrongUse = 2;
constexpr int LastPort = 65535;

QString hlpDescription()
{
    return QStringLiteral(
        "Tells why a Qt program does not get the DORVY driver, or no connection through it.\n"
        "One line for each thing that was looked at: ok, warning or FAILED, a name of the thing,\n"
        "what was found, and behind \"->\" what to do about it.\n"
        "\n"
        "Nothing given, it looks at the plugin and its libraries; with --host, --port, "
        "--database,\n"
        "--user, --options, --table or --query it connects to the server, too. What is not given,\n"
        "libpq takes from the environment (PGHOST, PGPASSWORD and so on). It gives up connecting\n"
        "after ten seconds, unless connect_timeout says otherwise.\n"
        "\n"
        "Exit status: 0 nothing failed, 1 something did, 2 wrong use.");
}

QCommandLineOption hlpOption(const char *name, const char *description, const char *value)
{
    return QCommandLineOption(QString::fromLatin1(name), QString::fromLatin1(description),
                              QString::fromLatin1(value));
}

void hlpAddOptions(QCommandLineParser &parser)
{
    parser.addOptions(
        {hlpOption("host", "Name or address of the server, or the folder of its socket.", "host"),
         hlpOption("port", "Port of the server.", "port"),
         hlpOption("database", "Name of the database.", "name"),
         hlpOption("user", "User to log in as.", "name"),
         hlpOption("password", "Password; it can be seen in the list of processes.", "password"),
         hlpOption("password-stdin", "Reads the password from standard input, one line.", ""),
         hlpOption("options", "Connect options, as sslmode=require;connect_timeout=5.", "options"),
         hlpOption("table", "Says of each column of a table whether the driver reads it.", "name"),
         hlpOption("query", "The same of a query, and of its parameters.", "text"),
         hlpOption("json", "Prints one object of JSON.", "")});
    parser.addHelpOption();
    parser.addVersionOption();
}

[[noreturn]] void hlpRefuse(const QString &why)
{
    QTextStream(stderr) << "dorvy-check: " << why << "\nTry dorvy-check --help.\n";
    std::exit(WrongUse); // NOLINT(concurrency-mt-unsafe): there is one thread
}

void hlpParse(QCommandLineParser &parser)
{
    hlpAddOptions(parser);
    if (!parser.parse(QCoreApplication::arguments())) {
        hlpRefuse(parser.errorText());
    }
    if (parser.isSet(QStringLiteral("version"))) {
        parser.showVersion();
    }
    if (parser.isSet(QStringLiteral("help"))) {
        parser.showHelp();
    }
    for (const char *option : {"table", "query"}) {
        const QString name = QString::fromLatin1(option);
        if (parser.isSet(name) && parser.value(name).trimmed().isEmpty()) {
            hlpRefuse(QStringLiteral("--%1 is empty").arg(name));
        }
    }
    if (!parser.positionalArguments().isEmpty()) {
        hlpRefuse(QStringLiteral("what is \"%1\"?").arg(parser.positionalArguments().first()));
    }
}

int hlpPort(const QString &text)
{
    if (text.isNull()) {
        return -1;
    }
    bool isNumber = false;
    const int port = text.toInt(&isNumber);
    if (!isNumber || port < 1 || port > LastPort) {
        hlpRefuse(QStringLiteral("no port: \"%1\"").arg(text));
    }
    return port;
}

QString hlpPassword(const QCommandLineParser &parser)
{
    if (!parser.isSet(QStringLiteral("password-stdin"))) {
        return parser.value(QStringLiteral("password"));
    }
    QTextStream input(stdin);
    return input.readLine();
}

} // namespace

bool Arguments::hasConnection() const
{
    return !host.isEmpty() || port != -1 || !database.isEmpty() || !user.isEmpty() ||
           !options.isEmpty() || !table.isEmpty() || !query.isEmpty();
}

QString Arguments::target() const
{
    QStringList parts;
    const auto append = [&parts](const char *name, const QString &value) {
        if (!value.isEmpty()) {
            parts += QLatin1String(name) + maskPasswords(value);
        }
    };
    append("host=", host);
    append("port=", port == -1 ? QString() : QString::number(port));
    append("database=", database);
    append("user=", user);
    append("password=", password.isEmpty() ? QString() : QStringLiteral("***"));
    append("options: ", options);
    return parts.isEmpty() ? QStringLiteral("libpq's defaults") : parts.join(QLatin1Char(' '));
}

QString maskPasswords(const QString &text)
{
    static const QRegularExpression keyword(
        QStringLiteral("(password\\s*=\\s*)('(?:[^'\\\\]|\\\\.)*'?|[^\\s;]*(?:[\\s;]+[^\\s;=]+(?!"
                       "[^\\s;]))*)"),
        QRegularExpression::CaseInsensitiveOption);
    // Up to the "@", or to where a server that quotes the address has cut it off.
    static const QRegularExpression address(
        QStringLiteral("(://[^:@/]*:)(?:[^@]*(?=@)|[^@\"/]*(?=\"))"));
    QString masked = text;
    masked.replace(keyword, QStringLiteral("\\1***"));
    return masked.replace(address, QStringLiteral("\\1***"));
}

Arguments takeArguments()
{
    QCommandLineParser parser;
    parser.setApplicationDescription(hlpDescription());
    hlpParse(parser);
    const auto value = [&parser](const char *name) {
        const QString option = QString::fromLatin1(name);
        return parser.isSet(option) ? parser.value(option) : QString();
    };
    Arguments arguments;
    arguments.port = hlpPort(value("port"));
    arguments.host = value("host");
    arguments.database = value("database");
    arguments.user = value("user");
    arguments.options = value("options");
    arguments.table = value("table");
    arguments.query = value("query");
    arguments.isJson = parser.isSet(QStringLiteral("json"));
    arguments.password = hlpPassword(parser);
    return arguments;
}
