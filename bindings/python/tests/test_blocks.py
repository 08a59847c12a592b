"""The block solvers solve the dense systems of their equations, and do not read blocks above the diagonal."""

import numpy as np
import pytest

import quenta

SHAPES = [(1, 1, None), (4, 3, None), (30, 5, None), (1, 1, 1), (4, 2, 3), (6, 5, 8)]


class Problem:
    """Random well-conditioned blocks, also as dense matrices. The blocks above the diagonal are NaN."""

    def __init__(self, N, P, D, carried):
        self.N, self.P, self.D, d = N, P, D, D or 1
        random = np.random.default_rng(N * 100 + P * 10 + d)
        slots = P + carried
        self.A = random.normal(size=(N, P, N, slots, d, d)) / (N * P * d)
        for n in range(N):
            self.A[n, :, n + 1 :] = np.nan
        self.b = random.normal(size=(N, P, d))
        self.C = random.normal(size=(N, P, d, d)) / d
        self.E, self.w = random.uniform(size=(P, P)) / P, random.uniform(size=P) / P
        self.h, self.y0 = random.uniform(0.5, 1, N) / N, random.normal(size=d)

    def add_identity(self):
        for n in range(self.N):
            for i in range(self.P):
                self.A[n, i, n, i] += np.eye(self.D or 1)

    def given(self, name):
        """The argument of this name. Scalar problems have no axes for components."""
        value = getattr(self, name)
        if self.D is not None or name in ("E", "w", "h"):
            return value
        if name == "y0":
            return float(value[0])
        return value.reshape({"A": self.A.shape[:4], "b": self.b.shape[:2], "C": self.C.shape[:2]}[name])

    def block(self, n, k, slots):
        """The dense matrix of the rows of step n and the given slots of step k."""
        part = self.A[n, :, k, slots]
        size = self.P * (self.D or 1)
        return part.transpose(0, 2, 1, 3).reshape(size, -1)


@pytest.mark.parametrize("N, P, D", SHAPES)
def test_first_and_second_kind(N, P, D):
    problem = Problem(N, P, D, 0)
    for solve, sign in ((quenta.solve_blocks_vie2, -1), (quenta.solve_blocks_vie1, 1)):
        if sign == 1:
            problem.add_identity()
        size = P * (D or 1)
        dense = np.zeros((N, size, N, size))
        for n in range(N):
            for k in range(n + 1):
                dense[n, :, k] = sign * problem.block(n, k, slice(None))
        dense = dense.reshape(N * size, N * size) + (np.eye(N * size) if sign == -1 else 0)
        x = solve(problem.given("A"), problem.given("b"))
        assert x.shape == problem.given("b").shape
        assert np.allclose(x.ravel(), np.linalg.solve(dense, problem.b.ravel()), rtol=1e-10, atol=1e-12)


@pytest.mark.parametrize("N, P, D", SHAPES)
def test_first_kind_with_a_carried_value(N, P, D):
    problem = Problem(N, P, D, 1)
    problem.add_identity()
    rho = 0.9
    x, y = quenta.solve_blocks_vie1_cont(
        problem.given("A"), problem.given("b"), problem.given("w"), rho, problem.given("y0")
    )
    d = D or 1
    x, y = x.reshape(N, P, d), y.reshape(N + 1, d)
    assert np.array_equal(y[0], problem.y0)
    for n in range(N):
        assert np.allclose(y[n + 1], rho * y[n] + problem.w @ x[n])
        left = sum(
            np.einsum("ijrc,jc->ir", problem.A[n, :, k, :P], x[k]) + problem.A[n, :, k, P] @ y[k] for k in range(n + 1)
        )
        assert np.allclose(left, problem.b[n])


@pytest.mark.parametrize("N, P, D", SHAPES)
def test_integro_differential(N, P, D):
    problem = Problem(N, P, D, 1)
    x, y = quenta.solve_blocks_vide(*(problem.given(name) for name in ("A", "b", "C", "E", "w", "h", "y0")))
    d = D or 1
    x, y = x.reshape(N, P, d), y.reshape(N + 1, d)
    assert np.array_equal(y[0], problem.y0)
    for n in range(N):
        h = problem.h
        assert np.allclose(y[n + 1], y[n] + h[n] * (problem.w @ x[n]))
        inside = y[n] + h[n] * (problem.E @ x[n])
        right = problem.b[n] + np.einsum("irc,ic->ir", problem.C[n], inside)
        for k in range(n + 1):
            right = right + problem.A[n, :, k, P] @ y[k] + h[k] * np.einsum("ijrc,jc->ir", problem.A[n, :, k, :P], x[k])
        assert np.allclose(x[n], right)


def test_blocks_that_are_not_contiguous_give_identical_results():
    problem = Problem(4, 3, 2, 0)
    A, b = problem.given("A"), problem.given("b")
    plain = quenta.solve_blocks_vie2(A, b)
    assert np.array_equal(plain, quenta.solve_blocks_vie2(np.asfortranarray(A), b[::-1].copy()[::-1]))


def test_values_that_are_not_finite_are_accepted_without_check_finite():
    A, b = np.eye(2).reshape(2, 1, 2, 1), np.array([[1.0], [np.nan]])
    x = quenta.solve_blocks_vie1(A, b, check_finite=False)
    assert x[0, 0] == 1 and np.isnan(x[1, 0])


IDENTITY, ONE = np.eye(3).reshape(3, 1, 3, 1), np.ones((3, 1))


@pytest.mark.parametrize("value", [np.inf, -np.inf, np.nan])
@pytest.mark.parametrize("solve", [quenta.solve_blocks_vie1, quenta.solve_blocks_vie2])
def test_blocks_that_are_not_finite_are_refused_where_they_are_read(solve, value):
    A = IDENTITY.copy()
    A[1, 0, 1, 0] = value
    with pytest.raises(ValueError, match=r"A: expected finite numbers .* at index \(1, 0, 1, 0\)"):
        solve(A, ONE)
    A = 0.5 * IDENTITY
    A[1, 0, 2, 0] = value  # above the diagonal
    assert np.isfinite(solve(A, ONE)).all()


def test_a_solution_that_overflows_causes_a_warning():
    A = 1e-300 * IDENTITY
    with pytest.warns(quenta.GrowthWarning, match="the solution overflows"):
        assert not np.isfinite(quenta.solve_blocks_vie1(A, 1e300 * ONE)).any()
    with_carried = np.concatenate([IDENTITY, 0 * IDENTITY], axis=3)[:2, :, :2]
    with pytest.warns(quenta.GrowthWarning, match="the solution overflows"):
        x, y = quenta.solve_blocks_vie1_cont(with_carried, ONE[:2], [0.0], 1e200, 1.0)
    assert np.isfinite(x).all() and np.isinf(y[-1])
    x, y = quenta.solve_blocks_vie1_cont(with_carried, ONE[:2], [0.0], 1e200, 1.0, check_finite=False)
    assert np.isinf(y[-1])
    zero = np.zeros((1, 1))
    with pytest.warns(quenta.GrowthWarning, match="the solution overflows"):
        x, y = quenta.solve_blocks_vide(np.zeros((1, 1, 1, 2)), 1e308 + zero, zero, zero, [1.0], [1.0], 1e308)
    assert np.isfinite(x).all() and np.isinf(y[-1])
