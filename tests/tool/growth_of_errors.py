"""How errors grow from step to step in the continuous form of the first kind, in exact arithmetic."""

import math
from fractions import Fraction as F


def multiplied(left, right):
    return [[sum(a * b for a, b in zip(row, column)) for column in zip(*right)] for row in left]


def inverse(matrix):
    size = len(matrix)
    rows = [row[:] + [F(int(i == j)) for j in range(size)] for i, row in enumerate(matrix)]
    for k in range(size):
        pivot = next(i for i in range(k, size) if rows[i][k])
        rows[k], rows[pivot] = rows[pivot], rows[k]
        rows[k] = [value / rows[k][k] for value in rows[k]]
        for i in range(size):
            if i != k:
                rows[i] = [a - rows[i][k] * b for a, b in zip(rows[i], rows[k])]
    return [row[size:] for row in rows]


def lagrange(nodes, l):
    """Coefficients, ascending, of the polynomial that is 1 at node l and 0 at the others."""
    polynomial = [F(1)]
    for i, node in enumerate(nodes):
        if i != l:
            shifted = [F(0)] + polynomial
            polynomial = [(up - node * same) / (nodes[l] - node) for up, same in zip(shifted, polynomial + [F(0)])]
    return polynomial


def value(polynomial, v):
    return sum((a * v**power for power, a in enumerate(polynomial)), F(0))


def growth_of_errors(m, nodes):
    """The spectral radius of the map from one step's (U, B) to the next, for the kernel 1 and steps of length 1.

    The difference of the equations of two adjacent steps is A (U' - U) + C (B' - B) + sum of w U = 0, where
    A U + C B is the integral over the part of the present step, and B' = L0(1) B + sum of L(1) U carries over.
    """
    c = [F(k, m) for k in nodes]
    count = len(c)
    w = [sum(a / (power + 1) for power, a in enumerate(lagrange(c, l))) for l in range(count)]
    basis = [lagrange([F(0)] + c, l) for l in range(count + 1)]
    part = [[ci * sum(wr * value(one, ci * cr) for wr, cr in zip(w, c)) for one in basis] for ci in c]
    A, C = inverse([row[1:] for row in part]), [[row[0]] for row in part]
    carry = [value(one, F(1)) for one in basis[1:] + basis[:1]]
    of_past, of_carried = multiplied(A, [w] * count), multiplied(A, C)
    step = [[int(i == l) - of_past[i][l] - of_carried[i][0] * carry[l] for l in range(count)] +
            [of_carried[i][0] * (1 - carry[count])] for i in range(count)] + [carry]
    # The norm of the power 2**40, taken by squaring, gives the radius to many digits.
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
