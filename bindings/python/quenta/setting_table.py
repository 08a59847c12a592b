"""The table of the 56 collocation settings, with measured properties of each."""

from __future__ import annotations

import ctypes
import json
import math
import operator
import pathlib
from dataclasses import dataclass, field
from typing import Any, Optional, Protocol, Sequence, Union

from . import native_library
from .arguments import sketch
from .errors import UnsupportedSettingError

#: The forms of the sample-based solvers, which are the keys of `Setting.measured`.
FORMS = ("vie1", "vie1_continuous", "vie2", "vide")

#: The numbers of samples for which errors of problems of limited smoothness are measured.
KINKED_SAMPLES = (41, 145, 1441)
#: The largest measured smoothness, in continuous derivatives. The smallest is 0.
SMOOTHEST = 5


class HasSetting(Protocol):
    """An object with a setting, for example a `Recommendation` or a `Solution`."""

    @property
    def setting(self) -> Setting: ...


#: A `Setting`, a pair (m, nodes), a text such as "2:0,1,2", or an object with a setting.
SettingLike = Union["Setting", HasSetting, str, Sequence[Any]]


_MEASUREMENTS = pathlib.Path(__file__).with_name("measured_settings.json")


@dataclass(frozen=True)
class Measurement:
    """Measured properties of one collocation scheme in one form, from problems with known solutions.

    Attributes
    ----------
    usable : bool
        Whether the form can be solved with this scheme. If not, all numbers below are None.
    order : float or None
        The order of convergence: the largest error over all samples is proportional to dt to this power.
    order_at_steps : float or None
        The order of the errors at the ends of the steps, which can be higher.
    error : float or None
        The largest error for a smooth problem with 1441 samples on 0 .. 10, relative to the solution.
    growth : float or None
        The asymptotic factor by which a disturbance grows per step. Above 1 the form is unstable.
    stiff_growth : float or None
        The same factor for a solution that decays within a small fraction of a step; only for "vie2" and "vide".
    note : str
        One sentence that summarizes these numbers.
    kinked_errors : tuple or None
        The errors for problems whose g, K and a have 0, 1, ... 5 continuous derivatives, each with 41, 145 and 1441
        samples on 0 .. 10: relative to the solution, and the geometric mean over several problems. None if the form is
        not stable.

    See Also
    --------
    Setting : The scheme.
    recommend : Choose a scheme by these numbers.

    Examples
    --------
    >>> import quenta
    >>> trapezoidal = quenta.settings()[2]
    >>> measured = trapezoidal.measured["vie2"]
    >>> print(trapezoidal, f"order {measured.order:.1f}", measured.stable)
    (1, [0, 1]) order 2.0 True
    """

    usable: bool
    order: Optional[float]
    order_at_steps: Optional[float]
    error: Optional[float]
    growth: Optional[float]
    stiff_growth: Optional[float]
    note: str
    kinked_errors: Optional[tuple[tuple[float, ...], ...]] = None

    @property
    def stable(self) -> bool:
        """Whether disturbances do not grow from step to step.

        Examples
        --------
        >>> import quenta
        >>> print(quenta.settings()[2].measured["vie2"].stable)
        True
        """
        return self.growth is not None and self.growth <= 1.01

    def expected_error(self, smoothness: int, samples: int) -> float:
        """Return the expected error for problems of some smoothness. It is meant for comparing schemes.

        Parameters
        ----------
        smoothness : int
            The number of continuous derivatives of g, K and a.
        samples : int
            The number of samples.

        Returns
        -------
        float
            The largest error relative to the solution, infinity if the form is not stable.

        See Also
        --------
        recommend : Choose a scheme by this error.

        Notes
        -----
        Interpolates `kinked_errors` by powers of the number of samples.

        Examples
        --------
        >>> import quenta
        >>> trapezoidal, simpson = quenta.settings()[2], quenta.settings()[9]
        >>> for scheme in trapezoidal, simpson:
        ...     print(scheme, f"{scheme.measured['vie2'].expected_error(smoothness=5, samples=1441):.0e}")
        (1, [0, 1]) 8e-06
        (2, [0, 1, 2]) 3e-08
        """
        if self.kinked_errors is None:
            return math.inf
        errors = self.kinked_errors[min(smoothness, SMOOTHEST)]
        first = 0 if samples < KINKED_SAMPLES[1] else 1
        fewer, more = map(math.log, KINKED_SAMPLES[first : first + 2])
        from_fewer, from_more = map(math.log, errors[first : first + 2])
        return math.exp(from_fewer + (from_more - from_fewer) * (math.log(samples) - fewer) / (more - fewer))


@dataclass(frozen=True)
class Setting:
    """A collocation scheme (m; nodes).

    A step has m * m spacings of the samples, and the nodes are at the fractions k / m of the step.

    Attributes
    ----------
    row : int
        The index in the table of the library, from 0 to 55.
    m : int
        A number from 1 to 4.
    nodes : tuple of int
        The numbers k, ascending, from 0 .. m.
    measured : dict
        A `Measurement` for each form: "vie1", "vie1_continuous", "vie2", "vide".

    See Also
    --------
    settings : All schemes.
    recommend : Choose a scheme.

    Examples
    --------
    >>> import quenta
    >>> scheme = quenta.settings()[9]
    >>> print(scheme, scheme.parameters, scheme.spacings)
    (2, [0, 1, 2]) (0.0, 0.5, 1.0) 4
    >>> print(scheme.fraction_of_g_read, scheme.fraction_of_K_read)
    0.5 0.5
    """

    row: int
    m: int
    nodes: tuple[int, ...]
    measured: dict[str, Measurement] = field(repr=False)

    @property
    def count(self) -> int:
        """The number of nodes."""
        return len(self.nodes)

    @property
    def spacings(self) -> int:
        """The number of sample spacings in a step."""
        return self.m * self.m

    @property
    def fraction_of_g_read(self) -> float:
        """The fraction of the samples of g, and of a, that are read."""
        return len({k * self.m % self.spacings for k in self.nodes}) / self.spacings

    @property
    def fraction_of_K_read(self) -> float:
        """The fraction of the samples of K that are read."""
        lags = {(k - other) * self.m % self.spacings for k in self.nodes for other in self.nodes}
        return len(lags) / self.spacings

    @property
    def parameters(self) -> tuple[float, ...]:
        """The collocation parameters: the positions of the nodes in the step, from 0 to 1."""
        return tuple(node / self.m for node in self.nodes)

    def __hash__(self) -> int:
        return self.row

    def __str__(self) -> str:
        return f"({self.m}, {list(self.nodes)})"


def _read_settings() -> tuple[Setting, ...]:
    measured: dict[str, dict[str, Any]] = {}
    if _MEASUREMENTS.is_file():
        measured = json.loads(_MEASUREMENTS.read_text(encoding="utf-8"))["settings"]
    rows = []
    for row, (m, *nodes) in enumerate(native_library.settings_table()):
        of_row = measured.get(f"{m}:{','.join(map(str, nodes))}", {})
        rows.append(Setting(row, m, tuple(nodes), {form: _measurement(values) for form, values in of_row.items()}))
    return tuple(rows)


def _measurement(values: dict[str, Any]) -> Measurement:
    by_smoothness = values.pop("kinked_errors", None)
    return Measurement(**values, kinked_errors=by_smoothness and tuple(map(tuple, by_smoothness)))


_SETTINGS = _read_settings()
_BY_IDENTITY = {id(setting): setting for setting in _SETTINGS}
_BY_NAME = {(setting.m, setting.nodes): setting for setting in _SETTINGS}
# Arrays for the library, which must stay alive.
NODE_ARRAYS = tuple((ctypes.c_int * setting.count)(*setting.nodes) for setting in _SETTINGS)
NODE_ADDRESSES = tuple(ctypes.addressof(nodes) for nodes in NODE_ARRAYS)


def settings() -> list[Setting]:
    """Return all 56 collocation schemes with their measured properties.

    Returns
    -------
    list of Setting
        The schemes, in the order of the table of the library.

    See Also
    --------
    recommend : Choose a scheme.
    Setting : A scheme.

    Notes
    -----
    For m = 1, 2, 3, 4 the table has every non-empty subset of the nodes 0 .. m, shorter subsets first.

    Examples
    --------
    >>> import quenta
    >>> print(len(quenta.settings()), *quenta.settings()[:4])
    56 (1, [0]) (1, [1]) (1, [0, 1]) (2, [0])
    """
    return list(_SETTINGS)


def find_setting(setting: SettingLike) -> Setting:
    """The row for a `Setting`, an object with one, a pair such as `(2, [0, 1, 2])`, or a text such as `"2:0,1,2"`."""
    itself = _BY_IDENTITY.get(id(setting))
    if itself is not None:
        return itself
    given: Any = setting
    if isinstance(getattr(setting, "setting", None), Setting):
        given = given.setting
    try:
        if isinstance(given, Setting):
            m, nodes = given.m, given.nodes
        elif isinstance(given, str):
            m, nodes = _read_text(given)
        else:
            m, nodes = given
        found = _BY_NAME.get((operator.index(m), tuple(map(operator.index, nodes))))
    except (TypeError, ValueError):
        raise ValueError(
            f"setting: expected a pair (m, nodes) such as (2, [0, 1, 2]), a text such as '2:0,1,2', one of "
            f"quenta.settings() or a quenta.Recommendation, got {sketch(setting)}"
        ) from None
    if found is None:
        raise UnsupportedSettingError(
            f"setting: expected m from 1 to 4 and ascending nodes from 0 .. m, got ({m}, {list(nodes)})"
        )
    return found


def _read_text(text: str) -> tuple[int, tuple[int, ...]]:
    """m and the nodes from a text in the notation of the program `quenta`."""
    m, nodes = text.split(":")
    return int(m), tuple(int(node) for node in nodes.split(","))
