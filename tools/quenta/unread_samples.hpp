// Which samples a setting reads, and whether the others agree with them.
//
// A step reads g and a at its nodes, and K at the lags between nodes: of all samples a setting reads 1/16 to all.
#pragma once

#include "settings_table.hpp"

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

namespace quenta_program {

// For each sample of the whole steps, the last one included, whether it is read.
std::vector<bool> read_at_nodes(const setting& chosen, std::size_t steps); // g and a
std::vector<bool> read_at_lags(const setting& chosen, std::size_t steps);  // K

// A sample that is not read may differ from the polynomial through its neighbours that are read by this part of the
// range of its column, times the sum of the absolute values of the polynomial's weights.
inline constexpr double unread_tolerance = 0.01;

struct unread_difference {
    std::size_t column, row;
    double part_of_range, allowed;
};

// Compares the samples that are not read with the polynomials through the nearest four that are read, two on each side.
// Those outside of all that are read, or where fewer than four are read, are compared with the nearest four of all. Of
// those that differ by more than the tolerance times the sum of the absolute weights, returns the one that differs
// most, in parts of its column's range.
std::optional<unread_difference> largest_difference(std::span<const std::vector<double>> columns,
                                                    const std::vector<bool>& is_read);

} // namespace quenta_program
