// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The ways to one server: Unix sockets in the file system and without a file, IPv4 and IPv6.
#include "tests/driver/behaviour.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr char ConnectFailed[] = "Ошибка при установке соединения с СУБД";

bool hlpHasIpv6()
{
    const int descriptor = socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in6 address = {};
    address.sin6_family = AF_INET6;
    address.sin6_addr = in6addr_loopback;
    const bool bound = descriptor >= 0 && bind(descriptor, reinterpret_cast<sockaddr *>(&address),
                                               sizeof(address)) == 0;
    if (descriptor >= 0) {
        close(descriptor);
    }
    return bound;
}

} // namespace

class tst_NeighboursSockets : public QObject, private Behaviour
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init() { QVERIFY(openAnew("CREATE TABLE t AS SELECT generate_series(1, 300) AS a")); }
    void cleanup() { closeForGood(); }

    void readAndWrite_data();
    void readAndWrite();
    void hostNobodyListensOn_data();
    void hostNobodyListensOn();

private:
    QString hidden; // the name of the socket without a file
};

void tst_NeighboursSockets::initTestCase()
{
    QVERIFY2(start(), qPrintable(cluster.why()));
    hidden = "@dorvy" + cluster.socketDir().section("dorvy", -1);
    if (cluster.major() >= 14) {
        cluster.run(QString("ALTER SYSTEM SET unix_socket_directories = '%1', '%2'")
                        .arg(cluster.socketDir(), hidden));
    }
    cluster.run("ALTER SYSTEM SET listen_addresses = '127.0.0.1', '::1'");
    cluster.stop();
    QVERIFY2(cluster.restart(), qPrintable(cluster.why()));
}

void tst_NeighboursSockets::readAndWrite_data()
{
    QTest::addColumn<QString>("host");
    QTest::addColumn<QString>("address");
    QTest::newRow("folder of a Unix socket") << cluster.socketDir() << "local";
    if (cluster.major() >= 14) { // as its client library
        QTest::newRow("Unix socket without a file") << hidden << "local";
    }
    QTest::newRow("IPv4") << "127.0.0.1"
                          << "127.0.0.1";
    if (hlpHasIpv6()) {
        QTest::newRow("IPv6") << "::1"
                              << "::1";
    }
    QTest::newRow("name") << "localhost"
                          << "";
}

void tst_NeighboursSockets::readAndWrite()
{
    QFETCH(QString, host);
    QFETCH(QString, address);
    db.close();
    db.setHostName(host);
    QVERIFY(db.open());
    QSqlQuery query(db);
    QVERIFY(query.exec("SELECT a, coalesce(host(inet_client_addr()), 'local') FROM t ORDER BY a"));
    int rows = 0;
    while (query.next()) {
        QCOMPARE(query.value(0).toInt(), ++rows);
        if (!address.isEmpty()) { // a name may have either
            QCOMPARE(query.value(1).toString(), address);
        }
    }
    QCOMPARE(rows, 300);
    QVERIFY(db.transaction());
    QVERIFY(query.prepare("INSERT INTO t VALUES (?)"));
    query.addBindValue(301);
    QVERIFY(query.exec());
    QVERIFY(db.commit());
    QCOMPARE(cluster.value("SELECT max(a) FROM t"), QString("301"));
}

void tst_NeighboursSockets::hostNobodyListensOn_data()
{
    QTest::addColumn<QString>("host");
    QTest::addColumn<QString>("said");
    QTest::newRow("folder without a socket")
        << "/nowhere"
        << "connection to server on socket \"/nowhere/.s.PGSQL.%1\" failed: No such file or "
           "directory\n\tIs the server running locally and accepting connections on that socket?\n";
    QTest::newRow("socket without a file")
        << "@nobody"
        << "connection to server on socket \"@nobody/.s.PGSQL.%1\" failed: Connection refused\n"
           "\tIs the server running locally and accepting connections on that socket?\n";
    QTest::newRow("address")
        << "127.0.0.2"
        << "connection to server at \"127.0.0.2\", port %1 failed: Connection refused\n"
           "\tIs the server running on that host and accepting TCP/IP connections?\n";
}

void tst_NeighboursSockets::hostNobodyListensOn()
{
    QFETCH(QString, host);
    QFETCH(QString, said);
    db.close();
    db.setHostName(host);
    QVERIFY(!db.open());
    COMPARE_TEXTS(db.lastError(), said.arg(cluster.port()).toUtf8(), ConnectFailed);
    QCOMPARE(db.lastError().type(), QSqlError::ConnectionError);
}

QTEST_GUILESS_MAIN(tst_NeighboursSockets)
#include "tst_neighbours_sockets.moc"
