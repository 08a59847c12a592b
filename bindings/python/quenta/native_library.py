"""The shared library: its location, the signatures of its functions, and its initialization.

The library does not validate its arguments: contradictory ones end the process. Only the solvers of this package call
it, after checking every argument.
"""

from __future__ import annotations

import ctypes
import os
import pathlib
import sys
import threading
from ctypes import POINTER, byref, c_double, c_int, c_void_p
from typing import Optional

from .errors import SizeError

SOLVED, UNSUPPORTED_SETTING, SINGULAR_BLOCK, SIZE_OVERFLOW = range(4)

LARGEST_INDEX = 2**31 - 1
_SETTING_COUNT, _SETTING_WIDTH = 56, 6
_VARIABLE = "QUENTA_LIBRARY"
_NAMES = {
    "win32": ("quenta_native.dll", "libquenta_native.dll"),
    "darwin": ("libquenta_native.dylib",),
}.get(sys.platform, ("libquenta_native.so", "libquenta_native.so.0"))


def _load() -> ctypes.CDLL:
    """Loads the library from the environment variable, or else from the package, the prefix or the system."""
    named = os.environ.get(_VARIABLE)
    if named is not None:
        try:
            return ctypes.CDLL(named)
        except OSError as failure:
            raise ImportError(f"{_VARIABLE}: expected the path of the shared library, got {named!r}: {failure}") from None
    package, prefix = pathlib.Path(__file__).parent, pathlib.Path(sys.prefix)
    for directory in (package, prefix / "lib", prefix / "lib64", prefix / "bin"):
        for name in _NAMES:
            if (directory / name).is_file():
                return ctypes.CDLL(str(directory / name))
    for name in reversed(_NAMES):
        try:
            return ctypes.CDLL(name)
        except OSError:
            pass
    raise ImportError(
        f"expected the shared library {_NAMES[0]} in {package}, {prefix} or the search path of the system, got none of "
        f"this name; set the environment variable {_VARIABLE} to its path"
    )


# Argument types by letter: p pointer to an array, or null; i int; d double; o pointer to an int.
_KINDS = {"p": c_void_p, "i": c_int, "d": c_double, "o": POINTER(c_int)}
_SIGNATURES = {
    "quenta_rt_init": "",
    "quenta_num_supported_settings": "",
    "function_solve_max_p": "",
    "function_solve_max_d": "",
    "quenta_solve_vie1": "ppiddipiiippo",
    "quenta_solve_vie1_vec": "ppiipdipiiippo",
    "quenta_solve_vie2": "ppidipiippo",
    "quenta_solve_vie2_vec": "ppiidipiippo",
    "quenta_solve_vide": "pppiddipiippo",
    "quenta_solve_vide_vec": "pppiipdipiippo",
    "function_solve_vie1": "ppiip",
    "function_solve_vie1_vec": "ppiiip",
    "function_solve_vie1_cont": "ppiipddpp",
    "function_solve_vie1_cont_vec": "ppiiipdppp",
    "function_solve_vie2": "ppiip",
    "function_solve_vie2_vec": "ppiiip",
    "function_solve_vide": "ppppppdiipp",
    "function_solve_vide_vec": "pppppppiiipp",
}


def _declare(library: ctypes.CDLL) -> None:
    try:
        for name, letters in _SIGNATURES.items():
            function = getattr(library, name)
            function.argtypes = [_KINDS[letter] for letter in letters]
            function.restype = c_int
        for name, argument_types in (("quenta_gc_collect", []), ("quenta_get_supported_settings", [POINTER(c_int)])):
            function = getattr(library, name)
            function.argtypes = argument_types
            function.restype = None
    except AttributeError as missing:
        raise ImportError(f"expected the library quenta_native, got {library._name}: {missing}") from None
    count = library.quenta_num_supported_settings()
    if count != _SETTING_COUNT:
        raise ImportError(f"{library._name}: expected a table of {_SETTING_COUNT} settings, got {count}")
    if not library.quenta_rt_init():
        raise ImportError(f"{library._name}: initialization failed")


# The import lock ensures that the library is initialized before any other thread calls it.
library = _load()
_declare(library)

MOST_POINTS: int = library.function_solve_max_p()
MOST_DIMENSIONS: int = library.function_solve_max_d()


def settings_table() -> list[list[int]]:
    """The rows of the table of settings, each m followed by the nodes."""
    table = (c_int * (_SETTING_COUNT * _SETTING_WIDTH))()
    library.quenta_get_supported_settings(table)
    rows = [table[first : first + _SETTING_WIDTH] for first in range(0, len(table), _SETTING_WIDTH)]
    return [[number for number in row if number >= 0] for row in rows]


# ---- Threads --------------------------------------------------------------------------------------------------------

LEAST_STACK = 512 * 1024  # bytes: up to 128 KiB for a solver, and the rest for the interpreter
_thread = threading.local()


def enter_thread() -> None:
    """Must be called before every solve. The first call on a thread checks the size of its stack."""
    if not hasattr(_thread, "has_enough_stack"):
        _check_stack()


def _stack_size() -> Optional[int]:
    """The size of this thread's stack in bytes, or None if the system does not report it."""
    attributes, size = (ctypes.c_char * 256)(), ctypes.c_size_t()
    try:
        system = ctypes.CDLL(None)
        system.pthread_getattr_np.argtypes = [ctypes.c_ulong, c_void_p]
        if system.pthread_getattr_np(threading.get_ident(), attributes) != 0:
            return None
        system.pthread_attr_getstacksize(attributes, byref(size))
        system.pthread_attr_destroy(attributes)
    except (AttributeError, OSError, TypeError):  # not glibc; threading.stack_size() would reset the size to 0
        return None
    return size.value


def _check_stack() -> None:
    stack = _stack_size()
    if stack is not None and stack < LEAST_STACK:
        raise SizeError(
            f"threading.stack_size: expected at least {LEAST_STACK} bytes for a thread that solves, got {stack}"
        )
    _thread.has_enough_stack = True


def release_memory() -> None:
    """Return memory that the process still holds from finished solves to the system.

    This works where the platform supports it, and does not affect running solves.

    Raises
    ------
    SizeError
        If the thread has not solved before and its stack is smaller than 512 KiB.

    See Also
    --------
    ensemble : Many solves.

    Notes
    -----
    Each solve releases its memory, but the C library may keep some of it for later allocations. Call this function
    after large solves.

    Examples
    --------
    >>> import quenta
    >>> quenta.release_memory()
    """
    enter_thread()
    library.quenta_gc_collect()
