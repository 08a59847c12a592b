// How a solve ends at a step that cannot be solved: the status, and the steps before it. One node at the end of each
// step makes the equations of a step those of a scalar: y = g + Q + h K phi(y).
#include "quenta_equations.hpp"
#include "support/failures.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <limits>
#include <span>
#include <vector>

namespace quenta_tests {

namespace {

constexpr double nan = std::numeric_limits<double>::quiet_NaN(), infinity = std::numeric_limits<double>::infinity();

const auto one = [](double) {
    return 1.0;
};
const auto ten_steps = quenta::equal_steps(10).nodes({1.0});

// On 0 .. 1, step 4 begins at 0.4.
double after_step_4(double t, double value, double before) {
    return t > 0.45 ? value : before;
}

void expect_end_at_step_4(int status, const quenta::equation& equation) {
    const auto failure = failure_of<quenta::solve_failure>([&] { equation.solve(1.0, ten_steps); });
    ASSERT_TRUE(failure.has_value());
    EXPECT_EQ(failure->status, status) << failure->what();
    EXPECT_EQ(failure->partial.steps(), 4);
    for (const double value : failure->partial.values())
        EXPECT_TRUE(std::isfinite(value));
}

TEST(value_that_is_not_finite, ends_the_solve_at_its_step) {
    for (const double bad : {nan, infinity, -infinity}) {
        const auto late = [bad](double t, double) {
            return after_step_4(t, bad, 0.1);
        };
        const auto late_derivative = [bad](double t, double) {
            return after_step_4(t, bad, 0.0);
        };
        const auto late_source = [bad](double, double s) { // in step 4 only inside the step
            return after_step_4(s, bad, 0.1);
        };
        const auto y = [](double, double value) {
            return value;
        };
        for (const quenta::equation& equation :
             {quenta::second_kind(one).memory(late_source), quenta::second_kind(one).memory(late_source, y),
              quenta::second_kind([bad](double t) { return after_step_4(t, bad, 1.0); }),
              quenta::second_kind(one).memory(late), quenta::second_kind(one).memory(late, y),
              quenta::second_kind(one).memory(y, late), quenta::second_kind(one).memory(y, y, late_derivative),
              quenta::integro_differential(late, 1.0), quenta::integro_differential(y, 1.0).jacobian(late_derivative),
              quenta::integro_differential(nullptr, 1.0).memory(late)})
            expect_end_at_step_4(QUENTA_EQUATION_NOT_FINITE, equation);
    }
}

// The nodes of Gauss are inside the step. From its values there, y at the end overflows.
TEST(overflow_at_the_end_of_a_step, ends_the_solve) {
    const auto failure = failure_of<quenta::solve_failure>([] {
        quenta::second_kind([](double t) {
            return t < 0.45 ? 1.0 : t < 0.7 ? -1.7e308 : 1.7e308;
        }).solve(1.0, quenta::on_mesh({0.0, 0.4, 1.0}).nodes(QUENTA_GAUSS, 2));
    });
    ASSERT_TRUE(failure.has_value());
    EXPECT_EQ(failure->status, QUENTA_EQUATION_NOT_FINITE);
    EXPECT_EQ(failure->partial.steps(), 1);
}

TEST(singular_step, ends_the_solve) {
    const auto y = [](double, double value) {
        return value;
    };
    const auto slope = [](double, double) {
        return 1.0;
    };
    // h K = 1 in step 4.
    const std::vector<double> mesh{0.0, 0.125, 0.25, 0.375, 0.4375, 0.5625, 1.0};
    const auto eight = [](double t, double s) {
        return t == 0.5625 && s == 0.5625 ? 8.0 : 0.0;
    };
    for (const quenta::equation& equation :
         {quenta::second_kind(one).memory(eight), quenta::second_kind(one).memory(eight, y, slope),
          quenta::first_kind([](double t) { return t; }).memory([](double t, double) {
              return after_step_4(t, 0.0, 1.0);
          })}) {
        const auto failure =
            failure_of<quenta::solve_failure>([&] { equation.solve(1.0, quenta::on_mesh(mesh).nodes({1.0})); });
        ASSERT_TRUE(failure.has_value());
        EXPECT_EQ(failure->status, QUENTA_EQUATION_SINGULAR_STEP);
        EXPECT_EQ(failure->partial.steps(), 4);
    }
}

TEST(overflow_of_the_solution_of_a_step, ends_the_solve) {
    // (1 - h K) y = g
    const auto failure = failure_of<quenta::solve_failure>([] {
        quenta::second_kind([](double) {
            return 1e300;
        }).lag_memory([](double) {
              return 1.0 - 1e-10;
          }).solve(1.0, quenta::equal_steps(1).nodes({1.0}));
    });
    ASSERT_TRUE(failure.has_value());
    EXPECT_EQ(failure->status, QUENTA_EQUATION_NOT_FINITE);
}

// With D components, the numbers in the elimination of this matrix grow to 2^(D - 1). It has 1 on the diagonal and in
// the last column, and -1 below the diagonal.
TEST(elimination_that_loses_digits, is_repeated_or_ends_the_solve) {
    const auto solve = [](int D) {
        return quenta::second_kind(
                   [](double, std::span<double> g) {
                       for (std::size_t a = 0; a < g.size(); ++a)
                           g[a] = 1.0 / double(a + 1);
                   },
                   D)
            .lag_memory([D](double, std::span<double> K) { // I minus the matrix
                for (int a = 0; a < D; ++a)
                    for (int b = 0; b < D; ++b)
                        K[std::size_t(a * D + b)] = a == b ? 0.0 : b == D - 1 ? -1.0 : a > b ? 1.0 : 0.0;
            })
            .solve(1.0, quenta::equal_steps(1).nodes({1.0}));
    };
    const quenta::solution y = solve(25);
    EXPECT_NEAR(y.values()[25] + y.values()[49], 1.0, 1e-14); // the first row
    const auto failure = failure_of<quenta::solve_failure>([&] { solve(100); });
    ASSERT_TRUE(failure.has_value());
    EXPECT_EQ(failure->status, QUENTA_EQUATION_SINGULAR_STEP);
}

// Newton's method needs far more iterations with a derivative that is ten times too large.
TEST(wrong_derivative, ends_the_solve_without_convergence) {
    const auto failure = failure_of<quenta::solve_failure>([] {
        quenta::first_kind([](double t) { return t; })
            .memory([](double, double) { return 1.0; }, [](double, double y) { return y + 0.1 * y * y; },
                    [](double, double y) { return 10.0 + 2.0 * y; })
            .solve(1.0, ten_steps);
    });
    ASSERT_TRUE(failure.has_value());
    EXPECT_EQ(failure->status, QUENTA_EQUATION_NO_CONVERGENCE);
    EXPECT_EQ(failure->partial.steps(), 0);
}

// The first iteration lands just beyond a kink of phi, where the slope of the residual is 3 instead of 1. The matrix of
// the first iteration, which is kept, does not reduce the residual there.
TEST(kink_of_phi, is_passed_with_a_new_matrix) {
    constexpr double kink = 0.97;
    const quenta::solution y = quenta::second_kind([](double) { return 0.0; })
                                   .memory([](double, double) { return 1.0; },
                                           [](double, double at) { return at < kink ? 1.0 : 1.0 - 2.0 * (at - kink); },
                                           [](double, double at) { return at < kink ? 0.0 : -2.0; })
                                   .solve(1.0, quenta::equal_steps(1).nodes({1.0}));
    EXPECT_NEAR(y(1.0), (1.0 + 2.0 * kink) / 3.0, 1e-15);
}

TEST(first_guess, chooses_the_solution) {
    for (const double guess : {-1.5, 0.5}) { // the integral of y^2 is t
        const quenta::solution y =
            quenta::first_kind([](double t) { return t; })
                .memory([](double, double) { return 1.0; }, [](double, double value) { return value * value; })
                .first_guess({&guess, 1})
                .solve(1.0, ten_steps);
        EXPECT_NEAR(y(1.0), guess > 0.0 ? 1.0 : -1.0, 1e-12);
    }
}

// y = 1 / (1 - t)
quenta::equation growing() {
    return quenta::second_kind(one).memory([](double, double) { return 1.0; }, [](double, double y) { return y * y; },
                                           [](double, double y) { return 2.0 * y; });
}

TEST(solve_to_tolerance, succeeds_where_longer_steps_fail) {
    EXPECT_TRUE(failure_of<quenta::solve_failure>([] { growing().solve(0.98, quenta::equal_steps(16)); }).has_value());
    const quenta::solution y = growing().solve(0.98, quenta::to_tolerance(1e-6));
    EXPECT_NEAR(y(0.98), 50.0, 50.0 * 1e-6);
}

TEST(solve_to_tolerance, keeps_the_steps_before_the_end_of_the_solution) {
    const auto failure =
        failure_of<quenta::solve_failure>([] { growing().solve(2.0, quenta::to_tolerance(1e-6, 0.0, 1024)); });
    ASSERT_TRUE(failure.has_value());
    EXPECT_EQ(failure->status, QUENTA_EQUATION_NO_CONVERGENCE);
    EXPECT_NEAR(failure->partial.mesh().back(), 1.0, 0.01);
    EXPECT_NEAR(failure->partial(0.5), 2.0, 1e-6);
    EXPECT_EQ(failure->partial.error()[0], infinity);
}

} // namespace

} // namespace quenta_tests
