"""The example runs and writes its files, and its autocorrelations are those of a harmonic chain.

usage: velocity_in_harmonic_bath_test.py QUENTA EXAMPLE_DIRECTORY
"""

import math

import example_test
from example_test import convolved

MASSES = (1, 2, 20)


def bessel(order, t):
    """By the power series. Its rounding error is at most about exp(t) times the machine epsilon."""
    def term(index):
        return (-1)**index * (t / 2)**(2 * index + order) / (math.factorial(index) * math.factorial(index + order))

    return math.fsum(term(index) for index in range(60))


class Example(example_test.ExampleTest):
    tables = [f"{kind}_{mass}.csv" for kind in ("samples", "solution") for mass in MASSES]

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.K = {mass: cls.read(cls.directory / f"samples_{mass}.csv")["K"] for mass in MASSES}
        solutions = [cls.read(cls.directory / f"solution_{mass}.csv") for mass in MASSES]
        cls.t, cls.C = solutions[0]["t"], {mass: solution["y"] for mass, solution in zip(MASSES, solutions)}

    def test_the_checks_of_the_script_pass(self):
        for pattern in (r"M = 1 m: within ([\d.e-]+)", r"M = 2 m: within ([\d.e-]+)", r"masses: within ([\d.e-]+)"):
            self.assertLess(self.printed(pattern), 1e-6)
        self.assertTrue(0.01 < self.printed(r"M = 20 m: within ([\d.e-]+)") < 0.1)

    def test_kernel_and_solutions_are_bessel_functions(self):
        checked = range(40, 801, 40)
        self.assertEqual(self.t[checked[-1]], 20)
        for n in checked:
            t = self.t[n]
            for mass in MASSES:
                self.assertAlmostEqual(self.K[mass][n], -bessel(1, t) / t / mass, delta=1e-9)
            self.assertAlmostEqual(self.C[1][n], bessel(0, t), delta=1e-6)
            self.assertAlmostEqual(self.C[2][n], 2 * bessel(1, t) / t, delta=1e-6)

    def test_atom_of_equal_mass_moves_as_in_a_ring_of_equal_atoms(self):
        # The modes of a ring are known. Until waves have gone around it, it behaves as an infinite chain.
        atoms = 200
        for n in range(0, len(self.t), 60):
            modes = (math.cos(self.t[n] * math.sin(math.pi * mode / atoms)) for mode in range(atoms))
            self.assertAlmostEqual(self.C[1][n], sum(modes) / atoms, delta=1e-6)

    def test_solution_satisfies_the_equation_by_another_quadrature(self):
        spacing = self.t[1]
        checked = range(80, len(self.t) - 1, 230)
        self.assertGreater(len(checked), 5)
        for mass in MASSES:
            C = self.C[mass]
            self.assertAlmostEqual(C[0], 1, delta=1e-15)
            for n in checked:
                slope = (C[n + 1] - C[n - 1]) / (2 * spacing)
                self.assertAlmostEqual(slope, convolved(self.K[mass], C, n, spacing), delta=2e-4)


if __name__ == "__main__":
    example_test.main()
