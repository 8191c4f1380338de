# SPDX-FileCopyrightText: 2026 the DORVY driver developers
# SPDX-License-Identifier: MIT
"""psycopg2: named cursors for walks, statements that are prepared by hand for the rest."""

import argparse
import datetime
import os
import re
import resource
import sys
import threading
import time

import psycopg2
import psycopg2.extras

NULL = 7  # what a null adds to the checksum
INSERT_VALUES = 1000
DAY_2000 = datetime.date(2000, 1, 1).toordinal()
MSEC_PER_DAY = 86_400_000

DAYS = "{0}.toordinal() - DAY_2000"
MSEC_OF_DAY = "(({0}.hour * 60 + {0}.minute) * 60 + {0}.second) * 1000 + {0}.microsecond // 1000"
# Python takes longer for the difference of two moments.
MSEC = f"({DAYS}) * MSEC_PER_DAY + {MSEC_OF_DAY}"
CHECKSUMS = {
    "b": "2 if {0} else 1",
    "y": "len({0}) + ord({0}[0]) + ord({0}[-1])",
    "i": "{0}",
    "f": "int({0} * 4)",
    "t": "len({0}) + ord({0}[0]) + ord({0}[-1])",
    "n": "int({0})",
    "d": DAYS,
    "m": MSEC_OF_DAY,
    "s": MSEC,
    "z": MSEC,
    "u": "int({0}[:8], 16)",
    "j": "len({0})",
}


def row_function(kinds):
    """What a row adds to the checksum. One expression for all its values, as a call for each of
    them would take longer than to read it."""
    names = [f"v{i}" for i in range(len(kinds))]
    values = [f"({NULL} if {name} is None else {CHECKSUMS[kind].format(name)})"
              for name, kind in zip(names, kinds)]
    return eval(f"lambda {', '.join(names)}: {' + '.join(values)}")


class Moment:
    def __init__(self):
        self.seconds = time.monotonic()
        usage = resource.getrusage(resource.RUSAGE_SELF)
        self.user, self.system = usage.ru_utime, usage.ru_stime


class Run:
    def __init__(self, arguments):
        self.arguments = arguments
        self.row_value = row_function(arguments.kinds)
        self.gate = threading.Barrier(arguments.threads, self.take_start)
        self.work = []
        self.start = self.stop = None

    def take_start(self):
        self.start = Moment()

    def done(self, operations, checksum):
        """Says what one thread has done; the last one stops the clock."""
        self.work.append((operations, checksum))
        if len(self.work) == self.arguments.threads:
            self.stop = Moment()

    def share(self, thread):
        count, threads = self.arguments.count, self.arguments.threads
        return range(count * thread // threads, count * (thread + 1) // threads)

    def key(self, execution):
        return 1 + (execution * 2654435761 & 0xFFFFFFFF) % self.arguments.keys

    def connect(self):
        given = self.arguments
        connection = psycopg2.connect(
            host=given.host, port=given.port, user=given.user, dbname=given.database)
        # The text, in place of Python objects that are made of it.
        psycopg2.extras.register_default_jsonb(connection, loads=lambda text: text)
        return connection


def walk(run, connection, _thread):
    cursor = connection.cursor("c")
    cursor.itersize = run.arguments.page_rows
    run.gate.wait()
    checksum = rows = 0
    cursor.execute(run.arguments.sql)
    for row in cursor:
        checksum += run.row_value(*row)
        rows += 1
    connection.commit()
    run.done(rows, checksum)


def prepare(cursor, sql):
    """Prepares s and gives the text that executes it: psycopg2 itself prepares nothing."""
    cursor.execute("PREPARE s AS " + sql)
    parameters = len(set(re.findall(r"\$\d+", sql)))
    return "EXECUTE s (" + ", ".join(["%s"] * parameters) + ")"


def point(run, connection, thread):
    cursor = connection.cursor()
    execute = prepare(cursor, run.arguments.sql)
    run.gate.wait()
    checksum = executions = 0
    for execution in run.share(thread):
        cursor.execute(execute, (run.key(execution),))
        for row in cursor:
            checksum += run.row_value(*row)
            executions += 1
    run.done(executions, checksum)


def insert(run, connection, _thread):
    start = datetime.datetime(2020, 1, 1)
    values = [(f"insert benchmark {i}", start + datetime.timedelta(seconds=i))
              for i in range(INSERT_VALUES)]
    cursor = connection.cursor()
    run.gate.wait()
    execute = prepare(cursor, run.arguments.sql)
    for number in range(run.arguments.count):
        cursor.execute(execute, (number, number * 0.25, *values[number % INSERT_VALUES]))
    connection.commit()
    run.done(run.arguments.count, 0)


def texts(run, connection, _thread):
    cursor = connection.cursor()
    run.gate.wait()
    checksum = rows = 0
    for number in range(run.arguments.count):
        cursor.execute("PREPARE s AS " + run.arguments.sql.replace("#", str(number)))
        cursor.execute("EXECUTE s")
        for row in cursor:
            checksum += run.row_value(*row)
            rows += 1
        cursor.execute("DEALLOCATE s")
    run.done(rows, checksum)


OPERATIONS = {"walk": walk, "point": point, "insert": insert, "texts": texts}


def work(run, thread):
    try:
        connection = run.connect()
        OPERATIONS[run.arguments.operation](run, connection, thread)
        connection.close()
    except BaseException as error:  # the others may wait for this one
        print("psycopg2:", repr(error), file=sys.stderr, flush=True)
        os._exit(1)


def peak_kib():
    with open("/proc/self/status", encoding="ascii") as status:
        return int(re.search(r"VmHWM:\s+(\d+)", status.read()).group(1))


def print_result(run):
    checksum = sum(checksum for _, checksum in run.work) % 2**64
    print(f'{{"workload": "{run.arguments.operation}", '
          f'"operations": {sum(operations for operations, _ in run.work)}, '
          f'"seconds": {run.stop.seconds - run.start.seconds:.6f}, "checksum": {checksum}, '
          f'"peak_kib": {peak_kib()}, "user": {run.stop.user - run.start.user:.6f}, '
          f'"system": {run.stop.system - run.start.system:.6f}}}')


def main():
    parser = argparse.ArgumentParser()
    for name in ("operation", "host", "port", "user", "database", "sql", "kinds"):
        parser.add_argument(name)
    for name in ("count", "keys", "threads", "page_rows"):
        parser.add_argument(name, type=int)
    run = Run(parser.parse_args())
    others = [threading.Thread(target=work, args=(run, thread))
              for thread in range(1, run.arguments.threads)]
    for other in others:
        other.start()
    work(run, 0)
    for other in others:
        other.join()
    print_result(run)


if __name__ == "__main__":
    main()
