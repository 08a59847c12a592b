"""The memory that is available to this process: within its own limits, its control groups and the machine.

Trial allocations are not used, since they would take memory that solves on other threads need.
"""

from __future__ import annotations

import ctypes
import functools
import pathlib
from typing import Iterator, Optional

try:
    import resource
except ImportError:  # Windows
    resource = None  # type: ignore[assignment]

_ROOT = pathlib.Path("/")

# Parameters of mallopt in glibc.
_M_MMAP_THRESHOLD, _MAPPED = -3, 2**20


def address_room() -> Optional[int]:
    """The bytes of address space that the limits of this process leave, or None if no limit is known."""
    if resource is None:
        return None
    rooms = []
    for limit, field in ((resource.RLIMIT_AS, 0), (resource.RLIMIT_DATA, 5)):
        most, _ = resource.getrlimit(limit)
        if most != resource.RLIM_INFINITY:
            try:
                with open("/proc/self/statm", encoding="ascii") as pages:
                    rooms.append(most - int(pages.read().split()[field]) * resource.getpagesize())
            except OSError:  # not Linux
                return None
    if rooms:
        _give_back_at_once()
    return min(rooms, default=None)


@functools.lru_cache(maxsize=None)
def _give_back_at_once() -> None:
    """Makes free() return address space. Otherwise the heap of each thread may keep tens of megabytes."""
    try:
        ctypes.CDLL(None).mallopt(_M_MMAP_THRESHOLD, _MAPPED)
    except (AttributeError, OSError, TypeError):  # another C library
        pass


def machine_room(root: pathlib.Path = _ROOT) -> Optional[int]:
    """The bytes that the machine and the control groups can provide without swapping, or None if unknown."""
    return min([*_free_memory(root), *_group_rooms(root)], default=None)


def _free_memory(root: pathlib.Path) -> Iterator[int]:
    try:
        lines = (root / "proc/meminfo").read_text(encoding="ascii").splitlines()
    except OSError:  # not Linux
        yield from _free_memory_elsewhere()
        return
    sizes = {name: 1024 * int(value.split()[0]) for name, _, value in (line.partition(":") for line in lines)}
    if "MemAvailable" in sizes:
        yield sizes["MemAvailable"]
    if _number(root / "proc/sys/vm/overcommit_memory") == 2:  # allocated memory counts even if it was never written
        yield sizes["CommitLimit"] - sizes["Committed_AS"]


def _free_memory_elsewhere() -> Iterator[int]:
    try:
        import psutil  # type: ignore[import]
    except ImportError:
        return
    yield int(psutil.virtual_memory().available)


# ---- Control groups -------------------------------------------------------------------------------------------------

# The files of a group, in versions 2 and 1: the limit, the memory in use, and the statistics of the part in use that
# the kernel can reclaim, such as cached files.
_GROUP_FILES = (
    ("memory.max", "memory.current", ("inactive_file", "active_file", "slab_reclaimable")),
    ("memory.limit_in_bytes", "memory.usage_in_bytes", ("total_inactive_file", "total_active_file")),
)


def _group_rooms(root: pathlib.Path) -> Iterator[int]:
    """The free bytes of every limited group among this process's group and its parents."""
    for group in _groups(root):
        for limit_file, used_file, reclaimable in _GROUP_FILES:
            limit, used = _number(group / limit_file), _number(group / used_file)
            if limit is not None and used is not None:
                yield limit - used + sum(_statistics(group / "memory.stat", reclaimable))


def _groups(root: pathlib.Path) -> Iterator[pathlib.Path]:
    """The directories of the groups that this process belongs to, up to the mount point of each hierarchy."""
    try:
        memberships = (root / "proc/self/cgroup").read_text(encoding="utf-8").splitlines()
        mounts = (root / "proc/self/mountinfo").read_text(encoding="utf-8").splitlines()
    except OSError:
        return
    paths = {}
    for membership in memberships:
        _, controllers, path = membership.split(":", 2)
        if not controllers:
            paths["cgroup2"] = path
        elif "memory" in controllers.split(","):
            paths["cgroup"] = path
    for mount in mounts:
        place, _, system = mount.partition(" - ")
        kind, _, options = system.split(" ", 2)
        if kind not in paths or (kind == "cgroup" and "memory" not in options.split(",")):
            continue
        shown, mounted = (_unescaped(name) for name in place.split(" ")[3:5])
        top = root / mounted.lstrip("/")
        try:
            below = pathlib.PurePosixPath(paths[kind]).relative_to(shown)
        except ValueError:  # in a container only a part of the hierarchy is mounted, from the group of this process on
            below = pathlib.PurePosixPath()
        if ".." in below.parts:  # a group that is not visible to this process
            below = pathlib.PurePosixPath()
        yield from (top / group for group in (below, *below.parents))


def _unescaped(name: str) -> str:
    """Decodes a path from the kernel's list, in which a space is \\040."""
    return name.encode("latin-1", "backslashreplace").decode("unicode_escape")


def _number(file: pathlib.Path) -> Optional[int]:
    try:
        return int(file.read_text(encoding="ascii"))
    except (OSError, ValueError):  # no such file, or "max"
        return None


def _statistics(file: pathlib.Path, names: tuple[str, ...]) -> Iterator[int]:
    try:
        lines = file.read_text(encoding="ascii").splitlines()
    except OSError:
        return
    for line in lines:
        name, _, value = line.partition(" ")
        if name in names:
            yield int(value)
