"""Samples that a setting does not read are compared with those that it reads; a contradiction causes a warning."""

import bisect
import math
import warnings

import numpy as np
import pytest

import quenta
from quenta.unread_samples import find_disagreement, read_samples

ROWS = quenta.settings()
T = np.arange(101) * 0.05
CHECKED = [row for row in ROWS if (row.m, row.nodes) != (1, (0, 1))]


def solve_all(row, g, K, a):
    """The solutions in all forms that support the row, as bytes."""
    found = []
    with warnings.catch_warnings():
        warnings.simplefilter("ignore")
        options = {"setting": row, "check_finite": False}
        found.append(quenta.solve_vie2(g, K, 0.01, **options))
        found.append(quenta.solve_vide(g, K, a, 1.0, 0.01, **options))
        if row.measured["vie1"].usable:
            found.append(quenta.solve_vie1(g, K, 0.01, **options))
        if row.measured["vie1_continuous"].usable:
            found.append(quenta.solve_vie1(g, K, 0.01, continuous=True, y0=1.0, **options))
    return [solution.y.tobytes() + solution.polynomials.tobytes() for solution in found]


@pytest.mark.parametrize("row", range(56))
def test_unread_samples_do_not_change_the_solution(row):
    row = ROWS[row]
    steps = 4
    generator = np.random.default_rng(row.row)
    given = dict(zip("gKa", 1 + generator.random((3, steps * row.spacings + 1))))
    solved = solve_all(row, **given)
    for name in given:
        read = read_samples(row, name == "K", steps)
        assert 0 <= min(read) and max(read) <= steps * row.spacings
        others = np.full_like(given[name], np.nan)
        others[read] = given[name][read]
        assert solve_all(row, **{**given, name: others}) == solved


def test_read_samples_change_the_solution():
    changed = 0
    for row in (ROWS[2], ROWS[9], ROWS[23]):
        given = dict(zip("gKa", 1 + np.random.default_rng(5).random((3, 4 * row.spacings + 1))))
        solved = solve_all(row, **given)
        for name in given:
            for place in read_samples(row, name == "K", 4):
                other = given[name].copy()
                other[place] = np.nan
                assert solve_all(row, **{**given, name: other}) != solved, (row, name, place)
                changed += 1
    assert changed > 50


def test_fractions_of_read_samples_are_those_of_a_middle_step():
    for row in ROWS:
        steps = 40
        for of_kernel, fraction in ((False, row.fraction_of_g_read), (True, row.fraction_of_K_read)):
            in_a_step = [place for place in read_samples(row, of_kernel, steps) if 0 <= place - 20 * row.spacings < row.spacings]
            assert fraction == len(in_a_step) / row.spacings, row
    assert (ROWS[9].fraction_of_g_read, ROWS[9].fraction_of_K_read) == (0.5, 0.5)
    assert ROWS[2].fraction_of_g_read == ROWS[2].fraction_of_K_read == 1.0
    assert min(row.fraction_of_g_read for row in ROWS) == 1 / 16


# ---- The comparison with its definition -----------------------------------------------------------------------------


def stencils_by_definition(of_kernel, row, steps):
    """For every unread sample: its index, the indices of the four that it is compared with, and their weights."""
    read = read_samples(row, of_kernel, steps)
    count = steps * row.spacings + 1
    stencils = []
    for place in sorted(set(range(count)) - set(read)):
        inside = len(read) >= 4 and read[0] < place < read[-1]
        others = read if inside else [other for other in range(count) if other != place]
        first = max(0, min(bisect.bisect(others, place) - 2, len(others) - 4))
        near = others[first : first + 4]
        weights = [math.prod((place - q) / (p - q) for q in near if q != p) for p in near]
        stencils.append((place, near, weights))
    return stencils


def largest_contradiction(samples, stencils):
    """The largest difference that contradicts, as a fraction of the range of its component; 0 if none does."""
    if len(samples) <= 4:
        return 0.0
    values = samples.reshape(len(samples), -1)
    ranges, largest, worst = np.ptp(values, axis=0), abs(values).max(), 0.0
    for place, near, weights in stencils:
        differences = abs(values[place] - weights @ values[near])
        contradicts = differences > 0.01 * ranges * sum(map(abs, weights)) + 1e-12 * largest
        worst = max(worst, *(differences[contradicts] / ranges[contradicts]), 0.0)
    return worst


def random_samples(generator, count):
    """Smooth samples with one outlier and noise, in three sizes, of a scalar or of three components."""
    x = np.linspace(0, 1, count)
    smooth = np.exp(-x) if generator.random() < 0.5 else np.exp(-x)[:, np.newaxis] * [1.0, 0.0, 30.0]
    for size in (0, 0.01, 0.3):
        samples = smooth.copy()
        samples[generator.integers(count)] += size
        yield samples + size / 100 * generator.normal(size=samples.shape)


@pytest.mark.parametrize("steps", [1, 2, 7, 30, 260])
def test_the_worst_sample_is_that_of_the_definition(steps):
    generator = np.random.default_rng(steps)
    agreed = contradicted = 0
    for row in CHECKED[:: 1 if steps < 3 else 4 if steps < 30 else 11]:
        whole_steps = min(steps, 1200 // row.spacings)
        used = whole_steps * row.spacings + 1
        for of_kernel in (False, True):
            stencils = stencils_by_definition(of_kernel, row, whole_steps)
            for samples in random_samples(generator, used + int(generator.integers(row.spacings))):
                found = find_disagreement(samples, of_kernel, row)
                worst = largest_contradiction(samples[:used], stencils)
                assert (found.fraction if found else 0.0) == pytest.approx(worst, rel=1e-9), (row, of_kernel)
                if found:
                    assert (found.unread, found.samples) == (len(stencils), used)
                agreed, contradicted = agreed + (found is None), contradicted + (found is not None)
    assert agreed > 5 and contradicted > 5


@np.errstate(all="ignore")
def test_numbers_of_all_magnitudes_and_constants():
    generator = np.random.default_rng(0)
    with np.errstate(all="raise"):
        quenta.solve_vie2(1e300 + T * 1e299, np.full(101, 1e-310), 0.05)
    for row in (ROWS[9], ROWS[23]):
        for N in (100, 3000):
            noise = generator.normal(size=N)
            for scale in (1e-320, 1e-200, 1.0, 1e200, 1e307):
                assert find_disagreement(noise * scale, False, row), scale
                assert find_disagreement(np.full(N, scale), False, row) is None
                assert find_disagreement(np.full(N, scale / 3), True, row) is None
            assert find_disagreement(np.zeros(N), False, row) is None
            assert find_disagreement(1.0 + 1e-15 * noise, False, row) is None
            assert find_disagreement(np.sin(np.linspace(0, 7, N)), True, row) is None


# ---- The warning ----------------------------------------------------------------------------------------------------


def test_an_impulse_between_nodes_is_reported():
    g = np.zeros(101)
    g[37] = 1.0
    with pytest.warns(quenta.UnreadSamplesWarning) as caught:
        found = quenta.solve_vie2(g, np.exp(-T), 0.05)
    assert not found.y.any()
    (warning,) = caught
    assert warning.filename == __file__
    for part in ("g: setting (2, [0, 1, 2]) does not read 50 of 101 samples", "g[37] is 1", "100 percent of the range",
                 "at most 1.2 percent", "Setting (1, [0, 1]) reads every sample"):
        assert part in str(warning.message)
    assert quenta.solve_vie2(g, np.exp(-T), 0.05, setting=(1, [0, 1])).y.any()


def test_all_arguments_and_components_are_compared():
    rough = np.where(np.arange(101) % 2, 0.5, 0.0)
    smooth = np.exp(-T)
    with pytest.warns(quenta.UnreadSamplesWarning, match="^K: .*120 percent"):
        quenta.solve_vie2(smooth, rough, 0.05)
    with pytest.warns(quenta.UnreadSamplesWarning, match="^a: "):
        quenta.solve_vide(smooth, smooth, rough, 1.0, 0.05)
    K = smooth[:, np.newaxis, np.newaxis] * np.ones((2, 2))
    K[55, 1, 0] += 1
    with pytest.warns(quenta.UnreadSamplesWarning, match=r"K\[55, 1, 0\]"):
        quenta.solve_vie2(np.stack([smooth, smooth], axis=1), K, 0.05)
    with pytest.warns(quenta.UnreadSamplesWarning) as caught:
        quenta.solve_vie2(rough, rough, 0.05)
    assert [str(warning.message)[0] for warning in caught] == ["g", "K"]


def test_the_remedy_for_the_first_kind():
    g = T * np.where(np.arange(101) % 2, 1.5, 1.0)
    with pytest.warns(quenta.UnreadSamplesWarning, match=r"Setting \(1, \[1\]\) reads every sample except the first of g and the last of K"):
        quenta.solve_vie1(g[:100], np.exp(-T[:100]), 0.05)
    quenta.solve_vie1(g, np.exp(-T), 0.05, setting=(1, [1]))


def test_unread_samples_that_are_not_finite_are_reported():
    g = np.exp(-T)
    g[37] = np.nan
    with pytest.warns(quenta.UnreadSamplesWarning, match=r"does not read 50 of 101 samples, and of these g\[37\] is nan"):
        found = quenta.solve_vie2(g, np.exp(-T), 0.05, check_finite=False)
    assert np.isfinite(found.y).all()


def test_with_error_warns_once_and_points_at_the_calling_line():
    g = np.exp(-T)
    g[37] += 1
    with pytest.warns(quenta.UnreadSamplesWarning) as caught:
        quenta.with_error(quenta.solve_vie2, g, np.exp(-T), 0.05)
    assert [warning.filename for warning in caught] == [__file__]


def test_smooth_samples_cause_no_warning():
    for kind, smooth in (("vie2", np.cos(3 * T)), ("vie1", np.sin(3 * T))):
        for row in ROWS:
            if row.measured[kind].usable:
                N = (row.spacings * (60 // row.m)) + 1
                t = np.linspace(0, 2, N)
                getattr(quenta, f"solve_{kind}")(np.interp(t, t, np.sin(t)), np.exp(-t), t[1], setting=row)


def test_smooth_samples_cause_no_warning_in_short_intervals():
    """Sines with 20 samples per period, on intervals of 1 to 11 steps."""
    solved = 0
    with warnings.catch_warnings():
        warnings.simplefilter("error", quenta.UnreadSamplesWarning)
        for spacings, solver in ((4, quenta.solve_vie2), (9, quenta.solve_vie1)):
            for steps in range(2 if spacings == 4 else 1, 12):
                t = np.arange(steps * spacings + 1) * np.pi / 10
                for K in (np.exp(-t), np.cos(t)):
                    solver(np.sin(t), K, t[1])
                    solved += 1
    assert solved == 42


def test_an_impulse_is_found_at_every_unread_sample():
    found = 0
    for setting in quenta.settings():
        for steps in (1, 2, 3):
            count = steps * setting.spacings + 1
            if count < 6:
                continue
            for of_kernel in (False, True):
                for place in sorted(set(range(count)) - set(read_samples(setting, of_kernel, steps))):
                    samples = np.zeros(count)
                    samples[place] = 1
                    assert find_disagreement(samples, of_kernel, setting) is not None, (setting, of_kernel, place)
                    found += 1
    assert found > 3000
