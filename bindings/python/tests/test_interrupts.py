"""Signals are handled during a long solve, and an abandoned solve does no harm."""

import ctypes
import os
import signal
import sys
import threading
import time
import weakref

import numpy as np
import pytest
from children import run_solver

import quenta
from quenta import arguments, block_solvers, interruptible, memory_account, native_library, sampled_solvers
from quenta.interruptible import call
from quenta.memory_account import reserve

pytestmark = pytest.mark.skipif(not sys.platform.startswith("linux"), reason="sends signals and calls usleep of libc")

# Sends SIGINT in the middle of a solve that takes a large fraction of a second.
INTERRUPTED = """
    import os, signal, sys, threading, time
    import numpy as np
    import quenta

    def solve(steps):
        N, D = 9 * steps + 1, 8
        g, K = np.ones((N, D)), np.exp(-np.arange(N) * 1e-5)[:, None, None] * np.eye(D)
        return lambda: quenta.solve_vide(g, K, K, np.ones(D), 1e-5, setting=(3, [1, 2, 3])).y

    long, short = solve(6000), solve(20)
    expected = short()
    started = time.perf_counter()
    long()
    whole = time.perf_counter() - started
    sent = []

    def press():
        sent.append(time.perf_counter())
        os.kill(os.getpid(), signal.SIGINT)

    timer = threading.Timer(whole / 8, press)
    timer.start()
    try:
        long()
    except KeyboardInterrupt:
        print("answered in time:", time.perf_counter() - sent[0] < whole / 2)
    print("next solves right:", np.array_equal(short(), expected))
    timer.join()
    sys.stdout.flush()
"""


def test_ctrl_c_interrupts_a_solve_and_later_solves_are_correct():
    ended = run_solver(INTERRUPTED + "\n    sys.exit(7)\n")
    assert ended.stdout == "answered in time: True\nnext solves right: True\n", (ended.stdout, ended.stderr)
    assert (ended.returncode, ended.stderr) == (7, "")


# ---- Calls of a given duration --------------------------------------------------------------------------------------

sleep = ctypes.CDLL(None).usleep if sys.platform.startswith("linux") else None
MICROSECONDS = 600_000
ALARM_SECONDS = 0.2


class Alarm(Exception):
    pass


def raises(failure):
    def handle(*_):
        raise failure("now")  # a new object, which nothing else refers to

    return handle


@pytest.fixture
def alarm():
    """alarm(handler) installs the handler and sends the signal after ALARM_SECONDS."""
    before = signal.getsignal(signal.SIGALRM)

    def start(handler):
        signal.signal(signal.SIGALRM, handler)
        signal.setitimer(signal.ITIMER_REAL, ALARM_SECONDS)

    yield start
    signal.setitimer(signal.ITIMER_REAL, 0)
    signal.signal(signal.SIGALRM, before)


def all_ended():
    return not memory_account._account.running


def wait_until(condition):
    for _ in range(1000):
        if condition():
            return
        time.sleep(0.02)
    raise AssertionError("expected the condition within 20 seconds")


@pytest.mark.parametrize("failure", [Alarm, RuntimeError, KeyboardInterrupt, MemoryError])
def test_a_handler_may_raise_and_memory_stays_reserved_until_the_call_ends(alarm, failure):
    alarm(raises(failure))
    with pytest.raises(quenta.SizeError if failure is MemoryError else failure):
        with reserve(2**21, "a solve") as reservation:
            call(sleep, (MICROSECONDS,), 9.0, (), reservation)
    assert list(memory_account._account.running) == [reservation]
    wait_until(all_ended)


def test_signals_are_handled_while_a_solve_waits_for_memory(alarm, monkeypatch):
    monkeypatch.setattr(memory_account, "machine_room", lambda: 2**26)
    monkeypatch.setattr(memory_account, "_PATIENCE", 60.0)
    holding, over = threading.Event(), threading.Event()

    def hold():
        with reserve(2**26, "a solve"):
            holding.set()
            over.wait(20)

    thread = threading.Thread(target=hold)
    thread.start()
    holding.wait()
    alarm(raises(Alarm))
    with pytest.raises(Alarm):
        reserve(2**26, "another solve")
    assert thread.is_alive() and not memory_account._account.waiting
    over.set()
    thread.join()
    with reserve(2**26, "another solve"):
        pass


def test_the_call_continues_after_a_handler_that_does_not_raise(alarm):
    handled = []
    alarm(lambda *_: handled.append(time.perf_counter()))
    with reserve(2**21, "a solve") as reservation:
        assert call(sleep, (MICROSECONDS,), 9.0, (), reservation) == 0
        ended = time.perf_counter()
    assert handled and handled[0] < ended - 0.1 and all_ended()


def test_an_abandoned_call_keeps_its_arrays_alive(alarm):
    class Array:
        pass

    gone = []
    array = Array()
    watch = weakref.finalize(array, lambda: gone.append(all_ended()))
    alarm(raises(Alarm))
    try:
        with reserve(2**21, "a solve") as reservation:
            call(sleep, (MICROSECONDS,), 9.0, (array,), reservation)
    except Alarm:
        pass
    del array
    assert watch.alive and not gone
    wait_until(lambda: gone)
    assert gone == [True]


def test_short_calls_and_calls_on_other_threads_start_no_thread(monkeypatch):
    monkeypatch.setattr(interruptible, "start_thread", None)
    assert call(sleep, (10,), interruptible.LONG / 2, (), memory_account.NOTHING) == 0
    results = []
    thread = threading.Thread(target=lambda: results.append(call(sleep, (10,), 9.0, (), memory_account.NOTHING)))
    thread.start()
    thread.join()
    assert results == [0]


def test_exceptions_of_the_call_are_raised():
    def fail(number):
        raise LookupError(number)

    with pytest.raises(LookupError, match="5") as raised:
        with reserve(2**21, "a solve") as reservation:
            call(fail, (5,), 9.0, (), reservation)
    assert raised.traceback[-1].name == "fail" and all_ended()


def where_it_ran(seen):
    def function():
        seen.append(threading.current_thread() is threading.main_thread())
        return 3

    return function


def test_the_main_thread_calls_if_no_thread_can_be_started(monkeypatch):
    def refuse(*_):
        raise RuntimeError("can't start new thread")

    seen = []
    monkeypatch.setattr(interruptible, "start_thread", refuse)
    monkeypatch.setattr(interruptible, "start_roomy_thread", refuse)
    with reserve(2**21, "a solve") as reservation:
        assert call(where_it_ran(seen), (), 9.0, (), reservation) == 3
    assert seen == [True] and all_ended()


def test_the_main_thread_calls_if_all_other_stacks_are_too_small(monkeypatch):
    def refuse():
        raise quenta.SizeError

    seen = []
    monkeypatch.setattr(interruptible, "enter_thread", refuse)
    with reserve(2**21, "a solve") as reservation:
        assert call(where_it_ran(seen), (), 9.0, (), reservation) == 3
    assert seen == [True] and all_ended()


def test_the_stack_is_large_enough_for_any_default_size(alarm):
    seen, sizes = [], []
    before = threading.stack_size(64 * 1024)
    try:
        for _ in range(20):
            with reserve(2**21, "a solve") as reservation:
                assert call(where_it_ran(seen), (), 9.0, (), reservation) == 3
                call(lambda: sizes.append(native_library._stack_size()) or 0, (), 9.0, (), reservation)
        alarm(raises(Alarm))
        with pytest.raises(Alarm):
            with reserve(2**21, "a solve") as reservation:
                call(sleep, (MICROSECONDS,), 9.0, (), reservation)
        assert not all_ended()
        wait_until(all_ended)
    finally:
        left = threading.stack_size(before)
    assert left == 64 * 1024
    assert not any(seen) and min(sizes) >= native_library.LEAST_STACK


@pytest.mark.parametrize("array", [np.zeros(10**7, np.float32), np.broadcast_to(0.0, (4 * 10**6, 3, 3))])
def test_signals_are_handled_while_a_large_array_is_copied(alarm, monkeypatch, array):
    monkeypatch.setattr(arguments, "_COPIED_AT_ONCE", 1)  # makes the copy slow
    alarm(raises(Alarm))
    with pytest.raises(Alarm) as raised:
        arguments.contiguous(array)
    assert raised.traceback[1].name == "contiguous"


def test_arrays_are_copied_correctly_in_parts(monkeypatch):
    given = np.asfortranarray(np.random.default_rng(2).normal(size=(1000, 3, 2)).astype(np.float32))
    monkeypatch.setattr(arguments, "_COPIED_AT_ONCE", 40)
    copied = arguments.contiguous(given)
    assert copied.flags.c_contiguous and copied.dtype == np.float64 and np.array_equal(copied, given)


@pytest.mark.parametrize("D", [None, 2])
def test_solves_on_another_thread_are_bit_identical(monkeypatch, D):
    N = 40001
    g = np.ones(N) if D is None else np.ones((N, D))
    K = np.exp(-np.arange(N) * 1e-4) if D is None else np.exp(-np.arange(N) * 1e-4)[:, None, None] * np.eye(D)
    A = np.random.default_rng(1).normal(size=(6, 2, 6, 2) if D is None else (6, 2, 6, 2, D, D))
    b = np.ones((6, 2) if D is None else (6, 2, D))
    calls = []

    def counted(*arguments):
        calls.append(arguments[2])
        return call(*arguments)

    def solve():
        return quenta.solve_vie2(g, K, 1e-4).y, quenta.solve_blocks_vie2(A, b)

    with monkeypatch.context() as change:
        change.setattr(interruptible, "start_thread", None)
        change.setattr(interruptible, "LONG", float("inf"))
        directly = solve()
    monkeypatch.setattr(interruptible, "LONG", 0.0)
    for module in (sampled_solvers, block_solvers):
        monkeypatch.setattr(module, "call", counted)
    starts = []
    start = interruptible.start_thread
    monkeypatch.setattr(interruptible, "start_thread", lambda work: starts.append(1) or start(work))
    assert all(np.array_equal(one, other) for one, other in zip(solve(), directly))
    assert len(calls) == len(starts) == 2 and all_ended()


def test_solves_with_large_blocks_are_long_calls(monkeypatch):
    seconds = []

    def measured(function, arguments, expected, *others):
        seconds.append(expected)
        return function(*arguments)

    monkeypatch.setattr(block_solvers, "call", measured)
    for N in (3, 1000):
        quenta.solve_blocks_vie2(np.broadcast_to(0.0, (N, 3, N, 3)).copy(), np.ones((N, 3)))
    assert seconds[0] < interruptible.LONG / 100 and seconds[1] > interruptible.LONG


@pytest.mark.filterwarnings("ignore:.*fork:DeprecationWarning")
def test_a_child_forked_during_a_long_call_solves():
    endings = []

    def fork():
        time.sleep(0.1)
        child = os.fork()
        if child == 0:
            signal.alarm(20)
            quenta.solve_vie2(np.ones(100001), np.ones(100001), 1e-6)
            os._exit(0)
        endings.append(os.waitpid(child, 0)[1])

    thread = threading.Thread(target=fork)
    thread.start()
    with reserve(2**21, "a solve") as reservation:
        call(sleep, (MICROSECONDS,), 9.0, (), reservation)
    thread.join()
    assert endings == [0]
