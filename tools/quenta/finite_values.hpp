// Functions of the finite values in an array.
#pragma once

#include <algorithm>
#include <cmath>
#include <span>

namespace quenta_program {

inline bool all_finite(std::span<const double> values) {
    return std::all_of(values.begin(), values.end(), [](double value) { return std::isfinite(value); });
}

// The largest magnitude of the finite values; 0 if there are none.
inline double largest_magnitude(std::span<const double> values) {
    double largest = 0.0;
    for (const double value : values)
        if (std::isfinite(value))
            largest = std::max(largest, std::abs(value));
    return largest;
}

} // namespace quenta_program
