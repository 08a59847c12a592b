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

// How many names are the letter and an index, or two.
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

// 0 if the header is that of a single equation. Otherwise it has room for all that it names of g and K.
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
    for (std::size_t r = 1; r <= dimension; ++r)
        names.push_back(sentence(std::string(1, letter), r));
    return names.empty() ? std::vector{std::string(1, letter)} : names;
}

// If there are more than `most`, one of them is missing from the header already, and the square of very many would
// only fill the memory.
std::vector<std::string> matrix_names(char letter, std::size_t dimension, std::size_t most) {
    std::vector<std::string> names;
    for (std::size_t r = 1; r <= dimension; ++r)
        for (std::size_t c = 1; c <= dimension; ++c) {
            if (dimension > 9 && names.size() > most)
                return names;
            names.push_back(sentence(std::string(1, letter), r, dimension > 9 ? "_" : "", c));
        }
    return names.empty() ? std::vector{std::string(1, letter)} : names;
}

// The names of an equation; of a term that is zero there are none.
struct equation_names {
    std::vector<std::string> unknowns, forcing, kernel, coefficient;

    equation_names() = default;
    equation_names(equation_kind kind, const std::vector<std::string>& header) {
        const std::size_t dimension = dimension_of_system(header);
        unknowns = vector_names('y', dimension);
        kernel = matrix_names('K', dimension, header.size());
        // A part of a term asks for all of it: with zeros in the place of the rest it would be another equation.
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

// Puts columns side by side: row after row. Without columns it is `width` zeros a row.
std::vector<double> interleaved(std::span<const std::vector<double>> columns, std::size_t rows, std::size_t width) {
    std::vector<double> values(rows * width);
    for (std::size_t c = 0; c < columns.size(); ++c)
        for (std::size_t i = 0; i < rows; ++i)
            values[i * width + c] = columns[c][i];
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
    const std::size_t solved =
        static_cast<std::size_t>(steps) * static_cast<std::size_t>(chosen.samples_per_step()) + 1;
    if (solved < rows)
        note("the last ", rows - solved, " of ", rows, " samples fill no whole step of ", chosen.samples_per_step(),
             " spacings and are left out");

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
            solved,
            reads_non_finite};
}

} // namespace quenta_program
