// The table of the collocation settings that the library supports.
#pragma once

#include "utility/subset_range.hpp"

#include <array>
#include <cstddef>
#include <cstdint>

namespace quenta {

inline constexpr int supported_setting_count = 56;
inline constexpr int max_nodes = 5;
inline constexpr int max_m = 4;

// One row: m, the denominator of the collocation parameters c_i = k_i / m, and the node indices k_i, which increase
// strictly within 0 .. m. They are stored as one list of ints, m first.
struct collocation_setting {
    std::array<std::int32_t, 1 + max_nodes> stored{};
    int stored_length = 0;

    constexpr int m() const { return stored[0]; }
    constexpr int count() const { return stored_length - 1; }
    constexpr int node_index(int i) const { return stored[static_cast<std::size_t>(1 + i)]; }
};

// For m = 1, 2, 3, 4, every non-empty subset of {0, .., m}: shorter subsets first, and subsets of the same size in
// lexicographic order, which is the order of subset_range.
constexpr std::array<collocation_setting, supported_setting_count> make_supported_settings() {
    constexpr std::array<double, max_nodes> indices{0, 1, 2, 3, 4};
    std::array<collocation_setting, supported_setting_count> settings{};
    std::size_t row = 0;
    for (int m = 1; m <= max_m; ++m)
        for (int size = 1; size <= m + 1; ++size)
            for (subset_range subsets{size, indices.data(), std::uint64_t(m + 1)}; !subsets.empty();
                 subsets.pop_front()) {
                collocation_setting& setting = settings[row++];
                setting.stored[0] = m;
                setting.stored_length = 1;
                for (const double index : subsets.front())
                    setting.stored[static_cast<std::size_t>(setting.stored_length++)] = static_cast<int>(index);
            }
    require(row == settings.size());
    return settings;
}

inline constexpr std::array<collocation_setting, supported_setting_count> supported_settings =
    make_supported_settings();

// The row with this m and exactly these node indices, or `no_setting_row`. `list` is not read unless m and count
// match some row.
inline constexpr int no_setting_row = -1;
int find_setting_row(int m, const int* list, int count);

} // namespace quenta
