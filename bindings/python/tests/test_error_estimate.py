"""Estimated errors are right within a factor of 3 on smooth problems, and are not trusted where they cannot be right."""

import warnings

import numpy as np
import pytest
from problems import KINDS, SOLVERS, arguments, coupled_arguments, solution

import quenta

DT = 10 / 1440
T = np.arange(1441) * DT
DEFAULTS = {"vie1": (3, [1, 2, 3]), "vie2": (2, [0, 1, 2]), "vide": (2, [0, 1, 2])}


def shares(estimate, y):
    """Of the largest error, and of all errors that are not small beside it: estimate / truth."""
    true = abs(estimate.solution.y - y[: len(estimate.solution.y)])
    large = true > 0.1 * true.max()
    return estimate.error.max() / true.max(), estimate.error[large] / true[large]


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
    assert trusted >= {"vie1": 18, "vie2": 50, "vide": 53}[kind]


SMOOTH = {
    "growing": (lambda t: np.cosh(t), lambda t: np.ones_like(t), lambda t: t),
    "oscillating": (lambda t: np.cos(t), lambda t: np.ones_like(t), lambda t: -t),
    "decaying": (lambda t: np.exp(-t), lambda t: np.ones_like(t), lambda t: -np.ones_like(t)),
}


@pytest.mark.parametrize("problem", SMOOTH)
@pytest.mark.parametrize("N", [161, 401, 1001])
def test_within_a_factor_of_3_on_other_problems_and_grids(problem, N):
    y, g, K = SMOOTH[problem]
    dt = 4 / (N - 1)
    t = np.arange(N) * dt
    estimate = quenta.with_error(quenta.solve_vie2, g(t), K(t), dt)
    assert estimate.trusted, estimate.reason
    largest, single = shares(estimate, y(t))
    assert 1 / 3 < largest < 3
    assert np.mean((single > 1 / 3) & (single < 3)) > 0.95


@pytest.mark.parametrize("kind", KINDS)
def test_systems(kind):
    given, y = coupled_arguments(kind, T, 3)
    estimate = quenta.with_error(SOLVERS[kind], *given, DT, setting=DEFAULTS[kind])
    assert estimate.trusted and estimate.error.shape == estimate.solution.y.shape == (1441, 3)
    for component in range(3):
        true = abs(estimate.solution.y - y)[:, component]
        assert 1 / 3 < estimate.error[:, component].max() / true.max() < 3


def test_the_solution_is_that_of_the_solver():
    plain = quenta.solve_vie2(*arguments("vie2", T), DT)
    assert np.array_equal(quenta.with_error(quenta.solve_vie2, *arguments("vie2", T), DT).solution.y, plain.y)
    by_functions = quenta.with_error(quenta.solve_vie2, 1.0, np.cos, dt=0.01, t_end=4.0)
    assert by_functions.trusted and by_functions.error.max() < 1e-5


# ---- Not to be trusted ----------------------------------------------------------------------------------------------


def test_rough_kernel():
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


def test_growing_form():
    with pytest.warns(quenta.GrowthWarning):
        estimate = quenta.with_error(
            quenta.solve_vie1, *arguments("vie1", T), DT, setting=(2, [1]), continuous=True, y0=1.0
        )
    assert not estimate.trusted and "grow" in estimate.reason


def test_too_few_samples_for_the_kernel():
    t = np.arange(65) * (10 / 64)
    with pytest.warns(quenta.UnreadSamplesWarning):
        assert not quenta.with_error(quenta.solve_vie2, np.sin(9 * t), np.cos(11 * t), 10 / 64).trusted


def test_errors_of_rounding_are_said_to_be_so():
    estimate = quenta.with_error(quenta.solve_vie2, 1 + T, np.zeros_like(T), DT)
    assert estimate.trusted and "rounding" in estimate.reason
    assert abs(estimate.solution.y - (1 + T)).max() <= 4 * estimate.error.max() < 1e-13


def test_a_coarser_grid_without_a_solution():
    t = np.arange(17) * 0.25  # 2 dt K(0) = 1: the system of the coarser grid is singular
    estimate = quenta.with_error(quenta.solve_vie2, np.ones_like(t), 2.0 * np.exp(-t), 0.25, setting=(1, [1]))
    assert not estimate.trusted and "coarser grid" in estimate.reason and np.isnan(estimate.error).all()
