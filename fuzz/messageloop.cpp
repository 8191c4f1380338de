// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The message loop of the client extension, fed by any stream of bytes. The input's first line says
// what is run on the connection, a letter each; the rest is what the server says.
//
//   e p     PPQexecPrepared, without parameters and with them
//   r       ppqExecReopened
//   f       PPQfetch, after the page before
//   o s c   PPQclose of the portal, of the statement, of both
//   t y     ppqSettle, ppqIsReady
//   x m d w ppqExec, ppqPrepare, ppqDescribePrepared, ppqExecPrepared
//   q       PQexec
//   g       PQgetResult
//   i       PQconsumeInput
//   0-9     a read brings at most 1, 2, 4 ... 512 bytes
#include "client/libppq.h"
#include "client/ppqcall.h"
#include "client/ppqsettle.h"

#include "fuzz/fuzzinput.h"
#include "fuzz/messages.h"
#include "fuzz/scriptedstream.h"

#include <sanitizer/lsan_interface.h>

#include <set>
#include <string>

// A length word may ask libpq for a gigabyte of buffer; it gets no memory, and says so.
extern "C" const char *__asan_default_options()
{
    return "max_allocation_size_mb=64:allocator_may_return_null=1";
}

namespace {

constexpr size_t MostCalls = 16;
constexpr int PageRows = 3;

bool isCopy(const PGresult *result)
{
    const ExecStatusType status = PQresultStatus(result);
    return status == PGRES_COPY_IN || status == PGRES_COPY_OUT || status == PGRES_COPY_BOTH;
}

std::string messageTypes(const std::string &stream)
{
    std::string types;
    for (const std::string &message : wholeMessages(stream)) {
        types += message.front();
    }
    return types;
}

bool isOneOf(char type, const std::string &types)
{
    return types.find(type) != std::string::npos;
}

// The numbers of rows between what begins a page and what ends one.
std::set<int> pageSizes(const std::string &types)
{
    std::set<int> sizes;
    int rows = 0;
    for (const char type : types) {
        rows += type == 'D' ? 1 : 0;
        if (isOneOf(type, "CsI")) {
            sizes.insert(rows);
        }
        if (isOneOf(type, "CsITEZ")) {
            rows = 0;
        }
    }
    return sizes;
}

/*
    libpq's parser forgets the result that it is building when a ParameterDescription or a copy's
    response comes into it, which no server sends; under PQexec too, and what calls it. The
    forgotten result was made in the same functions as every other, so that naming them to
    LeakSanitizer would hide our own leaks: leaks are looked for where libpq's own calls read no
    such stream.
*/
bool hasLibpqLeak(const std::string &calls, const std::string &types)
{
    return calls.find_first_of("qgixmdw") != std::string::npos &&
           types.find_first_of("tGHW") != std::string::npos;
}

// Reads whatever a result has; what lies outside is a finding.
void readValue(const PGresult *result, int row, int column)
{
    const char *value = PQgetvalue(result, row, column);
    const int length = PQgetlength(result, row, column);
    require(length >= 0 && (!PQgetisnull(result, row, column) || length == 0), "a value's length");
    require(value[length] == '\0', "a zero stands behind every value");
    require(std::string(value, static_cast<size_t>(length)).size() <= ScriptedStream::MostBytes,
            "a value is part of the stream");
}

void readColumn(const PGresult *result, int column)
{
    require(isCopy(result) || PQfname(result, column) != nullptr, "a column has a name");
    PQftype(result, column);
    PQfmod(result, column);
    for (int row = 0; row < PQntuples(result); ++row) {
        readValue(result, row, column);
    }
}

void readResult(PGresult *result)
{
    for (int column = 0; column < PQnfields(result); ++column) {
        readColumn(result, column);
    }
    const std::string texts =
        std::string(PQcmdStatus(result)) + PQcmdTuples(result) + PQresultErrorMessage(result);
    const bool failed = PQresultStatus(result) == PGRES_FATAL_ERROR;
    require(!failed || !texts.empty(), "an error says something");
}

class Session
{
public:
    Session(const std::string &calls, const std::string &words, size_t bytesPerRead)
        : stream(words, bytesPerRead)
        , conn(stream.connection())
        , types(messageTypes(words))
        , sizes(pageSizes(types))
        , hasStrayReads(calls.find('i') != std::string::npos)
    {
    }

    void call(char letter);

    // Goes on to the end of the stream; then the connection must be known to be lost.
    void finish(size_t most);

private:
    PGresult *hlpExec(int parameters);
    void hlpTakePage(PGresult *answer);
    void hlpFetch();
    void hlpTakeOther(PGresult *answer);
    void hlpClose(const char *portal, const char *statement);
    void hlpSettle();
    void hlpLookIfReady();

    ScriptedStream stream;
    PGconn *conn;
    std::string types;
    std::set<int> sizes;
    bool hasStrayReads; // libpq drops rows that come to an idle connection
    ResultPtr page;
};

PGresult *Session::hlpExec(int parameters)
{
    const char *const values[] = {"text", "\0\0\0\1", nullptr};
    const int lengths[] = {0, 4, 0};
    const int formats[] = {0, 1, 1};
    return PPQexecPrepared(conn, PageRows, "st", "po", parameters, values, lengths, formats, 1);
}

// The answer of an operation of ours: whole, or none and a reason.
void Session::hlpTakePage(PGresult *answer)
{
    const ResultPtr owner(answer);
    if (!answer) {
        require(*PQerrorMessage(conn) != '\0', "there is a reason for no result");
        return;
    }
    readResult(answer);
    require(PQstatus(conn) == CONNECTION_OK, "a lost connection has no result");
    // A copy that has begun is the answer, or stands behind an error.
    require(PQtransactionStatus(conn) != PQTRANS_ACTIVE ||
                types.find_first_of("GHW") != std::string::npos,
            "the answer is taken in");
    require(PQresultStatus(answer) != PGRES_COMMAND_OK || *PQcmdStatus(answer) != '\0',
            "a command's end has a tag");
    require(PQresultStatus(answer) != PGRES_EMPTY_QUERY || isOneOf('I', types),
            "an empty query is told by the server");
    if (PQresultStatus(answer) == PGRES_TUPLES_OK) {
        require(hasStrayReads || sizes.count(PQntuples(answer)), "a page is whole");
        page.reset(PQcopyResult(answer, PG_COPYRES_ATTRS | PG_COPYRES_TUPLES));
    }
}

// Behind the last page nothing is sent, and what is outstanding stays so.
void Session::hlpFetch()
{
    const bool isLast = page && *PQcmdStatus(page.get()) != '\0';
    PGresult *next = PPQfetch(conn, PageRows, "po", page.get());
    if (!isLast || !next) {
        return hlpTakePage(next);
    }
    const ResultPtr owner(next);
    require(PQntuples(next) == 0 && *PQcmdStatus(next) != '\0', "no rows behind the last page");
}

// The answer of a call of libpq's.
void Session::hlpTakeOther(PGresult *answer)
{
    const ResultPtr owner(answer);
    if (answer) {
        readResult(answer);
    }
}

void Session::hlpClose(const char *portal, const char *statement)
{
    const int done = PPQclose(conn, portal, statement);
    require(done == 0 || PQstatus(conn) == CONNECTION_OK, "what is closed has a connection");
    require(done == 1 || *PQerrorMessage(conn) != '\0', "there is a reason for no close");
}

void Session::hlpSettle()
{
    const bool goesOn = ppqSettle(conn) == 1;
    require(goesOn == (PQstatus(conn) == CONNECTION_OK), "settling tells a lost connection");
}

// Where it waits for nothing it cannot know that the stream has ended.
void Session::hlpLookIfReady()
{
    const bool isReady = ppqIsReady(conn) == 1;
    require(isReady == (PQstatus(conn) == CONNECTION_OK), "a connection that stands is ready");
    require(!isReady || ppqTransactionStatus(conn) == PQtransactionStatus(conn) ||
                PQtransactionStatus(conn) == PQTRANS_ACTIVE,
            "the state is libpq's, or that before a close");
}

void Session::call(char letter)
{
    switch (letter) {
    case 'e':
        return hlpTakePage(hlpExec(0));
    case 'p':
        return hlpTakePage(hlpExec(3));
    case 'r':
        return hlpTakePage(
            ppqExecReopened(conn, PageRows, "st", "po", 0, nullptr, nullptr, nullptr, 1));
    case 'f':
        return hlpFetch();
    case 'o':
        return hlpClose("po", nullptr);
    case 's':
        return hlpClose(nullptr, "st");
    case 'c':
        return hlpClose("po", "st");
    case 't':
        return hlpSettle();
    case 'y':
        return hlpLookIfReady();
    case 'x':
        return hlpTakeOther(ppqExec(conn, "SELECT 1"));
    case 'm':
        return hlpTakeOther(ppqPrepare(conn, "st", "SELECT 1"));
    case 'd':
        return hlpTakeOther(ppqDescribePrepared(conn, "st"));
    case 'w':
        return hlpTakeOther(ppqExecPrepared(conn, "st", 0, nullptr, nullptr, nullptr, 1));
    case 'q':
        return hlpTakeOther(PQexec(conn, "SELECT 1"));
    case 'g':
        return hlpTakeOther(PQgetResult(conn));
    case 'i':
        PQconsumeInput(conn);
        return;
    default:
        return;
    }
}

void Session::finish(size_t most)
{
    for (size_t i = 0; i < most && PQstatus(conn) == CONNECTION_OK; ++i) {
        call('e');
    }
    require(PQstatus(conn) == CONNECTION_BAD, "the end of the stream is seen");
}

size_t bytesPerRead(const std::string &calls)
{
    const size_t digit = calls.find_first_of("0123456789");
    return digit == std::string::npos ? ScriptedStream::MostBytes
                                      : size_t(1) << (calls[digit] - '0');
}

void run(const std::string &calls, const std::string &words)
{
    Session session(calls, words, bytesPerRead(calls));
    for (const char letter : calls) {
        session.call(letter);
    }
    // Every call that leaves the connection usable has read something.
    session.finish(words.size() + 1);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string input(reinterpret_cast<const char *>(data), size);
    const std::string calls = input.substr(0, std::min(input.find('\n'), MostCalls));
    const std::string words = input.substr(std::min(input.find('\n'), size - 1) + 1);
    if (hasLibpqLeak(calls, messageTypes(words))) {
        const __lsan::ScopedDisabler noLeaks;
        run(calls, words);
    } else {
        run(calls, words);
    }
    return 0;
}
