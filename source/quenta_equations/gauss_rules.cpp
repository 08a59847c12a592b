#include "quenta_equations/gauss_rules.hpp"

namespace quenta {

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
