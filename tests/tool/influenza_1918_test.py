"""The example runs and writes its files, and its forecast satisfies the renewal equation.

usage: influenza_1918_test.py QUENTA EXAMPLE_DIRECTORY
"""

import csv
import math

import example_test
from example_test import EXAMPLE, convolved


class Example(example_test.ExampleTest):
    tables = ["forecast.csv", "samples.csv", "solution.csv"]

    def test_fitted_numbers_are_plausible(self):
        R0 = self.printed(r"R0: ([\d.]+)")
        self.assertTrue(1.1 < R0 < 1.6, R0)
        self.assertAlmostEqual(self.printed(r"mean ([\d.]+) days"), 2.596, delta=0.005)
        self.assertTrue(1 < self.printed(r"([\d.]+) times the variance") < 10)

    def test_forecast_has_every_day_after_the_first_week_with_its_counts(self):
        forecast = self.read(self.directory / "forecast.csv")
        with open(EXAMPLE / "influenza_1918_baltimore.csv", newline="") as file:
            counted = list(csv.DictReader(line for line in file if not line.startswith("#")))
        self.assertEqual(len(counted), 92)
        self.assertEqual(forecast["day"], list(range(7, 92)))
        self.assertEqual(forecast["cases"], [float(row["cases"]) for row in counted[7:]])
        for low, expected, high in zip(forecast["expected_low"], forecast["expected"], forecast["expected_high"]):
            self.assertTrue(0 < low < expected < high)

    def test_fitted_days_sum_to_the_reported_cases(self):
        # The totals are close for the R0 that is most likely with Poisson counts. If R0 were only a factor, they would
        # be equal.
        forecast = self.read(self.directory / "forecast.csv")
        self.assertAlmostEqual(sum(forecast["expected"][:21]) / sum(forecast["cases"][:21]), 1, delta=0.05)

    def test_forecast_finally_grows_at_the_rate_of_the_equation(self):
        # R0 times the integral of w(s) exp(-r s) is 1, where w is K / R0 and K is in the samples.
        forecast, samples = self.read(self.directory / "forecast.csv"), self.read(self.directory / "samples.csv")
        rate = math.log(forecast["expected"][-1] / forecast["expected"][-15]) / 14
        spacing = samples["t"][1]
        total = spacing * sum(K * math.exp(-rate * t) for t, K in zip(samples["t"], samples["K"]))
        self.assertAlmostEqual(total, 1, delta=1e-5)

    def test_solution_satisfies_the_equation_by_another_quadrature(self):
        samples, solution = self.read(self.directory / "samples.csv"), self.read(self.directory / "solution.csv")
        spacing, y = samples["t"][1], solution["y"]
        checked = range(0, len(y), 97)
        self.assertGreater(len(checked), 10)
        for n in checked:
            self.assertAlmostEqual(y[n] / (samples["g"][n] + convolved(samples["K"], y, n, spacing)), 1, delta=1e-3)


if __name__ == "__main__":
    example_test.main()
