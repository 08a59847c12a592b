"""Converts g, K and a, which may be arrays, constants or functions of time, to arrays of samples of matching shapes.

The equation is a system of D equations if g has the shape (N, D), if K or a is a matrix, or if y0 is a vector. Then

    g      is an array (N, D), a constant vector (D,), or a number for all components;
    K, a   are arrays (N, D, D), constant matrices (D, D), or scalars, constant or as samples (N,), which mean multiples
           of the identity.
"""

from __future__ import annotations

import inspect
import math
from typing import Any, Callable, NamedTuple, Optional

import numpy as np

from .arguments import Array, all_finite, contiguous, expect_shape, positive_number, real_array, shape_text, sketch
from .errors import SizeError
from .memory_account import refusal
from .native_library import LARGEST_INDEX
from .setting_table import Setting
from .solve_memory import require_samples, reserve_copies, reserve_function_values, reserve_solve

_MISSING_END = "t_end: expected the end of the interval because no argument has samples, got None"

#: An array of samples, a constant, or a function. A function is called with the array of all times and returns the
#: array of its values, with the times along the first axis.
Samples = Any


class Gathered(NamedTuple):
    """Arguments whose number of samples and dimension are known. Constants are not expanded, and K may end early."""

    arrays: dict[str, Array]
    N: int
    #: None for a scalar equation.
    D: Optional[int]
    row: Setting
    kernel_ends: bool

    def spread(self) -> dict[str, Array]:
        """All arguments as arrays of samples of full shape."""
        return {name: self._spread(name, array) for name, array in self.arrays.items()}

    def _spread(self, name: str, array: Array) -> Array:
        N, D = self.N, self.D
        square = () if D is None else (D,) if name == "g" else (D, D)
        shape = (N, *square)
        if array.shape == shape:
            return array
        ends = name == "K" and self.kernel_ends and array.ndim > 0 and len(array) < N
        scalar = array.ndim == 0 or array.shape == (N,) or (ends and array.ndim == 1)
        if not (array.shape == square or (scalar and name != "g") or array.ndim == 0):
            if not (ends and array.shape[1:] == square):
                self._refuse(name, array, shape)
        # Expanding samples of a scalar to matrices needs one more copy.
        copied = 8 * math.prod(shape) * (1 if array.ndim != 1 or D is None else 2)
        with reserve_solve(N, D or 1, self.row, "a" in self.arrays, copied):
            if scalar and D is not None and name != "g":
                array = array[..., np.newaxis, np.newaxis] * np.eye(D)
            if not ends:
                return contiguous(np.broadcast_to(array, shape))
            longer = np.zeros(shape)
            longer[: len(array)] = array
            return longer

    def _refuse(self, name: str, array: Array, shape: tuple[int, ...]) -> None:
        if name == "g":
            raise ValueError(
                f"g: expected an array of shape {shape_text(shape)}, or {shape_text(shape[1:])} for a constant vector, "
                f"because the equation is a system with D = {self.D}, got {shape_text(array.shape)}"
            )
        meaning = "(N,) as for g" if self.D is None else "(N, D, D) for a g of shape (N, D)"
        try:
            expect_shape(name, array, shape, meaning)
        except ValueError as refusal:
            if name == "K" and not self.kernel_ends and array.shape[1:] == shape[1:] and len(array) < self.N:
                raise ValueError(f"{refusal} (with kernel_ends=True, K is zero after its last sample)") from None
            raise


def gather(
    dt: float, values: dict[str, Samples], y0: Any, row: Setting, t_end: Any, kernel_ends: bool, finite: bool
) -> Gathered:
    """Collects g, K and a, samples functions, and finds the number of samples and the dimension."""
    if t_end is None and not kernel_ends:
        ready = _gather_arrays(values, row, finite)
        if ready is not None:
            return ready
    arrays = {name: _finite_array(name, value, finite) for name, value in values.items() if not callable(value)}
    if kernel_ends and ("K" not in arrays or arrays["K"].ndim not in (1, 3)):
        raise ValueError("kernel_ends: expected False because K is not an array of samples, got True")
    # A one-dimensional g is a constant vector if the other arguments belong to a system. For functions this is known
    # only after they have been called.
    constant_g = "g" in arrays and arrays["g"].ndim == 1 and (
        _has_matrices(arrays) or (t_end is not None and (_is_vector(y0) or any(map(callable, values.values()))))
    )
    sampled = {
        name: len(array)
        for name, array in arrays.items()
        if (array.ndim > 0 and not constant_g if name == "g" else array.ndim % 2 == 1)
        and not (name == "K" and kernel_ends)
    }
    if not sampled and t_end is None:
        raise _no_samples(arrays)
    count = _count(dt, sampled, row.spacings, t_end)
    require_samples(count, values, row)
    functions = {name: value for name, value in values.items() if callable(value)}
    for name, function in functions.items():
        arrays[name] = _sample(name, function, dt, count, arrays, len(functions) > 1, finite)
    arrays = {name: arrays[name] for name in values}
    if constant_g and not _has_matrices(arrays) and not _is_vector(y0):
        raise _needless_end("g", t_end)
    return Gathered(arrays, count, _dimension(arrays, constant_g, y0), row, kernel_ends)


def _gather_arrays(values: dict[str, Samples], row: Setting, finite: bool) -> Optional[Gathered]:
    """The fast path: returns the arguments unchanged if all are arrays of samples of matching shapes."""
    g = values["g"]
    shape: tuple[int, ...] = getattr(g, "shape", ())
    if type(g) is not np.ndarray or not (len(shape) == 1 or (len(shape) == 2 and shape[1] > 0)):
        return None
    of_others = shape + shape[1:]
    for name, value in values.items():
        if type(value) is not np.ndarray or (name != "g" and value.shape != of_others):
            return None
    with reserve_copies(values, row):
        arrays = {name: _finite_array(name, value, finite) for name, value in values.items()}
    return Gathered(arrays, shape[0], shape[1] if len(shape) == 2 else None, row, False)


def _has_matrices(arrays: dict[str, Array]) -> bool:
    return any(array.ndim > 1 for name, array in arrays.items() if name != "g")


def _is_vector(y0: Any) -> bool:
    try:
        return np.ndim(y0) == 1
    except Exception:  # not an array of numbers; refused later
        return False


def _dimension(arrays: dict[str, Array], constant_g: bool, y0: Any) -> Optional[int]:
    shapes = {name: array.shape for name, array in arrays.items()}
    g = shapes["g"]
    if len(g) > 2 or (len(g) == 2 and g[1] == 0):
        raise ValueError(
            f"g: expected an array of shape (N,) for a scalar equation, or (N, D) for a system with D above 0; got "
            f"{shape_text(g)}"
        )
    if len(g) == 2:
        return g[1]
    if _has_matrices(arrays):
        name, shape = next((name, shape) for name, shape in shapes.items() if name != "g" and len(shape) > 1)
    elif constant_g:
        name, shape = "g", g
    elif g == () and _is_vector(y0):
        name, shape = "y0", np.shape(y0)
    else:
        return None
    if shape[-1] == 0:
        raise ValueError(f"{name}: expected a system with D above 0, got an array of shape {shape_text(shape)}")
    return shape[-1]


def _needless_end(name: str, t_end: Any) -> ValueError:
    return ValueError(f"t_end: expected None because the samples of {name} determine the end, got {sketch(t_end)}")


def _no_samples(arrays: dict[str, Array]) -> ValueError:
    """The exception if `t_end` is missing. It explains why K or a, and with it g, are not taken for samples."""
    g = arrays["g"].shape if "g" in arrays else ()
    for name, array in arrays.items():
        shape = array.shape
        if name == "g" or not shape:
            continue
        if len(shape) != 2 or shape[0] != shape[1]:
            return ValueError(
                f"{name}: expected samples of shape (N,) or (N, D, D), or a constant matrix of shape (D, D), got "
                f"{shape_text(shape)}{f'; g has shape {shape_text(g)}' if g else ''}"
            )
        if g:
            constants = f"{name} of shape {shape_text(shape)} is a constant matrix, and g of shape {shape_text(g)}"
            return ValueError(f"{_MISSING_END}; {constants} a constant vector")
    return ValueError(_MISSING_END)


def _count(dt: float, sampled: dict[str, int], spacings: int, t_end: Any) -> int:
    """The number of samples: that of the first sampled array, or enough for whole steps that cover 0 to t_end."""
    if sampled:
        name, count = next(iter(sampled.items()))
        if t_end is not None:
            raise _needless_end(name, t_end)
        return count
    length = positive_number("t_end", t_end) / dt
    if length > LARGEST_INDEX - spacings:
        raise SizeError(f"t_end: expected at most {LARGEST_INDEX} spacings dt, got {t_end!r} / {dt!r}")
    # The smallest number of steps that cover 0 to t_end. The factor absorbs rounding errors.
    return math.ceil(length / spacings * (1 - 1e-12)) * spacings + 1


def _sample(
    name: str,
    function: Callable[[Array], Any],
    dt: float,
    count: int,
    arrays: dict[str, Array],
    several: bool,
    finite: bool,
) -> Array:
    """The values of a function at all times. The other arrays determine the dimension, if it is known."""
    # Infinite values are refused with a message, so warnings of NumPy are needed only if they are accepted.
    errors: Any = {"divide": "ignore", "invalid": "ignore"} if finite else {}
    with reserve_function_values(name, count, arrays), np.errstate(**errors):
        try:
            values = function(np.arange(count) * dt)  # a new array, since a function may modify it
        except ZeroDivisionError:
            raise _singular(name, "a division by zero") from None
        except MemoryError as failure:
            raise refusal(0, f"{count} values of the function {name}, which ran out of memory") from failure
        except TypeError as failure:
            if not _takes_one_argument(function):
                raise _needs_more_arguments(name) from failure
            raise ValueError(
                f"{name}: expected a function of an array of times, got one that raises {sketch(failure)} "
                f"(numpy.vectorize converts functions of one number)"
            ) from failure
    array = real_array(name, values, finite=False)
    if array.ndim > 0 and len(array) != count:
        raise ValueError(
            f"{name}: expected a function that returns its values at {count} times along the first axis, "
            f"got an array of shape {shape_text(array.shape)}"
        )
    if finite and not all_finite(array):
        raise _not_finite_in_time(name, array, dt)
    # Several functions may return their values in the same memory.
    shared = several and isinstance(values, np.ndarray) and np.may_share_memory(array, values)
    return array.copy() if shared else array


def _takes_one_argument(function: Callable[..., Any]) -> bool:
    try:
        inspect.signature(function).bind(None)
    except TypeError:
        return False
    except ValueError:  # functions of NumPy and of C have no signature
        pass
    return True


def _needs_more_arguments(name: str) -> ValueError:
    if name == "K":
        return ValueError(
            "K: expected a function of the lag alone, got one that needs more arguments; for K(t, s) use a block solver "
            "such as quenta.solve_blocks_vie2"
        )
    return ValueError(f"{name}: expected a function of time alone, got one that needs more arguments")


def _finite_array(name: str, value: Any, finite: bool) -> Array:
    array = real_array(name, value, finite=False)
    if finite and not all_finite(array):
        constant = array.ndim == 0 or (name != "g" and array.ndim == 2)
        if not constant and len(array) > 1 and np.isinf(array[0]).any() and np.isfinite(array[1:]).all():
            raise _singular(name, f"{array[0][np.isinf(array[0])].flat[0]}" if array.ndim > 1 else f"{array[0]}")
        real_array(name, array, finite)
    return array


def _not_finite_in_time(name: str, array: Array, dt: float) -> ValueError:
    """The exception for a function with values that are not finite."""
    values = array.reshape(max(len(np.atleast_1d(array)), 1), -1)
    finite = np.isfinite(values).all(axis=1)
    first = int(np.argmin(finite))
    value = float(values[first][~np.isfinite(values[first])][0])
    if first == 0 and len(values) > 1 and finite[1:].all() and math.isinf(value):
        return _singular(name, str(value))
    return ValueError(
        f"{name}: expected a function that is finite from 0 to the end of the last step, {(len(values) - 1) * dt!r}, "
        f"got {value} at t = {first * dt!r} (check_finite=False accepts it)"
    )


def _singular(name: str, value: str) -> ValueError:
    what = "a singular kernel" if name == "K" else "a function that is singular at 0"
    return ValueError(
        f"{name}: expected a finite value at t = 0, got {value}: {what} cannot be sampled there; integrate it exactly "
        f"in the blocks of a collocation scheme, and use a block solver such as quenta.solve_blocks_vie2"
    )
