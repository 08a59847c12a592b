// The error of quenta_solve_vie1_vec falls with the order that the scheme has, in every setting that keeps errors
// bounded, for one equation and for systems with a kernel that is not symmetric.
//
// On P nodes the rule of the history and the polynomial of a step both leave out terms of order P. In the
// discontinuous form one step maps an error at its end to rho times it at the next, rho the product of (c - 1) / c
// over the nodes: errors stay bounded if |rho| <= 1, and for rho = 1, where those of all steps add up, one order is
// lost (H. Brunner, Collocation Methods for Volterra Integral and Related Functional Equations, Cambridge University
// Press 2004, section 2.4). In the continuous form there is no such product; whether errors stay bounded is seen by
// following one through the scheme.
#include "conformance/vie1_call.hpp"
#include "properties/volterra_problem.hpp"
#include "reference/vie1.hpp"
#include "support/random_data.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>

namespace quenta_tests {

namespace {

using reference::setting;

double rho(const setting& row) {
    double product = 1.0;
    for (const int k : row.indices)
        product *= -double(row.m - k) / k;
    return product;
}

// A disturbance of the first step, in an equation with a constant kernel and no other forcing.
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
        for (std::size_t i = first_step * S; i <= last_step * S; ++i)
            size = std::max(size, std::fabs(error[i]));
        return size;
    };
    return largest(steps / 2, steps) < 10.0 * largest(0, 5);
}

// sum over b of K_ab convolved with y_b, for K = M k + L l with matrices without symmetry, and K(0) regular.
class system_problem {
public:
    explicit system_problem(int dimension) : D{dimension} {
        for (int b = 0; b < D; ++b)
            for (const std::complex<double> rate : {std::complex{-1.0, 3.0}, std::complex{-0.5, 0.0}})
                parts.push_back(exponential_problem("", {0.0, 1.0 + 0.15 * b}, rate));
    }

    double y(double t, int b) const { return parts[std::size_t(2 * b)].y(t); }
    double K(double t, int a, int b) const { return M(a, b) * parts[0].K(t) + L(a, b) * parts[1].K(t); }
    double g(double t, int a) const {
        double sum = 0.0;
        for (int b = 0; b < D; ++b)
            sum += M(a, b) * parts[std::size_t(2 * b)].convolution(t) +
                   L(a, b) * parts[std::size_t(2 * b + 1)].convolution(t);
        return sum;
    }

    // The largest error at any sample.
    double error(const setting& row, bool continuous, int steps) const {
        const int N = steps * row.m * row.m + 1;
        const double dt = 2.0 / (N - 1);
        std::vector<double> forcing, kernel, start;
        for (int i = 0; i < N; ++i)
            for (int a = 0; a < D; ++a) {
                forcing.push_back(g(i * dt, a));
                for (int b = 0; b < D; ++b)
                    kernel.push_back(K(i * dt, a, b));
            }
        for (int b = 0; b < D; ++b)
            start.push_back(y(0.0, b));
        const sampled_answer answer = call_vie1(forcing, kernel, D, start, dt, row, continuous);
        EXPECT_EQ(answer.status, QUENTA_SOLVED);
        double largest = 0.0;
        for (int i = 0; i < N; ++i)
            for (int b = 0; b < D; ++b)
                largest = std::max(largest, std::fabs(answer.out.values()[std::size_t(i * D + b)] - y(i * dt, b)));
        return largest;
    }

private:
    // For D = 1 the kernel is exp(-t) cos 3t alone.
    static double M(int a, int b) { return a == b ? 1.0 : 0.3 / (1 + a + 2 * b); }
    static double L(int a, int b) { return a < b ? 0.2 : 0.0; }

    int D;
    std::vector<volterra_problem> parts; // 2 b: with k, 2 b + 1: with l
};

TEST(vie1_stability, the_discontinuous_form_keeps_errors_bounded_in_the_settings_that_are_accepted) {
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
    const system_problem problem{GetParam()};
    // Far enough that the leading error rules, and not so far that rounding does.
    constexpr int steps = 100;
    int orders_seen[] = {0, 0};
    for (const setting& row : reference::settings())
        for (const bool continuous : {false, true}) {
            if (has_node_0(row) || refused_by_vie1(row) || !keeps_errors_bounded(row, continuous))
                continue;
            const double coarse = problem.error(row, continuous, steps);
            const double fine = problem.error(row, continuous, 2 * steps);
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
