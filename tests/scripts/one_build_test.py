"""All scripts share build/release. Whatever their order, no script compiles the library again with other options, and
no script removes a part that another script has built.

usage: one_build_test.py CHECKOUT

Each script runs in a copy of the checkout, in which scripts/install_packages does nothing and scripts/build only records
its options. Then the real one configures with no options, with those of all scripts, and with none again.
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

LIBRARIES = r"/quenta_(foundation|objects|equations_objects)\.dir/"

RECORD = """#!/usr/bin/env bash
[[ $1 == release ]] && printf '%s\\n' "${@:3}" >>"$(dirname "$0")/options"
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
        (self.scripts / "build").write_text(RECORD)
        (self.scripts / "install_packages").write_text("#!/bin/sh\n")
        for path in self.scripts.iterdir():
            path.chmod(0o755)

    def options_of(self, name):
        """The options with which a script configures build/release."""
        environment = {key: value for key, value in os.environ.items() if key != "QUENTA_LIBRARY"}
        ran = subprocess.run([self.scripts / name], cwd=self.checkout, env=environment, stdin=subprocess.DEVNULL,
                             stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        record = self.scripts / "options"
        self.assertTrue(record.exists(), f"expected scripts/{name} to build build/release, got:\n{ran.stdout}")
        options = set(record.read_text().split())
        record.unlink()
        return options

    def configure(self, *options):
        """The compile command of each unit of the libraries, and the optional parts of the build that are enabled."""
        subprocess.run([self.scripts / "real_build", "release", "help", *options], cwd=self.checkout, check=True,
                       stdout=subprocess.DEVNULL)
        entries = json.loads((self.checkout / "build/release/compile_commands.json").read_text())
        libraries = {entry["file"]: entry["command"] for entry in entries if re.search(LIBRARIES, entry["command"])}
        cache = (self.checkout / "build/release/CMakeCache.txt").read_text()
        return libraries, set(re.findall(r"^QUENTA_BUILD_(\w+):\w+=ON$", cache, re.MULTILINE))

    def test_scripts_share_one_build(self):
        users = {path.name for path in (ROOT / "scripts").iterdir() if CALL.search(path.read_text())}
        self.assertLessEqual({"check", "check-python", "demo", "docs", "gallery", "wheel"}, users)
        users.remove("check_cross")  # it takes arguments, and other scripts call it
        all_options = set()
        for name in users:
            options = self.options_of(name)
            self.assertLessEqual(options, {"-DQUENTA_BUILD_TOOLS=ON", "-DQUENTA_BUILD_TESTS=ON"}, f"scripts/{name}")
            all_options |= options
        self.assertEqual(self.options_of("wheel"), set())

        libraries, parts = self.configure()
        self.assertGreater(len(libraries), 30)
        self.assertEqual(parts, set(), "expected a build of the libraries alone")
        for options in (sorted(all_options), []):
            again, parts = self.configure(*options)
            self.assertTrue(again == libraries, f"expected the same compile commands with {options}")
            self.assertEqual(parts, {"TESTS", "TOOLS"}, f"after the options {options}")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
