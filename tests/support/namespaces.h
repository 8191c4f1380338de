// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// enterNamespace: a namespace of the test program's own, as root or as a plain user.
#ifndef NAMESPACES_H
#define NAMESPACES_H

#include <QtCore/QByteArray>
#include <QtCore/QFile>

#include <sched.h>
#include <unistd.h>

/*!
    Moves the calling thread into new namespaces of the \a kinds (CLONE_NEWNET, CLONE_NEWNS).
    Without the right to, into a user namespace as well, in which the user is called \a uid and the
    test program has the rights; only a program of a single thread can do that. What it starts has
    them, too, where \a uid is 0. False when neither is allowed.
*/
inline bool enterNamespace(int kinds, uid_t uid)
{
    const QByteArray uidMap = QByteArray::number(uid) + ' ' + QByteArray::number(geteuid()) + " 1";
    const QByteArray gid = QByteArray::number(getegid());
    if (unshare(kinds) == 0) {
        return true;
    }
    const auto write = [](const char *path, const QByteArray &text) {
        QFile file(QString::fromLatin1(path));
        return file.open(QIODevice::WriteOnly | QIODevice::Unbuffered) &&
               file.write(text) == text.size();
    };
    return unshare(CLONE_NEWUSER | kinds) == 0 && write("/proc/self/uid_map", uidMap) &&
           write("/proc/self/setgroups", "deny") && // without which no group may be mapped
           write("/proc/self/gid_map", gid + ' ' + gid + " 1");
}

#endif // NAMESPACES_H
