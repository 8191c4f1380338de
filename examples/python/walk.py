#!/usr/bin/python3
# SPDX-FileCopyrightText: 2026 the DORVY driver developers
# SPDX-License-Identifier: MIT
"""Walks through a PostgreSQL database with the DORVY driver, from PyQt5.

Makes a table, fills it by prepared statements in a transaction, reads it to its end page by page, shows
what errors look like, and drops the table again. Needs Debian's package python3-pyqt5.qtsql.

Exit status: 0 all went well, 1 a step failed, 2 wrong arguments, 3 no connection.
"""

import argparse
import sys

from PyQt5.QtCore import QByteArray, QCoreApplication, QDate, QDateTime, Qt, QTime
from PyQt5.QtSql import QSqlDatabase, QSqlQuery

PAGE_ROWS = 128  # what the driver holds of a result at any time
ROWS = 300       # what the walk makes and reads
CONNECTION = "walk"


class StepFailed(Exception):
    """A step that should have worked did not."""


def texts_of(error):
    """Both texts of a QSqlError: the server's, and what the driver says of it."""
    lines = [error.driverText().strip(), error.databaseText().strip()]
    return "\n".join("    " + line for text in lines if text for line in text.splitlines())


def expect(good, source, what):
    """Prints that a step worked, or stops with the error of its query or database."""
    if not good:
        raise StepFailed(f"{what}\n{texts_of(source.lastError())}")
    print(f"  {what}")


def run(database, sql):
    query = QSqlQuery(database)
    if not query.exec_(sql):
        raise StepFailed(f"{sql}\n{texts_of(query.lastError())}")
    return query


def open_database(options):
    database = QSqlDatabase.addDatabase(options.driver, CONNECTION)
    database.setHostName(options.host)
    database.setPort(options.port)
    database.setDatabaseName(options.database)
    database.setUserName(options.user)
    database.setConnectOptions(options.options)
    database.open()
    return database


def insert_rows(database):
    """Positional values. None is NULL; a bool goes as a number, since the driver sends none."""
    query = QSqlQuery(database)
    if not query.prepare("INSERT INTO walk (id, name, digest, is_even)"
                         " VALUES (?, ?, ?, CAST(? AS int4) = 1)"):
        return query, 0
    for number in range(1, ROWS + 1):
        query.addBindValue(number)
        query.addBindValue(None if number % 10 == 0 else f"строка {number}")
        query.addBindValue(QByteArray(number.to_bytes(2, "big")))
        query.addBindValue(1 if number % 2 == 0 else 0)
        if not query.exec_():
            return query, number - 1
    return query, ROWS


def date_rows(database):
    """Named values: the rest of the columns, for one row in ten."""
    query = QSqlQuery(database)
    query.prepare("UPDATE walk SET listed = :day, listed_at = :time, seen = :moment WHERE id = :id")
    moment = QDateTime(QDate(2024, 2, 29), QTime(12, 34, 56, 789))
    updated = 0
    for number in range(10, ROWS + 1, 10):
        query.bindValue(":id", number)
        query.bindValue(":day", moment.date().addDays(-number))
        query.bindValue(":time", moment.time())
        query.bindValue(":moment", moment.addSecs(number))
        if not query.exec_():
            break
        updated += query.numRowsAffected()
    return query, updated


def fill(database):
    print("Prepared statements, in one transaction")
    expect(database.transaction(), database, "transaction()")
    run(database, "CREATE TABLE walk (id int4 PRIMARY KEY, name text, digest bytea NOT NULL,"
                  " is_even bool NOT NULL, listed date, listed_at time, seen timestamp)")
    query, inserted = insert_rows(database)
    expect(inserted == ROWS, query, f"{inserted} rows inserted with positional values")
    query, updated = date_rows(database)
    expect(updated == ROWS // 10, query, f"{updated} of them updated with named values")
    expect(database.commit(), database, "commit()")


def show_rollback(database):
    print("A transaction with a failed statement, rolled back")
    expect(database.transaction(), database, "transaction()")
    run(database, "DELETE FROM walk")
    query = QSqlQuery(database)
    expect(not query.exec_("INSERT INTO nowhere VALUES (1)"), query, "an unknown table is refused:")
    print(texts_of(query.lastError()))
    expect(not database.commit(), database, "commit() is refused as well:")
    print(texts_of(database.lastError()))
    expect(database.rollback(), database, "rollback()")


def walk_rows(database):
    """Reads every row. at() counts within the page that is held: it is 0 where a new one begins."""
    print("A walk through all rows")
    query = QSqlQuery(database)
    query.setForwardOnly(True)
    expect(query.exec_("SELECT id, name, digest, seen FROM walk ORDER BY id"), query, "SELECT")
    rows = pages = nulls = 0
    right = True
    while query.next():
        rows += 1
        pages += query.at() == 0
        nulls += query.isNull(1)
        # The bytes are the page's own: bytes() copies what is to be kept.
        right &= query.value(0) == rows and bytes(query.value(2)) == rows.to_bytes(2, "big")
    # next() is false at the end and after a failure; only the error tells which.
    expect(not query.lastError().isValid(), query, "to the end without an error")
    expect(rows == ROWS and right, query, f"{rows} rows, each with its own number")
    expect(pages == -(-ROWS // PAGE_ROWS), query, f"in {pages} pages of {PAGE_ROWS} rows")
    expect(nulls == ROWS // 10, query, f"{nulls} NULLs")


def show_values(database):
    print("Values, as Python gets them")
    query = QSqlQuery(database)
    query.prepare("SELECT * FROM walk WHERE id = ?")
    query.addBindValue(20)
    expect(query.exec_() and query.next(), query, "row 20")
    record = query.record()
    for column in range(record.count()):
        value = None if query.isNull(column) else query.value(column)
        print(f"    {record.fieldName(column):<10} {type(value).__name__:<10} {shown(value)}")


def shown(value):
    if isinstance(value, QByteArray):
        return bytes(value).hex()
    return value.toString(Qt.ISODate) if isinstance(value, (QDate, QTime, QDateTime)) else value


def show_failed_read(database):
    """A read that fails in a later page: the rows before it arrived."""
    print("A failure in the second page")
    query = QSqlQuery(database)
    expect(query.exec_("SELECT 1 / (200 - g) FROM generate_series(1, 300) g"), query, "SELECT")
    rows = 0
    while query.next():
        rows += 1
    expect(query.lastError().isValid() and rows == PAGE_ROWS, query, f"after {rows} rows:")
    print(texts_of(query.lastError()))
    query.clear()  # as long as it lives, it keeps all other reads failing


def drop(database):
    print("The end")
    expect(run(database, "DROP TABLE walk").isActive(), database, "the table is dropped")


def attempt(step, database):
    """Whether a step worked. Its queries go with its exception, or they would hold the table."""
    try:
        step(database)
    except StepFailed as failure:
        print(f"failed: {failure}", file=sys.stderr)
        return False
    return True


def walk(database):
    if not attempt(fill, database):  # close() rolls back what there is of it
        return False
    steps = (show_rollback, walk_rows, show_values, show_failed_read)
    good = all(attempt(step, database) for step in steps)
    return attempt(drop, database) and good


def arguments():
    def port(text):
        number = int(text)
        if not 0 < number < 65536:
            raise ValueError
        return number

    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--host", default="localhost",
                        help="server's host, or the folder of its socket (%(default)s)")
    parser.add_argument("--port", default=5432, type=port, help="server's port (%(default)s)")
    parser.add_argument("--database", default="postgres",
                        help="database; the table \"walk\" is made in it and dropped (%(default)s)")
    parser.add_argument("--user", default="postgres", help="user (%(default)s)")
    parser.add_argument("--options", default="connect_timeout=10",
                        help="connect options, as Qt takes them (%(default)s)")
    parser.add_argument("--driver", default="DORVY", help="key of the Qt driver (%(default)s)")
    return parser.parse_args()


def main():
    options = arguments()
    application = QCoreApplication(sys.argv[:1])  # lives as long as the driver
    database = open_database(options)
    if not database.isOpen():
        print(f"no connection\n{texts_of(database.lastError())}", file=sys.stderr)
        return 3
    good = walk(database)
    database.close()
    print("every count is right" if good else "something is wrong, see the errors")
    return 0 if good else 1


if __name__ == "__main__":
    sys.exit(main())
