"""Problems with known solutions: y = 1 + sin t for the kernel exp(-t), alone and in systems."""

import numpy as np

import quenta


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
    """The positional arguments of the solver of this kind, without dt."""
    if kind == "vide":
        return forcing(kind, t), kernel(t), coefficient(t), 1.0
    return forcing(kind, t), kernel(t)


def coupled_arguments(kind, t, D):
    """The scalar problem in D components that a constant matrix has mixed; and the mixed solution."""
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
