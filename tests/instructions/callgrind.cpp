// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Instructions of a program, counted by valgrind's callgrind.
#include "tests/instructions/callgrind.h"

#include <QtCore/QDebug>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QHash>
#include <QtCore/QProcess>
#include <QtCore/QTemporaryDir>

namespace {

constexpr int RunMsec = 300000;

// Reads the parts of callgrind's profile that tell what each object file costs itself, and how often
// memory is allocated.
class ProfileReader
{
public:
    Profile read(QFile *file)
    {
        while (!file->atEnd()) {
            readLine(QString::fromLocal8Bit(file->readLine()).trimmed());
        }
        return profile;
    }

private:
    void readLine(const QString &line)
    {
        if (isCost(line)) {
            profile.instructions[hasSource() ? fromSource(object) : object] +=
                isCall ? 0 : line.section(QLatin1Char(' '), 1, 1).toLongLong();
            isCall = false;
        } else {
            readPosition(line.section(QLatin1Char('='), 0, 0), line.section(QLatin1Char('='), 1));
        }
    }

    // What is called is read for its name alone, which may be the first mention of it.
    void readPosition(const QString &key, const QString &text)
    {
        if (key == QLatin1String("ob")) {
            object = QFileInfo(nameOf(text, &objects)).fileName();
        } else if (key == QLatin1String("cob")) {
            nameOf(text, &objects);
        } else if (QStringList{QStringLiteral("fl"), QStringLiteral("fi"), QStringLiteral("fe")}
                       .contains(key)) {
            source = nameOf(text, &sources);
        } else if (QStringList{QStringLiteral("cfl"), QStringLiteral("cfi")}.contains(key)) {
            nameOf(text, &sources);
        } else if (key == QLatin1String("fn")) {
            nameOf(text, &functions);
        } else if (key == QLatin1String("cfn")) {
            called = nameOf(text, &functions);
        } else if (key == QLatin1String("calls")) {
            isCall = true; // the next line is what the called function costs
            profile.allocations +=
                allocates() ? text.section(QLatin1Char(' '), 0, 0).toLongLong() : 0;
        }
    }

    bool allocates() const
    {
        return QStringList{QStringLiteral("malloc"), QStringLiteral("calloc"),
                           QStringLiteral("realloc")}
            .contains(called);
    }

    bool hasSource() const { return source != QLatin1String("???"); }

    // A position, absolute or relative to the one before, and a number.
    static bool isCost(const QString &line)
    {
        return !line.isEmpty() &&
               (line.at(0).isDigit() || QStringLiteral("+-*").contains(line.at(0)));
    }

    // Names stand behind their number when they first come, and are the number alone from then on.
    static QString nameOf(const QString &text, QHash<QString, QString> *names)
    {
        const QString number = text.section(QLatin1Char(' '), 0, 0);
        const QString name = text.section(QLatin1Char(' '), 1);
        if (!name.isEmpty()) {
            names->insert(number, name);
        }
        return names->value(number);
    }

    Profile profile;
    QHash<QString, QString> objects;
    QHash<QString, QString> sources;
    QHash<QString, QString> functions;
    QString object;
    QString source;
    QString called;
    bool isCall = false;
};

QProcessEnvironment environment()
{
    QProcessEnvironment variables;
    variables.insert(QStringLiteral("PATH"), QStringLiteral("/usr/bin:/bin"));
    variables.insert(QStringLiteral("TZ"), QStringLiteral("UTC"));
    variables.insert(QStringLiteral("QT_PLUGIN_PATH"), QStringLiteral(DORVY_PLUGINS));
    return variables;
}

} // namespace

Profile profileOf(const QStringList &command)
{
    const QTemporaryDir folder;
    QFile profile(folder.filePath(QStringLiteral("profile")));
    QProcess valgrind;
    valgrind.setProcessEnvironment(environment());
    valgrind.setProcessChannelMode(QProcess::MergedChannels);
    valgrind.start(QStringLiteral(DORVY_VALGRIND),
                   QStringList{QStringLiteral("--tool=callgrind"),
                               QStringLiteral("--callgrind-out-file=") + profile.fileName()} +
                       command);
    if (!valgrind.waitForFinished(RunMsec) || valgrind.exitStatus() != QProcess::NormalExit ||
        valgrind.exitCode() != 0 || !profile.open(QIODevice::ReadOnly)) {
        qWarning() << command << valgrind.readAll();
        return Profile();
    }
    return ProfileReader().read(&profile);
}

UnitCost costOfUnit(const Profile &more, const Profile &fewer, int count)
{
    UnitCost cost{{}, double(more.allocations - fewer.allocations) / count};
    for (auto object = more.instructions.begin(); object != more.instructions.end(); ++object) {
        const qint64 difference = object.value() - fewer.instructions.value(object.key());
        cost.instructions[object.key()] = double(difference) / count;
    }
    return cost;
}
