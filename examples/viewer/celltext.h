// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
// The text of a cell, from a column's value.
#ifndef CELLTEXT_H
#define CELLTEXT_H

#include <QtCore/QString>
#include <QtCore/QVariant>

class QSqlField;

/*!
    What a cell shows of \a value, of the column \a field: one that is invalid stands for NULL, others
    are shown as the console prints them. A text is cut off at \a characters, with an ellipsis, since a
    view lays out all that it is given.
*/
QString cellText(const QVariant &value, const QSqlField &field, int characters = 300);

#endif // CELLTEXT_H
