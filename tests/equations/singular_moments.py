#!/usr/bin/env python3
"""Writes singular_moments.hpp, the values for product_weights.cpp: the integrals over x in [0, 1] of
(d + 1 - x)^-alpha x^p, p = 0 .. 4, to 24 digits, where d is the distance of the step from t in steps.

    python3 singular_moments.py > singular_moments.hpp

Needs mpmath."""

from mpmath import mp, mpf, binomial

mp.dps = 80

alphas = [0.01, 0.1, 0.3, 0.5, 0.75, 0.9, 0.99]
distances = [0.0, 1e-300, 1e-12, 1e-6, 1e-4, 0.01, 0.03, 0.059, 0.061, 0.1, 0.12, 0.17, 0.19, 0.28, 0.3, 0.45, 0.47,
             0.7, 0.73, 1.0, 1.2, 1.7, 2.1, 3.0, 3.45, 3.55, 5.0, 7.6, 10.0, 17.0, 30.0, 40.0, 100.0, 150.0, 300.0,
             400.0, 1e3, 1.5e3, 1e4, 1e6, 1e9]


def moment(alpha, d, p):
    """With v = d + 1 - x: the integral of v^-alpha (d + 1 - v)^p, term by term."""
    end = mpf(d) + 1
    total = mpf(0)
    for k in range(p + 1):
        power = k + 1 - mpf(alpha)
        total += binomial(p, k) * (-1) ** k * end ** (p - k) * (end ** power - mpf(d) ** power) / power
    return total


def main():
    print("// Made by singular_moments.py: the integrals over x in [0, 1] of (d + 1 - x)^-alpha x^p, p = 0 .. 4.")
    print("#pragma once\n")
    print("namespace quenta_test {\n")
    print("struct singular_moment {\n    double alpha, d;\n    long double values[5];\n};\n")
    print("// clang-format off")
    print("inline constexpr singular_moment singular_moments[] = {")
    for alpha in alphas:
        for d in distances:
            values = []
            for p in range(5):
                mp.dps = 80 if d < 100 else 150
                values.append(mp.nstr(moment(alpha, d, p), 24, min_fixed=0, max_fixed=0) + "L")
            print("    {%r, %r, {%s}}," % (alpha, d, ", ".join(values)))
    print("};\n// clang-format on\n")
    print("} // namespace quenta_test")


main()
