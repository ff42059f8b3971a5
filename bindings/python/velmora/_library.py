"""libvelmora's functions: finding them, and how texts, values, errors and results pass.

Knows the C header and ctypes; what the calls mean to a Python program is left to _database.py.
"""

from __future__ import annotations

import ctypes
import functools
import os
from ctypes import POINTER, c_char_p, c_double, c_int, c_int64, c_size_t, c_uint32, c_void_p
from typing import Any, Callable, Iterable, Union

from velmora import _errors
from velmora._errors import Error

ENVIRONMENT_VARIABLE = "VELMORA_LIBRARY"
# With the number of its interface, so that a library of another one is not taken for it.
INSTALLED_NAME = "libvelmora.so.0"

NULL, INTEGER, REAL, BOOLEAN, TEXT = range(5)

Value = Union[None, bool, int, float, str]


class BoundValue(ctypes.Structure):
    """The header's velmora_value."""

    _fields_ = [
        ("type", c_int),
        ("integer", c_int64),
        ("real", c_double),
        ("boolean", c_int),
        ("text", c_char_p),
        ("text_size", c_size_t),
    ]


LogCallback = ctypes.CFUNCTYPE(None, c_void_p, c_int, c_void_p, c_size_t)
ClockCallback = ctypes.CFUNCTYPE(c_int64, c_void_p)


class Options(ctypes.Structure):
    """The header's velmora_options."""

    _fields_ = [
        ("size", c_uint32),
        ("flags", c_uint32),
        ("durability", c_uint32),
        ("open_wait_milliseconds", c_uint32),
        ("transaction_wait_milliseconds", c_uint32),
        ("context", c_void_p),
        ("log", LogCallback),
        ("progress", c_void_p),
        ("clock", ClockCallback),
    ]


_OUT = POINTER(c_void_p)
_LENGTH = POINTER(c_size_t)
_VALUES = POINTER(BoundValue)
_CELL = [c_void_p, c_size_t, c_size_t]

# What each function gives and takes. Handles are addresses; so are texts that come with a length.
_FUNCTIONS: dict[str, tuple[Any, list[Any]]] = {
    "open": (c_int, [c_char_p, c_size_t, POINTER(Options), _OUT, _OUT]),
    "close": (c_int, [c_void_p, _OUT]),
    "run": (c_int, [c_void_p, c_char_p, c_size_t, _VALUES, c_size_t, _OUT, _OUT]),
    "checkpoint": (c_int, [c_void_p, _OUT]),
    "backup": (c_int, [c_void_p, c_char_p, c_size_t, _OUT]),
    "interrupt": (None, [c_void_p]),
    "prepare": (c_int, [c_void_p, c_char_p, c_size_t, _OUT, _OUT]),
    "statement_parameters": (c_size_t, [c_void_p]),
    "bind": (c_int, [c_void_p, c_size_t, _VALUES, _OUT]),
    "statement_run": (c_int, [c_void_p, _OUT, _OUT]),
    "statement_run_many": (c_int, [c_void_p, _VALUES, c_size_t, _OUT, _OUT]),
    "statement_destroy": (None, [c_void_p]),
    "error_text": (c_char_p, [c_void_p]),
    "error_offset": (c_int64, [c_void_p]),
    "error_table": (c_char_p, [c_void_p]),
    "error_column": (c_char_p, [c_void_p]),
    "error_system": (c_int, [c_void_p]),
    "error_process": (c_int64, [c_void_p]),
    "error_destroy": (None, [c_void_p]),
    "result_columns": (c_size_t, [c_void_p]),
    "result_rows": (c_size_t, [c_void_p]),
    "result_column_name": (c_char_p, [c_void_p, c_size_t, _LENGTH]),
    "result_type": (c_int, _CELL),
    "result_integer": (c_int64, _CELL),
    "result_real": (c_double, _CELL),
    "result_boolean": (c_int, _CELL),
    "result_text": (c_void_p, [*_CELL, _LENGTH]),
    "result_rows_affected": (c_int64, [c_void_p]),
    "result_message": (c_char_p, [c_void_p, _LENGTH]),
    "result_identity": (c_int, [c_void_p, POINTER(c_int64)]),
    "result_next_change": (c_int, [c_void_p, POINTER(c_int64)]),
    "result_destroy": (None, [c_void_p]),
    "version": (c_char_p, []),
}


class Library:
    """The loaded library, its functions as attributes without their velmora_.

    Calls let other Python threads run meanwhile.
    """

    def __init__(self, path: str) -> None:
        try:
            library = ctypes.CDLL(path)
            for name, (result, arguments) in _FUNCTIONS.items():
                function = getattr(library, "velmora_" + name)
                function.restype, function.argtypes = result, arguments
                setattr(self, name, function)
        except (OSError, AttributeError) as error:
            raise Error(
                f"libvelmora cannot be loaded ({error}); install it, or set the environment "
                f"variable {ENVIRONMENT_VARIABLE} to its path") from None

    def call(self, function: Callable[..., int], *arguments: Any) -> None:
        """Calls a function that gives a code and takes an error last; raises what went wrong."""
        error = c_void_p()
        code = function(*arguments, ctypes.byref(error))
        if code != 0:
            raise self._taken_error(code, error)

    def made(self, function: Callable[..., int], *arguments: Any) -> c_void_p:
        """The same for a function that hands an object out before the error."""
        made = c_void_p()
        self.call(function, *arguments, ctypes.byref(made))
        return made

    def _taken_error(self, code: int, error: c_void_p) -> Exception:
        if code == _errors.NO_MEMORY or not error:
            self.error_destroy(error)
            return MemoryError("No memory for the engine")
        taken = _errors.BY_CODE.get(code, Error)(_decoded(self.error_text(error)))
        offset = self.error_offset(error)
        taken.code = code
        taken.offset = None if offset < 0 else offset
        taken.table = _decoded(self.error_table(error)) or None
        taken.column = _decoded(self.error_column(error)) or None
        taken.system_error = self.error_system(error) or None
        taken.process = self.error_process(error) or None
        self.error_destroy(error)
        return taken

    def cell(self, result: c_void_p, row: int, column: int) -> Value:
        """A value of a result."""
        kind = self.result_type(result, row, column)
        if kind == INTEGER:
            return self.result_integer(result, row, column)
        if kind == REAL:
            return self.result_real(result, row, column)
        if kind == BOOLEAN:
            return self.result_boolean(result, row, column) != 0
        if kind == TEXT:
            length = c_size_t()
            text = self.result_text(result, row, column, ctypes.byref(length))
            return _decoded(ctypes.string_at(text, length.value))
        return None

    def column_names(self, result: c_void_p) -> list[str]:
        """The names of a result's columns."""
        return [_decoded(self.result_column_name(result, column, None))
                for column in range(self.result_columns(result))]

    def message(self, result: c_void_p) -> str:
        """What the command has to say."""
        return _decoded(self.result_message(result, None))


@functools.lru_cache(maxsize=None)
def loaded() -> Library:
    """The library, loaded once a process; tried again after a failure."""
    return Library(os.environ.get(ENVIRONMENT_VARIABLE) or INSTALLED_NAME)


def number_of(function: Callable[..., int], result: c_void_p) -> int | None:
    """What a function tells that gives whether there is a number, and the number."""
    number = c_int64()
    return number.value if function(result, ctypes.byref(number)) else None


def encoded(text: str, what: str) -> bytes:
    """The text in UTF-8, which one with half a surrogate pair does not have."""
    if not isinstance(text, str):
        raise TypeError(f"{what} is of type {type(text).__name__}, not str")
    try:
        return text.encode("utf-8")
    except UnicodeEncodeError:
        raise ValueError(f"{what} has a lone surrogate") from None


def bound_values(*rows: Iterable[Value]) -> ctypes.Array[BoundValue]:
    """Rows of values for the placeholders, one behind the other."""
    bound = [_bound(value, number) for values in rows
             for number, value in enumerate(values, start=1)]
    return (BoundValue * len(bound))(*bound)


def _bound(value: Value, number: int) -> BoundValue:
    if value is None:
        return BoundValue(type=NULL)
    if isinstance(value, bool):  # before int, whose subclass it is
        return BoundValue(type=BOOLEAN, boolean=value)
    if isinstance(value, int):
        if not -(2**63) <= value < 2**63:
            raise _errors.RangeError(f"Parameter {number} is an integer outside 64 bits")
        return BoundValue(type=INTEGER, integer=value)
    if isinstance(value, float):
        return BoundValue(type=REAL, real=value)
    if isinstance(value, str):
        text = encoded(value, f"Parameter {number}")
        return BoundValue(type=TEXT, text=text, text_size=len(text))
    raise TypeError(
        f"Parameter {number} is of type {type(value).__name__}, not int, float, bool, str or None")


def _decoded(text: bytes) -> str:
    return text.decode("utf-8", "replace")
