"""Values: what can be bound, how it comes back, and what is refused, hostile texts among it."""

from __future__ import annotations

import datetime
import enum
import unittest

import velmora
from support import WithConnection


class Colour(enum.IntEnum):
    RED = 3


class Name(str):
    pass


class Share(float):
    pass


class Indexed:
    """Like an integer of numpy: no int, but worth one."""

    def __index__(self) -> int:
        return 42


class Values(WithConnection):
    def setUp(self) -> None:
        super().setUp()
        self.run_command("CREATE TABLE t n int l long x float d double b bool s string(200)")

    def stored(self, column: str, value: object) -> object:
        self.run_command("DELETE FROM t")
        self.run_command(f"INSERT INTO t {column} = ?", (value,))
        return self.run_command(f"SELECT {column} FROM t").fetchone()[0]

    def test_ints(self) -> None:
        for value in (0, 1, -1, 2**31 - 1, -(2**31)):
            self.assertEqual(self.stored("n", value), value)
        for value in (2**63 - 1, -(2**63)):
            self.assertEqual(self.stored("l", value), value)

    def test_what_is_worth_an_int_is_stored_as_one(self) -> None:
        self.assertEqual(repr(self.stored("n", Colour.RED)), "3")
        self.assertEqual(self.stored("n", Indexed()), 42)

    def test_derived_types_are_stored_as_what_they_are_derived_from(self) -> None:
        self.assertEqual(repr(self.stored("s", Name("Zoë"))), "'Zoë'")
        self.assertEqual(repr(self.stored("d", Share(0.25))), "0.25")

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
        for text in ("", "plain", "O'Brien", 'say "hi"', "both ' and \"", "a\\b\n\r\t\x01\x7f/",
                     "?", "Zoë, 日本 🚦", "x' b = true s = 'y", "now #TIME# 5", " #TIME# ", "#/#?",
                     "DROP TABLE t", "NULL", "a --> b @ 3 s", "; --", "\u2028\ufeff", "\U0010ffff"):
            with self.subTest(text=text):
                self.assertEqual(self.stored("s", text), text)
                self.assertEqual(self.rows("SELECT s FROM t WHERE s = ?", text), [(text,)])

    def test_none_is_null(self) -> None:
        for column in ("n", "l", "x", "d", "b", "s"):
            self.assertIsNone(self.stored(column, None))

    def test_a_text_in_a_filter_finds_only_itself(self) -> None:
        self.run_command("INSERT INTO t s = 'a'")
        self.run_command("INSERT INTO t s = ?", ["a' || s != '"])
        self.assertEqual(self.rows("SELECT s FROM t WHERE s = ?", "a' || s != '"),
                         [("a' || s != '",)])

    def test_question_marks_in_literals_are_text(self) -> None:
        self.run_command("INSERT INTO t s = 'who?' n = ?", (7,))
        self.assertEqual(self.rows("SELECT s, n FROM t"), [("who?", 7)])

    def test_what_does_not_fit_is_refused_and_nothing_is_run(self) -> None:
        for column, value, message in (
                ("l", 2**63, "Value 2 is an integer outside 64 bits"),
                ("l", -(10**30), "Value 2 is an integer outside 64 bits"),
                ("n", 2**31,
                 "2147483648 is out of range for column 'n' of table 't', which is int"),
                ("x", float("nan"), "Value 2 is not finite"),
                ("x", float("inf"), "Value 2 is not finite"),
                ("x", 1e39, "1e+39 is out of range for column 'x' of table 't', which is float"),
                ("s", "a\0b", "Value 2 has a zero byte"),
                ("s", "a\ud800", "Value 2 has a lone surrogate")):
            with self.subTest(value=value):
                error = self.assert_fails(velmora.RangeError, message,
                                          f"INSERT INTO t b = ? {column} = ?", True, value)
                self.assertIsInstance(error, velmora.DataError)
                self.assertEqual(error.code, 10)
        self.assertEqual(self.rows("SELECT * FROM t"), [])

    def test_other_types_are_refused_by_name(self) -> None:
        for kind, value, name in (
                (velmora.NotSupportedError, b"bytes", "bytes"),
                (velmora.NotSupportedError, bytearray(1), "bytearray"),
                (velmora.MisuseError, [1], "list"), (velmora.MisuseError, 1j, "complex"),
                (velmora.MisuseError, datetime.date(2026, 11, 22), "date")):
            self.assert_fails(
                kind, f"Value 2 is of type {name}, not int, float, bool, str or None",
                "INSERT INTO t n = ? s = ?", 1, value)

    def test_as_many_values_as_places(self) -> None:
        self.assert_fails(velmora.MisuseError, "The command has places for 1 values, not 0",
                          "INSERT INTO t n = ?")
        self.assert_fails(velmora.MisuseError, "The command has places for 0 values, not 1",
                          "INSERT INTO t n = 1", 1)
        with self.assertRaisesRegex(velmora.MisuseError, "^The command has places for 2 values, "
                                                         "not 1$"):
            self.connection.executemany("INSERT INTO t n = ? s = ?", [(1, "a"), (2,)])
        self.assertEqual(self.rows("SELECT * FROM t"), [])

    def test_values_are_a_sequence_and_no_text_or_mapping(self) -> None:
        for values in ("a", b"a", {"n": 1}, 5, {1}):
            with self.assertRaises(velmora.ProgrammingError) as raised:
                self.run_command("INSERT INTO t n = ?", values)
            self.assertEqual(str(raised.exception),
                             "Values are a sequence, such as a tuple; one value is (value,)")
        self.run_command("INSERT INTO t n = ?", range(7, 8))
        self.assertEqual(self.rows("SELECT n FROM t"), [(7,)])

    def test_a_row_serves_as_values(self) -> None:
        self.run_command("INSERT INTO t n = 1 s = 'a'")
        row = self.run_command("SELECT n, s FROM t").fetchone()
        self.run_command("INSERT INTO t n = ? s = ?", row)
        self.connection.executemany("INSERT INTO t n = ? s = ?", [row])
        self.assertEqual(self.rows("SELECT n, s FROM t"), [(1, "a")] * 3)

    def test_values_stay_out_of_the_next_run(self) -> None:
        insert = "INSERT INTO t n = ? s = ?"
        self.run_command(insert, (1, "a"))
        self.run_command(insert, (2, None))
        self.assertEqual(self.rows("SELECT n, s FROM t"), [(1, "a"), (2, None)])

    def test_what_an_index_raises_passes(self) -> None:
        class Broken:
            def __index__(self) -> int:
                raise LookupError("of the program")

        with self.assertRaisesRegex(LookupError, "^of the program$"):
            self.run_command("INSERT INTO t n = ?", (Broken(),))

    def test_a_value_cannot_close_the_connection_under_its_command(self) -> None:
        connection = self.connection

        class Closing:
            def __index__(self) -> int:
                connection.close()
                return 1

        with self.assertRaisesRegex(velmora.MisuseError,
                                    "^A call with the connection is under way$"):
            self.run_command("INSERT INTO t n = ?", (Closing(),))
        self.assertEqual(self.rows("SELECT n FROM t"), [])


class Commands(WithConnection):
    def test_a_command_is_a_str(self) -> None:
        with self.assertRaisesRegex(velmora.MisuseError,
                                    "^The command is of type bytes, not str$"):
            self.run_command(b"SHOW TABLES")  # type: ignore[arg-type]

    def test_hostile_commands_are_refused_whole(self) -> None:
        self.run_command("CREATE TABLE t n int")
        self.assert_fails(velmora.CommandSyntaxError, "A command holds no zero bytes",
                          "DELETE FROM t\0 WHERE n = 1")
        self.assert_fails(velmora.CommandSyntaxError, "The command has a lone surrogate",
                          "INSERT INTO t n = '\ud800'")

    def test_arguments_are_a_command_and_its_values(self) -> None:
        for attempt in (lambda: self.connection.execute(),  # type: ignore[call-arg]
                        lambda: self.connection.execute("a", (), ()),  # type: ignore[call-arg]
                        lambda: self.connection.executemany("a")):  # type: ignore[call-arg]
            self.assertRaises(TypeError, attempt)

    def test_more_commands_than_are_kept_parsed(self) -> None:
        connection = self.connect("small", cached_statements=2)
        for number in range(6):
            connection.execute(f"CREATE TABLE t{number} n int")
        for number in (0, 1, 2, 0, 1, 2):
            self.assertEqual(connection.execute(f"SELECT n FROM t{number}").fetchall(), [])
        none = self.connect("none", cached_statements=0)
        self.assertEqual(none.execute("SHOW TABLES").fetchall(), [])

    def test_a_kept_command_follows_its_table(self) -> None:
        self.run_command("CREATE TABLE t n int")
        self.assertEqual(self.run_command("SELECT * FROM t").description[0][:2], ("n", "integer"))
        self.run_command("DROP TABLE t")
        self.run_command("CREATE TABLE t s string m int")
        self.run_command("INSERT INTO t s = 'a'")
        self.assertEqual(self.run_command("SELECT * FROM t").fetchone().keys(), ["s", "m"])


if __name__ == "__main__":
    unittest.main()
