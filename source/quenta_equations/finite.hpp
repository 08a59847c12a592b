// Whether all numbers of an array are finite.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

namespace quenta {

inline bool are_finite(const double* values, std::int64_t count) {
    return std::all_of(values, values + count, [](double value) { return std::isfinite(value); });
}

inline bool are_finite(const std::vector<double>& values) {
    return are_finite(values.data(), std::int64_t(values.size()));
}

} // namespace quenta
