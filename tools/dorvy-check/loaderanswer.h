// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// LoaderAnswer: what the dynamic loader says of a file's libraries.
#ifndef LOADERANSWER_H
#define LOADERANSWER_H

#include <QtCore/QHash>
#include <QtCore/QStringList>
#include <QtCore/QVector>

/*! A version that a library should provide and does not. */
struct MissingVersion
{
    QString library; // path
    QString version;
    QString requiredBy; // path
};

struct LoaderAnswer
{
    QString failure;               // why the loader gave no answer; empty if it did
    QHash<QString, QString> found; // path by name
    QStringList missing;           // names
    QVector<MissingVersion> tooOld;
    QStringList undefined; // functions and data that no library has
};

/*!
    Asks the loader of this program about all libraries that \a path needs, directly or not, without
    running anything of them: as ldd -r does. A library that this process has is not missing: the
    application that loads the file has it too.
*/
LoaderAnswer askLoader(const QString &path);

/*! Whether this process has the library \a name, as a preloaded one: no run path is followed for it. */
bool isLoadedHere(const QString &name);

/*! The answer in what the loader prints. */
LoaderAnswer parseLoaderOutput(const QString &output);

#endif // LOADERANSWER_H
