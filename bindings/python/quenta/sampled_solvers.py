"""The solvers from samples: their arguments, their checks, and the call.

    vie1   integral from 0 to t of K(t - s) y(s) ds = g(t)
    vie2   y(t) = g(t) + integral from 0 to t of K(t - s) y(s) ds
    vide   y'(t) = a(t) y(t) + g(t) + integral from 0 to t of K(t - s) y(s) ds,   y(0) = y0
"""

from __future__ import annotations

import math
import warnings
from ctypes import byref, c_int
from typing import Any, Callable, NamedTuple, Optional, Union

import numpy as np

from . import native_library
from .arguments import (
    Array,
    address,
    all_finite,
    expect_shape,
    flag,
    initial_value,
    positive_number,
    real_array,
    shape_text,
)
from .errors import GrowthWarning, SingularBlockError, SizeError, UnsupportedSettingError
from .machine_memory import SMALL, require_memory
from .native_library import LARGEST_INDEX, library
from .setting_table import NODE_ADDRESSES, Setting, SettingLike, find_setting
from .solution import Solution

#: Samples of a function of time: an array, a number for a constant, or a function that is sampled here. A function
#: receives the array of all times and returns the array of its values there, the times along the first axis.
Samples = Any

DEFAULT_SETTING: SettingLike = (2, (0, 1, 2))
DEFAULT_FIRST_KIND_SETTING: SettingLike = (3, (1, 2, 3))


def solve_vie1(
    g: Samples,
    K: Samples,
    dt: float,
    *,
    setting: SettingLike = DEFAULT_FIRST_KIND_SETTING,
    continuous: bool = False,
    y0: Any = None,
    t_end: Optional[float] = None,
    check_finite: bool = True,
) -> Solution:
    """Solves integral from 0 to t of K(t - s) y(s) ds = g(t), the equation of the first kind.

    g, K
        Samples at 0, dt, 2 dt, ...: arrays of shape (N,) and (N,) for a scalar equation, (N, D) and (N, D, D) for a
        system; numbers for constants, (D, D) for a constant matrix; or functions of an array of times, which are
        sampled here.
    setting
        A pair (m, nodes) or one of `settings()`. Settings with the node 0 do not serve the first kind.
    continuous
        Join the polynomials of adjacent steps, from y0 on: a number, or an array of shape (D,). With many settings
        errors then grow from step to step; this is warned of.
    t_end
        Where no argument is an array: the time that the last step reaches.
    check_finite
        Refuse NaN and infinity. Without it they go through to the solution.

    The first kind is ill-posed: noise in g is differentiated.
    """
    return prepare_vie1(g, K, dt, setting, continuous, y0, t_end, check_finite).solve()


def solve_vie2(
    g: Samples,
    K: Samples,
    dt: float,
    *,
    setting: SettingLike = DEFAULT_SETTING,
    t_end: Optional[float] = None,
    check_finite: bool = True,
) -> Solution:
    """Solves y(t) = g(t) + integral from 0 to t of K(t - s) y(s) ds, the equation of the second kind.

    g, K
        Samples at 0, dt, 2 dt, ...: arrays of shape (N,) and (N,) for a scalar equation, (N, D) and (N, D, D) for a
        system; numbers for constants, (D, D) for a constant matrix; or functions of an array of times, which are
        sampled here.
    setting
        A pair (m, nodes) or one of `settings()`.
    t_end
        Where no argument is an array: the time that the last step reaches.
    check_finite
        Refuse NaN and infinity. Without it they go through to the solution.
    """
    return prepare_vie2(g, K, dt, setting, t_end, check_finite).solve()


def solve_vide(
    g: Samples,
    K: Samples,
    a: Samples,
    y0: Any,
    dt: float,
    *,
    setting: SettingLike = DEFAULT_SETTING,
    t_end: Optional[float] = None,
    check_finite: bool = True,
) -> Solution:
    """Solves y'(t) = a(t) y(t) + g(t) + integral from 0 to t of K(t - s) y(s) ds, with y(0) = y0.

    g, K, a
        Samples at 0, dt, 2 dt, ...: arrays of shape (N,) for a scalar equation; (N, D), (N, D, D) and (N, D, D) for a
        system; numbers for constants, (D, D) for a constant matrix; or functions of an array of times, which are
        sampled here.
    y0
        A number, or an array of shape (D,).
    setting
        A pair (m, nodes) or one of `settings()`.
    t_end
        Where no argument is an array: the time that the last step reaches.
    check_finite
        Refuse NaN and infinity. Without it they go through to the solution.
    """
    return prepare_vide(g, K, a, y0, dt, setting, t_end, check_finite).solve()


# ---- From arguments to a problem ------------------------------------------------------------------------------------


class SampledProblem(NamedTuple):
    """A problem whose arguments fit together. D is None for a scalar equation."""

    form: str
    g: Array
    K: Array
    a: Optional[Array]
    y0: Union[float, Array]
    dt: float
    D: Optional[int]
    setting: Setting
    check_finite: bool

    def solve(self) -> Solution:
        return _solve(self)

    def coarsened(self, factor: int) -> SampledProblem:
        """The same problem from every second (third, ...) sample."""
        g, K = (np.ascontiguousarray(samples[::factor]) for samples in (self.g, self.K))
        a = None if self.a is None else np.ascontiguousarray(self.a[::factor])
        return self._replace(g=g, K=K, a=a, dt=self.dt * factor)


def prepare_vie1(
    g: Samples,
    K: Samples,
    dt: float,
    setting: SettingLike = DEFAULT_FIRST_KIND_SETTING,
    continuous: bool = False,
    y0: Any = None,
    t_end: Optional[float] = None,
    check_finite: bool = True,
) -> SampledProblem:
    row = find_setting(setting)
    check_finite = flag("check_finite", check_finite)
    if row.nodes[0] == 0:
        raise UnsupportedSettingError(
            f"setting: expected nodes above 0 for an equation of the first kind, which says nothing of y at the start "
            f"of a step; came {row}"
        )
    continuous = flag("continuous", continuous)
    if continuous and y0 is None:
        raise ValueError("y0: expected a value to start from, since continuous was asked for; came None")
    if y0 is not None and not continuous:
        raise ValueError(f"y0: expected None without continuous=True, which alone reads it; came {y0!r}")
    dt, arrays, D = _sampled(dt, {"g": g, "K": K}, row, t_end, check_finite)
    initial = initial_value("y0", y0, D, check_finite) if continuous else (0.0 if D is None else np.zeros(D))
    return SampledProblem(
        "vie1_continuous" if continuous else "vie1", arrays["g"], arrays["K"], None, initial, dt, D, row, check_finite
    )


def prepare_vie2(
    g: Samples,
    K: Samples,
    dt: float,
    setting: SettingLike = DEFAULT_SETTING,
    t_end: Optional[float] = None,
    check_finite: bool = True,
) -> SampledProblem:
    row = find_setting(setting)
    check_finite = flag("check_finite", check_finite)
    dt, arrays, D = _sampled(dt, {"g": g, "K": K}, row, t_end, check_finite)
    return SampledProblem("vie2", arrays["g"], arrays["K"], None, 0.0, dt, D, row, check_finite)


def prepare_vide(
    g: Samples,
    K: Samples,
    a: Samples,
    y0: Any,
    dt: float,
    setting: SettingLike = DEFAULT_SETTING,
    t_end: Optional[float] = None,
    check_finite: bool = True,
) -> SampledProblem:
    row = find_setting(setting)
    check_finite = flag("check_finite", check_finite)
    dt, arrays, D = _sampled(dt, {"g": g, "K": K, "a": a}, row, t_end, check_finite)
    initial = initial_value("y0", y0, D, check_finite)
    return SampledProblem("vide", arrays["g"], arrays["K"], arrays["a"], initial, dt, D, row, check_finite)


def _sampled(
    dt: Any, values: dict[str, Samples], row: Setting, t_end: Any, finite: bool
) -> tuple[float, dict[str, Array], Optional[int]]:
    """dt; g, K and a as arrays that fit together, and fit the row; and D."""
    dt = positive_number("dt", dt)
    if t_end is None and all(type(value) is np.ndarray and value.ndim for value in values.values()):
        arrays = {name: real_array(name, value, finite) for name, value in values.items()}
    else:
        arrays = _sample_all(dt, values, row, t_end, finite)
    g = arrays["g"]
    if g.ndim == 1:
        D = None
        matrices: tuple[int, ...] = g.shape
    elif g.ndim == 2 and g.shape[1] > 0:
        D = g.shape[1]
        matrices = (len(g), D, D)
    else:
        raise ValueError(
            f"g: expected an array of shape (N,) for a scalar equation, or (N, D) for a system with D above 0; came "
            f"{shape_text(g.shape)}"
        )
    _check_sizes(dt, len(g), D or 1, row, "a" in arrays)
    for name, array in arrays.items():
        if name == "g" or array.shape == matrices:
            continue
        if D is not None and array.shape == (D, D):
            require_memory(8 * len(g) * D * D, f"{len(g)} samples of {name}")
            arrays[name] = np.ascontiguousarray(np.broadcast_to(array, matrices))
        else:
            expect_shape(name, array, matrices, "(N,), like g" if D is None else "(N, D, D) for a g of shape (N, D)")
    return dt, arrays, D


def _sample_all(dt: float, values: dict[str, Samples], row: Setting, t_end: Any, finite: bool) -> dict[str, Array]:
    """Arrays of samples, where some arguments are functions or numbers."""
    arrays = {name: real_array(name, value, finite) for name, value in values.items() if not callable(value)}
    sampled = [name for name, array in arrays.items() if array.ndim > 0]
    if t_end is not None:
        sampled = [name for name in sampled if name == "g" or arrays[name].ndim != 2]  # the others are constant
        if sampled:
            raise ValueError(f"t_end: expected None, since {sampled[0]} has samples and tells the end; came {t_end!r}")
        spacings = positive_number("t_end", t_end) / dt
        if spacings > LARGEST_INDEX - row.spacings:
            raise SizeError(f"t_end: expected at most {LARGEST_INDEX} spacings dt, came {t_end!r} / {dt!r}")
        # Enough whole steps, but for what rounding adds.
        count = math.ceil(spacings / row.spacings * (1 - 1e-12)) * row.spacings + 1
    elif sampled:
        count = len(arrays[sampled[0]])
    else:
        raise ValueError("t_end: expected the end of the interval, since no argument is an array of samples; came None")
    require_memory(8 * count * len(values), f"{count} samples")
    times = np.arange(count) * dt
    for name, value in values.items():
        if callable(value):
            try:
                values_there = value(times)
            except TypeError as failure:
                raise ValueError(
                    f"{name}: expected a function of an array of times, came one that raises {failure!r} "
                    f"(numpy.vectorize takes functions of one number)"
                ) from failure
            arrays[name] = real_array(name, values_there, finite)
            if arrays[name].ndim > 0 and len(arrays[name]) != count:
                raise ValueError(
                    f"{name}: expected a function that returns its values at {count} times along the first axis, "
                    f"came an array of shape {shape_text(arrays[name].shape)}"
                )
        if arrays[name].ndim == 0:
            arrays[name] = np.full(count, arrays[name])
    return {name: arrays[name] for name in values}


def _check_sizes(dt: float, N: int, D: int, row: Setting, differential: bool) -> None:
    """What the library would not check, or only by ending the process; and that there is a step to solve."""
    if N <= row.spacings:
        raise SizeError(
            f"g: expected at least {row.spacings + 1} samples, for one step of setting {row}, came {N}"
        )
    width, steps = (row.count + 1) * D, (N - 1) // row.spacings
    sizes = N * D * D, width * steps, width * width
    if max(sizes) > LARGEST_INDEX:
        what, size = next(
            (what, size)
            for what, size in zip(("N * D * D", "(nodes + 1) * D * steps", "((nodes + 1) * D) ** 2"), sizes)
            if size > LARGEST_INDEX
        )
        raise SizeError(f"g: expected {what} to be at most {LARGEST_INDEX}, came {size} (N = {N}, D = {D})")
    if not math.isfinite(N * dt):
        raise ValueError(f"dt: expected a number whose multiples are finite, came {dt} for {N} samples")
    # The working memory that the library's header promises not to exceed, in doubles.
    n = row.count * D
    if differential:
        taken = steps * (3 * n * (n + D) + 14 * n + 14 * D) + 34 * (n + D) * (n + 7) + 1700
    else:
        taken = steps * (3 * n * n + 11 * n + D + 8) + 32 * n * (n + 7)
    if taken >= SMALL // 8:
        require_memory(8 * taken, f"a solve of {steps} steps with setting {row}, D = {D}")


# ---- The call -------------------------------------------------------------------------------------------------------

# By form, and whether the equation is scalar.
_FUNCTIONS = {
    ("vie1", True): library.quenta_solve_vie1,
    ("vie1", False): library.quenta_solve_vie1_vec,
    ("vie1_continuous", True): library.quenta_solve_vie1,
    ("vie1_continuous", False): library.quenta_solve_vie1_vec,
    ("vie2", True): library.quenta_solve_vie2,
    ("vie2", False): library.quenta_solve_vie2_vec,
    ("vide", True): library.quenta_solve_vide,
    ("vide", False): library.quenta_solve_vide_vec,
}


def _solve(problem: SampledProblem) -> Solution:
    form, g, K, a, y0, dt, D, setting, check_finite = problem
    N, count = len(g), setting.count
    steps = (N - 1) // setting.spacings
    native_library.enter_thread()

    out = np.empty(g.shape)
    coefficients = np.empty((steps, count + 1) + g.shape[1:])
    solved_steps = c_int()
    inputs = (address(g), address(K)) if a is None else (address(g), address(K), address(a))
    sizes = (N,) if D is None else (N, D)
    initial: tuple[Any, ...] = ()
    if form != "vie2":
        initial = (address(y0),) if isinstance(y0, np.ndarray) else (y0,)
    flags = (1, form == "vie1_continuous") if a is None and form != "vie2" else (1,)
    results = (address(out), address(coefficients), byref(solved_steps))
    status = _FUNCTIONS[form, D is None](
        *inputs, *sizes, *initial, dt, setting.m, NODE_ADDRESSES[setting.row], count, *flags, *results
    )
    if status != native_library.SOLVED:
        raise _refusal(status, problem)

    if form in ("vie1", "vie2"):  # whose polynomials leave the last power out
        coefficients = coefficients[:, :count]
    solution = Solution(out[: steps * setting.spacings + 1], setting.spacings * dt, coefficients, dt, setting)
    if check_finite and not all_finite(solution.y):
        warnings.warn(
            f"the solution has left the range of numbers; errors may have grown from step to step under setting "
            f"{setting}",
            GrowthWarning,
            stacklevel=4,
        )
    elif form == "vie1_continuous":
        measured = setting.measured.get(form)
        if measured is not None and not measured.stable:
            warnings.warn(f"setting {setting}, continuous: {measured.note}", GrowthWarning, stacklevel=4)
    return solution


def _refusal(status: int, problem: SampledProblem) -> Exception:
    if status == native_library.SINGULAR_BLOCK:
        return SingularBlockError(
            f"the system of a step is singular under setting {problem.setting} and dt = {problem.dt:g}: "
            + (
                "K is zero, or nearly, at the start"
                if problem.form.startswith("vie1")
                else "another dt or setting may serve"
            )
        )
    if status == native_library.SIZE_OVERFLOW:
        return SizeError(f"g: expected sizes within {LARGEST_INDEX}, came an array of shape {shape_text(problem.g.shape)}")
    return UnsupportedSettingError(
        f"setting: expected one that does not amplify every error of an equation of the first kind, came "
        f"{problem.setting}"
        if problem.form.startswith("vie1")
        else f"setting: the library refuses {problem.setting}"
    )


#: For each public solver, the function that turns its arguments into a problem.
PREPARATIONS: dict[Callable[..., Solution], Callable[..., SampledProblem]] = {
    solve_vie1: prepare_vie1,
    solve_vie2: prepare_vie2,
    solve_vide: prepare_vide,
}
