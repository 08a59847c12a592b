"""The results of each solver of the program `quenta`, and the columns that it accepts.

usage: solvers_test.py QUENTA
"""

import math
import sys
import unittest

from growth_of_errors import growth_of_errors
from program_case import (INTEGRAL, KERNEL, SINGULAR, SOLUTION, SOLVED, ProgramTest, columns, constant_samples, grid)


def csv_text(names, rows):
    return "\n".join(",".join(map(str, row)) for row in [names, *rows]) + "\n"


class System:
    """A system in any dimension with the solution y_b(t) = 1 + b t.

    K_ab = a / (b D), plus 1 if a = b. The coefficient, if there is one, is t (a - b) / D.
    """

    def __init__(self, solver, dimension, spacings):
        self.dimension, self.t = dimension, grid(spacings, 1.0)
        self.unknowns = [f"y{b}" for b in range(1, dimension + 1)]
        r = range(1, dimension + 1)
        matrix = [f"{a}_{b}" if dimension > 9 else f"{a}{b}" for a in r for b in r]
        names = ["t"] + [f"g{a}" for a in r] + ["K" + indices for indices in matrix]
        if solver.has_coefficient:
            names += ["a" + indices for indices in matrix]
        rows = []
        for t in self.t:
            rows.append([t] + [
                solver.forcing(a, self.solution(a, t), sum(self.coefficient(a, b, t) * self.solution(b, t) for b in r),
                               sum(self.kernel(a, b) * (t + b * t * t / 2) for b in r)) for a in r])
            rows[-1] += [self.kernel(a, b) for a in r for b in r]
            if solver.has_coefficient:
                rows[-1] += [self.coefficient(a, b, t) for a in r for b in r]
        self.text = csv_text(names, rows)

    def kernel(self, a, b):
        return a / (b * self.dimension) + (1 if a == b else 0)

    def coefficient(self, a, b, t):
        return t * (a - b) / self.dimension

    def solution(self, b, t):
        return 1 + b * t


def largest_error(solution, part=1):
    return max(abs(y - SOLUTION(t)) for t, y in zip(solution["t"][::part], solution["y"][::part]))


class SolverChecks:
    """The promises of every solver. A class for an equation defines the command and

    forcing(derivative, y, coefficient_times_y, integral)
        the g of a solution
    forms(dimension)
        [(arguments, number of coefficients of a polynomial), ..] for each form of the solver, with initial values 1
    orders
        {part: order of convergence at every part-th sample} with the default setting
    some_settings
        [(setting, number of its nodes), ..] with different m, for which there are no warnings
    """

    has_coefficient = False
    orders = {1: 3}

    def forms(self, dimension=1):
        return [((), 3)]

    def samples(self, spacings):
        """Samples of an equation with the solution cos 3t."""
        names, rows = ["t", "g", "K"] + ["a"] * self.has_coefficient, []
        for t in grid(spacings):
            y, a = SOLUTION(t), math.sin(t)
            rows.append([t, self.forcing(-3 * math.sin(3 * t), y, a * y, INTEGRAL(t)), KERNEL(t)])
            rows[-1] += [a] * self.has_coefficient
        return csv_text(names, rows)

    def settings(self):
        settings = [line.split()[1] for line in self.run_program("settings").stdout.splitlines()[1:]]
        self.assertEqual(len(settings), 56)
        return settings

    def test_the_solution_converges_with_the_stated_order(self):
        for form, powers in self.forms():
            with self.subTest(form):
                solutions = [columns(self.solve(*form, text=self.samples(spacings))) for spacings in (720, 1440)]
                self.assertEqual(solutions[1]["t"], grid(1440))
                self.assertLess(largest_error(solutions[1]), 1e-5)
                for part, order in self.orders.items():
                    coarse, fine = (largest_error(solution, part) for solution in solutions)
                    self.assertAlmostEqual(math.log2(coarse / fine), order, delta=0.1)

    def test_systems_of_any_dimension_are_solved(self):
        for dimension in (1, 2, 3, 8, 9, 10, 11):
            system = System(self, dimension, 36)
            for form, powers in self.forms(dimension):
                with self.subTest(f"{dimension} {form}"):
                    solution = columns(self.solve(*form, text=system.text))
                    self.assertEqual(list(solution), ["t", *system.unknowns])
                    self.assertEqual(solution["t"], system.t)
                    for b, name in enumerate(system.unknowns, 1):
                        for t, y in zip(system.t, solution[name]):
                            self.assertAlmostEqual(y, system.solution(b, t), delta=1e-10)

    def test_a_system_of_one_equation_gives_the_scalar_solution(self):
        text = self.samples(36)
        header, rows = text.split("\n", 1)
        of_system = header.replace("g", "g1").replace("K", "K11").replace("a", "a11") + "\n" + rows
        for form, powers in self.forms():
            solution = self.solve(*form, text=of_system)
            self.assertTrue(solution.startswith("t,y1\n"))
            self.assertEqual(solution.replace("y1", "y", 1), self.solve(*form, text=text))

    def assert_polynomials_agree(self, text, arguments, unknowns, powers, samples_per_step):
        y = columns(self.solve("--polynomials", "p.csv", *arguments, text=text))
        p = columns((self.directory / "p.csv").read_text())
        steps, h = (len(y["t"]) - 1) // samples_per_step, samples_per_step * y["t"][1]
        prefixes = ["" if name == "y" else name + "_" for name in unknowns]
        coefficients = [f"{prefix}a{power}" for prefix in prefixes for power in range(powers)]
        self.assertEqual(list(p), ["step", "t_start", "h", *coefficients])
        self.assertEqual(p["step"], list(range(steps)))
        for n in range(steps):
            self.assertAlmostEqual(p["t_start"][n], n * h, delta=1e-14)
            self.assertAlmostEqual(p["h"][n], h, delta=1e-14)
        for name, prefix in zip(unknowns, prefixes, strict=True):
            reached = [[] for _ in y["t"]]
            for n in range(steps):
                for sample in range(n * samples_per_step, (n + 1) * samples_per_step + 1):
                    s = (y["t"][sample] - p["t_start"][n]) / h
                    reached[sample].append(sum(p[f"{prefix}a{power}"][n] * s**power for power in range(powers)))
            for value, one_sided in zip(y[name], reached, strict=True):
                self.assertAlmostEqual(value, sum(one_sided) / len(one_sided), delta=1e-12)

    def test_polynomials_agree_with_the_solution(self):
        for dimension in (1, 2, 10):
            system = System(self, dimension, 36)
            for form, powers in self.forms(dimension):
                self.assert_polynomials_agree(system.text, form, system.unknowns, powers, self.samples_per_step)
        for form, powers in self.forms():
            for setting, count in self.some_settings:
                self.assert_polynomials_agree(self.samples(144), ("--setting", setting, *form), ["y"],
                                              count + powers - 3, int(setting[0])**2)

    def test_missing_columns_of_a_system_are_named(self):
        self.assert_refused("t,g1,g2,K11,K12,K21\n", "line 1", "'K22'")
        self.assert_refused("t,g1,g3,K11,K12,K21,K22\n", "line 1", "no column 'g2'")
        self.assert_refused("t,g1,K11,K12,K21,K22\n", "line 1", "no column 'g2'")
        self.assert_refused("t,g1\n", "line 1", "no column 'K11'")
        self.assert_refused("t,g,K11\n", "line 1", "no column 'K':")
        ten = System(self, 10, 9).text
        self.assert_refused(ten.replace("K10_1,", "K101,", 1), "line 1", "no column 'K10_1'")
        self.assert_refused("t," + ",".join(f"g{r}" for r in range(1, 5000)) + "\n", "line 1", "no column 'K1_1'")

    def test_systems_have_the_same_checks_as_scalar_equations(self):
        self.assert_refused("t,g1,g2,K11,K12,K21,K22\n0,1,1,1,1,1,x\n", "line 2", "'K22'", "expected a number")
        self.assert_refused(constant_samples(self.samples_per_step - 1), f"got {self.samples_per_step}",
                            f"at least {self.samples_per_step + 1} samples")
        self.assert_refused("", "standard input is empty", "'t'", "'K'")
        self.assert_refused(constant_samples(9), "'5:1'", "quenta settings",
                            arguments=("--setting", "5:1", *self.needed()))
        run = self.run_program(self.command, "--setting", "1:1", *self.needed(), text="t,g1,K11\n0,0,2\n1,nan,2\n")
        samples, solution = run.stderr.splitlines(True)
        self.assert_one_sentence(samples, "warning", "line 3", "g1 is nan")
        self.assert_one_sentence(solution, "warning", "not finite from t = 0 on", "y1 is nan")
        self.assertEqual(run.returncode, SOLVED)

    def test_a_singular_step_leaves_existing_files_unchanged(self):
        self.write("refused.csv", "kept")
        self.assert_refused(self.singular_under_implicit_rectangles, "singular", "1:1", code=SINGULAR,
                            arguments=("--setting", "1:1", *self.needed()))
        self.assertEqual((self.directory / "refused.csv").read_text(), "kept")

    def test_help_lists_the_columns_and_the_options(self):
        text = self.run_program(self.command, "--help").stdout
        for word in ("g1 .. gD", "K1_1", "--setting", "--output", "--polynomials", "y1_a0", *self.words_of_help):
            self.assertIn(word, text)


class InitialValues:
    """The promises of solvers with initial values, which take the arguments `starting`."""

    starting = ()

    def test_initial_values_are_checked_and_used(self):
        two = System(self, 2, 36).text
        for values, count in (("1", "got 1"), ("1,2,3", "got 3")):
            self.assert_refused(two, count, "expected 2 values", arguments=(*self.starting, "--y0", values))
        for values in ("x", " ", "1,", ",1", "1;2", "nan,1", "1,inf"):
            with self.subTest(values):
                self.assert_refused(two, "--y0", "expected", arguments=(*self.starting, "--y0=" + values))
        started = columns(self.solve(*self.starting, "--y0=-1,2.5e0", text=two))
        self.assertAlmostEqual(started["y1"][0], -1, delta=1e-12)
        self.assertAlmostEqual(started["y2"][0], 2.5, delta=1e-12)


def ones(dimension):
    return "--y0=" + ",".join(["1"] * dimension)


class FirstKind(InitialValues, SolverChecks, ProgramTest):
    command, samples_per_step = "vie1", 9
    words_of_help = ("t, g and K", "--continuous", "--y0", "3:1,2,3")
    singular_under_implicit_rectangles = constant_samples(4, K=0)
    starting = ("--continuous",)
    some_settings = [("1:1", 1), ("2:2", 1), ("4:1,2,4", 3)]
    refused = ["3:1", "4:1", "4:1,2"]

    def forcing(self, derivative, y, coefficient_times_y, integral):
        return integral

    def forms(self, dimension=1):
        return [((), 3), ((*self.starting, ones(dimension)), 4)]

    def growth(self, setting):
        m, nodes = setting.split(":")
        return growth_of_errors(int(m), [int(k) for k in nodes.split(",")])

    def test_continuous_solution_starts_at_its_value(self):
        solution = columns(self.solve("--continuous", "--y0", "1", text=self.samples(360)))
        self.assertAlmostEqual(solution["y"][0], 1, delta=1e-12)

    def test_rectangle_rule_by_hand(self):
        # U = 1, 2, 3, 4 are the differences of g. The solution at a step boundary is the mean of two of them.
        text = "t,g,K\n0,0,1\n1,1,1\n2,3,1\n3,6,1\n4,10,1\n"
        self.assertEqual(self.solve("--setting", "1:1", text=text), "t,y\n0,1\n1,1.5\n2,2.5\n3,3.5\n4,4\n")

    def test_every_setting_solves_or_is_refused_with_a_reason_and_alternatives(self):
        solved, recommended = 0, set()
        for setting in self.settings():
            with self.subTest(setting):
                if setting in self.refused or ":0" in setting:
                    why = "amplifies" if setting in self.refused else "node 0"
                    for form in ((), ("--continuous", "--y0", "1")):
                        sentence = self.assert_refused(self.samples(144), setting, why, "expected for example ",
                                                       arguments=("--setting", setting, *form))
                        named = sentence.split(" for example ")[1].split(" or ")
                        self.assertEqual(len(set(named)), 3)
                        recommended |= {(one, *form) for one in named}
                else:
                    y = columns(self.solve("--setting", setting, text=self.samples(720)))
                    self.assertLess(largest_error(y), 0.2)
                    solved += 1
        self.assertEqual(solved, 23)
        for arguments in recommended:
            self.solve("--setting", *arguments, text=self.samples(144))

    def test_the_continuous_form_warns_only_for_settings_that_amplify_errors(self):
        self.assertAlmostEqual(self.growth("2:1"), 3 + 2 * math.sqrt(2), delta=1e-9)
        quiet, warned = [], []
        for setting in self.settings():
            if setting in self.refused or ":0" in setting:
                continue
            growth = self.growth(setting)
            with self.subTest(f"{setting} grows by {growth}"):
                run = self.run_program("vie1", "--continuous", "--y0", "1", "--setting", setting,
                                       text=self.samples(144))
                self.assertEqual(run.returncode, SOLVED)
                if growth < 1 + 1e-6:
                    self.assertEqual(run.stderr, "")
                    quiet.append(setting)
                else:
                    self.assert_one_sentence(run.stderr, "warning", setting, "expected a setting without growth")
                    stated = float(run.stderr.split("about ")[1].split(" ")[0])
                    self.assertAlmostEqual(stated / growth, 1, delta=0.05)
                    warned.append(setting)
        self.assertEqual((len(quiet), len(warned)), (7, 16))

    def test_errors_grow_for_a_setting_with_a_warning(self):
        run = self.run_program("vie1", "--continuous", "--y0", "1", "--setting", "2:1", text=self.samples(400))
        self.assertGreater(largest_error(columns(run.stdout)), 1e50)

    def test_the_continuous_form_and_initial_values_require_each_other(self):
        self.assert_refused(self.samples(9), "--continuous", "--y0", arguments=("--continuous",))
        self.assert_refused(self.samples(9), "--y0", "--continuous", arguments=("--y0", "1"))


class AllSettings:
    """The promises of the solvers that accept every setting."""

    some_settings = [("1:1", 1), ("2:0,1,2", 3), ("3:1,2", 2), ("4:0,1,2,3,4", 5)]

    def test_every_setting_of_the_table_solves(self):
        text = self.samples(1440)
        for setting in self.settings():
            for form, powers in self.forms():
                solution = columns(self.solve("--setting", setting, *form, text=text))
                self.assertEqual(solution["t"], grid(1440), setting)
                self.assertLess(largest_error(solution), 0.2, setting)


class SecondKind(AllSettings, SolverChecks, ProgramTest):
    command, samples_per_step = "vie2", 4
    words_of_help = ("t, g and K", "2:0,1,2")
    singular_under_implicit_rectangles = constant_samples(4)  # 1 - dt K(0) is 0
    orders = {1: 3, 2: 4}

    def forcing(self, derivative, y, coefficient_times_y, integral):
        return y - integral

    def test_explicit_rectangle_rule_by_hand(self):
        # U = 1, 2, 4, 8. The solution at a step boundary is the mean of two of them.
        solution = columns(self.solve("--setting", "1:0", text=constant_samples(4)))
        self.assertEqual(solution["y"], [1, 1.5, 3, 6, 8])


class IntegroDifferential(AllSettings, InitialValues, SolverChecks, ProgramTest):
    command, samples_per_step = "vide", 4
    words_of_help = ("t and K", "aDD", "a1_1", "--y0", "2:0,1,2")
    # 1 - dt (a + dt K(0)) is 0 in the third step.
    singular_under_implicit_rectangles = "t,K,a\n0,0,-0.5\n1,0,0\n2,0,0.5\n3,0,1\n4,0,1.5\n"
    has_coefficient = True
    orders = {1: 4}

    def forcing(self, derivative, y, coefficient_times_y, integral):
        return derivative - coefficient_times_y - integral

    def needed(self, dimension=1):
        return (ones(dimension),)

    def forms(self, dimension=1):
        return [(self.needed(dimension), 4)]

    def test_explicit_euler_method_by_hand(self):
        # y' is 1, 3, 8, 21: y plus the sum of all earlier y.
        text = "t,K,a\n" + "".join(f"{t},1,1\n" for t in range(5))
        self.assertEqual(self.solve("--setting", "1:0", "--y0=1", text=text), "t,y\n0,1\n1,2\n2,5\n3,13\n4,34\n")

    def test_terms_without_columns_are_zero(self):
        for names, unknowns in ((("g", "K", "a"), 1), (("g1", "g2", "K11", "K12", "K21", "K22", "a11", "a12", "a21",
                                                        "a22"), 2)):
            for absent in ("g", "a", "ga"):
                zeros = [0 if name[0] in absent else 2 for name in names]
                left = [name for name in names if name[0] not in absent]
                full = csv_text(["t", *names], [[t, *zeros] for t in range(9)])
                short = csv_text(["t", *left], [[t] + [2] * len(left) for t in range(9)])
                with self.subTest(short.splitlines()[0]):
                    self.assertEqual(self.solve(ones(unknowns), text=short), self.solve(ones(unknowns), text=full))

    def test_a_term_with_a_missing_column_is_refused(self):
        for header, missing in (("t,K11,K12,K21,K22,a11,a12,a22", "a21"), ("t,K11,K12,K21,K22,a", "a11"),
                                ("t,K11,K12,K21,K22,g1", "g2"), ("t,K,a11", "a"), ("t,K11,K12,K21", "K22"),
                                ("t,a", "K"), ("t,K11,g", "K"), ("t", "K")):
            with self.subTest(header):
                self.assert_refused(header + "\n", "line 1", f"no column '{missing}':")

    def test_the_initial_value_is_required(self):
        self.assert_refused(constant_samples(4), "--y0 is required", arguments=())


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
