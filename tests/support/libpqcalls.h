// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// LibpqCalls: which connections libpq is asked to make and to finish.
#ifndef LIBPQCALLS_H
#define LIBPQCALLS_H

#include <libpq-fe.h>

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QMutex>

/*!
    While one lives, the calls of PQconnectdb and PQfinish are written down, from whatever thread
    they come. At most one lives at a time. The program that uses it links dorvy_libpq_calls, whose
    linker options lead the two calls here.
*/
class LibpqCalls
{
public:
    LibpqCalls();
    ~LibpqCalls();

    /*! From now on PQconnectdb returns null, as it does when there is no memory for a handle. */
    void refuseConnections();

    /*! The connection strings in the order of the calls. */
    QList<QByteArray> connected() const;

    /*! The handles in the order of the calls; those of the past, so not to be used. */
    QList<const PGconn *> finished() const;

    /*! The call itself, for the linker's names. */
    static PGconn *connect(const char *conninfo);
    static void finish(PGconn *connection);

private:
    Q_DISABLE_COPY(LibpqCalls)

    bool hlpNoteConnect(const char *conninfo);

    mutable QMutex mutex; // guards what follows
    bool refusing;
    QList<QByteArray> strings;
    QList<const PGconn *> handles;
};

#endif // LIBPQCALLS_H
