// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// PgCluster: a private PostgreSQL server for one test program.
#ifndef PGCLUSTER_H
#define PGCLUSTER_H

#include <QtCore/QProcess>
#include <QtCore/QString>
#include <QtCore/QStringList>

/*!
    A PostgreSQL cluster of its own, in a private folder under the temporary directory, reachable
    through a Unix socket in that folder and a TCP port on 127.0.0.1. The superuser is "dorvy" and
    needs no password; members of the role "passworded" log in with SCRAM-SHA-256, on either way.
    What the server is told to listen on besides, on loopback, lets in the same. Fsync is off.

    When the tests run as root, the server runs as "nobody", since PostgreSQL refuses root. The
    programs come from the folder in the environment variable DORVY_TEST_PGBIN, or from the
    PostgreSQL that the build found.

    A keeper process stops the server and removes the folder when the object goes, and also when the
    test program dies in any other way.
*/
class PgCluster
{
public:
    PgCluster();
    ~PgCluster();

    /*!
        Makes the cluster and starts it, with \a settings as further lines of postgresql.conf. False
        on failure; why() says why.
    */
    bool start(const QStringList &settings = QStringList());

    /*!
        Makes a hot standby of \a primary and starts it. The primary is stopped for as long as its
        data are copied. False on failure; why() says why.
    */
    bool startStandbyOf(PgCluster &primary);

    /*! Ends the recovery of a standby: from then on it takes writes. */
    void promote();

    /*! Stops the server; \a mode is "fast" or "immediate". The data stay. */
    void stop(const QString &mode = QStringLiteral("fast"));

    /*! Starts the server again after stop(). */
    bool restart();

    QString why() const { return reason; }

    /*! Where to connect: the folder of the Unix socket, and the port of socket and loopback. */
    QString socketDir() const { return folder; }
    int port() const { return serverPort; }
    QString user() const { return QStringLiteral("dorvy"); }

    /*! The server's major version, 15 for 15.3. */
    int major() const;

    /*! A connection string for libpq, through the Unix socket. */
    QByteArray conninfo(const QString &database = QStringLiteral("postgres")) const;

    /*!
        Runs \a sql on a connection of its own, as the superuser, by plain libpq. Returns the rows,
        columns separated by "|", and stops the test program with the server's message on failure.
    */
    QStringList run(const QString &sql, const QString &database = QStringLiteral("postgres")) const;

    /*! The first column of the first row of run(). */
    QString value(const QString &sql, const QString &database = QStringLiteral("postgres")) const;

    /*!
        Makes a database. \a encoding is PostgreSQL's name of it; its locale is C.
    */
    void createDatabase(const QString &name, const QString &encoding = QStringLiteral("UTF8"));

    /*! Ends the backend \a pid and waits until its process, and so its socket, is gone. */
    void terminate(int pid) const;

    /*!
        Writes the file \a name of the data folder, for the server's user alone to read. A failure
        stops the test program.
    */
    void writeFile(const QString &name, const QByteArray &bytes) const;

    /*!
        Lets the server read its configuration again, which is in force when this returns: for all
        that connect from then on.
    */
    void reload() const;

    /*! Lines of the server's log. */
    QStringList log() const;

private:
    Q_DISABLE_COPY(PgCluster)

    bool hlpFail(const QString &text);
    bool hlpMakeFolder();
    bool hlpStartKeeper(const QString &data);
    QString hlpAsk(const QString &command);
    bool hlpConfigure(const QStringList &settings) const;
    bool hlpFollow(const PgCluster &primary) const;
    bool hlpAwait(int server) const;
    bool hlpHoldPort();
    void hlpReleasePort();
    bool hlpStartServer();

    QProcess keeper;
    QString folder;
    QString reason;
    int portHolder; // keeps serverPort for the server, also while that is stopped
    int serverPort;
};

#endif // PGCLUSTER_H
