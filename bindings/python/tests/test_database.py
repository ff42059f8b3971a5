"""Tests of the package, over the real library: python3 -m unittest discover tests

Each test has a directory of its own. What needs a process that ends is run in another interpreter.
"""

from __future__ import annotations

import gc
import logging
import os
import signal
import subprocess
import sys
import tempfile
import threading
import unittest
from pathlib import Path
from unittest import mock

import velmora

PACKAGE = Path(velmora.__file__).parent.parent


class InDirectory(unittest.TestCase):
    """A test with an empty directory."""

    def setUp(self) -> None:
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.directory = Path(temporary.name)

    def run_python(self, program: str) -> subprocess.CompletedProcess[str]:
        """Runs a program in the directory, in an interpreter of its own."""
        return subprocess.run(
            [sys.executable, "-c", program], cwd=self.directory, capture_output=True, text=True,
            env={**os.environ, "PYTHONPATH": str(PACKAGE)}, timeout=60, check=False)


class WithDatabase(InDirectory):
    """A test with an open database, in which it is the second 1000."""

    def setUp(self) -> None:
        super().setUp()
        self.second = 1000
        self.database = velmora.open(
            self.directory, durability="off", clock=lambda: self.second)
        self.addCleanup(self.database.close)

    def assert_fails(self, kind: type[velmora.Error], message: str, text: str,
                     *values: velmora.Value) -> velmora.Error:
        with self.assertRaises(kind) as raised:
            self.database.run(text, *values)
        self.assertIs(type(raised.exception), kind)
        self.assertEqual(str(raised.exception), message)
        return raised.exception


class Results(WithDatabase):
    def setUp(self) -> None:
        super().setUp()
        self.database.run(
            "CREATE TABLE things id ApexInt name string count long weight double heavy bool 3")

    def test_a_command_without_rows_has_the_number_of_rows_affected_and_the_identity(self) -> None:
        self.database.run("INSERT INTO things name = 'lamp'")
        self.assertEqual(self.database.run("INSERT INTO things name = 'lamp'"),
                         velmora.Result([], [], 1, "", 2, None))
        self.assertEqual(self.database.run("DELETE FROM things"),
                         velmora.Result([], [], 2, "", None, None))

    def test_rows_are_dicts_of_typed_values(self) -> None:
        self.database.run("INSERT INTO things name = 'lamp' count = 3 weight = 2 heavy = true")
        result = self.database.run("SELECT * FROM things")
        self.assertEqual(
            repr(result.rows),
            "[{'id': 1, 'name': 'lamp', 'count': 3, 'weight': 2.0, 'heavy': True}]")
        self.assertEqual(result.columns, ["id", "name", "count", "weight", "heavy"])
        self.assertEqual(result.affected, 1)

    def test_what_was_not_given_is_none(self) -> None:
        self.database.run("INSERT INTO things name = ?", None)
        rows = self.database.run("SELECT name, count, weight, heavy FROM things").rows
        self.assertEqual(rows, [{"name": None, "count": None, "weight": None, "heavy": None}])

    def test_rows_come_in_order_and_a_result_goes_through_them(self) -> None:
        for name in ("a", "b", "c"):
            self.database.run("INSERT INTO things name = ?", name)
        result = self.database.run("SELECT name FROM things")
        self.assertEqual([row["name"] for row in result], ["a", "b", "c"])

    def test_no_rows_are_an_empty_list_below_their_columns(self) -> None:
        self.assertEqual(self.database.run("SELECT name FROM things"),
                         velmora.Result([], ["name"], 0, "", None, None))

    def test_a_column_asked_for_twice_is_there_once(self) -> None:
        self.database.run("INSERT INTO things name = 'lamp'")
        result = self.database.run("SELECT name, name FROM things")
        self.assertEqual(result.rows, [{"name": "lamp"}])
        self.assertEqual(result.columns, ["name", "name"])

    def test_columns_of_a_join_are_named_with_their_tables(self) -> None:
        self.database.run("CREATE TABLE owners thing int owner string")
        self.database.run("INSERT INTO things name = 'lamp'")
        self.database.run("INSERT INTO owners thing = 1 owner = 'Ada'")
        result = self.database.run(
            "SELECT things.name, owners.owner FROM things JOIN owners ON things.id = owners.thing")
        self.assertEqual(result.rows, [{"things.name": "lamp", "owners.owner": "Ada"}])

    def test_a_timed_value_has_the_state_of_now_and_the_second_of_its_change(self) -> None:
        self.database.run("INSERT INTO things heavy = ? --> ? @ ? s", True, False, 30)
        result = self.database.run("SELECT heavy FROM things")
        self.assertEqual((result.rows, result.next_change), ([{"heavy": True}], 1030))
        self.second = 1030
        result = self.database.run("SELECT heavy FROM things")
        self.assertEqual((result.rows, result.next_change), ([{"heavy": False}], None))


class BoundValues(WithDatabase):
    def setUp(self) -> None:
        super().setUp()
        self.database.run("CREATE TABLE t n int l long x float d double b bool s string")

    def stored(self, column: str, value: velmora.Value) -> object:
        self.database.run("DELETE FROM t")
        self.database.run(f"INSERT INTO t {column} = ?", value)
        return self.database.run(f"SELECT {column} FROM t").rows[0][column]

    def test_ints(self) -> None:
        for value in (0, 1, -1, 2**31 - 1, -(2**31)):
            self.assertEqual(self.stored("n", value), value)
        for value in (2**63 - 1, -(2**63)):
            self.assertEqual(self.stored("l", value), value)

    def test_floats(self) -> None:
        for value in (0.5, -2.25, 0.0, 2.0**100):
            self.assertEqual(self.stored("x", value), value)
        for value in (0.1, 1e300, 5e-324):
            self.assertEqual(self.stored("d", value), value)

    def test_bools_are_not_ints(self) -> None:
        self.assertIs(self.stored("b", True), True)
        self.assertIs(self.stored("b", False), False)
        self.assert_fails(velmora.WrongTypeError,
                          "1 is no value for column 'b' of table 't', which is bool",
                          "INSERT INTO t b = ?", 1)
        self.assert_fails(velmora.WrongTypeError,
                          "true is no value for column 'n' of table 't', which is int",
                          "INSERT INTO t n = ?", True)

    def test_texts_of_any_characters(self) -> None:
        texts = ("", "plain", "O'Brien", 'say "hi"', "both ' and \"", "a\\b\n\t\x01/", "?",
                 "Zoë, 日本 🚦", "x' b = true s = 'y", "now #TIME# 5", "DROP TABLE t", "NULL")
        for text in texts:
            self.assertEqual(self.stored("s", text), text)

    def test_none_is_null(self) -> None:
        for column in ("n", "l", "x", "d", "b", "s"):
            self.assertIsNone(self.stored(column, None))

    def test_a_text_in_a_filter_finds_only_itself(self) -> None:
        self.database.run("INSERT INTO t s = 'a'")
        self.database.run("INSERT INTO t s = ?", "a' || s != '")
        rows = self.database.run("SELECT s FROM t WHERE s = ?", "a' || s != '").rows
        self.assertEqual(rows, [{"s": "a' || s != '"}])

    def test_question_marks_in_literals_are_text(self) -> None:
        self.database.run("INSERT INTO t s = 'who?' n = ?", 7)
        self.assertEqual(
            self.database.run("SELECT s, n FROM t").rows, [{"s": "who?", "n": 7}])

    def test_what_does_not_fit_is_refused_and_nothing_is_run(self) -> None:
        cases: list[tuple[str, velmora.Value, str]] = [
            ("l", 2**63, "Parameter 2 is an integer outside 64 bits"),
            ("l", -(10**30), "Parameter 2 is an integer outside 64 bits"),
            ("n", 2**31, "2147483648 is out of range for column 'n' of table 't', which is int"),
            ("x", float("nan"), "Value 2 is not finite"),
            ("x", 1e39, "1e+39 is out of range for column 'x' of table 't', which is float"),
            ("s", "a\0b", "Value 2 has a zero byte"),
        ]
        for column, value, message in cases:
            with self.subTest(value=value):
                self.assert_fails(velmora.RangeError, message,
                                  f"INSERT INTO t b = ? {column} = ?", True, value)
        self.assertEqual(self.database.run("SELECT * FROM t").rows, [])

    def test_as_many_values_as_places(self) -> None:
        self.assert_fails(velmora.MisuseError, "The command has places for 1 values, not 0",
                          "INSERT INTO t n = ?")
        self.assert_fails(velmora.MisuseError, "The command has places for 0 values, not 1",
                          "INSERT INTO t n = 1", 1)

    def test_other_types_are_type_errors(self) -> None:
        cases: list[tuple[object, str]] = [(b"bytes", "bytes"), ([1], "list"), (1j, "complex")]
        for value, name in cases:
            with self.subTest(type=name), self.assertRaises(TypeError) as raised:
                self.database.run("INSERT INTO t n = ? s = ?", 1, value)  # type: ignore[arg-type]
            self.assertEqual(str(raised.exception),
                             f"Parameter 2 is of type {name}, not int, float, bool, str or None")

    def test_texts_without_utf_8_are_value_errors(self) -> None:
        with self.assertRaisesRegex(ValueError, "^Parameter 1 has a lone surrogate$"):
            self.database.run("INSERT INTO t s = ?", "a\ud800")
        with self.assertRaisesRegex(ValueError, "^Command has a lone surrogate$"):
            self.database.run("INSERT INTO t s = '\ud800'")

    def test_a_command_is_a_str(self) -> None:
        with self.assertRaisesRegex(TypeError, "^Command is of type bytes, not str$"):
            self.database.run(b"SELECT n FROM t")  # type: ignore[arg-type]


class Failures(WithDatabase):
    def test_an_error_says_where_and_of_what(self) -> None:
        self.database.run("CREATE TABLE t n int")
        error = self.assert_fails(
            velmora.NotFoundError, "Unknown column 'm'", "SELECT n FROM t WHERE m = 1")
        self.assertEqual((error.code, error.offset, error.table, error.column), (4, 22, "t", "m"))
        self.assertEqual((error.system_error, error.process), (None, None))

    def test_a_place_is_counted_in_bytes(self) -> None:
        self.database.run("CREATE TABLE t s string")
        error = self.assert_fails(velmora.NotFoundError, "Unknown column 'm'",
                                  "SELECT s FROM t WHERE s = 'Zoë' && m = 1")
        self.assertEqual(error.offset, 36)

    def test_a_command_with_a_nul_is_not_cut_there(self) -> None:
        self.database.run("CREATE TABLE t n int")
        self.assert_fails(velmora.CommandSyntaxError, "A command holds no zero bytes",
                          "DELETE FROM t\0 WHERE n = 1")

    def test_each_failure_has_its_class(self) -> None:
        self.database.run("CREATE TABLE parents name string")
        self.database.run("CREATE TABLE children parent string")
        self.database.run("LINK children.parent --> parents.name")
        self.database.run("INSERT INTO parents name = 'Ada'")
        self.database.run("INSERT INTO children parent = 'Ada'")
        for kind, command in (
                (velmora.CommandSyntaxError, "SELECT name FROM parents WHERE"),
                (velmora.ExistsError, "CREATE TABLE parents n int"),
                (velmora.DuplicateError, "INSERT INTO parents name = 'Ada'"),
                (velmora.MissingParentError, "INSERT INTO children parent = 'Bob'"),
                (velmora.RestrictedError, "DELETE FROM parents"),
                (velmora.TransactionError, "COMMIT")):
            with self.subTest(command=command), self.assertRaises(velmora.Error) as raised:
                self.database.run(command)
            self.assertIs(type(raised.exception), kind)

    def test_results_and_errors_are_freed(self) -> None:
        self.database.run("CREATE TABLE t s string(1000)")
        for _ in range(100):
            self.database.run("INSERT INTO t s = ?", "x" * 1000)

        def resident_bytes() -> int:
            pages = Path("/proc/self/statm").read_text(encoding="ascii").split()[1]
            return int(pages) * os.sysconf("SC_PAGE_SIZE")

        def run() -> None:  # 20 MB of answers, 20 MB of commands that fail
            for _ in range(200):
                self.database.run("SELECT s FROM t")
                with self.assertRaises(velmora.Error):
                    self.database.run("SELECT s FROM " + "t" * 100_000)

        run()
        before = resident_bytes()
        run()
        self.assertLess(resident_bytes() - before, 10_000_000)


class Transactions(WithDatabase):
    def setUp(self) -> None:
        super().setUp()
        self.database.run("CREATE TABLE t n int")

    def numbers(self) -> list[velmora.Value]:
        return [row["n"] for row in self.database.run("SELECT n FROM t")]

    def test_a_scope_that_is_left_commits(self) -> None:
        with self.database.transaction():
            self.database.run("INSERT INTO t n = 1")
        self.assertEqual(self.numbers(), [1])
        self.assert_fails(velmora.TransactionError, "No transaction is open", "ROLLBACK")

    def test_an_exception_rolls_back_and_passes(self) -> None:
        with self.assertRaisesRegex(LookupError, "^of the program$"):
            with self.database.transaction():
                self.database.run("INSERT INTO t n = 1")
                raise LookupError("of the program")
        self.assertEqual(self.numbers(), [])

    def test_an_exception_behind_a_rollback_of_the_scopes_own_passes(self) -> None:
        with self.assertRaisesRegex(LookupError, "^of the program$"):
            with self.database.transaction():
                self.database.run("ROLLBACK")
                raise LookupError("of the program")

    def test_it_belongs_to_its_thread(self) -> None:
        other = self.directory / "other"
        seen: list[object] = []
        with velmora.open(other, transaction_wait_milliseconds=1) as database:
            def work() -> None:
                try:
                    database.run("SHOW TABLES")
                except velmora.BusyError as error:
                    seen.append(error.code)

            with database.transaction():
                thread = threading.Thread(target=work)
                thread.start()
                thread.join()
        self.assertEqual(seen, [2])


class Statements(WithDatabase):
    def setUp(self) -> None:
        super().setUp()
        self.database.run("CREATE TABLE t n int s string")
        self.insert = self.database.prepare("INSERT INTO t n = ? s = ?")

    def test_it_is_run_with_ever_new_values(self) -> None:
        self.assertEqual(self.insert.run(1, "a").affected, 1)
        self.insert.run(2, None)
        select = self.database.prepare("SELECT s FROM t WHERE n = ?")
        self.assertEqual(select.run(1).rows, [{"s": "a"}])
        self.assertEqual(select.run(2).rows, [{"s": None}])

    def test_many_rows_are_all_or_none(self) -> None:
        self.assertEqual(self.insert.run_many([(1, "a"), (2, "b")]).affected, 2)
        with self.assertRaises(velmora.WrongTypeError):
            self.insert.run_many([(3, "c"), ("d", 4)])
        self.assertEqual(len(self.database.run("SELECT n FROM t").rows), 2)

    def test_as_many_values_as_places(self) -> None:
        refusal = "^The command has places for 2 values, not 1$"
        with self.assertRaisesRegex(velmora.MisuseError, refusal):
            self.insert.run(1)
        with self.assertRaisesRegex(velmora.MisuseError, refusal):
            self.insert.run_many([(1, "a"), (2,)])
        self.assertEqual(self.database.run("SELECT n FROM t").rows, [])

    def test_a_command_that_is_none_is_refused(self) -> None:
        with self.assertRaisesRegex(velmora.CommandSyntaxError, "^Expected a command, "):
            self.database.prepare("SELEC")

    def test_it_ends_with_its_database(self) -> None:
        self.database.close()
        with self.assertRaisesRegex(velmora.MisuseError, "^The database is closed$"):
            self.insert.run(1, "a")

    def test_it_keeps_a_forgotten_database_open(self) -> None:
        statement = velmora.open(self.directory / "other").prepare("CREATE TABLE t n int")
        gc.collect()
        statement.run()
        del statement
        gc.collect()
        with velmora.open(self.directory / "other") as database:
            self.assertEqual(database.run("SELECT n FROM t").columns, ["n"])

    def test_threads_take_turns(self) -> None:
        def work(number: int) -> None:
            for i in range(50):
                self.insert.run(number * 50 + i, str(number * 50 + i))

        threads = [threading.Thread(target=work, args=[number]) for number in range(4)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        rows = self.database.run("SELECT n, s FROM t ORDER BY n").rows
        self.assertEqual(rows, [{"n": n, "s": str(n)} for n in range(200)])


class Lives(InDirectory):
    def assert_closed(self, database: velmora.Database) -> None:
        with self.assertRaisesRegex(velmora.MisuseError, "^The database is closed$"):
            database.run("SELECT n FROM t")

    def test_a_database_is_open_only_between(self) -> None:
        database = velmora.open(self.directory)
        with database as entered:
            self.assertIs(entered, database)
            database.run("CREATE TABLE t n int")
        self.assert_closed(database)
        database.close()

    def test_there_can_be_several(self) -> None:
        with velmora.open(self.directory / "a") as a, velmora.open(self.directory / "b") as b:
            a.run("CREATE TABLE t n int")
            b.run("CREATE TABLE u n int")
            self.assertEqual(a.run("SHOW TABLES").rows, [{"table": "t", "rows": 0}])

    def test_threads_share_it(self) -> None:
        def work(number: int) -> None:
            for i in range(50):
                database.run("INSERT INTO t n = ? s = ?", number * 50 + i, "x" * number)
                rows = database.run("SELECT s FROM t WHERE n = ?", number * 50 + i).rows
                if rows != [{"s": "x" * number}]:
                    wrong.append(rows)

        wrong: list[object] = []
        with velmora.open(self.directory, durability="off") as database:
            database.run("CREATE TABLE t n int s string")
            threads = [threading.Thread(target=work, args=[number]) for number in range(4)]
            for thread in threads:
                thread.start()
            for thread in threads:
                thread.join()
            self.assertEqual(wrong, [])
            self.assertEqual(len(database.run("SELECT n FROM t").rows), 200)

    def test_an_exception_closes_it_and_passes(self) -> None:
        with self.assertRaisesRegex(LookupError, "^of the program$"):
            with velmora.open(self.directory) as database:
                database.run("CREATE TABLE t n int")
                raise LookupError("of the program")
        self.assert_closed(database)

    def test_closing_rolls_an_open_transaction_back_and_keeps_the_rest(self) -> None:
        with velmora.open(self.directory) as database:
            database.run("CREATE TABLE t s string b bool")
            database.run("INSERT INTO t s = ?", "O'Brien")
            database.run("BEGIN")
            database.run("DELETE FROM t")
        with velmora.open(self.directory) as database:
            self.assertEqual(
                database.run("SELECT * FROM t").rows, [{"s": "O'Brien", "b": None}])

    def test_one_with_a_call_under_way_is_not_closed(self) -> None:
        opened: list[velmora.Database] = []
        refusals: set[str] = set()

        def now() -> int:
            for database in opened:
                with self.assertRaises(velmora.MisuseError) as raised:
                    database.close()
                refusals.add(str(raised.exception))
            return 1000

        with velmora.open(self.directory, clock=now) as database:
            opened.append(database)
            database.run("CREATE TABLE t n int")
            opened.clear()
        self.assertEqual(refusals, {"A call with the database is under way"})

    def test_a_forgotten_one_is_closed(self) -> None:
        velmora.open(self.directory).run("CREATE TABLE t n int")
        gc.collect()
        with velmora.open(self.directory) as other:
            self.assertEqual(other.run("SELECT n FROM t").rows, [])

    def test_the_end_of_the_interpreter_closes_it(self) -> None:
        run = self.run_python(
            "import velmora\n"
            "database = velmora.open('.')\n"
            "database.run('CREATE TABLE t n int')\n"
            "statement = database.prepare('INSERT INTO t n = ?')\n"
            "statement.run(1)\n")
        self.assertEqual((run.returncode, run.stdout, run.stderr), (0, "", ""))
        self.assertTrue((self.directory / "t.bin").exists())
        with velmora.open(self.directory) as database:
            self.assertEqual(database.run("SELECT n FROM t").rows, [{"n": 1}])

    def test_a_killed_process_has_lost_nothing(self) -> None:
        run = self.run_python(
            "import os, signal, velmora\n"
            "database = velmora.open('.')\n"
            "database.run('CREATE TABLE t n int')\n"
            "database.run('INSERT INTO t n = ?', 1)\n"
            "os.kill(os.getpid(), signal.SIGKILL)\n")
        self.assertEqual(run.returncode, -signal.SIGKILL)
        with velmora.open(self.directory) as database:
            self.assertEqual(database.run("SELECT n FROM t").rows, [{"n": 1}])

    def test_a_forked_child_is_refused_and_saves_nothing(self) -> None:
        run = self.run_python(
            "import os, sys, velmora\n"
            "database = velmora.open('.')\n"
            "database.run('CREATE TABLE t n int')\n"
            "if os.fork() == 0:\n"
            "    for attempt in (lambda: database.run('SELECT n FROM t'), database.close):\n"
            "        try:\n"
            "            attempt()\n"
            "        except velmora.MisuseError as error:\n"
            "            print(error)\n"
            "    sys.exit()\n"
            "os.wait()\n"
            "print(os.path.exists('t.bin'), flush=True)\n"
            "database.run('INSERT INTO t n = 1')\n")
        self.assertEqual(run.stderr, "")
        self.assertEqual(run.stdout.splitlines(), [
            "The database belongs to the process that has opened it",
            "The database belongs to the process that has opened it",
            "False"])
        with velmora.open(self.directory) as database:
            self.assertEqual(database.run("SELECT n FROM t").rows, [{"n": 1}])


class Openings(InDirectory):
    def test_a_directory_is_made_only_if_that_is_allowed(self) -> None:
        path = self.directory / "new"
        with self.assertRaises(velmora.NotFoundError):
            velmora.open(path, create=False)
        self.assertFalse(path.exists())
        velmora.open(path, exclusive=True).close()
        with self.assertRaises(velmora.ExistsError):
            velmora.open(path, exclusive=True)
        velmora.open(path, create=False).close()

    def test_a_directory_in_use_is_busy_and_names_the_process(self) -> None:
        with velmora.open(self.directory):
            with self.assertRaises(velmora.BusyError) as raised:
                velmora.open(self.directory)
        self.assertEqual(raised.exception.process, os.getpid())

    def test_read_only_changes_nothing(self) -> None:
        with velmora.open(self.directory) as database:
            database.run("CREATE TABLE t n int")
        with velmora.open(self.directory, read_only=True) as database:
            self.assertEqual(database.run("SELECT n FROM t").rows, [])
            with self.assertRaises(velmora.ReadOnlyError):
                database.run("INSERT INTO t n = 1")

    def test_an_unknown_durability_is_a_value_error(self) -> None:
        with self.assertRaises(ValueError):
            velmora.open(self.directory, durability="sometimes")
        self.assertEqual(list(self.directory.iterdir()), [])

    def test_damaged_files_are_refused_and_repaired_when_asked_for(self) -> None:
        with velmora.open(self.directory) as database:
            database.run("CREATE TABLE users id int name string")
        table = self.directory / "users.bin"
        cut = table.read_bytes()[:52]  # inside the columns' names
        table.write_bytes(cut)
        with self.assertRaises(velmora.CorruptError):
            velmora.open(self.directory)
        self.assertEqual(table.read_bytes(), cut)
        lines: list[tuple[int, str]] = []
        velmora.open(self.directory, repair=True,
                     log=lambda level, text: lines.append((level, text))).close()
        self.assertTrue(any("users.bin" in text for _, text in lines), lines)
        self.assertLessEqual({level for level, _ in lines},
                             {logging.INFO, logging.WARNING, logging.ERROR})

    def test_a_backup_is_a_database(self) -> None:
        with velmora.open(self.directory / "a") as database:
            database.run("CREATE TABLE t n int")
            database.backup(self.directory / "b")
            with self.assertRaises(velmora.ExistsError):
                database.backup(self.directory / "b")
        with velmora.open(self.directory / "b") as copy:
            self.assertEqual(copy.run("SHOW TABLES").rows, [{"table": "t", "rows": 0}])

    def test_a_checkpoint_writes_the_tables(self) -> None:
        with velmora.open(self.directory) as database:
            database.run("CREATE TABLE t n int")
            database.checkpoint()
            self.assertTrue((self.directory / "t.bin").exists())
            with database.transaction(), self.assertRaises(velmora.TransactionError):
                database.checkpoint()

    def test_what_waits_can_be_interrupted(self) -> None:
        seen: list[type] = []
        with velmora.open(self.directory) as database:
            def work() -> None:
                with self.assertRaises(velmora.Error) as raised:
                    database.run("SHOW TABLES")
                seen.append(type(raised.exception))

            with database.transaction():
                thread = threading.Thread(target=work)
                thread.start()
                while thread.is_alive():
                    database.interrupt()
        self.assertEqual(seen, [velmora.CommandInterruptedError])


class Libraries(InDirectory):
    def test_the_version_is_that_of_the_library(self) -> None:
        self.assertEqual(velmora.library_version(), "0.1.0")

    def test_a_missing_library_is_an_error_that_names_the_variable(self) -> None:
        with mock.patch.dict(os.environ, {"VELMORA_LIBRARY": "/nowhere/libvelmora.so"}):
            run = self.run_python(
                "import velmora\n"
                "try:\n"
                "    velmora.open('.')\n"
                "except velmora.Error as error:\n"
                "    print(error)\n")
        self.assertEqual(
            run.stdout,
            "libvelmora cannot be loaded (/nowhere/libvelmora.so: cannot open shared object file: "
            "No such file or directory); install it, or set the environment variable "
            "VELMORA_LIBRARY to its path\n")
        self.assertEqual(run.stderr, "")


if __name__ == "__main__":
    unittest.main()
