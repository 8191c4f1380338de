// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// documentTable: what a table of a page in docs/ says, for tests that hold it.
#ifndef DOCUMENTTABLE_H
#define DOCUMENTTABLE_H

#include <QtCore/QList>
#include <QtCore/QString>
#include <QtCore/QStringList>

/*!
    The rows below the head of the first table in docs/\a page whose first column is called \a head,
    cell by cell, without the blanks around them. A row with another number of cells than the head
    ends the test program, and so does a page without such a table.
*/
QList<QStringList> documentTable(const QString &page, const QString &head);

/*! What stands in back quotes in \a cell. */
QStringList quotedIn(const QString &cell);

#endif // DOCUMENTTABLE_H
