"""The choice of a setting, from what was measured of all of them."""

from __future__ import annotations

from dataclasses import dataclass
from typing import Optional

from .arguments import one_of, true_or_false, whole_number
from .errors import SizeError
from .setting_table import KINKED_SAMPLES, Measurement, Setting, settings

_FEWEST_STEPS = 8


@dataclass(frozen=True)
class Recommendation:
    """A setting, and why it was chosen.

    setting
        The `Setting`, which solvers take as their `setting`.
    reason
        What it was chosen from and for, and how many samples it reads, in one sentence.
    """

    setting: Setting
    reason: str


def recommend(
    kind: str, *, smoothness: int = 3, stiff: bool = False, continuous: bool = False, samples: Optional[int] = None
) -> Recommendation:
    """Picks the setting with the smallest measured error for a kind of equation, and says why.

    kind
        "vie1", "vie2" or "vide", as in `solve_vie1`, `solve_vie2` and `solve_vide`.
    smoothness
        How many continuous derivatives g, K and a have: 0 for samples with noise, jumps or kinks, such as measured
        data; 5 or more for smooth functions.
    stiff
        Whether parts of the solution decay within a step or so; "vie2" and "vide" only.
    continuous
        Whether polynomials have to join; "vie1" only.
    samples
        The number of samples, 1441 if nothing is said; at least 9, as there are to be 8 steps.

    Errors are those of `Measurement.expected_error`: measured with problems of just this smoothness, from 41 to 1441
    samples of a few oscillations. With m = 1 every sample is read; other settings read a part of them, which `reason`
    states, and need samples without noise.

    Returns a `Recommendation`. Raises `ValueError` for an argument that is wrong, and `SizeError`, which is one, for
    fewer than 9 samples.
    """
    one_of("kind", kind, ("vie1", "vie2", "vide"))
    stiff, continuous = true_or_false("stiff", stiff), true_or_false("continuous", continuous)
    smoothness = whole_number("smoothness", smoothness, 0)
    count = KINKED_SAMPLES[-1] if samples is None else whole_number("samples", samples, 0)
    if stiff and kind == "vie1":
        raise ValueError("stiff: expected False for the first kind, which has no decay of its own; got True")
    if continuous and kind != "vie1":
        raise ValueError(f"continuous: expected False for {kind}, which has one form; got True")
    if count <= _FEWEST_STEPS:
        raise SizeError(f"samples: expected at least {_FEWEST_STEPS + 1}, for {_FEWEST_STEPS} steps, got {count}")

    form = "vie1_continuous" if continuous else kind
    demands = ["whose errors do not grow", f"with at least {_FEWEST_STEPS} steps in {count} samples"]
    if smoothness == 0:
        demands.append("with m = 1")
    if stiff:
        demands.append("that damp what decays within a step")

    def serves(setting: Setting, measured: Measurement) -> bool:
        return (
            measured.stable
            and measured.error is not None
            and (setting.m == 1 or smoothness > 0)
            and (not stiff or (measured.stiff_growth is not None and measured.stiff_growth <= 0.9))
            and (count - 1) // setting.spacings >= _FEWEST_STEPS
            # A disturbance of the first kind that stays adds up with all others.
            and (kind != "vie1" or (measured.growth is not None and measured.growth <= 0.9))
        )

    def error(setting: Setting) -> float:
        return setting.measured[form].expected_error(smoothness, count)

    candidates = [setting for setting in settings() if serves(setting, setting.measured[form])]
    best = min(candidates, key=error)
    among = f"of the {len(candidates)} settings" if len(candidates) > 1 else "of the settings"
    derivatives = "derivative" if smoothness == 1 else "derivatives"
    return Recommendation(
        best,
        f"{among} {', '.join(demands)}, {best} has the smallest error for problems with {smoothness} continuous "
        f"{derivatives}, about {error(best):.1g} with {count} samples; {best.measured[form].note}; {_what_is_read(best)}",
    )


def _what_is_read(setting: Setting) -> str:
    read = round(setting.fraction_of_g_read * setting.spacings)
    if read < setting.spacings:
        return f"{read} of every {setting.spacings} samples of g are read"
    return "every sample is read" if setting.count > 1 else "every sample of g is read except one at an end"
