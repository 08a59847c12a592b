"""Reserves memory for the solves of this process. A solve waits until it fits in addition to the running ones.

The library ends the process if memory runs out. So all memory of a solve is reserved before it begins. A reservation
for a function of the caller is special: the function may solve, or wait for threads that solve. So other solves wait
for it only for a limited time.
"""

from __future__ import annotations

import collections
import os
import threading
import time
import weakref
from types import TracebackType
from typing import Optional

import numpy as np

from .errors import SizeError
from .machine_memory import address_room, machine_room

# In bytes. Sizes below the first are not counted. From the second on the memory of the machine is queried, which takes
# a fraction of a millisecond.
SMALL, _LARGE = 2**20, 2**24
# The address space of a new thread, for its heap and its stack.
_THREAD = 2**27 + 2**24
# Seconds between queries of the available memory, which may grow without the end of a solve.
_PATIENCE = 0.5
# Seconds for which a solve waits for functions of the caller on other threads.
_PATIENCE_WITH_FUNCTIONS = 5.0


class Reservation:
    """Memory that is counted until the end of the `with` block or, after `lend`, until `release`.

    Reservations of the same thread within the block are part of it. A MemoryError in the block becomes a SizeError.
    """

    def __init__(self, size: int, what: str, for_function: bool = False) -> None:
        self.size, self.what, self.for_function = size, what, for_function
        self.thread: Optional[int] = threading.get_ident()

    def lend(self) -> None:
        """Passes the reservation to another thread, which must release it."""
        self.thread = None

    def take_back(self) -> None:
        self.thread = threading.get_ident()

    def release(self) -> None:
        if self.size:
            _account.remove(self)

    def __enter__(self) -> Reservation:
        return self

    def __exit__(
        self, kind: Optional[type[BaseException]], failure: Optional[BaseException], trace: Optional[TracebackType]
    ) -> None:
        if self.size and self.thread is not None:
            self.release()
        if failure is not None and isinstance(failure, MemoryError):
            raise refusal(self.size, self.what) from failure


class _Nothing(Reservation):
    """A reservation that is not counted."""

    def lend(self) -> None:
        pass

    take_back = lend


#: The reservation for sizes that are not counted.
NOTHING: Reservation = _Nothing(0, "a small solve")


def reserve(size: int, what: str, for_function: bool = False) -> Reservation:
    """Reserves `size` bytes for `what` as soon as they fit in addition to all running solves.

    Raises a `SizeError` if they are not available even though nothing else is running.
    """
    return NOTHING if size < SMALL else _account.add(Reservation(size, what, for_function))


def require_memory(size: int, what: str) -> None:
    """Waits until `size` bytes are available. Reserves nothing."""
    if size >= SMALL:
        _account.add(Reservation(size, what)).release()


def affords_thread() -> bool:
    """Whether memory suffices for one more thread in addition to all running solves."""
    return _account.affords_thread()


def refusal(size: int, what: str, room: Optional[int] = None) -> SizeError:
    takes = f", which takes {_size_text(size)}" if size else ""
    free = "" if room is None else f"; {_size_text(max(room, 0))} are free"
    return SizeError(f"g: expected sizes that fit into memory, got {what}{takes}{free}")


def _size_text(size: int) -> str:
    return f"{size / 1e9:.2f} GB" if size >= 1e9 else f"{size / 1e6:.1f} MB"


class _Account:
    """The reservations of the process, and the queue of waiting ones."""

    def __init__(self) -> None:
        self.changed = threading.Condition()
        # Weak references: a reservation that an exception left unreleased disappears with the frames that refer to it.
        self.running: weakref.WeakSet[Reservation] = weakref.WeakSet()
        self.waiting: collections.deque[Reservation] = collections.deque()

    def add(self, wanted: Reservation) -> Reservation:
        with self.changed:
            if any(other.thread == wanted.thread and not other.for_function for other in self.running):
                return NOTHING
            self.waiting.append(wanted)
            until = time.monotonic() + _PATIENCE_WITH_FUNCTIONS
            try:
                # In order of arrival, so that small solves cannot starve a large one.
                while self.waiting[0] is not wanted or not self._fits(wanted, time.monotonic() < until):
                    self.changed.wait(_PATIENCE)
                self.running.add(wanted)
            finally:
                self.waiting.remove(wanted)
                self.changed.notify_all()
        return wanted

    def remove(self, reservation: Reservation) -> None:
        with self.changed:
            self.running.discard(reservation)
            self.changed.notify_all()

    def _fits(self, wanted: Reservation, with_functions: bool) -> bool:
        # It is unknown how much the running solves have allocated, so their whole size counts as not yet allocated.
        others = [
            other.size
            for other in self.running
            if not other.for_function or (with_functions and other.thread != wanted.thread)
        ]
        total = wanted.size + sum(others)
        room = _addresses_beside(total)
        if total >= _LARGE:
            machine = machine_room()
            if machine is None and room is None and not others and not _trial(total):
                raise refusal(wanted.size, wanted.what)
            room = min((known for known in (room, machine) if known is not None), default=None)
        fits = room is None or total <= room
        if not fits and not others:
            raise refusal(wanted.size, wanted.what, room)
        return fits

    def affords_thread(self) -> bool:
        with self.changed:
            total = sum(other.size for other in self.running)
            room = _addresses_beside(total)
            return room is None or total + _THREAD <= room


def _addresses_beside(total: int) -> Optional[int]:
    """The address space for solves of this total size. A margin is left, since allocations are rounded up."""
    room = address_room()
    return None if room is None else room - SMALL - total // 8


def _trial(size: int) -> bool:
    """Tries to allocate this many bytes. Used where the system reports no limits."""
    try:
        np.empty(size + size // 8, np.uint8)
    except (MemoryError, ValueError):  # ValueError if the size exceeds the address range
        return False
    return True


_account = _Account()


def _forget() -> None:
    """Resets the account in a forked child, where no solve is running and locks held at the fork stay held."""
    global _account
    _account = _Account()


if hasattr(os, "register_at_fork"):
    os.register_at_fork(after_in_child=_forget)
