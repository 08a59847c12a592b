// What quenta_solve_vie2 and quenta_solve_vie2_vec promise, one promise a test: the worked examples, weights of zero
// and singular blocks.
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

// ---- Worked examples, from their formulas ----

// With the node at the left end of the step it is explicit, at the right end implicit.
TEST(vie2_example, one_node_at_an_end_of_the_step_is_a_rectangle_rule) {
    constexpr int steps = 50;
    for (const int node : {0, 1}) {
        const sampled_answer answer = solve({1, {node}}, steps + 1);
        expect_solved(answer, steps);
        std::vector<double> U;
        for (int n = 0; n < steps; ++n) {
            double sum = 0.0;
            for (int j = 0; j < n; ++j)
                sum += K_at(n - j) * U[j];
            U.push_back((g_at(n + node) + dt * sum) / (1.0 - dt * node * K_at(0)));
        }
        expect_constant_steps(U, answer);
    }
}

// Each step has its own value at both ends, so that the value at t_n occurs twice.
TEST(vie2_example, row_2_has_the_trapezoidal_rule_on_every_step) {
    constexpr int steps = 50;
    const sampled_answer answer = solve({1, {0, 1}}, steps + 1);
    expect_solved(answer, steps);
    std::vector<double> left, right;
    for (int n = 0; n < steps; ++n) {
        double at_left = g_at(n), at_right = g_at(n + 1);
        for (int i = 0; i < n; ++i) {
            const int j = n - i;
            at_left += dt / 2 * (K_at(j) * left[i] + K_at(j - 1) * right[i]);
            at_right += dt / 2 * (K_at(j + 1) * left[i] + K_at(j) * right[i]);
        }
        left.push_back(at_left);
        right.push_back((at_right + dt / 2 * K_at(1) * at_left) / (1.0 - dt / 2 * K_at(0)));
    }
    const auto out = answer.out.values();
    expect_near(left[0], out[0], "out", 0);
    for (int x = 1; x < steps; ++x)
        expect_near((right[x - 1] + left[x]) / 2, out[x], "out", x);
    expect_near(right[steps - 1], out[steps], "out", steps);
    for (int n = 0; n < steps; ++n) {
        expect_near(left[n], answer.coeffs.values()[n * 3], "coeffs", n * 3);
        expect_near(right[n] - left[n], answer.coeffs.values()[n * 3 + 1], "coeffs", n * 3 + 1);
    }
}

TEST(vie2_example, row_4_is_the_midpoint_rule) {
    constexpr int steps = 50;
    const sampled_answer answer = solve({2, {1}}, 4 * steps + 1);
    expect_solved(answer, steps);
    const double h = 4 * dt;
    std::vector<double> U;
    for (int n = 0; n < steps; ++n) {
        double sum = 0.0;
        for (int j = 1; j <= n; ++j)
            sum += K_at(4 * j) * U[n - j];
        U.push_back((g_at(4 * n + 2) + h * sum) / (1.0 - h * K_at(1) / 2));
    }
    for (int n = 0; n < steps; ++n) {
        for (int e = 1; e <= 3; ++e)
            expect_near(U[n], answer.out.values()[4 * n + e], "out", 4 * n + e);
        expect_near(U[n], answer.coeffs.values()[2 * n], "coeffs", 2 * n);
    }
}

TEST(vie2_example, row_9_has_simpsons_rule_on_every_step) {
    constexpr int steps = 20;
    const sampled_answer answer = solve({2, {0, 1, 2}}, 4 * steps + 1);
    expect_solved(answer, steps);
    const double h = 4 * dt;
    constexpr double b[3] = {1.0 / 6, 2.0 / 3, 1.0 / 6};
    // The two lower rows of W, and the present step solved for the last two values by Cramer's rule.
    const double L1[3][3] = {{1, 0, 0}, {0.375, 0.75, -0.125}, {0, 1, 0}};
    const double L2[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    double W1[3] = {}, W2[3] = {};
    for (int q = 0; q < 3; ++q)
        for (int l = 0; l < 3; ++l) {
            W1[l] += b[q] / 2 * K_at(2 - q) * L1[q][l];
            W2[l] += b[q] * K_at(4 - 2 * q) * L2[q][l];
        }
    std::vector<double> U;
    for (int n = 0; n < steps; ++n) {
        double rhs[3];
        for (int i = 0; i < 3; ++i) {
            rhs[i] = g_at(4 * n + 2 * i);
            for (int j = 1; j <= n; ++j)
                for (int l = 0; l < 3; ++l)
                    rhs[i] += h * b[l] * K_at(4 * j + 2 * (i - l)) * U[3 * (n - j) + l];
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

TEST(vie2_example, row_15_has_radaus_rule_in_the_history) {
    const setting row{3, {0, 2}};
    const double h = 9 * dt;
    // Two steps; the second one's first node has no part of its own step in it.
    const sampled_answer answer = solve(row, 19);
    expect_solved(answer, 2);
    const auto coeffs = answer.coeffs.values();
    const auto value = [&](int n, double s) {
        return coeffs[3 * n] + coeffs[3 * n + 1] * s;
    };
    expect_near(g_at(9) + h * (K_at(9) / 4 * value(0, 0.0) + 3 * K_at(3) / 4 * value(0, 2.0 / 3)), value(1, 0.0),
                "u_1 at node", 0);
}

// Cramer's rule on A = 1 - dt K(0): its transpose has another solution.
TEST(vie2_vec_example, two_components_keep_the_orientation_of_the_kernel) {
    constexpr int steps = 8;
    const system_samples data{2, steps + 1};
    const auto K = [&](int n, int r, int s) {
        return dt * data.K[4 * n + 2 * r + s];
    };
    ASSERT_NE(K(0, 0, 1), K(0, 1, 0));
    const sampled_answer answer = call_vie2_vec(data.g, data.K, 2, dt, {1, {1}});
    expect_solved(answer, steps);
    std::vector<std::array<double, 2>> U;
    for (int n = 0; n < steps; ++n) {
        double rhs[2];
        for (int r = 0; r < 2; ++r) {
            rhs[r] = data.g[2 * (n + 1) + r];
            for (int j = 1; j <= n; ++j)
                rhs[r] += K(j, r, 0) * U[n - j][0] + K(j, r, 1) * U[n - j][1];
        }
        const double a00 = 1 - K(0, 0, 0), a01 = -K(0, 0, 1), a10 = -K(0, 1, 0), a11 = 1 - K(0, 1, 1);
        const double determinant = a00 * a11 - a01 * a10;
        U.push_back({(rhs[0] * a11 - a01 * rhs[1]) / determinant, (a00 * rhs[1] - a10 * rhs[0]) / determinant});
        for (int r = 0; r < 2; ++r)
            expect_near(U[n][r], answer.coeffs.values()[4 * n + r], "coeffs", 4 * n + r);
    }
}

// The lines of two components through both ends of a step; the last value of a line is that of the next lag's sample.
TEST(vie2_vec_example, row_2_has_the_trapezoidal_rule_between_all_components) {
    constexpr int steps = 12;
    const system_samples data{2, steps + 1};
    const sampled_answer answer = call_vie2_vec(data.g, data.K, 2, dt, {1, {0, 1}});
    expect_solved(answer, steps);
    const std::span<const double> coeffs = answer.coeffs.values();
    // Component s of step n at its left end (node 0) or at its right end (node 1).
    const auto U = [&](int n, int node, int s) {
        return coeffs[6 * n + s] + node * coeffs[6 * n + 2 + s];
    };
    for (int n = 0; n < steps; ++n)
        for (int node = 0; node < 2; ++node)
            for (int r = 0; r < 2; ++r) {
                double expected = data.g[2 * (n + node) + r];
                for (int s = 0; s < 2; ++s) {
                    for (int j = 1; j <= n; ++j)
                        for (int l = 0; l < 2; ++l)
                            expected += dt / 2 * data.K[4 * (j + node - l) + 2 * r + s] * U(n - j, l, s);
                    if (node == 1)
                        for (int l = 0; l < 2; ++l)
                            expected += dt / 2 * data.K[4 * (1 - l) + 2 * r + s] * U(n, l, s);
                }
                expect_near(expected, U(n, node, r), "value of the step", n);
            }
}

TEST(vie2_vec, without_a_kernel_the_values_at_the_nodes_are_those_of_g) {
    for (const int D : {1, 2, 8, 9, 64}) {
        system_samples data{D, 9};
        std::fill(data.K.begin(), data.K.end(), 0.0);
        const sampled_answer answer = call_vie2_vec(data.g, data.K, D, dt, {2, {0, 2}});
        expect_solved(answer, 2);
        for (int r = 0; r < D; ++r) {
            EXPECT_TRUE(equal_bits(data.g[r], answer.out.values()[r]));
            EXPECT_TRUE(equal_bits(data.g[8 * D + r], answer.out.values()[8 * D + r]));
        }
    }
}

// ---- The ends of the grid ----

TEST(vie2, one_sample_has_no_step_and_gives_zero_whatever_g_is) {
    const sampled_answer answer = call_vie2({5.0}, {1.0}, dt, {1, {0}});
    expect_solved(answer, 0);
    EXPECT_TRUE(equal_bits(std::vector{0.0}, answer.out.values()));
}

TEST(vie2, the_second_sample_of_g_and_K_is_not_used_by_one_explicit_step) {
    const sampled_answer answer = call_vie2({5.0, nan}, {1.0, nan}, dt, {1, {0}});
    expect_solved(answer, 1);
    EXPECT_TRUE(equal_bits(std::vector{5.0, 5.0}, answer.out.values()));
}

TEST(vie2, without_a_kernel_one_step_is_the_parabola_through_its_nodes) {
    const sampled_answer answer = call_vie2({1.0, 100.0, 4.0, 100.0, 9.0}, constant(0.0, 5), dt, {2, {0, 1, 2}});
    expect_solved(answer, 1);
    EXPECT_TRUE(equal_bits(std::vector{1.0, 2.25, 4.0, 6.25, 9.0}, answer.out.values())); // (1 + 2 s)^2
    EXPECT_TRUE(equal_bits(std::vector{1.0, 4.0, 4.0}, answer.coeffs.values().first(3)));
}

TEST(vie2, nodes_inside_the_step_are_extrapolated_to_sample_0) {
    const sampled_answer constant_steps = solve({2, {1}}, 5);
    expect_solved(constant_steps, 1);
    const auto out = constant_steps.out.values();
    expect_near(g_at(2) / (1.0 - 4 * dt * K_at(1) / 2), out[0], "out", 0);
    EXPECT_NE(out[0], g_at(0));
    for (int x = 1; x <= 4; ++x) // piecewise constant
        EXPECT_TRUE(equal_bits(out[0], out[x])) << x;
}

// ---- Weights of zero ----

// Nodes 1/2 and 1 have the weights 1 and 0. The kernel is zero up to lag 2, so that a step's values are those of g.
TEST(vie2, a_value_under_a_weight_of_zero_counts_for_nothing_unless_it_is_infinite) {
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

TEST(vie2, an_infinite_sample_under_a_node_at_zero_spoils_its_row) {
    // W of the row 1, [0] is K[0] * (0 * 1), which is 0 unless K[0] is not finite.
    std::vector<double> K = sampled(K_at, 4);
    K[0] = std::numeric_limits<double>::infinity();
    const sampled_answer answer = call_vie2(sampled(g_at, 4), K, dt, {1, {0}});
    expect_solved(answer, 3);
    for (int x = 0; x < 4; ++x)
        EXPECT_TRUE(std::isnan(answer.out.values()[x])) << x;
}

// Nodes 1/2 and 1 have the weights 1 and 0, and lag 0 is read once, under the second.
TEST(vie2_vec, a_nan_under_a_weight_of_zero_is_a_nan) {
    for (const int D : {1, 2, 8, 9}) {
        system_samples data{D, 5};
        data.K[D - 1] = nan; // of component 0, for the last one
        const sampled_answer answer = call_vie2_vec(data.g, data.K, D, dt, {2, {1, 2}});
        expect_solved(answer, 1);
        EXPECT_TRUE(std::isnan(answer.out.values()[0])) << "D = " << D;
    }
}

// ---- Singular blocks ----

// K = 1 / dt times the unit matrix but in the last component, which makes the block of row 1 singular.
TEST(vie2_vec, one_component_without_a_pivot_is_status_2_and_nothing_is_written) {
    for (const int D : {1, 2, 3, 8, 9, 12}) {
        system_samples data{D, 10};
        std::fill(data.K.begin(), data.K.end(), 0.0);
        data.K[D * D - 1] = 1.0 / 0.25;
        const sampled_answer answer = call_vie2_vec(data.g, data.K, D, 0.25, {1, {1}});
        EXPECT_EQ(answer.status, QUENTA_SINGULAR_BLOCK) << "D = " << D;
        EXPECT_TRUE(answer.untouched()) << "D = " << D;
        // Without a step it is not looked at.
        data.g.resize(D);
        data.K.resize(D * D);
        const sampled_answer no_step = call_vie2_vec(data.g, data.K, D, 0.25, {1, {1}});
        expect_solved(no_step, 0);
        EXPECT_TRUE(equal_bits(constant(0.0, D), no_step.out.values()));
    }
}

TEST(vie2, a_singular_block_is_status_2_and_nothing_is_written) {
    // dt * K[0] = 1 makes the block of row 1 zero.
    const sampled_answer answer = call_vie2(constant(1.0, 10), constant(4.0, 10), 0.25, {1, {1}});
    EXPECT_EQ(answer.status, QUENTA_SINGULAR_BLOCK);
    EXPECT_TRUE(answer.untouched());
}

TEST(vie2, without_a_step_a_singular_block_is_not_looked_at) {
    const sampled_answer answer = call_vie2({1.0}, {4.0}, 0.25, {1, {1}});
    expect_solved(answer, 0);
    EXPECT_TRUE(equal_bits(std::vector{0.0}, answer.out.values()));
}

TEST(vie2, after_a_singular_block_the_next_call_on_the_thread_is_as_good_as_any) {
    const sampled_answer before = solve({2, {0, 1, 2}}, 401);
    EXPECT_EQ(call_vie2(constant(1.0, 10), constant(4.0, 10), 0.25, {1, {1}}).status, QUENTA_SINGULAR_BLOCK);
    const sampled_answer after = solve({2, {0, 1, 2}}, 401);
    expect_solved(after, 100);
    EXPECT_TRUE(equal_bits(before.out.values(), after.out.values()));
    EXPECT_TRUE(equal_bits(before.coeffs.values(), after.coeffs.values()));
}

TEST(vie2, two_nodes_in_their_order_select_their_row) {
    // The line through y(1/2) and y(1), and not the one through other nodes.
    const sampled_answer answer = call_vie2({9.0, 9.0, 1.0, 9.0, 3.0}, constant(0.0, 5), dt, {2, {1, 2}});
    expect_solved(answer, 1);
    EXPECT_TRUE(equal_bits(std::vector{-1.0, 0.0, 1.0, 2.0, 3.0}, answer.out.values()));
}

TEST(vie2, rows_that_a_first_kind_solver_would_refuse_are_solved) {
    for (const setting& row : {setting{3, {1}}, setting{4, {1}}, setting{4, {1, 2}}})
        expect_solved(solve(row, 16 * 9 + 1), 144 / (row.m * row.m));
}

} // namespace

} // namespace quenta_tests
