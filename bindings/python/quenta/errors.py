"""The exceptions and warnings of this package.

Other invalid arguments raise `ValueError`, whose message names the argument, what was expected, and what it got.
"""

from __future__ import annotations

from typing import TYPE_CHECKING, Optional

if TYPE_CHECKING:
    from .arguments import Array
    from .ensembles import Ensemble


class QuentaError(Exception):
    """Base class of the exceptions of this package."""


class UnsupportedSettingError(QuentaError, ValueError):
    """The collocation setting is not in the table, or does not support this kind of equation."""


class SizeError(QuentaError, ValueError):
    """There are too few samples for one step, or too many for the library or for the memory."""


class SingularBlockError(QuentaError, ArithmeticError):
    """The linear system of a step is singular, so the equation cannot be solved with this setting and spacing.

    If a block solver raises it, `step` is the number of that step, and `x` and `y` contain the results before it.
    """

    def __init__(
        self,
        message: str,
        step: Optional[int] = None,
        x: Optional[Array] = None,
        y: Optional[Array] = None,
    ) -> None:
        super().__init__(message, step, x, y)
        self.message, self.step, self.x, self.y = message, step, x, y

    def __str__(self) -> str:
        return self.message


class EnsembleInterrupt(KeyboardInterrupt):
    """The user interrupted an ensemble.

    `ensemble` contains the members solved so far. The others are among its failures.
    """

    def __init__(self, ensemble: Ensemble) -> None:
        super().__init__(ensemble)
        self.ensemble = ensemble

    def __str__(self) -> str:
        count = len(self.ensemble)
        solved = count - len(self.ensemble.failures)
        return f"{solved} of {count} members were solved before the interruption; the attribute ensemble contains them"


class QuentaWarning(UserWarning):
    """Base class of the warnings of this package. They are issued before the solution is returned."""


class GrowthWarning(QuentaWarning):
    """The setting amplifies errors from step to step, or the solution overflows."""


class UnreadSamplesWarning(QuentaWarning):
    """Samples that the setting does not read contradict samples that it reads, or are not finite."""


class DroppedSamplesWarning(QuentaWarning):
    """The number of samples does not fit whole steps. Samples past the last whole step are not used."""


class IllPosedWarning(QuentaWarning):
    """An equation of the first kind has a zero or nearly zero K(0), or a nonzero g(0)."""
