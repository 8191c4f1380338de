// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Servers that do not mean well: what they say at a login and after it.
#include "tests/driver/login.h"
#include "tests/driver/scramexchange.h"
#include "tests/support/sqlmacros.h"

#include <QtSql/QSqlQuery>

using namespace ServerMessage;

namespace {

constexpr int KiB = 1024; // bytes

QByteArray hlpGreeting()
{
    return authenticationOk() + parameterStatus("server_encoding", "UTF8") +
           parameterStatus("client_encoding", "UTF8") + readyForQuery('I');
}

// A server that answers the startup message with \a answer and hangs up.
ScriptedPeer::Script hlpAnswering(const QByteArray &answer)
{
    return [answer](PeerLink &link) {
        link.readUntyped();
        link.send(answer);
    };
}

// A server that lets in and answers what is prepared with an error of \a text.
ScriptedPeer::Script hlpFailing(const QByteArray &text)
{
    return [text](PeerLink &link) {
        link.greet();
        for (QByteArray request = link.readRequest(); !request.isEmpty();
             request = link.readRequest()) {
            link.send((request == "Q" ? commandComplete("OK") : errorResponse("XX000", text)) +
                      readyForQuery('I'));
        }
    };
}

} // namespace

class tst_SecurityLogin : public QObject
{
    Q_OBJECT

private slots:
    void refusalIsReadAsCp1251_data();
    void refusalIsReadAsCp1251();
    void lengthOfARefusal_data();
    void lengthOfARefusal();
    void malformedAnswerIsRefused_data();
    void malformedAnswerIsRefused();
    void silentServerIsGivenUp();
    void textOfAFailedStatementArrives_data();
    void textOfAFailedStatementArrives();

    void rightSignatureOpens();
    void wrongChallengeIsRefused_data();
    void wrongChallengeIsRefused();
    void wrongSignatureIsRefused_data();
    void wrongSignatureIsRefused();
    void highIterationCountIsCountedOut();
    void signatureThatIsLeftOutIsNotMissed();
    void exchangeThatIsLeftOutIsNotMissed();
    void serverThatHangsUpInTheExchangeIsRefused();
};

void tst_SecurityLogin::refusalIsReadAsCp1251_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("read");
    QTest::newRow("Cyrillic") << QByteArray("\xCD\xE5\xF2") << QStringLiteral("Нет");
    QTest::newRow("UTF-8") << QByteArray("\xD0\x9D") << QStringLiteral("Рќ");
    QTest::newRow("a byte that stands for nothing")
        << QByteArray("a\x98z") << QStringLiteral("a\u0098z");
    QTest::newRow("last byte") << QByteArray("\xFF\xFE") << QStringLiteral("яю");
    QTest::newRow("control characters") << QByteArray("\x01\x07\b\t\n\r\x1B[31m\x7F")
                                        << QStringLiteral("\x01\x07\b\t\n\r\x1B[31m\x7F");
    QTest::newRow("format") << QByteArray("%s%n%1") << QStringLiteral("%s%n%1");
    QTest::newRow("nothing") << QByteArray() << QString();
}

void tst_SecurityLogin::refusalIsReadAsCp1251()
{
    QFETCH(QByteArray, text);
    QFETCH(QString, read);
    const ScriptedPeer peer(hlpAnswering(errorResponse("28000", text, "FATAL")));
    Login login(peer.port(), "sslmode=disable");
    verifyRefused(login, QStringLiteral(" failed: FATAL:  ") + read + QLatin1Char('\n'));
}

void tst_SecurityLogin::lengthOfARefusal_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<int>("length");
    QTest::addColumn<bool>("arrives");
    // libpq takes a longer message than 30000 bytes for one of an old protocol.
    QTest::newRow("longest") << QByteArray() << 29972 << true;
    QTest::newRow("one byte more") << QByteArray() << 29973 << false;
    QTest::newRow("64 KiB") << QByteArray() << 64 * KiB << false;
    QTest::newRow("1 MiB") << QByteArray() << KiB * KiB << false;
    QTest::newRow("64 KiB, authenticated") << authenticationOk() << 64 * KiB << true;
    QTest::newRow("1 MiB, authenticated") << authenticationOk() << KiB * KiB << true;
}

void tst_SecurityLogin::lengthOfARefusal()
{
    QFETCH(QByteArray, before);
    QFETCH(int, length);
    QFETCH(bool, arrives);
    const QByteArray refusal = errorResponse("28000", QByteArray(length, 'x'), "FATAL");
    const ScriptedPeer peer(hlpAnswering(before + refusal));
    Login login(peer.port(), "sslmode=disable");
    verifyRefused(login, QStringLiteral(" failed: "));
    QCOMPARE(login.db.lastError().driverText().section(QStringLiteral(" failed: "), 1),
             arrives ? QStringLiteral("FATAL:  ") + QString(length, QLatin1Char('x')) +
                           QLatin1Char('\n')
                     : QStringLiteral("\n"));
}

void tst_SecurityLogin::malformedAnswerIsRefused_data()
{
    QTest::addColumn<QByteArray>("answer");
    QTest::addColumn<QString>("words");
    const QString closed = QStringLiteral("server closed the connection unexpectedly");
    const QString strange =
        QStringLiteral("expected authentication request from server, but received ");
    QTest::newRow("nothing") << QByteArray() << closed;
    QTest::newRow("half a header") << QByteArray("R\0\0", 3) << closed;
    QTest::newRow("error of length 0") << message('E', "x", 0) << QStringLiteral(" failed: \n");
    QTest::newRow("error of length -1") << message('E', "x", -1) << closed;
    QTest::newRow("error of 2 GiB") << message('E', "x", 0x7FFFFFFF) << closed;
    QTest::newRow("error without fields")
        << message('E', QByteArray(1, '\0')) << QStringLiteral(" failed: \n");
    QTest::newRow("error without an end") << message('E', "Mabc") << closed;
    QTest::newRow("error of an old protocol")
        << QByteArray("Ego away\n\0", 10) << QStringLiteral(" failed: go away\n");
    QTest::newRow("request of length 4") << message('R') << strange + QLatin1Char('R');
    QTest::newRow("request of length -1") << message('R', "x", -1) << strange + QLatin1Char('R');
    QTest::newRow("request of 2 GiB")
        << message('R', "x", 0x7FFFFFFF) << strange + QLatin1Char('R');
    QTest::newRow("request that is unknown")
        << authentication(99) << QStringLiteral("authentication method 99 not supported");
    QTest::newRow("MD5 with half a salt")
        << authentication(5, "sa")
        << QStringLiteral("fe_sendauth: "
                          "error sending password authentication");
    QTest::newRow("notice of 1 MiB")
        << noticeResponse(QByteArray(KiB * KiB, 'x')) << strange + QLatin1Char('N');
    QTest::newRow("other protocol")
        << QByteArray("HTTP/1.1 400 Bad Request\r\n\r\n") << strange + QLatin1Char('H');
    QTest::newRow("1 MiB of noise") << QByteArray(KiB * KiB, 'q') << strange + QLatin1Char('q');
    QTest::newRow("setting of 1 MiB")
        << authenticationOk() + message('S', QByteArray(KiB * KiB, 'x'))
        << QStringLiteral("lost synchronization with server: got message type \"S\"");
}

void tst_SecurityLogin::malformedAnswerIsRefused()
{
    QFETCH(QByteArray, answer);
    QFETCH(QString, words);
    const ScriptedPeer peer(hlpAnswering(answer));
    Login login(peer.port(), "sslmode=disable");
    verifyRefused(login, words);
}

void tst_SecurityLogin::silentServerIsGivenUp()
{
    const ScriptedPeer peer([](PeerLink &link) { link.awaitEnd(); });
    Login login(peer.port(), "sslmode=disable;connect_timeout=2");
    verifyRefused(login, QStringLiteral("timeout expired"));
}

void tst_SecurityLogin::textOfAFailedStatementArrives_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("read");
    QTest::newRow("64 KiB") << QByteArray(64 * KiB, 'x') << QString(64 * KiB, QLatin1Char('x'));
    QTest::newRow("1 MiB") << QByteArray(KiB * KiB, 'x') << QString(KiB * KiB, QLatin1Char('x'));
    QTest::newRow("control characters") << QByteArray("\x01\x07\b\t\n\r\x1B[31m\x7F")
                                        << QStringLiteral("\x01\x07\b\t\n\r\x1B[31m\x7F");
    QTest::newRow("bytes that are no UTF-8")
        << QByteArray("a\xFF z\xC3(\xED\xA0\x80")
        << QStringLiteral("a\uFFFD z\uFFFD(\uFFFD\uFFFD\uFFFD");
    QTest::newRow("letter that is cut off") << QByteArray("a\xD0") << QStringLiteral("a\uFFFD");
}

void tst_SecurityLogin::textOfAFailedStatementArrives()
{
    QFETCH(QByteArray, text);
    QFETCH(QString, read);
    const ScriptedPeer peer(hlpFailing(text));
    Login login(peer.port(), "sslmode=disable");
    QVERIFY_SQL(login.db, login.db.open());
    QSqlQuery query(login.db);
    QVERIFY(!query.exec(QStringLiteral("SELECT 1")));
    COMPARE_ERROR(query.lastError(), StatementError,
                  QStringLiteral("ERROR:  ") + read + QLatin1Char('\n'),
                  QStringLiteral("Ошибка при подготовке запроса к СУБД"), QString());
}

void tst_SecurityLogin::rightSignatureOpens()
{
    std::promise<QByteArray> said;
    const ScriptedPeer peer([&said](PeerLink &link) {
        ScramExchange exchange(link);
        exchange.begin();
        exchange.send(exchange.challenge("4096"));
        said.set_value(exchange.said());
        exchange.finish(exchange.signature(Secret, 4096));
        link.send(hlpGreeting());
        link.serveCommands();
    });
    Login login(peer.port(), "sslmode=disable");
    QVERIFY_SQL(login.db, login.db.open());
    const QByteArray clientSaid = told(said, QByteArray());
    QVERIFY(clientSaid.contains(",p=")); // its proof
    QVERIFY(!clientSaid.contains(Secret));
}

void tst_SecurityLogin::wrongChallengeIsRefused_data()
{
    QTest::addColumn<QByteArray>("challenge"); // NONCE is the client's
    QTest::addColumn<QString>("words");
    const QString mismatch = QStringLiteral("invalid SCRAM response (nonce mismatch)");
    const QString count = QStringLiteral("malformed SCRAM message (invalid iteration count)");
    const QString noNonce = QStringLiteral("malformed SCRAM message (attribute \"r\" expected)");
    QTest::newRow("other nonce") << QByteArray("r=other,s=YWJj,i=4096") << mismatch;
    QTest::newRow("nonce in the middle") << QByteArray("r=xNONCEy,s=YWJj,i=4096") << mismatch;
    QTest::newRow("empty nonce") << QByteArray("r=,s=YWJj,i=4096") << mismatch;
    QTest::newRow("count 0") << QByteArray("r=NONCEy,s=YWJj,i=0") << count;
    QTest::newRow("count below 0") << QByteArray("r=NONCEy,s=YWJj,i=-1") << count;
    QTest::newRow("count beyond an integer")
        << QByteArray("r=NONCEy,s=YWJj,i=99999999999999999999") << count;
    QTest::newRow("count with a letter") << QByteArray("r=NONCEy,s=YWJj,i=1x") << count;
    QTest::newRow("salt that is no Base64") << QByteArray("r=NONCEy,s=%%%,i=4096")
                                            << QStringLiteral("malformed SCRAM message (invalid "
                                                              "salt)");
    QTest::newRow("error") << QByteArray("e=no") << noNonce;
    QTest::newRow("noise") << QByteArray(1900, 'x') << noNonce;
    QTest::newRow("nothing") << QByteArray()
                             << QStringLiteral("malformed SCRAM message (empty "
                                               "message)");
}

void tst_SecurityLogin::wrongChallengeIsRefused()
{
    QFETCH(QByteArray, challenge);
    QFETCH(QString, words);
    const ScriptedPeer peer([challenge](PeerLink &link) {
        ScramExchange exchange(link);
        exchange.begin();
        exchange.send(QByteArray(challenge).replace("NONCE", exchange.nonce()));
    });
    Login login(peer.port(), "sslmode=disable");
    verifyRefused(login, words);
}

void tst_SecurityLogin::wrongSignatureIsRefused_data()
{
    QTest::addColumn<QByteArray>("password");  // that the server takes for the right one
    QTest::addColumn<QByteArray>("signature"); // in its stead
    QTest::addColumn<QString>("words");
    const QString wrong = QStringLiteral("incorrect server signature");
    QTest::newRow("of another password") << QByteArray("gehein") << QByteArray() << wrong;
    QTest::newRow("of noise") << QByteArray()
                              << QByteArray("v=AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA=")
                              << wrong;
    QTest::newRow("too short") << QByteArray() << QByteArray("v=AAAA")
                               << QStringLiteral("malformed SCRAM message (invalid server "
                                                 "signature)");
    QTest::newRow("empty") << QByteArray() << QByteArray("v=")
                           << QStringLiteral("malformed SCRAM message (invalid server signature)");
    QTest::newRow("the server's refusal")
        << QByteArray() << QByteArray("e=invalid-proof")
        << QStringLiteral("error received from server in SCRAM exchange: invalid-proof");
}

void tst_SecurityLogin::wrongSignatureIsRefused()
{
    QFETCH(QByteArray, password);
    QFETCH(QByteArray, signature);
    QFETCH(QString, words);
    const ScriptedPeer peer([password, signature](PeerLink &link) {
        ScramExchange exchange(link);
        exchange.begin();
        exchange.send(exchange.challenge("4096"));
        exchange.finish(signature.isNull() ? exchange.signature(password, 4096) : signature);
        link.send(hlpGreeting());
        link.serveCommands();
    });
    Login login(peer.port(), "sslmode=disable");
    verifyRefused(login, words);
}

// The count is the server's word, and the login takes as long as counting takes.
void tst_SecurityLogin::highIterationCountIsCountedOut()
{
    std::promise<bool> proved;
    const ScriptedPeer peer([&proved](PeerLink &link) {
        ScramExchange exchange(link);
        exchange.begin();
        proved.set_value(exchange.send(exchange.challenge("100000")));
        exchange.finish(exchange.signature("gehein", 100000));
    });
    Login login(peer.port(), "sslmode=disable");
    verifyRefused(login, QStringLiteral("incorrect server signature"));
    QVERIFY(told(proved, false));
}

// libpq 15 asks for the server's proof under channel_binding=require alone; what tells the server
// from another is its certificate.
void tst_SecurityLogin::signatureThatIsLeftOutIsNotMissed()
{
    const ScriptedPeer peer([](PeerLink &link) {
        ScramExchange exchange(link);
        exchange.begin();
        exchange.send(exchange.challenge("4096"));
        link.send(hlpGreeting());
        link.serveCommands();
    });
    Login login(peer.port(), "sslmode=disable");
    QVERIFY_SQL(login.db, login.db.open());
}

void tst_SecurityLogin::exchangeThatIsLeftOutIsNotMissed()
{
    const ScriptedPeer peer([](PeerLink &link) {
        ScramExchange(link).begin();
        link.send(hlpGreeting());
        link.serveCommands();
    });
    Login login(peer.port(), "sslmode=disable");
    QVERIFY_SQL(login.db, login.db.open());
}

void tst_SecurityLogin::serverThatHangsUpInTheExchangeIsRefused()
{
    const ScriptedPeer peer([](PeerLink &link) { ScramExchange(link).begin(); });
    Login login(peer.port(), "sslmode=disable");
    verifyRefused(login, QStringLiteral("server closed the connection unexpectedly"));
}

QTEST_GUILESS_MAIN(tst_SecurityLogin)
#include "tst_security_login.moc"
