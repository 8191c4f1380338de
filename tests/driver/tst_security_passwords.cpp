// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Logins with a password: which way it goes to the server, and that nothing else ever tells it.
#include "tests/driver/login.h"
#include "tests/support/certificate.h"
#include "tests/support/childprocess.h"
#include "tests/support/pgcluster.h"
#include "tests/support/scriptedpeer.h"
#include "tests/support/sqlmacros.h"

#include <QtCore/QProcessEnvironment>
#include <QtSql/QSqlQuery>

using namespace ServerMessage;

namespace {

QString hlpLatin1(const char *text)
{
    return QString::fromLatin1(text);
}

QString hlpIdentifier(QString name)
{
    return QLatin1Char('"') + name.replace(QLatin1Char('"'), QLatin1String("\"\"")) +
           QLatin1Char('"');
}

// An SQL literal whose backslashes are plain characters.
QString hlpLiteral(QString text)
{
    return QLatin1Char('\'') + text.replace(QLatin1Char('\''), QLatin1String("''")) +
           QLatin1Char('\'');
}

QByteArray hlpContent(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

class tst_SecurityPasswords : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();

    void channelBindingWorksOnBothConnections();
    void channelBindingIsNotGivenUp_data();
    void channelBindingIsNotGivenUp();
    void channelBindingWithoutTlsIsRefused();
    void passwordIsNotSentInsteadOfChannelBinding_data();
    void passwordIsNotSentInsteadOfChannelBinding();
    void passwordIsNotSentInTheClearForMd5();

    void wrongPasswordIsRefused_data();
    void wrongPasswordIsRefused();
    void missingPasswordIsRefused();
    void everyCharacterOfNamesAndPasswordsCounts_data();
    void everyCharacterOfNamesAndPasswordsCounts();

    void nothingIsLogged();
    void processTellsNoPassword();
    void serverLogTellsNoPassword();

private:
    PgCluster cluster;
    QString database = QStringLiteral("named"); // one of Latin-1 letters that changes its name
};

void tst_SecurityPasswords::initTestCase()
{
    QVERIFY2(cluster.start({QStringLiteral("log_min_messages = debug1"),
                            QStringLiteral("log_connections = on")}),
             qPrintable(cluster.why()));
    const Certificate made = makeSelfSigned();
    cluster.writeFile(QStringLiteral("server.crt"), made.certificate);
    cluster.writeFile(QStringLiteral("server.key"), made.key);
    cluster.writeFile(QStringLiteral("pg_hba.conf"), "local all dorvy trust\n"
                                                     "host all clear 127.0.0.1/32 password\n"
                                                     "host all hashed 127.0.0.1/32 md5\n"
                                                     "host all trusted 127.0.0.1/32 trust\n"
                                                     "host all all 127.0.0.1/32 scram-sha-256\n");
    cluster.createDatabase(QStringLiteral("latin"), QStringLiteral("LATIN1"));
    cluster.createDatabase(database, QStringLiteral("LATIN1"));
    for (const char *name : {"guest", "clear", "trusted"}) {
        cluster.run(
            QStringLiteral("CREATE ROLE %1 LOGIN PASSWORD 'geheim'").arg(QLatin1String(name)));
    }
    cluster.run(QStringLiteral("SET password_encryption = 'md5'; "
                               "CREATE ROLE hashed LOGIN PASSWORD 'geheim'"));
    cluster.run(QStringLiteral("ALTER SYSTEM SET ssl = on"));
    cluster.reload();
    QCOMPARE(cluster.value(QStringLiteral("SHOW ssl")), QStringLiteral("on"));
}

void tst_SecurityPasswords::channelBindingWorksOnBothConnections()
{
    Login login(cluster.port(), "sslmode=require;channel_binding=require");
    if (cluster.major() < 11) { // channel binding came with PostgreSQL 11
        verifyRefused(login, QStringLiteral("did not offer an authentication method that supports "
                                            "channel binding"));
        return;
    }
    QVERIFY_SQL(login.db, login.db.open());
    QSqlQuery query(login.db);
    QVERIFY_SQL(query, query.exec(QStringLiteral("SELECT 1")));
    QVERIFY(parameters(login.borrowed()).contains({"channel_binding", "require"}));
}

void tst_SecurityPasswords::channelBindingIsNotGivenUp_data()
{
    QTest::addColumn<QString>("user");
    QTest::addColumn<QString>("words");
    const QString unsupported =
        QStringLiteral("channel binding required but not supported by server's authentication "
                       "request");
    QTest::newRow("clear text") << QStringLiteral("clear") << unsupported;
    QTest::newRow("MD5") << QStringLiteral("hashed") << unsupported;
    QTest::newRow("no password asked for")
        << QStringLiteral("trusted")
        << QStringLiteral("channel binding required, but server authenticated client without "
                          "channel binding");
}

void tst_SecurityPasswords::channelBindingIsNotGivenUp()
{
    QFETCH(QString, user);
    QFETCH(QString, words);
    Login login(cluster.port(), "sslmode=require;channel_binding=require");
    login.db.setUserName(user);
    verifyRefused(login, words);
    login.db.setConnectOptions(QStringLiteral("hostaddr=127.0.0.1;sslmode=require"));
    QVERIFY_SQL(login.db, login.db.open());
}

void tst_SecurityPasswords::channelBindingWithoutTlsIsRefused()
{
    Login login(cluster.port(), "sslmode=disable;channel_binding=require");
    verifyRefused(login, QStringLiteral("channel binding required, but SSL not in use"));
}

void tst_SecurityPasswords::passwordIsNotSentInsteadOfChannelBinding_data()
{
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<QString>("words");
    const QString unsupported =
        QStringLiteral("channel binding required but not supported by server's authentication "
                       "request");
    QTest::newRow("clear text") << authentication(3) << unsupported;
    QTest::newRow("MD5") << authentication(5, "salt") << unsupported;
    QTest::newRow("none") << authenticationOk()
                          << QStringLiteral("channel binding required, but server authenticated "
                                            "client without channel binding");
    QTest::newRow("SCRAM without TLS")
        << authentication(10, QByteArray("SCRAM-SHA-256\0\0", 15))
        << QStringLiteral("channel binding required, but SSL not in use");
}

void tst_SecurityPasswords::passwordIsNotSentInsteadOfChannelBinding()
{
    QFETCH(QByteArray, request);
    QFETCH(QString, words);
    std::promise<char> answer;
    const ScriptedPeer peer([&answer, request](PeerLink &link) {
        link.readUntyped();
        link.send(request);
        answer.set_value(link.read().type);
    });
    Login login(peer.port(), "sslmode=disable;channel_binding=require");
    verifyRefused(login, words);
    QCOMPARE(told(answer, '?'), '\0');
}

void tst_SecurityPasswords::passwordIsNotSentInTheClearForMd5()
{
    std::promise<QByteArray> answer;
    const ScriptedPeer peer([&answer](PeerLink &link) {
        link.readUntyped();
        link.send(authentication(5, "salt"));
        link.read();
        answer.set_value(link.lastBody());
        link.send(errorResponse("28P01", "no", "FATAL"));
        link.awaitEnd();
    });
    Login login(peer.port(), "sslmode=disable");
    verifyRefused(login, QStringLiteral("FATAL:  no"));
    // md5(md5("geheim" "guest") "salt")
    QCOMPARE(told(answer, QByteArray()), QByteArray("md5f2d81aca2093f8dd77f3502bfe6b8f48", 36));
}

void tst_SecurityPasswords::wrongPasswordIsRefused_data()
{
    QTest::addColumn<QString>("user");
    for (const char *name : {"guest", "clear", "hashed", "nobody there"}) {
        QTest::newRow(name) << hlpLatin1(name);
    }
}

void tst_SecurityPasswords::wrongPasswordIsRefused()
{
    QFETCH(QString, user);
    Login login(cluster.port());
    login.db.setUserName(user);
    login.db.setPassword(QStringLiteral("geheimer")); // which has the other in it
    verifyRefused(
        login, QStringLiteral("FATAL:  password authentication failed for user \"%1\"").arg(user));
}

void tst_SecurityPasswords::missingPasswordIsRefused()
{
    Login login(cluster.port(), "passfile=/nowhere");
    login.db.setPassword(QString());
    verifyRefused(login, QStringLiteral("no password supplied"));
}

void tst_SecurityPasswords::everyCharacterOfNamesAndPasswordsCounts_data()
{
    QTest::addColumn<QString>("text");
    for (const auto &row : QList<QPair<const char *, const char *>>{
             {"quote", "quote's"},
             {"two quotes alone", "''"},
             {"backslash", "back\\slash"},
             {"backslash alone", "\\"},
             {"backslash and quote", "\\'"},
             {"space between", "two words"},
             {"spaces around", " spaces "},
             {"equals sign", "a=b"},
             {"semicolons", "a;b;sslmode=disable"},
             {"double quote", "double\"quote"},
             {"percent signs", "%41%00"},
             {"newline", "line\nbreak"},
             {"tabulator", "tab\there"},
             {"dollars", "dollar$$"},
             {"a keyword behind a quote", "x' host='192.0.2.1"},
             {"a keyword behind a space", "x host=192.0.2.1"},
             {"a keyword", "host=192.0.2.1"},
             {"umlaut", "M\xFCller"},
             {"umlauts", "\xC4\xD6\xDC\xE4\xF6\xFC\xDF"},
             {"end of Latin-1", "\xFF"},
             {"question mark", "?"}}) {
        QTest::newRow(row.first) << hlpLatin1(row.second);
    }
}

// The server has the names in Latin-1, as the connection string sends them.
void tst_SecurityPasswords::everyCharacterOfNamesAndPasswordsCounts()
{
    QFETCH(QString, text);
    const QString latin = QStringLiteral("latin");
    qputenv("PGCLIENTENCODING", "UTF8"); // of the commands
    cluster.run(QStringLiteral("CREATE ROLE %1 LOGIN PASSWORD %2")
                    .arg(hlpIdentifier(text), hlpLiteral(text)),
                latin);
    cluster.run(QStringLiteral("ALTER DATABASE %1 RENAME TO %2")
                    .arg(hlpIdentifier(database), hlpIdentifier(text)),
                latin);
    database = text;
    qunsetenv("PGCLIENTENCODING");
    Login login(cluster.port());
    login.db.setUserName(text);
    login.db.setPassword(text);
    login.db.setDatabaseName(text);
    QVERIFY_SQL(login.db, login.db.open());
    QSqlQuery query(login.db);
    QVERIFY_SQL(query, query.exec(QStringLiteral("SELECT current_user, current_database()")));
    QVERIFY(query.next());
    QCOMPARE(query.value(0).toString(), text);
    QCOMPARE(query.value(1).toString(), text);
    query.clear();
    login.db.setPassword(text + QLatin1Char(' '));
    QVERIFY(!login.db.open());
}

void tst_SecurityPasswords::nothingIsLogged()
{
    const int port = cluster.port();
    const ChildOutcome outcome = runInChild([port] {
        Login login(port);
        login.db.open();
        QSqlQuery(login.db).exec(QStringLiteral("SELECT 1"));
        login.db.setPassword(QStringLiteral("geheimer"));
        login.db.open();
        login.db.setPort(1);
        login.db.open();
        login.db.setConnectOptions(QStringLiteral("nonsense"));
        login.db.open();
    });
    QCOMPARE(outcome.output, QString());
    QCOMPARE(outcome.fatal, QString());
    QVERIFY(!outcome.aborted);
}

void tst_SecurityPasswords::processTellsNoPassword()
{
    Login login(cluster.port());
    QVERIFY_SQL(login.db, login.db.open());
    QSqlQuery query(login.db);
    QVERIFY_SQL(query, query.exec(QStringLiteral("SELECT 1")));
    QVERIFY(!hlpContent(QStringLiteral("/proc/self/cmdline")).isEmpty());
    QVERIFY(!hlpContent(QStringLiteral("/proc/self/cmdline")).contains(Secret));
    QVERIFY(!hlpContent(QStringLiteral("/proc/self/environ")).contains(Secret));
    QVERIFY(!QProcessEnvironment::systemEnvironment()
                 .toStringList()
                 .join(QLatin1Char('\n'))
                 .contains(QLatin1String(Secret)));
}

void tst_SecurityPasswords::serverLogTellsNoPassword()
{
    Login login(cluster.port());
    login.db.setPassword(QStringLiteral("geheimer"));
    QVERIFY(!login.db.open());
    const QString log = cluster.log().join(QLatin1Char('\n'));
    QVERIFY(log.contains(QStringLiteral("password authentication failed for user \"guest\"")));
    QVERIFY(!log.contains(QStringLiteral("geheim")));
}

QTEST_GUILESS_MAIN(tst_SecurityPasswords)
#include "tst_security_passwords.moc"
