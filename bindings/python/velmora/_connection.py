"""Connections: how one is made, and how those to the same directory share its database.

A directory can be open once, so the process has one database for all its connections there, and
closes that with the last of them.
"""

from __future__ import annotations

import atexit
import contextlib
import math
import os
import threading
import weakref
from collections.abc import Sequence
from types import TracebackType
from typing import Any, Callable

from velmora import _errors, _velmora
from velmora._types import Fault

_READ_ONLY, _CREATE, _EXCLUSIVE, _REPAIR = 1, 2, 4, 8
_DURABILITIES = ("always", "everysec", "off")
_NO_LIMIT = 2**32 - 1

Sequence.register(_velmora.Row)
Sequence.register(_velmora.Column)


def connect(path: str | bytes | os.PathLike[str], *, autocommit: bool = False,
            read_only: bool = False, create: bool = True, exclusive: bool = False,
            repair: bool = False, durability: str = "always", timeout: float | None = 5.0,
            open_timeout: float = 0.0, cached_statements: int = 128,
            log: Callable[[int, str], object] | None = None,
            progress: Callable[[str, int, int], object] | None = None,
            clock: Callable[[], int] | None = None) -> Connection:
    """Connects to the database of a directory, which is made if need be.

    autocommit: every command is a transaction of its own. read_only: nothing on the disk is
    changed. create: whether the directory and an empty database may be made; exclusive: they must
    be. repair: opens what is damaged, as far as that can be, and tells log what is lost.
    durability: "always" (a power cut loses nothing), "everysec" (at most the last second), or "off"
    (the end of the process loses nothing). timeout: how many seconds a command waits for another
    thread's transaction; None: without limit. open_timeout: how many to wait for a directory that
    another process uses. cached_statements: how many commands are kept parsed.

    log: called with a level of the module logging and a text. progress: called with what ("load",
    "replay", "checkpoint" or "backup"), how much is done and how much there is while that takes
    long; what is true, or raises, stops it with CommandInterruptedError. clock: gives the second
    that it is, since 1970, instead of the system's clock. They are called by any thread, and must
    not use the database, but for interrupt().

    Where the process has the database open already, its options have to be the same: MisuseError.
    Raises BusyError, NotFoundError, ExistsError, CorruptError and others.
    """
    directory = os.fsencode(path)
    if directory:
        directory = os.path.realpath(directory)
    options = {"read_only": bool(read_only), "durability": durability, "timeout": timeout,
               "log": log, "progress": progress, "clock": clock}
    flags = (_READ_ONLY * bool(read_only) + _CREATE * bool(create and not read_only)
             + _EXCLUSIVE * bool(exclusive) + _REPAIR * bool(repair))

    def open_database() -> _velmora.Database:
        return _velmora.Database(
            directory, flags, _durability_number(durability), _milliseconds(open_timeout),
            _NO_LIMIT if timeout is None else max(1, _milliseconds(timeout)), log, progress, clock)

    shared = _databases.setdefault(directory, _Shared())
    with shared.lock:
        # Counted first, so that no forgotten connection that is freed meanwhile closes it.
        shared.users += 1
        try:
            shared.require(options, exclusive)
            if shared.database is None:
                shared.database, shared.options = open_database(), options
            connection = Connection(shared.database, autocommit, cached_statements)
        except BaseException:
            shared.leave()
            raise
        connection._shared = shared  # pylint: disable=protected-access
    _connections.add(connection)
    return connection


def check(path: str | bytes | os.PathLike[str]) -> list[Fault]:
    """Reads the database of a directory that nobody has open, and tells every fault in it."""
    return [Fault(*fault) for fault in _velmora.check(os.fsencode(path))]


class Connection(_velmora.Connection):
    """A connection to a database, made by velmora.connect.

    Threads may share it: each has its own transaction, and one waits for the other's. What a
    connection that is freed has not committed is rolled back.
    """

    Warning = _errors.Warning
    Error = _errors.Error
    InterfaceError = _errors.InterfaceError
    DatabaseError = _errors.DatabaseError
    DataError = _errors.DataError
    OperationalError = _errors.OperationalError
    IntegrityError = _errors.IntegrityError
    InternalError = _errors.InternalError
    ProgrammingError = _errors.ProgrammingError
    NotSupportedError = _errors.NotSupportedError

    _shared: _Shared

    def __enter__(self) -> Connection:
        """Begins what is committed at the end of the with statement, or rolled back if an exception
        leaves it. The connection stays open."""
        if self.autocommit:
            self.execute("BEGIN")
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None,
                 traceback: TracebackType | None) -> None:
        if not self.in_transaction:  # nothing was changed, or the block has ended it itself
            return
        if kind is not None:
            self.rollback()
            return
        try:
            self.commit()
        except BaseException:
            if self.in_transaction:
                self.rollback()
            raise

    def backup(self, path: str | bytes | os.PathLike[str]) -> None:
        """Copies the database, as it is at one moment, into a directory that is empty or new."""
        self._backup(os.fsencode(path))

    def close(self) -> None:
        """Rolls an open transaction back, and lets the database go; the last connection closes it,
        which saves everything. Closing a closed connection does nothing."""
        with self._shared.lock:
            if self._leave(self._shared.users == 1):
                self._shared.leave()

    def __del__(self) -> None:
        with contextlib.suppress(Exception):
            self.close()


class _Shared:
    """A directory, with the database that is open there, if one is, and how many connections it
    has."""

    def __init__(self) -> None:
        self.lock = threading.RLock()  # over the rest, and while it is opened and closed
        self.users = 0
        self.database: _velmora.Database | None = None
        self.options: dict[str, Any] = {}

    def require(self, options: dict[str, Any], exclusive: bool) -> None:
        """Raises where the database is open otherwise than it is to be."""
        if self.database is None:
            return
        if exclusive:
            raise _errors.ExistsError("The database is open in this process")
        for name, value in self.options.items():
            if value != options[name]:
                raise _errors.MisuseError(
                    f"The database is open in this process with {name}={value!r}, "
                    f"not {options[name]!r}")

    def leave(self) -> None:
        self.users -= 1
        if self.users == 0 and self.database is not None:
            database, self.database = self.database, None
            database.close()


def _durability_number(name: str) -> int:
    if name not in _DURABILITIES:
        raise ValueError(f"durability is one of {_DURABILITIES}, not {name!r}")
    return _DURABILITIES.index(name)


def _milliseconds(seconds: float) -> int:
    if not seconds >= 0:
        raise ValueError(f"{seconds!r} is no number of seconds to wait")
    return int(min(math.ceil(min(seconds, _NO_LIMIT) * 1000), _NO_LIMIT - 1))


# What connections keep, so that one whose own callbacks refer to it can be freed.
_databases: weakref.WeakValueDictionary[bytes, _Shared] = weakref.WeakValueDictionary()
_connections: weakref.WeakSet[Connection] = weakref.WeakSet()


def _close_all() -> None:
    for connection in list(_connections):
        with contextlib.suppress(Exception):  # such as a call that a daemon thread is in
            connection.close()


def _forget_all() -> None:
    for shared in list(_databases.values()):
        shared.lock = threading.RLock()  # which another thread of the parent may have held
    _databases.clear()


atexit.register(_close_all)
# A child opens its own databases, and leaves its parent's alone.
os.register_at_fork(after_in_child=_forget_all)
