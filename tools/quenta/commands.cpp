#include "commands.hpp"

#include "csv_table.hpp"
#include "messages.hpp"
#include "output_file.hpp"
#include "quenta_native.h"
#include "sample_grid.hpp"
#include "settings_table.hpp"

#include <cstddef>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <vector>

namespace quenta_program {

namespace {

// The solution of a scalar equation, in the shapes of the library.
struct scalar_solution {
    std::vector<double> y;            // one value a sample
    std::vector<double> coefficients; // count + 1 slots a step, the last of them unused
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

void write_solution(output_file& file, const std::vector<double>& t, const scalar_solution& solution,
                    std::size_t samples) {
    file.write("t,y\n");
    std::string line;
    for (std::size_t i = 0; i < samples; ++i) {
        line.clear();
        append_number(line, t[i]);
        line += ',';
        append_number(line, solution.y[i]);
        line += '\n';
        file.write(line);
    }
}

void write_polynomials(output_file& file, const scalar_solution& solution, const setting& chosen, double spacing) {
    const std::size_t count = chosen.nodes.size();
    const double h = spacing * chosen.samples_per_step();
    std::string line = "step,t_start,h";
    for (std::size_t power = 0; power < count; ++power)
        line += ",a" + std::to_string(power);
    file.write(line + '\n');
    for (int step = 0; step < solution.steps; ++step) {
        line = sentence(step, ",", step * h, ",", h);
        for (std::size_t power = 0; power < count; ++power) {
            line += ',';
            append_number(line, solution.coefficients[static_cast<std::size_t>(step) * (count + 1) + power]);
        }
        line += '\n';
        file.write(line);
    }
}

} // namespace

int run_vie2(const vie2_request& request) {
    const bool with_polynomials = !request.polynomials.empty();
    if (with_polynomials && same_place(request.polynomials, request.output))
        throw bad_input(sentence("the solution and the polynomials would both go to ", in_quotes(request.output),
                                 "; expected two different places"));
    const setting chosen = parse_setting(request.setting);
    const csv_table table = read_csv_table(request.input, {"t", "g", "K"});
    const int steps = whole_steps(table.source, table.rows(), chosen);
    const double spacing = uniform_spacing(table);
    const std::size_t solved =
        static_cast<std::size_t>(steps) * static_cast<std::size_t>(chosen.samples_per_step()) + 1;
    if (solved < table.rows())
        note("the last ", table.rows() - solved, " of ", table.rows(), " samples fill no whole step of ",
             chosen.samples_per_step(), " spacings and are left out");
    warn_of_non_finite(table, {"g", "K"});

    // Opened before the work, so that a path that cannot be written costs no waiting.
    output_file output(request.output);
    std::optional<output_file> polynomials;
    if (with_polynomials)
        polynomials.emplace(request.polynomials);

    start_library();
    scalar_solution solution{std::vector<double>(table.rows()), {}, 0};
    if (with_polynomials)
        solution.coefficients.resize(static_cast<std::size_t>(steps) * (chosen.nodes.size() + 1));
    const int status =
        quenta_solve_vie2(table.column("g").data(), table.column("K").data(), static_cast<int>(table.rows()), spacing,
                          chosen.m, chosen.nodes.data(), chosen.count(), with_polynomials, solution.y.data(),
                          solution.coefficients.data(), &solution.steps);
    if (status == QUENTA_SINGULAR_BLOCK) {
        complain(sentence("the equation of a step is singular under the setting ", chosen.text(), " at the spacing ",
                          spacing, "; expected another setting or other samples"));
        return exit_singular_block;
    }
    if (status != QUENTA_SOLVED)
        throw std::logic_error(sentence("the library refused checked input with status ", status));

    // All is written out before anything takes its place, and a file takes it after the stream that may still fail.
    if (polynomials) {
        write_polynomials(*polynomials, solution, chosen, spacing);
        polynomials->complete();
    }
    write_solution(output, table.column("t"), solution, solved);
    output.complete();
    if (polynomials)
        polynomials->publish();
    output.publish();
    return exit_solved;
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
