#!/usr/bin/python3
"""Measures the error estimates of `quenta.with_error` on random problems with known solutions.

usage: measure_estimates.py [COUNT]

Draws COUNT problems of each kind, 2000 if it is not given; the numbers of the problems are their seeds. Fails if a trusted
estimate is more than 10 times too small, or if 1 percent of those of a kind are more than 3 times too small.
"""

from __future__ import annotations

import importlib
import pathlib
import sys

import numpy as np


def main(arguments: list[str]) -> int:
    if len(arguments) > 1 or not all(argument.isdigit() for argument in arguments):
        print(__doc__, file=sys.stderr)
        return 2
    count = int(arguments[0]) if arguments else 2000
    sys.path.insert(0, str(pathlib.Path(__file__).parent / "tests"))
    random_problems = importlib.import_module("random_problems")

    missed = False
    print(f"Of {count} problems of each kind, and in percent of the trusted:")
    print(f"{'':12} {'trusted':>8}   {'too small by more than 10':>25} {'by more than 3':>15} {'too large by more than 3':>25}")
    for family in random_problems.FAMILIES:
        with np.errstate(all="ignore"):
            found, worst = random_problems.judge(family, count)
        trusted = max(found["trusted"], 1)
        shares = [100 * found[name] / trusted for name in ("10 times too small", "3 times too small", "3 times too large")]
        print(
            f"{family:12} {100 * found['trusted'] / count:7.1f}%   {shares[0]:24.2f}% {shares[1]:14.2f}% {shares[2]:24.2f}%"
            f"   smallest: {', '.join(map(str, worst))}",
            flush=True,
        )
        missed |= shares[0] > 0 or shares[1] >= 1
    return int(missed)


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
