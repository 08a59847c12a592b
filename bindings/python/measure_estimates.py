#!/usr/bin/python3
"""Measures the accuracy of the error estimates of `quenta.with_error` on random problems with known solutions.

usage: measure_estimates.py [COUNT]

Draws COUNT problems of each kind, 2000 by default. The number of a problem is its seed. Fails if a trusted estimate is
more than 10 times too small, or if at least 1 percent of those of a kind are more than 3 times too small.
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
    columns = ["10 times too small", "3 times too small", "3 times too large"]
    print(f"{count} problems of each kind. Trusted: percent of all problems; other columns: percent of the trusted ones.")
    print("".join(f"{title:>21}" for title in ["", "trusted", *columns]) + "  problems with the smallest estimates")
    for family in random_problems.FAMILIES:
        with np.errstate(all="ignore"):
            found, smallest = random_problems.judge(family, count)
        shares = [100 * found[column] / max(found["trusted"], 1) for column in columns]
        numbers = "".join(f"{share:21.2f}" for share in [100 * found["trusted"] / count, *shares])
        print(f"{family:>21}{numbers}  {', '.join(map(str, smallest))}", flush=True)
        missed |= shares[0] > 0 or shares[1] >= 1
    return int(missed)


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
