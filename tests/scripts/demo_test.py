"""scripts/demo ends with the path of a picture, and the solution in this picture agrees with its closed form.

usage: demo_test.py CHECKOUT PROGRAM

The script runs in a copy of the checkout, in which scripts/install_packages does nothing and scripts/build provides
PROGRAM.
"""

import importlib.util
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

ROOT, PROGRAM = (pathlib.Path(argument).resolve() for argument in sys.argv[1:])


class Demo(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.checkout = pathlib.Path(directory.name)
        (self.checkout / "examples").symlink_to(ROOT / "examples")
        scripts = self.checkout / "scripts"
        scripts.mkdir()
        (scripts / "demo").write_bytes((ROOT / "scripts/demo").read_bytes())
        (scripts / "install_packages").write_text("#!/bin/sh\n")
        (scripts / "build").write_text("#!/bin/sh\nmkdir -p build/release\n"
                                       f"ln -s '{PROGRAM.parent}' build/release/tools\n")
        for script in scripts.iterdir():
            script.chmod(0o755)

    def test_demo_ends_with_a_picture_in_which_the_solution_agrees(self):
        ran = subprocess.run([self.checkout / "scripts/demo"], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                             stderr=subprocess.STDOUT, text=True)
        self.assertEqual(ran.returncode, 0, ran.stdout)
        deviation = re.search(r"^closed form: relative difference at most (\S+)$", ran.stdout, re.MULTILINE)
        self.assertIsNotNone(deviation, f"expected a comparison with the closed form, got:\n{ran.stdout}")
        self.assertLess(float(deviation[1]), 1e-3)
        last = re.search(r"written: (\S+\.(?:png|svg))\n\Z", ran.stdout)
        self.assertIsNotNone(last, f"expected the path of a picture on the last line, got:\n{ran.stdout}")
        self.assertRegex((self.checkout / last[1]).read_bytes(), rb"\A(\x89PNG\r\n|<\?xml )")


if __name__ == "__main__":
    if importlib.util.find_spec("matplotlib") is None:
        print(f"skipped: {sys.executable} has no matplotlib (python3-matplotlib), which the picture needs")
        sys.exit(77)
    unittest.main(argv=sys.argv[:1])
