// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The client extension against a server that breaks the protocol.
#include "client/ppqcall.h"
#include "client/ppqsettle.h"

#include "tests/client/peerpages.h"

#include <sys/socket.h>

#include <chrono>
#include <future>

using namespace ServerMessage;

namespace {

constexpr char CloseBoth[] = "CCS"; // PPQclose

const char *const HangUp = "server closed the connection unexpectedly\n"
                           "\tThis probably means the server terminated abnormally\n"
                           "\tbefore or while processing the request.\n";

constexpr int MoreThanSocketsHold = 8 * 1024 * 1024; // bytes

// What the extension and libpq say.
const char *const NoResult = "nothing | the server answered without a result\n";
const char *const SeveralResults = "nothing | the server answered with more than one result\n";
const char *const NoEnd = "nothing | the server answered with a result that has no end\n";
const char *const EndsEarly =
    "nothing | out of memory, or a message of the server ends too early\n";
const char *const ServersError = "PGRES_FATAL_ERROR | ERROR:  no\n";
const char *const RowWithoutColumns =
    "PGRES_FATAL_ERROR | server sent data (\"D\" message) without prior row description (\"T\" "
    "message)\n";
const char *const FieldCount = "PGRES_FATAL_ERROR | unexpected field count in \"D\" message\n";
const char *const ShortRow = "PGRES_FATAL_ERROR | insufficient data in \"D\" message\n";
const char *const LongRow =
    "PGRES_FATAL_ERROR | message contents do not agree with length in message type \"D\"\n";
const char *const ShortDescription = "PGRES_FATAL_ERROR | insufficient data in \"T\" message\n";
const char *const Suspended =
    "PGRES_FATAL_ERROR | unexpected response from server; first received character was \"s\"\n";
const char *const Unknown =
    "PGRES_FATAL_ERROR | unexpected response from server; first received character was \"~\"\n";

// Bytes of the server's, for a table.
struct Kind
{
    const char *name;
    QByteArray message;
};

QByteArray description(int count = 1)
{
    return rowDescription(columns(count));
}

QByteArray number(qint64 value, int bytes)
{
    QByteArray text;
    for (int shift = (bytes - 1) * 8; shift >= 0; shift -= 8) {
        text += static_cast<char>(value >> shift);
    }
    return text;
}

/*! The message that starts \a bytes with another length word. */
QByteArray withLength(QByteArray bytes, qint32 length)
{
    return bytes.replace(1, 4, number(length, 4));
}

/*! A DataRow that announces \a count fields, with \a fields as they stand. */
QByteArray rawRow(int count, const QByteArray &fields)
{
    return message('D', number(count, 2) + fields);
}

QByteArray failure(const QByteArray &text)
{
    return errorResponse("XX000", text);
}

QByteArray copyResponse(char type)
{
    return message(type, QByteArray(3, '\0'));
}

QByteArray ready()
{
    return readyForQuery('I');
}

QByteArray textOfRows(const PGresult *result)
{
    QByteArray text = "rows";
    for (int row = 0; row < PQntuples(result); ++row) {
        for (int column = 0; column < PQnfields(result); ++column) {
            text += column > 0 ? ',' : ' ';
            text += PQgetisnull(result, row, column) ? QByteArray("NULL")
                                                     : QByteArray(PQgetvalue(result, row, column));
        }
    }
    const QByteArray tag = PQcmdStatus(const_cast<PGresult *>(result));
    return text + " | " + (tag.isEmpty() ? QByteArray("suspended") : tag);
}

/*! A result, or what stands in its place, in one line for a table. */
QByteArray textOf(const ResultPtr &result, PGconn *conn)
{
    if (!result) {
        return "nothing | " + QByteArray(PQerrorMessage(conn));
    }
    switch (PQresultStatus(result.get())) {
    case PGRES_TUPLES_OK:
        return textOfRows(result.get());
    case PGRES_COMMAND_OK:
        return "done | " + QByteArray(PQcmdStatus(result.get()));
    default:
        return QByteArray(PQresStatus(PQresultStatus(result.get()))) + " | " +
               QByteArray(PQresultErrorMessage(result.get()));
    }
}

// What libpq sends itself, behind a close.
struct PeerCall
{
    std::function<PGresult *(PGconn *)> make;
    const char *answer;
};

QList<PeerCall> peerCalls()
{
    return {{[](PGconn *conn) { return ppqExec(conn, "SELECT alive"); }, "rows SELECT alive"},
            {[](PGconn *conn) { return ppqPrepare(conn, "st", "SELECT"); }, "done"},
            {[](PGconn *conn) { return ppqDescribePrepared(conn, "st"); }, "done"},
            {[](PGconn *conn) {
                 return ppqExecReopened(conn, 2, "st", "po", 0, nullptr, nullptr, nullptr, 1);
             },
             "rows 1 2"}};
}

// A call behind a close, and the server's words for it up to its end.
struct BehindClose
{
    const char *name;
    std::function<PGresult *(PGconn *)> make;
    QByteArray answer;
    QByteArray expected;
};

QList<BehindClose> behindCloses()
{
    const QByteArray page = description() + dataRow({"1"}) + dataRow({"2"});
    return {
        {"exec", [](PGconn *conn) { return ppqExec(conn, "SELECT"); },
         page + commandComplete("SELECT 2"), "rows 1 2 | SELECT 2"},
        {"exec that fails", [](PGconn *conn) { return ppqExec(conn, "SELECT"); }, failure("no"),
         ServersError},
        {"prepare", [](PGconn *conn) { return ppqPrepare(conn, "st", "SELECT"); }, parseComplete(),
         "done | "},
        {"describe", [](PGconn *conn) { return ppqDescribePrepared(conn, "st"); },
         parameterDescription({}) + noData(), "done | "},
        {"execute",
         [](PGconn *conn) { return ppqExecPrepared(conn, "st", 0, nullptr, nullptr, nullptr, 1); },
         bindComplete() + noData() + commandComplete("INSERT 0 1"), "done | INSERT 0 1"},
        {"first page",
         [](PGconn *conn) {
             return PPQexecPrepared(conn, 2, "st", "po", 0, nullptr, nullptr, nullptr, 1);
         },
         bindComplete() + page + portalSuspended(), "rows 1 2 | suspended"},
        {"reopened",
         [](PGconn *conn) {
             return ppqExecReopened(conn, 2, "st", "po", 0, nullptr, nullptr, nullptr, 1);
         },
         closeComplete() + bindComplete() + page + portalSuspended(), "rows 1 2 | suspended"}};
}

} // namespace

class tst_LibPpqPeer : public QObject, private PeerPages
{
    Q_OBJECT

private slots:
    void cleanup();

    void answersToARun_data();
    void answersToARun();
    void badRowBehindOthers_data();
    void badRowBehindOthers();
    void answersToAFetch_data();
    void answersToAFetch();
    void answersToAClose_data();
    void answersToAClose();
    void endsTooManyBehindAClose_data();
    void endsTooManyBehindAClose();
    void endOfASyncComesWithTheAnswer();
    void answersToAPlainQuery_data();
    void answersToAPlainQuery();

    void impossibleLengths_data();
    void impossibleLengths();
    void answersInPieces_data();
    void answersInPieces();
    void cutAnswers_data();
    void cutAnswers();
    void cutAnswersToACloseEndTheNextOperation();
    void closeThatIsNeverAnswered();
    void bothAnswersAtOnce_data();
    void bothAnswersAtOnce();
    void bothAnswersCut_data();
    void bothAnswersCut();
    void largeCallOfANonblockingConnectionBehindAClose();
    void errorOfACloseIsNotThatOfTheCallBehind();
    void wordsOfAServerThatGoes();
    void resetDuringALargeWrite();
    void resetDuringALongClose_data();
    void resetDuringALongClose();
    void resetDuringALongFetch();
    void resetDuringARepeatedClose();
    void largeWriteOfANonblockingConnection();
    void writeThatFailsBesideAReadThatDoesNot();

private:
    void playPageAndReset();
    void playPages(const QByteArray &second);
    using PeerPages::play;
    void play(const QByteArray &types, const Answer &answer);
    void play(const QByteArray &types, const QByteArray &reply);
    ResultPtr operate(const QString &operation);
    QByteArray ask(const char *sql) const
    {
        return textOf(ResultPtr(PQexec(conn.get(), sql)), conn.get());
    }
    void checkConnection(bool usable);
};

void tst_LibPpqPeer::cleanup()
{
    QVERIFY2(endInTime(), "the client waited until the peer hung up");
}

// Five rows, "1" to "5".
void tst_LibPpqPeer::play(const QByteArray &types, const Answer &answer)
{
    play(types, answer, OrdinaryAnswers(columns(1), {{"1"}, {"2"}, {"3"}, {"4"}, {"5"}}));
}

void tst_LibPpqPeer::play(const QByteArray &types, const QByteArray &reply)
{
    play(types, [reply](PeerLink &link) { link.send(reply); });
}

// A first page of two columns, and \a second where it is fetched from.
void tst_LibPpqPeer::playPages(const QByteArray &second)
{
    play(Run, [second](PeerLink &link) {
        link.send(bindComplete() + description(2) + dataRow({"1", "2"}) + portalSuspended() +
                  ready());
        link.readRequest();
        link.send(second);
    });
}

void tst_LibPpqPeer::checkConnection(bool usable)
{
    QCOMPARE(ppqSettle(conn.get()), usable ? 1 : 0);
    QCOMPARE(PQstatus(conn.get()), usable ? CONNECTION_OK : CONNECTION_BAD);
    if (usable) {
        QCOMPARE(ask("SELECT alive"), QByteArray("rows SELECT alive | SELECT 1"));
        const ResultPtr first = run();
        QCOMPARE(textOf(first, conn.get()), QByteArray("rows 1 2 | suspended"));
        QCOMPARE(textOf(fetch(first), conn.get()), QByteArray("rows 3 4 | suspended"));
    }
}

void tst_LibPpqPeer::answersToARun_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<QByteArray>("expected");
    QTest::addColumn<bool>("usable");
    const QByteArray b = bindComplete();
    const QByteArray t = description();
    const QByteArray d = dataRow({"1"});
    const QByteArray c = commandComplete("SELECT 1");
    const QByteArray s = portalSuspended();
    const QByteArray z = ready();
    const auto add = [](const char *tag, const QByteArray &reply, const char *expected,
                        bool usable = true) {
        QTest::newRow(tag) << reply << QByteArray(expected) << usable;
    };

    // The order of the messages.
    add("in order, to the end", b + t + d + c + z, "rows 1 | SELECT 1");
    add("in order, suspended", b + t + d + s + z, "rows 1 | suspended");
    add("bound twice", b + b + t + d + c + z, "rows 1 | SELECT 1");
    add("never bound", t + d + c + z, "rows 1 | SELECT 1");
    add("a close completed", b + closeComplete() + t + d + closeComplete() + c + z,
        "rows 1 | SELECT 1");
    add("a parse completed", parseComplete() + b + t + d + c + z, "rows 1 | SELECT 1");
    add("row before description", b + d + t + c + z, RowWithoutColumns);
    add("row without description", b + d + c + z, RowWithoutColumns);
    add("row after the end", b + t + d + c + d + z, SeveralResults);
    add("no rows and no description", b + c + z, "done | SELECT 1");
    add("no data", b + noData() + c + z, "done | SELECT 1");
    add("described twice", b + t + t + d + c + z, RowWithoutColumns);
    add("described anew", b + t + d + description(2) + dataRow({"a", "b"}) + c + z,
        RowWithoutColumns);
    add("described at the end", b + t + d + t + z, SeveralResults);
    add("description and no end", b + t + z, NoResult);
    add("rows and no end", b + t + d + z, NoResult);
    add("rows and an empty tag", b + t + d + commandComplete("") + z, NoEnd);
    add("rows and another description", b + t + d + t + z, SeveralResults);
    add("no columns and an empty tag", b + noData() + commandComplete("") + z, NoEnd);
    add("parameters and no end", b + parameterDescription({25}) + z, NoResult);
    add("bad row, parameters, suspended", b + d + parameterDescription({25}) + s + z, NoEnd);
    add("ended twice", b + t + d + c + c + z, SeveralResults);
    add("ready first", z + b + t + d + c + z, NoResult);
    add("ready twice", b + t + d + c + z + z, "rows 1 | SELECT 1");
    add("ready in between", b + t + z + d + c + z, NoResult);
    add("ready and nothing else", z, NoResult);
    add("empty query", b + emptyQueryResponse() + z, "PGRES_EMPTY_QUERY | ");
    add("rows and then an empty query", b + t + d + emptyQueryResponse() + z, NoEnd);
    add("parameters described", b + parameterDescription({25}) + t + d + c + z, RowWithoutColumns);
    add("login asked for", b + authentication(3) + t + d + c + z,
        "PGRES_FATAL_ERROR | unexpected response from server; first received character was "
        "\"R\"\n");
    add("key of the backend", b + backendKeyData(1, 2) + t + d + c + z, "rows 1 | SELECT 1");
    add("unknown type", b + t + message('~') + d + c + z, Unknown);
    add("function's result", b + t + message('V', number(-1, 4)) + d + c + z,
        "PGRES_FATAL_ERROR | unexpected response from server; first received character was "
        "\"V\"\n");

    // Suspended where nothing is.
    add("suspended before the description", b + s + t + d + c + z, Suspended);
    add("suspended and nothing else", s + z, Suspended);
    add("suspended after the end", b + t + d + c + s + z, Suspended);
    add("suspended twice", b + t + d + s + s + z, Suspended);
    add("suspended and then ended", b + t + d + s + c + z, SeveralResults);
    add("suspended, with a body", b + t + d + message('s', "x") + z, Suspended);
    add("suspended, rows go on", b + t + d + s + d + s + z, RowWithoutColumns);

    // Descriptions and rows that don't agree.
    add("fewer fields", b + description(2) + d + c + z, FieldCount);
    add("more fields", b + t + dataRow({"1", "2"}) + c + z, FieldCount);
    add("no field", b + t + dataRow({}) + c + z, FieldCount);
    add("fields: -1", b + t + rawRow(-1, "") + c + z, FieldCount);
    add("fields: 32767", b + t + rawRow(32767, number(1, 4) + "1") + c + z, FieldCount);
    add("columns: -1", b + message('T', number(-1, 2)) + d + c + z, ShortDescription);
    add("columns: 32767", b + message('T', number(32767, 2)) + d + c + z, ShortDescription);
    add("columns: one more than told", b + message('T', number(2, 2) + t.mid(7)) + d + c + z,
        ShortDescription);
    add("columns: one less than told", b + message('T', number(0, 2) + t.mid(7)) + d + c + z,
        "PGRES_FATAL_ERROR | message contents do not agree with length in message type \"T\"\n");
    add("no columns", b + description(0) + dataRow({}) + c + z, "rows | SELECT 1");
    add("field longer than its row", b + t + rawRow(1, number(9, 4) + "1") + c + z, ShortRow);
    add("field of 2^31-1 bytes", b + t + rawRow(1, number(0x7fffffff, 4) + "1") + c + z, ShortRow);
    add("field shorter than its row", b + t + rawRow(1, number(1, 4) + "123") + c + z, LongRow);
    add("field length -2", b + t + rawRow(1, number(-2, 4)) + c + z, "rows NULL | SELECT 1");
    add("field length cut", b + t + rawRow(1, "\1") + c + z, ShortRow);
    add("row without a count", b + t + message('D') + c + z, ShortRow);
    add("good row behind a bad one", b + t + rawRow(2, "") + d + c + z, FieldCount);

    // Whole messages that end inside.
    add("tag without its end", b + t + d + message('C', "SELECT 1") + z, EndsEarly, false);
    add("tag missing", b + t + d + message('C') + z, EndsEarly, false);
    add("error without its end", b + message('E', "SERROR") + z, EndsEarly, false);
    add("notice without its end", b + message('N', "SNOTICE") + t + d + c + z, EndsEarly, false);
    add("parameter without a value", b + message('S', QByteArray("a\0", 2)) + t + d + c + z,
        EndsEarly, false);
    add("notification cut", b + message('A', "123") + t + d + c + z, EndsEarly, false);
    add("key cut", b + message('K', "123") + t + d + c + z, EndsEarly, false);
    add("ready without a state", b + t + d + c + message('Z'), EndsEarly, false);
    add("state of no kind", b + t + d + c + readyForQuery('?'), "rows 1 | SELECT 1");
    add("tag with a rest", b + t + d + message('C', QByteArray("SELECT 1\0rest\0", 14)) + z,
        "PGRES_FATAL_ERROR | message contents do not agree with length in message type \"C\"\n");
    add("bind completed with a body", message('2', "body") + t + d + c + z,
        "PGRES_FATAL_ERROR | message contents do not agree with length in message type \"2\"\n");

    // Errors.
    add("error first", failure("no") + z, ServersError);
    add("error for the run", b + t + failure("no") + z, ServersError);
    add("error in the page", b + t + d + failure("no") + z, ServersError);
    add("error after the page", b + t + d + s + failure("no") + z, ServersError);
    add("error after the end", b + t + d + c + failure("no") + z, ServersError);
    add("error and then rows", b + failure("no") + t + d + c + z, ServersError);
    add("error without fields", b + message('E', QByteArray(1, '\0')) + z,
        "PGRES_FATAL_ERROR | no error message available\n");

    // What may come at any time.
    add("notice in the page", b + t + d + noticeResponse("n") + d + c + z, "rows 1 1 | SELECT 1");
    add("parameter in the page", b + t + d + parameterStatus("a", "b") + d + s + z,
        "rows 1 1 | suspended");
    add("notification in the page", b + t + d + notificationResponse(1, "c", "p") + d + s + z,
        "rows 1 1 | suspended");
    add("notice between suspended and ready", b + t + d + s + noticeResponse("n") + z,
        "rows 1 | suspended");

    // Copies.
    add("copy in", b + copyResponse('G'), "PGRES_COPY_IN | ");
    add("copy out", b + copyResponse('H') + message('c') + c + z, "PGRES_COPY_OUT | ");
    add("copy both", b + copyResponse('W') + z, "PGRES_COPY_BOTH | ", false);
    add("copy in after rows", b + t + d + copyResponse('G'), "PGRES_COPY_IN | ");
    add("copy data among the rows", b + t + message('d', "x") + d + message('c') + c + z,
        "rows 1 | SELECT 1");
}

void tst_LibPpqPeer::answersToARun()
{
    QFETCH(QByteArray, reply);
    QFETCH(QByteArray, expected);
    QFETCH(bool, usable);
    play(Run, reply);
    QCOMPARE(textOf(run(), conn.get()), expected);
    checkConnection(usable);
}

void tst_LibPpqPeer::badRowBehindOthers_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QByteArray>("bad");
    QTest::addColumn<QByteArray>("expected");
    struct BadRow
    {
        const char *name;
        QByteArray message;
        const char *error;
    };
    const QByteArray good = dataRow({"1", "2"});
    const QByteArray nulls = dataRow({QByteArray(), QByteArray()});
    const QByteArray value = number(1, 4) + "v";
    const QList<Kind> before{
        {"nothing", ""},
        {"a row", good},
        {"nulls", nulls},
        {"empty values", dataRow({"", ""})},
        {"300 rows", (good + nulls + good).repeated(100)},
        {"a row longer than the buffer", dataRow({QByteArray(50000, 'x'), ""})},
        {"a notice", good + noticeResponse("n")},
        {"a parameter", good + parameterStatus("a", "b") + good}};
    const QList<BadRow> bad{
        {"no field", dataRow({}), FieldCount},
        {"one field", dataRow({"1"}), FieldCount},
        {"three fields", dataRow({"1", "2", "3"}), FieldCount},
        {"fields: -1", rawRow(-1, value + value), FieldCount},
        {"fields: 32767", rawRow(32767, value + value), FieldCount},
        {"no count", message('D'), ShortRow},
        {"half a count", message('D', QByteArray(1, '\0')), ShortRow},
        {"nothing behind the count", rawRow(2, ""), ShortRow},
        {"first length cut", rawRow(2, "\1"), ShortRow},
        {"second length missing", rawRow(2, value), ShortRow},
        {"second length cut", rawRow(2, value + number(0, 3)), ShortRow},
        {"first longer than the row", rawRow(2, number(7, 4) + "v" + value), ShortRow},
        {"second longer than the row", rawRow(2, value + number(2, 4) + "v"), ShortRow},
        {"first of 2^31-1 bytes", rawRow(2, number(0x7fffffff, 4) + value), ShortRow},
        {"second of 2^31-1 bytes", rawRow(2, value + number(0x7fffffff, 4)), ShortRow},
        {"second missing behind a null", rawRow(2, number(-1, 4)), ShortRow},
        {"a byte too many", rawRow(2, value + value + 'v'), LongRow},
        {"a field too many", rawRow(2, value + value + value), LongRow}};
    for (const Kind &first : before) {
        for (const BadRow &second : bad) {
            QTest::newRow((QByteArray(first.name) + ", " + second.name).constData())
                << first.message << second.message << QByteArray(second.error);
        }
    }
}

// What is wrong with it is told whatever stands in front, and is all that the page tells.
void tst_LibPpqPeer::badRowBehindOthers()
{
    QFETCH(QByteArray, before);
    QFETCH(QByteArray, bad);
    QFETCH(QByteArray, expected);
    const QByteArray page =
        before + bad + dataRow({"3", "4"}) + commandComplete("SELECT 3") + ready();
    play(Run, bindComplete() + description(2) + page);
    QCOMPARE(textOf(run(), conn.get()), expected);
    checkConnection(true);

    playPages(page);
    const ResultPtr first = run();
    QCOMPARE(textOf(first, conn.get()), QByteArray("rows 1,2 | suspended"));
    QCOMPARE(textOf(fetch(first), conn.get()), expected);
    QCOMPARE(textOf(first, conn.get()), QByteArray("rows 1,2 | suspended"));
    checkConnection(true);
}

void tst_LibPpqPeer::answersToAFetch_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<QByteArray>("expected");
    QTest::addColumn<bool>("usable");
    const QByteArray t = description();
    const QByteArray d = dataRow({"8"});
    const QByteArray c = commandComplete("SELECT 1");
    const QByteArray s = portalSuspended();
    const QByteArray z = ready();
    const auto add = [](const char *tag, const QByteArray &reply, const char *expected,
                        bool usable = true) {
        QTest::newRow(tag) << reply << QByteArray(expected) << usable;
    };
    add("in order, to the end", d + c + z, "rows 8 | SELECT 1");
    add("in order, suspended", d + s + z, "rows 8 | suspended");
    add("suspended without rows", s + z, "rows | suspended");
    add("suspended twice", d + s + s + z, Suspended);
    add("rows and no end", d + z, NoResult);
    add("ready and nothing else", z, NoResult);
    add("ready first", z + d + c + z, NoResult);
    add("ready twice", d + c + z + z, "rows 8 | SELECT 1");
    add("no rows and no tag", commandComplete("") + z, NoEnd);
    add("described again", t + d + c + z, RowWithoutColumns);
    add("described otherwise", description(2) + dataRow({"a", "b"}) + c + z, RowWithoutColumns);
    add("more rows than asked for", d + d + d + s + z, "rows 8 8 8 | suspended");
    add("more fields", dataRow({"1", "2"}) + s + z, FieldCount);
    add("no field", dataRow({}) + s + z, FieldCount);
    add("fields: -1", rawRow(-1, "") + s + z, FieldCount);
    add("field longer than its row", rawRow(1, number(9, 4) + "1") + s + z, ShortRow);
    add("error first", failure("no") + z, ServersError);
    add("error in the page", d + failure("no") + z, ServersError);
    add("error after the page", d + s + failure("no") + z, ServersError);
    add("error and then rows", failure("no") + d + s + z, ServersError);
    add("empty query", d + emptyQueryResponse() + z, NoEnd);
    add("unknown type", d + message('~') + d + s + z, Unknown);
    add("copy in", copyResponse('G'), "PGRES_COPY_IN | ");
    add("copy out", copyResponse('H') + message('c') + c + z, "PGRES_COPY_OUT | ");
    add("copy both", copyResponse('W') + z, "PGRES_COPY_BOTH | ", false);
    add("tag without its end", d + message('C', "SELECT 1") + z, EndsEarly, false);
    add("no data", noData() + d + c + z, "rows 8 | SELECT 1");
    add("bound", bindComplete() + d + c + z, "rows 8 | SELECT 1");
}

void tst_LibPpqPeer::answersToAFetch()
{
    QFETCH(QByteArray, reply);
    QFETCH(QByteArray, expected);
    QFETCH(bool, usable);
    play(Fetch, reply);
    const ResultPtr first = run();
    QCOMPARE(textOf(first, conn.get()), QByteArray("rows 1 2 | suspended"));
    QCOMPARE(textOf(fetch(first), conn.get()), expected);
    QCOMPARE(textOf(first, conn.get()), QByteArray("rows 1 2 | suspended"));
    checkConnection(usable);
}

void tst_LibPpqPeer::answersToAClose_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<bool>("usable");
    const QByteArray done = closeComplete();
    const QByteArray z = ready();
    const auto add = [](const char *tag, const QByteArray &reply, bool usable = true) {
        QTest::newRow(tag) << reply << usable;
    };
    add("in order", done + done + z);
    add("nothing closed", z);
    add("closed once more", done + done + done + z);
    add("suspended", done + portalSuspended() + done + z);
    add("suspended for an answer", portalSuspended() + z);
    add("suspended with a body", message('s', "xx") + z);
    add("rows", description() + dataRow({"1"}) + commandComplete("SELECT 1") + z);
    add("rows, suspended", description() + dataRow({"1"}) + portalSuspended() + z);
    add("row without description", done + dataRow({"1"}) + z);
    add("tag", done + commandComplete("CLOSE") + done + z);
    add("ready twice", done + done + z + z);
    add("portal's fails", failure("no") + z);
    add("statement's fails", done + failure("no") + z);
    add("error and then success", failure("no") + done + done + z);
    add("unknown type", done + message('~') + done + z);
    add("copy in", copyResponse('G'));
    add("copy out", copyResponse('H') + message('c') + commandComplete("COPY") + z);
    add("copy both", copyResponse('W') + z, false);
    add("notice, parameter, notification", noticeResponse("n") + done + parameterStatus("a", "b") +
                                               done + notificationResponse(1, "c", "p") + z);
}

void tst_LibPpqPeer::answersToAClose()
{
    QFETCH(QByteArray, reply);
    QFETCH(bool, usable);
    play(CloseBoth, reply);
    QCOMPARE(PPQclose(conn.get(), "po", "st"), 1);
    QCOMPARE(ppqSettle(conn.get()), usable ? 1 : 0);
    checkConnection(usable);
    connectAnew();
    QCOMPARE(PPQclose(conn.get(), "po", "st"), 1);
    QCOMPARE(static_cast<bool>(run()), usable);
    checkConnection(usable);
    for (const PeerCall &call : peerCalls()) {
        connectAnew();
        QCOMPARE(PPQclose(conn.get(), "po", "st"), 1);
        QCOMPARE(textOf(ResultPtr(call.make(conn.get())), conn.get()).startsWith(call.answer),
                 usable);
        checkConnection(usable);
    }
}

void tst_LibPpqPeer::endsTooManyBehindAClose_data()
{
    QTest::addColumn<QByteArray>("answer");
    QTest::addColumn<QByteArray>("expected");
    const QByteArray z = ready();
    const QByteArray one = description() + dataRow({"1"}) + commandComplete("SELECT 1") + z;
    QTest::newRow("one and an answer") << z + one << QByteArray("rows 1 | SELECT 1");
    QTest::newRow("two and an answer") << z + z + one << QByteArray("rows 1 | SELECT 1");
    QTest::newRow("one and no answer") << z + z << QByteArray("nothing | ");
    QTest::newRow("two and no answer") << z + z + z << QByteArray("nothing | ");
}

// All that the server says comes at once.
void tst_LibPpqPeer::endsTooManyBehindAClose()
{
    QFETCH(QByteArray, answer);
    QFETCH(QByteArray, expected);
    play(CloseBoth, [answer](PeerLink &link) {
        link.readRequest();
        link.send(closeComplete() + closeComplete() + ready() + answer);
    });
    QCOMPARE(PPQclose(conn.get(), "po", "st"), 1);
    QCOMPARE(textOf(ResultPtr(ppqExec(conn.get(), "SELECT 1")), conn.get()), expected);
    checkConnection(true);
}

// libpq would throw away what stands behind the end of the call's answer.
void tst_LibPpqPeer::endOfASyncComesWithTheAnswer()
{
    play(CloseBoth, [](PeerLink &link) {
        link.readRequest();
        link.send(closeComplete() + closeComplete() + ready() + ready());
        link.readRequest();
        link.send(description() + dataRow({"1"}) + commandComplete("SELECT 1") + ready() + ready());
    });
    QCOMPARE(PPQclose(conn.get(), "po", "st"), 1);
    QCOMPARE(textOf(ResultPtr(ppqExec(conn.get(), "SELECT 1")), conn.get()),
             QByteArray("rows 1 | SELECT 1"));
    checkConnection(true);
}

// libpq's own calls go without the extension, which must work behind whatever they leave.
void tst_LibPpqPeer::answersToAPlainQuery_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<QByteArray>("expected");
    const QByteArray rows = description() + dataRow({"1"});
    const QByteArray c = commandComplete("SELECT 1");
    QTest::newRow("suspended") << rows + portalSuspended() + ready() << QByteArray(Suspended);
    QTest::newRow("suspended, and then ended")
        << rows + portalSuspended() + c + ready() << QByteArray("done | SELECT 1");
    QTest::newRow("rows and no end") << rows + ready() << QByteArray("nothing | ");
    QTest::newRow("ready twice") << rows + c + ready() + ready() << QByteArray("rows 1 | SELECT 1");
    QTest::newRow("ready and rows") << ready() + rows + c + ready() << QByteArray("nothing | ");
}

void tst_LibPpqPeer::answersToAPlainQuery()
{
    QFETCH(QByteArray, reply);
    QFETCH(QByteArray, expected);
    play("Q", reply);
    QCOMPARE(ask("SELECT 1"), expected);
    checkConnection(true);
}

void tst_LibPpqPeer::impossibleLengths_data()
{
    QTest::addColumn<QByteArray>("types");
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QByteArray>("bad");
    const QByteArray b = bindComplete();
    const QByteArray t = description();
    const QList<Kind> ofARun{{"bind", b},
                             {"description", t},
                             {"row", dataRow({"1"})},
                             {"tag", commandComplete("SELECT 1")},
                             {"suspended", portalSuspended()},
                             {"error", failure("no")},
                             {"notice", noticeResponse("n")},
                             {"parameter", parameterStatus("a", "b")},
                             {"notification", notificationResponse(1, "c", "p")},
                             {"ready", ready()},
                             {"close", closeComplete()},
                             {"unknown", message('~')}};
    const QList<QPair<const char *, qint32>> lengths{
        {"-1", -1}, {"0", 0}, {"3", 3}, {"2^31-1", 0x7fffffff}, {"-2^31", -0x7fffffff - 1}};
    for (const Kind &kind : ofARun) {
        for (const auto &length : lengths) {
            const QByteArray bad = withLength(kind.message, length.second);
            const QByteArray tag = QByteArray(kind.name) + ' ' + length.first;
            QTest::newRow((tag + " in a run").constData()) << QByteArray(Run) << b + t << bad;
            QTest::newRow((tag + " in a fetch").constData())
                << QByteArray(Fetch) << dataRow({"1"}) << bad;
            QTest::newRow((tag + " in a close").constData())
                << QByteArray(CloseBoth) << closeComplete() << bad;
        }
    }
}

ResultPtr tst_LibPpqPeer::operate(const QString &operation)
{
    if (operation == QLatin1String(Run)) {
        return run();
    }
    if (operation == QLatin1String(Fetch)) {
        return fetch(run());
    }
    PPQclose(conn.get(), "po", "st");
    return run();
}

void tst_LibPpqPeer::impossibleLengths()
{
    QFETCH(QByteArray, types);
    QFETCH(QByteArray, before);
    QFETCH(QByteArray, bad);
    play(types, before + bad + commandComplete("SELECT 1") + ready());
    QVERIFY(!operate(types));
    const QByteArray message = PQerrorMessage(conn.get());
    QVERIFY2(message.contains("lost synchronization with server: got message type"), message);
    checkConnection(false);
}

void tst_LibPpqPeer::answersInPieces_data()
{
    QTest::addColumn<int>("size");
    QTest::newRow("1 byte") << 1;
    QTest::newRow("2 bytes") << 2;
    QTest::newRow("5 bytes") << 5;
    QTest::newRow("16 kB") << 16384;
}

void tst_LibPpqPeer::answersInPieces()
{
    QFETCH(int, size);
    // Longer than libpq's first buffer, in a row and in all, and full of the type byte.
    const QByteArray length(size < 16 ? 300 : 100000, 's');
    const QByteArray page =
        dataRow({length}) + noticeResponse("n") + dataRow({"2"}) + portalSuspended() + ready();
    const auto send = [size](const QByteArray &bytes) {
        return [size, bytes](PeerLink &link) { link.sendInPieces(bytes, size); };
    };
    play(Run, send(bindComplete() + description() + page));
    QCOMPARE(textOf(run(), conn.get()), "rows " + length + " 2 | suspended");
    checkConnection(true);
    play(Fetch, send(page));
    QCOMPARE(textOf(fetch(run()), conn.get()), "rows " + length + " 2 | suspended");
    checkConnection(true);
}

void tst_LibPpqPeer::cutAnswers_data()
{
    QTest::addColumn<QByteArray>("types");
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<bool>("byReset");
    const QByteArray rows = dataRow({"1"}) + dataRow({"2"});
    const QByteArray described = bindComplete() + description();
    const QByteArray suspended = portalSuspended() + ready();
    const QByteArray ended = commandComplete("SELECT 2") + ready();
    for (const bool reset : {false, true}) {
        const char *const tags[][2] = {{"run, suspended", "run, suspended, reset"},
                                       {"run to the end", "run to the end, reset"},
                                       {"fetch, suspended", "fetch, suspended, reset"},
                                       {"fetch to the end", "fetch to the end, reset"},
                                       {"error", "error, reset"}};
        int i = 0;
        const auto add = [&](const char *types, const QByteArray &reply) {
            QTest::newRow(tags[i++][reset ? 1 : 0]) << QByteArray(types) << reply << reset;
        };
        add(Run, described + rows + suspended);
        add(Run, described + rows + ended);
        add(Fetch, rows + suspended);
        add(Fetch, rows + ended);
        add(Run, bindComplete() + failure("no") + ready());
    }
}

// At every byte.
void tst_LibPpqPeer::cutAnswers()
{
    QFETCH(QByteArray, types);
    QFETCH(QByteArray, reply);
    QFETCH(bool, byReset);
    play(types, [reply, byReset](PeerLink &link) {
        link.send(reply.left(link.number() - 1));
        byReset ? link.reset() : link.hangUp();
    });
    for (int length = 0; length < reply.size(); ++length) {
        QVERIFY2(!operate(types), QByteArray::number(length));
        QVERIFY(QByteArray(PQerrorMessage(conn.get())).size() > 0);
        checkConnection(false);
        connectAnew();
    }
}

void tst_LibPpqPeer::cutAnswersToACloseEndTheNextOperation()
{
    const QByteArray reply = closeComplete() + closeComplete() + ready();
    play(CloseBoth, [reply](PeerLink &link) {
        link.send(reply.left(link.number() - 1));
        link.hangUp();
    });
    for (int length = 0; length < reply.size(); ++length) {
        QCOMPARE(PPQclose(conn.get(), "po", "st"), 1);
        QCOMPARE(ppqSettle(conn.get()), 0);
        checkConnection(false);
        connectAnew();
    }
}

void tst_LibPpqPeer::closeThatIsNeverAnswered()
{
    play(CloseBoth, [](PeerLink &link) {
        QThread::msleep(200); // the next operation waits; were it late, it would find the same
        link.hangUp();
    });
    QCOMPARE(PPQclose(conn.get(), "po", "st"), 1);
    QVERIFY(!run());
    QCOMPARE(QByteArray(PQerrorMessage(conn.get())), QByteArray(HangUp));
    checkConnection(false);
}

void tst_LibPpqPeer::bothAnswersAtOnce_data()
{
    QTest::addColumn<int>("call");
    QTest::addColumn<QByteArray>("closed");
    QTest::addColumn<QByteArray>("between");
    QTest::addColumn<int>("size");
    const QByteArray done = closeComplete() + closeComplete();
    const QByteArray told =
        noticeResponse("n") + parameterStatus("a", "b") + notificationResponse(1, "c", "p");
    for (int call = 0; call < behindCloses().size(); ++call) {
        for (const int size : {1, 3, 100000}) {
            const auto add = [&](const char *tag, const QByteArray &closed,
                                 const QByteArray &between) {
                const QByteArray name = QByteArray(behindCloses().at(call).name) + ", " + tag +
                                        ' ' + QByteArray::number(size);
                QTest::newRow(name.constData()) << call << closed << between << size;
            };
            add("closed", done, "");
            add("told before", told + done, "");
            add("told in between", done, told);
            add("told in front of ready", done + told, "");
            add("failed", failure("portal"), "");
            add("failed and told", failure("portal") + told, told);
        }
    }
}

void tst_LibPpqPeer::bothAnswersAtOnce()
{
    QFETCH(int, call);
    QFETCH(QByteArray, closed);
    QFETCH(QByteArray, between);
    QFETCH(int, size);
    const BehindClose behind = behindCloses().at(call);
    const QByteArray both = closed + ready() + between + behind.answer + ready();
    peer.reset(new ScriptedPeer([=](PeerLink &link) {
        link.setPatience(10);
        link.greet();
        link.readRequest();
        link.readRequest();
        link.sendInPieces(both, size);
        if (closed.startsWith('E')) {
            link.readRequest(); // the statement is closed again
            link.send(closeComplete() + ready());
        }
        link.readRequest();
        link.send(description() + dataRow({"alive"}) + commandComplete("SELECT 1") + ready());
        link.awaitEnd();
    }));
    connectAnew();
    QCOMPARE(PPQclose(conn.get(), "po", "st"), 1);
    QCOMPARE(textOf(ResultPtr(behind.make(conn.get())), conn.get()), behind.expected);
    QCOMPARE(PQtransactionStatus(conn.get()), PQTRANS_IDLE);
    QCOMPARE(ask("SELECT alive"), QByteArray("rows alive | SELECT 1"));
}

void tst_LibPpqPeer::bothAnswersCut_data()
{
    QTest::addColumn<int>("call");
    for (int call = 0; call < behindCloses().size(); ++call) {
        QTest::newRow(behindCloses().at(call).name) << call;
    }
}

void tst_LibPpqPeer::bothAnswersCut()
{
    QFETCH(int, call);
    const BehindClose behind = behindCloses().at(call);
    const QByteArray both = closeComplete() + closeComplete() + ready() + behind.answer + ready();
    peer.reset(new ScriptedPeer([=](PeerLink &link) {
        link.setPatience(10);
        link.greet();
        link.readRequest();
        link.readRequest();
        link.send(both.left(link.number() - 1));
        link.hangUp();
    }));
    for (int length = 0; length < both.size(); ++length) {
        connectAnew();
        QCOMPARE(PPQclose(conn.get(), "po", "st"), 1);
        const QByteArray text = textOf(ResultPtr(behind.make(conn.get())), conn.get());
        QVERIFY2(text.startsWith("nothing | ") || text.startsWith("PGRES_FATAL_ERROR"),
                 QByteArray::number(length) + text);
        QVERIFY2(text.contains("server closed the connection"), QByteArray::number(length) + text);
        QCOMPARE(PQstatus(conn.get()), CONNECTION_BAD);
        QCOMPARE(ppqSettle(conn.get()), 0);
    }
}

void tst_LibPpqPeer::largeCallOfANonblockingConnectionBehindAClose()
{
    play(QByteArray("never"), QByteArray());
    QCOMPARE(PQsetnonblocking(conn.get(), 1), 0);
    const QByteArray large = "SELECT " + QByteArray(MoreThanSocketsHold, 'x');
    QCOMPARE(PPQclose(conn.get(), "po", "st"), 1);
    const ResultPtr result(ppqExec(conn.get(), large.constData()));
    QCOMPARE(PQresultStatus(result.get()), PGRES_TUPLES_OK);
    checkConnection(true);
}

void tst_LibPpqPeer::errorOfACloseIsNotThatOfTheCallBehind()
{
    play("CS", failure("the portal cannot be closed") + ready());
    QCOMPARE(PPQclose(conn.get(), "po", nullptr), 1);
    QCOMPARE(PQflush(conn.get()), 0);
    QCOMPARE(textOf(run(), conn.get()), QByteArray("rows 1 2 | suspended"));
    QCOMPARE(QByteArray(PQerrorMessage(conn.get())), QByteArray());
}

void tst_LibPpqPeer::wordsOfAServerThatGoes()
{
    play(Run, [](PeerLink &link) {
        link.send(bindComplete() + description() + dataRow({"1"}) +
                  errorResponse("57P01", "going down", "FATAL"));
        link.hangUp();
    });
    QVERIFY(!run());
    QCOMPARE(QByteArray(PQerrorMessage(conn.get())), QByteArray("FATAL:  going down\n") + HangUp);
    checkConnection(false);
}

void tst_LibPpqPeer::resetDuringALargeWrite()
{
    play("PS", [](PeerLink &link) {
        link.send(parseComplete() + ready());
        link.awaitByte(); // of the Bind, of which nothing is read
        link.reset();
    });
    QCOMPARE(PQresultStatus(ResultPtr(PQprepare(conn.get(), "st", "SELECT", 0, nullptr)).get()),
             PGRES_COMMAND_OK);
    const QByteArray large(MoreThanSocketsHold, 'x');
    const char *const values[] = {large.constData()};
    const ResultPtr result(
        PPQexecPrepared(conn.get(), 2, "st", "po", 1, values, nullptr, nullptr, 1));
    QVERIFY(!result);
    QVERIFY(QByteArray(PQerrorMessage(conn.get())).size() > 0);
    checkConnection(false);
}

// Names are the only part of the other messages that can outgrow libpq's buffer, so that they are
// sent, and can fail, while they are put together.
void tst_LibPpqPeer::playPageAndReset()
{
    play("BDES", [](PeerLink &link) {
        link.send(bindComplete() + description() + dataRow({"1"}) + portalSuspended() + ready());
        link.awaitByte();
        link.reset();
    });
}

void tst_LibPpqPeer::resetDuringALongClose_data()
{
    QTest::addColumn<QByteArray>("portal");
    QTest::addColumn<QByteArray>("statement");
    const QByteArray name(MoreThanSocketsHold, 'x');

    QTest::newRow("portal") << name << QByteArray();
    QTest::newRow("statement") << QByteArray() << name;
    QTest::newRow("statement behind its portal") << QByteArray("po") << name;
}

void tst_LibPpqPeer::resetDuringALongClose()
{
    QFETCH(QByteArray, portal);
    QFETCH(QByteArray, statement);
    playPageAndReset();
    QCOMPARE(textOf(run(), conn.get()), QByteArray("rows 1 | suspended"));
    const int queued = PPQclose(conn.get(), portal.isEmpty() ? nullptr : portal.constData(),
                                statement.isEmpty() ? nullptr : statement.constData());
    // libpq may keep the failure of a write back until it waits for an answer.
    QVERIFY(queued == 0 || statement.isEmpty());
    checkConnection(false);
    QVERIFY(*PQerrorMessage(conn.get()));
}

void tst_LibPpqPeer::resetDuringALongFetch()
{
    playPageAndReset();
    const ResultPtr first = run();
    QCOMPARE(textOf(first, conn.get()), QByteArray("rows 1 | suspended"));
    const QByteArray name(MoreThanSocketsHold, 'x');
    QVERIFY(!ResultPtr(PPQfetch(conn.get(), 2, name.constData(), first.get())));
    QVERIFY(*PQerrorMessage(conn.get()));
    checkConnection(false);
}

void tst_LibPpqPeer::resetDuringARepeatedClose()
{
    play("CCS", [](PeerLink &link) {
        link.send(failure("the portal cannot be closed") + ready());
        link.awaitByte();
        link.reset();
    });
    const ResultPtr first = run();
    QCOMPARE(textOf(first, conn.get()), QByteArray("rows 1 2 | suspended"));
    const QByteArray name(MoreThanSocketsHold, 'x');
    QCOMPARE(PPQclose(conn.get(), "po", name.constData()), 1);
    QVERIFY(!fetch(first));
    QVERIFY(*PQerrorMessage(conn.get()));
    checkConnection(false);
}

void tst_LibPpqPeer::largeWriteOfANonblockingConnection()
{
    play(QByteArray("never"), QByteArray());
    QCOMPARE(PQsetnonblocking(conn.get(), 1), 0);
    const QByteArray large(MoreThanSocketsHold, 'x');
    const char *const values[] = {large.constData()};
    const ResultPtr page(
        PPQexecPrepared(conn.get(), 2, "st", "po", 1, values, nullptr, nullptr, 1));
    QCOMPARE(textOf(page, conn.get()), QByteArray("rows 1 2 | suspended"));
}

// libpq keeps a write's failure back while there is something to read. The peer stays here.
void tst_LibPpqPeer::writeThatFailsBesideAReadThatDoesNot()
{
    std::promise<void> answered;
    const std::shared_future<void> answer = answered.get_future().share();
    peer.reset(new ScriptedPeer([answer](PeerLink &link) {
        link.greet();
        link.awaitEnd(); // of the client's half
        link.send(noticeResponse("still here"));
        answer.wait_for(std::chrono::seconds(10));
    }));
    connectAnew();
    shutdown(PQsocket(conn.get()), SHUT_WR);
    QCOMPARE(textOf(run(), conn.get()), QByteArray("nothing | ") + HangUp); // so libpq calls it
    answered.set_value();
    checkConnection(false);
}

QTEST_GUILESS_MAIN(tst_LibPpqPeer)
#include "tst_libppq_peer.moc"
