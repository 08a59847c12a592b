"""For arbitrary arguments, a call returns a solution of the right shape or raises a documented exception.

The library ends the process if its arguments contradict each other. So each test also shows that none reached it.
"""

import decimal
import fractions
import os
import re
import warnings

import numpy as np
from hypothesis import HealthCheck, given, settings
from hypothesis import strategies as st

import quenta

PROMISED = (ValueError, quenta.SingularBlockError)
NAMES_AN_ARGUMENT = re.compile(r"[A-Za-z_0-9]+: expected ")
#: QUENTA_LONG_TESTS=1 draws this many times as many cases.
FACTOR = 5 if os.environ.get("QUENTA_LONG_TESTS") == "1" else 1


class Calls:
    """Counts calls, and checks that each one succeeds or raises a documented exception."""

    def __init__(self):
        self.made = self.solved = 0

    def attempt(self, function, *arguments, **keywords):
        """Returns the result, or None after a refusal, which must be one sentence that names an argument."""
        self.made += 1
        try:
            with warnings.catch_warnings(), np.errstate(all="ignore"):
                warnings.simplefilter("ignore")
                result = function(*arguments, **keywords)
        except PROMISED as refusal:
            assert str(refusal) and "\n" not in str(refusal)
            assert isinstance(refusal, quenta.SingularBlockError) or NAMES_AN_ARGUMENT.match(str(refusal)), refusal
            return None
        self.solved += 1
        return result


def run_cases(count, check, least_solved):
    """Runs check(draw, attempt) on random cases. At least the given fraction of the calls must succeed."""
    calls = Calls()

    @settings(
        max_examples=count * FACTOR,
        deadline=None,
        database=None,
        derandomize=True,
        suppress_health_check=list(HealthCheck),
    )
    @given(st.data())
    def run(data):
        check(data.draw, calls.attempt)

    run()
    assert calls.made >= 0.9 * count * FACTOR and calls.solved >= least_solved * calls.made, vars(calls)


# ---- Values of all kinds --------------------------------------------------------------------------------------------

numbers = st.one_of(
    st.floats(),
    st.integers(-(2**70), 2**70),
    st.sampled_from([0.0, -0.0, 1.0, 0.1, np.float32(0.5), np.array(2.0), True, np.nan, np.inf, 5e-324, 1e308]),
)


class Stubborn:
    """An object that cannot be converted to an array or a number."""

    def __array__(self, *_, **__):
        raise RuntimeError("no array")

    def __float__(self):
        raise RuntimeError("no number")


dtypes = st.sampled_from(
    ["f8"] * 8 + ["f4", ">f8", "f2", "g", "i8", "u1", "?", "c16", "O", "S3", "U2", "M8[s]", "m8[s]", "V8"]
)
layouts = st.sampled_from(["plain", "plain", "strided", "backwards", "fortran", "read-only", "unaligned", "broadcast"])


def laid_out(array, layout):
    """The same numbers in another memory layout."""
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


# ---- Valid arguments, at most one of them replaced ------------------------------------------------------------------


def sampled_arguments(draw, solve):
    """Valid arguments by name, for any N and D, 0 included; and N."""
    N, D = draw(st.integers(0, 80)), draw(st.sampled_from([None, None, 1, 2, 3, 8, 9, 0]))
    generator = np.random.default_rng(draw(st.integers(0, 2**32)))
    vectors = (N,) if D is None else (N, D)
    matrices = (N,) if D is None else (N, D, D)
    values = {"g": generator.normal(size=vectors), "K": generator.normal(size=matrices), "dt": 0.01}
    if solve is quenta.solve_vide:
        values.update(a=generator.normal(size=matrices), y0=1.0 if D is None else np.ones(D))
    elif solve is quenta.solve_vie1 and draw(st.booleans()):
        values.update(continuous=True, y0=1.0 if D is None else np.ones(D))
    values["setting"] = draw(st.one_of(rows, rows.map(lambda row: (row.m, list(row.nodes)))))
    return values, N


def call_sampled_solver(draw, attempt):
    solve = draw(st.sampled_from(SOLVERS))
    values, N = sampled_arguments(draw, solve)
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


def test_sampled_solvers_with_one_arbitrary_argument():
    run_cases(700, call_sampled_solver, least_solved=0.1)


def test_sampled_solvers_with_arbitrary_arguments():
    def check(draw, attempt):
        solve = draw(st.sampled_from(SOLVERS))
        first, second, third = (draw(odd) for _ in range(3))
        dt, setting = draw(numbers), draw(odd_settings)
        if solve is quenta.solve_vide:
            attempt(solve, first, second, third, draw(odd), dt, setting=setting)
        else:
            attempt(solve, first, second, dt, setting=setting, t_end=third)

    run_cases(550, check, least_solved=0)


def block_arguments(draw, kind):
    """Valid arguments by name, for any N, P and D, 0 included."""
    N, P = draw(st.integers(0, 5)), draw(st.sampled_from([0, 1, 2, 3, 5, 6]))
    D = draw(st.sampled_from([None, None, 1, 2, 3, 8, 9, 0]))
    generator = np.random.default_rng(draw(st.integers(0, 2**32)))

    def normal(*shape):
        return generator.normal(size=shape)

    tail, square = (() if D is None else (D,)), (() if D is None else (D, D))
    slots = P if kind in ("vie1", "vie2") else P + 1
    values = {"A": normal(N, P, N, slots, *square), "b": normal(N, P, *tail)}
    if draw(st.booleans()) and P:
        values["A"][draw(st.integers(0, N)) : 1, :, :, : P - 1] = draw(st.sampled_from([0.0, np.nan, np.inf, 1e-320]))
    if kind == "vie1_cont":
        values.update(w=normal(P), rho=0.5, y0=1.0 if D is None else normal(D))
    elif kind == "vide":
        values.update(C=normal(N, P, *square), E=normal(P, P), w=normal(P), h=normal(N))
        values["y0"] = 1.0 if D is None else normal(D)
    return values


def call_block_solver(draw, attempt):
    kind = draw(st.sampled_from(["vie1", "vie2", "vie1_cont", "vide"]))
    values = block_arguments(draw, kind)
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


def test_block_solvers_with_one_arbitrary_argument():
    run_cases(550, call_block_solver, least_solved=0.1)


def call_other_function(draw, attempt):
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


def test_other_functions_with_arbitrary_arguments():
    run_cases(200, call_other_function, least_solved=0)
