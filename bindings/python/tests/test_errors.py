"""Exceptions of the package can be pickled and sent between processes unchanged."""

import copy
import inspect
import pickle
from concurrent.futures import ProcessPoolExecutor

import numpy as np
import pytest

import quenta

X, Y = np.array([[1.0], [2.0]]), np.array([1.0, 2.0, 3.0])
KEPT = quenta.Ensemble([1, 2], [3, None], [quenta.Failure(1, 2, "error", "details")])
SPECIAL = {"SingularBlockError": ("the system of step 2 is singular", 2, X, Y), "EnsembleInterrupt": (KEPT,)}
CLASSES = [one for one in vars(quenta.errors).values() if inspect.isclass(one) and issubclass(one, BaseException)]


@pytest.mark.parametrize("kind", CLASSES)
@pytest.mark.parametrize("pass_on", [lambda one: pickle.loads(pickle.dumps(one)), copy.copy, copy.deepcopy])
def test_exceptions_can_be_pickled_and_copied(kind, pass_on):
    assert len(CLASSES) >= 6
    one = kind(*SPECIAL.get(kind.__name__, ("g: expected this, got that",)))
    other = pass_on(one)
    assert type(other) is kind and str(other) == str(one) and vars(other).keys() == vars(one).keys()
    for name, value in vars(one).items():
        assert np.array_equal(value, getattr(other, name)), name


def solve_singular_blocks():
    A = np.eye(3).reshape(3, 1, 3, 1).copy()
    A[1, 0, 1, 0] = 0
    return quenta.solve_blocks_vie1(A, np.ones((3, 1)))


def test_an_exception_from_another_process_has_all_attributes():
    with ProcessPoolExecutor(1) as executor, pytest.raises(quenta.SingularBlockError) as raised:
        executor.submit(solve_singular_blocks).result()
    assert raised.value.step == 1 and raised.value.x.tolist() == [[1.0]] and raised.value.y is None
    assert "step 1" in str(raised.value)
