// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The driver against a server that breaks the protocol, at each step from a query to its last row.
#include "access/dorvy3.h"
#include "driver/dorvydriver.h"

#include "tests/support/childprocess.h"
#include "tests/support/ordinaryanswers.h"
#include "tests/support/sqlmacros.h"
#include "tests/support/typeoids.h"

#include <QtCore/QMutex>
#include <QtCore/QUuid>
#include <QtSql/QSqlDatabase>
#include <QtSql/QSqlField>
#include <QtSql/QSqlQuery>
#include <QtSql/QSqlRecord>
#include <QtTest/QtTest>

#include <limits>
#include <memory>

using namespace ServerMessage;

namespace {

constexpr int Rows = 130; // two more than a page

QByteArray number(qint64 value, int bytes)
{
    QByteArray text;
    for (int shift = (bytes - 1) * 8; shift >= 0; shift -= 8) {
        text += static_cast<char>(value >> shift);
    }
    return text;
}

Column column(int type, int size = -1, int modifier = -1, const QByteArray &name = "a")
{
    Column described;
    described.name = name;
    described.type = static_cast<quint32>(type);
    described.size = static_cast<qint16>(size);
    described.modifier = modifier;
    return described;
}

OrdinaryAnswers numbers()
{
    QList<OrdinaryAnswers::Row> rows;
    for (int i = 1; i <= Rows; ++i) {
        rows += OrdinaryAnswers::Row{number(i, 4)};
    }
    return OrdinaryAnswers({column(OidInt4, 4)}, rows);
}

// A number and a text, as the server describes them.
QList<Column> numberAndText()
{
    return {column(OidInt4, 4), column(OidVarchar, -1, 14, "b")};
}

void verifyColumns(const QSqlRecord &record, const QList<Column> &described)
{
    QCOMPARE(record.count(), described.size());
    for (int i = 0; i < described.size(); ++i) {
        const Column &expected = described.at(i);
        QCOMPARE(record.fieldName(i), QString::fromUtf8(expected.name));
        QCOMPARE(record.field(i).typeID(), int(expected.type));
        QCOMPARE(record.field(i).length(),
                 expected.modifier > 0 ? expected.modifier - 4 : int(expected.size));
    }
}

// Of the current row; an invalid one is SQL NULL.
void verifyValues(const QSqlQuery &query, const QVariantList &values)
{
    for (int i = 0; i < values.size(); ++i) {
        QCOMPARE(query.isNull(i), !values.at(i).isValid());
        QCOMPARE(query.value(i).isNull(), !values.at(i).isValid());
        if (values.at(i).isValid()) {
            QCOMPARE(query.value(i), values.at(i));
        }
    }
    QVERIFY(!query.value(values.size()).isValid());
    QVERIFY(query.isNull(values.size()));
}

// The whole answer to a run, as the server described it.
QByteArray ordinaryRun()
{
    return closeComplete() + bindComplete() + rowDescription(numberAndText()) +
           dataRow({number(1, 4), "text"}) + commandComplete("SELECT 1") + readyForQuery('T');
}

// Answers a request, and those behind it, each with the next of \a replies.
std::function<void(PeerLink &)> oneByOne(const QList<QByteArray> &replies)
{
    return [replies](PeerLink &link) {
        link.send(replies.first());
        for (const QByteArray &reply : replies.mid(1)) {
            link.readRequest();
            link.send(reply);
        }
    };
}

// Answers to the runs up to that one, which has other columns, and two pages of one row each.
std::function<void(PeerLink &)> otherColumns(const QList<Column> &described,
                                             const OrdinaryAnswers::Row &row, int run)
{
    QList<QByteArray> replies = QVector<QByteArray>(run - 1, ordinaryRun()).toList();
    replies += closeComplete() + bindComplete() + rowDescription(described) + dataRow(row) +
               portalSuspended() + readyForQuery('T');
    replies += dataRow(row) + commandComplete("SELECT 1") + readyForQuery('T');
    return oneByOne(replies);
}

// A run that the server answers as it described it.
void verifyOrdinaryRun(QSqlQuery &query)
{
    QVERIFY_SQL(query, query.exec() && query.first());
    verifyColumns(query.record(), numberAndText());
    verifyValues(query, {1, QStringLiteral("text")});
}

OrdinaryAnswers oneValue(const Column &described, const QByteArray &value)
{
    return OrdinaryAnswers({described}, {{value}});
}

QByteArray failure(const QByteArray &text)
{
    return errorResponse("XX000", text);
}

QByteArray copyResponse(char type)
{
    return message(type, QByteArray(3, '\0'));
}

QString textOf(const QSqlError &error)
{
    return error.driverText().simplified() + QStringLiteral(" / ") + error.databaseText();
}

/*! Runs a query and reads it to its end, in one line for a table. */
QString read(const QSqlDatabase &database)
{
    QSqlQuery query(database);
    if (!query.exec(QStringLiteral("SELECT a FROM t"))) {
        return textOf(query.lastError());
    }
    int rows = 0;
    while (query.next() && query.value(0).toInt() == rows + 1) {
        ++rows;
    }
    const QString text = QString::number(rows) + QStringLiteral(" rows");
    return query.lastError().type() == QSqlError::NoError
               ? text
               : text + QStringLiteral(", then ") + textOf(query.lastError());
}

/*! Runs a statement without rows, likewise. */
QString write(const QSqlDatabase &database)
{
    QSqlQuery query(database);
    return query.exec(QStringLiteral("INSERT INTO t VALUES (1)")) ? QStringLiteral("done")
                                                                  : textOf(query.lastError());
}

const QLatin1String HangUp("server closed the connection unexpectedly This probably means the "
                           "server terminated abnormally before or while processing the request.");
const QLatin1String Length3("lost synchronization with server: got message type \"C\", length 3");
const QLatin1String Length2G("cannot allocate memory for input buffer lost synchronization with "
                             "server: got message type \"D\", length 2147483643");
const QLatin1String Unknown("unexpected response from server; first received character was \"~\"");
const QLatin1String
    Suspended("unexpected response from server; first received character was \"s\"");
const QLatin1String
    NoDescription("server sent data (\"D\" message) without prior row description (\"T\" message)");
const QLatin1String FieldCount("unexpected field count in \"D\" message");
const QLatin1String NoResult("the server answered without a result");

/*! What takes the place of an answer, and what the driver makes of it at each kind of step. */
struct Reply
{
    const char *name;
    QByteArray bytes;
    bool hangsUp;
    bool loses;              // the connection
    QLatin1String toPrepare; // the error's driver text, unless there are rows
    QLatin1String toDescribe;
    QLatin1String toRun;
    QLatin1String toFetch;
    QLatin1String toCommand; // without rows, of libpq's own

    void give(PeerLink &link, bool plain) const;
};

const QLatin1String AllRows("130 rows");
const QLatin1String NoRows("0 rows");

QList<Reply> replies()
{
    const QByteArray z = readyForQuery('I');
    const QByteArray rows = rowDescription({column(OidInt4)}) + dataRow({number(1, 4)});
    const QByteArray tag = commandComplete("SELECT 1");
    const QLatin1String none("");
    const QLatin1String no("ERROR: no");
    const QLatin1String bye("FATAL: bye server closed the connection unexpectedly This probably "
                            "means the server terminated abnormally before or while processing "
                            "the request.");
    return {
        {"error", failure("no") + z, false, false, no, no, no, no, no},
        {"hang-up", "", true, true, HangUp, HangUp, HangUp, HangUp, HangUp},
        {"half a message", failure("no").left(9), true, true, HangUp, HangUp, HangUp, HangUp,
         HangUp},
        {"last words", errorResponse("57P01", "bye", "FATAL"), true, true, HangUp, HangUp, bye, bye,
         HangUp},
        {"length 3", message('C', "x", 3) + z, false, true, Length3, Length3, Length3, Length3,
         Length3},
        {"length 2^31-1", message('D', "x", 0x7fffffff), false, true, Length2G, Length2G, Length2G,
         Length2G, Length2G},
        {"unknown type", message('~') + z, false, false, Unknown, Unknown, Unknown, Unknown,
         Unknown},
        {"ready alone", z, false, false, none, none, NoResult, NoResult, none},
        {"ready twice", z + z, false, false, none, none, NoResult, NoResult, none},
        {"suspended", portalSuspended() + z, false, false, Suspended, Suspended, Suspended,
         QLatin1String("128 rows"), Suspended},
        {"rows", rows + tag + z, false, false, none, NoDescription, QLatin1String("1 rows"),
         NoDescription, none},
        {"rows without end", rows + z, false, false, none, AllRows, NoResult,
         QLatin1String("the server answered with more than one result"), none},
        {"bad row", rows + dataRow({}) + tag + z, false, false, FieldCount, NoDescription,
         FieldCount, NoDescription, FieldCount},
        {"tag", tag + z, false, false, AllRows, NoRows, NoRows, QLatin1String("128 rows"),
         QLatin1String("done")},
        {"empty query", emptyQueryResponse() + z, false, false, none, none, none,
         QLatin1String("the server answered with a result that has no end"), none},
        {"copy in", copyResponse('G'), false, false, none, none, none, none, none},
        {"copy out", copyResponse('H') + message('c') + commandComplete("COPY") + z, false, false,
         none, none, none, none, none},
        {"copy both", copyResponse('W'), false, true, none, none, none, none, none},
    };
}

void Reply::give(PeerLink &link, bool plain) const
{
    link.send(bytes);
    if (hangsUp) {
        link.hangUp();
    } else if (plain && bytes.startsWith('G')) {
        // The client ends the copy; only in the extended protocol a Sync follows, to be answered.
        link.read();
        link.send(failure("no copy") + readyForQuery('I'));
    }
}

enum class Kind { Prepare, Describe, Plain, Run, Fetch, Close };

enum class After {
    Usable,
    OwnLost,
    BorrowedLost // no read works until the database is opened again
};

struct Step
{
    const char *name;
    Kind kind;
    PeerMoment moment;
};

QList<Step> steps()
{
    return {
        {"prepare", Kind::Prepare, {1, "PS", ""}},
        {"describe", Kind::Describe, {1, "DS", ""}},
        {"current_schema", Kind::Plain, {1, "Q", "SELECT current_schema()"}},
        {"close on the own connection", Kind::Close, {1, "CCS", ""}},
        {"SET DATESTYLE", Kind::Plain, {2, "Q", "SET DATESTYLE"}},
        {"SET SEARCH_PATH", Kind::Plain, {2, "Q", "SET SEARCH_PATH"}},
        {"BEGIN", Kind::Plain, {2, "Q", "BEGIN"}},
        {"prepare on the borrowed one", Kind::Prepare, {2, "PS", ""}},
        {"describe on the borrowed one", Kind::Describe, {2, "DS", ""}},
        {"run", Kind::Run, {2, "CBDES", ""}},
        {"fetch", Kind::Fetch, {2, "ES", ""}},
        {"close", Kind::Close, {2, "CCS", ""}},
        {"ROLLBACK", Kind::Close, {2, "Q", "ROLLBACK"}},
    };
}

const QString PrepareFailed = QStringLiteral(" / Ошибка при подготовке запроса к СУБД");
const QString ExecuteFailed = QStringLiteral(" / Ошибка при выполнении запроса к СУБД");
const QString CannotPrepare =
    QStringLiteral("Невозможно подготовить запрос / Отсутствует соединение с СУБД");
const QString CannotExecute =
    QStringLiteral("Невозможно выполнить подготовленный запрос / Отсутствует соединение с СУБД");

QString failed(const QLatin1String &text, const QString &operation)
{
    return text.endsWith(QLatin1String(" rows")) ? QString(text) : text + operation;
}

QString forbidden(bool commit)
{
    return commit ? QStringLiteral("Текущее состояние соединения запрещает завершение транзакции")
                  : QStringLiteral("Текущее состояние соединения запрещает начало транзакции");
}

// What the first read says.
QString firstText(const Step &step, const Reply &reply)
{
    switch (step.kind) {
    case Kind::Prepare:
        return failed(reply.toPrepare, PrepareFailed);
    case Kind::Describe:
        return failed(reply.toDescribe, PrepareFailed);
    case Kind::Run:
        return failed(reply.toRun, ExecuteFailed);
    case Kind::Fetch:
        return reply.toFetch.endsWith(QLatin1String(" rows"))
                   ? QString(reply.toFetch)
                   : QStringLiteral("128 rows, then ") + reply.toFetch + ExecuteFailed;
    case Kind::Plain:
        // What these commands answer is not looked at.
        return reply.loses && step.moment.link == 2 ? CannotPrepare : QString(AllRows);
    case Kind::Close:
        break;
    }
    return AllRows;
}

After afterwards(const Step &step, const Reply &reply)
{
    if (!reply.loses) {
        return After::Usable;
    }
    if (step.moment.link == 1) {
        return After::OwnLost;
    }
    // Given back by its last statement, a connection that is lost is replaced; one that got none
    // stays borrowed.
    const bool given =
        step.kind == Kind::Run || step.kind == Kind::Fetch || step.kind == Kind::Close;
    return given ? After::Usable : After::BorrowedLost;
}

} // namespace

Q_DECLARE_METATYPE(Column)
Q_DECLARE_METATYPE(PeerMoment)
Q_DECLARE_METATYPE(Reply)
Q_DECLARE_METATYPE(After)

class tst_HostileServer : public QObject
{
    Q_OBJECT

private slots:
    void cleanup();

    void stepsOfARead_data();
    void stepsOfARead();
    void runOfAWrite_data();
    void runOfAWrite();
    void transactionCommands_data();
    void transactionCommands();
    void savepoints_data();
    void savepoints();
    void lyingTransactionStates_data();
    void lyingTransactionStates();
    void lyingStatesOfTheBorrowedConnection_data();
    void lyingStatesOfTheBorrowedConnection();
    void answersToCurrentSchema_data();
    void answersToCurrentSchema();
    void answersToLastval_data();
    void answersToLastval();
    void describedColumns_data();
    void describedColumns();
    void unknownTypeIsFatal_data();
    void unknownTypeIsFatal();
    void failedRuns_data();
    void failedRuns();
    void runOfOtherColumns_data();
    void runOfOtherColumns();
    void runOfUnknownTypeIsFatal_data();
    void runOfUnknownTypeIsFatal();
    void valuesOfAnyLength_data();
    void valuesOfAnyLength();
    void codecsAreThoseOfTheLogin();
    void pageInSingleBytes();
    void resetDuringALargeWrite();

private:
    void play(const PeerMoment &moment, const std::function<void(PeerLink &)> &instead,
              const OrdinaryAnswers &answers = numbers());
    void open();

    std::atomic<bool> overdue{false};
    std::unique_ptr<ScriptedPeer> peer;
    QSqlDatabase database;
};

void tst_HostileServer::cleanup()
{
    database = QSqlDatabase();
    QSqlDatabase::removeDatabase(QStringLiteral("hostile"));
    peer.reset();
    QVERIFY2(!overdue.exchange(false), "the client waited until the peer hung up");
}

void tst_HostileServer::play(const PeerMoment &moment,
                             const std::function<void(PeerLink &)> &instead,
                             const OrdinaryAnswers &answers)
{
    peer.reset(new ScriptedPeer(ordinaryUntil(moment, instead, answers, overdue)));
    open();
}

void tst_HostileServer::open()
{
    database = QSqlDatabase::addDatabase(
        new DorvyDriver(QSharedPointer<Dorvy3Transacted>::create()), QStringLiteral("hostile"));
    database.setHostName(peer->host());
    database.setPort(peer->port());
    database.setUserName(QStringLiteral("u"));
    database.setDatabaseName(QStringLiteral("d"));
    database.setConnectOptions(QStringLiteral("sslmode=disable;gssencmode=disable"));
    QVERIFY_SQL(database, database.open());
}

void tst_HostileServer::stepsOfARead_data()
{
    QTest::addColumn<PeerMoment>("moment");
    QTest::addColumn<Reply>("reply");
    QTest::addColumn<QString>("first");
    QTest::addColumn<After>("after");
    for (const Step &step : steps()) {
        for (const Reply &reply : replies()) {
            QTest::newRow((QByteArray(step.name) + ": " + reply.name).constData())
                << step.moment << reply << firstText(step, reply) << afterwards(step, reply);
        }
    }
}

void tst_HostileServer::stepsOfARead()
{
    QFETCH(PeerMoment, moment);
    QFETCH(Reply, reply);
    QFETCH(QString, first);
    QFETCH(After, after);
    play(moment, [=](PeerLink &link) { reply.give(link, moment.types == "Q"); });
    QCOMPARE(read(database), first);
    if (after == After::OwnLost) {
        read(database); // takes in the answer to a close, if that was it
        QVERIFY(!database.isOpen());
        return;
    }
    QVERIFY(database.isOpen());
    if (after == After::BorrowedLost) {
        QCOMPARE(read(database), QString(CannotPrepare));
        QVERIFY(database.isOpen()); // which is the own connection's state
        database.close();
        QVERIFY_SQL(database, database.open());
    }
    QCOMPARE(read(database), QStringLiteral("130 rows"));
    QCOMPARE(write(database), QStringLiteral("done"));
}

void tst_HostileServer::runOfAWrite_data()
{
    QTest::addColumn<Reply>("reply");
    QTest::addColumn<QString>("first");
    const QString done = QStringLiteral("done");
    for (const Reply &reply : replies()) {
        // Rows where none were described are no failure; nobody reads them.
        const bool works = reply.toCommand == done || reply.name == QByteArray("rows");
        QTest::newRow(reply.name) << reply << (works ? done : reply.toCommand + ExecuteFailed);
    }
}

void tst_HostileServer::runOfAWrite()
{
    QFETCH(Reply, reply);
    QFETCH(QString, first);
    play({1, "BDES", ""}, [=](PeerLink &link) { reply.give(link, false); });
    QCOMPARE(write(database), first);
    const QString second = write(database);
    QCOMPARE(second == QLatin1String("done"), !reply.loses);
    QCOMPARE(database.isOpen(), !reply.loses);
}

void tst_HostileServer::transactionCommands_data()
{
    QTest::addColumn<QByteArray>("command");
    QTest::addColumn<QString>("failure");
    QTest::addColumn<Reply>("reply");
    const QList<QPair<QByteArray, QString>> commands{
        {"BEGIN", QStringLiteral("Ошибка при попытке начать транзакцию")},
        {"COMMIT", QStringLiteral("Ошибка при попытке завершить транзакцию")},
        {"ROLLBACK", QStringLiteral("Ошибка при попытке отменить транзакцию")}};
    for (const auto &command : commands) {
        for (const Reply &reply : replies()) {
            QTest::newRow((command.first + ": " + reply.name).constData())
                << command.first << command.second << reply;
        }
    }
}

void tst_HostileServer::transactionCommands()
{
    QFETCH(QByteArray, command);
    QFETCH(QString, failure);
    QFETCH(Reply, reply);
    play({1, "Q", command}, [=](PeerLink &link) { reply.give(link, true); });
    bool done = database.transaction();
    if (command != "BEGIN") {
        QVERIFY_SQL(database, done);
        done = command == "COMMIT" ? database.commit() : database.rollback();
    }
    const QSqlError error = database.lastError();
    QCOMPARE(done, reply.toCommand == QLatin1String("done"));
    if (!done) {
        QCOMPARE(error.driverText(), failure);
        QCOMPARE(error.databaseText().simplified(), QString(reply.toCommand));
        QCOMPARE(error.type(), QSqlError::TransactionError);
    }
    QCOMPARE(read(database) == AllRows, !reply.loses);
    QCOMPARE(database.isOpen(), !reply.loses);
}

void tst_HostileServer::savepoints_data()
{
    QTest::addColumn<QByteArray>("command");
    QTest::addColumn<Reply>("reply");
    QTest::addColumn<QString>("first");
    for (const Reply &reply : replies()) {
        const QString done = QStringLiteral("done");
        QTest::newRow((QByteArray("SAVEPOINT: ") + reply.name).constData())
            << QByteArray("SAVEPOINT ") << reply << (reply.loses ? CannotPrepare : done);
        QTest::newRow((QByteArray("RELEASE: ") + reply.name).constData())
            << QByteArray("RELEASE SAVEPOINT ") << reply << (reply.loses ? CannotExecute : done);
    }
}

// What these commands answer is not looked at.
void tst_HostileServer::savepoints()
{
    QFETCH(QByteArray, command);
    QFETCH(Reply, reply);
    QFETCH(QString, first);
    play({1, "Q", command}, [=](PeerLink &link) { reply.give(link, true); });
    QVERIFY_SQL(database, database.transaction());
    QCOMPARE(write(database), first);
    QCOMPARE(database.isOpen(), !reply.loses);
    QCOMPARE(read(database) == AllRows, !reply.loses);
}

// The state is what the last ReadyForQuery says; the next one can only be the truth again.
void tst_HostileServer::lyingTransactionStates_data()
{
    QTest::addColumn<char>("state");
    QTest::addColumn<bool>("commits");
    QTest::addColumn<bool>("begins");
    QTest::newRow("idle") << 'I' << false << true;
    QTest::newRow("in a transaction") << 'T' << true << false;
    QTest::newRow("in a failed transaction") << 'E' << false << false;
    QTest::newRow("of no kind") << '?' << false << false;
}

void tst_HostileServer::lyingTransactionStates()
{
    QFETCH(char, state);
    QFETCH(bool, commits);
    QFETCH(bool, begins);
    for (const bool commit : {true, false}) {
        const bool works = commit ? commits : begins;
        play({1, "BDES", ""}, [state](PeerLink &link) {
            link.send(bindComplete() + commandComplete("INSERT 0 1") + readyForQuery(state));
        });
        {
            QSqlQuery query(database); // its close would be answered with the truth
            QVERIFY_SQL(query, query.exec(QStringLiteral("INSERT INTO t VALUES (1)")));
            QCOMPARE(commit ? database.commit() : database.transaction(), works);
            QCOMPARE(database.lastError().databaseText(), works ? QString() : forbidden(commit));
            QVERIFY_SQL(database, database.rollback());
        }
        QVERIFY_SQL(database, database.transaction());
        QVERIFY_SQL(database, database.commit());
        QCOMPARE(read(database), QString(AllRows));
        cleanup();
    }
}

void tst_HostileServer::lyingStatesOfTheBorrowedConnection_data()
{
    QTest::addColumn<QByteArray>("command");
    QTest::addColumn<char>("state");
    for (const char *command : {"BEGIN", "ROLLBACK"}) {
        for (const char state : {'I', 'T', 'E', '?'}) {
            QTest::newRow((QByteArray(command) + ": " + state).constData())
                << QByteArray(command) << state;
        }
    }
}

void tst_HostileServer::lyingStatesOfTheBorrowedConnection()
{
    QFETCH(QByteArray, command);
    QFETCH(char, state);
    play({2, "Q", command},
         [=](PeerLink &link) { link.send(commandComplete(command) + readyForQuery(state)); });
    QCOMPARE(read(database), QString(AllRows));
    QCOMPARE(read(database), QString(AllRows));
    QVERIFY(database.isOpen());
}

void tst_HostileServer::answersToCurrentSchema_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<QByteArray>("path");
    const QByteArray t = rowDescription({column(OidName, 64)});
    const QByteArray c = commandComplete("SELECT 1");
    const QByteArray huge(1000000, 'x');
    QTest::newRow("a schema") << t + dataRow({"s"}) + c << QByteArray("s");
    QTest::newRow("null") << t + dataRow({QByteArray()}) + c << QByteArray();
    QTest::newRow("empty") << t + dataRow({""}) + c << QByteArray();
    QTest::newRow("no row") << t + c << QByteArray();
    QTest::newRow("no column") << rowDescription({}) + dataRow({}) + c << QByteArray();
    QTest::newRow("nothing") << c << QByteArray();
    QTest::newRow("two rows") << t + dataRow({"s"}) + dataRow({"r"}) + c << QByteArray("s");
    QTest::newRow("two results") << t + dataRow({"s"}) + c + t + dataRow({"r"}) + c
                                 << QByteArray("r");
    QTest::newRow("huge") << t + dataRow({huge}) + c << huge;
    QTest::newRow("not UTF-8") << t + dataRow({"s\xffs"}) + c << QByteArray("s\xef\xbf\xbds");
    QTest::newRow("error") << failure("no") << QByteArray();
    QTest::newRow("error after the row") << t + dataRow({"s"}) + failure("no") << QByteArray();
}

// The answer becomes the borrowed connection's path; where there is none, no path is set.
void tst_HostileServer::answersToCurrentSchema()
{
    QFETCH(QByteArray, reply);
    QFETCH(QByteArray, path);
    OrdinaryAnswers answers = numbers();
    answers.answer("SELECT current_schema()", reply);
    QMutex mutex;
    QByteArray sent;
    play(
        {2, "Q", "SET SEARCH_PATH"},
        [&](PeerLink &link) {
            const QMutexLocker locker(&mutex);
            sent = link.lastBody().chopped(1);
            link.send(commandComplete("SET") + readyForQuery('I'));
        },
        answers);
    QCOMPARE(read(database), QString(AllRows));
    const QMutexLocker locker(&mutex);
    QCOMPARE(sent, path.isEmpty() ? QByteArray() : "SET SEARCH_PATH TO " + path);
}

void tst_HostileServer::answersToLastval_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<QVariant>("id");
    const QByteArray t = rowDescription({column(OidInt8, 8)});
    const QByteArray c = commandComplete("SELECT 1");
    QTest::newRow("a number") << t + dataRow({"12"}) + c << QVariant(12);
    QTest::newRow("no number") << t + dataRow({"x"}) + c << QVariant(0);
    QTest::newRow("too large") << t + dataRow({"99999999999"}) + c << QVariant(0);
    QTest::newRow("null") << t + dataRow({QByteArray()}) + c << QVariant(0);
    QTest::newRow("no row") << t + c << QVariant(0);
    QTest::newRow("no column") << rowDescription({}) + dataRow({}) + c << QVariant(0);
    QTest::newRow("rows without end") << t + dataRow({"12"}) << QVariant();
    QTest::newRow("bad row") << t + dataRow({}) + c << QVariant();
    QTest::newRow("suspended") << t + dataRow({"12"}) + portalSuspended() << QVariant();
    QTest::newRow("tag") << c << QVariant();
    QTest::newRow("error") << failure("no") << QVariant();
    QTest::newRow("nothing") << QByteArray() << QVariant();
}

void tst_HostileServer::answersToLastval()
{
    QFETCH(QByteArray, reply);
    QFETCH(QVariant, id);
    OrdinaryAnswers answers = numbers();
    answers.answer("SELECT lastval()", reply);
    play(
        {}, [](PeerLink &) {}, answers);
    QSqlQuery query(database);
    QVERIFY_SQL(query, query.exec(QStringLiteral("INSERT INTO t VALUES (1)")));
    const QVariant last = query.lastInsertId();
    QCOMPARE(last.isValid(), id.isValid());
    QCOMPARE(last, id);
    QCOMPARE(read(database), QString(AllRows));
}

void tst_HostileServer::describedColumns_data()
{
    constexpr int Least = std::numeric_limits<int>::min();
    constexpr int Most = std::numeric_limits<int>::max();
    QTest::addColumn<Column>("described");
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("length");
    QTest::addColumn<int>("precision");
    const auto add = [](const char *tag, const Column &described, int length, int precision) {
        QTest::newRow(tag) << described << QStringLiteral("a") << length << precision;
    };
    add("size of no type", column(OidInt4, -32768), -32768, -1);
    add("largest size", column(OidInt4, 32767), 32767, -1);
    add("size zero", column(OidInt4, 0), 0, -1);
    add("numeric, least modifier", column(OidNumeric, -1, Least), -32768, 65532);
    add("numeric, next to it", column(OidNumeric, -1, Least + 4), -32768, 0);
    add("numeric, largest modifier", column(OidNumeric, -1, Most), 32767, 65531);
    add("numeric, negative modifier", column(OidNumeric, -1, -2), -1, 65530);
    add("numeric, modifier less than its header", column(OidNumeric, -1, 3), 0, 65535);
    add("varchar, least modifier", column(OidVarchar, -1, Least), -1, Least);
    add("varchar, largest modifier", column(OidVarchar, -1, Most), 2147483643, -1);
    add("varchar, modifier less than its header", column(OidVarchar, -1, 3), -1, 3);
    add("varchar with a size", column(OidVarchar, 7, 9), 7, 9);
    add("uuid, least modifier", column(OidUuid, 16, Least), 38, Least);
    add("timestamp, modifier and size", column(OidTimestamp, -2, Most), -2, 3);
    QTest::newRow("name not UTF-8")
        << column(OidInt4, 4, -1, "a\xffz") << QStringLiteral("a\ufffdz") << 4 << -1;
    QTest::newRow("name cut in a character")
        << column(OidInt4, 4, -1, "a\xd0") << QStringLiteral("a\ufffd") << 4 << -1;
    QTest::newRow("name empty") << column(OidInt4, 4, -1, "") << QString() << 4 << -1;
    QTest::newRow("name of 20000 bytes") << column(OidInt4, 4, -1, QByteArray(20000, 'n'))
                                         << QString(20000, QLatin1Char('n')) << 4 << -1;
}

void tst_HostileServer::describedColumns()
{
    QFETCH(Column, described);
    QFETCH(QString, name);
    QFETCH(int, length);
    QFETCH(int, precision);
    play(
        {}, [](PeerLink &) {}, oneValue(described, "1234"));
    QSqlQuery query(database);
    QVERIFY_SQL(query, query.exec(QStringLiteral("SELECT a FROM t")) && query.next());
    const QSqlField field = query.record().field(0);
    QCOMPARE(field.name(), name);
    QCOMPARE(field.length(), length);
    QCOMPARE(field.precision(), precision);
}

void tst_HostileServer::unknownTypeIsFatal_data()
{
    QTest::addColumn<quint32>("type");
    QTest::addColumn<QString>("message");
    QTest::newRow("0") << 0u << QStringLiteral("DORVY: hlpDecodePSQLType - unknown ptype (0)");
    QTest::newRow("99999") << 99999u
                           << QStringLiteral("DORVY: hlpDecodePSQLType - unknown ptype (99999)");
    QTest::newRow("2^32-1") << 0xffffffffu
                            << QStringLiteral("DORVY: hlpDecodePSQLType - unknown ptype (-1)");
}

// Meant: a type that the driver does not know ends the process.
void tst_HostileServer::unknownTypeIsFatal()
{
    QFETCH(quint32, type);
    QFETCH(QString, message);
    peer.reset(new ScriptedPeer(ordinaryUntil(
        {}, [](PeerLink &) {}, oneValue(column(static_cast<int>(type)), "1"), overdue)));
    const ChildOutcome outcome = runInChild([this] {
        open();
        read(database);
    });
    QCOMPARE(outcome.fatal, message);
    QVERIFY(outcome.aborted);
}

void tst_HostileServer::failedRuns_data()
{
    QTest::addColumn<QByteArray>("failure");
    QTest::addColumn<QList<bool>>("runs"); // whether each works
    const QByteArray z = readyForQuery('T');
    const QByteArray started = closeComplete() + bindComplete();
    const QByteArray rows =
        started + rowDescription(numberAndText()) + dataRow({number(1, 4), "text"});
    const QList<QPair<const char *, QByteArray>> failures{
        {"error", started + failure("no") + z},
        {"error behind a row", rows + failure("no") + z},
        {"bad row behind a good one", rows + dataRow({"1"}) + commandComplete("SELECT 2") + z},
        {"rows without end", rows + z},
        {"no rows and no description", started + z}};
    for (const auto &failure : failures) {
        const auto add = [&failure](const char *tag, const QList<bool> &runs) {
            QTest::newRow((QByteArray(failure.first) + ", " + tag).constData())
                << failure.second << runs;
        };
        add("first run", {false, true, true});
        add("second run", {true, false, true});
        add("twice in a row", {true, false, false, true});
        add("every other run", {false, true, false, true, false, true});
    }
}

// Each leaves nothing to look at, and the next that works is described anew.
void tst_HostileServer::failedRuns()
{
    QFETCH(QByteArray, failure);
    QFETCH(QList<bool>, runs);
    QList<QByteArray> replies;
    for (const bool works : runs) {
        replies += works ? ordinaryRun() : failure;
    }
    play({2, "CBDES", ""}, oneByOne(replies), OrdinaryAnswers(numberAndText(), {}));
    QSqlQuery query(database);
    QVERIFY_SQL(query, query.prepare(QStringLiteral("SELECT a, b FROM t")));
    for (const bool works : runs) {
        if (works) {
            verifyOrdinaryRun(query);
        } else {
            QVERIFY(!query.exec());
            QVERIFY(query.record().isEmpty());
            QVERIFY(!query.isActive());
            QVERIFY(!query.first());
            QVERIFY(query.isNull(0));
        }
    }
}

void tst_HostileServer::runOfOtherColumns_data()
{
    QTest::addColumn<QList<Column>>("described");
    QTest::addColumn<OrdinaryAnswers::Row>("row");
    QTest::addColumn<QVariantList>("values"); // an invalid one is SQL NULL
    QTest::addColumn<int>("run");             // that has them
    const QVariant one(1);
    const QVariant text(QStringLiteral("text"));
    const Column a = column(OidInt4, 4);
    const Column b = column(OidVarchar, -1, 14, "b");
    const auto add = [](const char *tag, const QList<Column> &described,
                        const OrdinaryAnswers::Row &row, const QVariantList &values) {
        for (const int run : {1, 2}) {
            QTest::newRow((QByteArray(tag) + ", run " + QByteArray::number(run)).constData())
                << described << row << values << run;
        }
    };
    const auto inText = [](Column column) {
        column.format = 0;
        return column;
    };
    add("other name", {a, column(OidVarchar, -1, 14, "c")}, {number(1, 4), "text"}, {one, text});
    add("other type", {column(OidInt8, 4), b}, {number(1, 8), "text"},
        {QVariant(Q_INT64_C(1)), text});
    add("other type, of shorter values", {column(OidInt2, 4), b}, {number(1, 2), "text"},
        {QVariant::fromValue(short(1)), text});
    add("other size", {column(OidInt4, 5), b}, {number(1, 4), "text"}, {one, text});
    add("other modifier", {a, column(OidVarchar, -1, 24, "b")}, {number(1, 4), "text"},
        {one, text});
    add("swapped", {b, a}, {"text", number(1, 4)}, {text, one});
    add("one more", {a, b, column(OidBool, 1, -1, "c")}, {number(1, 4), "text", number(1, 1)},
        {one, text, QVariant(true)});
    add("one fewer", {a}, {number(1, 4)}, {one});
    add("none", {}, {}, {});
    add("null of another type", {column(OidDate, 4), b}, {QByteArray(), "text"},
        {QVariant(), text});
    add("text format", {inText(a), inText(b)}, {"1", "text"}, {one, text});
    add("null in text format", {inText(a), inText(b)}, {"1", QByteArray()}, {one, QVariant()});
}

// Whatever the server described: record and values are those of the page.
void tst_HostileServer::runOfOtherColumns()
{
    QFETCH(QList<Column>, described);
    QFETCH(OrdinaryAnswers::Row, row);
    QFETCH(QVariantList, values);
    QFETCH(int, run);
    play({2, "CBDES", ""}, otherColumns(described, row, run),
         OrdinaryAnswers(numberAndText(), {{number(1, 4), "text"}}));
    QSqlQuery query(database);
    QVERIFY_SQL(query, query.prepare(QStringLiteral("SELECT a, b FROM t")));
    if (run == 2) {
        verifyOrdinaryRun(query);
    }
    QVERIFY_SQL(query, query.exec() && query.first());
    verifyColumns(query.record(), described);
    verifyValues(query, values);
    QVERIFY_SQL(query, query.next()); // on the next page
    verifyColumns(query.record(), described);
    verifyValues(query, values);
    QVERIFY(!query.next());
    verifyOrdinaryRun(query);
}

void tst_HostileServer::runOfUnknownTypeIsFatal_data()
{
    QTest::addColumn<int>("run");
    QTest::newRow("first") << 1;
    QTest::newRow("second") << 2;
}

// Meant, though the server described a type that the driver knows.
void tst_HostileServer::runOfUnknownTypeIsFatal()
{
    QFETCH(int, run);
    peer.reset(new ScriptedPeer(ordinaryUntil(
        {2, "CBDES", ""},
        otherColumns({column(OidInt4, 4), column(99999, 4, -1, "b")}, {number(1, 4), "1"}, run),
        OrdinaryAnswers(numberAndText(), {{number(1, 4), "text"}}), overdue)));
    const ChildOutcome outcome = runInChild([this] {
        open();
        QSqlQuery query(database);
        query.prepare(QStringLiteral("SELECT a, b FROM t"));
        query.exec();
        qInfo("first run");
        query.exec();
    });
    QCOMPARE(outcome.fatal, QStringLiteral("DORVY: hlpDecodePSQLType - unknown ptype (99999)"));
    QVERIFY(outcome.aborted);
    QCOMPARE(outcome.output.contains(QLatin1String("first run")), run == 2);
}

void tst_HostileServer::valuesOfAnyLength_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QVariant>("value");
    const auto add = [](const char *tag, int type, const QByteArray &bytes, const QVariant &value) {
        QTest::newRow(tag) << type << bytes << value;
    };
    const QVariant invalid;
    add("bool of 0 bytes", OidBool, "", invalid);
    add("bool of 2 bytes", OidBool, number(0x0100, 2), QVariant(true));
    add("int2 of 1 byte", OidInt2, number(1, 1), invalid);
    add("int2 of 3 bytes", OidInt2, number(0x000109, 3), QVariant::fromValue(short(1)));
    add("int4 of 0 bytes", OidInt4, "", invalid);
    add("int4 of 3 bytes", OidInt4, number(1, 3), invalid);
    add("int4 of 8 bytes", OidInt4, number(Q_INT64_C(0x0000000100000002), 8), QVariant(1));
    add("int8 of 7 bytes", OidInt8, number(1, 7), invalid);
    add("float4 of 3 bytes", OidFloat4, number(1, 3), invalid);
    add("float8 of 7 bytes", OidFloat8, number(1, 7), invalid);
    add("date of 3 bytes", OidDate, number(1, 3), invalid);
    add("time of 7 bytes", OidTime, number(1, 7), invalid);
    add("timestamp of 7 bytes", OidTimestamp, number(1, 7), invalid);
    add("timestamptz of 0 bytes", OidTimestampTz, "", invalid);
    add("numeric of 0 bytes", OidNumeric, "", invalid);
    add("numeric of 7 bytes", OidNumeric, number(0, 7), invalid);
    add("numeric without digits that it counts", OidNumeric, number(5, 2) + number(0, 6), invalid);
    add("numeric of 65535 digits, none there", OidNumeric, number(-1, 2) + number(0, 6), invalid);
    add("numeric with more digits than counted", OidNumeric,
        number(1, 2) + number(0, 6) + number(7, 2) + number(8, 2), QVariant(7.0));
    add("numeric, least weight", OidNumeric,
        number(1, 2) + number(-32768, 2) + number(0, 4) + number(7, 2), QVariant(0.0));
    add("numeric, largest weight", OidNumeric,
        number(1, 2) + number(32767, 2) + number(0, 4) + number(7, 2),
        QVariant(std::numeric_limits<double>::infinity()));
    add("uuid of 15 bytes", OidUuid, QByteArray(15, '\0'), invalid);
    add("uuid of 17 bytes", OidUuid, QByteArray(17, '\1'),
        QVariant(QUuid(QStringLiteral("{01010101-0101-0101-0101-010101010101}"))));
    add("text of 0 bytes", OidText, "", QVariant(QString(QLatin1String(""))));
    add("text with a zero", OidText, QByteArray("a\0b", 3), QVariant(QStringLiteral("a")));
    add("text not UTF-8", OidText, "a\xff", QVariant(QStringLiteral("a\ufffd")));
    add("bytea of 0 bytes", OidBytea, "", QVariant(QByteArray("")));
    add("jsonb of 0 bytes", OidJsonb, "", QVariant(QByteArray("")));
}

void tst_HostileServer::valuesOfAnyLength()
{
    QFETCH(int, type);
    QFETCH(QByteArray, bytes);
    QFETCH(QVariant, value);
    play(
        {}, [](PeerLink &) {}, oneValue(column(type), bytes));
    QSqlQuery query(database);
    QVERIFY_SQL(query, query.exec(QStringLiteral("SELECT a FROM t")) && query.next());
    QCOMPARE(query.value(0).isValid(), value.isValid());
    QCOMPARE(query.value(0), value);
    QVERIFY(!query.next());
}

void tst_HostileServer::codecsAreThoseOfTheLogin()
{
    const QByteArray letter = "\xd0\x9f"; // in UTF-8
    play({2, "CBDES", ""}, [letter](PeerLink &link) {
        link.send(closeComplete() + bindComplete() + rowDescription({column(OidText)}) +
                  parameterStatus("client_encoding", "LATIN1") + dataRow({letter}) +
                  parameterStatus("server_encoding", "no encoding") + dataRow({letter}) +
                  commandComplete("SELECT 2") + readyForQuery('T'));
    });
    QSqlQuery query(database);
    QVERIFY_SQL(query, query.exec(QStringLiteral("SELECT a FROM t")));
    for (int row = 0; row < 2; ++row) {
        QVERIFY(query.next());
        QCOMPARE(query.value(0).toString(), QStringLiteral("П"));
    }
    query.clear();
    QCOMPARE(read(database), QString(AllRows));
}

void tst_HostileServer::pageInSingleBytes()
{
    play({2, "CBDES", ""}, [](PeerLink &link) {
        link.sendInPieces(closeComplete() + bindComplete() + rowDescription({column(OidInt4)}) +
                              dataRow({number(1, 4)}) + dataRow({number(2, 4)}) +
                              portalSuspended() + readyForQuery('T'),
                          1);
    });
    // What follows is the ordinary first page, of which nothing has been sent.
    QSqlQuery query(database);
    QVERIFY_SQL(query, query.exec(QStringLiteral("SELECT a FROM t")));
    QCOMPARE(query.size(), 2);
    QVERIFY(query.next() && query.next());
    QCOMPARE(query.value(0).toInt(), 2);
    QVERIFY(query.next());
    QCOMPARE(query.size(), 128);
}

void tst_HostileServer::resetDuringALargeWrite()
{
    play({1, "DS", ""}, [](PeerLink &link) {
        link.send(parameterDescription({OidText}) + noData() + readyForQuery('I'));
        link.awaitByte(); // of the Bind, of which nothing is read
        link.reset();
    });
    QSqlQuery query(database);
    QVERIFY_SQL(query, query.prepare(QStringLiteral("INSERT INTO t VALUES (?)")));
    query.addBindValue(QString(8 * 1024 * 1024, QLatin1Char('x')));
    QVERIFY(!query.exec());
    QCOMPARE(query.lastError().type(), QSqlError::StatementError);
    QVERIFY(!query.lastError().driverText().isEmpty());
    QVERIFY(!database.isOpen());
}

QTEST_GUILESS_MAIN(tst_HostileServer)
#include "tst_hostileserver.moc"
