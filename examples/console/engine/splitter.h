// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Splitter: takes a script apart into statements and commands.
#ifndef SPLITTER_H
#define SPLITTER_H

#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVector>

/*! What a script is made of: a statement without its semicolon, or a command with its backslash. */
struct Piece
{
    enum Kind { Statement, Command };

    Kind kind;
    QString text;
};

/*!
    Takes lines and gives pieces. A statement ends at a semicolon that stands in no quotes, comment,
    parentheses or function body between BEGIN ATOMIC and END; a command begins with a backslash
    outside all quotes and comments and ends with its line, also in the midst of a statement.

    Qt looks for placeholders in what is sent, and knows no comments, no dollar quotes and no
    backslashes in quotes: a question mark or an apostrophe in one of them would be taken for
    something else. So a statement is given without its comments, and with its texts quoted in the
    one way that Qt reads as the server does. Its lines stay as they are, for the server's "LINE 2".
*/
class Splitter
{
public:
    /*! The pieces that \a line, which has no line end, completes. */
    QVector<Piece> feed(const QString &line);

    /*! The statement that has no semicolon behind it yet; empty if there is none. */
    QString rest() const { return statement.trimmed(); }

    /*! Whether nothing of a statement has come, apart from comments that have ended. */
    bool isEmpty() const;

    /*!
        What is open at the end of the last line: a quote (' or "), a dollar quote ($), a comment
        (/), a parenthesis ((), or nothing but the statement (-).
    */
    QChar open() const;

    /*! Forgets what has come of a statement. */
    void clear() { *this = Splitter(); }

private:
    enum State { Plain, Quoted, Escaped, Name, Dollar, Comment };

    int step(const QString &text, int at, QVector<Piece> &pieces);
    int plain(const QString &text, int at, QVector<Piece> &pieces);
    int opening(const QString &text, int at);
    int dollarOpening(const QString &text, int at);
    int quoted(const QString &text, int at, QChar quote);
    int escaped(const QString &text, int at);
    int dollar(const QString &text, int at);
    int comment(const QString &text, int at);
    void endWord();
    bool isRoutine() const;
    bool endsHere() const { return parentheses == 0 && bodies == 0; }
    void endStatement(QVector<Piece> &pieces);

    State state = Plain;
    QString statement; // as it will be sent
    QString tag;       // of the dollar quotes that are open, with its signs
    QString word;      // that is being read
    QStringList first; // words of the statement, as many as tell CREATE OR REPLACE FUNCTION
    int comments = 0;  // one in another
    int parentheses = 0;
    int bodies = 0; // BEGIN and CASE of a function's body that wait for their END
};

#endif // SPLITTER_H
