// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Plain libpq: cursors for walks, prepared statements with binary parameters and rows for the rest.
#include "bench/clients/run.h"

#include <libpq-fe.h>

#include <endian.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { Binary = 1, InsertColumns = 4, NumericHeaderBytes = 8, NumericBase = 10000 };

static const int64_t UsecPerSec = 1000000;
static const int64_t UsecPerMsec = 1000;
static const int64_t InsertFrom = INT64_C(631152000000000); // 2020-01-01 in microseconds since 2000

static PGconn *hlpConnect(const struct BenchRun *run)
{
    const char *const keys[] = {"host", "port", "user", "dbname", NULL};
    const char *const values[] = {run->host, run->port, run->user, run->database, NULL};
    PGconn *connection = PQconnectdbParams(keys, values, 0);
    if (PQstatus(connection) != CONNECTION_OK) {
        benchFail("connect", PQerrorMessage(connection));
    }
    return connection;
}

static PGresult *hlpChecked(PGconn *connection, PGresult *result, ExecStatusType expected)
{
    if (PQresultStatus(result) != expected) {
        benchFail("libpq", PQerrorMessage(connection));
    }
    return result;
}

static void hlpCommand(PGconn *connection, const char *sql)
{
    PQclear(hlpChecked(connection, PQexec(connection, sql), PGRES_COMMAND_OK));
}

static void hlpPrepare(PGconn *connection, const char *sql)
{
    PQclear(hlpChecked(connection, PQprepare(connection, "s", sql, 0, NULL), PGRES_COMMAND_OK));
}

static uint16_t hlpRead16(const char *bytes)
{
    uint16_t value = 0;
    memcpy(&value, bytes, sizeof(value));
    return be16toh(value);
}

static uint32_t hlpRead32(const char *bytes)
{
    uint32_t value = 0;
    memcpy(&value, bytes, sizeof(value));
    return be32toh(value);
}

static uint64_t hlpRead64(const char *bytes)
{
    uint64_t value = 0;
    memcpy(&value, bytes, sizeof(value));
    return be64toh(value);
}

static int64_t hlpInteger(const char *bytes, int length)
{
    switch (length) {
    case 2:
        return (int16_t)hlpRead16(bytes);
    case 4:
        return (int32_t)hlpRead32(bytes);
    default:
        return (int64_t)hlpRead64(bytes);
    }
}

static double hlpFloat(const char *bytes, int length)
{
    if (length == sizeof(float)) {
        const uint32_t bits = hlpRead32(bytes);
        float value = 0;
        memcpy(&value, &bits, sizeof(value));
        return (double)value;
    }
    const uint64_t bits = hlpRead64(bytes);
    double value = 0;
    memcpy(&value, &bits, sizeof(value));
    return value;
}

// A numeric without a fraction: base-10000 digits, behind their count, weight, sign and scale.
static int64_t hlpNumeric(const char *bytes)
{
    const int digits = hlpRead16(bytes);
    const int weight = (int16_t)hlpRead16(bytes + 2);
    const int isNegative = hlpRead16(bytes + 4) != 0;
    int64_t value = 0;
    for (int i = 0; i <= weight; ++i) { // zeros at the end are not sent
        const int digit =
            i < digits ? hlpRead16(bytes + NumericHeaderBytes + sizeof(int16_t) * (size_t)i) : 0;
        value = value * NumericBase + digit;
    }
    return isNegative ? -value : value;
}

// Since midnight, or since 2000.
static int64_t hlpMsec(const char *bytes)
{
    return (int64_t)hlpRead64(bytes) / UsecPerMsec;
}

static int64_t hlpValue(char kind, const char *bytes, int length)
{
    switch (kind) {
    case 'b':
        return bytes[0] ? 2 : 1;
    case 'y':
    case 't':
        return length + (unsigned char)bytes[0] + (unsigned char)bytes[length - 1];
    case 'i':
        return hlpInteger(bytes, length);
    case 'f':
        return (int64_t)(hlpFloat(bytes, length) * 4);
    case 'n':
        return hlpNumeric(bytes);
    case 'd':
        return (int32_t)hlpRead32(bytes);
    case 'm':
    case 's':
    case 'z':
        return hlpMsec(bytes);
    case 'u':
        return hlpRead32(bytes);
    case 'j':
        return length - 1; // without its version
    default:
        benchFail("kinds", "unknown letter");
    }
}

static void hlpAdd(const struct BenchRun *run, const PGresult *result, struct BenchWork *work)
{
    const int rows = PQntuples(result);
    for (int row = 0; row < rows; ++row) {
        for (int column = 0; run->kinds[column]; ++column) {
            work->checksum +=
                (uint64_t)(PQgetisnull(result, row, column)
                               ? BenchNull
                               : hlpValue(run->kinds[column], PQgetvalue(result, row, column),
                                          PQgetlength(result, row, column)));
        }
    }
}

static void hlpDeclare(PGconn *connection, const char *select)
{
    char *sql = NULL;
    if (asprintf(&sql, "DECLARE c BINARY CURSOR FOR %s", select) < 0) {
        benchFail("asprintf", "no memory");
    }
    hlpCommand(connection, "BEGIN");
    hlpCommand(connection, sql);
    free(sql);
}

static struct BenchWork hlpWalk(const struct BenchRun *run, int thread)
{
    (void)thread;
    struct BenchWork work = {0, 0};
    PGconn *connection = hlpConnect(run);
    char fetch[BenchTextBytes];
    snprintf(fetch, sizeof(fetch), "FETCH %s FROM c", run->pageRows);
    benchStart();
    hlpDeclare(connection, run->sql);
    for (int rows = 1; rows > 0;) {
        PGresult *page = hlpChecked(connection, PQexec(connection, fetch), PGRES_TUPLES_OK);
        hlpAdd(run, page, &work);
        rows = PQntuples(page);
        work.operations += (uint64_t)rows;
        PQclear(page);
    }
    hlpCommand(connection, "COMMIT");
    benchStop();
    PQfinish(connection);
    return work;
}

static struct BenchWork hlpPoint(const struct BenchRun *run, int thread)
{
    struct BenchWork work = {0, 0};
    PGconn *connection = hlpConnect(run);
    hlpCommand(connection, "BEGIN");
    hlpPrepare(connection, run->sql);
    benchStart();
    const uint64_t end = benchFirst(run, thread + 1);
    for (uint64_t i = benchFirst(run, thread); i < end; ++i, ++work.operations) {
        const uint64_t key = htobe64((uint64_t)benchKey(run, i));
        const char *const values[] = {(const char *)&key};
        const int lengths[] = {sizeof(key)};
        const int formats[] = {Binary};
        PGresult *row = PQexecPrepared(connection, "s", 1, values, lengths, formats, Binary);
        hlpAdd(run, hlpChecked(connection, row, PGRES_TUPLES_OK), &work);
        PQclear(row);
    }
    benchStop();
    PQfinish(connection);
    return work;
}

static void hlpInsertRow(PGconn *connection, uint64_t number, const char *text)
{
    const double quarter = 0.25 * (double)number;
    uint64_t bits = 0;
    memcpy(&bits, &quarter, sizeof(bits));
    const int64_t at = InsertFrom + (int64_t)(number % BenchInsertValues) * UsecPerSec;
    const uint64_t wire[] = {htobe64(number), htobe64(bits), htobe64((uint64_t)at)};
    const char *const values[] = {(const char *)&wire[0], (const char *)&wire[1], text,
                                  (const char *)&wire[2]};
    const int lengths[] = {sizeof(*wire), sizeof(*wire), (int)strlen(text), sizeof(*wire)};
    const int formats[] = {Binary, Binary, Binary, Binary};
    PQclear(
        hlpChecked(connection,
                   PQexecPrepared(connection, "s", InsertColumns, values, lengths, formats, Binary),
                   PGRES_COMMAND_OK));
}

static struct BenchWork hlpInsert(const struct BenchRun *run, int thread)
{
    (void)thread;
    static char texts[BenchInsertValues][BenchTextBytes];
    for (int i = 0; i < BenchInsertValues; ++i) {
        benchInsertText(i, texts[i]);
    }
    PGconn *connection = hlpConnect(run);
    benchStart();
    hlpCommand(connection, "BEGIN");
    hlpPrepare(connection, run->sql);
    for (uint64_t i = 0; i < run->count; ++i) {
        hlpInsertRow(connection, i, texts[i % BenchInsertValues]);
    }
    hlpCommand(connection, "COMMIT");
    benchStop();
    PQfinish(connection);
    return (struct BenchWork){run->count, 0};
}

static struct BenchWork hlpTexts(const struct BenchRun *run, int thread)
{
    (void)thread;
    struct BenchWork work = {0, 0};
    PGconn *connection = hlpConnect(run);
    hlpCommand(connection, "BEGIN");
    benchStart();
    for (; work.operations < run->count; ++work.operations) {
        char text[BenchTextBytes];
        benchNumberedText(run, work.operations, text);
        hlpPrepare(connection, text);
        PGresult *row = PQexecPrepared(connection, "s", 0, NULL, NULL, NULL, Binary);
        hlpAdd(run, hlpChecked(connection, row, PGRES_TUPLES_OK), &work);
        PQclear(row);
        hlpCommand(connection, "DEALLOCATE s");
    }
    benchStop();
    PQfinish(connection);
    return work;
}

int main(int argc, char **argv)
{
    const struct BenchOperation operations[] = {
        {"walk", hlpWalk}, {"point", hlpPoint}, {"insert", hlpInsert}, {"texts", hlpTexts}, {0}};
    return benchMain(argc, argv, operations);
}
