// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// LoaderAnswer: what the dynamic loader says of a file's libraries.
#include "loaderanswer.h"

#include "elffile.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QFileInfo>
#include <QtCore/QProcess>
#include <QtCore/QRegularExpression>

#include <link.h>

namespace {

constexpr int AnswerMsec = 20000;

int hlpAddLoaded(dl_phdr_info *info, size_t /*size*/, void *names)
{
    const QString path = QString::fromLocal8Bit(info->dlpi_name);
    static_cast<QStringList *>(names)->append(QFileInfo(path).fileName());
    return 0;
}

QStringList hlpLoadedHere()
{
    QStringList names;
    dl_iterate_phdr(hlpAddLoaded, &names);
    return names;
}

void hlpTakeLine(const QString &line, LoaderAnswer &answer)
{
    static const QRegularExpression found(
        QStringLiteral("^\\s*(\\S+) => (/.*) \\(0x[0-9a-f]+\\)$"));
    static const QRegularExpression missing(QStringLiteral("^\\s*(\\S+) => not found$"));
    static const QRegularExpression version(
        QStringLiteral("^.*?: (/.*): version `(.*)' not found \\(required by (.*)\\)$"));
    static const QRegularExpression undefined(QStringLiteral("^undefined symbol: (\\S+)"));
    auto match = found.match(line);
    if (match.hasMatch()) {
        answer.found.insert(match.captured(1), match.captured(2));
    } else if ((match = missing.match(line)).hasMatch()) {
        answer.missing += match.captured(1);
    } else if ((match = version.match(line)).hasMatch()) {
        answer.tooOld.append({match.captured(1), match.captured(2), match.captured(3)});
    } else if ((match = undefined.match(line)).hasMatch()) {
        answer.undefined += match.captured(1);
    }
}

QProcessEnvironment hlpTracing()
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("LD_TRACE_LOADED_OBJECTS"), QStringLiteral("1"));
    environment.insert(QStringLiteral("LD_WARN"), QStringLiteral("yes"));
    environment.insert(QStringLiteral("LD_BIND_NOW"), QStringLiteral("yes"));
    environment.insert(QStringLiteral("LC_ALL"), QStringLiteral("C"));
    return environment;
}

// What this program's loader prints of path; why it does not, in failure.
QString hlpLoaderOutput(const QString &path, QString *failure)
{
    QProcess loader;
    loader.setProcessEnvironment(hlpTracing());
    loader.setProcessChannelMode(QProcess::MergedChannels);
    const ElfFile self(QCoreApplication::applicationFilePath());
    loader.start(self.interpreter(), {QFileInfo(path).canonicalFilePath()});
    if (!loader.waitForFinished(AnswerMsec)) {
        *failure = loader.errorString();
        loader.kill();
        loader.waitForFinished();
    }
    return QString::fromLocal8Bit(loader.readAll());
}

} // namespace

bool isLoadedHere(const QString &name)
{
    return hlpLoadedHere().contains(name);
}

LoaderAnswer parseLoaderOutput(const QString &output)
{
    LoaderAnswer answer;
    const QStringList lines = output.split(QLatin1Char('\n'));
    for (const QString &line : lines) {
        hlpTakeLine(line, answer);
    }
    answer.missing.removeDuplicates();
    return answer;
}

LoaderAnswer askLoader(const QString &path)
{
    LoaderAnswer answer;
    QString failure;
    const QString output = hlpLoaderOutput(path, &failure);
    if (failure.isEmpty()) {
        answer = parseLoaderOutput(output);
        failure = answer.found.isEmpty() && answer.missing.isEmpty() ? output : QString();
    }
    answer.failure = failure;
    const QStringList loaded = hlpLoadedHere();
    for (const QString &name : loaded) {
        answer.missing.removeAll(name);
    }
    return answer;
}
