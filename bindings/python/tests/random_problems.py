"""Random problems with closed-form solutions: smooth, kinked, discontinuous, oscillating, first-kind and stiff ones.

The solution y and the kernel K are drawn, and the forcing is computed from them. Both are sums of terms

    c (t - shift)^power exp(rate (t - shift))   for t >= shift, and 0 for t < shift,

with complex rates. The convolution of two such sums is again such a sum.
"""

import warnings
from collections import Counter
from math import comb, factorial, pi
from typing import Any, NamedTuple

import numpy as np

import quenta

SOLVERS = {
    "vie1": quenta.solve_vie1,
    "vie1_continuous": quenta.solve_vie1,
    "vie2": quenta.solve_vie2,
    "vide": quenta.solve_vide,
}
DEFAULTS = {"vie1": (3, (1, 2, 3)), "vie1_continuous": (3, (1, 2, 3)), "vie2": (2, (0, 1, 2)), "vide": (2, (0, 1, 2))}


class Term(NamedTuple):
    c: complex
    power: int = 0
    rate: complex = 0.0
    shift: float = 0.0


def values(terms, t):
    """The sum of the terms at the times t, continuous from the right."""
    total = np.zeros(len(t), complex)
    for c, power, rate, shift in terms:
        since = t[t >= shift] - shift
        total[len(t) - len(since) :] += c * since**power * np.exp(rate * since)
    return total.real


def derivative(terms):
    result = []
    for c, power, rate, shift in terms:
        assert power > 0 or shift == 0, "a jump has no derivative"
        if power:
            result.append(Term(c * power, power - 1, rate, shift))
        result.append(Term(c * rate, power, rate, shift))
    return result


def convolution(left, right):
    """The convolution, by partial fractions of the Laplace transforms p! / (s - rate)^(p + 1)."""
    result = []
    for c, p, u, shift in left:
        for d, q, v, other in right:
            scale, shifts = c * d * factorial(p) * factorial(q), shift + other
            if u == v:
                result.append(Term(scale / factorial(p + q + 1), p + q + 1, u, shifts))
                continue
            for power, rate, other_power, gap in ((p, u, q, u - v), (q, v, p, v - u)):
                for k in range(power + 1):
                    weight = comb(other_power + k, k) * (-1) ** k / gap ** (other_power + 1 + k)
                    result.append(Term(scale * weight / factorial(power - k), power - k, rate, shifts))
    return result


def cosine(amplitude, frequency, phase, decay=0.0, shift=0.0, power=0):
    c = amplitude / 2 * np.exp(1j * phase)
    rate = -decay + 1j * frequency
    return [Term(c, power, rate, shift), Term(c.conjugate(), power, rate.conjugate(), shift)]


class Grid(NamedTuple):
    form: str
    setting: Any
    N: int
    dt: float

    @property
    def end(self):
        return (self.N - 1) * self.dt

    @property
    def step(self):
        return self.setting.spacings * self.dt


class Problem(NamedTuple):
    """The arguments of `with_error`, and the solution at the samples."""

    grid: Grid
    arguments: tuple
    keywords: dict
    y: Any

    def estimate(self):
        with warnings.catch_warnings():
            warnings.simplefilter("ignore")
            return quenta.with_error(SOLVERS[self.grid.form], *self.arguments, **self.keywords)


# ---- Parts ----------------------------------------------------------------------------------------------------------


def log_uniform(random, low, high):
    return float(np.exp(random.uniform(np.log(low), np.log(high))))


def draw_grid(random, forms):
    """Draws a form, a setting that is stable in it, and enough samples for at least 8 steps."""
    form = str(random.choice(forms))
    stable = [setting for setting in quenta.settings() if setting.measured[form].stable]
    names = [(setting.m, setting.nodes) for setting in stable]
    which = names.index(DEFAULTS[form]) if random.random() < 0.3 else random.integers(len(stable))
    setting = stable[which]
    N = int(log_uniform(random, max(13, 8 * setting.spacings + 1), 1500))
    end = random.uniform(1, 10)
    return Grid(form, setting, N, end / (N - 1))


def smooth_frequency(random, grid):
    """A frequency with at least 32 samples and 6 steps per period, and if possible at least 1 radian on the interval."""
    fastest = 2 * pi / max(32 * grid.dt, 6 * grid.step)
    return log_uniform(random, min(1 / grid.end, fastest / 2), fastest)


def smooth_function(random, grid, frequency=None):
    frequency = frequency or smooth_frequency(random, grid)
    slow = smooth_frequency(random, grid)
    terms = cosine(random.uniform(0.3, 1), frequency, random.uniform(0, 2 * pi), random.uniform(0, 2) / grid.end)
    terms += cosine(random.uniform(0, 1), min(slow, frequency), random.uniform(0, 2 * pi))
    return terms + [Term(random.uniform(-1, 1)), Term(random.uniform(-1, 1) / grid.end, 1)]


def smooth_kernel(random, grid, frequency=None):
    """A kernel whose integral is not negligible and does not make the solution grow strongly."""
    decay = random.uniform(0.5, 4) / grid.end
    size = random.choice([-1, 1]) * log_uniform(random, 0.1, 3) / grid.end
    terms = [Term(size * random.uniform(0.2, 1), 0, -decay)]
    return terms + cosine(size, frequency or smooth_frequency(random, grid), random.uniform(0, 2 * pi), 2 * decay)


def first_kind_kernel(random, grid):
    """A kernel with nonzero K(0) whose magnitude mostly decreases."""
    frequency = smooth_frequency(random, grid)
    decay = max(random.uniform(0.5, 8) / grid.end, frequency)
    terms = [Term(1.0, 0, -random.uniform(0.1, 3) / grid.end)]
    decay = min(decay, smooth_frequency(random, grid))
    terms += cosine(random.uniform(0, 0.5), frequency, random.uniform(-0.5, 0.5), decay)
    scale = random.choice([-1, 1]) * log_uniform(random, 0.1, 10)
    return [term._replace(c=scale * term.c) for term in terms]


def place(random, grid):
    """A time inside the interval: uniform, just after a step boundary of this or a coarser grid, or at a sample."""
    spot = random.random()
    if spot < 0.4:
        return random.uniform(0.05, 0.95) * grid.end
    spacing = grid.step * random.choice([1, 2, 4]) if spot < 0.8 else grid.dt
    inside = int(0.95 * grid.end / spacing)
    behind = random.uniform(0, 0.3) * random.choice([1, 0.1, 0.01]) * grid.dt if spot < 0.8 else 0.0
    time = int(random.integers(1, max(inside, 1) + 1)) * spacing + behind
    return time if time < grid.end else 0.5 * grid.end


def assemble(random, grid, y, K, a=None):
    """The problem with this solution and kernel. One in ten is a system of 2 or 3 multiples of it, mixed by a matrix."""
    t = np.arange(grid.N) * grid.dt
    mixed = int(random.choice([2, 3])) if random.random() < 0.1 else 1
    scales = random.uniform(0.5, 1.5, mixed)
    size = random.choice([0, 1]) * random.uniform(-1.5, 1.5) / grid.end if a is None else a
    tilt = random.uniform(-0.5, 0.5) / grid.end if a is None else 0.0
    a = size + tilt * np.cos(t / grid.end)
    memory = values(convolution(y, K), t)
    exact, kernel = values(y, t), values(K, t)
    if grid.form == "vie2":
        g = exact - memory
    elif grid.form == "vide":
        g = values(derivative(y), t) - a * exact - memory
    else:
        g = memory
    y0 = exact[0]
    if mixed > 1:
        mix = np.eye(mixed) + random.uniform(-0.3, 0.3, (mixed, mixed))
        weights = mix @ scales
        exact, g, y0 = exact[:, None] * weights, g[:, None] * weights, y0 * weights
        kernel, a = kernel[:, None, None] * np.eye(mixed), a[:, None, None] * np.eye(mixed)
    keywords = {"setting": grid.setting}
    arguments = (g, kernel, grid.dt)
    if grid.form == "vide":
        arguments = (g, kernel, a, y0, grid.dt)
    elif grid.form == "vie1_continuous":
        keywords.update(continuous=True, y0=y0)
    return Problem(grid, arguments, keywords, exact)


# ---- Families -------------------------------------------------------------------------------------------------------

SECOND_KIND = ["vie2", "vide"]
FIRST_KIND = ["vie1", "vie1", "vie1_continuous"]


def smooth(random):
    """A well-sampled problem: at least 32 samples and 6 steps per period."""
    grid = draw_grid(random, SECOND_KIND)
    return assemble(random, grid, smooth_function(random, grid), smooth_kernel(random, grid))


def first_kind(random):
    grid = draw_grid(random, FIRST_KIND)
    y = smooth_function(random, grid)
    if random.random() < 0.25:
        y.append(Term(random.uniform(-3, 3) / grid.end, 1, 0.0, place(random, grid)))
    return assemble(random, grid, y, first_kind_kernel(random, grid))


def oscillation(random):
    """The solution, the kernel or both oscillate with 2.2 to 16 samples per period."""
    grid = draw_grid(random, SECOND_KIND + ["vie1"])
    frequency = 2 * pi / (log_uniform(random, 2.2, 16) * grid.dt)
    which = random.integers(3)
    y = smooth_function(random, grid, frequency if which != 1 else None)
    if grid.form == "vie1":
        return assemble(random, grid, y, first_kind_kernel(random, grid))
    return assemble(random, grid, y, smooth_kernel(random, grid, frequency if which != 0 else None))


def stiff(random):
    """A problem with a term -rate y, or with a kernel that starts at -rate; rate times the step is 0.3 to 1000."""
    grid = draw_grid(random, SECOND_KIND)
    rate = log_uniform(random, 0.3, 1e3) / grid.step
    y = smooth_function(random, grid)
    if random.random() < 0.5:
        y.append(Term(random.uniform(-1, 1), 0, -rate))
    if grid.form == "vide":
        return assemble(random, grid, y, smooth_kernel(random, grid), -rate)
    return assemble(random, grid, y, [Term(-rate, 0, -random.uniform(0.1, 4) / grid.end)])


def kink(random):
    return rough(random, 1)


def jump(random):
    return rough(random, 0)


def rough(random, power):
    """The solution, the kernel or both contain a term that is 0 before some time and has a kink or a jump there."""
    grid = draw_grid(random, SECOND_KIND)
    where = place(random, grid)
    size = random.choice([-1, 1]) * log_uniform(random, 0.03, 3) / where**power
    which = random.integers(4)
    if which == 0:  # delayed kernel, constant forcing: y is the Neumann series of K, applied to 1
        where = max(where, grid.end / 6)
        K = [Term(size / grid.end, power, 0.0, where)]
        if grid.form == "vide":
            K = [K[0]._replace(c=K[0].c / grid.end)]
            once = convolution(K, [Term(1.0)])  # y' = K * y, so y = 1 + integral of (K * 1) + ...
        else:
            once = K
        y = part = [Term(1.0)]
        while part[0].shift + where < grid.end:
            part = convolution(once, part)
            y = y + part
        return assemble(random, grid, y, K, 0.0)
    y, K = smooth_function(random, grid), smooth_kernel(random, grid)
    if which in (1, 3):
        in_solution = power + (grid.form == "vide")
        y.append(Term(size / grid.end ** (in_solution - power), in_solution, 0.0, where))
    if which in (2, 3):
        K.append(Term(size / grid.end, power, -random.uniform(0.5, 4) / grid.end, place(random, grid)))
    return assemble(random, grid, y, K)


FAMILIES = {
    "smooth": smooth,
    "kink": kink,
    "jump": jump,
    "oscillation": oscillation,
    "first kind": first_kind,
    "stiff": stiff,
}


def draw(family, number):
    """The problem with this number; deterministic.

    The limits in error_estimate.py were chosen on problems with other seeds.
    """
    return FAMILIES[family](np.random.default_rng([1, list(FAMILIES).index(family), number]))


# ---- Statistics -----------------------------------------------------------------------------------------------------


def ratio(problem, estimate):
    """The largest estimated error divided by the largest error; 1 if rounding can explain both."""
    y = problem.y[: len(estimate.solution.y)]
    rounding = 16 * np.finfo(float).eps * len(y) * abs(y).max()
    return max(estimate.error.max(), rounding) / max(abs(estimate.solution.y - y).max(), rounding)


def judge(family, count):
    """Counts trusted estimates, and those of them that are too small or too large.

    Also returns the numbers of the three problems whose trusted estimates are the smallest relative to the error.
    """
    found = Counter(problems=count)
    worst = []
    for number in range(count):
        problem = draw(family, number)
        estimate = problem.estimate()
        if not estimate.trusted:
            continue
        found["trusted"] += 1
        share = ratio(problem, estimate)
        for limit in (3, 10):
            found[f"{limit} times too small"] += not share >= 1 / limit
            found[f"{limit} times too large"] += share > limit
        worst.append((share, number))
    return found, [number for _, number in sorted(worst)[:3]]
