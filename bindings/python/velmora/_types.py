"""The type objects and constructors of PEP 249, and the tuples that the package hands out.

The engine has no type for dates and none for bytes. What is made of a date here is its ISO 8601
text, which sorts as dates do.
"""

from __future__ import annotations

import datetime
from typing import NamedTuple, Optional, Union

Value = Union[None, bool, int, float, str]


class Timed(NamedTuple):
    """What becomes of a timed value."""

    state: Value
    """The state in force."""
    next: Value
    """The state that follows it, if one does."""
    second: Optional[int]
    """When, since 1970; None: none follows."""
    cycles: bool
    """Whether its states follow each other for ever."""


class Fault(NamedTuple):
    """What velmora.check has found."""

    file: str
    offset: Optional[int]
    """The byte; None: it is the file as a whole."""
    meaning: str


class TypeObject:
    """Equal to each type_code of Cursor.description that it stands for."""

    def __init__(self, name: str, *codes: str) -> None:
        self._name = name
        self._codes = frozenset(codes)

    def __eq__(self, other: object) -> bool:
        return other is self or other in self._codes

    def __hash__(self) -> int:
        return hash(self._name)

    def __repr__(self) -> str:
        return f"velmora.{self._name}"


STRING = TypeObject("STRING", "text")
NUMBER = TypeObject("NUMBER", "integer", "real", "boolean", "identity")
ROWID = TypeObject("ROWID", "identity")
BINARY = TypeObject("BINARY")
DATETIME = TypeObject("DATETIME")


def Date(year: int, month: int, day: int) -> str:  # pylint: disable=invalid-name
    """As 2026-11-22."""
    return datetime.date(year, month, day).isoformat()


def Time(hour: int, minute: int, second: int) -> str:  # pylint: disable=invalid-name
    """As 09:30:00."""
    return datetime.time(hour, minute, second).isoformat()


def Timestamp(year: int, month: int, day: int,  # pylint: disable=invalid-name
              hour: int, minute: int, second: int) -> str:
    """As 2026-11-22 09:30:00."""
    return datetime.datetime(year, month, day, hour, minute, second).isoformat(" ")


def DateFromTicks(ticks: float) -> str:  # pylint: disable=invalid-name
    """Of a second since 1970, in local time."""
    return datetime.date.fromtimestamp(ticks).isoformat()


def TimeFromTicks(ticks: float) -> str:  # pylint: disable=invalid-name
    """Of a second since 1970, in local time."""
    return datetime.datetime.fromtimestamp(int(ticks)).time().isoformat()


def TimestampFromTicks(ticks: float) -> str:  # pylint: disable=invalid-name
    """Of a second since 1970, in local time."""
    return datetime.datetime.fromtimestamp(int(ticks)).isoformat(" ")


def Binary(content: bytes) -> bytes:  # pylint: disable=invalid-name
    """Bytes, which the engine refuses as a value: NotSupportedError."""
    return bytes(content)
