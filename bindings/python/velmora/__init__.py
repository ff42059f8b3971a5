"""velmora, an embedded in-memory relational database with timed values.

    import velmora

    with velmora.open("data") as database:
        database.run("CREATE TABLE lamps name string watts int")
        database.run("INSERT INTO lamps name = ? watts = ?", "north", 40)
        for row in database.run("SELECT * FROM lamps WHERE watts > ?", 10):
            print(row["name"], row["watts"])

A database is a directory. Values are bound to the command's question marks, never pasted into it.
The engine is the library libvelmora, loaded when a database is first opened: the file that the
environment variable VELMORA_LIBRARY names, or else the installed one.
"""

from velmora._database import Database, Result, Statement, library_version
from velmora._errors import (
    BusyError, CommandInterruptedError, CommandSyntaxError, CorruptError, DuplicateError, Error,
    ExistsError, FullError, InternalError, MissingParentError, MisuseError, NotFoundError,
    RangeError, ReadOnlyError, RestrictedError, SystemRefusedError, TransactionError,
    WrongTypeError)
from velmora._library import Value

open = Database  # pylint: disable=redefined-builtin

__all__ = [
    "BusyError", "CommandInterruptedError", "CommandSyntaxError", "CorruptError", "Database",
    "DuplicateError", "Error", "ExistsError", "FullError", "InternalError", "MissingParentError",
    "MisuseError", "NotFoundError", "RangeError", "ReadOnlyError", "RestrictedError", "Result",
    "Statement", "SystemRefusedError", "TransactionError", "Value", "WrongTypeError",
    "library_version", "open"]
