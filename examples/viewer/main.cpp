// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
// A window on a PostgreSQL database: Qt Widgets and plain Qt SQL.
#include "examples/viewer/connectionsettings.h"
#include "examples/viewer/viewerwindow.h"

#include <QtCore/QCommandLineParser>
#include <QtWidgets/QApplication>

#include <cstdio>

namespace {

constexpr int UsageStatus = 2;

void addOptions(QCommandLineParser &parser)
{
    const auto add = [&parser](const QString &name, const QString &text, const QString &value) {
        parser.addOption(
            QCommandLineOption(name, QStringLiteral("%1 (%2)").arg(text, value), name, value));
    };
    const ConnectionSettings defaults;
    parser.setApplicationDescription(QStringLiteral(
        "Shows the tables of a PostgreSQL database, and any query, a page at a time.\n\n"
        "Without options it asks where to connect, with what was used last; with any of them it\n"
        "connects straight away. A password comes from the dialog, or from PGPASSWORD.\n\n"
        "In a query of your own, cast columns of types that the driver does not read, such as "
        "inet\n"
        "or arrays, to text: one of them ends the program. For a table that is chosen, this is "
        "done."));
    parser.addHelpOption();
    parser.addVersionOption();
    add(QStringLiteral("host"), QStringLiteral("server's host, or the folder of its socket"),
        defaults.host);
    add(QStringLiteral("port"), QStringLiteral("server's port"), QString::number(defaults.port));
    add(QStringLiteral("database"), QStringLiteral("database"), defaults.database);
    add(QStringLiteral("user"), QStringLiteral("user"), defaults.user);
    add(QStringLiteral("options"), QStringLiteral("connect options, as Qt takes them"),
        defaults.options);
    add(QStringLiteral("driver"), QStringLiteral("key of the Qt driver"), defaults.driver);
}

bool isPort(const QString &text)
{
    bool isNumber = false;
    const int port = text.toInt(&isNumber);
    return isNumber && port > 0 && port <= 65535;
}

// Why the arguments cannot be used; empty if they can.
QString complaint(QCommandLineParser &parser)
{
    if (!parser.parse(QCoreApplication::arguments())) {
        return parser.errorText();
    }
    if (!parser.positionalArguments().isEmpty()) {
        return QStringLiteral("unknown argument: ") + parser.positionalArguments().constFirst();
    }
    const QString port = parser.value(QStringLiteral("port"));
    return isPort(port) ? QString() : QStringLiteral("not a port: ") + port;
}

ConnectionSettings settingsOf(const QCommandLineParser &parser)
{
    ConnectionSettings settings;
    settings.host = parser.value(QStringLiteral("host"));
    settings.port = parser.value(QStringLiteral("port")).toInt();
    settings.database = parser.value(QStringLiteral("database"));
    settings.user = parser.value(QStringLiteral("user"));
    settings.options = parser.value(QStringLiteral("options"));
    settings.driver = parser.value(QStringLiteral("driver"));
    return settings;
}

} // namespace

int main(int argc, char *argv[])
{
    const QApplication application(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("DORVY"));
    QCoreApplication::setApplicationName(QStringLiteral("dorvy-viewer"));
    QCoreApplication::setApplicationVersion(QStringLiteral(DORVY_VERSION));
    QCommandLineParser parser;
    addOptions(parser);
    const QString wrong = complaint(parser);
    if (!wrong.isEmpty()) {
        std::fprintf(stderr, "dorvy-viewer: %s\n", qPrintable(wrong));
        return UsageStatus;
    }
    parser.process(application); // --help and --version
    ViewerWindow window;
    window.show();
    if (parser.optionNames().isEmpty()) {
        window.askForConnection(loadSettings());
    } else {
        window.connectOrAsk(settingsOf(parser));
    }
    return QApplication::exec();
}
