"""Estimates the error of a solution by comparing it with a second solution that uses all samples."""

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

# The smallest number of samples: every second one must be enough for a reference.
_FEWEST = 2 * LEAST - 1
# An estimate is trusted if the uncertainty of the reference is at most this fraction of the difference from it.
_CERTAIN = 0.5
# A reference that is larger than the solution by more than this factor is considered unstable.
_LARGER = 2.0
# The integral of a kernel may change by this fraction of its largest value if every second sample is left out.
_RESOLVED = 0.1
# A problem is considered smooth if halving the spacing reduces the difference of references by more than this factor.
_SMOOTH_FALL = 8.0
_EPSILON = float(np.finfo(float).eps)


@dataclass(frozen=True, eq=False)
class EstimatedSolution:
    """A solution with an estimate of its error.

    Attributes
    ----------
    solution : Solution
        The solution that the solver returns for the same arguments.
    error : ndarray
        The estimated absolute error of each value of `solution.y`, of its shape and unit; NaN if no estimate is
        possible. Its maximum estimates the largest error at the samples. Errors between samples are not estimated.
    order : float
        The observed order of convergence: halving the spacing divided the largest error by 2 to this power. NaN if
        there are too few samples, or if there is no error.
    trusted : bool
        True if the estimate is reliable.
    reason : str
        One sentence that explains why the estimate is trusted or not.

    See Also
    --------
    with_error : Solve an equation and estimate the error.

    Examples
    --------
    >>> import quenta
    >>> estimate = quenta.with_error(quenta.solve_vie2, 1, lambda t: t, 0.01, t_end=4)
    >>> print(f"{estimate.error.max():.0e}, order {estimate.order:.0f}, trusted: {estimate.trusted}")
    1e-05, order 3, trusted: True
    """

    solution: Solution
    error: Array
    order: float
    trusted: bool
    reason: str


def with_error(solve: Callable[..., Solution], *arguments: Any, **keywords: Any) -> EstimatedSolution:
    """Solve an equation and estimate the error at every sample.

    Parameters
    ----------
    solve : callable
        The solver: `solve_vie1`, `solve_vie2` or `solve_vide`.
    *arguments : object
        Arguments of the solver. There must be at least 13 samples.
    **keywords : object
        Keyword arguments of the solver.

    Returns
    -------
    EstimatedSolution
        The solution, the estimated error at every sample, and whether the estimate is reliable.

    Raises
    ------
    ValueError
        If an argument is invalid. The message names the argument, what was expected, and what it got.
    SizeError
        If there are fewer than 13 samples, or if the solver raises it.
    UnsupportedSettingError
        If the solver raises it.
    SingularBlockError
        If the solver raises it.

    Warns
    -----
    QuentaWarning
        The warnings of the solver. There are no warnings about the reference solutions.

    See Also
    --------
    EstimatedSolution : The result.
    solve_vie2 : Equations of the second kind.
    solve_vie1 : Equations of the first kind.
    solve_vide : Integro-differential equations.

    Notes
    -----
    1. A reference solution is computed from the same samples by the backward differentiation formula of order 6 [1]_.
       It uses all samples, including those that the scheme does not read. A second reference, from every second sample,
       shows the uncertainty of the first.
    2. The estimate is the sum of two differences: that of the solution and the reference, and that of the two
       references. The second difference is the uncertainty. If it exceeds half the first difference, a third reference,
       from every fourth sample, is computed. On smooth problems halving the spacing divides the difference of the
       references by 64. The uncertainty is divided by one eighth of the observed factor, at most by 8.
    3. The estimate is trusted if the uncertainty is at most half the difference from the reference. Then the estimate
       is within a factor of 3 of the error, with rare exceptions. An estimate of the size of rounding errors is trusted
       as an upper bound.

    The estimate is not trusted if the reference is more than twice as large as the solution, or if the integral of the
    kernel changes by more than a tenth when every second sample is left out.

    Features that no sample shows are not detected, such as a spike between two samples or an oscillation with fewer
    than two samples per period. Errors of the samples themselves are not estimated. In an equation of the first kind the
    reference amplifies noise in g more than the solution, and the estimate is not trusted. With a smooth fit of
    g in place of the samples, it estimates the error of the scheme.

    This takes 2.4 to 9 times as long as the solve for 20,000 or more samples, and a few milliseconds for up to 1,000.

    References
    ----------
    .. [1] P. H. M. Wolkenfelt, The construction of reducible quadrature rules for Volterra integral and
       integro-differential equations, *IMA Journal of Numerical Analysis* 2, 1982, pages 131 to 152.

    Examples
    --------
    With K(t) = t and g = 1 the solution is cosh t:

    >>> import numpy as np
    >>> import quenta
    >>> estimate = quenta.with_error(quenta.solve_vie2, 1, lambda t: t, 0.01, t_end=4)
    >>> solution = estimate.solution
    >>> print(f"estimate {estimate.error.max():.1e}, error {abs(solution.y - np.cosh(solution.t)).max():.1e}")
    estimate 1.3e-05, error 1.3e-05
    >>> print(estimate.trusted)
    True
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

    def no_estimate(reason: str) -> EstimatedSolution:
        return EstimatedSolution(solution, np.full_like(y, np.nan), math.nan, False, reason)

    if not np.isfinite(y).all():
        return no_estimate("the solution is not finite")
    try:
        reference, coarse = (_reference(problem, factor, len(y)) for factor in (1, 2))
    except (np.linalg.LinAlgError, SingularBlockError):
        return no_estimate("there is no reference: a system of equations for it is singular")
    if not (np.isfinite(reference).all() and np.isfinite(coarse).all()):
        return no_estimate("there is no reference: it is not finite")

    difference, doubt = abs(y - reference), np.abs(reference[::2] - coarse)
    if doubt.max() > _CERTAIN * difference.max():
        doubt = doubt / _further_fall(problem, coarse, float(doubt.max()), len(y))
    apart, uncertain, largest = float(difference.max()), float(doubt.max()), float(abs(y).max())
    error = np.maximum(difference + _at_all_samples(doubt, len(y)), 4 * _EPSILON * largest)
    order = _order(problem, coarse, apart)

    def judged(trusted: bool, reason: str) -> EstimatedSolution:
        return EstimatedSolution(solution, error, order, trusted, reason)

    differs = f"the solution differs by {apart:.1e} from a reference with an uncertainty of {uncertain:.1e}"
    if not _resolved(problem):
        return judged(False, "the samples of the kernel are too few, too rough or noisy: its integral is uncertain")
    if error.max() <= 16 * _EPSILON * len(y) * largest:
        return judged(True, f"{differs}; rounding errors explain both")
    if abs(reference).max() > _LARGER * largest:
        return judged(False, f"the reference is more than {_LARGER:g} times as large as the solution, and may be unstable")
    if not uncertain <= _CERTAIN * apart:
        return judged(False, f"{differs}, which is too large: the samples are too few, too rough or noisy")
    expected = problem.setting.measured[problem.form].order
    if expected is not None and order < expected - 0.5:
        differs += f"; expected order {expected:.1f}, got {order:.1f}: the samples are too few, too rough or noisy"
    return judged(True, differs)


def _reference(problem: SampledProblem, factor: int, count: int) -> Array:
    """The reference from every `factor`-th sample, restricted to the first `count` samples."""
    return solve_all_samples(problem.coarsened(factor) if factor > 1 else problem)[: (count - 1) // factor + 1]


def _further_fall(problem: SampledProblem, coarse: Array, doubt: float, count: int) -> float:
    """The factor by which the difference of the references overestimates the error: 1 unless the problem is smooth.

    A kink or a jump between two samples causes an error of order 2 or 1 in the reference, and one at least twice as
    large in the coarser reference, at any position. So the difference of both bounds the error. With smooth samples the
    error has order 6, and the difference is about 2^6 times as large. One eighth of the observed factor is used.
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
    """Extends values at every second sample to all samples, by the larger one of the two neighbours."""
    everywhere = np.repeat(doubt, 2, axis=0)[:count]
    between = everywhere[1:-1:2]
    np.maximum(between, doubt[1:][: len(between)], out=between)
    return everywhere


def _resolved(problem: SampledProblem) -> bool:
    """Whether the integral of the kernel, by the trapezoidal rule, hardly changes without every second sample.

    Otherwise, for example if the kernel decays within a spacing, all references may have the same error.
    """
    integral = _integral(problem.K, problem.dt)
    change = float(abs(integral[::2] - _integral(problem.K[::2], 2 * problem.dt)).max())
    # The size of the other terms: 1 in y - K * y = g, and at least 1 / (N dt) in y' - a y - K * y = g.
    others = {"vie2": 1.0, "vide": 1 / (len(problem.g) * problem.dt)}.get(problem.form, 0.0)
    return change <= _RESOLVED * (float(abs(integral).max()) + others)


def _integral(K: Array, dt: float) -> Array:
    integral = np.zeros_like(K)
    np.cumsum((K[1:] + K[:-1]) * (dt / 2), axis=0, out=integral[1:])
    return integral


def _order(problem: SampledProblem, coarse: Array, apart: float) -> float:
    """The observed order, from the error of the solution from every second sample."""
    if (len(problem.g) - 1) // 2 < problem.setting.spacings:
        return math.nan
    try:
        y = problem.coarsened(2).solve().y
    except SingularBlockError:
        return math.nan
    before = float(abs(y - coarse[: len(y)]).max())
    return math.log2(before / apart) if apart > 0 and 0 < before < math.inf else math.nan
