#include "equation_samples.hpp"

#include "csv_table.hpp"
#include "messages.hpp"
#include "sample_grid.hpp"
#include "sample_warnings.hpp"
#include "unread_samples.hpp"

#include <algorithm>
#include <span>
#include <string_view>

namespace quenta_program {

namespace {

constexpr std::string_view one_index = "0123456789", two_indices = "0123456789_";

// Counts the names that are the letter and one or two indices.
std::size_t count_indexed(const std::vector<std::string>& header, char letter, std::string_view index) {
    const auto is_indexed = [=](const std::string& name) {
        return name.size() > 1 && name[0] == letter && name[1] != '0' &&
               name.find_first_not_of(index, 1) == std::string::npos;
    };
    return static_cast<std::size_t>(std::count_if(header.begin(), header.end(), is_indexed));
}

bool has(const std::vector<std::string>& header, const char* name) {
    return std::find(header.begin(), header.end(), name) != header.end();
}

// The smallest D whose g and K have as many columns as the header names; 0 for a single equation.
std::size_t dimension_of_system(const std::vector<std::string>& header) {
    const std::size_t forcings = count_indexed(header, 'g', one_index);
    if (has(header, "g") || (forcings == 0 && has(header, "K")))
        return 0;
    const std::size_t kernels = count_indexed(header, 'K', two_indices);
    std::size_t dimension = forcings;
    while (dimension * dimension < kernels)
        ++dimension;
    return dimension;
}

std::vector<std::string> vector_names(char letter, std::size_t dimension) {
    std::vector<std::string> names;
    for (std::size_t a = 1; a <= dimension; ++a)
        names.push_back(sentence(std::string(1, letter), a));
    return names.empty() ? std::vector{std::string(1, letter)} : names;
}

// Stops after `most` names, the number of columns in the header: then at least one is missing already, and all D * D
// names might not fit into memory.
std::vector<std::string> matrix_names(char letter, std::size_t dimension, std::size_t most) {
    std::vector<std::string> names;
    for (std::size_t a = 1; a <= dimension; ++a)
        for (std::size_t b = 1; b <= dimension; ++b) {
            if (dimension > 9 && names.size() > most)
                return names;
            names.push_back(sentence(std::string(1, letter), a, dimension > 9 ? "_" : "", b));
        }
    return names.empty() ? std::vector{std::string(1, letter)} : names;
}

// The column names of an equation. A term without names is zero.
struct equation_names {
    std::vector<std::string> unknowns, forcing, kernel, coefficient;

    equation_names() = default;
    equation_names(equation_kind kind, const std::vector<std::string>& header) {
        const std::size_t dimension = dimension_of_system(header);
        unknowns = vector_names('y', dimension);
        kernel = matrix_names('K', dimension, header.size());
        // If one column of a term is present, all must be: a missing column is not taken as zero.
        if (kind != equation_kind::integro_differential || has(header, "g") ||
            count_indexed(header, 'g', one_index) > 0)
            forcing = vector_names('g', dimension);
        if (kind == equation_kind::integro_differential &&
            (has(header, "a") || count_indexed(header, 'a', two_indices) > 0))
            coefficient = matrix_names('a', dimension, header.size());
    }

    std::vector<std::string> columns() const {
        std::vector<std::string> names{"t"};
        for (const auto* const term : {&forcing, &kernel, &coefficient})
            names.insert(names.end(), term->begin(), term->end());
        return names;
    }
};

// values[row][column], with `width` columns; all zeros without columns.
std::vector<double> interleaved(std::span<const std::vector<double>> columns, std::size_t rows, std::size_t width) {
    std::vector<double> values(rows * width);
    for (std::size_t column = 0; column < columns.size(); ++column)
        for (std::size_t row = 0; row < rows; ++row)
            values[row * width + column] = columns[column][row];
    return values;
}

} // namespace

equation_samples read_equation(const std::string& input, equation_kind kind, const setting& chosen) {
    equation_names names;
    const csv_table table = read_csv_table(input, [&](const std::vector<std::string>& header) {
        names = equation_names(kind, header);
        return names.columns();
    });
    const std::size_t rows = table.rows(), dimension = names.unknowns.size();
    const int steps = whole_steps(table.source, rows, chosen, dimension);
    const double spacing = uniform_spacing(table);
    const std::size_t used = static_cast<std::size_t>(steps) * static_cast<std::size_t>(chosen.samples_per_step()) + 1;
    if (used < rows)
        note("the last ", rows - used, " of ", rows, " samples are not used, because they do not fill a step of ",
             chosen.samples_per_step(), " spacings");

    const std::span<const std::vector<double>> columns = table.columns;
    const std::size_t kernel = 1 + names.forcing.size(), coefficient = kernel + names.kernel.size();
    const std::vector<bool> at_nodes = read_at_nodes(chosen, static_cast<std::size_t>(steps));
    const std::vector<bool> at_lags = read_at_lags(chosen, static_cast<std::size_t>(steps));
    bool reads_non_finite = false;
    for (const sample_columns& argument : {sample_columns{"g", 1, names.forcing.size(), at_nodes},
                                           sample_columns{"K", kernel, names.kernel.size(), at_lags},
                                           sample_columns{"a", coefficient, names.coefficient.size(), at_nodes}}) {
        reads_non_finite |= warn_of_non_finite(table, argument, chosen);
        warn_of_differences(table, argument, chosen, kind == equation_kind::first);
    }
    const bool has_coefficient = kind == equation_kind::integro_differential;
    return {table.column("t"),
            interleaved(columns.subspan(1, names.forcing.size()), rows, dimension),
            interleaved(columns.subspan(kernel, names.kernel.size()), rows, dimension * dimension),
            interleaved(columns.subspan(coefficient), rows, has_coefficient ? dimension * dimension : 0),
            names.unknowns,
            spacing,
            steps,
            used,
            reads_non_finite};
}

} // namespace quenta_program
