#pragma once

#include "utility/ieee.hpp"

namespace quenta {

// pow(x, exponent) for an exponent from 0 to 5, correctly rounded: the running product is kept as the unevaluated sum
// of two doubles, with the rounding error of every product recovered exactly (T. J. Dekker, A floating-point technique
// for extending the available precision, Numerische Mathematik 18, 1971). It serves the nodes of the settings, which
// lie in [0, 1] well away from underflow; for them it gives the double that `pow` gives.
constexpr double integer_power(double x, int exponent) {
    struct halves {
        double hi, lo;
    };
    // 27 and 26 bits: products of halves are exact.
    const auto split = [](double a) -> halves {
        const double scaled = 134217729.0 * a;
        const double hi = scaled - (scaled - a);
        return {hi, a - hi};
    };
    const auto error_of_product = [&](double a, double b, double product) {
        const halves s = split(a), t = split(b);
        return ((s.hi * t.hi - product) + s.hi * t.lo + s.lo * t.hi) + s.lo * t.lo;
    };

    double hi = 1.0, lo = 0.0;
    for (int factor = 0; factor < exponent; ++factor) {
        const double product = hi * x;
        const double error = error_of_product(hi, x, product) + lo * x;
        hi = product + error;
        lo = error - (hi - product);
    }
    return hi;
}

} // namespace quenta
