"""Tests of the package, over the real library: python3 -m unittest discover tests

Each test has a directory of its own. What needs a process that ends is run in another interpreter.
"""

from __future__ import annotations

import gc
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
from velmora import _library

PACKAGE = Path(velmora.__file__).parent.parent
# Clocks for timed values; the one ahead is beyond the 32 bits of bound integers.
LONG_AGO = " #TIME# 1600000000"
FAR_AHEAD = " #TIME# 4000000000"


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


class WithEngine(InDirectory):
    """A test with a started engine."""

    def setUp(self) -> None:
        super().setUp()
        self.engine = velmora.Engine(self.directory)
        self.engine.start()
        self.addCleanup(self.engine.stop)

    def assert_fails(self, message: str, text: str, *values: velmora.Value) -> None:
        with self.assertRaises(velmora.Error) as raised:
            self.engine.query(text, *values)
        self.assertEqual(str(raised.exception), message)


class Answers(WithEngine):
    def setUp(self) -> None:
        super().setUp()
        self.engine.query(
            "CREATE TABLE things id ApexInt name string count int weight float heavy bool 3")

    def test_a_command_without_rows_has_its_message_and_the_number_of_rows_affected(self) -> None:
        answer = self.engine.query("INSERT INTO things name = 'lamp'")
        self.assertEqual(answer, velmora.Answer([], 1, "success!"))

    def test_rows_are_dicts_of_typed_values(self) -> None:
        self.engine.query("INSERT INTO things name = 'lamp' count = 3 weight = 1.5 heavy = true")
        answer = self.engine.query("SELECT * FROM things")
        self.assertEqual(
            repr(answer.rows),
            "[{'id': 1, 'name': 'lamp', 'count': 3, 'weight': 1.5, 'heavy': True}]")
        self.assertEqual((answer.affected, answer.message), (1, ""))

    def test_what_was_not_given_is_none(self) -> None:
        self.engine.query("INSERT INTO things count = 1")
        rows = self.engine.query("SELECT name, weight, heavy FROM things").rows
        self.assertEqual(rows, [{"name": None, "weight": None, "heavy": None}])

    def test_a_float_without_a_fraction_is_an_int(self) -> None:
        self.engine.query("INSERT INTO things weight = ?", 2.0)
        rows = self.engine.query("SELECT weight FROM things").rows
        self.assertEqual(repr(rows), "[{'weight': 2}]")

    def test_rows_come_in_order_and_an_answer_goes_through_them(self) -> None:
        for name in ("a", "b", "c"):
            self.engine.query("INSERT INTO things name = ?", name)
        answer = self.engine.query("SELECT name FROM things")
        self.assertEqual([row["name"] for row in answer], ["a", "b", "c"])

    def test_no_rows_are_an_empty_list(self) -> None:
        self.assertEqual(self.engine.query("SELECT * FROM things"), velmora.Answer([], 0, ""))

    def test_a_column_asked_for_twice_is_there_once(self) -> None:
        self.engine.query("INSERT INTO things name = 'lamp'")
        rows = self.engine.query("SELECT name, name FROM things").rows
        self.assertEqual(rows, [{"name": "lamp"}])

    def test_columns_of_a_join_are_named_with_their_tables(self) -> None:
        self.engine.query("CREATE TABLE owners thing int owner string")
        self.engine.query("INSERT INTO things name = 'lamp'")
        self.engine.query("INSERT INTO owners thing = 1 owner = 'Ada'")
        answer = self.engine.query(
            "SELECT things.name, owners.owner FROM things JOIN owners ON things.id = owners.thing")
        self.assertEqual(answer.rows, [{"things.name": "lamp", "owners.owner": "Ada"}])

    def test_a_timed_value_has_the_state_of_now(self) -> None:
        command = "INSERT INTO things name = ? heavy = ? --> ? @ ? d"
        self.engine.query(command + LONG_AGO, "past", True, False, 30)
        self.engine.query(command + FAR_AHEAD, "future", True, False, 30)
        rows = self.engine.query("SELECT name, heavy FROM things").rows
        self.assertEqual(
            rows, [{"name": "past", "heavy": False}, {"name": "future", "heavy": True}])

    def test_bytes_that_are_not_utf_8_are_replaced(self) -> None:
        library = _library.loaded()
        library.query(b"INSERT INTO things name = 'a\xff\xc3b'", [])
        rows = self.engine.query("SELECT name FROM things").rows
        self.assertEqual(rows, [{"name": "a\ufffd\ufffdb"}])


class BoundValues(WithEngine):
    def setUp(self) -> None:
        super().setUp()
        self.engine.query("CREATE TABLE t n int x float b bool s string")

    def stored(self, column: str, value: velmora.Value) -> object:
        self.engine.query("DELETE FROM t")
        self.engine.query(f"INSERT INTO t {column} = ?", value)
        return self.engine.query(f"SELECT {column} FROM t").rows[0][column]

    def test_ints(self) -> None:
        for value in (0, 1, -1, 2**31 - 1, -(2**31)):
            self.assertEqual(self.stored("n", value), value)

    def test_floats(self) -> None:
        for value in (0.5, -2.25, 1e-5, 123.456):
            self.assertEqual(self.stored("x", value), value)

    def test_bools_are_not_ints(self) -> None:
        self.assertIs(self.stored("b", True), True)
        self.assertIs(self.stored("b", False), False)
        self.assert_fails("Error: Unmatching type to column", "INSERT INTO t b = ?", 1)
        self.assert_fails("Error: Unmatching type to column", "INSERT INTO t n = ?", True)

    def test_texts_of_any_characters(self) -> None:
        texts = ("", "plain", "O'Brien", 'say "hi"', "a\\b\n\t\x01/", "?", "Zoë, 日本 🚦",
                 "x' b = true s = 'y", "#TIME# 5", "DROP TABLE t")
        for text in texts:
            self.assertEqual(self.stored("s", text), text)

    def test_texts_that_read_as_missing_values_come_back_as_none(self) -> None:
        self.assertIsNone(self.stored("s", "NULL"))

    def test_a_text_in_a_filter_finds_only_itself(self) -> None:
        self.engine.query("INSERT INTO t s = 'a'")
        self.engine.query("INSERT INTO t s = ?", "a' || s != '")
        rows = self.engine.query("SELECT s FROM t WHERE s = ?", "a' || s != '").rows
        self.assertEqual(rows, [{"s": "a' || s != '"}])

    def test_question_marks_in_literals_are_text(self) -> None:
        self.engine.query("INSERT INTO t s = 'who?' n = ?", 7)
        self.assertEqual(
            self.engine.query("SELECT s, n FROM t").rows, [{"s": "who?", "n": 7}])

    def test_refusals_name_the_parameter(self) -> None:
        cases: list[tuple[velmora.Value, str]] = [
            (2**31, "is an integer outside 32 bits"),
            (-(2**31) - 1, "is an integer outside 32 bits"),
            (2**64, "is an integer outside 32 bits"),
            (-(10**30), "is an integer outside 32 bits"),
            (float("nan"), "is a float that is not finite"),
            (float("inf"), "is a float that is not finite"),
            (1e39, "is a float that the engine cannot read back"),
            (1e-60, "is a float that the engine cannot read back"),
            ("both ' and \"", "is a text with both kinds of quotes"),
            ("a\0b", "is a text with a NUL"),
            ("now #TIME# 5", "is a text with a clock marker and digits"),
        ]
        for value, refusal in cases:
            with self.subTest(value=value):
                self.assert_fails(f"Error: Parameter 2 {refusal}",
                                  "INSERT INTO t n = ? s = ?", 1, value)
        for number in (2.5, 2767891499.0):
            self.assert_fails("Error: Parameter 1 is a float that int column 'n' cannot hold",
                              "INSERT INTO t n = ?", number)
        self.assertEqual(self.engine.query("SELECT * FROM t").rows, [])

    def test_as_many_values_as_places(self) -> None:
        self.assert_fails("Error: Command has 1 placeholder for 0 values",
                          "INSERT INTO t n = ?")
        self.assert_fails("Error: Command has 0 placeholders for 1 value",
                          "INSERT INTO t n = 1", 1)

    def test_other_types_are_type_errors(self) -> None:
        cases: list[tuple[object, str]] = [
            (None, "NoneType"), (b"bytes", "bytes"), ([1], "list"), (1j, "complex")]
        for value, name in cases:
            with self.subTest(type=name), self.assertRaises(TypeError) as raised:
                self.engine.query("INSERT INTO t n = ? s = ?", 1, value)  # type: ignore[arg-type]
            self.assertEqual(str(raised.exception),
                             f"Parameter 2 is of type {name}, not int, float, bool or str")

    def test_texts_without_utf_8_are_value_errors(self) -> None:
        with self.assertRaisesRegex(ValueError, "^Parameter 1 has a lone surrogate$"):
            self.engine.query("INSERT INTO t s = ?", "a\ud800")
        with self.assertRaisesRegex(ValueError, "^Command has a lone surrogate$"):
            self.engine.query("INSERT INTO t s = '\ud800'")

    def test_a_command_with_a_nul_is_not_cut_there(self) -> None:
        with self.assertRaisesRegex(ValueError, "^Command has a NUL$"):
            self.engine.query("DELETE FROM t\0 WHERE n = 1")

    def test_a_command_is_a_str(self) -> None:
        with self.assertRaisesRegex(TypeError, "^Command is of type bytes, not str$"):
            self.engine.query(b"SELECT n FROM t")  # type: ignore[arg-type]


class Failures(WithEngine):
    def test_a_failed_command_raises_the_engines_message(self) -> None:
        self.assert_fails("Error: Syntax Error: Table 'nowhere' does not exist.",
                          "SELECT * FROM nowhere")
        self.assert_fails("Empty command", "")

    def test_a_number_that_cannot_be_read_is_an_error_too(self) -> None:
        self.engine.query("CREATE TABLE t n int")
        self.engine.query("INSERT INTO t n = 1")
        self.assert_fails(
            "Error: Text cannot be read as a number: 'many' for table 't', column 'n'",
            "SELECT n FROM t WHERE n > many")
        self.assertEqual(self.engine.query("SELECT n FROM t").rows, [{"n": 1}])

    def test_a_message_that_quotes_a_text_is_whole(self) -> None:
        self.engine.query("CREATE TABLE parents name string")
        self.engine.query("INSERT INTO parents name = 'Ada'")
        self.engine.query("CREATE TABLE children parent string")
        self.engine.query("LINK children.parent --> parents.name")
        text = 'say "hi", Zoë\n\\'
        self.assert_fails(f"Error: Primary table is missing required future key: {text}",
                          "INSERT INTO children parent = ?", text)

    def test_answers_and_messages_are_freed(self) -> None:
        self.engine.query("CREATE TABLE t s string")
        for _ in range(100):
            self.engine.query("INSERT INTO t s = ?", "x" * 1000)

        def resident_bytes() -> int:
            pages = Path("/proc/self/statm").read_text(encoding="ascii").split()[1]
            return int(pages) * os.sysconf("SC_PAGE_SIZE")

        def run() -> None:  # 20 MB of answers, 20 MB of messages
            for _ in range(200):
                self.engine.query("SELECT s FROM t")
                with self.assertRaises(velmora.Error):
                    self.engine.query("SELECT s FROM " + "t" * 100_000)

        run()
        before = resident_bytes()
        run()
        self.assertLess(resident_bytes() - before, 10_000_000)


class Lives(InDirectory):
    def assert_not_started(self, engine: velmora.Engine) -> None:
        with self.assertRaisesRegex(velmora.Error, "^The engine is not started$"):
            engine.query("SELECT n FROM t")

    def test_an_engine_is_started_only_between(self) -> None:
        engine = velmora.Engine(self.directory)
        self.assert_not_started(engine)
        with engine as entered:
            self.assertIs(entered, engine)
            engine.query("CREATE TABLE t n int")
        self.assert_not_started(engine)

    def test_stopping_a_stopped_engine_does_nothing(self) -> None:
        engine = velmora.Engine(self.directory)
        engine.stop()
        engine.start()
        engine.stop()
        engine.stop()

    def test_there_is_one_at_a_time(self) -> None:
        refusal = "^The process has a started engine already$"
        with velmora.Engine(self.directory) as engine:
            with self.assertRaisesRegex(velmora.Error, refusal):
                engine.start()
            other = velmora.Engine(self.directory)
            with self.assertRaisesRegex(velmora.Error, refusal):
                other.start()
            self.assert_not_started(other)
            other.stop()
            engine.query("CREATE TABLE t n int")
        with other:
            self.assertEqual(other.query("SELECT n FROM t").rows, [])

    def test_another_thread_may_use_it_and_not_start_a_second(self) -> None:
        seen: list[object] = []

        def work() -> None:
            try:
                velmora.Engine(self.directory).start()
            except velmora.Error as error:
                seen.append(str(error))
            seen.append(engine.query("SELECT n FROM t").rows)

        with velmora.Engine(self.directory) as engine:
            engine.query("CREATE TABLE t n int")
            engine.query("INSERT INTO t n = 1")
            thread = threading.Thread(target=work)
            thread.start()
            thread.join()
        self.assertEqual(seen, ["The process has a started engine already", [{"n": 1}]])

    def test_of_many_threads_one_starts_it(self) -> None:
        engines = [velmora.Engine(self.directory) for _ in range(8)]
        outcomes: list[str] = []

        def work(engine: velmora.Engine) -> None:
            try:
                engine.start()
                outcomes.append("started")
            except velmora.Error as error:
                outcomes.append(str(error))

        threads = [threading.Thread(target=work, args=[engine]) for engine in engines]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        for engine in engines:
            engine.stop()
        self.assertEqual(
            sorted(outcomes), ["The process has a started engine already"] * 7 + ["started"])

    def test_threads_share_it(self) -> None:
        def work(number: int) -> None:
            for i in range(50):
                engine.query("INSERT INTO t n = ? s = ?", number * 50 + i, "x" * number)
                rows = engine.query("SELECT s FROM t WHERE n = ?", number * 50 + i).rows
                if rows != [{"s": "x" * number}]:
                    wrong.append(rows)

        wrong: list[object] = []
        with velmora.Engine(self.directory) as engine:
            engine.query("CREATE TABLE t n int s string")
            threads = [threading.Thread(target=work, args=[number]) for number in range(4)]
            for thread in threads:
                thread.start()
            for thread in threads:
                thread.join()
            self.assertEqual(wrong, [])
            self.assertEqual(engine.query("SELECT n FROM t").affected, 200)

    def test_an_exception_stops_it_and_passes(self) -> None:
        with self.assertRaisesRegex(LookupError, "^of the program$"):
            with velmora.Engine(self.directory) as engine:
                engine.query("CREATE TABLE t n int")
                engine.query("INSERT INTO t n = 1")
                raise LookupError("of the program")
        with velmora.Engine(self.directory) as engine:
            self.assertEqual(engine.query("SELECT n FROM t").rows, [{"n": 1}])

    def test_a_restart_keeps_everything(self) -> None:
        engine = velmora.Engine(self.directory)
        with engine:
            engine.query("CREATE TABLE t s string b bool 2")
            engine.query("INSERT INTO t s = ? b = ? --> ? @ ? d" + FAR_AHEAD,
                         "O'Brien", False, True, 1)
        with engine:
            self.assertEqual(
                engine.query("SELECT * FROM t").rows, [{"s": "O'Brien", "b": False}])

    def test_a_stop_that_cannot_save_raises_and_leaves_it_started(self) -> None:
        engine = velmora.Engine(self.directory)
        engine.start()
        engine.query("CREATE TABLE t id ApexInt n int")
        engine.query("INSERT INTO t n = 99999999999")
        with self.assertRaises(velmora.Error) as raised:
            engine.stop()
        self.assertEqual(
            str(raised.exception),
            "Number is out of range: '99999999999' in table 't', column 'n', row 0")
        engine.query("UPDATE t SET n = 0 WHERE id = 1")
        engine.stop()
        self.assert_not_started(engine)

    def test_a_forgotten_engine_is_stopped(self) -> None:
        engine = velmora.Engine(self.directory)
        engine.start()
        engine.query("CREATE TABLE t n int")
        del engine
        gc.collect()
        with velmora.Engine(self.directory) as other:
            self.assertEqual(other.query("SELECT n FROM t").rows, [])

    def test_the_end_of_the_interpreter_stops_it(self) -> None:
        run = self.run_python(
            "import velmora\n"
            "engine = velmora.Engine()\n"
            "engine.start()\n"
            "engine.query('CREATE TABLE t n int')\n"
            "engine.query('INSERT INTO t n = 1')\n")
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        self.assertEqual((self.directory / "velmora.wal").read_bytes(), b"")
        with velmora.Engine(self.directory) as engine:
            self.assertEqual(engine.query("SELECT n FROM t").rows, [{"n": 1}])

    def test_a_killed_process_has_lost_nothing(self) -> None:
        run = self.run_python(
            "import os, signal, velmora\n"
            "engine = velmora.Engine()\n"
            "engine.start()\n"
            "engine.query('CREATE TABLE t n int')\n"
            "engine.query('INSERT INTO t n = ?', 1)\n"
            "os.kill(os.getpid(), signal.SIGKILL)\n")
        self.assertEqual(run.returncode, -signal.SIGKILL)
        with velmora.Engine(self.directory) as engine:
            self.assertEqual(engine.query("SELECT n FROM t").rows, [{"n": 1}])

    def test_a_forked_child_is_refused_and_saves_nothing(self) -> None:
        run = self.run_python(
            "import os, sys, velmora\n"
            "engine = velmora.Engine()\n"
            "engine.start()\n"
            "engine.query('CREATE TABLE t n int')\n"
            "if os.fork() == 0:\n"
            "    for attempt in (lambda: engine.query('SELECT n FROM t'), engine.stop,\n"
            "                    velmora.Engine().start):\n"
            "        try:\n"
            "            attempt()\n"
            "        except velmora.Error as error:\n"
            "            print(error)\n"
            "    sys.exit()\n"
            "os.wait()\n"
            "print(os.path.getsize('velmora.wal') > 0, flush=True)\n"
            "engine.query('INSERT INTO t n = 1')\n")
        self.assertEqual(run.stderr, "")
        self.assertEqual(run.stdout.splitlines(), [
            "The engine belongs to the process that has started it",
            "The engine belongs to the process that has started it",
            "The process has a started engine already",
            "True"])
        with velmora.Engine(self.directory) as engine:
            self.assertEqual(engine.query("SELECT n FROM t").rows, [{"n": 1}])


class Directories(InDirectory):
    def test_the_current_directory_is_left_as_it_was(self) -> None:
        before = os.getcwd()
        with velmora.Engine(self.directory) as engine:
            self.assertEqual(os.getcwd(), before)
            engine.query("CREATE TABLE t n int")
        self.assertEqual(os.getcwd(), before)
        self.assertTrue((self.directory / "t.bin").exists())

    def test_without_a_name_it_is_the_current_one(self) -> None:
        run = self.run_python(
            "import velmora\n"
            "with velmora.Engine() as engine:\n"
            "    engine.query('CREATE TABLE t n int')\n")
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        self.assertTrue((self.directory / "t.bin").exists())

    def test_a_missing_directory_is_an_os_error(self) -> None:
        engine = velmora.Engine(self.directory / "missing")
        with self.assertRaises(FileNotFoundError):
            engine.start()
        engine.stop()

    def test_a_directory_in_use_is_an_error(self) -> None:
        holder = subprocess.Popen(
            [sys.executable, "-c",
             "import velmora\n"
             "with velmora.Engine():\n"
             "    print('started', flush=True)\n"
             "    input()\n"],
            cwd=self.directory, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True,
            env={**os.environ, "PYTHONPATH": str(PACKAGE)})
        with holder:
            assert holder.stdout is not None
            self.assertEqual(holder.stdout.readline(), "started\n")
            engine = velmora.Engine(self.directory)
            with self.assertRaisesRegex(
                    velmora.Error, "^Database directory is already in use$"):
                engine.start()
            holder.communicate("\n")
        self.assertEqual(holder.returncode, 0)
        with engine:
            engine.query("CREATE TABLE t n int")

    def test_files_that_cannot_be_loaded_are_an_error_and_stay_as_they_are(self) -> None:
        with velmora.Engine(self.directory) as engine:
            engine.query("CREATE TABLE users id int name string")
        table = self.directory / "users.bin"
        cut = table.read_bytes()[:52]  # inside the columns' names
        table.write_bytes(cut)
        with self.assertRaisesRegex(velmora.Error, "^Corrupt table file: users.bin$"):
            engine.start()
        self.assertEqual(table.read_bytes(), cut)


class Libraries(InDirectory):
    def test_the_version_is_that_of_the_library(self) -> None:
        self.assertEqual(velmora.library_version(), "0.1.0")

    def test_a_missing_library_is_an_error_that_names_the_variable(self) -> None:
        with mock.patch.dict(os.environ, {"VELMORA_LIBRARY": "/nowhere/libvelmora.so"}):
            run = self.run_python(
                "import velmora\n"
                "try:\n"
                "    velmora.Engine().start()\n"
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
