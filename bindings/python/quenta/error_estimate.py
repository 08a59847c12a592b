"""How large the error of a solution is, from solutions on coarser grids."""

from __future__ import annotations

import inspect
import math
from dataclasses import dataclass
from typing import Any, Callable

import numpy as np

from .arguments import Array, sketch
from .errors import SingularBlockError, SizeError
from .sampled_solvers import PREPARATIONS, SampledProblem
from .solution import Solution
from .solution_warnings import warn_of

# By how much the observed order may differ from that of the setting, below and above.
_LESS, _MORE = 0.5, 1.0
# Differences that are as small as this beside the solution are those of rounding.
_ROUNDING = 1e-13
# Each makes what is left at least by a third smaller.
_ITERATIONS = 40


@dataclass(frozen=True, eq=False)
class EstimatedSolution:
    """A solution, and what is known of its error.

    solution
        The `Solution`.
    error
        The estimated error of every sample, not negative; of the shape of `solution.y`.
    order
        The observed order of convergence: from 4 dt to 2 dt the error fell by 2 to this power.
    trusted
        Whether the estimate can be relied upon.
    reason
        One sentence that says why, or why not.
    """

    solution: Solution
    error: Array
    order: float
    trusted: bool
    reason: str


def with_error(solve: Callable[..., Solution], *arguments: Any, **keywords: Any) -> EstimatedSolution:
    """Solves, and estimates the error from what comes of every second and of every fourth sample.

        estimate = with_error(solve_vie2, g, K, dt)
        estimate.solution.y, estimate.error

    `solve` is `solve_vie1`, `solve_vie2` or `solve_vide`; what follows are its own arguments. There have to be samples
    for two steps of the coarsest grid, 8 m * m + 1. On smooth problems the estimate is right within a factor of 3. It
    is not `trusted` if the error does not fall as the order of the setting demands, as with rough samples, or if the
    form amplifies errors from step to step.

    Returns an `EstimatedSolution`. Raises the exceptions of the solver, and `SizeError` for too few samples; warns of
    what the solver warns of.
    """
    try:
        prepare = PREPARATIONS[solve]
    except (KeyError, TypeError):
        raise ValueError(f"solve: expected solve_vie1, solve_vie2 or solve_vide, came {sketch(solve)}") from None
    problem = prepare(**inspect.signature(solve).bind(*arguments, **keywords).arguments)
    least = 8 * problem.setting.spacings + 1
    if len(problem.g) < least:
        raise SizeError(
            f"g: expected at least {least} samples for an estimate with setting {problem.setting}, came {len(problem.g)}"
        )
    solution = problem.solve()
    warn_of(problem, solution, stacklevel=3)
    try:
        coarse, coarser = (problem.coarsened(factor).solve().y for factor in (2, 4))
    except SingularBlockError:
        unknown = np.full_like(solution.y, np.nan)
        return EstimatedSolution(solution, unknown, math.nan, False, "a coarser grid has no solution to compare with")
    with np.errstate(all="ignore"):
        error, order = _estimate(solution, coarse, coarser)
    trusted, reason = _judge(problem, solution, coarse, order)
    return EstimatedSolution(solution, error, order, trusted, reason)


def _estimate(solution: Solution, coarse: Array, coarser: Array) -> tuple[Array, float]:
    """The error of every sample, and the order over all samples.

    Within a step the error has a pattern of its own, which is the same in every step, on every grid: at place e of a
    step it is x[e] on the fine grid and fall[e] * x[e] on the coarse one, both smooth in time. Where a coarse sample
    stands at place e, the fine one of the same time stands at place 2 e. So their difference is

        fall[e] * x[e] - x[2 e].
    """
    y, spacings, steps = solution.y, solution.setting.spacings, solution.steps
    difference = (coarse - y[::2][: len(coarse)]).reshape(len(coarse), -1)
    coarser_difference = (coarser - coarse[::2][: len(coarser)]).reshape(len(coarser), -1)
    fall_of_all = abs(coarser_difference).max() / abs(difference).max()
    least_fall = max(float(fall_of_all) / 2, 1.5)

    times = np.arange(steps)
    falls = np.empty(spacings)
    known = np.empty((spacings, steps, difference.shape[1]))  # the difference, at the times of the fine grid
    for place in range(spacings):
        # The first and the last value are no means of two, unlike the others at the ends of steps.
        ends = slice(1, -1) if place == 0 else slice(None)
        there = np.arange(place, len(coarse), spacings)[ends]
        fall = abs(coarser_difference[place::spacings][ends]).max() / abs(difference[there]).max()
        falls[place] = np.clip(fall, least_fall, 8 * least_fall) if np.isfinite(fall) else least_fall
        for component, values in enumerate(difference[there].T):
            known[place, :, component] = np.interp(spacings * times + place, 2 * there, values)

    x = np.zeros_like(known)
    doubled = 2 * np.arange(spacings) % spacings
    for _ in range(_ITERATIONS):
        x = (known + x[doubled]) / falls[:, np.newaxis, np.newaxis]
    error = np.empty_like(difference, shape=(len(y), difference.shape[1]))
    error[:-1] = abs(x.swapaxes(0, 1).reshape(error[:-1].shape))
    error[0], error[-1] = abs(difference[0]) / (falls[0] - 1), abs(difference[-1]) / (falls[0] - 1)
    return np.maximum(error.reshape(y.shape), np.spacing(abs(y))), _log2(float(fall_of_all))


def _log2(ratio: float) -> float:
    return math.log2(ratio) if 0 < ratio < math.inf else math.nan


def _judge(problem: SampledProblem, solution: Solution, coarse: Array, order: float) -> tuple[bool, str]:
    y, measured = solution.y, problem.setting.measured[problem.form]
    if not (np.isfinite(y).all() and np.isfinite(coarse).all()):
        return False, "the solution is not finite everywhere"
    if not measured.stable:
        return False, f"this form amplifies errors from step to step: {measured.note}"
    if problem.form.startswith("vie1") and measured.growth is not None and measured.growth > 0.9:
        return False, f"under this setting the errors of single samples stay, and do not follow each other: {measured.note}"
    if abs(coarse - y[::2][: len(coarse)]).max() <= _ROUNDING * abs(y).max():
        return True, "solutions on two grids differ by rounding alone"
    expected = measured.order or 0.0
    if not order >= expected - _LESS:
        return False, (
            f"the error falls with order {order:.1f}, where the setting has {expected:.1f}: the samples are rough, or "
            f"too few, or the error is one of rounding"
        )
    if order > expected + _MORE:
        return False, f"the error falls with order {order:.1f}, where the setting has {expected:.1f}: too few samples"
    return True, f"the error falls with order {order:.1f}, and the setting has {expected:.1f}"
