"""Threads, interrupts, and memory that is given back."""

from __future__ import annotations

import gc
import os
import threading
import tracemalloc
import unittest
from pathlib import Path
from typing import Callable

import velmora
from support import InDirectory, WithConnection


def run_threads(work: Callable[[int], None], count: int = 4) -> None:
    threads = [threading.Thread(target=work, args=[number]) for number in range(count)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()


class Threads(InDirectory):
    def test_they_share_a_connection(self) -> None:
        connection = self.connect(autocommit=True)
        connection.execute("CREATE TABLE t n int s string")
        wrong: list[object] = []

        def work(number: int) -> None:
            for n in range(number * 50, number * 50 + 50):
                connection.execute("INSERT INTO t n = ? s = ?", (n, str(n)))
                rows = connection.execute("SELECT s FROM t WHERE n = ?", (n,)).fetchall()
                if rows != [(str(n),)]:
                    wrong.append(rows)

        run_threads(work)
        self.assertEqual(wrong, [])
        self.assertEqual(connection.execute("SELECT n, s FROM t ORDER BY n").fetchall(),
                         [(n, str(n)) for n in range(200)])

    def test_each_has_its_transaction_and_waits_for_the_others(self) -> None:
        connection = self.connect(timeout=None)
        with connection:
            connection.execute("CREATE TABLE t n int")
            connection.execute("INSERT INTO t n = 0")

        def work(_: int) -> None:
            for _ in range(25):
                with connection:
                    connection.execute("BEGIN")
                    n, = connection.execute("SELECT n FROM t").fetchone()
                    connection.execute("UPDATE t SET n = ?", (n + 1,))

        run_threads(work)
        self.assertEqual(connection.execute("SELECT n FROM t").fetchall(), [(100,)])

    def test_a_pool_of_connections_works(self) -> None:
        self.connect(autocommit=True).execute("CREATE TABLE t n int")

        def work(number: int) -> None:
            for n in range(25):
                connection = velmora.connect(self.directory / "db", durability="off")
                with connection:
                    connection.execute("INSERT INTO t n = ?", (number * 25 + n,))
                connection.close()

        run_threads(work)
        self.assertEqual(self.connect().execute("SELECT COUNT(*) FROM t").fetchone(), (100,))

    def test_others_run_while_one_waits(self) -> None:
        connection = self.connect(timeout=None)
        connection.execute("CREATE TABLE t n int")
        thread = threading.Thread(target=lambda: connection.execute("SHOW TABLES"))
        thread.start()
        connection.commit()  # needs the lock of the interpreter while the other waits
        thread.join()

    def test_what_waits_can_be_interrupted(self) -> None:
        connection = self.connect(timeout=None)
        connection.execute("CREATE TABLE t n int")
        seen: list[type] = []

        def work() -> None:
            with self.assertRaises(velmora.OperationalError) as raised:
                connection.execute("SHOW TABLES")
            seen.append(type(raised.exception))

        thread = threading.Thread(target=work)
        thread.start()
        while thread.is_alive():
            connection.interrupt()
        self.assertEqual(seen, [velmora.CommandInterruptedError])

    def test_what_runs_long_can_be_interrupted(self) -> None:
        connection = self.connect(autocommit=True)
        for table in ("a", "b"):
            connection.execute(f"CREATE TABLE {table} n int")
            connection.executemany(f"INSERT INTO {table} n = ?", [(1,)] * 20_000)
        seen: list[type] = []

        def work() -> None:
            with self.assertRaises(velmora.OperationalError) as raised:
                connection.execute("SELECT COUNT(*) FROM a JOIN b ON a.n = b.n")
            seen.append(type(raised.exception))

        thread = threading.Thread(target=work)
        thread.start()
        while thread.is_alive():
            connection.interrupt()
        self.assertEqual(seen, [velmora.CommandInterruptedError])

    def test_a_cursor_shared_by_mistake_is_not_a_crash(self) -> None:
        connection = self.connect(autocommit=True)
        connection.execute("CREATE TABLE t n int")
        connection.executemany("INSERT INTO t n = ?", [(n,) for n in range(100)])
        cursor = connection.cursor()
        counts: set[int] = set()

        def work(_: int) -> None:
            for _ in range(200):
                cursor.execute("SELECT n FROM t")
                try:
                    counts.add(len(cursor.fetchall()))
                except velmora.MisuseError:
                    pass  # another thread's command is under way

        run_threads(work)
        self.assertLessEqual(max(counts), 100)


class Memory(WithConnection):
    def setUp(self) -> None:
        super().setUp()
        self.run_command("CREATE TABLE t n int s string(1000) x double")
        self.connection.executemany("INSERT INTO t n = ? s = ? x = ?",
                                    [(n, "x" * 1000, n / 2) for n in range(100)])

    def use_everything(self) -> None:
        cursor = self.connection.execute("SELECT * FROM t WHERE n >= ?", (0,))
        row = cursor.fetchone()
        row.keys(), row.timed("n"), row.changes_at, hash(row), repr(row), row == tuple(row)
        cursor.fetchmany(10), cursor.description, cursor.fetchall(), list(cursor)
        for column in cursor.fetch_columns().values():
            column.values, column.ends, column.nulls, list(column)
        self.connection.executemany("UPDATE t SET s = ? WHERE n = ?", [("é" * 400, 1)] * 10)
        self.connection.executebatch([("SELECT s FROM t WHERE s = ?", ("é",))])
        for command, values in (("SELECT s FROM " + "t" * 10_000, ()), ("SELECT s FROM t", (1,)),
                                ("INSERT INTO t n = ?", ("a",)), ("SELECT", b"")):
            with self.assertRaises(velmora.Error):
                self.connection.execute(command, values)
        with self.connection:
            self.run_command("DELETE FROM t WHERE n = 1000")
        connection = velmora.connect(self.directory / "other", durability="off")
        connection.execute("SHOW TABLES")
        connection.close()

    def test_python_gets_its_objects_back(self) -> None:
        for _ in range(3):
            self.use_everything()
        gc.collect()
        tracemalloc.start()
        try:
            for _ in range(3):
                self.use_everything()
            gc.collect()
            before, _ = tracemalloc.get_traced_memory()
            for _ in range(20):
                self.use_everything()
            gc.collect()
            after, _ = tracemalloc.get_traced_memory()
        finally:
            tracemalloc.stop()
        self.assertLess(after - before, 20 * 100)  # less than an object a run

    def test_the_system_gets_its_memory_back(self) -> None:
        def resident_bytes() -> int:
            pages = Path("/proc/self/statm").read_text(encoding="ascii").split()[1]
            return int(pages) * os.sysconf("SC_PAGE_SIZE")

        def run() -> None:  # 20 MB of answers, 20 MB of commands that fail
            for _ in range(200):
                self.run_command("SELECT s FROM t").fetchall()
                with self.assertRaises(velmora.Error):
                    self.run_command("SELECT s FROM " + "t" * 100_000)

        run()
        before = resident_bytes()
        run()
        self.assertLess(resident_bytes() - before, 10_000_000)


if __name__ == "__main__":
    unittest.main()
