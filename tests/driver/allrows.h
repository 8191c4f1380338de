// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// AllRows: a model of all rows of a query, as an application writes it.
#ifndef ALLROWS_H
#define ALLROWS_H

#include <QtCore/QAbstractTableModel>
#include <QtCore/QVector>
#include <QtSql/QSqlQuery>
#include <QtSql/QSqlRecord>

// All rows of a query, for views and proxies that have to see every one.
class AllRows : public QAbstractTableModel
{
public:
    void load(QSqlQuery &query)
    {
        beginResetModel();
        columns = query.record();
        rows.clear();
        while (query.next()) {
            QVector<QVariant> row;
            for (int column = 0; column < columns.count(); ++column) {
                row.append(kept(query.value(column)));
            }
            rows.append(row);
        }
        endResetModel();
    }

    int rowCount(const QModelIndex &parent = QModelIndex()) const override
    {
        return parent.isValid() ? 0 : rows.size();
    }

    int columnCount(const QModelIndex &parent = QModelIndex()) const override
    {
        return parent.isValid() ? 0 : columns.count();
    }

    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override
    {
        const bool isShown = role == Qt::DisplayRole || role == Qt::EditRole;
        return index.isValid() && isShown ? rows.at(index.row()).at(index.column()) : QVariant();
    }

    QVariant headerData(int section, Qt::Orientation orientation, int role) const override
    {
        const bool isName = orientation == Qt::Horizontal && role == Qt::DisplayRole;
        return isName ? columns.fieldName(section)
                      : QAbstractTableModel::headerData(section, orientation, role);
    }

private:
    // The bytes of a bytea or jsonb column belong to the page and go with it.
    static QVariant kept(const QVariant &value)
    {
        if (value.type() != QVariant::ByteArray || value.isNull()) {
            return value;
        }
        const QByteArray bytes = value.toByteArray();
        return QByteArray(bytes.constData(), bytes.size());
    }

    QSqlRecord columns;
    QVector<QVector<QVariant>> rows;
};

#endif // ALLROWS_H
