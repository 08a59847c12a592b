"""The example runs and writes its files, and its posterior agrees with a likelihood computed here by another rule.

usage: influenza_posterior_test.py QUENTA EXAMPLE_DIRECTORY
"""

import csv
import math

import example_test
from example_test import EXAMPLE

SPACING = 1 / 32
DAYS = range(7, 28)


def log_posterior(cases, R0, mean):
    """By the trapezoidal rule, also for the integrals over days."""
    variance = math.log1p((1.48 / 2.60) ** 2)

    def z(x):
        return (math.log(x) - math.log(mean) + variance / 2) / math.sqrt(variance)

    def density(x):
        return math.exp(-z(x) ** 2 / 2) / (x * math.sqrt(2 * math.pi * variance)) if x > 0 else 0.0

    def distribution(x):
        return math.erfc(-z(x) / math.sqrt(2)) / 2 if x > 0 else 0.0

    count = round(len(DAYS) / SPACING) + 1
    kernel = [R0 * density(n * SPACING) for n in range(count)]
    seed = [R0 * sum(cases[day] * (distribution(n * SPACING + 7 - day) - distribution(n * SPACING + 6 - day))
                     for day in range(7)) for n in range(count)]
    y = []
    for n in range(count):  # the kernel is 0 at lag 0, so each value follows from the previous ones
        weights = sum(kernel[n - k] * y[k] for k in range(1, n)) + (kernel[n] * y[0] / 2 if n else 0.0)
        y.append(seed[n] + SPACING * weights)
    samples_per_day = round(1 / SPACING)
    deviance = 0.0
    for number, day in enumerate(DAYS):
        values = y[number * samples_per_day : (number + 1) * samples_per_day + 1]
        expected = SPACING * (sum(values) - (values[0] + values[-1]) / 2)
        deviance += 2 * (cases[day] * math.log(cases[day] / expected) - cases[day] + expected)
    return -len(DAYS) / 2 * math.log(deviance)


class Example(example_test.ExampleTest):
    tables = ["influenza_posterior.csv"]
    arguments = []

    def test_R0_for_the_interval_of_the_survey_is_that_of_the_fit(self):
        self.assertAlmostEqual(self.printed(r"interval of 2.60 days: ([\d.]+)"), 1.30, delta=0.01)

    def test_density_is_normalized_and_proportional_to_the_likelihood(self):
        table = self.read(self.directory / "influenza_posterior.csv")
        self.assertEqual(len(table["R0"]), 20301)
        self.assertAlmostEqual(sum(table["density"]) * 0.005 * 0.05, 1, delta=1e-3)
        with open(EXAMPLE.with_name("influenza_1918") / "influenza_1918_baltimore.csv", newline="") as file:
            cases = [float(row["cases"]) for row in csv.DictReader(line for line in file if line[0] != "#")]
        density = {(R0, mean): value for R0, mean, value in zip(*table.values())}
        pairs = [(1.3, 2.6), (1.25, 2.2), (1.5, 4.3), (1.35, 2.6)]
        expected = [log_posterior(cases, *pair) for pair in pairs]
        for pair, value in zip(pairs[1:], expected[1:]):
            self.assertAlmostEqual(math.log(density[pair] / density[pairs[0]]), value - expected[0], delta=0.02)


if __name__ == "__main__":
    example_test.main()
