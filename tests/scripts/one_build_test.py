"""All scripts share build/release. Whatever their order, no script compiles the library again with other options, and
no script removes a part that another script has built.

usage: one_build_test.py CHECKOUT

Each script runs in a copy of the checkout, in which scripts/install_packages does nothing and scripts/build only
configures.
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
        self.assertTrue(record.exists(), f"expected scripts/{name} to configure build/release, got:\n{ran.stdout}")
        record.unlink()

    def library(self):
        """The compile command of each unit of the library."""
        entries = json.loads((self.checkout / "build/release/compile_commands.json").read_text())
        return {entry["file"]: entry["command"] for entry in entries if "/quenta_objects.dir/" in entry["command"]}

    def parts(self):
        """The optional parts of the build that are enabled."""
        cache = (self.checkout / "build/release/CMakeCache.txt").read_text()
        return set(re.findall(r"^QUENTA_BUILD_(\w+):\w+=ON$", cache, re.MULTILINE))

    def test_scripts_share_one_build(self):
        users = sorted(path.name for path in (ROOT / "scripts").iterdir() if CALL.search(path.read_text()))
        self.assertLessEqual({"check", "check-python", "demo", "docs", "gallery", "wheel"}, set(users))
        self.run_script("wheel")
        library, parts = self.library(), self.parts()
        self.assertGreater(len(library), 10)
        self.assertEqual(parts, set(), "expected a wheel to build only the library")
        users.remove("check_cross")  # it takes arguments, and other scripts call it
        for name in [*users, "wheel", "demo"]:
            self.run_script(name)
            self.assertTrue(self.library() == library, f"expected scripts/{name} to use the same compile commands")
            self.assertLessEqual(parts, self.parts(), f"expected scripts/{name} to keep all parts")
            parts = self.parts()
        self.assertEqual(parts, {"TESTS", "TOOLS"})


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
