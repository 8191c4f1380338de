// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Output: lines for standard output and standard error.
#include "output.h"

#include <cstdio>

void Output::line(const QString &text)
{
    const QByteArray bytes = text.toUtf8() + '\n';
    const auto size = static_cast<size_t>(bytes.size());
    good = good && std::fwrite(bytes.constData(), 1, size, stdout) == size;
}

void Output::lines(const QStringList &texts)
{
    for (const QString &text : texts) {
        line(text);
    }
}

void Output::errorLine(const QString &text)
{
    flush();
    std::fputs((text.toUtf8() + '\n').constData(), stderr);
}

void Output::flush()
{
    good = std::fflush(stdout) == 0 && good;
}
