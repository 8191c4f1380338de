// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Exchanges: what the tests of how often the driver waits for the server stand on.
#ifndef EXCHANGES_H
#define EXCHANGES_H

#include "tests/driver/behaviour.h"
#include "tests/support/serverwaits.h"
#include "tests/support/sqlmacros.h"
#include "tests/support/wireproxy.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QMap>
#include <QtCore/QRegularExpression>
#include <QtCore/QScopedPointer>

#include <algorithm>
#include <functional>
#include <limits>

constexpr qint64 NsecPerMsec = 1000000;
constexpr int LatencyMsec = 20;
constexpr int WorkMsec = 10; // the most that an operation takes beside its exchanges
constexpr int Attempts = 50; // at a time, which a loaded machine can only add to

/*! What is measured, and what is done before it each time. */
struct Operation
{
    std::function<void()> approach;
    std::function<void()> run;
};

/*!
    A server with the empty table "t", and an application's database "app" on it through a recording
    proxy, with no spare connection in its pool. Its own connection is number 1, the borrowed one 2.

    An exchange is a write that the driver waits for the answer to. Exchanges are counted where
    libpq waits: the record alone does not tell whether a client has waited for an answer or just
    found it there. That the count is right shows in the time that it takes when every answer is
    late.
*/
class Exchanges : protected Behaviour
{
protected:
    /*! For initTestCase(). */
    bool startWithTable()
    {
        const bool started = start();
        if (started) {
            cluster.run(QStringLiteral("CREATE TABLE t (id serial, a int)"));
        }
        return started;
    }

    /*! For init(). */
    bool openThroughProxy()
    {
        cluster.run(QStringLiteral("TRUNCATE t"));
        pool = QSharedPointer<Dorvy3Transacted>::create();
        proxy.reset(new WireProxy(cluster.socketDir(), cluster.port()));
        db = another(QStringLiteral("app"));
        db.setHostName(proxy->host());
        db.setPort(proxy->port());
        db.setConnectOptions(QStringLiteral("sslmode=disable;gssencmode=disable"));
        return db.open();
    }

    /*!
        What the client has said since the record began, a line for each time that it asked for an
        answer, such as "2> Close Bind Describe Execute" or "1> BEGIN": a plain query's text, or the
        kinds of the messages up to a Sync. The connections stand one behind the other.
    */
    QStringList requests()
    {
        waits.pause(); // what was sent has been recorded then
        QMap<int, QStringList> lines;
        QMap<int, QString> words; // since the last line
        for (const WireMessage &message : proxy->messages()) {
            if (!message.fromClient) {
                continue;
            }
            QString &line = words[message.connection];
            line += word(message);
            if (!QByteArray("PBDCE").contains(message.type)) {
                lines[message.connection] += QString::number(message.connection) + u'>' + line;
                line.clear();
            }
        }
        QStringList all;
        for (const QStringList &ofOne : qAsConst(lines)) {
            all += ofOne;
        }
        return all;
    }

    /*! How many exchanges \a operation makes. The record begins with it. */
    int exchangesOf(const Operation &operation)
    {
        operation.approach();
        waits.pause();
        proxy->clear();
        const int before = waits.count();
        operation.run();
        return waits.count() - before;
    }

    /*! The time of \a operation, in nanoseconds, where every answer comes a latency late. */
    qint64 lateTimeOf(const Operation &operation)
    {
        operation.approach();
        waits.pause();
        proxy->delayReplies(LatencyMsec);
        QElapsedTimer timer;
        timer.start();
        operation.run();
        const qint64 nsec = timer.nsecsElapsed();
        waits.pause();
        proxy->delayReplies(0);
        return nsec;
    }

    /*! Verifies that \a operation takes \a exchanges latencies and hardly more. */
    void verifyTime(const Operation &operation, int exchanges)
    {
        const qint64 latencies = exchanges * LatencyMsec * NsecPerMsec;
        const qint64 most = latencies + WorkMsec * NsecPerMsec;
        qint64 least = std::numeric_limits<qint64>::max();
        for (int i = 0; i < Attempts && least > most; ++i) {
            least = std::min(least, lateTimeOf(operation));
        }
        const QString time = QStringLiteral("%1 ns of %2 ns").arg(least).arg(latencies);
        QVERIFY2(least >= latencies && least <= most, qPrintable(time));
    }

    /*! Verifies that \a operation makes \a exchanges, in count and time, and says \a said. */
    void verify(const Operation &operation, int exchanges, const QStringList &said)
    {
        QCOMPARE(exchangesOf(operation), exchanges);
        QCOMPARE(requests(), said);
        verifyTime(operation, exchanges);
    }

    QScopedPointer<WireProxy> proxy;
    ServerWaits waits;

private:
    // A message's part of a line.
    static QString word(const WireMessage &message)
    {
        const QString line = WireWords().line(message);
        if (message.type == 'S') {
            return QString(); // ends every line but a plain query's
        }
        if (message.type != 'Q') {
            return u' ' + line.section(u' ', 1, 1);
        }
        // The name of a savepoint is made from an address.
        return u' ' +
               line.section(u'"', 1, 1).remove(QRegularExpression(QStringLiteral(" dstmt\\w+")));
    }
};

#endif // EXCHANGES_H
