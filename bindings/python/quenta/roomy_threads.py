"""Starts threads that do not delay the end of the process, with the default stack or with a larger one.

`threading.stack_size` applies to all new threads, and even reading the value resets it. So a thread with a large stack
is created by the system directly.
"""

from __future__ import annotations

import _thread
import collections
import ctypes
from ctypes import byref, c_char, c_size_t, c_ulong, c_void_p
from typing import Callable

from .native_library import LEAST_STACK

_to_run: collections.deque[Callable[[], None]] = collections.deque()


def _run_next(_: object) -> None:
    _to_run.popleft()()


_routine = ctypes.CFUNCTYPE(c_void_p, c_void_p)(_run_next)


def start_thread(work: Callable[[], None]) -> None:
    """Starts a thread. Raises a RuntimeError if that is not possible."""
    _thread.start_new_thread(work, ())


def start_roomy_thread(work: Callable[[], None]) -> None:
    """Starts a thread with a large stack. Raises a RuntimeError if that is not possible, or not a POSIX system."""
    attributes, thread = (c_char * 256)(), c_ulong()
    try:
        system = ctypes.CDLL(None)
        create, set_stack_size = system.pthread_create, system.pthread_attr_setstacksize
    except (AttributeError, OSError, TypeError):
        raise RuntimeError("can't start new thread with a large stack") from None
    system.pthread_attr_init(attributes)
    set_stack_size(attributes, c_size_t(2 * LEAST_STACK))
    _to_run.append(work)
    status = create(byref(thread), attributes, _routine, None)
    if status == 0:
        system.pthread_detach(thread)
    else:
        _to_run.remove(work)
    system.pthread_attr_destroy(attributes)
    if status != 0:
        raise RuntimeError("can't start new thread with a large stack")
