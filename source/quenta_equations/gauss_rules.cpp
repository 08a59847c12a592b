#include "quenta_equations/gauss_rules.hpp"

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

// cos(angle) for angles from 0 to pi, to 6 digits: where an iteration starts.
double rough_cosine(double angle) {
    double term = 1.0, sum = 1.0;
    for (int k = 2; k <= 20; k += 2) {
        term *= -angle * angle / double(k * (k - 1));
        sum += term;
    }
    return sum;
}

} // namespace

// Newton's method from the asymptotic zeros.
quadrature_rule gauss_legendre(int points) {
    quadrature_rule rule(points);
    for (int i = 0; i < points; ++i) {
        double x = -rough_cosine(std::numbers::pi * (i + 0.75) / (points + 0.5));
        for (int iteration = 0; iteration < 5; ++iteration) {
            const auto [value, slope] = legendre(points, x);
            x -= value / slope;
        }
        const double slope = legendre(points, x).slope;
        rule[i] = {0.5 * (1.0 + x), 1.0 / ((1.0 - x * x) * slope * slope)};
    }
    return rule;
}

// The points are the zeros of the orthogonal polynomial x^3 - 3 A x^2 + 3 B x - C of the weight x^a, where
// A = (a + 3) / (a + 6), B = A (a + 2) / (a + 5), C = B (a + 1) / (a + 4). The weights follow from the moments
// 1 / (a + 1), 1 / (a + 2), 1 / (a + 3).
std::array<quadrature_point, 3> gauss_jacobi(double a) {
    const double A = (a + 3.0) / (a + 6.0), B = A * (a + 2.0) / (a + 5.0), C = B * (a + 1.0) / (a + 4.0);
    // Newton's method finds the smallest zero from 0 and the largest from 1; 3 A is the sum of all three.
    const auto zero_from = [&](double x, int iterations) {
        for (int iteration = 0; iteration < iterations; ++iteration)
            x -= (((x - 3.0 * A) * x + 3.0 * B) * x - C) / ((3.0 * x - 6.0 * A) * x + 3.0 * B);
        return x;
    };
    std::array<double, 3> x{zero_from(0.0, 20), 0.0, zero_from(1.0, 20)};
    x[1] = zero_from(3.0 * A - x[0] - x[2], 2);
    std::array<quadrature_point, 3> rule;
    for (int i = 0; i < 3; ++i) {
        const double u = x[(i + 1) % 3], v = x[(i + 2) % 3];
        const double integral = 1.0 / (a + 3.0) - (u + v) / (a + 2.0) + u * v / (a + 1.0);
        rule[i] = {x[i], integral / ((x[i] - u) * (x[i] - v))};
    }
    return rule;
}

} // namespace quenta
