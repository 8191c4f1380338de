// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Where the lines come from: a terminal, a file, an option.
#ifndef LINESOURCE_H
#define LINESOURCE_H

#include "lineeditor.h"

#include <QtCore/QString>
#include <QtCore/QStringList>

#include <cstdio>

struct Line
{
    enum Kind {
        Text,
        Cleared, // by the user; what was open is to be forgotten
        Broken,  // cannot be read; the text says why
        End
    };

    Kind kind;
    QString text;
};

class LineSource
{
public:
    LineSource() = default;
    virtual ~LineSource() = default;

    /*! The next line, asked for with \a prompt where there is somebody to ask. */
    virtual Line next(const QString &prompt) = 0;

    /*! Where the last line stands, for the errors in it; empty where that goes without saying. */
    virtual QString place() const = 0;

private:
    Q_DISABLE_COPY(LineSource)
};

/*! What the user types. */
class TypedLines : public LineSource
{
public:
    explicit TypedLines(const QString &historyFile);

    Line next(const QString &prompt) override;
    QString place() const override { return QString(); }

private:
    LineEditor editor;
};

/*! The lines of a stream, which stays the caller's; \a name is for the errors. */
class StreamLines : public LineSource
{
public:
    StreamLines(FILE *streamOfLines, const QString &nameOfStream);
    ~StreamLines() override;

    Line next(const QString &prompt) override;
    QString place() const override;

private:
    FILE *stream;
    QString name;
    int number = 0;
    char *buffer = nullptr; // getline's
    size_t size = 0;
};

/*! The lines of a text. */
class TextLines : public LineSource
{
public:
    explicit TextLines(const QString &text);

    Line next(const QString &prompt) override;
    QString place() const override { return QStringLiteral("line %1: ").arg(number); }

private:
    QStringList lines;
    int number = 0;
};

#endif // LINESOURCE_H
