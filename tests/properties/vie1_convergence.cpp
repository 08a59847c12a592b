// quenta_solve_vie1_vec converges with the order of the scheme, for every setting that keeps errors bounded, for one
// equation and for systems with a kernel that is not symmetric.
//
// With P nodes, the quadrature rule of the history and the polynomial of a step both have errors of order P. In the
// discontinuous form, a step multiplies an error at its start by rho, the product of (c - 1) / c over the nodes. Errors
// stay bounded if |rho| <= 1. If rho = 1, the errors of all steps add up, and one order is lost (H. Brunner,
// Collocation Methods for Volterra Integral and Related Functional Differential Equations, Cambridge University Press
// 2004, section 2.4). The continuous form has no such formula; a numerical experiment shows whether errors stay
// bounded.
#include "properties/system_problem.hpp"
#include "reference/vie1.hpp"
#include "support/random_data.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace quenta_tests {

namespace {

using reference::setting;

double rho(const setting& row) {
    double product = 1.0;
    for (const int k_i : row.indices)
        product *= -double(row.m - k_i) / k_i;
    return product;
}

// Disturbs the first step of an equation with a constant kernel and no other forcing, and follows the error.
bool keeps_errors_bounded(const setting& row, bool continuous) {
    quenta_tests::random_data random{20260230};
    constexpr int steps = 200;
    const std::size_t S = std::size_t(row.m * row.m);
    std::vector<double> g = random.uniform(S + 1);
    g.resize(steps * S + 1, 0.0);
    const std::vector<double> K(g.size(), 1.0);
    const std::vector<double> error = reference::solve_vie1(g, K, 1, {1.0}, 1.0, continuous, row).out;
    const auto largest = [&](std::size_t first_step, std::size_t last_step) {
        double size = 0.0;
        for (std::size_t sample = first_step * S; sample <= last_step * S; ++sample)
            size = std::max(size, std::fabs(error[sample]));
        return size;
    };
    return largest(steps / 2, steps) < 10.0 * largest(0, 5);
}

// The largest error at any sample.
double error_of(const system_problem& problem, const setting& row, bool continuous, int steps) {
    const int N = steps * row.m * row.m + 1, D = problem.D;
    const double length = 2.0, dt = length / (N - 1);
    const system_samples& data = problem.sampled(N, length);
    const sampled_answer answer = call_vie1_vec(data.g, data.K, D, data.y0, dt, row, continuous);
    EXPECT_EQ(answer.status, QUENTA_SOLVED);
    double largest = 0.0;
    for (int sample = 0; sample < N; ++sample)
        for (int a = 0; a < D; ++a) {
            const double y = answer.out.values()[std::size_t(sample * D + a)];
            largest = std::max(largest, std::fabs(y - problem.y(sample * dt, a)));
        }
    return largest;
}

TEST(vie1_stability, the_discontinuous_form_keeps_errors_bounded_for_all_accepted_settings) {
    int bounded = 0, growing = 0;
    for (const setting& row : reference::settings())
        if (!has_node_0(row)) {
            SCOPED_TRACE(::testing::Message()
                         << "m = " << row.m << ", nodes " << ::testing::PrintToString(row.indices));
            const bool expected = std::fabs(rho(row)) < 1.0 + 1e-12;
            EXPECT_EQ(keeps_errors_bounded(row, false), expected);
            EXPECT_EQ(refused_by_vie1(row), !expected);
            ++(expected ? bounded : growing);
        }
    EXPECT_GT(bounded, 0);
    EXPECT_EQ(growing, 3);
}

class vie1_convergence : public ::testing::TestWithParam<int> {};

TEST_P(vie1_convergence, has_the_order_of_the_scheme) {
    const system_problem problem{GetParam(), equation::first_kind};
    // Enough steps that the leading error term dominates, but not rounding.
    constexpr int steps = 100;
    int orders_seen[] = {0, 0};
    for (const setting& row : reference::settings())
        for (const bool continuous : {false, true}) {
            if (has_node_0(row) || refused_by_vie1(row) || !keeps_errors_bounded(row, continuous))
                continue;
            const double coarse = error_of(problem, row, continuous, steps);
            const double fine = error_of(problem, row, continuous, 2 * steps);
            const int P = int(row.indices.size());
            const bool loses_one = !continuous && std::fabs(rho(row) - 1.0) < 1e-12;
            EXPECT_NEAR(std::log2(coarse / fine), loses_one ? P - 1 : P, 0.25)
                << "m = " << row.m << ", nodes " << ::testing::PrintToString(row.indices) << ", continuous "
                << continuous << ": errors " << coarse << " and " << fine;
            ++orders_seen[continuous];
        }
    EXPECT_GT(orders_seen[false], 0);
    EXPECT_GT(orders_seen[true], 0);
}

INSTANTIATE_TEST_SUITE_P(dimension, vie1_convergence, ::testing::Values(1, 2, 9));

} // namespace

} // namespace quenta_tests
