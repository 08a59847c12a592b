"""Calls into the library that Ctrl-C interrupts.

Python handles a signal on the main thread alone, and only after the call in which that thread is has returned. So the
main thread has another thread make a long call, and waits. If a signal handler raises meanwhile, the exception leaves
at once. The call that is abandoned ends by itself; until then it keeps its arrays, and its memory stays reserved. It
does not delay the end of the process.
"""

from __future__ import annotations

import threading
from typing import Any, Callable, Optional

from .errors import SizeError
from .memory_account import Reservation, affords_thread
from .native_library import enter_thread
from .roomy_threads import start_roomy_thread, start_thread

#: Seconds from which on a call is long. Another thread for it takes about a ten-thousandth of a second.
LONG = 0.1

# Seconds. Where a signal does not end the wait for a lock, as on Windows, it is handled after this time.
_PATIENCE = 0.2


def call(
    function: Callable[..., int], arguments: tuple[Any, ...], seconds: float, arrays: Any, reservation: Reservation
) -> int:
    """Returns function(*arguments). `seconds` is the expected duration; `arrays` are kept alive during the call."""
    if seconds < LONG or threading.current_thread() is not threading.main_thread() or not affords_thread():
        return function(*arguments)
    for start in (start_thread, start_roomy_thread):
        job = _Job(function, arguments, arrays, reservation)
        if _made_elsewhere(job, start):
            return job.outcome()
    return function(*arguments)


def _made_elsewhere(job: _Job, start: Callable[[Callable[[], None]], None]) -> bool:
    """Waits for a new thread to make the call. False if there can be none, or if its stack is too small."""
    try:
        job.reservation.lend()
        start(job.run)
        while not job.finished.acquire(timeout=_PATIENCE):
            pass
    except BaseException as failure:
        if job.begun.acquire(blocking=False):  # the call is not made, and never will be
            job.reservation.take_back()
            if isinstance(failure, RuntimeError) and "new thread" in str(failure):
                return False
        raise
    job.reservation.take_back()
    return not job.refused


class _Job:
    """A call for another thread."""

    def __init__(
        self, function: Callable[..., int], arguments: tuple[Any, ...], arrays: Any, reservation: Reservation
    ) -> None:
        self.function, self.arguments, self.arrays, self.reservation = function, arguments, arrays, reservation
        # The thread that acquires `begun` decides whether the call is made. `finished` is released when the call ends.
        self.begun, self.finished = threading.Lock(), threading.Lock()
        self.finished.acquire()
        self.refused = False
        self.failure: Optional[BaseException] = None
        self.result = 0

    def run(self) -> None:
        if not self.begun.acquire(blocking=False):
            return
        try:
            enter_thread()
            self.result = self.function(*self.arguments)
        except SizeError:  # the threads of this process have too small a stack
            self.refused = True
        except BaseException as failure:
            self.failure = failure
        finally:
            if not self.refused:
                self.reservation.release()
            self.finished.release()

    def outcome(self) -> int:
        if self.failure is not None:
            try:
                raise self.failure
            finally:
                self.failure = None  # whose frames refer to this object
        return self.result
