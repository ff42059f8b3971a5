"""velmora's package for Python beside the module sqlite3, in one run: python3 python_bench.py

Both do the same over tables of nine columns: reads by key, whole answers, inserts one by one and
many at once; then an answer as columns. Each figure is the least of several rounds, which the two
take in turn. Tables are compared memory against memory (":memory:" beside a directory in /dev/shm,
as velmora always keeps a log) and file against file, velmora's with durability "off". --quick takes
fewer rows.
"""

import array
import argparse
import contextlib
import functools
import pathlib
import sqlite3
import sys
import tempfile
import time

import velmora

COLUMNS = 9
VELMORA_TABLE = ("CREATE TABLE items id int a int b long c double d string e string f bool "
                 "g double h string")
SQLITE_TABLE = ("CREATE TABLE items (id INTEGER PRIMARY KEY, a INTEGER, b INTEGER, c REAL, d TEXT, "
                "e TEXT, f INTEGER, g REAL, h TEXT)")
VELMORA_INSERT = ("INSERT INTO items id = ? a = ? b = ? c = ? d = ? e = ? f = ? g = ? h = ?")
SQLITE_INSERT = "INSERT INTO items VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)"
ALL = "SELECT * FROM items"
BY_KEY = "SELECT * FROM items WHERE id = ?"


def make_rows(count):
    return [(n, n % 1000, n * 10**9, n * 0.1, f"name {n}", "red" if n % 2 else "green", n % 3 == 0,
             n / 4, f"a longer text {n % 5000}") for n in range(count)]


class Side:
    """A connection of either, and how its commands are written."""

    def __init__(self, connection, table, insert):
        self.connection = connection
        self.insert = insert
        connection.execute(table)

    def empty(self):
        self.connection.execute("DELETE FROM items")

    def add_many(self, rows):
        self.connection.execute("BEGIN")
        self.connection.executemany(self.insert, rows)
        self.connection.execute("COMMIT")

    def add_in_transaction(self, rows):
        self.connection.execute("BEGIN")
        self.add_each(rows)
        self.connection.execute("COMMIT")

    def add_each(self, rows):
        execute = self.connection.execute
        for row in rows:
            execute(self.insert, row)

    def read_by_key(self, count):
        execute = self.connection.execute
        for n in range(count):
            execute(BY_KEY, (n,)).fetchone()

    def fetch_all(self):
        self.connection.execute(ALL).fetchall()

    def unpack(self):
        for _id, _a, _b, _c, _d, _e, _f, _g, _h in self.connection.execute(ALL):
            pass


def velmora_side(path, durability):
    connection = velmora.connect(path, autocommit=True, durability=durability)
    side = Side(connection, VELMORA_TABLE, VELMORA_INSERT)
    # A key is what others are linked to.
    connection.execute("CREATE TABLE parts item int")
    connection.execute("LINK parts.item --> items.id")
    return side


def sqlite_side(path, *settings):
    connection = sqlite3.connect(path, isolation_level=None)
    for setting in settings:
        connection.execute(f"PRAGMA {setting}").fetchall()
    return Side(connection, SQLITE_TABLE, SQLITE_INSERT)


def seconds(work, prepare):
    prepare()
    start = time.perf_counter()
    work()
    return time.perf_counter() - start


def compare(name, count, velmora_work, sqlite_work, prepares=(lambda: None, lambda: None),
            rounds=5):
    """Prints what each takes for one of so many things, and how many times faster velmora is."""
    times = [(seconds(velmora_work, prepares[0]), seconds(sqlite_work, prepares[1]))
             for _ in range(rounds)]
    ours, theirs = (min(column) / count * 1e6 for column in zip(*times))
    print(f"{name:58}{ours:11.3f}{theirs:11.3f}{theirs / ours:8.1f}", flush=True)


def compare_tables(place, ours, theirs, count):
    rows = make_rows(count)
    few = rows[:count // 5]
    both = (ours.empty, theirs.empty)

    def inserts(name, method, given):
        compare(f"{place}: {name}", len(given), functools.partial(getattr(ours, method), given),
                functools.partial(getattr(theirs, method), given), both, 3)

    inserts("insert, each its own transaction", "add_each", few)
    inserts("insert, in one transaction", "add_in_transaction", rows)
    inserts("executemany", "add_many", rows)
    keys = count // 2
    compare(f"{place}: read by key", keys, functools.partial(ours.read_by_key, keys),
            functools.partial(theirs.read_by_key, keys))
    compare(f"{place}: fetchall, a row of {COLUMNS}", count, ours.fetch_all, theirs.fetch_all)
    compare(f"{place}: iterate and unpack, a row of {COLUMNS}", count, ours.unpack, theirs.unpack)


def compare_durable(directory, count):
    rows = make_rows(count)
    for journal in ("DELETE", "WAL"):
        ours = velmora_side(directory / f"durable-{journal}", "always")
        theirs = sqlite_side(directory / f"durable-{journal}.sqlite", f"journal_mode={journal}",
                             "synchronous=FULL")
        compare(f"on the disk ({journal.lower()} journal): insert, each its own", count,
                functools.partial(ours.add_each, rows), functools.partial(theirs.add_each, rows),
                (ours.empty, theirs.empty), 3)
        ours.connection.close()
        theirs.connection.close()


def compare_columns(directory, count):
    ours = velmora.connect(directory / "columns", autocommit=True, durability="off")
    theirs = sqlite3.connect(":memory:")
    ours.execute("CREATE TABLE points a long b double c int d bool")
    theirs.execute("CREATE TABLE points (a INTEGER, b REAL, c INTEGER, d INTEGER)")
    rows = [(n, n / 7, n % 100, n % 2 == 0) for n in range(count)]
    ours.executemany("INSERT INTO points a = ? b = ? c = ? d = ?", rows)
    theirs.executemany("INSERT INTO points VALUES (?, ?, ?, ?)", rows)

    def our_columns():
        return [column.values for column in
                ours.execute("SELECT * FROM points").fetch_columns().values()]

    def their_columns():
        columns = zip(*theirs.execute("SELECT * FROM points").fetchall())
        return [array.array(code, column) for code, column in zip("qdqB", columns)]

    assert [sum(column) for column in our_columns()] == [sum(column) for column in their_columns()]
    compare("1 million rows of 4 as columns, a row" if count == 1_000_000 else "as columns, a row",
            count, our_columns, their_columns, rounds=3)
    ours.close()


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("--quick", action="store_true")
    quick = parser.parse_args().quick
    count = 10_000 if quick else 100_000
    with (tempfile.TemporaryDirectory(dir=".") as name,
          tempfile.TemporaryDirectory(dir="/dev/shm") as memory):
        directory = pathlib.Path(name)
        print(f"velmora {velmora.__version__}, SQLite {sqlite3.sqlite_version}, "
              f"Python {sys.version.split()[0]}; microseconds")
        print(f"{'':58}{'velmora':>11}{'sqlite3':>11}{'ratio':>8}")
        for place, our_path, their_path, settings in (
                ("memory", pathlib.Path(memory), ":memory:", ()),
                ("file", directory / "file", directory / "file.sqlite", ("synchronous=OFF",))):
            ours, theirs = velmora_side(our_path, "off"), sqlite_side(their_path, *settings)
            with contextlib.closing(ours.connection), contextlib.closing(theirs.connection):
                compare_tables(place, ours, theirs, count)
        compare_durable(directory, 100 if quick else 1000)
        compare_columns(directory, count * 10)


if __name__ == "__main__":
    main()
