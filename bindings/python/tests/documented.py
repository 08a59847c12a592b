"""Compares numbers stated in the documentation with measured ones."""

import pathlib
import re

ROOT = pathlib.Path(__file__).resolve().parents[3]
NUMBER = r"(-?\d[\d,]*(?:\.\d+)?(?:e[-+]?\d+)?)"


def assert_stated(page, sentence, *measured):
    """Asserts that the page contains `sentence` once, and that its numbers are the measured ones, correctly rounded.

    Each {} stands for a number. Line breaks match spaces. A sentence that begins with a bar is a row of a table.
    """
    pattern = r"\s+".join(re.escape(word).replace(r"\{\}", NUMBER) for word in sentence.split())
    if sentence.startswith("|"):
        pattern = "^" + pattern + ("$" if sentence.endswith("|") else "")
    matches = list(re.finditer(pattern, (ROOT / page).read_text(encoding="utf-8"), re.MULTILINE))
    assert len(matches) == 1, f"{page}: expected one occurrence, got {len(matches)}: {sentence}"
    found = matches[0]
    assert len(found.groups()) == len(measured), (
        f"{page}: expected {len(measured)} numbers, got {len(found.groups())}: {sentence}"
    )
    for stated, value in zip(found.groups(), measured):
        # Half a unit of the last digit, plus a margin: sine and exponential round differently on other machines.
        assert abs(value - float(stated.replace(",", ""))) <= 0.55 * last_digit(stated) + 2e-14, (
            f"{page} states {stated}, measured {value:.3g}, in: {found[0]}"
        )


def last_digit(number):
    """The unit of the last digit of a written number: 0.01 for 1.25, 1e-05 for 3e-05."""
    digits, _, exponent = number.replace(",", "").partition("e")
    return 10.0 ** (int(exponent or 0) - len(digits.partition(".")[2]))


def described(setting):
    m, nodes = setting
    return f"({m}; {', '.join(map(str, nodes))})"
