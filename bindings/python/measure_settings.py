#!/usr/bin/python3
"""Measures all collocation settings in all forms. `quenta.settings()` returns the results.

usage: measure_settings.py [--check]

Writes quenta/measured_settings.json. With --check, compares with the existing file instead.
"""

from __future__ import annotations

import json
import math
import pathlib
import re
import sys
from dataclasses import asdict, replace
from typing import Any, Optional

import kinked_problems
import numpy as np
from kinked_problems import END, PROBLEMS

import quenta
from quenta.sampled_solvers import prepare_vide, prepare_vie1, prepare_vie2
from quenta.setting_table import FORMS, KINKED_SAMPLES, SMOOTHEST, Measurement, Setting

FILE = pathlib.Path(quenta.__file__).with_name("measured_settings.json")
COMMAND = "python3 bindings/python/measure_settings.py"
SMALLEST_ERROR = 1e-10  # smaller errors are affected by rounding, which first-kind equations differentiate
FADED = 1e-10  # disturbances below this fraction of the largest one are not used
STIFF = 1e3  # decay rate times the length of a step


def solve_form(form: str, setting: Setting, dt: float, count: int, g: Any, K: Any, a: Any, y0: float) -> quenta.Solution:
    """Solves without computing warnings, which would take most of the time."""
    t = np.arange(count) * dt
    g, K, a = (values(t) if callable(values) else np.full(count, values) for values in (g, K, a))
    options: dict[str, Any] = {"setting": setting, "check_finite": False}
    if form == "vie2":
        return prepare_vie2(g, K, dt, **options).solve()
    if form == "vide":
        return prepare_vide(g, K, a, y0, dt, **options).solve()
    if form == "vie1_continuous":
        options.update(continuous=True, y0=y0)
    return prepare_vie1(g, K, dt, **options).solve()


# ---- Order: y = 1 + sin t, K = exp(-t), a = -1 - t / 10 -------------------------------------------------------------


def smooth_errors(form: str, setting: Setting, dt: float, count: int) -> tuple[float, float]:
    """The largest error over all samples, and the largest error over the ends of the steps."""

    def solution(t: Any) -> Any:
        return 1 + np.sin(t)

    def memory(t: Any) -> Any:
        """The integral from 0 to t of exp(s - t) y(s) ds."""
        return 1 - np.exp(-t) + (np.sin(t) - np.cos(t) + np.exp(-t)) / 2

    def coefficient(t: Any) -> Any:
        return -1 - t / 10

    forcing = {
        "vie1": memory,
        "vie1_continuous": memory,
        "vie2": lambda t: solution(t) - memory(t),
        "vide": lambda t: np.cos(t) - coefficient(t) * solution(t) - memory(t),
    }[form]
    found = solve_form(form, setting, dt, count, forcing, lambda t: np.exp(-t), coefficient, 1.0)
    errors = abs(found.y - solution(found.t)) / 2  # the largest value of the solution
    return float(errors.max()), float(errors[setting.spacings :: setting.spacings].max())


def orders(form: str, setting: Setting) -> tuple[Optional[float], Optional[float]]:
    """The orders of both errors: log2 of their ratio at the last halving of the step that rounding does not affect."""
    measured: list[Optional[float]] = [None, None]
    before = (math.nan, math.nan)
    for steps in (20, 40, 80, 160, 320, 640):
        spacings = steps * setting.spacings
        now = smooth_errors(form, setting, END / spacings, spacings + 1)
        for which in range(2):
            if math.isfinite(now[which]) and now[which] > SMALLEST_ERROR and before[which] > now[which]:
                measured[which] = round(math.log2(before[which] / now[which]), 2)
        before = now
    return measured[0], measured[1]


# ---- Problems of limited smoothness ---------------------------------------------------------------------------------


def kinked_errors(form: str, setting: Setting) -> tuple[tuple[float, ...], ...]:
    """The errors for each smoothness and number of samples."""
    return tuple(
        tuple(kinked_error(form, setting, smoothness, count) for count in KINKED_SAMPLES)
        for smoothness in range(SMOOTHEST + 1)
    )


def kinked_error(form: str, setting: Setting, smoothness: int, count: int) -> float:
    """The geometric mean of the relative errors over all problems. Errors above 1 count as 1."""
    logarithms = 0.0
    for number in range(PROBLEMS):
        y, g, K, a = kinked_problems.samples(form.split("_")[0], smoothness, number, count)
        try:
            found = solve_form(form, setting, END / (count - 1), count, lambda t: g, lambda t: K, lambda t: a, y[0]).y
        except quenta.SingularBlockError:
            continue
        logarithms += min(0.0, math.log(abs(found - y[: len(found)]).max() / abs(y).max()))
    return float(f"{math.exp(logarithms / PROBLEMS):.2g}")


# ---- Growth of a disturbance over many steps ------------------------------------------------------------------------


def growth(form: str, setting: Setting, stiff: bool) -> float:
    """The growth factor per step: for K = 1 in the first kind, else for decay with rate 1, or if stiff STIFF per step."""
    steps, dt = 61, 1e-3 / setting.spacings
    count = steps * setting.spacings + 1
    rate = STIFF / (setting.spacings * dt) if stiff else 1.0
    if form == "vie1":
        # Only the first step is disturbed.
        g: Any = np.zeros(count)
        g[1 : setting.spacings + 1] = dt * np.cos(np.arange(setting.spacings))
        found = solve_form(form, setting, dt, count, lambda t: g, 1.0, 0.0, 0.0)
    elif form == "vie1_continuous":
        found = solve_form(form, setting, dt, count, 0.0, 1.0, 0.0, 1.0)
    elif form == "vie2":
        found = solve_form(form, setting, dt, count, 1.0, -rate, 0.0, 0.0)
    else:
        found = solve_form(form, setting, dt, count, 0.0, 0.0, -rate, 1.0)
    size = abs(found.y[:-1].reshape(steps, -1)).max(axis=1)
    first = 5
    last = steps - 2
    while last > first and not size[last] > FADED * size.max():
        last -= 1
    if last == first:
        return 0.0
    return round(float((size[last] / size[first]) ** (1 / (last - first))), 3)


def measure(form: str, setting: Setting) -> Measurement:
    try:
        order, order_at_steps = orders(form, setting)
        error: Optional[float] = float(f"{smooth_errors(form, setting, END / 1440, 1441)[0]:.2g}")
        if error is not None and not (math.isfinite(error) and error < 1):
            error = None
        factor = growth(form, setting, stiff=False)
        stiff = growth(form, setting, stiff=True) if form in ("vie2", "vide") else None
    except quenta.QuentaError as refusal:
        note = "refused" if isinstance(refusal, quenta.UnsupportedSettingError) else "singular"
        if setting.nodes[0] == 0:
            note = "at the node 0 an equation of the first kind contains no unknown"
        elif note == "refused":
            note = "refused because it amplifies all errors"
        return Measurement(False, None, None, None, None, None, note)
    note = sentence(order, order_at_steps, factor, stiff)
    measured = Measurement(True, order, order_at_steps, error, factor, stiff, note)
    return replace(measured, kinked_errors=kinked_errors(form, setting)) if measured.stable else measured


def sentence(order: Optional[float], order_at_steps: Optional[float], factor: float, stiff: Optional[float]) -> str:
    if factor > 1.01:
        return f"errors grow by a factor of {factor:.3g} per step until they overflow"
    parts = ["no order observed" if order is None else f"order {order:.0f}"]
    if order is not None and order_at_steps is not None and order_at_steps > order + 0.5:
        parts[0] += f", {order_at_steps:.0f} at the ends of the steps"
    if stiff is None:
        parts.append("disturbances " + ("neither grow nor decay" if factor > 0.99 else "decay"))
    elif stiff > 1.01:
        parts.append("components that decay within a step overflow: use short steps")
    elif stiff > 0.9:
        parts.append("components that decay within a step are not damped")
    else:
        parts.append("suitable for stiff problems")
    return "; ".join(parts)


def main(arguments: list[str]) -> int:
    if arguments not in ([], ["--check"]):
        print(__doc__, file=sys.stderr)
        return 2
    measured = {}
    with np.errstate(all="ignore"):
        for setting in quenta.settings():
            name = f"{setting.m}:{','.join(map(str, setting.nodes))}"
            measured[name] = {form: asdict(measure(form, setting)) for form in FORMS}
    text = json.dumps({"made by": COMMAND, "settings": measured}, indent=1) + "\n"
    text = re.sub(r'\[[^{}"]*\]', lambda numbers: "".join(numbers[0].split()), text)  # lists of numbers on one line
    if arguments:
        if FILE.read_text(encoding="utf-8") != text:
            print(f"{FILE}: expected the values measured now, got others; run {COMMAND}", file=sys.stderr)
            return 1
        return 0
    FILE.write_text(text, encoding="utf-8")
    print(f"measured {len(measured)} settings: {FILE}")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
