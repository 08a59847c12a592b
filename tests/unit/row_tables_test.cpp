#include "quenta_solvers/row_tables.hpp"

#include "reference/lagrange.hpp"
#include "reference/settings.hpp"
#include "support/bits.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <utility>
#include <vector>

namespace quenta {
namespace {

using quenta_tests::equal_bits;

using values = std::vector<double>;

// The constants of a row, in a type that is the same for all rows, so that the comparison is compiled only once.
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
    for (std::size_t j = 0; j < P; ++j) {
        lambda.push_back(reference::lagrange_coefficients(c, j));
        b.push_back(reference::quadrature_weight(lambda[j]));
        EXPECT_TRUE(equal_bits(lambda[j], tables.lambda[j])) << "j " << j;
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
            for (std::size_t j = 0; j < P; ++j)
                EXPECT_TRUE(equal_bits(reference::basis_value(lambda[j], c[i] * c[q]), rule.value[q][j]))
                    << "i " << i << ", q " << q << ", j " << j;
        }
    EXPECT_EQ(tables.present_samples, largest_lag + 1);

    ASSERT_EQ(tables.sample_value.size(), static_cast<std::size_t>(m * m + 1));
    for (std::size_t e = 0; e < tables.sample_value.size(); ++e)
        for (std::size_t j = 0; j < P; ++j)
            EXPECT_TRUE(
                equal_bits(reference::basis_value(lambda[j], double(e) / double(m * m)), tables.sample_value[e][j]))
                << "e " << e << ", j " << j;
}

template <int... rows>
void expect_all(std::integer_sequence<int, rows...>) {
    (expect_reference_tables(rows, constants_of<rows>()), ...);
}

TEST(row_tables, every_row_has_the_constants_of_the_reference) {
    expect_all(std::make_integer_sequence<int, supported_setting_count>{});
}

// The samples of a step are volatile, so that the compiler does not know them.
template <class tables, int S>
void expect_values_at_run_time(double (*sample)(int)) {
    for (int e = 0; e <= S; ++e) {
        volatile double s = sample(e);
        EXPECT_TRUE(equal_bits(listed(tables::sample_value[std::size_t(e)]), listed(tables::values_at(s))));
    }
}

TEST(row_tables, basis_values_are_the_same_at_build_time_and_at_run_time) {
    expect_values_at_run_time<continuous_tables<37>, 16>([](int e) { return double(e) * (1.0 / 16.0); });
    expect_values_at_run_time<integrated_tables<37>, 16>([](int e) { return double(e) / 16.0; });
    expect_values_at_run_time<continuous_tables<17>, 9>([](int e) { return double(e) * (1.0 / 9.0); });
    expect_values_at_run_time<integrated_tables<17>, 9>([](int e) { return double(e) / 9.0; });
}

TEST(row_tables, the_rule_of_two_nodes_equals_the_one_calculated_by_hand) {
    // m = 2, [0, 1], at c = 1/2: the point 0 has weight 0. Each basis polynomial has the integral 1/4.
    const auto& rule = row_tables<6>::present[1];
    EXPECT_EQ(rule.lag, (std::array{2, 1}));
    EXPECT_EQ(rule.weight[0], 0.0);
    EXPECT_EQ(rule.weight[1] * rule.value[1][0], 0.25);
    EXPECT_EQ(rule.weight[1] * rule.value[1][1], 0.25);
}

// ---- The continuous form ----

struct continuous_constants {
    std::vector<values> lambda, sample_value;
    std::vector<std::vector<values>> present;
    values end_value;
};

template <int row>
continuous_constants continuous_constants_of() {
    using tables = continuous_tables<row>;
    continuous_constants constants{
        listed_twice(tables::lambda), listed_twice(tables::sample_value), {}, listed(tables::end_value)};
    for (const auto& points : tables::present)
        constants.present.push_back(listed_twice(points));
    return constants;
}

// The basis polynomials computed at run time from the same nodes, which the compiler does not know.
template <int row>
std::vector<values> basis_at_run_time() {
    using tables = continuous_tables<row>;
    node_list<tables::P + 1> nodes{};
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        volatile double hidden = tables::nodes[i];
        nodes[i] = hidden;
    }
    return listed_twice(lagrange_basis(nodes));
}

void expect_reference_continuous_tables(int row, const continuous_constants& tables,
                                        const std::vector<values>& at_run_time) {
    SCOPED_TRACE(::testing::Message() << "row " << row);
    const reference::setting& setting = reference::settings()[static_cast<std::size_t>(row)];
    const values c = setting.nodes();
    values nodes = c;
    nodes.insert(nodes.begin(), 0.0);
    std::vector<values> lambda;
    for (std::size_t j = 0; j < nodes.size(); ++j)
        lambda.push_back(reference::lagrange_coefficients(nodes, j));
    const auto expect_values = [&](double s, const values& actual) {
        values expected;
        for (const values& basis : lambda)
            expected.push_back(reference::basis_value(basis, s));
        EXPECT_TRUE(equal_bits(expected, actual)) << "at " << s;
    };

    ASSERT_EQ(tables.lambda.size(), nodes.size());
    ASSERT_EQ(at_run_time.size(), nodes.size());
    for (std::size_t j = 0; j < nodes.size(); ++j) {
        EXPECT_TRUE(equal_bits(lambda[j], tables.lambda[j])) << "j " << j;
        EXPECT_TRUE(equal_bits(lambda[j], at_run_time[j])) << "j " << j << ", at run time";
    }
    ASSERT_EQ(tables.present.size(), c.size());
    for (std::size_t i = 0; i < c.size(); ++i) {
        ASSERT_EQ(tables.present[i].size(), c.size());
        for (std::size_t q = 0; q < c.size(); ++q)
            expect_values(c[i] * c[q], tables.present[i][q]);
    }
    const std::size_t S = static_cast<std::size_t>(setting.m * setting.m);
    ASSERT_EQ(tables.sample_value.size(), S + 1);
    for (std::size_t e = 0; e <= S; ++e)
        expect_values(double(e) * (1.0 / double(S)), tables.sample_value[e]);
    expect_values(1.0, tables.end_value);
}

template <int... rows>
void expect_all_continuous(std::integer_sequence<int, rows...>) {
    (expect_reference_continuous_tables(rows, continuous_constants_of<rows>(), basis_at_run_time<rows>()), ...);
}

TEST(continuous_tables, every_row_has_the_constants_of_the_reference_at_build_time_and_at_run_time) {
    expect_all_continuous(std::make_integer_sequence<int, supported_setting_count>{});
}

TEST(continuous_tables, a_repeated_node_makes_only_its_own_two_polynomials_infinite_or_nan) {
    // The nodes 0 and m = 2, [0, 1, 2]: the constant coefficient is 0 / 0, and some others divide a number by 0.
    const auto& lambda = continuous_tables<9>::lambda;
    for (const std::size_t repeated : {0, 1}) {
        EXPECT_TRUE(std::isnan(lambda[repeated][0]));
        EXPECT_TRUE(std::isinf(lambda[repeated][3]));
        EXPECT_TRUE(std::isnan(continuous_tables<9>::end_value[repeated]));
    }
    for (const std::size_t other : {2, 3})
        for (const double coefficient : lambda[other])
            EXPECT_TRUE(std::isfinite(coefficient));
    EXPECT_EQ(continuous_tables<9>::end_value[2], 0.0);
    EXPECT_EQ(continuous_tables<9>::end_value[3], 1.0);
}

TEST(continuous_tables, one_node_at_one_half_has_the_two_linear_basis_polynomials) {
    using tables = continuous_tables<4>; // 1 - 2 s and 2 s
    EXPECT_EQ(tables::lambda[0], (std::array{1.0, -2.0}));
    EXPECT_EQ(tables::lambda[1], (std::array{0.0, 2.0}));
    EXPECT_EQ(tables::present[0][0], (std::array{0.5, 0.5}));
    EXPECT_EQ(tables::end_value, (std::array{-1.0, 2.0}));
}

} // namespace
} // namespace quenta
