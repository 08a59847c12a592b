"""Checks the start of an equation of the first kind: K(0) must not be zero, and g(0) must be zero.

If K(0) is zero, or small compared with K in the first step, the solution contains second derivatives of g. The schemes
approximate first derivatives, and for many kernels their errors then grow from step to step. A trial solve with the
same kernel shows whether they grow. The caller disables floating-point warnings.
"""

from __future__ import annotations

import math
from typing import TYPE_CHECKING, Optional

import numpy as np

from .arguments import Array
from .errors import QuentaError

if TYPE_CHECKING:
    from .sampled_solvers import SampledProblem
    from .solution import Solution

# Ratios of K in the first step to K(0): above the first there is a warning, below the second errors do not grow.
_TOO_LARGE, _LARGER = 10.0, 1.1
# There is a warning if errors grow by at least the first factor per step and by at least the second over all steps.
_GROWING, _MOST_GROWTH = 1.1, 1000.0
_TRIAL_STEPS, _FEWEST_TRIAL_STEPS = 40, 4
# The largest accepted spike from g(0), relative to the solution after the first two steps.
_SPIKE = 0.01


def fault_of_kernel(problem: SampledProblem) -> Optional[str]:
    """The warning about K(0), or None."""
    samples = problem.K[: problem.setting.spacings + 1]
    if problem.D is None and float(abs(samples).max()) < _LARGER * abs(float(samples[0])):
        return None
    first_step = _matrices(samples)
    if not np.isfinite(first_step).all():
        return None
    larger = _largest_ratio(first_step)
    if larger < _LARGER:
        return None
    growth = _growth(problem)
    steps = (len(problem.g) - 1) // problem.setting.spacings
    grows = growth >= _GROWING and steps * math.log(growth) >= math.log(_MOST_GROWTH)
    if larger < _TOO_LARGE and not grows:
        return None
    remedy = (
        "solve the differentiated equation K(0) y(t) + integral from 0 to t of K'(t - s) y(s) ds = g'(t), which becomes an "
        "equation of the second kind when divided by a regular K(0)"
    )
    if not first_step[0].any():
        found = "0"
        remedy = (
            "solve the differentiated equation, which is of the first kind with K' and g' in place of K and g; "
            "differentiate again if K'(0) is 0 too"
        )
    elif math.isinf(larger):
        found = "a singular matrix"
    else:
        found = f"a small value: in the first step K is {larger:.3g} times as large"
    errors = "errors may grow"
    if growth >= _GROWING:
        errors = f"errors grow by a factor of about {growth:.3g} per step" if growth < math.inf else "errors overflow"
    return (
        f"K: expected a K(0) that is neither zero nor nearly zero, got {found}; {errors} with setting {problem.setting}; "
        f"{remedy}"
    )


def fault_of_forcing(problem: SampledProblem, solution: Solution) -> Optional[str]:
    """The warning about g(0), or None."""
    g, spacings = problem.g, problem.setting.spacings
    if problem.D is None and float(g[0]) == 0.0:
        return None
    start = np.atleast_1d(g[0])
    if not start.any() or not np.isfinite(start).all():
        return None
    first_step = _matrices(problem.K[: spacings + 1])
    if not np.isfinite(first_step).all():
        return None
    scaled = _solved(first_step[0], start[:, np.newaxis])
    if scaled is None:
        spike, least, height = abs(start), _SPIKE * _largest(g[: len(solution.y)]), ""
    else:
        # The integral of K times the first polynomial is 0 at the start, but must be g(0) at every node k / m.
        setting = problem.setting
        spike = abs(scaled[:, 0]) * sum(setting.m / k for k in setting.nodes) / solution.step
        least = _SPIKE * _largest(solution.y[2 * spacings + 1 :] if solution.steps > 2 else solution.y)
        height = f" of height about {spike.max():.3g}"
    if not (spike > least).any():
        return None
    shown = f"{start[0]:.6g}" if g.ndim == 1 else np.array2string(start, precision=6, threshold=8)
    return (
        f"g: expected g(0) = 0, got {shown}: if all samples have this offset, the solution starts with a spike{height}; "
        f"correct the offset of g or the time at which it starts"
    )


def _matrices(kernel: Array) -> Array:
    return kernel.reshape(-1, 1, 1) if kernel.ndim == 1 else kernel


def _largest(values: Array) -> Array:
    """The largest finite absolute value of each component."""
    finite: Array = np.where(np.isfinite(values), abs(values), 0.0)
    return np.asarray(finite.reshape(len(values), -1).max(axis=0))


def _largest_ratio(first_step: Array) -> float:
    """The largest spectral radius of K(0)^-1 K(t) for t > 0. It does not depend on the units of g and y."""
    if not first_step.any():
        return 0.0
    if first_step.shape[1] == 1:
        start = abs(float(first_step[0, 0, 0]))
        return float(abs(first_step[1:]).max()) / start if start > 0 else math.inf
    others = np.concatenate(list(first_step[1:]), axis=1)
    ratios = _solved(first_step[0], others)
    if ratios is None:
        return math.inf
    D = len(ratios)
    ratios = ratios.reshape(D, -1, D).swapaxes(0, 1)
    largest_norm = float(abs(ratios).sum(axis=2).max())
    if largest_norm < _LARGER:  # a bound of the spectral radius
        return largest_norm
    try:
        return float(abs(np.linalg.eigvals(ratios)).max())
    except np.linalg.LinAlgError:  # not finite
        return math.inf


def _solved(matrix: Array, right: Array) -> Optional[Array]:
    """matrix^-1 right, or None if a pivot is 0. Avoids LAPACK, which can hang if a memory limit denies it buffers."""
    D = len(matrix)
    rows = np.concatenate([matrix, right], axis=1)
    for column in range(D):
        pivot = column + int(np.argmax(abs(rows[column:, column])))
        if rows[pivot, column] == 0:
            return None
        rows[[column, pivot]] = rows[[pivot, column]]
        rows[column] /= rows[column, column]
        factors = rows[:, column].copy()
        factors[column] = 0
        rows -= factors[:, np.newaxis] * rows[column]
    return np.asarray(rows[:, D:])


def _growth(problem: SampledProblem) -> float:
    """The factor by which a disturbance of the first step grows per step, or 0 if no trial is possible."""
    spacings = problem.setting.spacings
    half = min(_TRIAL_STEPS, (len(problem.g) - 1) // spacings) // 2
    if 2 * half < _FEWEST_TRIAL_STEPS:
        return 0.0
    count, D = 2 * half * spacings + 1, problem.D
    g = np.zeros((count, D or 1))
    g[: spacings + 1] = 1 / (1 + np.arange(spacings + 1)[:, np.newaxis] + np.arange(D or 1))
    trial = problem._replace(
        form="vie1",
        g=g if D is not None else g.ravel(),
        K=problem.K[:count],
        y0=0.0 if D is None else np.zeros(D),
        check_finite=False,
    )
    try:
        found = abs(trial.solve().polynomials).reshape(2, half, -1, D or 1).max(axis=(1, 2))
    except QuentaError:
        return 0.0
    if not np.isfinite(found).all():
        return math.inf
    early, late = found
    factors = (late[early > 0] / early[early > 0]) ** (1 / half)
    return float(factors.max()) if factors.size else 0.0
