// What quenta_solve_vie1_vec promises, one promise a test: the worked examples, the statuses and their order, the ends
// of the grid, and what a continuous form does on settings that do not suit it.
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

bool suits_vie1(const setting& row) {
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

// The end of a step, plainly: sum of the coefficients of component b of step j.
double end_of_step(const sampled_answer& answer, const setting& row, int D, bool continuous, int j, int b) {
    const int slots = int(row.indices.size()) + 1;
    double end = 0.0;
    for (int e = 0; e < (continuous ? slots : slots - 1); ++e)
        end += answer.coeffs.values()[(slots * j + e) * D + b];
    return end;
}

// ---- Worked examples, from their formulas ----

TEST(vie1_example, one_node_at_the_end_is_the_rectangle_rule) {
    constexpr int steps = 50;
    std::vector<double> U;
    for (int j = 0; j < steps; ++j) {
        double rest = g_at(j + 1);
        for (int d = 1; d <= j; ++d)
            rest -= dt * K_at(d) * U[j - d];
        U.push_back(rest / (dt * K_at(0)));
    }
    for (const bool continuous : {false, true}) {
        const sampled_answer answer = solve_scalar({1, {1}}, steps + 1, continuous);
        expect_solved(answer, steps);
        for (int j = 0; j < steps; ++j)
            expect_near(U[j], end_of_step(answer, {1, {1}}, 1, continuous, j, 0), "end of step", j);
        if (continuous) // the line from the value before
            continue;
        expect_constant_steps(U, answer);
    }
}

// Cramer's rule on A0 = h k(0): its transpose has another solution.
TEST(vie1_example, two_components_keep_the_orientation_of_the_kernel) {
    constexpr int steps = 6;
    const samples data{2, steps + 1};
    const auto K = [&](int n, int a, int b) {
        return dt * data.K[std::size_t(4 * n + 2 * a + b)];
    };
    ASSERT_NE(K(0, 0, 1), K(0, 1, 0));
    const sampled_answer answer = data.solve({1, {1}}, false);
    expect_solved(answer, steps);
    std::vector<std::array<double, 2>> U;
    for (int j = 0; j < steps; ++j) {
        double rest[2];
        for (int a = 0; a < 2; ++a) {
            rest[a] = data.g[std::size_t(2 * (j + 1) + a)];
            for (int d = 1; d <= j; ++d)
                for (int b = 0; b < 2; ++b)
                    rest[a] -= K(d, a, b) * U[j - d][b];
        }
        const double determinant = K(0, 0, 0) * K(0, 1, 1) - K(0, 0, 1) * K(0, 1, 0);
        U.push_back({(rest[0] * K(0, 1, 1) - K(0, 0, 1) * rest[1]) / determinant,
                     (K(0, 0, 0) * rest[1] - rest[0] * K(0, 1, 0)) / determinant});
        for (int b = 0; b < 2; ++b)
            expect_near(U[j][b], answer.coeffs.values()[(2 * j) * 2 + b], "coeffs", (2 * j) * 2 + b);
    }
}

TEST(vie1_example, one_node_in_the_middle_is_the_midpoint_rule) {
    constexpr int steps = 20;
    const double h = 4 * dt;
    const sampled_answer answer = solve_scalar({2, {1}}, 4 * steps + 1, false);
    expect_solved(answer, steps);
    std::vector<double> U;
    for (int j = 0; j < steps; ++j) {
        double rest = g_at(4 * j + 2);
        for (int d = 1; d <= j; ++d)
            rest -= h * K_at(4 * d) * U[j - d];
        U.push_back(rest / (h * 0.5 * K_at(1)));
        expect_near(U[j], answer.coeffs.values()[2 * j], "coeffs", 2 * j);
        for (int e = 1; e <= 3; ++e)
            expect_near(U[j], answer.out.values()[4 * j + e], "out", 4 * j + e);
    }
}

TEST(vie1_example, one_node_in_the_middle_carries_the_mirror_of_the_start) {
    constexpr int steps = 6;
    const double h = 4 * dt, y0 = 0.75;
    const sampled_answer answer = solve_scalar({2, {1}}, 4 * steps + 1, true, y0);
    expect_solved(answer, steps);
    std::vector<double> U, B{y0};
    for (int j = 0; j < steps; ++j) {
        double rest = g_at(4 * j + 2);
        for (int d = 1; d <= j; ++d)
            rest -= h * K_at(4 * d) * U[j - d];
        rest -= h * 0.25 * K_at(1) * B[j];
        U.push_back(rest / (h * 0.25 * K_at(1)));
        B.push_back(-B[j] + 2 * U[j]);
        const double scale = std::fabs(U[j]) + std::fabs(B[j]);
        EXPECT_NEAR(answer.coeffs.values()[2 * j], B[j], 1e-10 * scale) << j;
        EXPECT_NEAR(answer.coeffs.values()[2 * j + 1], 2 * (U[j] - B[j]), 1e-10 * scale) << j;
    }
}

// ---- The ends of the grid ----

TEST(vie1, one_sample_gives_one_zero_whatever_the_initial_value_is) {
    for (const bool continuous : {false, true}) {
        const sampled_answer answer = call_vie1({5.0}, {1.0}, 7.0, dt, {1, {1}}, continuous);
        expect_solved(answer, 0);
        EXPECT_TRUE(equal_bits(std::vector{0.0}, answer.out.values()));
    }
}

// ---- Settings with the node 0 ----

TEST(vie1, a_node_at_0_is_singular_without_the_carried_value) {
    for_each_setting(has_node_0, [](const setting& row) {
        for (const int D : {1, 2, 8, 9})
            for (const int steps : {1, 3}) {
                const sampled_answer answer = samples{D, steps * row.m * row.m + 1}.solve(row, false);
                EXPECT_EQ(answer.status, QUENTA_SINGULAR_BLOCK);
                EXPECT_TRUE(answer.untouched());
            }
    });
}

TEST(vie1, a_node_at_0_gives_nan_with_the_carried_value) {
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

// ---- Growth ----

// With constant kernel, U' = -5 U + 2 B and B' = 2 U - B: the root of z^2 + 6 z + 1 that is not in the unit disc.
TEST(vie1, a_node_in_the_middle_lets_errors_of_the_continuous_form_grow) {
    const double root = -3.0 - 2.0 * std::sqrt(2.0), spacing = 0.01;
    const auto problem = [&](int steps, bool continuous) {
        std::vector<double> g;
        for (int i = 0; i <= 4 * steps; ++i)
            g.push_back(std::sin(i * spacing));
        return call_vie1(g, constant(1.0, 4 * steps + 1), 1.0, spacing, {2, {1}}, continuous);
    };
    constexpr int steps = 600;
    const sampled_answer growing = problem(steps, true), tame = problem(steps, false);
    expect_solved(growing, steps);
    expect_solved(tame, steps);
    const auto error = [&](int j) { // at the node
        return growing.out.values()[4 * j + 2] - std::cos((4 * j + 2) * spacing);
    };
    for (int j = 20; j < 150; ++j)
        EXPECT_NEAR(error(j + 1) / error(j), root, 1e-3) << "step " << j;
    EXPECT_FALSE(std::isfinite(growing.out.values()[4 * steps]));

    for (int i = 0; i <= 4 * steps; ++i)
        EXPECT_NEAR(tame.out.values()[i], std::cos(i * spacing), 3 * spacing) << "sample " << i;
}

// ---- Weights of zero and samples that are no numbers ----

TEST(vie1, a_nan_under_a_weight_of_zero_is_a_nan) {
    // Nodes 1/2 and 1 have the weights 1 and 0, and lag 0 is read once, under the second.
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

TEST(vie1, a_kernel_of_zero_at_lag_zero_is_singular) {
    for (const int D : {1, 2, 8, 9})
        for (const bool continuous : {false, true}) {
            samples data{D, 10};
            std::fill_n(data.K.begin(), D * D, 0.0);
            const sampled_answer answer = data.solve({1, {1}}, continuous);
            EXPECT_EQ(answer.status, QUENTA_SINGULAR_BLOCK);
            EXPECT_TRUE(answer.untouched());
        }
}

TEST(vie1, components_that_say_the_same_are_singular) {
    samples data{2, 10};
    const double same[] = {1.0, 2.0, 2.0, 4.0};
    std::copy_n(same, 4, data.K.begin());
    const sampled_answer answer = data.solve({1, {1}}, false);
    EXPECT_EQ(answer.status, QUENTA_SINGULAR_BLOCK);
    EXPECT_TRUE(answer.untouched());
    // An antisymmetric kernel has zeros on its diagonal only.
    const double turned[] = {0.0, 1.0, -1.0, 0.0};
    std::copy_n(turned, 4, data.K.begin());
    expect_solved(data.solve({1, {1}}, false), 9);
}

// ---- Settings that are refused ----

// Null arrays show that nothing is read.
int status_of_nothing(int N, int D, const setting& row) {
    int n_steps = marked_steps;
    const int status = quenta_solve_vie1_vec(nullptr, nullptr, N, D, nullptr, dt, row.m, row.indices.data(),
                                             int(row.indices.size()), 1, 1, nullptr, nullptr, &n_steps);
    EXPECT_EQ(n_steps, marked_steps);
    return status;
}

TEST(vie1, settings_that_amplify_every_error_are_refused_and_no_others) {
    int refused = 0;
    for_each_setting(refused_by_vie1, [&](const setting& row) {
        for (const int D : {0, 1, 8, 9, 1000})
            EXPECT_EQ(status_of_nothing(100, D, row), QUENTA_UNSUPPORTED_SETTING) << "D = " << D;
        EXPECT_EQ(status_of_nothing(1000, 2000, row), QUENTA_SIZE_OVERFLOW) << "sizes are looked at first";
        ++refused;
    });
    EXPECT_EQ(refused, 3);
    for_each_setting(suits_vie1, [&](const setting& row) {
        expect_solved(samples{2, 3 * row.m * row.m + 1}.solve(row, false), 3);
    });
}

// At the boundary of the refusal: the products over their nodes are exactly 1.
TEST(vie1, symmetric_nodes_are_accepted) {
    for (const setting& row : {setting{4, {1, 3}}, setting{4, {1, 2, 3}}, setting{3, {1, 2}}, setting{2, {1}}})
        expect_solved(samples{2, 3 * row.m * row.m + 1}.solve(row, false), 3);
}

// ---- Flags ----

TEST(vie1, any_flag_but_zero_asks_for_the_continuous_form) {
    const samples data{2, 5};
    const sampled_answer expected = data.solve({2, {1}}, 1);
    expect_solved(expected, 1);
    for (const int flag : {2, -1, 256, INT_MIN})
        EXPECT_TRUE(equal_bits(expected.out.values(), data.solve({2, {1}}, flag).out.values())) << flag;
}

TEST(vie1, the_discontinuous_form_does_not_read_the_initial_value) {
    for_each_setting(suits_vie1, [](const setting& row) {
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
