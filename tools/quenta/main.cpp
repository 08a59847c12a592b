// quenta: solves Volterra equations from samples in CSV files. This file knows the command line and the exit codes.
#include "commands.hpp"
#include "messages.hpp"
#include "settings_table.hpp"

#include <CLI/CLI.hpp>

#include <cerrno>
#include <csignal>
#include <exception>
#include <iostream>
#include <new>
#include <sstream>

#if defined(__unix__) || defined(__APPLE__)
#include <fcntl.h>
#include <unistd.h>
#endif

namespace {

using namespace quenta_program;

constexpr const char* closing_words =
    "Exit codes: 0 solved, 2 bad input (the message says what, where, and what was expected),\n"
    "3 the equation of a step is singular, 1 anything else.\n"
    "\n"
    "Example: y(t) = 1 + integral from 0 to t of y(s) ds, whose solution is exp(t)\n"
    "  printf 't,g,K\\n0,1,1\\n0.25,1,1\\n0.5,1,1\\n0.75,1,1\\n1,1,1\\n' | quenta vie2\n";

// A reader that goes away shall be reported like any other failure to write. And a standard stream that was closed
// before the start shall not hand its number to the first file that is opened here.
void prepare_standard_streams() {
    std::ios::sync_with_stdio(false);
#if defined(__unix__) || defined(__APPLE__)
    std::signal(SIGPIPE, SIG_IGN);
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (fcntl(descriptor, F_GETFD) == -1 && errno == EBADF)
            // Opened the wrong way round, so that using it fails as it would on the closed stream.
            open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY);
#endif
}

int run(int argc, char** argv) {
    CLI::App program("Solves linear Volterra equations with a convolution kernel from samples in CSV files.", "quenta");
    program.footer(closing_words);
    program.set_version_flag("--version", "quenta " QUENTA_VERSION, "Print the version and exit");
    program.get_formatter()->column_width(27);
    program.require_subcommand(0, 1);

    vie2_request vie2{"-", default_setting, "-", ""};
    CLI::App* const vie2_command =
        program.add_subcommand("vie2", "Solve y(t) = g(t) + integral from 0 to t of K(t - s) y(s) ds.");
    vie2_command->footer(closing_words);
    vie2_command
        ->add_option("input", vie2.input,
                     "CSV with a header that names the columns t, g and K, in any order.\n"
                     "t runs from 0 in equal steps; the K of a row is the kernel at the lag t.\n"
                     "Lines that start with # are comments. - is standard input, the default.")
        ->type_name("FILE");
    vie2_command
        ->add_option("-o,--output", vie2.output,
                     "Where the solution goes, as CSV with the columns t,y, one row for each\n"
                     "sample of the whole steps. - is standard output, the default.")
        ->type_name("FILE");
    vie2_command
        ->add_option("-p,--polynomials", vie2.polynomials,
                     "Also write the polynomials of the steps, as CSV with the columns\n"
                     "step,t_start,h,a0,a1,..: there y = a0 + a1 s + a2 s^2 + .. with\n"
                     "s = (t - t_start) / h from 0 to 1.")
        ->type_name("FILE");
    vie2_command
        ->add_option("-s,--setting", vie2.setting,
                     "The collocation setting m:k1,k2,.., one of 'quenta settings': a step\n"
                     "spans m*m spacings and has its nodes at the parts k/m of its length.\n"
                     "The default 2:0,1,2 is for smooth samples: parabolas over 4 spacings,\n"
                     "third order. 1:0,1 is the trapezoidal rule, for few or rough samples.")
        ->type_name("SETTING");
    program.add_subcommand("settings", "List the collocation settings.")->footer(closing_words);

    try {
        program.parse(argc, argv);
    } catch (const CLI::Success& wanted) { // a text that was asked for: the help, the version
        std::ostringstream text;
        program.exit(wanted, text, text);
        return print(text.str());
    } catch (const CLI::ParseError& wrong) {
        throw bad_input(sentence(wrong.what(), "; 'quenta --help' tells more"));
    }
    if (program.get_subcommands().empty())
        throw bad_input("no command is given; expected vie2 or settings, and 'quenta --help' tells more");
    return vie2_command->parsed() ? run_vie2(vie2) : run_settings();
}

} // namespace

int main(int argc, char** argv) {
    try {
        prepare_standard_streams();
        return run(argc, argv);
    } catch (const bad_input& wrong) {
        complain(wrong.what());
        return exit_bad_input;
    } catch (const std::bad_alloc&) {
        complain("the memory is not enough for so many samples");
    } catch (const std::exception& unexpected) {
        complain(unexpected.what());
    }
    return exit_unexpected;
}
