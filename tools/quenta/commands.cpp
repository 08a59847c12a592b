#include "commands.hpp"

#include "csv_table.hpp"
#include "equation_samples.hpp"
#include "first_kind_forcing.hpp"
#include "first_kind_kernel.hpp"
#include "first_kind_trial.hpp"
#include "messages.hpp"
#include "output_file.hpp"
#include "quenta_native.h"
#include "same_file.hpp"
#include "settings_table.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace quenta_program {

namespace {

struct solution {
    std::vector<double> y;            // y[sample][a]
    std::vector<double> coefficients; // coefficients[n][p][a] with p = 0 .. P, where p = P may be unused
    int steps;
};

void start_library() {
    if (quenta_rt_init() == 0)
        throw std::runtime_error("cannot initialize the library");
}

void append_column(std::string& line, double value) {
    line += ',';
    append_number(line, value);
}

void write_solution(output_file& file, const equation_samples& equation, const solution& found) {
    std::string line = "t";
    for (const std::string& name : equation.unknowns)
        line += ',' + name;
    file.write(line + '\n');
    for (std::size_t sample = 0; sample < equation.used; ++sample) {
        line.clear();
        append_number(line, equation.t[sample]);
        for (std::size_t a = 0; a < equation.dimension(); ++a)
            append_column(line, found.y[sample * equation.dimension() + a]);
        line += '\n';
        file.write(line);
    }
}

// Writes the coefficients of s^p, p = 0 .. powers - 1, for one unknown after the other.
void write_polynomials(output_file& file, const equation_samples& equation, const solution& found,
                       const setting& chosen, std::size_t powers) {
    const std::size_t stored_powers = chosen.nodes.size() + 1;
    const double h = equation.spacing * chosen.samples_per_step();
    std::string line = "step,t_start,h";
    for (const std::string& name : equation.unknowns)
        for (std::size_t p = 0; p < powers; ++p)
            line += sentence(",", name == "y" ? "" : name + "_", "a", p);
    file.write(line + '\n');
    for (int n = 0; n < found.steps; ++n) {
        line = sentence(n, ",", n * h, ",", h);
        for (std::size_t a = 0; a < equation.dimension(); ++a)
            for (std::size_t p = 0; p < powers; ++p) {
                const std::size_t row = static_cast<std::size_t>(n) * stored_powers + p;
                append_column(line, found.coefficients[row * equation.dimension() + a]);
            }
        line += '\n';
        file.write(line);
    }
}

// Standard streams have paths too: `quenta vie2 < samples.csv -o samples.csv` and
// `quenta vie2 samples.csv >> samples.csv` would overwrite the samples.
std::string real_path(const std::string& path, const char* standard_stream) {
    return path == "-" ? standard_stream : path;
}

[[noreturn]] void refuse_same_file(std::string_view both, const std::string& path) {
    throw bad_input(sentence("expected two different files for ", both, ", got ",
                             path == "-" ? "standard output" : in_quotes(path), " for both"));
}

// Throws bad_input if the output that `option` names would overwrite the samples. `> samples.csv` has emptied them
// before this process starts.
void require_output_beside_input(const std::string& input, std::string_view option, const std::string& output) {
    const std::string path = real_path(output, "/dev/stdout");
    if (!same_file(real_path(input, "/dev/stdin"), path))
        return;
    if (!same_file(path, "/dev/stdout"))
        refuse_same_file(sentence("the input and ", option), output);
    std::error_code failure;
    throw bad_input(sentence("standard output is the ",
                             input == "-" ? "file of standard input" : sentence("input file ", in_quotes(input)),
                             std::filesystem::file_size(path, failure) == 0 ? ", which the shell has emptied" : "",
                             "; expected another file after > or ", option));
}

// Throws bad_input if an output would overwrite the samples or the other output.
void require_different_files(const solve_request& request) {
    if (request.polynomials) {
        if (same_place(real_path(request.output, "/dev/stdout"), real_path(*request.polynomials, "/dev/stdout")))
            refuse_same_file("--output and --polynomials", request.output);
        require_output_beside_input(request.input, "--polynomials", *request.polynomials);
    }
    require_output_beside_input(request.input, "--output", request.output);
}

void warn_of_non_finite(const equation_samples& equation, const solution& found) {
    const auto first = std::find_if(found.y.begin(), found.y.end(), [](double value) { return !std::isfinite(value); });
    if (first == found.y.end())
        return;
    const auto index = static_cast<std::size_t>(first - found.y.begin());
    warning("the solution is not finite from t = ", equation.t[index / equation.dimension()],
            " on: ", equation.unknowns[index % equation.dimension()], " is ",
            std::isnan(*first) ? std::abs(*first) : *first, ", ",
            equation.reads_non_finite
                ? "because samples are not finite"
                : "although all samples are finite; the solution or its errors overflow, and a smaller spacing or "
                  "another setting may help");
}

void warn_of_first_kind(const equation_samples& equation, const setting& chosen, const solution& found) {
    if (const auto fault = fault_of_kernel(equation, chosen))
        warning(fault->start, ", and with the setting ", chosen.text(), " ", fault->effect, "; ", fault->cure);
    if (const auto fault = fault_of_forcing(equation, chosen, found.y))
        warning(*fault);
}

// Solves by `call(want_coefficients, found)`, which returns the status of the library, and writes the results. The
// polynomials are written with `powers` coefficients.
int solve_and_write(const solve_request& request, const setting& chosen, const equation_samples& equation,
                    std::size_t powers, equation_kind kind,
                    const std::function<int(bool want_coefficients, solution& found)>& call) {
    const bool with_polynomials = request.polynomials.has_value();
    // The outputs are opened first: a path that cannot be written is reported before the solve.
    output_file output(request.output);
    std::optional<output_file> polynomials;
    if (with_polynomials)
        polynomials.emplace(*request.polynomials);

    solution found{std::vector<double>(equation.g.size()), {}, 0};
    if (with_polynomials)
        found.coefficients.resize(static_cast<std::size_t>(equation.steps) * (chosen.nodes.size() + 1) *
                                  equation.dimension());
    const int status = call(with_polynomials, found);
    if (status == QUENTA_SINGULAR_BLOCK) {
        const auto fault = kind == equation_kind::first ? fault_of_kernel(equation, chosen) : std::nullopt;
        print_message(sentence("the linear system of a step is singular with the setting ", chosen.text(),
                               " and the spacing ", equation.spacing,
                               fault ? sentence(", and ", fault->start, "; ", fault->cure)
                                     : "; expected another setting or other samples"));
        return exit_singular_block;
    }
    if (status != QUENTA_SOLVED)
        throw std::logic_error(
            sentence("internal error: the library returned status ", status, " for checked samples"));

    warn_of_non_finite(equation, found);
    if (kind == equation_kind::first)
        warn_of_first_kind(equation, chosen, found);

    // Both outputs are complete before either is published, so that a failed write leaves the old files.
    if (polynomials) {
        write_polynomials(*polynomials, equation, found, chosen, powers);
        polynomials->complete();
    }
    write_solution(output, equation, found);
    output.complete();
    if (polynomials)
        polynomials->publish();
    output.publish();
    return exit_solved;
}

// Parses "v1,v2,..", one value for each unknown.
std::vector<double> read_initial_values(const std::string& text, std::size_t dimension) {
    std::vector<double> values;
    std::istringstream fields(text + ',');
    for (std::string field; std::getline(fields, field, ',');) {
        const std::optional<double> value = read_number(field);
        if (!value || !std::isfinite(*value))
            throw bad_input(sentence("--y0: expected finite numbers v1,v2,.., got ", in_quotes(field)));
        values.push_back(*value);
    }
    if (values.size() != dimension)
        throw bad_input(sentence("--y0: expected ", dimension, dimension == 1 ? " value" : " values",
                                 ", one for each unknown, got ", values.size()));
    return values;
}

} // namespace

int run_vie1(const vie1_request& request) {
    require_different_files(request);
    const setting chosen = parse_setting(request.setting);
    const bool continuous = request.y0.has_value();
    start_library();
    require_first_kind(chosen, continuous);
    const equation_samples equation = read_equation(request.input, equation_kind::first, chosen);
    std::vector<double> y0(equation.dimension());
    if (continuous)
        y0 = read_initial_values(*request.y0, equation.dimension());
    warn_of_growth(chosen, continuous);
    const std::size_t powers = chosen.nodes.size() + (continuous ? 1 : 0);
    return solve_and_write(
        request, chosen, equation, powers, equation_kind::first, [&](bool want_coefficients, solution& found) {
            return quenta_solve_vie1_vec(equation.g.data(), equation.K.data(), equation.samples(),
                                         static_cast<int>(equation.dimension()), y0.data(), equation.spacing, chosen.m,
                                         chosen.nodes.data(), chosen.count(), want_coefficients, continuous,
                                         found.y.data(), found.coefficients.data(), &found.steps);
        });
}

int run_vie2(const solve_request& request) {
    require_different_files(request);
    const setting chosen = parse_setting(request.setting);
    start_library();
    const equation_samples equation = read_equation(request.input, equation_kind::second, chosen);
    return solve_and_write(request, chosen, equation, chosen.nodes.size(), equation_kind::second,
                           [&](bool want_coefficients, solution& found) {
                               return quenta_solve_vie2_vec(equation.g.data(), equation.K.data(), equation.samples(),
                                                            static_cast<int>(equation.dimension()), equation.spacing,
                                                            chosen.m, chosen.nodes.data(), chosen.count(),
                                                            want_coefficients, found.y.data(),
                                                            found.coefficients.data(), &found.steps);
                           });
}

int run_vide(const vide_request& request) {
    require_different_files(request);
    const setting chosen = parse_setting(request.setting);
    start_library();
    const equation_samples equation = read_equation(request.input, equation_kind::integro_differential, chosen);
    const std::vector<double> y0 = read_initial_values(request.y0, equation.dimension());
    // The collocation polynomial is that of y', so y has one more power.
    const std::size_t powers = chosen.nodes.size() + 1;
    return solve_and_write(request, chosen, equation, powers, equation_kind::integro_differential,
                           [&](bool want_coefficients, solution& found) {
                               return quenta_solve_vide_vec(equation.g.data(), equation.K.data(), equation.a.data(),
                                                            equation.samples(), static_cast<int>(equation.dimension()),
                                                            y0.data(), equation.spacing, chosen.m, chosen.nodes.data(),
                                                            chosen.count(), want_coefficients, found.y.data(),
                                                            found.coefficients.data(), &found.steps);
                           });
}

int print(const std::string& text) {
    output_file output("-");
    output.write(text);
    output.complete();
    return exit_solved;
}

int run_settings() {
    return print(settings_listing());
}

} // namespace quenta_program
