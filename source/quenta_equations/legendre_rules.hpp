// Rules of Gauss and Legendre on the unit interval. The compiler calculates them: their points take longer than a short
// solve.
#pragma once

#include "quenta_equations/gauss_rules.hpp"

#include <array>
#include <cstddef>
#include <numbers>
#include <span>

namespace quenta {

// A polynomial and its derivative.
struct value_and_slope {
    double value, slope;
};

// The Legendre polynomial of this degree, on [-1, 1].
constexpr value_and_slope legendre(int degree, double x) {
    double before = 1.0, value = x;
    for (int k = 1; k < degree; ++k) {
        const double next = ((2 * k + 1) * x * value - k * before) / (k + 1);
        before = value;
        value = next;
    }
    return {value, degree * (x * value - before) / (x * x - 1.0)};
}

// cos(angle) for angles from 0 to pi, to 6 digits: where an iteration starts.
constexpr double rough_cosine(double angle) {
    double term = 1.0, sum = 1.0;
    for (int k = 2; k <= 20; k += 2) {
        term *= -angle * angle / double(k * (k - 1));
        sum += term;
    }
    return sum;
}

// At least 2 points, by Newton's method from the asymptotic zeros. Exact for polynomials of degree 2 * points - 1.
constexpr void gauss_legendre(std::span<quadrature_point> rule) {
    const int points = int(rule.size());
    for (int i = 0; i < points; ++i) {
        double x = -rough_cosine(std::numbers::pi * (i + 0.75) / (points + 0.5));
        for (int iteration = 0; iteration < 5; ++iteration) {
            const auto [value, slope] = legendre(points, x);
            x -= value / slope;
        }
        const double slope = legendre(points, x).slope;
        rule[std::size_t(i)] = {0.5 * (1.0 + x), 1.0 / ((1.0 - x * x) * slope * slope)};
    }
}

template <int points>
constexpr std::array<quadrature_point, points> gauss_legendre() {
    std::array<quadrature_point, points> rule{};
    gauss_legendre(rule);
    return rule;
}

} // namespace quenta
