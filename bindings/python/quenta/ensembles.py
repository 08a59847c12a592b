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
    """A member of an ensemble without a value.

    Attributes
    ----------
    index : int
        The index of its parameter.
    parameter : object
        The argument of `solve`.
    error : str
        The exception in one line, or the reason why the member was not run.
    details : str
        The exception with its traceback, or an empty text.

    See Also
    --------
    Ensemble : The results of an ensemble.

    Examples
    --------
    >>> import warnings
    >>> import quenta
    >>> with warnings.catch_warnings():
    ...     warnings.simplefilter("ignore")  # the warning that reports the failure
    ...     inverses = quenta.ensemble(lambda x: 1 / x, [1, 0])
    >>> failure = inverses.failures[0]
    >>> print(failure.index, failure.parameter, failure.error)
    1 0 ZeroDivisionError: division by zero
    """

    index: int
    parameter: Any
    error: str
    details: str


@dataclass(frozen=True)
class Ensemble:
    """The results of an ensemble, in the order of the parameters.

    Its length is the number of members.

    Attributes
    ----------
    parameters : list
        The parameters.
    values : list
        The values that `solve` returned, None for members that failed.
    failures : list of Failure
        The members that failed, in order.

    See Also
    --------
    ensemble : Solve for many parameters.

    Examples
    --------
    >>> import quenta
    >>> ends = quenta.ensemble(lambda rate: quenta.solve_vie2(1, -rate, 0.01, t_end=1).y[-1], [1, 2])
    >>> print(len(ends), [f"{end:.4f}" for end in ends.values], ends.failures)
    2 ['0.3679', '0.1353'] []
    """

    parameters: list[Any]
    values: list[Any]
    failures: list[Failure]

    def __len__(self) -> int:
        """Return the number of members, with those that failed.

        Returns
        -------
        int
            The number of parameters.

        See Also
        --------
        Ensemble : The results of an ensemble.

        Examples
        --------
        >>> import quenta
        >>> len(quenta.ensemble(abs, [-1, -2, -3]))
        3
        """

        return len(self.values)


def ensemble(
    solve: Callable[[Any], Any],
    parameters: Iterable[Any],
    *,
    executor: Any = None,
    progress: bool = False,
    chunk: Optional[int] = None,
) -> Ensemble:
    """Call a function for many parameters, and return the values in the same order.

    Parameters
    ----------
    solve : callable
        A function of one argument, which it must not modify. For an executor with processes the function must be
        importable by module and name, and its values are pickled: return the numbers of interest, not whole solutions.
    parameters : iterable
        A list, an array, whose rows are the parameters, or another finite iterable. It is read to the end before the
        first solve. An exception that it raises is not caught.
    executor : concurrent.futures.Executor or dask.distributed.Client, optional
        Runs the members, on one machine or several. Without an executor the members are solved sequentially in this
        thread.
    progress : bool, optional
        If True, show a progress bar. This requires the package tqdm.
    chunk : int, optional
        The number of members that are sent to the executor at once. By default there are about 64 chunks.

    Returns
    -------
    Ensemble
        The values, and the members that failed. A member that raises any exception, including `SystemExit`, is one of
        the failures. All other members are solved.

    Raises
    ------
    ValueError
        If an argument is invalid. The message names the argument, what was expected, and what it got.
    EnsembleInterrupt
        If the user interrupts, for example by Ctrl-C. The exception contains the members solved so far.

    Warns
    -----
    UserWarning
        If members failed. Warnings of members in other processes are issued again in this one.

    See Also
    --------
    Ensemble : The results.
    Failure : A member that failed.

    Notes
    -----
    Solvers release the global interpreter lock, so threads run in parallel.

    A member may end its process. Dask then solves the other members of that process again, and only this member fails.
    An executor of `concurrent.futures` does not recover: the members in flight, which `Failure.error` names, and those
    not yet started fail. Values computed before are kept.

    Examples
    --------
    Solve y(t) = 1 - rate * (integral from 0 to t of y(s) ds) for three rates on two threads. The solution is exp(-rate
    t):

    >>> from concurrent.futures import ThreadPoolExecutor
    >>> import quenta
    >>> def end_value(rate):
    ...     return quenta.solve_vie2(1, -rate, 0.01, t_end=1).y[-1]
    >>> with ThreadPoolExecutor(2) as threads:
    ...     sweep = quenta.ensemble(end_value, [0.5, 1.0, 2.0], executor=threads)
    >>> print([f"{value:.4f}" for value in sweep.values])
    ['0.6065', '0.3679', '0.1353']
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
