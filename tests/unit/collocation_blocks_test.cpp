// The kernel blocks of a collocation scheme, compared with entries calculated by hand for four settings.
#include "quenta_solvers/collocation_blocks.hpp"

#include "quenta_solvers/variants.hpp"
#include "support/bits.hpp"
#include "support/failures.hpp"
#include "support/random_data.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>
#include <vector>

namespace quenta {
namespace {

// Entry (a, b) of sample e. The matrix has no symmetry.
constexpr double sample(int e, int a, int b) {
    return 1.0 + 0.37 * e + 10.0 * a + 3.0 * b;
}

std::vector<double> kernel(int N, int D) {
    std::vector<double> K;
    for (int e = 0; e < N; ++e)
        for (int a = 0; a < D; ++a)
            for (int b = 0; b < D; ++b)
                K.push_back(sample(e, a, b));
    return K;
}

view<const double> view_of(const std::vector<double>& K) {
    return {K.size(), K.data()};
}

template <int row, class basis_type>
std::vector<double> block_of_basis(const basis_type& basis, const std::vector<double>& K, int D) {
    std::vector<double> block(std::size_t(row_tables<row>::P * basis_type::size * D * D), ieee::quiet_nan);
    diagonal_block(scheme_of_row<row>, basis, view_of(K), D, whole(block));
    return block;
}

template <int row>
std::vector<double> discontinuous_block(const std::vector<double>& K, int D) {
    return block_of_basis<row>(scheme_of_row<row>.nodes, K, D);
}

template <int row>
std::vector<double> continuous_block(const std::vector<double>& K, int D) {
    return block_of_basis<row>(scheme_of_row<row>.continuous, K, D);
}

// The block of a lag as the history receives it. A fixed and a run-time dimension must give the same bits.
template <int row, int D>
std::vector<double> provided_block(const std::vector<double>& K, double h, int lag) {
    const auto provided = [&]<class dimension>(dimension dim) {
        constexpr int P = row_tables<row>::P;
        lag_block_context<P, dimension> context{scheme_of_row<row>, view_of(K), h, dim};
        ToeplitzHistory history;
        history.init(lag + 1, P * D, P * D);
        lag_block<P, dimension>(&context, lag, history);
        const view<double> block = history.kernel_block(lag);
        return std::vector<double>(block.pointer, block.pointer + block.length);
    };
    const std::vector<double> block = provided(fixed_dimension<D>{});
    EXPECT_TRUE(quenta_tests::equal_bits(block, provided(run_time_dimension{D})));
    return block;
}

// A term of an entry that is calculated by hand: sample e, for some pair of components, times a weight.
struct weighted_sample {
    double weight;
    int e;
};
using entry = std::vector<weighted_sample>;
using table = std::vector<std::vector<entry>>; // [i][j]

// Expects the entries of the table for every pair of components.
void expect_entries(const table& expected, int D, const std::vector<double>& block) {
    const int P = int(expected.size()), columns = int(expected[0].size());
    ASSERT_EQ(block.size(), std::size_t(P * D * columns * D));
    for (int a = 0; a < D; ++a)
        for (int i = 0; i < P; ++i)
            for (int b = 0; b < D; ++b)
                for (int j = 0; j < columns; ++j) {
                    double value = 0.0;
                    for (const weighted_sample& term : expected[i][j])
                        value += term.weight * sample(term.e, a, b);
                    const double actual = block[(a * P + i) * columns * D + b * columns + j];
                    EXPECT_NEAR(value, actual, 1e-14 * (1.0 + std::fabs(value)))
                        << "row node " << i << ", column node " << j << ", components " << a << " and " << b
                        << ": expected " << quenta_tests::in_hexadecimal(value) << ", got "
                        << quenta_tests::in_hexadecimal(actual);
                }
}

constexpr int N = 40;

template <int row, int D>
void expect_lag_blocks(const table& at_lag_0) {
    constexpr double h = 0.75;
    const std::vector<double> K = kernel(N, D);
    constexpr int S = row_tables<row>::S;
    for (const int lag : {1, 2, 5}) {
        SCOPED_TRACE(::testing::Message() << "dimension " << D << ", lag " << lag);
        table expected = at_lag_0;
        for (auto& entries : expected)
            for (entry& each : entries)
                for (weighted_sample& term : each)
                    term = {h * term.weight, term.e + S * lag};
        expect_entries(expected, D, provided_block<row, D>(K, h, lag));
    }
}

TEST(diagonal_block, has_the_entries_calculated_by_hand_for_nodes_0_and_1) {
    for (const int D : {1, 2, 3})
        expect_entries({{{}, {}}, {{{0.5, 1}}, {{0.5, 0}}}}, D, discontinuous_block<2>(kernel(2, D), D));
}

TEST(diagonal_block, has_the_entries_calculated_by_hand_for_nodes_one_half_and_1) {
    for (const int D : {1, 2, 3})
        expect_entries({{{{0.75, 1}}, {{-0.25, 1}}}, {{{1.0, 2}}, {}}}, D, discontinuous_block<8>(kernel(3, D), D));
}

// The first column belongs to the carried value. The system of a step uses it with the opposite sign.
TEST(diagonal_block, has_the_entries_calculated_by_hand_for_nodes_one_half_and_1_with_a_carried_value) {
    for (const int D : {1, 2, 3})
        expect_entries({{{{0.5 * 0.375, 1}}, {{0.5 * 0.75, 1}}, {{0.5 * -0.125, 1}}}, {{}, {{1.0, 2}}, {}}}, D,
                       continuous_block<8>(kernel(3, D), D));
}

TEST(diagonal_block, has_the_entries_calculated_by_hand_for_node_one_half_with_a_carried_value) {
    for (const int D : {1, 2, 3})
        expect_entries({{{{0.25, 1}}, {{0.25, 1}}}}, D, continuous_block<4>(kernel(2, D), D));
}

TEST(diagonal_block, has_the_entries_calculated_by_hand_for_nodes_0_one_half_and_1) {
    for (const int D : {1, 2, 3})
        expect_entries({{{}, {}, {}},
                        {{{1.0 / 12, 2}, {0.125, 1}}, {{0.25, 1}, {1.0 / 12, 0}}, {{-0.125 / 3, 1}}},
                        {{{1.0 / 6, 4}}, {{2.0 / 3, 2}}, {{1.0 / 6, 0}}}},
                       D, discontinuous_block<9>(kernel(5, D), D));
}

TEST(diagonal_block, has_rows_of_exact_zeros_for_a_node_at_0) {
    const std::vector<double> block = discontinuous_block<9>(kernel(5, 1), 1);
    for (const std::size_t j : {0, 1, 2})
        EXPECT_TRUE(quenta_tests::equal_bits(0.0, block[j])) << "node " << j;
}

template <int row>
void expect_lag_blocks_of_all_dimensions(const table& at_lag_0) {
    expect_lag_blocks<row, 1>(at_lag_0);
    expect_lag_blocks<row, 2>(at_lag_0);
    expect_lag_blocks<row, 3>(at_lag_0);
}

TEST(sample_count, is_the_number_of_complete_samples) {
    const std::vector<double> K(18);
    EXPECT_EQ(sample_count({0, nullptr}, 1), 0);
    EXPECT_EQ(sample_count({17, K.data()}, 3), 1);
    EXPECT_EQ(sample_count({18, K.data()}, 3), 2);
    const auto negative_length = quenta_tests::failure_of<index_failure>([&] {
        sample_count({std::uint64_t(-1), K.data()}, 1);
    });
    ASSERT_TRUE(negative_length);
    EXPECT_EQ(negative_length->index, 0U);
    EXPECT_EQ(negative_length->length, 0U);
    EXPECT_EQ(sample_count({std::uint64_t(-1), K.data()}, 2), 0);
}

TEST(lag_block, has_the_entries_calculated_by_hand_for_nodes_0_and_1) {
    expect_lag_blocks_of_all_dimensions<2>({{{{0.5, 0}}, {{0.5, -1}}}, {{{0.5, 1}}, {{0.5, 0}}}});
}

TEST(lag_block, has_the_entries_calculated_by_hand_for_nodes_one_half_and_1) {
    expect_lag_blocks_of_all_dimensions<8>({{{{1.0, 0}}, {{0.0, -2}}}, {{{1.0, 2}}, {{0.0, 0}}}});
}

TEST(lag_block, has_the_entries_calculated_by_hand_for_nodes_0_one_half_and_1) {
    constexpr double w[] = {1.0 / 6, 2.0 / 3, 1.0 / 6};
    table expected(3);
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            expected[i].push_back({{w[j], 2 * (i - j)}});
    expect_lag_blocks_of_all_dimensions<9>(expected);
}

TEST(lag_block, has_a_nan_for_a_nan_sample_with_weight_zero) {
    std::vector<double> K = kernel(N, 1);
    K[4 * 3 - 2] = std::numeric_limits<double>::quiet_NaN();
    const std::vector<double> block = provided_block<8, 1>(K, 1.0, 3);
    EXPECT_TRUE(std::isnan(block[1]));
    for (const std::size_t other : {0, 2, 3})
        EXPECT_TRUE(std::isfinite(block[other])) << other;
}

TEST(diagonal_block, reads_no_sample_after_those_of_the_step) {
    EXPECT_NO_THROW(discontinuous_block<9>(kernel(5, 2), 2));
    EXPECT_ANY_THROW(discontinuous_block<9>(kernel(4, 2), 2));
}

// Nodes 0 and 3/4 read the samples 0, 12 and 3, in this order.
TEST(diagonal_block, reports_the_first_missing_sample_in_the_order_of_its_reads) {
    const auto failure_with = [](int samples, int D) {
        return quenta_tests::failure_of<index_failure>([&] { discontinuous_block<32>(kernel(samples, D), D); });
    };
    EXPECT_FALSE(failure_with(13, 1));
    for (const int samples : {1, 3, 4, 12}) {
        const auto failure = failure_with(samples, 2);
        ASSERT_TRUE(failure) << samples;
        EXPECT_EQ(failure->index, 12u * 4u);
        EXPECT_EQ(failure->length, unsigned(samples) * 4u);
    }
    const auto without_samples = failure_with(0, 2);
    ASSERT_TRUE(without_samples);
    EXPECT_EQ(without_samples->index, 0u);
    const std::vector<double> incomplete(12 * 4 + 3);
    const auto in_last_sample =
        quenta_tests::failure_of<index_failure>([&] { discontinuous_block<32>(incomplete, 2); });
    ASSERT_TRUE(in_last_sample);
    EXPECT_EQ(in_last_sample->index, incomplete.size());
}

TEST(lag_block, reads_no_sample_after_the_last_one_that_its_nodes_need) {
    EXPECT_NO_THROW((provided_block<9, 2>(kernel(9, 2), 1.0, 1)));
    EXPECT_ANY_THROW((provided_block<9, 2>(kernel(8, 2), 1.0, 1)));
    EXPECT_NO_THROW((provided_block<8, 1>(kernel(11, 1), 1.0, 2)));
    EXPECT_ANY_THROW((provided_block<8, 1>(kernel(10, 1), 1.0, 2)));
}

// Otherwise the comparisons with entries calculated by hand would accept a transposed block.
TEST(diagonal_block, differs_from_its_transpose) {
    const std::vector<double> block = discontinuous_block<4>(kernel(2, 2), 2);
    EXPECT_EQ(block, (std::vector{0.5 * sample(1, 0, 0), 0.5 * sample(1, 0, 1), //
                                  0.5 * sample(1, 1, 0), 0.5 * sample(1, 1, 1)}));
    EXPECT_NE(block[1], block[2]);
}

} // namespace
} // namespace quenta
