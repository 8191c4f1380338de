// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// dorvy-console: a small SQL shell in plain Qt SQL.
#include "fatal.h"
#include "linesource.h"
#include "options.h"
#include "shell.h"

#include "engine/errortext.h"
#include "engine/output.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QFile>
#include <QtCore/QStandardPaths>

#include <clocale>
#include <memory>

#include <langinfo.h>
#include <termios.h>
#include <unistd.h>

namespace {

using FilePtr = std::unique_ptr<FILE, decltype(&std::fclose)>;

// libedit and wcwidth() go by the locale; what is read and written is UTF-8 in any.
void useUtf8()
{
    // NOLINTBEGIN(concurrency-mt-unsafe): there are no threads yet
    if (qstrcmp(nl_langinfo(CODESET), "UTF-8") != 0) {
        std::setlocale(LC_CTYPE, "C.UTF-8");
    }
    // NOLINTEND(concurrency-mt-unsafe)
}

// By the environment: drivers that do not go through libpq would not know the option.
void setServersNameForUs()
{
    if (!qEnvironmentVariableIsSet("PGAPPNAME")) {
        qputenv("PGAPPNAME", "dorvy-console");
    }
}

// While there is one, a terminal does not show what is typed. Ctrl-C is a character, too: it would end
// the program and leave the terminal silent.
class NoEcho
{
public:
    NoEcho()
    {
        isTerminal = tcgetattr(STDIN_FILENO, &before) == 0;
        termios silent = before;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO | ISIG);
        if (isTerminal) {
            tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent);
            std::fputs("Password: ", stderr);
        }
    }
    ~NoEcho()
    {
        if (isTerminal) {
            tcsetattr(STDIN_FILENO, TCSAFLUSH, &before);
            std::fputs("\n", stderr);
        }
    }

private:
    Q_DISABLE_COPY(NoEcho)

    termios before = {};
    bool isTerminal;
};

// The first line of standard input; false if it cannot be read.
bool readPassword(QString *password)
{
    const NoEcho silence;
    const Line line = StreamLines(stdin, QString()).next(QString());
    *password = line.text;
    return line.kind != Line::Broken;
}

QSqlDatabase databaseOf(const Options &options, const QString &password)
{
    QSqlDatabase database = QSqlDatabase::addDatabase(options.driver);
    database.setHostName(options.host);
    database.setPort(options.port);
    database.setDatabaseName(options.database);
    database.setUserName(options.user);
    database.setConnectOptions(options.connectOptions);
    database.setPassword(password);
    return database;
}

std::unique_ptr<LineSource> linesOf(const Options &options, FILE *script, bool isInteractive)
{
    if (options.hasCommand) {
        return std::make_unique<TextLines>(options.command);
    }
    if (isInteractive) {
        return std::make_unique<TypedLines>(
            QStandardPaths::writableLocation(QStandardPaths::AppDataLocation) +
            QStringLiteral("/history"));
    }
    return std::make_unique<StreamLines>(script ? script : stdin,
                                         script ? options.file : QString());
}

int runShell(const Options &options, FILE *script)
{
    Output output;
    QString password;
    if (options.passwordFromStdin && !readPassword(&password)) {
        output.errorLine(std::ferror(stdin)
                             ? QStringLiteral("the password cannot be read")
                             : QStringLiteral("the password is not UTF-8, or has a zero byte"));
        return ConnectionStatus;
    }
    QSqlDatabase database = databaseOf(options, password);
    if (!database.open()) {
        output.errorLine(QStringLiteral("no connection"));
        for (const QString &line : errorLines(database.lastError())) {
            output.errorLine(QStringLiteral("  ") + line);
        }
        return ConnectionStatus;
    }
    const bool onTerminal = isatty(STDOUT_FILENO) == 1;
    const bool isInteractive =
        onTerminal && isatty(STDIN_FILENO) == 1 && !options.hasCommand && options.file.isEmpty();
    const auto lines = linesOf(options, script, isInteractive);
    return Shell(database, *lines, {isInteractive, options.keepsGoing, onTerminal}).run();
}

int runScript(const Options &options)
{
    FilePtr script(nullptr, &std::fclose);
    if (!options.file.isEmpty() && options.file != QLatin1String("-")) {
        script.reset(std::fopen(QFile::encodeName(options.file).constData(), "re"));
        if (!script) {
            Output().errorLine(QStringLiteral("%1 cannot be opened").arg(options.file));
            return UsageStatus;
        }
    }
    return runShell(options, script.get());
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("dorvy-console"));
    useUtf8();
    setServersNameForUs();
    installMessageHandler();
    const Options options = readOptions(QCoreApplication::arguments());
    switch (options.wish) {
    case Options::Help:
        Output().line(options.text.trimmed());
        return 0;
    case Options::Version:
        Output().line(QStringLiteral("dorvy-console " DORVY_VERSION));
        return 0;
    case Options::Wrong:
        Output().errorLine(options.text + QStringLiteral(" --help tells how."));
        return UsageStatus;
    case Options::Run:
        break;
    }
    return runScript(options);
}
