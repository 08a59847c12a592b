// Warnings about samples, printed before the equation is solved.
#pragma once

#include "csv_table.hpp"
#include "settings_table.hpp"

#include <cstddef>
#include <string_view>
#include <vector>

namespace quenta_program {

// The columns of g, of K or of a in a table.
struct sample_columns {
    std::string_view argument;
    std::size_t first, count;
    const std::vector<bool>& is_read; // for each sample of the whole steps
};

// Warns of the first NaN or infinity in each column among the samples that are read, and of the first among the others.
// Returns whether the setting reads any.
bool warn_of_non_finite(const csv_table& table, const sample_columns& checked, const setting& chosen);

// Warns if samples that are not read contradict those that are read.
void warn_of_differences(const csv_table& table, const sample_columns& checked, const setting& chosen, bool first_kind);

} // namespace quenta_program
