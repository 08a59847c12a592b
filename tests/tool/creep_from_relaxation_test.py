"""The example runs and writes its files, and its compliance has properties known without solving an equation.

usage: creep_from_relaxation_test.py QUENTA EXAMPLE_DIRECTORY
"""

import example_test
from example_test import EXAMPLE, convolved


class Example(example_test.ExampleTest):
    tables = ["samples.csv", "solution.csv"]

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.samples, cls.solution = cls.read(cls.directory / "samples.csv"), cls.read(cls.directory / "solution.csv")
        terms = cls.read(EXAMPLE / "relaxation_modulus_laun_1978.csv")
        cls.terms = [(tau, g) for tau, g in zip(terms["tau"], terms["g"]) if tau >= 0.1]

    def test_the_checks_of_the_script_pass(self):
        self.assertLess(self.printed(r"closed form: relative difference at most ([\d.e-]+)"), 1e-3)
        self.assertLess(self.printed(r"to within ([\d.e-]+) s"), 1e-3)

    def test_compliance_starts_and_ends_as_the_moments_of_the_modulus_predict(self):
        self.assertEqual(len(self.terms), 5)
        t, J = self.solution["t"], self.solution["y"]
        self.assertEqual(t, self.samples["t"])
        self.assertAlmostEqual(J[0] * sum(g for tau, g in self.terms), 1, delta=1e-3)
        # It is below its asymptote and above the flow alone.
        viscosity = sum(g * tau for tau, g in self.terms)
        recoverable = sum(g * tau**2 for tau, g in self.terms) / viscosity**2
        self.assertTrue(t[-1] / viscosity < J[-1] < t[-1] / viscosity + recoverable)

    def test_compliance_is_that_of_a_passive_material(self):
        # It rises, its slope falls, and G(t) J(t) is never above 1.
        J, G = self.solution["y"][::1800], self.samples["K"][::1800]
        self.assertEqual(len(J), 21)
        rises = [right - left for left, right in zip(J, J[1:])]
        self.assertTrue(all(rise > 0 for rise in rises))
        self.assertTrue(all(later < earlier for earlier, later in zip(rises, rises[1:])))
        self.assertTrue(all(a * b <= 1 + 1e-3 for a, b in zip(J, G)))

    def test_solution_satisfies_the_equation_by_another_quadrature(self):
        spacing, J, G = self.samples["t"][1], self.solution["y"], self.samples["K"]
        checked = range(1500, len(J), 4500)
        self.assertGreater(len(checked), 5)
        for n in checked:
            self.assertAlmostEqual(convolved(G, J, n, spacing) / self.samples["g"][n], 1, delta=1e-4)


if __name__ == "__main__":
    example_test.main()
