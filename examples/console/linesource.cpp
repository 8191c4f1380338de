// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Where the lines come from: a terminal, a file, an option.
#include "linesource.h"

#include <QtCore/QTextCodec>

#include <cstdlib>

namespace {

// A character never spans two lines, so each can be looked at for itself.
Line lineOf(const QByteArray &bytes)
{
    QTextCodec::ConverterState state;
    const QString text =
        QTextCodec::codecForName("UTF-8")->toUnicode(bytes.constData(), bytes.size(), &state);
    if (state.invalidChars > 0 || state.remainingChars > 0 || bytes.contains('\0')) {
        return {Line::Broken, QStringLiteral("not UTF-8, or a zero byte; the script ends here")};
    }
    return {Line::Text, text};
}

} // namespace

TypedLines::TypedLines(const QString &historyFile)
    : editor(historyFile)
{
}

Line TypedLines::next(const QString &prompt)
{
    QString text;
    switch (editor.read(prompt, &text)) {
    case LineEditor::Line:
        return {Line::Text, text};
    case LineEditor::Cleared:
        return {Line::Cleared, QString()};
    case LineEditor::End:
        break;
    }
    return {Line::End, QString()};
}

StreamLines::StreamLines(FILE *streamOfLines, const QString &nameOfStream)
    : stream(streamOfLines)
    , name(nameOfStream)
{
}

StreamLines::~StreamLines()
{
    std::free(buffer);
}

Line StreamLines::next(const QString &prompt)
{
    Q_UNUSED(prompt)
    const ssize_t count = getline(&buffer, &size, stream);
    if (count < 0 && std::ferror(stream)) {
        return {Line::Broken, QStringLiteral("cannot be read on; the script ends here")};
    }
    if (count < 0) {
        return {Line::End, QString()};
    }
    ++number;
    QByteArray bytes(buffer, static_cast<int>(count));
    if (bytes.endsWith('\n')) {
        bytes.chop(1);
    }
    return lineOf(bytes);
}

QString StreamLines::place() const
{
    return name.isEmpty() ? QStringLiteral("line %1: ").arg(number)
                          : QStringLiteral("%1:%2: ").arg(name).arg(number);
}

TextLines::TextLines(const QString &text)
    : lines(text.split(QLatin1Char('\n')))
{
}

Line TextLines::next(const QString &prompt)
{
    Q_UNUSED(prompt)
    if (number >= lines.size()) {
        return {Line::End, QString()};
    }
    return {Line::Text, lines.at(number++)};
}
