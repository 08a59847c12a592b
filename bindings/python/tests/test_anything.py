"""Whatever is passed, a call ends in a solution of the right shape, or in one of the promised exceptions.

A call that the library cannot stand would end the process, and these tests with it.
"""

import decimal
import fractions
import re
import warnings

import numpy as np
import pytest
from hypothesis import HealthCheck, given, settings
from hypothesis import strategies as st

import quenta

PROMISED = (ValueError, quenta.SingularBlockError)
NAMES_AN_ARGUMENT = re.compile(r"[A-Za-z_0-9]+: (expected|the library refuses)")
LEAST_CALLS = 10_000
calls = {"made": 0, "solved": 0}

many = lambda count: settings(  # noqa: E731
    max_examples=count, deadline=None, database=None, derandomize=True, suppress_health_check=list(HealthCheck)
)


def attempt(function, *arguments, **keywords):
    """What the function returns; None if it raised as promised. Every refusal is one sentence and names an argument."""
    calls["made"] += 1
    try:
        with warnings.catch_warnings(), np.errstate(all="ignore"):
            warnings.simplefilter("ignore")
            result = function(*arguments, **keywords)
    except PROMISED as refusal:
        assert str(refusal) and "\n" not in str(refusal)
        assert isinstance(refusal, quenta.SingularBlockError) or NAMES_AN_ARGUMENT.match(str(refusal)), refusal
        return None
    calls["solved"] += 1
    return result


# ---- Values of all kinds --------------------------------------------------------------------------------------------

numbers = st.one_of(
    st.floats(),
    st.integers(-(2**70), 2**70),
    st.sampled_from([0.0, -0.0, 1.0, 0.1, np.float32(0.5), np.array(2.0), True, np.nan, np.inf, 5e-324, 1e308]),
)
class Stubborn:
    """What refuses to become an array or a number."""

    def __array__(self, *_, **__):
        raise RuntimeError("no array")

    def __float__(self):
        raise RuntimeError("no number")

dtypes = st.sampled_from(
    ["f8"] * 8 + ["f4", ">f8", "f2", "g", "i8", "u1", "?", "c16", "O", "S3", "U2", "M8[s]", "m8[s]", "V8"]
)
layouts = st.sampled_from(["plain", "plain", "strided", "backwards", "fortran", "read-only", "unaligned", "broadcast"])


def laid_out(array, layout):
    """The same numbers, laid out in memory in some way."""
    array = np.asarray(array)
    if layout == "strided":
        array = np.repeat(array, 2, axis=0)[::2] if array.ndim else array
    elif layout == "backwards":
        array = array[::-1].copy()[::-1] if array.ndim else array
    elif layout == "fortran":
        array = np.asfortranarray(array)
    elif layout == "read-only":
        array = array.copy()
        array.flags.writeable = False
    elif layout == "unaligned":
        raw = np.empty(array.nbytes + 1, np.uint8)[1:]
        copy = raw.view(array.dtype) if array.dtype != object and array.itemsize else array
        if copy is not array:
            copy[:] = array.ravel()
            array = copy.reshape(array.shape)
    elif layout == "broadcast" and array.size:
        array = np.broadcast_to(array.ravel()[0], array.shape)
    return array


@st.composite
def arrays(draw):
    shape = draw(st.lists(st.integers(0, 12), max_size=5))
    generator = np.random.default_rng(draw(st.integers(0, 2**32)))
    values = generator.normal(size=shape) * 10.0 ** draw(st.integers(-3, 3))
    with warnings.catch_warnings():
        warnings.simplefilter("ignore")
        dtype = np.dtype(draw(dtypes))
        values = np.zeros(shape, dtype) if dtype.kind in "VMm" else values.astype(dtype)
    return laid_out(values, draw(layouts))


functions = st.sampled_from(
    [np.cos, lambda t: 1.0, lambda t: t[:-1], lambda t: None, lambda t: np.outer(t, [1, 2]), lambda t: t > 1, len]
)
odd = st.one_of(
    st.none(),
    numbers,
    arrays(),
    functions,
    st.text(max_size=3),
    st.binary(max_size=3),
    st.lists(numbers, max_size=6),
    st.lists(st.lists(numbers, max_size=3), max_size=3),
    st.dictionaries(st.integers(), numbers, max_size=1),
    st.sampled_from([float, Ellipsis, range(20), np.ma.masked, memoryview(b"12345678"), Stubborn(), 10**400, 1j]),
    st.sampled_from([fractions.Fraction(1, 3), decimal.Decimal(2), [10**400], [[1], [1, 2]], np.datetime64(0, "s")]),
)
odd_settings = st.one_of(
    odd,
    st.tuples(st.integers(-1, 6), st.lists(st.integers(-1, 6), max_size=6)),
    st.tuples(st.sampled_from([0, 65536, 2**31, 2**40, -4]), st.lists(st.integers(0, 4), max_size=3)),
    st.tuples(odd, odd),
)
rows = st.sampled_from(quenta.settings())
SOLVERS = [quenta.solve_vie1, quenta.solve_vie2, quenta.solve_vide]


def check_solution(found, N, D):
    if found is None:
        return
    assert isinstance(found, quenta.Solution) and found.steps >= 1
    assert found.y.shape == (found.steps * found.setting.spacings + 1,) + (() if D is None else (D,))
    assert len(found.y) <= N
    assert found.polynomials.shape[0] == found.steps and found.polynomials.shape[2:] == found.y.shape[1:]
    with np.errstate(all="ignore"):
        assert found(found.t).shape == found.y.shape


# ---- Nearly right ---------------------------------------------------------------------------------------------------


@many(3600)
@given(st.data())
def test_sampled_solvers_with_something_odd(data):
    draw = data.draw
    solve, row = draw(st.sampled_from(SOLVERS)), draw(st.one_of(rows, rows.map(lambda row: (row.m, list(row.nodes)))))
    N, D = draw(st.integers(0, 80)), draw(st.sampled_from([None, None, 1, 2, 3, 8, 9, 0]))
    generator = np.random.default_rng(draw(st.integers(0, 2**32)))
    vectors = (N,) if D is None else (N, D)
    matrices = (N,) if D is None else (N, D, D)
    values = {"g": generator.normal(size=vectors), "K": generator.normal(size=matrices), "dt": 0.01}
    if solve is quenta.solve_vide:
        values.update(a=generator.normal(size=matrices), y0=1.0 if D is None else np.ones(D))
    elif solve is quenta.solve_vie1 and draw(st.booleans()):
        values.update(continuous=True, y0=1.0 if D is None else np.ones(D))
    values["setting"] = row
    for name in draw(st.lists(st.sampled_from(sorted(values)), max_size=1)):
        values[name] = draw(odd_settings if name == "setting" else odd)
    if draw(st.booleans()):
        values["check_finite"] = draw(st.sampled_from([False, True, 0, "no", np.ones(2), np.bool_(False)]))
    if draw(st.integers(0, 9)) == 0:
        values["kernel_ends"] = draw(st.one_of(odd, st.booleans()))
    if draw(st.integers(0, 9)) == 0:
        values["t_end"] = draw(st.one_of(odd, st.floats(0, 1)))
    for name in ("g", "K", "a"):
        if isinstance(values.get(name), np.ndarray):
            values[name] = laid_out(values[name], draw(layouts))
    found = attempt(solve, **values)
    if found is not None:
        check_solution(found, max(N, len(found.y)), None if found.y.ndim == 1 else found.y.shape[1])


@many(2900)
@given(st.sampled_from(SOLVERS), st.lists(odd, min_size=3, max_size=3), numbers, odd_settings, odd)
def test_sampled_solvers_with_anything(solve, samples, dt, setting, y0):
    if solve is quenta.solve_vide:
        attempt(solve, *samples, y0, dt, setting=setting)
    else:
        attempt(solve, *samples[:2], dt, setting=setting, t_end=samples[2])


@many(2900)
@given(st.data())
def test_block_solvers_with_something_odd(data):
    draw = data.draw
    N, P = draw(st.integers(0, 5)), draw(st.sampled_from([0, 1, 2, 3, 5, 6]))
    D = draw(st.sampled_from([None, None, 1, 2, 3, 8, 9, 0]))
    generator = np.random.default_rng(draw(st.integers(0, 2**32)))

    def normal(*shape):
        return generator.normal(size=shape)

    tail, square = (() if D is None else (D,)), (() if D is None else (D, D))
    kind = draw(st.sampled_from(["vie1", "vie2", "vie1_cont", "vide"]))
    slots = P if kind in ("vie1", "vie2") else P + 1
    values = {"A": normal(N, P, N, slots, *square), "b": normal(N, P, *tail)}
    if draw(st.booleans()) and P:
        values["A"][draw(st.integers(0, N)) : 1, :, :, : P - 1] = draw(st.sampled_from([0.0, np.nan, np.inf, 1e-320]))
    if kind == "vie1_cont":
        values.update(w=normal(P), rho=0.5, y0=1.0 if D is None else normal(D))
    elif kind == "vide":
        values.update(C=normal(N, P, *square), E=normal(P, P), w=normal(P), h=normal(N))
        values["y0"] = 1.0 if D is None else normal(D)
    for name in draw(st.lists(st.sampled_from(sorted(values)), max_size=1)):
        values[name] = draw(odd)
    for name, value in values.items():
        if isinstance(value, np.ndarray):
            values[name] = laid_out(value, draw(layouts))
    if draw(st.booleans()):
        values["check_finite"] = False
    found = attempt(getattr(quenta, f"solve_blocks_{kind}"), **values)
    if found is not None and kind in ("vie1", "vie2"):
        assert found.ndim in (2, 3)
    elif found is not None:
        assert found.y.shape == (len(found.x) + 1,) + found.x.shape[2:]


@many(1000)
@given(st.data())
def test_other_functions_with_anything(data):
    draw = data.draw
    which = draw(st.sampled_from(["evaluate", "derivative", "recommend", "with_error", "blocks"]))
    if which in ("evaluate", "derivative"):
        found = quenta.solve_vie2(np.ones((37, 2)), np.eye(2), 0.1, setting=draw(rows.filter(lambda row: row.m < 4)))
        attempt(found if which == "evaluate" else found.derivative, draw(odd), draw(st.one_of(odd, st.just("left"))))
    elif which == "recommend":
        kind = draw(st.one_of(odd, st.sampled_from(["vie1", "vie2", "vide"])))
        smoothness, stiff = draw(st.one_of(odd, st.integers(0, 6))), draw(st.one_of(odd, st.booleans()))
        attempt(quenta.recommend, kind, smoothness=smoothness, stiff=stiff, samples=draw(odd))
    elif which == "with_error":
        solve = draw(st.one_of(odd, st.sampled_from(SOLVERS[:2])))
        attempt(quenta.with_error, solve, draw(odd), draw(odd), 0.1, t_end=draw(odd))
    else:
        attempt(quenta.solve_blocks_vie1, draw(odd), draw(odd))


def test_there_were_enough_calls():
    if not calls["made"]:
        pytest.skip("runs with the tests above")
    print(calls)
    assert calls["made"] >= LEAST_CALLS and calls["solved"] >= LEAST_CALLS // 10
