"""Equations of the first kind with zero or nearly zero K(0), or with nonzero g(0), cause a warning; others do not."""

import re
import warnings

import numpy as np
import pytest

import quenta

DT = 0.01
KERNELS = {
    "t": lambda t: t,
    "t^2": lambda t: t**2,
    "1 - exp(-20 t)": lambda t: 1 - np.exp(-20 * t),
    "0.001 + t": lambda t: 0.001 + t,
}


def solve(g, K, **options):
    """The solution, and the texts of its `IllPosedWarning`s."""
    with warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("always")
        found = quenta.solve_vie1(g, K, DT, t_end=2.7, **options)
    return found, [str(warning.message) for warning in caught if warning.category is quenta.IllPosedWarning]


def in_system(K):
    """The kernel of a system of two equations, with very different units of equations and unknowns."""
    mix, scale = np.array([[2.0, 1.0], [1.0, 3.0]]), np.diag([1e2, 1e-1])
    return lambda t: scale @ (K(t)[:, np.newaxis, np.newaxis] * mix) @ scale


@pytest.mark.parametrize("name", KERNELS)
def test_a_kernel_that_starts_near_zero_causes_a_warning(name):
    K = KERNELS[name]
    found, texts = solve(lambda t: t**2 / 2, K)
    assert abs(found.y).max() > 1e12
    (text,) = texts
    assert text.startswith("K: expected a K(0) that is neither zero nor nearly zero, got ") and "differentiated equation" in text
    assert "errors grow by a factor of about" in text
    _, texts = solve(lambda t: np.stack([t**2, t**3], axis=1), in_system(K))
    assert len(texts) == 1 and texts[0].startswith("K: ")
    _, texts = solve(lambda t: t**2 / 2, K, setting=(1, [1]) if name == "0.001 + t" else (2, [1, 2]))
    assert len(texts) == 1


def test_a_kernel_matrix_that_is_singular_at_zero_causes_a_warning():
    _, texts = solve(lambda t: np.stack([t, t], axis=1), lambda t: np.eye(2) * [1.0, 0.0] + t[:, None, None] * np.ones((2, 2)))
    assert len(texts) == 1 and "got a singular matrix" in texts[0]


def test_both_forms_warn_and_point_at_the_calling_line():
    for options in ({}, {"continuous": True, "y0": 1.0}):
        with pytest.warns(quenta.IllPosedWarning) as caught:
            quenta.solve_vie1(lambda t: t**2 / 2, lambda t: t, DT, t_end=1.8, **options)
        assert {warning.filename for warning in caught} == {__file__}


def test_the_recommended_remedy_works():
    found, texts = solve(lambda t: t, 1.0)  # the derivative of: integral of (t - s) y(s) ds = t^2 / 2
    assert not texts and abs(found.y - 1).max() < 1e-11


@pytest.mark.parametrize("D", [None, 3])
def test_kernels_with_a_large_start_cause_no_warning(D):
    checked = 0
    for K in (lambda t: np.exp(-t), np.cos, lambda t: np.cos(5 * t), lambda t: 1 + t, np.exp, lambda t: 1 - t):
        kernel = K if D is None else lambda t, K=K: K(t)[:, np.newaxis, np.newaxis] * (np.eye(D) + 0.1)
        g = np.sin if D is None else lambda t: np.sin(t)[:, np.newaxis] * np.ones(D)
        for setting in ((3, [1, 2, 3]), (1, [1]), (2, [2])):
            with warnings.catch_warnings():
                warnings.simplefilter("error")
                quenta.solve_vie1(g, kernel, DT, t_end=2.7, setting=setting)
            checked += 1
    assert checked == 18


def test_an_offset_of_g_causes_a_warning():
    found, texts = solve(lambda t: 1 + np.sin(t), lambda t: np.exp(-t))
    assert len(texts) == 1 and texts[0].startswith("g: expected g(0) = 0, got 1:") and "spike" in texts[0]
    assert abs(found.y).max() > 10 * abs(found.y[20:]).max()
    stated = float(re.search("of height about ([0-9.]+)", texts[0])[1])
    assert abs(found.y[0] - 1) == pytest.approx(stated, rel=0.05)
    _, texts = solve(lambda t: np.stack([np.sin(t), 0.1 + np.sin(t)], axis=1), np.eye(2))
    assert len(texts) == 1 and "got [0.  0.1]" in texts[0]
    assert not solve(lambda t: 1e-5 + np.sin(t), lambda t: np.exp(-t))[1]
    for offset in (1e-2, 1e-3):
        assert len(solve(lambda t: offset + np.sin(t), lambda t: np.exp(-t))[1]) == 1


def test_the_warning_does_not_claim_a_spike_if_only_the_first_sample_of_g_is_wrong():
    t = np.arange(271) * DT
    g, K = np.sin(t), np.exp(-t)
    right = quenta.solve_vie1(g, K, DT).y
    g[0] = 0.1
    with warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("always")
        assert np.array_equal(quenta.solve_vie1(g, K, DT).y, right)
    (text,) = [str(warning.message) for warning in caught if warning.category is quenta.IllPosedWarning]
    assert "if all samples have this offset, the solution starts with a spike" in text


def test_samples_that_are_not_finite_cause_no_warning_here():
    K = np.exp(-np.arange(91) * DT)
    K[3] = np.nan
    with warnings.catch_warnings():
        warnings.simplefilter("error", quenta.IllPosedWarning)
        quenta.solve_vie1(np.sin(np.arange(91) * DT), K, DT, check_finite=False)
