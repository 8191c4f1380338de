// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Splitter: takes a script apart into statements and commands.
#include "splitter.h"

#include <QtCore/QRegularExpression>

#include <algorithm>

namespace {

constexpr int FirstWords = 4; // CREATE OR REPLACE FUNCTION

bool isNameCharacter(QChar character)
{
    return character.isLetterOrNumber() || character == QLatin1Char('_') ||
           character == QLatin1Char('$') || character.unicode() > 0x7f;
}

// The opening of dollar quotes at this dollar sign, such as $$ or $body$; empty if there is none. No
// regular expression: each match would look through the whole line, and a line can have many signs.
QString dollarTag(const QString &text, int at)
{
    const auto isInTag = [](QChar character) {
        return isNameCharacter(character) && character != QLatin1Char('$');
    };
    const auto from = text.cbegin() + at + 1;
    const auto end = std::find_if_not(from, text.cend(), isInTag);
    const bool isClosed = end != text.cend() && *end == QLatin1Char('$');
    const bool isNumber = isClosed && *from >= QLatin1Char('0') && *from <= QLatin1Char('9');
    return isClosed && !isNumber ? text.mid(at, static_cast<int>(end - from) + 2) : QString();
}

bool hasAt(const QString &text, int at, const char *what)
{
    return text.midRef(at, 2) == QLatin1String(what);
}

// The inside of a text as it stands between E' and '.
QString escapedBody(QString body)
{
    return body.replace(QLatin1Char('\\'), QLatin1String("\\\\"))
        .replace(QLatin1Char('\''), QLatin1String("''"));
}

} // namespace

QVector<Piece> Splitter::feed(const QString &line)
{
    QVector<Piece> pieces;
    const QString text = line + QLatin1Char('\n');
    for (int at = 0; at < text.size();) {
        at = step(text, at, pieces);
    }
    return pieces;
}

// Asked at each line: rest() would copy the whole statement as often as it has lines.
bool Splitter::isEmpty() const
{
    return state == Plain && std::all_of(statement.cbegin(), statement.cend(),
                                         [](QChar character) { return character.isSpace(); });
}

QChar Splitter::open() const
{
    switch (state) {
    case Quoted:
    case Escaped:
        return QLatin1Char('\'');
    case Name:
        return QLatin1Char('"');
    case Dollar:
        return QLatin1Char('$');
    case Comment:
        return QLatin1Char('/');
    case Plain:
        break;
    }
    return parentheses > 0 ? QLatin1Char('(') : QLatin1Char('-');
}

// Reads on from a place in the line, and tells how far it came.
int Splitter::step(const QString &text, int at, QVector<Piece> &pieces)
{
    switch (state) {
    case Quoted:
        return quoted(text, at, QLatin1Char('\''));
    case Name:
        return quoted(text, at, QLatin1Char('"'));
    case Escaped:
        return escaped(text, at);
    case Dollar:
        return dollar(text, at);
    case Comment:
        return comment(text, at);
    case Plain:
        break;
    }
    return plain(text, at, pieces);
}

int Splitter::plain(const QString &text, int at, QVector<Piece> &pieces)
{
    const QChar character = text.at(at);
    if (character == QLatin1Char('\\')) {
        pieces.append({Piece::Command, text.mid(at).trimmed()});
        return text.size();
    }
    if (hasAt(text, at, "--")) {
        return text.size() - 1; // the line end stays
    }
    if (const int end = opening(text, at)) {
        return end;
    }
    if (isNameCharacter(character)) {
        word += character;
    } else {
        endWord();
    }
    if (character == QLatin1Char(';') && endsHere()) {
        endStatement(pieces);
        return at + 1;
    }
    if (character == QLatin1Char('(')) {
        ++parentheses;
    } else if (character == QLatin1Char(')')) {
        parentheses = qMax(0, parentheses - 1);
    }
    statement += character;
    return at + 1;
}

// Whether quotes or a comment open here: where their inside begins, or 0.
int Splitter::opening(const QString &text, int at)
{
    const QChar character = text.at(at);
    if (hasAt(text, at, "/*")) {
        endWord();
        statement += QLatin1Char(' '); // it parts words
        state = Comment;
        comments = 1;
        return at + 2;
    }
    if (character == QLatin1Char('\'')) {
        state = word.compare(QLatin1String("e"), Qt::CaseInsensitive) == 0 ? Escaped : Quoted;
    } else if (character == QLatin1Char('"')) {
        state = Name;
    } else {
        return character == QLatin1Char('$') ? dollarOpening(text, at) : 0;
    }
    endWord();
    statement += character;
    return at + 1;
}

int Splitter::dollarOpening(const QString &text, int at)
{
    // A dollar sign within a name is part of it.
    tag = word.isEmpty() ? dollarTag(text, at) : QString();
    if (tag.isEmpty()) {
        return 0;
    }
    statement += QLatin1String(" E'"); // a blank, as what stands before may touch it
    state = Dollar;
    return at + tag.size();
}

// A doubled quote closes and opens again, which comes to the same.
int Splitter::quoted(const QString &text, int at, QChar quote)
{
    const int end = text.indexOf(quote, at);
    if (end < 0) {
        statement += text.midRef(at);
        return text.size();
    }
    statement += text.midRef(at, end + 1 - at);
    state = Plain;
    return end + 1;
}

int Splitter::escaped(const QString &text, int at)
{
    if (hasAt(text, at, "\\'") || hasAt(text, at, "''")) {
        statement += QLatin1String("''");
        return at + 2;
    }
    if (text.at(at) == QLatin1Char('\\')) {
        statement += text.midRef(at, 2);
        return at + 2;
    }
    if (text.at(at) == QLatin1Char('\'')) {
        state = Plain;
    }
    statement += text.at(at);
    return at + 1;
}

int Splitter::dollar(const QString &text, int at)
{
    const int end = text.indexOf(tag, at);
    statement += escapedBody(text.mid(at, end < 0 ? -1 : end - at));
    if (end < 0) {
        return text.size();
    }
    statement += QLatin1Char('\'');
    state = Plain;
    return end + tag.size();
}

int Splitter::comment(const QString &text, int at)
{
    if (hasAt(text, at, "/*")) {
        ++comments;
        return at + 2;
    }
    if (hasAt(text, at, "*/")) {
        state = --comments == 0 ? Plain : Comment;
        return at + 2;
    }
    if (text.at(at) == QLatin1Char('\n')) {
        statement += QLatin1Char('\n');
    }
    return at + 1;
}

// Only the body of a routine has semicolons between BEGIN and END.
void Splitter::endWord()
{
    if (word.isEmpty()) {
        return;
    }
    const QString lower = word.toLower();
    word.clear();
    if (first.size() < FirstWords) {
        first += lower;
    }
    if (!isRoutine()) {
        return;
    }
    if (lower == QLatin1String("begin") || (lower == QLatin1String("case") && bodies > 0)) {
        ++bodies;
    } else if (lower == QLatin1String("end") && bodies > 0) {
        --bodies;
    }
}

bool Splitter::isRoutine() const
{
    static const QRegularExpression routine(
        QStringLiteral("^create (or replace )?(function|procedure)\\b"));
    return routine.match(first.join(QLatin1Char(' '))).hasMatch();
}

void Splitter::endStatement(QVector<Piece> &pieces)
{
    const QString text = rest();
    clear();
    if (!text.isEmpty()) {
        pieces.append({Piece::Statement, text});
    }
}
