// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// A server and its hot standby: several hosts in one connection, and a promotion.
#include "tests/driver/behaviour.h"
#include "tests/support/sqlmacros.h"

class tst_NeighboursStandby : public QObject, private Behaviour
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init() { QVERIFY(openAnew("CREATE TABLE t AS SELECT generate_series(1, 300) AS a")); }
    void cleanup()
    {
        if (QTest::currentTestFailed()) {
            qWarning("%s", qPrintable(standby.log().join('\n')));
        }
        closeForGood();
    }

    void severalHosts_data();
    void severalHosts();
    void standbyIsRead();
    void standbyTakesNoWrites();
    void onlyAStandby();
    void standbyOfTheList_data();
    void standbyOfTheList();
    void promotion(); // the last, as the server is gone after it

private:
    bool openWith(const QString &host, int port, const QString &options);
    QString hosts() const { return standby.socketDir() + ',' + cluster.socketDir(); }
    QString ports() const { return QString("port=%1,%2").arg(standby.port()).arg(cluster.port()); }
    QString portRead();
    void awaitReplay();
    void readEverything(int rows);

    PgCluster standby;
};

void tst_NeighboursStandby::initTestCase()
{
    QVERIFY2(start(), qPrintable(cluster.why()));
    QVERIFY2(standby.startStandbyOf(cluster), qPrintable(standby.why()));
}

bool tst_NeighboursStandby::openWith(const QString &host, int port, const QString &options)
{
    db.close();
    db.setHostName(host);
    db.setPort(port);
    db.setConnectOptions(options);
    return db.open();
}

// The port of the server that the borrowed connection reads from.
QString tst_NeighboursStandby::portRead()
{
    QSqlQuery query(db);
    return query.exec("SELECT current_setting('port')") && query.next() ? query.value(0).toString()
                                                                        : "no answer";
}

// Until the standby has all that the server has written so far.
void tst_NeighboursStandby::awaitReplay()
{
    const QString replayed = "SELECT pg_last_wal_replay_lsn() >= '%1'";
    const QString position = cluster.value("SELECT pg_current_wal_lsn()");
    QTRY_COMPARE(standby.value(replayed.arg(position)), QString("t"));
}

void tst_NeighboursStandby::readEverything(int rows)
{
    QSqlQuery query(db);
    QVERIFY(query.exec("SELECT a FROM t ORDER BY a"));
    int row = 0;
    while (query.next()) {
        QCOMPARE(query.value(0).toInt(), ++row);
    }
    QVERIFY(!query.lastError().isValid());
    QCOMPARE(row, rows);
}

void tst_NeighboursStandby::severalHosts_data()
{
    QTest::addColumn<QString>("host");
    QTest::addColumn<int>("port");
    QTest::addColumn<QString>("options");
    const QString writable = ";target_session_attrs=read-write";
    QTest::newRow("hosts as the name, ports in the options") << hosts() << -1 << ports() + writable;
    // Of a key that comes twice libpq takes the later one, and the options come last.
    QTest::newRow("port in the options, too") << hosts() << 1 << ports() + writable;
    QTest::newRow("all in the options")
        << "nowhere.invalid" << -1 << "host=" + hosts() + ';' + ports() + writable;
}

void tst_NeighboursStandby::severalHosts()
{
    QFETCH(QString, host);
    QFETCH(int, port);
    QFETCH(QString, options);
    QVERIFY(openWith(host, port, options));
    QSqlQuery query(db);
    QVERIFY(query.exec("INSERT INTO t VALUES (301)"));
    QCOMPARE(cluster.value("SELECT max(a) FROM t"), QString("301"));
    QCOMPARE(portRead(), QString::number(cluster.port()));
    readEverything(301);
}

void tst_NeighboursStandby::standbyIsRead()
{
    QVERIFY(openWith(standby.socketDir(), standby.port(), QString()));
    QTRY_COMPARE(portRead(), QString::number(standby.port()));
    awaitReplay();
    readEverything(300);
}

void tst_NeighboursStandby::standbyTakesNoWrites()
{
    QVERIFY(openWith(standby.socketDir(), standby.port(), QString()));
    QSqlQuery query(db);
    QVERIFY(!query.exec("CREATE TABLE more (a int)"));
    COMPARE_TEXTS(query.lastError(),
                  "ERROR:  cannot execute CREATE TABLE in a read-only transaction\n",
                  ExecuteFailed);
    QVERIFY(db.transaction());
    QVERIFY(query.exec("SET lock_timeout = '1s'"));
    QVERIFY(db.commit());
}

void tst_NeighboursStandby::onlyAStandby()
{
    QVERIFY(!openWith(standby.socketDir(), standby.port(), "target_session_attrs=read-write"));
    COMPARE_TEXTS(db.lastError(),
                  QString("connection to server on socket \"%1/.s.PGSQL.%2\" failed: session is "
                          "read-only\n")
                      .arg(standby.socketDir())
                      .arg(standby.port())
                      .toUtf8(),
                  "Ошибка при установке соединения с СУБД");
}

void tst_NeighboursStandby::standbyOfTheList_data()
{
    QTest::addColumn<QString>("attributes");
    QTest::addColumn<bool>("standbyFirst");
    QTest::newRow("standby, first in the list") << "standby" << true;
    QTest::newRow("standby, last in the list") << "standby" << false;
    QTest::newRow("preferred, last in the list") << "prefer-standby" << false;
}

// For both connections: what writes is refused, and what reads is read there.
void tst_NeighboursStandby::standbyOfTheList()
{
    QFETCH(QString, attributes);
    QFETCH(bool, standbyFirst);
    const PgCluster &first = standbyFirst ? standby : cluster;
    const PgCluster &last = standbyFirst ? cluster : standby;
    QVERIFY(openWith(first.socketDir() + ',' + last.socketDir(), -1,
                     QString("port=%1,%2;target_session_attrs=%3")
                         .arg(first.port())
                         .arg(last.port())
                         .arg(attributes)));
    QTRY_COMPARE(portRead(), QString::number(standby.port()));
    QVERIFY(!QSqlQuery(db).exec("CREATE TABLE more (a int)"));
}

void tst_NeighboursStandby::promotion()
{
    QVERIFY(openWith(hosts(), -1, ports() + ";target_session_attrs=read-write"));
    QSqlQuery query(db);
    QVERIFY(query.exec("INSERT INTO t VALUES (301)"));
    QSqlQuery half(db);
    QVERIFY(half.exec("SELECT a FROM t ORDER BY a"));
    QVERIFY(db.transaction());
    QVERIFY(query.exec("INSERT INTO t VALUES (302)"));
    awaitReplay();
    QCOMPARE(standby.value("SELECT count(*) FROM t"), QString("301"));

    cluster.stop();
    standby.promote();
    QVERIFY(half.last());
    QVERIFY(!half.next());
    QCOMPARE(serversWords(half),
             QString("FATAL:  terminating connection due to administrator command"));
    QCOMPARE(half.lastError().databaseText(), QString(ExecuteFailed));
    QVERIFY(!db.commit());
    QCOMPARE(db.lastError().driverText(), QString("Ошибка при попытке завершить транзакцию"));
    QVERIFY(!db.isOpen());

    half.clear();
    db.close();
    QVERIFY_SQL(db, db.open());
    readEverything(301); // without what was not committed
    QCOMPARE(portRead(), QString::number(standby.port()));
    QVERIFY(db.transaction());
    QVERIFY(query.exec("INSERT INTO t VALUES (302)"));
    QVERIFY(db.commit());
    readEverything(302);
    QVERIFY2(cluster.restart(), qPrintable(cluster.why()));
}

QTEST_GUILESS_MAIN(tst_NeighboursStandby)
#include "tst_neighbours_standby.moc"
