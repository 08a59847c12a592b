// The block solvers are bit-identical to their reference implementations, for every number of points and every
// dimension. Entries of A that must not be read are NaN.
#include "conformance/function_call.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace quenta_tests {

namespace {

struct answer_counts {
    int solved = 0, singular = 0;
};

void compare(const block_problem& problem, answer_counts& counts) {
    const reference::block_solution expected = block_reference(problem);
    ++(expected.solved ? counts.solved : counts.singular);
    ASSERT_TRUE(matches_reference(problem, call_block_solver(problem), expected));
}

bool all_finite(const std::vector<double>& values) {
    return std::all_of(values.begin(), values.end(), [](double value) { return std::isfinite(value); });
}

TEST(function_bits, every_variant_equals_the_reference_for_1_to_24_steps) {
    random_data random{20260301};
    answer_counts counts;
    for_each_variant([&](block_kind kind, int P, int D) {
        for (int N = 1; N <= 24; ++N)
            compare(random_blocks(random, kind, N, P, D), counts);
    });
    EXPECT_EQ(counts.solved, 4 * 45 * 24);
}

TEST(function_bits, every_variant_equals_the_reference_for_more_steps_than_are_summed_together) {
    random_data random{20260302};
    answer_counts counts;
    for_each_variant([&](block_kind kind, int P, int D) {
        const int n_sys = P * std::max(D, 1);
        for (const int unknowns : {230, 510}) {
            const block_problem problem = random_blocks(random, kind, unknowns / n_sys + 1, P, D);
            compare(problem, counts);
            ASSERT_TRUE(all_finite(block_reference(problem).x)) << problem.text() << ": expected a finite solution";
        }
    });
    EXPECT_EQ(counts.solved, 4 * 45 * 2);
}

TEST(function_bits, every_variant_equals_the_reference_for_magnitudes_far_apart) {
    random_data random{20260303};
    answer_counts counts;
    for_each_variant([&](block_kind kind, int P, int D) {
        for (const int N : {2, 7, 19}) {
            block_problem problem = random_blocks(random, kind, N, P, D);
            for (std::vector<double>* array : {&problem.A, &problem.b, &problem.C, &problem.E, &problem.h, &problem.y0})
                for (double& value : *array)
                    value *= std::ldexp(1.0, int(random.below(30)) - 15);
            compare(problem, counts);
        }
    });
    EXPECT_EQ(counts.solved + counts.singular, 4 * 45 * 3);
    EXPECT_GT(counts.solved, 400);
}

// Any value that is read may be a zero of either sign, subnormal, infinite or NaN.
TEST(function_bits, every_variant_equals_the_reference_for_special_values_in_any_argument) {
    random_data random{20260304};
    answer_counts counts;
    for_each_variant([&](block_kind kind, int P, int D) {
        for (const int N : {1, 3, 9, 20})
            for (const std::uint64_t spacing : {3, 40, 1000}) {
                block_problem problem = random_blocks(random, kind, N, P, D);
                for (std::vector<double>* array :
                     {&problem.A, &problem.b, &problem.C, &problem.E, &problem.w, &problem.h, &problem.y0})
                    for (double& value : *array)
                        if (random.below(spacing) == 0)
                            value = random.special_value();
                if (random.below(spacing) == 0)
                    problem.rho = random.special_value();
                compare(problem, counts);
            }
    });
    EXPECT_GT(counts.solved, 500);
    EXPECT_GT(counts.singular, 500);
}

// The scalar and the vector forms differ in the sign of a zero, since only a sum of the vector form starts from 0.0.
TEST(function_bits, every_variant_equals_the_reference_for_zeros_of_either_sign) {
    random_data random{20260305};
    answer_counts counts;
    int negative_zeros = 0;
    for_each_variant([&](block_kind kind, int P, int D) {
        block_problem problem = random_blocks(random, kind, 20, P, D);
        for (std::vector<double>* array : {&problem.A, &problem.b, &problem.y0})
            for (double& value : *array)
                if (std::fabs(value) < 1.0)
                    value = random.below(2) == 0 ? 0.0 : -0.0;
        compare(problem, counts);
        for (const double value : block_reference(problem).x)
            negative_zeros += value == 0.0 && std::signbit(value);
    });
    EXPECT_GT(counts.solved, 100);
    EXPECT_GT(negative_zeros, 100);
}

// The block of each step in turn is singular.
TEST(function_bits, a_singular_step_leaves_the_solution_of_the_previous_steps) {
    random_data random{20260306};
    answer_counts counts;
    for_each_variant([&](block_kind kind, int P, int D) {
        constexpr int N = 19;
        for (int singular = 0; singular < N; ++singular) {
            block_problem problem = random_blocks(random, kind, N, P, D);
            const int components = int(problem.shape().D), row = int(random.below(std::uint64_t(P * components)));
            const int i = row / components, a = row % components;
            // Makes one row of the matrix of the step zero.
            for (int j = 0; j < P; ++j)
                for (int b = 0; b < components; ++b) {
                    const bool diagonal = i == j && a == b;
                    double& entry = problem.A[problem.entry(singular, i, a, singular, j, b)];
                    entry = kind == block_kind::vie2 && diagonal ? 1.0 : 0.0;
                    if (kind == block_kind::vide) {
                        problem.C[std::size_t((singular * P + i) * components + a) * components + b] = 0.0;
                        problem.h[singular] = 0.25;
                        entry = diagonal ? 4.0 : 0.0;
                    }
                }
            const block_answer answer = call_block_solver(problem);
            ASSERT_EQ(answer.status, QUENTA_SINGULAR_BLOCK) << problem.text() << ", step " << singular;
            const reference::block_solution expected = block_reference(problem);
            ASSERT_EQ(expected.x.size(), std::size_t(singular * P * components));
            ASSERT_EQ(expected.y.size(), std::size_t(problem.carries() ? (singular + 1) * components : 0));
            compare(problem, counts);
        }
    });
    EXPECT_EQ(counts.singular, 4 * 45 * 19);
}

} // namespace

} // namespace quenta_tests
