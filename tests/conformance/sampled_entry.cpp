// The code that runs before every sample-based solver: the order of its checks, and the row and the lengths that it
// passes to the implementation. The implementation here only records its arguments.
#include "quenta_solvers/sampled_entry.hpp"

#include "quenta_solvers/quenta_native.h"
#include "quenta_solvers/variants.hpp"
#include "reference/settings.hpp"

#include <gtest/gtest.h>

#include <climits>
#include <optional>

namespace quenta {

namespace {

struct entry_answer {
    int status;
    int n_steps;
    std::optional<sampled_sizes> call;
};

constexpr int untouched_steps = -77;

entry_answer enter(const sampled_request& request, refusal refuses = accept_all_settings, bool solved = true) {
    quenta_rt_init();
    entry_answer answer{-1, untouched_steps, {}};
    sampled_sizes sizes;
    answer.status = begin_sampled_call(request, refuses, sizes);
    if (answer.status == status_solved) {
        answer.call = sizes;
        answer.status = end_sampled_call(solved, 17, &answer.n_steps);
    }
    return answer;
}

constexpr int two_nodes[] = {0, 1};

TEST(sampled_entry, the_implementation_gets_the_row_of_its_setting) {
    const std::vector<reference::setting>& rows = reference::settings();
    ASSERT_EQ(rows.size(), 56u);
    for (int row = 0; row < 56; ++row) {
        const reference::setting& setting = rows[std::size_t(row)];
        const entry_answer answer = enter({100, 3, setting.m, setting.indices.data(), int(setting.indices.size())});
        ASSERT_EQ(answer.status, QUENTA_SOLVED) << row;
        EXPECT_EQ(answer.call->row, row);
    }
}

TEST(variants, every_row_has_one) {
    constexpr auto numbers = variants_of<0, supported_setting_count>([]<int row>() { return row; });
    ASSERT_EQ(numbers.size(), 56u);
    for (int row = 0; row < 56; ++row)
        EXPECT_EQ(numbers[std::size_t(row)], row);
}

TEST(variants, only_dimensions_1_to_8_have_their_own) {
    for (int D = 1; D <= 8; ++D)
        EXPECT_TRUE(has_own_variant(D)) << D;
    for (const int D : {9, 10, 16, 1000, 0, -1, -8, -1000})
        EXPECT_FALSE(has_own_variant(D)) << D;
}

TEST(sampled_entry, the_implementation_gets_the_lengths_of_its_arrays) {
    for (const int D : {1, 2, 3, 8, 9, 100}) {
        const entry_answer answer = enter({101, D, 2, two_nodes, 2});
        ASSERT_EQ(answer.status, QUENTA_SOLVED) << D;
        EXPECT_EQ(answer.call->vectors, 101u * unsigned(D));
        EXPECT_EQ(answer.call->matrices, 101u * unsigned(D * D));
        EXPECT_EQ(answer.call->coefficients, 3u * unsigned(D) * 25u);
    }
}

TEST(sampled_entry, with_dimension_0_all_arrays_are_empty) {
    const sampled_sizes sizes = enter({101, 0, 2, two_nodes, 2}).call.value();
    EXPECT_EQ(sizes.vectors, 0u);
    EXPECT_EQ(sizes.matrices, 0u);
    EXPECT_EQ(sizes.coefficients, 0u);
}

TEST(sampled_entry, a_negative_number_of_samples_gives_arrays_of_impossible_length) {
    const sampled_sizes sizes = enter({-5, 1, 1, two_nodes, 2}).call.value();
    EXPECT_EQ(sizes.vectors, std::uint64_t(-5));
    EXPECT_EQ(sizes.matrices, std::uint64_t(-5));
    EXPECT_EQ(sizes.coefficients, std::uint64_t(-18)); // 3 * (-6 / 1)
}

TEST(sampled_entry, a_null_coeffs_is_an_empty_array) {
    const sampled_sizes sizes = enter({101, 3, 2, two_nodes, 2}).call.value();
    double coeffs = 0.0;
    EXPECT_EQ(coefficient_view(nullptr, sizes).length, 0u);
    EXPECT_EQ(coefficient_view(&coeffs, sizes).length, sizes.coefficients);
    EXPECT_EQ(coefficient_view(&coeffs, sizes).pointer, &coeffs);
}

TEST(sampled_entry, n_steps_is_written_only_if_the_implementation_solved) {
    const entry_answer solved = enter({101, 3, 2, two_nodes, 2});
    EXPECT_EQ(solved.status, QUENTA_SOLVED);
    EXPECT_EQ(solved.n_steps, 17);
    const entry_answer singular = enter({101, 3, 2, two_nodes, 2}, accept_all_settings, false);
    EXPECT_EQ(singular.status, QUENTA_SINGULAR_BLOCK);
    EXPECT_EQ(singular.n_steps, untouched_steps);
    EXPECT_TRUE(singular.call.has_value());
}

void expect_refused(const sampled_request& request, int status) {
    const entry_answer answer = enter(request);
    EXPECT_EQ(answer.status, status) << "N = " << request.N << ", D = " << request.D << ", m = " << request.m
                                     << ", count = " << request.count;
    EXPECT_EQ(answer.n_steps, untouched_steps);
    EXPECT_FALSE(answer.call.has_value());
}

TEST(sampled_entry, more_matrix_samples_than_an_index_counts_are_refused) {
    expect_refused({1000, 2000, 1, two_nodes, 2}, QUENTA_SIZE_OVERFLOW);
    EXPECT_EQ(enter({INT_MAX, 1, 2, two_nodes, 2}).status, QUENTA_SOLVED); // exactly 2^31 - 1 samples
    expect_refused({1 << 29, 2, 4, two_nodes, 2}, QUENTA_SIZE_OVERFLOW);   // exactly 2^31
    expect_refused({1 << 29, -2, 4, two_nodes, 2}, QUENTA_SIZE_OVERFLOW);
    EXPECT_EQ(enter({(1 << 29) - 1, -2, 4, two_nodes, 2}).status, QUENTA_SOLVED);
}

TEST(sampled_entry, more_coefficients_than_an_index_counts_are_refused) {
    constexpr int widest[] = {0, 1, 2, 3, 4};
    EXPECT_EQ(enter({357913941 * 2, 1, 1, two_nodes, 2}).status, QUENTA_SOLVED); // 3 * 715827881 = 2^31 - 5
    expect_refused({357913941 * 2 + 2, 1, 1, two_nodes, 2}, QUENTA_SIZE_OVERFLOW);
    EXPECT_EQ(enter({INT_MAX, 1, 4, widest, 5}).status, QUENTA_SOLVED);
}

TEST(sampled_entry, a_block_with_more_entries_than_an_index_counts_is_refused) {
    EXPECT_EQ(enter({1, 15446, 1, two_nodes, 2}).status, QUENTA_SOLVED); // side 46338
    expect_refused({1, 15447, 1, two_nodes, 2}, QUENTA_SIZE_OVERFLOW);   // side 46341
    EXPECT_EQ(enter({1, -15446, 1, two_nodes, 2}).status, QUENTA_SOLVED);
    expect_refused({1, -15447, 1, two_nodes, 2}, QUENTA_SIZE_OVERFLOW);
    expect_refused({2, 1, 1, nullptr, 70000}, QUENTA_SIZE_OVERFLOW);
}

// In 64 bits these products would be small or negative.
TEST(sampled_entry, the_check_of_the_sizes_cannot_overflow) {
    expect_refused({INT_MAX, INT_MAX, 1, two_nodes, 2}, QUENTA_SIZE_OVERFLOW);
    expect_refused({INT_MAX, INT_MIN, 1, two_nodes, 2}, QUENTA_SIZE_OVERFLOW);
    expect_refused({4, INT_MIN, 2, two_nodes, 2}, QUENTA_SIZE_OVERFLOW); // N * D * D = 2^64
    expect_refused({8, INT_MIN, 2, nullptr, -1}, QUENTA_SIZE_OVERFLOW);  // 2^65; the width is 0
    expect_refused({1, INT_MIN, 2, nullptr, 1}, QUENTA_SIZE_OVERFLOW);
    expect_refused({0, INT_MIN, 2, nullptr, 1}, QUENTA_SIZE_OVERFLOW);       // only the width squared overflows: 2^64
    expect_refused({0, INT_MIN, 2, nullptr, INT_MAX}, QUENTA_SIZE_OVERFLOW); // 2^124
    expect_refused({-INT_MAX, INT_MIN, 1, nullptr, INT_MAX}, QUENTA_SIZE_OVERFLOW);
    expect_refused({0, INT_MIN, 2, nullptr, -1}, QUENTA_UNSUPPORTED_SETTING); // all products are 0
}

// Refusals that count their calls.
int refusal_calls = 0;
bool refuse_all(const sampled_request&) {
    ++refusal_calls;
    return true;
}
bool refuse_none(const sampled_request&) {
    ++refusal_calls;
    return false;
}

TEST(sampled_entry, settings_of_a_kind_are_refused_after_the_check_of_the_sizes_and_before_the_search) {
    refusal_calls = 0;
    const entry_answer overflow = enter({1000, 2000, 1, nullptr, 2}, refuse_all);
    EXPECT_EQ(overflow.status, QUENTA_SIZE_OVERFLOW);
    EXPECT_EQ(refusal_calls, 0);

    // The search would read the null list.
    const entry_answer refused = enter({100, 2, 1, nullptr, 2}, refuse_all);
    EXPECT_EQ(refused.status, QUENTA_UNSUPPORTED_SETTING);
    EXPECT_EQ(refused.n_steps, untouched_steps);
    EXPECT_FALSE(refused.call.has_value());
    EXPECT_EQ(refusal_calls, 1);

    EXPECT_EQ(enter({100, 2, 5, nullptr, 2}, refuse_none).status, QUENTA_UNSUPPORTED_SETTING);
    EXPECT_EQ(refusal_calls, 2);
    EXPECT_EQ(enter({100, 2, 1, two_nodes, 2}, refuse_none).status, QUENTA_SOLVED);
    EXPECT_EQ(refusal_calls, 3);
}

} // namespace

} // namespace quenta
