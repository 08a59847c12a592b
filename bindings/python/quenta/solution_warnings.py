"""The warnings that are issued before a solution is returned if it may be unreliable."""

from __future__ import annotations

import math
import warnings
from typing import TYPE_CHECKING, Optional

import numpy as np

from . import first_kind_start
from .arguments import all_finite
from .errors import DroppedSamplesWarning, GrowthWarning, IllPosedWarning, QuentaWarning, UnreadSamplesWarning
from .unread_samples import find_disagreement

if TYPE_CHECKING:
    from .arguments import Array
    from .sampled_solvers import SampledProblem
    from .solution import Solution


def warn_of(problem: SampledProblem, solution: Solution, stacklevel: int) -> None:
    """Issues all warnings about a solution. `stacklevel` counts from this function, as in `warnings.warn`."""

    def warn(text: Optional[str], category: type[QuentaWarning]) -> None:
        if text is not None:
            warnings.warn(text, category, stacklevel + 1)

    warn(_of_dropped_samples(problem, solution), DroppedSamplesWarning)
    with np.errstate(all="ignore"):
        for name, samples in (("g", problem.g), ("K", problem.K), ("a", problem.a)):
            if samples is not None:
                warn(_of_unread_samples(name, samples, problem), UnreadSamplesWarning)
        if problem.form.startswith("vie1"):
            warn(first_kind_start.fault_of_kernel(problem), IllPosedWarning)
            warn(first_kind_start.fault_of_forcing(problem, solution), IllPosedWarning)
    warn(_of_growth(problem, solution), GrowthWarning)


def _of_dropped_samples(problem: SampledProblem, solution: Solution) -> Optional[str]:
    N, spacings = len(problem.g), problem.setting.spacings
    used = len(solution.y)
    if used == N:
        return None
    last = "sample is" if N - used == 1 else f"{N - used} are"
    return (
        f"g: expected k * {spacings} + 1 samples, for whole steps of setting {problem.setting}, got {N}: "
        f"the last {last} not used, and the solution ends at t = {solution.end!r}"
    )


def _of_unread_samples(name: str, samples: Array, problem: SampledProblem) -> Optional[str]:
    setting = problem.setting
    found = find_disagreement(samples, name == "K", setting)
    if found is None:
        return None
    text = f"{name}: setting {setting} does not read {found.unread} of {found.samples} samples, and "
    where = f"{name}[{', '.join(map(str, found.place))}]"
    if math.isnan(found.fraction):
        return text + f"of these {where} is {samples[found.place]}; expected finite numbers"
    return text + (
        f"they contradict the samples that it reads: {where} is {samples[found.place]:.6g} and differs from the "
        f"polynomial through its neighbours by {_percent(found.fraction)} of the range; expected at most "
        f"{_percent(found.allowed)}. {_setting_that_reads_all(problem)}"
    )


def _percent(fraction: float) -> str:
    return f"{100 * fraction:.0f} percent" if fraction >= 0.1 else f"{100 * fraction:.2g} percent"


def _setting_that_reads_all(problem: SampledProblem) -> str:
    if not problem.form.startswith("vie1"):
        return "Setting (1, [0, 1]) reads every sample"
    if problem.setting.m == 1:
        return "No setting reads the first sample of g, or the last of K, in an equation of the first kind"
    return "Setting (1, [1]) reads every sample except the first of g and the last of K"


def _of_growth(problem: SampledProblem, solution: Solution) -> Optional[str]:
    setting = problem.setting
    if not all_finite(solution.y) and (problem.check_finite or _is_finite(problem)):
        return (
            f"the solution overflows; errors may have grown from step to step with setting {setting}"
        )
    measured = setting.measured.get(problem.form)
    if problem.form == "vie1_continuous" and measured is not None and not measured.stable:
        return f"setting {setting} in the continuous form: {measured.note}"
    return None


def _is_finite(problem: SampledProblem) -> bool:
    arrays = (problem.g, problem.K, problem.a, np.atleast_1d(problem.y0))
    return all(array is None or all_finite(array) for array in arrays)
