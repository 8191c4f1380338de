// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// What the measured programs in C and C++ share: command line, threads, clock, and what they print.
#ifndef BENCH_CLIENTS_RUN_H
#define BENCH_CLIENTS_RUN_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#define BENCH_NORETURN [[noreturn]]
extern "C" {
#else
#define BENCH_NORETURN _Noreturn
#endif

enum {
    BenchNull = 7,            // what a null adds to the checksum
    BenchInsertValues = 1000, // different texts and timestamps that are inserted
    BenchTextBytes = 256      // enough for any text made here
};

struct BenchRun
{
    const char *operation; // walk, point, insert or texts
    const char *host;      // folder of the Unix socket
    const char *port;
    const char *user;
    const char *database;
    const char *sql;
    const char *kinds; // one letter per column, see bench/workloads.py
    uint64_t count;    // executions, over all threads; a walk ignores it
    uint64_t keys;     // executions ask for the keys 1 to keys
    int threads;
    const char *pageRows; // rows in one fetch, for clients that let one choose
};

/* What one thread has done. */
struct BenchWork
{
    uint64_t operations;
    uint64_t checksum; // of what was read; 0 after inserts, whose table is read from outside
};

/*
 * Connects, prepares, calls benchStart, works, calls benchStop and disconnects. Once per thread.
 */
typedef struct BenchWork (*BenchWorker)(const struct BenchRun *run, int thread);

struct BenchOperation
{
    const char *name;
    BenchWorker worker;
};

/*
 * benchMain
 *     Run the operation that the command line names and print what it took, as one line of JSON.
 *
 * operations  end with one without a name
 *
 * Returns the exit status of the process.
 */
int benchMain(int argc, char **argv, const struct BenchOperation *operations);

/* The clock runs from the last thread's benchStart to the last thread's benchStop. */
void benchStart(void);
void benchStop(void);

/* Ends the process with a message. */
BENCH_NORETURN void benchFail(const char *what, const char *why);

/* The executions of one thread: first, and one past the last. */
uint64_t benchFirst(const struct BenchRun *run, int thread);

/* The key that an execution asks for: always the same, in an order without pattern. */
int64_t benchKey(const struct BenchRun *run, uint64_t execution);

/* The statement's text with the number in the place of its mark. */
void benchNumberedText(const struct BenchRun *run, uint64_t number, char text[BenchTextBytes]);

/* The text that is inserted as value, below BenchInsertValues. */
void benchInsertText(int value, char text[BenchTextBytes]);

#ifdef __cplusplus
}
#endif

#endif
