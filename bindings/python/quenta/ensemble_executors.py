"""Distributes the members of an ensemble over an executor. No member is lost or repeated, even if workers die."""

from __future__ import annotations

import collections
import concurrent.futures
import queue
from typing import Any, Callable, Generator, Iterator, Optional

from .ensemble_members import Member, Outcome, in_detail, in_one_line, origin, solve_members, unpacked

_CHUNKS = 64  # by default: enough to balance the load, and few enough for a low overhead
_SIGNAL_CHECK = 0.2  # seconds between checks for signals, which on some systems do not interrupt a waiting thread

Part = list[Member]
PartFuture = concurrent.futures.Future[list[Outcome]]


def solve_elsewhere(
    solve: Callable[[Any], Any], members: Part, executor: Any, chunk: Optional[int]
) -> Generator[list[Outcome], None, None]:
    """Yields the outcomes of all members in the order of completion. Closing it cancels members not yet started."""
    sharing = _Sharing(solve, executor)
    size = chunk or 1 + len(members) // _CHUNKS
    sharing.waiting.extend(members[first : first + size] for first in range(0, len(members), size))
    try:
        yield from sharing.outcomes()
    finally:
        # Before Python 3.12, shutting down a process pool can hang after futures were cancelled. Few are pending.
        if not isinstance(executor, concurrent.futures.ProcessPoolExecutor):
            for future in sharing.pending:
                future.cancel()


class _Sharing:
    def __init__(self, solve: Callable[[Any], Any], executor: Any) -> None:
        self.solve, self.origin = solve, origin(executor)
        if hasattr(executor, "get_executor"):  # a Client of Dask. Results must not be reused: members may be random
            executor = executor.get_executor(pure=False)
        self.executor = executor
        # A pool breaks as a whole. Parts that were not submitted yet cannot have broken it.
        workers = getattr(executor, "_max_workers", None)
        self.most_pending = 2 * workers if isinstance(workers, int) else None
        self.waiting: collections.deque[Part] = collections.deque()
        #: Parts that were running when a worker died. Each is run again with no other part pending.
        self.suspects: collections.deque[Part] = collections.deque()
        self.alone: Optional[Part] = None
        self.pending: dict[PartFuture, Part] = {}
        self.done: queue.SimpleQueue[PartFuture] = queue.SimpleQueue()
        self.started = False
        self.broken: Optional[BaseException] = None
        self.in_flight: Part = []  # members that were submitted when the executor broke

    def outcomes(self) -> Iterator[list[Outcome]]:
        while True:
            yield from self.submit_all()
            if not self.pending:
                break
            try:
                future = self.done.get(timeout=_SIGNAL_CHECK)
            except queue.Empty:
                continue
            yield from self.outcomes_of(future, self.pending.pop(future))
        if self.broken is not None and self.in_flight:
            numbers = ", ".join(str(index) for index, _ in sorted(self.in_flight, key=lambda member: member[0]))
            error = f"{in_one_line(self.broken)} (in flight: {numbers})"
            yield _lost(self.in_flight, error, in_detail(self.broken))

    def submit_all(self) -> Iterator[list[Outcome]]:
        while self.waiting and (self.most_pending is None or len(self.pending) < self.most_pending):
            yield from self.submit(self.waiting.popleft())
        if self.suspects and not self.pending and not self.waiting:
            self.alone = self.suspects.popleft()
            yield from self.submit(self.alone)

    def submit(self, part: Part) -> Iterator[list[Outcome]]:
        if self.broken is not None:
            error = f"not run because the executor had failed: {in_one_line(self.broken)}"
            yield _lost(part, error, in_detail(self.broken))
            return
        try:
            future = self.executor.submit(solve_members, self.solve, part, self.origin)
        except RuntimeError as failure:  # broken or shut down
            if not self.started:
                raise ValueError(
                    f"executor: expected an executor that accepts work, got one that raises {in_one_line(failure)}"
                ) from failure
            self.broken = failure
            self.waiting.appendleft(part)
        except Exception as failure:
            yield from self.divide(part, failure, self.waiting)
        else:
            self.started = True
            self.pending[future] = part
            future.add_done_callback(self.done.put)

    def outcomes_of(self, future: PartFuture, part: Part) -> Iterator[list[Outcome]]:
        if future.cancelled():
            yield _lost(part, "cancelled in the executor", "")
            return
        failure = future.exception()
        if failure is None:
            yield [unpacked(outcome) for outcome in future.result()]
        elif isinstance(failure, KeyboardInterrupt):
            raise failure
        elif isinstance(failure, concurrent.futures.BrokenExecutor):
            self.broken = failure
            self.in_flight += part
        elif type(failure).__name__ == "KilledWorker":  # Dask raises it for all parts that were in the dead process
            if part is self.alone:
                yield from self.divide(part, failure, self.suspects)
            else:
                self.suspects.append(part)
        else:
            yield from self.divide(part, failure, self.waiting)

    def divide(self, part: Part, failure: BaseException, line: collections.deque[Part]) -> Iterator[list[Outcome]]:
        """Resubmits the members of a failed part one by one, so that only the member that causes the failure fails."""
        if len(part) == 1:
            yield _lost(part, in_one_line(failure), in_detail(failure))
        else:
            line.extendleft([member] for member in reversed(part))


def _lost(part: Part, error: str, details: str) -> list[Outcome]:
    return [Outcome(index, None, error, details, []) for index, _ in part]
