"""The libraries as a part of other builds, with flags that they choose, and as found by pkg-config.

usage: dependency_test.py CHECKOUT DIRECTORY COMPILER

Only single units of the libraries are compiled. DIRECTORY has the built ones, which stand for the installed ones.
"""

import json
import os
import pathlib
import shlex
import shutil
import subprocess
import sys
import tempfile
import unittest

ROOT, BUILT = (pathlib.Path(argument).resolve() for argument in sys.argv[1:3])
COMPILER = sys.argv[3]
LIBRARIES = ("quenta_native", "quenta_equations")
HEADERS = ("quenta_solvers/quenta_native.h", "quenta_equations/quenta_equations.h", "quenta_equations/quenta_equations.hpp")
HERE = pathlib.Path(__file__).resolve().parent
ON_X86 = os.uname().machine == "x86_64"
LAST = "-ffp-contract=off"


def output_of(command, **options):
    ran = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, **options)
    if ran.returncode != 0:
        line = shlex.join(map(str, command))
        raise AssertionError(f"expected exit code 0, got {ran.returncode} from {line}\n{ran.stdout}")
    return ran.stdout


def configure(source, build, *options, generator="Ninja"):
    return output_of(["cmake", "-S", source, "-B", build, "-G", generator, f"-DCMAKE_CXX_COMPILER={COMPILER}", *options])


def compile_commands(build):
    """The words of each compile command, by (object, source)."""
    entries = json.loads((build / "compile_commands.json").read_text())
    commands = [(pathlib.Path(entry["file"]), shlex.split(entry["command"])) for entry in entries]
    return {(words[words.index("-o") + 1], file): words for file, words in commands}


class Case(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.place = pathlib.Path(directory.name)
        self.build = self.place / "build"


class PartOfAnotherBuild(Case):
    def configure_host(self, *options, how="add_subdirectory", **others):
        """The command that compiles the host, and the commands of the units of the library."""
        configure(HERE / "dependency", self.build, f"-DQUENTA={ROOT}", f"-DHOW={how}", *options, **others)
        commands = compile_commands(self.build)
        host = [words for (_, file), words in commands.items() if file.name == "host.cpp"]
        units = {key: words for key, words in commands.items() if key[1].name != "host.cpp"}
        self.assertGreater(len(units), 10)
        return host[0], units

    def command_of(self, units, name):
        (command,) = [words for (_, file), words in units.items() if file.name == name]
        return command

    def link_commands(self):
        commands = output_of(["ninja", "-C", self.build, "-t", "commands", *LIBRARIES]).splitlines()
        linked = [line for line in commands if " -shared " in line]
        self.assertEqual(len(linked), len(LIBRARIES))
        return linked

    def test_only_the_library_is_added(self):
        for how in ("add_subdirectory", "FetchContent"):
            with self.subTest(how):
                self.build = self.place / how
                self.configure_host(how=how)  # the CMakeLists.txt of the host compares its variables before and after
                self.assertFalse((self.build / "CPackConfig.cmake").exists())
                output_of(["cmake", "--install", self.build, "--prefix", self.place / "prefix"])
                self.assertFalse((self.place / "prefix").exists(), "expected nothing of the library to be installed")

    def test_the_options_of_the_host_do_not_change(self):
        host, _ = self.configure_host("-DCMAKE_BUILD_TYPE=Release", "-DCMAKE_CXX_FLAGS=-ffast-math")
        options = [word for word in host[1:host.index("-o")] if not word.startswith("-I")]
        self.assertEqual(options, ["-ffast-math", "-O3", "-DNDEBUG", "-Wold-style-cast", "-std=gnu++11", "-Werror"])
        output_of([*host, "-fsyntax-only"], cwd=self.build)

    def test_flags_of_the_host_are_kept_and_followed_by_those_for_the_arithmetic(self):
        _, units = self.configure_host("-DCMAKE_BUILD_TYPE=Release", "-DCMAKE_CXX_FLAGS=-ffp-contract=fast -g3",
                                       "-DCMAKE_CXX_FLAGS_RELEASE=-O1 -DOF_THE_HOST")
        for (_, file), words in units.items():
            self.assertEqual([word for word in words if word.startswith("-O")], ["-O1"], file)
            self.assertLessEqual({"-g3", "-DOF_THE_HOST"}, set(words))
            self.assertEqual([word for word in words if word[:2] in ("-f", "-m")][-1], LAST, file)
            self.assertNotIn("-Werror", words)

    def test_without_a_build_type_nothing_is_optimised(self):
        _, units = self.configure_host()
        for (_, file), words in units.items():
            self.assertEqual([word for word in words if word.startswith("-O")], [], file)

    def test_every_configuration_has_its_optimisation_level_and_compiles(self):
        _, units = self.configure_host("-DCMAKE_CONFIGURATION_TYPES=Debug;Release;RelWithDebInfo;MinSizeRel",
                                       "-DCMAKE_CXX_FLAGS=-Werror",  # although the host warns about old-style casts
                                       generator="Ninja Multi-Config")
        compiled = 0
        for configuration, levels in {"Debug": [], "Release": ["-O3"], "RelWithDebInfo": ["-O2"],
                                      "MinSizeRel": ["-Os"]}.items():
            in_configuration = {key: words for key, words in units.items() if f"/{configuration}/" in key[0]}
            self.assertGreater(len(in_configuration), 10)
            for (_, file), words in in_configuration.items():
                # In a release, the units with the time stepping have options of their own.
                marches = configuration == "Release" and ("_with_" in file.name or file.name.startswith("block_"))
                own = ["-O2"] if marches and "-O2" in words else []
                self.assertEqual([word for word in words if word.startswith("-O")], levels + own, file)
                self.assertEqual([word for word in words if word[:2] in ("-f", "-m")][-1], LAST, file)
            (target,) = [key[0] for key in in_configuration if key[1].name == "vector_kernels_baseline.cpp"]
            output_of(["ninja", "-C", self.build, "-f", f"build-{configuration}.ninja", target])
            compiled += 1
        self.assertEqual(compiled, 4)

    def machine_code(self, command, *more):
        """The machine code of a unit, compiled with more options in front of its own."""
        target = self.place / "unit.o"
        words = [command[0], *more, *command[1:]]
        words[words.index("-o") + 1] = str(target)
        output_of(words, cwd=self.build)
        return output_of(["objdump", "-d", "--no-show-raw-insn", target]).split("\n", 3)[-1]

    def test_fast_math_and_contraction_change_no_instruction(self):
        fused = ["-mfma"] if ON_X86 else []
        _, units = self.configure_host("-DCMAKE_BUILD_TYPE=Release", "-DCMAKE_CXX_FLAGS_RELEASE=-O2")
        ours = self.command_of(units, "fft.cpp")
        expected = self.machine_code(ours, *fused)
        for options in (["-ffast-math"], ["-Ofast"], ["-funsafe-math-optimizations"], ["-ffp-contract=fast"],
                        ["-fassociative-math", "-fno-signed-zeros", "-fno-trapping-math", "-freciprocal-math"]):
            self.assertEqual(self.machine_code(ours, *fused, *options), expected, options)
        # Without ours after them, the options do change the machine code.
        alone = [word for word in ours if word != LAST]
        self.assertNotEqual(self.machine_code(alone, *fused, "-ffp-contract=fast"), expected)

    def test_loading_the_library_does_not_change_the_floating_point_mode(self):
        for option in ("-ffast-math", "-Ofast", "-funsafe-math-optimizations"):
            self.configure_host("-DCMAKE_BUILD_TYPE=Release", f"-DCMAKE_CXX_FLAGS={option}",
                                f"-DCMAKE_CXX_FLAGS_RELEASE={option}")
            for linked in self.link_commands():
                command = shlex.split(linked.removeprefix(": && ").removesuffix(" && :"))
                printed = output_of([*command, "-###"], cwd=self.build)
                self.assertIn("crti.o", printed)  # the output lists what is linked
                self.assertNotIn("crtfastmath.o", printed, option)

    def test_the_threads_library_is_linked_if_it_is_separate(self):
        self.configure_host("-DCMAKE_HAVE_LIBC_PTHREAD=OFF")
        for linked in self.link_commands():
            self.assertRegex(linked, r" -l?pthread\b")


class WholeProject(Case):
    def test_a_multi_configuration_generator_works(self):
        configure(ROOT, self.build, generator="Ninja Multi-Config")
        self.assertGreater(len(compile_commands(self.build)), 100)


class PkgConfig(Case):
    def test_directories_may_be_absolute(self):
        for libraries, headers in (("{place}/lib", "include/quenta"), ("lib/of/many", "{place}/headers")):
            libraries, headers = (directory.format(place=self.place) for directory in (libraries, headers))
            with self.subTest(libraries=libraries, headers=headers):
                prefix = self.place / "prefix"
                configure(ROOT, self.build, "-DQUENTA_BUILD_TESTS=OFF", "-DQUENTA_BUILD_TOOLS=OFF",
                          f"-DCMAKE_INSTALL_PREFIX={prefix}", f"-DCMAKE_INSTALL_LIBDIR={libraries}",
                          f"-DCMAKE_INSTALL_INCLUDEDIR={headers}")
                # As in the installation, an absolute directory replaces the prefix.
                libdir, includedir = prefix / libraries, prefix / headers
                for directory in (libdir / "pkgconfig", includedir):
                    directory.mkdir(parents=True, exist_ok=True)
                for header in HEADERS:
                    shutil.copy(ROOT / "source" / header, includedir)
                for library in LIBRARIES:
                    shutil.copy(self.build / f"{library}.pc", libdir / "pkgconfig")
                    for name in BUILT.glob(f"lib{library}.so*"):
                        shutil.copy(name, libdir, follow_symlinks=False)
                environment = {**os.environ, "PKG_CONFIG_PATH": str(libdir / "pkgconfig")}
                flags = output_of(["pkg-config", "--cflags", "--libs", *LIBRARIES], env=environment).split()
                program = self.place / "host"
                output_of([COMPILER, HERE / "dependency/host.cpp", *flags, "-o", program])
                output_of([program], env={**os.environ, "LD_LIBRARY_PATH": str(libdir)})
                for directory in (libdir, includedir):
                    shutil.rmtree(directory)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
