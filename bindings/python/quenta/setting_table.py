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
    """Measured properties of one setting in one form, from problems with known solutions (`measure_settings.py`).

    usable
        Whether the form can be solved with this setting. If not, all numbers below are None.
    order
        The order of convergence: the largest error over all samples is proportional to dt to this power.
    order_at_steps
        The order of the errors at the ends of the steps, which can be higher.
    error
        The largest error for a smooth problem with 1441 samples on 0 .. 10, relative to the solution.
    growth
        The asymptotic factor by which a disturbance grows per step. Above 1 the form is unstable.
    stiff_growth
        The same factor for a solution that decays within a small fraction of a step; only for `vie2` and `vide`.
    note
        One sentence that summarizes these numbers.
    kinked_errors
        The errors for problems whose g, K and a have 0, 1, ... 5 continuous derivatives, each with 41, 145 and 1441
        samples on 0 .. 10: relative to the solution, and the geometric mean over several problems. None if the form is
        not stable.
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
        """Whether disturbances do not grow from step to step."""
        return self.growth is not None and self.growth <= 1.01

    def expected_error(self, smoothness: int, samples: int) -> float:
        """The expected error for a problem with this number of continuous derivatives and this number of samples.

        Interpolates `kinked_errors` by powers of the number of samples. The result is meant for comparing settings.
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
    """A collocation scheme (m; nodes). A step has m * m spacings, and the nodes are at k / m of the step.

    row
        The index in the table of the library, from 0 to 55.
    m
        A number from 1 to 4.
    nodes
        The numbers k, ascending, from 0 .. m.
    measured
        A `Measurement` for each form: "vie1", "vie1_continuous", "vie2", "vide".
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
    """Returns all 56 collocation settings with their measured properties, in the order of the table of the library."""
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
