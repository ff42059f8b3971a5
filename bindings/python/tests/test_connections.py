"""Connections: options, transactions, several to one directory, their ends."""

from __future__ import annotations

import gc
import logging
import os
import signal
import unittest
import weakref

import velmora
from support import InDirectory, WithConnection, in_thread


class Transactions(InDirectory):
    def setUp(self) -> None:
        super().setUp()
        self.connection = self.connect()
        self.connection.execute("CREATE TABLE t n int")
        self.connection.commit()

    def numbers(self) -> list[object]:
        return [n for n, in self.connection.execute("SELECT n FROM t")]

    def insert(self, number: int) -> None:
        self.connection.execute("INSERT INTO t n = ?", (number,))

    def test_one_begins_before_the_first_change_only(self) -> None:
        self.numbers()
        self.connection.execute("SHOW TABLES")
        self.assertFalse(self.connection.in_transaction)
        self.insert(1)
        self.assertTrue(self.connection.in_transaction)
        self.connection.commit()
        self.assertFalse(self.connection.in_transaction)

    def test_executemany_and_executebatch_begin_one_too(self) -> None:
        self.connection.executemany("INSERT INTO t n = ?", [(1,), (2,)])
        self.assertTrue(self.connection.in_transaction)
        self.connection.rollback()
        self.connection.executebatch(["INSERT INTO t n = 1"])
        self.assertTrue(self.connection.in_transaction)
        self.connection.rollback()
        self.assertEqual(self.numbers(), [])

    def test_one_that_begins_for_a_command_that_fails_ends_with_it(self) -> None:
        with self.assertRaises(velmora.NotFoundError):
            self.connection.execute("INSERT INTO nowhere n = 1")
        self.assertFalse(self.connection.in_transaction)
        self.insert(1)
        with self.assertRaises(velmora.NotFoundError):
            self.connection.execute("INSERT INTO nowhere n = 1")
        self.assertTrue(self.connection.in_transaction)

    def test_written_ones_work_as_well(self) -> None:
        self.connection.execute("BEGIN")
        self.assertTrue(self.connection.in_transaction)
        self.insert(1)
        self.connection.execute("ROLLBACK")
        self.assertFalse(self.connection.in_transaction)
        self.connection.execute("BEGIN")
        self.insert(2)
        self.connection.execute("COMMIT")
        self.assertEqual(self.numbers(), [2])
        with self.assertRaises(velmora.TransactionError):
            self.connection.execute("COMMIT")

    def test_maintenance_stands_outside(self) -> None:
        self.connection.execute("CHECKPOINT")
        self.connection.execute("VACUUM t")
        self.assertFalse(self.connection.in_transaction)
        self.insert(1)
        for attempt in (lambda: self.connection.execute("CHECKPOINT"),
                        lambda: self.connection.execute("VACUUM"), self.connection.checkpoint):
            with self.assertRaises(velmora.TransactionError):
                attempt()

    def test_a_with_statement_commits_and_stays_open(self) -> None:
        with self.connection as entered:
            self.assertIs(entered, self.connection)
            self.insert(1)
        self.assertFalse(self.connection.in_transaction)
        self.connection.rollback()
        self.assertEqual(self.numbers(), [1])

    def test_an_exception_that_leaves_it_rolls_back_and_passes(self) -> None:
        with self.assertRaisesRegex(LookupError, "^of the program$"):
            with self.connection:
                self.insert(1)
                raise LookupError("of the program")
        self.assertEqual(self.numbers(), [])

    def test_a_with_statement_may_end_its_transaction_itself(self) -> None:
        with self.connection:
            self.insert(1)
            self.connection.rollback()
        with self.assertRaisesRegex(LookupError, "^of the program$"):
            with self.connection:
                self.insert(1)
                self.connection.commit()
                raise LookupError("of the program")
        self.assertEqual(self.numbers(), [1])

    def test_autocommit_makes_every_command_its_own(self) -> None:
        self.connection.autocommit = True
        self.insert(1)
        self.assertFalse(self.connection.in_transaction)
        self.connection.rollback()
        self.assertEqual(self.numbers(), [1])

    def test_a_with_statement_is_a_transaction_with_autocommit_too(self) -> None:
        self.connection.autocommit = True
        with self.assertRaises(LookupError):
            with self.connection:
                self.assertTrue(self.connection.in_transaction)
                self.insert(1)
                raise LookupError
        with self.connection:
            self.insert(2)
        self.assertEqual(self.numbers(), [2])
        with self.assertRaises(velmora.TransactionError):
            with self.connection:
                with self.connection:
                    pass

    def test_turning_autocommit_on_commits(self) -> None:
        self.assertFalse(self.connection.autocommit)
        self.insert(1)
        self.connection.autocommit = True
        self.assertTrue(self.connection.autocommit)
        self.assertFalse(self.connection.in_transaction)
        self.connection.rollback()
        self.assertEqual(self.numbers(), [1])

    def test_many_rows_are_all_or_none(self) -> None:
        self.connection.autocommit = True
        with self.assertRaises(velmora.WrongTypeError):
            self.connection.executemany("INSERT INTO t n = ?", [(1,), ("2",)])
        self.assertEqual(self.numbers(), [])
        self.assertEqual(
            self.connection.executemany("INSERT INTO t n = ?", [(1,), (2,)]).rowcount, 2)

    def test_a_batch_is_all_or_none_and_answers_its_last_command(self) -> None:
        self.connection.autocommit = True
        with self.assertRaises(velmora.NotFoundError) as raised:
            self.connection.executebatch(["INSERT INTO t n = 1", "INSERT INTO t m = 1"])
        self.assertEqual(raised.exception.offset, 14)
        self.assertEqual(self.numbers(), [])
        cursor = self.connection.executebatch(
            ["INSERT INTO t n = 1", ("INSERT INTO t n = ?", (2,)), ("SELECT n FROM t",)])
        self.assertEqual(cursor.fetchall(), [(1,), (2,)])
        with self.assertRaises(velmora.TransactionError):
            self.connection.executebatch(["COMMIT"])
        with self.assertRaisesRegex(velmora.MisuseError, "^The command is of type int, not str$"):
            self.connection.executebatch([5])


class Sharing(InDirectory):
    def test_connections_to_a_directory_share_its_database(self) -> None:
        first = self.connect(autocommit=True)
        (self.directory / "link").symlink_to(self.directory / "db")
        second = self.connect("link")
        first.execute("CREATE TABLE t n int")
        self.assertEqual(second.execute("SELECT n FROM t").fetchall(), [])
        first.close()
        self.assertEqual(second.execute("SELECT n FROM t").fetchall(), [])
        second.close()
        self.assertEqual(velmora.check(self.directory / "db"), [])

    def test_other_options_are_refused(self) -> None:
        self.connect()
        for options, message in (
                ({"durability": "always"}, "durability='off', not 'always'"),
                ({"read_only": True}, "read_only=False, not True"),
                ({"timeout": 1}, "timeout=5.0, not 1")):
            with self.assertRaises(velmora.MisuseError) as raised:
                self.connect(**options)
            self.assertEqual(str(raised.exception),
                             f"The database is open in this process with {message}")
        with self.assertRaises(velmora.ExistsError):
            self.connect(exclusive=True)
        self.connect(autocommit=True, create=False, cached_statements=1)

    def test_one_does_not_join_the_others_transaction(self) -> None:
        first, second = self.connect(), self.connect()
        first.execute("CREATE TABLE t n int")
        for attempt in (lambda: second.execute("SELECT n FROM t"),
                        lambda: second.execute("INSERT INTO t n = 1"),
                        lambda: second.execute("BEGIN"), lambda: second.execute("COMMIT"),
                        lambda: second.executebatch([]), second.checkpoint):
            with self.assertRaises(velmora.BusyError) as raised:
                attempt()
            self.assertEqual(str(raised.exception),
                             "Another connection of this thread has a transaction open")
        self.assertFalse(second.in_transaction)
        second.commit()
        second.rollback()
        self.assertTrue(first.in_transaction)
        second.close()
        first.commit()
        self.assertEqual(first.execute("SELECT n FROM t").fetchall(), [])

    def test_a_transaction_of_another_thread_is_waited_for_or_busy(self) -> None:
        first, second = self.connect(timeout=0), self.connect(timeout=0)
        first.execute("CREATE TABLE t n int")
        seen: list[str] = []

        def work() -> None:
            with self.assertRaises(velmora.BusyError) as raised:
                second.execute("SHOW TABLES")
            seen.append(str(raised.exception))

        in_thread(work)
        self.assertEqual(seen, ["Another thread's transaction is open"])
        first.commit()
        in_thread(lambda: seen.append(second.execute("SHOW TABLES").fetchall()))
        self.assertEqual(seen[1], [("t", 0)])

    def test_another_thread_cannot_end_a_transaction(self) -> None:
        connection, other = self.connect(), self.connect()
        connection.execute("CREATE TABLE t n int")
        seen: list[str] = []

        def work() -> None:
            self.assertFalse(connection.in_transaction)
            for attempt in (connection.commit, connection.rollback, connection.close):
                with self.assertRaises(velmora.TransactionError) as raised:
                    attempt()
                seen.append(str(raised.exception))
            other.commit()

        in_thread(work)
        self.assertEqual(seen, ["The transaction belongs to the thread that has begun it"] * 3)
        connection.commit()
        self.assertEqual(other.execute("SHOW TABLES").fetchall(), [("t", 0)])

    def test_the_last_one_closes_even_over_a_dead_threads_transaction(self) -> None:
        connection = self.connect()
        in_thread(lambda: connection.execute("CREATE TABLE t n int"))
        connection.close()
        self.assertEqual(self.connect().execute("SHOW TABLES").fetchall(), [])


class Lives(InDirectory):
    def test_there_can_be_several_databases(self) -> None:
        a, b = self.connect("a"), self.connect("b")
        a.execute("CREATE TABLE t n int")
        b.execute("CREATE TABLE u n int")
        self.assertEqual(a.execute("SHOW TABLES").fetchall(), [("t", 0)])

    def test_a_forgotten_connection_rolls_back_and_closes(self) -> None:
        connection = velmora.connect(self.directory / "db", autocommit=True)
        connection.execute("CREATE TABLE t n int")
        connection.execute("BEGIN")
        connection.execute("INSERT INTO t n = 1")
        del connection
        gc.collect()
        self.assertEqual(velmora.check(self.directory / "db"), [])
        self.assertEqual(self.connect().execute("SELECT n FROM t").fetchall(), [])

    def test_a_cursor_keeps_its_connection(self) -> None:
        cursor = velmora.connect(self.directory / "db").cursor()
        gc.collect()
        cursor.execute("CREATE TABLE t n int")
        cursor.connection.close()

    def test_one_that_its_own_callback_refers_to_is_freed(self) -> None:
        class Program:
            def __init__(self, path: object) -> None:
                self.connection = velmora.connect(path, log=self.log)  # type: ignore[arg-type]

            def log(self, level: int, text: str) -> None:
                pass

        program = weakref.ref(Program(self.directory / "db"))
        gc.collect()
        self.assertIsNone(program())
        self.assertEqual(velmora.check(self.directory / "db"), [])

    def test_the_end_of_the_interpreter_saves_everything(self) -> None:
        run = self.run_python(
            "import velmora\n"
            "connection = velmora.connect('.', autocommit=True)\n"
            "connection.execute('CREATE TABLE t n int')\n"
            "connection.execute('INSERT INTO t n = ?', (1,))\n")
        self.assertEqual((run.returncode, run.stdout, run.stderr), (0, "", ""))
        self.assertTrue((self.directory / "t.bin").exists())
        self.assertEqual(self.connect(".").execute("SELECT n FROM t").fetchall(), [(1,)])

    def test_a_killed_process_has_lost_nothing_that_was_committed(self) -> None:
        for durability in ("always", "everysec", "off"):
            run = self.run_python(
                "import os, signal, velmora\n"
                f"connection = velmora.connect('{durability}', durability='{durability}')\n"
                "connection.execute('CREATE TABLE t n int')\n"
                "connection.executemany('INSERT INTO t n = ?', [(n,) for n in range(1000)])\n"
                "connection.commit()\n"
                "connection.execute('DELETE FROM t')\n"
                "os.kill(os.getpid(), signal.SIGKILL)\n")
            self.assertEqual((run.returncode, run.stderr), (-signal.SIGKILL, ""))
            connection = self.connect(durability)
            self.assertEqual([n for n, in connection.execute("SELECT n FROM t")],
                             list(range(1000)))

    def test_a_forked_child_is_refused_saves_nothing_and_opens_its_own(self) -> None:
        run = self.run_python(
            "import os, sys, velmora\n"
            "connection = velmora.connect('.', autocommit=True)\n"
            "connection.execute('CREATE TABLE t n int')\n"
            "if os.fork() == 0:\n"
            "    for attempt in (lambda: connection.execute('SELECT n FROM t'),\n"
            "                    connection.close):\n"
            "        try:\n"
            "            attempt()\n"
            "        except velmora.MisuseError as error:\n"
            "            print(error)\n"
            "    try:\n"
            "        velmora.connect('.')\n"
            "    except velmora.BusyError as error:\n"
            "        print(error.process == os.getppid())\n"
            "    velmora.connect('other').execute('CREATE TABLE u n int')\n"
            "    sys.exit()\n"
            "os.wait()\n"
            "print(os.path.exists('t.bin'), flush=True)\n"
            "connection.execute('INSERT INTO t n = 1')\n")
        self.assertEqual(run.stderr, "")
        self.assertEqual(run.stdout.splitlines(), [
            "The connection belongs to the process that has made it",
            "The connection belongs to the process that has made it", "True", "False"])
        self.assertEqual(self.connect(".").execute("SELECT n FROM t").fetchall(), [(1,)])


class Options(InDirectory):
    def test_a_directory_is_made_only_if_that_is_allowed(self) -> None:
        with self.assertRaises(velmora.NotFoundError):
            self.connect(create=False)
        self.assertFalse((self.directory / "db").exists())
        self.connect(exclusive=True).close()
        with self.assertRaises(velmora.ExistsError):
            self.connect(exclusive=True)
        self.connect(create=False).close()

    def test_paths_are_str_bytes_or_path_like(self) -> None:
        for path in (self.directory / "a", str(self.directory / "a"),
                     os.fsencode(self.directory / "a")):
            velmora.connect(path).close()
        with self.assertRaisesRegex(velmora.MisuseError, "^Path is empty$"):
            velmora.connect("")
        self.assertRaises((ValueError, velmora.MisuseError), velmora.connect, "a\0b")
        self.assertRaises(TypeError, velmora.connect, 5)

    def test_a_directory_in_use_is_busy_and_names_the_process(self) -> None:
        run = self.run_python(
            "import os, subprocess, sys, velmora\n"
            "connection = velmora.connect('db')\n"
            "program = '''import os, velmora\n"
            "try:\n"
            "    velmora.connect(\"db\", open_timeout=0.01)\n"
            "except velmora.BusyError as error:\n"
            "    print(error.process == os.getppid(), error.code)\n"
            "'''\n"
            "subprocess.run([sys.executable, '-c', program], check=True)\n")
        self.assertEqual((run.stdout, run.stderr), ("True 2\n", ""))

    def test_read_only_changes_nothing(self) -> None:
        self.connect(autocommit=True).execute("CREATE TABLE t n int")
        gc.collect()
        connection = self.connect("db2", autocommit=True)
        connection.execute("CREATE TABLE t n int")
        connection.close()
        connection = self.connect("db2", read_only=True, autocommit=True)
        self.assertEqual(connection.execute("SELECT n FROM t").fetchall(), [])
        with self.assertRaises(velmora.ReadOnlyError):
            connection.execute("INSERT INTO t n = 1")

    def test_options_that_make_no_sense_are_value_errors(self) -> None:
        for options in ({"durability": "sometimes"}, {"timeout": -1}, {"open_timeout": -0.5},
                        {"timeout": float("nan")}):
            self.assertRaises(ValueError, self.connect, **options)
        self.assertEqual(list(self.directory.iterdir()), [])
        for number, timeout in enumerate((None, 0, 1e12, float("inf"))):
            self.connect(f"db{number}", timeout=timeout)

    def test_damage_is_told_refused_and_repaired_when_asked_for(self) -> None:
        connection = self.connect(autocommit=True)
        connection.execute("CREATE TABLE users id int name string")
        connection.close()
        self.assertEqual(velmora.check(self.directory / "db"), [])
        table = self.directory / "db" / "users.bin"
        cut = table.read_bytes()[:52]  # inside the columns' names
        table.write_bytes(cut)
        faults = velmora.check(self.directory / "db")
        self.assertEqual(faults[0][:2], ("users.bin", 52))
        self.assertTrue(all(fault.meaning for fault in faults))
        with self.assertRaises(velmora.CorruptError):
            self.connect()
        self.assertEqual(table.read_bytes(), cut)
        lines: list[tuple[int, str]] = []
        self.connect(repair=True, log=lambda level, text: lines.append((level, text))).close()
        self.assertTrue(any("users.bin" in text for _, text in lines), lines)
        self.assertLessEqual({level for level, _ in lines},
                             {logging.INFO, logging.WARNING, logging.ERROR})

    def test_what_cannot_be_checked_is_an_error(self) -> None:
        with self.assertRaises(velmora.NotFoundError):
            velmora.check(self.directory / "nowhere")
        self.connect()
        with self.assertRaises(velmora.BusyError):
            velmora.check(self.directory / "db")

    def test_a_backup_is_a_database(self) -> None:
        connection = self.connect(autocommit=True)
        connection.execute("CREATE TABLE t n int")
        connection.backup(self.directory / "b")
        with self.assertRaises(velmora.ExistsError):
            connection.backup(self.directory / "b")
        self.assertEqual(self.connect("b").execute("SHOW TABLES").fetchall(), [("t", 0)])

    def test_a_checkpoint_writes_the_tables(self) -> None:
        connection = self.connect(autocommit=True)
        connection.execute("CREATE TABLE t n int")
        connection.checkpoint()
        self.assertTrue((self.directory / "db" / "t.bin").exists())


class Callbacks(WithConnection):
    def test_the_clock_is_the_programs(self) -> None:
        self.run_command("CREATE TABLE t s string 2")
        self.run_command("INSERT INTO t s = 'a' --> 'b' @ 5 s")
        self.second = 1005
        self.assertEqual(self.rows("SELECT s FROM t"), [("b",)])

    def test_progress_is_told_and_what_is_true_stops_it(self) -> None:
        told: list[tuple[str, int, int]] = []
        stops = False

        def progress(what: str, done: int, total: int) -> bool:
            told.append((what, done, total))
            return stops

        connection = self.connect("other", autocommit=True, progress=progress)
        connection.execute("CREATE TABLE t s string")
        connection.executemany("INSERT INTO t s = ?", [("x" * 50,)] * 100_000)
        connection.checkpoint()
        self.assertIn("checkpoint", {what for what, _, _ in told})
        self.assertTrue(all(0 <= done <= total for _, done, total in told), told)
        connection.execute("DELETE FROM t")
        stops = True
        with self.assertRaises(velmora.CommandInterruptedError):
            connection.checkpoint()
        stops = False

    def test_one_with_a_call_under_way_is_not_closed(self) -> None:
        opened: list[velmora.Connection] = []
        refusals: set[str] = set()

        def now() -> int:
            for connection in opened:
                with self.assertRaises(velmora.MisuseError) as raised:
                    connection.close()
                refusals.add(str(raised.exception))
            return 1000

        connection = self.connect("other", clock=now)
        opened.append(connection)
        connection.execute("CREATE TABLE t n int")
        opened.clear()
        self.assertEqual(refusals, {"A call with the connection is under way"})

    def test_a_callback_that_raises_is_told_of_and_disturbs_nothing(self) -> None:
        run = self.run_python(
            "import velmora\n"
            "def broken(*arguments):\n"
            "    raise LookupError('of the program')\n"
            "connection = velmora.connect('x', autocommit=True, clock=broken)\n"
            "connection.execute('CREATE TABLE t n int')\n"
            "print(connection.execute('SHOW TABLES').fetchall())\n")
        self.assertEqual((run.returncode, run.stdout), (0, "[('t', 0)]\n"))
        self.assertIn("LookupError: of the program", run.stderr)


if __name__ == "__main__":
    unittest.main()
