"""Compares the samples that a setting does not read with those that it reads.

An unread sample between read ones is compared with the polynomial through the four nearest read samples, two on each
side where possible. An unread sample before the first or after the last read one is compared with the polynomial
through the four nearest samples, read or unread; so are all if fewer than four samples are read. Four samples or fewer
are not compared. Let Lambda be the sum of the absolute weights of that polynomial at the sample: 1.25 in the middle of
four equally spaced samples, and 15 one spacing outside of them. The sample contradicts the others if

    |sample - polynomial| > TOLERANCE * range * Lambda + ROUNDING * (largest |sample|),

where the range is that of its component. Samples past the last whole step are not compared.
"""

from __future__ import annotations

import functools
import math
from typing import TYPE_CHECKING, NamedTuple, Optional, Union

import numpy as np

from .arguments import Array
from .setting_table import Setting

if TYPE_CHECKING:
    from numpy.typing import NDArray

    Indices = NDArray[np.intp]

#: The fraction of the range by which an unread sample may differ.
TOLERANCE = 0.01
ROUNDING = 1e-12

_WIDTH = 4  # samples that an unread one is compared with
_FOURTH_DIFFERENCE = np.array([1.0, -4.0, 6.0, -4.0, 1.0])
# Stencils are the same in all steps except the first and last _ENDS steps. _BOTH_ENDS steps contain both ends.
_ENDS, _BOTH_ENDS = 4, 9
_FEW_SAMPLES = 1000  # up to this number, all stencils are stored
_AT_ONCE = 2**14  # samples processed at once, which limits temporary arrays


class Disagreement(NamedTuple):
    """The unread sample that contradicts most, or the first that is not finite."""

    #: The number of unread samples, and of all samples.
    unread: int
    samples: int
    #: The index of the sample, and the difference as a fraction of the range; NaN if the sample is not finite.
    place: tuple[int, ...]
    fraction: float
    #: The accepted fraction, TOLERANCE * Lambda.
    allowed: float


def read_samples(setting: Setting, of_kernel: bool, steps: int) -> list[int]:
    """The indices of the samples of K, or of g and a, that are read in `steps` steps."""
    nodes, m, spacings = setting.nodes, setting.m, setting.spacings
    if not of_kernel:
        return sorted({n * spacings + k * m for n in range(steps) for k in nodes})
    lags = {(k - other) * m for k in nodes for other in nodes}
    current = {k * (m - other) for k in nodes for other in nodes}
    return sorted(current | {d * spacings + lag for d in range(1, steps) for lag in lags})


def find_disagreement(samples: Array, of_kernel: bool, setting: Setting) -> Optional[Disagreement]:
    """The unread sample that contradicts most, or None. The samples are along the first axis.

    The caller disables floating-point warnings.
    """
    if setting.m == 1 and setting.count == 2:  # every sample is read
        return None
    steps = (len(samples) - 1) // setting.spacings
    count = steps * setting.spacings + 1
    values = samples[:count]
    if count <= _WIDTH:
        return _find_not_finite(values, read_samples(setting, of_kernel, steps))
    usual = _stencils(setting, of_kernel, min(steps, _BOTH_ENDS))
    if _are_smooth(values, usual.smooth):
        return None
    values = values.reshape(count, -1)
    low, high = values.min(axis=0), values.max(axis=0)
    worst = _Worst(high - low, ROUNDING * max(high.max(), -low.min()))
    if count > _FEW_SAMPLES:
        usual.compare_long(values, worst)
    else:
        _stencils(setting, of_kernel, steps).compare(values, worst)
    if not math.isfinite(float(worst.range.sum())):
        return _find_not_finite(samples[:count], read_samples(setting, of_kernel, steps))
    if worst.place is None:
        return None
    row, component = worst.place
    place = (row, *map(int, np.unravel_index(component, samples.shape[1:])))
    return Disagreement(usual.count_unread(steps), count, place, worst.fraction, worst.allowed)


def _find_not_finite(samples: Array, read: list[int]) -> Optional[Disagreement]:
    lost = ~np.isfinite(samples)
    lost[read] = False
    if not lost.any():
        return None
    place = tuple(map(int, np.argwhere(lost)[0]))
    return Disagreement(len(samples) - len(read), len(samples), place, math.nan, math.nan)


def _surely_within(values: Array, bound: float) -> bool:
    """A cheap sufficient condition, from the sum of squares: if True, no absolute value exceeds the bound."""
    return 1e-300 < bound * bound < math.inf and bool(np.vdot(values, values) <= bound * bound)


def _are_smooth(samples: Array, bound: float) -> bool:
    """A fast sufficient condition: if True, all fourth differences are so small that no sample contradicts the others.

    `bound` is a fraction of the range. The difference of the last and the first sample is used as the range.
    """
    scale = abs(samples[-1] - samples[0]) * bound
    at_once = max(_AT_ONCE // samples[0].size, 1)
    for begin in range(0, len(samples) - 4, at_once):
        part = samples[begin : begin + at_once + 4]
        if samples.ndim == 1 and 1e-140 < scale < 1e140:
            # The sum of squares is faster, and neither overflows nor underflows here.
            differences = np.correlate(part, _FOURTH_DIFFERENCE)
            within = differences.dot(differences) <= scale * scale
        else:
            differences = part
            for _ in range(4):
                differences = differences[1:] - differences[:-1]
            within = (abs(differences).max(axis=0) <= scale).all()
        if not within:
            return False
    return True


class _Worst:
    """The contradicting sample with the largest difference relative to the range."""

    def __init__(self, ranges: Array, rounding: float) -> None:
        self.range = ranges
        self.scale = np.where(ranges > 0, ranges, np.inf)  # constant components contradict nothing
        self.bound = TOLERANCE * float(self.scale.min())
        self.rounding = rounding
        self.fraction = self.allowed = 0.0
        self.place: Optional[tuple[int, int]] = None

    def compare(self, residuals: Array, lebesgue: Array, rows: Union[Indices, range]) -> None:
        """Updates the worst sample with the residuals, divided by Lambda, of the samples in these rows."""
        if _surely_within(residuals, self.bound):
            return
        largest = np.maximum(residuals.max(axis=0), -residuals.min(axis=0)) / self.scale
        if not (largest > max(TOLERANCE, self.fraction / float(lebesgue.max()))).any():
            return
        lebesgue = lebesgue.reshape(-1, 1)
        differences = abs(residuals) * lebesgue
        contradicts = differences > TOLERANCE * lebesgue * self.scale + self.rounding
        fractions = np.where(contradicts, differences / self.scale, 0.0)
        at, component = np.unravel_index(np.argmax(fractions), fractions.shape)
        if fractions[at, component] > self.fraction:
            self.fraction = float(fractions[at, component])
            self.allowed = TOLERANCE * float(np.broadcast_to(lebesgue, fractions.shape)[at, component])
            self.place = int(rows[int(at)]), int(component)


class _Group(NamedTuple):
    """The unread samples between the same two read ones in every period, and their stencils."""

    unread: Indices
    read: Indices
    weights: Array  # divided by Lambda, like the residuals
    lebesgue: Array


class _Stencils:
    """The stencils of a setting for a number of steps. They compute residuals divided by Lambda.

    The sums use einsum because BLAS can hang if a memory limit prevents it from allocating buffers.
    """

    def __init__(self, setting: Setting, of_kernel: bool, steps: int) -> None:
        self.steps, self.spacings = steps, setting.spacings
        read = np.array(read_samples(setting, of_kernel, steps))
        self.unread = np.setdiff1d(np.arange(steps * self.spacings + 1), read)
        nearest, weights = _nearest(self.unread, read, steps * self.spacings + 1)
        self.lebesgue = abs(weights).sum(axis=1)
        self.places = np.column_stack([nearest, self.unread])
        self.weights = np.column_stack([weights, -np.ones(len(weights))]) / self.lebesgue[:, np.newaxis]
        self.smooth = TOLERANCE / self._largest_sum()
        if steps == _BOTH_ENDS:
            self._find_groups(read, nearest, weights)

    def _largest_sum(self) -> float:
        """The largest residual of samples whose fourth differences are at most 1, by summation by parts."""
        functionals = np.zeros((len(self.unread), self.steps * self.spacings + 1))
        np.put_along_axis(functionals, self.places, self.weights, axis=1)
        for _ in range(4):
            functionals = np.cumsum(functionals, axis=1)
        return float(abs(functionals).sum(axis=1).max())

    def _find_groups(self, read: Indices, nearest: Indices, weights: Array) -> None:
        begin = _ENDS * self.spacings
        in_step = {int(place) % self.spacings for place in read if begin <= place < begin + self.spacings}
        self.period = next(
            period
            for period in range(1, self.spacings + 1)
            if self.spacings % period == 0
            and in_step == {(place + period) % self.spacings for place in in_step}
        )
        last = (_BOTH_ENDS - _ENDS) * self.spacings
        self.early = slice(0, int(np.searchsorted(self.unread, begin)))
        self.late = slice(int(np.searchsorted(self.unread, last)), None)
        places = self.unread - begin
        self.groups: list[_Group] = []
        in_period = (places >= 0) & (places < self.period)
        for first in np.unique(nearest[in_period, 0]):
            of_group = np.flatnonzero(in_period & (nearest[:, 0] == first))
            lebesgue = self.lebesgue[of_group]
            self.groups.append(
                _Group(
                    places[of_group], nearest[of_group[0]] - begin, weights[of_group] / lebesgue[:, np.newaxis], lebesgue
                )
            )

    def count_unread(self, steps: int) -> int:
        """The number of unread samples in `steps` steps."""
        in_step = np.count_nonzero((self.unread > self.spacings) & (self.unread <= 2 * self.spacings))
        return len(self.unread) + (steps - self.steps) * in_step

    def compare(self, values: Array, worst: _Worst, rows: slice = slice(None), added: int = 0) -> None:
        """Compares the unread samples of some rows. In `values` their indices are larger by `added`."""
        residuals = np.einsum("ijk,ij->ik", values[self.places[rows] + added], self.weights[rows])
        worst.compare(residuals, self.lebesgue[rows], self.unread[rows] + added)

    def compare_long(self, values: Array, worst: _Worst) -> None:
        """Compares samples of more steps than there are stencils for: both ends, then the middle by groups."""
        begin = _ENDS * self.spacings
        self.compare(values, worst, self.early)
        self.compare(values, worst, self.late, len(values) - 1 - self.steps * self.spacings)
        periods = (len(values) - 1 - 2 * begin) // self.period
        at_once = max(_AT_ONCE // (self.period * values.shape[1]), 1)
        for first in range(0, periods, at_once):
            self._compare_periods(values, begin + first * self.period, min(at_once, periods - first), worst)

    def _compare_periods(self, values: Array, begin: int, periods: int, worst: _Worst) -> None:
        def samples(place: int) -> Array:
            start = begin + place
            return values[start : start + (periods - 1) * self.period + 1 : self.period]

        for group in self.groups:
            read = np.stack([samples(place) for place in group.read])
            predicted = np.einsum("ij,j...->i...", group.weights, read)
            for row in range(len(predicted)):
                predicted[row] -= samples(group.unread[row]) / group.lebesgue[row]
                first = begin + int(group.unread[row])
                rows = range(first, first + periods * self.period, self.period)
                worst.compare(predicted[row], group.lebesgue[row : row + 1], rows)


def _nearest(unread: Indices, read: Indices, count: int) -> tuple[Indices, Array]:
    """For every unread sample, the indices of those that it is compared with, and the weights of the polynomial."""
    nearest = np.empty((len(unread), _WIDTH), np.intp)
    for row, place in enumerate(unread):
        between = len(read) >= _WIDTH and read[0] < place < read[-1]
        others = read if between else np.delete(np.arange(count), place)
        first = min(max(int(np.searchsorted(others, place)) - _WIDTH // 2, 0), len(others) - _WIDTH)
        nearest[row] = others[first : first + _WIDTH]
    weights = np.ones(nearest.shape)
    for j in range(_WIDTH):
        for other in range(_WIDTH):
            if other != j:
                weights[:, j] *= (unread - nearest[:, other]) / (nearest[:, j] - nearest[:, other])
    return nearest, weights


_stencils = functools.lru_cache(maxsize=32)(_Stencils)
