// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// What the walk prints, and the verdict at its end.
#include "report.h"

#include "engine/errortext.h"
#include "engine/table.h"

#include <QtCore/QFile>

void Report::print(const QString &text)
{
    output.line(text);
    output.flush();
}

void Report::indented(const QStringList &lines)
{
    for (const QString &text : lines) {
        line(text);
    }
}

void Report::chapter(const QString &title)
{
    print(QStringLiteral("\n── %1 %2")
              .arg(title, QString(qMax(3, 76 - title.size()), QChar(0x2500))));
}

void Report::line(const QString &text)
{
    print(QStringLiteral("   ") + text);
}

bool Report::check(bool good, const QString &text)
{
    failures += good ? 0 : 1;
    print((good ? QStringLiteral(" ✓ ") : QStringLiteral(" ✗ ")) + text);
    return good;
}

void Report::error(const QSqlError &error)
{
    indented(errorLines(error));
}

void Report::table(const QStringList &head, const QVector<QStringList> &rows)
{
    QVector<TableColumn> columns;
    for (const QString &name : head) {
        columns.append({name, false});
    }
    Table table(columns, Table::Once);
    for (const QStringList &row : rows) {
        table.add(row);
    }
    indented(table.takePage());
}

qint64 residentKib()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly)) {
        return -1;
    }
    const QByteArray text = status.readAll();
    const int at = text.indexOf("VmRSS:");
    return at < 0 ? -1 : text.mid(at + 6, text.indexOf('k', at) - at - 6).trimmed().toLongLong();
}
