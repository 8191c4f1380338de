/*
 * SPDX-FileCopyrightText: 2026 the DORVY driver developers
 * SPDX-License-Identifier: MIT
 *
 * The work of sqlwork.cpp through libpq alone, as a C program does it:
 *
 *     libpqwork WORK COUNT HOST PORT
 *
 * A walk reads a binary cursor by 128 rows.
 */
#include <libpq-fe.h>

#include <endian.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define COLUMNS 4
#define KEYS 1000

static PGresult *check(PGresult *result, const PGconn *conn)
{
    const ExecStatusType status = PQresultStatus(result);

    if (status != PGRES_COMMAND_OK && status != PGRES_TUPLES_OK) {
        fputs(PQerrorMessage(conn), stderr);
        exit(2);
    }
    return result;
}

static void command(PGconn *conn, const char *sql)
{
    PQclear(check(PQexec(conn, sql), conn));
}

/* Looks every value up as a program does that wants to read it; the number of rows. */
static int take(PGresult *result)
{
    const int rows = PQntuples(result);
    volatile const char *value;
    volatile int length;

    for (int row = 0; row < rows; row++) {
        for (int column = 0; column < COLUMNS; column++) {
            if (PQgetisnull(result, row, column))
                continue;
            value = PQgetvalue(result, row, column);
            length = PQgetlength(result, row, column);
        }
    }
    (void)value;
    (void)length;
    PQclear(result);
    return rows;
}

static int walk(PGconn *conn, int count)
{
    char sql[200];
    int all = 0;
    int rows;

    snprintf(sql, sizeof(sql),
             "DECLARE c BINARY CURSOR FOR SELECT id, number, label, at FROM walked WHERE id <= %d",
             count);
    command(conn, "BEGIN");
    command(conn, sql);
    while ((rows = take(check(PQexec(conn, "FETCH 128 FROM c"), conn))) > 0)
        all += rows;
    return all;
}

static int point(PGconn *conn, int count)
{
    const int lengths[] = {8};
    const int formats[] = {1};
    int rows = 0;

    PQclear(check(
        PQprepare(conn, "p", "SELECT id, number, label, at FROM walked WHERE id = $1", 0, NULL),
        conn));
    for (int i = 0; i < count; i++) {
        const uint64_t key = htobe64((uint64_t)(i % KEYS) + 1);
        const char *const values[] = {(const char *)&key};

        rows += take(check(PQexecPrepared(conn, "p", 1, values, lengths, formats, 1), conn));
    }
    return rows;
}

static uint64_t bits(double number)
{
    uint64_t value;

    memcpy(&value, &number, sizeof(value));
    return htobe64(value);
}

static int insert(PGconn *conn, int count)
{
    const int lengths[] = {8, 8, 20, 8};
    const int formats[] = {1, 1, 1, 1};
    const uint64_t at = htobe64(636294896000000ULL); /* microseconds from 2000-01-01 */

    command(conn, "BEGIN");
    PQclear(
        check(PQprepare(conn, "p", "INSERT INTO inserted VALUES ($1, $2, $3, $4)", 0, NULL), conn));
    for (int i = 0; i < count; i++) {
        const uint64_t id = htobe64((uint64_t)i);
        const uint64_t number = bits(0.25 * i);
        const char *const values[] = {(const char *)&id, (const char *)&number,
                                      "text number 00012345", (const char *)&at};

        PQclear(check(PQexecPrepared(conn, "p", 4, values, lengths, formats, 1), conn));
    }
    command(conn, "ROLLBACK");
    return count;
}

int main(int argc, char *argv[])
{
    const char *const keywords[] = {"host", "port", "user", "dbname", NULL};
    const char *const values[] = {argv[argc - 2], argv[argc - 1], "dorvy", "postgres", NULL};
    PGconn *conn = PQconnectdbParams(keywords, values, 0);
    const int count = atoi(argv[argc - 3]);
    int done;

    if (PQstatus(conn) != CONNECTION_OK) {
        fputs(PQerrorMessage(conn), stderr);
        return 2;
    }
    if (strcmp(argv[1], "walk") == 0)
        done = walk(conn, count);
    else if (strcmp(argv[1], "point") == 0)
        done = point(conn, count);
    else
        done = insert(conn, count);
    PQfinish(conn);
    return done == count ? 0 : 1;
}
