#include "commands.hpp"

#include "csv_table.hpp"
#include "equation_samples.hpp"
#include "first_kind_trial.hpp"
#include "messages.hpp"
#include "output_file.hpp"
#include "quenta_native.h"
#include "settings_table.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <filesystem>
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

bool same_place(const std::string& one, const std::string& other) {
    if (one == "-" || other == "-")
        return one == other;
    const auto place = [](const std::string& path) {
        return std::filesystem::weakly_canonical(std::filesystem::absolute(path));
    };
    return place(one) == place(other);
}

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

void require_two_places(const solve_request& request) {
    if (!request.polynomials.empty() && same_place(request.polynomials, request.output))
        throw bad_input(sentence("the solution and the polynomials would both go to ", in_quotes(request.output),
                                 "; expected two different places"));
}

// Solves with `call(want_coefficients, found)`, which returns the library's status, and writes the results.
template <class library_call>
int solve_and_write(const solve_request& request, const setting& chosen, const equation_samples& posed,
                    std::size_t powers, const library_call& call) {
    const bool with_polynomials = !request.polynomials.empty();
    // Opened before the work, so that a path that cannot be written costs no waiting.
    output_file output(request.output);
    std::optional<output_file> polynomials;
    if (with_polynomials)
        polynomials.emplace(request.polynomials);

    solution found{std::vector<double>(posed.g.size()), {}, 0};
    if (with_polynomials)
        found.coefficients.resize(static_cast<std::size_t>(posed.steps) * (chosen.nodes.size() + 1) *
                                  posed.dimension());
    const int status = call(with_polynomials, found);
    if (status == QUENTA_SINGULAR_BLOCK) {
        complain(sentence("the equation of a step is singular under the setting ", chosen.text(), " at the spacing ",
                          posed.spacing, "; expected another setting or other samples"));
        return exit_singular_block;
    }
    if (status != QUENTA_SOLVED)
        throw std::logic_error(sentence("the library refused checked input with status ", status));

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
    require_two_places(request);
    const setting chosen = parse_setting(request.setting);
    const bool continuous = request.y0.has_value();
    start_library();
    require_first_kind(chosen, continuous);
    const equation_samples posed = read_equation(request.input, equation_kind::integral, chosen);
    std::vector<double> y0(posed.dimension());
    if (continuous)
        y0 = read_initial_values(*request.y0, posed.dimension());
    warn_of_growth(chosen, continuous);
    const std::size_t powers = chosen.nodes.size() + (continuous ? 1 : 0);
    return solve_and_write(request, chosen, posed, powers, [&](bool want_coefficients, solution& found) {
        return quenta_solve_vie1_vec(posed.g.data(), posed.K.data(), posed.samples(),
                                     static_cast<int>(posed.dimension()), y0.data(), posed.spacing, chosen.m,
                                     chosen.nodes.data(), chosen.count(), want_coefficients, continuous, found.y.data(),
                                     found.coefficients.data(), &found.steps);
    });
}

int run_vie2(const solve_request& request) {
    require_two_places(request);
    const setting chosen = parse_setting(request.setting);
    start_library();
    const equation_samples posed = read_equation(request.input, equation_kind::integral, chosen);
    return solve_and_write(request, chosen, posed, chosen.nodes.size(), [&](bool want_coefficients, solution& found) {
        return quenta_solve_vie2_vec(posed.g.data(), posed.K.data(), posed.samples(),
                                     static_cast<int>(posed.dimension()), posed.spacing, chosen.m, chosen.nodes.data(),
                                     chosen.count(), want_coefficients, found.y.data(), found.coefficients.data(),
                                     &found.steps);
    });
}

int run_vide(const vide_request& request) {
    require_two_places(request);
    const setting chosen = parse_setting(request.setting);
    start_library();
    const equation_samples posed = read_equation(request.input, equation_kind::integro_differential, chosen);
    const std::vector<double> y0 = read_initial_values(request.y0, posed.dimension());
    // The polynomials of the solution are the integrals of those through the nodes.
    const std::size_t powers = chosen.nodes.size() + 1;
    return solve_and_write(request, chosen, posed, powers, [&](bool want_coefficients, solution& found) {
        return quenta_solve_vide_vec(posed.g.data(), posed.K.data(), posed.a.data(), posed.samples(),
                                     static_cast<int>(posed.dimension()), y0.data(), posed.spacing, chosen.m,
                                     chosen.nodes.data(), chosen.count(), want_coefficients, found.y.data(),
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
