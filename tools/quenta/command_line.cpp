#include "command_line.hpp"

#include "commands.hpp"
#include "messages.hpp"
#include "settings_table.hpp"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstddef>
#include <optional>
#include <span>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace quenta_program {

namespace {

constexpr const char* command_names = "vie1, vie2, vide or settings";

constexpr const char* exit_codes =
    "Exit codes: 0 solved, 2 bad input, 3 the linear system of a step is singular, 1 any other error.\n"
    "Errors and warnings go to standard error.\n"
    "\n";

// One example for each command. Each runs in a shell as it is printed.
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
    "Example: the schemes that read all samples of g except the first or last, and the part of K that they read\n"
    "  quenta settings | awk '$7 == 1 { print $2, $8 }'\n";

constexpr const char* about_the_table =
    "A step of the collocation scheme m:k1,k2,.. spans m*m spacings of the samples. In each step the\n"
    "solution is a polynomial through the nodes, which are at the fractions c = k/m of the step. The\n"
    "columns 'read of g, a' and 'read of K' give the part of the samples that a scheme reads. The\n"
    "program compares the other samples with these, and warns if they contradict them. The option\n"
    "--setting of the other commands selects a scheme.\n"
    "\n";

constexpr const char* columns_of_integral_equations =
    "CSV file, separated by commas, semicolons or tabs. The header names the\n"
    "columns t, g and K, in any order. For a system of D equations they are t,\n"
    "g1 .. gD and the matrix K11, K12 .. KDD, row by row; for ten or more\n"
    "equations the matrix is K1_1, K1_2 .. KD_D.\n";

constexpr const char* columns_of_vide = "CSV file, separated by commas, semicolons or tabs. The header names the\n"
                                        "columns t and K, and g and a unless they are 0, in any order. For a system\n"
                                        "of D equations they are t, g1 .. gD and the matrices K11, K12 .. KDD and\n"
                                        "a11, a12 .. aDD, row by row; for ten or more equations the matrices are\n"
                                        "K1_1, K1_2 .. KD_D and a1_1, a1_2 .. aD_D.\n";

// The parts of the help that differ between the commands that solve.
struct solve_help {
    std::string columns, polynomials, setting, example;
};

void add_solve_options(CLI::App& command, solve_request& request, const solve_help& help) {
    command.footer(exit_codes + help.example);
    command
        .add_option("input", request.input,
                    help.columns + "t starts at 0 and increases in equal steps; the K of a row is the kernel at\n"
                                   "lag t. Lines that start with # are comments. - is standard input, the\n"
                                   "default.")
        ->type_name("FILE");
    command
        .add_option("-o,--output", request.output,
                    "File for the solution, as CSV with the columns t,y or t,y1,y2,.., one row\n"
                    "for each sample of the whole steps. - is standard output, the default.")
        ->type_name("FILE");
    command
        .add_option("-p,--polynomials", request.polynomials,
                    "Also write the polynomial of each step to this file, as CSV with the columns\n"
                    "step,t_start,h,a0,a1,..: y = a0 + a1 s + a2 s^2 + .. with\n"
                    "s = (t - t_start) / h from 0 to 1. For a system the columns are grouped by\n"
                    "unknown: y1_a0,y1_a1,.." +
                        help.polynomials)
        ->type_name("FILE");
    command
        .add_option("-s,--setting", request.setting,
                    "Collocation scheme m:k1,k2,.., one of 'quenta settings': a step spans m*m\n"
                    "spacings of the samples and has nodes at the fractions k/m of its length.\n" +
                        help.setting)
        ->type_name("SETTING");
}

const CLI::App& add_vie1(CLI::App& program, vie1_request& request) {
    CLI::App& command =
        *program.add_subcommand("vie1", "Solve the first kind: integral from 0 to t of K(t - s) y(s) ds = g(t).");
    add_solve_options(command, request,
                      {columns_of_integral_equations,
                       "\nWithout --continuous the polynomials of adjacent steps need not join.",
                       "The default 3:1,2,3 is for smooth samples: quadratic polynomials over 9\n"
                       "spacings, third order, stable in both forms. It reads a third of the\n"
                       "samples, and the program warns if the others contradict them. 1:1 is the\n"
                       "rectangle rule, for few or noisy samples: noise in g is differentiated. It\n"
                       "reads every sample except the first of g and the last of K.",
                       example_of_vie1});
    CLI::Option& continuous = *command.add_flag("-c,--continuous");
    continuous.description("Make the solution continuous, starting at --y0. With many schemes\n"
                           "errors then grow from step to step, which causes a warning.");
    CLI::Option& y0 =
        *command.add_option("--y0", request.y0, "y(0), one value for each unknown: --y0=v1,v2,.. (--continuous only)");
    y0.type_name("VALUES");
    continuous.needs(&y0);
    y0.needs(&continuous);
    return command;
}

const CLI::App& add_vie2(CLI::App& program, solve_request& request) {
    CLI::App& command = *program.add_subcommand(
        "vie2", "Solve the second kind: y(t) = g(t) + integral from 0 to t of K(t - s) y(s) ds.");
    add_solve_options(command, request,
                      {columns_of_integral_equations, "",
                       "The default 2:0,1,2 is for smooth samples: quadratic polynomials over 4\n"
                       "spacings, third order. It reads half of the samples, and the program warns\n"
                       "if the others contradict them. 1:0,1 is the trapezoidal rule, for few or\n"
                       "rough samples. It reads every sample.",
                       example_of_vie2});
    return command;
}

const CLI::App& add_vide(CLI::App& program, vide_request& request) {
    CLI::App& command = *program.add_subcommand("vide", "Solve an integro-differential equation: y'(t) = a(t) y(t) + "
                                                        "g(t) + integral from 0 to t of K(t - s) y(s) ds, y(0) = y0.");
    add_solve_options(command, request,
                      {columns_of_vide, "",
                       "The default 2:0,1,2 is for smooth samples: cubic polynomials over 4\n"
                       "spacings, fourth order. It reads half of the samples, and the program warns\n"
                       "if the others contradict them. 1:0,1 is the trapezoidal rule, for few or\n"
                       "rough samples. It reads every sample.",
                       example_of_vide});
    command.add_option("--y0", request.y0, "y(0), one value for each unknown: --y0=v1,v2,..")
        ->required()
        ->type_name("VALUES");
    return command;
}

// CLI11 takes `--output= samples.csv` for `--output samples.csv`, which would overwrite the samples.
void require_values(std::span<char* const> arguments) {
    for (const std::string_view argument : arguments)
        if (argument.starts_with("--") && argument.find('=') == argument.size() - 1)
            throw bad_input(sentence("expected a value after ", in_quotes(argument)));
}

bool is_option(const std::string& argument) {
    return argument.size() > 1 && argument[0] == '-';
}

// The first argument that `app` does not know, an option before any other. The value of an unknown option is unknown
// too.
std::optional<std::string> unknown_argument(const CLI::App& app) {
    std::vector<std::string> unknown = app.remaining();
    std::erase(unknown, "--");
    if (unknown.empty())
        return std::nullopt;
    const auto option = std::find_if(unknown.begin(), unknown.end(), is_option);
    return option == unknown.end() ? unknown.front() : *option;
}

std::string unknown_option(const std::string& argument) {
    return sentence("unknown option ", in_quotes(argument.substr(0, argument.find('='))));
}

// What was wrong with the arguments of a command. An unknown argument is reported before other errors, because it may
// be their cause: a misspelled option is also missing.
std::string fault_of(const CLI::App& command, const CLI::ParseError& error) {
    const std::optional<std::string> unknown = unknown_argument(command);
    if (!unknown)
        return error.what();
    if (is_option(*unknown))
        return unknown_option(*unknown);
    const bool has_input = command.get_option_no_throw("input") != nullptr;
    return sentence(has_input ? "expected one input file, got also " : "expected no argument, got ",
                    in_quotes(*unknown));
}

// The message on arguments that were not parsed, with the help to read.
std::string message_of(const CLI::ParseError& error, const CLI::App& program) {
    const std::vector<CLI::App*> commands = program.get_subcommands();
    const std::optional<std::string> unknown = unknown_argument(program);
    if (unknown && !is_option(*unknown))
        return sentence("no command ", in_quotes(*unknown), ": expected ", command_names, "; see 'quenta --help'");
    if (unknown)
        return sentence(unknown_option(*unknown), commands.empty() ? "" : " before the command",
                        "; see 'quenta --help'");
    if (commands.empty())
        return sentence(error.what(), "; see 'quenta --help'");
    const CLI::App& command = *commands.front();
    return sentence(fault_of(command, error), "; see 'quenta ", command.get_name(), " --help'");
}

// Returns the text to print if the arguments ask for the help or the version.
std::optional<std::string> parse(CLI::App& program, int argc, char** argv) {
    require_values(std::span(argv, static_cast<std::size_t>(argc)));
    try {
        program.parse(argc, argv);
    } catch (const CLI::Success& request) {
        std::ostringstream text;
        program.exit(request, text, text);
        return text.str();
    } catch (const CLI::ParseError& error) {
        throw bad_input(message_of(error, program));
    }
    return std::nullopt;
}

} // namespace

int run_command_line(int argc, char** argv) {
    CLI::App program(
        "Solves linear Volterra equations with a convolution kernel, and systems of them, from samples in CSV files.",
        "quenta");
    program.footer(std::string(exit_codes) + example_of_vie2);
    program.set_version_flag("--version", "quenta " QUENTA_VERSION, "Print the version and exit");
    program.get_formatter()->column_width(27);
    program.require_subcommand(0, 1);

    vie1_request vie1{{"-", default_first_kind_setting, "-", std::nullopt}, std::nullopt};
    solve_request vie2{"-", default_setting, "-", std::nullopt};
    vide_request vide{{"-", default_setting, "-", std::nullopt}, ""};
    const CLI::App& vie1_command = add_vie1(program, vie1);
    const CLI::App& vie2_command = add_vie2(program, vie2);
    const CLI::App& vide_command = add_vide(program, vide);
    program.add_subcommand("settings", "List the collocation schemes.")
        ->footer(std::string(about_the_table) + example_of_settings);

    if (const std::optional<std::string> text = parse(program, argc, argv))
        return print(*text);
    if (program.get_subcommands().empty())
        throw bad_input(sentence("expected a command: ", command_names, "; see 'quenta --help'"));
    if (vie1_command.parsed())
        return run_vie1(vie1);
    if (vie2_command.parsed())
        return run_vie2(vie2);
    return vide_command.parsed() ? run_vide(vide) : run_settings();
}

} // namespace quenta_program
