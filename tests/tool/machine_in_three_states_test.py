"""The example runs and writes its files, and its probabilities sum to 1 and satisfy the renewal equations.

usage: machine_in_three_states_test.py QUENTA EXAMPLE_DIRECTORY
"""

import ast

import example_test
from example_test import EXAMPLE, convolved

STATES = ("sound", "worn", "repair")
STARTS = ("1", "2", "3")


class Example(example_test.ExampleTest):
    tables = [f"{kind}_{state}.csv" for kind in ("samples", "solution") for state in STATES]

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.samples = {state: cls.read(cls.directory / f"samples_{state}.csv") for state in STATES}
        cls.solution = {state: cls.read(cls.directory / f"solution_{state}.csv") for state in STATES}
        cls.t = cls.solution["sound"]["t"]

    def test_the_checks_of_the_script_pass(self):
        self.assertLess(self.printed(r"any initial state, within ([\d.e-]+)"), 1e-3)
        self.assertLess(self.printed(r"sum to 1 within ([\d.e-]+)"), 1e-5)
        self.assertLess(self.printed(r"within ([\d.]+) standard errors"), 4)

    def test_readme_has_the_numbers_of_the_script(self):
        readme = (EXAMPLE / "README.md").read_text()
        source = (EXAMPLE / "run").read_text()
        ways = source[source.index("WAYS = "):source.index("END")]
        count = 0
        for (start, end), (probability, shape, mean) in ast.literal_eval(ways.partition("=")[2].strip()).items():
            self.assertIn(f"| {start} | {end} | {probability:g} | {shape:g} | {mean:g} |\n", readme)
            count += 1
        self.assertEqual(count, 5)

    def test_probabilities_of_all_states_sum_to_one_from_every_start(self):
        self.assertEqual(len(self.t), 2881)
        for start in STARTS:
            self.assertEqual([self.solution[state]["y" + start][0] for state in STATES],
                             [float(start == own) for own in STARTS])
            for values in zip(*(self.solution[state]["y" + start] for state in STATES), strict=True):
                self.assertAlmostEqual(sum(values), 1, delta=1e-5)
                self.assertTrue(all(-1e-5 < value < 1 + 1e-5 for value in values))

    def test_final_probabilities_are_proportional_to_the_mean_times(self):
        # A cycle starts in sound. From there 9 of 10 go to worn, of which 3 of 10 return directly.
        worn, repair = 0.9, 0.1 + 0.9 * 0.7
        spent = {"sound": 0.9 * 90 + 0.1 * 60, "worn": worn * (0.3 * 14 + 0.7 * 25), "repair": repair * 8}
        for state in STATES:
            for start in STARTS:
                self.assertAlmostEqual(self.solution[state]["y" + start][-1], spent[state] / sum(spent.values()),
                                       delta=1e-3)

    def test_solution_satisfies_the_equations_by_another_quadrature(self):
        checked = range(0, len(self.t), 360)
        self.assertEqual(len(checked), 9)
        for state in STATES:
            samples, solution = self.samples[state], self.solution[state]
            for n in checked:
                for a in STARTS:
                    integral = sum(convolved(samples[f"K{a}{b}"], solution[f"y{b}"], n, self.t[1]) for b in STARTS)
                    self.assertAlmostEqual(solution[f"y{a}"][n], samples[f"g{a}"][n] + integral, delta=1e-4)


if __name__ == "__main__":
    example_test.main()
