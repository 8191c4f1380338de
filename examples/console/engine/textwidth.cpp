// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// How wide a text is on a terminal, and texts that keep to one line.
#include "textwidth.h"

#include <QtCore/QVector>

#include <cwchar>

namespace {

constexpr ushort ControlPictures = 0x2400; // of the characters 0 to 0x1f, in their order
constexpr ushort DeletePicture = 0x2421;

QChar picture(QChar character)
{
    const ushort code = character.unicode();
    if (code < 0x20) {
        return QChar(ControlPictures + code);
    }
    return code == 0x7f ? QChar(DeletePicture) : QChar(QChar::ReplacementCharacter);
}

} // namespace

int textWidth(const QString &text)
{
    int width = 0;
    const QVector<uint> characters = text.toUcs4();
    for (const uint character : characters) {
        const int columns = wcwidth(static_cast<wchar_t>(character));
        width += columns < 0 ? 1 : columns;
    }
    return width;
}

QString onOneLine(QString text)
{
    for (QChar &character : text) {
        if (character.category() == QChar::Other_Control) {
            character = picture(character);
        }
    }
    return text;
}

QString padded(const QString &text, int width, bool toTheRight)
{
    const QString blanks(qMax(0, width - textWidth(text)), QLatin1Char(' '));
    return toTheRight ? blanks + text : text + blanks;
}
