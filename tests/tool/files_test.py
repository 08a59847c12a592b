"""The files that the program `quenta` reads and writes, one promise per test.

usage: files_test.py QUENTA
"""

import os
import resource
import signal
import subprocess
import sys
import time
import unittest

from program_case import (BAD_INPUT, PROGRAM, SOLVED, UNEXPECTED, ProgramTest, constant_samples, samples)


class OutputsAndInput(ProgramTest):
    """No output may overwrite the samples, whatever the names of the files."""

    def setUp(self):
        super().setUp()
        self.text = samples(40)
        self.write("samples.csv", self.text)
        (self.directory / "symbolic.csv").symlink_to("samples.csv")
        os.link(self.directory / "samples.csv", self.directory / "hard.csv")
        (self.directory / "sub").mkdir()

    def assert_samples_are_kept(self, *arguments, **settings):
        before = self.listing()
        run = self.run_program("vie2", *arguments, **settings)
        self.assertEqual(run.returncode, BAD_INPUT, run.stderr)
        self.assert_one_sentence(run.stderr, "expected two different files for the input and --")
        self.assertEqual((self.directory / "samples.csv").read_text(), self.text)
        self.assertEqual(self.listing(), before)

    def test_an_output_that_is_the_input_is_refused(self):
        names = ("samples.csv", "./samples.csv", "sub/../samples.csv", "symbolic.csv", "hard.csv",
                 str(self.directory / "samples.csv"))
        for read in names:
            for written in names:
                with self.subTest(read=read, written=written):
                    self.assert_samples_are_kept(read, "--output", written)
                    self.assert_samples_are_kept(read, "--output", "y.csv", "--polynomials", written)

    def test_an_output_that_is_the_file_of_standard_input_is_refused(self):
        for option in ("--output", "--polynomials"):
            with open(self.directory / "samples.csv") as read:
                run = subprocess.run([PROGRAM, "vie2", option, "hard.csv"], stdin=read, capture_output=True, text=True,
                                     cwd=self.directory)
            self.assertEqual((run.returncode, run.stdout), (BAD_INPUT, ""))
            self.assert_one_sentence(run.stderr, "expected two different files for the input and --")
            self.assertEqual((self.directory / "samples.csv").read_text(), self.text)

    def assert_refused_as_standard_output(self, mode, expected, *arguments):
        with open(self.directory / "samples.csv", mode) as output, open(self.directory / "samples.csv") as read:
            run = subprocess.run([PROGRAM, "vie2", *arguments], stdin=read, stdout=output, stderr=subprocess.PIPE,
                                 text=True, cwd=self.directory)
        self.assertEqual((run.returncode, run.stderr), (BAD_INPUT, f"quenta: {expected}\n"))
        self.assertEqual((self.directory / "samples.csv").read_text(), "" if mode == "w" else self.text)

    def test_standard_output_that_is_the_input_is_refused(self):
        # A shell opens the file like this for > (w) and >> (a).
        for mode, effect in (("a", ""), ("w", ", which the shell has emptied")):
            for arguments, name, option in (
                    (("samples.csv",), "input file 'samples.csv'", "--output"),
                    (("hard.csv", "--output", "/dev/stdout"), "input file 'hard.csv'", "--output"),
                    (("samples.csv", "--output", "y.csv", "--polynomials=-"), "input file 'samples.csv'",
                     "--polynomials"),
                    ((), "file of standard input", "--output")):
                with self.subTest(mode=mode, arguments=arguments):
                    self.write("samples.csv", self.text)
                    self.assert_refused_as_standard_output(
                        mode, f"standard output is the {name}{effect}; expected another file after > or {option}",
                        *arguments)

    def test_an_option_without_its_value_does_not_take_the_next_argument(self):
        for option in ("--output=", "--polynomials=", "--setting=", "--y0="):
            run = self.run_program("vide" if option == "--y0=" else "vie2", option, "samples.csv", text=self.text)
            self.assertEqual((run.returncode, run.stdout), (BAD_INPUT, ""))
            self.assert_one_sentence(run.stderr, f"expected a value after '{option}'")
            self.assertEqual((self.directory / "samples.csv").read_text(), self.text)

    def test_devices_may_be_read_and_written(self):
        run = subprocess.run([PROGRAM, "vie2", "samples.csv", "--output", "/dev/null"], capture_output=True, text=True,
                             cwd=self.directory)
        self.assertEqual((run.returncode, run.stderr), (SOLVED, ""))
        with open("/dev/null", "r+") as null:
            run = subprocess.run([PROGRAM, "vie2"], stdin=null, stdout=null, stderr=subprocess.PIPE, text=True)
        self.assert_one_sentence(run.stderr, "standard input is empty")

    def test_two_outputs_to_the_same_file_are_refused(self):
        self.write("y.csv", "kept")
        os.link(self.directory / "y.csv", self.directory / "other.csv")
        (self.directory / "link.csv").symlink_to("new.csv")
        for output, polynomials in (("y.csv", "other.csv"), ("link.csv", "new.csv"), ("new.csv", "sub/../link.csv"),
                                    ("-", "/dev/stdout")):
            before = self.listing()
            run = self.run_program("vie2", "--output", output, "--polynomials", polynomials, text=self.text)
            self.assertEqual((run.returncode, run.stdout), (BAD_INPUT, ""))
            self.assert_one_sentence(run.stderr, "expected two different files for --output and --polynomials")
            self.assertEqual(self.listing(), before)
        self.assertEqual((self.directory / "y.csv").read_text(), "kept")


class Outputs(ProgramTest):
    def test_a_link_to_a_missing_file_creates_that_file(self):
        (self.directory / "sub").mkdir()
        (self.directory / "first.csv").symlink_to("second.csv")
        (self.directory / "second.csv").symlink_to("sub/y.csv")
        expected = self.solve(text=constant_samples(4))
        self.solve("--output", "first.csv", text=constant_samples(4))
        self.assertEqual((self.directory / "sub/y.csv").read_text(), expected)
        self.assertTrue((self.directory / "first.csv").is_symlink())
        self.assertTrue((self.directory / "second.csv").is_symlink())
        self.assertEqual([path.name for path in (self.directory / "sub").iterdir()], ["y.csv"])

    def test_a_name_of_standard_output_is_appended_to(self):
        solution = self.solve(text=constant_samples(4))
        for name in ("/dev/stdout", "/dev/fd/1", "/proc/self/fd/1", "/dev/../dev/stdout", "log"):
            self.write("log", "kept\n")
            with open(self.directory / "log", "a") as log:
                run = subprocess.run([PROGRAM, "vie2", "--output", name], input=constant_samples(4), stdout=log,
                                     stderr=subprocess.PIPE, text=True, cwd=self.directory)
            self.assertEqual((run.returncode, run.stderr), (SOLVED, ""))
            self.assertEqual((self.directory / "log").read_text(), "kept\n" + solution)
            self.assertEqual(self.listing(), ["log"])

    def test_the_file_of_an_unused_standard_input_is_not_replaced(self):
        self.write("samples.csv", constant_samples(4))
        self.write("other.csv", "kept\n")
        for name in ("/dev/stdin", "other.csv"):
            with open(self.directory / "other.csv") as other:
                run = subprocess.run([PROGRAM, "vie2", "samples.csv", "--output", name], stdin=other,
                                     capture_output=True, text=True, cwd=self.directory)
            self.assertEqual((run.returncode, run.stdout), (BAD_INPUT, ""), run.stderr)
            self.assert_one_sentence(run.stderr, "cannot write " + name, "it is read as standard input")
            self.assertEqual((self.directory / "other.csv").read_text(), "kept\n")

    def test_links_without_a_target_that_can_be_created_are_refused(self):
        (self.directory / "absent.csv").symlink_to("absent/y.csv")
        (self.directory / "circle.csv").symlink_to("circle.csv")
        for name, reason in (("absent.csv", "No such file"), ("circle.csv", "symbolic links")):
            run = self.run_program("vie2", "--output", name, text=constant_samples(4))
            self.assertEqual((run.returncode, run.stdout), (BAD_INPUT, ""), run.stderr)
            self.assert_one_sentence(run.stderr, "cannot write " + name, reason)
        self.assertEqual(self.listing(), ["absent.csv", "circle.csv"])

    def test_empty_names_are_refused(self):
        for arguments in (("--output", ""), ("--polynomials", ""), ("",)):
            run = self.run_program("vie2", *arguments, text=constant_samples(4))
            self.assertEqual((run.returncode, run.stdout), (BAD_INPUT, ""))
            self.assert_one_sentence(run.stderr, "got ''", "expected a file name, or - for standard")
        self.assertEqual(self.listing(), [])

    def test_names_may_be_long_and_contain_any_characters(self):
        for name in ("y" * 251 + ".csv", "Lösung β.csv", "with space", "-dash"):
            self.solve("--output=" + name, text=constant_samples(4))
            self.assertEqual((self.directory / name).read_text(), self.solve(text=constant_samples(4)))
            (self.directory / name).rename(self.directory / "samples")
            self.assertIn("'y'", self.assert_refused("", "no column 'g'", arguments=("samples",)))

    def test_control_characters_of_names_are_replaced_in_messages(self):
        name = "a\x1b[2J\nquenta: all is well"
        for arguments in ((name,), ("--output", name + "/y.csv")):
            run = self.run_program("vie2", *arguments, text=constant_samples(4))
            self.assertEqual(run.returncode, BAD_INPUT)
            self.assert_one_sentence(run.stderr, "a?[2J?quenta")
        self.write(name, "t,g,K\n")
        self.assert_one_sentence(self.run_program("vie2", name).stderr, "a?[2J?quenta", "got 0")

    def test_a_directory_without_write_permission_is_an_error(self):
        (self.directory / "closed").mkdir(mode=0o555)
        as_user = ["setpriv", "--bounding-set", "-dac_override"] if os.geteuid() == 0 else []
        run = subprocess.run([*as_user, PROGRAM, "vie2", "--output", "closed/y.csv"], input=constant_samples(4),
                             capture_output=True, text=True, cwd=self.directory)
        self.assertEqual((run.returncode, run.stdout), (BAD_INPUT, ""), run.stderr)
        self.assert_one_sentence(run.stderr, "cannot write closed/y.csv", "Permission denied")

    def test_the_limit_on_the_size_of_files_is_a_write_error(self):
        # The signal has its default action, which would end the program.
        run = self.run_program("vie2", "--output", "y.csv", text=samples(4000), restore_signals=True,
                               preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (10000, 10000)))
        self.assertEqual(run.returncode, UNEXPECTED)
        self.assert_one_sentence(run.stderr, "cannot write y.csv", "File too large")
        self.assertEqual(self.listing(), [])


class Signals(ProgramTest):
    """A signal ends the program, and no temporary file is left."""

    def start(self, **settings):
        """Starts a program that has written a temporary file and waits for the reader of a pipe."""
        os.mkfifo(self.directory / "pipe")
        program = subprocess.Popen([PROGRAM, "vie2", "--polynomials", "p.csv", "--output", "pipe"],
                                   stdin=subprocess.PIPE, stderr=subprocess.PIPE, cwd=self.directory, **settings)
        self.addCleanup(program.stderr.close)
        self.addCleanup(program.wait)
        self.addCleanup(program.kill)
        # The pipe is opened here for reading and writing, so that the program can open it at once. Nothing reads from
        # it. It fills up, and the program waits with p.csv written but not yet renamed.
        pipe = os.open(self.directory / "pipe", os.O_RDWR)
        self.addCleanup(os.close, pipe)
        program.stdin.write(samples(4000).encode())
        program.stdin.close()
        end = time.monotonic() + 60
        while not any(self.directory.glob("*.part")):
            self.assertLess(time.monotonic(), end, "expected the program to open a temporary file")
            time.sleep(0.01)
        return program

    def test_temporary_files_are_removed(self):
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGQUIT, signal.SIGXCPU):
            with self.subTest(number):
                program = self.start(preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_CORE, (0, 0)))
                program.send_signal(number)
                self.assertEqual(program.wait(timeout=60), -number)
                self.assertEqual(self.listing(), ["pipe"])
                (self.directory / "pipe").unlink()

    def test_a_signal_that_is_ignored_stays_ignored(self):
        program = self.start(preexec_fn=lambda: signal.signal(signal.SIGHUP, signal.SIG_IGN))
        program.send_signal(signal.SIGHUP)
        time.sleep(0.2)
        self.assertIsNone(program.poll())
        program.send_signal(signal.SIGTERM)
        self.assertEqual(program.wait(timeout=60), -signal.SIGTERM)
        self.assertEqual(self.listing(), ["pipe"])


class Separators(ProgramTest):
    def test_semicolons_and_tabs_separate_columns_as_commas_do(self):
        text = samples(40)
        expected = self.solve(text=text)
        for separator in (";", "\t", " ; ", "\t "):
            with self.subTest(separator):
                self.assertEqual(self.solve(text=text.replace(",", separator)), expected)
        self.assertEqual(self.run_program("vie2", text=self.with_remarks(text, ";", '"one, two"')).stdout, expected)
        self.assertEqual(self.run_program("vie2", text=self.with_remarks(text, ",", '"a; b; c; d"')).stdout, expected)

    @staticmethod
    def with_remarks(text, separator, remark):
        lines = text.replace(",", separator).splitlines()
        return "\n".join(line + separator + remark for line in lines)

    def test_decimal_commas_are_refused(self):
        for separator in (";", "\t"):
            text = constant_samples(4).replace(",", separator)
            self.assert_refused(text.replace("1", "1,5"), "line 2", "'1,5'", "expected a number with a decimal point")

    def test_too_large_numbers_have_their_own_message(self):
        for number in ("1e400", "-1e309", "+2e308", "9" * 400):
            self.assert_refused(constant_samples(4, g=number), "line 2", "expected a number below 1.8e308")

    def test_utf_16_has_its_own_message(self):
        for encoding in ("utf-16-le", "utf-16-be"):
            (self.directory / "wide.csv").write_bytes(("\ufeff" + samples(8)).encode(encoding))
            self.assert_refused("", "wide.csv", "UTF-16", "expected UTF-8", arguments=("wide.csv",))


class Headers(ProgramTest):
    def test_many_unused_columns_give_one_short_note(self):
        names = "".join(f",x{column}" for column in range(2000))
        text = "".join(line + (names if number == 0 else ",1" * 2000) + "\n"
                       for number, line in enumerate(constant_samples(4).splitlines()))
        run = self.run_program("vie2", text=text)
        self.assertEqual(run.returncode, SOLVED)
        self.assert_one_sentence(run.stderr, "note", "line 1", "the columns 'x0', 'x1'", "'x1999' are not used")
        self.assertLess(len(run.stderr), 300)

    def test_names_in_messages_are_cut_between_characters(self):
        run = self.run_program("vie2", text="t,g," + "aä" * 30 + "\n")
        self.assert_one_sentence(run.stderr, "no column 'K'")
        self.assertNotIn("\ufffd", run.stderr)
        name = "x" + "ä" * 30
        run = subprocess.run([PROGRAM, "vie2"], input=f"t,g,{name}\n".encode(), capture_output=True)
        self.assertIn("'x" + "ä" * 19 + "...'", run.stderr.decode())


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
