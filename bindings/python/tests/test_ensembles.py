"""Ensembles: the order is kept, failures are reported, and no member is lost or counted twice, whatever dies."""

import os
import signal
import threading
import time
import warnings
from concurrent.futures import Future, ProcessPoolExecutor, ThreadPoolExecutor

import numpy as np
import pytest

import quenta

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


def end_this_process(rate):
    if rate == 13:
        os.kill(os.getpid(), signal.SIGKILL)
    return last_value(rate)


RATES = list(np.linspace(0.1, 2, 40))
EXPECTED = [last_value(rate) for rate in RATES]


@pytest.mark.parametrize("chunk", [None, 1, 7, 1000])
@pytest.mark.parametrize("make", [lambda: None, lambda: ThreadPoolExecutor(2), lambda: ProcessPoolExecutor(2)])
def test_every_executor_gives_the_same(make, chunk):
    executor = make()
    try:
        found = quenta.ensemble(last_value, iter(RATES), executor=executor, chunk=chunk)
    finally:
        if executor is not None:
            executor.shutdown()
    assert found.values == EXPECTED and found.parameters == RATES and not found.failures and len(found) == 40


@pytest.mark.parametrize("make", [lambda: None, lambda: ThreadPoolExecutor(2), lambda: ProcessPoolExecutor(2)])
def test_failing_members_are_reported_and_the_rest_finish(make):
    rates = [-rate if index in (3, 17) else rate for index, rate in enumerate(RATES)]
    executor = make()
    try:
        with pytest.warns(UserWarning, match="2 of 40 members failed; the first is member 3: ArithmeticError"):
            found = quenta.ensemble(last_value_of_a_positive, rates, executor=executor, chunk=5)
    finally:
        if executor is not None:
            executor.shutdown()
    assert [failure.index for failure in found.failures] == [3, 17]
    assert found.failures[0].parameter == rates[3] and "is negative" in found.failures[0].error
    assert "last_value_of_a_positive" in found.failures[0].details
    for index, value in enumerate(found.values):
        assert value == (None if index in (3, 17) else EXPECTED[index])


def test_no_members():
    assert len(quenta.ensemble(last_value, [])) == 0
    with ThreadPoolExecutor(1) as executor:
        assert quenta.ensemble(last_value, [], executor=executor).values == []


def test_a_function_that_does_not_travel_is_reported():
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


def test_an_interruption_leaves_nothing_pending():
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


def test_a_pool_whose_process_ends_keeps_what_was_solved_and_reports_the_rest():
    rates = [float(rate) for rate in range(1, 30)]
    with ProcessPoolExecutor(1) as executor, pytest.warns(UserWarning, match="BrokenProcessPool"):
        found = quenta.ensemble(end_this_process, rates, executor=executor, chunk=1)
    solved = [index for index, value in enumerate(found.values) if value is not None]
    assert sorted(solved + [failure.index for failure in found.failures]) == list(range(29))
    assert 12 in [failure.index for failure in found.failures]
    assert solved and all(found.values[index] == last_value(rates[index]) for index in solved)


# ---- A local cluster of processes -----------------------------------------------------------------------------------


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


@pytest.mark.filterwarnings("ignore")
def test_a_killed_process_of_a_cluster_loses_nothing_and_doubles_nothing(client):
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
    assert killed_at and killed_at[0] < ended  # it did happen in the middle
    assert not found.failures and len(found) == 200
    processes = {process for process, _ in found.values}
    assert processes - {victim}, "the others went on"
    assert [value for _, value in found.values] == [last_value(rate) for rate in rates]


@pytest.mark.filterwarnings("ignore")
def test_failing_members_on_a_cluster(client):
    rates = [-rate if index == 5 else rate for index, rate in enumerate(RATES)]
    found = quenta.ensemble(last_value_of_a_positive, rates, executor=client, chunk=4)
    assert [failure.index for failure in found.failures] == [5]
    assert [value for index, value in enumerate(found.values) if index != 5] == EXPECTED[:5] + EXPECTED[6:]
