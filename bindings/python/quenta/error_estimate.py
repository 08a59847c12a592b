"""How large the error of a solution is, from a second solution that reads every sample."""

from __future__ import annotations

import inspect
import math
from dataclasses import dataclass
from typing import Any, Callable, Optional

import numpy as np

from .arguments import Array
from .backward_differences import LEAST, ORDER, solve_all_samples
from .errors import SingularBlockError, SizeError
from .sampled_solvers import PREPARATIONS, SampledProblem, warn_of
from .solution import Solution

_LEAST = 2 * LEAST - 1
# The estimate is trusted if the uncertainty of the reference is at most this part of the difference from it.
_CERTAIN = 0.5
# Differences of the reference that fall faster than this, at every halving of the spacing, are those of a smooth problem.
_SMOOTH_FALL = 8.0
# A reference that is larger than the solution by more than this factor is one that grows.
_LARGER = 2.0
# What the integral of a kernel may change, of its largest value, if every second sample is left out.
_RESOLVED = 0.1
# Times the number of samples and the largest value of the solution: what rounding may add up to.
_ROUNDING = 16 * float(np.finfo(float).eps)


@dataclass(frozen=True, eq=False)
class EstimatedSolution:
    """A solution, and what is known of its error.

    Attributes
    ----------
    solution : Solution
        What the solver returns for the same arguments.
    error : array of the shape of solution.y
        The estimated error of every value of `solution.y`, never negative. Its largest element estimates the largest
        error. It holds at the samples, not between them.
    order : float
        The observed order of convergence: with half the spacing the largest error falls by 2 to this power. NaN if
        every second sample is not enough for a step, or if there is no error.
    trusted : bool
        Whether the estimate can be relied upon. If not, `error` only shows that something is wrong.
    reason : str
        One sentence that says why, or why not.
    """

    solution: Solution
    error: Array
    order: float
    trusted: bool
    reason: str


def with_error(solve: Callable[..., Solution], *arguments: Any, **keywords: Any) -> EstimatedSolution:
    """Solves, and estimates the error at every sample.

        estimate = with_error(solve_vie2, g, K, dt)
        estimate.solution.y, estimate.error

    `solve` is `solve_vie1`, `solve_vie2` or `solve_vide`; what follows are its own arguments, with 13 samples at least.

    The samples are solved a second time, by backward differentiation of order 6. This reference solution reads every
    sample, also those that the setting leaves out. A third solution, by the same method from every second sample, shows
    how uncertain the reference is. The estimate is the sum of two differences: of the solution from the reference, and
    of the reference from the third solution. If the second difference is larger than half the first, every fourth sample
    is used too: where the differences of the references fall as they do for smooth functions, up to 64 times with each
    halving of the spacing, so does the uncertainty. The estimate is `trusted` if the uncertainty is at most half the
    difference from the reference. It is then seldom more than twice too large, and hardly ever too small. Errors near
    rounding are trusted as upper bounds.

    Nobody can estimate an error that the samples do not show: of a spike between two samples, or an oscillation with
    fewer than two samples a period. The error in the samples themselves is not estimated either; of noise only what
    differs between the two solutions is seen.

    The time taken is that of two to three solves with the setting (1, [1]), and half of one with the setting given.

    Returns an `EstimatedSolution`. Raises what `solve` raises, and SizeError for fewer than 13 samples. Warns as `solve`
    does, of the solution alone.
    """
    try:
        prepare = PREPARATIONS[solve]
    except (KeyError, TypeError):
        raise ValueError(f"solve: expected solve_vie1, solve_vie2 or solve_vide, got {solve!r}") from None
    problem = prepare(**inspect.signature(solve).bind(*arguments, **keywords).arguments)
    if len(problem.g) < _LEAST:
        raise SizeError(f"g: expected at least {_LEAST} samples for an estimate, got {len(problem.g)}")
    solution = problem.solve()
    warn_of(problem, solution, stacklevel=3)
    with np.errstate(all="ignore"):
        return _estimated(problem, solution)


def _estimated(problem: SampledProblem, solution: Solution) -> EstimatedSolution:
    y = solution.y
    unknown = np.full_like(y, np.nan)
    if not np.isfinite(y).all():
        return EstimatedSolution(solution, unknown, math.nan, False, "the solution is not finite everywhere")
    if not _resolved(problem):
        return EstimatedSolution(solution, unknown, math.nan, False, "the kernel changes too much between two samples")
    try:
        reference, coarse = (_reference(problem, factor, len(y)) for factor in (1, 2))
    except (np.linalg.LinAlgError, SingularBlockError):
        return EstimatedSolution(
            solution, unknown, math.nan, False, "there is no reference solution: the system of its first samples is singular"
        )
    if not (np.isfinite(reference).all() and np.isfinite(coarse).all()):
        return EstimatedSolution(solution, unknown, math.nan, False, "the reference solution is not finite everywhere")

    difference, doubt = abs(y - reference), np.abs(reference[::2] - coarse)
    if doubt.max() > _CERTAIN * difference.max():
        doubt = doubt / _fall_of_doubt(problem, coarse, float(doubt.max()), len(y))
    largest = float(abs(y).max())
    error = difference + _between(doubt, len(y))
    np.maximum(error, 4 * float(np.finfo(float).eps) * largest, out=error)
    rounding = _ROUNDING * len(y) * largest
    apart, uncertain = float(difference.max()), float(doubt.max())
    order = _order(problem, coarse, apart)
    known = f"the solution differs by {apart:.1e} from a reference that is certain to {uncertain:.1e}"
    if error.max() <= rounding:
        return EstimatedSolution(solution, error, order, True, f"{known}, which is rounding: an upper bound")
    if abs(reference).max() > _LARGER * largest:
        return EstimatedSolution(solution, error, order, False, "the reference solution is much larger than the solution")
    if not uncertain <= _CERTAIN * apart:
        return EstimatedSolution(solution, error, order, False, f"{known} only: the samples are too few, or too rough")
    expected = problem.setting.measured[problem.form].order or 0.0
    if order < expected - 0.5:
        known += f"; the error falls with order {order:.1f} instead of {expected:.1f}: rough data, or too few samples"
    return EstimatedSolution(solution, error, order, True, known)


def _resolved(problem: SampledProblem) -> bool:
    """Whether the integral of the kernel is nearly the same by the trapezoidal rule from every second sample."""
    integral = _integrals(problem.K, problem.dt)
    difference = float(abs(integral[::2] - _integrals(problem.K[::2], 2 * problem.dt)).max())
    scale = float(abs(integral).max())
    if problem.form == "vie2":
        scale += 1
    elif problem.form == "vide":
        scale += 1 / (len(problem.g) * problem.dt)
    return difference <= _RESOLVED * scale


def _integrals(K: Array, dt: float) -> Array:
    integrals = np.zeros_like(K)
    np.cumsum((K[1:] + K[:-1]) * (dt / 2), axis=0, out=integrals[1:])
    return integrals


def _reference(problem: SampledProblem, factor: int, count: int) -> Array:
    """From every sample (every second, fourth, ...), at the times of the solution."""
    return solve_all_samples(problem.coarsened(factor) if factor > 1 else problem)[: (count - 1) // factor + 1]


def _fall_of_doubt(problem: SampledProblem, coarse: Array, doubt: float, count: int) -> float:
    """By how much the reference is closer to the truth than to the coarser one: 1 unless the problem is smooth.

    A kink or a jump at a random place between samples makes an error of order 2 or 1, in the reference as in the coarser
    one, which is at least twice as wrong. A smooth problem makes one of order 6, and the differences fall by 2^6. An
    eighth of the fall that is seen, and of 2^6 at most, is relied upon.
    """
    if len(problem.g) < 4 * (LEAST - 1) + 1:
        return 1.0
    try:
        coarser = _reference(problem, 4, count)
    except (np.linalg.LinAlgError, SingularBlockError):
        return 1.0
    fall = float(abs(coarse[::2] - coarser).max()) / doubt if doubt > 0 else math.inf
    return float(np.clip(np.nan_to_num(fall) / _SMOOTH_FALL, 1, 2**ORDER / _SMOOTH_FALL))


def _between(doubt: Array, count: int) -> Array:
    """Known at every second sample: the larger of the neighbours for those in between."""
    everywhere = np.empty((count,) + doubt.shape[1:])
    everywhere[::2] = doubt
    after = doubt[1:] if count % 2 else np.concatenate([doubt[1:], doubt[-1:]])
    everywhere[1::2] = np.maximum(doubt[: len(after)], after)
    return everywhere


def _order(problem: SampledProblem, coarse: Array, apart: float) -> float:
    """From the error of the setting's own solution from every second sample."""
    if (len(problem.g) - 1) // 2 < problem.setting.spacings:
        return math.nan
    try:
        y = problem.coarsened(2).solve().y
    except SingularBlockError:
        return math.nan
    before = float(abs(y - coarse[: len(y)]).max())
    return math.log2(before / apart) if 0 < apart < math.inf and 0 < before < math.inf else math.nan
