// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// From a name of an encoding to Qt's text codec.
#include "access/dorvy3encoding_p.h"

#include <QtCore/QByteArray>
#include <QtCore/QString>
#include <QtCore/QTextCodec>

QTextCodec *hlpFindCodec(const char *encoding)
{
    if (QTextCodec *codec = QTextCodec::codecForName(encoding)) {
        return codec;
    }
    QString name = QString::fromLatin1(encoding).toUpper();
    const QString windows = QStringLiteral("WIN");
    if (!name.startsWith(windows)) {
        return nullptr;
    }
    return QTextCodec::codecForName(name.replace(windows, QStringLiteral("CP")).toLatin1());
}
