"""When the program `quenta` warns that its numbers may be unreliable, and when it does not: one promise per test.

usage: warnings_test.py QUENTA
"""

import math
import re
import sys
import unittest

from program_case import SINGULAR, SOLVED, ProgramTest, columns, constant_samples


def table(names, count, spacing, *functions):
    """Samples of functions of t."""
    rows = ["t," + names]
    rows += [",".join(repr(value) for value in (sample * spacing, *(f(sample * spacing) for f in functions)))
             for sample in range(count)]
    return "\n".join(rows) + "\n"


def changed(text, line, column, value):
    lines = [row.split(",") for row in text.splitlines()]
    lines[line - 1][column] = value
    return "\n".join(map(",".join, lines)) + "\n"


SMOOTH = table("g,K", 145, 1 / 72, math.cos, lambda t: math.exp(-t))


class WarningTest(ProgramTest):
    def warnings(self, command, text, *arguments, code=SOLVED):
        run = self.run_program(command, *arguments, text=text)
        self.assertEqual(run.returncode, code, run.stderr)
        self.numbers = run.stdout
        messages = run.stderr.splitlines(True)
        for message in messages:
            self.assert_one_sentence(message)
        return messages

    def assert_silent(self, command, text, *arguments):
        self.assertEqual(self.warnings(command, text, *arguments), [])

    def assert_warned(self, command, text, *arguments, of):
        messages = self.warnings(command, text, *arguments)
        self.assertEqual(len(messages), 1, messages)
        for fragment in ("warning: ", *of):
            self.assertIn(fragment, messages[0])
        return messages[0]


class UnreadSamples(WarningTest):
    def test_an_impulse_between_the_nodes_is_reported(self):
        """No node reads the impulse, so the solution is 0 everywhere."""
        text = changed(constant_samples(40, g=0, spacing=0.1), 9, 1, "1")
        message = self.assert_warned("vie2", text, of=(
            "line 9", "the setting 2:0,1,2 does not read 20 of 41 samples of g", "g is 1", "by 100 percent of the range",
            "expected at most 1.2 percent", "the setting 1:0,1 reads every sample"))
        self.assertRegex(message, r"at t = 0\.7\d* g is 1")
        self.assertEqual(set(columns(self.numbers)["y"]), {0})
        self.assert_silent("vie2", text, "--setting", "1:0,1")

    def test_smooth_samples_give_no_warning_with_few_samples_read(self):
        for steps in range(1, 8):
            text = table("g,K", 9 * steps + 1, math.pi / 10, math.sin, math.cos)
            self.assert_silent("vie1", text)

    def test_smooth_samples_give_no_warning(self):
        for setting in ("1:0,1", "2:0,1,2", "3:0,1,2,3", "4:0,1,2,3,4"):
            self.assert_silent("vie2", SMOOTH, "--setting", setting)

    def test_there_is_one_warning_per_argument(self):
        text = table("g,K,a", 41, 0.05, math.cos, math.sin, math.exp)
        self.assert_silent("vide", text, "--y0=1")
        for column, name in enumerate("gKa", 1):
            one = changed(text, 5, column, "9")
            self.assertIn(f"samples of {name}, ", self.assert_warned("vide", one, "--y0=1", of=("line 5",)))
            text_of_two = changed(changed(one, 9, column, "8"), 13, column, "5")
            self.assert_warned("vide", text_of_two, "--y0=1", of=("line 5", f" {name} is 9"))
        all_three = changed(changed(changed(text, 5, 1, "9"), 7, 2, "9"), 9, 3, "9")
        messages = self.warnings("vide", all_three, "--y0=1")
        self.assertEqual([re.search("samples of (.)", message)[1] for message in messages], ["g", "K", "a"])

    def test_the_warning_for_a_system_names_the_column(self):
        names = "g1,g2,K11,K12,K21,K22"
        text = table(names, 41, 0.05, *[lambda t, w=w: w + math.cos(w * t) for w in (1, 2, 0.5, 0.7, 1.1, 1.3)])
        self.assert_silent("vie2", text)
        self.assert_warned("vie2", changed(text, 7, 4, "7"), of=("line 7", "samples of K,", "K12 is 7"))
        constant = table(names, 41, 0.05, *[lambda t, w=w: w for w in (1, 1, 1 / 3, 1e-9, -1 / 3, 1e9)])
        self.assert_silent("vie2", constant)

    def test_a_difference_of_one_percent_is_accepted(self):
        for part, count in ((0.0124, 0), (0.0126, 1)):
            text = changed(table("g,K", 41, 0.05, lambda t: t / 2, lambda t: 1), 23, 1, repr(21 * 0.025 + part))
            self.assertEqual(len(self.warnings("vie2", text)), count, part)

    def test_samples_past_the_last_step_are_not_compared(self):
        text = "".join(SMOOTH.splitlines(True)[:42]) + f"{41 / 72!r},99,99\n{42 / 72!r},0,nan\n"
        messages = self.warnings("vie2", text)
        self.assertIn("note: the last 2 of 43 samples", messages[0])
        self.assertIn("line 44: K is nan, and the setting 2:0,1,2 does not read this sample", messages[1])
        self.assertEqual(len(messages), 2)

    def test_an_unread_sample_that_is_not_finite_is_reported(self):
        for value in ("nan", "inf", "-inf"):
            text = changed(SMOOTH, 7, 2, value)
            self.assert_warned("vie2", text, of=("line 7", f"K is {value}", "2:0,1,2 does not read"))
            self.assertTrue(all(map(math.isfinite, columns(self.numbers)["y"])))

    def test_the_first_kind_suggests_a_setting_that_suits_it(self):
        text = table("g,K", 46, 0.05, math.sin, math.cos)
        self.assert_silent("vie1", text)
        self.assert_warned("vie1", changed(text, 21, 2, "3"), of=(
            "line 21", "28 of 46 samples of K",
            "the setting 1:1 reads every sample except the first of g and the last of K"))
        for line, column in ((2, 1), (47, 2)):
            messages = self.warnings("vie1", changed(text, line, column, "9"), "--setting", "1:1")
            self.assertIn("no setting of a first-kind equation reads the first sample of g and the last of K",
                          messages[0])
        self.assert_warned("vie1", changed(text, 2, 1, "nan"), "--setting", "1:1", of=("g is nan", "does not read"))


class SolutionsThatAreNotFinite(WarningTest):
    def test_an_overflow_of_the_solution_is_reported(self):
        text = table("g,K", 2001, 0.5, lambda t: 1.0, lambda t: 1.0)
        for command, arguments in (("vie2", ()), ("vide", ("--y0=1",))):
            message = self.assert_warned(command, text, *arguments, of=("the solution is not finite from t = ",
                                                                        "although all samples are finite", "setting"))
            t = float(re.search("from t = ([0-9.]+) on", message)[1])
            found = columns(self.numbers)
            self.assertTrue(all(math.isfinite(y) == (at < t) for at, y in zip(found["t"], found["y"])))

    def test_samples_that_are_not_finite_are_named_as_the_cause(self):
        samples, solution = self.warnings("vie2", changed(SMOOTH, 74, 1, "inf"))
        self.assertIn("line 74: g is inf", samples)
        self.assertIn("the solution is not finite from t = 0.94", solution)
        self.assertIn("because samples are not finite", solution)


class FirstKind(WarningTest):
    """Kernels that are 0 or nearly 0 at the start, and forcings that are not."""

    def equation(self, kernel, spacing, g=None):
        """Samples of g and the kernel. By default g is the integral of the kernel, so that y is close to 1."""
        count = 9 * max(4, round(2 / (9 * spacing))) + 1
        if g is None:
            finer = [kernel((sample + 0.5) * spacing / 8) * spacing / 8 for sample in range(8 * count)]
            sums = [sum(finer[8 * sample:8 * sample + 8]) for sample in range(count)]
            running = [math.fsum(sums[:sample]) for sample in range(count)]
            g = lambda t: running[round(t / spacing)]
        return table("g,K", count, spacing, g, kernel)

    def test_kernels_that_are_0_at_the_start_are_reported(self):
        for kernel in (lambda t: t, lambda t: t * t, math.sin, lambda t: t * math.exp(-t),
                       lambda t: 1 - math.exp(-20 * t)):
            for spacing in (0.05, 0.01, 0.005):
                messages = self.warnings("vie1", self.equation(kernel, spacing))
                found = [message for message in messages if "K(0) is 0" in message]
                self.assertEqual(len(found), 1, messages)
                for fragment in ("warning: K(0) is 0", "differentiate", "K' and g'"):
                    self.assertIn(fragment, found[0])

    def test_the_growth_of_errors_is_measured_and_reported(self):
        found = self.warnings("vie1", self.equation(lambda t: t, 0.005))[0]
        self.assertIn("errors grow by a factor of about 10 in every step", found)
        self.assertGreater(max(map(abs, columns(self.numbers)["y"])), 1e20)

    def test_kernels_that_are_nearly_0_at_the_start_are_reported(self):
        for kernel in (lambda t: 1e-3 + t, lambda t: 1e-4 + t * t, lambda t: 0.01 + 1 - math.exp(-20 * t)):
            for spacing in (0.05, 0.02, 0.01):
                found = [message for message in self.warnings("vie1", self.equation(kernel, spacing))
                        if "K(0) is small" in message]
                self.assertEqual(len(found), 1)
                self.assertIn("solve y(t) = g'(t)/K(0) - integral of K'(t - s)/K(0) y(s) ds with vie2", found[0])

    def test_a_subnormal_kernel_at_the_start_is_reported(self):
        found = self.warnings("vie1", self.equation(lambda t: t if t > 0 else 1e-320, 0.02))[0]
        self.assertIn("K(0) is small (1e-320), and with", found)

    def test_the_warning_depends_on_the_growth_under_the_chosen_setting(self):
        kernel = lambda t: 0.2 + math.sqrt(t) * math.exp(-t)
        for setting, warned in (("2:1", True), ("4:2,3,4", True), ("3:1,2,3", False)):
            messages = self.warnings("vie1", self.equation(kernel, 0.01), "--setting", setting)
            found = [message for message in messages if "K(0) is small" in message]
            self.assertEqual(len(found), int(warned), messages)
            if warned:
                self.assertRegex(found[0], "grow by a factor of about [0-9.]+ in every step")

    def test_well_posed_problems_give_no_warning(self):
        moduli = lambda t: sum(10**(5 - term) * math.exp(-t / 10.0**(term - 2)) for term in range(3, 6))
        for kernel in (lambda t: math.exp(-t), math.cos, lambda t: 1.0 + t, lambda t: math.exp(t), lambda t: 1.0,
                       lambda t: 1 - t, math.cosh, moduli, lambda t: -1e-9 * math.exp(-t), lambda t: math.cos(5 * t),
                       lambda t: 1e9 * (1 + t)):
            for spacing in (0.02, 0.01, 0.005):
                self.assert_silent("vie1", self.equation(kernel, spacing))
                self.assert_silent("vie1", self.equation(kernel, spacing), "--setting", "1:1")
        self.assert_silent("vie1", self.equation(lambda t: math.exp(5 * t), 0.01))

    def test_systems_are_reported_if_the_matrix_at_lag_0_is_singular(self):
        """The units and relative sizes of the entries do not matter."""
        names = "g1,g2,K11,K12,K21,K22"
        zero, falling, rising = lambda t: 0.0, lambda t: math.exp(-t), lambda t: t
        scaled = lambda factor, f: lambda t: factor * f(t)
        g = [math.sin, lambda t: t]
        for kernels in ((falling, zero, zero, scaled(1e-6, falling)), (scaled(1e9, falling), zero, falling, falling),
                        (zero, falling, falling, zero), (falling, scaled(1e3, rising), zero, falling)):
            self.assert_silent("vie1", table(names, 181, 0.01, *g, *kernels))
        for kernels in ((falling, zero, zero, rising), (falling, falling, falling, lambda t: math.exp(-2 * t)),
                        (rising, zero, falling, falling)):
            messages = self.warnings("vie1", table(names, 181, 0.01, *g, *kernels))
            found = [message for message in messages if "the matrix K(0) is singular" in message]
            self.assertEqual(len(found), 1, messages)
        nearly = (falling, falling, falling, lambda t: math.exp(-t) * (1 + 1e-4) + t)
        self.assertIn("the matrix K(0) is small", self.warnings("vie1", table(names, 181, 0.01, *g, *nearly))[0])

    def test_a_kernel_that_is_0_in_the_first_step_is_reported(self):
        text = self.equation(lambda t: 0.0 if t < 1 else 1.0, 0.05)
        run = self.run_program("vie1", text=text)
        self.assertEqual((run.returncode, run.stdout), (SINGULAR, ""))
        self.assertIn("K(0) is 0", run.stderr)

    def test_the_error_of_a_singular_step_gives_the_reason(self):
        run = self.run_program("vie1", "--setting", "1:1", text=self.equation(lambda t: t, 0.05))
        self.assertEqual((run.returncode, run.stdout), (SINGULAR, ""))
        self.assert_one_sentence(run.stderr.splitlines(True)[-1], "is singular with the setting 1:1", "K(0) is 0",
                                 "differentiate")

    def test_a_forcing_that_does_not_start_at_0_is_reported(self):
        for offset in (1.0, -0.05):
            text = self.equation(math.cos, 0.01, g=lambda t: offset + math.sin(t))
            message = self.assert_warned("vie1", text, of=(f"g(0) is {offset:g}, but the integral is 0", "expected 0",
                                                           "spike", "offset"))
            spike = float(re.search("of the order of ([0-9.]+)", message)[1])
            self.assertAlmostEqual(spike, 5.5 * abs(offset) / 0.09, delta=0.5)
            # The spike is added to y(0) = 1.
            self.assertAlmostEqual((columns(self.numbers)["y"][0] - 1) / math.copysign(spike, offset), 1, delta=0.05)
        for setting, height in (("1:1", 1), ("2:1,2", 3), ("4:1,2,3,4", 25 / 3)):
            text = self.equation(lambda t: 1.0, 0.01, g=lambda t: 0.02 * height + t)
            spike = 0.02 * height / (0.01 * int(setting[0])**2) * height
            found = self.warnings("vie1", text, "--setting", setting)
            stated = float(re.search("of the order of ([0-9.]+)", " ".join(found))[1])
            self.assertAlmostEqual(stated / spike, 1, delta=0.1)
        # A spike of 1e-4 is below one percent of the solution.
        self.assert_silent("vie1", self.equation(math.cos, 0.01, g=lambda t: 1e-5 + math.sin(t)))

    def test_a_forcing_of_a_system_that_does_not_start_at_0_is_reported(self):
        text = table("g1,g2,K11,K12,K21,K22", 181, 0.01, math.sin, lambda t: 0.3 + t,
                     *[lambda t, w=w: w * math.exp(-t) for w in (0, 1, 1, 0)])
        self.assert_warned("vie1", text, of=("g2(0) is 0.3", "y1 starts with a spike of the order of 18"))

    def test_no_spike_is_claimed_if_only_the_first_sample_of_the_forcing_is_wrong(self):
        right = self.run_program("vie1", text=self.equation(math.cos, 0.01, g=math.sin)).stdout
        text = self.equation(math.cos, 0.01, g=lambda t: math.sin(t) if t > 0 else 0.1)
        messages = self.warnings("vie1", text)
        self.assertEqual(self.numbers, right)
        self.assertIn("if all samples have this offset, y starts with a spike", " ".join(messages))

    def test_kernel_and_forcing_have_separate_warnings(self):
        messages = self.warnings("vie1", self.equation(lambda t: t, 0.02, g=lambda t: 1.0 + t))
        self.assertEqual([("K(0) is 0" in message, "g(0) is 1" in message) for message in messages],
                         [(True, False), (False, True)])

    def test_a_few_steps_are_enough_for_the_warning(self):
        for steps in (1, 2, 3, 4):
            text = table("g,K", 9 * steps + 1, 0.1, lambda t: t * t / 2, lambda t: t)
            self.assertIn("K(0) is 0", self.warnings("vie1", text)[0])
            self.assert_silent("vie1", table("g,K", 9 * steps + 1, 0.01, math.sin, math.cos))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
