// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// CsvSink: writes the rows of a query into a file (RFC 4180).
#ifndef CSVSINK_H
#define CSVSINK_H

#include "progress.h"
#include "rowsink.h"

#include <QtCore/QSaveFile>
#include <QtSql/QSqlRecord>

/*!
    One line of RFC 4180, with its line end. A null string is an empty field; an empty text is a pair
    of quotes, so that the two can be told apart.
*/
QByteArray csvLine(const QStringList &fields);

/*!
    Writes the columns' names and the rows into a file, in UTF-8, and shows on \a progress how far it
    is. The file gets its name when all rows are in it: a failure leaves what had that name before.
*/
class CsvSink : public RowSink
{
public:
    CsvSink(const QString &fileName, Progress &progress);

    bool begin(const QSqlRecord &columns) override;
    bool row(const QSqlQuery &query) override;
    bool end(bool complete) override;
    QString why() const override;

private:
    bool add(const QStringList &fields);
    bool write();

    QSaveFile file;
    QByteArray waiting; // lines that are not in the file yet
    QSqlRecord record;
    Progress &progress;
    qint64 rows = 0;
};

#endif // CSVSINK_H
