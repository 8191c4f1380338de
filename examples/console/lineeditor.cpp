// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// LineEditor: lines that the user types, with a history.
#include "lineeditor.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#include <csignal>
#include <cstdio>

namespace {

constexpr int HistoryLines = 1000;

} // namespace

LineEditor::LineEditor(const QString &historyFile)
    : history(history_winit(), &history_wend)
    , edit(el_init("dorvy-console", stdin, stdout, stderr), &el_end)
    , file(QFile::encodeName(historyFile))
{
    QDir().mkpath(QFileInfo(historyFile).path());
    HistEventW event;
    history_w(history.get(), &event, H_SETSIZE, HistoryLines);
    history_w(history.get(), &event, H_SETUNIQUE, 1);
    history_w(history.get(), &event, H_LOAD, file.constData()); // there is none the first time
    setUp();
}

void LineEditor::setUp()
{
    EditLine *editor = edit.get();
    el_wset(editor, EL_CLIENTDATA, this);
    el_wset(editor, EL_PROMPT, &LineEditor::promptOf);
    el_wset(editor, EL_SIGNAL,
            1); // it leaves the terminal as it was when a signal ends or stops us
    el_wset(editor, EL_EDITOR, L"emacs");
    el_wset(editor, EL_HIST, history_w, history.get());
    el_source(editor, nullptr); // the user's own .editrc
    // Ctrl-C as a key, not as a signal, after which libedit would read on; and so Ctrl-Z, too.
    el_wset(editor, EL_SETTY, L"-d", L"-isig", nullptr);
    el_wset(editor, EL_ADDFN, L"clear-statement", L"Clears the statement", &LineEditor::clear);
    el_wset(editor, EL_BIND, L"^C", L"clear-statement", nullptr);
    el_wset(editor, EL_ADDFN, L"suspend", L"Stops the program", &LineEditor::suspend);
    el_wset(editor, EL_BIND, L"^Z", L"suspend", nullptr);
}

LineEditor *LineEditor::self(EditLine *editor)
{
    void *data = nullptr;
    el_wget(editor, EL_CLIENTDATA, &data);
    return static_cast<LineEditor *>(data);
}

wchar_t *LineEditor::promptOf(EditLine *editor)
{
    return &self(editor)->promptText[0];
}

unsigned char LineEditor::clear(EditLine *editor, wint_t key)
{
    Q_UNUSED(key)
    self(editor)->cleared = true;
    return CC_EOF;
}

unsigned char LineEditor::suspend(EditLine *editor, wint_t key)
{
    Q_UNUSED(editor)
    Q_UNUSED(key)
    std::raise(SIGTSTP);
    return CC_REDISPLAY;
}

LineEditor::Answer LineEditor::read(const QString &prompt, QString *line)
{
    promptText = prompt.toStdWString();
    cleared = false;
    int count = 0;
    el_wset(edit.get(), EL_PREP_TERM, 1); // before the prompt, after which the user may type a key
    const wchar_t *typed = el_wgets(edit.get(), &count);
    if (!typed || count <= 0) {
        std::puts(cleared ? "^C" : "");
        return cleared ? Cleared : End;
    }
    remember(typed);
    *line = QString::fromWCharArray(typed, count);
    if (line->endsWith(QLatin1Char('\n'))) {
        line->chop(1);
    }
    return Line;
}

void LineEditor::remember(const wchar_t *line)
{
    if (QString::fromWCharArray(line).trimmed().isEmpty()) {
        return;
    }
    HistEventW event;
    history_w(history.get(), &event, H_ENTER, line);
    history_w(history.get(), &event, H_SAVE, file.constData());
}
