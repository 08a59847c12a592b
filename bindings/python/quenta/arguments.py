"""Converts arguments to the types that the library takes: contiguous arrays of doubles of the right shape.

Arrays that already have this form are not copied.
"""

from __future__ import annotations

import ctypes
import math
import operator
from typing import TYPE_CHECKING, Any, Optional, Union

import numpy as np

from .memory_account import refusal, reserve

if TYPE_CHECKING:  # numpy.typing.NDArray needs NumPy 1.21; the package supports 1.19
    from numpy.typing import NDArray

    Array = NDArray[np.float64]
else:
    Array = np.ndarray

_DOUBLE = np.dtype(np.float64)


def shape_text(shape: tuple[Union[int, str], ...]) -> str:
    """A shape as Python writes a tuple, such as (3, 2) or (N, D)."""
    return "(" + ", ".join(map(str, shape)) + ("," if len(shape) == 1 else "") + ")"


def real_array(name: str, value: Any, finite: bool) -> Array:
    """A contiguous array of doubles: the argument itself if it is one, otherwise a copy."""
    if type(value) is np.ndarray and value.dtype is _DOUBLE and value.flags.c_contiguous and value.flags.aligned:
        array = value
    else:
        array = _converted(name, value)
    if finite and not all_finite(array):
        raise _not_finite(name, array)
    return array


def size_of_copy(array: Any) -> int:
    """The bytes of the copy that `real_array` makes of an array, or 0 if it makes none."""
    plain = array.dtype is _DOUBLE and array.flags.c_contiguous and array.flags.aligned
    return 0 if plain else _DOUBLE.itemsize * int(array.size)


# Numbers checked at once. Temporary arrays stay small, and the part stays in the cache.
_PART = 2**13


def all_finite(array: Array) -> bool:
    if array.size > _PART:
        flat = array.reshape(-1)
        return all(all_finite(flat[first : first + _PART]) for first in range(0, flat.size, _PART))
    # The sum of squares is cheap to compute, and finite only if all numbers are.
    return math.isfinite(np.vdot(array, array)) or bool(np.isfinite(array).all())


def address(array: Array) -> int:
    """The address of the first element of a contiguous array."""
    try:
        return ctypes.addressof(ctypes.c_char.from_buffer(array))  # type: ignore[arg-type]
    except (TypeError, ValueError):  # read-only, or empty
        return array.ctypes.data


def _converted(name: str, value: Any) -> Array:
    if isinstance(value, np.ma.MaskedArray) and np.ma.getmaskarray(value).any():  # type: ignore[no-untyped-call]
        raise ValueError(f"{name}: expected numbers everywhere, got an array with masked elements")
    try:
        array = np.asarray(value)
        # Nullable types of pandas. Strings are excluded, since pandas would convert them.
        if array.dtype.kind == "O" and hasattr(value, "to_numpy") and _may_be_numbers(array):
            array = np.asarray(value.to_numpy(dtype=_DOUBLE, na_value=np.nan))
    except MemoryError as failure:
        raise refusal(0, f"{name} as an array") from failure
    except Exception as failure:  # from NumPy, or from a conversion method of the value
        reason = " ".join(str(failure).split())
        raise ValueError(f"{name}: expected an array of real numbers, got {sketch(value)} ({reason})") from None
    if array.dtype.kind not in "biuf":
        raise ValueError(f"{name}: expected an array of real numbers, got {sketch(value)} of dtype {array.dtype}")
    with reserve(size_of_copy(array), f"a copy of {name}"), np.errstate(over="ignore"):
        return contiguous(array)


def _may_be_numbers(array: Any) -> bool:
    return not any(isinstance(item, (str, bytes)) for item in array.flat)


# Numbers copied at once, in some hundredths of a second. Signals are handled between the parts.
_COPIED_AT_ONCE = 2**24


def contiguous(array: Any) -> Array:
    """The array as contiguous doubles: itself if possible, otherwise a copy."""
    if array.size <= _COPIED_AT_ONCE or not size_of_copy(array):
        return np.require(array, _DOUBLE, ["C", "A"])
    copy = np.empty(array.shape)
    rows = max(1, _COPIED_AT_ONCE * len(array) // array.size)
    for first in range(0, len(array), rows):
        copy[first : first + rows] = array[first : first + rows]
    return copy


def _not_finite(name: str, array: Array) -> ValueError:
    flat = array.reshape(-1)
    first = next(first for first in range(0, flat.size, _PART) if not all_finite(flat[first : first + _PART]))
    index = first + int(np.argmin(np.isfinite(flat[first : first + _PART])))
    place = tuple(int(i) for i in np.unravel_index(index, array.shape))
    where = f" at index {place[0] if len(place) == 1 else place}" if place else ""
    return ValueError(f"{name}: expected finite numbers, got {array[place]}{where} (check_finite=False accepts it)")


def sketch(value: Any) -> str:
    """A short text for a value, on one line, for messages."""
    try:
        text = " ".join(repr(value).split())
    except Exception:
        text = f"an object of type {type(value).__name__} that cannot be shown"
    return text if len(text) <= 60 else f"{text[:50]} ... ({type(value).__name__})"


def real_number(name: str, value: Any, finite: bool = True) -> float:
    """The value as a float. Arrays without dimensions are accepted."""
    if type(value) is float:
        number = value
    else:
        try:
            if isinstance(value, (str, bytes)) or np.ndim(value) != 0 or np.iscomplexobj(value):
                raise TypeError
            number = float(value)
        except Exception:  # includes those from a conversion method of the value
            raise ValueError(f"{name}: expected a real number, got {sketch(value)}") from None
    if finite and not math.isfinite(number):
        raise ValueError(f"{name}: expected a finite number, got {number}")
    return number


def true_or_false(name: str, value: Any) -> bool:
    """The value as a bool. Only True, False, 1 and 0 are accepted: the text "False" would otherwise count as true."""
    if not isinstance(value, (bool, np.bool_)) and not (isinstance(value, int) and value in (0, 1)):
        raise ValueError(f"{name}: expected True or False, got {sketch(value)}")
    return bool(value)


def one_of(name: str, value: Any, choices: tuple[str, ...]) -> str:
    if not isinstance(value, str) or value not in choices:
        *most, last = map(repr, choices)
        raise ValueError(f"{name}: expected {', '.join(most)} or {last}, got {sketch(value)}")
    return value


def whole_number(name: str, value: Any, least: int) -> int:
    try:
        number = operator.index(value)
    except TypeError:
        raise ValueError(f"{name}: expected an integer, got {sketch(value)}") from None
    if number < least:
        raise ValueError(f"{name}: expected an integer of at least {least}, got {number}")
    return number


def positive_number(name: str, value: Any) -> float:
    number = real_number(name, value)
    if number <= 0:
        raise ValueError(f"{name}: expected a positive number, got {number}")
    return number


def expect_shape(name: str, array: Array, shape: tuple[int, ...], meaning: str) -> None:
    if array.shape != shape:
        raise ValueError(
            f"{name}: expected an array of shape {shape_text(shape)}, that is {meaning}, got {shape_text(array.shape)}"
        )


def initial_value(name: str, value: Any, dimension: Optional[int], finite: bool) -> Union[float, Array]:
    """A number for a scalar equation, an array of shape (D,) for a system. There a number applies to all components."""
    if dimension is None:
        return real_number(name, value, finite)
    array = real_array(name, value, finite)
    if array.ndim == 0:
        return np.full(dimension, float(array))
    expect_shape(name, array, (dimension,), "(D,)")
    return array
