"""Invalid arguments raise the documented exceptions, whose messages name the argument and what was expected."""

import math

import numpy as np
import pytest

import quenta

ONES = np.ones(21)
SYSTEM = np.ones((21, 2)), np.ones((21, 2, 2))
HOLED = np.where(np.arange(21) == 7, np.nan, 1.0)


class NoArray:
    def __array__(self, *_):
        raise ValueError("no array at all")


# Exception, pattern of the message, and call.
SAMPLED = [
    (ValueError, r"g: expected .* \(N, D\) .* got \(21, 2, 2\)", lambda: quenta.solve_vie2(SYSTEM[1], SYSTEM[1], 0.1)),
    (ValueError, r"g: expected .* got \(21, 0\)", lambda: quenta.solve_vie2(np.ones((21, 0)), SYSTEM[1], 0.1)),
    (ValueError, r"K: expected .* \(21,\).* got \(20,\)", lambda: quenta.solve_vie2(ONES, ONES[1:], 0.1)),
    (ValueError, r"K: expected .* \(21, 2, 2\).* got \(21, 2\)", lambda: quenta.solve_vie2(SYSTEM[0], SYSTEM[0], 0.1)),
    (ValueError, r"K: expected .* got \(21, 3, 3\)", lambda: quenta.solve_vie2(SYSTEM[0], np.ones((21, 3, 3)), 0.1)),
    (ValueError, r"a: expected .* got \(20,\)", lambda: quenta.solve_vide(ONES, ONES, ONES[1:], 1.0, 0.1)),
    (ValueError, "a: expected an array of real numbers, got None", lambda: quenta.solve_vide(ONES, ONES, None, 1, 0.1)),
    (ValueError, "g: expected finite numbers, got nan at index 7", lambda: quenta.solve_vie2(HOLED, ONES, 0.1)),
    (ValueError, r"K: expected finite numbers, got inf at index \(0, 0, 0\)",
     lambda: quenta.solve_vie2(SYSTEM[0], SYSTEM[1] * np.inf, 0.1)),
    (ValueError, "g: expected an array of real numbers.*complex", lambda: quenta.solve_vie2(ONES * 1j, ONES, 0.1)),
    (ValueError, "g: expected an array of real numbers.*<U", lambda: quenta.solve_vie2("ones", ONES, 0.1)),
    (ValueError, "g: expected an array of real numbers.*object", lambda: quenta.solve_vie2([object()] * 9, ONES, 0.1)),
    (ValueError, "K: expected an array of real numbers", lambda: quenta.solve_vie2(ONES, [[1.0], [1.0, 2.0]], 0.1)),
    (ValueError, "K: expected an array of real numbers", lambda: quenta.solve_vie2(ONES, NoArray(), 0.1)),
    (ValueError, "K: expected .* masked", lambda: quenta.solve_vie2(ONES, np.ma.masked_less(ONES, 2), 0.1)),
    (ValueError, "dt: expected a positive number, got 0.0", lambda: quenta.solve_vie2(ONES, ONES, 0)),
    (ValueError, "dt: expected a positive number, got -0.1", lambda: quenta.solve_vie2(ONES, ONES, -0.1)),
    (ValueError, "dt: expected a finite number, got nan", lambda: quenta.solve_vie2(ONES, ONES, float("nan"))),
    (ValueError, "dt: expected .* multiples are finite", lambda: quenta.solve_vie2(ONES, ONES, 1e307)),
    (ValueError, "dt: expected a real number, got 'x'", lambda: quenta.solve_vie2(ONES, ONES, "x")),
    (ValueError, "dt: expected a real number, got '0.1'", lambda: quenta.solve_vie2(ONES, ONES, "0.1")),
    (ValueError, "dt: expected a real number", lambda: quenta.solve_vie2(ONES, ONES, ONES)),
    (ValueError, "dt: expected a real number", lambda: quenta.solve_vie2(ONES, ONES, 10**400)),
    (ValueError, "y0: expected a real number, got None", lambda: quenta.solve_vide(ONES, ONES, ONES, None, 0.1)),
    (ValueError, r"y0: expected .* \(2,\).* got \(3,\)",
     lambda: quenta.solve_vide(*SYSTEM, SYSTEM[1], np.ones(3), 0.1)),
    (ValueError, "y0: expected .* got None", lambda: quenta.solve_vie1(ONES, ONES, 0.1, continuous=True)),
    (ValueError, "y0: expected None without continuous", lambda: quenta.solve_vie1(ONES, ONES, 0.1, y0=1.0)),
    (ValueError, "t_end: expected None because the samples of g determine the end",
     lambda: quenta.solve_vie2(ONES, 1.0, 0.1, t_end=1)),
    (ValueError, "t_end: expected .* got None", lambda: quenta.solve_vie2(1.0, np.cos, 0.1)),
    (ValueError, "t_end: expected a positive number", lambda: quenta.solve_vie2(1.0, np.cos, 0.1, t_end=-1)),
    (quenta.SizeError, "t_end: expected at most", lambda: quenta.solve_vie2(1.0, np.cos, 1e-300, t_end=1e300)),
    (quenta.SizeError, "fit into memory", lambda: quenta.solve_vie2(1.0, np.cos, 1.0, t_end=2e9)),
    (ValueError, "g: expected a function that returns", lambda: quenta.solve_vie2(lambda t: t[1:], 1.0, 0.1, t_end=1)),
    (ValueError, "K: expected an array of real numbers", lambda: quenta.solve_vie2(1.0, lambda t: None, 0.1, t_end=1)),
    (ValueError, "K: expected a function of an array of times.*numpy.vectorize",
     lambda: quenta.solve_vie2(1.0, math.exp, 0.1, t_end=1)),
    (quenta.SizeError, "g: expected at least 5 samples.* got 4", lambda: quenta.solve_vie2(ONES[:4], ONES[:4], 0.1)),
    (quenta.SizeError, "g: expected at least 5 samples.* got 0", lambda: quenta.solve_vie2(ONES[:0], ONES[:0], 0.1)),
    (quenta.SizeError, "g: expected at least 2 samples.* got 1",
     lambda: quenta.solve_vie2(ONES[:1], ONES[:1], 0.1, setting=(1, [0]))),
    (quenta.SizeError, r"g: expected N \* D \* D to be at most 2147483647",
     lambda: quenta.solve_vie2(np.ones((1000, 2000)), np.ones((2000, 2000)), 0.1)),
    (quenta.SizeError, r"\(\(nodes \+ 1\) \* D\) \*\* 2",
     lambda: quenta.solve_vie2(np.ones((2, 20000)), np.ones((1, 1, 1)), 0.1, setting=(1, [0, 1]))),
    (quenta.SizeError, "fit into memory, got a solve of 57 steps .* D = 3000",
     lambda: quenta.solve_vie2(np.ones((230, 3000)), np.ones((3000, 3000)), 0.1)),
    (quenta.SizeError, "fit into memory, got a copy of g",
     lambda: quenta.solve_vie2(np.broadcast_to(1.0, (2**31, 2**10)), 1.0, 0.1)),
    (quenta.UnsupportedSettingError, r"m from 1 to 4 .* got \(2, \[2, 1\]\)",
     lambda: quenta.solve_vie2(ONES, ONES, 0.1, setting=(2, [2, 1]))),
    (quenta.UnsupportedSettingError, r"got \(0, \[0\]\)", lambda: quenta.solve_vie2(ONES, ONES, 0.1, setting=(0, [0]))),
    (quenta.UnsupportedSettingError, r"got \(65536, \[0\]\)",
     lambda: quenta.solve_vie2(ONES, ONES, 0.1, setting=(65536, [0]))),
    (quenta.UnsupportedSettingError, r"got \(2, \[\]\)", lambda: quenta.solve_vie2(ONES, ONES, 0.1, setting=(2, []))),
    (quenta.UnsupportedSettingError, r"nodes above 0, .* got \(2, \[0, 1, 2\]\)",
     lambda: quenta.solve_vie1(ONES, ONES, 0.1, setting=(2, [0, 1, 2]))),
    (quenta.UnsupportedSettingError, r"amplify .* got \(3, \[1\]\)",
     lambda: quenta.solve_vie1(ONES, ONES, 0.1, setting=(3, [1]))),
    (ValueError, r"setting: expected a pair", lambda: quenta.solve_vie2(ONES, ONES, 0.1, setting=2)),
    (ValueError, r"setting: expected a pair", lambda: quenta.solve_vie2(ONES, ONES, 0.1, setting=(2, "012"))),
    (ValueError, r"setting: expected a pair", lambda: quenta.solve_vie2(ONES, ONES, 0.1, setting=(2.0, [1]))),
    (quenta.SingularBlockError, "singular", lambda: quenta.solve_vie1(ONES, 0 * ONES, 0.1)),
    (quenta.SingularBlockError, "singular", lambda: quenta.solve_vie2(ONES, ONES, 1.0, setting=(1, [1]))),
]


@pytest.mark.parametrize("case", range(len(SAMPLED)))
def test_sample_based_solvers_refuse(case):
    expected, text, call = SAMPLED[case]
    with pytest.raises(expected, match=text):
        call()


def test_an_invented_setting_is_refused():
    for expected, setting in (
        (quenta.UnsupportedSettingError, quenta.Setting(9, 2, (0, 1, 7), {})),
        (quenta.UnsupportedSettingError, quenta.Setting(0, 0, (0,), {})),
        (ValueError, quenta.Setting(9, "2", None, {})),
    ):
        with pytest.raises(expected, match="setting: expected"):
            quenta.solve_vie2(ONES, ONES, 0.1, setting=setting)


def test_only_m_and_the_nodes_of_a_setting_are_used():
    made_up = quenta.solve_vie2(ONES, ONES, 0.1, setting=quenta.Setting(99, 2, (0, 1), {}))
    assert made_up.setting is quenta.settings()[6]


def test_values_that_are_not_finite_are_accepted_without_check_finite():
    found = quenta.solve_vie2(HOLED, ONES, 0.1, check_finite=False, setting=(1, [1]))
    assert np.isfinite(found.y[:6]).all() and np.isnan(found.y[7:]).all()
    assert np.isnan(quenta.solve_vide(ONES, ONES, ONES, np.nan, 0.1, check_finite=False).y).all()


def test_growth_causes_a_warning():
    with pytest.warns(quenta.GrowthWarning, match="5.83"):
        quenta.solve_vie1(ONES, ONES, 0.1, setting=(2, [1]), continuous=True, y0=0.0)
    with pytest.warns(quenta.GrowthWarning, match="the solution overflows"):
        quenta.solve_vie2(ONES[:9] * 1e300, ONES[:9] * 1e10, 1.0, setting=(1, [0]))


def test_times_outside_the_interval_are_refused():
    found = quenta.solve_vie2(ONES, ONES, 0.1)
    for call in (found, found.derivative):
        for t in (-1e-9, 2.0001, [0.0, 3.0], np.array([[5.0]])):
            with pytest.raises(ValueError, match=r"t: expected times from 0 to 2\.0, got "):
                call(t)
        with pytest.raises(ValueError, match="t: expected times from 0 to 2.0, got nan"):
            call([1.0, np.nan])
        for t in ("x", None):
            with pytest.raises(ValueError, match="t: expected"):
                call(t)
        with pytest.raises(ValueError, match="side: expected 'mean', 'left' or 'right', got 'top'"):
            call(1.0, "top")
    assert found([]).shape == (0,)


# ---- Blocks ---------------------------------------------------------------------------------------------------------

A, B = np.eye(6).reshape(3, 2, 3, 2), np.ones((3, 2))
CARRIED = np.ones((3, 2, 3, 3))
W, H, C, E = np.ones(2), np.ones(3), np.zeros((3, 2)), np.zeros((2, 2))
BLOCKS = [
    (ValueError, r"b: expected .* \(N, P\) .* got \(6,\)", lambda: quenta.solve_blocks_vie1(A, B.ravel())),
    (ValueError, r"A: expected .* \(3, 2, 3, 2\).* got \(6, 6\)", lambda: quenta.solve_blocks_vie1(A.reshape(6, 6), B)),
    (ValueError, r"A: expected .* \(3, 2, 3, 3\)", lambda: quenta.solve_blocks_vie1_cont(A, B, W, 1.0, 0.0)),
    (ValueError, r"A: expected .* \(3, 2, 3, 2, 1, 1\)", lambda: quenta.solve_blocks_vie2(A, B[:, :, None])),
    (ValueError, r"w: expected .* \(2,\)", lambda: quenta.solve_blocks_vie1_cont(CARRIED, B, H, 1.0, 0.0)),
    (ValueError, "rho: expected a real number", lambda: quenta.solve_blocks_vie1_cont(CARRIED, B, W, W, 0.0)),
    (ValueError, "y0: expected a real number", lambda: quenta.solve_blocks_vie1_cont(CARRIED, B, W, 1.0, W)),
    (ValueError, r"C: expected", lambda: quenta.solve_blocks_vide(CARRIED, B, H, E, W, H, 0.0)),
    (ValueError, r"E: expected", lambda: quenta.solve_blocks_vide(CARRIED, B, C, W, W, H, 0.0)),
    (ValueError, r"h: expected", lambda: quenta.solve_blocks_vide(CARRIED, B, C, E, W, W, 0.0)),
    (ValueError, r"y0: expected", lambda: quenta.solve_blocks_vide(CARRIED, B, C, E, W, H, "x")),
    (ValueError, "b: expected finite", lambda: quenta.solve_blocks_vie2(A, B * np.nan)),
    (ValueError, r"A: expected finite .* got nan at index \(0, 0, 0, 0\)", lambda: quenta.solve_blocks_vie2(A * np.nan, B)),
    (ValueError, r"A: expected finite .* got inf", lambda: quenta.solve_blocks_vie1(A + np.inf, B)),
    (quenta.SizeError, "b: expected N from 1", lambda: quenta.solve_blocks_vie1(np.ones((0, 2, 0, 2)), np.ones((0, 2)))),
    (quenta.SizeError, "b: expected P from 1 to 5, got 6", lambda: quenta.solve_blocks_vie1(A, np.ones((1, 6)))),
    (quenta.SizeError, "b: expected P from 1 to 5, got 0", lambda: quenta.solve_blocks_vie1(A, np.ones((1, 0)))),
    (quenta.SizeError, "b: expected D from 1 to 8, got 9", lambda: quenta.solve_blocks_vie1(A, np.ones((1, 1, 9)))),
    (quenta.SizeError, "b: expected D from 1 to 8, got 0", lambda: quenta.solve_blocks_vie1(A, np.ones((1, 1, 0)))),
]


@pytest.mark.parametrize("case", range(len(BLOCKS)))
def test_block_solvers_refuse(case):
    expected, text, call = BLOCKS[case]
    with pytest.raises(expected, match=text):
        call()


@pytest.mark.parametrize("D", [None, 2])
def test_a_singular_block_leaves_the_steps_before_it(D):
    N, P = 5, 2
    matrix = np.ones(()) if D is None else np.eye(D)
    blocks = np.einsum("ni,mj,...->nimj...", np.ones((N, P)), np.zeros((N, P)), matrix)
    for n in range(N):
        for i in range(P):
            blocks[n, i, n, i] = 0 if n == 3 else 2 * matrix
    right = np.ones((N, P) + matrix.shape[1:])
    with pytest.raises(quenta.SingularBlockError, match="step 3") as raised:
        quenta.solve_blocks_vie1(blocks, right)
    assert raised.value.step == 3 and raised.value.y is None
    assert np.array_equal(raised.value.x, right[:3] / 2)
    carried = np.concatenate([blocks, np.zeros_like(blocks[:, :, :, :1])], axis=3)
    y0 = 7.0 if D is None else np.full(D, 7.0)
    with pytest.raises(quenta.SingularBlockError, match="step 3") as raised:
        quenta.solve_blocks_vie1_cont(carried, right, np.zeros(P), 1.0, y0)
    assert raised.value.x.shape == (3, P) + matrix.shape[1:]
    assert np.array_equal(raised.value.y, np.full((4,) + matrix.shape[1:], 7.0))


# ---- Other functions ------------------------------------------------------------------------------------------------

OTHERS = [
    (ValueError, "kind: expected 'vie1', 'vie2' or 'vide', got 'x'", lambda: quenta.recommend("x")),
    (ValueError, "kind: expected", lambda: quenta.recommend(None)),
    (ValueError, "kind: expected", lambda: quenta.recommend(ONES)),
    (ValueError, "smoothness: expected an integer, got 1.5", lambda: quenta.recommend("vie2", smoothness=1.5)),
    (ValueError, "smoothness: expected an integer of at least 0, got -1", lambda: quenta.recommend("vie2", smoothness=-1)),
    (ValueError, "stiff: expected", lambda: quenta.recommend("vie1", stiff=True)),
    (ValueError, "continuous: expected", lambda: quenta.recommend("vie2", continuous=True)),
    (quenta.SizeError, "samples: expected at least 9", lambda: quenta.recommend("vie2", samples=8)),
    (ValueError, "samples: expected an integer", lambda: quenta.recommend("vie2", samples="many")),
    (ValueError, "solve: expected solve_vie1, .* got", lambda: quenta.with_error(print, 1)),
    (ValueError, "solve: expected solve_vie1, .* got", lambda: quenta.with_error([])),
    (ValueError, "dt: expected", lambda: quenta.with_error(quenta.solve_vie2, ONES, ONES, 0)),
    (quenta.SizeError, "g: expected at least 13 samples .* got 12",
     lambda: quenta.with_error(quenta.solve_vie2, ONES[:12], ONES[:12], 0.1)),
    (ValueError, "solve: expected a function", lambda: quenta.ensemble(3, [1])),
    (ValueError, "chunk: expected an integer of at least 1, got 0", lambda: quenta.ensemble(abs, [1], chunk=0)),
    (ValueError, "chunk: expected an integer", lambda: quenta.ensemble(abs, [1], chunk="x")),
    (ValueError, "parameters: expected", lambda: quenta.ensemble(abs, 7)),
    (ValueError, "executor: expected", lambda: quenta.ensemble(abs, [7], executor=7)),
]


# An array has no truth value, and the text "False" would count as true.
@pytest.mark.parametrize("value", [np.ones(2), "False", None, 2])
def test_flags_must_be_true_or_false(value):
    for name, call in (
        ("check_finite", lambda: quenta.solve_vie2(ONES, ONES, 0.1, check_finite=value)),
        ("check_finite", lambda: quenta.solve_vide(ONES, ONES, ONES, 1.0, 0.1, check_finite=value)),
        ("check_finite", lambda: quenta.solve_vie1(ONES, ONES, 0.1, check_finite=value)),
        ("continuous", lambda: quenta.solve_vie1(ONES, ONES, 0.1, continuous=value, y0=1.0)),
        ("check_finite", lambda: quenta.solve_blocks_vie2(A, B, check_finite=value)),
        ("check_finite", lambda: quenta.solve_blocks_vie1_cont(CARRIED, B, W, 1.0, 0.0, check_finite=value)),
        ("stiff", lambda: quenta.recommend("vie2", stiff=value)),
        ("continuous", lambda: quenta.recommend("vie1", continuous=value)),
    ):
        with pytest.raises(ValueError, match=f"^{name}: expected True or False, got "):
            call()


def test_numpy_booleans_are_accepted():
    assert quenta.solve_vie2(ONES, ONES, 0.1, check_finite=np.True_).y.shape == (21,)
    assert quenta.recommend("vie1", continuous=np.False_).setting == quenta.recommend("vie1").setting


@pytest.mark.parametrize("case", range(len(OTHERS)))
def test_other_functions_refuse(case):
    expected, text, call = OTHERS[case]
    with pytest.raises(expected, match=text):
        call()
