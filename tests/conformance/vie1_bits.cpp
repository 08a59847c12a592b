// quenta_solve_vie1_vec equals its plain twin bit for bit, for every row, form and class of dimension.
#include "conformance/vie1_call.hpp"
#include "reference/vie1.hpp"
#include "support/bits.hpp"
#include "support/random_data.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <limits>
#include <string>
#include <vector>

namespace quenta_tests {

namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

struct first_kind_problem {
    std::size_t row_number;
    int D;
    bool continuous;
    double dt;
    std::vector<double> g, K, y0;

    const reference::setting& row() const { return reference::settings()[row_number]; }
    int N() const { return int(g.size()) / D; }
    std::string text() const {
        return "row " + std::to_string(row_number) + ", D = " + std::to_string(D) + ", N = " + std::to_string(N()) +
               ", dt = " + in_hexadecimal(dt) + (continuous ? ", continuous" : ", discontinuous");
    }
};

// Kernels near the identity at lag 0, so that most problems are regular; nothing is symmetric.
first_kind_problem random_problem(random_data& random, std::size_t row, int D, bool continuous, int N) {
    first_kind_problem problem{row,
                               D,
                               continuous,
                               0.125,
                               random.uniform(std::size_t(N) * D),
                               random.uniform(std::size_t(N) * D * D),
                               random.uniform(D)};
    for (int i = 0; i < N; ++i)
        for (int r = 0; r < D; ++r)
            problem.K[(std::size_t(i) * D + r) * D + r] += 2.0;
    return problem;
}

sampled_answer call_vie1(const first_kind_problem& problem, bool want_coeffs) {
    return quenta_tests::call_vie1(problem.g, problem.K, problem.D, problem.y0, problem.dt, problem.row(),
                                   problem.continuous, want_coeffs);
}

// In the discontinuous form the last slot of each step, D cells, holds what the caller left there.
::testing::AssertionResult equal_coefficients(const first_kind_problem& problem,
                                              const reference::vie1_solution& expected, const sampled_answer& actual) {
    const std::size_t D = problem.D, slots = problem.row().indices.size() + 1;
    const std::size_t written = problem.continuous ? slots : slots - 1;
    const std::span<const double> coeffs = actual.coeffs.values();
    for (std::size_t n = 0; n < std::size_t(expected.steps); ++n) {
        const std::size_t first = n * slots * D;
        const ::testing::AssertionResult equal = equal_bits(
            std::span{expected.coefficients}.subspan(first, written * D), coeffs.subspan(first, written * D));
        if (!equal)
            return ::testing::AssertionFailure() << "coefficients of step " << n << ": " << equal.message();
        for (std::size_t cell = first + written * D; cell < first + slots * D; ++cell)
            if (!is_marked(coeffs[cell]))
                return ::testing::AssertionFailure() << "the last slot of step " << n << " was written";
    }
    return ::testing::AssertionSuccess();
}

struct comparison_counts {
    int solved = 0;
    int singular = 0;
};

void compare(const first_kind_problem& problem, comparison_counts& counts) {
    SCOPED_TRACE(problem.text());
    const bool want_coeffs = (counts.solved + counts.singular) % 3 != 0;
    const sampled_answer actual = call_vie1(problem, want_coeffs);
    if (refused_by_vie1(problem.row())) {
        ASSERT_EQ(actual.status, QUENTA_UNSUPPORTED_SETTING);
        ASSERT_TRUE(actual.untouched());
        return;
    }
    const reference::vie1_solution expected = reference::solve_vie1(problem.g, problem.K, problem.D, problem.y0,
                                                                    problem.dt, problem.continuous, problem.row());
    if (!expected.solved) {
        ++counts.singular;
        ASSERT_EQ(actual.status, QUENTA_SINGULAR_BLOCK);
        ASSERT_TRUE(actual.untouched()) << "something was written although the block is singular";
        return;
    }
    ++counts.solved;
    ASSERT_EQ(actual.status, QUENTA_SOLVED);
    ASSERT_EQ(actual.n_steps, expected.steps);
    ASSERT_TRUE(equal_bits(expected.out, actual.out.values()));
    ASSERT_TRUE(actual.out.fences_hold()) << "written outside out";
    ASSERT_TRUE(actual.coeffs.fences_hold()) << "written outside coeffs";
    if (want_coeffs)
        ASSERT_TRUE(equal_coefficients(problem, expected, actual));
    else
        ASSERT_TRUE(actual.coeffs.untouched()) << "coeffs was written although it was not wanted";
}

// Calls visit(row, continuous, N) for every row and both forms, with samples past the last whole step now and then.
template <class visitor>
void for_each_form(int steps, const visitor& visit) {
    for (std::size_t row = 0; row < reference::settings().size(); ++row)
        for (const bool continuous : {false, true}) {
            const reference::setting& setting = reference::settings()[row];
            const int S = setting.m * setting.m;
            const int N = std::max(steps * S + 1 + int(row % 3) * (S - 1) / 2, present_samples(setting));
            if (!::testing::Test::HasFatalFailure())
                visit(row, continuous, N);
        }
}

TEST(vie1_bits, every_row_form_and_dimension_with_few_steps) {
    random_data random{20260201};
    comparison_counts counts;
    for (const int steps : {0, 1, 2, 3, 33})
        for (int D = 1; D <= 10; ++D)
            for_each_form(steps, [&](std::size_t row, bool continuous, int N) {
                compare(random_problem(random, row, D, continuous, N), counts);
            });
    EXPECT_GT(counts.solved, 3000);
    EXPECT_GT(counts.singular, 500) << "rows with the node 0 are singular in the discontinuous form";
}

TEST(vie1_bits, every_row_and_form_at_the_boundaries_of_the_schedule) {
    random_data random{20260202};
    comparison_counts counts;
    for (const int steps : {64, 65, 66, 67, 68, 69, 70, 130})
        for_each_form(steps, [&](std::size_t row, bool continuous, int N) {
            const int D = 1 + (int(row) + steps) % 10;
            compare(random_problem(random, row, D, continuous, N), counts);
            compare(random_problem(random, row, 1, continuous, N), counts);
        });
    EXPECT_GT(counts.solved, 1000);
}

TEST(vie1_bits, a_non_finite_sample_anywhere_shows_as_in_the_twin) {
    random_data random{20260203};
    comparison_counts counts;
    for (const int D : {1, 2, 9})
        for_each_form(2, [&](std::size_t row, bool continuous, int N) {
            for (int repetition = 0; repetition < 6; ++repetition) {
                first_kind_problem problem = random_problem(random, row, D, continuous, N);
                std::vector<double>& at = repetition % 3 == 0   ? problem.g
                                          : repetition % 3 == 1 ? problem.K
                                                                : problem.y0;
                at[random.below(at.size())] = random.below(2) == 0 ? nan : infinity;
                compare(problem, counts);
            }
        });
    EXPECT_GT(counts.solved, 1000);
}

TEST(vie1_bits, every_spacing_is_taken_as_it_is) {
    random_data random{20260204};
    comparison_counts counts;
    for (const double dt : {0.0, -0.0, -0.01, 1.0 / 3.0, 1e-310, 0x1p1000, infinity, nan})
        for_each_form(3, [&](std::size_t row, bool continuous, int N) {
            first_kind_problem problem = random_problem(random, row, 2, continuous, N);
            problem.dt = dt;
            compare(problem, counts);
        });
    EXPECT_GT(counts.solved, 100);
    EXPECT_GT(counts.singular, 100);
}

TEST(vie1_bits, the_discontinuous_form_does_not_read_the_initial_value) {
    random_data random{20260205};
    for_each_form(3, [&](std::size_t row, bool, int N) {
        for (const int D : {1, 3, 9}) {
            first_kind_problem problem = random_problem(random, row, D, false, N);
            const sampled_answer with_numbers = call_vie1(problem, true);
            problem.y0.clear(); // a null pointer
            const sampled_answer with_none = call_vie1(problem, true);
            ASSERT_EQ(with_numbers.status, with_none.status);
            ASSERT_TRUE(equal_bits(with_numbers.out.values(), with_none.out.values()));
        }
    });
}

TEST(vie1_bits, the_scalar_export_is_dimension_one_with_the_value_by_value) {
    random_data random{20260206};
    int compared = 0;
    for_each_form(40, [&](std::size_t row, bool continuous, int N) {
        const first_kind_problem problem = random_problem(random, row, 1, continuous, N);
        const sampled_answer expected = call_vie1(problem, true);
        sampled_answer actual{.status = -1,
                              .out = fenced_array{problem.g.size()},
                              .coeffs = fenced_array{expected.coeffs.values().size()}};
        const reference::setting& setting = problem.row();
        actual.status = quenta_solve_vie1(problem.g.data(), problem.K.data(), N, problem.y0[0], problem.dt, setting.m,
                                          setting.indices.data(), int(setting.indices.size()), 1, continuous,
                                          actual.out.data(), actual.coeffs.data(), &actual.n_steps);
        ASSERT_EQ(actual.status, expected.status) << problem.text();
        ASSERT_EQ(actual.n_steps, expected.n_steps);
        ASSERT_TRUE(equal_bits(expected.out.values(), actual.out.values())) << problem.text();
        ASSERT_TRUE(equal_bits(expected.coeffs.values(), actual.coeffs.values())) << problem.text();
        ++compared;
    });
    EXPECT_EQ(compared, 112);
}

} // namespace

} // namespace quenta_tests
