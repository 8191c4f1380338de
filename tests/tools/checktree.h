// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// CheckTree: a place of its own for dorvy-check and the plugins that it is shown.
#ifndef CHECKTREE_H
#define CHECKTREE_H

#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QProcess>
#include <QtCore/QTemporaryDir>

/*!
    A folder with bin/dorvy-check and, in place of Qt's own, plugins/: what the machine has installed is
    not looked at. With the driver's plugin and its jemalloc, unless the test takes them away.
*/
class CheckTree
{
public:
    CheckTree()
    {
        QDir(path()).mkpath(QStringLiteral("bin"));
        QDir(path()).mkpath(QStringLiteral("plugins/sqldrivers"));
        QDir(path()).mkpath(QStringLiteral("plugins/dorvy"));
        copy(QStringLiteral(DORVY_CHECK), QStringLiteral("bin/dorvy-check"));
        write(QStringLiteral("bin/qt.conf"), "[Paths]\nPrefix=..\nPlugins=plugins\n");
        copy(QStringLiteral(DORVY_PLUGIN), plugin());
        if (QFile::exists(QStringLiteral(DORVY_BUNDLED_JEMALLOC))) {
            copy(QStringLiteral(DORVY_BUNDLED_JEMALLOC), jemalloc());
        }
    }

    QString path(const QString &name = QString()) const
    {
        return QFileInfo(folder.path()).canonicalFilePath() +
               (name.isEmpty() ? QString() : QLatin1Char('/') + name);
    }
    static QString plugin() { return driver(QStringLiteral("libqsqldorvy.so")); }
    static QString driver(const QString &name)
    {
        return QStringLiteral("plugins/sqldrivers/") + name;
    }
    static QString jemalloc() { return QStringLiteral("plugins/dorvy/libjemalloc.so.2"); }

    void copy(const QString &from, const QString &name) const
    {
        QFile::remove(path(name));
        if (!QFile::copy(from, path(name))) {
            qFatal("cannot copy %s", qPrintable(from));
        }
    }

    void write(const QString &name, const QByteArray &bytes) const
    {
        QFile file(path(name));
        if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size()) {
            qFatal("cannot write %s", qPrintable(name));
        }
    }

    QByteArray read(const QString &name) const
    {
        QFile file(path(name));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    void remove(const QString &name) const { QFile::remove(path(name)); }

    /*! Changes the plugin's dynamic section. */
    void patch(const QStringList &arguments) const
    {
        if (QProcess::execute(QStringLiteral(DORVY_PATCHELF),
                              arguments + QStringList{path(plugin())})) {
            qFatal("patchelf fails");
        }
    }

    /*! Runs dorvy-check with \a input on its standard input; status() and lines() tell what came. */
    void run(const QStringList &arguments = QStringList(), const QByteArray &input = QByteArray(),
             const QStringList &variables = QStringList())
    {
        QProcess process;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        for (const char *name : {"QT_PLUGIN_PATH", "PGPASSWORD", "PGHOST", "PGPORT"}) {
            environment.remove(QString::fromLatin1(name));
        }
        for (const QString &variable : variables) {
            environment.insert(variable.section(QLatin1Char('='), 0, 0),
                               variable.section(QLatin1Char('='), 1));
        }
        process.setProcessEnvironment(environment);
        process.start(path(QStringLiteral("bin/dorvy-check")), arguments);
        process.write(input);
        process.closeWriteChannel();
        if (!process.waitForFinished(120000)) {
            process.kill();
            process.waitForFinished();
        }
        exitStatus = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
        output = process.readAllStandardOutput();
        errors = process.readAllStandardError();
    }

    int status() const { return exitStatus; }
    QByteArray standardOutput() const { return output; }
    QByteArray standardError() const { return errors; }
    QStringList lines() const
    {
        return QString::fromLocal8Bit(output).trimmed().split(QLatin1Char('\n'));
    }
    QJsonObject json() const { return QJsonDocument::fromJson(output).object(); }

    /*! What stands behind status and id in the lines that begin with these two. */
    QStringList found(const QString &word, const QString &id) const
    {
        const QString head =
            word.leftJustified(8) + QLatin1Char(' ') + id.leftJustified(18) + QLatin1Char(' ');
        QStringList texts;
        const QStringList all = lines();
        for (const QString &line : all) {
            if (line.startsWith(head)) {
                texts += line.mid(head.size()).replace(path(), QStringLiteral("TREE"));
            }
        }
        return texts;
    }

    /*! All lines of one status, with what they say. */
    QStringList all(const QString &word) const
    {
        QStringList texts;
        const QStringList every = lines();
        for (const QString &line : every) {
            if (line.startsWith(word + QLatin1Char(' '))) {
                texts += line.mid(9).simplified().replace(path(), QStringLiteral("TREE"));
            }
        }
        return texts;
    }

private:
    QTemporaryDir folder;
    int exitStatus = -1;
    QByteArray output;
    QByteArray errors;
};

#endif // CHECKTREE_H
