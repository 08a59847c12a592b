// The weights of weakly singular kernels, compared with values of high precision.
#include "quenta_equations/product_weights.hpp"

#include "equations/singular_moments.hpp"
#include "quenta_equations/powers.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <random>
#include <vector>

namespace {

using namespace quenta;
using quenta_test::singular_moments;

std::vector<collocation_nodes> every_scheme() {
    std::vector<collocation_nodes> schemes;
    for (const node_family family : {node_family::radau, node_family::gauss, node_family::lobatto})
        for (int P = 1; P <= max_nodes; ++P) {
            per_node<double> c{};
            if (family_nodes(family, P, c.data()))
                schemes.push_back(nodes_with_tables(c.data(), P));
        }
    const double close[]{0.1, 0.2, 0.25, 0.3};
    schemes.push_back(nodes_with_tables(close, 4));
    return schemes;
}

// The integral of L_j times the factor whose moments are given.
long double integral(const collocation_nodes& nodes, int j, const long double* moments) {
    std::vector<long double> a{1.0L}; // the coefficients of L_j
    for (int k = 0; k < nodes.P; ++k) {
        if (k == j)
            continue;
        a.push_back(0.0L);
        const long double c_j = nodes.c[std::size_t(j)], c_k = nodes.c[std::size_t(k)];
        for (std::size_t p = a.size(); p-- > 0;)
            a[p] = ((p > 0 ? a[p - 1] : 0.0L) - c_k * a[p]) / (c_j - c_k);
    }
    long double sum = 0.0L;
    for (std::size_t p = 0; p < a.size(); ++p)
        sum += a[p] * moments[p];
    return sum;
}

// The largest error of the weights as a part of the sum of their magnitudes.
double error_of(const per_node<double>& weights, const collocation_nodes& nodes, const long double* moments,
                long double factor) {
    long double largest = 0.0L, size = 0.0L;
    for (int j = 0; j < nodes.P; ++j) {
        const long double expected = factor * integral(nodes, j, moments);
        const long double error = std::fabs(static_cast<long double>(weights[std::size_t(j)]) - expected);
        largest = error <= largest ? largest : error; // also finds NaN
        size += std::fabs(expected);
    }
    return double(largest / size);
}

TEST(product_weights, of_a_finished_step_are_right_to_14_digits) {
    int compared = 0;
    double worst = 0.0;
    for (const collocation_nodes& nodes : every_scheme())
        for (const auto& [alpha, d, moments] : singular_moments) {
            const product_weights of_scheme(nodes, alpha);
            for (const double h : {1.0, 0x1p-20, 0x1p-900, 0x1p40}) {
                if (d == 1e-300 && h < 1.0)
                    continue; // the distance underflows
                const per_node<double> weights = of_scheme.of_step(d * h, h);
                const long double factor =
                    std::pow(static_cast<long double>(h), 1.0L - static_cast<long double>(alpha));
                const double error = error_of(weights, nodes, moments, factor);
                EXPECT_LT(error, 1e-14) << "P = " << nodes.P << ", c_0 = " << nodes.c[0] << ", alpha = " << alpha
                                        << ", d = " << d << ", h = " << h;
                worst = std::max(worst, error);
                ++compared;
            }
        }
    EXPECT_GT(compared, 10000);
    std::printf("largest error: %.1e\n", worst);
}

// Adjacent steps whose lengths differ by up to 1e6, in both directions: the sum of the weights is the integral of the
// factor.
TEST(product_weights, of_steps_of_very_different_lengths_add_up_to_the_integral) {
    for (const collocation_nodes& nodes : every_scheme())
        for (const double alpha : {0.01, 0.4, 0.99})
            for (const product_weights of_scheme(nodes, alpha); const double ratio : {1e-6, 1e-3, 0.1, 10.0, 1e3, 1e6})
                for (int i = 0; i < nodes.P; ++i) {
                    const double distance = nodes.c[std::size_t(i)] * ratio;
                    const per_node<double> weights = of_scheme.of_step(distance, 1.0);
                    const long double b = 1.0L - static_cast<long double>(alpha), d = distance;
                    const long double expected = std::pow(1.0L + d, b) * -std::expm1(-b * std::log1p(1.0L / d)) / b;
                    long double sum = 0.0L, size = 0.0L;
                    for (const double weight : weights) {
                        sum += weight;
                        size += std::fabs(weight);
                    }
                    EXPECT_LE(std::fabs(sum - expected), 1e-14L * size)
                        << "P = " << nodes.P << ", alpha = " << alpha << ", distance = " << distance;
                }
}

TEST(product_weights, of_the_current_step_are_right_to_14_digits) {
    int compared = 0;
    for (const collocation_nodes& nodes : every_scheme())
        for (const auto& [alpha, d, moments] : singular_moments) {
            if (d != 0.0)
                continue;
            for (const double length : {1.0, 0.3, 1e-250}) {
                const per_node<double> weights = product_weights(nodes, alpha).of_current_step(length);
                const long double factor =
                    std::pow(static_cast<long double>(length), 1.0L - static_cast<long double>(alpha));
                EXPECT_LT(error_of(weights, nodes, moments, factor), 1e-14)
                    << "P = " << nodes.P << ", alpha = " << alpha << ", length = " << length;
                ++compared;
            }
            for (const double weight : product_weights(nodes, alpha).of_current_step(0.0))
                EXPECT_EQ(weight, 0.0);
        }
    EXPECT_GT(compared, 200);
}

TEST(product_weights, are_finite_at_extreme_distances) {
    const collocation_nodes nodes = every_scheme().front();
    for (const double alpha : {1e-300, 1e-17, 0.5, 1.0 - 0x1p-53})
        for (const product_weights of_scheme(nodes, alpha);
             const double distance : {0.0, 5e-324, 1e-308, 1.0, 1e12, 1e300})
            for (const double h : {3e-308, 1e-100, 1.0, 1e12})
                for (const double weight : of_scheme.of_step(distance, h))
                    EXPECT_TRUE(std::isfinite(weight)) << alpha << ", " << distance << ", " << h;
}

TEST(powers, are_right_to_two_units_in_the_last_place) {
    std::mt19937_64 generator(24);
    std::uniform_real_distribution<double> number(-1.0, 1.0);
    for (int k = 0; k < 300000; ++k) {
        const double x = std::exp(number(generator) * (k % 2 == 0 ? 600.0 : 1.0)), exponent = number(generator);
        const long double power_of_x = std::pow(static_cast<long double>(x), static_cast<long double>(exponent)),
                          log_of_x = std::log(static_cast<long double>(x));
        ASSERT_NEAR(double(power(x, exponent) / power_of_x), 1.0, 5e-16) << x << " to the power " << exponent;
        ASSERT_NEAR(double(natural_log(x) / log_of_x), 1.0, 5e-16) << x;
    }
    for (const double x : {0.25, 1.0, 1024.0})
        EXPECT_EQ(power(x, 0.5), std::sqrt(x));
    EXPECT_NEAR(power(0x1p-1070, 0.5), 0x1p-535, 0x1p-587);
    EXPECT_EQ(power(0x1p-1000, 1.5), 0.0);
}

} // namespace
