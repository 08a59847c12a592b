"""What there is to warn of in a solution."""

from __future__ import annotations

import warnings
from typing import TYPE_CHECKING

from .arguments import all_finite
from .errors import GrowthWarning
from .solution import Solution

if TYPE_CHECKING:
    from .sampled_solvers import SampledProblem


def warn_of(problem: SampledProblem, solution: Solution, stacklevel: int) -> None:
    """Warns of numbers that may be worthless. `stacklevel` counts from this function, as that of warnings.warn does."""
    setting = problem.setting
    if problem.check_finite and not all_finite(solution.y):
        warnings.warn(
            f"the solution has left the range of numbers; errors may have grown from step to step under setting "
            f"{setting}",
            GrowthWarning,
            stacklevel=stacklevel,
        )
    elif problem.form == "vie1_continuous":
        measured = setting.measured.get(problem.form)
        if measured is not None and not measured.stable:
            warnings.warn(f"setting {setting}, continuous: {measured.note}", GrowthWarning, stacklevel=stacklevel)
