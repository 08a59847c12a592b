"""The program `quenta`, driven as a user drives it: each promise a test.

usage: program_test.py QUENTA
"""

import contextlib
import csv
import math
import os
import pathlib
import resource
import subprocess
import sys
import tempfile
import unittest
from fractions import Fraction as F

PROGRAM = pathlib.Path(sys.argv[1]).resolve()
SOLVED, UNEXPECTED, BAD_INPUT, SINGULAR = 0, 1, 2, 3

# y(t) = cos 3t solves the equation with the kernel exp(-t) and this forcing.
SOLUTION = lambda t: math.cos(3 * t)
KERNEL = lambda t: math.exp(-t)
FORCING = lambda t: math.cos(3 * t) - (math.cos(3 * t) + 3 * math.sin(3 * t) - math.exp(-t)) / 10


def grid(spacings, end=2.0):
    return [end * i / spacings for i in range(spacings + 1)]


def samples(spacings, end=2.0):
    return "t,g,K\n" + "".join(f"{t!r},{FORCING(t)!r},{KERNEL(t)!r}\n" for t in grid(spacings, end))


def constant_samples(spacings, g=1, K=1, spacing=1):
    return "t,g,K\n" + "".join(f"{i * spacing},{g},{K}\n" for i in range(spacings + 1))


def columns(text):
    rows = list(csv.reader(text.splitlines()))
    return {name: [float(row[i]) for row in rows[1:]] for i, name in enumerate(rows[0])}


class ProgramTest(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = pathlib.Path(directory.name)

    def run_program(self, *arguments, text="", **settings):
        return subprocess.run([PROGRAM, *arguments], input=text, capture_output=True, text=True, cwd=self.directory,
                              timeout=120, **settings)

    def solve(self, *arguments, text="", silent=True, command="vie2"):
        run = self.run_program(command, *arguments, text=text)
        self.assertEqual(run.returncode, SOLVED, run.stderr)
        if silent:
            self.assertEqual(run.stderr, "")
        return run.stdout

    def assert_one_sentence(self, message, *fragments):
        self.assertRegex(message, r"\Aquenta: [^\n]+\n\Z")
        self.assertNotRegex(message, r"\. [A-Z]")
        for fragment in fragments:
            self.assertIn(fragment, message)

    def assert_refused(self, text, *fragments, command="vie2", arguments=("-",), code=BAD_INPUT):
        """Refused in one sentence with these fragments; no output, no file."""
        before = self.listing()
        run = self.run_program(command, *arguments, "--output", "refused.csv", "--polynomials", "p.csv", text=text)
        self.assertEqual(run.returncode, code, run.stderr)
        self.assertEqual(run.stdout, "")
        self.assert_one_sentence(run.stderr, *fragments)
        self.assertEqual(self.listing(), before)

    def listing(self):
        return sorted(path.name for path in self.directory.iterdir())

    def write(self, name, text):
        (self.directory / name).write_text(text)
        return name


class GoodInput(ProgramTest):
    def test_file_and_standard_input_give_the_same_solution(self):
        text = samples(40)
        from_file = self.solve(self.write("samples.csv", text))
        self.assertEqual(from_file, self.solve("-", text=text))
        self.assertEqual(from_file, self.solve(text=text))
        self.assertEqual(self.solve("samples.csv", "--output", "y.csv"), "")
        self.assertEqual((self.directory / "y.csv").read_text(), from_file)
        self.assertEqual(self.listing(), ["samples.csv", "y.csv"])

    def test_solution_is_that_of_the_equation(self):
        solution = columns(self.solve(text=samples(400)))
        self.assertEqual(solution["t"], grid(400))
        self.assertLess(max(abs(y - SOLUTION(t)) for t, y in zip(solution["t"], solution["y"])), 5e-6)

    def test_default_setting_has_the_orders_that_its_description_claims(self):
        errors = []
        for spacings in (128, 256):
            y = columns(self.solve(text=samples(spacings)))["y"]
            errors.append([abs(value - SOLUTION(t)) for t, value in zip(grid(spacings), y)])
        everywhere, at_nodes = (math.log2(max(errors[0][::part]) / max(errors[1][::part])) for part in (1, 2))
        self.assertAlmostEqual(everywhere, 3, delta=0.1)
        self.assertAlmostEqual(at_nodes, 4, delta=0.1)

    def test_settings_are_obeyed(self):
        # The explicit rectangle rule by hand: U = 1, 2, 4, 8; a sample inside is the mean of its neighbours.
        solution = columns(self.solve("--setting", "1:0", text=constant_samples(4)))
        self.assertEqual(solution["y"], [1, 1.5, 3, 6, 8])

    def test_every_setting_of_the_table_solves(self):
        listed = self.run_program("settings").stdout.splitlines()[1:]
        settings = [line.split()[1] for line in listed]
        self.assertEqual(len(settings), 56)
        text = samples(720)
        for setting in settings:
            y = columns(self.solve("--setting", setting, text=text))["y"]
            self.assertEqual(len(y), 721, setting)
            error = max(abs(value - SOLUTION(t)) for t, value in zip(grid(720), y))
            self.assertLess(error, 0.2, setting)

    def test_polynomials_agree_with_the_samples(self):
        for setting, count in (("1:1", 1), ("2:0,1,2", 3), ("3:1,2", 2), ("4:0,1,2,3,4", 5)):
            S = int(setting[0]) ** 2
            text = self.solve("--setting", setting, "--polynomials", "p.csv", text=samples(144))
            y, p = columns(text)["y"], columns((self.directory / "p.csv").read_text())
            self.assertEqual(list(p), ["step", "t_start", "h"] + [f"a{power}" for power in range(count)])
            self.assertEqual(p["step"], list(range(144 // S)))
            reached = [[] for _ in y]
            for n, (start, h) in enumerate(zip(p["t_start"], p["h"])):
                self.assertAlmostEqual(start, 2.0 * n * S / 144, delta=1e-14)
                self.assertAlmostEqual(h, 2.0 * S / 144, delta=1e-14)
                for e in range(S + 1):
                    s = (grid(144)[n * S + e] - start) / h
                    reached[n * S + e].append(sum(p[f"a{power}"][n] * s**power for power in range(count)))
            for value, meeting in zip(y, reached):
                self.assertAlmostEqual(value, sum(meeting) / len(meeting), delta=1e-12)

    def test_output_has_all_digits(self):
        y = self.solve("--setting", "1:0", text="t,g,K\n0,0.1,0\n0.1,0.3,0\n").splitlines()[1:]
        self.assertEqual(y, ["0,0.1", "0.1,0.1"])
        third = self.solve("--setting", "1:0", text=f"t,g,K\n0,{1 / 3!r},0\n1,0,0\n").splitlines()[1]
        self.assertEqual(float(third.split(",")[1]), 1 / 3)

    def test_columns_stand_in_any_order(self):
        reordered = "K,t,g\n" + "".join(f"{KERNEL(t)!r},{t!r},{FORCING(t)!r}\n" for t in grid(40))
        self.assertEqual(self.solve(text=reordered), self.solve(text=samples(40)))

    def test_further_columns_are_passed_over_with_a_note(self):
        text = "t,g,K,remark\n0,1,1,\"first, of all\"\n1,1,1,\n2,1,1,x\n3,1,1,\n4,1,1,\n"
        run = self.run_program("vie2", text=text)
        self.assertEqual(run.returncode, SOLVED)
        self.assert_one_sentence(run.stderr, "note", "line 1", "'remark'")
        self.assertEqual(run.stdout, self.solve(text=constant_samples(4)))

    def test_the_forms_that_spreadsheets_and_people_write(self):
        expected = self.solve(text=constant_samples(4))
        for name, text in {
                "comments and empty lines":
                    "# made by hand, \"so\n\nt,g,K\n# here\n0,1,1\n\n1,1,1\n2,1,1\n3,1,1\n4,1,1\n",
                "carriage returns": constant_samples(4).replace("\n", "\r\n"),
                "byte-order mark": "\ufeff" + constant_samples(4),
                "spaces, plus signs and exponents": "t, g ,K\n0, 1 ,+1\n1,1e0,1\n2,1.0,1\n3,10e-1,1\n4,1,1\n",
                "quotes": '"t","g","K"\n"0",1,1\n1,"1",1\n2,1,1\n3,1,1\n4,1,1\n',
                "no last line end": constant_samples(4).rstrip("\n")}.items():
            with self.subTest(name):
                self.assertEqual(self.solve(text=text), expected)

    def test_a_number_below_the_smallest_double_is_zero(self):
        self.assertEqual(self.solve(text=constant_samples(4, K="1e-400")), self.solve(text=constant_samples(4, K=0)))

    def test_times_may_be_rounded_to_a_thousandth_of_the_spacing(self):
        text = "t,g,K\n0,1,1\n0.3333,1,1\n0.6667,1,1\n1,1,1\n1.3333,1,1\n1.6667,1,1\n2,1,1\n"
        y = columns(self.solve("--setting", "1:0,1", text=text))["y"]
        exact = columns(self.solve("--setting", "1:0,1", text=constant_samples(6, spacing=1 / 3)))["y"]
        self.assertEqual(y, exact)

    def test_samples_past_the_last_whole_step_are_left_out_with_a_note(self):
        run = self.run_program("vie2", text=constant_samples(6))
        self.assertEqual(run.returncode, SOLVED)
        self.assert_one_sentence(run.stderr, "note", "the last 2 of 7 samples", "4 spacings")
        self.assertEqual(run.stdout, self.solve(text=constant_samples(4)))

    def test_existing_files_are_replaced_whole_and_keep_their_permissions(self):
        old = self.directory / "y.csv"
        old.write_text("old " * 10000)
        old.chmod(0o640)
        (self.directory / "link.csv").symlink_to("y.csv")
        self.solve("--output", "link.csv", text=constant_samples(4))
        self.assertEqual(old.read_text(), self.solve(text=constant_samples(4)))
        self.assertEqual(old.stat().st_mode & 0o777, 0o640)
        self.assertTrue((self.directory / "link.csv").is_symlink())

    def test_input_may_be_its_own_output(self):
        expected = self.solve(text=samples(8))
        self.solve(self.write("same.csv", samples(8)), "--output", "same.csv")
        self.assertEqual((self.directory / "same.csv").read_text(), expected)

    def test_devices_and_pipes_are_written_and_not_replaced(self):
        os.mkfifo(self.directory / "pipe")
        with open(self.directory / "read", "w") as read:
            reader = subprocess.Popen(["cat", "pipe"], cwd=self.directory, stdout=read)
        self.addCleanup(reader.wait)
        self.addCleanup(reader.kill)
        self.solve("--output", "pipe", text=constant_samples(4))
        self.assertEqual(reader.wait(timeout=60), 0)
        self.assertEqual((self.directory / "read").read_text(), self.solve(text=constant_samples(4)))
        self.assertTrue((self.directory / "pipe").is_fifo())


# A system of the first kind, in any dimension: y_r(t) = 1 + (r + 1) t, K_rc(t) = (r + 1) / (c + 1) + D if r = c.
class FirstKindSystem:
    def __init__(self, dimension, spacings, end=1.0):
        self.dimension, self.t = dimension, grid(spacings, end)
        separator = "_" if dimension > 9 else ""
        r = range(1, dimension + 1)
        names = ["t"] + [f"g{a}" for a in r] + [f"K{a}{separator}{b}" for a in r for b in r]
        rows = [[t] + [sum(self.kernel(a, b) * self.integral(b, t) for b in r) for a in r] +
                [self.kernel(a, b) for a in r for b in r] for t in self.t]
        self.text = "\n".join(",".join(map(str, row)) for row in [names, *rows]) + "\n"

    def kernel(self, a, b):
        return a / b + (self.dimension if a == b else 0)

    def integral(self, b, t):
        return t + b * t * t / 2

    def solution(self, b, t):
        return 1 + b * t


def first_kind_samples(spacings, end=2.0):
    """The integral of exp(s - t) cos 3s over 0 .. t is g(t)."""
    forcing = lambda t: (math.cos(3 * t) + 3 * math.sin(3 * t) - math.exp(-t)) / 10
    return "t,g,K\n" + "".join(f"{t!r},{forcing(t)!r},{KERNEL(t)!r}\n" for t in grid(spacings, end))


def largest_error(solution):
    return max(abs(y - SOLUTION(t)) for t, y in zip(solution["t"], solution["y"]))


def multiplied(left, right):
    return [[sum(a * b for a, b in zip(row, column)) for column in zip(*right)] for row in left]


def inverse(matrix):
    size = len(matrix)
    rows = [row[:] + [F(int(i == j)) for j in range(size)] for i, row in enumerate(matrix)]
    for k in range(size):
        pivot = next(i for i in range(k, size) if rows[i][k])
        rows[k], rows[pivot] = rows[pivot], rows[k]
        rows[k] = [value / rows[k][k] for value in rows[k]]
        for i in range(size):
            if i != k:
                rows[i] = [a - rows[i][k] * b for a, b in zip(rows[i], rows[k])]
    return [row[size:] for row in rows]


def lagrange(nodes, l):
    """Coefficients, ascending, of the polynomial that is 1 at node l and 0 at the others."""
    polynomial = [F(1)]
    for i, node in enumerate(nodes):
        if i != l:
            shifted = [F(0)] + polynomial
            polynomial = [(up - node * same) / (nodes[l] - node) for up, same in zip(shifted, polynomial + [F(0)])]
    return polynomial


def value(polynomial, v):
    return sum((a * v**power for power, a in enumerate(polynomial)), F(0))


def growth_of_errors(m, nodes):
    """The spectral radius of the map from one step's (U, B) to the next, for the kernel 1 and steps of length 1.

    The difference of the equations of two adjacent steps is A (U' - U) + C (B' - B) + sum of w U = 0, where
    A U + C B is the integral over the part of the present step, and B' = L0(1) B + sum of L(1) U carries over.
    """
    c = [F(k, m) for k in nodes]
    count = len(c)
    w = [sum(a / (power + 1) for power, a in enumerate(lagrange(c, l))) for l in range(count)]
    basis = [lagrange([F(0)] + c, l) for l in range(count + 1)]
    part = [[ci * sum(wr * value(one, ci * cr) for wr, cr in zip(w, c)) for one in basis] for ci in c]
    A, C = inverse([row[1:] for row in part]), [[row[0]] for row in part]
    carry = [value(one, F(1)) for one in basis[1:] + basis[:1]]
    of_past, of_carried = multiplied(A, [w] * count), multiplied(A, C)
    step = [[int(i == l) - of_past[i][l] - of_carried[i][0] * carry[l] for l in range(count)] +
            [of_carried[i][0] * (1 - carry[count])] for i in range(count)] + [carry]
    # The norm of the power 2**40, taken by squaring, gives the radius to many digits.
    step, logarithm = [[float(entry) for entry in row] for row in step], 0.0
    for _ in range(40):
        norm = max(sum(map(abs, row)) for row in step)
        if norm == 0:
            return 0.0
        logarithm = 2 * (logarithm + math.log(norm))
        step = [[entry / norm for entry in row] for row in step]
        step = multiplied(step, step)
    norm = max(sum(map(abs, row)) for row in step)
    return math.exp((logarithm + math.log(norm)) / 2**40) if norm else 0.0


class FirstKind(ProgramTest):
    REFUSED = ["3:1", "4:1", "4:1,2"]

    def solve(self, *arguments, **others):
        return super().solve(*arguments, command="vie1", **others)

    def assert_refused(self, *arguments, **others):
        super().assert_refused(*arguments, command="vie1", **others)

    def settings(self):
        settings = [line.split()[1] for line in self.run_program("settings").stdout.splitlines()[1:]]
        self.assertEqual(len(settings), 56)
        return settings

    def growth(self, setting):
        m, nodes = setting.split(":")
        return growth_of_errors(int(m), [int(k) for k in nodes.split(",")])

    def test_solution_is_that_of_the_equation(self):
        errors = [largest_error(columns(self.solve(text=first_kind_samples(spacings)))) for spacings in (360, 720)]
        self.assertLess(errors[1], 1e-4)
        self.assertAlmostEqual(math.log2(errors[0] / errors[1]), 3, delta=0.2)

    def test_continuous_solution_starts_at_its_value_and_has_the_order_claimed(self):
        errors = []
        for spacings in (720, 1440):
            solution = columns(self.solve("--continuous", "--y0", "1", text=first_kind_samples(spacings)))
            self.assertAlmostEqual(solution["y"][0], 1, delta=1e-12)
            errors.append(largest_error(solution))
        self.assertLess(errors[1], 1e-4)
        self.assertAlmostEqual(math.log2(errors[0] / errors[1]), 3, delta=0.2)

    def test_rectangle_rule_by_hand(self):
        # U = 1, 1, 3, -1 are the differences of g; a sample inside is the mean of its neighbours.
        text = "t,g,K\n0,0,1\n1,1,1\n2,2,1\n3,5,1\n4,4,1\n"
        self.assertEqual(self.solve("--setting", "1:1", text=text), "t,y\n0,1\n1,1\n2,2\n3,1\n4,-1\n")

    def test_every_setting_solves_or_says_why_not_and_which_do(self):
        solved = 0
        for setting in self.settings():
            with self.subTest(setting):
                if setting in self.REFUSED or ":0" in setting:
                    why = "amplifies" if setting in self.REFUSED else "node 0"
                    for form in ((), ("--continuous", "--y0", "1")):
                        arguments = ("--setting", setting, *form)
                        self.assert_refused(first_kind_samples(144), setting, why, "settings that work are ",
                                            arguments=arguments)
                        named = self.run_program("vie1", *arguments).stderr.strip().split(" are ")[1].split(" and ")
                        self.assertEqual(len(set(named)), 3)
                        for one in named:
                            super().solve("--setting", one, *form, text=first_kind_samples(144), command="vie1")
                else:
                    y = columns(self.solve("--setting", setting, text=first_kind_samples(720)))
                    self.assertLess(largest_error(y), 0.2)
                    solved += 1
        self.assertEqual(solved, 23)

    def test_continuous_form_warns_where_the_step_map_amplifies_errors_and_only_there(self):
        self.assertAlmostEqual(self.growth("2:1"), 3 + 2 * math.sqrt(2), delta=1e-9)
        quiet, warned = [], []
        for setting in self.settings():
            if setting in self.REFUSED or ":0" in setting:
                continue
            growth = self.growth(setting)
            with self.subTest(f"{setting} grows by {growth}"):
                run = self.run_program("vie1", "--continuous", "--y0", "1", "--setting", setting,
                                       text=first_kind_samples(144))
                self.assertEqual(run.returncode, SOLVED)
                if growth < 1 + 1e-6:
                    self.assertEqual(run.stderr, "")
                    quiet.append(setting)
                else:
                    self.assert_one_sentence(run.stderr, "warning", setting, "without growth are")
                    told = float(run.stderr.split("about ")[1].split(" ")[0])
                    self.assertAlmostEqual(told / growth, 1, delta=0.05)
                    warned.append(setting)
        self.assertEqual((len(quiet), len(warned)), (7, 16))

    def test_growth_shows_in_the_solution(self):
        run = self.run_program("vie1", "--continuous", "--y0", "1", "--setting", "2:1", text=first_kind_samples(400))
        self.assertGreater(largest_error(columns(run.stdout)), 1e50)

    def test_systems_of_any_dimension(self):
        for dimension in (1, 2, 3, 8, 9, 10, 11):
            system = FirstKindSystem(dimension, 18)
            initial = ",".join("1" for _ in range(dimension))
            for form in ((), ("--continuous", "--y0", initial)):
                with self.subTest(f"{dimension} {form}"):
                    solution = columns(self.solve(*form, text=system.text))
                    self.assertEqual(list(solution), ["t"] + [f"y{b}" for b in range(1, dimension + 1)])
                    self.assertEqual(solution["t"], system.t)
                    for b in range(1, dimension + 1):
                        for t, y in zip(system.t, solution[f"y{b}"]):
                            self.assertAlmostEqual(y, system.solution(b, t), delta=1e-10)

    def test_system_of_one_equation_is_the_scalar_equation(self):
        text = first_kind_samples(36)
        self.assertEqual(self.solve(text=text.replace("g,K", "g1,K11", 1)).replace("y1", "y", 1), self.solve(text=text))

    def test_polynomials_agree_with_the_samples(self):
        for dimension, form, powers in ((2, (), 3), (2, ("--continuous", "--y0=1,1"), 4), (10, (), 3)):
            system = FirstKindSystem(dimension, 27)
            y = columns(self.solve("--polynomials", "p.csv", *form, text=system.text))
            p = columns((self.directory / "p.csv").read_text())
            names = [f"y{b}" for b in range(1, dimension + 1)]
            self.assertEqual(list(p), ["step", "t_start", "h"] + [f"{n}_a{e}" for n in names for e in range(powers)])
            self.assertEqual(p["step"], [0, 1, 2])
            for name in names:
                for n in range(3):
                    for e in range(1, 9):
                        s = (y["t"][9 * n + e] - p["t_start"][n]) / p["h"][n]
                        sum_of_powers = sum(p[f"{name}_a{power}"][n] * s**power for power in range(powers))
                        self.assertAlmostEqual(y[name][9 * n + e], sum_of_powers, delta=1e-12)
        for form, powers in (((), 3), (("--continuous", "--y0=1"), 4)):
            self.solve("--polynomials", "p.csv", *form, text=first_kind_samples(36))
            header = (self.directory / "p.csv").read_text().splitlines()[0]
            self.assertEqual(header, "step,t_start,h" + "".join(f",a{power}" for power in range(powers)))

    def test_columns_of_a_system_that_are_missing(self):
        self.assert_refused("t,g1,g2,K11,K12,K21\n", "line 1", "'K22'")
        self.assert_refused("t,g1,g3,K11,K12,K21,K22\n", "line 1", "no column 'g2'")
        self.assert_refused("t,g1\n", "line 1", "no column 'K11'")
        self.assert_refused("t,K11\n", "line 1", "no column 'g'")
        ten = FirstKindSystem(10, 9).text
        self.assert_refused(ten.replace("K10_1,", "K101,", 1), "line 1", "no column 'K10_1'")
        self.assert_refused("t," + ",".join(f"g{r}" for r in range(1, 5000)) + "\n", "line 1", "no column 'K1_1'")

    def test_what_a_single_equation_checks_is_checked(self):
        self.assert_refused("t,g1,g2,K11,K12,K21,K22\n0,1,1,1,1,1,x\n", "line 2", "'K22'", "expected a number")
        self.assert_refused(first_kind_samples(8), "9 samples", "at least 10")
        self.assert_refused("", "standard input is empty", "'t', 'g' and 'K'")
        self.assert_refused(constant_samples(9), "'5:1'", "not in the table", arguments=("--setting", "5:1"))
        self.assert_refused(constant_samples(9, K=0), "singular", "3:1,2,3", code=SINGULAR)
        run = self.run_program("vie1", "--setting", "1:1", text="t,g1,K11\n0,0,1\n1,nan,1\n")
        self.assert_one_sentence(run.stderr, "warning", "line 3", "g1 is nan")

    def test_initial_values(self):
        two = FirstKindSystem(2, 9).text
        self.assert_refused(two, "1 value", "expected 2", arguments=("--continuous", "--y0", "1"))
        self.assert_refused(two, "3 values", "expected 2", arguments=("--continuous", "--y0", "1,2,3"))
        for text in ("x", " ", "1,", ",1", "1;2", "nan,1", "1,inf"):
            with self.subTest(text):
                self.assert_refused(two, "--y0", "expected", arguments=("--continuous", "--y0=" + text))
        negative = columns(self.solve("--continuous", "--y0=-1,2.5e0", text=two))
        self.assertAlmostEqual(negative["y1"][0], -1, delta=1e-12)
        self.assertAlmostEqual(negative["y2"][0], 2.5, delta=1e-12)

    def test_continuous_form_and_initial_values_need_each_other(self):
        self.assert_refused(first_kind_samples(9), "--continuous", "--y0", arguments=("--continuous",))
        self.assert_refused(first_kind_samples(9), "--y0", "--continuous", arguments=("--y0", "1"))

    def test_help_tells_the_columns_and_the_forms(self):
        text = self.run_program("vie1", "--help").stdout
        for word in ("g1 .. gD", "K1_1", "--continuous", "--y0", "3:1,2,3", "y1_a0"):
            self.assertIn(word, text)


class BadInput(ProgramTest):
    def test_missing_column(self):
        self.assert_refused("t,g\n0,1\n1,1\n", "line 1", "'K'", "'t' and 'g'", "expected")
        self.assert_refused("0,1,1\n1,1,1\n", "line 1", "no column 't'")
        self.assert_refused("t,g,k\n0,1,1\n", "line 1", "no column 'K'", "'k'")
        self.assert_refused("# semicolons\nt;g;K\n0;1;1\n", "line 2", "no column 't'", "'t;g;K'")

    def test_column_named_twice(self):
        self.assert_refused("t,g,K,g\n0,1,1,2\n", "line 1", "'g'", "twice")

    def test_unreadable_number(self):
        for field in ("x", "", "1,5", "1.0.0", "0x10", "1e999", "--1", "+-1", "1 2", "one\ttwo"):
            with self.subTest(field):
                self.assert_refused(f't,g,K\n0,1,1\n# between\n1,"{field}",1\n', "line 4", "'g'", "expected a number")

    def test_ragged_line(self):
        self.assert_refused("t,g,K\n0,1,1\n1,1\n", "line 3", "2 fields", "expected 3")
        self.assert_refused("t,g,K\n0,1,1\n1,1,1,1\n", "line 3", "4 fields", "expected 3")

    def test_unbalanced_quotes(self):
        self.assert_refused('t,g,K\n0,1,1\n1,"1,1\n2,1,1\n', "line 3", "quotes")
        self.assert_refused('t,g,K\n0,1"2,1\n', "line 2", "quotes")

    def test_line_numbers_count_line_ends_inside_quotes(self):
        self.assert_refused('# x\n"t",g,"K"\n0,1,1\n"1\n# no comment\n",1,1\nx,1,1\n', "line 4", "'t'")

    def test_grid_that_is_not_uniform(self):
        rows = constant_samples(30).splitlines()
        self.assert_refused("\n".join(rows[:11] + rows[12:]), "line 12", "t is 11", "expected 10", "0.001")
        self.assert_refused("t,g,K\n0,1,1\n0.5,1,1\n1.5,1,1\n2.5,1,1\n3.5,1,1\n", "line 3", "expected 1,")
        drifting = "t,g,K\n" + "".join(f"{i * (1 + 1e-5 * i)!r},1,1\n" for i in range(401))
        self.assert_refused(drifting, "line ", "expected ", "equally spaced")

    def test_times_that_do_not_ascend(self):
        self.assert_refused("t,g,K\n0,1,1\n1,1,1\n1,1,1\n2,1,1\n3,1,1\n", "line 4", "t is 1 after 1", "ascend")
        self.assert_refused("t,g,K\n0,1,1\n-1,1,1\n-2,1,1\n-3,1,1\n-4,1,1\n", "line 3", "ascend")

    def test_time_that_does_not_start_at_zero(self):
        self.assert_refused("t,g,K\n1,1,1\n2,1,1\n3,1,1\n4,1,1\n5,1,1\n", "line 2", "starts at 1", "expected 0", "lag")

    def test_time_that_is_not_finite(self):
        for time in ("nan", "inf"):
            self.assert_refused(f"t,g,K\n0,1,1\n1,1,1\n2,1,1\n3,1,1\n{time},1,1\n", "line 6", "t is " + time)

    def test_setting_that_is_not_in_the_table(self):
        for setting, nearest in {"2:2,1": "2:1,2", "2:0,3": "2:0 and", "5:0,4": "4:0,4", "3:1,1": "3:1 and",
                                 "1:0,1,2,3,4,5": "1:0,1", "0:0": "1:0", "-1:0": "1:0"}.items():
            with self.subTest(setting):
                self.assert_refused(constant_samples(40), f"'{setting}'", "not in the table", nearest,
                                    arguments=("--setting=" + setting,))

    def test_setting_that_cannot_be_read(self):
        for setting in ("x", "2", "2:", "2:0,", "2:,0", ":0", "2:0 1", "2;0", "99999999999:0", "", "2:0,1.0"):
            with self.subTest(setting):
                self.assert_refused(constant_samples(40), f"'{setting}'", "expected m:k1,k2",
                                    arguments=("--setting", setting))

    def test_too_few_samples_for_a_step(self):
        for setting, least in (("1:0", 2), ("2:0,1,2", 5), ("3:3", 10), ("4:4", 17)):
            for rows in range(least):
                text = "".join(constant_samples(40).splitlines(True)[: rows + 1])
                self.assert_refused(text, f" {rows} sample", f"at least {least}", setting,
                                    arguments=("--setting", setting))
            self.solve("--setting", setting, text=constant_samples(least - 1, K=0))

    def test_empty_input(self):
        for text in ("", "\n\n", "# only a comment\n", "\ufeff"):
            self.assert_refused(text, "standard input is empty", "expected a header")
        self.assert_refused("", "empty.csv is empty", arguments=(self.write("empty.csv", ""),))

    def test_unreadable_file(self):
        self.assert_refused("", "absent.csv", "No such file", arguments=("absent.csv",))
        self.assert_refused("", "cannot read .", "directory", arguments=(".",))

    def test_closed_standard_input(self):
        run = self.run_program("vie2", preexec_fn=lambda: os.close(0))
        self.assertEqual(run.returncode, BAD_INPUT)
        self.assert_one_sentence(run.stderr, "cannot read standard input")

    def test_unwritable_file(self):
        for option in ("--output", "--polynomials"):
            for path, reason in (("absent/y.csv", "No such file"), (".", "directory")):
                with self.subTest(option + " " + path):
                    run = self.run_program("vie2", option, path, text=constant_samples(4))
                    self.assertEqual((run.returncode, run.stdout), (BAD_INPUT, ""))
                    self.assert_one_sentence(run.stderr, "cannot write " + path, reason)
        self.assertEqual(self.listing(), [])

    def test_write_protected_file_is_not_replaced(self):
        (self.directory / "y.csv").write_text("kept")
        (self.directory / "y.csv").chmod(0o444)
        # The superuser may write everywhere, unless without this capability.
        obeying = ["setpriv", "--bounding-set", "-dac_override"] if os.geteuid() == 0 else []
        run = subprocess.run([*obeying, PROGRAM, "vie2", "--output", "y.csv"], input=constant_samples(4),
                             capture_output=True, text=True, cwd=self.directory)
        self.assertEqual((run.returncode, run.stdout), (BAD_INPUT, ""), run.stderr)
        self.assert_one_sentence(run.stderr, "cannot write y.csv", "Permission denied")
        self.assertEqual((self.directory / "y.csv").read_text(), "kept")

    def test_both_outputs_in_one_place(self):
        for output, polynomials in (("y.csv", "y.csv"), ("y.csv", "./y.csv"), ("-", "-")):
            run = self.run_program("vie2", "--output", output, "--polynomials", polynomials, text=constant_samples(4))
            self.assertEqual((run.returncode, run.stdout), (BAD_INPUT, ""))
            self.assert_one_sentence(run.stderr, "both")
        self.assertEqual(self.listing(), [])

    def test_command_line(self):
        for arguments, fragment in (((), "vie1, vie2 or settings"), (("vie3",), "vie3"),
                                    (("vie2", "--what"), "--what"), (("vie2", "a.csv", "b.csv"), "b.csv"),
                                    (("vie2", "--setting"), "--setting"), (("settings", "x"), "x")):
            with self.subTest(arguments):
                run = self.run_program(*arguments)
                self.assertEqual((run.returncode, run.stdout), (BAD_INPUT, ""))
                self.assert_one_sentence(run.stderr, fragment)

    def test_messages_show_no_control_characters_and_no_endless_text(self):
        run = self.run_program("vie2", text="t,g,K\n0,\x1b[2J" + "y" * 5000 + ",1\n")
        self.assertEqual(run.returncode, BAD_INPUT)
        self.assertNotIn("\x1b", run.stderr)
        self.assertLess(len(run.stderr), 200)


class NonFiniteSamples(ProgramTest):
    def test_first_line_of_each_column_is_reported_and_the_solve_goes_on(self):
        text = "t,g,K\n0,1,0\n1,1,0\n2,nan,0\n3,1,-inf\n4,inf,0\n"
        run = self.run_program("vie2", "--setting", "1:0", text=text)
        self.assertEqual(run.returncode, SOLVED)
        messages = run.stderr.splitlines()
        self.assertEqual(len(messages), 2)
        self.assertIn("warning: standard input, line 4: g is nan", messages[0])
        self.assertIn("warning: standard input, line 5: K is -inf", messages[1])
        y = columns(run.stdout)["y"]
        self.assertEqual(y[:2], [1, 1])
        self.assertTrue(all(math.isnan(value) for value in y[2:]))


class SingularBlock(ProgramTest):
    def test_exit_code_and_no_file(self):
        # The implicit rectangle rule divides by 1 - dt K(0), here 0.
        self.assert_refused(constant_samples(4), "singular", "1:1", arguments=("--setting", "1:1"), code=SINGULAR)

    def test_existing_output_stays(self):
        (self.directory / "refused.csv").write_text("kept")
        self.assert_refused(constant_samples(4), "singular", arguments=("--setting", "1:1"), code=SINGULAR)
        self.assertEqual((self.directory / "refused.csv").read_text(), "kept")


class Faults(ProgramTest):
    """What is no fault of the input: exit code 1, a sentence, and no file that is half written."""

    def assert_failed(self, run, *fragments):
        self.assertEqual(run.returncode, UNEXPECTED, run.stderr)
        self.assert_one_sentence(run.stderr, *fragments)

    def test_full_disk_behind_standard_output(self):
        with open("/dev/full", "w") as full:
            for arguments in (("vie2",), ("settings",), ("--help",), ("vie2", "--polynomials", "p.csv")):
                run = subprocess.run([PROGRAM, *arguments], input=samples(2000), stdout=full, stderr=subprocess.PIPE,
                                     text=True, cwd=self.directory)
                self.assert_failed(run, "cannot write standard output", "No space left")
        self.assertEqual(self.listing(), [])

    def test_full_device(self):
        self.assert_failed(self.run_program("vie2", "--output", "/dev/full", "--polynomials", "p.csv", text=samples(8)),
                           "cannot write /dev/full", "No space left")
        self.assertEqual(self.listing(), [])

    def test_reader_that_went_away(self):
        read_end, write_end = os.pipe()
        os.close(read_end)
        with contextlib.closing(os.fdopen(write_end, "w")) as broken:
            run = subprocess.run([PROGRAM, "vie2", "--polynomials", "p.csv"], input=samples(2000), stdout=broken,
                                 stderr=subprocess.PIPE, text=True, cwd=self.directory)
        self.assert_failed(run, "cannot write standard output", "Broken pipe")
        self.assertEqual(self.listing(), [])

    def test_closed_standard_output(self):
        run = self.run_program("vie2", "--polynomials", "p.csv", text=samples(2000), preexec_fn=lambda: os.close(1))
        self.assert_failed(run, "cannot write standard output")
        self.assertEqual(self.listing(), [])

    def test_file_cut_short_leaves_what_was_there(self):
        # A limit on the size of files stops the write in the middle; without its signal it is a write error.
        for option in ("--output", "--polynomials"):
            (self.directory / "y.csv").write_text("kept")
            run = self.run_program("vie2", option, "y.csv", text=samples(4000), restore_signals=False,
                                   preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (10000, 10000)))
            self.assertEqual(run.stdout, "")
            self.assert_failed(run, "cannot write y.csv", "File too large")
            self.assertEqual((self.directory / "y.csv").read_text(), "kept")
            self.assertEqual(self.listing(), ["y.csv"])

    @unittest.skipIf(os.environ.get("QUENTA_SANITIZE"), "a sanitizer needs more address space than the limit leaves")
    def test_memory_that_runs_out(self):
        path = self.write("many.csv", constant_samples(1000000))
        limit = 40 << 20
        run = self.run_program("vie2", path, "--output", "y.csv",
                               preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_AS, (limit, limit)))
        self.assert_failed(run, "memory")
        self.assertEqual(self.listing(), ["many.csv"])


class Tables(ProgramTest):
    def test_settings_table_is_complete(self):
        run = self.run_program("settings")
        self.assertEqual((run.returncode, run.stderr), (SOLVED, ""))
        lines = run.stdout.splitlines()
        self.assertEqual(len(lines), 57)
        # The rule of the table: the non-empty subsets of 0..m, the shorter first, then in lexicographic order.
        expected = []
        for m in (1, 2, 3, 4):
            subsets = [[k for k in range(m + 1) if bits >> k & 1] for bits in range(1, 2 ** (m + 1))]
            expected += [(m, nodes) for nodes in sorted(subsets, key=lambda nodes: (len(nodes), nodes))]
        for row, ((m, nodes), line) in enumerate(zip(expected, lines[1:], strict=True)):
            shown_row, setting, shown_m, indices, parameters, per_step, degree = line.split()
            self.assertEqual(int(shown_row), row)
            self.assertEqual(indices, ",".join(map(str, nodes)))
            self.assertEqual(setting, f"{m}:{indices}")
            self.assertEqual(int(shown_m), m)
            values = [int(n) / int(d or 1) for n, _, d in (text.partition("/") for text in parameters.split(","))]
            self.assertEqual(values, [k / m for k in nodes])
            self.assertEqual(int(per_step), m * m)
            self.assertEqual(int(degree), len(nodes) - 1)


class Help(ProgramTest):
    def test_help_names_the_commands_and_the_exit_codes(self):
        run = self.run_program("--help")
        self.assertEqual((run.returncode, run.stderr), (SOLVED, ""))
        for word in ("vie1", "vie2", "settings", "Exit codes", "Example"):
            self.assertIn(word, run.stdout)
        for word in ("--setting", "--output", "--polynomials", "t, g and K"):
            self.assertIn(word, self.run_program("vie2", "--help").stdout)
        self.assertEqual(self.run_program("settings", "--help").returncode, SOLVED)
        self.assertRegex(self.run_program("--version").stdout, r"\Aquenta \d+\.\d+\.\d+\n\Z")

    def test_example_of_the_help_runs(self):
        examples = [line.strip() for line in self.run_program("--help").stdout.splitlines() if "| quenta" in line]
        self.assertEqual(len(examples), 1)
        run = subprocess.run(["sh", "-c", examples[0]], capture_output=True, text=True,
                             env={**os.environ, "PATH": f"{PROGRAM.parent}:{os.environ['PATH']}"})
        self.assertEqual((run.returncode, run.stderr), (SOLVED, ""))
        solution = columns(run.stdout)
        self.assertEqual(solution["t"], [0, 0.25, 0.5, 0.75, 1])
        self.assertAlmostEqual(solution["y"][-1], math.e, delta=0.01)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
