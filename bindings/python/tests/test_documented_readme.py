"""Measures the numbers of samples that README.md states beside the figure of accuracy against time."""

import numpy as np
import pytest
from documented import assert_stated
from problems import arguments, solution

import quenta

ERROR = 1e-6

pytestmark = pytest.mark.filterwarnings("ignore")


def error_with(spacings, setting):
    t = 10 * np.arange(spacings + 1) / spacings
    return abs(quenta.solve_vie2(*arguments("vie2", t), t[1], setting=setting).y - solution(t)).max()


def fewest_samples(setting):
    """The smallest number of samples, in whole steps, for which the largest error is at most ERROR."""
    spacings = setting[0] ** 2
    too_few, enough = 1, 4096  # steps
    while error_with(enough * spacings, setting) > ERROR:
        too_few, enough = enough, 2 * enough
    while enough - too_few > 1:
        middle = (too_few + enough) // 2
        if error_with(middle * spacings, setting) > ERROR:
            too_few = middle
        else:
            enough = middle
    return enough * spacings + 1


def test_the_numbers_of_samples_for_an_error_of_1e_6():
    assert_stated("README.md", "For an error of {}, the default scheme needs", ERROR)
    assert_stated("README.md", "the default scheme needs {} samples and", fewest_samples((2, (0, 1, 2))))
    # The loop is the trapezoidal rule, and so is (1; 0, 1).
    assert_stated("README.md", "a textbook loop needs {} samples and", fewest_samples((1, (0, 1))))
