"""What can go wrong, a class for each number of the header's velmora_code."""

from __future__ import annotations

from typing import Optional


class Error(Exception):
    """What the engine refused or failed at, in its own words. Nothing has been changed."""

    code = 0
    """The number in velmora.h; 0: the library could not be asked."""
    offset: Optional[int] = None
    """Where in the command the word stands that is to blame, in bytes of its UTF-8."""
    table: Optional[str] = None
    column: Optional[str] = None
    system_error: Optional[int] = None
    """The system's errno."""
    process: Optional[int] = None
    """Of a BusyError the id of the process that holds the directory."""


class MisuseError(Error):
    """A call that is ruled out, such as one with a closed database."""


class BusyError(Error):
    """The directory is in use, or another thread's transaction lasts."""


class ReadOnlyError(Error):
    """A change of a database that was opened to be read."""


class NotFoundError(Error):
    """An unknown table, column, prefix, link, listener or database."""


class ExistsError(Error):
    """What is to be created is there."""


class DuplicateError(Error):
    """A key that another row has."""


class MissingParentError(Error):
    """A link without its parent row."""


class RestrictedError(Error):
    """A change that would leave rows without their parents."""


class WrongTypeError(Error):
    """A value of another type than its column's."""


class RangeError(Error):
    """A value that does not fit."""


class CommandSyntaxError(Error):
    """A command that is none."""


class FullError(Error):
    """No room left: the disk, the identity numbers."""


class CorruptError(Error):
    """Files that are not what was written."""


class SystemRefusedError(Error):
    """A file that the system did not read or write."""


class CommandInterruptedError(Error):
    """A command ended by Database.interrupt."""


class TransactionError(Error):
    """A transaction is open that must not be, or none is."""


class InternalError(Error):
    """A fault of the engine's own."""


NO_MEMORY = 15  # a MemoryError
BY_CODE = {
    1: MisuseError, 2: BusyError, 3: ReadOnlyError, 4: NotFoundError, 5: ExistsError,
    6: DuplicateError, 7: MissingParentError, 8: RestrictedError, 9: WrongTypeError,
    10: RangeError, 11: CommandSyntaxError, 12: FullError, 13: CorruptError,
    14: SystemRefusedError, 16: CommandInterruptedError, 17: TransactionError, 19: InternalError,
}
for _code, _class in BY_CODE.items():
    _class.code = _code
