"""The exceptions and the warnings of this package.

An argument that is wrong in itself raises `ValueError`, which names it and says what was expected and what was given.
"""

from __future__ import annotations

from typing import TYPE_CHECKING, Optional

if TYPE_CHECKING:
    from .arguments import Array
    from .ensembles import Ensemble


class QuentaError(Exception):
    """What the exceptions of this package's own have in common."""


class UnsupportedSettingError(QuentaError, ValueError):
    """The collocation setting is no row of the table, or does not serve this kind of equation."""


class SizeError(QuentaError, ValueError):
    """Too few samples for one step, or more of them than the library counts or the machine holds."""


class SingularBlockError(QuentaError, ArithmeticError):
    """The dense system of a step is singular, so the equation has no solution under this setting and spacing.

    From a solver of blocks, `step` is the number of that step, and `x` and `y` hold what was solved before it.
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
    """The user has interrupted an ensemble.

    `ensemble` holds the members that were solved until then; the others are among its failures.
    """

    def __init__(self, ensemble: Ensemble) -> None:
        super().__init__(ensemble)
        self.ensemble = ensemble

    def __str__(self) -> str:
        count = len(self.ensemble)
        solved = count - len(self.ensemble.failures)
        return f"{solved} of {count} members were solved before the interruption, and are in the attribute ensemble"


class QuentaWarning(UserWarning):
    """What the warnings of this package have in common. They come before the solution is returned."""


class GrowthWarning(QuentaWarning):
    """The setting amplifies errors from step to step, or the solution has left the range of numbers."""


class UnreadSamplesWarning(QuentaWarning):
    """Samples that the setting does not read contradict those that it reads, or are not finite."""


class DroppedSamplesWarning(QuentaWarning):
    """The samples do not end with a whole step: those past the last one are not used."""


class IllPosedWarning(QuentaWarning):
    """An equation of the first kind with K(0) zero or nearly, or with g(0) not zero."""
