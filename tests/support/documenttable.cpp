// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// documentTable: what a table of a page in docs/ says, for tests that hold it.
#include "tests/support/documenttable.h"

#include <QtCore/QFile>
#include <QtCore/QRegularExpression>

namespace {

QStringList hlpLines(const QString &page)
{
    QFile file(QStringLiteral(DORVY_DOCS "/") + page);
    if (!file.open(QIODevice::ReadOnly)) {
        qFatal("%s: %s", qPrintable(page), qPrintable(file.errorString()));
    }
    return QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'));
}

// None for a line that belongs to no table.
QStringList hlpCells(const QString &line)
{
    QStringList cells;
    if (line.startsWith(QLatin1Char('|')) && line.endsWith(QLatin1Char('|'))) {
        for (const QString &cell : line.mid(1, line.size() - 2).split(QLatin1Char('|'))) {
            cells.append(cell.trimmed());
        }
    }
    return cells;
}

} // namespace

QList<QStringList> documentTable(const QString &page, const QString &head)
{
    QList<QStringList> rows;
    int columns = 0;
    for (const QString &line : hlpLines(page)) {
        const QStringList cells = hlpCells(line);
        if (columns > 0 && cells.isEmpty()) {
            break;
        }
        if (columns > 0 && cells.size() != columns) {
            qFatal("%s: not a row of %d cells: %s", qPrintable(page), columns, qPrintable(line));
        }
        if (columns > 0) {
            rows.append(cells);
        } else if (!cells.isEmpty() && cells.first() == head) {
            columns = cells.size();
        }
    }
    if (rows.size() < 2) {
        qFatal("%s: no table with the column %s", qPrintable(page), qPrintable(head));
    }
    return rows.mid(1); // without the line below the head
}

QStringList quotedIn(const QString &cell)
{
    QStringList quoted;
    const QRegularExpression pattern(QStringLiteral("`([^`]*)`"));
    for (auto found = pattern.globalMatch(cell); found.hasNext();) {
        quoted.append(found.next().captured(1));
    }
    return quoted;
}
