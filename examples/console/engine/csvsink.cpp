// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// CsvSink: writes the rows of a query into a file (RFC 4180).
#include "csvsink.h"

#include "valuetext.h"

#include <QtCore/QRegularExpression>
#include <QtCore/QStringList>
#include <QtSql/QSqlField>
#include <QtSql/QSqlQuery>

namespace {

constexpr int WriteBytes = 64 * 1024; // QSaveFile has no buffer of its own

QString csvField(QString text)
{
    static const QRegularExpression special(QStringLiteral("[\",\r\n]"));
    if (text.isNull() || (!text.isEmpty() && !text.contains(special))) {
        return text;
    }
    return QLatin1Char('"') + text.replace(QLatin1Char('"'), QLatin1String("\"\"")) +
           QLatin1Char('"');
}

} // namespace

QByteArray csvLine(const QStringList &fields)
{
    QStringList parts;
    for (const QString &field : fields) {
        parts += csvField(field);
    }
    return parts.join(QLatin1Char(',')).toUtf8() + "\r\n";
}

CsvSink::CsvSink(const QString &fileName, Progress &progressOfRows)
    : file(fileName)
    , progress(progressOfRows)
{
}

bool CsvSink::begin(const QSqlRecord &columns)
{
    record = columns;
    if (!file.open(QIODevice::WriteOnly)) {
        return false;
    }
    QStringList names;
    for (int column = 0; column < record.count(); ++column) {
        names += record.fieldName(column);
    }
    return add(names);
}

bool CsvSink::row(const QSqlQuery &query)
{
    QStringList fields;
    for (int column = 0; column < record.count(); ++column) {
        fields += columnText(query, column, record.field(column));
    }
    ++rows;
    progress.show(rows, file.pos() + waiting.size());
    return add(fields);
}

bool CsvSink::end(bool complete)
{
    progress.clear();
    if (!complete || !write()) {
        file.cancelWriting(); // the file without a name goes
        return false;
    }
    return file.commit();
}

QString CsvSink::why() const
{
    return QStringLiteral("%1: %2").arg(file.fileName(), file.errorString());
}

bool CsvSink::add(const QStringList &fields)
{
    waiting += csvLine(fields);
    return waiting.size() < WriteBytes || write();
}

bool CsvSink::write()
{
    const bool written = file.write(waiting) == waiting.size();
    waiting.clear();
    return written;
}
