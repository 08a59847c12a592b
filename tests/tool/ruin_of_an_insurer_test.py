"""The example runs and writes its files, and its probabilities satisfy the equation of ruin.

usage: ruin_of_an_insurer_test.py QUENTA EXAMPLE_DIRECTORY
"""

import math

import example_test
from example_test import convolved

SHARE = 0.8
TAILS = {
    "gamma": lambda x: sum((3 * x)**term / math.factorial(term) for term in range(3)) * math.exp(-3 * x),
    "exponential": lambda x: math.exp(-x),
    "Pareto": lambda x: (1 + x / 1.5)**-2.5,
}


class Example(example_test.ExampleTest):
    tables = ["ruin_of_an_insurer.csv"]
    arguments = []

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.table = cls.read(cls.directory / "ruin_of_an_insurer.csv")
        cls.u = cls.table["capital"]

    def test_the_checks_of_the_script_pass(self):
        self.assertEqual(self.printed(r"(\d) of 3 trusted"), 3)
        self.assertLess(self.printed(r"within ([\d.e-]+) of the closed form"), 1e-6)
        self.assertLess(self.printed(r"within ([\d.]+) standard errors"), 4)

    def test_probabilities_start_at_the_share_of_claims_and_fall(self):
        for name in TAILS:
            y = self.table[name]
            self.assertAlmostEqual(y[0], SHARE, delta=1e-4)
            falling = [value for value in y if value > 1e-12]  # smaller values are rounding errors
            self.assertGreater(len(falling), 1000)
            self.assertTrue(all(after < before for before, after in zip(falling, falling[1:])))
            self.assertTrue(all(abs(value) < 1e-12 for value in y[len(falling):]))

    def test_probabilities_satisfy_the_equation_by_another_quadrature(self):
        spacing = self.u[1]
        checked = range(20, 1500, 210)
        self.assertGreater(len(checked), 5)
        for name, tail in TAILS.items():
            y = self.table[name]
            kernel = [SHARE * tail(x) for x in self.u[:1500]]
            for n in checked:
                # By the equation, this difference is the integral of the tail, whose slope is minus the tail.
                left, right = (y[at] - convolved(kernel, y, at, spacing) for at in (n, n + 2))
                self.assertAlmostEqual((left - right) / (2 * spacing), kernel[n + 1], delta=2e-3)

    def test_required_capital_has_the_accepted_probability(self):
        for name in TAILS:
            needed = self.printed(rf"{name} ([\d.]+)[, ]")
            at = round(needed / self.u[1])
            self.assertAlmostEqual(self.table[name][at], 0.01, delta=2e-4)


if __name__ == "__main__":
    example_test.main()
