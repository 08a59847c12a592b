"""The table of settings, their measured properties, and the recommendation of a setting."""

import functools
import random

import numpy as np
import pytest
from problems import KINDS, SOLVERS, arguments, kinked_arguments, solution

import quenta
from quenta.sampled_solvers import PREPARATIONS

DT = 10 / 1440
T = np.arange(1441) * DT


def test_the_table():
    table = quenta.settings()
    assert len(table) == 56 and [setting.row for setting in table] == list(range(56))
    assert (table[9].m, table[9].nodes, table[9].count, table[9].spacings) == (2, (0, 1, 2), 3, 4)
    assert table[9].parameters == (0.0, 0.5, 1.0) and str(table[9]) == "(2, [0, 1, 2])"
    for setting in table:
        assert set(setting.measured) == {"vie1", "vie1_continuous", "vie2", "vide"}
        assert setting.measured["vie2"].usable and setting.measured["vide"].usable


def test_stable_settings_of_the_first_kind():
    stable = {str(s) for s in quenta.settings() if s.measured["vie1_continuous"].stable}
    assert stable == {"(1, [1])", "(2, [2])", "(3, [3])", "(4, [4])", "(3, [1, 2, 3])", "(4, [1, 2, 4])", "(4, [1, 3, 4])"}
    usable = [s for s in quenta.settings() if s.measured["vie1"].usable]
    assert len(usable) == 23 and all(s.measured["vie1"].stable for s in usable)


def test_measured_orders_agree_with_theory():
    compared = 0
    for setting in quenta.settings():
        second = setting.measured["vie2"]
        assert second.order == pytest.approx(setting.count, abs=0.1), setting
        assert second.order_at_steps > setting.count - 0.1
        compared += 1
    assert compared == 56


@pytest.mark.parametrize("kind", KINDS)
def test_recommended_settings_are_accurate(kind):
    errors = []
    for smoothness in range(1, 6):
        chosen = quenta.recommend(kind, smoothness=smoothness)
        assert str(chosen.setting) in chosen.reason
        found = SOLVERS[kind](*arguments(kind, T), DT, setting=chosen.setting)
        errors.append(abs(found.y - solution(T)).max())
    assert all(later <= earlier for earlier, later in zip(errors, errors[1:])) and errors[-1] < 2e-6


def test_recommendations_respect_all_arguments():
    assert quenta.recommend("vie2", smoothness=0).setting.m == 1
    assert quenta.recommend("vie2", smoothness=10**400).setting.count == 5
    assert quenta.recommend("vie2", smoothness=5, samples=9).setting.m == 1
    assert quenta.recommend("vie1", continuous=True).setting.measured["vie1_continuous"].stable
    for kind in ("vie2", "vide"):
        chosen = quenta.recommend(kind, smoothness=5, stiff=True).setting
        assert chosen.measured[kind].stiff_growth < 0.9
    asked = 0
    for kind in KINDS:
        for smoothness in range(7):
            for samples in (9, 10, 37, 73, 129, 1000):
                chosen = quenta.recommend(kind, smoothness=smoothness, samples=samples).setting
                assert (samples - 1) // chosen.spacings >= 8
                asked += 1
    assert asked == 126


FORMS = [("vie1", False), ("vie1", True), ("vie2", False), ("vide", False)]


def largest_errors(kind, continuous, given, y, dt, settings):
    """The largest error with each setting. The arguments are prepared once, and warnings are not computed."""
    options = {"continuous": True, "y0": y[0]} if continuous else {}
    problem = PREPARATIONS[SOLVERS[kind]](*given, dt, **options)
    errors = {}
    for setting in settings:
        found = problem._replace(setting=setting).solve().y
        errors[setting] = abs(found - y[: len(found)]).max()
    return errors


@pytest.mark.parametrize("samples", [20, 60, 145, 1441])
@pytest.mark.parametrize("kind, continuous", FORMS)
def test_no_other_setting_is_much_better_than_the_recommended_one(kind, continuous, samples):
    """The error is within a factor of 2 of the best, in the median over problems of the given smoothness."""
    t = np.linspace(0, 10, samples)
    allowed = [
        setting
        for setting in quenta.settings()
        if (samples - 1) // setting.spacings >= 8
        and setting.measured["vie1_continuous" if continuous else kind].stable
        and (kind != "vie1" or setting.measured[kind].growth < 0.9)
    ]
    for smoothness in range(6):
        chosen = quenta.recommend(kind, smoothness=smoothness, samples=samples, continuous=continuous).setting
        behind = []
        for seed in range(7):
            given, y = kinked_arguments(kind, t, smoothness, random.Random(10 * smoothness + seed))
            errors = largest_errors(kind, continuous, given, y, t[1], allowed)
            behind.append(errors[chosen] / min(errors.values()))
        assert len(behind) == 7 and np.median(behind) <= 2, (smoothness, str(chosen), behind)


@pytest.mark.filterwarnings("ignore::quenta.UnreadSamplesWarning")
def test_recommendations_state_how_many_samples_are_read():
    recommended = set()
    for smoothness, samples in [(0, None), (1, 145), (1, None), (2, None), (5, None)]:
        chosen = quenta.recommend("vie2", smoothness=smoothness, samples=samples)
        solve = functools.partial(quenta.solve_vie2, K=np.exp(-T), dt=DT, setting=chosen.setting)
        read = 0
        for index in range(chosen.setting.spacings, 2 * chosen.setting.spacings):
            g = np.ones(1441)
            g[index] = 1.1
            read += not np.array_equal(solve(g).y, solve(np.ones(1441)).y)
        words = f"{read} of every {chosen.setting.spacings} samples of g are read"
        expected = words if chosen.setting.m > 1 else "; every sample is read"
        assert chosen.reason.endswith(expected), chosen.reason
        assert read == 1 or chosen.setting.m > 1
        recommended.add(chosen.setting)
    assert len(recommended) >= 3


def test_recommendations_name_the_cases_that_they_do_not_know():
    """Noise in the first kind, and smooth g and K that start at 0 with zero slope."""
    t = np.arange(1441) / 144
    noisy = (np.cos(t) + np.sin(t) - np.exp(-t)) / 2 + 1e-4 * np.random.default_rng(1).standard_normal(len(t))
    choice = quenta.recommend("vie1", smoothness=0)
    assert "noise in g is another matter" in choice.reason
    default, recommended = (
        np.sqrt(np.mean((solution.y - np.cos(t)[: len(solution.y)]) ** 2))
        for solution in (quenta.solve_vie1(noisy, np.exp(-t), t[1], **options) for options in ({}, {"setting": choice}))
    )
    assert recommended > 1.2 * default

    K = t**2 * np.exp(-t) / 2
    roots = np.exp(2j * np.pi * np.arange(3) / 3)
    exact = sum(np.exp((root - 1) * t) / (3 * root**2) for root in roots).real
    choice = quenta.recommend("vie2", smoothness=5)
    assert "if g and K also start at 0 with zero slope, (1, [0, 1]) has order 4" in choice.reason
    default, trapezoidal = (
        abs(quenta.solve_vie2(K, K, t[1], setting=setting).y - exact).max() for setting in (choice, (1, [0, 1]))
    )
    assert trapezoidal < default / 100
    for kind, options in (("vie2", {"smoothness": 0}), ("vie2", {"stiff": True}), ("vide", {}), ("vie1", {})):
        assert "zero slope" not in quenta.recommend(kind, **options).reason


def test_the_recommended_stiff_setting_stays_bounded_where_others_overflow():
    g, K = np.ones(433), np.full(433, -1e5)
    stiff = quenta.recommend("vie2", stiff=True).setting
    assert abs(quenta.solve_vie2(g, K, 0.01, setting=stiff).y[-50:]).max() < 1e-3
    with pytest.warns(quenta.GrowthWarning):
        quenta.solve_vie2(g, K, 0.01, setting=(1, [0]))
