"""Whether a solve fits into memory: the library has no way to say that it does not, but to end the process."""

from __future__ import annotations

import pathlib
from typing import Optional

import numpy as np

from .errors import SizeError

# In bytes: what every process has to spare, and what is worth a look at the whole machine.
SMALL, _LARGE = 2**20, 2**27


def require_memory(size: int, what: str) -> None:
    """Raises a `SizeError` if so many bytes, which `what` takes, are not to be had."""
    if size < SMALL:
        return
    available = _available() if size >= _LARGE else None
    refused = available is not None and size > available
    if not refused:
        try:
            np.empty(size + size // 8, np.uint8)  # a trial, which touches nothing, shows the limits of the process
        except MemoryError:
            refused = True
    if refused:
        there = "" if available is None else f", where {available / 1e9:.1f} GB are free"
        raise SizeError(f"g: expected sizes that fit into memory, came {what}, which takes {size / 1e9:.2f} GB{there}")


def _available() -> Optional[int]:
    """The bytes that the system can give without swapping, where it tells."""
    try:
        lines = pathlib.Path("/proc/meminfo").read_text(encoding="ascii").splitlines()
        machine = 1024 * next(int(line.split()[1]) for line in lines if line.startswith("MemAvailable:"))
    except (OSError, StopIteration):
        return None
    group = pathlib.Path("/sys/fs/cgroup")
    try:
        limit, used = ((group / name).read_text(encoding="ascii") for name in ("memory.max", "memory.current"))
        return min(machine, int(limit) - int(used))
    except (OSError, ValueError):  # no such group, or no limit
        return machine
