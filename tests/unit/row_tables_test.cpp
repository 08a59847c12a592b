#include "quenta_solvers/row_tables.hpp"

#include "reference/lagrange.hpp"
#include "reference/settings.hpp"
#include "support/bits.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>
#include <vector>

namespace quenta {
namespace {

using quenta_tests::equal_bits;

template <int row>
void expect_reference_tables() {
    SCOPED_TRACE(::testing::Message() << "row " << row);
    using tables = row_tables<row>;
    const reference::setting& setting = reference::settings()[row];
    const std::size_t P = setting.indices.size();
    const int m = setting.m;
    const std::vector<double> c = setting.nodes();

    ASSERT_EQ(tables::m, m);
    ASSERT_EQ(tables::P, static_cast<int>(P));
    ASSERT_EQ(tables::S, m * m);
    EXPECT_EQ(std::vector<int>(tables::k.begin(), tables::k.end()), setting.indices);
    EXPECT_TRUE(equal_bits(c, tables::c));

    std::vector<std::vector<double>> lambda;
    std::vector<double> b;
    for (std::size_t l = 0; l < P; ++l) {
        lambda.push_back(reference::lagrange_coefficients(c, l));
        b.push_back(reference::quadrature_weight(lambda[l]));
        EXPECT_TRUE(equal_bits(lambda[l], tables::lambda[l])) << "l " << l;
    }
    EXPECT_TRUE(equal_bits(b, tables::b));

    int largest_lag = 0;
    for (std::size_t i = 0; i < P; ++i)
        for (std::size_t q = 0; q < P; ++q) {
            const int lag = setting.indices[i] * (m - setting.indices[q]);
            largest_lag = std::max(largest_lag, lag);
            EXPECT_EQ(tables::present[i].lag[q], lag) << "i " << i << ", q " << q;
            EXPECT_TRUE(equal_bits(c[i] * b[q], tables::present[i].weight[q])) << "i " << i << ", q " << q;
            for (std::size_t l = 0; l < P; ++l)
                EXPECT_TRUE(equal_bits(reference::basis_value(lambda[l], c[i] * c[q]), tables::present[i].value[q][l]))
                    << "i " << i << ", q " << q << ", l " << l;
        }
    EXPECT_EQ(tables::present_samples, largest_lag + 1);

    ASSERT_EQ(tables::sample_value.size(), static_cast<std::size_t>(m * m + 1));
    for (int e = 0; e <= m * m; ++e)
        for (std::size_t l = 0; l < P; ++l)
            EXPECT_TRUE(equal_bits(reference::basis_value(lambda[l], double(e) / double(m * m)),
                                   tables::sample_value[static_cast<std::size_t>(e)][l]))
                << "e " << e << ", l " << l;
}

template <int... rows>
void expect_all(std::integer_sequence<int, rows...>) {
    (expect_reference_tables<rows>(), ...);
}

TEST(row_tables, all_rows_have_the_reference_constants) {
    expect_all(std::make_integer_sequence<int, supported_setting_count>{});
}

TEST(row_tables, the_block_weights_of_two_nodes_can_be_checked_by_hand) {
    // m = 2, [0, 1], at c = 1/2: nothing from the node 0, and 1/4 of each basis function one spacing back.
    const auto& rule = row_tables<6>::present[1];
    EXPECT_EQ(rule.lag, (std::array{2, 1}));
    EXPECT_EQ(rule.weight[0], 0.0);
    EXPECT_EQ(rule.weight[1] * rule.value[1][0], 0.25);
    EXPECT_EQ(rule.weight[1] * rule.value[1][1], 0.25);
}

} // namespace
} // namespace quenta
