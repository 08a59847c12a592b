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
    r"""Solve a Volterra equation of the first kind from samples.

    .. math:: \int_0^t K(t - s)\, y(s)\, ds = g(t)

    The equation is scalar, or a system of D equations, in which g(t) and y(t) are vectors and K(t) is a matrix.

    Parameters
    ----------
    g : array_like or callable
        Right-hand side, with g(0) = 0: samples at 0, dt, 2 dt, ... of shape (N,), or (N, D) for a system; a constant,
        that is a number or a vector of shape (D,); or a function of an array of times that returns the samples. In a
        system a number applies to all components.
    K : array_like or callable
        Kernel, where K y has the unit of g/time: samples at the lags 0, dt, 2 dt, ... of shape (N,), or (N, D, D) for a
        system; a constant, that is a number or a matrix of shape (D, D); or a function of an array of lags that returns
        the samples. In a system a scalar kernel means this multiple of the identity. K(0) must be neither zero nor
        small compared with K in the first step.
    dt : float
        Spacing of the samples, in the unit of time. Positive.
    setting : tuple, str, Setting or Recommendation, optional
        Collocation scheme (m; nodes): a pair such as ``(3, [1, 2, 3])``, a text such as ``"3:1,2,3"``, one of
        `settings`, or a result of `recommend`. A step spans m * m spacings of the samples. Schemes with the node 0 are
        refused.
    continuous : bool, optional
        If True, use the continuous form: the polynomials of adjacent steps join, and the first one starts from `y0`.
        With many schemes errors then grow from step to step.
    y0 : float or array_like, optional
        The solution at t = 0: a number, or an array of shape (D,) for a system, in which a number applies to all
        components. Required if `continuous` is True, and refused otherwise.
    t_end : float, optional
        End of the solution, in the unit of time. Required if no argument has samples, and refused otherwise. The last
        step ends at `t_end` if that is a multiple of the step m * m * dt, otherwise after it. Functions are sampled up
        to the end of the last step.
    kernel_ends : bool, optional
        If True, `K` may have fewer samples than `g`, and is zero after its last one.
    check_finite : bool, optional
        If True, NaN and infinity in the arguments are refused. If False, they propagate to the solution.

    Returns
    -------
    Solution
        The solution at the samples, in the unit of g / (K time), and as a piecewise polynomial.

    Raises
    ------
    ValueError
        If an argument is invalid. The message names the argument, what was expected, and what it got.
    UnsupportedSettingError
        If there is no such scheme, or if it does not support the first kind.
    SizeError
        If there are too few samples for one step, or too many for the library or for the memory.
    SingularBlockError
        If the linear system of a step is singular, for example because K(0) is zero.

    Warns
    -----
    IllPosedWarning
        If K(0) is zero or nearly zero, or if g(0) is not zero: if an offset of this size in all samples would cause a
        spike of more than 1 percent of the largest value of the solution.
    GrowthWarning
        If errors grow from step to step in the continuous form, or if the solution is not finite.
    UnreadSamplesWarning
        If samples that the scheme does not read contradict those that it reads.
    DroppedSamplesWarning
        If there are samples past the last whole step.

    See Also
    --------
    solve_vie2 : Equations of the second kind.
    solve_vide : Integro-differential equations.
    solve_blocks_vie1 : Equations of the first kind with any kernel.
    with_error : Estimate the error of the solution.
    recommend : Choose a scheme.

    Notes
    -----
    Equations of the first kind are ill-posed: noise in g is differentiated. No warning reports the resulting errors, and
    no regularization is applied. The best remedy is to fit a smooth function with g(0) = 0 to the samples, and to solve
    the equation with the fit. Otherwise use fewer samples.

    On each step of length h = m * m * dt the solution is the polynomial through its values at the nodes
    :math:`t_n + c_i h`, and the equation is imposed at the nodes. The integrals are replaced by the interpolatory
    quadrature rule on the nodes, with the weights :math:`b_l` [1]_. With :math:`u_n(s)` for the solution on step n,
    0 <= s <= 1:

    .. math::

        h\, c_i \sum_{q} b_q\, K(c_i (1 - c_q) h)\, u_n(c_i c_q)
        + h \sum_{d=1}^{n} \sum_{l} b_l\, K((d + c_i - c_l) h)\, u_{n-d}(c_l) = g(t_n + c_i h)

    With P nodes, smooth g and K and a nonzero K(0), the largest error is proportional to dt to the power P, except with
    (3; 1, 2) and (4; 1, 3), which have order P - 1. In the continuous form the order is P with the schemes whose errors
    do not grow. The second sum is a convolution of blocks, which is computed by fast Fourier transforms as the solution
    becomes known. So n steps cost about :math:`n \log^2 n`.

    The default scheme (3; 1, 2, 3) is meant for smooth samples. It has order 3 and reads a third of the samples of g
    and K. The scheme (1; 1) has order 1, and reads every sample except the first of g and the last of K.

    References
    ----------
    .. [1] H. Brunner, *Collocation Methods for Volterra Integral and Related Functional Differential Equations*, Cambridge
       University Press 2004, chapter 2.

    Examples
    --------
    With K(t) = exp(-t) and g = (sin t - cos t + exp(-t)) / 2, the solution is sin t:

    >>> import numpy as np
    >>> import quenta
    >>> t = np.arange(451) * 0.01
    >>> g = (np.sin(t) - np.cos(t) + np.exp(-t)) / 2
    >>> solution = quenta.solve_vie1(g, np.exp(-t), dt=0.01)
    >>> print(f"largest error {abs(solution.y - np.sin(t)).max():.0e}")
    largest error 3e-05

    The continuous form starts from the known value y(0) = 0:

    >>> continuous = quenta.solve_vie1(g, np.exp(-t), dt=0.01, continuous=True, y0=0)
    >>> print(f"largest error {abs(continuous.y - np.sin(t)).max():.0e}")
    largest error 2e-04
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
    r"""Solve a Volterra equation of the second kind from samples.

    .. math:: y(t) = g(t) + \int_0^t K(t - s)\, y(s)\, ds

    The equation is scalar, or a system of D equations, in which g(t) and y(t) are vectors and K(t) is a matrix.

    Parameters
    ----------
    g : array_like or callable
        Forcing, in the unit of y: samples at 0, dt, 2 dt, ... of shape (N,), or (N, D) for a system; a constant, that
        is a number or a vector of shape (D,); or a function of an array of times that returns the samples. In a system
        a number applies to all components.
    K : array_like or callable
        Kernel, in the unit of 1/time: samples at the lags 0, dt, 2 dt, ... of shape (N,), or (N, D, D) for a system; a
        constant, that is a number or a matrix of shape (D, D); or a function of an array of lags that returns the
        samples. In a system a scalar kernel means this multiple of the identity.
    dt : float
        Spacing of the samples, in the unit of time. Positive.
    setting : tuple, str, Setting or Recommendation, optional
        Collocation scheme (m; nodes): a pair such as ``(2, [0, 1, 2])``, a text such as ``"2:0,1,2"``, one of
        `settings`, or a result of `recommend`. A step spans m * m spacings of the samples.
    t_end : float, optional
        End of the solution, in the unit of time. Required if no argument has samples, and refused otherwise. The last
        step ends at `t_end` if that is a multiple of the step m * m * dt, otherwise after it. Functions are sampled up
        to the end of the last step.
    kernel_ends : bool, optional
        If True, `K` may have fewer samples than `g`, and is zero after its last one.
    check_finite : bool, optional
        If True, NaN and infinity in the arguments are refused. If False, they propagate to the solution.

    Returns
    -------
    Solution
        The solution at the samples, in the unit of `g`, and as a piecewise polynomial.

    Raises
    ------
    ValueError
        If an argument is invalid. The message names the argument, what was expected, and what it got.
    UnsupportedSettingError
        If there is no such scheme.
    SizeError
        If there are too few samples for one step, or too many for the library or for the memory.
    SingularBlockError
        If the linear system of a step is singular. Smaller steps help.

    Warns
    -----
    UnreadSamplesWarning
        If samples that the scheme does not read contradict those that it reads.
    DroppedSamplesWarning
        If there are samples past the last whole step.
    GrowthWarning
        If the solution is not finite.

    See Also
    --------
    solve_vide : Integro-differential equations.
    solve_vie1 : Equations of the first kind.
    solve_blocks_vie2 : Equations of the second kind with any kernel.
    with_error : Estimate the error of the solution.
    recommend : Choose a scheme.

    Notes
    -----
    On each step of length h = m * m * dt the solution is the polynomial through its values at the nodes
    :math:`t_n + c_i h`, and the equation is imposed at the nodes. The integrals are replaced by the interpolatory
    quadrature rule on the nodes, with the weights :math:`b_l` [1]_. With :math:`u_n(s)` for the solution on step n,
    0 <= s <= 1, and :math:`U_{n,i} = u_n(c_i)`:

    .. math::

        U_{n,i} = g(t_n + c_i h)
                  + h\, c_i \sum_{q} b_q\, K(c_i (1 - c_q) h)\, u_n(c_i c_q)
                  + h \sum_{d=1}^{n} \sum_{l} b_l\, K((d + c_i - c_l) h)\, u_{n-d}(c_l)

    With P nodes and smooth g and K, the largest error is proportional to dt to the power P. At the nodes the order is
    that of the quadrature rule, P or P + 1. The last sum is a convolution of blocks, which is computed by fast Fourier
    transforms as the solution becomes known [2]_. So n steps cost about :math:`n \log^2 n`.

    The default scheme (2; 0, 1, 2) is meant for smooth samples. It has order 3 and reads half of the samples of g and
    K. The scheme (1; 0, 1) is the trapezoidal rule, and reads every sample.

    References
    ----------
    .. [1] H. Brunner, *Collocation Methods for Volterra Integral and Related Functional Differential Equations*, Cambridge
       University Press 2004, chapter 2.
    .. [2] J. van der Hoeven, Relax, but don't be too lazy, *Journal of Symbolic Computation* 34, 2002, pages 479 to
       542.

    Examples
    --------
    With the kernel K(t) = t and g = 1, the solution is cosh t:

    >>> import numpy as np
    >>> import quenta
    >>> t = np.arange(401) * 0.01
    >>> solution = quenta.solve_vie2(np.ones(401), t, dt=0.01)
    >>> print(f"largest error {abs(solution.y - np.cosh(t)).max():.0e}")
    largest error 1e-05
    >>> print(f"y(2.345) = {solution(2.345):.5f}, y'(2.345) = {solution.derivative(2.345):.2f}")
    y(2.345) = 5.26456, y'(2.345) = 5.17

    The same equation from a constant and a function of time:

    >>> quenta.solve_vie2(1, lambda t: t, dt=0.01, t_end=4)
    <Solution: y of shape (401,) on 0 .. 4, 100 steps of setting (2, [0, 1, 2])>

    A system of two equations, whose solution is (cos t, sin t):

    >>> rotation = quenta.solve_vie2([1, 0], [[0, -1], [1, 0]], dt=0.01, t_end=2)
    >>> print(rotation(2.0).round(6), rotation.y.shape)
    [-0.416147  0.909297] (201, 2)
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
    r"""Solve a Volterra integro-differential equation from samples.

    .. math:: y'(t) = a(t)\, y(t) + g(t) + \int_0^t K(t - s)\, y(s)\, ds, \quad y(0) = y_0

    The equation is scalar, or a system of D equations, in which g(t) and y(t) are vectors and K(t) and a(t) are
    matrices.

    Parameters
    ----------
    g : array_like or callable
        Forcing, in the unit of y/time: samples at 0, dt, 2 dt, ... of shape (N,), or (N, D) for a system; a constant,
        that is a number or a vector of shape (D,); or a function of an array of times that returns the samples. In a
        system a number applies to all components.
    K : array_like or callable
        Kernel, in the unit of 1/time squared: samples at the lags 0, dt, 2 dt, ... of shape (N,), or (N, D, D) for a
        system; a constant, that is a number or a matrix of shape (D, D); or a function of an array of lags that returns
        the samples. In a system a scalar kernel means this multiple of the identity.
    a : array_like or callable
        Coefficient of y, in the unit of 1/time, in the same forms as `K`.
    y0 : float or array_like
        The solution at t = 0: a number, or an array of shape (D,) for a system, in which a number applies to all
        components.
    dt : float
        Spacing of the samples, in the unit of time. Positive.
    setting : tuple, str, Setting or Recommendation, optional
        Collocation scheme (m; nodes): a pair such as ``(2, [0, 1, 2])``, a text such as ``"2:0,1,2"``, one of
        `settings`, or a result of `recommend`. A step spans m * m spacings of the samples.
    t_end : float, optional
        End of the solution, in the unit of time. Required if no argument has samples, and refused otherwise. The last
        step ends at `t_end` if that is a multiple of the step m * m * dt, otherwise after it. Functions are sampled up
        to the end of the last step.
    kernel_ends : bool, optional
        If True, `K` may have fewer samples than `g`, and is zero after its last one.
    check_finite : bool, optional
        If True, NaN and infinity in the arguments are refused. If False, they propagate to the solution.

    Returns
    -------
    Solution
        The solution at the samples, in the unit of `y0`, and as a piecewise polynomial, which is continuous.

    Raises
    ------
    ValueError
        If an argument is invalid. The message names the argument, what was expected, and what it got.
    UnsupportedSettingError
        If there is no such scheme.
    SizeError
        If there are too few samples for one step, or too many for the library or for the memory.
    SingularBlockError
        If the linear system of a step is singular. Smaller steps help.

    Warns
    -----
    UnreadSamplesWarning
        If samples that the scheme does not read contradict those that it reads.
    DroppedSamplesWarning
        If there are samples past the last whole step.
    GrowthWarning
        If the solution is not finite.

    See Also
    --------
    solve_vie2 : Equations of the second kind.
    solve_vie1 : Equations of the first kind.
    solve_blocks_vide : Integro-differential equations with any kernel and steps of any lengths.
    with_error : Estimate the error of the solution.
    recommend : Choose a scheme.

    Notes
    -----
    On each step of length h = m * m * dt the derivative is the polynomial through its values :math:`Z_{n,i}` at the
    nodes :math:`t_n + c_i h`, where the equation is imposed, and the solution is its integral. The integrals of the
    equation are replaced by the interpolatory quadrature rule on the nodes, with the weights :math:`b_l` [1]_. With
    :math:`u_n(s)` for the solution on step n, 0 <= s <= 1:

    .. math::

        Z_{n,i} = a(t_n + c_i h)\, u_n(c_i) + g(t_n + c_i h)
                  + h\, c_i \sum_{q} b_q\, K(c_i (1 - c_q) h)\, u_n(c_i c_q)
                  + h \sum_{d=1}^{n} \sum_{l} b_l\, K((d + c_i - c_l) h)\, u_{n-d}(c_l)

    With P nodes and smooth g, K and a, the largest error is proportional to dt to the power of the order of the
    quadrature rule, P or P + 1. The last sum is a convolution of blocks, which is computed by fast Fourier transforms
    as the solution becomes known. So n steps cost about :math:`n \log^2 n`.

    The default scheme (2; 0, 1, 2) is meant for smooth samples. It has order 4 and reads half of the samples of g, K
    and a. The scheme (1; 0, 1) is the trapezoidal rule, and reads every sample.

    References
    ----------
    .. [1] H. Brunner, *Collocation Methods for Volterra Integral and Related Functional Differential Equations*, Cambridge
       University Press 2004, chapter 3.

    Examples
    --------
    An oscillator with memory, y' = -(integral from 0 to t of exp(-(t - s)) y(s) ds), y(0) = 1:

    >>> import numpy as np
    >>> import quenta
    >>> solution = quenta.solve_vide(g=0, K=lambda t: -np.exp(-t), a=0, y0=1, dt=0.025, t_end=10)
    >>> solution
    <Solution: y of shape (401,) on 0 .. 10, 100 steps of setting (2, [0, 1, 2])>
    >>> t, omega = solution.t, np.sqrt(0.75)
    >>> exact = np.exp(-t / 2) * (np.cos(omega * t) + np.sin(omega * t) / (2 * omega))
    >>> print(f"largest error {abs(solution.y - exact).max():.0e}")
    largest error 1e-07
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
