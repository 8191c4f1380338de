// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The words behind a command.
#ifndef WORDS_H
#define WORDS_H

#include <QtCore/QString>
#include <QtCore/QVector>

struct Word
{
    QString text;
    bool quoted; // so that 'NULL' can be told from NULL
};

/*!
    Takes \a text apart at its blanks. A word in single quotes may hold blanks, and doubled quotes
    for quotes: 'it''s'. False where quotes are not closed.
*/
bool splitWords(const QString &text, QVector<Word> *words);

#endif // WORDS_H
