// Checks the number and the times of the samples before the library is called.
#pragma once

#include "csv_table.hpp"
#include "settings_table.hpp"

#include <cstddef>
#include <string>

namespace quenta_program {

// The number of whole steps in the samples, at least 1. Throws bad_input if there are too few samples for one step, or
// if a size does not fit a 32-bit int.
int whole_steps(const std::string& source, std::size_t samples, const setting& chosen, std::size_t dimension);

// The largest deviation of a time from the uniform grid, in spacings. It allows for times that are printed with a few
// digits.
inline constexpr double grid_tolerance = 1e-3;

// The spacing of the column `t`, the first of a table of at least two rows. Throws bad_input, with the line, unless t
// starts at 0 and increases in equal steps.
double uniform_spacing(const csv_table& table);

} // namespace quenta_program
