// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Dorvy3Result: what it owns, and when it lets go.
#include "access/dorvy3connection.h"
#include "access/dorvy3result.h"

#include <libpq-events.h>

#include <QtTest/QtTest>

namespace {

// What libpq tells about the life of the results.
struct Watch
{
    QWeakPointer<Dorvy3Connection> connection;
    int destroyed = 0;
    bool connectionLived = false; // when the last result was destroyed
};

int watchResults(PGEventId event, void *, void *through)
{
    if (event == PGEVT_RESULTDESTROY) {
        Watch *watch = static_cast<Watch *>(through);
        ++watch->destroyed;
        watch->connectionLived = !watch->connection.isNull();
    }
    return 1;
}

} // namespace

class tst_Dorvy3Result : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void keepsWhatItIsGiven();
    void nullResult();
    void nullConnection();
    void resultIsClearedOnce();
    void lastReferenceClears();
    void connectionIsKeptAlive();
    void connectionOutlivesTheResult();
    void twoResultsOfOneConnection();

private:
    PGresult *makeResult();

    Watch watch;
    QSharedPointer<Dorvy3Connection> connection; // to a server that is not there
};

void tst_Dorvy3Result::init()
{
    watch = Watch();
    PGconn *handle = PQconnectdb("host=/nowhere");
    QCOMPARE(PQregisterEventProc(handle, watchResults, "watch", &watch), 1);
    connection = QSharedPointer<Dorvy3Connection>::create(handle, QString());
    watch = Watch(); // of the results of setting up
    watch.connection = connection;
}

void tst_Dorvy3Result::cleanup()
{
    connection.clear();
}

PGresult *tst_Dorvy3Result::makeResult()
{
    PGresult *result = PQmakeEmptyPGresult(connection->connection(), PGRES_TUPLES_OK);
    PQfireResultCreateEvents(connection->connection(), result);
    return result;
}

void tst_Dorvy3Result::keepsWhatItIsGiven()
{
    PGresult *result = makeResult();
    const Dorvy3Result owner(result, connection);
    QCOMPARE(owner.result, result);
    QCOMPARE(owner.connection, connection);
    QCOMPARE(watch.destroyed, 0);
}

void tst_Dorvy3Result::nullResult()
{
    {
        const Dorvy3Result owner(nullptr, connection);
        QVERIFY(!owner.result);
        QCOMPARE(owner.connection, connection);
    }
    QCOMPARE(watch.destroyed, 0);
    connection.clear();
    QVERIFY(watch.connection.isNull()); // no reference was left behind
}

void tst_Dorvy3Result::nullConnection()
{
    {
        const Dorvy3Result owner(makeResult(), QSharedPointer<Dorvy3Connection>());
        QVERIFY(owner.connection.isNull());
    }
    QCOMPARE(watch.destroyed, 1);
    const Dorvy3Result nothing(nullptr, QSharedPointer<Dorvy3Connection>());
    QVERIFY(!nothing.result);
}

void tst_Dorvy3Result::resultIsClearedOnce()
{
    {
        const Dorvy3Result owner(makeResult(), connection);
        QCOMPARE(watch.destroyed, 0);
    }
    QCOMPARE(watch.destroyed, 1);
    connection.clear();
    QCOMPARE(watch.destroyed, 1);
}

void tst_Dorvy3Result::lastReferenceClears()
{
    auto first = QSharedPointer<Dorvy3Result>::create(makeResult(), connection);
    QSharedPointer<Dorvy3Result> second = first;
    first.clear();
    QCOMPARE(watch.destroyed, 0);
    second.clear();
    QCOMPARE(watch.destroyed, 1);
}

void tst_Dorvy3Result::connectionIsKeptAlive()
{
    auto owner = QSharedPointer<Dorvy3Result>::create(makeResult(), connection);
    connection.clear();
    QVERIFY(!watch.connection.isNull());
    owner.clear();
    QVERIFY(watch.connection.isNull());
}

void tst_Dorvy3Result::connectionOutlivesTheResult()
{
    auto owner = QSharedPointer<Dorvy3Result>::create(makeResult(), connection);
    connection.clear();
    owner.clear();
    QCOMPARE(watch.destroyed, 1);
    QVERIFY(watch.connectionLived);
}

void tst_Dorvy3Result::twoResultsOfOneConnection()
{
    auto first = QSharedPointer<Dorvy3Result>::create(makeResult(), connection);
    auto second = QSharedPointer<Dorvy3Result>::create(makeResult(), connection);
    connection.clear();
    first.clear();
    QCOMPARE(watch.destroyed, 1);
    QVERIFY(!watch.connection.isNull());
    second.clear();
    QCOMPARE(watch.destroyed, 2);
    QVERIFY(watch.connectionLived);
    QVERIFY(watch.connection.isNull());
}

QTEST_GUILESS_MAIN(tst_Dorvy3Result)
#include "tst_dorvy3result.moc"
