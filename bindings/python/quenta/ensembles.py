"""Solves for many parameters, as in parameter studies, fits and sampling of posteriors."""

from __future__ import annotations

import collections.abc
import contextlib
import inspect
import reprlib
import warnings
from dataclasses import dataclass
from typing import Any, Callable, Iterable, Optional

from .arguments import whole_number
from .ensemble_executors import solve_elsewhere
from .ensemble_members import Outcome, origin, runs_this_thread, solve_members
from .errors import EnsembleInterrupt

_MOST_MEMBERS = 10**7  # a limit that catches endless iterables


@dataclass(frozen=True)
class Failure:
    """A member without a value.

    index
        The index of its parameter.
    parameter
        The argument of `solve`.
    error
        The exception in one line, or the reason why the member was not run.
    details
        The exception with its traceback.
    """

    index: int
    parameter: Any
    error: str
    details: str


@dataclass(frozen=True)
class Ensemble:
    """The results of an ensemble, in the order of the parameters.

    parameters
        The parameters, as a list.
    values
        The values that `solve` returned, None for members that failed.
    failures
        The members that failed, as a list of `Failure`, in order.
    """

    parameters: list[Any]
    values: list[Any]
    failures: list[Failure]

    def __len__(self) -> int:
        return len(self.values)


def ensemble(
    solve: Callable[[Any], Any],
    parameters: Iterable[Any],
    *,
    executor: Any = None,
    progress: bool = False,
    chunk: Optional[int] = None,
) -> Ensemble:
    """Calls solve(parameter) for all parameters, and returns the values in the same order.

    solve
        A function of one argument, which it must not modify. For an executor with processes the function must be
        importable by module and name, and its values are pickled: return the numbers of interest, not whole solutions.
    parameters
        A list, an array (its rows are the parameters) or another finite iterable. It is read to the end before the
        first solve. An exception that it raises is not caught.
    executor
        An executor of `concurrent.futures`, or a `Client` of Dask for several machines. Without one the members are
        solved sequentially in this thread. Solvers release the global interpreter lock, so threads run in parallel.
    progress
        Show a progress bar (requires the package tqdm).
    chunk
        The number of members that are sent at once. By default there are about 64 chunks.

    Returns an `Ensemble`. A member that raises any exception, including `SystemExit`, becomes one of its `failures`.
    All other members are solved, and a warning reports the failures. Warnings of members in other processes are issued
    again in this one.

    A member may kill its process. Dask then solves the other members of that process again, and only this member fails.
    An executor of `concurrent.futures` does not recover: the members in flight, which `Failure.error` names, and those
    not yet started fail. Values computed before are kept.

    Raises `ValueError` for an invalid argument, and `EnsembleInterrupt`, a `KeyboardInterrupt`, if the user interrupts.
    The attribute `ensemble` of the exception contains the members solved so far.
    """
    _check_solve(solve)
    if chunk is not None:
        chunk = whole_number("chunk", chunk, 1)
    if executor is not None:
        _check_executor(executor)
    gathered = _Gathered(_listed(parameters), progress)
    members = list(enumerate(gathered.parameters))
    with gathered.bar:
        try:
            if executor is None:
                for member in members:
                    gathered.add(solve_members(solve, [member], origin(None)))
            else:
                with contextlib.closing(solve_elsewhere(solve, members, executor, chunk)) as parts:
                    for outcomes in parts:
                        gathered.add(outcomes)
        except KeyboardInterrupt as interrupt:
            raise EnsembleInterrupt(gathered.ensemble()) from interrupt
    gathered.warn()
    return gathered.ensemble()


# ---- Arguments ------------------------------------------------------------------------------------------------------


def _check_solve(solve: Any) -> None:
    if not callable(solve):
        raise ValueError(f"solve: expected a function of one parameter, got {reprlib.repr(solve)}")
    for function in (solve, getattr(solve, "__call__", None)):
        if inspect.iscoroutinefunction(function) or inspect.isasyncgenfunction(function):
            raise ValueError(f"solve: expected a function that returns a value, got an async function, {reprlib.repr(solve)}")
        if inspect.isgeneratorfunction(function):
            raise ValueError(
                f"solve: expected a function that returns a value, got a generator function, {reprlib.repr(solve)}"
            )


def _check_executor(executor: Any) -> None:
    if isinstance(executor, type):
        name = executor.__name__
        raise ValueError(f"executor: expected an executor, got the class {name}; make one with {name}()")
    if not hasattr(executor, "submit"):
        raise ValueError(
            f"executor: expected an executor of concurrent.futures or a Client of Dask, got {reprlib.repr(executor)}"
        )
    if runs_this_thread(executor):
        raise ValueError("executor: expected an executor that is not running this call, got one that would wait for itself")


def _listed(parameters: Any) -> list[Any]:
    if isinstance(parameters, (str, bytes, bytearray, collections.abc.Mapping)) or hasattr(parameters, "itertuples"):
        kind = type(parameters).__name__
        raise ValueError(
            f"parameters: expected a list or another iterable, got a {kind}; pass a list of its rows or items, or a list "
            f"with this one member"
        )
    try:
        iterator = iter(parameters)
    except TypeError:
        raise ValueError(f"parameters: expected a list or another iterable, got {reprlib.repr(parameters)}") from None
    listed: list[Any] = []
    try:
        for parameter in iterator:
            listed.append(parameter)
            if len(listed) > _MOST_MEMBERS:
                break
    except Exception as failure:
        if hasattr(failure, "add_note"):  # since Python 3.11
            failure.add_note(f"raised by the iterator of `parameters` for member {len(listed)}")
        raise
    if len(listed) > _MOST_MEMBERS:
        raise ValueError(f"parameters: expected at most {_MOST_MEMBERS}, got more; the iterable may be endless")
    return listed


# ---- Results --------------------------------------------------------------------------------------------------------


class _Gathered:
    """The outcomes received so far, at most one per member."""

    def __init__(self, parameters: list[Any], progress: bool) -> None:
        self.parameters = parameters
        self.outcomes: dict[int, Outcome] = {}
        self.bar = _bar(len(parameters)) if progress else _NoBar()

    def add(self, outcomes: list[Outcome]) -> None:
        for outcome in outcomes:
            if outcome.number in self.outcomes:
                raise RuntimeError(f"expected one outcome of member {outcome.number}, got two")
            self.outcomes[outcome.number] = outcome
        self.bar.update(len(outcomes))

    def ensemble(self) -> Ensemble:
        values, failures = [], []
        for index, parameter in enumerate(self.parameters):
            outcome = self.outcomes.get(index)
            values.append(None if outcome is None else outcome.value)
            if outcome is None:
                failures.append(Failure(index, parameter, "not solved before the interruption", ""))
            elif outcome.error is not None:
                failures.append(Failure(index, parameter, outcome.error, outcome.details))
        return Ensemble(self.parameters, values, failures)

    def warn(self) -> None:
        warned = {}
        for index in sorted(self.outcomes, reverse=True):
            warned.update({what: index for what in self.outcomes[index].warned})
        for (category, text), index in reversed(warned.items()):
            warnings.warn(f"member {index}, in another process: {text}", category, stacklevel=3)
        failed = [outcome for outcome in self.outcomes.values() if outcome.error is not None]
        if failed:
            first = min(failed, key=lambda outcome: outcome.number)
            warnings.warn(
                f"{len(failed)} of {len(self.parameters)} members failed; the first is member {first.number}: "
                f"{first.error}",
                stacklevel=3,
            )


class _NoBar:
    def __enter__(self) -> _NoBar:
        return self

    def __exit__(self, *_: object) -> None:
        pass

    def update(self, count: int) -> None:
        pass


def _bar(count: int) -> Any:
    try:
        from tqdm import tqdm  # type: ignore[import]
    except ImportError:
        raise ValueError("progress: expected False because the package tqdm is not installed, got True") from None
    return tqdm(total=count, unit="solve")
