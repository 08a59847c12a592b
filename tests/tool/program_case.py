"""Shared by the tests of the program: running `quenta` in a temporary directory, and samples for it."""

import csv
import math
import pathlib
import subprocess
import sys
import tempfile
import unittest

PROGRAM = pathlib.Path(sys.argv[1]).resolve()
SOLVED, UNEXPECTED, BAD_INPUT, SINGULAR = 0, 1, 2, 3

# y(t) = cos 3t, the kernel exp(-t), their convolution, and the forcing of the second kind.
SOLUTION = lambda t: math.cos(3 * t)
KERNEL = lambda t: math.exp(-t)
INTEGRAL = lambda t: (math.cos(3 * t) + 3 * math.sin(3 * t) - math.exp(-t)) / 10
FORCING = lambda t: SOLUTION(t) - INTEGRAL(t)


def grid(spacings, end=2.0):
    return [end * sample / spacings for sample in range(spacings + 1)]


def samples(spacings, end=2.0):
    return "t,g,K\n" + "".join(f"{t!r},{FORCING(t)!r},{KERNEL(t)!r}\n" for t in grid(spacings, end))


def constant_samples(spacings, g=1, K=1, spacing=1):
    return "t,g,K\n" + "".join(f"{sample * spacing},{g},{K}\n" for sample in range(spacings + 1))


def columns(text):
    rows = list(csv.reader(text.splitlines()))
    return {name: [float(row[position]) for row in rows[1:]] for position, name in enumerate(rows[0])}


class ProgramTest(unittest.TestCase):
    command = "vie2"

    def needed(self, dimension=1):
        """The arguments that the command requires."""
        return ()

    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = pathlib.Path(directory.name)

    def run_program(self, *arguments, text="", **settings):
        return subprocess.run([PROGRAM, *arguments], input=text, capture_output=True, text=True, cwd=self.directory,
                              timeout=120, **settings)

    def solve(self, *arguments, text=""):
        run = self.run_program(self.command, *arguments, text=text)
        self.assertEqual((run.returncode, run.stderr), (SOLVED, ""))
        return run.stdout

    def assert_one_sentence(self, message, *fragments):
        self.assertRegex(message, r"\Aquenta: [^\n]+\n\Z")
        self.assertNotRegex(message, r"\. [A-Z]")
        for fragment in fragments:
            self.assertIn(fragment, message)

    def assert_refused(self, text, *fragments, arguments=None, code=BAD_INPUT):
        """Checks that the text is refused in one sentence with these fragments and no output. Returns the sentence."""
        before = self.listing()
        run = self.run_program(self.command, *(self.needed() if arguments is None else arguments), "--output",
                               "refused.csv", "--polynomials", "p.csv", text=text)
        self.assertEqual(run.returncode, code, run.stderr)
        self.assertEqual(run.stdout, "")
        self.assert_one_sentence(run.stderr, *fragments)
        self.assertEqual(self.listing(), before)
        return run.stderr.strip()

    def listing(self):
        return sorted(path.name for path in self.directory.iterdir())

    def write(self, name, text):
        (self.directory / name).write_text(text)
        return name
