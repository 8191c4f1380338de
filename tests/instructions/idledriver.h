// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// IdleDriver: a driver that sends nothing and whose rows are all alike, to see what Qt alone costs.
#ifndef IDLEDRIVER_H
#define IDLEDRIVER_H

#include <QtSql/QSqlDriver>

/*!
    Whatever is run through it succeeds. A query that compares by "<=" has as many rows as its first
    bound value says, another one has a single row. A row is (int8, float8, text, timestamp), made
    into Qt values by the plainest calls that do it.
*/
class IdleDriver : public QSqlDriver
{
public:
    bool open(const QString &db, const QString &user, const QString &password, const QString &host,
              int port, const QString &options) override;
    void close() override;
    bool beginTransaction() override;
    bool rollbackTransaction() override;
    bool hasFeature(DriverFeature feature) const override;
    QSqlResult *createResult() const override;
};

#endif // IDLEDRIVER_H
