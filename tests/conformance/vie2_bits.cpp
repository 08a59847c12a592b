// quenta_solve_vie2 equals its plain twin bit for bit, for every row of the settings table.
#include "conformance/sampled_bits.hpp"
#include "conformance/vie2_call.hpp"
#include "reference/vie2.hpp"

#include <cmath>

namespace quenta_tests {

namespace {

// Solves with and without coeffs.
void compare(const std::vector<double>& g, const std::vector<double>& K, double dt, std::size_t row_number,
             comparison_counts& counts) {
    const reference::setting& row = reference::settings()[row_number];
    const reference::solution expected = reference::solve_vie2(g, K, 1, dt, row);
    for (const bool want_coeffs : {true, false}) {
        SCOPED_TRACE("row " + std::to_string(row_number) + ", N = " + std::to_string(K.size()) +
                     ", dt = " + in_hexadecimal(dt) + (want_coeffs ? ", with" : ", without") + " coeffs");
        compare(expected, call_vie2(g, K, dt, row, want_coeffs), want_coeffs, counts);
    }
}

// Both sides of every boundary of the history's schedule.
constexpr int interesting_steps[] = {0, 1, 2, 3, 31, 32, 33, 34, 63, 64, 65, 66, 67, 68, 69, 70, 130, 300};

// Calls visit(row number, N) for every row and the given numbers of steps, with N - 1 a multiple of S and not. A row
// that has both ends of the step as nodes cannot run without a whole step.
template <class step_counts, class visitor>
void for_each_size(const step_counts& counts, const visitor& visit) {
    for (std::size_t row = 0; row < reference::settings().size(); ++row) {
        const reference::setting& setting = reference::settings()[row];
        const int S = setting.m * setting.m;
        for (const int steps : counts)
            for (int surplus = 0; surplus < S; surplus += std::max(1, S / 2)) {
                const int N = steps * S + 1 + surplus;
                if (N >= present_samples(setting) && !::testing::Test::HasFatalFailure())
                    visit(row, std::size_t(N));
            }
    }
}

class every_row : public ::testing::TestWithParam<data_kind> {};

TEST_P(every_row, equals_the_twin_at_every_boundary_of_the_schedule) {
    random_data random{20260101};
    comparison_counts counts;
    int sizes = 0;
    for_each_size(interesting_steps, [&](std::size_t row, std::size_t N) {
        ++sizes;
        const std::vector<double> g = samples(random, N, GetParam().g), K = samples(random, N, GetParam().K);
        compare(g, K, GetParam().dt, row, counts);
    });
    EXPECT_GT(sizes, 56 * 17);
    EXPECT_EQ(counts.solved + counts.singular, 2 * sizes);
    EXPECT_GT(counts.solved, counts.singular);
}

INSTANTIATE_TEST_SUITE_P(data, every_row, ::testing::ValuesIn(data_kinds),
                         [](const auto& instance) { return std::string{instance.param.name}; });

// One sample at a time, at every place that a solve could read, so that those under a weight of zero are among them.
TEST(vie2_bits, a_non_finite_sample_anywhere_shows_as_in_the_twin) {
    random_data random{20260102};
    comparison_counts counts;
    constexpr int steps[] = {0, 1, 3};
    for_each_size(steps, [&](std::size_t row, std::size_t N) {
        for (const double value : {nan, infinity, -infinity})
            for (std::size_t place = 0; place < N; ++place)
                for (const bool in_kernel : {true, false}) {
                    std::vector<double> g = random.uniform(N), K = random.uniform(N);
                    (in_kernel ? K : g)[place] = value;
                    compare(g, K, 0.125, row, counts);
                }
    });
    EXPECT_GT(counts.solved, 10000);
    EXPECT_GT(counts.singular, 100) << "an infinite pivot counts as singular";
}

TEST(vie2_bits, every_spacing_is_taken_as_it_is) {
    random_data random{20260103};
    comparison_counts counts;
    constexpr int steps[] = {1, 3, 66};
    for_each_size(steps, [&](std::size_t row, std::size_t N) {
        for (const double dt : extreme_spacings)
            compare(random.uniform(N), random.uniform(N), dt, row, counts);
    });
    EXPECT_GT(counts.solved, 1000);
}

// Small whole numbers and a spacing that is a power of two: sums are exact, magnitudes tie in the search of a pivot,
// and blocks are singular now and then, by a zero or, with a large spacing, by the gap between their pivots.
TEST(vie2_bits, ties_and_singular_blocks_are_decided_as_in_the_twin) {
    random_data random{20260104};
    comparison_counts counts;
    constexpr int steps[] = {1, 2};
    for_each_size(steps, [&](std::size_t row, std::size_t N) {
        for (int repetition = 0; repetition < 100; ++repetition) {
            const std::vector<double> g = samples(random, N, small_integer), K = samples(random, N, small_integer);
            compare(g, K, std::ldexp(1.0, int(random.below(64)) - 6), row, counts);
        }
    });
    EXPECT_GT(counts.solved, 1000);
    EXPECT_GT(counts.singular, 100);
}

} // namespace

} // namespace quenta_tests
