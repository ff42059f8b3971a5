"""The extension's types."""

from typing import (Any, Callable, Dict, Iterable, Iterator, List, Optional, Sequence, Tuple, Union,
                    overload)

from velmora import _connection
from velmora._types import Timed, Value

version: str

def check(path: bytes) -> List[Tuple[str, Optional[int], str]]: ...

class Database:
    def __init__(self, path: bytes, flags: int, durability: int, open_wait_milliseconds: int,
                 transaction_wait_milliseconds: int, log: Optional[Callable[[int, str], object]],
                 progress: Optional[Callable[[str, int, int], object]],
                 clock: Optional[Callable[[], int]]) -> None: ...
    def close(self) -> None: ...

class Row(Sequence[Value]):
    """A row of an answer, by index and by name; equal to the tuple of its values."""
    @property
    def changes_at(self) -> Optional[int]:
        """The second at which a timed value of this row changes next; None: never."""
    def keys(self) -> List[str]: ...
    def timed(self, column: Union[int, str]) -> Optional[Timed]:
        """What becomes of a value; None: it is not timed."""
    @overload
    def __getitem__(self, key: Union[int, str]) -> Any: ...
    @overload
    def __getitem__(self, key: slice) -> Tuple[Any, ...]: ...
    def __len__(self) -> int: ...
    def __iter__(self) -> Iterator[Any]: ...

class Column(Sequence[Value]):
    """A column of an answer: typed memory, or a sequence of values."""
    @property
    def name(self) -> str: ...
    @property
    def type(self) -> str:
        """"integer", "real", "boolean" or "text"."""
    @property
    def values(self) -> memoryview:
        """Of 64-bit integers, doubles or bools, 0 where a value is null; of texts their UTF-8, one
        behind another."""
    @property
    def ends(self) -> Optional[memoryview]:
        """Where each text ends; None: these are not texts."""
    @property
    def nulls(self) -> Optional[memoryview]:
        """True for each null; None: there are none."""
    @overload
    def __getitem__(self, key: int) -> Value: ...
    @overload
    def __getitem__(self, key: slice) -> Sequence[Value]: ...
    def __len__(self) -> int: ...

class Cursor:
    """The answer of one command, and how far its rows have been fetched."""
    arraysize: int
    def __init__(self, connection: Connection) -> None: ...
    @property
    def connection(self) -> _connection.Connection: ...
    @property
    def description(self) -> Any:
        """For each column its name, its type_code and five times None; None: there are no rows."""
    @property
    def rowcount(self) -> int:
        """How many rows were answered, or changed; -1: no command has been run."""
    @property
    def lastrowid(self) -> Optional[int]:
        """The identity number that an INSERT gave."""
    @property
    def changes_at(self) -> Optional[int]:
        """The second, since 1970, at which this answer becomes another by time alone; None: never.
        Up to then, and as long as nobody changes the tables, it may be kept and shown."""
    @property
    def message(self) -> str:
        """What the engine has to say, often nothing."""
    def execute(self, command: str, values: Sequence[Value] = ..., /) -> Cursor: ...
    def executemany(self, command: str, rows: Iterable[Sequence[Value]], /) -> Cursor: ...
    def fetchone(self) -> Any:
        """The next Row, or None behind the last."""
    def fetchmany(self, size: int = ...) -> List[Row]: ...
    def fetchall(self) -> List[Row]: ...
    def fetch_columns(self) -> Dict[str, Column]:
        """The whole answer as columns, by their names."""
    def close(self) -> None: ...
    def setinputsizes(self, sizes: object, /) -> None: ...
    def setoutputsize(self, size: int, column: int = ..., /) -> None: ...
    def __iter__(self) -> Cursor: ...
    def __next__(self) -> Row: ...

class Connection:
    autocommit: bool
    def __new__(cls, database: Database, autocommit: bool,
                cached_statements: int) -> Connection: ...
    @property
    def in_transaction(self) -> bool: ...
    def cursor(self) -> Cursor: ...
    def execute(self, command: str, values: Sequence[Value] = ..., /) -> Cursor: ...
    def executemany(self, command: str, rows: Iterable[Sequence[Value]], /) -> Cursor: ...
    def executebatch(self, commands: Iterable[Union[str, Tuple[str], Tuple[str, Sequence[Value]]]],
                     /) -> Cursor:
        """Runs several commands, all or none; the cursor has the answer of the last."""
    def commit(self) -> None: ...
    def rollback(self) -> None: ...
    def checkpoint(self) -> None:
        """Writes all that has changed to the table files and empties the log."""
    def interrupt(self) -> None:
        """Has every command of the database that runs or waits raise CommandInterruptedError."""
    def _backup(self, path: bytes, /) -> None: ...
    def _leave(self, is_last: bool, /) -> bool: ...
