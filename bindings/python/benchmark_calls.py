#!/usr/bin/python3
"""Measures what the package adds to the time of the library, and what two threads gain.

usage: benchmark_calls.py [--quick]

The library's own time is that of the foreign call, less that of the same call refused at its door (no nodes), which
leaves out what it costs to get there. The overhead is the time of the Python function less the library's own. The
calls are timed in turn, so that whatever else the machine does meets all of them; every figure is a median.
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

SAMPLES = 109  # whole steps of both settings
CALLS = 50


def seconds(call: Callable[[], object], calls: int) -> float:
    started = time.process_time()
    for _ in range(calls):
        call()
    return (time.process_time() - started) / calls


def overhead(kind: str, D: Optional[int], rounds: int) -> tuple[float, float, float]:
    """Medians, in microseconds, of the library's own time, of the Python function, and of their difference."""
    dt = 0.01
    t = np.arange(SAMPLES) * dt
    g, K, y0 = np.sin(t), np.exp(-t), np.zeros(D or 1)
    if D is not None:
        g, K = np.sin(t)[:, None] * np.ones(D), np.exp(-t)[:, None, None] * np.eye(D)
    a = -K
    setting = quenta.settings()[23 if kind == "vie1" else 9]
    solve: Callable[[], object] = {
        "vie1": lambda: quenta.solve_vie1(g, K, dt, setting=setting),
        "vie2": lambda: quenta.solve_vie2(g, K, dt, setting=setting),
        "vide": lambda: quenta.solve_vide(g, K, a, 0.0 if D is None else y0, dt, setting=setting),
    }[kind]

    out, coefficients, steps = np.empty_like(g), np.empty(g.size * 4), ctypes.c_int()

    def foreign(count: int) -> Callable[[], object]:
        start = {
            "vie1": [g.ctypes.data, K.ctypes.data, SAMPLES],
            "vie2": [g.ctypes.data, K.ctypes.data, SAMPLES],
            "vide": [g.ctypes.data, K.ctypes.data, a.ctypes.data, SAMPLES],
        }[kind] + ([] if D is None else [D])
        initial: list[object] = [] if kind == "vie2" else [0.0 if D is None else y0.ctypes.data]
        end = [dt, setting.m, NODE_ADDRESSES[setting.row], count, 1] + ([0] if kind == "vie1" else [])
        given = (*start, *initial, *end, out.ctypes.data, coefficients.ctypes.data, ctypes.byref(steps))
        function = getattr(library, f"quenta_solve_{kind}" + ("" if D is None else "_vec"))
        return lambda: function(*given)

    solving, refused = foreign(setting.count), foreign(0)
    assert solving() == 0 and refused() == 1
    times = []
    for _ in range(rounds):
        own = seconds(solving, CALLS) - seconds(refused, CALLS)
        whole = seconds(solve, CALLS)
        times.append((own, whole, whole - own))
    own, whole, added = (1e6 * statistics.median(column) for column in zip(*times))
    return own, whole, added


def run_threads(threads: int, N: int, solves: int) -> tuple[float, float]:
    """Of threads that each solve so often, from when all have started: solves a second, and processors kept busy."""
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
    """Solves a second with one thread, by how much two are faster, and the processors that either kept busy.

    Medians over pairs that ran in turn. On a machine with other work to do, the gain is that of the processors it gave.
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
