"""A database as a Python object: its life, its commands, statements, transactions and results.

Relies on _library.py for every call of the library.
"""

from __future__ import annotations

import contextlib
import dataclasses
import logging
import os
import threading
import weakref
from ctypes import c_void_p, sizeof, string_at
from types import TracebackType
from typing import Any, Callable, Iterable, Iterator, Sequence

from velmora import _library
from velmora._errors import Error, MisuseError
from velmora._library import Library, Value

_READ_ONLY, _CREATE, _EXCLUSIVE, _REPAIR = 1, 2, 4, 8
_DURABILITIES = ("always", "everysec", "off")
_LEVELS = (logging.INFO, logging.WARNING, logging.ERROR)


def library_version() -> str:
    """The version of libvelmora, such as "0.1.0"."""
    version: bytes = _library.loaded().version()
    return version.decode()


@dataclasses.dataclass(frozen=True)
class Result:
    """What a command answered; going through it goes through its rows.

    A row is a dict from each column, named as in the command, to None, an int, a float, a bool or a
    str. A column that was asked for twice is there once.
    """

    rows: list[dict[str, Value]]
    """The rows that were read, in their order; empty for a command that reads none."""
    columns: list[str]
    affected: int
    """The number of rows found, inserted, changed or removed."""
    message: str
    """What the engine has to say, often nothing."""
    identity: int | None
    """The identity number that an INSERT gave the row."""
    next_change: int | None
    """The second, since 1970, at which this answer becomes another by time alone; None: never.
    Up to then, and as long as nobody changes the tables, it may be kept and shown."""

    def __iter__(self) -> Iterator[dict[str, Value]]:
        return iter(self.rows)


class Database:
    """A database, open from its making until close or the end of a with statement:

        with velmora.open("data") as database:
            database.run("SELECT * FROM lamps")

    Threads may share it. One that is forgotten is closed when Python frees it, or at the latest
    when the interpreter ends. After a fork, only the process that has opened it may use it.
    """

    def __init__(self, path: str | os.PathLike[str], *, read_only: bool = False,
                 create: bool = True, exclusive: bool = False, repair: bool = False,
                 durability: str = "always", open_wait_milliseconds: int = 0,
                 transaction_wait_milliseconds: int = 0,
                 log: Callable[[int, str], object] | None = None,
                 clock: Callable[[], int] | None = None) -> None:
        """Opens the database of a directory, which is made if need be.

        read_only: nothing on the disk is changed. create: whether the directory and an empty
        database may be made; exclusive: they must be. repair: opens what is damaged, as far as that
        can be, and tells log what is lost. durability: "always", "everysec" or "off", as in
        velmora.h. open_wait_milliseconds: how long to wait for a directory that is in use.
        transaction_wait_milliseconds: how long a command waits for another thread's transaction;
        0 stands for 5000. log: called with a level of the module logging and a text, by any
        thread. clock: gives the second that it is, since 1970, instead of the system's clock.
        Neither may use the database.

        Raises BusyError, NotFoundError, ExistsError, CorruptError and others.
        """
        options = _library.Options(
            size=sizeof(_library.Options),
            flags=(_READ_ONLY * read_only + _CREATE * (create and not read_only)
                   + _EXCLUSIVE * exclusive + _REPAIR * repair),
            durability=_DURABILITIES.index(durability),
            open_wait_milliseconds=open_wait_milliseconds,
            transaction_wait_milliseconds=transaction_wait_milliseconds)
        if log is not None:
            options.log = _library.LogCallback(
                lambda _, level, text, length: log(
                    _LEVELS[level], string_at(text, length).decode("utf-8", "replace")))
        if clock is not None:
            options.clock = _library.ClockCallback(lambda _: clock())
        directory = os.fsencode(path)
        self._library = _library.loaded()
        self._handle: c_void_p | None = self._library.made(
            self._library.open, directory, len(directory), options)
        self._process = os.getpid()
        self._lock = threading.Lock()  # held over what follows
        self._calls = 0
        self._statements = _Statements()
        # The options are handed over to keep their callbacks alive.
        self._closing = weakref.finalize(
            self, _close, self._library, self._handle, self._statements, self._process, options)

    def __enter__(self) -> Database:
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None,
                 traceback: TracebackType | None) -> None:
        self.close()

    def close(self) -> None:
        """Saves everything and lets the directory go. Closing a closed database does nothing.

        Its statements cannot be run any more. An open transaction is rolled back. What cannot be
        saved is told to log, and not lost: the next opening finds it. Raises MisuseError while a
        call with it is under way.
        """
        self._require_own_process()
        with self._lock:
            if self._calls > 0:
                raise MisuseError("A call with the database is under way")
            self._handle = None
        self._closing()

    def run(self, text: str, *values: Value) -> Result:
        """Runs one command, each "?" outside its literals standing for the value of its place.

            database.run("UPDATE lamps SET watts = ? WHERE name = ?", 60, name)

        Values are None, or of type int, float, bool or str; texts from outside belong into values,
        never into the command.

        Raises an Error when the command failed, which has changed nothing then. A value of another
        type raises TypeError; a text that has no UTF-8 ValueError.
        """
        command = _library.encoded(text, "Command")
        bound = _library.bound_values(values)
        with self._call() as handle:
            return _taken(self._library, self._library.made(
                self._library.run, handle, command, len(command), bound, len(bound)))

    def prepare(self, text: str) -> Statement:
        """Parses a command that is to be run often."""
        command = _library.encoded(text, "Command")
        with self._call() as handle:
            return Statement(self, self._library.made(
                self._library.prepare, handle, command, len(command)))

    @contextlib.contextmanager
    def transaction(self) -> Iterator[None]:
        """A scope whose commands are run all or not at all.

            with database.transaction():
                database.run("DELETE FROM lamps WHERE name = ?", name)

        An exception that leaves it rolls back what this thread has changed in it. Commands of other
        threads wait meanwhile.
        """
        self.run("BEGIN")
        try:
            yield
        except BaseException:
            with contextlib.suppress(Error):  # the scope may have ended it itself
                self.run("ROLLBACK")
            raise
        self.run("COMMIT")

    def checkpoint(self) -> None:
        """Writes all that has changed to the table files and empties the log."""
        with self._call() as handle:
            self._library.call(self._library.checkpoint, handle)

    def backup(self, path: str | os.PathLike[str]) -> None:
        """Copies the database, as it is at one moment, into a directory that is empty or new."""
        directory = os.fsencode(path)
        with self._call() as handle:
            self._library.call(self._library.backup, handle, directory, len(directory))

    def interrupt(self) -> None:
        """Has every command that is running or waiting raise CommandInterruptedError."""
        with self._call() as handle:
            self._library.interrupt(handle)

    @contextlib.contextmanager
    def _call(self) -> Iterator[c_void_p]:
        """The handle, which is not closed meanwhile."""
        self._require_own_process()
        with self._lock:
            handle = self._handle
            if handle is None:
                raise MisuseError("The database is closed")
            self._calls += 1
        try:
            yield handle
        finally:
            with self._lock:
                self._calls -= 1

    def _require_own_process(self) -> None:
        if os.getpid() != self._process:
            raise MisuseError("The database belongs to the process that has opened it")


class Statement:
    """A command that is parsed once and run often; Database.prepare makes it.

    Threads take turns.
    """

    def __init__(self, database: Database, handle: c_void_p) -> None:
        self._database = database
        self._library = database._library
        self._handle = handle
        self._lock = threading.Lock()
        self._parameters: int = self._library.statement_parameters(handle)
        assert handle.value is not None
        database._statements.living.add(handle.value)
        weakref.finalize(self, _destroy, self._library, handle.value, database._statements,
                         database._process)

    def run(self, *values: Value) -> Result:
        """Runs the command with these values; as Database.run."""
        self._require_count(values)
        bound = _library.bound_values(values)
        with self._lock, self._database._call():
            for number, value in enumerate(bound, start=1):
                self._library.call(self._library.bind, self._handle, number, value)
            return _taken(self._library, self._library.made(
                self._library.statement_run, self._handle))

    def run_many(self, rows: Iterable[Sequence[Value]]) -> Result:
        """Runs a command that changes something once for each row of values: for all or for none.

        The result is that of the last run, with the rows affected by all.
        """
        every = list(rows)
        for values in every:
            self._require_count(values)
        bound = _library.bound_values(*every)
        with self._lock, self._database._call():
            return _taken(self._library, self._library.made(
                self._library.statement_run_many, self._handle, bound, len(every)))

    def _require_count(self, values: Sequence[Value]) -> None:
        if len(values) != self._parameters:
            raise MisuseError(f"The command has places for {self._parameters} values, "
                              f"not {len(values)}")


def _taken(library: Library, result: c_void_p) -> Result:
    """What the library's result holds; that is destroyed."""
    try:
        columns = library.column_names(result)
        rows = [{name: library.cell(result, row, column) for column, name in enumerate(columns)}
                for row in range(library.result_rows(result))]
        return Result(
            rows, columns, library.result_rows_affected(result), library.message(result),
            _library.number_of(library.result_identity, result),
            _library.number_of(library.result_next_change, result))
    finally:
        library.result_destroy(result)


class _Statements:
    """Those of a database that live, by their addresses, and the lock under which they end."""

    def __init__(self) -> None:
        self.living: set[int] = set()
        self.lock = threading.RLock()  # to end one may have Python free another


def _close(library: Library, handle: c_void_p, statements: _Statements, process: int,
           _: Any) -> None:
    # What fails at this is told to the log callback.
    if os.getpid() == process:
        with statements.lock:
            while statements.living:
                library.statement_destroy(statements.living.pop())
        library.close(handle, None)


def _destroy(library: Library, statement: int, statements: _Statements, process: int) -> None:
    # Unless its database, closed before, has destroyed it.
    if os.getpid() == process:
        with statements.lock:
            if statement in statements.living:
                statements.living.remove(statement)
                library.statement_destroy(statement)
