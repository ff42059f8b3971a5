"""The programs that the package's README shows print what it shows behind them."""

from __future__ import annotations

import re
import unittest
from pathlib import Path

from support import InDirectory

README = Path(__file__).resolve().parent.parent / "README.md"


class Readme(InDirectory):
    def test_its_programs_print_what_it_shows(self) -> None:
        programs = re.findall(r"^```python\n(.*?)^```\n\n```text\n(.*?)^```$",
                              README.read_text(encoding="utf-8"), re.MULTILINE | re.DOTALL)
        self.assertEqual(len(programs), 3)
        for program, output in programs:
            with self.subTest(program=program):
                run = self.run_python(program)
                self.assertEqual((run.stderr, run.stdout), ("", output))


if __name__ == "__main__":
    unittest.main()
