// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// DorvyResult: preparing, running and describing.
#include "driver/dorvyresult.h"

#include "access/dorvy3errors_p.h"
#include "access/dorvy3statement.h"
#include "access/dorvy3texts_p.h"
#include "driver/dorvydriver_p.h"
#include "driver/dorvyfield_p.h"
#include "driver/dorvyresult_p.h"
#include "driver/dorvytypes_p.h"

#include <QtSql/QSqlError>

#include <new>
#include <type_traits>

using namespace Dorvy3Texts;

namespace {

// Qt reports a lack of memory, and a size that a container cannot have, by an exception; the Qt that
// called us has no handler for it.
QSqlError hlpNoMemory(const QString &operation)
{
    return QSqlError(noMemory(), operation, QSqlError::StatementError);
}

QVector<DorvyColumn> hlpColumns(const Dorvy3Result &page)
{
    QVector<DorvyColumn> columns;
    const int count = PQnfields(page.result);
    for (int column = 0; column < count; ++column) {
        const auto oid = static_cast<int>(PQftype(page.result, column));
        columns.append({hlpDecodePSQLType(oid), hlpBinaryDecoder(oid)});
    }
    return columns;
}

} // namespace

DorvyResultPrivate::DorvyResultPrivate(DorvyResult *result, const DorvyDriver *driver)
    : QSqlResultPrivate(result, driver)
    , describesStatement(false)
{
    if (DorvyDriverPrivate *owner = driverPrivate()) {
        owner->bind(this);
    }
}

DorvyDriverPrivate *DorvyResultPrivate::driverPrivate() const
{
    // Qt's guarded reference is null once the driver is gone.
    return sqldriver ? static_cast<DorvyDriver *>(sqldriver.data())->d_func() : nullptr;
}

DorvyResultPrivate::~DorvyResultPrivate()
{
    if (DorvyDriverPrivate *driver = driverPrivate()) {
        driver->unbind(this);
    }
}

QString DorvyResultPrivate::fieldSerial(int i) const
{
    // Qt asks for it whenever a value is bound; the first ones take no memory.
    static const QString first[] = {
        QStringLiteral("$1"), QStringLiteral("$2"), QStringLiteral("$3"), QStringLiteral("$4"),
        QStringLiteral("$5"), QStringLiteral("$6"), QStringLiteral("$7"), QStringLiteral("$8")};
    constexpr int count = std::extent<decltype(first)>::value;
    return i >= 0 && i < count ? first[i] : QLatin1Char('$') + QString::number(i + 1);
}

void DorvyResultPrivate::describe(const Dorvy3Statement &statement)
{
    const bool isBinary = PQbinaryTuples(page->result);
    const bool isStatements = isBinary && statement.isDescribing(*page);
    if (isStatements && describesStatement) {
        return; // by an earlier run
    }
    record = hlpDescribeColumns(*page);
    columns = isBinary ? hlpColumns(*page) : QVector<DorvyColumn>();
    describesStatement = isStatements;
}

void DorvyResultPrivate::clearDescription()
{
    record.clear();
    columns.clear();
    describesStatement = false;
}

void DorvyResultPrivate::release()
{
    Q_Q(DorvyResult);
    q->statement.reset();
    page.reset();
}

DorvyResult::DorvyResult(const DorvyDriver *driver)
    : QSqlResult(*new DorvyResultPrivate(this, driver))
{
}

DorvyResult::~DorvyResult() = default;

QVariant DorvyResult::handle() const
{
    return QVariant();
}

QSqlRecord DorvyResult::record() const
{
    Q_D(const DorvyResult);
    return d->record;
}

// A run leaves its columns described for the next one of the same statement.
void DorvyResult::hlpStart()
{
    Q_D(DorvyResult);
    d->page.reset();
    setActive(false);
}

bool DorvyResult::hlpFail(const QSqlError &error)
{
    Q_D(DorvyResult);
    d->clearDescription();
    setLastError(error);
    return false;
}

// Ends a run, which has left its error where Qt keeps it: with a page it is active and described,
// without one it has failed.
bool DorvyResult::hlpFinish()
{
    Q_D(DorvyResult);
    if (!d->page) {
        d->clearDescription();
        return false;
    }
    setActive(true);
    setSelect(statement->readonly());
    if (isSelect()) {
        d->describe(*statement);
    } else {
        d->clearDescription();
    }
    return true;
}

// Replaces the statement by a new one for query, or by none.
bool DorvyResult::hlpLookUp(const QString &query, QSqlError *error)
{
    Q_D(DorvyResult);
    d->clearDescription();
    DorvyDriverPrivate *driver = d->driverPrivate();
    if (!driver) {
        statement.reset();
        *error = QSqlError(cannotExecute(), noConnection(), QSqlError::StatementError);
        return false;
    }
    try {
        statement = driver->database.statement(d->positionalToNamedBinding(query), error);
    } catch (const std::bad_alloc &) {
        statement.reset();
        *error = hlpNoMemory(prepareFailed());
    }
    return !statement.isNull();
}

// Replaces the page by the one behind previous, or by the first.
void DorvyResult::hlpRun(const QSharedPointer<Dorvy3Result> &previous, QSqlError *error)
{
    Q_D(DorvyResult);
    try {
        d->page = statement->exec(error, DefaultRows, previous);
    } catch (const std::bad_alloc &) {
        d->page.reset();
        *error = hlpNoMemory(executeFailed());
    }
}

bool DorvyResult::reset(const QString &query)
{
    Q_D(DorvyResult);
    hlpStart();
    if (!hlpLookUp(query, &d->error)) {
        return false;
    }
    hlpRun({}, &d->error);
    return hlpFinish();
}

bool DorvyResult::prepare(const QString &query)
{
    Q_D(DorvyResult);
    hlpStart();
    if (!hlpLookUp(query, &d->error)) {
        return false;
    }
    setSelect(statement->readonly());
    return true;
}

bool DorvyResult::exec()
{
    Q_D(DorvyResult);
    hlpStart();
    if (!statement) {
        return hlpFail(hlpRefusal(cannotExecute(), notPrepared()));
    }
    try {
        d->page = statement->exec(boundValues(), &d->error, DefaultRows);
    } catch (const std::bad_alloc &) {
        d->error = hlpNoMemory(executeFailed());
    }
    return hlpFinish();
}
