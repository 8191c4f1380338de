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

// Reads the parts of callgrind's profile that tell what each object file costs itself.
class ProfileReader
{
public:
    Instructions read(QFile *file)
    {
        while (!file->atEnd()) {
            readLine(QString::fromLocal8Bit(file->readLine()).trimmed());
        }
        return costs;
    }

private:
    void readLine(const QString &line)
    {
        if (line.startsWith(QLatin1String("ob="))) {
            object = nameOf(line.mid(3));
        } else if (line.startsWith(QLatin1String("cob="))) {
            nameOf(line.mid(4)); // the first mention of a name may be here
        } else if (line.startsWith(QLatin1String("calls="))) {
            isCall = true; // the next line is what the called function costs
        } else if (isCost(line)) {
            costs[object] += isCall ? 0 : line.section(QLatin1Char(' '), 1, 1).toLongLong();
            isCall = false;
        }
    }

    // A position, absolute or relative to the one before, and a number.
    static bool isCost(const QString &line)
    {
        return !line.isEmpty() &&
               (line.at(0).isDigit() || QStringLiteral("+-*").contains(line.at(0)));
    }

    // Names stand behind their number when they first come, and are the number alone from then on.
    QString nameOf(const QString &text)
    {
        const QString number = text.section(QLatin1Char(' '), 0, 0);
        const QString name = text.section(QLatin1Char(' '), 1);
        if (!name.isEmpty()) {
            names[number] = QFileInfo(name).fileName();
        }
        return names.value(number);
    }

    Instructions costs;
    QHash<QString, QString> names;
    QString object;
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

Instructions countInstructions(const QStringList &command)
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
        return Instructions();
    }
    return ProfileReader().read(&profile);
}

QMap<QString, double> costOfUnit(const Instructions &more, const Instructions &fewer, int count)
{
    QMap<QString, double> costs;
    for (auto object = more.begin(); object != more.end(); ++object) {
        costs[object.key()] = double(object.value() - fewer.value(object.key())) / count;
    }
    return costs;
}
