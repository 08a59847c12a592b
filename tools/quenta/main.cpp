// quenta: solves Volterra equations from samples in CSV files. This file knows the command line and the exit codes.
#include "commands.hpp"
#include "messages.hpp"
#include "settings_table.hpp"
#include "temporary_files.hpp"

#include <CLI/CLI.hpp>

#include <cerrno>
#include <csignal>
#include <exception>
#include <iostream>
#include <new>
#include <optional>
#include <span>
#include <sstream>
#include <string>
#include <string_view>

#if defined(__unix__) || defined(__APPLE__)
#include <fcntl.h>
#include <unistd.h>
#endif

namespace {

using namespace quenta_program;

constexpr const char* exit_codes =
    "Exit codes: 0 solved, 2 bad input (the message says what, where, and what was expected),\n"
    "3 the equation of a step is singular, 1 anything else. Warnings go to standard error.\n"
    "\n";

// An example for each command. They run in a shell as they stand.
constexpr const char* example_of_vie1 =
    "Example: the integral from 0 to t of y(s) ds = t^2, whose solution is 2 t\n"
    "  awk 'BEGIN { print \"t,g,K\"; for (i = 0; i <= 90; ++i) print i/10 \",\" i*i/100 \",1\" }' | quenta vie1\n";
constexpr const char* example_of_vie2 =
    "Example: y(t) = 1 + integral from 0 to t of y(s) ds, whose solution is exp(t)\n"
    "  printf 't,g,K\\n0,1,1\\n0.25,1,1\\n0.5,1,1\\n0.75,1,1\\n1,1,1\\n' | quenta vie2\n";
constexpr const char* example_of_vide =
    "Example: y'(t) = -integral from 0 to t of y(s) ds, y(0) = 1, whose solution is cos(t)\n"
    "  printf 't,K\\n0,-1\\n0.25,-1\\n0.5,-1\\n0.75,-1\\n1,-1\\n' | quenta vide --y0=1\n";
constexpr const char* example_of_settings =
    "Example: the settings that read all of g but its first or last sample, and how much of K\n"
    "  quenta settings | awk '$7 == 1 { print $2, $8 }'\n";

constexpr const char* about_the_table =
    "A step of the setting m:k1,k2,.. spans m*m spacings, and its solution is a polynomial through\n"
    "the nodes at the parts c = k/m of its length. The columns 'read of g, a' and 'read of K' tell\n"
    "which part of the samples a setting reads. The others are only compared with those that are\n"
    "read, and a warning is given if they contradict them.\n"
    "\n";

// A reader that goes away shall be reported like any other failure to write. And a standard stream that was closed
// before the start shall not hand its number to the first file that is opened here.
void prepare_standard_streams() {
    std::ios::sync_with_stdio(false);
#if defined(__unix__) || defined(__APPLE__)
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN); // the same of a limit on the size of files
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (fcntl(descriptor, F_GETFD) == -1 && errno == EBADF)
            // Opened the wrong way round, so that using it fails as it would on the closed stream.
            open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY);
#endif
}

constexpr const char* columns_of_integral_equations =
    "CSV, separated by commas, semicolons or tabs, with a header that names the\n"
    "columns t, g and K, in any order, or those of a system of D equations: t,\n"
    "g1 .. gD and the matrix K11, K12 .. KDD, row by row; with ten equations or\n"
    "more its names are K1_1, K1_2 .. KD_D.\n";

// What the options of a command that solves tell beyond what they all tell.
struct solve_help {
    std::string columns, polynomials, setting, example;
};

void add_solve_options(CLI::App& command, solve_request& request, const solve_help& help) {
    command.footer(exit_codes + help.example);
    command
        .add_option("input", request.input,
                    help.columns + "t runs from 0 in equal steps; the K of a row is the kernel at the lag t.\n"
                                   "Lines that start with # are comments. - is standard input, the default.")
        ->type_name("FILE");
    command
        .add_option("-o,--output", request.output,
                    "Where the solution goes, as CSV with the columns t,y or t,y1,y2,.., one row\n"
                    "for each sample of the whole steps. - is standard output, the default.")
        ->type_name("FILE");
    command
        .add_option("-p,--polynomials", request.polynomials,
                    "Also write the polynomials of the steps, as CSV with the columns\n"
                    "step,t_start,h,a0,a1,..: there y = a0 + a1 s + a2 s^2 + .. with\n"
                    "s = (t - t_start) / h from 0 to 1. In a system the columns of each unknown\n"
                    "follow one another: y1_a0,y1_a1,.." +
                        help.polynomials)
        ->type_name("FILE");
    command
        .add_option("-s,--setting", request.setting,
                    "The collocation setting m:k1,k2,.., one of 'quenta settings': a step\n"
                    "spans m*m spacings and has its nodes at the parts k/m of its length.\n" +
                        help.setting)
        ->type_name("SETTING");
}

int run(int argc, char** argv) {
    CLI::App program(
        "Solves linear Volterra equations with a convolution kernel, and systems of them, from samples in CSV files.",
        "quenta");
    program.footer(std::string(exit_codes) + example_of_vie2);
    program.set_version_flag("--version", "quenta " QUENTA_VERSION, "Print the version and exit");
    program.get_formatter()->column_width(27);
    program.require_subcommand(0, 1);

    vie1_request vie1{{"-", default_first_kind_setting, "-", std::nullopt}, std::nullopt};
    CLI::App* const vie1_command =
        program.add_subcommand("vie1", "Solve integral from 0 to t of K(t - s) y(s) ds = g(t).");
    add_solve_options(*vie1_command, vie1,
                      {columns_of_integral_equations,
                       "\nWithout --continuous the polynomials of adjacent steps need not join.",
                       "The default 3:1,2,3 is for smooth samples: parabolas over 9 spacings,\n"
                       "third order, stable in both forms. It reads a third of the samples, and\n"
                       "warns if the others contradict them. 1:1 is the rectangle rule, for few or\n"
                       "noisy samples: noise in g is differentiated. It reads every sample except\n"
                       "the first of g and the last of K.",
                       example_of_vie1});
    bool continuous = false;
    CLI::Option* const continuous_option =
        vie1_command->add_flag("-c,--continuous", continuous,
                               "Join the polynomials of adjacent steps, from --y0 on. Errors then grow with\n"
                               "many settings, and the program warns of that.");
    CLI::Option* const y0_option =
        vie1_command
            ->add_option("--y0", vie1.y0, "y at t = 0, one value for each unknown: --y0=v1,v2,.. (--continuous only)")
            ->type_name("VALUES");
    continuous_option->needs(y0_option);
    y0_option->needs(continuous_option);

    solve_request vie2{"-", default_setting, "-", std::nullopt};
    CLI::App* const vie2_command =
        program.add_subcommand("vie2", "Solve y(t) = g(t) + integral from 0 to t of K(t - s) y(s) ds.");
    add_solve_options(*vie2_command, vie2,
                      {columns_of_integral_equations, "",
                       "The default 2:0,1,2 is for smooth samples: parabolas over 4 spacings,\n"
                       "third order. It reads half of the samples, and warns if the others\n"
                       "contradict them. 1:0,1 is the trapezoidal rule, for few or rough samples.\n"
                       "It reads every sample.",
                       example_of_vie2});

    vide_request vide{{"-", default_setting, "-", std::nullopt}, ""};
    CLI::App* const vide_command = program.add_subcommand(
        "vide", "Solve y'(t) = a(t) y(t) + g(t) + integral from 0 to t of K(t - s) y(s) ds, y(0) = y0.");
    add_solve_options(*vide_command, vide,
                      {"CSV, separated by commas, semicolons or tabs, with a header that names the\n"
                       "columns t and K and, where they are not 0, g and a, in any order, or those of\n"
                       "a system of D equations: t, g1 .. gD and the matrices K11, K12 .. KDD and\n"
                       "a11, a12 .. aDD, row by row; with ten equations or more their names are\n"
                       "K1_1, K1_2 .. KD_D and a1_1, a1_2 .. aD_D.\n",
                       "",
                       "The default 2:0,1,2 is for smooth samples: cubics over 4 spacings, fourth\n"
                       "order. It reads half of the samples, and warns if the others contradict\n"
                       "them. 1:0,1 is the trapezoidal rule, for few or rough samples. It reads\n"
                       "every sample.",
                       example_of_vide});
    vide_command->add_option("--y0", vide.y0, "y at t = 0, one value for each unknown: --y0=v1,v2,..")
        ->required()
        ->type_name("VALUES");
    program.add_subcommand("settings", "List the collocation settings.")
        ->footer(std::string(about_the_table) + example_of_settings);

    // The parser would take the next argument for the value, and `--output= samples.csv` would replace the samples.
    for (const std::string_view argument : std::span(argv, static_cast<std::size_t>(argc)))
        if (argument.starts_with("--") && argument.find('=') == argument.size() - 1)
            throw bad_input(sentence(in_quotes(argument), " has no value; expected one after the ="));
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
        throw bad_input("no command is given; expected vie1, vie2, vide or settings, and 'quenta --help' tells more");
    if (vie1_command->parsed())
        return run_vie1(vie1);
    if (vie2_command->parsed())
        return run_vie2(vie2);
    return vide_command->parsed() ? run_vide(vide) : run_settings();
}

} // namespace

int main(int argc, char** argv) {
    try {
        prepare_standard_streams();
        remove_temporary_files_on_signals();
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
