// Integrals over a step with a weakly singular factor, in long doubles:
//
//     the integral over x in [0, 1] of (d + 1 - x)^-alpha p(x),     0 <= alpha < 1, d >= 0,
//
// for a polynomial p, given by its coefficients. Near the singularity v = d + 1 - x is integrated power by power; far
// from it, where these differences lose digits, by the rule of Gauss with 16 points.
#pragma once

#include <cmath>
#include <cstddef>
#include <numbers>
#include <vector>

namespace reference {

inline long double polynomial_at(const std::vector<long double>& coefficients, long double x) {
    long double value = 0.0L;
    for (std::size_t p = coefficients.size(); p-- > 0;)
        value = value * x + coefficients[p];
    return value;
}

inline long double near_singular_integral(long double alpha, long double d, const std::vector<long double>& p) {
    // q(v) = p(d + 1 - v), by Horner's scheme for polynomials.
    std::vector<long double> q{0.0L};
    for (std::size_t k = p.size(); k-- > 0;) {
        q.push_back(0.0L);
        for (std::size_t power = q.size(); power-- > 0;)
            q[power] = (d + 1.0L) * q[power] - (power > 0 ? q[power - 1] : 0.0L);
        q[0] += p[k];
    }
    long double sum = 0.0L;
    for (std::size_t power = 0; power < q.size(); ++power) {
        const long double exponent = static_cast<long double>(power) + 1.0L - alpha;
        const long double whole = std::pow(d + 1.0L, exponent);
        sum += q[power] * (d > 0.0L ? whole * -std::expm1(exponent * std::log(d / (d + 1.0L))) : whole) / exponent;
    }
    return sum;
}

struct gauss_point {
    long double x, weight;
};

// The rule of Gauss with 16 points, for the interval from 0 to 1.
inline std::vector<gauss_point> gauss_16() {
    constexpr int points = 16;
    std::vector<gauss_point> rule;
    for (int i = 0; i < points; ++i) {
        long double x = std::cos(std::numbers::pi_v<long double> * (i + 0.75L) / (points + 0.5L)), slope = 0.0L;
        for (int iteration = 0; iteration < 8; ++iteration) {
            long double before = 1.0L, value = x;
            for (int k = 1; k < points; ++k) {
                const long double next = ((2 * k + 1) * x * value - k * before) / (k + 1);
                before = value;
                value = next;
            }
            slope = points * (x * value - before) / (x * x - 1.0L);
            x -= value / slope;
        }
        rule.push_back({(1.0L + x) / 2.0L, 1.0L / ((1.0L - x * x) * slope * slope)});
    }
    return rule;
}

inline long double far_singular_integral(long double alpha, long double d, const std::vector<long double>& p) {
    static const std::vector<gauss_point> rule = gauss_16();
    long double sum = 0.0L;
    for (const auto& [x, weight] : rule)
        sum += weight * std::pow(d + 1.0L - x, -alpha) * polynomial_at(p, x);
    return sum;
}

inline long double singular_integral(long double alpha, long double d, const std::vector<long double>& p) {
    return d < 1.0L ? near_singular_integral(alpha, d, p) : far_singular_integral(alpha, d, p);
}

} // namespace reference
