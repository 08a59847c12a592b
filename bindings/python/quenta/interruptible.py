"""Calls of the library that Ctrl-C can interrupt.

Python handles signals only on the main thread, and not while that thread is inside a foreign call. So another thread
makes long calls while the main thread waits. If a signal handler raises, the exception propagates immediately. The
abandoned call runs to its end. Until then its arrays stay alive and its memory stays reserved. It does not delay the
end of the process.
"""

from __future__ import annotations

import threading
from typing import Any, Callable, Optional

from .errors import SizeError
from .memory_account import Reservation, affords_thread
from .native_library import enter_thread
from .roomy_threads import start_roomy_thread, start_thread

#: Calls of at least this many seconds are made on another thread. Starting it takes about 0.1 milliseconds.
LONG = 0.1

# Seconds between checks for signals, where they do not interrupt the wait for a lock, as on Windows.
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
    """Makes the call on a new thread. Returns False if no thread can be started or if its stack is too small."""
    try:
        job.reservation.lend()
        start(job.run)
        while not job.finished.acquire(timeout=_PATIENCE):
            pass
    except BaseException as failure:
        if job.begun.acquire(blocking=False):  # the call has not begun, and now never will
            job.reservation.take_back()
            if isinstance(failure, RuntimeError) and "new thread" in str(failure):
                return False
        raise
    job.reservation.take_back()
    return not job.refused


class _Job:
    """A call to be made on another thread."""

    def __init__(
        self, function: Callable[..., int], arguments: tuple[Any, ...], arrays: Any, reservation: Reservation
    ) -> None:
        self.function, self.arguments, self.arrays, self.reservation = function, arguments, arrays, reservation
        # The thread that acquires `begun` decides whether the call is made. The end of the call releases `finished`.
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
        except SizeError:  # the stack of this thread is too small
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
                self.failure = None  # breaks a reference cycle: its frames refer to this object
        return self.result
