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

    y
        The solution at the times `t`, an array of shape (n,) or, for a system, (n, D). At the ends of steps it is the
        mean of the two one-sided values.
    step
        The length of a step, `setting.spacings * dt`.
    polynomials
        The coefficients for each step n in ascending powers of s = (t - n * step) / step, 0 <= s <= 1: an array of
        shape (steps, degree + 1) or, for a system, (steps, degree + 1, D).
    dt
        The spacing of the samples.
    setting
        The collocation setting, a `Setting`.
    """

    y: Array
    step: float
    polynomials: Array
    dt: float
    setting: Setting

    @property
    def t(self) -> Array:
        """The times of the samples: 0, dt, 2 dt, ..."""
        return np.arange(len(self.y)) * self.dt

    @property
    def steps(self) -> int:
        """The number of steps."""
        return len(self.polynomials)

    @property
    def end(self) -> float:
        """The end of the last step."""
        return self.steps * self.step

    def __call__(self, t: Any, side: str = "mean") -> Array:
        """Evaluates the solution at any times from 0 to `end`.

        t
            A number or an array of any shape.
        side
            The polynomials of adjacent steps need not join. At a boundary of two steps, `side` selects the polynomial
            before it ("left"), the one after it ("right"), or their mean ("mean"), as in `y`.

        Returns an array of the shape of t, followed by (D,) for a system. Raises `ValueError` for other times.
        """
        return self._evaluate(self.polynomials, t, side)

    def derivative(self, t: Any, side: str = "mean") -> Array:
        """Evaluates the derivative of the polynomials. Arguments, result and exceptions are as for the solution."""
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
