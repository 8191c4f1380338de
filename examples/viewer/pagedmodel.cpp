// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
// PagedModel: the rows of a query, which grow as they are scrolled.
#include "examples/viewer/pagedmodel.h"

#include "examples/viewer/celltext.h"
#include "examples/viewer/waitcursor.h"

#include "engine/valuetext.h"

#include <QtCore/QLocale>
#include <QtGui/QFont>
#include <QtGui/QPalette>
#include <QtSql/QSqlDatabase>
#include <QtSql/QSqlField>

namespace {

QString countText(int rows)
{
    const QLocale english(QLocale::English, QLocale::UnitedStates);
    return english.toString(rows) + (rows == 1 ? QStringLiteral(" row") : QStringLiteral(" rows"));
}

// The bytes of a bytea or jsonb column belong to the driver's page and go with it: a deep copy.
QVariant kept(const QVariant &value)
{
    if (value.userType() != QMetaType::QByteArray) {
        return value;
    }
    const QByteArray bytes = value.toByteArray();
    return QByteArray(bytes.constData(), bytes.size());
}

QFont nullFont()
{
    QFont font;
    font.setItalic(true);
    return font;
}

// NULL must not be taken for a text of four letters.
QVariant nullData(int role)
{
    switch (role) {
    case Qt::DisplayRole:
        return cellText(QVariant(), QSqlField());
    case Qt::FontRole:
        return nullFont();
    case Qt::ForegroundRole:
        return QGuiApplication::palette().brush(QPalette::Disabled, QPalette::Text);
    default:
        return QVariant();
    }
}

QVariant valueData(const QVariant &value, const QSqlField &field, int role)
{
    switch (role) {
    case Qt::DisplayRole:
        return cellText(value, field);
    case Qt::EditRole:
        return value;
    case Qt::TextAlignmentRole:
        return int((isNumber(field) ? Qt::AlignRight : Qt::AlignLeft) | Qt::AlignVCenter);
    default:
        return QVariant();
    }
}

} // namespace

PagedModel::PagedModel(QObject *parent)
    : QAbstractTableModel(parent)
{
}

bool PagedModel::run(const QSqlDatabase &database, const QString &sql)
{
    const WaitCursor wait;
    beginResetModel();
    forget();
    query = QSqlQuery(database);
    query.setForwardOnly(true); // Qt need not keep rows, the model does
    if (query.exec(sql)) {
        start();
    } else {
        fail();
    }
    endResetModel();
    tell();
    return state != State::Failed;
}

void PagedModel::cancel()
{
    if (!isReading()) {
        return;
    }
    query.finish();
    state = State::Cancelled;
    tell();
}

void PagedModel::clear()
{
    beginResetModel();
    forget();
    endResetModel();
    tell();
}

QString PagedModel::summary() const
{
    switch (state) {
    case State::Empty:
        return QString();
    case State::Reading:
        return tr("%1 so far").arg(countText(rows.size()));
    case State::Complete:
        return countText(rows.size());
    case State::Cancelled:
        return tr("%1, then cancelled").arg(countText(rows.size()));
    case State::Failed:
        return tr("%1, then an error").arg(countText(rows.size()));
    case State::Command:
        return tr("%1 affected").arg(countText(affected));
    }
    return QString();
}

int PagedModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : rows.size();
}

int PagedModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : columns.count();
}

QVariant PagedModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid()) {
        return QVariant();
    }
    const QVariant &value = rows.at(index.row()).at(index.column());
    return value.isValid() ? valueData(value, columns.field(index.column()), role) : nullData(role);
}

QVariant PagedModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    const bool isName = orientation == Qt::Horizontal && role == Qt::DisplayRole;
    return isName ? columns.fieldName(section)
                  : QAbstractTableModel::headerData(section, orientation, role);
}

bool PagedModel::canFetchMore(const QModelIndex &parent) const
{
    return !parent.isValid() && isReading();
}

void PagedModel::fetchMore(const QModelIndex &parent)
{
    if (!canFetchMore(parent)) {
        return;
    }
    const WaitCursor wait;
    const QVector<Row> page = readPage();
    if (!page.isEmpty()) {
        beginInsertRows(QModelIndex(), rows.size(), rows.size() + page.size() - 1);
        rows += page;
        endInsertRows();
    }
    tell();
}

void PagedModel::forget()
{
    query = QSqlQuery(); // clear() needs the query's driver, which may have gone
    columns.clear();
    rows.clear();
    error = QSqlError();
    state = State::Empty;
}

void PagedModel::start()
{
    if (!query.isSelect()) {
        affected = query.numRowsAffected();
        state = State::Command;
        query.finish();
        return;
    }
    columns = query.record();
    state = State::Reading;
    rows = readPage();
}

QVector<PagedModel::Row> PagedModel::readPage()
{
    QVector<Row> page;
    page.reserve(PageRows);
    while (page.size() < PageRows && query.next()) {
        page.append(readRow());
    }
    if (page.size() < PageRows) {
        end();
    }
    return page;
}

PagedModel::Row PagedModel::readRow() const
{
    Row row;
    row.reserve(columns.count());
    for (int column = 0; column < columns.count(); ++column) {
        row.append(query.isNull(column) ? QVariant() : kept(query.value(column)));
    }
    return row;
}

// next() is false at the end and after a failure: only the error tells which. Either way the query is
// let go, as it holds a connection of the server's.
void PagedModel::end()
{
    if (query.lastError().isValid()) {
        fail();
        return;
    }
    state = State::Complete;
    query.finish();
}

void PagedModel::fail()
{
    error = query.lastError();
    state = State::Failed;
    query.clear(); // finish() lets go of an active query only; this one keeps all others failing
}

void PagedModel::tell()
{
    emit progressed();
    if (state == State::Failed) {
        emit failed(error);
    }
}
