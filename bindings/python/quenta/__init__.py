"""Solvers for linear Volterra equations. They take NumPy arrays and return piecewise polynomials.

    solve_vie1, solve_vie2, solve_vide            sample-based solvers, for convolution kernels
    solve_blocks_vie1, _vie1_cont, _vie2, _vide   block solvers, for assembled blocks of a collocation scheme
    settings, recommend                           the collocation schemes, their measured errors, and a recommendation
    with_error                                    a solution with an estimate of its error
    ensemble                                      many solves, on one machine or several
    release_memory                                returns memory of finished solves to the system
"""

from .block_solvers import (
    CarriedSolution,
    solve_blocks_vide,
    solve_blocks_vie1,
    solve_blocks_vie1_cont,
    solve_blocks_vie2,
)
from .ensembles import Ensemble, Failure, ensemble
from .error_estimate import EstimatedSolution, with_error
from .errors import (
    DroppedSamplesWarning,
    EnsembleInterrupt,
    GrowthWarning,
    IllPosedWarning,
    QuentaError,
    QuentaWarning,
    SingularBlockError,
    SizeError,
    UnreadSamplesWarning,
    UnsupportedSettingError,
)
from .native_library import release_memory
from .recommendation import Recommendation, recommend
from .sampled_solvers import solve_vide, solve_vie1, solve_vie2
from .setting_table import Measurement, Setting, settings
from .solution import Solution

__version__ = "0.1.0"

__all__ = [
    "CarriedSolution",
    "DroppedSamplesWarning",
    "Ensemble",
    "EnsembleInterrupt",
    "EstimatedSolution",
    "Failure",
    "GrowthWarning",
    "IllPosedWarning",
    "Measurement",
    "QuentaError",
    "QuentaWarning",
    "Recommendation",
    "Setting",
    "SingularBlockError",
    "SizeError",
    "Solution",
    "UnreadSamplesWarning",
    "UnsupportedSettingError",
    "ensemble",
    "recommend",
    "release_memory",
    "settings",
    "solve_blocks_vide",
    "solve_blocks_vie1",
    "solve_blocks_vie1_cont",
    "solve_blocks_vie2",
    "solve_vide",
    "solve_vie1",
    "solve_vie2",
    "with_error",
]
