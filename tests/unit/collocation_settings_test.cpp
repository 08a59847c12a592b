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

TEST(collocation_settings, the_table_is_the_written_one) {
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

TEST(collocation_settings, the_table_is_the_same_when_it_is_made_at_run_time) {
    std::array<collocation_setting, supported_setting_count> made = make_supported_settings();
    for (std::size_t row = 0; row < made.size(); ++row) {
        EXPECT_EQ(made[row].stored, supported_settings[row].stored) << "row " << row;
        EXPECT_EQ(made[row].stored_length, supported_settings[row].stored_length) << "row " << row;
    }
}

TEST(collocation_settings, the_list_for_hosts_has_six_ints_a_row_and_writes_no_more) {
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

TEST(collocation_settings, one_node_rows_end_in_four_times_minus_one) {
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

TEST(collocation_settings, rows_with_the_same_parameters_stay_apart) {
    EXPECT_EQ(find(2, {1}), 4);
    EXPECT_EQ(find(4, {2}), 27);
}

TEST(collocation_settings, no_permuted_list_is_found) {
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

TEST(collocation_settings, what_is_no_row_is_not_found) {
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

TEST(collocation_settings, a_count_that_no_row_has_does_not_read_the_list) {
    for (int m = -2; m <= 6; ++m)
        for (const int count : {0, -1, -5, INT_MIN, 6, 1000, INT_MAX}) {
            EXPECT_EQ(find_setting_row(m, nullptr, count), no_setting_row) << m << ", " << count;
            const int list = 0;
            EXPECT_EQ(find_setting_row(m, &list, count), no_setting_row) << m << ", " << count;
        }
    // No row of m = 1 has three nodes, and none of m = 5 has any.
    EXPECT_EQ(find_setting_row(1, nullptr, 3), no_setting_row);
    EXPECT_EQ(find_setting_row(5, nullptr, 1), no_setting_row);
}

} // namespace
} // namespace quenta
