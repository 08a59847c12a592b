// Which nodes make first-kind equations with a weakly singular kernel converge. On equal steps, with K = 1, the
// equations are a convolution with matrices W_d, d = 0, 1, ..: W_0 of the current step and W_d of the step d before it.
// An error of one step grows from step to step if and only if det(sum of W_d z^d) is 0 for some |z| < 1. Zeros are
// counted by how often the determinant, times (1 - z)^(1 - alpha), which removes its singularity, turns around 0.
#include "quenta_equations.hpp"
#include "quenta_equations/product_weights.hpp"
#include "support/long_tests.hpp"

#include <gtest/gtest.h>

#include <Eigen/Dense>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstddef>
#include <numbers>
#include <random>
#include <vector>

namespace {

using namespace quenta;

using number = std::complex<double>;

std::vector<Eigen::MatrixXd> weights_by_distance(const collocation_nodes& nodes, double alpha, int steps) {
    const product_weights weights(nodes, alpha);
    const int P = nodes.P;
    std::vector<Eigen::MatrixXd> W(std::size_t(steps), Eigen::MatrixXd::Zero(P, P));
    for (int i = 0; i < P; ++i) {
        const double c = nodes.c[std::size_t(i)];
        const per_node<double> current = weights.of_current_step(c);
        for (int q = 0; q < P; ++q)
            for (int j = 0; j < P; ++j)
                W[0](i, j) += current[std::size_t(q)] * nodes.at_point[std::size_t(i)][std::size_t(q)][std::size_t(j)];
        for (int d = 1; d < steps; ++d)
            for (int j = 0; j < P; ++j)
                W[std::size_t(d)](i, j) = weights.of_step(d - 1 + c, 1.0)[std::size_t(j)];
    }
    return W;
}

// The number of zeros with |z| < 0.985.
int growing_errors(const std::vector<double>& c, double alpha) {
    constexpr double radius = 0.985;
    constexpr int steps = 1000, points = 360; // radius^steps = 3e-7
    const collocation_nodes nodes = nodes_with_tables(c.data(), int(c.size()));
    const std::vector<Eigen::MatrixXd> W = weights_by_distance(nodes, alpha, steps);
    double turned = 0.0; // on half of the circle; the other half is its mirror image
    number last = 0.0;
    for (int k = 0; k <= points; ++k) {
        const number z = std::polar(radius, std::numbers::pi * k / points);
        Eigen::MatrixXcd sum = Eigen::MatrixXcd::Zero(nodes.P, nodes.P);
        for (std::size_t d = W.size(); d-- > 0;)
            sum = sum * z + W[d].cast<number>();
        const number value = sum.determinant() * std::pow(1.0 - z, 1.0 - alpha);
        if (k > 0)
            turned += std::arg(value / last);
        last = value;
    }
    return int(std::lround(turned / std::numbers::pi));
}

double growth_without_singularity(const std::vector<double>& c) {
    double product = 1.0;
    for (const double node : c)
        product *= (1.0 - node) / node;
    return product;
}

constexpr double singularities[] = {0.01, 0.1, 0.3, 0.5, 0.7, 0.9, 0.99};

TEST(first_kind_stability, no_error_grows_with_radau_and_gauss) {
    for (const node_family family : {node_family::radau, node_family::gauss})
        for (int P = 1; P <= max_nodes; ++P)
            for (const double alpha : singularities) {
                std::vector<double> c(std::size_t(P), 0.0);
                ASSERT_TRUE(family_nodes(family, P, c.data()));
                EXPECT_EQ(growing_errors(c, alpha), 0) << "P = " << P << ", alpha = " << alpha;
            }
}

TEST(first_kind_stability, no_error_grows_with_nodes_that_are_accepted) {
    std::mt19937 generator(26);
    std::uniform_real_distribution<double> node(0.03, 1.0);
    int accepted = 0, refused = 0, refused_without_need = 0;
    const int most_accepted = quenta_tests::long_tests() ? 45 : 12, most_refused = most_accepted / 3;
    while (accepted < most_accepted || refused < most_refused) {
        std::vector<double> c(1 + generator() % max_nodes);
        std::generate(c.begin(), c.end(), [&] { return node(generator); });
        std::sort(c.begin(), c.end());
        if (std::adjacent_find(c.begin(), c.end(), [](double a, double b) { return b - a < 0.05; }) != c.end())
            continue;
        const bool is_accepted = growth_without_singularity(c) <= 1.0;
        ++(is_accepted ? accepted : refused);
        for (const double alpha : {0.1, 0.5, 0.9}) {
            const int growing = growing_errors(c, alpha);
            refused_without_need += !is_accepted && growing == 0;
            if (is_accepted) {
                EXPECT_EQ(growing, 0) << testing::PrintToString(c) << ", alpha = " << alpha;
            }
        }
    }
    EXPECT_GT(refused_without_need, 0);
}

TEST(first_kind_stability, the_count_finds_errors_that_grow) {
    EXPECT_EQ(growing_errors({0.3}, 0.01), 1); // 0.7 / 0.3 > 1
    EXPECT_EQ(growing_errors({0.3}, 0.9), 0);
    EXPECT_EQ(growing_errors({0.1, 0.5}, 0.1), 1);
}

// The errors of y = t^alpha - 0.3 t^(1 + alpha) on the default mesh.
TEST(first_kind_stability, accepted_nodes_have_the_order_P) {
    const auto error = [](double alpha, const std::vector<double>& nodes, int count) {
        const auto beta = [alpha](double p) {
            return std::tgamma(1 - alpha) * std::tgamma(1 + p) / std::tgamma(2 - alpha + p);
        };
        quenta::solve_options options = quenta::steps(count);
        options.own_nodes = nodes;
        const quenta::solution y =
            quenta::first_kind([=](double t) { return beta(alpha) * t - 0.3 * beta(1 + alpha) * t * t; })
                .lag_memory(quenta::weakly_singular(alpha, [](double) { return 1.0; }))
                .solve(2.0, options);
        double largest = 0.0;
        for (std::size_t n = 1; n < y.mesh().size(); ++n)
            for (const double x : {0.001, 0.3, 0.7, 1.0}) {
                const double t = std::lerp(y.mesh()[n - 1], y.mesh()[n], x);
                const double here = std::fabs(y(t) - std::pow(t, alpha) + 0.3 * std::pow(t, 1 + alpha));
                largest = here <= largest ? largest : here;
            }
        return largest;
    };
    std::vector<std::vector<double>> schemes{{0.6}, {0.3, 0.8}, {0.2, 0.6, 0.9}, {0.25, 0.5, 0.75, 1.0}};
    for (const int family : {QUENTA_RADAU, QUENTA_GAUSS})
        for (int P = 1; P <= 5; ++P) {
            schemes.emplace_back(std::size_t(P), 0.0);
            ASSERT_EQ(quenta_equation_nodes(family, P, schemes.back().data()), 0);
        }
    for (const std::vector<double>& nodes : schemes)
        for (const double alpha : {0.2, 0.5, 0.9}) {
            const double coarse = error(alpha, nodes, 64), fine = error(alpha, nodes, 256);
            EXPECT_LT(fine, 2.0 * coarse * std::pow(4.0, -int(nodes.size())) + 1e-11)
                << testing::PrintToString(nodes) << ", alpha = " << alpha;
        }
}

} // namespace
