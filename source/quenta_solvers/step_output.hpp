// Writes the polynomials of all steps to the arrays of the caller, for every kind of equation.
#pragma once

#include "utility/view.hpp"

#include <algorithm>
#include <cstdint>

namespace quenta {

inline void clear_samples(view<double> out) {
    std::fill_n(out.pointer, out.length, 0.0);
}

// value(n, a, e) is component a of the polynomial of step n at its sample e = 0 .. S. It is added to `out`, which has
// been cleared. Two adjacent steps have a sample in common, which becomes the mean of their two values.
template <class polynomial_value>
void add_samples(std::int64_t steps, std::int64_t S, std::int64_t D, view<double> out, const polynomial_value& value) {
    double* const to = out.slice(0, std::uint64_t((steps * S + 1) * D)).pointer;
    for (std::int64_t n = 0; n < steps; ++n)
        for (std::int64_t a = 0; a < D; ++a)
            for (std::int64_t e = 0; e <= S; ++e)
                to[(S * n + e) * D + a] += value(n, a, e);
    for (std::int64_t n = 1; n < steps; ++n)
        for (std::int64_t a = 0; a < D; ++a)
            to[S * n * D + a] *= 0.5;
}

// coefficient(n, a, p) is that of s^p in component a of the polynomial of step n, for p below `powers`. A step has
// `slots` places per component. The places from `powers` on are for forms of a higher degree, and are not written.
template <class polynomial_coefficient>
void write_coefficients(std::int64_t steps, std::int64_t D, int slots, int powers, view<double> coeffs,
                        const polynomial_coefficient& coefficient) {
    // Up to the last coefficient that is written.
    double* const to = coeffs.slice(0, std::uint64_t((slots * (steps - 1) + powers) * D)).pointer;
    for (std::int64_t n = 0; n < steps; ++n)
        for (std::int64_t a = 0; a < D; ++a)
            for (int p = 0; p < powers; ++p)
                to[(slots * n + p) * D + a] = coefficient(n, a, p);
}

// The order is visible to the caller only if `coeffs` is too short.
enum class output_order { cleared_samples, coefficients };

struct output_arrays {
    std::int64_t steps, S, D;
    bool want_coeffs;
    view<double> out, coeffs;
    output_order first;
};

// What a weighted sum over the basis polynomials of a step gives. Where the polynomial is y + (a sum), y is a part of
// its values and of the coefficient of s^0.
enum class sum_of { value, lowest_coefficient, higher_coefficient };

// Writes both outputs. weighted_sum(n, a, what, weight) is the sum, for component a of the polynomial of step n, over
// all basis polynomials j, of what the scheme multiplies the j-th with, times weight(j): the value of this basis
// polynomial at a sample, or one of its coefficients. Every scheme has its own grouping of this sum.
template <class basis_type, class sum_over_basis>
void write_output(const output_arrays& to, const basis_type& basis, const sum_over_basis& weighted_sum) {
    const auto coefficient = [&](std::int64_t n, std::int64_t a, int p) {
        return weighted_sum(n, a, p == 0 ? sum_of::lowest_coefficient : sum_of::higher_coefficient,
                            [&](int j) { return basis.coefficients[j][p]; });
    };
    const auto value = [&](std::int64_t n, std::int64_t a, std::int64_t e) {
        return weighted_sum(n, a, sum_of::value, [&](int j) { return basis.sample_value[e][j]; });
    };
    constexpr int slots = basis_type::points + 1, powers = basis_type::powers;
    if (to.first == output_order::cleared_samples)
        clear_samples(to.out);
    if (to.want_coeffs)
        write_coefficients(to.steps, to.D, slots, powers, to.coeffs, coefficient);
    if (to.first != output_order::cleared_samples)
        clear_samples(to.out);
    add_samples(to.steps, to.S, to.D, to.out, value);
}

} // namespace quenta
