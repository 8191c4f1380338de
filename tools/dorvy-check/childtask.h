// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// runTask: work in a process of its own, which it may end or hold up.
#ifndef CHILDTASK_H
#define CHILDTASK_H

#include <QtCore/QJsonObject>
#include <QtCore/QString>

#include <functional>

/*! What a task says to the program that started it. */
class TaskChannel
{
public:
    explicit TaskChannel(int pipeDescriptor);

    void send(const QJsonObject &object) const;

private:
    int descriptor;
};

/*! How a task ended. */
struct TaskEnd
{
    bool isWhole;   // the task returned
    QString reason; // why it did not: a signal, the silence, Qt's fatal message
};

/*!
    Runs \a task in a forked process and hands each object that it sends to \a received. A task that
    ends its process, through a crash or Qt's fatal message, ends that one alone; one that sends nothing
    for \a seconds is killed. Its standard output is thrown away, and no core file is written.

    What it prints on standard error is kept in a file that it can read itself: see errorOutput().
*/
TaskEnd runTask(const std::function<void(const TaskChannel &)> &task,
                const std::function<void(const QJsonObject &)> &received, int seconds);

/*! In a task: what has been printed on standard error since the last call. */
QByteArray errorOutput();

#endif // CHILDTASK_H
