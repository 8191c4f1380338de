// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// A server that stops under an application at work, and comes back.
#include "tests/driver/faults.h"
#include "tests/support/testaccess.h"

namespace {

// libpq's failed write, and then its failed read.
constexpr char ClosedTwice[] = "server closed the connection unexpectedly\n"
                               "\tThis probably means the server terminated abnormally\n"
                               "\tbefore or while processing the request.\n"
                               "server closed the connection unexpectedly\n"
                               "\tThis probably means the server terminated abnormally\n"
                               "\tbefore or while processing the request.\n";

} // namespace

class tst_FaultsRestarted : public QObject, private Faults
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY2(startWithTable(), qPrintable(cluster.why())); }
    void init();
    void cleanup() { closeForGood(); }

    void applicationAtWork_data();
    void applicationAtWork();
    void spares_data();
    void spares();

private:
    QSqlDatabase direct(const QString &name) const;
    QList<QSharedPointer<Dorvy3Connection>> sparesInThePool() const;
    QString notThere() const;
};

// A database on the server itself: a proxy would outlive it.
QSqlDatabase tst_FaultsRestarted::direct(const QString &name) const
{
    QSqlDatabase added = another(name);
    added.setConnectOptions("application_name=faults");
    return added;
}

void tst_FaultsRestarted::init()
{
    cluster.run("TRUNCATE t; INSERT INTO t VALUES (1)");
    db = direct("app");
    QVERIFY_SQL(db, db.open());
}

QList<QSharedPointer<Dorvy3Connection>> tst_FaultsRestarted::sparesInThePool() const
{
    return Dorvy3TestAccess::spares(*pool, Dorvy3TestAccess::poolKeys(*pool).value(0));
}

// What libpq says where there is no server.
QString tst_FaultsRestarted::notThere() const
{
    return QString("connection to server on socket \"%1/.s.PGSQL.%2\" failed: No such file or "
                   "directory\n"
                   "\tIs the server running locally and accepting connections on that socket?\n")
        .arg(cluster.socketDir())
        .arg(cluster.port());
}

void tst_FaultsRestarted::applicationAtWork_data()
{
    QTest::addColumn<QString>("mode");
    QTest::addColumn<Error>("halfRead");
    QTest::addColumn<bool>("believedOpen"); // after the commit
    QTest::addColumn<Error>("rollback");

    QTest::newRow("fast") << "fast" << ExecuteEnded << false << RollbackRefused;
    // Its last words are a warning: behind that libpq tells of the failed write, and finds the
    // connection closed only when it reads again.
    QTest::newRow("immediate") << "immediate" << ExecuteLost << true
                               << Error{QSqlError::TransactionError,
                                        "Ошибка при попытке отменить транзакцию", ClosedTwice, ""};
}

void tst_FaultsRestarted::applicationAtWork()
{
    QFETCH(const QString, mode);
    QFETCH(const Error, halfRead);
    QFETCH(const bool, believedOpen);
    QFETCH(const Error, rollback);

    {
        Application app(db);
        QVERIFY(app.take("append")); // committed
        QVERIFY(app.take("begin"));
        QVERIFY(app.take("read"));   // half read when the server stops
        QVERIFY(app.take("insert")); // not committed; the own connection owes no answer then
        cluster.stop(mode);

        QVERIFY(db.isOpen()); // nobody has asked the server yet
        QVERIFY(!app.take("walk"));
        QCOMPARE(app.rowsRead(), 128);
        compareWith(app.error(), halfRead);
        QVERIFY(!app.take("commit"));
        compareWith(app.error(), CommitLost);
        QCOMPARE(db.isOpen(), believedOpen);
        QVERIFY(!app.take("rollback"));
        compareWith(app.error(), rollback);
        QVERIFY(!db.isOpen());
    }
    QVERIFY(!db.open());
    COMPARE_ERROR(db.lastError(), ConnectionError, notThere(), ConnectFailed, QString());
    QVERIFY(cluster.restart());
    QVERIFY_SQL(db, db.open());
    QCOMPARE(committed(), QString("1 3"));
    {
        Application app(db);
        QCOMPARE(app.go(TransactionRoad, QString(), {}), QString());
    }
    QCOMPARE(committed(), QString("1 2 3"));
    QCOMPARE(connections(), QString("2")); // the own one, and a spare
    verifyNothingIsLeft();
}

void tst_FaultsRestarted::spares_data()
{
    QTest::addColumn<QString>("mode");

    QTest::newRow("fast") << "fast";
    QTest::newRow("immediate") << "immediate";
}

void tst_FaultsRestarted::spares()
{
    QFETCH(const QString, mode);

    {
        QSqlDatabase other = direct("other");
        QVERIFY_SQL(other, other.open());
        Application app(db);
        Application otherApp(other);
        QVERIFY(app.take("read"));
        QVERIFY(otherApp.take("read"));
        app.take("clear");
        otherApp.take("clear");
        QCOMPARE(sparesInThePool().size(), 2);

        cluster.stop(mode);
        QVERIFY(cluster.restart());
        QCOMPARE(sparesInThePool().size(), 2); // dead, and nobody knows
        QVERIFY_SQL(db, db.open());
        QVERIFY(app.take("read"));
        QCOMPARE(sparesInThePool().size(), 0);
        QVERIFY(app.take("walk"));
        app.take("clear");
        QCOMPARE(sparesInThePool().size(), 1); // the new one
        QCOMPARE(connections(), QString("2"));
        other.close();
    }
    QSqlDatabase::removeDatabase("other");
    verifyNothingIsLeft();
}

QTEST_GUILESS_MAIN(tst_FaultsRestarted)
#include "tst_faults_restarted.moc"
