// From a polynomial on each step to the caller's arrays, in every kind of equation alike.
#pragma once

#include "utility/view.hpp"

#include <algorithm>
#include <cstdint>

namespace quenta {

// value(j, b, e): component b of the polynomial of step j at its sample e = 0 .. S. Adjacent steps both have a value at
// their common sample; the samples between report the mean of the two.
template <int S, class polynomial_value>
void write_samples(std::int64_t steps, std::int64_t D, view<double> out, const polynomial_value& value) {
    std::fill_n(out.pointer, out.length, 0.0);
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

} // namespace quenta
