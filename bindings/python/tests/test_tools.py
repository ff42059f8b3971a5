"""Tools that take any connection after PEP 249, where they are installed."""

from __future__ import annotations

import importlib.util
import unittest
import warnings

from support import WithConnection


@unittest.skipUnless(importlib.util.find_spec("pandas"), "pandas is not installed")
class Pandas(WithConnection):
    def setUp(self) -> None:
        super().setUp()
        self.run_command("CREATE TABLE t n int x double s string")
        self.connection.executemany("INSERT INTO t n = ? x = ? s = ?",
                                    [(1, 0.5, "a"), (2, None, "b"), (3, 1.5, "c")])

    def test_read_sql_makes_a_frame(self) -> None:
        import pandas  # pylint: disable=import-outside-toplevel
        with warnings.catch_warnings():
            warnings.simplefilter("ignore")  # of connections that it does not know by name
            frame = pandas.read_sql("SELECT * FROM t WHERE n > ?", self.connection, params=(1,))
        self.assertEqual(list(frame.columns), ["n", "x", "s"])
        self.assertEqual(frame["n"].tolist(), [2, 3])
        self.assertTrue(pandas.isna(frame["x"][0]))

    def test_arrays_of_numpy_take_columns_as_they_are(self) -> None:
        import numpy  # pylint: disable=import-outside-toplevel
        columns = self.run_command("SELECT * FROM t").fetch_columns()
        numbers = numpy.frombuffer(columns["n"].values, dtype=numpy.int64)
        self.assertEqual(numbers.tolist(), [1, 2, 3])
        self.assertFalse(numbers.flags.owndata)
        self.run_command("INSERT INTO t n = ?", (numpy.int64(4),))


if __name__ == "__main__":
    unittest.main()
