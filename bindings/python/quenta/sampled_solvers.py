"""The sample-based solvers: checks of the arguments, and the calls of the library.

    vie1   integral from 0 to t of K(t - s) y(s) ds = g(t)
    vie2   y(t) = g(t) + integral from 0 to t of K(t - s) y(s) ds
    vide   y'(t) = a(t) y(t) + g(t) + integral from 0 to t of K(t - s) y(s) ds,   y(0) = y0
"""

from __future__ import annotations

import math
from ctypes import byref, c_int
from typing import Any, Callable, NamedTuple, Optional, Union

import numpy as np

from . import native_library
from .arguments import Array, address, initial_value, positive_number, shape_text, sketch, true_or_false
from .errors import SingularBlockError, SizeError, UnsupportedSettingError
from .interruptible import call
from .memory_account import NOTHING, reserve
from .native_library import LARGEST_INDEX, library
from .samples import Samples, gather
from .setting_table import NODE_ADDRESSES, Setting, SettingLike, find_setting
from .solution import Solution
from .solution_warnings import warn_of
from .solve_memory import reserve_solve, solve_seconds

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
    kernel_ends: bool = False,
    check_finite: bool = True,
) -> Solution:
    """Solves an equation of the first kind: integral from 0 to t of K(t - s) y(s) ds = g(t).

    g, K
        Samples at 0, dt, 2 dt, ...: arrays of shape (N,) and (N,) for a scalar equation, (N, D) and (N, D, D) for a
        system; constants: a number, a vector (D,) for g or a matrix (D, D) for K; or functions, which are called with
        an array of times. In a system, a scalar K means this multiple of the identity, and a number g applies to all
        components.
    setting
        The collocation scheme (m; nodes): a pair (m, nodes), a text "m:nodes" such as "3:1,2,3", one of `settings()` or
        a `Recommendation`. Settings with the node 0 do not support the first kind.
    continuous
        Use the continuous form: the polynomials of adjacent steps join, and the first one starts from y0, a number or
        an array of shape (D,). With many settings errors then grow from step to step, which causes a warning.
    t_end
        Required if no argument has samples: the solution covers 0 to t_end. The last step ends at t_end if t_end is a
        multiple of the step m * m * dt, otherwise after it. Functions are sampled up to that end.
    kernel_ends
        K may have fewer samples than g, and is zero after its last one.
    check_finite
        Refuse NaN and infinity. Otherwise they propagate to the solution.

    Equations of the first kind are ill-posed: noise in g is differentiated. g(0) must be zero. K(0) must be neither
    zero nor small compared with K in the first step. `IllPosedWarning` reports violations of either condition.

    The default setting (3, [1, 2, 3]) has a high order for smooth samples, and reads a third of the samples of g and K.
    A warning reports other samples that contradict them. The setting (1, [1]) reads every sample except the first of g
    and the last of K.

    Returns a `Solution`. Raises `UnsupportedSettingError`, `SizeError` or `SingularBlockError` if the equation cannot
    be solved, and `ValueError` for any other invalid argument. Before the solution is returned, warnings report unread
    samples that contradict the others (`UnreadSamplesWarning`), samples past the last whole step
    (`DroppedSamplesWarning`), and errors that grow (`GrowthWarning`).
    """
    problem = prepare_vie1(g, K, dt, setting, continuous, y0, t_end, kernel_ends, check_finite)
    solution = problem.solve()
    warn_of(problem, solution, stacklevel=3)
    return solution


def solve_vie2(
    g: Samples,
    K: Samples,
    dt: float,
    *,
    setting: SettingLike = DEFAULT_SETTING,
    t_end: Optional[float] = None,
    kernel_ends: bool = False,
    check_finite: bool = True,
) -> Solution:
    """Solves an equation of the second kind: y(t) = g(t) + integral from 0 to t of K(t - s) y(s) ds.

    g, K
        Samples at 0, dt, 2 dt, ...: arrays of shape (N,) and (N,) for a scalar equation, (N, D) and (N, D, D) for a
        system; constants: a number, a vector (D,) for g or a matrix (D, D) for K; or functions, which are called with
        an array of times. In a system, a scalar K means this multiple of the identity, and a number g applies to all
        components.
    setting
        The collocation scheme (m; nodes): a pair (m, nodes), a text "m:nodes" such as "2:0,1,2", one of `settings()` or
        a `Recommendation`.
    t_end
        Required if no argument has samples: the solution covers 0 to t_end. The last step ends at t_end if t_end is a
        multiple of the step m * m * dt, otherwise after it. Functions are sampled up to that end.
    kernel_ends
        K may have fewer samples than g, and is zero after its last one.
    check_finite
        Refuse NaN and infinity. Otherwise they propagate to the solution.

    The default setting (2, [0, 1, 2]) has a high order for smooth samples, and reads half of the samples of g and K. A
    warning reports other samples that contradict them. The setting (1, [0, 1]) reads every sample.

    Returns a `Solution`. Raises `UnsupportedSettingError`, `SizeError` or `SingularBlockError` if the equation cannot
    be solved, and `ValueError` for any other invalid argument. Before the solution is returned, warnings report unread
    samples that contradict the others (`UnreadSamplesWarning`), samples past the last whole step
    (`DroppedSamplesWarning`), and a solution that is not finite (`GrowthWarning`).
    """
    problem = prepare_vie2(g, K, dt, setting, t_end, kernel_ends, check_finite)
    solution = problem.solve()
    warn_of(problem, solution, stacklevel=3)
    return solution


def solve_vide(
    g: Samples,
    K: Samples,
    a: Samples,
    y0: Any,
    dt: float,
    *,
    setting: SettingLike = DEFAULT_SETTING,
    t_end: Optional[float] = None,
    kernel_ends: bool = False,
    check_finite: bool = True,
) -> Solution:
    """Solves y'(t) = a(t) y(t) + g(t) + integral from 0 to t of K(t - s) y(s) ds, with y(0) = y0.

    g, K, a
        Samples at 0, dt, 2 dt, ...: arrays of shape (N,) for a scalar equation; (N, D), (N, D, D) and (N, D, D) for a
        system; constants: a number, a vector (D,) for g or a matrix (D, D) for K and a; or functions, which are called
        with an array of times. In a system, a scalar K or a means this multiple of the identity, and a number g applies
        to all components.
    y0
        A number; for a system an array of shape (D,), or a number that applies to all components.
    setting
        The collocation scheme (m; nodes): a pair (m, nodes), a text "m:nodes" such as "2:0,1,2", one of `settings()` or
        a `Recommendation`.
    t_end
        Required if no argument has samples: the solution covers 0 to t_end. The last step ends at t_end if t_end is a
        multiple of the step m * m * dt, otherwise after it. Functions are sampled up to that end.
    kernel_ends
        K may have fewer samples than g, and is zero after its last one.
    check_finite
        Refuse NaN and infinity. Otherwise they propagate to the solution.

    The default setting (2, [0, 1, 2]) has a high order for smooth samples, and reads half of the samples of g, K and a.
    A warning reports other samples that contradict them. The setting (1, [0, 1]) reads every sample.

    Returns a `Solution`. Raises `UnsupportedSettingError`, `SizeError` or `SingularBlockError` if the equation cannot
    be solved, and `ValueError` for any other invalid argument. Before the solution is returned, warnings report unread
    samples that contradict the others (`UnreadSamplesWarning`), samples past the last whole step
    (`DroppedSamplesWarning`), and a solution that is not finite (`GrowthWarning`).
    """
    problem = prepare_vide(g, K, a, y0, dt, setting, t_end, kernel_ends, check_finite)
    solution = problem.solve()
    warn_of(problem, solution, stacklevel=3)
    return solution


# ---- Checked arguments ----------------------------------------------------------------------------------------------


class SampledProblem(NamedTuple):
    """An equation with checked arguments. D is None for a scalar equation."""

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
        """Calls the library. Issues no warnings; that is the task of `warn_of`."""
        return _solve(self)

    def coarsened(self, factor: int) -> SampledProblem:
        """The same problem with every `factor`-th sample."""
        given = (self.g, self.K) if self.a is None else (self.g, self.K, self.a)
        with reserve(sum(samples[::factor].nbytes for samples in given), f"copies of every {factor}-th sample"):
            g, K, *coefficient = (np.ascontiguousarray(samples[::factor]) for samples in given)
        a = coefficient[0] if coefficient else None
        return self._replace(g=g, K=K, a=a, dt=self.dt * factor)


def prepare_vie1(
    g: Samples,
    K: Samples,
    dt: float,
    setting: SettingLike = DEFAULT_FIRST_KIND_SETTING,
    continuous: bool = False,
    y0: Any = None,
    t_end: Optional[float] = None,
    kernel_ends: bool = False,
    check_finite: bool = True,
) -> SampledProblem:
    row = find_setting(setting)
    check_finite = true_or_false("check_finite", check_finite)
    continuous = true_or_false("continuous", continuous)
    if row.nodes[0] == 0:
        raise UnsupportedSettingError(
            f"setting: expected nodes above 0, since at the start of a step an equation of the first kind contains no "
            f"unknown, got {row}"
        )
    if continuous and y0 is None:
        raise ValueError("y0: expected an initial value for continuous=True, got None")
    if y0 is not None and not continuous:
        raise ValueError(f"y0: expected None without continuous=True, got {sketch(y0)}")
    dt, arrays, D = _sampled(dt, {"g": g, "K": K}, y0, row, t_end, kernel_ends, check_finite)
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
    kernel_ends: bool = False,
    check_finite: bool = True,
) -> SampledProblem:
    row = find_setting(setting)
    check_finite = true_or_false("check_finite", check_finite)
    dt, arrays, D = _sampled(dt, {"g": g, "K": K}, None, row, t_end, kernel_ends, check_finite)
    return SampledProblem("vie2", arrays["g"], arrays["K"], None, 0.0, dt, D, row, check_finite)


def prepare_vide(
    g: Samples,
    K: Samples,
    a: Samples,
    y0: Any,
    dt: float,
    setting: SettingLike = DEFAULT_SETTING,
    t_end: Optional[float] = None,
    kernel_ends: bool = False,
    check_finite: bool = True,
) -> SampledProblem:
    row = find_setting(setting)
    check_finite = true_or_false("check_finite", check_finite)
    dt, arrays, D = _sampled(dt, {"g": g, "K": K, "a": a}, y0, row, t_end, kernel_ends, check_finite)
    initial = initial_value("y0", y0, D, check_finite)
    return SampledProblem("vide", arrays["g"], arrays["K"], arrays["a"], initial, dt, D, row, check_finite)


def _sampled(
    dt: Any, values: dict[str, Samples], y0: Any, row: Setting, t_end: Any, kernel_ends: Any, finite: bool
) -> tuple[float, dict[str, Array], Optional[int]]:
    """Returns dt, then g, K and a as arrays of matching shapes, and D."""
    dt = positive_number("dt", dt)
    gathered = gather(dt, values, y0, row, t_end, true_or_false("kernel_ends", kernel_ends), finite)
    _check_sizes(dt, gathered.N, gathered.D or 1, row)
    return dt, gathered.spread(), gathered.D


def _check_sizes(dt: float, N: int, D: int, row: Setting) -> None:
    """Checks that there is at least one step, and that no size exceeds the limits of the library."""
    if N <= row.spacings:
        raise SizeError(
            f"g: expected at least {row.spacings + 1} samples, for one step of setting {row}, got {N}"
        )
    width, steps = (row.count + 1) * D, (N - 1) // row.spacings
    sizes = N * D * D, width * steps, width * width
    if max(sizes) > LARGEST_INDEX:
        what, size = next(
            (what, size)
            for what, size in zip(("N * D * D", "(nodes + 1) * D * steps", "((nodes + 1) * D) ** 2"), sizes)
            if size > LARGEST_INDEX
        )
        raise SizeError(f"g: expected {what} to be at most {LARGEST_INDEX}, got {size} (N = {N}, D = {D})")
    if not math.isfinite(N * dt):
        raise ValueError(f"dt: expected a number whose multiples are finite, got {dt} for {N} samples")


# ---- Calls of the library -------------------------------------------------------------------------------------------

# The functions by form and by whether the equation is scalar.
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
    form, g, K, a, y0, dt, D, setting, _ = problem
    N, count = len(g), setting.count
    steps = (N - 1) // setting.spacings
    native_library.enter_thread()

    inputs = (address(g), address(K)) if a is None else (address(g), address(K), address(a))
    sizes = (N,) if D is None else (N, D)
    initial: tuple[Any, ...] = ()
    if form != "vie2":
        initial = (address(y0),) if isinstance(y0, np.ndarray) else (y0,)
    flags = (1, form == "vie1_continuous") if a is None and form != "vie2" else (1,)
    solved_steps = c_int()
    with reserve_solve(N, D or 1, setting, a is not None) as reservation:
        out = np.empty(g.shape)
        coefficients = np.empty((steps, count + 1) + g.shape[1:])
        results = (address(out), address(coefficients), byref(solved_steps))
        arguments = (*inputs, *sizes, *initial, dt, setting.m, NODE_ADDRESSES[setting.row], count, *flags, *results)
        function = _FUNCTIONS[form, D is None]
        if reservation is NOTHING:
            status = function(*arguments)
        else:
            seconds = solve_seconds(N, D or 1, setting, a is not None)
            status = call(function, arguments, seconds, (problem, out, coefficients), reservation)
    if status != native_library.SOLVED:
        raise _refusal(status, problem)

    if form in ("vie1", "vie2"):  # the highest power is not used
        coefficients = coefficients[:, :count]
    return Solution(out[: steps * setting.spacings + 1], setting.spacings * dt, coefficients, dt, setting)


def _refusal(status: int, problem: SampledProblem) -> Exception:
    if status == native_library.SINGULAR_BLOCK:
        return SingularBlockError(
            f"the system of a step is singular with setting {problem.setting} and dt = {problem.dt:g}: "
            + (
                "K(0) is zero or nearly zero; differentiate the equation"
                if problem.form.startswith("vie1")
                else "try another dt or setting"
            )
        )
    if status == native_library.SIZE_OVERFLOW:
        return SizeError(f"g: expected sizes within {LARGEST_INDEX}, got an array of shape {shape_text(problem.g.shape)}")
    return UnsupportedSettingError(
        f"setting: expected one that does not amplify all errors of an equation of the first kind, got {problem.setting}"
        if problem.form.startswith("vie1")
        else f"setting: expected one that the library supports, got {problem.setting}"
    )


#: For each public solver, the function that checks its arguments and returns the problem.
PREPARATIONS: dict[Callable[..., Solution], Callable[..., SampledProblem]] = {
    solve_vie1: prepare_vie1,
    solve_vie2: prepare_vie2,
    solve_vide: prepare_vide,
}
