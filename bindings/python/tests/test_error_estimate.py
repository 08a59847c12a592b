"""Trusted error estimates are correct within a factor of 3, also for problems with kinks, jumps and few samples."""

import dataclasses
import math
import os
import pydoc
import threading
import warnings

import numpy as np
import pytest
from problems import KINDS, SOLVERS, arguments, coupled_arguments, solution
from random_problems import FAMILIES, Term, convolution, draw, judge, values

import quenta

# Estimates must be correct even if the solver warns.
pytestmark = pytest.mark.filterwarnings("ignore::UserWarning")

DT = 10 / 1440
T = np.arange(1441) * DT
DEFAULTS = {"vie1": (3, [1, 2, 3]), "vie2": (2, [0, 1, 2]), "vide": (2, [0, 1, 2])}
#: The number of random problems of each kind. measure_estimates.py draws any number.
COUNT = 500 if os.environ.get("QUENTA_LONG_TESTS") == "1" else 60


def shares(estimate, y):
    """The ratio of estimate and error: for the largest error, and for every error above a tenth of it."""
    true = abs(estimate.solution.y - y[: len(estimate.solution.y)])
    large = true > 0.1 * true.max()
    return estimate.error.max() / true.max(), estimate.error[large] / true[large]


# ---- Correct estimates ----------------------------------------------------------------------------------------------


@pytest.mark.parametrize("kind", KINDS)
def test_within_a_factor_of_3_for_every_setting(kind):
    trusted = 0
    for setting in quenta.settings():
        if not setting.measured[kind].usable:
            continue
        estimate = quenta.with_error(SOLVERS[kind], *arguments(kind, T), DT, setting=setting)
        if estimate.trusted:
            largest, single = shares(estimate, solution(T))
            assert 1 / 3 < largest < 3, setting
            assert np.mean((single > 1 / 3) & (single < 3)) > 0.95, setting
            assert estimate.order == pytest.approx(setting.measured[kind].order, abs=1)
            trusted += 1
    assert trusted >= {"vie1": 23, "vie2": 56, "vide": 55}[kind]


SMOOTH = {
    "growing": (lambda t: np.cosh(t), lambda t: np.ones_like(t), lambda t: t),
    "oscillating": (lambda t: np.cos(t), lambda t: np.ones_like(t), lambda t: -t),
    "decaying": (lambda t: np.exp(-t), lambda t: np.ones_like(t), lambda t: -np.ones_like(t)),
}


@pytest.mark.parametrize("problem", SMOOTH)
@pytest.mark.parametrize("N", [41, 161, 401, 1001])
def test_within_a_factor_of_3_on_other_problems_and_grids(problem, N):
    y, g, K = SMOOTH[problem]
    dt = 4 / (N - 1)
    t = np.arange(N) * dt
    estimate = quenta.with_error(quenta.solve_vie2, g(t), K(t), dt)
    assert estimate.trusted, estimate.reason
    largest, single = shares(estimate, y(t))
    assert 1 / 3 < largest < 3
    assert np.mean((single > 1 / 3) & (single < 3)) > 0.95


# The smallest accepted fraction of trusted estimates, by family.
TRUSTED = {"smooth": 0.9, "kink": 0.6, "jump": 0.5, "oscillation": 0.5, "first kind": 0.75, "stiff": 0.75}


@pytest.mark.parametrize("family", FAMILIES)
def test_no_trusted_estimate_is_far_too_small_on_random_problems(family):
    found, worst = judge(family, COUNT)
    assert found["10 times too small"] == 0, worst
    assert found["3 times too small"] <= 0.01 * found["trusted"], worst
    assert found["3 times too large"] <= 0.02 * found["trusted"], worst
    assert found["10 times too large"] <= 0.01 * found["trusted"], worst
    assert found["trusted"] >= TRUSTED[family] * COUNT


@pytest.mark.parametrize("family", FAMILIES)
def test_estimates_of_single_samples_on_random_problems(family):
    """Errors below a tenth of the largest one are not considered."""
    small = every = 0
    for number in range(30):
        problem = draw(family, number)
        estimate = problem.estimate()
        if estimate.trusted:
            _, single = shares(estimate, problem.y)
            small += np.sum(single < 1 / 3)
            every += len(single)
    assert every > 100 and small <= 0.001 * every


@pytest.mark.parametrize("kind", KINDS)
def test_systems(kind):
    given, y = coupled_arguments(kind, T, 3)
    estimate = quenta.with_error(SOLVERS[kind], *given, DT, setting=DEFAULTS[kind])
    assert estimate.trusted and estimate.error.shape == estimate.solution.y.shape == (1441, 3)
    for component in range(3):
        true = abs(estimate.solution.y - y)[:, component]
        assert 1 / 3 < estimate.error[:, component].max() / true.max() < 3


def test_the_solution_is_identical_to_that_of_the_solver():
    plain = quenta.solve_vie2(*arguments("vie2", T), DT)
    assert np.array_equal(quenta.with_error(quenta.solve_vie2, *arguments("vie2", T), DT).solution.y, plain.y)
    by_functions = quenta.with_error(quenta.solve_vie2, 1.0, np.cos, dt=0.01, t_end=4.0)
    assert by_functions.trusted and by_functions.error.max() < 1e-5


@pytest.mark.parametrize("setting", [(1, [0, 1]), (2, [0, 1, 2]), (4, [0, 1, 2, 3, 4])])
def test_problems_that_start_at_0(setting):
    """With g = K = t^2 exp(-t) / 2 the trapezoidal rule has order 4 instead of 2."""
    t = np.arange(1601) * 0.01
    rate = math.sqrt(0.75)
    y = (1 - np.exp(-1.5 * t) * (np.cos(rate * t) + 1.5 / rate * np.sin(rate * t))) / 3
    g = t**2 * np.exp(-t) / 2
    estimate = quenta.with_error(quenta.solve_vie2, g, g, 0.01, setting=setting)
    assert estimate.trusted, estimate.reason
    assert 1 / 3 < shares(estimate, y)[0] < 3


def test_the_reason_names_rounding_errors():
    estimate = quenta.with_error(quenta.solve_vie2, 1 + T, np.zeros_like(T), DT)
    assert estimate.trusted and "rounding" in estimate.reason
    assert abs(estimate.solution.y - (1 + T)).max() <= 4 * estimate.error.max() < 1e-13


@pytest.mark.parametrize("value", [0.0, 1.0])
def test_solutions_that_agree_exactly(value):
    estimate = quenta.with_error(quenta.solve_vie2, np.full(65, value), np.zeros(65), 0.1)
    assert estimate.trusted and "rounding" in estimate.reason
    assert np.isfinite(estimate.error).all() and estimate.error.max() <= 1e-14 * value and math.isnan(estimate.order)


# ---- Features that the setting does not read ------------------------------------------------------------------------


def ramp(kind, place, N, end=2.0):
    """Times, solution, g and K for y = 1 + max(t - place, 0) and K = exp(-t)."""
    t = np.linspace(0, end, N)
    y, K = [Term(1.0), Term(1.0, 1, 0.0, place)], [Term(1.0, 0, -1.0)]
    memory = values(convolution(y, K), t)
    return t, values(y, t), memory if kind == "vie1" else values(y, t) - memory, values(K, t)


@pytest.mark.parametrize("kind", ["vie1", "vie2"])
def test_a_kink_just_after_a_step_boundary_of_all_coarser_grids(kind):
    """Steps of the grids of every, every second and every fourth sample end at 0.18, 0.36, ..."""
    t, y, g, K = ramp(kind, 0.1805, 397, end=1.98)
    estimate = quenta.with_error(SOLVERS[kind], g, K, t[1], setting=(3, [1, 2, 3]))
    error = abs(estimate.solution.y - y).max()
    assert error > 1e-5
    assert estimate.error.max() > error / 3
    assert not estimate.trusted or estimate.error.max() < 3 * error


def test_samples_that_contradict_each_other():
    """The setting reads every second sample of g, so an impulse between two nodes does not affect the solution."""
    g = np.zeros(65)
    g[33] = 1.0
    estimate = quenta.with_error(quenta.solve_vie2, g, np.exp(-0.1 * np.arange(65)), 0.1)
    assert not estimate.solution.y.any() and not estimate.trusted and estimate.error[33] >= 0.5
    estimate = quenta.with_error(quenta.solve_vie2, 1 + g, np.zeros(65), 0.1)
    assert estimate.error[33] >= 0.5


def test_a_kernel_that_decays_within_a_spacing_is_not_trusted():
    """On all grids the integral of the kernel is wrong."""
    t = np.arange(145) * 0.1
    y, K = [Term(1.0, 0, -0.1)], [Term(-200.0, 0, -100.0)]
    g = values([Term(-0.1, 0, -0.1)], t) - values(convolution(y, K), t)
    estimate = quenta.with_error(quenta.solve_vide, g, values(K, t), 0.0, 1.0, 0.1)
    assert not estimate.trusted and "kernel" in estimate.reason


# ---- Estimates that must not be trusted -----------------------------------------------------------------------------


def test_rough_kernels():
    for K in (np.sqrt(T), np.where(T > 3.3333, 1.0, 0.0), np.random.default_rng(3).normal(size=T.shape)):
        with warnings.catch_warnings():
            warnings.simplefilter("ignore", quenta.UnreadSamplesWarning)
            estimate = quenta.with_error(quenta.solve_vie2, np.ones_like(T), -K, DT)
        assert not estimate.trusted and "rough" in estimate.reason
        assert estimate.order < 2.5


def test_noise_in_an_equation_of_the_first_kind():
    g, K = arguments("vie1", T)
    noise = 1e-4 * np.random.default_rng(4).normal(size=T.shape)
    assert not quenta.with_error(quenta.solve_vie1, g + noise, K, DT).trusted


def test_a_kernel_of_the_first_kind_that_starts_at_0():
    """The solution for K = t and g = t^2 / 2 is 1; the computed one grows without bound."""
    t = np.arange(361) * 0.025
    estimate = quenta.with_error(quenta.solve_vie1, t**2 / 2, t, 0.025)
    assert abs(estimate.solution.y).max() > 1e6
    assert not estimate.trusted and "singular" in estimate.reason


def test_too_few_samples_for_the_kernel():
    t = np.arange(65) * (10 / 64)
    with pytest.warns(quenta.UnreadSamplesWarning):
        assert not quenta.with_error(quenta.solve_vie2, np.sin(9 * t), np.cos(11 * t), 10 / 64).trusted


def test_a_form_whose_errors_grow():
    """The estimated error is as large as the solution."""
    with pytest.warns(quenta.GrowthWarning) as caught:
        estimate = quenta.with_error(
            quenta.solve_vie1, *arguments("vie1", T), DT, setting=(2, [1]), continuous=True, y0=1.0
        )
    assert estimate.error.max() > 0.5 * abs(estimate.solution.y).max() > 1e100
    assert [warning.filename for warning in caught] == [__file__]


@pytest.mark.parametrize("where", ["g", "K"])
def test_solutions_that_are_not_finite(where):
    g, K = np.ones(65), np.ones(65)
    (g if where == "g" else K)[8] = np.nan
    estimate = quenta.with_error(quenta.solve_vie2, g, K, 0.1, check_finite=False)
    assert not estimate.trusted and "finite" in estimate.reason and np.isnan(estimate.error).all()


# ---- Arguments and threads ------------------------------------------------------------------------------------------


@pytest.mark.parametrize("kind", KINDS)
@pytest.mark.parametrize("D", [None, 2])
def test_fewest_samples(kind, D):
    t = np.arange(13) * 0.05
    given, y = (arguments(kind, t), solution(t)) if D is None else coupled_arguments(kind, t, D)
    estimate = quenta.with_error(SOLVERS[kind], *given, 0.05, setting=(1, [1]))
    assert estimate.trusted and 1 / 3 < shares(estimate, y)[0] < 3
    with pytest.raises(quenta.SizeError, match="at least 13 samples .* got 12"):
        quenta.with_error(quenta.solve_vie2, np.ones(12), np.ones(12), 0.1, setting=(1, [1]))


def test_help_shows_each_field_once():
    text = pydoc.render_doc(quenta.EstimatedSolution, renderer=pydoc.plaintext)
    lines = [line.strip(" |") for line in text.split("Methods defined here")[0].splitlines()]
    for field in dataclasses.fields(quenta.EstimatedSolution):
        assert sum(line.startswith(f"{field.name} : ") for line in lines) == 1


def test_warning_filters_are_not_changed():
    """The filters belong to the process, so a change in one thread would affect all others."""
    filters, running, seen = list(warnings.filters), threading.Event(), []
    running.set()

    def estimate():
        while running.is_set():
            quenta.with_error(quenta.solve_vie2, np.ones(65), np.ones(65), 0.1)

    threads = [threading.Thread(target=estimate) for _ in range(3)]
    for thread in threads:
        thread.start()
    try:
        for _ in range(2000):  # some milliseconds
            if warnings.filters != filters:
                seen.append(list(warnings.filters))
        with pytest.warns(quenta.GrowthWarning):
            quenta.solve_vie1(*arguments("vie1", T), DT, setting=(2, [1]), continuous=True, y0=1.0)
    finally:
        running.clear()
        for thread in threads:
            thread.join()
    assert not seen and warnings.filters == filters
