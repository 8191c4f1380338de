// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// What the program does with messages of Qt and the driver.
#include "fatal.h"

#include <QtCore/QMessageLogContext>

#include <cstdio>

#include <unistd.h>

namespace {

// The driver's fatal message comes in the midst of its work, and there is no way back from it: what
// called it relies on its not returning. So all that can be done is to end in good order.
void handle(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    Q_UNUSED(context)
    if (type == QtDebugMsg || type == QtInfoMsg) {
        return;
    }
    std::fflush(stdout);
    std::fprintf(stderr, "%s\n", message.toUtf8().constData());
    if (type == QtFatalMsg) {
        std::fprintf(stderr, "%s\n", fatalAdvice().toUtf8().constData());
        std::fflush(nullptr);
        _exit(FatalStatus);
    }
}

} // namespace

QString fatalAdvice()
{
    return QStringLiteral(
        "A column or a value of a type that the driver does not take ends the program.\n"
        "Cast the column, as in SELECT oid::int8, address::text, or the placeholder, as in\n"
        "CAST(? AS text)::uuid.");
}

void installMessageHandler()
{
    qInstallMessageHandler(handle);
}
