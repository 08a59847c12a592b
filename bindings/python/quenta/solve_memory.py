"""The memory and the time of a sample-based solve."""

from __future__ import annotations

import math
from typing import Any

from .arguments import size_of_copy
from .memory_account import NOTHING, SMALL, Reservation, require_memory, reserve
from .setting_table import Setting

# How many temporary arrays a function of time creates is unknown. These numbers are assumed: arrays of the size of the
# times, and arrays of the size of the result, including the result.
_ARRAYS_OF_TIMES, _ARRAYS_OF_VALUES = 4, 3


def solve_size(N: int, D: int, row: Setting, differential: bool) -> int:
    """An upper bound of the bytes that a solve allocates. The vectors are those in the header of the library."""
    n, steps = row.count * D, (N - 1) // row.spacings
    results = N * D + steps * (n + D)
    vectors = steps * (14 * n + 14 * D if differential else 11 * n + D + 8)
    matrices = 4 * n * (n + D + 2) + history_blocks(steps, n, n + D if differential else n)
    return 8 * (results + vectors + matrices)


def history_blocks(n: int, p: int, q: int) -> int:
    """The doubles that the history of n steps allocates for blocks of p rows and q columns, transforms and copies."""
    blocks = n * p * q
    # Transformed blocks, for transforms of 64, 128, ... points while they fit their budget.
    transformed = 0
    points = 64
    while points // 2 + 32 <= n and transformed + 2 * points * p * q <= 2 * blocks:
        transformed += 2 * points * p * q
        points *= 2
    # Padded copies by columns of a quarter of the blocks, at most 32.
    copies = 0 if n < 2 or p * q == 1 else min(max(n // 4, 1), 32)
    return blocks + transformed + copies * q * (4 if p <= 4 else -(-p // 8) * 8)


def solve_seconds(N: int, D: int, row: Setting, differential: bool) -> float:
    """The approximate duration of a solve: the history, and one dense system, or one per step with a coefficient a."""
    n, steps = row.count * D, (N - 1) // row.spacings
    return 1e-9 * n * n * (1.5 * steps * math.log2(steps + 1) ** 2 + n * (steps if differential else 1))


def reserve_solve(N: int, D: int, row: Setting, differential: bool, copied: int = 0) -> Reservation:
    """Reserves the memory of a solve, plus `copied` bytes for copies of its arguments."""
    size = copied + solve_size(N, D, row, differential)
    if size < SMALL:
        return NOTHING
    copies = ", with copies of its arguments" if copied else ""
    return reserve(size, f"a solve of {(N - 1) // row.spacings} steps with setting {row}, D = {D}{copies}")


def reserve_copies(arrays: dict[str, Any], row: Setting) -> Reservation:
    """Reserves the memory for converted copies of the arrays, plus that of the solve."""
    copied = sum(map(size_of_copy, arrays.values())) if arrays["K"].size >= SMALL // 64 else 0
    if not copied:
        return NOTHING
    N, D = (*arrays["g"].shape, 1)[:2]
    return reserve_solve(N, D, row, "a" in arrays, copied)


def require_samples(count: int, values: dict[str, Any], row: Setting) -> None:
    """Waits until memory suffices for this number of samples and for a scalar solve with them."""
    size = 8 * count * (_ARRAYS_OF_TIMES + len(values) + _ARRAYS_OF_VALUES)
    require_memory(size + solve_size(count, 1, row, "a" in values), f"{count} samples")


def reserve_function_values(name: str, count: int, arrays: dict[str, Any]) -> Reservation:
    """Reserves memory for a function that computes `count` values of g, K or a. The arrays give the dimension."""
    D = max((array.shape[-1] for array in arrays.values() if array.ndim > 1), default=1)
    size = _ARRAYS_OF_TIMES + _ARRAYS_OF_VALUES * (D if name == "g" else D * D)
    return reserve(8 * count * size, f"{count} values of the function {name}", for_function=True)
