#include "quenta_equations/product_weights.hpp"

#include <cmath>

namespace quenta {

namespace {

constexpr std::array legendre_points{3, 4, 5, 6, 8, 10, 13, 17, 23, 31, 44};
constexpr double shortest_far_distance = 0.06; // in steps

// The points that the rule of Gauss and Legendre needs for full accuracy if the integrand is a polynomial of degree P -
// 1 times a function that is singular d steps after the end. The error decreases like rho^(P - 2 points), where rho is
// the sum of the half-axes of the ellipse through the singularity, with its foci at the ends of the step.
double points_for_distance(double d, int P) {
    const double z = 1.0 + 2.0 * d;
    return 19.0 / std::log(z + std::sqrt(z * z - 1.0)) + 0.5 * (P + 1);
}

} // namespace

product_weights::product_weights(const collocation_nodes& of, double exponent)
    : nodes{of}, alpha{exponent}, linear_power{gauss_jacobi(1.0 - exponent)} {
    for (std::size_t i = 0; i < legendre.size(); ++i)
        legendre[i] = gauss_legendre(legendre_points[i]);
    for (const auto& [v, weight] : gauss_jacobi(-alpha)) {
        const per_node<double> value = nodes.values(1.0 - v);
        for (int q = 0; q < nodes.P; ++q)
            current[q] += weight * value[q];
    }
}

per_node<double> product_weights::of_current_step(int i, double h) const {
    per_node<double> weight{};
    const double factor = std::pow(nodes.c[i] * h, 1.0 - alpha);
    for (int q = 0; q < nodes.P; ++q)
        weight[q] = nodes.c[i] == 0.0 ? 0.0 : factor * current[q];
    return weight;
}

per_node<double> product_weights::of_step(double distance, double h) const {
    const double d = distance / h, factor = std::pow(h, 1.0 - alpha);
    per_node<double> weight = alpha == 0.0 ? nodes.b : d < shortest_far_distance ? near_step(d) : far_step(d);
    for (int j = 0; j < nodes.P; ++j)
        weight[j] *= factor;
    return weight;
}

// The integral over x in [0, 1] of (d + 1 - x)^-alpha L_j(x).
per_node<double> product_weights::far_step(double d) const {
    const double needed = points_for_distance(d, nodes.P);
    std::size_t rule = 0;
    while (rule + 1 < legendre.size() && legendre_points[rule] < needed)
        ++rule;
    per_node<double> weight{};
    for (const auto& [x, w] : legendre[rule]) {
        const double factor = w * std::pow(d + (1.0 - x), -alpha);
        const per_node<double> value = nodes.values(x);
        for (int j = 0; j < nodes.P; ++j)
            weight[j] += factor * value[j];
    }
    return weight;
}

// The same by v = d + 1 - x, with L_j(x) = q(0) + v q1(v): the integral over v in [d, 1 + d] of v^-alpha is known, and
// that of v^(1 - alpha) q1(v) is the difference of two, the second of which is small.
per_node<double> product_weights::near_step(double d) const {
    const double b = 1.0 - alpha;
    const double of_power = std::pow(1.0 + d, b) * -std::expm1(-b * std::log1p(1.0 / d)) / b; // d = 0: 1 / b
    const per_node<double> at_zero = nodes.values(1.0 + d);
    per_node<double> weight{};
    for (int j = 0; j < nodes.P; ++j)
        weight[j] = of_power * at_zero[j];
    const auto add_integral_to = [&](double end, double sign) {
        const double factor = sign * std::pow(end, 1.0 + b);
        for (const auto& [y, w] : linear_power) {
            const double v = end * y;
            const per_node<double> value = nodes.values(1.0 + d - v);
            for (int j = 0; j < nodes.P; ++j)
                weight[j] += factor * w * ((value[j] - at_zero[j]) / v);
        }
    };
    add_integral_to(1.0 + d, 1.0);
    if (d > 0.0)
        add_integral_to(d, -1.0);
    return weight;
}

} // namespace quenta
