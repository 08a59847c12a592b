"""The reference solution of error estimates: its order of convergence, and the samples that it uses."""

import numpy as np
import pytest
from problems import KINDS, arguments, coupled_arguments, solution
from random_problems import Term, convolution, values

from quenta.backward_differences import LEAST, solve_all_samples
from quenta.sampled_solvers import prepare_vide, prepare_vie1, prepare_vie2

PREPARE = {"vie1": prepare_vie1, "vie2": prepare_vie2, "vide": prepare_vide}
SETTING = (1, [1])


def largest_error(kind, N, D=None):
    t = np.linspace(0, 4, N)
    given, y = (arguments(kind, t), solution(t)) if D is None else coupled_arguments(kind, t, D)
    found = solve_all_samples(PREPARE[kind](*given, t[1], setting=SETTING))
    assert found.shape == y.shape
    return abs(found - y).max()


@pytest.mark.parametrize("kind", KINDS)
@pytest.mark.parametrize("D", [None, 1, 3])
def test_order_6(kind, D):
    errors = [largest_error(kind, N, D) for N in (41, 81, 161)]
    orders = np.log2(np.array(errors[:-1]) / errors[1:])
    assert (orders > 5.5).all() and errors[-1] < 1e-7


@pytest.mark.parametrize("kind", KINDS)
def test_polynomials_are_exact(kind):
    """With y = 1 + t^4 and K = 1 - t the integrand is a polynomial of degree 5."""
    t = np.arange(60) * 0.1
    y, K = [Term(1.0), Term(1.0, 4)], [Term(1.0), Term(-1.0, 1)]
    memory = values(convolution(y, K), t)
    given = {
        "vie1": (memory, values(K, t)),
        "vie2": (values(y, t) - memory, values(K, t)),
        "vide": (4 * t**3 - memory, values(K, t), 0 * t, 1.0),
    }[kind]
    found = solve_all_samples(PREPARE[kind](*given, 0.1, setting=SETTING))
    assert abs(found - values(y, t)).max() < 1e-10 * abs(values(y, t)).max()


@pytest.mark.parametrize("kind", KINDS)
def test_fewest_samples(kind):
    t = np.arange(LEAST) * 0.1
    found = solve_all_samples(PREPARE[kind](*arguments(kind, t), 0.1, setting=SETTING))
    assert abs(found - solution(t)).max() < 1e-4


@pytest.mark.parametrize("kind", KINDS)
@pytest.mark.parametrize("place", [0, 1, 5, 6, 7, 40])
def test_every_sample_is_used(kind, place):
    """The exception is g(0) in equations of the first kind."""
    t = np.arange(65) * 0.1
    given = arguments(kind, t)
    plain = solve_all_samples(PREPARE[kind](*given, 0.1, setting=SETTING))
    names = "gKa" if kind == "vide" else "gK"
    for which, name in enumerate(names):
        if kind == "vie1" and name == "g" and place == 0:
            continue
        changed = [np.array(value) for value in given]
        changed[which][place] += 1e-3
        found = solve_all_samples(PREPARE[kind](*changed, 0.1, setting=SETTING))
        assert abs(found - plain).max() > 1e-5, name


@pytest.mark.parametrize("power", [0, 1])
def test_errors_at_kinks_and_jumps_of_the_kernel_are_bounded_by_the_difference_of_two_spacings(power):
    """The error is at most the difference from the solution with every second sample, for any position."""
    t = np.arange(129) * 0.05
    y = [Term(1.0, 0, -0.5)]
    for place in np.random.default_rng(7).uniform(1, 5, 40):
        K = [Term(-1.0, power, 0.0, place)]
        g = values(y, t) - values(convolution(y, K), t)
        found = [
            solve_all_samples(prepare_vie2(g[::k], values(K, t)[::k], k * 0.05, setting=SETTING))
            for k in (1, 2)
        ]
        error, difference = abs(found[0] - values(y, t))[::2], abs(found[0][::2] - found[1])
        assert error.max() <= 1.05 * difference.max() + 1e-9
