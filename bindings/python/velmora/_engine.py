"""The engine as a Python object: its life, its commands, their answers.

Relies on _library.py for every call of the library.
"""

from __future__ import annotations

import contextlib
import dataclasses
import json
import os
import threading
import weakref
from types import TracebackType
from typing import Any, Iterator

from velmora import _library
from velmora._library import Error, Value

# Held from the question whether an engine is started to its start, and while the process's current
# directory is another one.
_start_lock = threading.Lock()


def library_version() -> str:
    """The version of libvelmora, such as "0.1.0"."""
    return _library.loaded().version()


@dataclasses.dataclass(frozen=True)
class Answer:
    """What a command answered; going through it goes through its rows.

    A row is a dict from each column, named as in the command, to None, an int, a float, a bool or a
    str. A float without a fraction comes as an int. A column that was asked for twice is there
    once.
    """

    rows: list[dict[str, Any]]
    """The rows that a SELECT found, in their order; empty for other commands."""
    affected: int
    """The number of rows found, inserted, changed or removed."""
    message: str
    """What the engine has to say, such as "success!"; empty for a SELECT."""

    def __iter__(self) -> Iterator[dict[str, Any]]:
        return iter(self.rows)


class Engine:
    """The process's engine, in a directory that must exist: the current one if none is given.

    A with statement starts it and, at its end, saves everything and stops it:

        with velmora.Engine("data") as engine:
            engine.query("SELECT * FROM lamps")

    There is one engine a process. While one is started, starting another raises Error, in whatever
    thread; the one that is started may be used from all of them, and runs one command at a time.
    An Engine that is forgotten without having been stopped is stopped when Python frees it, or at
    the latest when the interpreter ends. After a fork, only the process that has started it may
    use it.
    """

    def __init__(self, directory: str | os.PathLike[str] | None = None) -> None:
        """Names the directory; nothing is started yet."""
        self._directory = directory
        self._library: _library.Library | None = None  # while started
        self._process = 0
        self._forgotten: weakref.finalize[..., Engine] | None = None

    def __enter__(self) -> Engine:
        self.start()
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None,
                 traceback: TracebackType | None) -> None:
        self.stop()

    def start(self) -> None:
        """Loads the directory's tables.

        The engine starts in the process's current directory. For another one, that is changed for
        the time of the start, which other threads of the process can notice.

        Raises Error when the process has a started engine, when another process uses the
        directory, when its files cannot be loaded, or when there is no library; OSError when the
        directory cannot be entered.
        """
        library = _library.loaded()
        with _start_lock:
            if library.is_started():
                raise Error("The process has a started engine already")
            with _working_directory(self._directory):
                library.start()
            self._library = library
            self._process = os.getpid()
            self._forgotten = weakref.finalize(self, _stop_forgotten, library, self._process)

    def stop(self) -> None:
        """Saves everything and stops. Stopping an engine that is not started does nothing.

        Raises Error when saving failed. Nothing is lost then, and the engine stays started.
        """
        if self._library is None:
            return
        self._require_own_process()
        self._library.stop()
        self._library = None
        if self._forgotten is not None:
            self._forgotten.detach()

    def query(self, text: str, *values: Value) -> Answer:
        """Runs one command, each "?" outside its literals replaced by the value of its place.

            engine.query("UPDATE lamps SET watts = ? WHERE name = ?", 60, name)

        Values are of type int, float, bool or str; texts from outside belong into values, never
        into the command.

        Raises Error with the engine's message when the command failed. A value that no command can
        carry is refused with "Error: Parameter N ..." and nothing is run: a text with both kinds of
        quotes, with a NUL or with a clock marker and digits, an integer outside 32 bits, a float
        that is not finite or that the engine could not read back, a float for an int column that
        is no whole number of 32 bits. A value of another type raises TypeError; a text that has no
        UTF-8, or a NUL in the command, ValueError.
        """
        library = self._library
        if library is None:
            raise Error("The engine is not started")
        self._require_own_process()
        command = _library.encoded(text, "Command")
        if b"\0" in command:
            raise ValueError("Command has a NUL")
        bound = [_library.bound_value(value, i) for i, value in enumerate(values, start=1)]
        answer = json.loads(library.query(command, bound))
        if not answer["success"]:
            raise Error(answer["message"])
        return Answer(answer.get("data", []), answer["rows_affected"], answer["message"])

    def _require_own_process(self) -> None:
        if os.getpid() != self._process:
            raise Error("The engine belongs to the process that has started it")


def _stop_forgotten(library: _library.Library, process: int) -> None:
    # A failure to save loses nothing, and nobody is there to hear of it.
    if os.getpid() == process:
        with contextlib.suppress(Error):
            library.stop()


@contextlib.contextmanager
def _working_directory(directory: str | os.PathLike[str] | None) -> Iterator[None]:
    if directory is None:
        yield
        return
    # By its descriptor, which finds the way back also when its path no longer does.
    before = os.open(".", os.O_RDONLY | os.O_DIRECTORY)
    try:
        os.chdir(directory)
        try:
            yield
        finally:
            os.fchdir(before)
    finally:
        os.close(before)
