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
#include <functional>
#include <optional>
#include <span>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

namespace quenta_program {

namespace {

struct solution {
    std::vector<double> y;            // the components of a sample side by side
    std::vector<double> coefficients; // count + 1 slots a step, each with all components; the last may be unused
    int steps;
};

void start_library() {
    if (quenta_rt_init() == 0)
        throw std::runtime_error("the library could not be started");
}

void append_column(std::string& line, double value) {
    line += ',';
    append_number(line, value);
}

void write_solution(output_file& file, const equation_samples& solved, const solution& found) {
    std::string line = "t";
    for (const std::string& name : solved.unknowns)
        line += ',' + name;
    file.write(line + '\n');
    for (std::size_t i = 0; i < solved.solved; ++i) {
        line.clear();
        append_number(line, solved.t[i]);
        for (std::size_t r = 0; r < solved.dimension(); ++r)
            append_column(line, found.y[i * solved.dimension() + r]);
        line += '\n';
        file.write(line);
    }
}

// `powers` of the slots are written: one unknown after the other, its powers ascending.
void write_polynomials(output_file& file, const equation_samples& solved, const solution& found, const setting& chosen,
                       std::size_t powers) {
    const std::size_t slots = chosen.nodes.size() + 1;
    const double h = solved.spacing * chosen.samples_per_step();
    std::string line = "step,t_start,h";
    for (const std::string& name : solved.unknowns)
        for (std::size_t power = 0; power < powers; ++power)
            line += sentence(",", name == "y" ? "" : name + "_", "a", power);
    file.write(line + '\n');
    for (int step = 0; step < found.steps; ++step) {
        line = sentence(step, ",", step * h, ",", h);
        for (std::size_t r = 0; r < solved.dimension(); ++r)
            for (std::size_t power = 0; power < powers; ++power) {
                const std::size_t slot = static_cast<std::size_t>(step) * slots + power;
                append_column(line, found.coefficients[slot * solved.dimension() + r]);
            }
        line += '\n';
        file.write(line);
    }
}

// The path of a file, also of one behind a standard stream: `quenta vie2 < samples.csv -o samples.csv` and
// `quenta vie2 samples.csv >> samples.csv` would spoil the samples.
std::string real_path(const std::string& path, const char* standard_stream) {
    return path == "-" ? standard_stream : path;
}

// An output may replace neither the samples nor the other output.
void require_different_files(const solve_request& request) {
    const auto refuse = [](std::string_view both, const std::string& path) {
        throw bad_input(sentence(both, " would both be ",
                                 path == "-" ? "the file of a standard stream" : in_quotes(path),
                                 "; expected two different files"));
    };
    const std::string input = real_path(request.input, "/dev/stdin");
    const std::string output = real_path(request.output, "/dev/stdout");
    if (request.polynomials) {
        const std::string polynomials = real_path(*request.polynomials, "/dev/stdout");
        if (same_place(output, polynomials))
            refuse("the output of the solution and that of the polynomials", request.output);
        if (same_file(input, polynomials))
            refuse("the input and the output of the polynomials", *request.polynomials);
    }
    if (same_file(input, output))
        refuse("the input and the output", request.output);
}

// A solution with NaN or infinity is written all the same, but not without a warning.
void warn_of_non_finite(const equation_samples& solved, const solution& found) {
    const auto first = std::find_if(found.y.begin(), found.y.end(), [](double value) { return !std::isfinite(value); });
    if (first == found.y.end())
        return;
    const auto place = static_cast<std::size_t>(first - found.y.begin());
    warning("the solution is not finite from t = ", solved.t[place / solved.dimension()],
            " on: ", solved.unknowns[place % solved.dimension()], " is ",
            std::isnan(*first) ? std::abs(*first) : *first, ", ",
            solved.reads_non_finite
                ? "since samples are not finite"
                : "although all samples are; the solution, or its errors, grow past the largest number, and closer "
                  "samples or another setting may help");
}

void warn_of_first_kind(const equation_samples& solved, const setting& chosen, const solution& found) {
    if (const auto fault = fault_of_kernel(solved, chosen))
        warning(fault->start, ", and under the setting ", chosen.text(), " ", fault->effect, "; ", fault->cure);
    if (const auto fault = fault_of_forcing(solved, chosen, found.y))
        warning(*fault);
}

// Solves with `call(want_coefficients, found)`, which returns the library's status, and writes the results.
int solve_and_write(const solve_request& request, const setting& chosen, const equation_samples& posed,
                    std::size_t powers, equation_kind kind,
                    const std::function<int(bool want_coefficients, solution& found)>& call) {
    const bool with_polynomials = request.polynomials.has_value();
    // Opened before the work, so that a path that cannot be written costs no waiting.
    output_file output(request.output);
    std::optional<output_file> polynomials;
    if (with_polynomials)
        polynomials.emplace(*request.polynomials);

    solution found{std::vector<double>(posed.g.size()), {}, 0};
    if (with_polynomials)
        found.coefficients.resize(static_cast<std::size_t>(posed.steps) * (chosen.nodes.size() + 1) *
                                  posed.dimension());
    const int status = call(with_polynomials, found);
    if (status == QUENTA_SINGULAR_BLOCK) {
        const auto fault = kind == equation_kind::first ? fault_of_kernel(posed, chosen) : std::nullopt;
        complain(sentence("the equation of a step is singular under the setting ", chosen.text(), " at the spacing ",
                          posed.spacing,
                          fault ? sentence(", and ", fault->start, "; ", fault->cure)
                                : "; expected another setting or other samples"));
        return exit_singular_block;
    }
    if (status != QUENTA_SOLVED)
        throw std::logic_error(sentence("the library refused checked input with status ", status));

    warn_of_non_finite(posed, found);
    if (kind == equation_kind::first)
        warn_of_first_kind(posed, chosen, found);

    // All is written out before anything takes its place, and a file takes it after the stream that may still fail.
    if (polynomials) {
        write_polynomials(*polynomials, posed, found, chosen, powers);
        polynomials->complete();
    }
    write_solution(output, posed, found);
    output.complete();
    if (polynomials)
        polynomials->publish();
    output.publish();
    return exit_solved;
}

// Reads "v1,v2,..": one value for each unknown.
std::vector<double> read_initial_values(const std::string& text, std::size_t dimension) {
    std::vector<double> values;
    std::istringstream fields(text + ',');
    for (std::string field; std::getline(fields, field, ',');) {
        const std::optional<double> value = read_number(field);
        if (!value || !std::isfinite(*value))
            throw bad_input(sentence("--y0 holds ", in_quotes(field), "; expected finite numbers v1,v2,.."));
        values.push_back(*value);
    }
    if (values.size() != dimension)
        throw bad_input(sentence("--y0 holds ", values.size(), values.size() == 1 ? " value" : " values", "; expected ",
                                 dimension, ", one for each unknown"));
    return values;
}

} // namespace

int run_vie1(const vie1_request& request) {
    require_different_files(request);
    const setting chosen = parse_setting(request.setting);
    const bool continuous = request.y0.has_value();
    start_library();
    require_first_kind(chosen, continuous);
    const equation_samples posed = read_equation(request.input, equation_kind::first, chosen);
    std::vector<double> y0(posed.dimension());
    if (continuous)
        y0 = read_initial_values(*request.y0, posed.dimension());
    warn_of_growth(chosen, continuous);
    const std::size_t powers = chosen.nodes.size() + (continuous ? 1 : 0);
    return solve_and_write(
        request, chosen, posed, powers, equation_kind::first, [&](bool want_coefficients, solution& found) {
            return quenta_solve_vie1_vec(posed.g.data(), posed.K.data(), posed.samples(),
                                         static_cast<int>(posed.dimension()), y0.data(), posed.spacing, chosen.m,
                                         chosen.nodes.data(), chosen.count(), want_coefficients, continuous,
                                         found.y.data(), found.coefficients.data(), &found.steps);
        });
}

int run_vie2(const solve_request& request) {
    require_different_files(request);
    const setting chosen = parse_setting(request.setting);
    start_library();
    const equation_samples posed = read_equation(request.input, equation_kind::second, chosen);
    return solve_and_write(request, chosen, posed, chosen.nodes.size(), equation_kind::second,
                           [&](bool want_coefficients, solution& found) {
                               return quenta_solve_vie2_vec(
                                   posed.g.data(), posed.K.data(), posed.samples(), static_cast<int>(posed.dimension()),
                                   posed.spacing, chosen.m, chosen.nodes.data(), chosen.count(), want_coefficients,
                                   found.y.data(), found.coefficients.data(), &found.steps);
                           });
}

int run_vide(const vide_request& request) {
    require_different_files(request);
    const setting chosen = parse_setting(request.setting);
    start_library();
    const equation_samples posed = read_equation(request.input, equation_kind::integro_differential, chosen);
    const std::vector<double> y0 = read_initial_values(request.y0, posed.dimension());
    // The polynomials of the solution are the integrals of those through the nodes.
    const std::size_t powers = chosen.nodes.size() + 1;
    return solve_and_write(request, chosen, posed, powers, equation_kind::integro_differential,
                           [&](bool want_coefficients, solution& found) {
                               return quenta_solve_vide_vec(posed.g.data(), posed.K.data(), posed.a.data(),
                                                            posed.samples(), static_cast<int>(posed.dimension()),
                                                            y0.data(), posed.spacing, chosen.m, chosen.nodes.data(),
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
