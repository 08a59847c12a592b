// The promises of quenta_solve_vide and quenta_solve_vide_vec, one per test: worked examples, the ends of the grid,
// factors of zero, and blocks that are singular at a late step.
#include "conformance/every_solver.hpp"
#include "conformance/sampled_promises.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace quenta_tests {

namespace {

using reference::setting;

constexpr double dt = 0.03, y0 = 1.25;
constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();

double a_at(int sample) {
    return -0.7 + 0.5 * std::sin(0.6 * sample + 1.0);
}

sampled_answer solve(const setting& row, int N) {
    return call_vide(sampled(g_at, N), sampled(K_at, N), sampled(a_at, N), y0, dt, row);
}

// ---- Worked examples, computed from their formulas ----

TEST(vide_example, one_node_at_the_start_of_the_step_gives_the_explicit_euler_method) {
    constexpr int steps = 50;
    const sampled_answer answer = solve({1, {0}}, steps + 1);
    expect_solved(answer, steps);
    std::vector<double> y{y0};
    for (int n = 0; n < steps; ++n) {
        double Z = a_at(n) * y[n] + g_at(n);
        for (int d = 1; d <= n; ++d)
            Z += dt * K_at(d) * y[n - d];
        y.push_back(y[n] + dt * Z);
        expect_near(y[n], answer.coeffs.values()[2 * n], "coeffs", 2 * n);
        expect_near(dt * Z, answer.coeffs.values()[2 * n + 1], "coeffs", 2 * n + 1);
    }
    for (int n = 0; n <= steps; ++n)
        expect_near(y[n], answer.out.values()[n], "out", n);
}

TEST(vide_example, one_node_at_the_end_of_the_step_gives_the_implicit_euler_method) {
    constexpr int steps = 50;
    const sampled_answer answer = solve({1, {1}}, steps + 1);
    expect_solved(answer, steps);
    std::vector<double> y{y0};
    for (int n = 0; n < steps; ++n) {
        double rest = (a_at(n + 1) + dt * K_at(0)) * y[n] + g_at(n + 1);
        for (int d = 1; d <= n; ++d)
            rest += dt * K_at(d) * y[n - d + 1];
        const double Z = rest / (1.0 - dt * a_at(n + 1) - dt * dt * K_at(0));
        y.push_back(y[n] + dt * Z);
    }
    for (int n = 0; n <= steps; ++n)
        expect_near(y[n], answer.out.values()[n], "out", n);
}

TEST(vide_example, one_node_in_the_middle_gives_the_midpoint_rule) {
    constexpr int steps = 30;
    const double h = 4 * dt;
    const sampled_answer answer = solve({2, {1}}, 4 * steps + 1);
    expect_solved(answer, steps);
    std::vector<double> y{y0}, middle;
    for (int n = 0; n < steps; ++n) {
        const double a = a_at(4 * n + 2);
        double rest = (a + h * K_at(1) / 2) * y[n] + g_at(4 * n + 2);
        for (int d = 1; d <= n; ++d)
            rest += h * K_at(4 * d) * middle[n - d];
        const double Z = rest / (1.0 - h * a / 2 - h * h * K_at(1) / 8);
        middle.push_back(y[n] + h * Z / 2);
        y.push_back(y[n] + h * Z);
        for (int e = 0; e < 4; ++e)
            expect_near(y[n] + h * Z * e / 4, answer.out.values()[4 * n + e], "out", 4 * n + e);
    }
    expect_near(y[steps], answer.out.values()[4 * steps], "out", 4 * steps);
}

TEST(vide_example, nodes_at_both_ends_of_the_step_give_the_trapezoidal_rule) {
    constexpr int steps = 30;
    const double h = 4 * dt;
    const sampled_answer answer = solve({2, {0, 2}}, 4 * steps + 1);
    expect_solved(answer, steps);
    std::vector<double> y{y0};
    for (int n = 0; n < steps; ++n) {
        // The integral over the previous steps, at both nodes.
        double Q[2] = {};
        for (int i = 0; i < 2; ++i)
            for (int d = 1; d <= n; ++d)
                Q[i] += h / 2 * (K_at(4 * d + 4 * i) * y[n - d] + K_at(4 * d + 4 * i - 4) * y[n - d + 1]);
        const double a = a_at(4 * n + 4), V = (K_at(4) + K_at(0)) / 2;
        const double Z0 = a_at(4 * n) * y[n] + g_at(4 * n) + Q[0];
        const double coupling = h * a / 2 + h * h * K_at(0) / 4;
        const double Z1 = ((a + h * V) * y[n] + g_at(4 * n + 4) + Q[1] + coupling * Z0) / (1.0 - coupling);
        expect_near(y[n], answer.coeffs.values()[3 * n], "coeffs", 3 * n);
        expect_near(h * Z0, answer.coeffs.values()[3 * n + 1], "coeffs", 3 * n + 1);
        EXPECT_NEAR(h * (Z1 - Z0) / 2, answer.coeffs.values()[3 * n + 2], 1e-13) << n;
        y.push_back(y[n] + h / 2 * (Z0 + Z1));
    }
    for (int n = 0; n <= steps; ++n)
        expect_near(y[n], answer.out.values()[4 * n], "out", 4 * n);
}

// With the coefficient or the kernel transposed, the solution would be different.
TEST(vide_vec_example, kernel_and_coefficient_are_not_transposed) {
    constexpr int steps = 20;
    for (const int D : {1, 2, 3, 8, 9, 10}) {
        const system_samples data{D, steps + 1};
        const sampled_answer answer = call_vide_vec(data.g, data.K, data.a, D, data.y0, dt, {1, {0}});
        expect_solved(answer, steps);
        std::vector<double> y = data.y0; // y_a(t_n) at n * D + a
        for (int n = 0; n < steps; ++n)
            for (int a = 0; a < D; ++a) {
                double Z = data.g[n * D + a];
                for (int b = 0; b < D; ++b) {
                    Z += data.a[(n * D + a) * D + b] * y[n * D + b];
                    for (int d = 1; d <= n; ++d)
                        Z += dt * data.K[(d * D + a) * D + b] * y[(n - d) * D + b];
                }
                y.push_back(y[n * D + a] + dt * Z);
            }
        for (int index = 0; index < int(y.size()); ++index)
            expect_near(y[index], answer.out.values()[index], "out", index);
    }
}

// The implicit Euler method, solved by Cramer's rule. The system of a step has off-diagonal entries.
TEST(vide_vec_example, the_system_of_a_step_is_not_transposed) {
    constexpr int steps = 20;
    const system_samples data{2, steps + 1};
    const sampled_answer answer = call_vide_vec(data.g, data.K, data.a, 2, data.y0, dt, {1, {1}});
    expect_solved(answer, steps);
    std::vector<std::array<double, 2>> y{{data.y0[0], data.y0[1]}};
    for (int n = 0; n < steps; ++n) {
        double A[2][2], rhs[2];
        for (int a = 0; a < 2; ++a) {
            rhs[a] = data.g[2 * (n + 1) + a];
            for (int b = 0; b < 2; ++b) {
                const double coefficient = data.a[4 * (n + 1) + 2 * a + b], K = data.K[2 * a + b];
                A[a][b] = (a == b ? 1.0 : 0.0) - dt * coefficient - dt * dt * K;
                rhs[a] += (coefficient + dt * K) * y[n][b];
                for (int d = 1; d <= n; ++d)
                    rhs[a] += dt * data.K[4 * d + 2 * a + b] * y[n - d + 1][b];
            }
        }
        const double determinant = A[0][0] * A[1][1] - A[0][1] * A[1][0];
        y.push_back({y[n][0] + dt * (rhs[0] * A[1][1] - A[0][1] * rhs[1]) / determinant,
                     y[n][1] + dt * (A[0][0] * rhs[1] - rhs[0] * A[1][0]) / determinant});
    }
    for (int n = 0; n <= steps; ++n)
        for (int a = 0; a < 2; ++a)
            expect_near(y[n][a], answer.out.values()[2 * n + a], "out", 2 * n + a);
}

// ---- The ends of the grid ----

TEST(vide, one_sample_has_no_step_and_gives_zero_for_any_initial_value) {
    const sampled_answer scalar = call_vide({5.0}, {1.0}, {2.0}, 7.0, dt, {1, {0}});
    expect_solved(scalar, 0);
    EXPECT_TRUE(equal_bits(std::vector{0.0}, scalar.out.values()));
    for (const int D : {1, 2, 8, 9}) {
        const system_samples data{D, 1};
        const sampled_answer answer = call_vide_vec(data.g, data.K, data.a, D, data.y0, dt, {1, {0}});
        expect_solved(answer, 0);
        EXPECT_TRUE(equal_bits(constant(0.0, D), answer.out.values()));
    }
}

TEST(vide, one_explicit_step_does_not_use_the_second_samples) {
    const sampled_answer scalar = call_vide({5.0, nan}, {1.0, nan}, {2.0, nan}, 7.0, 0.25, {1, {0}});
    expect_solved(scalar, 1);
    EXPECT_TRUE(equal_bits(std::vector{7.0, 7.0 + 0.25 * 19.0}, scalar.out.values()));
    EXPECT_TRUE(equal_bits(std::vector{7.0, 0.25 * 19.0}, scalar.coeffs.values()));
}

// ---- Factors of zero and samples that are not finite ----

// With node 0 alone, the current step multiplies the kernel at lag 0 and the coefficient by 0.
TEST(vide, an_infinite_sample_times_zero_makes_the_solution_nan) {
    for (const int D : {1, 2, 9}) {
        const system_samples data{D, 4};
        expect_solved(call_vide_vec(data.g, data.K, data.a, D, data.y0, dt, {1, {0}}), 3);
        for (const bool in_kernel : {true, false}) {
            system_samples spoiled = data;
            (in_kernel ? spoiled.K : spoiled.a)[0] = infinity;
            const sampled_answer answer = call_vide_vec(spoiled.g, spoiled.K, spoiled.a, D, data.y0, dt, {1, {0}});
            expect_solved(answer, 3);
            for (int sample = 0; sample < 4; ++sample)
                EXPECT_TRUE(std::isnan(answer.out.values()[sample * D])) << "D = " << D << ", sample " << sample;
        }
    }
    std::vector<double> K = sampled(K_at, 4);
    K[0] = infinity;
    const sampled_answer scalar = call_vide(sampled(g_at, 4), K, sampled(a_at, 4), y0, dt, {1, {0}});
    expect_solved(scalar, 3);
    EXPECT_TRUE(equal_bits(constant(nan, 4), scalar.out.values()));
}

// Nodes 1/2 and 1 have the weights 1 and 0. Lag 0 is read once, with the weight 0.
TEST(vide, a_nan_times_a_weight_of_zero_makes_the_solution_nan) {
    for (const int D : {1, 2, 8, 9}) {
        system_samples data{D, 5};
        data.K[D - 1] = nan; // row 0, last column
        const sampled_answer answer = call_vide_vec(data.g, data.K, data.a, D, data.y0, dt, {2, {1, 2}});
        expect_solved(answer, 1);
        EXPECT_TRUE(std::isnan(answer.out.values()[4 * D])) << "D = " << D;
    }
    std::vector<double> K = sampled(K_at, 5);
    K[0] = nan;
    const sampled_answer scalar = call_vide(sampled(g_at, 5), K, sampled(a_at, 5), y0, dt, {2, {1, 2}});
    expect_solved(scalar, 1);
    EXPECT_TRUE(std::isnan(scalar.out.values()[4]));
}

TEST(vide, a_coefficient_of_nan_is_not_reported_as_a_singular_block) {
    for (const int D : {1, 2, 9}) {
        system_samples data{D, 10};
        data.a[5 * D * D] = nan; // read in the system of step 4
        const sampled_answer answer = call_vide_vec(data.g, data.K, data.a, D, data.y0, dt, {1, {1}});
        expect_solved(answer, 9);
        EXPECT_FALSE(std::isnan(answer.out.values()[3 * D])) << "D = " << D;
        for (int sample = 4; sample < 10; ++sample)
            EXPECT_TRUE(std::isnan(answer.out.values()[sample * D])) << "D = " << D << ", sample " << sample;
    }
}

// ---- Singular blocks ----

// With K = 0, the implicit Euler method divides by 1 - dt a. The test makes this 0 at one step and in one component.
TEST(vide, a_block_that_is_singular_at_a_late_step_returns_status_2_and_nothing_is_written) {
    constexpr int steps = 100;
    const setting row{1, {1}};
    for (const int D : {0, 1, 2, 3, 8, 9, 12}) // 0: the scalar solver
        for (const int late : {0, 1, 50, steps - 1}) {
            SCOPED_TRACE("D = " + std::to_string(D) + ", singular at step " + std::to_string(late));
            const int components = std::max(D, 1), last = components - 1;
            const auto solve = [&](int length) {
                system_samples data{components, length + 1};
                std::fill(data.K.begin(), data.K.end(), 0.0);
                std::fill(data.a.begin(), data.a.end(), 0.0);
                if (late < length)
                    data.a[((late + 1) * components + last) * components + last] = 1.0 / 0.25;
                return D == 0 ? call_vide(data.g, data.K, data.a, data.y0[0], 0.25, row)
                              : call_vide_vec(data.g, data.K, data.a, D, data.y0, 0.25, row);
            };
            expect_solved(solve(late), late);
            const sampled_answer answer = solve(steps);
            EXPECT_EQ(answer.status, QUENTA_SINGULAR_BLOCK);
            EXPECT_TRUE(answer.untouched());
            expect_solved(solve(late), late);
        }
}

} // namespace

} // namespace quenta_tests
