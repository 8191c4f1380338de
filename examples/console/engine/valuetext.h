// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Column values as texts.
#ifndef VALUETEXT_H
#define VALUETEXT_H

#include <QtCore/QString>

class QSqlField;
class QSqlQuery;
class QVariant;

/*!
    \a value of the column \a field as PostgreSQL would write it, as far as the value still has what
    that takes. Never a null string; what Qt has no text for, such as a date before the year 1, is a
    question mark, and its cast to text in the query shows it.
*/
QString valueText(const QVariant &value, const QSqlField &field);

/*! The same of a column of the row that \a query stands on; a null string is NULL. */
QString columnText(const QSqlQuery &query, int column, const QSqlField &field);

/*! Whether the column holds numbers. */
bool isNumber(const QSqlField &field);

#endif // VALUETEXT_H
