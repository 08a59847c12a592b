"""The wheel is complete: installed offline into a new environment, it solves equations. Versions agree."""

import os
import pathlib
import re
import subprocess
import sys
import zipfile

import pytest

import quenta

ROOT = pathlib.Path(__file__).parents[3]

SOLVE = """
import pathlib
import numpy as np
import quenta
from quenta import native_library

t = np.arange(401) * 0.01
found = quenta.solve_vie2(np.ones_like(t), t, 0.01)
assert abs(found.y - np.cosh(t)).max() < 2e-5
assert len(quenta.settings()) == 56 and quenta.with_error(quenta.solve_vie2, 1.0, np.cos, 0.01, t_end=4).trusted
assert pathlib.Path(native_library.library._name).parent == pathlib.Path(quenta.__file__).parent
print(quenta.__file__)
"""


def run(*command, **keywords):
    ended = subprocess.run([str(part) for part in command], capture_output=True, text=True, timeout=300, **keywords)
    assert ended.returncode == 0, ended.stdout + ended.stderr
    return ended.stdout


@pytest.mark.skipif(not sys.platform.startswith("linux"), reason="scripts/wheel is for Debian")
def test_the_wheel_solves_in_a_new_environment(tmp_path):
    wheel = pathlib.Path(run(ROOT / "scripts/wheel", tmp_path / "wheel").strip().splitlines()[-1])
    assert re.fullmatch(r"quenta-[\d.]+-py3-none-linux_\w+\.whl", wheel.name)
    names = zipfile.ZipFile(wheel).namelist()
    assert {"quenta/libquenta_native.so", "quenta/py.typed", "quenta/measured_settings.json"} <= set(names)
    assert not any("test" in name for name in names)

    # The environment uses NumPy and pip of the system. Installing another pip would take most of the time.
    run("/usr/bin/python3", "-m", "venv", "--system-site-packages", "--without-pip", tmp_path / "new")
    clean = {name: value for name, value in os.environ.items() if not name.startswith(("QUENTA", "PYTHON", "PIP"))}
    python = tmp_path / "new/bin/python"
    run(python, "-m", "pip", "install", "--no-index", "--quiet", wheel, env=clean, cwd=tmp_path)
    location = run(python, "-c", SOLVE, env=clean, cwd=tmp_path)
    assert str(tmp_path / "new") in location


def test_package_and_library_have_the_same_version():
    project = (ROOT / "CMakeLists.txt").read_text()
    assert re.search(r"project\(quenta_native VERSION ([\d.]+)", project).group(1) == quenta.__version__
