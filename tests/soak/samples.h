// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Samples: what a long run holds, taken on the way and compared at its end.
#ifndef SAMPLES_H
#define SAMPLES_H

#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVector>

/*! What the server holds for the sessions of the run. */
struct ServerSide
{
    int backends = 0;
    int statements = 0;
    int cursors = 0;
};

struct Sample
{
    int done = 0;           // queries or cycles
    int descriptors = 0;    // open files of this process
    qint64 residentKib = 0; // of this process
    qint64 inUseKib = 0;    // of what it has allocated
    ServerSide server;
};

/*!
    The samples of one phase of a run. The first is taken after its first tenth, when everything that
    is made once has been made: buffers, caches, the allocator's own lists.
*/
class Samples
{
public:
    /*! Memory may grow by \a growthKib from the first sample to the last. */
    Samples(const QString &phase, qint64 growthKib);

    /*! Takes a sample and prints it. */
    void take(int done, const ServerSide &server);

    /*! What has grown or is left on a server that is to have \a backends; empty if all is well. */
    QStringList faults(int backends) const;

private:
    QStringList hlpClientFaults() const;

    QString phase;
    qint64 growthKib;
    QVector<Sample> samples;
};

#endif // SAMPLES_H
