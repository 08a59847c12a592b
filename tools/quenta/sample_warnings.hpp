// Warnings about the samples of an equation, given before it is solved.
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
    const std::vector<bool>& is_read; // of the samples of the whole steps
};

// NaN and infinity are no error. Warns of the first such sample of each column that is read, and of the first that is
// not. Returns whether one is read.
bool warn_of_non_finite(const csv_table& table, const sample_columns& checked, const setting& chosen);

// Warns if samples that are not read contradict those that are.
void warn_of_differences(const csv_table& table, const sample_columns& checked, const setting& chosen, bool first_kind);

} // namespace quenta_program
