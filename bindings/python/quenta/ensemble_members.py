"""Solves members of an ensemble in the thread or process of an executor. Values and exceptions become outcomes."""

from __future__ import annotations

import os
import pickle
import sys
import threading
import traceback
import warnings
from typing import Any, Callable, NamedTuple, Optional

Member = tuple[int, Any]  # number, parameter

# Processes have different numbers. Machines, and processes not forked from this one, have different tokens.
_TOKEN = os.urandom(16)


class Origin(NamedTuple):
    """The process that calls `ensemble`, and its executor."""

    token: bytes
    process: int
    executor: int


class Outcome(NamedTuple):
    """The outcome of a member. Exceptions are stored as text, which can always be pickled."""

    number: int
    value: Any
    #: The exception in one line, or None for a solved member.
    error: Optional[str]
    details: str
    #: Warnings issued in another process, to be issued again in this one.
    warned: list[tuple[type[Warning], str]]


class Packed(NamedTuple):
    """A separately pickled value from another process. If it cannot be restored, only its member fails."""

    content: bytes


class _Solving(threading.local):
    """The state of this thread while it solves members."""

    def __init__(self) -> None:
        self.origins: list[Origin] = []
        self.warned: Optional[list[tuple[type[Warning], str]]] = None


_solving = _Solving()
_show_warning = warnings.showwarning


def origin(executor: Any) -> Origin:
    return Origin(_TOKEN, os.getpid(), id(executor))


def runs_this_thread(executor: Any) -> bool:
    """Whether this thread is solving a member for this executor, or this process was forked while solving one."""
    return any(one.token == _TOKEN and one.executor == id(executor) for one in _solving.origins)


def solve_members(solve: Callable[[Any], Any], members: list[Member], started_by: Origin) -> list[Outcome]:
    elsewhere = started_by[:2] != (_TOKEN, os.getpid())
    if elsewhere:
        _record_warnings()
    _solving.origins.append(started_by)
    try:
        return [_solve_member(solve, index, parameter, elsewhere) for index, parameter in members]
    finally:
        _solving.origins.pop()


def _solve_member(solve: Callable[[Any], Any], index: int, parameter: Any, elsewhere: bool) -> Outcome:
    warned: list[tuple[type[Warning], str]] = []
    outer = _solving.warned
    if elsewhere:
        _solving.warned = warned
    try:
        value = solve(parameter)
    except KeyboardInterrupt:  # interrupts the whole ensemble
        raise
    except BaseException as failure:  # for example SystemExit
        return Outcome(index, None, in_one_line(failure), in_detail(failure), warned)
    finally:
        _solving.warned = outer
    outcome = Outcome(index, value, None, "", warned)
    return _packed(outcome) if elsewhere else outcome


def _packed(outcome: Outcome) -> Outcome:
    try:
        return outcome._replace(value=Packed(_pickled(outcome.value)))
    except Exception as failure:
        return _without_value(outcome, "the value that solve returned cannot be sent", failure)


def _pickled(value: Any) -> bytes:
    try:
        return pickle.dumps(value)
    except Exception:
        try:
            import cloudpickle  # type: ignore[import]
        except ImportError:
            pass
        else:
            return bytes(cloudpickle.dumps(value))  # supports more types, such as local functions
        raise


def unpacked(outcome: Outcome) -> Outcome:
    if not isinstance(outcome.value, Packed):
        return outcome
    try:
        return outcome._replace(value=pickle.loads(outcome.value.content))
    except Exception as failure:
        return _without_value(outcome, "the value that solve returned cannot be received", failure)


def _without_value(outcome: Outcome, what: str, failure: Exception) -> Outcome:
    return outcome._replace(value=None, error=f"{what}: {in_one_line(failure)}", details=in_detail(failure))


def in_one_line(failure: BaseException) -> str:
    name = type(failure).__name__
    try:
        message = " ".join(str(failure).split())
    except Exception:
        message = "(the message cannot be shown)"
    return f"{name}: {message}" if message else name


def in_detail(failure: BaseException) -> str:
    try:
        return "".join(traceback.format_exception(type(failure), failure, failure.__traceback__))
    except Exception:
        return in_one_line(failure)


# ---- Warnings of members in another process -------------------------------------------------------------------------


def _record_warnings() -> None:
    """Redirects warnings of solving threads to their lists. `warnings.catch_warnings` does not support threads."""
    global _show_warning
    if warnings.showwarning is not _show_or_record:
        _show_warning = warnings.showwarning
        warnings.showwarning = _show_or_record


def _show_or_record(
    message: Any, category: type[Warning], filename: str, lineno: int, file: Any = None, line: Optional[str] = None
) -> None:
    if _solving.warned is None:
        _show_warning(message, category, filename, lineno, file, line)
    elif _is_known_elsewhere(category):
        _solving.warned.append((category, str(message)))
    else:
        _solving.warned.append((UserWarning, f"{category.__name__}: {message}"))


def _is_known_elsewhere(category: type[Warning]) -> bool:
    """Whether pickle finds the class by its name, and a message is enough to construct it."""
    module = category.__module__
    try:
        category("")
    except Exception:
        return False
    return module != "__main__" and getattr(sys.modules.get(module), category.__qualname__, None) is category
