// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// IdleDriver: a driver that sends nothing.
#include "tests/instructions/idledriver.h"

#include <QtCore/QDateTime>
#include <QtCore/QVariant>
#include <QtCore/QVector>
#include <QtSql/QSqlResult>

namespace {

class IdleResult : public QSqlResult
{
public:
    explicit IdleResult(const QSqlDriver *driver)
        : QSqlResult(driver)
    {
    }

protected:
    bool prepare(const QString &query) override
    {
        isWalk = query.contains(QLatin1String("<="));
        return true;
    }

    bool exec() override
    {
        rows = isWalk ? boundValues().at(0).toInt() : 1;
        setAt(QSql::BeforeFirstRow);
        setSelect(true);
        setActive(true);
        return true;
    }

    bool reset(const QString & /*query*/) override { return false; }

    bool fetch(int row) override
    {
        if (row < 0 || row >= rows) {
            return false;
        }
        setAt(row);
        return true;
    }

    bool fetchFirst() override { return fetch(0); }
    bool fetchNext() override { return fetch(at() + 1); }
    bool fetchLast() override { return fetch(rows - 1); }
    int size() override { return rows; }
    int numRowsAffected() override { return rows; }

    QVariant data(int column) override
    {
        switch (column) {
        case 0:
            return QVariant(qlonglong(at()));
        case 1:
            return QVariant(0.25);
        case 2:
            return QVariant(QString::fromUtf8("text number 00012345"));
        default:
            return QVariant(
                QDateTime(QDate(2020, 2, 29), QTime(12, 34, 56, at() % 1000), Qt::LocalTime));
        }
    }

    bool isNull(int /*column*/) override { return false; }

private:
    bool isWalk = false;
    int rows = 0;
};

} // namespace

bool IdleDriver::open(const QString & /*db*/, const QString & /*user*/,
                      const QString & /*password*/, const QString & /*host*/, int /*port*/,
                      const QString & /*options*/)
{
    setOpen(true);
    return true;
}

void IdleDriver::close()
{
    setOpen(false);
}

bool IdleDriver::beginTransaction()
{
    return true;
}

bool IdleDriver::rollbackTransaction()
{
    return true;
}

bool IdleDriver::hasFeature(DriverFeature feature) const
{
    return feature == Transactions || feature == PreparedQueries ||
           feature == PositionalPlaceholders;
}

QSqlResult *IdleDriver::createResult() const
{
    return new IdleResult(this);
}
