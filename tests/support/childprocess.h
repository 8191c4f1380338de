// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// runInChild: code that is meant to end its process.
#ifndef CHILDPROCESS_H
#define CHILDPROCESS_H

#include <QtCore/QString>

#include <functional>

struct ChildOutcome
{
    bool aborted;    // the process was ended by abort(), as Qt's fatal message does
    QString fatal;   // the fatal message, empty if there was none
    QString context; // its "category file line function", as "default (null) 0 (null)"
    QString output;  // what the child printed on standard output and error beside it
};

/*!
    Runs \a code in a forked child and tells how that ended. The child returns normally when \a code
    does, and is killed after a minute. Connections that the parent opened must not be used in it:
    open them inside \a code.
*/
ChildOutcome runInChild(const std::function<void()> &code);

/*! Compares the outcome with an expected fatal message, in a test function. */
#define VERIFY_FATAL(outcome, message)                                                             \
    do {                                                                                           \
        const ChildOutcome fatalOutcome = (outcome);                                               \
        QCOMPARE(fatalOutcome.fatal, QStringLiteral(message));                                     \
        QVERIFY(fatalOutcome.aborted);                                                             \
    } while (false)

#endif // CHILDPROCESS_H
