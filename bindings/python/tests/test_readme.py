"""The programs that the package's README shows print what it says."""

from __future__ import annotations

import re
import unittest
from pathlib import Path

from support import InDirectory

README = Path(__file__).resolve().parent.parent / "README.md"


class Readme(InDirectory):
    def test_its_programs_print_what_it_shows(self) -> None:
        blocks = re.findall(r"^```(python|output) (\w+)\n(.*?)^```$",
                            README.read_text(encoding="utf-8"), re.MULTILINE | re.DOTALL)
        programs = {name: text for kind, name, text in blocks if kind == "python"}
        outputs = {name: text for kind, name, text in blocks if kind == "output"}
        self.assertEqual(programs.keys(), outputs.keys())
        self.assertGreaterEqual(len(programs), 3)
        for name, program in programs.items():
            with self.subTest(program=name):
                run = self.run_python(program)
                self.assertEqual((run.stderr, run.stdout), ("", outputs[name]))


if __name__ == "__main__":
    unittest.main()
