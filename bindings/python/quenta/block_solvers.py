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

    x
        Values at the points, an array of shape (N, P) or (N, P, D).
    y
        Carried values at the ends of the steps, an array of shape (N + 1,) or (N + 1, D); y[0] is y0.
    """

    x: Array
    y: Array


def solve_blocks_vie1(A: Any, b: Any, *, check_finite: bool = True) -> Array:
    """Solves a scheme of the first kind: sum over k = 0 .. n of A[n, :, k] x[k] = b[n] for n = 0 .. N-1.

    Shapes: A (N, P, N, P) and b (N, P); for a system A (N, P, N, P, D, D) and b (N, P, D). Returns x, shaped like b.

    Raises `SingularBlockError` if the system of a step is singular, `SizeError` if N, P or D is out of range, and
    `ValueError` for any other invalid argument. With `check_finite`, NaN and infinity are refused where they are read,
    and a solution that overflows causes a `GrowthWarning`.
    """
    return _Blocks(A, b, 0, check_finite).solve("function_solve_vie1", (), (), False).x


def solve_blocks_vie2(A: Any, b: Any, *, check_finite: bool = True) -> Array:
    """Solves a scheme of the second kind: x[n] = b[n] + sum over k = 0 .. n of A[n, :, k] x[k] for n = 0 .. N-1.

    Shapes: A (N, P, N, P) and b (N, P); for a system A (N, P, N, P, D, D) and b (N, P, D). Returns x, shaped like b.

    Raises `SingularBlockError` if the system of a step is singular, `SizeError` if N, P or D is out of range, and
    `ValueError` for any other invalid argument. With `check_finite`, NaN and infinity are refused where they are read,
    and a solution that overflows causes a `GrowthWarning`.
    """
    return _Blocks(A, b, 0, check_finite).solve("function_solve_vie2", (), (), False).x


def solve_blocks_vie1_cont(
    A: Any, b: Any, w: Any, rho: float, y0: Any, *, check_finite: bool = True
) -> CarriedSolution:
    """Solves a scheme of the first kind that carries a value from step to step: for n = 0 .. N-1

        sum over k = 0 .. n of (A[n, :, k, :P] x[k] + A[n, :, k, P] y[k]) = b[n],
        y[n+1] = rho y[n] + sum over j of w[j] x[n, j],    y[0] = y0.

    Shapes: A (N, P, N, P + 1), b (N, P), w (P,) and a number y0; for a system A (N, P, N, P + 1, D, D), b (N, P, D),
    w (P,) and y0 (D,). Returns a `CarriedSolution`: x with the shape of b, and y with the shape (N + 1,) or (N + 1, D).

    Raises `SingularBlockError` if the system of a step is singular, `SizeError` if N, P or D is out of range, and
    `ValueError` for any other invalid argument. With `check_finite`, NaN and infinity are refused where they are read,
    and a solution that overflows causes a `GrowthWarning`.
    """
    blocks = _Blocks(A, b, 1, check_finite)
    weights = blocks.array("w", w, (blocks.P,), "(P,)")
    rho = real_number("rho", rho, blocks.finite)
    return blocks.solve("function_solve_vie1_cont", (), (weights, rho, blocks.initial(y0)), True)


def solve_blocks_vide(
    A: Any, b: Any, C: Any, E: Any, w: Any, h: Any, y0: Any, *, check_finite: bool = True
) -> CarriedSolution:
    """Solves a scheme of an integro-differential equation. The unknowns x are derivatives. For n = 0 .. N-1

        x[n, i] = b[n, i] + C[n, i] (y[n] + h[n] sum over j of E[i, j] x[n, j])
                  + sum over k = 0 .. n of (A[n, i, k, P] y[k] + h[k] sum over j of A[n, i, k, j] x[k, j]),
        y[n+1] = y[n] + h[n] sum over j of w[j] x[n, j],    y[0] = y0.

    Shapes: A (N, P, N, P + 1), b and C (N, P), E (P, P), w (P,), h (N,) and a number y0; for a system
    A (N, P, N, P + 1, D, D), b (N, P, D), C (N, P, D, D) and y0 (D,). Returns a `CarriedSolution`: x with the shape of
    b, and y with the shape (N + 1,) or (N + 1, D).

    Raises `SingularBlockError` if the system of a step is singular, `SizeError` if N, P or D is out of range, and
    `ValueError` for any other invalid argument. With `check_finite`, NaN and infinity are refused where they are read,
    and a solution that overflows causes a `GrowthWarning`.
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
