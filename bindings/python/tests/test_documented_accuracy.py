"""Measures what docs/accuracy.md states."""

import numpy as np
import pytest
from documented import assert_stated, described
from problems import SOLVERS, arguments, grid, largest_error, solution

import quenta

PAGE = "docs/accuracy.md"

pytestmark = pytest.mark.filterwarnings("ignore")


@pytest.mark.parametrize("kind, name", [("vie2", "second kind"), ("vie1", "first kind"), ("vide", "integro-differential")])
def test_the_difference_of_two_solutions_estimates_the_error_of_the_coarser_one(kind, name):
    settings = [(2, (1, 2)), (3, (1, 2, 3))] if kind == "vie1" else [(1, (0, 1)), (2, (0, 1, 2)), (4, (0, 1, 2, 3, 4))]
    for setting in settings:
        solved, errors = [], []
        for steps in (40, 80, 160):
            t = grid(steps * setting[0] ** 2)
            solved.append(SOLVERS[kind](*arguments(kind, t), t[1], setting=setting))
            errors.append(largest_error(solved[-1], solution(t)))
        differences = [abs(fine.y[::2] - coarse.y).max() for coarse, fine in zip(solved, solved[1:])]
        order = round(np.log2(errors[1] / errors[2]))
        assert_stated(PAGE, f"| {name} | {described(setting)} | {order} | {{}} | {{}} | {{}} |",
                      differences[0] / differences[1], differences[1] / errors[1],
                      differences[1] / (2**order - 1) / errors[2])


def test_a_larger_factor_that_is_steady():
    """g = K = t^2 exp(-t) / 2, whose solution follows from the poles of its Laplace transform 1 / ((s + 1)^3 - 1)."""
    roots, found = np.exp(2j * np.pi * np.arange(3) / 3), []
    for spacings in (100, 200, 400, 800):
        t = grid(spacings, 20.0)
        K = t**2 * np.exp(-t) / 2
        found.append(quenta.solve_vie2(K, K, t[1], setting=(1, (0, 1))).y)
    exact = sum(np.exp((root - 1) * t) / (3 * root**2) for root in roots).real
    first, second, last = (abs(fine[::2] - coarse).max() for coarse, fine in zip(found, found[1:]))
    assert first / second == pytest.approx(second / last, rel=0.05)
    assert_stated(PAGE, "it is {} instead of 4 with (1; 0, 1)", second / last)
    assert last / (second / last - 1) == pytest.approx(abs(found[-1] - exact).max(), rel=0.05)


def test_rounding_errors_limit_the_accuracy():
    for kind, nodes, fewer, sentence in (
        ("vie2", (0, 1, 2, 3, 4), 14400, "with (4; 0, 1, 2, 3, 4) is {} from 14401 samples and also {} from 144001."),
        ("vie1", (1, 2, 3, 4), 28800, "with (4; 1, 2, 3, 4) the error is {} from 28801 samples and {} from 144001."),
    ):
        errors = []
        for spacings in (fewer, 144000):
            t = grid(spacings)
            errors.append(largest_error(SOLVERS[kind](*arguments(kind, t), t[1], setting=(4, nodes)), solution(t)))
        assert errors[1] > 0.9 * errors[0]
        assert_stated(PAGE, sentence, *errors)
