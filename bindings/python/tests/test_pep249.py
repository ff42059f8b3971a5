"""What PEP 249 asks of a module, its connections and its cursors, point by point."""

from __future__ import annotations

import time
import unittest
import warnings

import velmora
from support import InDirectory


class Module(unittest.TestCase):
    def test_it_says_what_it_offers(self) -> None:
        self.assertEqual((velmora.apilevel, velmora.threadsafety, velmora.paramstyle),
                         ("2.0", 2, "qmark"))
        self.assertTrue(callable(velmora.connect))

    def test_exceptions_form_the_hierarchy(self) -> None:
        self.assertTrue(issubclass(velmora.Warning, Exception))
        self.assertTrue(issubclass(velmora.Error, Exception))
        for child, parent in (
                ("InterfaceError", "Error"), ("DatabaseError", "Error"),
                ("DataError", "DatabaseError"), ("OperationalError", "DatabaseError"),
                ("IntegrityError", "DatabaseError"), ("InternalError", "DatabaseError"),
                ("ProgrammingError", "DatabaseError"), ("NotSupportedError", "DatabaseError")):
            self.assertIn(getattr(velmora, parent), getattr(velmora, child).__bases__)
        self.assertFalse(issubclass(velmora.Warning, velmora.Error))

    def test_connections_have_the_exceptions_as_attributes(self) -> None:
        for name in ("Warning", "Error", "InterfaceError", "DatabaseError", "DataError",
                     "OperationalError", "IntegrityError", "InternalError", "ProgrammingError",
                     "NotSupportedError"):
            self.assertIs(getattr(velmora.Connection, name), getattr(velmora, name))

    def test_constructors_make_texts_of_dates_and_times(self) -> None:
        self.assertEqual(velmora.Date(2026, 11, 22), "2026-11-22")
        self.assertEqual(velmora.Time(9, 5, 7), "09:05:07")
        self.assertEqual(velmora.Timestamp(2026, 11, 22, 9, 5, 7), "2026-11-22 09:05:07")
        ticks = time.mktime((2026, 11, 22, 9, 5, 7, 0, 0, -1))
        self.assertEqual(velmora.DateFromTicks(ticks), "2026-11-22")
        self.assertEqual(velmora.TimeFromTicks(ticks), "09:05:07")
        self.assertEqual(velmora.TimestampFromTicks(ticks), "2026-11-22 09:05:07")
        self.assertEqual(velmora.Binary(b"\0\xff"), b"\0\xff")

    def test_type_objects_equal_the_codes_that_they_stand_for(self) -> None:
        codes = ("text", "integer", "real", "boolean", "identity")
        for kind, equal in ((velmora.STRING, {"text"}), (velmora.ROWID, {"identity"}),
                            (velmora.NUMBER, {"integer", "real", "boolean", "identity"}),
                            (velmora.BINARY, set()), (velmora.DATETIME, set())):
            self.assertEqual({code for code in codes if kind == code}, equal)
            self.assertEqual({code for code in codes if not kind != code}, equal)
        self.assertEqual(len({velmora.STRING, velmora.NUMBER, velmora.STRING}), 2)
        self.assertEqual(repr(velmora.STRING), "velmora.STRING")


class Connections(InDirectory):
    def setUp(self) -> None:
        super().setUp()
        self.connection = self.connect()

    def test_it_makes_cursors(self) -> None:
        cursor = self.connection.cursor()
        self.assertIsInstance(cursor, velmora.Cursor)
        self.assertIs(cursor.connection, self.connection)

    def test_commit_and_rollback_without_a_transaction_do_nothing(self) -> None:
        self.assertIsNone(self.connection.commit())
        self.assertIsNone(self.connection.rollback())

    def test_changes_are_undone_by_rollback_and_kept_by_commit(self) -> None:
        cursor = self.connection.cursor()
        cursor.execute("CREATE TABLE t n int")
        cursor.execute("INSERT INTO t n = 1")
        self.connection.commit()
        cursor.execute("INSERT INTO t n = 2")
        self.connection.rollback()
        cursor.execute("SELECT n FROM t")
        self.assertEqual(cursor.fetchall(), [(1,)])

    def test_closing_rolls_back(self) -> None:
        self.connection.execute("CREATE TABLE t n int")
        self.connection.commit()
        self.connection.execute("INSERT INTO t n = 1")
        self.connection.close()
        self.assertEqual(self.connect().execute("SELECT n FROM t").fetchall(), [])

    def test_everything_fails_once_it_is_closed_but_closing(self) -> None:
        cursor = self.connection.cursor()
        self.connection.close()
        for attempt in (
                self.connection.cursor, self.connection.commit, self.connection.rollback,
                self.connection.checkpoint, self.connection.interrupt,
                lambda: self.connection.execute("SHOW TABLES"),
                lambda: self.connection.executemany("SHOW TABLES", []),
                lambda: self.connection.executebatch([]),
                lambda: self.connection.backup(self.directory / "b"),
                lambda: self.connection.in_transaction,
                self.connection.__enter__, cursor.fetchone, cursor.fetchall,
                lambda: cursor.execute("SHOW TABLES")):
            with self.assertRaisesRegex(velmora.ProgrammingError, "^The connection is closed$"):
                attempt()
        self.connection.close()


class Cursors(InDirectory):
    def setUp(self) -> None:
        super().setUp()
        self.connection = self.connect()
        self.cursor = self.connection.cursor()
        self.cursor.execute("CREATE TABLE t id ApexInt n int s string d double b bool")

    def fill(self, count: int) -> None:
        self.cursor.executemany("INSERT INTO t n = ?", [(n,) for n in range(count)])

    def test_nothing_is_known_before_the_first_command(self) -> None:
        cursor = self.connection.cursor()
        self.assertEqual((cursor.description, cursor.rowcount, cursor.lastrowid,
                          cursor.arraysize, cursor.changes_at, cursor.message),
                         (None, -1, None, 1, None, ""))

    def test_a_column_is_described_by_seven_items(self) -> None:
        self.cursor.execute("SELECT id, n, s, d, b FROM t")
        self.assertEqual(self.cursor.description, (
            ("id", "identity", None, None, None, None, None),
            ("n", "integer", None, None, None, None, None),
            ("s", "text", None, None, None, None, None),
            ("d", "real", None, None, None, None, None),
            ("b", "boolean", None, None, None, None, None)))
        self.cursor.execute("SELECT COUNT(*), MAX(s) FROM t")
        self.assertEqual([(name, code) for name, code, *_ in self.cursor.description],
                         [("COUNT(*)", "integer"), ("MAX(s)", "text")])

    def test_what_answers_no_rows_has_no_description(self) -> None:
        self.cursor.execute("SELECT n FROM t")
        self.cursor.execute("INSERT INTO t n = 1")
        self.assertIsNone(self.cursor.description)

    def test_rowcount_is_what_was_changed_or_answered(self) -> None:
        self.fill(3)
        self.assertEqual(self.cursor.rowcount, 3)
        self.assertEqual(self.cursor.execute("UPDATE t SET s = 'x' WHERE n > 0").rowcount, 2)
        self.assertEqual(self.cursor.execute("SELECT n FROM t").rowcount, 3)
        self.assertEqual(self.cursor.execute("DELETE FROM t").rowcount, 3)

    def test_lastrowid_is_the_identity_that_an_insert_gave(self) -> None:
        self.assertEqual(self.cursor.execute("INSERT INTO t n = 5").lastrowid, 1)
        self.assertEqual(self.cursor.execute("INSERT INTO t n = 5").lastrowid, 2)
        self.assertIsNone(self.cursor.execute("SELECT n FROM t").lastrowid)

    def test_fetchone_gives_row_after_row_and_then_none(self) -> None:
        self.fill(2)
        self.cursor.execute("SELECT n FROM t")
        self.assertEqual([self.cursor.fetchone() for _ in range(4)], [(0,), (1,), None, None])

    def test_fetchmany_gives_as_many_as_asked_for_or_arraysize(self) -> None:
        self.fill(10)
        self.cursor.execute("SELECT n FROM t")
        self.assertEqual(self.cursor.fetchmany(), [(0,)])
        self.assertEqual(self.cursor.fetchmany(2), [(1,), (2,)])
        self.assertEqual(self.cursor.fetchmany(size=1), [(3,)])
        self.cursor.arraysize = 4
        self.assertEqual(self.cursor.fetchmany(), [(4,), (5,), (6,), (7,)])
        self.assertEqual(self.cursor.fetchmany(0), [])
        self.assertEqual(self.cursor.fetchmany(5), [(8,), (9,)])
        self.assertEqual(self.cursor.fetchmany(5), [])

    def test_fetchall_gives_the_rest(self) -> None:
        self.fill(300)
        self.cursor.execute("SELECT n FROM t")
        self.cursor.fetchone()
        self.assertEqual(self.cursor.fetchall(), [(n,) for n in range(1, 300)])
        self.assertEqual(self.cursor.fetchall(), [])

    def test_it_is_an_iterator(self) -> None:
        self.fill(3)
        self.cursor.execute("SELECT n FROM t")
        self.assertIs(iter(self.cursor), self.cursor)
        self.assertEqual(next(self.cursor), (0,))
        self.assertEqual([row["n"] for row in self.cursor], [1, 2])
        self.assertRaises(StopIteration, next, self.cursor)

    def test_fetching_where_no_rows_were_answered_is_an_error(self) -> None:
        fresh = self.connection.cursor()
        for cursor in (fresh, self.cursor):
            for attempt in (cursor.fetchone, cursor.fetchmany, cursor.fetchall,
                            cursor.fetch_columns, lambda: next(cursor), lambda: iter(cursor)):
                with self.assertRaisesRegex(
                        velmora.ProgrammingError,
                        "^There are no rows to fetch: no command has answered any$"):
                    attempt()

    def test_a_command_that_fails_leaves_no_rows(self) -> None:
        self.cursor.execute("SELECT n FROM t")
        with self.assertRaises(velmora.CommandSyntaxError):
            self.cursor.execute("SELEC")
        self.assertRaises(velmora.ProgrammingError, self.cursor.fetchall)
        self.assertEqual(self.cursor.rowcount, -1)

    def test_executemany_takes_any_iterable_of_sequences(self) -> None:
        self.cursor.executemany("INSERT INTO t n = ? s = ?", ([n, str(n)] for n in range(3)))
        self.assertEqual(self.cursor.execute("SELECT n, s FROM t").fetchall(),
                         [(0, "0"), (1, "1"), (2, "2")])
        self.cursor.executemany("INSERT INTO t n = ?", [])
        self.assertEqual(self.cursor.rowcount, 0)

    def test_sizes_are_accepted_and_do_nothing(self) -> None:
        self.assertIsNone(self.cursor.setinputsizes((velmora.STRING, 10)))
        self.assertIsNone(self.cursor.setoutputsize(1000))
        self.assertIsNone(self.cursor.setoutputsize(1000, 0))

    def test_a_closed_cursor_is_refused(self) -> None:
        self.cursor.execute("SELECT n FROM t")
        self.cursor.close()
        self.cursor.close()
        for attempt in (self.cursor.fetchone, self.cursor.fetchall, self.cursor.fetchmany,
                        lambda: self.cursor.execute("SELECT n FROM t"),
                        lambda: self.cursor.executemany("INSERT INTO t n = ?", []),
                        lambda: self.cursor.setoutputsize(1)):
            with self.assertRaisesRegex(velmora.ProgrammingError, "^The cursor is closed$"):
                attempt()

    def test_cursors_of_a_connection_see_each_others_changes(self) -> None:
        self.cursor.execute("INSERT INTO t n = 1")
        other = self.connection.cursor()
        self.assertEqual(other.execute("SELECT n FROM t").fetchall(), [(1,)])

    def test_none_of_it_warns(self) -> None:
        with warnings.catch_warnings():
            warnings.simplefilter("error")
            self.connection.execute("SELECT n FROM t").fetchall()


if __name__ == "__main__":
    unittest.main()
