// The mesh of a singular equation, as the interface shows it.
#include "quenta_equations.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <vector>

namespace {

std::vector<double> default_mesh(double alpha, double t_end, int steps, int P = 5) {
    const auto y = quenta::second_kind([](double) { return 1.0; })
                       .lag_memory(quenta::weakly_singular(alpha, [](double) { return 0.0; }))
                       .solve(t_end, quenta::steps(steps).nodes(QUENTA_RADAU, P));
    return {y.mesh().begin(), y.mesh().end()};
}

TEST(default_mesh, is_contained_in_the_mesh_of_twice_as_many_steps) {
    for (const double alpha : {0.05, 0.5, 0.8})
        for (const int steps : {8, 24, 64}) {
            const std::vector<double> coarse = default_mesh(alpha, 3.0, steps),
                                      fine = default_mesh(alpha, 3.0, 2 * steps);
            ASSERT_EQ(fine.size(), 2 * std::size_t(steps) + 1);
            for (std::size_t n = 0; n < coarse.size(); ++n)
                EXPECT_DOUBLE_EQ(coarse[n], fine[2 * n]) << "alpha = " << alpha << ", " << n << " of " << steps;
        }
}

TEST(default_mesh, has_its_longest_steps_at_the_end) {
    for (const double alpha : {0.1, 0.5, 0.9}) {
        const std::vector<double> mesh = default_mesh(alpha, 1.0, 800);
        const double last = mesh[800] - mesh[799];
        EXPECT_NEAR(mesh[700] - mesh[699], last, 1e-12);
        for (std::size_t n = 2; n < mesh.size(); ++n)
            EXPECT_LE(mesh[n - 1] - mesh[n - 2], (mesh[n] - mesh[n - 1]) * (1 + 1e-9)) << n;
        std::size_t graded = 0;
        while (mesh[graded + 1] - mesh[graded] < 0.9 * last)
            ++graded;
        EXPECT_GT(graded, std::size_t(350));
        EXPECT_LT(graded, std::size_t(610));
        // The points are t = T x^r, where r = 5 / (1 - alpha).
        EXPECT_NEAR(std::log(mesh[40] / mesh[20]) / std::log(2.0), std::min(5 / (1 - alpha), 50.0), 1e-6);
    }
}

TEST(default_mesh, has_steps_of_any_number_and_length) {
    for (const double alpha : {5e-324, 0.5, 0.95, 0.999, 1.0 - 0x1p-53})
        for (const double t_end : {1e-300, 1e-12, 1.0, 1e12, 1e300})
            for (const int steps : {1, 2, 3, 7, 400}) {
                const std::vector<double> mesh = default_mesh(alpha, t_end, steps, 2);
                ASSERT_EQ(mesh.size(), std::size_t(steps) + 1);
                EXPECT_EQ(mesh.back(), t_end);
                for (std::size_t n = 1; n < mesh.size(); ++n)
                    EXPECT_GE(mesh[n] - mesh[n - 1], std::numeric_limits<double>::min());
            }
}

bool contains(const quenta::solution& y, double t) {
    return std::any_of(y.mesh().begin(), y.mesh().end(), [t](double point) { return std::fabs(point - t) < 1e-12; });
}

double longest_step(const quenta::solution& y) {
    double longest = 0.0;
    for (std::size_t n = 1; n < y.mesh().size(); ++n)
        longest = std::max(longest, y.mesh()[n] - y.mesh()[n - 1]);
    return longest;
}

TEST(default_mesh, contains_the_multiples_of_a_delay_counted_from_both_ends) {
    for (const int steps : {1, 4, 10, 47}) {
        auto equation = quenta::second_kind([](double) { return 1.0; });
        const auto y = equation.delay(0.7).delay(2.1).solve(3.0, quenta::steps(steps));
        for (int k = 0; k * 0.7 < 3.0; ++k) {
            EXPECT_TRUE(contains(y, k * 0.7));
            EXPECT_TRUE(contains(y, 3.0 - k * 0.7));
        }
        EXPECT_EQ(y.mesh().back(), 3.0);
        EXPECT_GE(y.steps(), steps);
        EXPECT_LE(y.steps(), steps + 9);
        EXPECT_LE(longest_step(y), 3.0 / steps + 1e-12);
    }
}

TEST(default_mesh, contains_the_sums_of_delays) {
    auto equation = quenta::second_kind([](double) { return 1.0; });
    equation.delay(0.3).delay(0.2).delay(0.1 * std::sqrt(17.0)); // 0.3 = 0.2 + 0.1, rounded
    const auto y = equation.solve(1.0, quenta::steps(1));
    int sums = 0;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 5; ++j)
            for (int k = 0; k < 3; ++k) {
                const double sum = i * 0.3 + j * 0.2 + k * 0.1 * std::sqrt(17.0);
                sums += sum < 1.0;
                EXPECT_TRUE(sum >= 1.0 || contains(y, sum)) << sum;
            }
    EXPECT_GT(sums, 10);
    for (std::size_t n = 1; n < y.mesh().size(); ++n)
        EXPECT_GT(y.mesh()[n] - y.mesh()[n - 1], 1e-3); // 3 * 0.2 and 2 * 0.3 are one point
}

TEST(default_mesh, counts_equal_sums_of_delays_once) {
    auto equation = quenta::second_kind([](double) { return 1.0; });
    for (const double delay : {0.2, 0.3, 0.5, 0.7})
        equation.delay(delay, 0.1);
    const auto y = equation.solve(30.0, quenta::to_tolerance(1e-3)); // there are 300 sums, but some 10^6 combinations
    EXPECT_LT(y.steps(), 3000);
    EXPECT_NEAR(y(30.0), 1 / 0.6, 2e-3);
}

// A sum of more than P + 2 delays is no breaking point of an integro-differential equation with P nodes.
TEST(default_mesh, contains_the_sums_of_few_delays_for_an_integro_differential_equation) {
    auto equation = quenta::integro_differential(nullptr, 1.0);
    equation.delay(1.0).delay(std::sqrt(2.0));
    const auto y = equation.solve(60.0, quenta::steps(1));
    for (int i = 0; i <= 5; ++i)
        for (int j = 0; i + j <= 5; ++j)
            EXPECT_TRUE(contains(y, i + j * std::sqrt(2.0)));
    EXPECT_FALSE(contains(y, 6 * std::sqrt(2.0)));
    EXPECT_LE(longest_step(y), 1.0);
    EXPECT_LT(y.steps(), 80);
}

// Pieces of 1e-11 are not divided, and pieces of 1e-14 are none.
TEST(default_mesh, has_pieces_of_any_length) {
    for (const double gap : {1e-2, 1e-11, 1e-14})
        for (const double alpha : {0.0, 0.5}) {
            auto equation = quenta::second_kind([](double) { return 1.0; });
            equation.delay(1.0).delay(1.0 + gap).lag_memory(quenta::weakly_singular(alpha, [](double) { return 0.0; }));
            for (const double t_end : {1.0 + gap / 2, 3.0 + gap / 2}) {
                const auto y = equation.solve(t_end, quenta::to_tolerance(1e-10));
                EXPECT_NEAR(y(0.5), 1.0, 1e-10);
                EXPECT_NEAR(y(std::min(t_end, 1.0)), 1.0, 1e-10);
                EXPECT_NEAR(y(std::min(t_end, 2.5)), t_end > 2 ? 7.0 : y.values().back(), 1e-9);
                EXPECT_LT(y.steps(), 1000) << gap << " " << alpha << " " << t_end;
            }
        }
}

TEST(default_mesh, is_graded_after_every_breaking_point_if_a_kernel_is_singular) {
    auto equation = quenta::second_kind([](double) { return 1.0; });
    equation.delay(1.0).lag_memory(quenta::weakly_singular(0.5, [](double) { return 0.0; }));
    const auto y = equation.solve(2.5, quenta::steps(200));
    for (const double breaking_point : {0.0, 1.0, 2.0}) {
        const auto after = std::upper_bound(y.mesh().begin(), y.mesh().end(), breaking_point * (1 + 1e-15));
        EXPECT_LT(after[0] - after[-1], breaking_point == 0.0 ? 1e-15 : 1e-10);
        EXPECT_GT(after[0] - after[-1], breaking_point == 0.0 ? 1e-20 : 1e-13);
    }
    const auto derivative = quenta::integro_differential(nullptr, 1.0)
                                .delay(1.0)
                                .lag_memory(quenta::weakly_singular(0.5, [](double) { return 0.0; }))
                                .solve(2.5, quenta::steps(200).nodes(QUENTA_RADAU, 1)); // beta = 1.5 > P after 1
    const auto after = std::upper_bound(derivative.mesh().begin(), derivative.mesh().end(), 1.0 + 1e-15);
    EXPECT_NEAR(after[0] - after[-1], 0.0125, 1e-3);
}

TEST(default_mesh, of_no_steps_is_refused) {
    auto equation = quenta::second_kind([](double) { return 1.0; });
    equation.lag_memory(quenta::weakly_singular(0.5, [](double) { return 0.0; }));
    for (const int steps : {0, -1}) {
        EXPECT_THROW(equation.solve(1.0, quenta::steps(steps)), quenta::equation_error);
        EXPECT_THROW(equation.solve(1.0, quenta::equal_steps(steps)), quenta::equation_error);
    }
}

} // namespace
