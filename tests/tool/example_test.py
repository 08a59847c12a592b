"""Shared by the tests of the examples: the example runs once, and the tests check its output and its files."""

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
    tables = []  # the names of all files that the example writes, except its picture
    arguments = [PROGRAM]  # the arguments before the directory; examples in Python do not take the program

    @classmethod
    def setUpClass(cls):
        temporary = tempfile.TemporaryDirectory()
        cls.addClassCleanup(temporary.cleanup)
        cls.directory = pathlib.Path(temporary.name) / "made" / "here"
        command = [sys.executable, EXAMPLE / "run", *cls.arguments, cls.directory]
        cls.made = subprocess.run(command, capture_output=True, text=True)
        if cls.made.returncode != 0:
            raise AssertionError(f"expected exit code 0, got {cls.made.returncode}: {cls.made.stderr}")

    @staticmethod
    def read(path):
        with open(path, newline="") as file:
            rows = list(csv.DictReader(line for line in file if not line.startswith("#")))
        return {column: [float(row[column]) for row in rows] for column in rows[0]}

    def printed(self, pattern):
        found = re.search(pattern, self.made.stdout)
        self.assertIsNotNone(found, self.made.stdout)
        return float(found[1])

    def test_the_program_prints_no_message(self):
        self.assertNotIn("quenta:", self.made.stderr)

    def test_readme_shows_the_output(self):
        readme = (EXAMPLE / "README.md").read_text()
        printed = [line for line in self.made.stdout.splitlines() if not line.startswith("written: ")]
        self.assertEqual(len(printed), 4)
        for line in printed:
            self.assertIn("\n" + line + "\n", readme)

    def test_exactly_the_expected_files_are_written(self):
        picture = EXAMPLE.name + ".svg"
        self.assertEqual(sorted(path.name for path in self.directory.iterdir()), sorted([picture, *self.tables]))

    def test_picture_is_the_one_in_the_manual(self):
        picture = EXAMPLE.name + ".svg"
        places = self.directory, EXAMPLE.parents[1] / "docs/pictures"
        drawn, shown = ((place / picture).read_text() for place in places)
        texts = r"<!-- (.*?) -->"
        self.assertGreater(len(re.findall(texts, drawn)), 5)
        self.assertEqual(re.findall(texts, drawn), re.findall(texts, shown))


def convolved(kernel, y, n, spacing):
    """The integral of K(t - s) y(s) ds from 0 to t at sample n, by the trapezoidal rule."""
    terms = [kernel[n - k] * y[k] for k in range(n + 1)]
    return spacing * (sum(terms) - (terms[0] + terms[-1]) / 2)


def main():
    if importlib.util.find_spec("matplotlib") is None:
        print(f"skipped: {sys.executable} has no matplotlib (python3-matplotlib), which the picture needs")
        sys.exit(77)
    unittest.main(argv=sys.argv[:1], verbosity=2)
