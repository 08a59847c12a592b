"""The table of settings, what was measured of it, and the choice from it."""

import numpy as np
import pytest
from problems import KINDS, SOLVERS, arguments, solution

import quenta

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


def test_forms_of_the_first_kind_that_are_stable():
    stable = {str(s) for s in quenta.settings() if s.measured["vie1_continuous"].stable}
    assert stable == {"(1, [1])", "(2, [2])", "(3, [3])", "(4, [4])", "(3, [1, 2, 3])", "(4, [1, 2, 4])", "(4, [1, 3, 4])"}
    usable = [s for s in quenta.settings() if s.measured["vie1"].usable]
    assert len(usable) == 23 and all(s.measured["vie1"].stable for s in usable)


def test_measured_orders_are_those_of_the_theory():
    compared = 0
    for setting in quenta.settings():
        second = setting.measured["vie2"]
        assert second.order == pytest.approx(setting.count, abs=0.1), setting
        assert second.order_at_steps > setting.count - 0.1
        compared += 1
    assert compared == 56


@pytest.mark.parametrize("kind", KINDS)
def test_recommended_settings_solve_well(kind):
    errors = []
    for smoothness in range(1, 6):
        chosen = quenta.recommend(kind, smoothness=smoothness)
        assert chosen.setting.count <= smoothness and str(chosen.setting) in chosen.reason
        found = SOLVERS[kind](*arguments(kind, T), DT, setting=chosen.setting)
        errors.append(abs(found.y - solution(T)).max())
    assert all(later <= earlier for earlier, later in zip(errors, errors[1:])) and errors[-1] < 2e-6


def test_recommendations_heed_what_is_asked_for():
    assert quenta.recommend("vie2", smoothness=0).setting.m == 1
    assert str(quenta.recommend("vie2").setting) == str(quenta.recommend("vide").setting) == "(2, [0, 1, 2])"
    assert str(quenta.recommend("vie1").setting) == "(3, [1, 2, 3])"
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


def test_stiff_settings_stay_bounded_where_others_overflow():
    g, K = np.ones(433), np.full(433, -1e5)
    stiff = quenta.recommend("vie2", stiff=True).setting
    assert abs(quenta.solve_vie2(g, K, 0.01, setting=stiff).y[-50:]).max() < 1e-3
    with pytest.warns(quenta.GrowthWarning):
        quenta.solve_vie2(g, K, 0.01, setting=(1, [0]))
