// The two parameters of a solver variant that are known at build time: the row of the settings table, and the
// dimension.
#pragma once

#include "quenta_solvers/collocation_settings.hpp"
#include "utility/ieee.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace quenta {

// The dimension of a variant: fixed at build time, or known only at run time.
template <int dimension>
struct fixed_dimension {
    static constexpr int D = dimension;
};
struct run_time_dimension {
    int D;
};

// Dimensions 1 to max_own_dimension have variants of their own. A development build may have fewer of them, and only
// some rows of the settings table: it refuses the other settings.
#if defined(QUENTA_DEVELOPMENT_DIMENSIONS)
inline constexpr int max_own_dimension = QUENTA_DEVELOPMENT_DIMENSIONS;
#else
inline constexpr int max_own_dimension = 8;
#endif
constexpr bool has_own_variant(int D) {
    return 1 <= D && D <= max_own_dimension;
}

#if defined(QUENTA_DEVELOPMENT_ROWS)
constexpr bool is_built(int row) {
    for (const int built : {QUENTA_DEVELOPMENT_ROWS})
        if (row == built)
            return true;
    return false;
}
#else
constexpr bool is_built(int) {
    return true;
}
#endif

// variant.operator()<number>() for numbers first, first + 1, ..
template <int first, int count, class variant_of>
constexpr auto variants_of(const variant_of& variant) {
    return [&]<int... numbers>(std::integer_sequence<int, numbers...>) {
        return std::array{variant.template operator()<first + numbers>()...};
    }
    (std::make_integer_sequence<int, count>{});
}

// The functions variant.operator()<row>() of all rows of the settings table; null where the row is not built.
template <class variant_of>
constexpr auto of_every_row(const variant_of& variant) {
    using function = decltype(variant.template operator()<0>());
    return variants_of<0, supported_setting_count>([&]<int row>() -> function {
        if constexpr (is_built(row))
            return variant.template operator()<row>();
        else
            return nullptr;
    });
}

// The functions variant.operator()<D>() of all dimensions with their own variants, at D - 1.
template <class variant_of>
constexpr auto of_every_dimension(const variant_of& variant) {
    return variants_of<1, max_own_dimension>(variant);
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
