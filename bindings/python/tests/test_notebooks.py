"""The notebooks of the manual run, with and without Jupyter, and show what their cells print and draw."""

import base64
import contextlib
import io
import json
import os
import subprocess
import sys
import warnings

import pytest
from documented import ROOT

DIRECTORY = ROOT / "docs/notebooks"
NOTEBOOKS = sorted(DIRECTORY.glob("*.ipynb"))
MISSING = "expected Jupyter's packages, got none: scripts/install_packages notebooks installs them"


def read_code_cells(path):
    cells = json.loads(path.read_text(encoding="utf-8"))["cells"]
    return [cell for cell in cells if cell["cell_type"] == "code"]


def printed_by(cell):
    return "".join("".join(output["text"]) for output in cell["outputs"] if output["output_type"] == "stream")


def figures_of(cell):
    data = [output["data"] for output in cell["outputs"] if output["output_type"] == "display_data"]
    return [base64.b64decode("".join(shown["image/png"])) for shown in data]


def test_there_are_two_small_notebooks():
    assert [path.name for path in NOTEBOOKS] == ["choosing_a_scheme.ipynb", "first_steps.ipynb"]
    for path in NOTEBOOKS:
        assert path.stat().st_size < 100_000
        assert sum(bool(printed_by(cell)) for cell in read_code_cells(path)) >= 5
        assert sum(len(figures_of(cell)) for cell in read_code_cells(path)) >= 1


@pytest.mark.parametrize("path", NOTEBOOKS, ids=lambda path: path.name)
def test_cells_print_what_the_notebook_shows(path, monkeypatch):
    pytest.importorskip("matplotlib", reason=MISSING)
    monkeypatch.setenv("MPLBACKEND", "agg")
    names = {}
    for number, cell in enumerate(read_code_cells(path)):
        with contextlib.redirect_stdout(io.StringIO()) as printed, warnings.catch_warnings():
            warnings.filterwarnings("ignore", "(?s).*non-interactive")  # plt.show() without a screen
            exec("".join(cell["source"]), names)
        assert printed.getvalue() == printed_by(cell), f"{path.name}, code cell {number}"


@pytest.mark.parametrize("path", NOTEBOOKS, ids=lambda path: path.name)
def test_jupyter_shows_what_the_notebook_shows(path, tmp_path):
    for package in ("nbclient", "ipykernel", "matplotlib"):
        pytest.importorskip(package, reason=MISSING)
    from matplotlib.testing.compare import compare_images

    places = {name: str(tmp_path) for name in ("IPYTHONDIR", "JUPYTER_RUNTIME_DIR", "JUPYTER_DATA_DIR")}
    run = [sys.executable, str(DIRECTORY / "run"), str(path), str(tmp_path / path.name)]
    subprocess.run(run, env={**os.environ, **places}, check=True, timeout=600, stderr=subprocess.PIPE)
    before, after = read_code_cells(path), read_code_cells(tmp_path / path.name)
    assert [printed_by(cell) for cell in after] == [printed_by(cell) for cell in before]
    for number, (old, new) in enumerate(zip(before, after)):
        assert len(figures_of(old)) == len(figures_of(new))
        for old_figure, new_figure in zip(figures_of(old), figures_of(new)):
            files = [tmp_path / f"{number}_{name}.png" for name in ("expected", "drawn")]
            for file, figure in zip(files, (old_figure, new_figure)):
                file.write_bytes(figure)
            assert compare_images(*map(str, files), tol=20) is None
