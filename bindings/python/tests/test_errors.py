"""What failures say: their classes and their fields."""

from __future__ import annotations

import unittest

import velmora
from support import WithConnection


class Errors(WithConnection):
    def test_an_error_says_where_and_of_what(self) -> None:
        self.run_command("CREATE TABLE t n int")
        error = self.assert_fails(
            velmora.NotFoundError, "Unknown column 'm'", "SELECT n FROM t WHERE m = 1")
        self.assertEqual((error.code, error.offset, error.table, error.column), (4, 22, "t", "m"))
        self.assertEqual((error.system, error.process), (None, None))

    def test_a_place_is_counted_in_bytes(self) -> None:
        self.run_command("CREATE TABLE t s string")
        error = self.assert_fails(velmora.NotFoundError, "Unknown column 'm'",
                                  "SELECT s FROM t WHERE s = 'Zoë' && m = 1")
        self.assertEqual(error.offset, 36)

    def test_each_failure_has_its_class(self) -> None:
        self.run_command("CREATE TABLE parents name string")
        self.run_command("CREATE TABLE children parent string n int")
        self.run_command("LINK children.parent --> parents.name")
        self.run_command("INSERT INTO parents name = 'Ada'")
        self.run_command("INSERT INTO children parent = 'Ada'")
        for kind, general, code, command in (
                (velmora.CommandSyntaxError, velmora.ProgrammingError, 11,
                 "SELECT name FROM parents WHERE"),
                (velmora.NotFoundError, velmora.ProgrammingError, 4, "SELECT a FROM b"),
                (velmora.ExistsError, velmora.ProgrammingError, 5, "CREATE TABLE parents n int"),
                (velmora.TransactionError, velmora.ProgrammingError, 17, "COMMIT"),
                (velmora.WrongTypeError, velmora.DataError, 9, "INSERT INTO children n = 'a'"),
                (velmora.RangeError, velmora.DataError, 10,
                 "INSERT INTO children n = 2147483648"),
                (velmora.DuplicateError, velmora.IntegrityError, 6,
                 "INSERT INTO parents name = 'Ada'"),
                (velmora.MissingParentError, velmora.IntegrityError, 7,
                 "INSERT INTO children parent = 'Bob'"),
                (velmora.RestrictedError, velmora.IntegrityError, 8, "DELETE FROM parents")):
            with self.subTest(command=command), self.assertRaises(general) as raised:
                self.run_command(command)
            self.assertIs(type(raised.exception), kind)
            self.assertEqual((raised.exception.code, kind.code), (code, code))

    def test_classes_stand_where_a_program_looks_for_them(self) -> None:
        for kind, general in (
                (velmora.BusyError, velmora.OperationalError),
                (velmora.CommandInterruptedError, velmora.OperationalError),
                (velmora.CorruptError, velmora.OperationalError),
                (velmora.FullError, velmora.OperationalError),
                (velmora.ReadOnlyError, velmora.OperationalError),
                (velmora.SystemRefusedError, velmora.OperationalError),
                (velmora.MisuseError, velmora.ProgrammingError)):
            self.assertTrue(issubclass(kind, general))

    def test_what_the_system_refuses_has_its_number(self) -> None:
        self.run_command("CREATE TABLE t n int")
        with self.assertRaises(velmora.SystemRefusedError) as raised:
            self.connection.backup("/proc/velmora/backup")
        self.assertEqual(raised.exception.system, 2)

    def test_a_cursor_that_failed_can_be_used_again(self) -> None:
        cursor = self.connection.cursor()
        self.assertRaises(velmora.Error, cursor.execute, "SELEC")
        self.assertEqual(cursor.execute("SHOW TABLES").fetchall(), [])


if __name__ == "__main__":
    unittest.main()
