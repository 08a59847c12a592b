"""Solves from many threads at once, and in the children of a fork, give the bits of a solve alone."""

import os
import signal
import sys
import threading
from concurrent.futures import ThreadPoolExecutor

import numpy as np
import pytest
from children import run_python

import quenta
from quenta import native_library

N = 501
T = np.arange(N) * 0.01


def solve(rate):
    return quenta.solve_vie2(np.ones(N), np.exp(-rate * T), 0.01).y


def test_many_threads_at_once():
    rates = np.linspace(0.1, 3, 200)
    alone = [solve(rate) for rate in rates]
    with ThreadPoolExecutor(8) as executor:
        together = list(executor.map(solve, rates))
    assert all(np.array_equal(one, other) for one, other in zip(alone, together))


def test_many_threads_that_end():
    expected, wrong = solve(1.0), []
    for _ in range(50):
        threads = [
            threading.Thread(target=lambda: wrong.append(1) if not np.array_equal(solve(1.0), expected) else None)
            for _ in range(4)
        ]
        for thread in threads:
            thread.start()
        quenta.release_memory()
        for thread in threads:
            thread.join()
    assert not wrong


def test_a_thread_with_too_small_a_stack_is_refused():
    raised, go_on = [], threading.Event()

    def work():
        try:
            solve(1.0)
        except quenta.SizeError as refusal:
            raised.append(str(refusal))

    before = threading.stack_size(128 * 1024)
    try:
        thread = threading.Thread(target=lambda: (go_on.wait(), work()))
        thread.start()
    finally:
        threading.stack_size(before)  # what counts is the stack that the thread has
    go_on.set()
    thread.join()
    assert len(raised) == 1 and "threading.stack_size: expected at least" in raised[0]


def test_the_stack_size_of_threads_is_left_as_it_is(monkeypatch):
    class Library:
        def __init__(self, name):
            raise OSError("this system names no library so")

    monkeypatch.setattr(native_library.ctypes, "CDLL", Library)
    before = threading.stack_size(2**20)
    try:
        thread = threading.Thread(target=solve, args=(1.0,))  # a thread that is new to the library
        thread.start()
        thread.join()
    finally:
        left = threading.stack_size(before)
    assert left == 2**20


def assert_children_work(works, children, while_others):
    """Forks again and again while three threads repeat an action; `works` runs in each child."""
    over = threading.Event()

    def repeat():
        while not over.is_set():
            while_others()

    busy = [threading.Thread(target=repeat) for _ in range(3)]
    for thread in busy:
        thread.start()
    endings = []
    try:
        while len(endings) < children and not any(endings):
            child = os.fork()
            if child == 0:
                ending = 1
                try:
                    signal.alarm(20)  # ends a child that hangs
                    ending = 0 if works() else 1
                finally:
                    os._exit(ending)
            endings.append(os.waitpid(child, 0)[1])
    finally:
        over.set()
        for thread in busy:
            thread.join()
    assert endings == [0] * children


@pytest.mark.skipif(not hasattr(os, "fork"), reason="this system has no fork")
@pytest.mark.filterwarnings("ignore:.*fork:DeprecationWarning")
def test_children_of_a_fork_solve_while_threads_come_and_go():
    expected = solve(1.0)

    def come_and_go():
        thread = threading.Thread(target=solve, args=(1.0,))
        thread.start()
        thread.join()

    def works():
        come_and_go()  # a thread that is new to the library
        return np.array_equal(solve(1.0), expected)

    assert_children_work(works, 40, while_others=come_and_go)


@pytest.mark.skipif(not hasattr(os, "fork"), reason="this system has no fork")
@pytest.mark.filterwarnings("ignore:.*fork:DeprecationWarning")
def test_children_of_a_fork_release_memory_while_other_threads_release_memory():
    def works():
        quenta.release_memory()
        thread = threading.Thread(target=quenta.release_memory)  # a thread that is new to the library
        thread.start()
        thread.join()
        return True

    assert_children_work(works, 200, while_others=quenta.release_memory)


def test_solutions_outlive_their_inputs():
    g, K = np.ones(N), np.exp(-T)
    found = quenta.solve_vie2(g, K, 0.01)
    before = found.y.copy()
    polynomials = found.polynomials
    g[:], K[:] = np.nan, np.nan
    del g, K, found
    quenta.release_memory()
    solve(2.0)
    assert np.array_equal(before, solve(1.0)) and np.isfinite(polynomials).all()


# ---- Where the library is found -------------------------------------------------------------------------------------


def test_a_library_that_is_not_there_is_said_so():
    ended = run_python("import quenta", QUENTA_LIBRARY="/nowhere/libquenta_native.so")
    assert ended.returncode == 1 and "ImportError: QUENTA_LIBRARY names no library that can be loaded" in ended.stderr


def test_another_library_is_refused():
    ended = run_python("import quenta", QUENTA_LIBRARY="libm.so.6")
    assert ended.returncode == 1 and "is not the library that this package needs" in ended.stderr


def test_no_library_at_all_is_said_so():
    ended = run_python("import quenta")
    assert ended.returncode == 1 and "set the environment variable QUENTA_LIBRARY to its path" in ended.stderr


@pytest.mark.skipif(not sys.platform.startswith("linux"), reason="names a library as on Linux")
def test_the_library_of_the_prefix_is_found(tmp_path):
    (tmp_path / "lib").mkdir()
    (tmp_path / "lib" / "libquenta_native.so").symlink_to(os.environ["QUENTA_LIBRARY"])
    ended = run_python(f"import sys; sys.prefix = {str(tmp_path)!r}; import quenta; print(len(quenta.settings()))")
    assert (ended.returncode, ended.stdout) == (0, "56\n"), ended.stderr


@pytest.mark.skipif(not sys.platform.startswith("linux"), reason="reads /proc")
def test_a_limit_of_memory_ends_no_process():
    ended = run_python(
        """
        import resource
        import numpy as np
        import quenta

        used = int(open("/proc/self/statm").read().split()[0]) * resource.getpagesize()
        resource.setrlimit(resource.RLIMIT_AS, (used + 2**26, used + 2**26))
        solved = refused = 0
        for N in range(97, 20000, 400):  # at last the kernel alone is larger than what is left
            try:
                quenta.solve_vie2(np.ones((N, 20)), 0.01 * np.ones((20, 20)), 0.01, setting=(4, [0, 1, 2, 3, 4]))
                solved += 1
            except quenta.SizeError as refusal:
                assert "expected sizes that fit into memory, got" in str(refusal), refusal
                refused += 1
            except MemoryError:  # of an array of NumPy's, where the limit is nearly reached
                refused += 1
        print(solved > 3, refused > 3)
        """,
        QUENTA_LIBRARY=os.environ["QUENTA_LIBRARY"],
    )
    assert (ended.returncode, ended.stdout) == (0, "True True\n"), (ended.stdout, ended.stderr)
