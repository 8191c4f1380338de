// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Encrypted connections: which server is believed, and that both connections are alike.
#include "tests/driver/login.h"
#include "tests/support/certificate.h"
#include "tests/support/pgcluster.h"
#include "tests/support/scriptedpeer.h"
#include "tests/support/sqlmacros.h"

#include <QtSql/QSqlQuery>

using namespace ServerMessage;

Q_DECLARE_METATYPE(Certificate)

class tst_SecurityTls : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();

    void rightCertificateEncryptsBothConnections();
    void untrustedCertificateIsRefused_data();
    void untrustedCertificateIsRefused();
    void certificateOfAnotherHostIsRefused_data();
    void certificateOfAnotherHostIsRefused();
    void missingRootCertificateIsRefused();
    void serverWithoutTlsIsRefused();
    void clientCertificateIsShownOnBothConnections();
    void missingClientCertificateIsRefused();
    void clientCertificateOfAnotherAuthorityIsRefused();
    void clientKeyThatOthersMayReadIsRefused();
    void secondConnectionHasEveryParameterOfTheFirst();
    void secondConnectionIsNotDowngraded();

    void bytesInjectedBeforeTheHandshakeAreRefused();
    void relayWithoutInjectionConnects();
    void bytesBehindTheRefusalOfTlsAreNotRead();
    void errorInsteadOfTlsIsNotBelieved_data();
    void errorInsteadOfTlsIsNotBelieved();
    void strangeAnswerToTheTlsRequestIsRefused();

private:
    void serveWith(const Certificate &certificate)
    {
        cluster.writeFile(QStringLiteral("server.crt"), certificate.certificate);
        cluster.writeFile(QStringLiteral("server.key"), certificate.key);
        cluster.reload();
    }
    // Writes a file of the client's and gives its path.
    QByteArray keep(const QString &name, const QByteArray &text) const
    {
        QFile file(folder.filePath(name));
        if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size() ||
            !file.setPermissions(QFile::ReadOwner | QFile::WriteOwner)) {
            qFatal("cannot write %s", qPrintable(file.fileName()));
        }
        return QFile::encodeName(file.fileName());
    }
    QByteArray verifyFull() const { return "sslmode=verify-full;sslrootcert=" + root; }
    QByteArray withClientCertificate(const Certificate &certificate) const
    {
        return verifyFull() +
               ";user=certified;sslcert=" + keep(QStringLiteral("c.crt"), certificate.certificate) +
               ";sslkey=" + keep(QStringLiteral("c.key"), certificate.key);
    }
    // What the server knows of the connection's encryption.
    QString encryption(PGconn *connection) const
    {
        return cluster.value(
            QStringLiteral("SELECT to_jsonb(s) - 'pid' FROM pg_stat_ssl s WHERE pid = %1")
                .arg(PQbackendPID(connection)));
    }

    PgCluster cluster;
    QTemporaryDir folder;
    const Certificate authority = makeSelfSigned(CertificateTerms("authority"));
    QByteArray root; // where the client has the authority's certificate
};

void tst_SecurityTls::initTestCase()
{
    QVERIFY2(cluster.start({QStringLiteral("ssl_ca_file = 'root.crt'")}),
             qPrintable(cluster.why()));
    root = keep(QStringLiteral("root.crt"), authority.certificate);
    cluster.writeFile(QStringLiteral("root.crt"), authority.certificate);
    cluster.writeFile(QStringLiteral("pg_hba.conf"),
                      "hostssl all certified 127.0.0.1/32 cert\n"
                      "host all +passworded 127.0.0.1/32 scram-sha-256\n"
                      "local all dorvy trust\n");
    cluster.run(QStringLiteral("CREATE ROLE certified LOGIN"));
    cluster.run(QStringLiteral("CREATE ROLE guest LOGIN IN ROLE passworded PASSWORD 'geheim'"));
}

void tst_SecurityTls::init()
{
    cluster.run(QStringLiteral("ALTER SYSTEM SET ssl = on"));
    serveWith(makeSigned(authority, CertificateTerms("localhost")));
    QCOMPARE(cluster.value(QStringLiteral("SHOW ssl")), QStringLiteral("on"));
}

void tst_SecurityTls::rightCertificateEncryptsBothConnections()
{
    Login login(cluster.port(), verifyFull());
    QVERIFY_SQL(login.db, login.db.open());
    QSqlQuery query(login.db);
    QVERIFY_SQL(query, query.exec(QStringLiteral("SELECT pg_backend_pid()")));
    QVERIFY(query.next());
    QCOMPARE(query.value(0).toInt(), PQbackendPID(login.borrowed()));
    QVERIFY(PQbackendPID(login.own()) != PQbackendPID(login.borrowed()));
    for (PGconn *connection : {login.own(), login.borrowed()}) {
        QVERIFY2(encryption(connection).contains(QStringLiteral("\"ssl\": true")),
                 qPrintable(encryption(connection)));
    }
    QCOMPARE(encryption(login.own()), encryption(login.borrowed()));
}

void tst_SecurityTls::untrustedCertificateIsRefused_data()
{
    QTest::addColumn<Certificate>("certificate");
    QTest::addColumn<QString>("words");
    const QString failed = QStringLiteral("SSL error: certificate verify failed");
    const Certificate other = makeSelfSigned(CertificateTerms("other"));
    const Certificate namesake = makeSelfSigned(CertificateTerms("authority"));
    const CertificateTerms terms("localhost");
    QTest::newRow("expired") << makeSigned(authority, CertificateTerms("localhost", -7200, -3600))
                             << failed;
    QTest::newRow("not yet valid")
        << makeSigned(authority, CertificateTerms("localhost", 3600, 7200)) << failed;
    QTest::newRow("self-signed") << makeSelfSigned(terms) << failed;
    QTest::newRow("of another authority") << makeSigned(other, terms) << failed;
    // OpenSSL finds the issuer by its name, and then the signature is not its own.
    QTest::newRow("of another authority by the same name")
        << makeSigned(namesake, terms) << QStringLiteral("SSL error: ");
}

void tst_SecurityTls::untrustedCertificateIsRefused()
{
    QFETCH(Certificate, certificate);
    QFETCH(QString, words);
    serveWith(certificate);
    Login login(cluster.port(), verifyFull());
    verifyRefused(login, words);
}

void tst_SecurityTls::certificateOfAnotherHostIsRefused_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QString>("words");
    QTest::newRow("other name") << QByteArray("elsewhere")
                                << QStringLiteral("server certificate for \"elsewhere\" does not "
                                                  "match host name \"localhost\"");
    QTest::newRow("longer name") << QByteArray("localhost.example")
                                 << QStringLiteral("server certificate for \"localhost.example\" "
                                                   "does not match host name \"localhost\"");
    QTest::newRow("joker for all") << QByteArray("*")
                                   << QStringLiteral("server certificate for \"*\" does not match "
                                                     "host name \"localhost\"");
}

void tst_SecurityTls::certificateOfAnotherHostIsRefused()
{
    QFETCH(QByteArray, name);
    QFETCH(QString, words);
    serveWith(makeSigned(authority, CertificateTerms(name)));
    Login login(cluster.port(), verifyFull());
    verifyRefused(login, words);
}

void tst_SecurityTls::missingRootCertificateIsRefused()
{
    Login login(cluster.port(), "sslmode=verify-full;sslrootcert=/nowhere/root.crt");
    verifyRefused(login, QStringLiteral("root certificate file \"/nowhere/root.crt\" does not "
                                        "exist"));
}

void tst_SecurityTls::serverWithoutTlsIsRefused()
{
    cluster.run(QStringLiteral("ALTER SYSTEM SET ssl = off"));
    cluster.reload();
    Login login(cluster.port(), verifyFull());
    verifyRefused(login, QStringLiteral("server does not support SSL, but SSL was required"));
}

void tst_SecurityTls::clientCertificateIsShownOnBothConnections()
{
    Login login(cluster.port(),
                withClientCertificate(makeSigned(authority, CertificateTerms("certified"))));
    QVERIFY_SQL(login.db, login.db.open());
    QSqlQuery query(login.db);
    QVERIFY_SQL(query, query.exec(QStringLiteral("SELECT current_user")));
    QVERIFY(query.next());
    QCOMPARE(query.value(0).toString(), QStringLiteral("certified"));
    QVERIFY2(encryption(login.own()).contains(QStringLiteral("\"/CN=certified\"")),
             qPrintable(encryption(login.own())));
    QCOMPARE(encryption(login.own()), encryption(login.borrowed()));
}

void tst_SecurityTls::missingClientCertificateIsRefused()
{
    Login login(cluster.port(), verifyFull() + ";user=certified");
    verifyRefused(login, QStringLiteral("connection requires a valid client certificate"));
}

void tst_SecurityTls::clientCertificateOfAnotherAuthorityIsRefused()
{
    const Certificate other = makeSelfSigned(CertificateTerms("other"));
    // In TLS 1.3 the server says so after the handshake, which the client may not get to read.
    Login login(cluster.port(),
                withClientCertificate(makeSigned(other, CertificateTerms("certified"))) +
                    ";ssl_max_protocol_version=TLSv1.2");
    verifyRefused(login, QStringLiteral("alert unknown ca"));
}

void tst_SecurityTls::clientKeyThatOthersMayReadIsRefused()
{
    Login login(cluster.port(),
                withClientCertificate(makeSigned(authority, CertificateTerms("certified"))));
    QVERIFY(QFile::setPermissions(folder.filePath(QStringLiteral("c.key")),
                                  QFile::ReadOwner | QFile::ReadOther));
    verifyRefused(login, QStringLiteral("has group or world access"));
}

void tst_SecurityTls::secondConnectionHasEveryParameterOfTheFirst()
{
    Login login(cluster.port(),
                withClientCertificate(makeSigned(authority, CertificateTerms("certified"))) +
                    ";ssl_min_protocol_version=TLSv1.2;ssl_max_protocol_version=TLSv1.2"
                    ";sslcompression=0;sslsni=0;channel_binding=prefer;connect_timeout=50"
                    ";target_session_attrs=read-write;keepalives_idle=77;application_name=both"
                    ";options='-c lock_timeout=123'");
    QVERIFY_SQL(login.db, login.db.open());
    QSqlQuery query(login.db);
    QVERIFY_SQL(query, query.exec(QStringLiteral("SHOW lock_timeout")));
    QVERIFY(query.next());
    QCOMPARE(query.value(0).toString(), QStringLiteral("123ms"));
    const QList<Parameter> own = parameters(login.own());
    QVERIFY(own.contains({"sslmode", "verify-full"}));
    QVERIFY(own.contains({"password", "geheim"}));
    QVERIFY(own.contains({"sslkey", QFile::encodeName(folder.filePath(QStringLiteral("c.key")))}));
    QVERIFY(own.contains({"ssl_max_protocol_version", "TLSv1.2"}));
    QCOMPARE(parameters(login.borrowed()), own);
    QVERIFY(encryption(login.own()).contains(QStringLiteral("\"TLSv1.2\"")));
    QCOMPARE(encryption(login.borrowed()), encryption(login.own()));
}

// The one between refuses to encrypt the second connection only.
void tst_SecurityTls::secondConnectionIsNotDowngraded()
{
    const int port = cluster.port();
    const ScriptedPeer peer([port](PeerLink &link) {
        if (link.number() == 1) {
            link.relayTls(port);
        } else {
            link.greet();
        }
    });
    Login login(peer.port(), verifyFull());
    QVERIFY_SQL(login.db, login.db.open());
    QSqlQuery query(login.db);
    QVERIFY(!query.exec(QStringLiteral("SELECT 1")));
    verifyRefusal(query.lastError(),
                  QStringLiteral("server does not support SSL, but SSL was required"));
}

void tst_SecurityTls::bytesInjectedBeforeTheHandshakeAreRefused()
{
    const int port = cluster.port();
    const ScriptedPeer peer(
        [port](PeerLink &link) { link.relayTls(port, errorResponse("28000", "believe me")); });
    Login login(peer.port(), verifyFull());
    verifyRefused(login, QStringLiteral("received unencrypted data after SSL response"));
    QVERIFY(!login.db.lastError().driverText().contains(QStringLiteral("believe me")));
}

void tst_SecurityTls::relayWithoutInjectionConnects()
{
    const int port = cluster.port();
    const ScriptedPeer peer([port](PeerLink &link) { link.relayTls(port); });
    Login login(peer.port(), verifyFull());
    QVERIFY_SQL(login.db, login.db.open());
}

void tst_SecurityTls::bytesBehindTheRefusalOfTlsAreNotRead()
{
    const ScriptedPeer peer([](PeerLink &link) {
        link.readUntyped();
        link.send('N' + errorResponse("28000", "believe me"));
        link.awaitEnd();
    });
    Login login(peer.port(), verifyFull());
    verifyRefused(login, QStringLiteral("server does not support SSL, but SSL was required"));
    QVERIFY(!login.db.lastError().driverText().contains(QStringLiteral("believe me")));
}

void tst_SecurityTls::errorInsteadOfTlsIsNotBelieved_data()
{
    QTest::addColumn<QByteArray>("answer");
    QTest::newRow("an error of today's protocol") << errorResponse("28000", "believe me");
    QTest::newRow("an error of the old protocol") << QByteArray("Ebelieve me\n\0", 13);
    QTest::newRow("the first byte alone") << QByteArray("E");
}

void tst_SecurityTls::errorInsteadOfTlsIsNotBelieved()
{
    QFETCH(QByteArray, answer);
    const ScriptedPeer peer([answer](PeerLink &link) {
        link.readUntyped();
        link.send(answer);
        link.awaitEnd();
    });
    Login login(peer.port(), verifyFull());
    verifyRefused(login, QStringLiteral("server sent an error response during SSL exchange"));
    QVERIFY(!login.db.lastError().driverText().contains(QStringLiteral("believe me")));
}

void tst_SecurityTls::strangeAnswerToTheTlsRequestIsRefused()
{
    const ScriptedPeer peer([](PeerLink &link) {
        link.readUntyped();
        link.send("X");
        link.awaitEnd();
    });
    Login login(peer.port(), verifyFull());
    verifyRefused(login, QStringLiteral("received invalid response to SSL negotiation: X"));
}

QTEST_GUILESS_MAIN(tst_SecurityTls)
#include "tst_security_tls.moc"
