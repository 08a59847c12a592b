// What every solver from samples promises alike, one promise a test: the ends of the grid, the means at the boundaries
// of steps, samples that are no numbers, and the flags.
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

class every_solver_from_samples : public ::testing::TestWithParam<sampled_solver> {
protected:
    // One component, two, the most that have a body of their own, and more.
    static std::vector<int> dimensions() {
        return GetParam().solves_systems ? std::vector{1, 2, 8, 9} : std::vector{1};
    }

    static bool suits(const setting& row) { return GetParam().suits(row); }

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

TEST_P(every_solver_from_samples, gives_zeros_on_a_grid_shorter_than_a_step) {
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

TEST_P(every_solver_from_samples, neither_reads_samples_past_the_last_whole_step_nor_solves_there) {
    for_each_problem(suits, [](const setting& row, int D) {
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

// One step is averaged with nothing; between two, the sample is the mean of their one-sided values.
TEST_P(every_solver_from_samples, reports_the_mean_of_the_two_one_sided_values_at_a_step_boundary) {
    for_each_problem(suits, [](const setting& row, int D) {
        const int S = row.m * row.m, P = int(row.indices.size());
        for (const int steps : {1, 2, 3}) {
            const sampled_answer answer = solve({D, steps * S + 1}, row);
            expect_solved(answer, steps);
            // Component r of the polynomial of step j at s, and the size of its terms.
            struct sum_of_powers {
                double value = 0.0, size = 0.0;
            };
            const auto polynomial = [&](int j, double s, int r) {
                sum_of_powers sum;
                for (int e = GetParam().powers(row) - 1; e >= 0; --e) {
                    const double coefficient = answer.coeffs.values()[((P + 1) * j + e) * D + r];
                    sum.value = sum.value * s + coefficient;
                    sum.size = sum.size * s + std::fabs(coefficient);
                }
                return sum;
            };
            for (int r = 0; r < D; ++r)
                for (int i = 0; i <= steps * S; ++i) {
                    const int j = i / S, e = i % S;
                    const bool ends = e == 0 && j > 0, starts = j < steps;
                    const sum_of_powers before = ends ? polynomial(j - 1, 1.0, r) : polynomial(j, double(e) / S, r);
                    const sum_of_powers after = starts ? polynomial(j, double(e) / S, r) : before;
                    EXPECT_NEAR(answer.out.values()[i * D + r], (before.value + after.value) / 2,
                                1e-14 * (before.size + after.size))
                        << "sample " << i << " of " << steps << " steps, component " << r;
                }
        }
    });
}

TEST_P(every_solver_from_samples, leaves_the_slots_alone_for_which_a_polynomial_has_no_power) {
    for_each_problem(suits, [](const setting& row, int D) {
        const sampled_answer answer = solve({D, 2 * row.m * row.m + 1}, row);
        expect_solved(answer, 2);
        const int slots = int(row.indices.size()) + 1;
        for (int cell = 0; cell < 2 * slots * D; ++cell)
            EXPECT_EQ(is_marked(answer.coeffs.values()[cell]), cell / D % slots >= GetParam().powers(row)) << cell;
    });
}

TEST_P(every_solver_from_samples, takes_a_block_of_nan_for_regular) {
    for_each_problem(suits, [](const setting& row, int D) {
        const int N = 3 * row.m * row.m + 1;
        system_samples data{D, N};
        std::fill(data.K.begin(), data.K.end(), nan);
        const sampled_answer answer = solve(data, row);
        expect_solved(answer, 3);
        EXPECT_TRUE(equal_bits(constant(nan, N * D), answer.out.values()));
    });
}

TEST_P(every_solver_from_samples, needs_no_room_for_coefficients_that_are_not_wanted) {
    for_each_problem(suits, [](const setting& row, int D) {
        const system_samples data{D, 2 * row.m * row.m + 1};
        const sampled_answer with = solve(data, row), without = solve(data, row, 0);
        expect_solved(with, 2);
        expect_solved(without, 2);
        EXPECT_TRUE(equal_bits(with.out.values(), without.out.values()));
        EXPECT_TRUE(without.coeffs.untouched());
    });
}

TEST_P(every_solver_from_samples, takes_any_flag_but_zero_for_yes) {
    for_each_problem(suits, [](const setting& row, int D) {
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

INSTANTIATE_TEST_SUITE_P(solver, every_solver_from_samples, ::testing::ValuesIn(every_solver),
                         [](const auto& instance) { return std::string{instance.param.name}; });

} // namespace

} // namespace quenta_tests
