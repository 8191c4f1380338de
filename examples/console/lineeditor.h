// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// LineEditor: lines that the user types, with a history.
#ifndef LINEEDITOR_H
#define LINEEDITOR_H

#include <QtCore/QString>

#include <histedit.h>

#include <memory>
#include <string>

/*!
    Lets the user edit lines on the terminal, by libedit. The history is read from a file and written
    to it after each line, for the user's eyes alone; where it cannot be written, there is none the
    next time. One at a time; it wants a locale in UTF-8.
*/
class LineEditor
{
public:
    enum Answer { Line, Cleared, End }; // Cleared: by Ctrl-C

    explicit LineEditor(const QString &historyFile);

    Answer read(const QString &prompt, QString *line);

private:
    Q_DISABLE_COPY(LineEditor)

    static wchar_t *promptOf(EditLine *editor);
    static unsigned char clear(EditLine *editor, wint_t key);
    static unsigned char suspend(EditLine *editor, wint_t key);
    static LineEditor *self(EditLine *editor);
    void setUp();
    void remember(const wchar_t *line);

    std::unique_ptr<HistoryW, decltype(&history_wend)> history;
    std::unique_ptr<EditLine, decltype(&el_end)> edit;
    QByteArray file;
    std::wstring promptText;
    bool cleared = false;
};

#endif // LINEEDITOR_H
