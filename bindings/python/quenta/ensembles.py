"""Many solves over many parameters: a fit, a sweep, a posterior."""

from __future__ import annotations

import concurrent.futures
import queue
import traceback
import warnings
from dataclasses import dataclass
from typing import Any, Callable, Iterable, Optional

from .arguments import whole_number

# What a chunk of members comes back as: for each its number, and its value or its failure.
Outcome = tuple[int, bool, Any]

_CHUNKS = 64  # so many, if nobody says otherwise: enough to share them out, few enough to send


@dataclass(frozen=True)
class Failure:
    """A member that has no value.

    index
        Its place among the parameters.
    parameter
        Its parameter.
    error
        The exception in one line.
    details
        Where it came from.
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
        A `Failure` for each member that failed, in order.
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
        A function of one argument. For an executor with processes it has to be found by its module and name, and what
        it returns has to travel: return what is needed, not whole solutions.
    executor
        Any executor of `concurrent.futures`, or a `Client` of Dask for more machines; without one the members are
        solved here, one after the other. Solvers release the interpreter's lock, so threads serve too.
    progress
        Show a bar (with the package tqdm).
    chunk
        How many members are sent at once; so many that there are about 64 chunks, where nothing is said.

    A member that raises is listed under `failures`, and warned of; the others go on. So do members whose process ended:
    Dask lets another process solve them; with an executor of `concurrent.futures`, which cannot, they are failures.

    Returns an `Ensemble`. Raises `ValueError` for an argument that is wrong.
    """
    if not callable(solve):
        raise ValueError(f"solve: expected a function of one parameter, came {solve!r}")
    if chunk is not None:
        chunk = whole_number("chunk", chunk, 1)
    if executor is not None and not hasattr(executor, "submit"):
        raise ValueError(f"executor: expected one of concurrent.futures, or a Client of Dask, came {executor!r}")
    try:
        members = list(enumerate(parameters))
    except TypeError:
        raise ValueError(f"parameters: expected several, as in a list, came {parameters!r}") from None
    gathered = _Gathered(members, progress)
    with gathered.bar:
        if executor is None:
            for member in members:
                gathered.add(_solve_members(solve, [member]))
        else:
            _solve_elsewhere(solve, members, executor, chunk or 1 + len(members) // _CHUNKS, gathered)
    return gathered.ensemble()


def _solve_members(solve: Callable[[Any], Any], members: list[tuple[int, Any]]) -> list[Outcome]:
    outcomes: list[Outcome] = []
    for index, parameter in members:
        try:
            outcomes.append((index, True, solve(parameter)))
        except Exception as failure:
            outcomes.append((index, False, Failure(index, parameter, _line(failure), traceback.format_exc())))
    return outcomes


def _line(failure: BaseException) -> str:
    return f"{type(failure).__name__}: {failure}".strip(": ")


def _solve_elsewhere(
    solve: Callable[[Any], Any], members: list[tuple[int, Any]], executor: Any, chunk: int, gathered: _Gathered
) -> None:
    if hasattr(executor, "get_executor"):  # a client of Dask: members may have been drawn by chance, so none is reused
        executor = executor.get_executor(pure=False)
    pending: dict[concurrent.futures.Future[list[Outcome]], list[tuple[int, Any]]] = {}
    done: queue.SimpleQueue[concurrent.futures.Future[list[Outcome]]] = queue.SimpleQueue()

    def submit(part: list[tuple[int, Any]]) -> None:
        try:
            future = executor.submit(_solve_members, solve, part)
        except Exception as failure:
            gathered.add_lost(part, failure)
        else:
            pending[future] = part
            future.add_done_callback(done.put)

    try:
        for first in range(0, len(members), chunk):
            submit(members[first : first + chunk])
        while pending:
            future = done.get()
            part = pending.pop(future)
            try:
                outcomes = future.result()
            except Exception as failure:
                # The process ended, or something did not travel. Alone, only the member that is to blame fails.
                if len(part) == 1:
                    gathered.add_lost(part, failure)
                else:
                    for member in part:
                        submit([member])
            else:
                gathered.add(outcomes)
    finally:
        for future in pending:  # after an interruption
            future.cancel()


class _Gathered:
    """The outcomes that have come; each member's once."""

    def __init__(self, members: list[tuple[int, Any]], progress: bool) -> None:
        self.parameters = [parameter for _, parameter in members]
        self.outcomes: dict[int, Outcome] = {}
        self.bar = _bar(len(members)) if progress else _NoBar()

    def add(self, outcomes: list[Outcome]) -> None:
        for outcome in outcomes:
            if outcome[0] in self.outcomes:
                raise RuntimeError(f"member {outcome[0]} came twice")
            self.outcomes[outcome[0]] = outcome
        self.bar.update(len(outcomes))

    def add_lost(self, members: list[tuple[int, Any]], failure: Exception) -> None:
        details = "".join(traceback.format_exception(type(failure), failure, failure.__traceback__))
        self.add([(index, False, Failure(index, member, _line(failure), details)) for index, member in members])

    def ensemble(self) -> Ensemble:
        outcomes = [self.outcomes[index] for index in range(len(self.parameters))]
        failures = [outcome for _, solved, outcome in outcomes if not solved]
        if failures:
            first = failures[0]
            warnings.warn(
                f"{len(failures)} of {len(outcomes)} members failed; the first is member {first.index}: {first.error}",
                stacklevel=3,
            )
        return Ensemble(self.parameters, [value if solved else None for _, solved, value in outcomes], failures)


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
        raise ValueError("progress: expected False, since the package tqdm is not installed; came True") from None
    return tqdm(total=count, unit="solve")
