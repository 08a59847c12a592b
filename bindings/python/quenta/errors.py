"""The exceptions and warnings of this package.

Other invalid arguments raise `ValueError`, whose message names the argument, what was expected, and what it got.
"""

from __future__ import annotations

from typing import TYPE_CHECKING, Optional

if TYPE_CHECKING:
    from .arguments import Array
    from .ensembles import Ensemble


class QuentaError(Exception):
    """Base class of the exceptions of this package.

    Other invalid arguments raise `ValueError`.

    See Also
    --------
    UnsupportedSettingError : Unknown or unsuitable collocation scheme.
    SizeError : Too few or too many samples.
    SingularBlockError : Singular system of a step.

    Examples
    --------
    >>> import quenta
    >>> try:
    ...     quenta.solve_vie2([1, 1], [1, 1], dt=0.1)
    ... except quenta.QuentaError as failure:
    ...     print(failure)
    g: expected at least 5 samples, for one step of setting (2, [0, 1, 2]), got 2
    """


class UnsupportedSettingError(QuentaError, ValueError):
    """The collocation scheme is not in the table, or does not support this kind of equation.

    It is a `ValueError` too.

    See Also
    --------
    settings : All collocation schemes.
    recommend : Choose a scheme.

    Examples
    --------
    >>> import quenta
    >>> quenta.solve_vie2(1, 1, dt=0.1, t_end=1, setting=(2, [0, 3]))
    Traceback (most recent call last):
        ...
    quenta.errors.UnsupportedSettingError: setting: expected m from 1 to 4 and ascending nodes from 0 .. m,
        got (2, [0, 3])
    """


class SizeError(QuentaError, ValueError):
    """There are too few samples for one step, or too many for the library or for the memory.

    It is a `ValueError` too.

    See Also
    --------
    QuentaError : The base class.

    Examples
    --------
    >>> import quenta
    >>> quenta.solve_vie2([1, 1, 1], [1, 1, 1], dt=0.1)
    Traceback (most recent call last):
        ...
    quenta.errors.SizeError: g: expected at least 5 samples, for one step of setting (2, [0, 1, 2]), got 3
    """


class SingularBlockError(QuentaError, ArithmeticError):
    """The linear system of a step is singular, so the equation cannot be solved with this scheme and spacing.

    It is an `ArithmeticError` too.

    Attributes
    ----------
    message : str
        What is singular, and what may help.
    step : int or None
        The number of the singular step, from 0, if a block solver raised the exception.
    x : ndarray or None
        The solution at the points of the steps before it, if a block solver raised the exception.
    y : ndarray or None
        The carried values up to the start of this step, if the block solver carries any.

    See Also
    --------
    solve_blocks_vie1 : A solver that raises it.
    solve_vie1 : Another one.

    Examples
    --------
    >>> import numpy as np
    >>> import quenta
    >>> A = np.diag([1.0, 1.0, 0.0]).reshape(3, 1, 3, 1)
    >>> try:
    ...     quenta.solve_blocks_vie1(A, np.ones((3, 1)))
    ... except quenta.SingularBlockError as failure:
    ...     print(failure, failure.x.ravel())
    the system of step 2 is singular [1. 1.]
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

    It is a `KeyboardInterrupt` too.

    Attributes
    ----------
    ensemble : Ensemble
        The members solved so far. The others are among its failures.

    See Also
    --------
    ensemble : The function that raises it.

    Examples
    --------
    >>> import quenta
    >>> def solve(number):
    ...     if number == 2:
    ...         raise KeyboardInterrupt  # as by Ctrl-C
    ...     return number**2
    >>> try:
    ...     quenta.ensemble(solve, [1, 2, 3])
    ... except quenta.EnsembleInterrupt as interrupt:
    ...     print(interrupt.ensemble.values)
    [1, None, None]
    """

    def __init__(self, ensemble: Ensemble) -> None:
        super().__init__(ensemble)
        self.ensemble = ensemble

    def __str__(self) -> str:
        count = len(self.ensemble)
        solved = count - len(self.ensemble.failures)
        return f"{solved} of {count} members were solved before the interruption; the attribute ensemble contains them"


class QuentaWarning(UserWarning):
    """Base class of the warnings of this package. They are issued before the solution is returned.

    See Also
    --------
    UnreadSamplesWarning : Unread samples contradict the others.
    DroppedSamplesWarning : Samples past the last whole step.
    IllPosedWarning : A first-kind equation without a proper start.
    GrowthWarning : Errors that grow.

    Examples
    --------
    The warnings can be turned into exceptions:

    >>> import warnings
    >>> import quenta
    >>> with warnings.catch_warnings():
    ...     warnings.simplefilter("error", quenta.QuentaWarning)
    ...     quenta.solve_vie2([1] * 7, [1] * 7, dt=0.1)
    Traceback (most recent call last):
        ...
    quenta.errors.DroppedSamplesWarning: g: expected k * 4 + 1 samples, for whole steps of setting (2, [0, 1, 2]), got
    7:
        the last 2 are not used, and the solution ends at t = 0.4
    """


class GrowthWarning(QuentaWarning):
    """The scheme amplifies errors from step to step, or the solution overflows.

    See Also
    --------
    Measurement : The growth of errors with each scheme.
    solve_vie1 : A solver that issues it.

    Examples
    --------
    In the continuous form of the first kind, errors grow with most schemes:

    >>> import warnings
    >>> import quenta
    >>> with warnings.catch_warnings(record=True) as caught:
    ...     warnings.simplefilter("always")
    ...     solution = quenta.solve_vie1(lambda t: t, 1, 0.1, t_end=1, setting=(2, [1]), continuous=True, y0=1)
    >>> print(caught[0].category.__name__)
    GrowthWarning
    """


class UnreadSamplesWarning(QuentaWarning):
    """Samples that the scheme does not read contradict samples that it reads, or are not finite.

    See Also
    --------
    Setting : The fractions of the samples that a scheme reads.
    solve_vie2 : A solver that issues it.

    Examples
    --------
    An impulse between two nodes has no effect. The scheme (1; 0, 1) reads every sample:

    >>> import warnings
    >>> import numpy as np
    >>> import quenta
    >>> g = np.zeros(401)
    >>> g[37] = 1
    >>> with warnings.catch_warnings(record=True) as caught:
    ...     warnings.simplefilter("always")
    ...     solution = quenta.solve_vie2(g, -1, dt=0.01)
    >>> print(caught[0].category.__name__, solution.y.max())
    UnreadSamplesWarning 0.0
    >>> print(f"{quenta.solve_vie2(g, -1, dt=0.01, setting=(1, [0, 1])).y.max():.3f}")
    0.995
    """


class DroppedSamplesWarning(QuentaWarning):
    """The number of samples does not fit whole steps. Samples past the last whole step are not used.

    See Also
    --------
    Setting : The number of spacings in a step.
    solve_vie2 : A solver that issues it.

    Examples
    --------
    >>> import warnings
    >>> import quenta
    >>> with warnings.catch_warnings(record=True) as caught:
    ...     warnings.simplefilter("always")
    ...     solution = quenta.solve_vie2([1] * 7, [1] * 7, dt=0.1)
    >>> print(caught[0].category.__name__, solution.y.shape)
    DroppedSamplesWarning (5,)
    """


class IllPosedWarning(QuentaWarning):
    """An equation of the first kind has a zero or nearly zero K(0), or a g(0) that is not zero.

    See Also
    --------
    solve_vie1 : The solver that issues it.

    Examples
    --------
    With an offset in g, the solution starts with a spike:

    >>> import warnings
    >>> import quenta
    >>> with warnings.catch_warnings(record=True) as caught:
    ...     warnings.simplefilter("always")
    ...     solution = quenta.solve_vie1(lambda t: 0.5 + t, 1, 0.01, t_end=0.9)
    >>> print(caught[0].category.__name__)
    IllPosedWarning
    >>> print(f"{solution.y[0]:.1f}, then {solution.y[-1]:.6f}")
    31.6, then 1.000000
    """
