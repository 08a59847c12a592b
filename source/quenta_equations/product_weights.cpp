#include "quenta_equations/product_weights.hpp"

#include "quenta_equations/legendre_rules.hpp"
#include "quenta_equations/powers.hpp"

#include <array>
#include <cstddef>
#include <iterator>
#include <span>

namespace quenta {

namespace {

// Distances in steps.
constexpr double shortest_middle_distance = 0.06, shortest_far_distance = 3.5;

// The number of terms of the series for h / (t - middle of the step) up to a limit: (limit / 2)^terms = 2^-56.
struct series_length {
    double limit;
    int terms;
};
constexpr series_length series_lengths[] = {
    {4.8e-6, 3}, {1.2e-4, 4}, {8.5e-4, 5}, {3.1e-3, 6}, {7.8e-3, 7}, {0.0268, 9}, {0.0586, 11}, {0.125, 14},
};

// The points that the rule of Gauss and Legendre needs for full accuracy at a distance of at least so many steps, if
// the integrand is a polynomial of degree 4 times a function that is singular there. The error decreases like rho^(4 -
// 2 points), where rho is the sum of the half-axes of the ellipse through the singularity, with its foci at the ends of
// the step: points = 19 / log(rho) + 3.
struct rule_length {
    double distance;
    int points;
};
constexpr rule_length rule_lengths[] = {
    {2.0, 12}, {1.15, 14}, {0.72, 17}, {0.46, 20}, {0.29, 24}, {0.18, 29}, {0.11, 36}, {0.06, 44},
};

constexpr std::size_t all_points = [] {
    std::size_t sum = 0;
    for (const rule_length& rule : rule_lengths)
        sum += std::size_t(rule.points);
    return sum;
}();

// The points of all rules, one rule after the other.
constexpr auto legendre_points = [] {
    std::array<quadrature_point, all_points> all{};
    std::span<quadrature_point> rest(all);
    for (const rule_length& rule : rule_lengths) {
        gauss_legendre(rest.first(std::size_t(rule.points)));
        rest = rest.subspan(std::size_t(rule.points));
    }
    return all;
}();

// (1 - exp(-x)) / x for x from 0 to 1/2.
double mean_of_exponential(double x) {
    double sum = 1.0;
    for (int k = 16; k >= 2; --k)
        sum = 1.0 - x / k * sum;
    return sum;
}

} // namespace

product_weights::product_weights(const collocation_nodes& of, double exponent)
    : nodes{of}, alpha{exponent}, linear_power{gauss_jacobi(1.0 - exponent)} {
    static_assert(std::size(rule_lengths) == rules);
    const quadrature_point* next = legendre_points.data();
    for (std::size_t i = 0; i < rules; ++i) {
        legendre[i].reserve(rule_lengths[i].points);
        for (int point = 0; point < rule_lengths[i].points; ++point, ++next) {
            legendre[i].push_back({1.0 - next->x, nodes.values(next->x)});
            for (double& value : legendre[i].back().weight)
                value *= next->weight;
        }
    }
    // The coefficients of (1 + (1/2 - x) u)^-alpha as a series in u, times L_j, integrated: a polynomial of degree 22.
    for (const rule_point& point : legendre[0]) {
        double coefficient = 1.0;
        for (int p = 0; p < most_terms; ++p) {
            for (int j = 0; j < nodes.P; ++j)
                series[p][j] += coefficient * point.weight[j];
            coefficient *= -(alpha + p) / (p + 1) * (point.to_end - 0.5);
        }
    }
    for (const auto& [v, weight] : gauss_jacobi(-alpha)) {
        const per_node<double> value = nodes.values(1.0 - v);
        for (int q = 0; q < nodes.P; ++q)
            current[q] += weight * value[q];
    }
}

per_node<double> product_weights::of_current_step(double length) const {
    per_node<double> weight{};
    if (length > 0.0)
        for (int q = 0; q < nodes.P; ++q)
            weight[q] = length * power(length, -alpha) * current[q];
    return weight;
}

per_node<double> product_weights::of_step(double distance, double h) const {
    const bool is_far = distance >= shortest_far_distance * h;
    const double unit = is_far ? distance + 0.5 * h : h;
    const double factor = h * power(unit, -alpha);
    per_node<double> weight = is_far                                     ? far_step(h / unit)
                              : distance >= shortest_middle_distance * h ? middle_step(distance / h)
                                                                         : near_step(distance / h);
    for (double& of_node : weight)
        of_node *= factor;
    return weight;
}

// The integral over x in [0, 1] of (1 + (1/2 - x) u)^-alpha L_j(x).
per_node<double> product_weights::far_step(double u) const {
    int terms = most_terms;
    for (const auto& [limit, shorter] : series_lengths)
        if (u <= limit) {
            terms = shorter;
            break;
        }
    per_node<double> sum{};
    for (int p = terms - 1; p >= 0; --p)
        for (int j = 0; j < max_nodes; ++j)
            sum[j] = sum[j] * u + series[p][j];
    return sum;
}

// The integral over x in [0, 1] of (d + 1 - x)^-alpha L_j(x).
per_node<double> product_weights::middle_step(double d) const {
    std::size_t rule = 0;
    while (rule + 1 < rules && d < rule_lengths[rule].distance)
        ++rule;
    per_node<double> weight{};
    for (const auto& [to_end, of_point] : legendre[rule]) {
        const double factor = power(d + to_end, -alpha);
        for (int j = 0; j < nodes.P; ++j)
            weight[j] += factor * of_point[j];
    }
    return weight;
}

// The same by v = d + 1 - x, with L_j(x) = q(0) + v q1(v): the integral over v in [d, 1 + d] of v^-alpha is known, and
// that of v^(1 - alpha) q1(v) is the difference of two, the second of which is small.
per_node<double> product_weights::near_step(double d) const {
    const double b = 1.0 - alpha, end_power = power(1.0 + d, b);
    double of_power = end_power / b;
    if (d > 0.0) {
        const double log_ratio = natural_log(1.0 + d) - natural_log(d);
        of_power = b * log_ratio <= 0.5 ? end_power * log_ratio * mean_of_exponential(b * log_ratio)
                                        : (end_power - power(d, b)) / b;
    }
    const per_node<double> at_zero = nodes.values(1.0 + d);
    per_node<double> weight{};
    for (int j = 0; j < nodes.P; ++j)
        weight[j] = of_power * at_zero[j];
    const auto add_integral_to = [&](double end, double sign) {
        const double factor = sign * end * power(end, b);
        for (const auto& [y, w] : linear_power) {
            const double v = end * y;
            const per_node<double> value = nodes.values(1.0 + d - v);
            for (int j = 0; j < nodes.P; ++j)
                weight[j] += factor * w * ((value[j] - at_zero[j]) / v);
        }
    };
    add_integral_to(1.0 + d, 1.0);
    if (d > 1e-30) // otherwise it is 0 to rounding
        add_integral_to(d, -1.0);
    return weight;
}

} // namespace quenta
