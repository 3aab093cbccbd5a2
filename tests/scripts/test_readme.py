"""The README's example is the program that the packaging tests build."""

import pathlib
import re
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]


class Readme(unittest.TestCase):
    def test_example_is_compiled(self):
        blocks = re.findall(r"```cpp\n(.*?)```", (ROOT / "README.md").read_text(), re.S)
        program = (ROOT / "tests/consumers/main.cpp").read_text()
        self.assertTrue(blocks)
        for block in blocks:
            for line in block.splitlines():
                self.assertIn(line.strip(), program)

    def test_pictures_are_there_and_small(self):
        names = re.findall(r"\]\((docs/[^)]+\.(?:jpg|png|svg))\)", (ROOT / "README.md").read_text())
        self.assertTrue(names)
        for name in names:
            self.assertTrue((ROOT / name).is_file(), name)
        total = sum(path.stat().st_size for path in (ROOT / "docs").rglob("*") if path.suffix in (".jpg", ".png", ".svg"))
        self.assertLess(total, 3_000_000)


if __name__ == "__main__":
    unittest.main()
