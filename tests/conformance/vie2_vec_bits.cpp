// quenta_solve_vie2_vec equals its plain twin bit for bit, for every row and class of dimension, and quenta_solve_vie2
// where there is one component.
#include "conformance/sampled_bits.hpp"
#include "conformance/vie2_call.hpp"
#include "reference/vie2.hpp"

#include <cmath>

namespace quenta_tests {

namespace {

struct second_kind_system {
    std::size_t row_number;
    int D;
    double dt;
    std::vector<double> g, K;

    const reference::setting& row() const { return reference::settings()[row_number]; }
    sampled_answer solve(bool want_coeffs) const { return call_vie2_vec(g, K, D, dt, row(), want_coeffs); }
};

second_kind_system random_system(random_data& random, std::size_t row, int D, std::size_t N,
                                 const data_kind& kind = data_kinds[0]) {
    return {row, D, kind.dt, samples(random, N * D, kind.g), samples(random, N * D * D, kind.K)};
}

// Solves with and without coeffs.
void compare(const second_kind_system& system, comparison_counts& counts) {
    const reference::solution expected = reference::solve_vie2(system.g, system.K, system.D, system.dt, system.row());
    for (const bool want_coeffs : {true, false}) {
        SCOPED_TRACE("row " + std::to_string(system.row_number) + ", D = " + std::to_string(system.D) +
                     ", N = " + std::to_string(system.g.size() / system.D) + ", dt = " + in_hexadecimal(system.dt) +
                     (want_coeffs ? ", with" : ", without") + " coeffs");
        compare(expected, system.solve(want_coeffs), want_coeffs, counts);
    }
}

class every_row_and_dimension : public ::testing::TestWithParam<int> {};

TEST_P(every_row_and_dimension, equals_the_twin_at_the_boundaries_of_the_schedule) {
    const int D = GetParam();
    random_data random{20260301 + std::uint64_t(D)};
    comparison_counts counts;
    for (const int steps : boundary_steps)
        for_each_row(steps, [&](std::size_t row, std::size_t N) { compare(random_system(random, row, D, N), counts); });
    EXPECT_EQ(counts.solved, int(boundary_steps.size()) * 56 * 2);
}

INSTANTIATE_TEST_SUITE_P(D, every_row_and_dimension, ::testing::Range(1, 11));

class every_kind_of_data : public ::testing::TestWithParam<data_kind> {};

TEST_P(every_kind_of_data, equals_the_twin) {
    random_data random{20260302};
    comparison_counts counts;
    for (const int D : {1, 2, 3, 8, 9})
        for (const int steps : {3, 33, 66})
            for_each_row(steps, [&](std::size_t row, std::size_t N) {
                compare(random_system(random, row, D, N, GetParam()), counts);
            });
    EXPECT_EQ(counts.solved + counts.singular, 5 * 3 * 56 * 2);
    EXPECT_GT(counts.solved, counts.singular);
}

INSTANTIATE_TEST_SUITE_P(data, every_kind_of_data, ::testing::ValuesIn(data_kinds),
                         [](const auto& instance) { return std::string{instance.param.name}; });

TEST(vie2_vec_bits, a_non_finite_sample_anywhere_shows_as_in_the_twin) {
    random_data random{20260303};
    comparison_counts counts;
    for (const int D : {1, 2, 9})
        for (const int steps : {1, 3})
            for_each_row(steps, [&](std::size_t row, std::size_t N) {
                for (int repetition = 0; repetition < 20; ++repetition) {
                    second_kind_system system = random_system(random, row, D, N);
                    std::vector<double>& at = repetition % 4 == 0 ? system.g : system.K;
                    at[random.below(at.size())] = repetition % 3 == 0    ? nan
                                                  : random.below(2) == 0 ? infinity
                                                                         : -infinity;
                    compare(system, counts);
                }
            });
    EXPECT_GT(counts.solved, 10000);
    EXPECT_GT(counts.singular, 10) << "an infinite pivot counts as singular";
}

TEST(vie2_vec_bits, every_spacing_is_taken_as_it_is) {
    random_data random{20260304};
    comparison_counts counts;
    for (const int D : {2, 9})
        for (const double dt : extreme_spacings)
            for_each_row(3, [&](std::size_t row, std::size_t N) {
                second_kind_system system = random_system(random, row, D, N);
                system.dt = dt;
                compare(system, counts);
            });
    EXPECT_GT(counts.solved, 1000);
}

// Sums are exact, magnitudes tie in the search of a pivot, and blocks are singular now and then.
TEST(vie2_vec_bits, ties_and_singular_blocks_are_decided_as_in_the_twin) {
    random_data random{20260305};
    comparison_counts counts;
    const data_kind whole_numbers{"", 1.0, small_integer, small_integer};
    for (const int D : {1, 2, 3, 9})
        for_each_row(1, [&](std::size_t row, std::size_t N) {
            for (int repetition = 0; repetition < 40; ++repetition) {
                second_kind_system system = random_system(random, row, D, N, whole_numbers);
                system.dt = std::ldexp(1.0, int(random.below(64)) - 6);
                compare(system, counts);
            }
        });
    EXPECT_GT(counts.solved, 1000);
    EXPECT_GT(counts.singular, 1000);
}

TEST(vie2_vec_bits, one_component_is_the_scalar_equation_in_every_row) {
    random_data random{20260306};
    int compared = 0;
    for (const data_kind& kind : data_kinds)
        for (const int steps : {0, 3, 66, 130})
            for_each_row(steps, [&](std::size_t row, std::size_t N) {
                SCOPED_TRACE("row " + std::to_string(row) + ", N = " + std::to_string(N) + ", data " + kind.name);
                const second_kind_system system = random_system(random, row, 1, N, kind);
                const sampled_answer vector = system.solve(true);
                const sampled_answer scalar = call_vie2(system.g, system.K, system.dt, system.row());
                ASSERT_EQ(scalar.status, vector.status);
                ASSERT_EQ(scalar.n_steps, vector.n_steps);
                ASSERT_TRUE(equal_bits(scalar.out.values(), vector.out.values()));
                ASSERT_TRUE(equal_bits(scalar.coeffs.values(), vector.coeffs.values()));
                ++compared;
            });
    EXPECT_EQ(compared, int(std::size(data_kinds)) * 4 * 56);
}

// A fixed dimension of 40 unknowns is the largest there is; here are up to 320.
TEST(vie2_vec_bits, a_system_of_many_components_equals_the_twin) {
    random_data random{20260307};
    comparison_counts counts;
    for (const std::size_t row : {1, 8, 24, 55}) {
        const std::size_t S = std::size_t(reference::settings()[row].m * reference::settings()[row].m);
        compare(random_system(random, row, 64, 5 * S + 1), counts);
    }
    for (const std::size_t row : {1, 2}) // up to the transform
        compare(random_system(random, row, 64, 66 + 1), counts);
    EXPECT_EQ(counts.solved, 6 * 2);
}

} // namespace

} // namespace quenta_tests
