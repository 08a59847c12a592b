// The promises that all sample-based solvers share, one per test: the ends of the grid, the means at step boundaries,
// samples that are NaN, and the flags.
#include "conformance/sampled_promises.hpp"
#include "conformance/every_solver.hpp"

#include <algorithm>
#include <climits>
#include <limits>

namespace quenta_tests {

namespace {

using reference::setting;

constexpr double dt = 0.03;
constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();

class every_sample_based_solver : public ::testing::TestWithParam<sampled_solver> {
protected:
    // The smallest and the largest dimensions with variants of their own, and one without.
    static std::vector<int> dimensions() {
        return GetParam().solves_systems ? std::vector{1, 2, 8, 9} : std::vector{1};
    }

    static bool is_solvable(const setting& row) { return GetParam().suits(row); }

    // Calls visit(row, D) for all settings that have the property.
    template <class property, class visitor>
    static void for_each_problem(const property& wanted, const visitor& visit) {
        for_each_setting(wanted, [&](const setting& row) {
            for (const int D : dimensions()) {
                SCOPED_TRACE("D = " + std::to_string(D));
                visit(row, D);
            }
        });
    }

    static sampled_answer solve(const system_samples& data, const setting& row, int want_coeffs = 1) {
        return GetParam().solve(data, dt, row, want_coeffs);
    }
};

TEST_P(every_sample_based_solver, gives_zeros_on_a_grid_shorter_than_a_step) {
    const auto is_short = [](const setting& row) {
        return GetParam().accepts(row) && present_samples(row) <= row.m * row.m;
    };
    for_each_problem(is_short, [](const setting& row, int D) {
        for (const int N : {present_samples(row), row.m * row.m}) {
            const sampled_answer answer = solve({D, N}, row);
            expect_solved(answer, 0);
            EXPECT_TRUE(equal_bits(constant(0.0, D * N), answer.out.values()));
            EXPECT_TRUE(answer.coeffs.untouched());
        }
    });
}

TEST_P(every_sample_based_solver, ignores_samples_past_the_last_whole_step_and_gives_zeros_there) {
    for_each_problem(is_solvable, [](const setting& row, int D) {
        const int S = row.m * row.m, N = 3 * S + 1;
        system_samples data{D, N};
        const sampled_answer whole = solve(data, row);
        expect_solved(whole, 3);
        data.g.resize(std::size_t(D * (N + S - 1)), nan);
        data.K.resize(std::size_t(D * D * (N + S - 1)), infinity);
        data.a.resize(data.K.size(), nan);
        const sampled_answer answer = solve(data, row);
        expect_solved(answer, 3);
        EXPECT_TRUE(equal_bits(whole.out.values(), answer.out.values().first(D * N)));
        EXPECT_TRUE(equal_bits(constant(0.0, D * (S - 1)), answer.out.values().subspan(D * N)));
    });
}

TEST_P(every_sample_based_solver, returns_the_mean_of_the_two_one_sided_values_at_a_boundary_between_steps) {
    for_each_problem(is_solvable, [](const setting& row, int D) {
        const int S = row.m * row.m, P = int(row.indices.size());
        for (const int steps : {1, 2, 3}) {
            const sampled_answer answer = solve({D, steps * S + 1}, row);
            expect_solved(answer, steps);
            // Component a of the polynomial of step n at s, and the sum of the magnitudes of its terms.
            struct sum_of_powers {
                double value = 0.0, size = 0.0;
            };
            const auto polynomial = [&](int n, double s, int a) {
                sum_of_powers sum;
                for (int p = GetParam().powers(row) - 1; p >= 0; --p) {
                    const double coefficient = answer.coeffs.values()[((P + 1) * n + p) * D + a];
                    sum.value = sum.value * s + coefficient;
                    sum.size = sum.size * s + std::fabs(coefficient);
                }
                return sum;
            };
            for (int a = 0; a < D; ++a)
                for (int sample = 0; sample <= steps * S; ++sample) {
                    const int n = sample / S, e = sample % S;
                    const bool ends = e == 0 && n > 0, starts = n < steps;
                    const sum_of_powers before = ends ? polynomial(n - 1, 1.0, a) : polynomial(n, double(e) / S, a);
                    const sum_of_powers after = starts ? polynomial(n, double(e) / S, a) : before;
                    EXPECT_NEAR(answer.out.values()[sample * D + a], (before.value + after.value) / 2,
                                1e-14 * (before.size + after.size))
                        << "sample " << sample << " of " << steps << " steps, component " << a;
                }
        }
    });
}

TEST_P(every_sample_based_solver, leaves_the_last_slot_of_a_step_untouched_if_the_polynomial_has_no_such_power) {
    for_each_problem(is_solvable, [](const setting& row, int D) {
        const sampled_answer answer = solve({D, 2 * row.m * row.m + 1}, row);
        expect_solved(answer, 2);
        const int slots = int(row.indices.size()) + 1;
        for (int cell = 0; cell < 2 * slots * D; ++cell)
            EXPECT_EQ(is_marked(answer.coeffs.values()[cell]), cell / D % slots >= GetParam().powers(row)) << cell;
    });
}

TEST_P(every_sample_based_solver, does_not_report_a_block_of_nan_as_singular) {
    for_each_problem(is_solvable, [](const setting& row, int D) {
        const int N = 3 * row.m * row.m + 1;
        system_samples data{D, N};
        std::fill(data.K.begin(), data.K.end(), nan);
        const sampled_answer answer = solve(data, row);
        expect_solved(answer, 3);
        EXPECT_TRUE(equal_bits(constant(nan, N * D), answer.out.values()));
    });
}

TEST_P(every_sample_based_solver, does_not_write_coeffs_if_want_coeffs_is_0) {
    for_each_problem(is_solvable, [](const setting& row, int D) {
        const system_samples data{D, 2 * row.m * row.m + 1};
        const sampled_answer with = solve(data, row), without = solve(data, row, 0);
        expect_solved(with, 2);
        expect_solved(without, 2);
        EXPECT_TRUE(equal_bits(with.out.values(), without.out.values()));
        EXPECT_TRUE(without.coeffs.untouched());
    });
}

TEST_P(every_sample_based_solver, treats_any_flag_except_zero_as_yes) {
    for_each_problem(is_solvable, [](const setting& row, int D) {
        const system_samples data{D, row.m * row.m + 1};
        const sampled_answer expected = solve(data, row);
        for (const int flag : {2, -1, 256, INT_MIN}) {
            const sampled_answer answer = solve(data, row, flag);
            expect_solved(answer, 1);
            EXPECT_TRUE(equal_bits(expected.out.values(), answer.out.values())) << flag;
            EXPECT_TRUE(equal_bits(expected.coeffs.values(), answer.coeffs.values())) << flag;
        }
    });
}

INSTANTIATE_TEST_SUITE_P(solver, every_sample_based_solver, ::testing::ValuesIn(every_solver),
                         [](const auto& instance) { return std::string{instance.param.name}; });

} // namespace

} // namespace quenta_tests
