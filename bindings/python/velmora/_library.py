"""libvelmora's guarded C functions: finding the library, calling it, freeing what it hands out.

Knows the C header and ctypes; what the calls mean to a Python program is left to _engine.py.
"""

from __future__ import annotations

import ctypes
import functools
import os
from typing import Any, Callable, Union

ENVIRONMENT_VARIABLE = "VELMORA_LIBRARY"
# With the number of its interface, so that a library of another one is not taken for it.
INSTALLED_NAME = "libvelmora.so.0"

INTEGER, FLOAT, BOOL, TEXT = range(4)

Value = Union[bool, int, float, str]


class Error(Exception):
    """What the engine refused or failed at, in its own words."""


class BoundValue(ctypes.Structure):
    """The header's velmora_value."""

    _fields_ = [
        ("type", ctypes.c_int),
        ("integer", ctypes.c_int64),
        ("real", ctypes.c_double),
        ("boolean", ctypes.c_int),
        ("text", ctypes.c_char_p),
        ("text_size", ctypes.c_size_t),
    ]


def encoded(text: str, what: str) -> bytes:
    """The text in UTF-8, which one with half a surrogate pair does not have."""
    if not isinstance(text, str):
        raise TypeError(f"{what} is of type {type(text).__name__}, not str")
    try:
        return text.encode("utf-8")
    except UnicodeEncodeError:
        raise ValueError(f"{what} has a lone surrogate") from None


def bound_value(value: Value, number: int) -> BoundValue:
    """The value for the placeholder of that number, counted from 1."""
    if isinstance(value, bool):  # before int, whose subclass it is
        return BoundValue(type=BOOL, boolean=value)
    if isinstance(value, int):
        # What is outside 64 bits is outside the engine's 32 as well, and refused as such.
        return BoundValue(type=INTEGER, integer=max(-(2**63), min(value, 2**63 - 1)))
    if isinstance(value, float):
        return BoundValue(type=FLOAT, real=value)
    if isinstance(value, str):
        text = encoded(value, f"Parameter {number}")
        return BoundValue(type=TEXT, text=text, text_size=len(text))
    raise TypeError(
        f"Parameter {number} is of type {type(value).__name__}, not int, float, bool or str")


class Library:
    """The loaded library. Its calls let other Python threads run meanwhile."""

    def __init__(self, path: str) -> None:
        try:
            functions = ctypes.CDLL(path)
            self._start = functions.velmora_start
            self._stop = functions.velmora_stop
            self._query = functions.velmora_query_bound
            self._free = functions.velmora_free
            self._version = functions.velmora_version
        except (OSError, AttributeError) as error:
            raise Error(
                f"libvelmora cannot be loaded ({error}); install it, or set the environment "
                f"variable {ENVIRONMENT_VARIABLE} to its path") from None
        message = ctypes.POINTER(ctypes.c_void_p)
        self._start.argtypes = [message]
        self._start.restype = ctypes.c_int
        self._stop.argtypes = [message]
        self._stop.restype = ctypes.c_int
        self._query.argtypes = [
            ctypes.c_char_p, ctypes.POINTER(BoundValue), ctypes.c_size_t]
        # As an address: c_char_p would be made into bytes, and what is to be freed be lost.
        self._query.restype = ctypes.c_void_p
        self._free.argtypes = [ctypes.c_void_p]
        self._free.restype = None
        self._version.argtypes = []
        self._version.restype = ctypes.c_char_p

    def start(self) -> None:
        """Starts the process's engine in the current directory."""
        self._change(self._start, "The engine cannot be started")

    def stop(self) -> None:
        """Saves everything and stops the process's engine."""
        self._change(self._stop, "The engine cannot be stopped")

    def query(self, command: bytes, values: list[BoundValue]) -> bytes:
        """The answer to a command, as JSON in UTF-8."""
        address = self._query(command, (BoundValue * len(values))(*values), len(values))
        if address is None:
            raise MemoryError("No memory for the engine's answer")
        return self._taken(address)

    def is_started(self) -> bool:
        """Whether the process has a started engine, whoever has started it."""
        return b'"Engine not started."' not in self.query(b"", [])

    def version(self) -> str:
        """The library's version."""
        text: bytes = self._version()
        return text.decode()

    def _change(self, function: Callable[[Any], int], otherwise: str) -> None:
        message = ctypes.c_void_p()
        if function(ctypes.byref(message)) == 0:
            return
        if message.value is None:
            raise Error(otherwise)
        raise Error(self._taken(message.value).decode("utf-8", "replace"))

    def _taken(self, address: int) -> bytes:
        """A copy of a text that the library has handed out, which is freed."""
        try:
            return ctypes.string_at(address)
        finally:
            self._free(address)


@functools.lru_cache(maxsize=None)
def loaded() -> Library:
    """The library, loaded once a process; tried again after a failure."""
    return Library(os.environ.get(ENVIRONMENT_VARIABLE) or INSTALLED_NAME)
