"""Rows, timed values, and answers as columns."""

from __future__ import annotations

import array
import collections.abc
import gc
import unittest

import velmora
from support import WithConnection


class Rows(WithConnection):
    def setUp(self) -> None:
        super().setUp()
        self.run_command("CREATE TABLE t n int s string x double")
        self.run_command("INSERT INTO t n = 1 s = 'a' x = 0.5")
        self.row = self.run_command("SELECT * FROM t").fetchone()

    def test_values_are_had_by_index_and_by_name(self) -> None:
        self.assertEqual((self.row[0], self.row[1], self.row[-1]), (1, "a", 0.5))
        self.assertEqual((self.row["n"], self.row["".join("s")], self.row["x"]), (1, "a", 0.5))
        self.assertEqual(self.row[1:], ("a", 0.5))
        self.assertEqual(self.row[::-1], (0.5, "a", 1))

    def test_what_is_not_there_is_an_error(self) -> None:
        for index in (3, -4, 2**70):
            with self.assertRaises(IndexError):
                self.row[index]  # pylint: disable=pointless-statement
        with self.assertRaisesRegex(KeyError, "^'N'$"):
            self.row["N"]  # pylint: disable=pointless-statement
        with self.assertRaises(TypeError):
            self.row[None]  # pylint: disable=pointless-statement

    def test_it_is_a_sequence(self) -> None:
        n, s, x = self.row
        self.assertEqual((n, s, x, len(self.row)), (1, "a", 0.5, 3))
        self.assertEqual(list(reversed(self.row)), [0.5, "a", 1])
        self.assertIn("a", self.row)
        self.assertEqual((self.row.index("a") if hasattr(self.row, "index") else 1), 1)
        self.assertIsInstance(self.row, collections.abc.Sequence)

    def test_it_has_keys_and_becomes_a_dict(self) -> None:
        self.assertEqual(self.row.keys(), ["n", "s", "x"])
        self.assertEqual(dict(self.row), {"n": 1, "s": "a", "x": 0.5})

    def test_it_is_compared_hashed_and_shown_as_the_tuple_of_its_values(self) -> None:
        same = self.run_command("SELECT * FROM t").fetchone()
        self.assertTrue(self.row == same == (1, "a", 0.5))
        self.assertTrue((1, "a", 0.5) == self.row)
        self.assertTrue(self.row != (1, "a"))
        self.assertFalse(self.row == [1, "a", 0.5])
        self.assertTrue(self.row < (2, "a", 0.5))
        self.assertEqual({self.row: 1}[1, "a", 0.5], 1)  # type: ignore[index]
        self.assertEqual(repr(self.row), "(1, 'a', 0.5)")

    def test_it_outlives_its_connection(self) -> None:
        self.run_command("DELETE FROM t")
        self.connection.close()
        gc.collect()
        self.assertEqual(self.row["s"], "a")
        self.assertIsNone(self.row.timed("s"))

    def test_types_are_not_made_by_hand(self) -> None:
        for kind in (velmora.Row, velmora.Column):
            with self.assertRaises(TypeError):
                kind()

    def test_columns_of_a_join_are_named_with_their_tables(self) -> None:
        self.run_command("CREATE TABLE owners thing int owner string")
        self.run_command("INSERT INTO owners thing = 1 owner = 'Ada'")
        row = self.run_command(
            "SELECT t.s, owners.owner FROM t JOIN owners ON t.n = owners.thing").fetchone()
        self.assertEqual((row.keys(), row["owners.owner"]), (["t.s", "owners.owner"], "Ada"))

    def test_of_two_columns_with_a_name_the_first_is_had_by_it(self) -> None:
        row = self.run_command("SELECT n, s, n FROM t").fetchone()
        self.assertEqual((row.keys(), row["n"], tuple(row)), (["n", "s", "n"], 1, (1, "a", 1)))

    def test_more_columns_than_a_block_on_the_stack(self) -> None:
        names = [f"c{number}" for number in range(60)]
        self.run_command("CREATE TABLE wide " + " ".join(f"{name} int" for name in names))
        self.run_command("INSERT INTO wide " + " ".join(f"{name} = ?" for name in names),
                         range(60))
        self.assertEqual(self.run_command("SELECT * FROM wide").fetchone(), tuple(range(60)))
        self.assertEqual(self.run_command("SELECT * FROM wide").fetchall(), [tuple(range(60))])


class TimedValues(WithConnection):
    def setUp(self) -> None:
        super().setUp()
        self.run_command("CREATE TABLE lamps name string colour string 3 lit bool 2")
        self.run_command("INSERT INTO lamps name = 'a' colour = 'red' --> 'green' @ 30 s "
                         "lit = true --> false @ 10 s")
        self.run_command("INSERT INTO lamps name = 'b' colour = 'red' --> 'green' @ 5 s c")
        self.run_command("INSERT INTO lamps name = 'c' colour = 'red' lit = true")

    def test_the_answer_says_when_it_changes_next(self) -> None:
        self.assertEqual(self.run_command("SELECT * FROM lamps").changes_at, 1005)
        self.assertEqual(
            self.run_command("SELECT colour FROM lamps WHERE name = 'a'").changes_at, 1030)
        self.assertIsNone(self.run_command("SHOW TABLES").changes_at)

    def test_a_row_says_when_it_changes_next(self) -> None:
        rows = self.run_command("SELECT * FROM lamps").fetchall()
        self.assertEqual([row.changes_at for row in rows], [1010, 1005, None])
        self.second = 1020
        rows = self.run_command("SELECT * FROM lamps WHERE name = 'a'").fetchall()
        self.assertEqual([(tuple(row), row.changes_at) for row in rows],
                         [(("a", "red", False), 1030)])

    def test_a_value_says_what_becomes_of_it(self) -> None:
        first, second, third = self.run_command("SELECT * FROM lamps")
        self.assertEqual(first.timed("colour"), velmora.Timed("red", "green", 1030, False))
        self.assertEqual(first.timed(-1), velmora.Timed(True, False, 1010, False))
        self.assertEqual(second.timed("colour"), velmora.Timed("red", "green", 1005, True))
        self.assertIsNone(third.timed("colour"))
        self.assertIsNone(first.timed("name"))
        self.assertRaises(KeyError, first.timed, "c")
        self.assertRaises(IndexError, first.timed, 3)

    def test_a_value_at_its_end_has_no_next_state(self) -> None:
        self.second = 1030
        row = self.run_command("SELECT colour FROM lamps WHERE name = 'a'").fetchone()
        self.assertEqual(row["colour"], "green")
        self.assertIsNone(row.changes_at)
        timed = row.timed("colour")
        self.assertEqual(timed and timed[1:], timed and (None, None, False))


class Columns(WithConnection):
    def setUp(self) -> None:
        super().setUp()
        self.run_command("CREATE TABLE t n int l long x double b bool s string")

    def fill(self) -> dict[str, velmora.Column]:
        self.connection.executemany(
            "INSERT INTO t n = ? l = ? x = ? b = ? s = ?",
            [(1, 2**62, 0.5, True, "a"), (2, -1, -0.25, False, "Zoë"), (3, 0, 1e300, True, "")])
        return self.run_command("SELECT * FROM t").fetch_columns()

    def test_they_are_typed_memory(self) -> None:
        columns = self.fill()
        self.assertEqual([(name, column.name, column.type, column.values.format,
                           column.values.itemsize) for name, column in columns.items()],
                         [("n", "n", "integer", "q", 8), ("l", "l", "integer", "q", 8),
                          ("x", "x", "real", "d", 8), ("b", "b", "boolean", "?", 1),
                          ("s", "s", "text", "B", 1)])
        self.assertEqual(columns["n"].values.tolist(), [1, 2, 3])
        self.assertEqual(columns["l"].values.tolist(), [2**62, -1, 0])
        self.assertEqual(columns["x"].values.tolist(), [0.5, -0.25, 1e300])
        self.assertEqual(columns["b"].values.tolist(), [True, False, True])
        self.assertEqual(bytes(columns["s"].values), "aZoë".encode())
        self.assertEqual((columns["s"].ends.format, columns["s"].ends.tolist()), ("Q", [1, 5, 5]))
        self.assertIsNone(columns["n"].ends)
        self.assertEqual({column.nulls for column in columns.values()}, {None})

    def test_other_types_take_the_memory_as_it_is(self) -> None:
        columns = self.fill()
        numbers = array.array("q")
        numbers.frombytes(columns["n"].values.cast("B"))
        self.assertEqual(numbers.tolist(), [1, 2, 3])
        self.assertEqual(columns["b"].values.cast("B").tolist(), [1, 0, 1])

    def test_nulls_are_memory_of_their_own(self) -> None:
        self.fill()
        self.run_command("INSERT INTO t n = 4")
        columns = self.run_command("SELECT * FROM t").fetch_columns()
        self.assertIsNone(columns["n"].nulls)
        for name, null in (("l", 0), ("x", 0.0), ("b", False)):
            self.assertEqual(columns[name].nulls.tolist(), [False, False, False, True])
            self.assertEqual(columns[name].values[3], null)
        self.assertEqual(columns["s"].ends.tolist(), [1, 5, 5, 5])

    def test_they_are_sequences_of_values(self) -> None:
        self.fill()
        self.run_command("INSERT INTO t n = 4")
        columns = self.run_command("SELECT * FROM t").fetch_columns()
        self.assertEqual(list(columns["s"]), ["a", "Zoë", "", None])
        self.assertEqual(list(columns["b"]), [True, False, True, None])
        self.assertEqual((len(columns["n"]), columns["n"][-1]), (4, 4))
        self.assertRaises(IndexError, columns["n"].__getitem__, 4)

    def test_the_memory_cannot_be_written(self) -> None:
        values = self.fill()["n"].values
        self.assertTrue(values.readonly)
        with self.assertRaises(TypeError):
            values[0] = 5

    def test_the_memory_outlives_all_else(self) -> None:
        values = self.fill()["x"].values
        self.run_command("DELETE FROM t")
        self.connection.close()
        gc.collect()
        self.assertEqual(values.tolist(), [0.5, -0.25, 1e300])

    def test_no_rows_are_empty_memory(self) -> None:
        columns = self.run_command("SELECT * FROM t").fetch_columns()
        self.assertEqual([column.values.tolist() for column in columns.values()], [[]] * 5)
        self.assertEqual(columns["s"].ends.tolist(), [])

    def test_they_are_the_whole_answer_which_is_fetched_then(self) -> None:
        self.fill()
        cursor = self.run_command("SELECT n FROM t")
        cursor.fetchone()
        self.assertEqual(list(cursor.fetch_columns()["n"]), [1, 2, 3])
        self.assertEqual(cursor.fetchall(), [])


if __name__ == "__main__":
    unittest.main()
