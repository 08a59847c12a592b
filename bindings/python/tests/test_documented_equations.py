"""Measures what docs/equations.md states. tests/properties/*_convergence.cpp measures the orders."""

import numpy as np
import pytest
from documented import assert_stated
from problems import arguments, solution

import quenta

PAGE = "docs/equations.md"

pytestmark = pytest.mark.filterwarnings("ignore")


def largest_jump(solved):
    """The largest difference of the polynomials of adjacent steps at their common boundary."""
    return abs(solved.polynomials.sum(axis=1)[:-1] - solved.polynomials[1:, 0]).max()


def test_polynomials_join_to_rounding_with_the_nodes_0_and_m():
    random = np.random.default_rng(0)
    joined = 0
    for setting in quenta.settings():
        t = np.arange(40 * setting.spacings + 1) / (4.0 * setting.spacings)
        smooth = quenta.solve_vie2(*arguments("vie2", t), t[1], setting=setting)
        g, K = random.standard_normal(len(t)), 0.3 * random.standard_normal(len(t)) * np.exp(-t)
        rough = quenta.solve_vie2(g, K, t[1], setting=setting)
        if setting.nodes[0] == 0 and setting.nodes[-1] == setting.m:
            joined += 1
            assert largest_jump(smooth) < 1e-13 and largest_jump(rough) < 1e-13 * abs(rough.y).max(), setting
        else:  # the jumps are at most twice the errors on both sides
            ends = smooth.step * np.arange(1, smooth.steps)
            error = max(abs(smooth(ends, side=side) - solution(ends)).max() for side in ("left", "right"))
            assert 1e-6 < largest_jump(smooth) <= 2.01 * error, setting
    assert joined == 15
    assert_stated(PAGE, "where they join up to rounding")


def quadrature_order(setting):
    """The largest r such that the quadrature rule on the nodes is exact for powers below r."""
    c = np.array(setting.parameters)
    weights = np.linalg.solve(np.vander(c, increasing=True).T, 1 / np.arange(1.0, len(c) + 1))
    r = 0
    while abs(weights @ c**r - 1 / (r + 1)) < 1e-12:
        r += 1
    return r


def test_measured_orders_are_those_of_the_quadrature_rules():
    for setting in quenta.settings():
        r = quadrature_order(setting)
        assert r in (setting.count, setting.count + 1), setting
        assert setting.measured["vide"].order == pytest.approx(r, abs=0.2), setting
        assert setting.measured["vie2"].order == pytest.approx(setting.count, abs=0.1), setting
    assert_stated(PAGE, "$r$ is $P$ or $P + 1$ for all schemes of the table")
    assert_stated(PAGE, "| integro-differential | $r$ | all |")
