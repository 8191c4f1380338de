// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// ElfFile: what the dynamic loader would read in a shared object.
#ifndef ELFFILE_H
#define ELFFILE_H

#include <QtCore/QByteArray>
#include <QtCore/QPair>
#include <QtCore/QStringList>
#include <QtCore/QVector>

#include <elf.h>

/*!
    A shared object for this machine, read whole. Any file may be given: every offset in it is checked
    against its end, and what cannot be read is told by problem().

    Source: System V ABI, AMD64 supplement, and <elf.h>.
*/
class ElfFile
{
public:
    explicit ElfFile(const QString &path);

    /*! A file that has been read: \a bytes stand in \a path. */
    ElfFile(const QString &path, const QByteArray &bytes);

    /*! Why no loader would take the file, in words that follow its name; empty if one would. */
    QString problem() const { return trouble; }

    /*! The libraries that it needs, by the names that it knows them by. */
    QStringList needed() const { return neededNames; }

    /*! Its RUNPATH (or RPATH) as it stands there; empty if it has none. */
    QString runPath() const { return runPathText; }

    /*! The folders that the run path names, seen from where the file stands. */
    QStringList runPathFolders() const;

    /*! The program that loads it, for a program. */
    QString interpreter() const { return interpreterPath; }

    /*! Whether it wants room in the static block of thread-local storage, which may be full. */
    bool hasStaticTls() const { return wantsStaticTls; }

    const QByteArray &bytes() const { return content; }

private:
    struct Segment
    {
        quint64 address;
        quint64 offset;
        quint64 size;
    };

    void hlpParse();
    QString hlpCheckHeader();
    QString hlpCheckEnd() const;
    QString hlpReadSegments();
    void hlpReadDynamic(quint64 offset, quint64 size);
    QString hlpString(quint64 offset) const;
    qint64 hlpOffset(quint64 address) const;
    template<typename T>
    bool hlpAt(quint64 offset, T *value) const;

    QString filePath;
    QByteArray content;
    Elf64_Ehdr header;
    QString trouble;
    QVector<Segment> segments;
    QStringList neededNames;
    QString runPathText;
    QString interpreterPath;
    bool wantsStaticTls;
};

#endif // ELFFILE_H
