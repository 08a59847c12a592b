// quenta_get_supported_settings writes the whole table and nothing else. The library need not be started.
#include "quenta_native.h"
#include "reference/settings.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>

namespace {

TEST(settings_table, has_six_ints_per_row_and_nothing_is_written_outside_it) {
    constexpr int canary = 424242;
    std::array<int, 336 + 16> settings;
    settings.fill(canary);
    quenta_get_supported_settings(settings.data() + 8);
    EXPECT_EQ(std::count(settings.begin(), settings.begin() + 8, canary), 8);
    EXPECT_EQ(std::count(settings.end() - 8, settings.end(), canary), 8);

    ASSERT_EQ(reference::settings().size(), std::size_t(quenta_num_supported_settings()));
    const int* written = settings.data() + 8;
    for (const reference::setting& setting : reference::settings()) {
        std::vector<int> expected{setting.m};
        expected.insert(expected.end(), setting.indices.begin(), setting.indices.end());
        expected.resize(6, -1);
        EXPECT_EQ(expected, std::vector<int>(written, written + 6));
        written += 6;
    }
}

} // namespace
