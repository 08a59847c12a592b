#!/usr/bin/python3
"""Measures the overhead of the package over the library, and the speedup with two threads.

usage: benchmark_calls.py [--quick]

The time of the library is that of the foreign call, minus that of the same call with no nodes, which the library
refuses at once. So it does not include the cost of a foreign call. The overhead is the time of the Python function
minus that time. The calls are timed alternately, so that other work on the machine affects all of them. All results are
medians.
"""

from __future__ import annotations

import ctypes
import statistics
import sys
import threading
import time
from typing import Callable, Optional

import numpy as np

import quenta
from quenta.native_library import library
from quenta.setting_table import NODE_ADDRESSES

SAMPLES, DT = 109, 0.01  # whole steps of both settings
CALLS = 50


def seconds(call: Callable[[], object], calls: int) -> float:
    started = time.process_time()
    for _ in range(calls):
        call()
    return (time.process_time() - started) / calls


class Calls:
    """The same solve as a call of the Python function and as a foreign call."""

    def __init__(self, kind: str, D: Optional[int]) -> None:
        self.kind, self.D = kind, D
        t = np.arange(SAMPLES) * DT
        self.g, self.K, self.y0 = np.sin(t), np.exp(-t), np.zeros(D or 1)
        if D is not None:
            self.g, self.K = np.sin(t)[:, None] * np.ones(D), np.exp(-t)[:, None, None] * np.eye(D)
        self.a = -self.K
        self.setting = quenta.settings()[23 if kind == "vie1" else 9]
        self.results = np.empty_like(self.g), np.empty(self.g.size * 4), ctypes.c_int()

    def python(self) -> Callable[[], object]:
        g, K, a, y0, setting = self.g, self.K, self.a, 0.0 if self.D is None else self.y0, self.setting
        if self.kind == "vide":
            return lambda: quenta.solve_vide(g, K, a, y0, DT, setting=setting)
        solve = getattr(quenta, f"solve_{self.kind}")
        return lambda: solve(g, K, DT, setting=setting)

    def foreign(self, count: int) -> Callable[[], object]:
        """The foreign call with the first `count` nodes of the setting."""
        kind, D, setting = self.kind, self.D, self.setting
        arrays = (self.g, self.K, self.a) if kind == "vide" else (self.g, self.K)
        sizes = (SAMPLES,) if D is None else (SAMPLES, D)
        initial: list[object] = [] if kind == "vie2" else [0.0 if D is None else self.y0.ctypes.data]
        flags = (1, 0) if kind == "vie1" else (1,)
        out, coefficients, steps = self.results
        given = (
            *(array.ctypes.data for array in arrays),
            *(*sizes, *initial, DT, setting.m, NODE_ADDRESSES[setting.row], count, *flags),
            *(out.ctypes.data, coefficients.ctypes.data, ctypes.byref(steps)),
        )
        function = getattr(library, f"quenta_solve_{kind}" + ("" if D is None else "_vec"))
        return lambda: function(*given)


def overhead(kind: str, D: Optional[int], rounds: int) -> tuple[float, float, float]:
    """Medians in microseconds of the time of the library, of the Python function, and of their difference."""
    calls = Calls(kind, D)
    solving, refused, solve = calls.foreign(calls.setting.count), calls.foreign(0), calls.python()
    assert solving() == 0 and refused() == 1
    times = []
    for _ in range(rounds):
        own = seconds(solving, CALLS) - seconds(refused, CALLS)
        whole = seconds(solve, CALLS)
        times.append((own, whole, whole - own))
    own, whole, added = (1e6 * statistics.median(column) for column in zip(*times))
    return own, whole, added


def run_threads(threads: int, N: int, solves: int) -> tuple[float, float]:
    """Solves per second and the mean number of busy processors, for threads that each make `solves` solves.

    The time begins after all threads have started.
    """
    t = np.arange(N) * 0.01
    g, K = np.ones(N), np.exp(-t)
    start = threading.Barrier(threads + 1)

    def work() -> None:
        quenta.solve_vie2(g, K, 0.01)
        start.wait()
        for _ in range(solves):
            quenta.solve_vie2(g, K, 0.01)

    workers = [threading.Thread(target=work) for _ in range(threads)]
    for worker in workers:
        worker.start()
    start.wait()
    started, processor = time.perf_counter(), time.process_time()
    for worker in workers:
        worker.join()
    seconds = time.perf_counter() - started
    return threads * solves / seconds, (time.process_time() - processor) / seconds


def thread_gain(N: int, solves: int, rounds: int) -> tuple[float, float, float, float]:
    """Solves per second with one thread, the speedup with two, and the busy processors in both cases.

    The results are medians over alternating runs. Other work on the machine reduces the speedup and the busy
    processors.
    """
    pairs = [(*run_threads(1, N, solves), *run_threads(2, N, solves)) for _ in range(rounds)]
    one, gain, busy, both_busy = (
        statistics.median(column) for column in zip(*((one, two / one, busy, both) for one, busy, two, both in pairs))
    )
    return one, gain, busy, both_busy


def main(arguments: list[str]) -> int:
    if arguments not in ([], ["--quick"]):
        print(__doc__, file=sys.stderr)
        return 2
    rounds = 11 if arguments else 101
    print(f"{SAMPLES} samples, microseconds a call:\n")
    print("solver                   library   Python   overhead   whole / own")
    for kind in ("vie1", "vie2", "vide"):
        for D in (None, 3):
            own, whole, added = overhead(kind, D, rounds)
            name = f"solve_{kind}, " + ("scalar" if D is None else f"D = {D}")
            print(f"{name:24} {own:7.1f}  {whole:7.1f}  {added:9.1f}  {whole / own:12.2f}")
    print("\nsolve_vie2 in threads:\n")
    print("samples   one thread, solves a second   processors   two threads / one   processors")
    for N, solves in ((1001, 1000), (10001, 100), (100001, 8)):
        one, gain, busy, both_busy = thread_gain(N, solves, 3 if arguments else 15)
        print(f"{N:7}  {one:28.0f}  {busy:11.2f}  {gain:18.2f}  {both_busy:11.2f}")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
