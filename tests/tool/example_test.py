"""What the tests of all examples share: the example is run once, and what it printed and left is read and checked."""

import csv
import importlib.util
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

PROGRAM = pathlib.Path(sys.argv[1])
EXAMPLE = pathlib.Path(sys.argv[2])


class ExampleTest(unittest.TestCase):
    tables = []  # the names of all files that the example leaves, beside its picture
    arguments = [PROGRAM]  # what it is given, beside the directory; one in Python has no use for the program

    @classmethod
    def setUpClass(cls):
        directory = tempfile.TemporaryDirectory()
        cls.addClassCleanup(directory.cleanup)
        cls.left = pathlib.Path(directory.name) / "made" / "here"
        cls.made = subprocess.run([sys.executable, EXAMPLE / "run", *cls.arguments, cls.left], capture_output=True, text=True)
        if cls.made.returncode != 0:
            raise AssertionError(f"the example failed: {cls.made.stderr}")

    @staticmethod
    def read(path):
        with open(path, newline="") as file:
            rows = list(csv.DictReader(line for line in file if not line.startswith("#")))
        return {column: [float(row[column]) for row in rows] for column in rows[0]}

    def printed(self, pattern):
        found = re.search(pattern, self.made.stdout)
        self.assertIsNotNone(found, self.made.stdout)
        return float(found[1])

    def test_nothing_is_complained_of(self):
        self.assertNotIn("quenta:", self.made.stderr)

    def test_readme_shows_what_is_printed(self):
        readme = (EXAMPLE / "README.md").read_text()
        printed = [line for line in self.made.stdout.splitlines() if not line.startswith("written: ")]
        self.assertEqual(len(printed), 4)
        for line in printed:
            self.assertIn("\n" + line + "\n", readme)

    def test_files_are_there_and_no_others(self):
        picture = EXAMPLE.name + ".png"
        self.assertEqual(sorted(path.name for path in self.left.iterdir()), sorted([picture, *self.tables]))
        self.assertEqual((self.left / picture).read_bytes()[:8], b"\x89PNG\r\n\x1a\n")


def convolved(kernel, y, i, spacing):
    """The integral of K(t - s) y(s) over 0 .. t at sample i, by the trapezoidal rule."""
    terms = [kernel[i - j] * y[j] for j in range(i + 1)]
    return spacing * (sum(terms) - (terms[0] + terms[-1]) / 2)


def main():
    if importlib.util.find_spec("matplotlib") is None:
        print(f"skipped: {sys.executable} has no matplotlib (python3-matplotlib), which draws the example's picture")
        sys.exit(77)
    unittest.main(argv=sys.argv[:1], verbosity=2)
