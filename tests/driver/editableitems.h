// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// EditableItems: rows that can be edited in a view, as an application writes it.
#ifndef EDITABLEITEMS_H
#define EDITABLEITEMS_H

#include <QtSql/QSqlDatabase>
#include <QtSql/QSqlError>
#include <QtSql/QSqlQuery>
#include <QtSql/QSqlQueryModel>
#include <QtSql/QSqlRecord>

// Rows that can be edited in a view: each edit is an UPDATE of its own.
class EditableItems : public QSqlQueryModel
{
public:
    explicit EditableItems(const QSqlDatabase &database)
        : db(database)
    {
        refresh();
    }

    Qt::ItemFlags flags(const QModelIndex &index) const override
    {
        const Qt::ItemFlags readOnly = QSqlQueryModel::flags(index);
        return index.column() == 1 ? readOnly | Qt::ItemIsEditable : readOnly;
    }

    bool setData(const QModelIndex &index, const QVariant &value, int role = Qt::EditRole) override
    {
        if (index.column() != 1 || role != Qt::EditRole) {
            return false;
        }
        QSqlQuery update(db);
        update.prepare("UPDATE item SET name = ? WHERE id = ?");
        update.addBindValue(value);
        update.addBindValue(record(index.row()).value("id"));
        if (!update.exec()) {
            setLastError(update.lastError());
            return false;
        }
        refresh();
        return true;
    }

    void refresh() { setQuery("SELECT id, name FROM item ORDER BY id LIMIT 128", db); }

private:
    QSqlDatabase db;
};

#endif // EDITABLEITEMS_H
