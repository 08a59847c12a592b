"""All scripts share build/release: in whatever order they run, none compiles what another has compiled, and none takes
away what another has built.

usage: one_build_test.py CHECKOUT

Each script runs in a copy of the checkout, in which nothing is installed, and scripts/build configures and does not
build.
"""

import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(sys.argv[1]).resolve()
CALL = re.compile(r"^ *scripts/build release |^check_build release ", re.MULTILINE)

CONFIGURE_ONLY = """#!/usr/bin/env bash
set -euo pipefail
[[ $1 == release ]] || exit 1
"$(dirname "$0")/real_build" release help "${@:3}" >/dev/null
echo configured >>"$(dirname "$0")/configured"
exit 1
"""


class OneBuild(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.checkout = pathlib.Path(directory.name)
        for path in ROOT.iterdir():
            if path.name not in ("scripts", ".git") and not path.name.startswith("build"):
                (self.checkout / path.name).symlink_to(path)
        self.scripts = self.checkout / "scripts"
        self.scripts.mkdir()
        for path in (ROOT / "scripts").iterdir():
            if path.is_file():
                (self.scripts / path.name).write_bytes(path.read_bytes())
        (self.scripts / "build").rename(self.scripts / "real_build")
        (self.scripts / "build").write_text(CONFIGURE_ONLY)
        (self.scripts / "install_packages").write_text("#!/bin/sh\n")
        for path in self.scripts.iterdir():
            path.chmod(0o755)

    def run_script(self, name):
        environment = {key: value for key, value in os.environ.items() if key != "QUENTA_LIBRARY"}
        ran = subprocess.run([self.scripts / name], cwd=self.checkout, env=environment, stdin=subprocess.DEVNULL,
                             stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        record = self.scripts / "configured"
        self.assertTrue(record.exists(), f"scripts/{name} did not configure build/release:\n{ran.stdout}")
        record.unlink()

    def library(self):
        """{unit: command} of the library."""
        entries = json.loads((self.checkout / "build/release/compile_commands.json").read_text())
        return {entry["file"]: entry["command"] for entry in entries if "/quenta_objects.dir/" in entry["command"]}

    def parts(self):
        """What is built beside the library."""
        cache = (self.checkout / "build/release/CMakeCache.txt").read_text()
        return set(re.findall(r"^QUENTA_BUILD_(\w+):\w+=ON$", cache, re.MULTILINE))

    def test_scripts_share_what_is_compiled(self):
        users = sorted(path.name for path in (ROOT / "scripts").iterdir() if CALL.search(path.read_text()))
        self.assertLessEqual({"check", "check-python", "demo", "docs", "gallery", "wheel"}, set(users))
        self.run_script("wheel")
        library, parts = self.library(), self.parts()
        self.assertGreater(len(library), 10)
        self.assertEqual(parts, set(), "a wheel needs nothing but the library")
        users.remove("check_cross")  # it takes arguments, and is a part of others
        for name in [*users, "wheel", "demo"]:
            self.run_script(name)
            self.assertTrue(self.library() == library, f"scripts/{name} compiles the library again")
            self.assertLessEqual(parts, self.parts(), f"scripts/{name} takes parts away")
            parts = self.parts()
        self.assertEqual(parts, {"TESTS", "TOOLS"})


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
