// The promises of quenta_solve_vie2 and quenta_solve_vie2_vec, one per test: worked examples, the ends of the grid,
// weights of zero and singular blocks.
#include "conformance/every_solver.hpp"
#include "conformance/sampled_promises.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <limits>

namespace quenta_tests {

namespace {

using reference::setting;

constexpr double dt = 0.03;
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

sampled_answer solve(const setting& row, int N) {
    return call_vie2(sampled(g_at, N), sampled(K_at, N), dt, row);
}

// ---- Worked examples, computed from their formulas ----

// The rule is explicit with the node at the left end of the step, implicit with the node at the right end.
TEST(vie2_example, one_node_at_an_end_of_the_step_gives_a_rectangle_rule) {
    constexpr int steps = 50;
    for (const int node : {0, 1}) {
        const sampled_answer answer = solve({1, {node}}, steps + 1);
        expect_solved(answer, steps);
        std::vector<double> U;
        for (int n = 0; n < steps; ++n) {
            double sum = 0.0;
            for (int k = 0; k < n; ++k)
                sum += K_at(n - k) * U[k];
            U.push_back((g_at(n + node) + dt * sum) / (1.0 - dt * node * K_at(0)));
        }
        expect_constant_steps(U, answer);
    }
}

// Each step has a value at both of its ends, so there are two values at t_n.
TEST(vie2_example, row_2_gives_the_trapezoidal_rule_on_every_step) {
    constexpr int steps = 50;
    const sampled_answer answer = solve({1, {0, 1}}, steps + 1);
    expect_solved(answer, steps);
    std::vector<double> left, right;
    for (int n = 0; n < steps; ++n) {
        double at_left = g_at(n), at_right = g_at(n + 1);
        for (int k = 0; k < n; ++k) {
            const int d = n - k;
            at_left += dt / 2 * (K_at(d) * left[k] + K_at(d - 1) * right[k]);
            at_right += dt / 2 * (K_at(d + 1) * left[k] + K_at(d) * right[k]);
        }
        left.push_back(at_left);
        right.push_back((at_right + dt / 2 * K_at(1) * at_left) / (1.0 - dt / 2 * K_at(0)));
    }
    const auto out = answer.out.values();
    expect_near(left[0], out[0], "out", 0);
    for (int n = 1; n < steps; ++n)
        expect_near((right[n - 1] + left[n]) / 2, out[n], "out", n);
    expect_near(right[steps - 1], out[steps], "out", steps);
    for (int n = 0; n < steps; ++n) {
        expect_near(left[n], answer.coeffs.values()[n * 3], "coeffs", n * 3);
        expect_near(right[n] - left[n], answer.coeffs.values()[n * 3 + 1], "coeffs", n * 3 + 1);
    }
}

TEST(vie2_example, row_4_gives_the_midpoint_rule) {
    constexpr int steps = 50;
    const sampled_answer answer = solve({2, {1}}, 4 * steps + 1);
    expect_solved(answer, steps);
    const double h = 4 * dt;
    std::vector<double> U;
    for (int n = 0; n < steps; ++n) {
        double sum = 0.0;
        for (int d = 1; d <= n; ++d)
            sum += K_at(4 * d) * U[n - d];
        U.push_back((g_at(4 * n + 2) + h * sum) / (1.0 - h * K_at(1) / 2));
    }
    for (int n = 0; n < steps; ++n) {
        for (int e = 1; e <= 3; ++e)
            expect_near(U[n], answer.out.values()[4 * n + e], "out", 4 * n + e);
        expect_near(U[n], answer.coeffs.values()[2 * n], "coeffs", 2 * n);
    }
}

TEST(vie2_example, row_9_gives_simpsons_rule_on_every_step) {
    constexpr int steps = 20;
    const sampled_answer answer = solve({2, {0, 1, 2}}, 4 * steps + 1);
    expect_solved(answer, steps);
    const double h = 4 * dt;
    constexpr double b[3] = {1.0 / 6, 2.0 / 3, 1.0 / 6};
    // The last two rows of W. The current step is solved for its last two values by Cramer's rule.
    const double L1[3][3] = {{1, 0, 0}, {0.375, 0.75, -0.125}, {0, 1, 0}};
    const double L2[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    double W1[3] = {}, W2[3] = {};
    for (int q = 0; q < 3; ++q)
        for (int j = 0; j < 3; ++j) {
            W1[j] += b[q] / 2 * K_at(2 - q) * L1[q][j];
            W2[j] += b[q] * K_at(4 - 2 * q) * L2[q][j];
        }
    std::vector<double> U;
    for (int n = 0; n < steps; ++n) {
        double rhs[3];
        for (int i = 0; i < 3; ++i) {
            rhs[i] = g_at(4 * n + 2 * i);
            for (int d = 1; d <= n; ++d)
                for (int j = 0; j < 3; ++j)
                    rhs[i] += h * b[j] * K_at(4 * d + 2 * (i - j)) * U[3 * (n - d) + j];
        }
        const double r1 = rhs[1] + h * W1[0] * rhs[0], r2 = rhs[2] + h * W2[0] * rhs[0];
        const double a11 = 1 - h * W1[1], a12 = -h * W1[2], a21 = -h * W2[1], a22 = 1 - h * W2[2];
        const double determinant = a11 * a22 - a12 * a21;
        U.insert(U.end(), {rhs[0], (r1 * a22 - a12 * r2) / determinant, (a11 * r2 - a21 * r1) / determinant});
    }
    const auto out = answer.out.values();
    for (int n = 0; n < steps; ++n) {
        const double u0 = U[3 * n], u1 = U[3 * n + 1], u2 = U[3 * n + 2];
        expect_near(0.375 * u0 + 0.75 * u1 - 0.125 * u2, out[4 * n + 1], "out", 4 * n + 1);
        expect_near(u1, out[4 * n + 2], "out", 4 * n + 2);
        expect_near(-0.125 * u0 + 0.75 * u1 + 0.375 * u2, out[4 * n + 3], "out", 4 * n + 3);
        if (n > 0)
            expect_near((U[3 * n - 1] + u0) / 2, out[4 * n], "out", 4 * n);
    }
}

TEST(vie2_example, row_15_applies_radaus_rule_to_the_previous_step) {
    const setting row{3, {0, 2}};
    const double h = 9 * dt;
    // There are two steps. The equation at the first node of the second step contains no integral over its own step.
    const sampled_answer answer = solve(row, 19);
    expect_solved(answer, 2);
    const auto coeffs = answer.coeffs.values();
    const auto value = [&](int n, double s) {
        return coeffs[3 * n] + coeffs[3 * n + 1] * s;
    };
    expect_near(g_at(9) + h * (K_at(9) / 4 * value(0, 0.0) + 3 * K_at(3) / 4 * value(0, 2.0 / 3)), value(1, 0.0),
                "u_1 at node", 0);
}

// Solved by Cramer's rule. With the kernel transposed, the solution would be different.
TEST(vie2_vec_example, the_kernel_is_not_transposed) {
    constexpr int steps = 8;
    const system_samples data{2, steps + 1};
    const auto K = [&](int d, int a, int b) {
        return dt * data.K[4 * d + 2 * a + b];
    };
    ASSERT_NE(K(0, 0, 1), K(0, 1, 0));
    const sampled_answer answer = call_vie2_vec(data.g, data.K, 2, dt, {1, {1}});
    expect_solved(answer, steps);
    std::vector<std::array<double, 2>> U;
    for (int n = 0; n < steps; ++n) {
        double rhs[2];
        for (int a = 0; a < 2; ++a) {
            rhs[a] = data.g[2 * (n + 1) + a];
            for (int d = 1; d <= n; ++d)
                rhs[a] += K(d, a, 0) * U[n - d][0] + K(d, a, 1) * U[n - d][1];
        }
        const double a00 = 1 - K(0, 0, 0), a01 = -K(0, 0, 1), a10 = -K(0, 1, 0), a11 = 1 - K(0, 1, 1);
        const double determinant = a00 * a11 - a01 * a10;
        U.push_back({(rhs[0] * a11 - a01 * rhs[1]) / determinant, (a00 * rhs[1] - a10 * rhs[0]) / determinant});
        for (int a = 0; a < 2; ++a)
            expect_near(U[n][a], answer.coeffs.values()[4 * n + a], "coeffs", 4 * n + a);
    }
}

// Each component is a line on a step, given by its values at both ends.
TEST(vie2_vec_example, row_2_gives_the_trapezoidal_rule_for_every_pair_of_components) {
    constexpr int steps = 12;
    const system_samples data{2, steps + 1};
    const sampled_answer answer = call_vie2_vec(data.g, data.K, 2, dt, {1, {0, 1}});
    expect_solved(answer, steps);
    const std::span<const double> coeffs = answer.coeffs.values();
    // Component b of step n at its left end (node 0) or at its right end (node 1).
    const auto U = [&](int n, int j, int b) {
        return coeffs[6 * n + b] + j * coeffs[6 * n + 2 + b];
    };
    for (int n = 0; n < steps; ++n)
        for (int i = 0; i < 2; ++i)
            for (int a = 0; a < 2; ++a) {
                double expected = data.g[2 * (n + i) + a];
                for (int b = 0; b < 2; ++b) {
                    for (int d = 1; d <= n; ++d)
                        for (int j = 0; j < 2; ++j)
                            expected += dt / 2 * data.K[4 * (d + i - j) + 2 * a + b] * U(n - d, j, b);
                    if (i == 1)
                        for (int j = 0; j < 2; ++j)
                            expected += dt / 2 * data.K[4 * (1 - j) + 2 * a + b] * U(n, j, b);
                }
                expect_near(expected, U(n, i, a), "value of the step", n);
            }
}

TEST(vie2_vec, with_a_kernel_of_zero_the_solution_equals_g_at_the_nodes) {
    for (const int D : {1, 2, 8, 9, 64}) {
        system_samples data{D, 9};
        std::fill(data.K.begin(), data.K.end(), 0.0);
        const sampled_answer answer = call_vie2_vec(data.g, data.K, D, dt, {2, {0, 2}});
        expect_solved(answer, 2);
        for (int a = 0; a < D; ++a) {
            EXPECT_TRUE(equal_bits(data.g[a], answer.out.values()[a]));
            EXPECT_TRUE(equal_bits(data.g[8 * D + a], answer.out.values()[8 * D + a]));
        }
    }
}

// ---- The ends of the grid ----

TEST(vie2, one_sample_has_no_step_and_gives_zero_for_any_g) {
    const sampled_answer answer = call_vie2({5.0}, {1.0}, dt, {1, {0}});
    expect_solved(answer, 0);
    EXPECT_TRUE(equal_bits(std::vector{0.0}, answer.out.values()));
}

TEST(vie2, one_explicit_step_does_not_use_the_second_sample_of_g_and_K) {
    const sampled_answer answer = call_vie2({5.0, nan}, {1.0, nan}, dt, {1, {0}});
    expect_solved(answer, 1);
    EXPECT_TRUE(equal_bits(std::vector{5.0, 5.0}, answer.out.values()));
}

TEST(vie2, with_a_kernel_of_zero_one_step_is_the_parabola_through_g_at_its_nodes) {
    const sampled_answer answer = call_vie2({1.0, 100.0, 4.0, 100.0, 9.0}, constant(0.0, 5), dt, {2, {0, 1, 2}});
    expect_solved(answer, 1);
    EXPECT_TRUE(equal_bits(std::vector{1.0, 2.25, 4.0, 6.25, 9.0}, answer.out.values())); // (1 + 2 s)^2
    EXPECT_TRUE(equal_bits(std::vector{1.0, 4.0, 4.0}, answer.coeffs.values().first(3)));
}

TEST(vie2, the_polynomial_is_extrapolated_to_sample_0_if_there_is_no_node) {
    const sampled_answer constant_steps = solve({2, {1}}, 5);
    expect_solved(constant_steps, 1);
    const auto out = constant_steps.out.values();
    expect_near(g_at(2) / (1.0 - 4 * dt * K_at(1) / 2), out[0], "out", 0);
    EXPECT_NE(out[0], g_at(0));
    for (int e = 1; e <= 4; ++e) // piecewise constant
        EXPECT_TRUE(equal_bits(out[0], out[e])) << "sample " << e;
}

// ---- Weights of zero ----

// Nodes 1/2 and 1 have the weights 1 and 0. The kernel is 0 up to lag 2, so the first step equals g at its nodes.
TEST(vie2, a_value_with_a_weight_of_zero_has_no_effect_unless_it_is_infinite) {
    const setting row{2, {1, 2}};
    const std::vector<double> K{0.0, 0.0, 0.0, 1.0, 2.0, 3.0, 4.0, 5.0, 6.0};
    const auto second_step = [&](double end_of_first_step) {
        std::vector<double> g = constant(1.0, 9);
        g[4] = end_of_first_step;
        const sampled_answer answer = call_vie2(g, K, 0.25, row);
        expect_solved(answer, 2);
        const auto coeffs = answer.coeffs.values().subspan(3, 2);
        return std::vector<double>{coeffs.begin(), coeffs.end()};
    };
    const std::vector<double> expected{1.0, 4.0}; // 1 + 2 = 3 at the midpoint and 1 + 4 = 5 at the end
    EXPECT_TRUE(equal_bits(expected, second_step(1.0)));
    EXPECT_TRUE(equal_bits(expected, second_step(-1e300)));
    for (const double coefficient : second_step(std::numeric_limits<double>::infinity()))
        EXPECT_TRUE(std::isnan(coefficient));
}

TEST(vie2, an_infinite_sample_times_zero_makes_the_solution_nan) {
    // W of the setting (1; 0) is K[0] * (0 * 1), which is 0 if K[0] is finite.
    std::vector<double> K = sampled(K_at, 4);
    K[0] = std::numeric_limits<double>::infinity();
    const sampled_answer answer = call_vie2(sampled(g_at, 4), K, dt, {1, {0}});
    expect_solved(answer, 3);
    for (int sample = 0; sample < 4; ++sample)
        EXPECT_TRUE(std::isnan(answer.out.values()[sample])) << "sample " << sample;
}

// Nodes 1/2 and 1 have the weights 1 and 0. Lag 0 is read once, with the weight 0.
TEST(vie2_vec, a_nan_times_a_weight_of_zero_makes_the_solution_nan) {
    for (const int D : {1, 2, 8, 9}) {
        system_samples data{D, 5};
        data.K[D - 1] = nan; // row 0, last column
        const sampled_answer answer = call_vie2_vec(data.g, data.K, D, dt, {2, {1, 2}});
        expect_solved(answer, 1);
        EXPECT_TRUE(std::isnan(answer.out.values()[0])) << "D = " << D;
    }
}

// ---- Singular blocks ----

// K(0) is zero except for the last diagonal entry, 1 / dt, which makes the block of row 1 singular.
TEST(vie2_vec, a_singular_block_of_a_system_returns_status_2_and_nothing_is_written) {
    for (const int D : {1, 2, 3, 8, 9, 12}) {
        system_samples data{D, 10};
        std::fill(data.K.begin(), data.K.end(), 0.0);
        data.K[D * D - 1] = 1.0 / 0.25;
        const sampled_answer answer = call_vie2_vec(data.g, data.K, D, 0.25, {1, {1}});
        EXPECT_EQ(answer.status, QUENTA_SINGULAR_BLOCK) << "D = " << D;
        EXPECT_TRUE(answer.untouched()) << "D = " << D;
        // Without a step there is no block.
        data.g.resize(D);
        data.K.resize(D * D);
        const sampled_answer no_step = call_vie2_vec(data.g, data.K, D, 0.25, {1, {1}});
        expect_solved(no_step, 0);
        EXPECT_TRUE(equal_bits(constant(0.0, D), no_step.out.values()));
    }
}

TEST(vie2, a_singular_block_returns_status_2_and_nothing_is_written) {
    // dt * K[0] = 1, so the block of row 1 is zero.
    const sampled_answer answer = call_vie2(constant(1.0, 10), constant(4.0, 10), 0.25, {1, {1}});
    EXPECT_EQ(answer.status, QUENTA_SINGULAR_BLOCK);
    EXPECT_TRUE(answer.untouched());
}

TEST(vie2, without_a_step_a_kernel_that_would_make_a_block_singular_is_solved) {
    const sampled_answer answer = call_vie2({1.0}, {4.0}, 0.25, {1, {1}});
    expect_solved(answer, 0);
    EXPECT_TRUE(equal_bits(std::vector{0.0}, answer.out.values()));
}

TEST(vie2, a_singular_block_does_not_change_the_next_call_on_the_thread) {
    const sampled_answer before = solve({2, {0, 1, 2}}, 401);
    EXPECT_EQ(call_vie2(constant(1.0, 10), constant(4.0, 10), 0.25, {1, {1}}).status, QUENTA_SINGULAR_BLOCK);
    const sampled_answer after = solve({2, {0, 1, 2}}, 401);
    expect_solved(after, 100);
    EXPECT_TRUE(equal_bits(before.out.values(), after.out.values()));
    EXPECT_TRUE(equal_bits(before.coeffs.values(), after.coeffs.values()));
}

TEST(vie2, the_list_of_nodes_selects_their_setting) {
    // The line through g(1/2) and g(1), not through g at other nodes.
    const sampled_answer answer = call_vie2({9.0, 9.0, 1.0, 9.0, 3.0}, constant(0.0, 5), dt, {2, {1, 2}});
    expect_solved(answer, 1);
    EXPECT_TRUE(equal_bits(std::vector{-1.0, 0.0, 1.0, 2.0, 3.0}, answer.out.values()));
}

TEST(vie2, settings_that_the_first_kind_refuses_are_solved) {
    for (const setting& row : {setting{3, {1}}, setting{4, {1}}, setting{4, {1, 2}}})
        expect_solved(solve(row, 16 * 9 + 1), 144 / (row.m * row.m));
}

} // namespace

} // namespace quenta_tests
