"""The piecewise polynomial that a sample-based solver returns."""

from __future__ import annotations

from dataclasses import dataclass
from typing import Any

import numpy as np

from .arguments import Array, one_of, real_array, shape_text
from .setting_table import Setting

_SIDES = ("mean", "left", "right")


@dataclass(frozen=True, eq=False)
class Solution:
    """The solution at the samples, and the polynomial of each step.

    The solution ends with the last whole step. It has no values at samples after that.

    Attributes
    ----------
    y : ndarray
        The solution at the times `t`, of shape (n,), or (n, D) for a system. At the ends of steps it is the mean of the
        two one-sided values.
    step : float
        The length of a step, `setting.spacings * dt`, in the unit of time.
    polynomials : ndarray
        The coefficients for each step n in ascending powers of s = (t - n * step) / step, 0 <= s <= 1, in the unit of
        y, of shape (steps, degree + 1), or (steps, degree + 1, D) for a system.
    dt : float
        The spacing of the samples, in the unit of time.
    setting : Setting
        The collocation scheme.

    See Also
    --------
    solve_vie2 : A solver that returns it.
    with_error : Estimate the error.

    Examples
    --------
    >>> import quenta
    >>> solution = quenta.solve_vie2(1, lambda t: t, dt=0.01, t_end=4)
    >>> solution
    <Solution: y of shape (401,) on 0 .. 4, 100 steps of setting (2, [0, 1, 2])>
    >>> print(solution.steps, solution.step, solution.end, solution.polynomials.shape)
    100 0.04 4.0 (100, 3)
    >>> print(solution(1.2345).round(5), solution([0.5, 1.5]).round(5))
    1.86382 [1.12763 2.35241]
    """

    y: Array
    step: float
    polynomials: Array
    dt: float
    setting: Setting

    @property
    def t(self) -> Array:
        """The times of the samples, 0, dt, 2 dt, ..., an array of shape (n,) in the unit of time."""
        return np.arange(len(self.y)) * self.dt

    @property
    def steps(self) -> int:
        """The number of steps."""
        return len(self.polynomials)

    @property
    def end(self) -> float:
        """The end of the last step, in the unit of time."""
        return self.steps * self.step

    def __call__(self, t: Any, side: str = "mean") -> Array:
        """Evaluate the solution at any times from 0 to `end`.

        Parameters
        ----------
        t : array_like
            A number or an array of any shape, in the unit of time.
        side : {"mean", "left", "right"}, optional
            The polynomials of adjacent steps need not join. At a boundary of two steps, `side` selects the polynomial
            before it ("left"), the one after it ("right"), or their mean ("mean"), as in `y`.

        Returns
        -------
        ndarray
            The values, of the shape of `t`, followed by (D,) for a system.

        Raises
        ------
        ValueError
            If a time is outside 0 .. `end`, or if an argument is invalid.

        See Also
        --------
        Solution.derivative : The derivative.

        Examples
        --------
        >>> import quenta
        >>> solution = quenta.solve_vie2(1, lambda t: t, dt=0.25, t_end=2, setting=(2, [1, 2]))
        >>> print(solution(1.0, "left").round(4), solution(1.0, "right").round(4), solution(1.0).round(4))
        1.5556 0.7901 1.1728
        """
        return self._evaluate(self.polynomials, t, side)

    def derivative(self, t: Any, side: str = "mean") -> Array:
        """Evaluate the derivative of the polynomials at any times from 0 to `end`.

        Parameters
        ----------
        t : array_like
            A number or an array of any shape, in the unit of time.
        side : {"mean", "left", "right"}, optional
            The polynomial at a boundary of two steps, as in `Solution.__call__`.

        Returns
        -------
        ndarray
            The derivatives, in the unit of y/time, of the shape of `t`, followed by (D,) for a system.

        Raises
        ------
        ValueError
            If a time is outside 0 .. `end`, or if an argument is invalid.

        See Also
        --------
        Solution.__call__ : The solution.

        Notes
        -----
        With smooth data the error is proportional to dt to the power of the degree of the polynomials.

        Examples
        --------
        The derivative of cosh is sinh:

        >>> import numpy as np
        >>> import quenta
        >>> solution = quenta.solve_vie2(1, lambda t: t, dt=0.01, t_end=4)
        >>> print(f"{solution.derivative(2.345):.2f}, exact {np.sinh(2.345):.2f}")
        5.17, exact 5.17
        """
        degree = self.polynomials.shape[1] - 1
        powers = np.arange(1.0, degree + 1) / self.step
        slopes = self.polynomials[:, 1:] * powers.reshape((1, degree) + (1,) * (self.polynomials.ndim - 2))
        return self._evaluate(slopes, t, side)

    def _evaluate(self, polynomials: Array, t: Any, side: str) -> Array:
        one_of("side", side, _SIDES)
        times = real_array("t", t, finite=False)
        position = times / self.step
        boundary = np.rint(position)
        # Times within rounding of a step boundary.
        at_boundary = abs(position - boundary) <= 1e-15 * np.maximum(position, 1.0)
        position = np.where(at_boundary, boundary, position)
        outside = ~((position >= 0) & (position <= self.steps))  # includes NaN
        if outside.any():
            first = float(times[outside].flat[0])
            raise ValueError(f"t: expected times from 0 to {float(self.end)!r}, got {first!r}")
        after = np.floor(position)
        before = np.where(at_boundary, after - 1, after)
        if side == "left":
            return self._step_values(polynomials, position, before)
        values = self._step_values(polynomials, position, after)
        if side == "mean" and at_boundary.any():
            values = (values + self._step_values(polynomials, position, before)) / 2
        return values

    def _step_values(self, polynomials: Array, position: Array, step: Array) -> Array:
        number = np.clip(step, 0, self.steps - 1).astype(np.intp)
        s = position - number
        s = s.reshape(s.shape + (1,) * (polynomials.ndim - 2))
        value = np.zeros(number.shape + polynomials.shape[2:])
        for power in range(polynomials.shape[1] - 1, -1, -1):
            value = value * s + polynomials[number, power]
        return value

    def __repr__(self) -> str:
        return (
            f"<Solution: y of shape {shape_text(self.y.shape)} on 0 .. {self.end:g}, {self.steps} steps "
            f"of setting {self.setting}>"
        )
