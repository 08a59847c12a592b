"""Solves on concurrent threads and in forked children are bit-identical to a single solve. How the library is found."""

import functools
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


def test_concurrent_solves_are_bit_identical():
    rates = np.linspace(0.1, 3, 200)
    alone = [solve(rate) for rate in rates]
    with ThreadPoolExecutor(8) as executor:
        together = list(executor.map(solve, rates))
    assert all(np.array_equal(one, other) for one, other in zip(alone, together))


def test_solves_on_short_lived_threads_are_bit_identical():
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


@pytest.mark.parametrize("first_call", [functools.partial(solve, 1.0), quenta.release_memory])
def test_a_thread_with_too_small_a_stack_is_refused(first_call):
    raised, go_on = [], threading.Event()

    def work():
        try:
            first_call()
        except quenta.SizeError as refusal:
            raised.append(str(refusal))

    before = threading.stack_size(128 * 1024)
    try:
        thread = threading.Thread(target=lambda: (go_on.wait(), work()))
        thread.start()
    finally:
        threading.stack_size(before)  # the running thread keeps the stack that it was started with
    go_on.set()
    thread.join()
    assert len(raised) == 1 and "threading.stack_size: expected at least" in raised[0]


def test_solving_does_not_change_the_stack_size_of_new_threads(monkeypatch):
    class Library:
        def __init__(self, name):
            raise OSError("no such library")

    monkeypatch.setattr(native_library.ctypes, "CDLL", Library)
    before = threading.stack_size(2**20)
    try:
        thread = threading.Thread(target=solve, args=(1.0,))  # its first solve checks the stack
        thread.start()
        thread.join()
    finally:
        left = threading.stack_size(before)
    assert left == 2**20


@pytest.fixture
def frequent_switches():
    """Makes the interpreter switch threads often, so that most forks happen while another thread is in the library."""
    before = sys.getswitchinterval()
    sys.setswitchinterval(2e-4)
    yield
    sys.setswitchinterval(before)


def assert_children_work(works, children, while_others):
    """Forks repeatedly while three threads repeat an action. `works` runs in each child."""
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
                    signal.alarm(20)  # terminates a child that hangs
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
@pytest.mark.usefixtures("frequent_switches")
def test_forked_children_solve_while_threads_start_and_end():
    expected = solve(1.0)

    def start_and_end():
        thread = threading.Thread(target=solve, args=(1.0,))
        thread.start()
        thread.join()

    def works():
        start_and_end()
        return np.array_equal(solve(1.0), expected)

    assert_children_work(works, 40, while_others=start_and_end)


@pytest.mark.skipif(not hasattr(os, "fork"), reason="this system has no fork")
@pytest.mark.filterwarnings("ignore:.*fork:DeprecationWarning")
@pytest.mark.usefixtures("frequent_switches")
def test_forked_children_release_memory_while_threads_release_memory():
    def works():
        quenta.release_memory()
        thread = threading.Thread(target=quenta.release_memory)
        thread.start()
        thread.join()
        return True

    assert_children_work(works, 40, while_others=quenta.release_memory)


def test_solutions_remain_valid_after_their_inputs_are_gone():
    g, K = np.ones(N), np.exp(-T)
    found = quenta.solve_vie2(g, K, 0.01)
    before = found.y.copy()
    polynomials = found.polynomials
    g[:], K[:] = np.nan, np.nan
    del g, K, found
    quenta.release_memory()
    solve(2.0)
    assert np.array_equal(before, solve(1.0)) and np.isfinite(polynomials).all()


# ---- How the library is found ---------------------------------------------------------------------------------------


def test_a_missing_file_in_QUENTA_LIBRARY_is_reported():
    ended = run_python("import quenta", QUENTA_LIBRARY="/nowhere/libquenta_native.so")
    expected = "ImportError: QUENTA_LIBRARY: expected the path of the shared library, got '/nowhere/libquenta_native.so'"
    assert ended.returncode == 1 and expected in ended.stderr, ended.stderr


def test_another_library_in_QUENTA_LIBRARY_is_refused():
    ended = run_python("import quenta", QUENTA_LIBRARY="libm.so.6")
    assert ended.returncode == 1 and "ImportError: expected the library quenta_native, got libm.so.6" in ended.stderr


def test_a_missing_library_is_reported():
    ended = run_python("import quenta")
    assert ended.returncode == 1 and "set the environment variable QUENTA_LIBRARY to its path" in ended.stderr


@pytest.mark.skipif(not sys.platform.startswith("linux"), reason="uses the file name on Linux")
def test_a_library_in_the_prefix_is_found(tmp_path):
    (tmp_path / "lib").mkdir()
    (tmp_path / "lib" / "libquenta_native.so").symlink_to(os.environ["QUENTA_LIBRARY"])
    ended = run_python(f"import sys; sys.prefix = {str(tmp_path)!r}; import quenta; print(len(quenta.settings()))")
    assert (ended.returncode, ended.stdout) == (0, "56\n"), ended.stderr


@pytest.mark.skipif(not sys.platform.startswith("linux"), reason="reads /proc")
def test_solves_under_a_memory_limit_are_refused_and_the_process_goes_on():
    ended = run_python(
        """
        import resource
        import numpy as np
        import quenta

        used = int(open("/proc/self/statm").read().split()[0]) * resource.getpagesize()
        resource.setrlimit(resource.RLIMIT_AS, (used + 2**26, used + 2**26))
        solved = refused = 0
        for N in range(97, 20000, 400):  # in the end the kernel alone exceeds the limit
            try:
                quenta.solve_vie2(np.ones((N, 20)), 0.01 * np.ones((20, 20)), 0.01, setting=(4, [0, 1, 2, 3, 4]))
                solved += 1
            except quenta.SizeError as refusal:
                assert "expected sizes that fit into memory, got" in str(refusal), refusal
                refused += 1
            except MemoryError:  # from NumPy, close to the limit
                refused += 1
        print(solved > 3, refused > 3)
        """,
        QUENTA_LIBRARY=os.environ["QUENTA_LIBRARY"],
    )
    assert (ended.returncode, ended.stdout) == (0, "True True\n"), (ended.stdout, ended.stderr)
