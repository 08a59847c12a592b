// quenta_solve_vide and quenta_solve_vide_vec equal their plain twins bit for bit, for every row and class of
// dimension.
#include "conformance/sampled_bits.hpp"
#include "conformance/vide_call.hpp"
#include "reference/vide.hpp"

#include <cmath>

namespace quenta_tests {

namespace {

using reference::vide_body;

struct integro_differential_problem {
    std::size_t row_number;
    int D; // or one_equation
    double dt;
    std::vector<double> g, K, a, y0;

    const reference::setting& row() const { return reference::settings()[row_number]; }
    std::string text() const {
        return "row " + std::to_string(row_number) + ", " +
               (D == one_equation ? std::string{"one equation"} : "D = " + std::to_string(D)) +
               ", N = " + std::to_string(g.size() / y0.size()) + ", dt = " + in_hexadecimal(dt);
    }

    // For quenta_solve_vide, where quenta_solve_vide_vec takes 1.
    static constexpr int one_equation = 0;
};

constexpr int one_equation = integro_differential_problem::one_equation;

// Forcing and first value are of one kind, kernel and coefficient of the other; nothing is symmetric.
integro_differential_problem random_problem(random_data& random, std::size_t row, int D, std::size_t N,
                                            const data_kind& kind = data_kinds[0]) {
    const std::size_t components = std::size_t(std::max(D, 1));
    return {row,
            D,
            kind.dt,
            samples(random, N * components, kind.g),
            samples(random, N * components * components, kind.K),
            samples(random, N * components * components, kind.K),
            samples(random, components, kind.g)};
}

// Solves with and without coeffs.
void compare(const integro_differential_problem& problem, comparison_counts& counts) {
    const auto& [row_number, D, dt, g, K, a, y0] = problem;
    const vide_body body = D == one_equation ? vide_body::scalar
                           : D <= 8          ? vide_body::fixed_dimension
                                             : vide_body::any_dimension;
    const reference::solution expected = reference::solve_vide(body, g, K, a, std::max(D, 1), y0, dt, problem.row());
    for (const int want_coeffs : {1, 0}) {
        SCOPED_TRACE(problem.text() + (want_coeffs ? ", with" : ", without") + " coeffs");
        const sampled_answer actual = D == one_equation ? call_vide(g, K, a, y0[0], dt, problem.row(), want_coeffs)
                                                        : call_vide_vec(g, K, a, D, y0, dt, problem.row(), want_coeffs);
        compare(expected, actual, want_coeffs != 0, counts);
    }
}

class every_row_and_dimension : public ::testing::TestWithParam<int> {};

TEST_P(every_row_and_dimension, equals_the_twin_at_the_boundaries_of_the_schedule) {
    const int D = GetParam();
    random_data random{20260501 + std::uint64_t(D)};
    comparison_counts counts;
    for (const int steps : boundary_steps)
        for_each_row(steps,
                     [&](std::size_t row, std::size_t N) { compare(random_problem(random, row, D, N), counts); });
    EXPECT_EQ(counts.solved, int(boundary_steps.size()) * 56 * 2);
}

INSTANTIATE_TEST_SUITE_P(D, every_row_and_dimension, ::testing::Range(int(one_equation), 11));

class every_kind_of_data : public ::testing::TestWithParam<data_kind> {};

TEST_P(every_kind_of_data, equals_the_twin) {
    random_data random{20260502};
    comparison_counts counts;
    for (const int D : {int(one_equation), 1, 2, 3, 8, 9})
        for (const int steps : {3, 33, 66})
            for_each_row(steps, [&](std::size_t row, std::size_t N) {
                compare(random_problem(random, row, D, N, GetParam()), counts);
            });
    EXPECT_EQ(counts.solved + counts.singular, 6 * 3 * 56 * 2);
    EXPECT_GT(counts.solved, 6 * 56 * 2);
}

INSTANTIATE_TEST_SUITE_P(data, every_kind_of_data, ::testing::ValuesIn(data_kinds),
                         [](const auto& instance) { return std::string{instance.param.name}; });

// Also under weights and factors of zero.
TEST(vide_bits, a_non_finite_sample_anywhere_shows_as_in_the_twin) {
    random_data random{20260503};
    comparison_counts counts;
    for (const int D : {int(one_equation), 1, 2, 9})
        for (const int steps : {1, 3})
            for_each_row(steps, [&](std::size_t row, std::size_t N) {
                for (int repetition = 0; repetition < 16; ++repetition) {
                    integro_differential_problem problem = random_problem(random, row, D, N);
                    std::vector<double>* const arrays[] = {&problem.K, &problem.a, &problem.g, &problem.y0};
                    std::vector<double>& at = *arrays[repetition % 4];
                    at[random.below(at.size())] = random.below(2) == 0   ? nan
                                                  : random.below(2) == 0 ? infinity
                                                                         : -infinity;
                    compare(problem, counts);
                }
            });
    EXPECT_GT(counts.solved, 10000);
    EXPECT_GT(counts.singular, 10) << "an infinite pivot counts as singular";
}

TEST(vide_bits, every_spacing_is_taken_as_it_is) {
    random_data random{20260504};
    comparison_counts counts;
    for (const int D : {int(one_equation), 2, 9})
        for (const double dt : extreme_spacings)
            for_each_row(3, [&](std::size_t row, std::size_t N) {
                integro_differential_problem problem = random_problem(random, row, D, N);
                problem.dt = dt;
                compare(problem, counts);
            });
    EXPECT_GT(counts.solved, 1000);
}

// Magnitudes tie in the search of a pivot, and blocks are singular now and then, at the first step or later.
TEST(vide_bits, ties_and_singular_blocks_are_decided_as_in_the_twin) {
    random_data random{20260505};
    comparison_counts counts;
    const data_kind whole_numbers{"", 1.0, small_integer, small_integer};
    for (const int D : {int(one_equation), 1, 2, 3, 9})
        for_each_row(3, [&](std::size_t row, std::size_t N) {
            for (int repetition = 0; repetition < 25; ++repetition) {
                integro_differential_problem problem = random_problem(random, row, D, N, whole_numbers);
                problem.dt = std::ldexp(1.0, int(random.below(32)) - 6);
                compare(problem, counts);
            }
        });
    EXPECT_GT(counts.solved, 1000);
    EXPECT_GT(counts.singular, 1000);
}

// A fixed dimension of 40 unknowns is the largest there is; here are up to 320.
TEST(vide_bits, a_system_of_many_components_equals_the_twin) {
    random_data random{20260506};
    comparison_counts counts;
    for (const std::size_t row : {1, 8, 24, 55}) {
        const std::size_t S = std::size_t(reference::settings()[row].m * reference::settings()[row].m);
        compare(random_problem(random, row, 64, 4 * S + 1), counts);
    }
    compare(random_problem(random, 1, 64, 66 + 1), counts); // up to the transform
    EXPECT_EQ(counts.solved, 5 * 2);
}

} // namespace

} // namespace quenta_tests
