"""velmora, an embedded in-memory relational database with timed values, after PEP 249.

    import velmora

    connection = velmora.connect("data")
    with connection:
        connection.execute("CREATE TABLE lamps name string colour string 2")
        connection.execute("INSERT INTO lamps name = ? colour = ? --> ? @ ? s",
                           ("north", "red", "green", 30))
    for row in connection.execute("SELECT name, colour FROM lamps"):
        print(row["name"], "is", row["colour"], "until", row.changes_at)
    connection.close()

A database is a directory. Values are bound to the command's question marks, never pasted into it.
The engine is in the package.
"""

from velmora._connection import Connection, check, connect
from velmora._errors import (
    BusyError, CommandInterruptedError, CommandSyntaxError, CorruptError, DatabaseError, DataError,
    DuplicateError, Error, ExistsError, FullError, IntegrityError, InterfaceError, InternalError,
    MissingParentError, MisuseError, NotFoundError, NotSupportedError, OperationalError,
    ProgrammingError, RangeError, ReadOnlyError, RestrictedError, SystemRefusedError,
    TransactionError, Warning, WrongTypeError)
from velmora._types import (
    BINARY, DATETIME, NUMBER, ROWID, STRING, Binary, Date, DateFromTicks, Fault, Time,
    TimeFromTicks, Timed, Timestamp, TimestampFromTicks)
from velmora._velmora import Column, Cursor, Row
from velmora._velmora import version as __version__

apilevel = "2.0"
threadsafety = 2
paramstyle = "qmark"

__all__ = [
    "BINARY", "Binary", "BusyError", "Column", "CommandInterruptedError", "CommandSyntaxError",
    "Connection", "CorruptError", "Cursor", "DATETIME", "DataError", "DatabaseError", "Date",
    "DateFromTicks", "DuplicateError", "Error", "ExistsError", "Fault", "FullError",
    "IntegrityError", "InterfaceError", "InternalError", "MissingParentError", "MisuseError",
    "NUMBER", "NotFoundError", "NotSupportedError", "OperationalError", "ProgrammingError", "ROWID",
    "RangeError", "ReadOnlyError", "RestrictedError", "Row", "STRING", "SystemRefusedError", "Time",
    "TimeFromTicks", "Timed", "Timestamp", "TimestampFromTicks", "TransactionError", "Warning",
    "WrongTypeError", "apilevel", "check", "connect", "paramstyle", "threadsafety"]
