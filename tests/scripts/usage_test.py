"""An unknown option of a script is answered with its usage: nothing is installed, built or written.

usage: usage_test.py CHECKOUT

Each script runs in a copy of the scripts, in which scripts/install_packages and scripts/build fail.
"""

import pathlib
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(sys.argv[1]).resolve()
SCRIPTS = ["check", "demo", "docs", "gallery", "package", "wheel"]  # those of the README and of the manual


class Usage(unittest.TestCase):
    def test_unknown_options_are_answered_with_the_usage(self):
        for name in SCRIPTS:
            with self.subTest(name), tempfile.TemporaryDirectory() as directory:
                scripts = pathlib.Path(directory, "scripts")
                scripts.mkdir()
                for replaced in "install_packages", "build":
                    (scripts / replaced).write_text("#!/bin/sh\nexit 99\n")
                (scripts / name).write_bytes((ROOT / "scripts" / name).read_bytes())
                for path in scripts.iterdir():
                    path.chmod(0o755)
                for option in "--help", "--unknown":
                    ran = subprocess.run([scripts / name, option], capture_output=True, text=True)
                    self.assertEqual((ran.returncode, ran.stdout), (2, ""), ran.stderr)
                    self.assertTrue(ran.stderr.startswith(f"usage: scripts/{name}"), ran.stderr)
                self.assertEqual([path.name for path in pathlib.Path(directory).iterdir()], ["scripts"])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
