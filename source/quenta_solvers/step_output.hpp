// From a polynomial on each step to the caller's arrays, in every kind of equation alike.
#pragma once

#include "utility/view.hpp"

#include <algorithm>
#include <cstdint>

namespace quenta {

inline void clear_samples(view<double> out) {
    std::fill_n(out.pointer, out.length, 0.0);
}

// value(j, b, e): component b of the polynomial of step j at its sample e = 0 .. S, added to cleared samples. Adjacent
// steps both have a value at their common sample; the samples between report the mean of the two.
template <int S, class polynomial_value>
void add_samples(std::int64_t steps, std::int64_t D, view<double> out, const polynomial_value& value) {
    double* const to = out.slice(0, std::uint64_t((steps * S + 1) * D)).pointer;
    for (std::int64_t j = 0; j < steps; ++j)
        for (std::int64_t b = 0; b < D; ++b)
            for (int e = 0; e <= S; ++e)
                to[(S * j + e) * D + b] += value(j, b, e);
    for (std::int64_t j = 1; j < steps; ++j)
        for (std::int64_t b = 0; b < D; ++b)
            to[S * j * D + b] *= 0.5;
}

// coefficient(j, b, e): of s^e in component b of the polynomial of step j, for e below `powers`. A step has `slots`
// places for each component; those that are left belong to forms of a higher degree and are not written.
template <class polynomial_coefficient>
void write_coefficients(std::int64_t steps, std::int64_t D, int slots, int powers, view<double> coeffs,
                        const polynomial_coefficient& coefficient) {
    // As far as the last coefficient that is written.
    double* const to = coeffs.slice(0, std::uint64_t((slots * (steps - 1) + powers) * D)).pointer;
    for (std::int64_t j = 0; j < steps; ++j)
        for (std::int64_t b = 0; b < D; ++b)
            for (int e = 0; e < powers; ++e)
                to[(slots * j + e) * D + b] = coefficient(j, b, e);
}

// The order is visible to the caller only if `coeffs` is too short.
enum class output_order { cleared_samples, coefficients };

struct output_arrays {
    std::int64_t steps, D;
    bool want_coeffs;
    view<double> out, coeffs;
    output_order first;
};

// Both outputs, of polynomials with `powers` coefficients in `slots` places.
template <int S, class polynomial_coefficient, class polynomial_value>
void write_output(const output_arrays& to, int slots, int powers, const polynomial_coefficient& coefficient,
                  const polynomial_value& value) {
    if (to.first == output_order::cleared_samples)
        clear_samples(to.out);
    if (to.want_coeffs)
        write_coefficients(to.steps, to.D, slots, powers, to.coeffs, coefficient);
    if (to.first != output_order::cleared_samples)
        clear_samples(to.out);
    add_samples<S>(to.steps, to.D, to.out, value);
}

} // namespace quenta
