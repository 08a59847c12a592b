"""Recommends a setting, based on the measured errors of all settings."""

from __future__ import annotations

from dataclasses import dataclass
from typing import Optional

from .arguments import one_of, true_or_false, whole_number
from .errors import SizeError
from .setting_table import KINKED_SAMPLES, Measurement, Setting, settings

_FEWEST_STEPS = 8
# The trapezoidal rule has order 4 if g and K have this many continuous derivatives and start at 0 with zero slope.
_SMOOTH = 3


@dataclass(frozen=True)
class Recommendation:
    """A recommended collocation scheme, and the reason for it.

    Attributes
    ----------
    setting : Setting
        The scheme. Solvers accept it, and the recommendation itself, as their `setting`.
    reason : str
        One sentence with the selection criteria, the expected error, and the number of samples that are read.

    See Also
    --------
    recommend : Choose a scheme.

    Examples
    --------
    >>> import quenta
    >>> choice = quenta.recommend("vie2", smoothness=0)
    >>> print(choice.setting)
    (1, [0, 1])
    >>> solution = quenta.solve_vie2(1, -1, dt=0.01, t_end=1, setting=choice)
    """

    setting: Setting
    reason: str


def recommend(
    kind: str, *, smoothness: int = 3, stiff: bool = False, continuous: bool = False, samples: Optional[int] = None
) -> Recommendation:
    """Recommend the collocation scheme with the smallest measured error for a kind of equation.

    Parameters
    ----------
    kind : {"vie1", "vie2", "vide"}
        The kind of equation, as in `solve_vie1`, `solve_vie2` and `solve_vide`.
    smoothness : int, optional
        The number of continuous derivatives of g, K and a: 0 for samples with jumps or kinks, 5 or more for smooth
        functions. Noise is treated as 0 for "vie2" and "vide". Noise of an equation of the first kind is another matter;
        see Notes.
    stiff : bool, optional
        Whether components of the solution decay within about one step; only for "vie2" and "vide".
    continuous : bool, optional
        Whether the polynomials of adjacent steps must join; only for "vie1".
    samples : int, optional
        The number of samples, 1441 by default. At least 9, since there must be 8 steps.

    Returns
    -------
    Recommendation
        The scheme, and the reason for it.

    Raises
    ------
    ValueError
        If an argument is invalid. The message names the argument, what was expected, and what it got.
    SizeError
        If `samples` is less than 9.

    See Also
    --------
    settings : All schemes, with their measured properties.
    with_error : Estimate the error of a solution.

    Notes
    -----
    Errors are those of `Measurement.expected_error`. They were measured with problems of exactly this smoothness, with
    41 to 1441 samples of a few oscillations. With m = 1 every sample is read. Other schemes read only some of the
    samples, as `Recommendation.reason` states, and require samples without noise.

    Two cases are not among these problems. `Recommendation.reason` mentions them where they matter:

    - Equations of the first kind amplify noise in g, least with a scheme of high order and few samples. Keep the default
      scheme of `solve_vie1`, and smooth g or use fewer samples, as the page "Noisy samples and first-kind problems" of
      the manual describes.
    - If g and K of an equation of the second kind are smooth and start at 0 with zero slope, as in many renewal
      equations, (1; 0, 1) has order 4 and is the most accurate scheme.

    Examples
    --------
    >>> import quenta
    >>> print(quenta.recommend("vie2", smoothness=4, stiff=True).setting)
    (4, [0, 2, 3, 4])
    >>> print(quenta.recommend("vie1", smoothness=0).setting)
    (1, [1])
    """
    one_of("kind", kind, ("vie1", "vie2", "vide"))
    stiff, continuous = true_or_false("stiff", stiff), true_or_false("continuous", continuous)
    smoothness = whole_number("smoothness", smoothness, 0)
    count = KINKED_SAMPLES[-1] if samples is None else whole_number("samples", samples, 0)
    if stiff and kind == "vie1":
        raise ValueError("stiff: expected False for kind 'vie1', which cannot be stiff, got True")
    if continuous and kind != "vie1":
        raise ValueError(f"continuous: expected False for kind {kind!r}, which has only one form, got True")
    if count <= _FEWEST_STEPS:
        raise SizeError(f"samples: expected at least {_FEWEST_STEPS + 1}, for {_FEWEST_STEPS} steps, got {count}")
    return _best("vie1_continuous" if continuous else kind, smoothness, stiff, count)


def _best(form: str, smoothness: int, stiff: bool, count: int) -> Recommendation:
    def error(setting: Setting) -> float:
        return setting.measured[form].expected_error(smoothness, count)

    candidates = [
        setting
        for setting in settings()
        if _is_suitable(setting.measured[form], stiff, decaying=form.startswith("vie1"))
        and (setting.m == 1 or smoothness > 0)
        and (count - 1) // setting.spacings >= _FEWEST_STEPS
    ]
    best = min(candidates, key=error)
    criteria = ["whose errors do not grow", f"with at least {_FEWEST_STEPS} steps in {count} samples"]
    if smoothness == 0:
        criteria.append("with m = 1")
    if stiff:
        criteria.append("that damp components decaying within a step")
    among = f"of the {len(candidates)} settings" if len(candidates) > 1 else "of the settings"
    derivatives = "derivative" if smoothness == 1 else "derivatives"
    return Recommendation(
        best,
        f"{among} {', '.join(criteria)}, {best} has the smallest error for problems with {smoothness} continuous "
        f"{derivatives}, about {error(best):.1g} with {count} samples; {best.measured[form].note}; "
        f"{_unknown_case(form, smoothness, stiff)}{_samples_read(best)}",
    )


def _unknown_case(form: str, smoothness: int, stiff: bool) -> str:
    """The case in which another scheme may be better for data of this smoothness, as part of a sentence."""
    if form.startswith("vie1") and smoothness == 0:
        return "noise in g is another matter, for which the default scheme and fewer samples are better; "
    if form == "vie2" and smoothness >= _SMOOTH and not stiff:
        return "if g and K also start at 0 with zero slope, (1, [0, 1]) has order 4 and is more accurate; "
    return ""


def _is_suitable(measured: Measurement, stiff: bool, decaying: bool) -> bool:
    """Whether errors are known and do not grow. With `decaying` they must decay, since constant ones add up."""
    return (
        measured.stable
        and measured.error is not None
        and (not stiff or (measured.stiff_growth is not None and measured.stiff_growth <= 0.9))
        and (not decaying or (measured.growth is not None and measured.growth <= 0.9))
    )


def _samples_read(setting: Setting) -> str:
    read = round(setting.fraction_of_g_read * setting.spacings)
    if read < setting.spacings:
        return f"{read} of every {setting.spacings} samples of g are read"
    return "every sample is read" if setting.count > 1 else "every sample of g is read except one at an end"
