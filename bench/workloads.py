# SPDX-FileCopyrightText: 2026 the DORVY driver developers
# SPDX-License-Identifier: MIT
"""What is measured: the tables, the statements, their sizes, and the checksum of what they read.

A letter stands for each kind of column; CHECKSUMS tells what a value of it adds to the checksum.
A statement's parameter is $1; the number of a text that differs each time is #.
"""

import dataclasses
import math

PAGE_ROWS = 128
NULL_CHECKSUM = 7

CHECKSUMS = {
    "b": "1 + {0}::int",
    "y": "octet_length({0}) + get_byte({0}, 0) + get_byte({0}, octet_length({0}) - 1)",
    "i": "{0}::int8",
    "f": "({0} * 4)::int8",
    "t": "octet_length({0}::text) + ascii({0}::text) + ascii(right({0}::text, 1))",
    "n": "{0}::int8",
    "d": "{0} - date '2000-01-01'",
    "m": "(extract(epoch FROM {0}) * 1000)::int8",
    "s": "(extract(epoch FROM {0} - timestamp '2000-01-01') * 1000)::int8",
    "z": "(extract(epoch FROM {0} - timestamptz '2000-01-01 00:00Z') * 1000)::int8",
    "u": "('x' || left({0}::text, 8))::bit(32)::int8",
    "j": "octet_length({0}::text)",
}

WALK_KINDS = "ifts"
WIDE_COLUMNS = [  # name of the type, kind, value of the row id
    ("bool", "b", "id % 2 = 0"),
    ("bytea", "y", "decode(md5(id::text), 'hex')"),
    ("name", "t", "'name ' || id"),
    ("int8", "i", "id * 1000000007"),
    ("int2", "i", "id % 30000"),
    ("int4", "i", "id"),
    ("text", "t", "'text of row ' || lpad(id::text, 8, '0')"),
    ("float4", "f", "(id % 1000) / 4.0"),
    ("float8", "f", "id / 4.0"),
    ("bpchar(12)", "t", "'char' || lpad(id::text, 8, '0')"),
    ("varchar(20)", "t", "'varchar ' || id"),
    ("date", "d", "date '2020-01-01' + (id % 3000)::int"),
    ("time", "m", "time '00:00' + id % 86400 * interval '1 s'"),
    ("timestamp", "s", "timestamp '2020-01-01' + id * interval '1 s'"),
    ("timestamptz", "z", "timestamptz '2020-01-01 00:00Z' + id * interval '1 s'"),
    ("numeric", "n", "id * 97 % 1000000000"),
    ("uuid", "u", "md5(id::text)::uuid"),
    ("jsonb", "j", "jsonb_build_object('id', id)"),
    ("int4", "i", "-id"),
    ("text", "t", "'second text ' || id"),
]
WIDE_KINDS = "".join(kind for _, kind, _ in WIDE_COLUMNS)

BIG_VALUES = 20
SIZE_ROWS = 10_000  # what the walks of growing size repeat
ALL = ("libpq", "dorvy", "odbc", "libpqxx", "pgjdbc", "psycopg2")
FAMILIES = {"W7": "threads", "W8": "rows"}  # workloads with members, and what tells them apart
THREADS = (1, 2, 4, 8, 16)
PLACEMENTS = ("one core", "free")
ROUNDS = 7  # of a whole run
SIZE_ROUNDS = 3


@dataclasses.dataclass(frozen=True)
class Case:
    """One thing that every client does, measured as one process."""

    workload: str
    variant: int  # which member of a family; 0 where there is none
    operation: str
    sql: str
    kinds: str
    count: int
    keys: int = 1
    threads: int = 1
    clients: tuple = ALL
    most_rounds: float = math.inf


@dataclasses.dataclass(frozen=True)
class Sizes:
    """How much work there is, from the share of the whole."""

    scale: float

    def of(self, whole):
        return max(1, round(whole * self.scale))

    @property
    def walk(self):
        return self.of(1_000_000)

    @property
    def wide(self):
        return self.of(200_000)

    @property
    def size_base(self):
        return self.of(SIZE_ROWS)


def tables(sizes):
    """The statements that make the tables, frozen and analysed."""
    columns = ", ".join(f"c{i} {kind}" for i, (kind, _, _) in enumerate(WIDE_COLUMNS))
    values = ", ".join(f"CASE WHEN (id + {i}) % 5 > 0 THEN {value} END"
                       for i, (_, _, value) in enumerate(WIDE_COLUMNS))
    return [
        "CREATE UNLOGGED TABLE walk (id int8, f float8, t text, at timestamp)",
        "INSERT INTO walk SELECT id, id / 4.0, 'text of row ' || lpad(id::text, 8, '0'), "
        f"timestamp '2020-01-01' + id * interval '1 s' FROM generate_series(1, {sizes.walk}) id",
        "ALTER TABLE walk ADD PRIMARY KEY (id)",
        "CREATE UNLOGGED TABLE inserted (id int8, f float8, t text, at timestamp)",
        f"CREATE UNLOGGED TABLE wide ({columns})",
        f"INSERT INTO wide SELECT {values} FROM generate_series(1, {sizes.wide}::int8) id",
        "CREATE UNLOGGED TABLE big (v bytea)",
        "ALTER TABLE big ALTER v SET STORAGE EXTERNAL",
        "INSERT INTO big SELECT decode(repeat(md5(i::text), 65536), 'hex') "
        f"FROM generate_series(1, {BIG_VALUES}) i",
        "VACUUM (FREEZE, ANALYZE)",
        "CHECKPOINT",
    ]


def cases(scale):
    """Everything that is measured, in the order in which it is."""
    sizes = Sizes(scale)
    walk = "SELECT id, f, t, at FROM walk"
    point = Case("W2", 0, "point", walk + " WHERE id = $1", WALK_KINDS, sizes.of(20_000),
                 keys=sizes.walk)
    return [
        Case("W1", 0, "walk", walk, WALK_KINDS, sizes.walk),
        point,
        Case("W3", 0, "insert", "INSERT INTO inserted VALUES ($1, $2, $3, $4)", WALK_KINDS,
             sizes.of(50_000)),
        Case("W4", 0, "walk", "SELECT * FROM wide", WIDE_KINDS, sizes.wide),
        big_case(sizes.of(100), ("libpq", "dorvy", "pgjdbc")),
        big_case(sizes.of(25), ("odbc", "libpqxx", "psycopg2")),  # text, which takes long
        Case("W6", 0, "texts", "SELECT #::int8, 'x'::text", "it", sizes.of(10_000)),
        *(dataclasses.replace(point, workload="W7", variant=threads, threads=threads)
          for threads in THREADS),
        *(size_case(sizes, times) for times in (1, 10, 100, 1000)),
    ]


def big_case(times, clients):
    """A walk of the values of a megabyte, that many times."""
    return Case("W5", 0, "walk", f"SELECT v FROM big CROSS JOIN generate_series(1, {times})", "y",
                times * BIG_VALUES, clients=clients)


def size_case(sizes, times):
    """A walk of that many times the rows of the smallest one, each of which costs the same."""
    clients = ALL if times < 1000 else ("libpq", "dorvy", "libpqxx", "pgjdbc")
    rows = sizes.size_base * times
    return Case("W8", rows, "walk",
                f"SELECT id, f, t, at FROM (SELECT * FROM walk WHERE id <= {sizes.size_base}) AS w "
                f"CROSS JOIN generate_series(1, {times})",
                WALK_KINDS, rows, clients=clients, most_rounds=SIZE_ROUNDS)


def checksum_sql(case):
    """The statement that tells what every client must find, or must have written."""
    columns = [f"c{i}" for i in range(len(case.kinds))]
    total = " + ".join(f"coalesce({CHECKSUMS[kind].format(column)}, {NULL_CHECKSUM})"
                       for kind, column in zip(case.kinds, columns))
    return f"SELECT sum(({total})::numeric) FROM ({rows_sql(case)}) AS r ({', '.join(columns)})"


def rows_sql(case):
    """All rows of a case in one statement."""
    executions = f"generate_series(0, {case.count - 1}::int8) AS i"
    if case.operation == "walk":
        return case.sql
    if case.operation == "insert":
        return ("SELECT i, i * 0.25::float8, 'insert benchmark ' || i % 1000, "
                f"timestamp '2020-01-01' + i % 1000 * interval '1 s' FROM {executions}")
    key = f"(1 + i * 2654435761 % 4294967296 % {case.keys})"
    one = case.sql.replace("$1", key).replace("#", "i")
    return f"SELECT r.* FROM {executions}, LATERAL ({one}) AS r"


def inserted_sql(case):
    """The statement that tells what an insert has written."""
    walk = dataclasses.replace(case, operation="walk", sql="SELECT id, f, t, at FROM inserted")
    return checksum_sql(walk)
