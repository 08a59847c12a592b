"""The program `quenta`, used from the command line: one promise per test.

usage: program_test.py QUENTA
"""

import contextlib
import fractions
import math
import os
import resource
import subprocess
import sys
import unittest

from program_case import (BAD_INPUT, FORCING, KERNEL, PROGRAM, SINGULAR, SOLVED, UNEXPECTED, ProgramTest, columns,
                          constant_samples, grid, samples)


class GoodInput(ProgramTest):
    def test_file_and_standard_input_give_the_same_solution(self):
        text = samples(40)
        from_file = self.solve(self.write("samples.csv", text))
        self.assertEqual(from_file, self.solve("-", text=text))
        self.assertEqual(from_file, self.solve(text=text))
        self.assertEqual(self.solve("samples.csv", "--output", "y.csv"), "")
        self.assertEqual((self.directory / "y.csv").read_text(), from_file)
        self.assertEqual(self.listing(), ["samples.csv", "y.csv"])

    def test_output_has_all_digits(self):
        y = self.solve("--setting", "1:0,1", text="t,g,K\n0,0.1,0\n0.1,0.3,0\n").splitlines()[1:]
        self.assertEqual(y, ["0,0.1", "0.1,0.3"])
        third = self.solve("--setting", "1:0,1", text=f"t,g,K\n0,{1 / 3!r},0\n1,0,0\n").splitlines()[1]
        self.assertEqual(float(third.split(",")[1]), 1 / 3)

    def test_columns_may_be_in_any_order(self):
        reordered = "K,t,g\n" + "".join(f"{KERNEL(t)!r},{t!r},{FORCING(t)!r}\n" for t in grid(40))
        self.assertEqual(self.solve(text=reordered), self.solve(text=samples(40)))

    def test_other_columns_are_ignored_with_a_note(self):
        text = "t,g,K,remark\n0,1,1,\"first, of all\"\n1,1,1,\n2,1,1,x\n3,1,1,\n4,1,1,\n"
        run = self.run_program("vie2", text=text)
        self.assertEqual(run.returncode, SOLVED)
        self.assert_one_sentence(run.stderr, "note", "line 1", "'remark'")
        self.assertEqual(run.stdout, self.solve(text=constant_samples(4)))

    def test_common_variants_of_csv_files_are_read(self):
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

    def test_samples_past_the_last_whole_step_are_not_used_and_there_is_a_note(self):
        run = self.run_program("vie2", text=constant_samples(6))
        self.assertEqual(run.returncode, SOLVED)
        self.assert_one_sentence(run.stderr, "note", "the last 2 of 7 samples", "4 spacings")
        self.assertEqual(run.stdout, self.solve(text=constant_samples(4)))

    def test_existing_files_are_replaced_and_keep_their_permissions(self):
        old = self.directory / "y.csv"
        old.write_text("old " * 10000)
        old.chmod(0o640)
        (self.directory / "link.csv").symlink_to("y.csv")
        self.solve("--output", "link.csv", text=constant_samples(4))
        self.assertEqual(old.read_text(), self.solve(text=constant_samples(4)))
        self.assertEqual(old.stat().st_mode & 0o777, 0o640)
        self.assertTrue((self.directory / "link.csv").is_symlink())

    def test_pipes_are_written_to_and_not_replaced(self):
        os.mkfifo(self.directory / "pipe")
        with open(self.directory / "read", "w") as read:
            reader = subprocess.Popen(["cat", "pipe"], cwd=self.directory, stdout=read)
        self.addCleanup(reader.wait)
        self.addCleanup(reader.kill)
        self.solve("--output", "pipe", text=constant_samples(4))
        self.assertEqual(reader.wait(timeout=60), 0)
        self.assertEqual((self.directory / "read").read_text(), self.solve(text=constant_samples(4)))
        self.assertTrue((self.directory / "pipe").is_fifo())


class BadInput(ProgramTest):
    def test_a_missing_column_is_named(self):
        self.assert_refused("t,g\n0,1\n1,1\n", "line 1", "'K'", "'t' and 'g'", "expected")
        self.assert_refused("0,1,1\n1,1,1\n", "line 1", "no column 't'")
        self.assert_refused("t,g,k\n0,1,1\n", "line 1", "no column 'K'", "'k'")
        self.assert_refused("# spaces\nt g K\n0 1 1\n", "line 2", "no column 't'", "'t g K'",
                            "commas, semicolons or tabs")

    def test_a_column_named_twice_is_refused(self):
        self.assert_refused("t,g,K,g\n0,1,1,2\n", "line 1", "expected one column 'g', got 2")

    def test_a_field_that_is_not_a_number_is_refused(self):
        for field in ("x", "", "1,5", "1.0.0", "0x10", "1e999", "--1", "+-1", "1 2", "one\ttwo"):
            with self.subTest(field):
                self.assert_refused(f't,g,K\n0,1,1\n# between\n1,"{field}",1\n', "line 4", "'g'", "expected a number")

    def test_a_line_with_another_number_of_fields_is_refused(self):
        self.assert_refused("t,g,K\n0,1,1\n1,1\n", "line 3", "expected 3 fields", "got 2")
        self.assert_refused("t,g,K\n0,1,1\n1,1,1,1\n", "line 3", "expected 3 fields", "got 4")

    def test_unbalanced_quotes_are_refused(self):
        self.assert_refused('t,g,K\n0,1,1\n1,"1,1\n2,1,1\n', "line 3", "quotes")
        self.assert_refused('t,g,K\n0,1"2,1\n', "line 2", "quotes")

    def test_line_numbers_count_line_ends_inside_quotes(self):
        self.assert_refused('# x\n"t",g,"K"\n0,1,1\n"1\n# no comment\n",1,1\nx,1,1\n', "line 4", "'t'")

    def test_a_grid_that_is_not_uniform_is_refused(self):
        rows = constant_samples(30).splitlines()
        self.assert_refused("\n".join(rows[:11] + rows[12:]), "line 12", "expected t = 10,", "0.001", "got '11'")
        self.assert_refused("t,g,K\n0,1,1\n0.5,1,1\n1.5,1,1\n2.5,1,1\n3.5,1,1\n", "line 3", "expected t = 1,")
        drifting = "t,g,K\n" + "".join(f"{i * (1 + 1e-6 * i)!r},1,1\n" for i in range(401))
        self.assert_refused(drifting, "line 5:", "expected t = 3.001, 3 times the mean spacing,", "equally spaced",
                            "got '3.000009'")

    def test_a_refused_time_is_quoted_and_the_expected_one_has_few_digits(self):
        def table(times):
            return "t,g,K\n" + "".join(f"{time},1,1\n" for time in times)

        hints = ("if the times were rounded, write more digits",
                 "if they are unequal, interpolate the samples to equal steps first")
        self.assert_refused(table(f"{i / 64:.2f}" for i in range(65)), "line 4: expected t = 0.04, the time before "
                            "plus the median spacing 0.02, because", "got '0.03';", *hints)
        self.assert_refused(table(f"{i * i / 1e4:.4f}" for i in range(257)), "line 3: expected t = 0.0257, the time "
                            "before plus the median spacing 0.0257, because", "got '0.0001'", *hints)
        # The expected time has enough digits to differ from the time that is refused.
        self.assert_refused(table([0, 1, 2, 3, 100000]), "line 6: expected t = 4, ", "got '100000'")
        self.assert_refused(table(["0", "1000", "2000", "3000.0", "4003"]), "line 6: expected t = 4000, ", "got '4003'")
        self.assert_refused(table(["0", "1", "2", '" 3.003"', "4"]), "line 5: expected t = 3, ", "got ' 3.003'")

    def test_times_that_do_not_ascend_are_refused(self):
        self.assert_refused("t,g,K\n0,1,1\n1,1,1\n1,1,1\n2,1,1\n3,1,1\n", "line 4",
                            "expected t to increase, got '1' after '1'")
        self.assert_refused("t,g,K\n0,1,1\n-1,1,1\n-2,1,1\n-3,1,1\n-4,1,1\n", "line 3",
                            "expected t to increase, got '-1' after '0'")

    def test_a_grid_that_does_not_start_at_0_is_refused(self):
        self.assert_refused("t,g,K\n1,1,1\n2,1,1\n3,1,1\n4,1,1\n5,1,1\n", "line 2", "expected t to start at 0", "lag",
                            "got '1'")

    def test_a_time_that_is_not_finite_is_refused(self):
        for time in ("nan", "inf"):
            self.assert_refused(f"t,g,K\n0,1,1\n1,1,1\n2,1,1\n3,1,1\n{time},1,1\n", "line 6",
                                f"expected a finite t, got '{time}'")

    def test_a_setting_that_is_not_in_the_table_is_refused_with_the_nearest_ones(self):
        for setting, nearest in {"2:2,1": "2:1,2", "2:0,3": "2:0 or", "5:0,4": "4:0,4", "3:1,1": "3:1 or",
                                 "1:0,1,2,3,4,5": "1:0,1", "0:0": "1:0", "-1:0": "1:0"}.items():
            with self.subTest(setting):
                self.assert_refused(constant_samples(40), f"got '{setting}'", "quenta settings", nearest,
                                    arguments=("--setting=" + setting,))

    def test_a_setting_with_a_syntax_error_is_refused(self):
        for setting in ("x", "2", "2:", "2:0,", "2:,0", ":0", "2:0 1", "2;0", "99999999999:0", "", "2:0,1.0"):
            with self.subTest(setting):
                self.assert_refused(constant_samples(40), f"got '{setting}'", "expected a setting m:k1,k2",
                                    arguments=("--setting", setting))

    def test_too_few_samples_for_a_step_are_refused(self):
        for setting, least in (("1:0", 2), ("2:0,1,2", 5), ("3:3", 10), ("4:4", 17)):
            for rows in range(least):
                text = "".join(constant_samples(40).splitlines(True)[: rows + 1])
                self.assert_refused(text, f"got {rows}\n", f"expected at least {least} samples", setting,
                                    arguments=("--setting", setting))
            self.solve("--setting", setting, text=constant_samples(least - 1, K=0))

    def test_empty_input_is_refused(self):
        for text in ("", "\n\n", "# only a comment\n", "\ufeff"):
            self.assert_refused(text, "standard input is empty", "expected a header")
        self.assert_refused("", "empty.csv is empty", arguments=(self.write("empty.csv", ""),))

    def test_a_file_that_cannot_be_read_is_an_error(self):
        self.assert_refused("", "absent.csv", "No such file", arguments=("absent.csv",))
        self.assert_refused("", "cannot read .", "directory", arguments=(".",))

    def test_a_closed_standard_input_is_an_error(self):
        run = self.run_program("vie2", preexec_fn=lambda: os.close(0))
        self.assertEqual(run.returncode, BAD_INPUT)
        self.assert_one_sentence(run.stderr, "cannot read standard input")

    def test_a_file_that_cannot_be_written_is_an_error(self):
        for option in ("--output", "--polynomials"):
            for path, reason in (("absent/y.csv", "No such file"), (".", "directory")):
                with self.subTest(option + " " + path):
                    run = self.run_program("vie2", option, path, text=constant_samples(4))
                    self.assertEqual((run.returncode, run.stdout), (BAD_INPUT, ""))
                    self.assert_one_sentence(run.stderr, "cannot write " + path, reason)
        self.assertEqual(self.listing(), [])

    def test_a_write_protected_file_is_not_replaced(self):
        (self.directory / "y.csv").write_text("kept")
        (self.directory / "y.csv").chmod(0o444)
        # The superuser may write everywhere, except without this capability.
        as_user = ["setpriv", "--bounding-set", "-dac_override"] if os.geteuid() == 0 else []
        run = subprocess.run([*as_user, PROGRAM, "vie2", "--output", "y.csv"], input=constant_samples(4),
                             capture_output=True, text=True, cwd=self.directory)
        self.assertEqual((run.returncode, run.stdout), (BAD_INPUT, ""), run.stderr)
        self.assert_one_sentence(run.stderr, "cannot write y.csv", "Permission denied")
        self.assertEqual((self.directory / "y.csv").read_text(), "kept")

    def test_two_outputs_to_the_same_file_are_refused(self):
        for output, polynomials in (("y.csv", "y.csv"), ("y.csv", "./y.csv"), ("-", "-")):
            run = self.run_program("vie2", "--output", output, "--polynomials", polynomials, text=constant_samples(4))
            self.assertEqual((run.returncode, run.stdout), (BAD_INPUT, ""))
            self.assert_one_sentence(run.stderr, "expected two different files for --output and --polynomials")
        self.assertEqual(self.listing(), [])

    def test_an_invalid_command_line_is_refused(self):
        commands = "vie1, vie2, vide or settings; see 'quenta --help'"
        for arguments, message in {
                "": f"expected a command: {commands}",
                "solve p.csv": f"no command 'solve': expected {commands}",
                "VIE2 p.csv": f"no command 'VIE2': expected {commands}",
                "p.csv": f"no command 'p.csv': expected {commands}",
                "--what": "unknown option '--what'; see 'quenta --help'",
                "-o y.csv vie2 p.csv": "unknown option '-o' before the command; see 'quenta --help'",
                "vie2 --what": "unknown option '--what'; see 'quenta vie2 --help'",
                "vie2 p.csv --scheme 1:0,1": "unknown option '--scheme'; see 'quenta vie2 --help'",
                "vie2 p.csv --scheme=1:0,1": "unknown option '--scheme'; see 'quenta vie2 --help'",
                "vie2 a.csv b.csv c.csv": "expected one input file, got also 'b.csv'; see 'quenta vie2 --help'",
                "vie2 -- a.csv b.csv": "expected one input file, got also 'b.csv'; see 'quenta vie2 --help'",
                "vie2 a.csv -": "expected one input file, got also '-'; see 'quenta vie2 --help'",
                "settings x": "expected no argument, got 'x'; see 'quenta settings --help'",
                "settings vie2 p.csv": "expected no argument, got 'vie2'; see 'quenta settings --help'",
                "vide p.csv": "--y0 is required; see 'quenta vide --help'",
                "vide p.csv --Y0=1": "unknown option '--Y0'; see 'quenta vide --help'",
                "vie1 p.csv --continuous": "--continuous requires --y0; see 'quenta vie1 --help'",
                "vie1 p.csv --y0=1": "--y0 requires --continuous; see 'quenta vie1 --help'",
                "vie1 p.csv --y0=1 --continous": "unknown option '--continous'; see 'quenta vie1 --help'",
        }.items():
            with self.subTest(arguments):
                run = self.run_program(*arguments.split())
                self.assertEqual((run.returncode, run.stdout, run.stderr), (BAD_INPUT, "", f"quenta: {message}\n"))
        run = self.run_program("vie2", "--setting")
        self.assertEqual((run.returncode, run.stdout), (BAD_INPUT, ""))
        self.assert_one_sentence(run.stderr, "--setting", "; see 'quenta vie2 --help'")

    def test_messages_contain_no_control_characters_and_are_short(self):
        run = self.run_program("vie2", text="t,g,K\n0,\x1b[2J" + "y" * 5000 + ",1\n")
        self.assertEqual(run.returncode, BAD_INPUT)
        self.assertNotIn("\x1b", run.stderr)
        self.assertLess(len(run.stderr), 200)


class NonFiniteSamples(ProgramTest):
    def test_the_first_line_in_each_column_is_reported_and_the_solution_is_computed(self):
        text = "t,g,K\n0,1,0\n1,1,0\n2,nan,0\n3,1,-inf\n4,inf,0\n"
        run = self.run_program("vie2", "--setting", "1:0", text=text)
        self.assertEqual(run.returncode, SOLVED)
        messages = run.stderr.splitlines()
        self.assertEqual(len(messages), 4)
        self.assertIn("warning: standard input, line 4: g is nan", messages[0])
        self.assertIn("warning: standard input, line 6: g is inf, and the setting 1:0 does not read", messages[1])
        self.assertIn("warning: standard input, line 5: K is -inf", messages[2])
        self.assertIn("not finite from t = 2 on: y is nan, because samples are not finite", messages[3])
        y = columns(run.stdout)["y"]
        self.assertEqual(y[:2], [1, 1])
        self.assertTrue(all(math.isnan(value) for value in y[2:]))


class SingularBlock(ProgramTest):
    def test_a_singular_block_has_its_exit_code_and_writes_no_file(self):
        # The implicit rectangle rule divides by 1 - dt K(0), here 0.
        self.assert_refused(constant_samples(4), "singular", "1:1", arguments=("--setting", "1:1"), code=SINGULAR)


class Faults(ProgramTest):
    """Errors that are not caused by the input give exit code 1 and one sentence, and leave no incomplete file."""

    def assert_failed(self, run, *fragments):
        self.assertEqual(run.returncode, UNEXPECTED, run.stderr)
        self.assert_one_sentence(run.stderr, *fragments)

    def test_a_full_disk_under_standard_output_is_an_error(self):
        with open("/dev/full", "w") as full:
            for arguments in (("vie2",), ("settings",), ("--help",), ("vie2", "--polynomials", "p.csv")):
                run = subprocess.run([PROGRAM, *arguments], input=samples(2000), stdout=full, stderr=subprocess.PIPE,
                                     text=True, cwd=self.directory)
                self.assert_failed(run, "cannot write standard output", "No space left")
        self.assertEqual(self.listing(), [])

    def test_a_full_device_is_an_error(self):
        self.assert_failed(self.run_program("vie2", "--output", "/dev/full", "--polynomials", "p.csv", text=samples(40)),
                           "cannot write /dev/full", "No space left")
        self.assertEqual(self.listing(), [])

    def test_a_pipe_without_a_reader_is_an_error(self):
        read_end, write_end = os.pipe()
        os.close(read_end)
        with contextlib.closing(os.fdopen(write_end, "w")) as broken:
            run = subprocess.run([PROGRAM, "vie2", "--polynomials", "p.csv"], input=samples(2000), stdout=broken,
                                 stderr=subprocess.PIPE, text=True, cwd=self.directory)
        self.assert_failed(run, "cannot write standard output", "Broken pipe")
        self.assertEqual(self.listing(), [])

    def test_a_closed_standard_output_is_an_error(self):
        run = self.run_program("vie2", "--polynomials", "p.csv", text=samples(2000), preexec_fn=lambda: os.close(1))
        self.assert_failed(run, "cannot write standard output")
        self.assertEqual(self.listing(), [])

    def test_an_incomplete_write_leaves_the_existing_file_unchanged(self):
        # A limit on the size of files makes the write fail midway. Its signal is ignored, so that it is a write error.
        for option in ("--output", "--polynomials"):
            (self.directory / "y.csv").write_text("kept")
            run = self.run_program("vie2", option, "y.csv", text=samples(4000), restore_signals=False,
                                   preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (10000, 10000)))
            self.assertEqual(run.stdout, "")
            self.assert_failed(run, "cannot write y.csv", "File too large")
            self.assertEqual((self.directory / "y.csv").read_text(), "kept")
            self.assertEqual(self.listing(), ["y.csv"])

    @unittest.skipIf(os.environ.get("QUENTA_SANITIZE"), "a sanitizer needs more address space than the limit leaves")
    def test_running_out_of_memory_is_an_error(self):
        path = self.write("many.csv", constant_samples(1000000))
        limit = 40 << 20
        run = self.run_program("vie2", path, "--output", "y.csv",
                               preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_AS, (limit, limit)))
        self.assert_failed(run, "memory")
        self.assertEqual(self.listing(), ["many.csv"])


class Tables(ProgramTest):
    def test_the_settings_table_is_complete(self):
        run = self.run_program("settings")
        self.assertEqual((run.returncode, run.stderr), (SOLVED, ""))
        lines = run.stdout.splitlines()
        self.assertEqual(len(lines), 57)
        # The table has the non-empty subsets of 0..m, ordered by length, then lexicographically.
        expected = []
        for m in (1, 2, 3, 4):
            subsets = [[k for k in range(m + 1) if bits >> k & 1] for bits in range(1, 2 ** (m + 1))]
            expected += [(m, nodes) for nodes in sorted(subsets, key=lambda nodes: (len(nodes), nodes))]
        for row, ((m, nodes), line) in enumerate(zip(expected, lines[1:], strict=True)):
            shown_row, setting, shown_m, indices, parameters, per_step, of_g, of_K, degree = line.split()
            self.assertEqual(int(shown_row), row)
            self.assertEqual(indices, ",".join(map(str, nodes)))
            self.assertEqual(setting, f"{m}:{indices}")
            self.assertEqual(int(shown_m), m)
            values = [int(n) / int(d or 1) for n, _, d in (text.partition("/") for text in parameters.split(","))]
            self.assertEqual(values, [k / m for k in nodes])
            self.assertEqual(int(per_step), m * m)
            self.assertEqual(int(degree), len(nodes) - 1)
            # The fractions for many steps: those of samples at a node, and of lags between two nodes.
            self.assertEqual(fractions.Fraction(of_g), fractions.Fraction(len({k % m for k in nodes}), m * m))
            self.assertEqual(fractions.Fraction(of_K),
                             fractions.Fraction(len({(k_i - k_j) % m for k_i in nodes for k_j in nodes}), m * m))


class Help(ProgramTest):
    def test_help_lists_the_commands_and_the_exit_codes(self):
        run = self.run_program("--help")
        self.assertEqual((run.returncode, run.stderr), (SOLVED, ""))
        for word in ("vie1", "vie2", "vide", "settings", "Exit codes", "Example"):
            self.assertIn(word, run.stdout)
        for word in ("--setting", "--output", "--polynomials", "t, g and K"):
            self.assertIn(word, self.run_program("vie2", "--help").stdout)
        self.assertEqual(self.run_program("settings", "--help").returncode, SOLVED)
        self.assertRegex(self.run_program("--version").stdout, r"\Aquenta \d+\.\d+\.\d+\n\Z")

    def test_the_examples_in_the_help_run_in_a_shell(self):
        printed = {}
        for command in ("", "vie1", "vie2", "vide", "settings"):
            help = self.run_program(*command.split(), "--help").stdout
            examples = help.split("\nExample: ")[1:]
            self.assertEqual(len(examples), 1, command)
            line = examples[0].split("\n")[1]
            self.assertIn("quenta " + (command or "vie2"), line)
            run = subprocess.run(["sh", "-c", line], capture_output=True, text=True,
                                 env={**os.environ, "PATH": f"{PROGRAM.parent}:{os.environ['PATH']}"})
            self.assertEqual((run.returncode, run.stderr), (SOLVED, ""), command)
            printed[command] = run.stdout
        self.assertEqual(printed[""], printed["vie2"])
        for command, count, solution in (("vie1", 91, lambda t: 2 * t), ("vie2", 5, math.exp), ("vide", 5, math.cos)):
            found = columns(printed[command])
            self.assertEqual(len(found["t"]), count)
            for t, y in zip(found["t"], found["y"]):
                self.assertAlmostEqual(y, solution(t), delta=0.02)
        self.assertEqual(printed["settings"], "1:0 1\n1:1 1\n1:0,1 1\n")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
