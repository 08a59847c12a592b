"""How much memory this process can still take: what its own limits, its control groups and the machine leave.

Nothing is allocated to find out. A trial allocation would take from solves on other threads what they need.
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

# Of mallopt, in the C library of GNU.
_M_MMAP_THRESHOLD, _MAPPED = -3, 2**20


def address_room() -> Optional[int]:
    """The bytes of address space that the limits of this process leave; None if there is no limit that is known."""
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
    """Lets free() return addresses. The heap of each thread would otherwise keep tens of megabytes for itself."""
    try:
        ctypes.CDLL(None).mallopt(_M_MMAP_THRESHOLD, _MAPPED)
    except (AttributeError, OSError, TypeError):  # another C library
        pass


def machine_room(root: pathlib.Path = _ROOT) -> Optional[int]:
    """The bytes that the machine and the control groups of this process can give without swapping; None if unknown."""
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
    if _number(root / "proc/sys/vm/overcommit_memory") == 2:  # every allocation counts, also one not yet written to
        yield sizes["CommitLimit"] - sizes["Committed_AS"]


def _free_memory_elsewhere() -> Iterator[int]:
    try:
        import psutil  # type: ignore[import]
    except ImportError:
        return
    yield int(psutil.virtual_memory().available)


# ---- Control groups -------------------------------------------------------------------------------------------------

# The files of a group, in version 2 and in version 1: the limit, what is used, and what of that the kernel gives up
# before it refuses anything: the cache of files.
_GROUP_FILES = (
    ("memory.max", "memory.current", ("inactive_file", "active_file", "slab_reclaimable")),
    ("memory.limit_in_bytes", "memory.usage_in_bytes", ("total_inactive_file", "total_active_file")),
)


def _group_rooms(root: pathlib.Path) -> Iterator[int]:
    """What is left of the limit of this process's group, and of every group above it that has one."""
    for group in _groups(root):
        for limit_file, used_file, reclaimable in _GROUP_FILES:
            limit, used = _number(group / limit_file), _number(group / used_file)
            if limit is not None and used is not None:
                yield limit - used + sum(_statistics(group / "memory.stat", reclaimable))


def _groups(root: pathlib.Path) -> Iterator[pathlib.Path]:
    """The directories of the groups that count the memory of this process, up to where each tree is mounted."""
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
        except ValueError:  # only a part of the tree is mounted, in a container; its top is this process's group
            below = pathlib.PurePosixPath()
        if ".." in below.parts:  # a group outside of what this process may see
            below = pathlib.PurePosixPath()
        yield from (top / group for group in (below, *below.parents))


def _unescaped(name: str) -> str:
    """A path as the kernel lists it, where a blank is \\040."""
    return name.encode("latin-1", "backslashreplace").decode("unicode_escape")


def _number(file: pathlib.Path) -> Optional[int]:
    try:
        return int(file.read_text(encoding="ascii"))
    except (OSError, ValueError):  # not there, or the word for no limit
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
