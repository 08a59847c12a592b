"""Measures what docs/first_kind.md states."""

import numpy as np
import pytest
from documented import assert_stated, described

import quenta

PAGE = "docs/first_kind.md"
END = 5.0

pytestmark = pytest.mark.filterwarnings("ignore")

USABLE = [setting for setting in quenta.settings() if setting.measured["vie1"].usable]


def problem(spacings):
    """Times, g and K of the problem in the first figure of the page. The solution is cos t."""
    t = END * np.arange(spacings + 1) / spacings
    return t, (np.cos(t) + np.sin(t) - np.exp(-t)) / 2, np.exp(-t)


def solve(g, K, dt, setting):
    solved = quenta.solve_vie1(g, K, dt, setting=setting)
    return solved.y, np.cos(solved.t)


def root_mean_square(values):
    return np.sqrt(np.mean(np.square(values)))


def carried(setting):
    """The factor rho by which an error is multiplied from the end of one step to the end of the next."""
    return np.prod([(c - 1) / c for c in setting.parameters])


# ---- Noise ----------------------------------------------------------------------------------------------------------

NOISE = 1e-4


def test_the_example_with_rounded_samples():
    t = np.arange(5401) * 0.001
    g, K = np.round((np.cos(t) + np.sin(t) - np.exp(-t)) / 2, 4), np.exp(-t)
    found, exact = solve(g, K, 0.001, (3, (1, 2, 3)))
    every = root_mean_square(found - exact)
    found, exact = solve(g[::10], K[::10], 0.01, (3, (1, 2, 3)))
    tenth = root_mean_square(found - exact)
    assert_stated(PAGE, "With all 5401 samples the error is {}", every)
    assert every / tenth == pytest.approx(10, rel=0.1)
    predicted = 0.52 * 1e-4 / np.sqrt(12) / 0.01
    assert predicted == pytest.approx(tenth, rel=0.1)
    assert_stated(PAGE, "estimates only the error due to noise, {} with every tenth sample", predicted)
    estimate = quenta.with_error(quenta.solve_vie1, g[::10], K[::10], 0.01)
    assert not estimate.trusted and "noisy" in estimate.reason
    assert_stated(PAGE, "with every tenth sample it estimates a largest error of {}, but it is {}, and the estimate is not "
                        "trusted", estimate.error.max(), abs(found - exact).max())
    assert_stated(PAGE, "this noise is only {} percent of the range of g", 100 * 1e-4 / np.sqrt(12) / np.ptp(g))


def test_the_largest_error_where_noise_dominates():
    exact, _, noisy = noisy_solutions((3, (1, 2, 3)), 540)
    assert_stated(PAGE, "the largest error is about {} times as large",
                  np.mean(abs(noisy - exact).max(axis=1)) / root_mean_square(noisy - exact))


def noisy_solutions(setting, spacings, repetitions=20, noise=NOISE):
    """The exact solution, the numerical one from exact samples, and those from noisy samples."""
    t, g, K = problem(spacings)
    exact_samples, exact = solve(g, K, t[1], setting)
    random = np.random.default_rng(1)
    noisy = [solve(g + noise * random.standard_normal(len(g)), K, t[1], setting)[0] for _ in range(repetitions)]
    return exact, exact_samples, np.array(noisy)


def amplification(setting, steps_of_16):
    """The error caused by noise, divided by sigma / (dt K(0))."""
    spacings = 144 * steps_of_16  # whole steps for every m
    _, without, noisy = noisy_solutions(setting, spacings)
    return root_mean_square(noisy - without) * END / spacings / NOISE


def test_the_amplification_of_noise():
    fading = {setting: amplification(setting, 10) for setting in USABLE if abs(carried(setting)) < 0.99}
    assert len(fading) == 18
    least, most = min(fading, key=fading.get), max(fading, key=fading.get)
    assert (str(least), str(most)) == ("(4, [4])", "(1, [1])")
    assert_stated(PAGE, "between {} for (4; 4) and {} for (1; 1) for the 18 schemes in which errors decay",
                  fading[least], fading[most])
    for setting in ((2, (1, 2)), (3, (1, 2, 3)), (4, (1, 2, 3, 4))):
        row = next(row for row in fading if (row.m, row.nodes) == setting)
        assert amplification(row, 40) == pytest.approx(fading[row], rel=0.05)  # independent of the spacing
    staying = [setting for setting in USABLE if abs(carried(setting)) > 0.99]
    assert len(staying) == 5
    for setting in staying:
        assert amplification(setting, 40) > 1.5 * amplification(setting, 10)
    assert_stated(PAGE, "For the five schemes with $\\rho = \\pm 1$ it grows with the number of steps")


def best_under_noise(setting, noise=NOISE):
    """The smallest root mean square error over all spacings, and the spacing where it occurs."""
    best = []
    for spacings in np.geomspace(30, 1500, 24):
        steps = max(2, round(spacings / setting[0] ** 2))
        exact, _, noisy = noisy_solutions(setting, steps * setting[0] ** 2, noise=noise)
        best.append((root_mean_square(noisy - exact), END / (steps * setting[0] ** 2)))
    return min(best)


def test_the_best_spacing_under_noise():
    for setting in ((1, (1,)), (2, (1, 2)), (3, (1, 2, 3)), (4, (1, 2, 3, 4)), (4, (1, 3, 4))):
        error, spacing = best_under_noise(setting)
        row = next(row for row in USABLE if (row.m, row.nodes) == setting)
        assert_stated(PAGE, f"| {described(setting)} | {{}} | {{}} | {{}} |", amplification(row, 10), error, spacing)


def test_the_smallest_error_for_other_noise():
    """With a scheme of order p, the best spacing is proportional to noise^(1 / (p + 1)), the error to noise^(p / (p + 1))."""
    setting = (3, (1, 2, 3))
    (error, spacing), (smaller, closer) = (best_under_noise(setting, noise) for noise in (NOISE, NOISE / 100))
    assert error / smaller == pytest.approx(100 ** (3 / 4), rel=0.1)
    assert spacing / closer == pytest.approx(100 ** (1 / 4), rel=0.2)
    assert_stated(PAGE, "with noise of 1e-6 instead of 1e-4, the smallest error with (3; 1, 2, 3) is {} times smaller",
                  round(error / smaller, -1))


def test_centred_means_reduce_the_error_and_block_means_do_not():
    k, setting = 10, (3, (1, 2, 3))
    t = np.arange(5401) * 0.001
    g, K = np.round((np.cos(t) + np.sin(t) - np.exp(-t)) / 2, 4), np.exp(-t)
    centred = np.convolve(g, np.full(k + 1, 1 / (k + 1)), mode="same")[::k]
    centred[[0, -1]] = g[[0, -1]]
    errors = []
    for samples, kernel in ((g[::k], K[::k]), (centred, K[::k]), (g[:-1].reshape(-1, k).mean(axis=1), K[:-1:k])):
        found, exact = solve(samples, kernel, k * t[1], setting)
        errors.append(root_mean_square(found - exact))
    assert_stated(PAGE, "every tenth sample gives an error of {}, centred means of 11 samples {}, and means of blocks of 10 "
                        "samples {}", *errors)


def test_the_rule_for_the_stride():
    """The best stride is between the one that the rule finds and twice this one, for other noise and schemes too."""
    for setting, noise in (((3, (1, 2, 3)), NOISE), ((3, (1, 2, 3)), NOISE / 10), ((2, (1, 2)), NOISE), ((1, (1,)), NOISE)):
        t, g, K = problem(5400)
        strides = [k for k in range(1, 200) if 5400 % k == 0 and 5400 // k % setting[0] ** 2 == 0]
        random = np.random.default_rng(5)
        squares = {"error": dict.fromkeys(strides, 0.0), "difference": {k: 0.0 for k in strides if 2 * k in strides}}
        for _ in range(5):
            noisy = g + noise * random.standard_normal(len(g))
            found = {k: solve(noisy[::k], K[::k], k * t[1], setting)[0] for k in strides}
            for k in strides:
                squares["error"][k] += np.mean((found[k] - np.cos(t[::k])) ** 2)
                if 2 * k in found:
                    squares["difference"][k] += np.mean((found[k][::2] - found[2 * k]) ** 2)
        chosen = min(squares["difference"], key=squares["difference"].get)
        assert min(squares["difference"]) < chosen < max(squares["difference"]), (setting, noise)
        best = min(strides, key=squares["error"].get)
        assert chosen / 1.2 <= best <= 2 * chosen, (setting, noise, chosen, best)
        assert squares["error"][chosen] < 2**2 * squares["error"][best]
    assert_stated(PAGE, "The best stride lies between about this k and 2k")


# ---- The start ------------------------------------------------------------------------------------------------------


def test_the_spike_of_a_g_that_does_not_start_at_zero():
    settings = ((1, (1,)), (2, (1, 2)), (3, (1, 2, 3)), (4, (1, 2, 3, 4)))
    factors = []
    for setting in settings:
        steps, offset = 2000, 0.3
        t, g, K = problem(steps * setting[0] ** 2)
        found, exact = solve(g + offset, K, t[1], setting)
        errors = abs(found - (exact + offset))  # the offset adds offset * (delta(t) + 1) to the solution
        factors.append(errors.max() * END / steps / offset)
        assert errors.argmax() == 0
        without, exact = solve(g, K, t[1], setting)
        later = slice(setting[0] ** 2 + 1, None)
        assert errors[later].max() < 1.5 * abs(without - exact)[later].max()
    assert_stated(PAGE, "a spike of height $c\\, g(0) / (h K(0))$, where $h$ is the length of a step and $c$ is {} for "
                        "(1; 1), {} for (2; 1, 2), {} for (3; 1, 2, 3) and {} for (4; 1, 2, 3, 4)",
                  *factors)


def test_the_sample_of_g_at_the_start_is_not_read():
    for setting in USABLE:
        t, g, K = problem(4 * setting.spacings)
        wrong = np.concatenate([[0.1], g[1:]])
        for form in ({}, {"continuous": True, "y0": 1.0}):
            found = [quenta.solve_vie1(samples, K, t[1], setting=setting, **form).y for samples in (g, wrong)]
            assert np.array_equal(*found), setting
    assert_stated(PAGE, "An error of the sample $g(0)$ alone has no effect: no scheme for the first kind reads it.")


def rising_kernel(t, rate=20.0):
    """K = 1 - exp(-rate t) and g for the solution y = cos t, and the derivatives of both."""
    convolved = (np.sin(t) + rate * np.cos(t) - rate * np.exp(-rate * t)) / (rate**2 + 1)
    return (1 - np.exp(-rate * t), np.sin(t) - convolved), (rate * np.exp(-rate * t), rate * convolved)


def test_closer_samples_do_not_help_if_the_kernel_starts_at_zero():
    for dt in (0.1, 0.05, 0.02, 0.005, 0.001):
        errors = []
        for setting, differentiated in (((3, (1, 2, 3)), 0), ((2, (1, 2)), 0), ((3, (1, 2, 3)), 1)):
            steps = round(END / dt / setting[0] ** 2)
            K, g = rising_kernel(dt * np.arange(steps * setting[0] ** 2 + 1))[differentiated]
            found, exact = solve(g, K, dt, setting)
            errors.append(abs(found - exact).max())
        if dt == 0.001:
            assert not np.isfinite(errors.pop(0))
            assert_stated(PAGE, "| 0.001 | not finite | {} | {} |", *errors)
        else:
            assert_stated(PAGE, f"| {dt} | {{}} | {{}} | {{}} |", *errors)


def errors_for_power(setting, power):
    """The largest errors for K = t or t^2 and y = cos t, with 401 and 801 samples. None if a system is singular."""
    errors = []
    for spacings in (400, 800):
        spacings = spacings // setting.spacings * setting.spacings
        t = END * np.arange(spacings + 1) / spacings
        g = 1 - np.cos(t) if power == 1 else 2 * (t - np.sin(t))
        try:
            found, exact = solve(g, t**power, t[1], setting)
        except quenta.SingularBlockError:
            return None
        errors.append(abs(found - exact).max())
    return errors


def test_kernels_that_start_at_zero():
    singular, bounded = set(), set()
    for setting in USABLE:
        errors = errors_for_power(setting, 1)
        if errors is None:
            singular.add((setting.m, *setting.nodes))
        elif errors[1] < 1:
            bounded.add((setting.m, *setting.nodes))
            assert errors[0] / errors[1] == pytest.approx(2, rel=0.1), setting
        else:
            assert not errors[1] < 1e3, setting
        squared = errors_for_power(setting, 2)
        assert squared is None or not squared[1] < 1e3, setting
    assert singular == {(m, m) for m in (1, 2, 3, 4)}
    assert bounded == {(2, 1, 2), (4, 2, 4)}
    assert_stated(PAGE, "only (2; 1, 2) and (4; 2, 4) keep errors bounded, with order 1; if $K'(0) = 0$ too, none "
                        "does")
    assert_stated(PAGE, "With the node $m$ alone the system is singular")


def test_a_small_kernel_at_the_start_needs_short_steps_or_the_second_kind():
    offset, errors = 0.1, []
    for dt in (0.01, 0.001):
        t = dt * np.arange(round(END / dt / 9) * 9 + 1)
        (K, g), _ = rising_kernel(t)
        found, exact = solve(g + offset * np.sin(t), K + offset, dt, (3, (1, 2, 3)))
        errors.append(abs(found - exact).max())
    assert errors[0] > 1e20
    assert_stated(PAGE, "With $K = 1.1 - e^{-20 t}$ and (3; 1, 2, 3), the error is above 1e20 at $\\Delta t = 0.01$ and "
                        "{} at 0.001", errors[1])
    t = 0.01 * np.arange(501)
    _, (K, g) = rising_kernel(t)
    second = quenta.solve_vie2(np.cos(t) + g / offset, -K / offset, 0.01, setting=(2, (0, 1, 2)))
    assert_stated(PAGE, "its error with (2; 0, 1, 2) is {} at $\\Delta t = 0.01$", abs(second.y - np.cos(t)).max())


# ---- Jumps and kinks: the largest error over several positions ------------------------------------------------------

POSITIONS = 2 + 0.31 * np.arange(8) / 8


def test_a_kink_of_the_solution_stays_in_its_step():
    t = END * np.arange(2881) / 2880
    largest = {}
    for setting in ((3, (1, 2, 3)), (1, (1,))):
        everywhere = away = 0.0
        for position in POSITIONS:
            y = np.maximum(t - position, 0)
            found = quenta.solve_vie1(y - 1 + np.exp(-y), np.exp(-t), t[1], setting=setting).y
            errors = abs(found - y)
            everywhere = max(everywhere, errors.max())
            away = max(away, errors[abs(t - position) > setting[0] ** 2 * t[1]].max())
        largest[setting] = everywhere, away
    assert_stated(PAGE, "the largest error from 2881 samples is {} with (3; 1, 2, 3), and {} one step and more "
                        "away from the kink. With (1; 1) it is {} everywhere",
                  *largest[3, (1, 2, 3)], largest[1, (1,)][0])
    assert largest[1, (1,)][1] == pytest.approx(largest[1, (1,)][0], rel=0.1)


def error_at_a_jump_of_K(setting, spacings):
    """The largest root mean square error for y = cos t and K = exp(-t) before the jump, 0 after it."""
    t = END * np.arange(spacings + 1) / spacings
    errors = []
    for position in POSITIONS:
        lag = np.minimum(t, position)
        g = (np.cos(t) + np.sin(t) - np.exp(-lag) * (np.cos(t - lag) + np.sin(t - lag))) / 2
        found, exact = solve(g, np.where(t >= position, 0, np.exp(-t)), t[1], setting)
        errors.append(root_mean_square(found - exact))
    return max(errors)


def test_only_damped_settings_with_one_node_converge_at_a_jump_of_K():
    errors = {}
    for setting in USABLE:
        errors[setting.m, setting.nodes] = few, many = [error_at_a_jump_of_K(setting, n) for n in (288, 2880)]
        if setting.count == 1 and abs(carried(setting)) < 0.99:
            assert many < few / 5, setting
        else:
            assert many > few / 2, setting
    assert min(errors, key=lambda name: errors[name][1]) == (1, (1,))
    assert_stated(PAGE, "Only the schemes with one node and $-1 < \\rho < 1$ converge, and (1; 1) is the best "
                        "of them: the root mean square error falls from {} with 289 samples to {} with 2881. With "
                        "(3; 1, 2, 3) it stays at {}.", *errors[1, (1,)], errors[3, (1, 2, 3)][1])


# ---- The two forms --------------------------------------------------------------------------------------------------


def test_the_table_of_carried_errors():
    refused = {str(s) for s in quenta.settings() if s.nodes[0] > 0 and abs(carried(s)) > 1.01}
    assert refused == {"(3, [1])", "(4, [1])", "(4, [1, 2])"}
    assert refused == {str(s) for s in quenta.settings() if s.nodes[0] > 0 and not s.measured["vie1"].usable}
    assert {str(s) for s in USABLE if carried(s) > 0.99} == {"(3, [1, 2])", "(4, [1, 3])"}
    for setting in USABLE:
        measured = setting.measured["vie1"]
        lost = 1 if carried(setting) > 0.99 else 0
        assert measured.order == pytest.approx(setting.count - lost, abs=0.1), setting
        assert (carried(setting) == 0) == (setting.nodes[-1] == setting.m)
        assert measured.growth == pytest.approx(abs(carried(setting)), abs=0.002), setting


def test_the_jumps_of_the_discontinuous_form():
    for setting in USABLE:
        t, g, K = problem(100 * setting.spacings)
        solved = quenta.solve_vie1(g, K, t[1], setting=setting)
        jumps = abs(solved.polynomials.sum(axis=1)[:-1] - solved.polynomials[1:, 0]).max()
        times = np.linspace(0, END, 4001)
        error = max(abs(solved(times, side=side) - np.cos(times)).max() for side in ("left", "right"))
        assert jumps <= 2.05 * error, setting
    assert_stated(PAGE, "its jumps are at most twice its errors")


def test_the_growth_of_the_continuous_form():
    stable = {(s.m, *s.nodes) for s in USABLE if s.measured["vie1_continuous"].stable}
    assert stable == {(1, 1), (2, 2), (3, 3), (3, 1, 2, 3), (4, 4), (4, 1, 2, 4), (4, 1, 3, 4)}
    for setting in USABLE:
        if (setting.m, *setting.nodes) in stable:
            assert setting.measured["vie1_continuous"].order == pytest.approx(setting.count, abs=0.1), setting
    growth = next(s for s in USABLE if (s.m, s.nodes) == (2, (1,))).measured["vie1_continuous"].growth
    assert growth == pytest.approx(3 + 2 * np.sqrt(2), abs=0.001)
    assert_stated(PAGE, "gives the factor $3 + 2 \\sqrt 2 \\approx {}$ per step", growth)
    for setting in ((2, (1,)), (4, (1, 2, 3))):  # the settings in the figure
        t = np.arange(30 * setting[0] ** 2 + 1) / (30 * setting[0] ** 2)
        g = (np.cos(t) + np.sin(t) - np.exp(-t)) / 2
        solved = quenta.solve_vie1(g, np.exp(-t), t[1], setting=setting, continuous=True, y0=1.0)
        assert abs(solved.y - np.cos(t)).max() > 1e18
    assert_stated(PAGE, "two schemes in the continuous form grow to 1e18 and beyond")
