// What the samples must be before the library may see them: on one uniform grid from 0, and neither too few nor too
// many for the setting.
#pragma once

#include "csv_table.hpp"
#include "settings_table.hpp"

#include <cstddef>
#include <string>

namespace quenta_program {

// The number of whole steps that so many samples of a system fill, at least 1. Throws bad_input if they fill none, or
// if a size passes what a 32-bit index reaches.
int whole_steps(const std::string& source, std::size_t samples, const setting& chosen, std::size_t dimension);

// Times may stray from the grid by this part of a spacing: enough for times printed with a few digits, and far too
// little for a row that is missing or stands twice.
inline constexpr double grid_tolerance = 1e-3;

// The spacing of the column `t` of a table with two rows or more, which must run from 0 in equal steps. Throws
// bad_input with the line where it does not.
double uniform_spacing(const csv_table& table);

} // namespace quenta_program
