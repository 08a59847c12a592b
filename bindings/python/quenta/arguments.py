"""What users pass, turned into what the library takes: contiguous arrays of doubles of the right shape.

Arrays that are so already are passed as they are; nothing is copied.
"""

from __future__ import annotations

import ctypes
import math
import operator
from typing import TYPE_CHECKING, Any, Optional, Union

import numpy as np

from .machine_memory import require_memory

if TYPE_CHECKING:  # NumPy knows the types of elements since 1.21, which Python 3.9 need not have
    from numpy.typing import NDArray

    Array = NDArray[np.float64]
else:
    Array = np.ndarray

_DOUBLE = np.dtype(np.float64)


def shape_text(shape: tuple[Union[int, str], ...]) -> str:
    """(3, 2) or (N, D), as Python writes it."""
    return "(" + ", ".join(map(str, shape)) + ("," if len(shape) == 1 else "") + ")"


def real_array(name: str, value: Any, finite: bool) -> Array:
    """A contiguous array of doubles, the argument itself where it is one."""
    if type(value) is np.ndarray and value.dtype is _DOUBLE and value.flags.c_contiguous and value.flags.aligned:
        array = value
    else:
        array = _converted(name, value)
    if finite and not all_finite(array):
        raise _not_finite(name, array)
    return array


def all_finite(array: Array) -> bool:
    # The sum of squares is cheap, and finite only if every number is.
    return math.isfinite(np.vdot(array, array)) or bool(np.isfinite(array).all())


def address(array: Array) -> int:
    """Where a contiguous array begins."""
    try:
        return ctypes.addressof(ctypes.c_char.from_buffer(array))  # type: ignore[arg-type]
    except (TypeError, ValueError):  # read-only, or empty
        return array.ctypes.data


def _converted(name: str, value: Any) -> Array:
    if isinstance(value, np.ma.MaskedArray) and np.ma.getmaskarray(value).any():  # type: ignore[no-untyped-call]
        raise ValueError(f"{name}: expected numbers everywhere, came an array with masked elements")
    try:
        array = np.asarray(value)
    except ValueError as failure:
        raise ValueError(f"{name}: expected an array of real numbers, came {_sketch(value)} ({failure})") from None
    if array.dtype.kind not in "biuf":
        raise ValueError(f"{name}: expected an array of real numbers, came {_sketch(value)} of dtype {array.dtype}")
    require_memory(array.size * _DOUBLE.itemsize, f"a copy of {name}")
    with np.errstate(over="ignore"):
        return np.require(array, _DOUBLE, ["C", "A"])


def _not_finite(name: str, array: Array) -> ValueError:
    place = tuple(int(i) for i in np.argwhere(~np.isfinite(array))[0])
    where = f" at index {place[0] if len(place) == 1 else place}" if place else ""
    return ValueError(f"{name}: expected finite numbers, came {array[place]}{where} (check_finite=False lets it pass)")


def _sketch(value: Any) -> str:
    text = repr(value)
    return text if len(text) <= 60 else f"{text[:50]} ... ({type(value).__name__})"


def real_number(name: str, value: Any, finite: bool = True) -> float:
    """A number, also one in an array without dimensions."""
    if type(value) is float:
        number = value
    else:
        try:
            if isinstance(value, (str, bytes)) or np.ndim(value) != 0:
                raise TypeError
            number = float(value)
        except (TypeError, ValueError, OverflowError):
            raise ValueError(f"{name}: expected a real number, came {_sketch(value)}") from None
    if finite and not math.isfinite(number):
        raise ValueError(f"{name}: expected a finite number, came {number}")
    return number


def whole_number(name: str, value: Any, least: int) -> int:
    try:
        number = operator.index(value)
    except TypeError:
        raise ValueError(f"{name}: expected a whole number, came {_sketch(value)}") from None
    if number < least:
        raise ValueError(f"{name}: expected a number from {least} on, came {number}")
    return number


def flag(name: str, value: Any) -> bool:
    """True or False, or 1 or 0. Nothing else: an array has no truth value, and the text "False" would count as true."""
    if isinstance(value, (bool, np.bool_)) or (isinstance(value, int) and value in (0, 1)):
        return bool(value)
    raise ValueError(f"{name}: expected True or False, got {_sketch(value)}")


def positive_number(name: str, value: Any) -> float:
    number = real_number(name, value)
    if number <= 0:
        raise ValueError(f"{name}: expected a number above 0, came {number}")
    return number


def expect_shape(name: str, array: Array, shape: tuple[int, ...], meaning: Optional[str] = None) -> None:
    if array.shape != shape:
        text = shape_text(shape) + (f", that is {meaning}," if meaning else "")
        raise ValueError(f"{name}: expected an array of shape {text} came {shape_text(array.shape)}")


def initial_value(name: str, value: Any, dimension: Optional[int], finite: bool) -> Union[float, Array]:
    """A number for a scalar equation, an array of shape (D,) for a system."""
    if dimension is None:
        return real_number(name, value, finite)
    array = real_array(name, value, finite)
    expect_shape(name, array, (dimension,), "(D,)")
    return array
