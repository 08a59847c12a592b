"""The memory of a solve is reserved before it begins, and solves on several threads wait for each other."""

import os
import sys
import textwrap
import threading
import tracemalloc

import numpy as np
import pytest
from children import LIMITS, run_solver

import quenta
from quenta import machine_memory, memory_account, solve_memory
from quenta.arguments import all_finite
from quenta.memory_account import require_memory, reserve

MEGABYTE = 2**20
on_linux = pytest.mark.skipif(not sys.platform.startswith("linux"), reason="needs enforced limits of the address space")


# ---- Limits of the address space ------------------------------------------------------------------------------------


def run_limited(script, **environment):
    return run_solver(LIMITS + "import numpy as np\nimport quenta\n" + textwrap.dedent(script), **environment)


@on_linux
def test_results_and_working_memory_are_reserved_together():
    # If only the working memory were reserved, some of these limits would let the library run out of memory.
    ended = run_limited(
        """
        N = 844000
        g, K = np.ones(N), np.full(N, 1e-3)
        refused = 0
        for megabytes in range(2, 40):
            limit_addresses(megabytes * 1e6)
            try:
                quenta.solve_vie2(g, K, 1e-7, setting=(4, [2]))
                break
            except quenta.SizeError as refusal:
                assert "a solve of 52749 steps with setting (4, [2]), D = 1" in str(refusal), refusal
                refused += 1
        print(refused > 8, megabytes < 30)
        """
    )
    assert (ended.returncode, ended.stdout) == (0, "True True\n"), (ended.stdout, ended.stderr)


@on_linux
def test_threads_wait_if_memory_suffices_for_one_solve():
    ended = run_limited(
        """
        import threading

        N = 500001
        g, K = np.ones(N), np.full(N, 1e-3)
        values, started = [], threading.Barrier(5)

        def work():
            quenta.solve_vie2(g[:1000], K[:1000], 1e-6)
            started.wait()  # all threads have allocated their stacks and heaps
            started.wait()  # the limit is set
            try:
                values.append(quenta.solve_vie2(g, K, 1e-6, setting=(1, [1])).y[-1])
            except quenta.SizeError as refusal:
                values.append(refusal)

        threads = [threading.Thread(target=work) for _ in range(4)]
        for thread in threads:
            thread.start()
        started.wait()
        limit_addresses(160e6)  # a solve needs up to 88 MB, and its result 12 MB
        started.wait()
        for thread in threads:
            thread.join()
        print(len(values), len(set(map(str, values))))
        """,
        MALLOC_ARENA_MAX="1",  # otherwise the heaps of the threads contain spare memory
    )
    assert (ended.returncode, ended.stdout) == (0, "4 1\n"), (ended.stdout, ended.stderr)


@on_linux
def test_copies_of_arguments_are_reserved_with_the_solve():
    ended = run_limited(
        """
        N = 500001
        g, K = np.ones(N, np.float32), np.full(N, 1e-3, np.float32)
        limit_addresses(42e6)  # 8 MB of copies and 33.2 MB for the solve do not fit, so nothing is copied
        try:
            quenta.solve_vie2(g, K, 1e-6, setting=(3, [1, 2, 3]))
        except quenta.SizeError as refusal:
            print(refusal)
        """
    )
    assert ended.returncode == 0 and "with copies of its arguments, which takes 41." in ended.stdout, ended


# ---- Functions of time ----------------------------------------------------------------------------------------------


@pytest.fixture
def machine(monkeypatch):
    """A machine with adjustable memory, which records all reservations."""

    class Machine:
        room = 2**40
        asked = []

    given = Machine()
    given.asked = []

    class Counted(memory_account.Reservation):
        def __init__(self, size, what, *others):
            super().__init__(size, what, *others)
            given.asked.append((what, size))

    monkeypatch.setattr(memory_account, "machine_room", lambda: given.room)
    monkeypatch.setattr(memory_account, "address_room", lambda: None)
    monkeypatch.setattr(memory_account, "Reservation", Counted)
    return given


@pytest.mark.parametrize("D", [None, 2])
def test_functions_are_called_only_if_memory_suffices_for_their_values(machine, D):
    matrix = 1.0 if D is None else np.eye(D)

    def kernel(t):
        return (np.exp(-t) * np.cos(3 * t) + np.sin(t) ** 2)[(...,) + (None,) * (2 * (D is not None))] * matrix

    def solve():
        return quenta.solve_vie2(np.ones_like if D is None else lambda t: np.ones((len(t), D)), kernel, 2.5e-6, t_end=1.0)

    tracemalloc.start()
    try:
        solve()
        _, peak = tracemalloc.get_traced_memory()  # memory of NumPy arrays, not that of the library
    finally:
        tracemalloc.stop()
    functions = [size for what, size in machine.asked if "of the function" in what]
    assert len(functions) == 2 and max(functions) + 3.2e6 * (1 + (D or 1)) >= peak
    called = []
    machine.room = 2.8e7
    with pytest.raises(quenta.SizeError, match="fit into memory, got 400001 samples"):
        quenta.solve_vie2(np.ones_like, lambda t: called.append(t), 2.5e-6, t_end=1.0)
    assert not called


def test_the_message_names_a_function_that_runs_out_of_memory():
    def greedy(t):
        return np.ones(2**58) * t[0]

    with pytest.raises(quenta.SizeError, match="got 1001 values of the function K, which ran out of memory"):
        quenta.solve_vie2(1.0, greedy, 1e-3, t_end=1.0)


@pytest.mark.parametrize("value", [1e200, np.nan])
def test_the_check_for_finite_numbers_needs_no_memory(value):
    array = np.full(10**6, value)
    tracemalloc.start()
    try:
        finite = all_finite(array)
        if not finite:
            with pytest.raises(ValueError, match="expected finite numbers, got nan at index 0"):
                quenta.solve_vie2(array, array, 1e-6)
        _, peak = tracemalloc.get_traced_memory()
    finally:
        tracemalloc.stop()
    assert finite == np.isfinite(value) and peak < 2e5


def test_the_first_infinity_in_a_large_array_is_found():
    array = np.ones((10**5, 3))
    array[77777, 2] = np.inf
    with pytest.raises(ValueError, match=r"got inf at index \(77777, 2\)"):
        quenta.solve_vie2(array, np.eye(3), 1e-6)


# ---- The account ----------------------------------------------------------------------------------------------------


def test_a_reservation_waits_for_those_of_other_threads(machine):
    machine.room = 100 * MEGABYTE
    events = []

    def work():
        with reserve(60 * MEGABYTE, "another solve"):
            events.append("began")
        events.append("ended")

    with reserve(60 * MEGABYTE, "a solve"):
        thread = threading.Thread(target=work)
        thread.start()
        thread.join(0.2)
        assert thread.is_alive() and not events
        with reserve(90 * MEGABYTE, "a part of it"):  # included, since the thread is the same
            pass
    thread.join(20)
    assert events == ["began", "ended"]


def test_solves_wait_for_functions_for_a_limited_time(machine, monkeypatch):
    machine.room = 100 * MEGABYTE
    monkeypatch.setattr(memory_account, "_PATIENCE", 0.05)
    monkeypatch.setattr(memory_account, "_PATIENCE_WITH_FUNCTIONS", 0.5)
    events = []

    def solve():
        with reserve(90 * MEGABYTE, "a solve"):
            events.append("solved")

    with reserve(60 * MEGABYTE, "values of a function", True):
        solve()  # a function may solve
        thread = threading.Thread(target=solve)
        thread.start()
        thread.join(0.1)
        assert events == ["solved"]  # the other thread waits
        thread.join(20)  # a function may wait for a thread that solves
        assert events == ["solved", "solved"]


def test_what_does_not_fit_is_refused_when_nothing_else_is_running(machine):
    machine.room = 100 * MEGABYTE
    with pytest.raises(quenta.SizeError, match="got a solve, which takes 209.7 MB; 104.9 MB are free"):
        reserve(200 * MEGABYTE, "a solve")
    raised = []

    def work():
        try:
            require_memory(200 * MEGABYTE, "a solve")
        except quenta.SizeError as refusal:
            raised.append(refusal)

    with reserve(20 * MEGABYTE, "another solve"):
        thread = threading.Thread(target=work)
        thread.start()
        thread.join(0.2)
        assert thread.is_alive()  # more memory may become free when the other solve ends
    thread.join(20)
    assert len(raised) == 1


def test_small_solves_do_not_overtake_a_waiting_large_one(machine):
    machine.room = 100 * MEGABYTE
    order, threads = [], []

    def work(name, size):
        with reserve(size, name):
            order.append(name)

    with reserve(60 * MEGABYTE, "the first"):
        for name, size in (("large", 90 * MEGABYTE), ("small", 20 * MEGABYTE)):
            threads.append(threading.Thread(target=work, args=(name, size)))
            threads[-1].start()
            threads[-1].join(0.2)
    for thread in threads:
        thread.join(20)
    assert order == ["large", "small"]


def test_a_discarded_reservation_is_not_counted(machine):
    machine.room = 100 * MEGABYTE
    lost = reserve(60 * MEGABYTE, "a solve")
    lost.lend()
    del lost
    with reserve(60 * MEGABYTE, "another solve"):
        pass


def test_a_memory_error_becomes_a_size_error():
    for size in (0, 3 * MEGABYTE):
        with pytest.raises(quenta.SizeError, match="expected sizes that fit into memory"):
            with reserve(size, "a solve"):
                raise MemoryError
    assert not memory_account._account.running


@pytest.mark.skipif(not hasattr(os, "fork"), reason="this system has no fork")
@pytest.mark.filterwarnings("ignore:.*fork:DeprecationWarning")
def test_the_child_of_a_fork_starts_with_an_empty_account(machine):
    machine.room = 100 * MEGABYTE
    holding, over = threading.Event(), threading.Event()

    def hold():
        with reserve(60 * MEGABYTE, "a solve"), memory_account._account.changed:
            holding.set()
            over.wait()

    thread = threading.Thread(target=hold)
    thread.start()
    holding.wait()
    try:
        child = os.fork()
        if child == 0:
            import signal

            signal.alarm(20)
            with reserve(60 * MEGABYTE, "another solve"):
                os._exit(0)
        assert os.waitpid(child, 0)[1] == 0
    finally:
        over.set()
        thread.join()


# tests/unit/toeplitz_history_test.cpp compares the same numbers with the sizes of the arrays.
@pytest.mark.parametrize(
    "n, p, q, doubles",
    [
        (0, 3, 3, 0),
        (1, 3, 3, 9),
        (2, 3, 3, 30),
        (31, 200, 200, 1520000),
        (31, 1, 1, 31),
        (63, 9, 10, 8070),
        (64, 3, 4, 2560),
        (64, 1, 1, 192),
        (100, 2, 3, 1668),
        (200, 8, 9, 44352),
        (1000, 5, 5, 74280),
        (1000, 1, 1, 2920),
    ],
)
def test_the_size_of_the_history_blocks(n, p, q, doubles):
    assert solve_memory.history_blocks(n, p, q) == doubles


# The largest memory is measured per process, so each equation has a child of its own. Pages of files are subtracted,
# since the solve maps further pages of the library.
MEASURE_SOLVES = """
    import os
    from quenta import solve_memory

    def most_memory():
        with open("/proc/self/status") as file:
            sizes = dict(line.split(":") for line in file)
        largest, of_files = (1024 * int(sizes[name].split()[0]) for name in ("VmHWM", "RssFile"))
        return largest - of_files

    N, D = {steps} + 1, {D}
    g, K = np.zeros((N, D)), np.zeros((N, D, D)) + np.eye(D)

    def solve(equation, count):
        arrays = (g[:count], K[:count], K[:count], g[0])[: 4 if equation == "vide" else 2]
        return getattr(quenta, "solve_" + equation)(*arrays, 0.01, setting=(1, [1]))

    for equation in ("vie1", "vie2", "vide"):
        if os.fork() == 0:
            solve(equation, 2)
            before = most_memory()
            setting = solve(equation, N).setting
            reserved = solve_memory.solve_size(N, D, setting, equation == "vide")
            print(equation, (most_memory() - before) / reserved, flush=True)
            os._exit(0)
        os.wait()
    """


@on_linux
@pytest.mark.parametrize("D, steps", [(300, 31), (60, 100), (40, 400), (1, 300000)])
def test_a_solve_takes_most_of_its_reservation_and_no_more(D, steps):
    ended = run_limited(textwrap.dedent(MEASURE_SOLVES).format(D=D, steps=steps))
    assert ended.returncode == 0, ended.stderr
    fractions = {equation: float(used) for equation, used in map(str.split, ended.stdout.splitlines())}
    assert list(fractions) == ["vie1", "vie2", "vide"], ended.stderr
    assert all(0.6 < used <= 1 for used in fractions.values()), fractions


# ---- Control groups -------------------------------------------------------------------------------------------------

V2_MOUNT = "30 23 0:26 / /sys/fs/cgroup rw,nosuid shared:9 - cgroup2 cgroup2 rw,nsdelegate\n"
V1_MOUNT = "36 32 0:33 {shown} /sys/fs/cgroup/memory rw - cgroup cgroup rw,memory\n"
OTHER_MOUNT = "35 32 0:32 / /sys/fs/cgroup/cpu rw - cgroup cgroup rw,cpu\n24 0 8:1 / / rw - ext4 /dev/root rw\n"


@pytest.fixture
def system(tmp_path):
    def write(files):
        for name, text in files.items():
            (tmp_path / name).parent.mkdir(parents=True, exist_ok=True)
            (tmp_path / name).write_text(text)
        return tmp_path

    write({"proc/meminfo": "MemTotal: 999999 kB\nMemFree: 1 kB\nMemAvailable: 900000 kB\n"})
    return write


def v2_group(limit, used, cache=0):
    return {
        "memory.max": f"{limit}\n",
        "memory.current": f"{used}\n",
        "memory.stat": f"anon 5\ninactive_file {cache}\n",
    }


def v1_group(limit, used, cache=0):
    return {
        "memory.limit_in_bytes": f"{limit}\n",
        "memory.usage_in_bytes": f"{used}\n",
        "memory.stat": f"cache 5\ninactive_file 7\ntotal_inactive_file {cache}\n",
    }


def files(directory, group):
    return {f"{directory}/{name}": text for name, text in group.items()}


@pytest.mark.parametrize("limited", ["user.slice", "user.slice/job 7.scope", "user.slice/job 7.scope/step", ""])
def test_the_limits_of_all_parent_groups_apply(system, limited):
    below = "user.slice/job 7.scope/step"
    system({"proc/self/cgroup": f"0::/{below}\n", "proc/self/mountinfo": OTHER_MOUNT + V2_MOUNT})
    for group in ("user.slice", "user.slice/job 7.scope", below):
        system(files(f"sys/fs/cgroup/{group}", v2_group("max", 10**6)))
    root = system(files(f"sys/fs/cgroup/{limited}", v2_group(50_000_000, 20_000_000, 4_000_000)))
    assert machine_memory.machine_room(root) == 34_000_000


def test_the_limit_of_another_group_does_not_apply(system):
    system({"proc/self/cgroup": "0::/mine\n", "proc/self/mountinfo": V2_MOUNT})
    root = system(files("sys/fs/cgroup/other", v2_group(5000, 1000)))
    assert machine_memory.machine_room(root) == 900_000 * 1024


@pytest.mark.parametrize(
    "membership, shown",
    [("/lxc/job", "/"), ("/docker/7f/lxc/job", "/docker/7f"), ("/", "/"), ("/docker/8", "/docker/7"), ("/../8", "/")],
)
def test_limits_of_version_1_groups_and_in_containers(system, membership, shown):
    system(
        {
            "proc/self/cgroup": f"5:cpu,cpuacct:/elsewhere\n4:memory:{membership}\n0::{membership}\n",
            "proc/self/mountinfo": OTHER_MOUNT + V1_MOUNT.format(shown=shown),
        }
    )
    seen = "lxc/job" if membership.endswith("job") else ""
    root = system(files(f"sys/fs/cgroup/memory/{seen}", v1_group(50_000_000, 20_000_000, 1_000_000)))
    assert machine_memory.machine_room(root) == 31_000_000


def test_mount_points_with_spaces(system):
    mount = V2_MOUNT.replace("/sys/fs/cgroup", "/my\\040groups")
    system({"proc/self/cgroup": "0::/a\n", "proc/self/mountinfo": mount})
    assert machine_memory.machine_room(system(files("my groups/a", v2_group(3000, 1000)))) == 2000


def test_the_memory_of_the_machine(system):
    assert machine_memory.machine_room(system({})) == 900_000 * 1024
    strict = {
        "proc/meminfo": "MemAvailable: 900 kB\nCommitLimit: 800 kB\nCommitted_AS: 300 kB\n",
        "proc/sys/vm/overcommit_memory": "2\n",
    }
    assert machine_memory.machine_room(system(strict)) == 500 * 1024


def test_allocations_are_tried_where_the_system_reports_nothing(monkeypatch, tmp_path):
    monkeypatch.setitem(sys.modules, "psutil", None)
    assert machine_memory.machine_room(tmp_path) is None
    monkeypatch.setattr(memory_account, "machine_room", lambda: None)
    monkeypatch.setattr(memory_account, "address_room", lambda: None)
    require_memory(20 * MEGABYTE, "a solve")
    with pytest.raises(quenta.SizeError, match="fit into memory"):
        require_memory(2**60, "a solve")


def test_psutil_is_used_where_the_system_has_no_files(monkeypatch, tmp_path):
    class Memory:
        available = 12345

    class Psutil:
        virtual_memory = staticmethod(Memory)

    monkeypatch.setitem(sys.modules, "psutil", Psutil)
    assert machine_memory.machine_room(tmp_path) == 12345
