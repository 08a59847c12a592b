#include "quenta_solvers/lagrange.hpp"

#include "quenta_solvers/row_tables.hpp"
#include "reference/lagrange.hpp"
#include "reference/settings.hpp"
#include "support/bits.hpp"
#include "support/failures.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace quenta {
namespace {

using quenta_tests::equal_bits;
using quenta_tests::failure_of;

// The tables of a list of nodes, computed at build time.
template <std::size_t n>
struct built_tables {
    node_list<n> nodes;
    std::array<std::array<double, n>, n> basis;
    std::array<double, n> weights;
    std::array<std::array<double, n>, n> values_at_nodes; // [i][j]: L_j(x_i)

    explicit constexpr built_tables(const node_list<n>& list)
        : nodes{list}, basis{lagrange_basis(list)}, weights{}, values_at_nodes{} {
        for (std::size_t j = 0; j < n; ++j) {
            weights[j] = quadrature_weight(basis[j]);
            for (std::size_t i = 0; i < n; ++i)
                values_at_nodes[i][j] = basis_value(basis[j], list[i]);
        }
    }
};

// A scheme that has the node 0 then has it twice.
template <int row>
constexpr auto with_leading_zero() {
    constexpr auto& c = row_tables<row>::c;
    node_list<c.size() + 1> nodes{};
    for (std::size_t i = 0; i < c.size(); ++i)
        nodes[i + 1] = c[i];
    return nodes;
}

template <int row>
constexpr built_tables plain_tables{row_tables<row>::c};
template <int row>
constexpr built_tables continuous_tables{with_leading_zero<row>()};

// A copy whose values the compiler does not know.
template <std::size_t n>
node_list<n> unknown_nodes(const std::vector<double>& nodes) {
    node_list<n> copy{};
    for (std::size_t i = 0; i < n; ++i) {
        volatile double node = nodes[i];
        copy[i] = node;
    }
    return copy;
}

template <std::size_t n>
std::array<double, n> coefficients_at_run_time(const node_list<n>& nodes, std::uint64_t j) {
    if constexpr (n == 1)
        return {lagrange_coefficients(nodes, j)};
    else
        return lagrange_coefficients(nodes, j);
}

template <std::size_t n>
void expect_tables_of(const std::vector<double>& list, const built_tables<n>& built) {
    ASSERT_EQ(list.size(), n);
    EXPECT_TRUE(equal_bits(list, built.nodes));
    const node_list<n> nodes = unknown_nodes<n>(list);
    const auto basis = lagrange_basis(nodes);
    for (std::size_t j = 0; j < n; ++j) {
        SCOPED_TRACE(::testing::Message() << "j " << j);
        const std::vector<double> expected = reference::lagrange_coefficients(list, j);
        EXPECT_TRUE(equal_bits(expected, built.basis[j])) << "at build time";
        EXPECT_TRUE(equal_bits(expected, basis[j])) << "lagrange_basis at run time";
        EXPECT_TRUE(equal_bits(expected, coefficients_at_run_time(nodes, j))) << "lagrange_coefficients at run time";

        const double weight = reference::quadrature_weight(expected);
        EXPECT_TRUE(equal_bits(weight, built.weights[j])) << "weight at build time";
        EXPECT_TRUE(equal_bits(weight, quadrature_weight(basis[j]))) << "weight at run time";

        for (std::size_t i = 0; i < n; ++i) {
            const double value = reference::basis_value(expected, list[i]);
            EXPECT_TRUE(equal_bits(value, built.values_at_nodes[i][j])) << "value at build time, node " << i;
            EXPECT_TRUE(equal_bits(value, basis_value(basis[j], nodes[i]))) << "value at run time, node " << i;
        }
    }
}

template <int... rows>
void expect_tables_of_all_rows(std::integer_sequence<int, rows...>) {
    const auto expect_row = []<int row>(std::integral_constant<int, row>) {
        SCOPED_TRACE(::testing::Message() << "row " << row);
        std::vector<double> nodes = reference::settings()[row].nodes();
        expect_tables_of(nodes, plain_tables<row>);
        SCOPED_TRACE("with a leading zero");
        nodes.insert(nodes.begin(), 0.0);
        expect_tables_of(nodes, continuous_tables<row>);
    };
    (expect_row(std::integral_constant<int, rows>{}), ...);
}

TEST(lagrange, every_row_has_the_tables_of_the_reference_at_build_time_and_at_run_time) {
    expect_tables_of_all_rows(std::make_integer_sequence<int, supported_setting_count>{});
}

TEST(lagrange, the_basis_of_one_node_is_one) {
    EXPECT_TRUE(equal_bits(1.0, lagrange_coefficients(node_list<1>{0.0}, 0)));
    EXPECT_TRUE(equal_bits(1.0, lagrange_coefficients(node_list<1>{0.75}, 0)));
    EXPECT_TRUE(failure_of<assertion_failure>([] { lagrange_coefficients(node_list<1>{0.0}, 1); }));
}

TEST(lagrange, an_index_outside_the_list_raises_an_index_failure) {
    const std::uint64_t indices[] = {3, 4, UINT64_MAX};
    for (const std::uint64_t j : indices) {
        const auto raised = failure_of<index_failure>([&] { lagrange_coefficients(node_list<3>{0, 0.5, 1}, j); });
        ASSERT_TRUE(raised) << j;
        EXPECT_EQ(raised->index, j);
        EXPECT_EQ(raised->length, 3u);
    }
}

TEST(lagrange, coefficients_and_weights_equal_those_calculated_by_hand) {
    using list = std::vector<double>;
    EXPECT_TRUE(equal_bits(list{1, -1}, lagrange_coefficients(node_list<2>{0, 1}, 0)));
    EXPECT_TRUE(equal_bits(list{0, 1}, lagrange_coefficients(node_list<2>{0, 1}, 1))); // 0 + (-0) is +0
    EXPECT_TRUE(equal_bits(list{1, -2}, lagrange_coefficients(node_list<2>{0, 0.5}, 0)));
    EXPECT_TRUE(equal_bits(list{0, 2}, lagrange_coefficients(node_list<2>{0, 0.5}, 1)));
    EXPECT_TRUE(equal_bits(list{1, -3, 2}, lagrange_coefficients(node_list<3>{0, 0.5, 1}, 0)));
    EXPECT_TRUE(equal_bits(list{-0.0, 4, -4}, lagrange_coefficients(node_list<3>{0, 0.5, 1}, 1))); // +0 / -0.25
    EXPECT_TRUE(equal_bits(list{0, -1, 2}, lagrange_coefficients(node_list<3>{0, 0.5, 1}, 2)));

    EXPECT_TRUE(equal_bits(list{0, 1}, plain_tables<6>.weights));
    EXPECT_NEAR(plain_tables<9>.weights[0], 1.0 / 6.0, 1e-16);
    EXPECT_NEAR(plain_tables<9>.weights[1], 2.0 / 3.0, 2e-16);
    EXPECT_NEAR(plain_tables<9>.weights[2], 1.0 / 6.0, 1e-16);
}

TEST(lagrange, rows_with_equal_nodes_have_equal_bases) {
    EXPECT_TRUE(equal_bits(plain_tables<4>.nodes, plain_tables<27>.nodes));
    for (std::size_t j = 0; j < 2; ++j)
        EXPECT_TRUE(equal_bits(plain_tables<2>.basis[j], continuous_tables<1>.basis[j]));
}

TEST(lagrange, a_repeated_node_gives_infinity_and_nan) {
    for (std::uint64_t j = 0; j < 2; ++j) {
        const auto r = lagrange_coefficients(unknown_nodes<2>({0, 0}), j);
        EXPECT_TRUE(std::isnan(r[0]));
        EXPECT_TRUE(equal_bits(ieee::infinity, r[1]));
    }
    // Row 0 with a leading zero has these nodes.
    EXPECT_TRUE(std::isnan(continuous_tables<0>.basis[0][0]));
    EXPECT_TRUE(equal_bits(ieee::infinity, continuous_tables<0>.basis[0][1]));
}

TEST(lagrange, each_basis_polynomial_on_thirds_is_one_at_its_node_and_zero_at_the_others) {
    for (std::size_t i = 0; i < 4; ++i)
        for (std::size_t j = 0; j < 4; ++j)
            EXPECT_NEAR(plain_tables<24>.values_at_nodes[i][j], i == j ? 1.0 : 0.0, 1e-14);
}

template <int... rows>
void expect_sums_of_one(std::integer_sequence<int, rows...>) {
    const auto expect_row = []<int row>(std::integral_constant<int, row>) {
        constexpr auto& basis = plain_tables<row>.basis;
        for (std::size_t p = 0; p < basis.size(); ++p) {
            double sum = 0;
            for (const auto& coefficients : basis)
                sum += coefficients[p];
            EXPECT_NEAR(sum, p == 0 ? 1.0 : 0.0, 1e-13) << "row " << row << ", power " << p;
        }
    };
    (expect_row(std::integral_constant<int, rows>{}), ...);
}

TEST(lagrange, the_basis_polynomials_of_a_row_add_up_to_one) {
    expect_sums_of_one(std::make_integer_sequence<int, supported_setting_count>{});
}

} // namespace
} // namespace quenta
