// The types of fatal failures, and what they contain: the place, and for an access the index and the length.
#include "quenta_solvers/quenta_native.h"
#include "reference/settings.hpp"
#include "utility/failure.hpp"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

namespace quenta {

namespace {

int solve(int N, const reference::setting& row, bool want_coeffs = false) {
    quenta_rt_init();
    const std::vector<double> samples(std::size_t(std::max(N, 1)), 0.5);
    std::vector<double> out(samples.size());
    int n_steps = 0;
    return quenta_solve_vie2(samples.data(), samples.data(), N, 0.01, row.m, row.indices.data(),
                             int(row.indices.size()), want_coeffs ? 1 : 0, out.data(), nullptr, &n_steps);
}

template <class failure, class... arguments>
std::optional<failure> failure_of(const arguments&... request) {
    try {
        const int status = solve(request...);
        ADD_FAILURE() << "expected an exception, got status " << status;
    } catch (const failure& caught) {
        return caught;
    } catch (const std::exception& other) {
        ADD_FAILURE() << "expected another type of failure, got: " << other.what();
    }
    return {};
}

void expect_place(const fatal_failure& failure, const char* file) {
    ASSERT_NE(failure.where.file, nullptr);
    EXPECT_NE(std::strstr(failure.where.file, file), nullptr) << failure.where.file;
    EXPECT_NE(failure.where.file[0], '/') << "expected a path relative to the sources, got " << failure.where.file;
    EXPECT_GT(failure.where.line, 0);
}

TEST(failure_types, without_samples_every_row_throws_an_index_failure) {
    for (const reference::setting& row : reference::settings()) {
        const auto failure = failure_of<index_failure>(0, row);
        ASSERT_TRUE(failure);
        EXPECT_EQ(failure->length, 0u);
        expect_place(*failure, "collocation_blocks");
    }
    ASSERT_EQ(reference::settings().size(), 56u);
}

TEST(failure_types, a_negative_number_of_samples_throws_a_conversion_failure_for_every_row) {
    for (const reference::setting& row : reference::settings())
        for (const int N : {-1, -2, -17, -1000000, INT_MIN + 1}) {
            const auto failure = failure_of<conversion_failure>(N, row);
            ASSERT_TRUE(failure);
            EXPECT_STREQ(failure->what(), "Conversion positive overflow");
            expect_place(*failure, "vie2_body");
        }
}

TEST(failure_types, a_kernel_too_short_for_the_first_step_throws_an_index_failure_with_an_index_past_its_end) {
    int too_short = 0, long_enough = 0;
    for (const reference::setting& row : reference::settings()) {
        int largest = 0;
        for (const int k_i : row.indices)
            for (const int k_q : row.indices)
                largest = std::max(largest, k_i * (row.m - k_q));
        for (int N = 1; N <= row.m * row.m; ++N) {
            if (N > largest) {
                ++long_enough;
                EXPECT_EQ(solve(N, row), QUENTA_SOLVED);
                continue;
            }
            ++too_short;
            const auto failure = failure_of<index_failure>(N, row);
            ASSERT_TRUE(failure);
            EXPECT_EQ(failure->length, std::uint64_t(N));
            EXPECT_GE(failure->index, failure->length);
            EXPECT_LE(failure->index, std::uint64_t(largest));
            expect_place(*failure, "collocation_blocks");
        }
    }
    EXPECT_GT(too_short, 100);
    EXPECT_GT(long_enough, 100);
}

TEST(failure_types, a_null_array_for_wanted_coefficients_throws_an_index_failure) {
    for (const reference::setting& row : reference::settings())
        for (const int steps : {1, 2, 100}) {
            const auto failure = failure_of<index_failure>(steps * row.m * row.m + 1, row, true);
            ASSERT_TRUE(failure);
            EXPECT_EQ(failure->length, 0u);
            expect_place(*failure, "step_output");
        }
}

TEST(failure_types, are_distinct_and_derive_from_exception) {
    const code_position here = code_position::here();
    try {
        fail_index(7, 5, here);
    } catch (const std::exception& failure) {
        EXPECT_EQ(std::string{failure.what()}.find("index 7, length 5, at "), 0u);
        EXPECT_NE(dynamic_cast<const index_failure*>(&failure), nullptr);
    }
    try {
        fail_assertion("bad bit position", here);
    } catch (const std::exception& failure) {
        EXPECT_STREQ(failure.what(), "bad bit position");
        EXPECT_NE(dynamic_cast<const assertion_failure*>(&failure), nullptr);
        EXPECT_EQ(dynamic_cast<const index_failure*>(&failure), nullptr);
    }
}

} // namespace

} // namespace quenta
