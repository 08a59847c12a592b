// Which samples a setting reads, and whether the other samples agree with them.
//
// A step reads g and a at its nodes, and K at the lags between nodes: 1/16 of the samples or more, depending on the
// setting.
#pragma once

#include "settings_table.hpp"

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

namespace quenta_program {

// Whether each sample of the whole steps, including the last, is read.
std::vector<bool> read_at_nodes(const setting& chosen, std::size_t steps); // g and a
std::vector<bool> read_at_lags(const setting& chosen, std::size_t steps);  // K

// The tolerance for the difference between a sample and the polynomial through its neighbours, as a fraction of the
// range of the column. It is multiplied by Lambda, the sum of the absolute weights of the polynomial.
inline constexpr double unread_tolerance = 0.01;

struct unread_difference {
    std::size_t column, row;
    double part_of_range, allowed; // fractions of the range of the column
};

// Compares each sample that is not read with the cubic polynomial through the four nearest samples that are read, two
// on each side. A sample before the first or after the last that is read, and every sample if fewer than four are read,
// is compared with the polynomial through the four nearest samples, read or not. Of the samples that differ by more
// than the tolerance times Lambda, returns the one with the largest difference relative to the range of its column.
std::optional<unread_difference> largest_difference(std::span<const std::vector<double>> columns,
                                                    const std::vector<bool>& is_read);

} // namespace quenta_program
