"""The growth of errors per step in the continuous form of the first kind, computed in exact arithmetic."""

import math
from fractions import Fraction as F


def multiplied(left, right):
    return [[sum(x * y for x, y in zip(row, column)) for column in zip(*right)] for row in left]


def inverse(matrix):
    size = len(matrix)
    rows = [row[:] + [F(int(i == j)) for j in range(size)] for i, row in enumerate(matrix)]
    for j in range(size):
        pivot = next(i for i in range(j, size) if rows[i][j])
        rows[j], rows[pivot] = rows[pivot], rows[j]
        rows[j] = [entry / rows[j][j] for entry in rows[j]]
        for i in range(size):
            if i != j:
                rows[i] = [entry - rows[i][j] * of_pivot for entry, of_pivot in zip(rows[i], rows[j])]
    return [row[size:] for row in rows]


def lagrange(nodes, j):
    """Coefficients, ascending, of the polynomial that is 1 at node j and 0 at the others."""
    polynomial = [F(1)]
    for i, node in enumerate(nodes):
        if i != j:
            shifted = [F(0)] + polynomial
            polynomial = [(up - node * same) / (nodes[j] - node) for up, same in zip(shifted, polynomial + [F(0)])]
    return polynomial


def value(polynomial, s):
    return sum((coefficient * s**p for p, coefficient in enumerate(polynomial)), F(0))


def growth_of_errors(m, nodes):
    """The spectral radius of the map from one step's (U, B) to the next, for the kernel 1 and steps of length 1.

    (U, B) are the errors at the nodes and of the carried value. The difference of the equations of two adjacent steps
    is A (U' - U) + C (B' - B) + sum of b U = 0, where A U + C B is the integral over the part of the current step. The
    next carried value is B' = L0(1) B + sum of L(1) U.
    """
    c = [F(k, m) for k in nodes]
    P = len(c)
    b = [sum(coefficient / (p + 1) for p, coefficient in enumerate(lagrange(c, j))) for j in range(P)]
    basis = [lagrange([F(0)] + c, j) for j in range(P + 1)]
    part = [[c_i * sum(b_q * value(L, c_i * c_q) for b_q, c_q in zip(b, c)) for L in basis] for c_i in c]
    A, C = inverse([row[1:] for row in part]), [[row[0]] for row in part]
    carry = [value(L, F(1)) for L in basis[1:] + basis[:1]]
    of_past, of_carried = multiplied(A, [b] * P), multiplied(A, C)
    step = [[int(i == j) - of_past[i][j] - of_carried[i][0] * carry[j] for j in range(P)] +
            [of_carried[i][0] * (1 - carry[P])] for i in range(P)] + [carry]
    # The norm of the power 2**40, computed by squaring, gives the spectral radius to many digits.
    step, logarithm = [[float(entry) for entry in row] for row in step], 0.0
    for _ in range(40):
        norm = max(sum(map(abs, row)) for row in step)
        if norm == 0:
            return 0.0
        logarithm = 2 * (logarithm + math.log(norm))
        step = [[entry / norm for entry in row] for row in step]
        step = multiplied(step, step)
    norm = max(sum(map(abs, row)) for row in step)
    return math.exp((logarithm + math.log(norm)) / 2**40) if norm else 0.0
