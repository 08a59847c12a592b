"""The choice of a setting, from what was measured of all of them."""

from __future__ import annotations

from dataclasses import dataclass
from typing import Any, Optional

from .arguments import flag, whole_number
from .errors import SizeError
from .setting_table import Measurement, Setting, settings

_FEWEST_STEPS = 8


@dataclass(frozen=True)
class Recommendation:
    """A setting, and why it was chosen."""

    setting: Setting
    reason: str


def recommend(
    kind: str, *, smoothness: int = 3, stiff: bool = False, continuous: bool = False, samples: Optional[int] = None
) -> Recommendation:
    """Picks a setting for a kind of equation, and says why.

    kind
        "vie1", "vie2" or "vide", as in `solve_vie1`, `solve_vie2` and `solve_vide`.
    smoothness
        How many continuous derivatives g, K and a have; 0 for samples with noise, jumps or kinks.
    stiff
        Whether parts of the solution decay within a step or so; "vie2" and "vide" only.
    continuous
        Whether polynomials have to join; "vie1" only.
    samples
        The number of samples, if it is known: there are to be 8 steps at least.
    """
    if not isinstance(kind, str) or kind not in ("vie1", "vie2", "vide"):
        raise ValueError(f"kind: expected 'vie1', 'vie2' or 'vide', came {kind!r}")
    smoothness = whole_number("smoothness", smoothness, 0)
    stiff, continuous = flag("stiff", stiff), flag("continuous", continuous)
    if stiff and kind == "vie1":
        raise ValueError("stiff: expected False for the first kind, which has no decay of its own; came True")
    if continuous and kind != "vie1":
        raise ValueError(f"continuous: expected False for {kind}, which has one form; came True")
    if samples is not None and whole_number("samples", samples, 0) <= _FEWEST_STEPS:
        raise SizeError(f"samples: expected at least {_FEWEST_STEPS + 1}, for {_FEWEST_STEPS} steps, came {samples}")

    form = "vie1_continuous" if continuous else kind
    demands = ["whose errors do not grow"]
    if smoothness == 0:
        demands.append("with m = 1, since more than that is wasted on rough samples")
    else:
        demands.append(f"with at most {smoothness} nodes, as {smoothness} derivatives can serve no more")
    if stiff:
        demands.append("that damp what decays within a step")
    if samples is not None:
        demands.append(f"with at least {_FEWEST_STEPS} steps in {samples} samples")

    def serves(setting: Setting, measured: Measurement) -> bool:
        return (
            measured.stable
            and measured.error is not None
            and (setting.m == 1 if smoothness == 0 else setting.count <= smoothness)
            and (not stiff or (measured.stiff_growth is not None and measured.stiff_growth <= 0.9))
            and (samples is None or (samples - 1) // setting.spacings >= _FEWEST_STEPS)
            # A disturbance of the first kind that stays adds up with all others.
            and (kind != "vie1" or (measured.growth is not None and measured.growth <= 0.9))
        )

    def error(setting: Setting) -> Any:
        return setting.measured[form].error

    candidates = [setting for setting in settings() if serves(setting, setting.measured[form])]
    best = min(candidates, key=error)
    return Recommendation(
        best,
        f"of the {len(candidates)} settings {', '.join(demands)}, {best} has the smallest error with 1441 samples of a "
        f"smooth problem, {error(best):.1g}; {best.measured[form].note}",
    )
