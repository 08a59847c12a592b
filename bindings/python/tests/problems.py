"""Scalar problems and systems with known solutions. The basic one has y = 1 + sin t and the kernel exp(-t)."""

import math

import numpy as np

import quenta


def grid(spacings, end=10.0):
    return end * np.arange(spacings + 1) / spacings


def largest_error(solved, exact):
    return abs(solved.y - exact[: len(solved.y)]).max()


def solution(t):
    return 1 + np.sin(t)


def memory(t):
    """The integral from 0 to t of exp(s - t) y(s) ds."""
    return 1 - np.exp(-t) + (np.sin(t) - np.cos(t) + np.exp(-t)) / 2


def kernel(t):
    return np.exp(-t)


def coefficient(t):
    return -1 - t / 10


def forcing(kind, t):
    if kind == "vie1":
        return memory(t)
    if kind == "vie2":
        return solution(t) - memory(t)
    return np.cos(t) - coefficient(t) * solution(t) - memory(t)


def arguments(kind, t):
    """The positional arguments of the solver of this kind, except dt."""
    if kind == "vide":
        return forcing(kind, t), kernel(t), coefficient(t), 1.0
    return forcing(kind, t), kernel(t)


def kinked_arguments(kind, t, smoothness, random):
    """The arguments and the solution of a problem of limited smoothness.

    The kernel is exp(-t) or its negative. The derivative of order smoothness + 1 of g and a jumps at random times.
    """
    sign = random.choice([-1, 1])
    rate, power = random.uniform(0.5, 2), smoothness + {"vie1": 0, "vie2": 1, "vide": 2}[kind]
    wave = (np.sin(rate * t) - rate * np.cos(rate * t) + rate * np.exp(-t)) / (1 + rate**2)
    y, slope, integral, a = 1 + np.sin(rate * t), rate * np.cos(rate * t), 1 - np.exp(-t) + wave, coefficient(t)
    for _ in range(4):
        height, past = random.uniform(-2, 2), t - random.uniform(0, 10)
        y = y + height * _fading_power(past, power)
        slope = slope + height * (_fading_power(past, power - 1) - _fading_power(past, power))
        integral = integral + height * _fading_power(past, power + 1)
        a = a + random.uniform(-1, 1) * _fading_power(t - random.uniform(0, 10), smoothness + 1)
    K, integral = sign * kernel(t), sign * integral
    if kind == "vie1":
        return (integral, K), y
    if kind == "vie2":
        return (y - integral, K), y
    return (slope - a * y - integral, K, a, y[0]), y


def _fading_power(t, power):
    """t^power exp(-t) / power! for t >= 0, and 0 for t < 0."""
    t_past = np.maximum(t, 0)
    return np.where(t >= 0, t_past ** max(power, 0) * np.exp(-t_past) / math.factorial(max(power, 0)), 0)


def coupled_arguments(kind, t, D):
    """The arguments and the solution of a system: D multiples of the scalar problem, mixed by a constant matrix."""
    mix = np.eye(D) + 0.1 * np.arange(D * D).reshape(D, D) / (D * D)
    back = np.linalg.inv(mix)
    scales = np.arange(1.0, D + 1)
    y = mix @ (scales[:, None] * solution(t))
    g = (mix @ (scales[:, None] * forcing(kind, t))).T
    K = kernel(t)[:, None, None] * (mix @ back)
    a = coefficient(t)[:, None, None] * (mix @ back)
    given = (g, K, a, y[:, 0]) if kind == "vide" else (g, K)
    return given, y.T


SOLVERS = {"vie1": quenta.solve_vie1, "vie2": quenta.solve_vie2, "vide": quenta.solve_vide}
KINDS = list(SOLVERS)
