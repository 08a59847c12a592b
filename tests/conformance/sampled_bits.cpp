// Every sample-based solver is bit-identical to its reference implementation, for every row of the settings table and
// every class of dimension, with and without coeffs.
#include "conformance/sampled_bits.hpp"

#include <algorithm>
#include <array>
#include <cmath>

namespace quenta_tests {

namespace {

void compare_with_reference(const sampled_solver& solver, const sampled_problem& problem, comparison_counts& counts) {
    SCOPED_TRACE(problem.text());
    if (!solver.accepts(problem.row())) {
        ++counts.refused;
        const sampled_answer refused = solver.solve(problem.data, problem.dt, problem.row(), true);
        ASSERT_EQ(refused.status, QUENTA_UNSUPPORTED_SETTING);
        ASSERT_TRUE(refused.untouched());
        return;
    }
    const reference::solution expected = reference_of(solver, problem);
    ++(expected.solved ? counts.solved : counts.singular);
    for (const bool want_coeffs : {true, false}) {
        SCOPED_TRACE(want_coeffs ? "with coeffs" : "without coeffs");
        expect_equal(expected, solver.solve(problem.data, problem.dt, problem.row(), want_coeffs), want_coeffs);
    }
}

// Rows with the same number of nodes share the code of the march, and the history does not depend on the row. With more
// than two components, whose long solutions take the reference long, the longer lengths are compared for these rows
// only: one for each number of nodes.
constexpr std::array<std::size_t, 5> one_row_per_number_of_nodes{1, 8, 21, 50, 55};
constexpr int longer_length = 32;

bool is_compared(std::size_t row, int D, int steps) {
    const auto& rows = one_row_per_number_of_nodes;
    return D <= 2 || steps < longer_length || std::find(rows.begin(), rows.end(), row) != rows.end();
}

// ---- Every row and dimension ----

struct solver_of_dimension {
    sampled_solver solver;
    int D;
};

void PrintTo(const solver_of_dimension& tested, std::ostream* stream) {
    *stream << tested.solver.name << ", D = " << tested.D;
}

std::vector<solver_of_dimension> every_solver_and_dimension() {
    std::vector<solver_of_dimension> all;
    for (const sampled_solver& solver : every_solver)
        for (int D = 1; D <= (solver.solves_systems ? 10 : 1); ++D)
            all.push_back({solver, D});
    return all;
}

class every_row : public ::testing::TestWithParam<solver_of_dimension> {};

TEST_P(every_row, equals_the_reference_for_every_length_at_which_the_history_changes_its_algorithm) {
    const auto& [solver, D] = GetParam();
    random_data random{20260201 + std::uint64_t(D)};
    comparison_counts counts;
    int expected = 0, solvable = 0;
    std::vector<int> all_steps{boundary_steps.begin(), boundary_steps.end()};
    if (D == 1) // small enough for more lengths
        all_steps.insert(all_steps.end(), {31, 32, 34, 63, 300});
    for (const int steps : all_steps)
        for_each_row(steps, [&, &solver = solver, D = D](std::size_t row, std::size_t N) {
            if (!is_compared(row, D, steps))
                return;
            ++expected;
            compare_with_reference(solver, random_problem(random, row, D, N), counts);
            solvable += solver.suits(reference::settings()[row]);
        });
    EXPECT_EQ(counts.all(), expected);
    EXPECT_GE(expected, int(all_steps.size()) * 5);
    EXPECT_GE(counts.solved, solvable);
    EXPECT_GT(solvable, 0);
}

INSTANTIATE_TEST_SUITE_P(solver, every_row, ::testing::ValuesIn(every_solver_and_dimension()),
                         [](const auto& instance) {
                             return std::string{instance.param.solver.name} + "_" + std::to_string(instance.param.D);
                         });

// ---- Every kind of data ----

class every_solver_bits : public ::testing::TestWithParam<sampled_solver> {
protected:
    static std::vector<int> dimensions() {
        return GetParam().solves_systems ? std::vector{1, 2, 3, 8, 9} : std::vector{1};
    }
    // One fixed dimension, and one that is known only at run time.
    static std::vector<int> few_dimensions() { return GetParam().solves_systems ? std::vector{2, 9} : std::vector{1}; }
    static void compare(const sampled_problem& problem, comparison_counts& counts) {
        compare_with_reference(GetParam(), problem, counts);
    }
};

TEST_P(every_solver_bits, equals_the_reference_for_every_kind_of_data) {
    random_data random{20260202};
    for (const data_kind& kind : data_kinds) {
        SCOPED_TRACE(kind.name);
        comparison_counts counts;
        int expected = 0;
        for (const int D : dimensions())
            for (const int steps : {3, 66})
                for_each_row(steps, [&](std::size_t row, std::size_t N) {
                    if (!is_compared(row, D, steps))
                        return;
                    ++expected;
                    compare(random_problem(random, row, D, N, kind), counts);
                });
        EXPECT_EQ(counts.all(), expected);
        EXPECT_GE(expected, int(dimensions().size()) * (56 + 5));
    }
}

// Also where a sample is multiplied by zero. With one component, every sample is tried; with more, four random ones.
TEST_P(every_solver_bits, equals_the_reference_with_any_sample_not_finite) {
    random_data random{20260203};
    comparison_counts counts;
    for (const int D : dimensions())
        for (const int steps : {1, 3})
            for_each_row(steps, [&](std::size_t row, std::size_t N) {
                sampled_problem problem = random_problem(random, row, D, N);
                for (std::vector<double>* const array :
                     {&problem.data.g, &problem.data.K, &problem.data.a, &problem.data.y0}) {
                    const std::size_t tries = D == 1 ? array->size() : 4;
                    for (std::size_t index = 0; index < tries; ++index) {
                        double& sample = (*array)[D == 1 ? index : random.below(array->size())];
                        const double ordinary = sample;
                        sample = non_finite(random);
                        compare(problem, counts);
                        sample = ordinary;
                    }
                }
            });
    EXPECT_GT(counts.solved, 2000);
    EXPECT_GT(counts.singular, 10) << "expected infinite pivots to count as singular";
}

TEST_P(every_solver_bits, equals_the_reference_for_extreme_spacings) {
    random_data random{20260204};
    comparison_counts counts;
    for (const int D : few_dimensions())
        for (const double dt : extreme_spacings)
            for_each_row(3, [&](std::size_t row, std::size_t N) {
                sampled_problem problem = random_problem(random, row, D, N);
                problem.dt = dt;
                compare(problem, counts);
            });
    EXPECT_GT(counts.solved, 100);
}

// Samples are small integers and the spacing is a power of two. So sums are exact, and several entries can have the
// largest magnitude in the search for a pivot. Some blocks are singular, at the first step or later, because a pivot is
// zero or much smaller than another one.
TEST_P(every_solver_bits, equals_the_reference_for_ties_between_pivots_and_for_singular_blocks) {
    random_data random{20260205};
    comparison_counts counts;
    const data_kind whole_numbers{"", 1.0, small_integer, small_integer};
    for (const int D : dimensions())
        for_each_row(2, [&](std::size_t row, std::size_t N) {
            for (int repetition = 0; repetition < 25; ++repetition) {
                sampled_problem problem = random_problem(random, row, D, N, whole_numbers);
                problem.dt = std::ldexp(1.0, int(random.below(64)) - 6);
                compare(problem, counts);
            }
        });
    EXPECT_GT(counts.solved, 100);
    EXPECT_GT(counts.singular, 50);
}

// The variants of fixed dimensions have up to 40 unknowns per step. Here there are up to 320.
TEST_P(every_solver_bits, equals_the_reference_for_64_components) {
    if (!GetParam().solves_systems)
        return;
    random_data random{20260206};
    comparison_counts counts;
    for (const std::size_t row : {1, 8, 24, 54, 55}) {
        const std::size_t S = std::size_t(reference::settings()[row].m * reference::settings()[row].m);
        compare(random_problem(random, row, 64, 4 * S + 1), counts);
    }
    for (const std::size_t row : {1, 2}) // enough steps for the transform
        compare(random_problem(random, row, 64, 66 + 1), counts);
    EXPECT_EQ(counts.all(), 7);
    EXPECT_GE(counts.solved, 4);
}

INSTANTIATE_TEST_SUITE_P(solver, every_solver_bits, ::testing::ValuesIn(every_solver),
                         [](const auto& instance) { return std::string{instance.param.name}; });

// Otherwise the comparisons above could not detect that a solver uses the wrong one of the three.
TEST(vide_reference, has_three_variants_that_round_differently) {
    using enum reference::vide_variant;
    random_data random{20260207};
    int scalar_and_fixed = 0, fixed_and_any = 0, any_and_scalar = 0;
    for_each_row(10, [&](std::size_t row, std::size_t N) {
        const sampled_problem problem = random_problem(random, row, 2, N);
        const auto& [D, g, K, a, y0] = problem.data;
        const auto out = [&, D = D, &g = g, &K = K, &a = a, &y0 = y0](reference::vide_variant variant) {
            return reference::solve_vide(variant, g, K, a, D, y0, problem.dt, problem.row()).out;
        };
        scalar_and_fixed += !equal_bits(out(scalar), out(fixed_dimension));
        fixed_and_any += !equal_bits(out(fixed_dimension), out(any_dimension));
        any_and_scalar += !equal_bits(out(any_dimension), out(scalar));
    });
    for (const int rows_that_differ : {scalar_and_fixed, fixed_and_any, any_and_scalar})
        EXPECT_GT(rows_that_differ, 40);
}

} // namespace

} // namespace quenta_tests
