// The two parameters of a solver variant that are known when the library is built: the row of the settings table, and
// the dimension.
#pragma once

#include "quenta_solvers/collocation_settings.hpp"
#include "utility/ieee.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace quenta {

// The dimension of a variant: fixed when the library is built, or known only at run time.
template <int dimension>
struct fixed_dimension {
    static constexpr int D = dimension;
};
struct run_time_dimension {
    int D;
};

// Dimensions 1 to 8 have variants of their own. A smaller number shortens the build during development.
#if !defined(QUENTA_OWN_DIMENSIONS)
#define QUENTA_OWN_DIMENSIONS 8
#endif
inline constexpr int most_own_dimensions = QUENTA_OWN_DIMENSIONS;
constexpr bool has_own_variant(int D) {
    return 1 <= D && D <= most_own_dimensions;
}

// variant.operator()<number>() for numbers first, first + 1, ..
template <int first, int count, class variant_of>
constexpr auto variants_of(const variant_of& variant) {
    return [&]<int... numbers>(std::integer_sequence<int, numbers...>) {
        return std::array{variant.template operator()<first + numbers>()...};
    }
    (std::make_integer_sequence<int, count>{});
}

// The variants of every row of the settings table, and of every dimension that has its own: D at D - 1.
template <class variant_of>
constexpr auto of_every_row(const variant_of& variant) {
    return variants_of<0, supported_setting_count>(variant);
}
template <class variant_of>
constexpr auto of_every_dimension(const variant_of& variant) {
    return variants_of<1, most_own_dimensions>(variant);
}

// `cells` D by D blocks. For a fixed dimension they are on the stack and hold NaN, so that a cell that was not filled
// is visible in the result. For a run-time dimension they are allocated if `needed`.
template <int cells, int D>
std::array<double, std::size_t{cells} * D * D> make_blocks(fixed_dimension<D>, bool = true) {
    std::array<double, std::size_t{cells} * D * D> blocks;
    blocks.fill(ieee::quiet_nan);
    return blocks;
}
template <int cells>
std::vector<double> make_blocks(run_time_dimension dimension, bool needed = true) {
    return std::vector<double>(needed ? std::size_t(cells * std::int64_t{dimension.D} * dimension.D) : 0);
}

} // namespace quenta
