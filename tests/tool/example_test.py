"""What the tests of all examples share: the example is run once, and what it printed and left is read."""

import csv
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

PROGRAM = pathlib.Path(sys.argv[1])
EXAMPLE = pathlib.Path(sys.argv[2])


class ExampleTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        directory = tempfile.TemporaryDirectory()
        cls.addClassCleanup(directory.cleanup)
        cls.left = pathlib.Path(directory.name) / "made" / "here"
        cls.made = subprocess.run([sys.executable, EXAMPLE / "run", PROGRAM, cls.left], capture_output=True, text=True)
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
