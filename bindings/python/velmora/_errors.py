"""What can go wrong: the exceptions of PEP 249, and below them one for each code of the engine."""

from __future__ import annotations

import builtins


class Warning(builtins.Warning):  # pylint: disable=redefined-builtin
    """Never raised; PEP 249 asks for it."""


class Error(Exception):
    """What the engine refused or failed at, in its own words. The command has changed nothing."""

    code = 0
    """The number in velmora.h; 0: the package's own."""
    offset: int | None = None
    """Where in the command the word stands that is to blame, in bytes of its UTF-8."""
    table: str | None = None
    column: str | None = None
    system: int | None = None
    """The system's errno."""
    process: int | None = None
    """Of a BusyError the id of the process that holds the directory."""


class InterfaceError(Error):
    """Never raised; PEP 249 asks for it."""


class DatabaseError(Error):
    """Whatever fails."""


class DataError(DatabaseError):
    """A value is to blame."""


class OperationalError(DatabaseError):
    """The state of the database or of the machine is to blame."""


class IntegrityError(DatabaseError):
    """A key or a link would not hold."""


class InternalError(DatabaseError):
    """A fault of the engine's own."""


class ProgrammingError(DatabaseError):
    """The program is to blame."""


class NotSupportedError(DatabaseError):
    """There is no such thing here, such as a binary value."""


class MisuseError(ProgrammingError):
    """A call that is ruled out, such as one with a closed connection."""


class BusyError(OperationalError):
    """The directory is in use, or another transaction lasts."""


class ReadOnlyError(OperationalError):
    """A change of a database that was opened to be read."""


class NotFoundError(ProgrammingError):
    """An unknown table, column, prefix, link, listener or database."""


class ExistsError(ProgrammingError):
    """What is to be created is there."""


class DuplicateError(IntegrityError):
    """A key that another row has."""


class MissingParentError(IntegrityError):
    """A link without its parent row."""


class RestrictedError(IntegrityError):
    """A change that would leave rows without their parents."""


class WrongTypeError(DataError):
    """A value of another type than its column's."""


class RangeError(DataError):
    """A value that does not fit."""


class CommandSyntaxError(ProgrammingError):
    """A command that is none."""


class FullError(OperationalError):
    """No room left: the disk, the identity numbers."""


class CorruptError(OperationalError):
    """Files that are not what was written."""


class SystemRefusedError(OperationalError):
    """A file that the system did not read or write."""


class CommandInterruptedError(OperationalError):
    """A command ended by Connection.interrupt, or what a progress callback has stopped."""


class TransactionError(ProgrammingError):
    """A transaction is open that must not be, or none is."""


# 15, no memory, is a MemoryError.
BY_CODE: dict[int, type[Error]] = {
    0: NotSupportedError, 1: MisuseError, 2: BusyError, 3: ReadOnlyError, 4: NotFoundError,
    5: ExistsError, 6: DuplicateError, 7: MissingParentError, 8: RestrictedError,
    9: WrongTypeError, 10: RangeError, 11: CommandSyntaxError, 12: FullError, 13: CorruptError,
    14: SystemRefusedError, 16: CommandInterruptedError, 17: TransactionError,
    18: InternalError, 19: InternalError,
}
for _code, _class in BY_CODE.items():
    _class.code = _code
