"""Measures what README.md and docs/settings.md state about the collocation schemes."""

import numpy as np
import pytest
from documented import assert_stated, described
from problems import arguments, grid, kernel, largest_error, solution

import quenta

PAGE = "docs/settings.md"

pytestmark = pytest.mark.filterwarnings("ignore")


# ---- The table of orders --------------------------------------------------------------------------------------------


@pytest.mark.parametrize("page", ["README.md", PAGE])
def test_the_errors_of_orders_2_to_5(page):
    for setting in ((1, (0, 1)), (2, (0, 1, 2)), (3, (0, 1, 2, 3)), (4, (0, 1, 2, 3, 4))):
        errors = []
        for spacings in (1440, 14400):
            t = grid(spacings)
            errors.append(largest_error(quenta.solve_vie2(*arguments("vie2", t), t[1], setting=setting), solution(t)))
        assert_stated(page, f"| {described(setting)} | {len(setting[1])} | {{}} | {{}}", *errors)


def test_the_order_at_step_ends_is_higher_for_an_odd_number_of_equally_spaced_nodes():
    better = set()
    for setting in quenta.settings():
        second = setting.measured["vie2"]
        if setting.nodes[0] == 0 and setting.nodes[-1] == setting.m and second.order_at_steps > second.order + 0.5:
            better.add(str(setting))
    assert better == {"(2, [0, 1, 2])", "(4, [0, 2, 4])", "(4, [0, 1, 2, 3, 4])"}
    assert_stated(PAGE, "in the second kind by one order, if the number of nodes is odd and they are equally spaced")


def test_the_most_accurate_setting_of_the_first_kind():
    usable = [setting for setting in quenta.settings() if setting.measured["vie1"].error is not None]
    assert str(min(usable, key=lambda setting: setting.measured["vie1"].error)) == "(4, [1, 2, 3, 4])"
    assert_stated(PAGE, "For the first kind, the most accurate one is (4; 1, 2, 3, 4).")


def test_one_node_has_order_1_and_the_midpoint_rule_has_order_2_at_some_samples():
    for setting in quenta.settings():
        if setting.count == 1:
            assert setting.measured["vie2"].order == pytest.approx(1, abs=0.1), setting
    errors = []
    for spacings in (1440, 2880):
        t = grid(spacings)
        solved = quenta.solve_vie2(*arguments("vie2", t), t[1], setting=(2, [1]))
        errors.append(abs(solved.y - solution(t))[4:-1])
    for place, factor in enumerate((4, 2, 4, 2)):  # the end of a step, between, the node, between
        assert errors[0][place::4].max() / errors[1][place::4].max() == pytest.approx(factor, rel=0.1)
    assert_stated(PAGE, "The midpoint rule (2; 1) has second order at its nodes and at the ends of steps inside the "
                        "interval, where the mean of both sides is returned, and first order elsewhere.")


# ---- Jumps and kinks: the largest error over several positions ------------------------------------------------------

POSITIONS = 2 + 0.31 * np.arange(16) / 16


def rough_problem(kind, t, position):
    """g, K and y for a jump or a kink in g or K at the given time."""
    after = t >= position
    late = np.where(after, t - position, 0.0)
    if kind == "kink in g":
        return late, kernel(t), late + late**2 / 2
    if kind == "jump in g":
        return np.where(after, 1.0, 0.0), kernel(t), np.where(after, 1 + late, 0.0)
    lag = np.minimum(t, position)

    def antiderivative(u):
        """An antiderivative of exp(-u) y(t - u)."""
        return -np.exp(-u) + np.exp(-u) * (np.cos(t - u) - np.sin(t - u)) / 2

    if kind == "jump in K":
        g = solution(t) - antiderivative(lag) + antiderivative(0.0)
        return g, np.where(after, 0.0, kernel(t)), solution(t)
    # K = exp(-u) - exp(-position), which reaches 0 with a kink.
    constant = np.exp(-position)
    g = solution(t) - antiderivative(lag) + antiderivative(0.0) + constant * (lag + np.cos(t - lag) - np.cos(t))
    return g, np.where(after, 0.0, kernel(t) - constant), solution(t)


def rough_errors(kind, setting, spacings):
    """The largest error over all samples, and over those at least one step away from the jump or kink."""
    everywhere = away = 0.0
    for position in POSITIONS:
        t = grid(spacings)
        g, K, y = rough_problem(kind, t, position)
        errors = abs(quenta.solve_vie2(g, K, t[1], setting=setting).y - y)
        everywhere = max(everywhere, errors.max())
        away = max(away, errors[abs(t - position) > setting[0] ** 2 * t[1]].max())
    return everywhere, away


@pytest.mark.parametrize("kind", ["kink in g", "kink in K", "jump in g", "jump in K"])
def test_jumps_and_kinks(kind):
    for setting in ((1, (0, 1)), (2, (0, 1, 2)), (4, (0, 1, 2, 3, 4))):
        few, many = rough_errors(kind, setting, 1440), rough_errors(kind, setting, 14400)
        assert_stated(PAGE, f"| {kind} | {described(setting)} | {{}} | {{}} | {{}} | {{}} |", few[0], many[0], few[1], many[1])


def test_jumps_and_kinks_of_integro_differential_equations():
    t, largest = grid(1440), []
    for kind in ("jump in g", "kink in g"):
        for setting in ((1, (0, 1)), (2, (0, 1, 2))):
            errors = []
            for position in POSITIONS:
                late = np.maximum(t - position, 0)
                if kind == "jump in g":
                    y, slope, past = late, np.where(t >= position, 1.0, 0.0), late - 1 + np.exp(-late)
                else:
                    y, slope, past = late**2 / 2, late, late**2 / 2 - late + 1 - np.exp(-late)
                solved = quenta.solve_vide(slope + y - past, kernel(t), np.full(len(t), -1.0), 0.0, t[1], setting=setting)
                errors.append(largest_error(solved, y))
            largest.append(max(errors))
    assert_stated(PAGE, "The largest error from 1441 samples at a jump in g is {} with (1; 0, 1), and {} with "
                        "(2; 0, 1, 2); at a kink in g it is {} and {}.", *largest)


def test_a_jump_at_the_end_of_a_step_with_the_mean_of_both_sides():
    t, position = grid(1440), 2.5
    g, K, y = rough_problem("jump in g", t, position)
    at = np.argmin(abs(t - position))
    assert t[at] == position and at % 4 == 0
    away = abs(t - position) > 4 * t[1]
    errors = [abs(quenta.solve_vie2(g, K, t[1]).y - y)[away].max()]
    g[at] = 0.5
    errors.append(abs(quenta.solve_vie2(g, K, t[1]).y - y)[away].max())
    assert_stated(PAGE, "with (2; 0, 1, 2), the largest error outside this step is then {} instead of {}",
                  errors[1], errors[0])


# ---- g and K that start at 0 ----------------------------------------------------------------------------------------


def gamma_renewal(t):
    """K = g = t^2 exp(-t) / 2, and the solution from the poles of its Laplace transform 1 / ((s + 1)^3 - 1)."""
    roots = np.exp(2j * np.pi * np.arange(3) / 3)
    K = t**2 * np.exp(-t) / 2
    return K, sum(np.exp((root - 1) * t) / (3 * root**2) for root in roots).real


def gamma_renewal_error(setting, spacings):
    t = grid(spacings, 20.0)
    K, y = gamma_renewal(t)
    return largest_error(quenta.solve_vie2(K, K, t[1], setting=setting), y)


def test_the_trapezoidal_rule_is_best_if_g_and_K_start_at_zero():
    for setting in ((1, (0, 1)), (2, (0, 1, 2)), (3, (0, 1, 2, 3)), (4, (0, 1, 2, 3, 4))):
        errors = [gamma_renewal_error(setting, spacings) for spacings in (400, 1600)]
        assert_stated(PAGE, f"| {described(setting)} | {{}} | {{}} |", *errors)
    for spacings in (400, 1600):
        assert str(min(quenta.settings(), key=lambda setting: gamma_renewal_error(setting, spacings))) == "(1, [0, 1])"
    ratio = gamma_renewal_error((1, (0, 1)), 400) / gamma_renewal_error((1, (0, 1)), 800)
    assert ratio == pytest.approx(16, rel=0.05)
    assert_stated(PAGE, "(1; 0, 1) then has order 4 and the smallest error of all schemes")


def test_the_order_is_that_of_the_table_if_only_the_values_start_at_zero():
    def error(setting, spacings):  # K = g = t exp(-t); y = (1 - exp(-2 t)) / 2
        t = grid(spacings, 20.0)
        K = t * np.exp(-t)
        return largest_error(quenta.solve_vie2(K, K, t[1], setting=setting), (1 - np.exp(-2 * t)) / 2)

    assert error((1, (0, 1)), 400) / error((1, (0, 1)), 800) == pytest.approx(4, rel=0.05)
    assert error((2, (0, 1, 2)), 800) < error((1, (0, 1)), 800) / 5
    assert_stated(PAGE, "If only the values are 0 and the slopes are not, as for $g = K = t e^{-t}$, the order of "
                        "(1; 0, 1) is 2, as in the table above.")


def test_negative_counts_of_renewals():
    t = grid(144)
    lowest = [
        quenta.solve_vie2(1 - np.exp(-(t**3)), 3 * t**2 * np.exp(-(t**3)), t[1], setting=setting).y.min()
        for setting in ((2, (0, 1, 2)), (1, (0, 1)))
    ]
    assert lowest[1] == 0
    assert_stated(PAGE, "with 145 samples on $[0, 10]$ (2; 0, 1, 2) gives counts down to {}, (1; 0, 1) none below 0",
                  lowest[0])


# ---- Components that decay within a step ----------------------------------------------------------------------------


def test_damping_of_components_that_decay_within_a_step():
    damping_without_the_last_node, damping_with_the_first = set(), set()
    for setting in quenta.settings():
        first, last = setting.nodes[0] == 0, setting.nodes[-1] == setting.m
        factor = abs(np.prod([(c - 1) / c for c in setting.parameters if 0 < c < 1]))
        if last and not first:
            factor = 0.0
        elif first and not last:
            factor = np.inf
        for form in ("vie2", "vide"):
            measured = setting.measured[form].stiff_growth  # at a rate of 1000 per step
            if np.isinf(factor):
                assert measured > 300, setting
            else:
                assert measured == pytest.approx(factor, rel=0.04, abs=0.001), setting
        if 0 < factor < 0.9:
            assert min(abs(factor - 1 / 3), abs(factor - 1 / 2)) < 1e-12, setting
        if factor < 0.9 and not last:
            damping_without_the_last_node.add(str(setting))
        if factor < 0.9 and first:
            damping_with_the_first.add(str(setting))
    assert damping_without_the_last_node == {"(3, [2])", "(4, [3])", "(4, [2, 3])"}
    assert damping_with_the_first == {"(3, [0, 2, 3])", "(4, [0, 3, 4])", "(4, [0, 2, 3, 4])"}
    assert_stated(PAGE, "(3; 2), (4; 3), (4; 2, 3) and, with both ends, (3; 0, 2, 3), (4; 0, 3, 4), "
                        "(4; 0, 2, 3, 4)")
