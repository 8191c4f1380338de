// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// OpenResult: a result of the driver with what Qt alone calls in the open.
#ifndef OPENRESULT_H
#define OPENRESULT_H

#include "driver/dorvyresult.h"
#include "driver/dorvyresult_p.h"

class OpenResult : public DorvyResult
{
public:
    using DorvyResult::data;
    using DorvyResult::detachFromResultSet;
    using DorvyResult::DorvyResult;
    using DorvyResult::exec;
    using DorvyResult::execBatch;
    using DorvyResult::fetch;
    using DorvyResult::fetchFirst;
    using DorvyResult::fetchLast;
    using DorvyResult::fetchNext;
    using DorvyResult::fetchPrevious;
    using DorvyResult::isNull;
    using DorvyResult::lastInsertId;
    using DorvyResult::nextResult;
    using DorvyResult::numRowsAffected;
    using DorvyResult::prepare;
    using DorvyResult::record;
    using DorvyResult::reset;
    using DorvyResult::savePrepare;
    using DorvyResult::setActive;
    using DorvyResult::setAt;
    using DorvyResult::setForwardOnly;
    using DorvyResult::setLastError;
    using DorvyResult::setNumericalPrecisionPolicy;
    using DorvyResult::setQuery;
    using DorvyResult::setSelect;
    using DorvyResult::size;
    using DorvyResult::virtual_hook;
    using QSqlResult::addBindValue;
    using QSqlResult::at;
    using QSqlResult::bindingSyntax;
    using QSqlResult::bindValue;
    using QSqlResult::boundValueCount;
    using QSqlResult::driver;
    using QSqlResult::isActive;
    using QSqlResult::isSelect;
    using QSqlResult::lastError;
    using QSqlResult::PositionalBinding;

    DorvyResultPrivate &half() { return *static_cast<DorvyResultPrivate *>(d_ptr); }

    /*! The entry of this result in its driver's list. */
    qint64 address() const { return reinterpret_cast<qint64>(d_ptr); }
};

#endif // OPENRESULT_H
