// The blocks of a scheme, against their entries worked out by hand from the nodes of four settings.
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

// One sample of a kernel of dimension D, without any symmetry.
constexpr double sample(int n, int a, int b) {
    return 1.0 + 0.37 * n + 10.0 * a + 3.0 * b;
}

std::vector<double> kernel(int N, int D) {
    std::vector<double> K;
    for (int n = 0; n < N; ++n)
        for (int a = 0; a < D; ++a)
            for (int b = 0; b < D; ++b)
                K.push_back(sample(n, a, b));
    return K;
}

view<const double> view_of(const std::vector<double>& K) {
    return {K.size(), K.data()};
}

template <int row, class basis>
std::vector<double> block_of_basis(const std::vector<double>& K, int D) {
    std::vector<double> block(std::size_t(row_tables<row>::P * basis::basis_size * D * D), ieee::quiet_nan);
    diagonal_block<row, basis>(view_of(K), D, whole(block));
    return block;
}

template <int row>
std::vector<double> discontinuous_block(const std::vector<double>& K, int D) {
    return block_of_basis<row, row_tables<row>>(K, D);
}

template <int row>
std::vector<double> continuous_block(const std::vector<double>& K, int D) {
    return block_of_basis<row, continuous_tables<row>>(K, D);
}

// Block `lag` as the history receives it, and both kinds of dimension must agree on it.
template <int row, int D>
std::vector<double> provided_block(const std::vector<double>& K, double h, int lag) {
    const auto provided = [&]<class dimension>(dimension dim) {
        lag_block_context<dimension> context{view_of(K), h, dim};
        ToeplitzHistory history;
        history.init(lag + 1, row_tables<row>::P * D, row_tables<row>::P * D);
        lag_block<row, dimension>(&context, lag, history);
        const view<double> block = history.kernel_block(lag);
        return std::vector<double>(block.pointer, block.pointer + block.length);
    };
    const std::vector<double> block = provided(fixed_dimension<D>{});
    EXPECT_TRUE(quenta_tests::equal_bits(block, provided(run_time_dimension{D})));
    return block;
}

// An entry by hand: the samples n of one component pair, weighted.
struct weighted_sample {
    double weight;
    int n;
};
using entry = std::vector<weighted_sample>;
using table = std::vector<std::vector<entry>>; // [i][l]

// `block` has, for every pair of components, the entries of the table.
void expect_entries(const table& expected, int D, const std::vector<double>& block) {
    const int P = int(expected.size()), L = int(expected[0].size());
    ASSERT_EQ(block.size(), std::size_t(P * D * L * D));
    for (int a = 0; a < D; ++a)
        for (int i = 0; i < P; ++i)
            for (int b = 0; b < D; ++b)
                for (int l = 0; l < L; ++l) {
                    double value = 0.0;
                    for (const weighted_sample& term : expected[i][l])
                        value += term.weight * sample(term.n, a, b);
                    const double actual = block[(a * P + i) * L * D + b * L + l];
                    EXPECT_NEAR(value, actual, 1e-14 * (1.0 + std::fabs(value)))
                        << "node " << i << " and " << l << ", components " << a << " and " << b << ": "
                        << quenta_tests::in_hexadecimal(value) << " and " << quenta_tests::in_hexadecimal(actual);
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
                    term = {h * term.weight, term.n + S * lag};
        expect_entries(expected, D, provided_block<row, D>(K, h, lag));
    }
}

TEST(diagonal_block, nodes_0_and_1) {
    for (const int D : {1, 2, 3})
        expect_entries({{{}, {}}, {{{0.5, 1}}, {{0.5, 0}}}}, D, discontinuous_block<2>(kernel(2, D), D));
}

TEST(diagonal_block, nodes_one_half_and_1) {
    for (const int D : {1, 2, 3})
        expect_entries({{{{0.75, 1}}, {{-0.25, 1}}}, {{{1.0, 2}}, {}}}, D, discontinuous_block<8>(kernel(3, D), D));
}

// The first column belongs to the carried value; the system takes it with its sign turned.
TEST(diagonal_block, nodes_one_half_and_1_with_the_value_carried_over) {
    for (const int D : {1, 2, 3})
        expect_entries({{{{0.5 * 0.375, 1}}, {{0.5 * 0.75, 1}}, {{0.5 * -0.125, 1}}}, {{}, {{1.0, 2}}, {}}}, D,
                       continuous_block<8>(kernel(3, D), D));
}

TEST(diagonal_block, node_one_half_with_the_value_carried_over) {
    for (const int D : {1, 2, 3})
        expect_entries({{{{0.25, 1}}, {{0.25, 1}}}}, D, continuous_block<4>(kernel(2, D), D));
}

TEST(diagonal_block, nodes_0_one_half_and_1) {
    for (const int D : {1, 2, 3})
        expect_entries({{{}, {}, {}},
                        {{{1.0 / 12, 2}, {0.125, 1}}, {{0.25, 1}, {1.0 / 12, 0}}, {{-0.125 / 3, 1}}},
                        {{{1.0 / 6, 4}}, {{2.0 / 3, 2}}, {{1.0 / 6, 0}}}},
                       D, discontinuous_block<9>(kernel(5, D), D));
}

TEST(diagonal_block, a_node_at_0_has_rows_of_exact_zeros) {
    const std::vector<double> block = discontinuous_block<9>(kernel(5, 1), 1);
    for (const std::size_t cell : {0, 1, 2})
        EXPECT_TRUE(quenta_tests::equal_bits(0.0, block[cell])) << cell;
}

template <int row>
void expect_lag_blocks_of_all_dimensions(const table& at_lag_0) {
    expect_lag_blocks<row, 1>(at_lag_0);
    expect_lag_blocks<row, 2>(at_lag_0);
    expect_lag_blocks<row, 3>(at_lag_0);
}

TEST(sample_count, is_what_the_length_gives_room_for) {
    const std::vector<double> K(18);
    EXPECT_EQ(sample_count({0, nullptr}, 1), 0);
    EXPECT_EQ(sample_count({17, K.data()}, 3), 1);
    EXPECT_EQ(sample_count({18, K.data()}, 3), 2);
    const auto less_than_none = quenta_tests::failure_of<index_failure>([&] {
        sample_count({std::uint64_t(-1), K.data()}, 1);
    });
    ASSERT_TRUE(less_than_none);
    EXPECT_EQ(less_than_none->index, 0U);
    EXPECT_EQ(less_than_none->length, 0U);
    EXPECT_EQ(sample_count({std::uint64_t(-1), K.data()}, 2), 0);
}

TEST(lag_block, nodes_0_and_1) {
    expect_lag_blocks_of_all_dimensions<2>({{{{0.5, 0}}, {{0.5, -1}}}, {{{0.5, 1}}, {{0.5, 0}}}});
}

TEST(lag_block, nodes_one_half_and_1) {
    expect_lag_blocks_of_all_dimensions<8>({{{{1.0, 0}}, {{0.0, -2}}}, {{{1.0, 2}}, {{0.0, 0}}}});
}

TEST(lag_block, nodes_0_one_half_and_1) {
    constexpr double w[] = {1.0 / 6, 2.0 / 3, 1.0 / 6};
    table expected(3);
    for (int i = 0; i < 3; ++i)
        for (int l = 0; l < 3; ++l)
            expected[i].push_back({{w[l], 2 * (i - l)}});
    expect_lag_blocks_of_all_dimensions<9>(expected);
}

TEST(lag_block, a_nan_under_a_weight_of_zero_is_a_nan) {
    std::vector<double> K = kernel(N, 1);
    K[4 * 3 - 2] = std::numeric_limits<double>::quiet_NaN();
    const std::vector<double> block = provided_block<8, 1>(K, 1.0, 3);
    EXPECT_TRUE(std::isnan(block[1]));
    for (const std::size_t other : {0, 2, 3})
        EXPECT_TRUE(std::isfinite(block[other])) << other;
}

TEST(diagonal_block, reads_no_sample_past_those_of_the_step) {
    EXPECT_NO_THROW(discontinuous_block<9>(kernel(5, 2), 2));
    EXPECT_ANY_THROW(discontinuous_block<9>(kernel(4, 2), 2));
}

// Nodes 0 and 3/4: of the samples 0, 3 and 12, the last is asked for before the one but last.
TEST(diagonal_block, of_missing_samples_the_failure_names_the_first_that_is_asked_for) {
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
    const auto without_any = failure_with(0, 2);
    ASSERT_TRUE(without_any);
    EXPECT_EQ(without_any->index, 0u);
    // A sample of which a part is there.
    const std::vector<double> cut(12 * 4 + 3);
    const auto within = quenta_tests::failure_of<index_failure>([&] { discontinuous_block<32>(cut, 2); });
    ASSERT_TRUE(within);
    EXPECT_EQ(within->index, cut.size());
}

TEST(lag_block, reads_no_sample_past_those_within_reach_of_its_nodes) {
    EXPECT_NO_THROW((provided_block<9, 2>(kernel(9, 2), 1.0, 1)));
    EXPECT_ANY_THROW((provided_block<9, 2>(kernel(8, 2), 1.0, 1)));
    EXPECT_NO_THROW((provided_block<8, 1>(kernel(11, 1), 1.0, 2)));
    EXPECT_ANY_THROW((provided_block<8, 1>(kernel(10, 1), 1.0, 2)));
}

// The comparison with the entries by hand is one that a builder of the transpose does not pass.
TEST(diagonal_block, the_transpose_is_another_block) {
    const std::vector<double> block = discontinuous_block<4>(kernel(2, 2), 2);
    EXPECT_EQ(block, (std::vector{0.5 * sample(1, 0, 0), 0.5 * sample(1, 0, 1), //
                                  0.5 * sample(1, 1, 0), 0.5 * sample(1, 1, 1)}));
    EXPECT_NE(block[1], block[2]);
}

} // namespace
} // namespace quenta
