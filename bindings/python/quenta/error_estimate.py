"""How large the error of a solution is, from a second solution that reads every sample."""

from __future__ import annotations

import inspect
import math
from dataclasses import dataclass
from typing import Any, Callable

import numpy as np

from .arguments import Array, sketch
from .backward_differences import LEAST, ORDER, solve_all_samples
from .errors import SingularBlockError, SizeError
from .sampled_solvers import PREPARATIONS, SampledProblem
from .solution import Solution
from .solution_warnings import warn_of

# The fewest samples of which every second one will do for a reference.
_FEWEST = 2 * LEAST - 1
# An estimate is trusted if the uncertainty of the reference is at most this part of the difference from it.
_CERTAIN = 0.5
# A reference that is larger than the solution by more than this factor is taken for one that has grown.
_LARGER = 2.0
# By how much the integral of a kernel may change, of its largest value, if every second sample is left out.
_RESOLVED = 0.1
# References that differ by this much less with half the spacing are those of a smooth problem.
_SMOOTH_FALL = 8.0
_EPSILON = float(np.finfo(float).eps)


@dataclass(frozen=True, eq=False)
class EstimatedSolution:
    """A solution, and what is known of its error.

    Attributes:

    solution
        The `Solution` that the solver returns for the same arguments.
    error
        The estimated error of every value of `solution.y`, not negative; NaN if nothing is known. The largest one is an
        estimate of the largest error. All this holds at the samples, not between them.
    order
        The observed order of convergence: when the spacing was halved, the largest error fell by 2 to this power. NaN
        if there are too few samples, or if there is no error.
    trusted
        True if the estimate can be relied upon.
    reason
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

    `solve` is `solve_vie1`, `solve_vie2` or `solve_vide`; what follows are its own arguments, with 13 samples or more.

    1. A reference solution is computed from the same samples by backward differentiation of order 6. It reads every
       sample, also those that the setting leaves out. The reference from every second sample shows how uncertain it is.
    2. The estimate is the sum of two differences: of the solution from the reference, and of the two references. The
       second one is the uncertainty. If it is larger than half the first, a reference from every fourth sample is
       computed too. On smooth problems the differences of the references fall by 64 when the spacing is halved; an
       eighth of the fall that is observed, 8 at most, divides the uncertainty.
    3. The estimate is `trusted` if the uncertainty is at most half the difference from the reference. It then is within
       a factor of 3 of the error, with rare exceptions. An estimate of the size of rounding is trusted as an upper
       bound.

    The reference is not trusted if it is more than twice as large as the solution, nor if the integral of the kernel
    changes by more than a tenth when every second sample is left out.

    What no sample shows cannot be estimated: a spike between two samples, or an oscillation with fewer than two samples
    a period. Nor can the error of the samples themselves.

    This takes 2.4 to 9 times as long as the solve from 20,000 samples on, and some milliseconds for 1,000 or fewer.

    Returns an `EstimatedSolution`. Raises what `solve` raises, and `SizeError` for fewer than 13 samples. Warns as
    `solve` does; the other solutions are not warned of.
    """
    try:
        prepare = PREPARATIONS[solve]
    except (KeyError, TypeError):
        raise ValueError(f"solve: expected solve_vie1, solve_vie2 or solve_vide, got {sketch(solve)}") from None
    problem = prepare(**inspect.signature(solve).bind(*arguments, **keywords).arguments)
    if len(problem.g) < _FEWEST:
        raise SizeError(f"g: expected at least {_FEWEST} samples for an estimate, got {len(problem.g)}")
    solution = problem.solve()
    warn_of(problem, solution, stacklevel=3)
    with np.errstate(all="ignore"):
        return _estimated(problem, solution)


def _estimated(problem: SampledProblem, solution: Solution) -> EstimatedSolution:
    y = solution.y

    def nothing_known(reason: str) -> EstimatedSolution:
        return EstimatedSolution(solution, np.full_like(y, np.nan), math.nan, False, reason)

    if not np.isfinite(y).all():
        return nothing_known("the solution is not finite everywhere")
    try:
        reference, coarse = (_reference(problem, factor, len(y)) for factor in (1, 2))
    except (np.linalg.LinAlgError, SingularBlockError):
        return nothing_known("there is no reference to compare with: a system of equations for it is singular")
    if not (np.isfinite(reference).all() and np.isfinite(coarse).all()):
        return nothing_known("there is no reference to compare with: it is not finite everywhere")

    difference, doubt = abs(y - reference), np.abs(reference[::2] - coarse)
    if doubt.max() > _CERTAIN * difference.max():
        doubt = doubt / _further_fall(problem, coarse, float(doubt.max()), len(y))
    apart, uncertain, largest = float(difference.max()), float(doubt.max()), float(abs(y).max())
    error = np.maximum(difference + _at_all_samples(doubt, len(y)), 4 * _EPSILON * largest)
    order = _order(problem, coarse, apart)

    def judged(trusted: bool, reason: str) -> EstimatedSolution:
        return EstimatedSolution(solution, error, order, trusted, reason)

    differs = f"the solution differs by {apart:.1e} from a reference that is certain to {uncertain:.1e}"
    if not _resolved(problem):
        return judged(False, "the samples of the kernel are too few, or too rough: its integral is not certain")
    if error.max() <= 16 * _EPSILON * len(y) * largest:
        return judged(True, f"{differs}, which is no more than rounding may be")
    if abs(reference).max() > _LARGER * largest:
        return judged(False, f"the reference is over {_LARGER:g} times as large as the solution, and may have grown")
    if not uncertain <= _CERTAIN * apart:
        return judged(False, f"{differs} only: the samples are too few, or too rough")
    expected = problem.setting.measured[problem.form].order
    if expected is not None and order < expected - 0.5:
        differs += f"; the error falls with order {order:.1f} instead of {expected:.1f}: too few samples, or too rough"
    return judged(True, differs)


def _reference(problem: SampledProblem, factor: int, count: int) -> Array:
    """From every sample, or every second or fourth one, at those of the first `count` samples."""
    return solve_all_samples(problem.coarsened(factor) if factor > 1 else problem)[: (count - 1) // factor + 1]


def _further_fall(problem: SampledProblem, coarse: Array, doubt: float, count: int) -> float:
    """How much closer the reference is to the truth than to the coarser reference: 1 unless the problem is smooth.

    A kink or a jump between two samples makes an error of order 2 or 1 in the reference, and one at least twice as
    large in the coarser one, wherever it is. So their difference bounds the error. With smooth samples the error is of
    order 6, and the difference is larger than the error by 2^6. Only an eighth of the observed fall is used.
    """
    if len(problem.g) < 4 * (LEAST - 1) + 1:
        return 1.0
    try:
        coarser = _reference(problem, 4, count)
    except (np.linalg.LinAlgError, SingularBlockError):
        return 1.0
    fall = float(abs(coarse[::2] - coarser).max()) / doubt
    return max(min(fall, float(2**ORDER)) / _SMOOTH_FALL, 1.0) if math.isfinite(fall) else 1.0


def _at_all_samples(doubt: Array, count: int) -> Array:
    """Of what is known at every second sample: the larger one of the neighbours for those between."""
    everywhere = np.repeat(doubt, 2, axis=0)[:count]
    between = everywhere[1:-1:2]
    np.maximum(between, doubt[1:][: len(between)], out=between)
    return everywhere


def _resolved(problem: SampledProblem) -> bool:
    """Whether the integral of the kernel is nearly the same by the trapezoidal rule without every second sample.

    If not, as with a kernel that decays within a spacing, all references may be wrong in the same way.
    """
    integral = _integral(problem.K, problem.dt)
    change = float(abs(integral[::2] - _integral(problem.K[::2], 2 * problem.dt)).max())
    # Beside the integral stands 1 in y - K * y = g, and 1 / (N dt), at least, in y' - a y - K * y = g.
    beside = {"vie2": 1.0, "vide": 1 / (len(problem.g) * problem.dt)}.get(problem.form, 0.0)
    return change <= _RESOLVED * (float(abs(integral).max()) + beside)


def _integral(K: Array, dt: float) -> Array:
    integral = np.zeros_like(K)
    np.cumsum((K[1:] + K[:-1]) * (dt / 2), axis=0, out=integral[1:])
    return integral


def _order(problem: SampledProblem, coarse: Array, apart: float) -> float:
    """From the error of the setting's solution from every second sample."""
    if (len(problem.g) - 1) // 2 < problem.setting.spacings:
        return math.nan
    try:
        y = problem.coarsened(2).solve().y
    except SingularBlockError:
        return math.nan
    before = float(abs(y - coarse[: len(y)]).max())
    return math.log2(before / apart) if apart > 0 and 0 < before < math.inf else math.nan
