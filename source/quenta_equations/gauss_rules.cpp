#include "quenta_equations/gauss_rules.hpp"

#include <cmath>
#include <numbers>

namespace quenta {

namespace {

// A polynomial and its derivative.
struct value_and_slope {
    double value, slope;
};

// The Legendre polynomial of this degree, on [-1, 1].
value_and_slope legendre(int degree, double x) {
    double before = 1.0, value = x;
    for (int k = 1; k < degree; ++k) {
        const double next = ((2 * k + 1) * x * value - k * before) / (k + 1);
        before = value;
        value = next;
    }
    return {value, degree * (x * value - before) / (x * x - 1.0)};
}

} // namespace

// Newton's method from the asymptotic zeros. 1 - x is kept apart, so that points near the ends are right to rounding.
quadrature_rule gauss_legendre(int points) {
    quadrature_rule rule(points);
    for (int i = 0; i < points; ++i) {
        double x = -std::cos(std::numbers::pi * (i + 0.75) / (points + 0.5));
        for (int iteration = 0; iteration < 5; ++iteration) {
            const auto [value, slope] = legendre(points, x);
            x -= value / slope;
        }
        const double slope = legendre(points, x).slope;
        rule[i] = {0.5 * (1.0 + x), 1.0 / ((1.0 - x * x) * slope * slope)};
    }
    if (points == 1)
        rule[0] = {0.5, 1.0};
    return rule;
}

// The points are the zeros of the orthogonal polynomial x^3 - 3 A x^2 + 3 B x - C of the weight x^a, where
// A = (a + 3) / (a + 6), B = A (a + 2) / (a + 5), C = B (a + 1) / (a + 4). The weights follow from the moments
// 1 / (a + 1), 1 / (a + 2), 1 / (a + 3).
std::array<quadrature_point, 3> gauss_jacobi(double a) {
    const double A = (a + 3.0) / (a + 6.0), B = A * (a + 2.0) / (a + 5.0), C = B * (a + 1.0) / (a + 4.0);
    std::array<double, 3> x;
    // With y = x - A: y^3 + p y + q = 0 has three real zeros.
    const double p = 3.0 * (B - A * A), q = -2.0 * A * A * A + 3.0 * A * B - C;
    const double radius = 2.0 * std::sqrt(-p / 3.0);
    const double angle = std::acos(std::fmax(-1.0, std::fmin(1.0, 3.0 * q / (p * radius)))) / 3.0;
    for (int i = 0; i < 3; ++i) {
        x[i] = A + radius * std::cos(angle - 2.0 * std::numbers::pi * i / 3.0);
        for (int iteration = 0; iteration < 3; ++iteration)
            x[i] -= (((x[i] - 3.0 * A) * x[i] + 3.0 * B) * x[i] - C) / ((3.0 * x[i] - 6.0 * A) * x[i] + 3.0 * B);
    }
    std::array<quadrature_point, 3> rule;
    for (int i = 0; i < 3; ++i) {
        const double u = x[(i + 1) % 3], v = x[(i + 2) % 3];
        const double integral = 1.0 / (a + 3.0) - (u + v) / (a + 2.0) + u * v / (a + 1.0);
        rule[i] = {x[i], integral / ((x[i] - u) * (x[i] - v))};
    }
    return rule;
}

} // namespace quenta
