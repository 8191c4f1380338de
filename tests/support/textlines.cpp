// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Expected lines of the proxy's record, from C strings.
#include "tests/support/textlines.h"

QStringList lines(std::initializer_list<const char *> texts)
{
    QStringList list;
    for (const char *text : texts) {
        list += QString::fromUtf8(text);
    }
    return list;
}

QStringList numbered(int connection, std::initializer_list<const char *> texts)
{
    const QString number = QString::number(connection);
    QStringList list;
    for (const char *text : texts) {
        list += number + QString::fromUtf8(text);
    }
    return list;
}
