"""Solutions are correct, have the documented shapes, and do not depend on the memory layout of arrays."""

import pathlib
import pickle
import re

import numpy as np
import pytest
from problems import KINDS, SOLVERS, arguments, coefficient, coupled_arguments, forcing, kernel, solution

import quenta

DT = 10 / 1440
T = np.arange(1441) * DT
SMALL = {"vie1": 2e-5, "vie2": 5e-7, "vide": 1e-8}


@pytest.mark.parametrize("kind", KINDS)
def test_scalar_solutions_are_correct(kind):
    found = SOLVERS[kind](*arguments(kind, T), DT)
    assert found.y.shape == found.t.shape == (1441,)
    assert abs(found.y - solution(T)).max() < SMALL[kind]


@pytest.mark.parametrize("D", [1, 2, 3, 8, 9])
@pytest.mark.parametrize("kind", KINDS)
def test_solutions_of_systems_are_correct(kind, D):
    given, y = coupled_arguments(kind, T, D)
    found = SOLVERS[kind](*given, DT)
    assert found.y.shape == (1441, D)
    assert found.polynomials.shape[0] == found.steps and found.polynomials.shape[2] == D
    assert abs(found.y - y).max() < 2 * D * SMALL[kind]


@pytest.mark.parametrize("kind", KINDS)
def test_all_usable_settings_of_a_kind_are_accurate(kind):
    solved = 0
    for setting in quenta.settings():
        if setting.measured[kind].usable:
            found = SOLVERS[kind](*arguments(kind, T), DT, setting=setting)
            assert abs(found.y - solution(T)).max() < 2.1 * setting.measured[kind].error, setting
            solved += 1
    assert solved == {"vie1": 23, "vie2": 56, "vide": 56}[kind]


def test_the_continuous_form_starts_from_y0_and_joins():
    found = quenta.solve_vie1(*arguments("vie1", T), DT, continuous=True, y0=1.0)
    assert found.y[0] == 1.0
    assert abs(found.y - solution(T)).max() < 2e-4
    boundaries = np.arange(1, found.steps) * found.step
    assert np.allclose(found(boundaries, "left"), found(boundaries, "right"), rtol=0, atol=1e-12)
    given, y = coupled_arguments("vie1", T, 3)
    found = quenta.solve_vie1(*given, DT, continuous=True, y0=y[0])
    assert np.array_equal(found.y[0], y[0]) and abs(found.y - y).max() < 2e-3


@pytest.mark.parametrize("kind", KINDS)
def test_functions_and_constants_are_sampled(kind):
    functions = (lambda t: forcing(kind, t), kernel) + ((coefficient, 1.0) if kind == "vide" else ())
    by_arrays = SOLVERS[kind](*arguments(kind, T), DT)
    by_functions = SOLVERS[kind](*functions, DT, t_end=10)
    assert np.array_equal(by_arrays.y, by_functions.y)
    mixed = (arguments(kind, T)[0],) + functions[1:]
    assert np.array_equal(by_arrays.y, SOLVERS[kind](*mixed, DT).y)
    g = 0.0 if kind == "vie1" else 1.0
    constant = SOLVERS[kind](*((g, 2.0, 3.0, 4.0) if kind == "vide" else (g, 2.0)), DT, t_end=0.5)
    ones = np.ones(len(constant.t))
    given = (g * ones, 2 * ones, 3 * ones, 4.0) if kind == "vide" else (g * ones, 2 * ones)
    assert np.array_equal(constant.y, SOLVERS[kind](*given, DT).y)


def test_the_solution_covers_0_to_t_end():
    for t_end in (1.0, 0.99, 3 * 0.1, 0.04):
        found = quenta.solve_vie2(1.0, 1.0, 0.01, t_end=t_end)
        assert t_end - 1e-9 <= found.end < t_end + 0.04 - 1e-9
    assert quenta.solve_vie2(1.0, 1.0, 0.03, t_end=1).end == pytest.approx(1.08)


def test_constant_matrices_are_sampled():
    D, t = 2, T[:201]
    a = np.array([[0.0, 1.0], [-1.0, 0.0]])
    found = quenta.solve_vide(np.zeros((201, D)), np.zeros((D, D)), a, [1.0, 0.0], DT)
    assert abs(found.y[:, 0] - np.cos(t)).max() < 1e-8 and abs(found.y[:, 1] + np.sin(t)).max() < 1e-8
    by_functions = quenta.solve_vide(lambda t: np.zeros((len(t), D)), np.zeros((D, D)), a, [1, 0], DT, t_end=200 * DT)
    assert np.array_equal(found.y, by_functions.y)


def test_samples_past_the_last_whole_step_are_not_used():
    with pytest.warns(quenta.DroppedSamplesWarning, match=r"got 12: the last 3 are not used, .* ends at t = 0\.8"):
        found = quenta.solve_vie2(np.ones(12), np.ones(12), 0.1)
    assert found.steps == 2 and found.y.shape == (9,) and found.end == pytest.approx(0.8)


# ---- The solution between samples -----------------------------------------------------------------------------------


@pytest.mark.parametrize("kind", KINDS)
@pytest.mark.parametrize("D", [None, 2])
def test_polynomials_reproduce_the_values_at_the_samples(kind, D):
    given = arguments(kind, T) if D is None else coupled_arguments(kind, T, D)[0]
    found = SOLVERS[kind](*given, DT)
    assert np.allclose(found(found.t), found.y, rtol=0, atol=1e-13)
    assert np.allclose(found(found.t.reshape(-1, 131)), found.y.reshape((-1, 131) + found.y.shape[1:]), atol=1e-13)
    assert found(1.0).shape == found.y.shape[1:]


def test_solution_and_derivative_between_samples():
    found = quenta.solve_vide(*arguments("vide", T), DT)
    t = np.random.default_rng(1).uniform(0, 10, 1000)
    assert abs(found(t) - solution(t)).max() < 1e-8
    assert abs(found.derivative(t) - np.cos(t)).max() < 1e-5


def test_one_sided_values_at_step_boundaries():
    found = quenta.solve_vie2(*arguments("vie2", T), DT, setting=(2, [1]))
    at = np.arange(1, found.steps) * found.step
    left, right, mean = (found(at, side) for side in ("left", "right", "mean"))
    assert np.array_equal(left, found.polynomials[:-1, 0]) and np.array_equal(right, found.polynomials[1:, 0])
    assert np.array_equal(mean, (left + right) / 2) and np.array_equal(mean, found.y[4:-1:4])
    assert (left != right).all()
    ends = [0.0, found.end]
    for side in ("left", "right", "mean"):
        assert np.array_equal(found(ends, side), found.y[[0, -1]])
    inside = at + found.step / 3
    assert np.array_equal(found(inside[:-1], "left"), found(inside[:-1], "right"))
    assert np.array_equal(found.derivative(at), np.zeros_like(at))


def test_solutions_can_be_pickled():
    found = quenta.solve_vie2(*arguments("vie2", T), DT)
    copy = pickle.loads(pickle.dumps(found))
    assert np.array_equal(copy.y, found.y) and np.array_equal(copy(3.3), found(3.3))
    assert copy.setting == found.setting and str(copy) == str(found)
    assert np.array_equal(quenta.solve_vie2(*arguments("vie2", T), DT, setting=copy.setting).y, found.y)


# ---- Memory layouts and types of arrays -----------------------------------------------------------------------------


def unaligned(array):
    raw = np.empty(array.nbytes + 1, np.uint8)[1:]
    copy = raw.view(np.float64)
    copy[:] = array.ravel()
    return copy.reshape(array.shape)


def read_only(array):
    copy = array.copy()
    copy.flags.writeable = False
    return copy


VARIANTS = {
    "list": lambda array: array.tolist(),
    "strided": lambda array: np.repeat(array, 2, axis=0)[::2],
    "negative stride": lambda array: array[::-1].copy()[::-1],
    "Fortran order": np.asfortranarray,
    "read-only": read_only,
    "not aligned": unaligned,
    "other byte order": lambda array: array.astype(array.dtype.newbyteorder()),
    "long double": lambda array: array.astype(np.longdouble),
    "memory view": lambda array: memoryview(array),
}


@pytest.mark.parametrize("variant", VARIANTS)
def test_results_do_not_depend_on_the_memory_layout(variant):
    change = VARIANTS[variant]
    compared = 0
    for kind in KINDS:
        for given in (arguments(kind, T[:109]), coupled_arguments(kind, T[:109], 2)[0]):
            plain = SOLVERS[kind](*given, DT)
            arrays = [change(value) if isinstance(value, np.ndarray) else value for value in given]
            assert np.array_equal(SOLVERS[kind](*arrays, DT).y, plain.y)
            compared += 1
    assert compared == 6


def test_integers_and_single_precision_are_accepted():
    whole = quenta.solve_vie2(np.ones(21, np.int8), np.ones(21, bool), 1, setting=(1, [0]))
    assert np.array_equal(whole.y, quenta.solve_vie2(np.ones(21), np.ones(21), 1.0, setting=(1, [0])).y)
    single = np.linspace(0, 1, 21, dtype=np.float32)
    assert np.array_equal(
        quenta.solve_vie2(single, single, 0.1).y, quenta.solve_vie2(single.astype(float), single.astype(float), 0.1).y
    )


def test_contiguous_arrays_are_not_copied(monkeypatch):
    from quenta import sampled_solvers

    seen = []

    def watched(*given):
        seen.append(given)
        return 2

    monkeypatch.setitem(sampled_solvers._FUNCTIONS, ("vie2", True), watched)
    g, K = np.ones(21), read_only(np.ones(21))
    with pytest.raises(quenta.SingularBlockError):
        quenta.solve_vie2(g, K, 0.1)
    assert seen[0][:2] == (g.ctypes.data, K.ctypes.data)


def test_inputs_are_not_modified():
    for kind in KINDS:
        given = coupled_arguments(kind, T[:109], 2)[0]
        before = [np.array(value) for value in given]
        SOLVERS[kind](*given, DT)
        assert all(np.array_equal(value, old) for value, old in zip(given, before))


def test_the_snippet_of_the_readme_runs(capsys):
    text = (pathlib.Path(__file__).parents[1] / "README.md").read_text(encoding="utf-8")
    snippets = re.findall(r"```python\n(.*?)```", text, re.DOTALL)
    assert len(snippets) == 1
    exec(snippets[0], {})
    assert float(capsys.readouterr().out.split()[0]) < 2e-5
