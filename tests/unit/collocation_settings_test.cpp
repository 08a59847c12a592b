#include "quenta_solvers/collocation_settings.hpp"

#include "quenta_solvers/quenta_native.h"
#include "reference/settings.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <vector>

namespace quenta {
namespace {

int find(int m, const std::vector<int>& list) {
    return find_setting_row(m, list.data(), static_cast<int>(list.size()));
}

TEST(collocation_settings, the_table_equals_the_reference_table) {
    const std::vector<reference::setting>& expected = reference::settings();
    ASSERT_EQ(expected.size(), 56u);
    ASSERT_EQ(supported_settings.size(), expected.size());
    for (std::size_t row = 0; row < expected.size(); ++row) {
        const collocation_setting& setting = supported_settings[row];
        EXPECT_EQ(setting.m(), expected[row].m) << "row " << row;
        std::vector<int> indices;
        for (int i = 0; i < setting.count(); ++i)
            indices.push_back(setting.node_index(i));
        EXPECT_EQ(indices, expected[row].indices) << "row " << row;
    }
}

TEST(collocation_settings, the_table_is_the_same_when_built_at_run_time) {
    const std::array<collocation_setting, supported_setting_count> built = make_supported_settings();
    for (std::size_t row = 0; row < built.size(); ++row) {
        EXPECT_EQ(built[row].stored, supported_settings[row].stored) << "row " << row;
        EXPECT_EQ(built[row].stored_length, supported_settings[row].stored_length) << "row " << row;
    }
}

TEST(collocation_settings, the_exported_list_has_six_ints_per_row_and_writes_no_more) {
    constexpr int untouched = INT_MIN;
    std::vector<int> settings(56 * 6 + 8, untouched);
    quenta_get_supported_settings(settings.data());
    std::vector<int> expected;
    for (const reference::setting& setting : reference::settings()) {
        std::vector<int> row{setting.m};
        row.insert(row.end(), setting.indices.begin(), setting.indices.end());
        row.resize(6, -1);
        expected.insert(expected.end(), row.begin(), row.end());
    }
    ASSERT_EQ(expected.size(), 336u);
    expected.resize(settings.size(), untouched);
    EXPECT_EQ(settings, expected);
}

TEST(collocation_settings, the_exported_rows_of_one_node_end_with_four_minus_ones) {
    std::vector<int> settings(336);
    quenta_get_supported_settings(settings.data());
    int one_node_rows = 0;
    for (std::size_t row = 0; row < 56; ++row) {
        if (reference::settings()[row].indices.size() != 1)
            continue;
        ++one_node_rows;
        for (std::size_t i = 2; i < 6; ++i)
            EXPECT_EQ(settings[6 * row + i], -1) << "row " << row;
    }
    EXPECT_EQ(one_node_rows, 2 + 3 + 4 + 5);
}

TEST(collocation_settings, every_row_is_found) {
    for (std::size_t row = 0; row < 56; ++row)
        EXPECT_EQ(find(reference::settings()[row].m, reference::settings()[row].indices), static_cast<int>(row));
    EXPECT_EQ(find(2, {1, 2}), 8);
}

TEST(collocation_settings, settings_with_equal_nodes_are_different_rows) {
    EXPECT_EQ(find(2, {1}), 4);
    EXPECT_EQ(find(4, {2}), 27);
}

TEST(collocation_settings, a_permuted_list_is_not_found) {
    int permutations = 0;
    for (const reference::setting& setting : reference::settings()) {
        std::vector<int> list = setting.indices;
        while (std::next_permutation(list.begin(), list.end())) {
            ++permutations;
            EXPECT_EQ(find(setting.m, list), no_setting_row);
        }
    }
    EXPECT_GT(permutations, 100);
    EXPECT_EQ(find(2, {2, 1}), no_setting_row);
}

TEST(collocation_settings, an_unsupported_setting_is_not_found) {
    EXPECT_EQ(find(5, {0}), no_setting_row);
    EXPECT_EQ(find(0, {0}), no_setting_row);
    EXPECT_EQ(find(-1, {0}), no_setting_row);
    EXPECT_EQ(find(INT_MAX, {0}), no_setting_row);
    EXPECT_EQ(find(INT_MIN, {0}), no_setting_row);
    EXPECT_EQ(find(1, {2}), no_setting_row);
    EXPECT_EQ(find(1, {-1}), no_setting_row);
    EXPECT_EQ(find(2, {1, 1}), no_setting_row);
    EXPECT_EQ(find(4, {0, 1, 2, 3, 5}), no_setting_row);
    EXPECT_EQ(find(4, {0, 1, 2, 3, 4, 4}), no_setting_row);
    EXPECT_EQ(find(4, {0, 1, 2, 3, 4, -1}), no_setting_row);
}

TEST(collocation_settings, the_list_is_not_read_if_no_row_has_its_count) {
    for (int m = -2; m <= 6; ++m)
        for (const int count : {0, -1, -5, INT_MIN, 6, 1000, INT_MAX}) {
            EXPECT_EQ(find_setting_row(m, nullptr, count), no_setting_row) << "m " << m << ", count " << count;
            const int list = 0;
            EXPECT_EQ(find_setting_row(m, &list, count), no_setting_row) << "m " << m << ", count " << count;
        }
    // No row with m = 1 has three nodes, and there is no row with m = 5.
    EXPECT_EQ(find_setting_row(1, nullptr, 3), no_setting_row);
    EXPECT_EQ(find_setting_row(5, nullptr, 1), no_setting_row);
}

} // namespace
} // namespace quenta
