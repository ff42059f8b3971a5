"""What the tests share: a directory of their own, a connection in it, another interpreter."""

from __future__ import annotations

import os
import subprocess
import sys
import tempfile
import threading
import unittest
from pathlib import Path
from typing import Any, Callable

import velmora

PACKAGE = Path(velmora.__file__).parent.parent


class InDirectory(unittest.TestCase):
    """A test with an empty directory."""

    def setUp(self) -> None:
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.directory = Path(temporary.name)

    def run_python(self, program: str) -> subprocess.CompletedProcess[str]:
        """Runs a program in the directory, in an interpreter of its own."""
        return subprocess.run(
            [sys.executable, "-W", "error", "-c", program], cwd=self.directory,
            capture_output=True, text=True, env={**os.environ, "PYTHONPATH": str(PACKAGE)},
            timeout=120, check=False)

    def connect(self, name: str = "db", **options: Any) -> velmora.Connection:
        """Connects to a database in the directory until the test ends."""
        connection = velmora.connect(self.directory / name, **{"durability": "off", **options})
        self.addCleanup(connection.close)
        return connection


class WithConnection(InDirectory):
    """A test with a connection whose commands are transactions of their own; it is the second
    1000."""

    def setUp(self) -> None:
        super().setUp()
        self.second = 1000
        self.connection = self.connect(autocommit=True, clock=lambda: self.second)
        self.run_command = self.connection.execute

    def rows(self, command: str, *values: object) -> list[object]:
        return [tuple(row) for row in self.connection.execute(command, values)]

    def assert_fails(self, kind: type[velmora.Error], message: str, text: str,
                     *values: object) -> velmora.Error:
        with self.assertRaises(kind) as raised:
            self.connection.execute(text, values)
        self.assertIs(type(raised.exception), kind)
        self.assertEqual(str(raised.exception), message)
        return raised.exception


def in_thread(work: Callable[[], object]) -> None:
    """Runs something on another thread, and waits for its end."""
    thread = threading.Thread(target=work)
    thread.start()
    thread.join()
