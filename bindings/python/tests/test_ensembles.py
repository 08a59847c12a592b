"""Ensembles keep the order, report failures, and neither lose nor repeat a member, even if processes die."""

import asyncio
import contextlib
import itertools
import os
import queue
import signal
import sys
import threading
import time
import warnings
from concurrent.futures import Future, ProcessPoolExecutor, ThreadPoolExecutor

import numpy as np
import pytest

import quenta

with_and_without_executors = pytest.mark.parametrize(
    "make", [contextlib.nullcontext, lambda: ThreadPoolExecutor(2), lambda: ProcessPoolExecutor(2)]
)

T = np.arange(101) * 0.05


def last_value(rate):
    return float(quenta.solve_vie2(np.ones(101), -rate * np.ones(101), 0.05).y[-1])


def last_value_of_a_positive(rate):
    if rate < 0:
        raise ArithmeticError(f"{rate} is negative")
    return last_value(rate)


def slow_last_value(rate):
    time.sleep(0.02)
    return os.getpid(), last_value(rate)


def kill_this_process_at_13(rate):
    if rate == 13:
        os.kill(os.getpid(), signal.SIGKILL)
    return last_value(rate)


def sleep_and_kill_this_process_at_13(rate):
    time.sleep(0.02)
    return kill_this_process_at_13(rate)


RATES = list(np.linspace(0.1, 2, 40))
EXPECTED = [last_value(rate) for rate in RATES]


@pytest.mark.parametrize("chunk", [None, 1, 7, 1000])
@with_and_without_executors
def test_all_executors_give_the_same_values(make, chunk):
    with make() as executor:
        found = quenta.ensemble(last_value, iter(RATES), executor=executor, chunk=chunk)
    assert found.values == EXPECTED and found.parameters == RATES and not found.failures and len(found) == 40


@with_and_without_executors
def test_failing_members_are_reported_and_all_others_are_solved(make):
    rates = [-rate if index in (3, 17) else rate for index, rate in enumerate(RATES)]
    with make() as executor, pytest.warns(UserWarning, match="2 of 40 members failed; the first is member 3: ArithmeticError"):
        found = quenta.ensemble(last_value_of_a_positive, rates, executor=executor, chunk=5)
    assert [failure.index for failure in found.failures] == [3, 17]
    assert found.failures[0].parameter == rates[3] and "is negative" in found.failures[0].error
    assert "last_value_of_a_positive" in found.failures[0].details
    for index, value in enumerate(found.values):
        assert value == (None if index in (3, 17) else EXPECTED[index])


def test_an_empty_ensemble():
    assert len(quenta.ensemble(last_value, [])) == 0
    with ThreadPoolExecutor(1) as executor:
        assert quenta.ensemble(last_value, [], executor=executor).values == []


def test_a_function_that_cannot_be_pickled_is_reported():
    with ProcessPoolExecutor(1) as executor, pytest.warns(UserWarning, match="3 of 3 members failed"):
        found = quenta.ensemble(lambda rate: rate, [1, 2, 3], executor=executor)
    assert all("pickle" in failure.error.lower() for failure in found.failures)


@pytest.mark.parametrize("executor", [None, "threads"])
def test_progress_is_shown(executor, capsys):
    pytest.importorskip("tqdm")
    if executor:
        with ThreadPoolExecutor(2) as threads:
            quenta.ensemble(last_value, RATES, executor=threads, progress=True)
    else:
        quenta.ensemble(last_value, RATES, progress=True)
    assert "40/40" in capsys.readouterr().err


def test_an_interruption_cancels_all_pending_members():
    class Interrupting(ThreadPoolExecutor):
        def submit(self, *given):
            if len(futures) == 3:
                raise KeyboardInterrupt
            future = Future()
            futures.append(future)
            return future

    futures = []
    with Interrupting(2) as executor, pytest.raises(KeyboardInterrupt):
        quenta.ensemble(last_value, RATES, executor=executor, chunk=1)
    assert len(futures) == 3 and all(future.cancelled() for future in futures)


def test_values_are_kept_when_a_process_of_a_pool_dies():
    rates = [float(rate) for rate in range(1, 30)]
    with ProcessPoolExecutor(1) as executor, pytest.warns(UserWarning, match="BrokenProcessPool"):
        found = quenta.ensemble(kill_this_process_at_13, rates, executor=executor, chunk=1)
    solved = [index for index, value in enumerate(found.values) if value is not None]
    assert sorted(solved + [failure.index for failure in found.failures]) == list(range(29))
    assert 12 in [failure.index for failure in found.failures]
    assert solved and all(found.values[index] == last_value(rates[index]) for index in solved)


# ---- Members with unusual exceptions and values ---------------------------------------------------------------------


class Unreadable(Exception):
    def __str__(self):
        raise RuntimeError("no message")

    __repr__ = __str__


def raise_unusual(which):
    if which == "exit":
        sys.exit("enough")
    if which == "cancelled":
        raise asyncio.CancelledError("stopped")
    if which == "unreadable":
        raise Unreadable(1)
    if which == "several lines":
        raise ValueError("one\n  two")
    if which == "unreadable key":
        raise KeyError(Unreadable())
    if which == "not picklable":
        raise ValueError(threading.Lock())
    if which == "a stopped generator":
        next(iter([]))
    return which


UNUSUAL = ["exit", "cancelled", "unreadable", "several lines", "unreadable key", "not picklable", "a stopped generator"]


@with_and_without_executors
def test_any_exception_of_a_member_becomes_its_failure(make):
    which = ["fine", *UNUSUAL, "fine too"]
    with make() as executor, pytest.warns(UserWarning, match="7 of 9 members failed; the first is member 1: SystemExit: enough"):
        found = quenta.ensemble(raise_unusual, which, executor=executor, chunk=4)
    assert found.values == ["fine"] + [None] * 7 + ["fine too"]
    errors = [failure.error for failure in found.failures]
    assert errors[:4] == [
        "SystemExit: enough",
        "CancelledError: stopped",
        "Unreadable: (the message cannot be shown)",
        "ValueError: one two",
    ]
    assert errors[4].startswith("KeyError") and "lock" in errors[5] and errors[6] == "StopIteration"
    assert all("raise_unusual" in failure.details for failure in found.failures)
    assert all(failure.parameter is which[failure.index] for failure in found.failures)


def return_a_lock_at_2(which):
    return threading.Lock() if which == 2 else which


def test_a_value_that_cannot_be_pickled_is_a_failure_of_its_member():
    with ProcessPoolExecutor(2) as executor, pytest.warns(UserWarning, match="1 of 6 .* member 2: .*cannot be sent: .*pickle"):
        found = quenta.ensemble(return_a_lock_at_2, range(6), executor=executor, chunk=3)
    assert found.values == [0, 1, None, 3, 4, 5]


class CannotBeUnpickled:
    def __reduce__(self):
        return int, ("x",)


def test_a_parameter_that_cannot_be_pickled_is_a_failure_of_its_member():
    parameters = [0, threading.Lock(), 2]
    with ProcessPoolExecutor(2) as executor, pytest.warns(UserWarning, match="1 of 3 .* member 1: .*pickle"):
        found = quenta.ensemble(str, parameters, executor=executor, chunk=3)
    assert found.values == ["0", None, "2"] and found.failures[0].parameter is parameters[1]


def return_an_unpicklable_object_at_2(which):
    return CannotBeUnpickled() if which == 2 else which


def test_a_value_that_cannot_be_unpickled_is_a_failure_of_its_member():
    with ProcessPoolExecutor(2) as executor, pytest.warns(UserWarning, match="1 of 6 .* member 2: .*cannot be received: Val"):
        found = quenta.ensemble(return_an_unpicklable_object_at_2, range(6), executor=executor, chunk=3)
    assert found.values == [0, 1, None, 3, 4, 5]


def test_the_members_in_flight_are_named_when_a_pool_breaks():
    rates = [float(rate) for rate in range(1, 30)]
    with ProcessPoolExecutor(1) as executor, pytest.warns(UserWarning, match="the first is member 12: BrokenProcessPool"):
        found = quenta.ensemble(sleep_and_kill_this_process_at_13, rates, executor=executor, chunk=1)
    in_flight = 2 if "(in flight: 12, 13)" in found.failures[0].error else 1
    assert in_flight == 2 or found.failures[0].error.endswith("(in flight: 12)")
    for failure in found.failures[in_flight:]:
        assert failure.error.startswith("not run because the executor had failed: BrokenProcessPool")
    assert found.values == [last_value(rate) for rate in rates[:12]] + [None] * 17


# ---- Generators, warnings, interruptions -----------------------------------------------------------------------------


@pytest.mark.parametrize("kind", [TypeError, ValueError, LookupError])
def test_an_exception_of_the_generator_is_raised_unchanged(kind):
    def parameters():
        yield 1.0
        raise kind("from the generator")

    solved = []
    with pytest.raises(kind, match="^from the generator") as raised:
        quenta.ensemble(solved.append, parameters())
    assert not solved and raised.traceback[-1].name == "parameters"
    if sys.version_info >= (3, 11):
        assert "member 1" in raised.value.__notes__[0]


def warn_of_growth(rate):
    if rate > 1:
        warnings.warn("the setting amplifies", quenta.GrowthWarning)
    return rate


@pytest.mark.parametrize("make", [contextlib.nullcontext, lambda: ThreadPoolExecutor(1), lambda: ProcessPoolExecutor(1)])
def test_warnings_of_members_are_issued(make):
    with make() as executor, pytest.warns(quenta.GrowthWarning, match="the setting amplifies"):
        found = quenta.ensemble(warn_of_growth, [0, 1, 2], executor=executor)
    assert found.values == [0, 1, 2] and not found.failures


def interrupt_at_3(rate):
    if rate == 3:
        raise KeyboardInterrupt
    return rate


@pytest.mark.parametrize("make", [contextlib.nullcontext, lambda: ThreadPoolExecutor(1), lambda: ProcessPoolExecutor(1)])
def test_an_interruption_keeps_the_solved_members(make):
    with make() as executor, pytest.raises(quenta.EnsembleInterrupt, match="3 of 9 members were solved") as raised:
        quenta.ensemble(interrupt_at_3, range(9), executor=executor, chunk=1)
    kept = raised.value.ensemble
    assert isinstance(raised.value, KeyboardInterrupt) and kept.values == [0, 1, 2] + [None] * 6
    assert [failure.index for failure in kept.failures] == list(range(3, 9))
    assert "not solved" in kept.failures[0].error


def test_a_signal_interrupts_an_ensemble_while_members_run():
    released = threading.Event()

    def wait(which):
        return which if which == 0 else released.wait(20)

    with ThreadPoolExecutor(1) as executor:
        threading.Timer(0.3, signal.raise_signal, [signal.SIGINT]).start()
        began = time.monotonic()
        with pytest.raises(quenta.EnsembleInterrupt) as raised:
            quenta.ensemble(wait, range(4), executor=executor, chunk=1)
        assert time.monotonic() - began < 10
        released.set()
    assert raised.value.ensemble.values == [0, None, None, None]


# ---- Refused arguments ----------------------------------------------------------------------------------------------


async def solve_async(rate):
    return rate


def yield_one(rate):
    yield rate


def shut_down():
    executor = ThreadPoolExecutor(1)
    executor.shutdown()
    return executor


class Table:
    def __iter__(self):
        return iter(["rate"])

    def itertuples(self):
        return iter([(1.0,)])


@pytest.mark.parametrize(
    "words, solve, parameters, options",
    [
        (r"executor: .*the class ThreadPoolExecutor; make one", str, [1], {"executor": ThreadPoolExecutor}),
        (r"executor: expected an executor that accepts work, got .*after shutdown", str, [1], {"executor": shut_down()}),
        ("executor: expected an executor of concurrent.futures", str, [1], {"executor": 4}),
        ("solve: .* got an async function", solve_async, [1], {}),
        ("solve: .* got a generator function", yield_one, [1], {}),
        ("solve: expected a function of one parameter, got 1", 1, [1], {}),
        ("parameters: .* got a dict", str, {"rate": 1}, {}),
        ("parameters: .* got a str", str, "rate", {}),
        ("parameters: .* got a Table", str, Table(), {}),
        ("parameters: expected a list or another iterable, got 1.0", str, 1.0, {}),
        ("parameters: expected a list or another iterable, got array", str, np.array(1.0), {}),
    ],
)
def test_invalid_arguments_are_refused(words, solve, parameters, options):
    with pytest.raises(ValueError, match=words):
        quenta.ensemble(solve, parameters, **options)


def test_an_endless_iterable_is_refused(monkeypatch):
    monkeypatch.setattr("quenta.ensembles._MOST_MEMBERS", 1000)
    with pytest.raises(ValueError, match="parameters: expected at most 1000, got more; the iterable may be endless"):
        quenta.ensemble(str, itertools.count())
    assert len(quenta.ensemble(str, range(1000))) == 1000


forked_pool = None


def solve_an_ensemble(rate):
    return quenta.ensemble(str, [rate, rate], executor=forked_pool).values


def solve_an_ensemble_here(rate):
    return quenta.ensemble(str, [rate, rate]).values


@pytest.mark.parametrize("make", [lambda: ThreadPoolExecutor(1), lambda: ProcessPoolExecutor(1)])
def test_a_nested_ensemble_does_not_wait_for_itself(make, monkeypatch):
    with make() as executor:
        monkeypatch.setitem(globals(), "forked_pool", executor)
        with pytest.warns(UserWarning, match="2 of 2 .*ValueError: executor: expected an executor that is not running"):
            quenta.ensemble(solve_an_ensemble, [1, 2], executor=executor)
        assert quenta.ensemble(solve_an_ensemble_here, [1, 2], executor=executor).values == [["1", "1"], ["2", "2"]]


def test_parameters_may_be_equal_and_need_not_be_hashable():
    with ThreadPoolExecutor(2) as executor:
        found = quenta.ensemble(str, [[1], [1], {"a": 1}, {"a": 1}], executor=executor, chunk=100)
    assert found.values == ["[1]", "[1]", "{'a': 1}", "{'a': 1}"]


class KilledWorker(Exception):
    """Raised by a cluster for all parts that were in a process when it died."""


class Cluster:
    """Runs parts together that were submitted together. If a member kills the process, all of them fail."""

    def __init__(self):
        self.queued, self.runs, self.one_at_a_time = queue.SimpleQueue(), 0, threading.Lock()

    def submit(self, function, *given):
        future = Future()
        self.queued.put((future, function, given))
        threading.Timer(0.01, self.run).start()
        return future

    def run(self):
        with self.one_at_a_time:
            together = [self.queued.get() for _ in range(self.queued.qsize())]
        self.runs += bool(together)
        ended = any(parameter == 13 for _, _, given in together for _, parameter in given[1])
        for future, function, given in together:
            if ended:
                future.set_exception(KilledWorker("a process ended"))
            else:
                future.set_result(function(*given))


@pytest.mark.parametrize("chunk", [1, 2, 100])
def test_only_the_member_that_kills_its_process_fails_on_a_cluster(chunk):
    cluster = Cluster()
    with pytest.warns(UserWarning, match="1 of 24 members failed; the first is member 12: KilledWorker"):
        found = quenta.ensemble(str, range(1, 25), executor=cluster, chunk=chunk)
    assert [failure.index for failure in found.failures] == [12] and cluster.runs > 2 + (chunk == 100)
    assert found.values == [str(which) if which != 13 else None for which in range(1, 25)]


# ---- A local cluster of processes -----------------------------------------------------------------------------------


# The cluster is slow to start. Where the tests run in several processes, all of its tests run in one.
def on_cluster(test):
    return pytest.mark.xdist_group("cluster")(pytest.mark.filterwarnings("ignore")(test))


@pytest.fixture(scope="module")
def client():
    with warnings.catch_warnings():
        warnings.simplefilter("ignore")
        distributed = pytest.importorskip("distributed")
        import dask

        dask.config.set({"distributed.worker.daemon": False})
        cluster = distributed.LocalCluster(
            n_workers=2, threads_per_worker=1, processes=True, dashboard_address=None, silence_logs=50
        )
        client = distributed.Client(cluster)
        yield client
        client.close()
        cluster.close()


@on_cluster
def test_no_member_is_lost_or_repeated_when_a_process_of_a_cluster_dies(client):
    rates = list(np.linspace(0.1, 2, 200))
    victim = next(iter(client.run(os.getpid).values()))
    killed_at = []

    def kill_in_the_middle():
        time.sleep(0.6)
        os.kill(victim, signal.SIGKILL)
        killed_at.append(time.monotonic())

    killer = threading.Thread(target=kill_in_the_middle)
    killer.start()
    found = quenta.ensemble(slow_last_value, rates, executor=client, chunk=2)
    ended = time.monotonic()
    killer.join()
    assert killed_at and killed_at[0] < ended
    assert not found.failures and len(found) == 200
    processes = {process for process, _ in found.values}
    assert processes - {victim}, "expected other processes to continue"
    assert [value for _, value in found.values] == [last_value(rate) for rate in rates]


@on_cluster
def test_failing_members_on_a_cluster(client):
    rates = [-rate if index == 5 else rate for index, rate in enumerate(RATES)]
    found = quenta.ensemble(last_value_of_a_positive, rates, executor=client, chunk=4)
    assert [failure.index for failure in found.failures] == [5]
    assert [value for index, value in enumerate(found.values) if index != 5] == EXPECTED[:5] + EXPECTED[6:]


@on_cluster
def test_an_object_that_cannot_be_pickled_is_a_failure_of_its_member_on_a_cluster(client):
    found = quenta.ensemble(return_a_lock_at_2, range(6), executor=client, chunk=3)
    assert found.values == [0, 1, None, 3, 4, 5] and "cannot be sent" in found.failures[0].error
    found = quenta.ensemble(str, [0, threading.Lock(), 2], executor=client, chunk=3)
    assert found.values == ["0", None, "2"] and "pickle" in found.failures[0].error
