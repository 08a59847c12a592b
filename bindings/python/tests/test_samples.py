"""Arguments g, K and a: constants, functions of time, systems, kernels that end, arrays of other packages."""

import math
import pickle
import warnings
from concurrent.futures import ProcessPoolExecutor

import numpy as np
import pytest
from problems import KINDS, SOLVERS

import quenta

T = np.arange(101) * 0.05
MATRIX = np.array([[-1.0, 0.5], [0.2, -2.0]])


def assert_same(found, expected):
    assert found.y.shape == expected.y.shape and np.array_equal(found.y, expected.y)


# ---- Functions ------------------------------------------------------------------------------------------------------


def test_functions_may_modify_their_argument():
    def in_place(t):
        t *= -1
        return np.exp(t, out=t)

    expected = quenta.solve_vide(lambda t: np.exp(-t), lambda t: np.exp(-t), lambda t: -t, 1.0, 0.05, t_end=5)
    assert_same(quenta.solve_vide(in_place, in_place, lambda t: -t, 1.0, 0.05, t_end=5), expected)
    assert_same(quenta.solve_vide(lambda t: np.exp(-t), in_place, lambda t: np.negative(t, out=t), 1.0, 0.05, t_end=5), expected)


def test_functions_may_return_the_same_memory():
    memory = np.empty(101)
    found = quenta.solve_vie2(lambda t: np.cos(t, out=memory), lambda t: np.sin(t, out=memory), 0.05, t_end=5)
    expected = quenta.solve_vie2(np.cos, np.sin, 0.05, t_end=5)
    assert_same(found, expected)
    view = memory.view(np.recarray)

    def cosine(t):
        np.cos(t, out=memory)
        return view

    def sine(t):
        np.sin(t, out=memory)
        return view

    assert_same(quenta.solve_vie2(cosine, sine, 0.05, t_end=5), expected)


def test_functions_that_are_infinite_at_zero_are_refused():
    for K in (lambda t: t**-0.5, lambda t: 1 / t, np.log, np.vectorize(lambda t: 1 / math.sqrt(t))):
        with warnings.catch_warnings():
            warnings.simplefilter("error")
            with pytest.raises(ValueError, match="K: expected a finite value at t = 0, got .*: a singular kernel cannot be sampled"):
                quenta.solve_vie2(1.0, K, 0.05, t_end=5)
    K = np.concatenate([[np.inf], T[1:] ** -0.5])
    with pytest.raises(ValueError, match="K: expected a finite value at t = 0, got inf: a singular kernel"):
        quenta.solve_vie2(np.ones(101), K, 0.05)
    with pytest.raises(ValueError, match="K: expected a finite value at t = 0, got inf: a singular kernel"):
        quenta.solve_vie2(np.ones((101, 2)), K[:, np.newaxis, np.newaxis] * np.ones((2, 2)), 0.05)
    with pytest.raises(ValueError, match="g: expected a finite value at t = 0, got inf: a function that is singular"):
        quenta.solve_vie2(lambda t: t**-0.5, 1.0, 0.05, t_end=5)
    with pytest.warns(RuntimeWarning, match="divide by zero"):
        warnings.simplefilter("ignore", quenta.QuentaWarning)
        quenta.solve_vie2(1.0, lambda t: t**-0.5, 0.05, t_end=5, setting=(2, [1]), check_finite=False)


# ---- Systems --------------------------------------------------------------------------------------------------------


def test_constants_in_a_system():
    g, K, a = np.tile([1.0, 2.0], (101, 1)), np.tile(MATRIX, (101, 1, 1)), np.tile(-np.eye(2), (101, 1, 1))
    second = quenta.solve_vie2(g, K, 0.05)
    assert_same(quenta.solve_vie2([1.0, 2.0], K, 0.05), second)
    assert_same(quenta.solve_vie2([1.0, 2.0], MATRIX, 0.05, t_end=5), second)
    assert_same(quenta.solve_vie2([1.0, 2.0], lambda t: np.tile(MATRIX, (len(t), 1, 1)), 0.05, t_end=5), second)
    assert_same(quenta.solve_vie2(lambda t: np.tile([1.0, 2.0], (len(t), 1)), MATRIX, 0.05, t_end=5), second)
    mixed = quenta.solve_vide(g, K, a, [1.0, 0.0], 0.05)
    assert_same(quenta.solve_vide([1.0, 2.0], K, -1, [1.0, 0.0], 0.05), mixed)
    assert_same(quenta.solve_vide([1.0, 2.0], MATRIX, -1, [1.0, 0.0], 0.05, t_end=5), mixed)
    none = quenta.solve_vide(0 * g, K, a, [1.0, 0.0], 0.05)
    assert_same(quenta.solve_vide(0, MATRIX, -1.0, [1.0, 0.0], 0.05, t_end=5), none)
    alone = quenta.solve_vide(0 * g, 0 * K, a, [1.0, 0.0], 0.05)
    assert_same(quenta.solve_vide(0, 0, -1, [1.0, 0.0], 0.05, t_end=5), alone)
    assert np.allclose(alone.y, np.exp(-T)[:, np.newaxis] * [1.0, 0.0], atol=1e-6)


def test_a_scalar_kernel_in_a_system_means_a_multiple_of_the_identity():
    g, kernel = np.stack([np.cos(T), np.sin(T)], axis=1), np.exp(-T)
    expected = quenta.solve_vie2(g, kernel[:, np.newaxis, np.newaxis] * np.eye(2), 0.05)
    assert_same(quenta.solve_vie2(g, kernel, 0.05), expected)
    assert_same(quenta.solve_vie2(g, lambda t: np.exp(-t), 0.05), expected)
    for column in range(2):
        assert np.allclose(expected.y[:, column], quenta.solve_vie2(g[:, column], kernel, 0.05).y, rtol=0, atol=1e-13)


REFUSED = [
    (r"g: expected an array of shape \(101, 2\), or \(2,\) for a constant vector, .* a system with D = 2, got \(101,\)",
     lambda: quenta.solve_vie2(np.ones(101), MATRIX * np.ones((101, 1, 1)), 0.05)),
    ("t_end: expected None because the samples of g determine the end",
     lambda: quenta.solve_vie2(np.ones(101), np.cos, 0.05, t_end=1)),
    ("t_end: expected None because the samples of g determine the end",
     lambda: quenta.solve_vie2(np.ones(101), 1.0, 0.05, t_end=1)),
    (r"t_end: expected the end .* got None; K of shape \(2, 2\) is a constant matrix, and g of shape \(2,\) a constant vector",
     lambda: quenta.solve_vie2([1.0, 2.0], MATRIX, 0.05)),
    ("t_end: expected the end .* got None$", lambda: quenta.solve_vie2(1.0, np.cos, 0.05)),
    (r"K: expected samples of shape \(N,\) or \(N, D, D\), or a constant matrix of shape \(D, D\), got \(101, 2\); "
     r"g has shape \(101,\)", lambda: quenta.solve_vie2(np.ones(101), np.ones((101, 2)), 0.05)),
    (r"a: expected samples of shape .* got \(2, 2, 2, 2\)$",
     lambda: quenta.solve_vide(np.cos, 1.0, np.ones((2, 2, 2, 2)), 1.0, 0.05)),
    (r"K: expected a function of the lag alone, got one that needs more arguments; for K\(t, s\) use a block solver such as "
     r"quenta.solve_blocks_vie2", lambda: quenta.solve_vie2(np.ones(101), lambda t, s: t * s, 0.05)),
    ("g: expected a function of time alone, got one that needs more arguments$",
     lambda: quenta.solve_vie2(lambda t, y: t * y, 1.0, 0.05, t_end=1)),
    ("y0: expected a real number", lambda: quenta.solve_vide(np.ones(101), np.ones(101), np.ones(101), [1.0, 2.0], 0.05)),
    ("K: expected a system with D above 0", lambda: quenta.solve_vie2(1.0, np.ones((0, 0)), 0.05, t_end=1)),
    (r"K: expected an array of shape \(101,\).* got \(60,\) \(with kernel_ends=True, K is zero after its last sample\)",
     lambda: quenta.solve_vie2(np.ones(101), np.ones(60), 0.05)),
    (r"K: expected an array of shape \(101,\).* got \(102,\)$",
     lambda: quenta.solve_vie2(np.ones(101), np.ones(102), 0.05, kernel_ends=True)),
    ("kernel_ends: expected False because K is not an array of samples, got True",
     lambda: quenta.solve_vie2(np.ones(101), 1.0, 0.05, kernel_ends=True)),
    ("kernel_ends: expected True or False, got 'no'",
     lambda: quenta.solve_vie2(np.ones(101), 1.0, 0.05, kernel_ends="no")),
    ("check_finite: expected True or False, got array",
     lambda: quenta.solve_vie2(np.ones(101), 1.0, 0.05, check_finite=np.ones(2))),
    ("continuous: expected True or False, got array", lambda: quenta.solve_vie1(T, T, 0.05, continuous=np.ones(2))),
    ("stiff: expected True or False, got array", lambda: quenta.recommend("vie2", stiff=np.ones(2))),
    ("kind: expected 'vie1', 'vie2' or 'vide', got array", lambda: quenta.recommend(np.array(["vie1", "vie2"]))),
    ("side: expected 'mean', 'left' or 'right', got array",
     lambda: quenta.solve_vie2(np.ones(101), 1.0, 0.05)(1.0, np.array(["left", "right"]))),
    ("check_finite: expected True or False",
     lambda: quenta.solve_blocks_vie1(np.ones((1, 1, 1, 1)), np.ones((1, 1)), check_finite=T)),
]


@pytest.mark.parametrize("case", range(len(REFUSED)))
def test_arguments_that_do_not_match_are_refused(case):
    text, call = REFUSED[case]
    with pytest.raises(ValueError, match=text):
        call()


# ---- Kernels that end -----------------------------------------------------------------------------------------------


@pytest.mark.parametrize("kind", KINDS)
def test_a_kernel_that_ends_is_zero_afterwards(kind):
    N = 109
    t = np.arange(N) * 0.05
    K = np.where(t < 2, np.cos(np.pi * t / 4) ** 4, 0.0)
    others = (-t, 1.0) if kind == "vide" else ()
    solve = SOLVERS[kind]
    assert_same(solve(np.sin(t), K[:41], *others, 0.05, kernel_ends=True), solve(np.sin(t), K, *others, 0.05))
    assert_same(solve(np.sin(t), K, *others, 0.05, kernel_ends=True), solve(np.sin(t), K, *others, 0.05))


def test_a_kernel_that_ends_in_a_system_and_with_functions():
    K = np.cos(np.pi * T[:41] / 4) ** 4
    whole = np.concatenate([K, np.zeros(60)])
    expected = quenta.solve_vie2(np.cos(T), whole, 0.05)
    assert_same(quenta.solve_vie2(np.cos, K, 0.05, t_end=5, kernel_ends=True), expected)
    matrices = K[:, np.newaxis, np.newaxis] * MATRIX
    expected = quenta.solve_vie2(np.ones((101, 2)), whole[:, np.newaxis, np.newaxis] * MATRIX, 0.05)
    assert_same(quenta.solve_vie2(np.ones((101, 2)), matrices, 0.05, kernel_ends=True), expected)
    assert_same(quenta.solve_vie2(1.0, matrices, 0.05, t_end=5, kernel_ends=True), expected)
    estimate = quenta.with_error(quenta.solve_vie2, np.cos(T), K, 0.05, kernel_ends=True)
    assert_same(estimate.solution, quenta.solve_vie2(np.cos(T), whole, 0.05))


def test_a_kernel_that_ends_with_a_jump_causes_a_warning():
    with pytest.warns(quenta.UnreadSamplesWarning, match="K: "):
        quenta.solve_vie2(np.cos(T), np.ones(42), 0.05, kernel_ends=True)


# ---- Settings -------------------------------------------------------------------------------------------------------


def test_all_notations_of_a_setting():
    expected = quenta.solve_vie2(np.cos(T), np.sin(T), 0.05, setting=(2, [0, 2]))
    for setting in ("2:0,2", "2: 0, 2", quenta.Recommendation(expected.setting, "because"), expected):
        found = quenta.solve_vie2(np.cos(T), np.sin(T), 0.05, setting=setting)
        assert_same(found, expected)
        assert found.setting is expected.setting
    choice = quenta.recommend("vie2", smoothness=1)
    assert_same(
        quenta.solve_vie2(np.cos(T), np.sin(T), 0.05, setting=choice),
        quenta.solve_vie2(np.cos(T), np.sin(T), 0.05, setting=choice.setting),
    )
    for text in ("2", "2:", "0,1,2", "2:0;1", "2:0:1", ""):
        with pytest.raises(ValueError, match="setting: expected a pair .*, a text such as '2:0,1,2'"):
            quenta.solve_vie2(T, T, 0.05, setting=text)
    with pytest.raises(quenta.UnsupportedSettingError, match=r"got \(2, \[1, 3\]\)"):
        quenta.solve_vie2(T, T, 0.05, setting="2:1,3")


# ---- Arrays of other packages ---------------------------------------------------------------------------------------


def test_arrays_of_pandas():
    pandas = pytest.importorskip("pandas")
    expected = quenta.solve_vie2(np.cos(T), np.ones(101), 0.05)
    for kind in ("float64", "Float64"):
        table = pandas.DataFrame({"g": pandas.Series(np.cos(T), dtype=kind), "K": pandas.Series(np.ones(101), dtype="Int64")})
        assert_same(quenta.solve_vie2(table["g"], table["K"], 0.05), expected)
        assert_same(quenta.solve_vie2(table["g"].array, table["K"], 0.05), expected)
    system = pandas.DataFrame({"a": np.cos(T), "b": np.sin(T)}, dtype="Float64")
    assert_same(quenta.solve_vie2(system, np.eye(2), 0.05), quenta.solve_vie2(system.to_numpy(dtype=float), np.eye(2), 0.05))
    missing = pandas.Series(np.cos(T), dtype="Float64")
    missing[7] = pandas.NA
    with pytest.raises(ValueError, match="g: expected finite numbers, got nan at index 7"):
        quenta.solve_vie2(missing, np.ones(101), 0.05)
    with pytest.raises(ValueError, match="g: expected an array of real numbers"):
        quenta.solve_vie2(pandas.Series(["a"] * 101), np.ones(101), 0.05)


# ---- Messages and exceptions ------------------------------------------------------------------------------------------


def test_messages_show_all_digits_of_times():
    found = quenta.solve_vie2(np.ones(41), np.ones(41), 0.1)
    with pytest.raises(ValueError, match=r"t: expected times from 0 to 4\.0, got 4\.000000000001"):
        found(4 + 1e-12)


def test_warnings_have_a_common_base():
    for name in ("GrowthWarning", "UnreadSamplesWarning", "DroppedSamplesWarning", "IllPosedWarning"):
        assert issubclass(getattr(quenta, name), quenta.QuentaWarning) and issubclass(quenta.QuentaWarning, UserWarning)


def test_exceptions_and_warnings_can_be_pickled():
    for name in quenta.__all__:
        kind = getattr(quenta, name)
        if isinstance(kind, type) and issubclass(kind, Exception):
            copy = pickle.loads(pickle.dumps(kind("what was wrong")))
            assert type(copy) is kind and str(copy) == "what was wrong"


def impulse(place):
    g = np.zeros(101)
    g[place] = 1.0
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        return float(quenta.solve_vie2(g, np.ones(101), 0.05).y[-1])


def test_warnings_raised_as_errors_in_other_processes_become_failures():
    with ProcessPoolExecutor(1) as executor, warnings.catch_warnings():
        warnings.simplefilter("ignore")
        found = quenta.ensemble(impulse, [37, 53], executor=executor)
    assert [failure.index for failure in found.failures] == [0, 1]
    assert found.failures[0].error.startswith("UnreadSamplesWarning: g: setting (2, [0, 1, 2]) does not read 50 of 101")


def test_a_number_as_initial_value_applies_to_all_components():
    g, K = np.stack([np.sin(T), np.cos(T)], axis=1), np.exp(-T)
    assert_same(
        quenta.solve_vide(g, K, -1, 2, 0.05, setting=(1, [0, 1])),
        quenta.solve_vide(g, K, -1, [2, 2], 0.05, setting=(1, [0, 1])),
    )


def test_a_solution_that_overflows_causes_a_warning_even_without_check_finite():
    with pytest.warns(quenta.GrowthWarning, match="the solution overflows"):
        quenta.solve_vie2(np.ones(3001), np.full(3001, 10.0), 0.05, setting=(1, [0, 1]), check_finite=False)


def test_the_message_states_the_time_at_which_a_function_is_not_finite():
    with pytest.raises(ValueError, match=r"g: .* the end of the last step, 1.08, got nan at t = 1.02"):
        with np.errstate(invalid="ignore"):
            quenta.solve_vie2(lambda t: np.sqrt(1 - t), lambda t: np.exp(-t), 0.03, t_end=1)
    with pytest.raises(ValueError, match=r"K: .* got nan at t = 0.0 "):
        quenta.solve_vie2(1.0, lambda t: np.sin(t) / t, 0.03, t_end=1)
