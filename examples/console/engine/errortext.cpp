// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Both texts of an error, as an application would show them.
#include "errortext.h"

#include <QtSql/QSqlError>

namespace {

void append(QStringList *lines, const QString &label, const QString &text)
{
    if (text.isEmpty()) {
        return;
    }
    const QStringList parts = text.trimmed().split(QLatin1Char('\n'));
    for (int i = 0; i < parts.size(); ++i) {
        *lines += (i == 0 ? label : QString(label.size(), QLatin1Char(' '))) + parts.at(i);
    }
}

} // namespace

QStringList errorLines(const QSqlError &error)
{
    QStringList lines;
    append(&lines, QStringLiteral("driver:   "), error.driverText());
    append(&lines, QStringLiteral("database: "), error.databaseText());
    return lines;
}
