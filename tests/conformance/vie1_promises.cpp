// The promises of quenta_solve_vie1 and quenta_solve_vie1_vec, one per test: worked examples, the statuses and their
// order, the ends of the grid, and the continuous form with settings that are unsuitable for it.
#include "conformance/every_solver.hpp"
#include "conformance/sampled_promises.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <limits>
#include <ostream>

namespace quenta_tests {

namespace {

using reference::setting;

constexpr double dt = 0.03;
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

bool is_solvable(const setting& row) {
    return solver_named("vie1_discontinuous").suits(row);
}

struct samples : system_samples {
    using system_samples::system_samples;

    sampled_answer solve(const setting& row, int continuous) const {
        return call_vie1_vec(g, K, D, y0, dt, row, continuous);
    }
};

sampled_answer solve_scalar(const setting& row, int N, bool continuous, double y0 = 0.0) {
    return call_vie1(sampled(g_at, N), sampled(K_at, N), y0, dt, row, continuous);
}

// The value of component b at the end of step n: the sum of its coefficients.
double end_of_step(const sampled_answer& answer, const setting& row, int D, bool continuous, int n, int b) {
    const int slots = int(row.indices.size()) + 1;
    double end = 0.0;
    for (int p = 0; p < (continuous ? slots : slots - 1); ++p)
        end += answer.coeffs.values()[(slots * n + p) * D + b];
    return end;
}

// ---- Worked examples, computed from their formulas ----

TEST(vie1_example, one_node_at_the_end_gives_the_rectangle_rule) {
    constexpr int steps = 50;
    std::vector<double> U;
    for (int n = 0; n < steps; ++n) {
        double rest = g_at(n + 1);
        for (int d = 1; d <= n; ++d)
            rest -= dt * K_at(d) * U[n - d];
        U.push_back(rest / (dt * K_at(0)));
    }
    for (const bool continuous : {false, true}) {
        const sampled_answer answer = solve_scalar({1, {1}}, steps + 1, continuous);
        expect_solved(answer, steps);
        for (int n = 0; n < steps; ++n)
            expect_near(U[n], end_of_step(answer, {1, {1}}, 1, continuous, n, 0), "end of step", n);
        if (continuous) // not constant: the line from the end value of the previous step
            continue;
        expect_constant_steps(U, answer);
    }
}

// Solved by Cramer's rule. With the kernel transposed, the solution would be different.
TEST(vie1_example, the_kernel_is_not_transposed) {
    constexpr int steps = 6;
    const samples data{2, steps + 1};
    const auto K = [&](int d, int a, int b) {
        return dt * data.K[std::size_t(4 * d + 2 * a + b)];
    };
    ASSERT_NE(K(0, 0, 1), K(0, 1, 0));
    const sampled_answer answer = data.solve({1, {1}}, false);
    expect_solved(answer, steps);
    std::vector<std::array<double, 2>> U;
    for (int n = 0; n < steps; ++n) {
        double rest[2];
        for (int a = 0; a < 2; ++a) {
            rest[a] = data.g[std::size_t(2 * (n + 1) + a)];
            for (int d = 1; d <= n; ++d)
                for (int b = 0; b < 2; ++b)
                    rest[a] -= K(d, a, b) * U[n - d][b];
        }
        const double determinant = K(0, 0, 0) * K(0, 1, 1) - K(0, 0, 1) * K(0, 1, 0);
        U.push_back({(rest[0] * K(0, 1, 1) - K(0, 0, 1) * rest[1]) / determinant,
                     (K(0, 0, 0) * rest[1] - rest[0] * K(0, 1, 0)) / determinant});
        for (int b = 0; b < 2; ++b)
            expect_near(U[n][b], answer.coeffs.values()[(2 * n) * 2 + b], "coeffs", (2 * n) * 2 + b);
    }
}

TEST(vie1_example, one_node_in_the_middle_gives_the_midpoint_rule) {
    constexpr int steps = 20;
    const double h = 4 * dt;
    const sampled_answer answer = solve_scalar({2, {1}}, 4 * steps + 1, false);
    expect_solved(answer, steps);
    std::vector<double> U;
    for (int n = 0; n < steps; ++n) {
        double rest = g_at(4 * n + 2);
        for (int d = 1; d <= n; ++d)
            rest -= h * K_at(4 * d) * U[n - d];
        U.push_back(rest / (h * 0.5 * K_at(1)));
        expect_near(U[n], answer.coeffs.values()[2 * n], "coeffs", 2 * n);
        for (int e = 1; e <= 3; ++e)
            expect_near(U[n], answer.out.values()[4 * n + e], "out", 4 * n + e);
    }
}

TEST(vie1_example, one_node_in_the_middle_carries_twice_its_value_minus_the_start_of_the_step) {
    constexpr int steps = 6;
    const double h = 4 * dt, y0 = 0.75;
    const sampled_answer answer = solve_scalar({2, {1}}, 4 * steps + 1, true, y0);
    expect_solved(answer, steps);
    std::vector<double> U, B{y0};
    for (int n = 0; n < steps; ++n) {
        double rest = g_at(4 * n + 2);
        for (int d = 1; d <= n; ++d)
            rest -= h * K_at(4 * d) * U[n - d];
        rest -= h * 0.25 * K_at(1) * B[n];
        U.push_back(rest / (h * 0.25 * K_at(1)));
        B.push_back(-B[n] + 2 * U[n]);
        const double scale = std::fabs(U[n]) + std::fabs(B[n]);
        EXPECT_NEAR(answer.coeffs.values()[2 * n], B[n], 1e-10 * scale) << n;
        EXPECT_NEAR(answer.coeffs.values()[2 * n + 1], 2 * (U[n] - B[n]), 1e-10 * scale) << n;
    }
}

// ---- The ends of the grid ----

TEST(vie1, one_sample_gives_zero_for_any_initial_value) {
    for (const bool continuous : {false, true}) {
        const sampled_answer answer = call_vie1({5.0}, {1.0}, 7.0, dt, {1, {1}}, continuous);
        expect_solved(answer, 0);
        EXPECT_TRUE(equal_bits(std::vector{0.0}, answer.out.values()));
    }
}

// ---- Settings with the node 0 ----

TEST(vie1, the_discontinuous_form_with_a_node_0_is_singular) {
    for_each_setting(has_node_0, [](const setting& row) {
        for (const int D : {1, 2, 8, 9})
            for (const int steps : {1, 3}) {
                const sampled_answer answer = samples{D, steps * row.m * row.m + 1}.solve(row, false);
                EXPECT_EQ(answer.status, QUENTA_SINGULAR_BLOCK);
                EXPECT_TRUE(answer.untouched());
            }
    });
}

TEST(vie1, the_continuous_form_with_a_node_0_gives_nan) {
    for_each_setting(has_node_0, [](const setting& row) {
        for (const int D : {1, 2, 8, 9}) {
            const int N = 3 * row.m * row.m + 1;
            const sampled_answer answer = samples{D, N}.solve(row, true);
            expect_solved(answer, 3);
            EXPECT_TRUE(equal_bits(constant(nan, N * D), answer.out.values()));
            EXPECT_TRUE(equal_bits(constant(nan, int(answer.coeffs.values().size())), answer.coeffs.values()));
            EXPECT_FALSE(std::any_of(answer.coeffs.values().begin(), answer.coeffs.values().end(), is_marked));
        }
    });
}

// ---- Growth of errors ----

// With a constant kernel, a step maps the errors (U, B) to (-5 U + 2 B, 2 U - B). They grow by the eigenvalue outside
// the unit disc, a root of z^2 + 6 z + 1.
TEST(vie1, errors_of_the_continuous_form_with_one_node_in_the_middle_grow) {
    const double root = -3.0 - 2.0 * std::sqrt(2.0), spacing = 0.01;
    const auto solve = [&](int step_count, bool continuous) {
        std::vector<double> g;
        for (int sample = 0; sample <= 4 * step_count; ++sample)
            g.push_back(std::sin(sample * spacing));
        return call_vie1(g, constant(1.0, 4 * step_count + 1), 1.0, spacing, {2, {1}}, continuous);
    };
    constexpr int steps = 600;
    const sampled_answer growing = solve(steps, true), bounded = solve(steps, false);
    expect_solved(growing, steps);
    expect_solved(bounded, steps);
    const auto error = [&](int n) { // at the node of step n
        return growing.out.values()[4 * n + 2] - std::cos((4 * n + 2) * spacing);
    };
    for (int n = 20; n < 150; ++n)
        EXPECT_NEAR(error(n + 1) / error(n), root, 1e-3) << "step " << n;
    EXPECT_FALSE(std::isfinite(growing.out.values()[4 * steps]));

    for (int sample = 0; sample <= 4 * steps; ++sample)
        EXPECT_NEAR(bounded.out.values()[sample], std::cos(sample * spacing), 3 * spacing) << "sample " << sample;
}

// ---- Weights of zero ----

TEST(vie1, a_nan_times_a_weight_of_zero_makes_the_solution_nan) {
    // Nodes 1/2 and 1 have the weights 1 and 0. Lag 0 is read once, with the weight 0.
    for (const int D : {1, 9}) {
        samples data{D, 5};
        expect_solved(data.solve({2, {1, 2}}, false), 1);
        data.K[0] = nan;
        const sampled_answer answer = data.solve({2, {1, 2}}, false);
        expect_solved(answer, 1);
        EXPECT_TRUE(std::isnan(answer.out.values()[D]));
    }
}

// ---- Singular blocks ----

TEST(vie1, a_kernel_that_is_zero_at_lag_0_is_singular) {
    for (const int D : {1, 2, 8, 9})
        for (const bool continuous : {false, true}) {
            samples data{D, 10};
            std::fill_n(data.K.begin(), D * D, 0.0);
            const sampled_answer answer = data.solve({1, {1}}, continuous);
            EXPECT_EQ(answer.status, QUENTA_SINGULAR_BLOCK);
            EXPECT_TRUE(answer.untouched());
        }
}

TEST(vie1, linearly_dependent_rows_of_the_kernel_are_singular) {
    samples data{2, 10};
    const double dependent[] = {1.0, 2.0, 2.0, 4.0};
    std::copy_n(dependent, 4, data.K.begin());
    const sampled_answer answer = data.solve({1, {1}}, false);
    EXPECT_EQ(answer.status, QUENTA_SINGULAR_BLOCK);
    EXPECT_TRUE(answer.untouched());
    // Zeros on the diagonal alone do not make a block singular.
    const double antisymmetric[] = {0.0, 1.0, -1.0, 0.0};
    std::copy_n(antisymmetric, 4, data.K.begin());
    expect_solved(data.solve({1, {1}}, false), 9);
}

// ---- Settings that are refused ----

// The arrays are null pointers, so that a read would end the test.
int status_without_arrays(int N, int D, const setting& row) {
    int n_steps = marked_steps;
    const int status = quenta_solve_vie1_vec(nullptr, nullptr, N, D, nullptr, dt, row.m, row.indices.data(),
                                             int(row.indices.size()), 1, 1, nullptr, nullptr, &n_steps);
    EXPECT_EQ(n_steps, marked_steps);
    return status;
}

TEST(vie1, only_settings_that_amplify_every_error_are_refused) {
    int refused = 0;
    for_each_setting(refused_by_vie1, [&](const setting& row) {
        for (const int D : {0, 1, 8, 9, 1000})
            EXPECT_EQ(status_without_arrays(100, D, row), QUENTA_UNSUPPORTED_SETTING) << "D = " << D;
        EXPECT_EQ(status_without_arrays(1000, 2000, row), QUENTA_SIZE_OVERFLOW) << "expected sizes to be checked first";
        ++refused;
    });
    EXPECT_EQ(refused, 3);
    for_each_setting(is_solvable, [&](const setting& row) {
        expect_solved(samples{2, 3 * row.m * row.m + 1}.solve(row, false), 3);
    });
}

// For these the product of (1 - c) / c over the nodes, which decides the refusal, is exactly 1.
TEST(vie1, symmetric_nodes_are_accepted) {
    for (const setting& row : {setting{4, {1, 3}}, setting{4, {1, 2, 3}}, setting{3, {1, 2}}, setting{2, {1}}})
        expect_solved(samples{2, 3 * row.m * row.m + 1}.solve(row, false), 3);
}

// ---- Flags ----

TEST(vie1, any_flag_except_zero_selects_the_continuous_form) {
    const samples data{2, 5};
    const sampled_answer expected = data.solve({2, {1}}, 1);
    expect_solved(expected, 1);
    for (const int flag : {2, -1, 256, INT_MIN})
        EXPECT_TRUE(equal_bits(expected.out.values(), data.solve({2, {1}}, flag).out.values())) << flag;
}

TEST(vie1, the_discontinuous_form_does_not_read_the_initial_value) {
    for_each_setting(is_solvable, [](const setting& row) {
        const int N = 3 * row.m * row.m + 1;
        for (const int D : {1, 3, 9}) {
            samples data{D, N};
            const sampled_answer expected = data.solve(row, false);
            expect_solved(expected, 3);
            data.y0.clear(); // a null pointer
            const sampled_answer answer = data.solve(row, false);
            expect_solved(answer, 3);
            EXPECT_TRUE(equal_bits(expected.out.values(), answer.out.values()));
        }
        const sampled_answer scalar = solve_scalar(row, N, false, nan);
        expect_solved(scalar, 3);
        EXPECT_TRUE(equal_bits(solve_scalar(row, N, false, 1.0).out.values(), scalar.out.values()));
        EXPECT_TRUE(std::isfinite(scalar.out.values()[N - 1]));
    });
}

} // namespace

} // namespace quenta_tests
