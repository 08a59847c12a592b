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

using values = std::vector<double>;

// The constants of a row, in a form that does not depend on it: the comparison is compiled once and not for every row.
struct row_constants {
    int m, P, S, present_samples;
    std::vector<int> k;
    values c, b;
    std::vector<values> lambda;
    struct partial_rule {
        values weight;
        std::vector<values> value;
        std::vector<int> lag;
    };
    std::vector<partial_rule> present;
    std::vector<values> sample_value;
};

template <class array>
auto listed(const array& from) {
    return std::vector(from.begin(), from.end());
}

template <class arrays>
std::vector<values> listed_twice(const arrays& from) {
    std::vector<values> to;
    for (const auto& each : from)
        to.push_back(listed(each));
    return to;
}

template <int row>
row_constants constants_of() {
    using tables = row_tables<row>;
    row_constants constants{tables::m,
                            tables::P,
                            tables::S,
                            tables::present_samples,
                            listed(tables::k),
                            listed(tables::c),
                            listed(tables::b),
                            listed_twice(tables::lambda),
                            {},
                            listed_twice(tables::sample_value)};
    for (const auto& rule : tables::present)
        constants.present.push_back({listed(rule.weight), listed_twice(rule.value), listed(rule.lag)});
    return constants;
}

void expect_reference_tables(int row, const row_constants& tables) {
    SCOPED_TRACE(::testing::Message() << "row " << row);
    const reference::setting& setting = reference::settings()[static_cast<std::size_t>(row)];
    const std::size_t P = setting.indices.size();
    const int m = setting.m;
    const values c = setting.nodes();

    ASSERT_EQ(tables.m, m);
    ASSERT_EQ(tables.P, static_cast<int>(P));
    ASSERT_EQ(tables.S, m * m);
    EXPECT_EQ(tables.k, setting.indices);
    EXPECT_TRUE(equal_bits(c, tables.c));

    std::vector<values> lambda;
    values b;
    for (std::size_t l = 0; l < P; ++l) {
        lambda.push_back(reference::lagrange_coefficients(c, l));
        b.push_back(reference::quadrature_weight(lambda[l]));
        EXPECT_TRUE(equal_bits(lambda[l], tables.lambda[l])) << "l " << l;
    }
    EXPECT_TRUE(equal_bits(b, tables.b));

    int largest_lag = 0;
    ASSERT_EQ(tables.present.size(), P);
    for (std::size_t i = 0; i < P; ++i)
        for (std::size_t q = 0; q < P; ++q) {
            const row_constants::partial_rule& rule = tables.present[i];
            const int lag = setting.indices[i] * (m - setting.indices[q]);
            largest_lag = std::max(largest_lag, lag);
            EXPECT_EQ(rule.lag[q], lag) << "i " << i << ", q " << q;
            EXPECT_TRUE(equal_bits(c[i] * b[q], rule.weight[q])) << "i " << i << ", q " << q;
            for (std::size_t l = 0; l < P; ++l)
                EXPECT_TRUE(equal_bits(reference::basis_value(lambda[l], c[i] * c[q]), rule.value[q][l]))
                    << "i " << i << ", q " << q << ", l " << l;
        }
    EXPECT_EQ(tables.present_samples, largest_lag + 1);

    ASSERT_EQ(tables.sample_value.size(), static_cast<std::size_t>(m * m + 1));
    for (std::size_t e = 0; e < tables.sample_value.size(); ++e)
        for (std::size_t l = 0; l < P; ++l)
            EXPECT_TRUE(
                equal_bits(reference::basis_value(lambda[l], double(e) / double(m * m)), tables.sample_value[e][l]))
                << "e " << e << ", l " << l;
}

template <int... rows>
void expect_all(std::integer_sequence<int, rows...>) {
    (expect_reference_tables(rows, constants_of<rows>()), ...);
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
