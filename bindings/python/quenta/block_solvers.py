"""The block solvers: checks of the arguments, and the calls of the library.

There are N steps with P points each, P from 1 to 5. In systems vectors have D components, D from 1 to 8, along one more
axis. Blocks with k > n are never read and may contain anything.
"""

from __future__ import annotations

import warnings
from typing import Any, NamedTuple, Optional, Union

import numpy as np

from . import native_library
from .arguments import (
    Array,
    address,
    all_finite,
    expect_shape,
    initial_value,
    real_array,
    real_number,
    shape_text,
    true_or_false,
)
from .errors import GrowthWarning, SingularBlockError, SizeError
from .interruptible import call
from .memory_account import reserve
from .native_library import LARGEST_INDEX, MOST_DIMENSIONS, MOST_POINTS, library

# A NaN that no calculation produces. After a solve it marks the values that were not written.
_UNWRITTEN = np.uint64(0x7FF8_5EED_0B10_C550)

# Assumed rate of reading A, in bytes per second. A may be mapped from a file.
_BYTES_PER_SECOND = 5e8


class CarriedSolution(NamedTuple):
    """The result (x, y) of a block solver that carries a value from step to step.

    It is a named tuple.

    Attributes
    ----------
    x : ndarray
        Values at the points, of shape (N, P), or (N, P, D) for a system.
    y : ndarray
        Carried values at the ends of the steps, of shape (N + 1,), or (N + 1, D) for a system; y[0] is y0.

    See Also
    --------
    solve_blocks_vie1_cont : Equations of the first kind with a carried value.
    solve_blocks_vide : Integro-differential equations.

    Examples
    --------
    The implicit Euler method for y' = -y, y(0) = 1:

    >>> import numpy as np
    >>> import quenta
    >>> A, b, C = np.zeros((2, 1, 2, 2)), np.zeros((2, 1)), -np.ones((2, 1))
    >>> x, y = quenta.solve_blocks_vide(A, b, C, E=[[1]], w=[1], h=[0.5, 0.5], y0=1)
    >>> print(y.round(4))
    [1.     0.6667 0.4444]
    """

    x: Array
    y: Array


def solve_blocks_vie1(A: Any, b: Any, *, check_finite: bool = True) -> Array:
    r"""Solve a collocation scheme of the first kind, given by its blocks.

    .. math:: \sum_{k=0}^{n} A_{n,k}\, x_k = b_n, \quad n = 0, \ldots, N - 1

    Parameters
    ----------
    A : array_like
        Blocks of the scheme, of shape (N, P, N, P), or (N, P, N, P, D, D) for a system: the block of the steps n and k
        is A[n, :, k]. There are N steps with P points each, P from 1 to 5, and vectors of D components, D from 1 to 8.
        Blocks with k > n are never read and may contain anything.
    b : array_like
        Right-hand side at the points, of shape (N, P), or (N, P, D) for a system.
    check_finite : bool, optional
        If True, NaN and infinity are refused where they are read. If False, they propagate to the solution.

    Returns
    -------
    ndarray
        The solution x at the points, of the shape of `b`. Its unit is that of b / A.

    Raises
    ------
    ValueError
        If an argument is invalid. The message names the argument, what was expected, and what it got.
    SizeError
        If N, P or D is out of range.
    SingularBlockError
        If the linear system of a step is singular. The exception contains the solution before this step.

    Warns
    -----
    GrowthWarning
        If the solution overflows, unless `check_finite` is False.

    See Also
    --------
    solve_blocks_vie1_cont : First kind with a value that is carried from step to step.
    solve_blocks_vie2 : Second kind.
    solve_vie1 : First kind with a convolution kernel, from samples.

    Notes
    -----
    Collocation turns an equation with any kernel K(t, s) into this lower block-triangular system [1]_. No point may be
    at the start of a step, since its equation would contain no unknown of the step. The steps are solved one after the
    other by Gaussian elimination with partial pivoting. Each block is read once, so N steps cost about :math:`N^2 P^2
    D^2 / 2` multiplications. An array of doubles, C-contiguous and aligned, is not copied.

    References
    ----------
    .. [1] H. Brunner, *Collocation Methods for Volterra Integral and Related Functional Differential Equations*, Cambridge
       University Press 2004, chapter 2.

    Examples
    --------
    The rectangle rule for the integral from 0 to t of y(s) ds = t^2 / 2, whose solution is y = t. The computed values
    are those in the middle of the steps:

    >>> import numpy as np
    >>> import quenta
    >>> h = 0.2
    >>> t = h * np.arange(1, 6)
    >>> A = np.full((5, 1, 5, 1), h)
    >>> x = quenta.solve_blocks_vie1(A, t[:, None]**2 / 2)
    >>> print(x[:, 0].round(6))
    [0.1 0.3 0.5 0.7 0.9]
    """
    return _Blocks(A, b, 0, check_finite).solve("function_solve_vie1", (), (), False).x


def solve_blocks_vie2(A: Any, b: Any, *, check_finite: bool = True) -> Array:
    r"""Solve a collocation scheme of the second kind, given by its blocks.

    .. math:: x_n = b_n + \sum_{k=0}^{n} A_{n,k}\, x_k, \quad n = 0, \ldots, N - 1

    Parameters
    ----------
    A : array_like
        Blocks of the scheme, dimensionless, of shape (N, P, N, P), or (N, P, N, P, D, D) for a system: the block of the
        steps n and k is A[n, :, k]. There are N steps with P points each, P from 1 to 5, and vectors of D components, D
        from 1 to 8. Blocks with k > n are never read and may contain anything. The identity is not part of A.
    b : array_like
        Forcing at the points, in the unit of x, of shape (N, P), or (N, P, D) for a system.
    check_finite : bool, optional
        If True, NaN and infinity are refused where they are read. If False, they propagate to the solution.

    Returns
    -------
    ndarray
        The solution x at the points, of the shape of `b`.

    Raises
    ------
    ValueError
        If an argument is invalid. The message names the argument, what was expected, and what it got.
    SizeError
        If N, P or D is out of range.
    SingularBlockError
        If the linear system of a step is singular. The exception contains the solution before this step.

    Warns
    -----
    GrowthWarning
        If the solution overflows, unless `check_finite` is False.

    See Also
    --------
    solve_blocks_vie1 : First kind.
    solve_blocks_vide : Integro-differential equations.
    solve_vie2 : Second kind with a convolution kernel, from samples.

    Notes
    -----
    Collocation turns an equation with any kernel K(t, s) into this lower block-triangular system [1]_. The steps are
    solved one after the other by Gaussian elimination with partial pivoting. Each block is read once, so N steps cost
    about :math:`N^2 P^2 D^2 / 2` multiplications. An array of doubles, C-contiguous and aligned, is not copied.

    References
    ----------
    .. [1] H. Brunner, *Collocation Methods for Volterra Integral and Related Functional Differential Equations*, Cambridge
       University Press 2004, chapter 2.

    Examples
    --------
    The trapezoidal rule for y(t) = g(t) - integral from 0 to t of t s y(s) ds, whose solution for this g is
    exp(-t). A step has one point, at its end; step 0 is the time 0:

    >>> import numpy as np
    >>> import quenta
    >>> t = np.linspace(0, 2, 201)
    >>> weights = np.tril(np.full((201, 201), 0.01))
    >>> weights[:, 0] = 0.005
    >>> np.fill_diagonal(weights, 0.005)
    >>> weights[0, 0] = 0
    >>> A = -weights * t[:, None] * t
    >>> g = np.exp(-t) + t * (1 - (1 + t) * np.exp(-t))
    >>> x = quenta.solve_blocks_vie2(A.reshape(201, 1, 201, 1), g[:, None])
    >>> print(f"largest error {abs(x[:, 0] - np.exp(-t)).max():.0e}")
    largest error 6e-06
    """
    return _Blocks(A, b, 0, check_finite).solve("function_solve_vie2", (), (), False).x


def solve_blocks_vie1_cont(
    A: Any, b: Any, w: Any, rho: float, y0: Any, *, check_finite: bool = True
) -> CarriedSolution:
    r"""Solve a collocation scheme of the first kind that carries a value from step to step.

    .. math:: \sum_{k=0}^{n} \Bigl( \sum_{j=0}^{P-1} A_{n,k,j}\, x_{k,j} + A_{n,k,P}\, y_k \Bigr) = b_n

    .. math:: y_{n+1} = \rho\, y_n + \sum_{j=0}^{P-1} w_j\, x_{n,j}, \quad n = 0, \ldots, N - 1

    Parameters
    ----------
    A : array_like
        Blocks of the scheme, of shape (N, P, N, P + 1), or (N, P, N, P + 1, D, D) for a system: the block of the steps
        n and k is A[n, :, k], with the coefficients of the points of step k, then that of its carried value. There are
        N steps with P points each, P from 1 to 5, and vectors of D components, D from 1 to 8. Blocks with k > n are
        never read and may contain anything.
    b : array_like
        Right-hand side at the points, of shape (N, P), or (N, P, D) for a system.
    w : array_like
        Weights of the values at the points in the next carried value, dimensionless, of shape (P,).
    rho : float
        Weight of the carried value in the next one, dimensionless.
    y0 : float or array_like
        The first carried value, in the unit of x: a number, or an array of shape (D,) for a system, in which a number
        applies to all components.
    check_finite : bool, optional
        If True, NaN and infinity are refused where they are read. If False, they propagate to the solution.

    Returns
    -------
    CarriedSolution
        The values x at the points, of the shape of `b`, and the carried values y, of shape (N + 1,) or (N + 1, D).

    Raises
    ------
    ValueError
        If an argument is invalid. The message names the argument, what was expected, and what it got.
    SizeError
        If N, P or D is out of range.
    SingularBlockError
        If the linear system of a step is singular. The exception contains the solution before this step.

    Warns
    -----
    GrowthWarning
        If the solution overflows, unless `check_finite` is False.

    See Also
    --------
    solve_blocks_vie1 : First kind without a carried value.
    solve_vie1 : First kind with a convolution kernel, from samples; `continuous` selects this form.

    Notes
    -----
    With the weights of a polynomial in w and rho the solution is continuous: each polynomial starts from the end value
    of the previous one [1]_. The steps are solved one after the other by Gaussian elimination with partial pivoting.
    Each block is read once, so N steps cost about :math:`N^2 P (P + 1) D^2 / 2` multiplications.

    References
    ----------
    .. [1] H. Brunner, *Collocation Methods for Volterra Integral and Related Functional Differential Equations*, Cambridge
       University Press 2004, chapter 2.

    Examples
    --------
    The trapezoidal rule for the integral from 0 to t of y(s) ds = t^2 / 2, whose solution is y = t. A step has one
    point, at its end, and carries its value:

    >>> import numpy as np
    >>> import quenta
    >>> h = 0.2
    >>> t = h * np.arange(1, 6)
    >>> A = np.full((5, 1, 5, 2), h / 2)
    >>> x, y = quenta.solve_blocks_vie1_cont(A, t[:, None]**2 / 2, w=[1], rho=0, y0=0)
    >>> print(abs(y).round(6))
    [0.  0.2 0.4 0.6 0.8 1. ]
    """
    blocks = _Blocks(A, b, 1, check_finite)
    weights = blocks.array("w", w, (blocks.P,), "(P,)")
    rho = real_number("rho", rho, blocks.finite)
    return blocks.solve("function_solve_vie1_cont", (), (weights, rho, blocks.initial(y0)), True)


def solve_blocks_vide(
    A: Any, b: Any, C: Any, E: Any, w: Any, h: Any, y0: Any, *, check_finite: bool = True
) -> CarriedSolution:
    r"""Solve a collocation scheme of an integro-differential equation, given by its blocks.

    The unknowns x are the derivatives at the points, and y is carried from step to step. Steps may have any lengths h.

    .. math::

        x_{n,i} = b_{n,i} + C_{n,i} \Bigl( y_n + h_n \sum_{j} E_{i,j}\, x_{n,j} \Bigr)
                  + \sum_{k=0}^{n} \Bigl( A_{n,i,k,P}\, y_k + h_k \sum_{j} A_{n,i,k,j}\, x_{k,j} \Bigr)

    .. math:: y_{n+1} = y_n + h_n \sum_{j} w_j\, x_{n,j}, \quad n = 0, \ldots, N - 1

    Parameters
    ----------
    A : array_like
        Blocks of the integral, without the step length, of shape (N, P, N, P + 1), or (N, P, N, P + 1, D, D) for a
        system: the block of the steps n and k is A[n, :, k], with the coefficients of the derivatives at the points of
        step k, then that of y[k]. There are N steps with P points each, P from 1 to 5, and vectors of D components, D
        from 1 to 8. Blocks with k > n are never read and may contain anything.
    b : array_like
        Forcing at the points, in the unit of y/time, of shape (N, P), or (N, P, D) for a system.
    C : array_like
        Coefficient of y at the points, in the unit of 1/time, of shape (N, P), or (N, P, D, D) for a system.
    E : array_like
        Weights of the derivatives in y at the points, relative to the step length, of shape (P, P).
    w : array_like
        Weights of the derivatives in y at the end of the step, relative to the step length, of shape (P,).
    h : array_like
        Lengths of the steps, in the unit of time, of shape (N,).
    y0 : float or array_like
        The solution at t = 0: a number, or an array of shape (D,) for a system, in which a number applies to all
        components.
    check_finite : bool, optional
        If True, NaN and infinity are refused where they are read. If False, they propagate to the solution.

    Returns
    -------
    CarriedSolution
        The derivatives x at the points, of the shape of `b`, and the solution y at the ends of the steps, of shape
        (N + 1,) or (N + 1, D).

    Raises
    ------
    ValueError
        If an argument is invalid. The message names the argument, what was expected, and what it got.
    SizeError
        If N, P or D is out of range.
    SingularBlockError
        If the linear system of a step is singular. The exception contains the solution before this step.

    Warns
    -----
    GrowthWarning
        If the solution overflows, unless `check_finite` is False.

    See Also
    --------
    solve_blocks_vie2 : Second kind.
    solve_vide : Integro-differential equations with a convolution kernel, from samples.

    Notes
    -----
    Collocation turns an equation with any kernel K(t, s) into these equations [1]_. The steps are solved one after the
    other by Gaussian elimination with partial pivoting. Each block is read once, so N steps cost about
    :math:`N^2 P (P + 1) D^2 / 2` multiplications.

    References
    ----------
    .. [1] H. Brunner, *Collocation Methods for Volterra Integral and Related Functional Differential Equations*, Cambridge
       University Press 2004, chapter 3.

    Examples
    --------
    The implicit Euler method for y' = -y, y(0) = 1, with a step of 0.5 and one of 0.25:

    >>> import numpy as np
    >>> import quenta
    >>> A, b, C = np.zeros((2, 1, 2, 2)), np.zeros((2, 1)), -np.ones((2, 1))
    >>> solution = quenta.solve_blocks_vide(A, b, C, E=[[1]], w=[1], h=[0.5, 0.25], y0=1)
    >>> print(solution.y.round(4))
    [1.     0.6667 0.5333]
    """
    blocks = _Blocks(A, b, 1, check_finite)
    N, P, D = blocks.N, blocks.P, blocks.D
    before = (
        blocks.array("C", C, (N, P) if D is None else (N, P, D, D), "(N, P)" if D is None else "(N, P, D, D)"),
        blocks.array("E", E, (P, P), "(P, P)"),
        blocks.array("w", w, (P,), "(P,)"),
        blocks.array("h", h, (N,), "(N,)"),
        blocks.initial(y0),
    )
    return blocks.solve("function_solve_vide", before, (), True)


class _Blocks:
    """A and b with their common sizes. A step has P + `carried` slots."""

    def __init__(self, A: Any, b: Any, carried: int, finite: bool) -> None:
        self.finite = finite = true_or_false("check_finite", finite)
        self.others: dict[str, Array] = {}
        self.b = real_array("b", b, finite)
        if self.b.ndim not in (2, 3):
            raise ValueError(
                f"b: expected an array of shape (N, P) for a scalar or (N, P, D) for vectors, got "
                f"{shape_text(self.b.shape)}"
            )
        self.N, self.P = self.b.shape[:2]
        self.D: Optional[int] = self.b.shape[2] if self.b.ndim == 3 else None
        for name, size, most in (("N", self.N, LARGEST_INDEX), ("P", self.P, MOST_POINTS), ("D", self.D, MOST_DIMENSIONS)):
            if size is not None and not 1 <= size <= most:
                raise SizeError(f"b: expected {name} from 1 to {most}, got {size} in the shape {shape_text(self.b.shape)}")
        # A may contain infinity and NaN where it is not read. Where it is read they appear in the result.
        self.A = real_array("A", A, finite=False)
        shape = (self.N, self.P, self.N, self.P + carried) + (() if self.D is None else (self.D, self.D))
        text = "(N, P, N, P + 1" if carried else "(N, P, N, P"
        expect_shape("A", self.A, shape, text + (")" if self.D is None else ", D, D)"))

    def array(self, name: str, value: Any, shape: tuple[int, ...], meaning: str) -> Array:
        array = real_array(name, value, self.finite)
        expect_shape(name, array, shape, meaning)
        return array

    def initial(self, y0: Any) -> Union[float, Array]:
        return initial_value("y0", y0, self.D, self.finite)

    def solve(
        self,
        function: str,
        before: tuple[Union[float, Array], ...],
        after: tuple[Union[float, Array], ...],
        carries: bool,
    ) -> CarriedSolution:
        """Calls function(A, b, *before, *sizes, *after, *results)."""
        sizes = (self.N, self.P) if self.D is None else (self.N, self.P, self.D)
        # Results, and two copies for the checks.
        with reserve(24 * self.b.size + 16 * (self.N + 1) * (self.D or 1), f"a solve of {self.N} steps") as reservation:
            x = np.full(self.b.shape, _UNWRITTEN).view(np.float64)
            y = np.full((self.N + 1,) + self.b.shape[2:], _UNWRITTEN).view(np.float64)
            results = (x, y) if carries else (x,)
            arrays = (self.A, self.b) + before + sizes + after + results
            arguments = tuple(address(value) if isinstance(value, np.ndarray) else value for value in arrays)
            foreign = getattr(library, function if self.D is None else function + "_vec")
            status = call(foreign, arguments, self.A.nbytes / _BYTES_PER_SECOND, arrays, reservation)
        if status == native_library.SOLVED:
            if self.finite and not (all_finite(x) and (not carries or all_finite(y))):
                self._refuse_infinite_blocks()
                warnings.warn("the solution overflows", GrowthWarning, stacklevel=3)
            return CarriedSolution(x, y)
        if status != native_library.SINGULAR_BLOCK:
            raise SizeError(f"b: expected sizes N, P, D that the library supports, got {sizes}")
        if self.finite:
            self._refuse_infinite_blocks()
        solved = int(np.argmax((x.view(np.uint64) == _UNWRITTEN).reshape(self.N, -1).any(axis=1)))
        raise SingularBlockError(
            f"the system of step {solved} is singular", solved, x[:solved], y[: solved + 1] if carries else None
        )

    def _refuse_infinite_blocks(self) -> None:
        for n in range(self.N):
            read = self.A[n, :, : n + 1]
            if not all_finite(read):
                i, *rest = (int(place) for place in np.argwhere(~np.isfinite(read))[0])
                raise ValueError(
                    f"A: expected finite numbers where it is read, got {self.A[(n, i, *rest)]} at index "
                    f"{(n, i, *rest)} (check_finite=False accepts it)"
                )
