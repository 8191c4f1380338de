// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// What the walk prints, and the verdict at its end.
#include "report.h"

#include <QtCore/QFile>
#include <QtSql/QSqlError>

#include <algorithm>
#include <cstdio>

namespace {

void print(const QString &text)
{
    std::puts(text.toUtf8().constData());
    std::fflush(stdout);
}

} // namespace

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
    const auto indented = [](const QString &text) {
        return text.trimmed().replace(QLatin1Char('\n'), QStringLiteral("\n             "));
    };
    line(QStringLiteral("driver:   ") + indented(error.driverText()));
    line(QStringLiteral("database: ") + indented(error.databaseText()));
}

void Report::table(const QStringList &head, const QVector<QStringList> &rows)
{
    QVector<int> widths;
    for (int column = 0; column < head.size(); ++column) {
        int width = head.at(column).size();
        for (const QStringList &row : rows) {
            width = std::max(width, row.at(column).size());
        }
        widths.append(width);
    }
    const auto format = [&widths](const QStringList &row) {
        QString text;
        for (int column = 0; column < row.size(); ++column) {
            text += row.at(column).leftJustified(widths.at(column) + 3);
        }
        return text.trimmed();
    };
    line(format(head));
    for (const QStringList &row : rows) {
        line(format(row));
    }
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
