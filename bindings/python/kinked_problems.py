"""Problems of limited smoothness with known solutions, for `measure_settings.py`.

y, K and a are sums of smooth functions and of waves that start at random times. A wave is t^p exp(-rate t) / p! for
t >= 0 and 0 for t < 0: its derivative of order p jumps at 0. Complex rates result in cosines and sines.
"""

from __future__ import annotations

import functools
import random
from typing import Any, NamedTuple

import numpy as np

END = 10.0
PROBLEMS = 8  # per kind and smoothness; the best setting differs between problems


class Wave(NamedTuple):
    height: complex
    power: int
    rate: complex
    start: float


class Samples(NamedTuple):
    y: Any
    g: Any
    K: Any
    a: Any


@functools.lru_cache(maxsize=None)
def samples(kind: str, smoothness: int, number: int, count: int) -> Samples:
    """`count` samples on 0 .. END of problem `number`, whose g, K and a have `smoothness` continuous derivatives."""
    random_numbers = random.Random(1000 * smoothness + number)
    uniform = random_numbers.uniform
    # For a g of this smoothness: equations of the first kind integrate y, integro-differential ones differentiate it.
    power = smoothness + {"vie1": 0, "vie2": 1, "vide": 2}[kind]
    t = np.linspace(0, END, count)
    y = [Wave(1, 0, 0, 0), Wave(-1j, 0, -1j * uniform(0.5, 2), 0)]  # 1 + sin
    y += [Wave(uniform(-2, 2), power, 0.5, uniform(0, END)) for _ in range(3)]
    K = [Wave(random_numbers.choice((-1, 1)), 0, 1, 0), Wave(uniform(-0.5, 0.5), smoothness + 1, 1, uniform(0, END))]
    a = [Wave(uniform(-1, 1), smoothness + 1, 1, uniform(0, END)) for _ in range(2)]

    solution, memory = _values(y, t), _convolution(y, K, t)
    coefficient = -1 - t / 10 + _values(a, t)
    if kind == "vie1":
        g = memory
    elif kind == "vie2":
        g = solution - memory
    else:
        g = _slopes(y, t) - coefficient * solution - memory
    return Samples(solution, g, _values(K, t), coefficient)


def _wave(power: int, rate: complex, t: Any) -> Any:
    t_past = np.maximum(t, 0.0)
    value = np.where(t >= 0, np.exp(-rate * t_past), 0)
    for factor in range(1, power + 1):
        value = value * t_past / factor
    return value


def _values(waves: list[Wave], t: Any) -> Any:
    return sum(wave.height * _wave(wave.power, wave.rate, t - wave.start) for wave in waves).real


def _slopes(waves: list[Wave], t: Any) -> Any:
    slopes = 0
    for height, power, rate, start in waves:
        slopes = slopes - height * rate * _wave(power, rate, t - start)
        if power > 0:
            slopes = slopes + height * _wave(power - 1, rate, t - start)
    return np.real(slopes)


def _convolution(waves: list[Wave], others: list[Wave], t: Any) -> Any:
    """The convolution of two sums of waves."""
    total = sum(
        one.height * other.height * _convolved(one, other, t - one.start - other.start)
        for one in waves
        for other in others
    )
    return np.real(total)


def _convolved(one: Wave, other: Wave, t: Any) -> Any:
    """The convolution of two waves, by partial fractions of the Laplace transforms

        F(p, q) = 1 / ((z + one.rate)^p (z + other.rate)^q) = (F(p-1, q) - F(p, q-1)) / (one.rate - other.rate).
    """
    row = [0 * t] + [_wave(q, other.rate, t) for q in range(other.power + 1)]
    for p in range(one.power + 1):
        row[0] = _wave(p, one.rate, t)
        for q in range(1, other.power + 2):
            row[q] = (row[q] - row[q - 1]) / (one.rate - other.rate)
    return row[-1]
