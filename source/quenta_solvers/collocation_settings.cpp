#include "quenta_solvers/collocation_settings.hpp"

#include "quenta_solvers/quenta_native.h"

#include <algorithm>

namespace quenta {

namespace {

consteval bool row_reads(int row, std::array<int, 6> stored) {
    const collocation_setting& setting = supported_settings[static_cast<std::size_t>(row)];
    std::array<int, 6> read{-1, -1, -1, -1, -1, -1};
    for (int i = 0; i < setting.stored_length; ++i)
        read[static_cast<std::size_t>(i)] = setting.stored[static_cast<std::size_t>(i)];
    return read == stored;
}

static_assert(row_reads(0, {1, 0, -1, -1, -1, -1}));
static_assert(row_reads(9, {2, 0, 1, 2, -1, -1}));
static_assert(row_reads(34, {4, 1, 2, -1, -1, -1}));
static_assert(row_reads(55, {4, 0, 1, 2, 3, 4}));

} // namespace

int find_setting_row(int m, const int* list, int count) {
    // No row has a count of 0 or below, so a null list is safe with these.
    for (int row = 0; row < supported_setting_count; ++row) {
        const collocation_setting& setting = supported_settings[static_cast<std::size_t>(row)];
        if (setting.m() == m && setting.count() == count && std::equal(list, list + count, &setting.stored[1]))
            return row;
    }
    return no_setting_row;
}

} // namespace quenta

void quenta_get_supported_settings(int* settings) {
    for (const quenta::collocation_setting& setting : quenta::supported_settings) {
        int* const end = std::copy_n(setting.stored.data(), setting.stored_length, settings);
        std::fill(end, settings + setting.stored.size(), -1);
        settings += setting.stored.size();
    }
}
