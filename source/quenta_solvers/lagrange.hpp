// The Lagrange basis of a short list of nodes, its values and its quadrature weights.
//
// Every routine gives the same doubles at build time and at run time. For a list with a repeated node there is no
// basis. The coefficients are then infinities and NaN, as IEEE arithmetic defines them for a division by zero; this is
// intended.
#pragma once

#include "utility/ieee.hpp"
#include "utility/integer_power.hpp"
#include "utility/subset_range.hpp"
#include "utility/view.hpp"

#include <array>
#include <cstddef>
#include <cstdint>

namespace quenta {

template <std::size_t n>
using node_list = std::array<double, n>;

// The coefficients r of L_j(s) = sum over k of r[k] * s^k, ascending, with L_j(x_j) = 1 and L_j(x_i) = 0 elsewhere:
// r[k] is the elementary symmetric sum of order n-1-k of the negated other nodes, over the product of x_j minus each.
template <std::size_t n>
requires(n >= 2) constexpr std::array<double, n> lagrange_coefficients(const node_list<n>& nodes, std::uint64_t j) {
    if (j >= n)
        fail_index(j, n, code_position::here());
    std::array<double, n - 1> others{};
    for (std::size_t i = 0; i < n - 1; ++i)
        others[i] = nodes[i < j ? i : i + 1];

    double denominator = nodes[j] - others[0];
    for (std::size_t i = 1; i < n - 1; ++i)
        denominator = (nodes[j] - others[i]) * denominator;

    std::array<double, n> coefficients{};
    for (std::size_t k = 0; k < n; ++k) {
        double sum = 0.0;
        for (subset_range subsets{static_cast<int>(n - 1 - k), others.data(), n - 1}; !subsets.empty();
             subsets.pop_front()) {
            double product = 1.0;
            for (const double element : subsets.front())
                product *= -element;
            sum += product;
        }
        coefficients[k] = ieee::quotient(sum, denominator);
    }
    return coefficients;
}

// The basis of a single node is the constant 1, given as a bare double.
constexpr double lagrange_coefficients(const node_list<1>&, std::uint64_t j) {
    require(j == 0);
    return 1.0;
}

// The coefficients of all basis polynomials: [j][k] belongs to power k of L_j.
template <std::size_t n>
constexpr std::array<std::array<double, n>, n> lagrange_basis(const node_list<n>& nodes) {
    if constexpr (n == 1) {
        return {{{lagrange_coefficients(nodes, 0)}}};
    } else {
        std::array<std::array<double, n>, n> basis{};
        for (std::size_t j = 0; j < n; ++j)
            basis[j] = lagrange_coefficients(nodes, j);
        return basis;
    }
}

// L(x) = sum over k of r[k] * x^k, ascending; each power is computed on its own.
template <std::size_t n>
constexpr double basis_value(const std::array<double, n>& coefficients, double x) {
    double value = 0.0;
    for (std::size_t k = 0; k < n; ++k)
        value = ieee::sum(value, ieee::product(coefficients[k], integer_power(x, static_cast<int>(k))));
    return value;
}

// The integral of L over [0, 1]: the weight of its node in the interpolatory quadrature rule.
template <std::size_t n>
constexpr double quadrature_weight(const std::array<double, n>& coefficients) {
    double weight = 0.0;
    for (std::size_t k = 0; k < n; ++k)
        weight = ieee::sum(weight, ieee::quotient(coefficients[k], double(k + 1)));
    return weight;
}

} // namespace quenta
