// The tests of a development build: the solvers against their reference implementations, for the rows that are built,
// and a few dimensions and numbers of steps. sampled_bits, function_bits and every_case test every variant in the same
// way.
#include "conformance/function_call.hpp"
#include "conformance/sampled_bits.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace quenta_tests {

namespace {

constexpr std::size_t built_rows[] = {QUENTA_DEVELOPMENT_ROWS};
constexpr int dimensions[] = {1, 2, 9};
constexpr int numbers_of_steps[] = {0, 1, 2, 3, 34, 70};

TEST(few_variants, of_sample_based_solvers_are_bit_identical_to_the_reference_implementations) {
    random_data random{20260801};
    int compared = 0;
    for (const data_kind& kind : {data_kinds[0], data_kinds[2]})
        for (const sampled_solver& solver : every_solver)
            for (const std::size_t row : built_rows)
                for (const int D : dimensions)
                    for (const int steps : numbers_of_steps) {
                        const reference::setting& setting = reference::settings()[row];
                        if (!solver.accepts(setting) || (D > 1 && !solver.solves_systems))
                            continue;
                        const int N = std::max(steps * setting.m * setting.m + 2, present_samples(setting));
                        const sampled_problem problem = random_problem(random, row, D, std::size_t(N), kind);
                        const int want_coeffs = int(random.below(2));
                        SCOPED_TRACE(std::string{solver.name} + ", " + problem.text());
                        expect_equal(reference_of(solver, problem),
                                     solver.solve(problem.data, problem.dt, setting, want_coeffs), want_coeffs != 0);
                        if (HasFatalFailure())
                            return;
                        ++compared;
                    }
    EXPECT_GT(compared, 0);
}

TEST(few_variants, of_block_solvers_are_bit_identical_to_the_reference_implementations) {
    random_data random{20260802};
    int compared = 0;
    for (const block_kind kind : block_kinds)
        for (const int P : {1, 2, 3, 5})
            for (const int D : {0, 1, 2, 3, 8})
                for (const int N : {1, 2, 3, 7, 18}) {
                    block_problem problem = random_blocks(random, kind, N, P, D);
                    if (N == 7) // the last block is singular
                        for (int r = 0; r < std::max(D, 1); ++r)
                            for (int j = 0; j < P; ++j)
                                for (int c = 0; c < std::max(D, 1); ++c)
                                    problem.A[problem.entry(N - 1, P - 1, r, N - 1, j, c)] =
                                        std::numeric_limits<double>::infinity();
                    ASSERT_TRUE(matches_reference(problem, call_block_solver(problem), block_reference(problem)));
                    ++compared;
                }
    EXPECT_EQ(compared, 4 * 4 * 5 * 5);
}

} // namespace

} // namespace quenta_tests
