// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// What the measured programs in C and C++ share.
#include "bench/clients/run.h"

#include <inttypes.h>
#include <pthread.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

enum { MostThreads = 64, Arguments = 11 };

struct Moment
{
    struct timespec wall;
    struct rusage cpu;
};

struct Thread
{
    const struct BenchRun *run;
    BenchWorker worker;
    int number;
    struct BenchWork work;
};

// One run per process.
static pthread_barrier_t gate;
static atomic_int notReady;
static atomic_int notDone;
static struct Moment start;
static struct Moment stop;

void benchFail(const char *what, const char *why)
{
    fprintf(stderr, "%s: %s\n", what, why);
    _exit(1); // other threads may wait for this one
}

static void hlpTake(struct Moment *moment)
{
    clock_gettime(CLOCK_MONOTONIC, &moment->wall);
    getrusage(RUSAGE_SELF, &moment->cpu);
}

void benchStart(void)
{
    if (atomic_fetch_sub(&notReady, 1) == 1) {
        hlpTake(&start);
    }
    pthread_barrier_wait(&gate);
}

void benchStop(void)
{
    if (atomic_fetch_sub(&notDone, 1) == 1) {
        hlpTake(&stop);
    }
}

uint64_t benchFirst(const struct BenchRun *run, int thread)
{
    return run->count * (uint64_t)thread / (uint64_t)run->threads;
}

int64_t benchKey(const struct BenchRun *run, uint64_t execution)
{
    // Knuth's multiplicative hashing.
    return (int64_t)(1 + (uint32_t)(execution * UINT64_C(2654435761)) % run->keys);
}

void benchNumberedText(const struct BenchRun *run, uint64_t number, char text[BenchTextBytes])
{
    const size_t before = strcspn(run->sql, "#");
    snprintf(text, BenchTextBytes, "%.*s%" PRIu64 "%s", (int)before, run->sql, number,
             run->sql + before + 1);
}

void benchInsertText(int value, char text[BenchTextBytes])
{
    snprintf(text, BenchTextBytes, "insert benchmark %d", value);
}

static struct BenchRun hlpArguments(int argc, char **argv)
{
    if (argc != 1 + Arguments) {
        benchFail(argv[0], "usage: OPERATION HOST PORT USER DATABASE SQL KINDS COUNT KEYS THREADS "
                           "PAGE-ROWS");
    }
    const struct BenchRun run = {argv[1],
                                 argv[2],
                                 argv[3],
                                 argv[4],
                                 argv[5],
                                 argv[6],
                                 argv[7],
                                 strtoull(argv[8], NULL, 10),
                                 strtoull(argv[9], NULL, 10),
                                 (int)strtol(argv[10], NULL, 10),
                                 argv[11]};
    if (run.threads < 1 || run.threads > MostThreads) {
        benchFail(argv[0], "too many threads, or too few");
    }
    return run;
}

static BenchWorker hlpWorker(const char *name, const struct BenchOperation *operations)
{
    for (; operations->name; ++operations) {
        if (strcmp(operations->name, name) == 0) {
            return operations->worker;
        }
    }
    benchFail(name, "no such operation");
}

static void *hlpThread(void *argument)
{
    struct Thread *thread = argument;
    thread->work = thread->worker(thread->run, thread->number);
    return NULL;
}

// Runs all but the first in threads of their own, so that a run of one has no threads.
static struct BenchWork hlpWork(const struct BenchRun *run, BenchWorker worker)
{
    struct Thread threads[MostThreads];
    pthread_t handles[MostThreads];
    for (int i = run->threads - 1; i >= 0; --i) {
        threads[i] = (struct Thread){run, worker, i, {0, 0}};
        if (i > 0 && pthread_create(&handles[i], NULL, hlpThread, &threads[i]) != 0) {
            benchFail("pthread_create", "no thread");
        }
    }
    hlpThread(&threads[0]);
    struct BenchWork all = threads[0].work;
    for (int i = 1; i < run->threads; ++i) {
        pthread_join(handles[i], NULL);
        all.operations += threads[i].work.operations;
        all.checksum += threads[i].work.checksum;
    }
    return all;
}

// Not ru_maxrss, which begins with the memory of the process that started this one.
static long hlpPeakKib(void)
{
    FILE *file = fopen("/proc/self/status", "r");
    if (!file) {
        benchFail("/proc/self/status", "cannot be read");
    }
    char line[BenchTextBytes];
    long kib = -1;
    while (kib < 0 && fgets(line, sizeof(line), file)) {
        if (strncmp(line, "VmHWM:", 6) == 0) {
            kib = strtol(line + 6, NULL, 10);
        }
    }
    fclose(file);
    return kib;
}

static double hlpTimespec(struct timespec from, struct timespec to)
{
    return (double)(to.tv_sec - from.tv_sec) + (double)(to.tv_nsec - from.tv_nsec) * 1e-9;
}

static double hlpTimeval(struct timeval from, struct timeval to)
{
    return (double)(to.tv_sec - from.tv_sec) + (double)(to.tv_usec - from.tv_usec) * 1e-6;
}

static void hlpPrint(const struct BenchRun *run, struct BenchWork work)
{
    printf("{\"workload\": \"%s\", \"operations\": %" PRIu64 ", \"seconds\": %.6f, "
           "\"checksum\": %" PRIu64 ", \"peak_kib\": %ld, \"user\": %.6f, \"system\": %.6f}\n",
           run->operation, work.operations, hlpTimespec(start.wall, stop.wall), work.checksum,
           hlpPeakKib(), hlpTimeval(start.cpu.ru_utime, stop.cpu.ru_utime),
           hlpTimeval(start.cpu.ru_stime, stop.cpu.ru_stime));
}

int benchMain(int argc, char **argv, const struct BenchOperation *operations)
{
    const struct BenchRun run = hlpArguments(argc, argv);
    const BenchWorker worker = hlpWorker(run.operation, operations);
    atomic_init(&notReady, run.threads);
    atomic_init(&notDone, run.threads);
    pthread_barrier_init(&gate, NULL, (unsigned)run.threads);
    hlpPrint(&run, hlpWork(&run, worker));
    return fflush(stdout) == 0 ? 0 : 1;
}
