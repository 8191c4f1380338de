// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// A connection that breaks at any byte of a reply.
#include "tests/driver/faults.h"

#include <algorithm>

namespace {

struct Reply
{
    const char *road;
    const char *step;    // that the request belongs to
    const char *request; // its beginning, in the proxy's words
    const char *words;   // the whole answer, a run of one kind of message as one
};

// How many bytes the messages have on the wire, with their types and lengths.
int hlpLength(const QVector<WireMessage> &messages)
{
    int bytes = 0;
    for (const WireMessage &message : messages) {
        bytes += 1 + 4 + message.body.size();
    }
    return bytes;
}

// The messages' words; a run of one kind counts once.
QString hlpWords(const QVector<WireMessage> &messages)
{
    QStringList words;
    for (const WireMessage &message : messages) {
        const QString line = WireWords().line(message).section(QChar(' '), 1);
        if (words.isEmpty() || words.last() != line) {
            words += line;
        }
    }
    return words.join(", ");
}

// Which settings a server reports when they are set, and where, differs between versions.
QVector<WireMessage> hlpWithoutReports(QVector<WireMessage> messages)
{
    const auto isReport = [](const WireMessage &message) { return message.type == 'S'; };
    messages.erase(std::remove_if(messages.begin(), messages.end(), isReport), messages.end());
    return messages;
}

constexpr char DivisionAndClosed[] = "ERROR:  division by zero\n"
                                     "server closed the connection unexpectedly\n"
                                     "\tThis probably means the server terminated abnormally\n"
                                     "\tbefore or while processing the request.\n";
constexpr int ReadyBytes = 6; // of ReadyForQuery

} // namespace

Q_DECLARE_METATYPE(Reply)

class tst_FaultsCut : public QObject, private Faults
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY2(startWithTable(), qPrintable(cluster.why())); }
    void init() { QVERIFY(openThroughProxy()); }
    void cleanup() { closeForGood(); }

    void ownReply_data();
    void ownReply();
    void borrowedReply_data();
    void borrowedReply();
    void errorReply_data();
    void errorReply();
    void ownConnectionSetUp();
    void borrowedConnectionSetUp();

private:
    QVector<WireMessage> messagesOf(int connection, const QString &request) const;
    void awaitAnswers(int connection) const;
    QVector<WireMessage> answerOf(const Reply &reply, int connection);
    QString setUpFailure() const;
    bool reopen();
};

// The server's messages on a connection from its answer to the request to the end of that.
QVector<WireMessage> tst_FaultsCut::messagesOf(int connection, const QString &request) const
{
    QVector<WireMessage> found;
    WireWords words;
    bool asked = false;
    for (const WireMessage &message : proxy->messages()) {
        const QString line = words.line(message);
        asked = asked || line.startsWith(QString("%1%2").arg(connection).arg(request));
        if (asked && !message.fromClient && message.connection == connection) {
            found += message;
            if (message.type == 'Z') {
                break;
            }
        }
    }
    return found;
}

// A close's, too, which the driver does not wait for.
void tst_FaultsCut::awaitAnswers(int connection) const
{
    QTRY_VERIFY(isAnswered(connection));
}

// The reply as it is uncut: walks the road once.
QVector<WireMessage> tst_FaultsCut::answerOf(const Reply &reply, int connection)
{
    Application(db).go(reply.road, reply.step, [&] {
        awaitAnswers(connection);
        proxy->clear();
    });
    db.rollback(); // where the road has left a transaction open
    awaitAnswers(connection);
    return messagesOf(connection, reply.request);
}

// Its own connection is the last that the proxy has then.
bool tst_FaultsCut::reopen()
{
    db.close();
    proxy->clear();
    return db.open();
}

void tst_FaultsCut::ownReply_data()
{
    QTest::addColumn<Reply>("reply");
    QTest::addColumn<Outcome>("outcome");
    QTest::addColumn<bool>("done"); // what the server has done, although nobody was told

    const char *const plain = PlainRoad;
    const char *const inside = TransactionRoad;
    QTest::newRow("command is parsed")
        << Reply{plain, "insert", "> Parse", "ParseComplete, ReadyForQuery I"}
        << Outcome{"insert", PrepareLost} << false;
    QTest::newRow("command is described")
        << Reply{plain, "insert", "> Describe", "ParameterDescription, NoData, ReadyForQuery I"}
        << Outcome{"insert", PrepareLost} << false;
    QTest::newRow("command is executed")
        << Reply{plain, "insert", "> Bind",
                 "BindComplete, NoData, CommandComplete \"INSERT 0 1\", ReadyForQuery I"}
        << Outcome{"insert", ExecuteLost} << true;
    QTest::newRow("begun") << Reply{inside, "begin", "> Query \"BEGIN",
                                    "CommandComplete \"BEGIN\", ReadyForQuery T"}
                           << Outcome{"begin", BeginLost} << false;
    QTest::newRow("committed") << Reply{inside, "commit", "> Query \"COMMIT",
                                        "CommandComplete \"COMMIT\", ReadyForQuery I"}
                               << Outcome{"commit", CommitLost} << true;
    QTest::newRow("rolled back") << Reply{UndoneRoad, "rollback", "> Query \"ROLLBACK",
                                          "CommandComplete \"ROLLBACK\", ReadyForQuery I"}
                                 << Outcome{"rollback", RollbackLost} << false;
    QTest::newRow("savepoint is set") << Reply{inside, "insert", "> Query \"SAVEPOINT",
                                               "CommandComplete \"SAVEPOINT\", ReadyForQuery T"}
                                      << Outcome{"insert", PrepareRefused} << false;
    QTest::newRow("read is described")
        << Reply{inside, "read", "> Describe",
                 "ParameterDescription, RowDescription 1, ReadyForQuery T"}
        << Outcome{"read", PrepareLost} << false;

    // Only the next use of the own connection fails.
    QTest::newRow("savepoint is released") << Reply{inside, "read", "> Query \"RELEASE",
                                                    "CommandComplete \"RELEASE\", ReadyForQuery T"}
                                           << Outcome{"commit", CommitRefused} << false;
    QTest::newRow("schema is told")
        << Reply{inside, "read", "> Query \"SELECT current_schema",
                 "RowDescription 1, DataRow, CommandComplete \"SELECT 1\", ReadyForQuery T"}
        << Outcome{"commit", CommitRefused} << false;
    QTest::newRow("what was prepared is closed")
        << Reply{UncommittedRoad, "read", "> Close", "CloseComplete, ReadyForQuery T"}
        << Outcome{"commit", CommitLost} << false;
}

void tst_FaultsCut::ownReply()
{
    QFETCH(const Reply, reply);
    QFETCH(const Outcome, outcome);
    QFETCH(const bool, done);

    const QVector<WireMessage> answer = answerOf(reply, 1);
    QCOMPARE(hlpWords(answer), QString(reply.words));
    const int length = hlpLength(answer);
    cluster.run("TRUNCATE t");
    for (int at = 0; at < length; ++at) {
        QVERIFY_SQL(db, reopen());
        const int own = proxy->connectionCount();
        const QString request = QString("%1%2").arg(own).arg(reply.request);
        Application app(db);
        QString failed = app.go(reply.road, reply.step, [&] { proxy->cutReply(request, at); });
        if (failed.isEmpty()) { // nobody waits for the reply: what comes next is sent in vain
            QVERIFY(proxy->waitUntilBroken(own));
            failed = app.take("commit") ? QString() : QString("commit");
        }
        QVERIFY2(failed == outcome.step, qPrintable(QString("%1 at %2").arg(failed).arg(at)));
        compareWith(app.error(), outcome.error);
        QVERIFY2(!QTest::currentTestFailed(), qPrintable(QString("at %1").arg(at)));
        QVERIFY(!db.isOpen());
    }
    const int expected = done ? length : 0;
    QCOMPARE(cluster.value("SELECT count(*) FROM t WHERE a = 2").toInt(), expected);
    verifyReopens();
    verifyNothingIsLeft();
}

void tst_FaultsCut::borrowedReply_data()
{
    QTest::addColumn<Reply>("reply");
    QTest::addColumn<Outcome>("outcome");
    QTest::addColumn<int>("rowsRead");
    QTest::addColumn<bool>("readsAnew");

    const char *const road = TransactionRoad;
    QTest::newRow("date style is set") << Reply{road, "read", "> Query \"SET DATESTYLE",
                                                "CommandComplete \"SET\", ReadyForQuery I"}
                                       << Outcome{"read", PrepareRefused} << 0 << false;
    QTest::newRow("search path is set") << Reply{road, "read", "> Query \"SET SEARCH_PATH",
                                                 "CommandComplete \"SET\", ReadyForQuery I"}
                                        << Outcome{"read", PrepareRefused} << 0 << false;
    QTest::newRow("begun") << Reply{road, "read", "> Query \"BEGIN",
                                    "CommandComplete \"BEGIN\", ReadyForQuery T"}
                           << Outcome{"read", PrepareRefused} << 0 << false;
    QTest::newRow("parsed") << Reply{road, "read", "> Parse", "ParseComplete, ReadyForQuery T"}
                            << Outcome{"read", PrepareLost} << 0 << false;
    QTest::newRow("described") << Reply{road, "read", "> Describe S",
                                        "ParameterDescription, RowDescription 1, ReadyForQuery T"}
                               << Outcome{"read", PrepareLost} << 0 << false;
    QTest::newRow("first page")
        << Reply{road, "read", "> Bind",
                 "CloseComplete, BindComplete, RowDescription 1, DataRow, PortalSuspended, "
                 "ReadyForQuery T"}
        << Outcome{"read", ExecuteLost} << 0 << true;
    QTest::newRow("last page") << Reply{road, "walk", "> Execute",
                                        "DataRow, CommandComplete \"SELECT 2\", ReadyForQuery T"}
                               << Outcome{"walk", ExecuteLost} << 128 << true;
    QTest::newRow("closed") << Reply{road, "clear", "> Close", "CloseComplete, ReadyForQuery T"}
                            << Outcome{"", NoError} << 130 << true;
    QTest::newRow("rolled back") << Reply{road, "clear", "> Query \"ROLLBACK",
                                          "CommandComplete \"ROLLBACK\", ReadyForQuery I"}
                                 << Outcome{"", NoError} << 130 << true;
}

void tst_FaultsCut::borrowedReply()
{
    QFETCH(const Reply, reply);
    QFETCH(const Outcome, outcome);
    QFETCH(const int, rowsRead);
    QFETCH(const bool, readsAnew);

    const QVector<WireMessage> answer = answerOf(reply, 2);
    QCOMPARE(hlpWords(hlpWithoutReports(answer)), QString(reply.words));
    const int length = hlpLength(answer);
    cluster.run("TRUNCATE t");
    for (int at = 0; at < length; ++at) {
        proxy->clear();
        // The connection on which the round before has read anew is free again.
        const bool pooled = readsAnew && at > 0;
        QVERIFY_SQL(db, pooled || reopen());
        const int borrowed = proxy->connectionCount() + (pooled ? 0 : 1);
        const QString request = QString("%1%2").arg(borrowed).arg(reply.request);
        Application app(db);
        const QString failed =
            app.go(reply.road, reply.step, [&] { proxy->cutReply(request, at); });
        QVERIFY2(failed == outcome.step, qPrintable(QString("%1 at %2").arg(failed).arg(at)));
        compareWith(app.error(), outcome.error);
        QVERIFY2(!QTest::currentTestFailed(), qPrintable(QString("at %1").arg(at)));
        QCOMPARE(app.rowsRead(), rowsRead);
        QVERIFY(proxy->waitUntilBroken(borrowed));
        QVERIFY(failed.isEmpty() || app.take("commit")); // the own transaction is unharmed
        app.take("clear");
        QCOMPARE(app.take("read"), readsAnew);
    }
    QCOMPARE(cluster.value("SELECT count(*) FROM t WHERE a = 2").toInt(), length);
    verifyReopens();
    verifyNothingIsLeft();
}

void tst_FaultsCut::errorReply_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("connection");
    QTest::addColumn<QString>("request");
    QTest::addColumn<QString>("words");
    QTest::addColumn<Error>("inside");
    QTest::addColumn<Error>("behind"); // the whole error, before the server is ready again

    QTest::newRow("preparation") << "SELECT missing" << 1 << "> Parse"
                                 << "ErrorResponse 42703, ReadyForQuery I" << PrepareLost
                                 << PrepareLost;
    QTest::newRow("first page")
        << "SELECT 1 / (g - g) FROM generate_series(1, 2) g" << 2 << "> Bind"
        << "CloseComplete, BindComplete, RowDescription 1, ErrorResponse 22012, ReadyForQuery E"
        << ExecuteLost << Error{QSqlError::StatementError, DivisionAndClosed, ExecuteFailed, ""};
}

void tst_FaultsCut::errorReply()
{
    QFETCH(const QString, text);
    QFETCH(const int, connection);
    QFETCH(const QString, request);
    QFETCH(const QString, words);
    QFETCH(const Error, inside);
    QFETCH(const Error, behind);

    QSqlQuery(db).exec(text);
    const QVector<WireMessage> answer = messagesOf(connection, request);
    QCOMPARE(hlpWords(answer), words);
    const int length = hlpLength(answer);
    for (int at = 0; at < length; ++at) {
        QVERIFY_SQL(db, reopen());
        const int cut = proxy->connectionCount() + connection - 1;
        QSqlQuery query(db);
        proxy->cutReply(QString("%1%2").arg(cut).arg(request), at);
        QVERIFY(!query.exec(text));
        compareWith(query.lastError(), at < length - ReadyBytes ? inside : behind);
        QVERIFY2(!QTest::currentTestFailed(), qPrintable(QString("at %1").arg(at)));
        QCOMPARE(db.isOpen(), connection == 2);
    }
    verifyReopens();
    verifyNothingIsLeft();
}

// What libpq says of a connection that breaks before it is ready.
QString tst_FaultsCut::setUpFailure() const
{
    return QString("connection to server at \"127.0.0.1\", port %1 failed: ").arg(proxy->port()) +
           Closed;
}

void tst_FaultsCut::ownConnectionSetUp()
{
    const QVector<WireMessage> answer = messagesOf(1, "> Startup");
    QCOMPARE(hlpWords(answer),
             QString("Authentication, ParameterStatus, BackendKeyData, ReadyForQuery I"));
    const int length = hlpLength(answer);
    for (int at = 0; at < length; ++at) {
        proxy->cutReply(QString("%1> Startup").arg(proxy->connectionCount() + 1), at);
        QVERIFY(!db.open());
        COMPARE_ERROR(db.lastError(), ConnectionError, setUpFailure(), ConnectFailed, QString());
        QVERIFY(!db.isOpen());
    }
    verifyReopens();
    verifyNothingIsLeft();
}

void tst_FaultsCut::borrowedConnectionSetUp()
{
    const QVector<WireMessage> answer = messagesOf(1, "> Startup");
    QCOMPARE(hlpWords(answer),
             QString("Authentication, ParameterStatus, BackendKeyData, ReadyForQuery I"));
    const int length = hlpLength(answer);
    Application app(db);
    QVERIFY(app.take("begin"));
    QVERIFY(app.take("insert"));
    for (int at = 0; at < length; ++at) {
        proxy->cutReply(QString("%1> Startup").arg(proxy->connectionCount() + 1), at);
        QVERIFY(!app.take("read"));
        COMPARE_ERROR(app.error(), ConnectionError, setUpFailure(), ConnectFailed, QString());
    }
    QVERIFY(app.take("read")); // nothing is blocked
    QVERIFY(app.take("walk"));
    QVERIFY(app.take("commit"));
    QCOMPARE(committed(), QString("1 2"));
    app.take("clear");
    verifyNothingIsLeft();
}

QTEST_GUILESS_MAIN(tst_FaultsCut)
#include "tst_faults_cut.moc"
