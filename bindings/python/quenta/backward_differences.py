"""A second solution of a sampled problem, which uses all samples: the backward differentiation formula of order 6.

The formula

    sum over k = 0 .. 6 of alpha[k] F(t_{n-k}) = dt f(t_n)

gives F from its derivative f. With the first 6 values of F known, it becomes a quadrature rule: the integral of f from
0 to t_n is dt times the sum of weights[n-j] f(t_j) over j = 6 .. n and of start_weights[n, j] f(t_j) over j = 0 .. 5.
Such rules are stable for all three kinds of equation, also for the first kind and for stiff equations (P. H. M.
Wolkenfelt, The construction of reducible quadrature rules for Volterra integral and integro-differential equations,
IMA Journal of Numerical Analysis 2, 1982, pages 131 to 152).

The weights depend only on the lag n - j. They are multiplied into the kernel, and the library solves the equation with
the setting (1, [1]), whose quadrature rule has the weight 1 at every sample.
"""

from __future__ import annotations

from functools import lru_cache
from typing import Any, Callable

import numpy as np

from .arguments import Array
from .sampled_solvers import SampledProblem
from .setting_table import find_setting

ORDER = 6
#: The smallest number of samples.
LEAST = ORDER + 1
# The weights converge like 0.87^lag. For larger lags than this the last weight is used.
_LAGS = 300


def solve_all_samples(problem: SampledProblem) -> Array:
    """The solution at all samples, of the shape of `problem.g`.

    Raises numpy.linalg.LinAlgError or SingularBlockError if a system is singular.
    """
    N, D, dt = len(problem.g), problem.D or 1, problem.dt
    g, K = problem.g.reshape(N, D), problem.K.reshape(N, D, D)
    a = None if problem.a is None else problem.a.reshape(N, D, D)
    first = _first_values(problem.form, g, K, a, np.reshape(problem.y0, -1), dt)

    # Sample 0 of the solver is the last of the first values. The solver computes its samples 1, 2, ...
    count = N - ORDER + 1
    alpha, weights, start_weights = _formula()
    weighted = K[:count] * _continued(weights, count)[:, np.newaxis, np.newaxis]
    known = np.zeros((count, D))
    for j in range(ORDER):
        products = K[ORDER - j : N - j] @ first[j]
        known[1:] += dt * _continued(start_weights[ORDER:, j], count - 1)[:, np.newaxis] * products
    if a is not None:
        # The solver approximates the derivative by (y_n - y_{n-1}) / dt. The other terms of the formula are added to
        # the kernel.
        excess = alpha.copy()
        excess[:2] -= 1.0, -1.0
        lags = min(ORDER + 1, count)
        weighted[:lags] -= (excess[:lags] / dt**2)[:, np.newaxis, np.newaxis] * np.eye(D)
        for k in range(1, ORDER + 1):
            reached = first[ORDER - k :][: count - 1]
            known[1 : 1 + len(reached)] -= alpha[k] / dt * reached
        a = np.ascontiguousarray(a[ORDER - 1 :])
    first_kind = problem.form.startswith("vie1")
    solution = problem._replace(
        form="vie1" if first_kind else problem.form,
        g=g[ORDER - 1 :] - known if first_kind else g[ORDER - 1 :] + known,
        K=weighted,
        a=a,
        y0=np.zeros(D),
        D=D,
        setting=find_setting((1, (1,))),
    ).solve()
    later: Array = solution.polynomials[:, 0] if a is None else solution.y[1:]
    everywhere: Array = np.concatenate([first, later]).reshape(problem.g.shape)
    return everywhere


def _first_values(form: str, g: Array, K: Array, a: Any, y0: Array, dt: float) -> Array:
    """The first 6 values, by collocation: the solution, or its derivative, is a polynomial of degree 5.

    The equation is imposed at the first 6 samples. At time 0 an equation of the first kind contains no unknown, so it
    is imposed at the 6 samples after it.
    """
    D = g.shape[1]
    memory = dt * np.einsum("nkl,kij->nilj", _products(), K[: ORDER + 1])  # acts on values at the first 6 samples
    identity = np.einsum("nl,ij->nilj", np.eye(ORDER), np.eye(D))
    if form.startswith("vie1"):
        return _solution(memory[1:], g[1 : ORDER + 1])
    if form == "vie2":
        return _solution(identity - memory[:ORDER], g[:ORDER])
    # y' = g + right y, with y = y0 + integral of y'
    right = memory[:ORDER] + np.einsum("nl,nij->nilj", np.eye(ORDER), a[:ORDER])
    integral = dt * _formula()[2][:ORDER]
    slopes = _solution(
        identity - np.einsum("nimj,ml->nilj", right, integral), g[:ORDER] + np.einsum("nilj,j->ni", right, y0)
    )
    return y0 + integral @ slopes


def _solution(matrix: Array, right: Array) -> Array:
    """Solves a system whose unknowns are vectors at samples: matrix[n, i, l, j] multiplies component j at sample l."""
    return np.linalg.solve(matrix.reshape(right.size, right.size), right.ravel()).reshape(right.shape)


# ---- Constants of the formula, in units of dt -----------------------------------------------------------------------


@lru_cache(maxsize=None)
def _formula() -> tuple[Array, Array, Array]:
    """alpha, weights[lag] and start_weights[n, j]. For larger lags and n than computed, the last row applies."""
    # alpha: the coefficients of the sum of (1 - x)^j / j over j = 1 .. 6.
    alpha, power = np.zeros(ORDER + 1), np.ones(1)
    for j in range(1, ORDER + 1):
        power = np.convolve(power, [1.0, -1.0])
        alpha[: j + 1] += power / j
    # Column j: the integrals of the function that is 1 at sample j and 0 at all others.
    integrals = np.zeros((ORDER + _LAGS, ORDER + 1))
    integrals[:ORDER, :ORDER] = [_integral(n, lambda s: [p(s) for p in _lagrange(ORDER)]) for n in range(ORDER)]
    for n in range(ORDER, len(integrals)):
        before = integrals[n - ORDER : n][::-1]
        integrals[n] = -alpha[1:] @ before / alpha[0]
        if n == ORDER:
            integrals[n, ORDER] += 1 / alpha[0]
    return alpha, integrals[ORDER:, ORDER], integrals[:, :ORDER]


def _continued(weights: Array, count: int) -> Array:
    return np.append(weights, np.full(max(count - len(weights), 0), weights[-1]))[:count]


@lru_cache(maxsize=None)
def _products() -> Array:
    """[n, k, l]: the integral from 0 to n of L_k(n - s) M_l(s), with L on the nodes 0 .. 6 and M on 0 .. 5."""

    def product(n: int) -> Any:
        return _integral(n, lambda s: [[p(n - s) * q(s) for q in _lagrange(ORDER)] for p in _lagrange(ORDER + 1)])

    return np.array([product(n) for n in range(ORDER + 1)])


def _lagrange(count: int) -> list[Any]:
    """The Lagrange polynomials on the nodes 0 .. count - 1."""
    products = [np.poly1d([node for node in range(count) if node != k], r=True) for k in range(count)]
    return [product / product(k) for k, product in enumerate(products)]


def _integral(end: int, polynomials: Callable[[Array], Any]) -> Any:
    """The integrals of polynomials from 0 to end, by Gauss quadrature; exact up to degree 13."""
    nodes, weights = np.polynomial.legendre.leggauss(ORDER + 1)  # type: ignore[no-untyped-call]
    return (np.array(polynomials((nodes + 1) * end / 2)) * weights).sum(axis=-1) * end / 2
