"""Many solves over many parameters: a fit, a sweep, a posterior."""

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
    """A member that has no value.

    index
        Its place among the parameters.
    parameter
        What was passed to `solve`.
    error
        The exception in one line, or why the member was not run.
    details
        The exception with its traceback.
    """

    index: int
    parameter: Any
    error: str
    details: str


@dataclass(frozen=True)
class Ensemble:
    """The members in the order of their parameters.

    parameters
        The parameters, as a list.
    values
        What `solve` returned; None for a member that failed.
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
    """Calls solve(parameter) for every parameter, and keeps the order.

    solve
        A function of one argument, which it does not change. For an executor with processes it has to be found by its
        module and name, and what it returns has to travel: return what is needed, not whole solutions.
    parameters
        A list, an array (its rows), or anything else that ends. All are taken before the first is solved; an exception
        from a generator passes on as it is.
    executor
        Any executor of `concurrent.futures`, or a `Client` of Dask for more machines; without one the members are
        solved here, one after the other. Solvers release the interpreter's lock, so threads serve too.
    progress
        Show a bar (with the package tqdm).
    chunk
        How many members are sent at once; so many that there are about 64 chunks, where nothing is said.

    Returns an `Ensemble`. A member that raises anything, `SystemExit` included, is listed under its `failures`, and
    warned of; the others go on. What members warn of in other processes is warned of here.

    A member can end its process. Dask lets another process solve what was with it, and only this member is a failure.
    An executor of `concurrent.futures` does not recover: the members in flight, which `Failure.error` names, and those
    that have not been started are failures; what was solved before is kept.

    Raises `ValueError` for an argument that is wrong, and `EnsembleInterrupt`, a `KeyboardInterrupt`, if the user
    interrupts; its `ensemble` holds what was solved until then.
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
            raise ValueError(f"solve: expected a function that returns its result, got an async one, {reprlib.repr(solve)}")
        if inspect.isgeneratorfunction(function):
            raise ValueError(f"solve: expected a function that returns its result, got one that yields, {reprlib.repr(solve)}")


def _check_executor(executor: Any) -> None:
    if isinstance(executor, type):
        name = executor.__name__
        raise ValueError(f"executor: expected an executor, got the class {name}; make one, as in {name}()")
    if not hasattr(executor, "submit"):
        raise ValueError(
            f"executor: expected one of concurrent.futures, or a Client of Dask, got {reprlib.repr(executor)}"
        )
    if runs_this_thread(executor):
        raise ValueError("executor: expected another than that which runs this call, for it would wait for itself")


def _listed(parameters: Any) -> list[Any]:
    if isinstance(parameters, (str, bytes, bytearray, collections.abc.Mapping)) or hasattr(parameters, "itertuples"):
        kind = type(parameters).__name__
        raise ValueError(
            f"parameters: expected several, as in a list, got a {kind}; pass a list of its rows or items, or [it] for one "
            f"member"
        )
    try:
        iterator = iter(parameters)
    except TypeError:
        raise ValueError(f"parameters: expected several, as in a list, got {reprlib.repr(parameters)}") from None
    listed: list[Any] = []
    try:
        for parameter in iterator:
            listed.append(parameter)
            if len(listed) > _MOST_MEMBERS:
                break
    except Exception as failure:
        if hasattr(failure, "add_note"):  # since Python 3.11
            failure.add_note(f"raised by `parameters`, when it was asked for member {len(listed)}")
        raise
    if len(listed) > _MOST_MEMBERS:
        raise ValueError(f"parameters: expected at most {_MOST_MEMBERS}, got more; is this endless?")
    return listed


# ---- Results --------------------------------------------------------------------------------------------------------


class _Gathered:
    """The outcomes that have come; each member's once."""

    def __init__(self, parameters: list[Any], progress: bool) -> None:
        self.parameters = parameters
        self.outcomes: dict[int, Outcome] = {}
        self.bar = _bar(len(parameters)) if progress else _NoBar()

    def add(self, outcomes: list[Outcome]) -> None:
        for outcome in outcomes:
            if outcome.number in self.outcomes:
                raise RuntimeError(f"member {outcome.number} came twice")
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
            warnings.warn(f"member {index}, in its process: {text}", category, stacklevel=3)
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
        raise ValueError("progress: expected False, since the package tqdm is not installed; got True") from None
    return tqdm(total=count, unit="solve")
