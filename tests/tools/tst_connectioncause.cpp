// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The causes of failed connections, by the texts of libpq and of servers.
#include "connectioncause.h"

#include <QtCore/QTextCodec>
#include <QtTest/QtTest>

class tst_ConnectionCause : public QObject
{
    Q_OBJECT

private slots:
    void causes_data();
    void causes();
    void textsOfAnUnknownEncoding_data();
    void textsOfAnUnknownEncoding();
};

// Texts as libpq 15 and PostgreSQL 10 to 18 write them.
void tst_ConnectionCause::causes_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("cause");
    const auto row = [](const char *text, const char *cause) {
        QTest::newRow(text) << QString::fromUtf8(text) << QString::fromLatin1(cause);
    };
    row("connection to server at \"127.0.0.1\", port 5 failed: Connection refused", "refused");
    row("connection to server on socket \"/x/.s.PGSQL.5\" failed: No such file or directory",
        "socket");
    row("could not translate host name \"x\" to address: Name or service not known", "host");
    row("connection to server at \"10.0.0.1\", port 5 failed: timeout expired", "timeout");
    row("connection to server at \"10.0.0.1\", port 5 failed: Connection timed out", "timeout");
    row("connection to server at \"10.0.0.1\", port 5 failed: No route to host", "network");
    row("server does not support SSL, but SSL was required", "tls");
    row("SSL error: certificate verify failed", "tls");
    row("root certificate file \"/x/root.crt\" does not exist", "tls");
    row("FATAL:  no pg_hba.conf entry for host \"::1\", user \"a\", database \"b\", no encryption",
        "tls");
    row("FATAL:  no pg_hba.conf entry for host \"::1\", user \"a\", database \"b\"", "access");
    row("FATAL:  no pg_hba.conf entry for host \"::1\", user \"a\", database \"b\", SSL off",
        "tls");
    row("FATAL:  no pg_hba.conf entry for host \"::1\", user \"a\", database \"b\", SSL on",
        "access");
    row("FATAL:  no pg_hba.conf entry for host \"::1\", user \"a\", database \"b\", SSL encryption",
        "access");
    row("FATAL:  no pg_hba.conf entry for host \"::1\", user \"a\", database \"b\", SSL "
        "encryption\nno pg_hba.conf entry for host \"::1\", user \"a\", database \"b\", no "
        "encryption",
        "access");
    row("FATAL:  password authentication failed for user \"a\"\n"
        "no pg_hba.conf entry for host \"::1\", user \"a\", database \"b\", no encryption",
        "password");
    row("FATAL:  в pg_hba.conf нет записи для компьютера \"::1\", пользователя \"a\", базы \"b\", "
        "без шифрования",
        "tls");
    row("ВАЖНО:  в pg_hba.conf нет записи для компьютера \"::1\", пользователя \"a\", базы \"b\", "
        "Шифрование SSL\nв pg_hba.conf нет записи для компьютера \"::1\", пользователя \"a\", базы "
        "\"b\", без шифрования",
        "access");
    row("FATAL:  pg_hba.conf rejects connection for host \"::1\", user \"a\"", "access");
    row("fe_sendauth: no password supplied", "password");
    row("FATAL:  password authentication failed for user \"a\"", "password");
    row("ВАЖНО:  пользователь \"a\" не прошёл проверку подлинности (по паролю)", "password");
    row("FATAL:  Peer authentication failed for user \"a\"", "password");
    row("FATAL:  database \"b\" does not exist", "database");
    row("ВАЖНО:  база данных \"b\" не существует", "database");
    row("FATAL:  role \"a\" does not exist", "role");
    row("ВАЖНО:  роль \"a\" не существует", "role");
    row("FATAL:  role \"a\" is not permitted to log in", "role");
    row("FATAL:  sorry, too many clients already", "places");
    row("FATAL:  too many connections for role \"a\"", "places");
    row("FATAL:  remaining connection slots are reserved for roles with the SUPERUSER attribute",
        "places");
    row("ВАЖНО:  извините, уже слишком много клиентов", "places");
    row("FATAL:  the database system is starting up", "starting");
    row("FATAL:  the database system is shutting down", "stopping");
    row("FATAL:  unsupported startup parameter: extra_float_digits", "pooler");
    row("FATAL:  query_wait_timeout", "pooler");
    row("connection to server at \"localhost\" (::1), port 5 failed: Connection refused\n"
        "connection to server at \"localhost\" (127.0.0.1), port 5 failed: FATAL:  password "
        "authentication failed for user \"a\"",
        "password");
    row("connection to server at \"localhost\" (::1), port 5 failed: Connection refused\n"
        "connection to server at \"localhost\" (127.0.0.1), port 5 failed: FATAL:  роль \"a\" не "
        "существует",
        "role");
    row("connection to server at \"x\" (10.0.0.1), port 5 failed: timeout expired\n"
        "connection to server at \"x\" (10.0.0.2), port 5 failed: server closed the connection "
        "unexpectedly",
        "timeout");
    row("SSL SYSCALL error: EOF detected", "tls");
    row("missing \"=\" after \"x\" in connection info string", "options");
    row("invalid connection option \"x\"", "options");
    row("server closed the connection unexpectedly", "closed");
    row("quelque chose d'autre", "other");
    row("", "other");
}

void tst_ConnectionCause::causes()
{
    QFETCH(QString, text);
    QFETCH(QString, cause);
    const ConnectionCause found = connectionCause(text);
    QCOMPARE(found.id, cause);
    QVERIFY(!found.meaning.isEmpty());
    QVERIFY(!found.remedy.isEmpty());
}

void tst_ConnectionCause::textsOfAnUnknownEncoding_data()
{
    QTest::addColumn<QByteArray>("sent");
    QTest::addColumn<QString>("meant");
    const QString russian = QStringLiteral("роль \"a\" не существует");
    QTest::newRow("ASCII") << QByteArray("FATAL: x") << QStringLiteral("FATAL: x");
    QTest::newRow("UTF-8") << russian.toUtf8() << russian;
    QTest::newRow("CP1251") << QTextCodec::codecForName("CP1251")->fromUnicode(russian) << russian;
}

void tst_ConnectionCause::textsOfAnUnknownEncoding()
{
    QFETCH(QByteArray, sent);
    QFETCH(QString, meant);
    const QTextCodec *assumed = QTextCodec::codecForName("CP1251"); // by the driver
    QCOMPARE(asItWasMeant(assumed->toUnicode(sent)), meant);
}

QTEST_GUILESS_MAIN(tst_ConnectionCause)
#include "tst_connectioncause.moc"
