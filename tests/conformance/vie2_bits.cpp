// quenta_solve_vie2 equals its plain twin bit for bit, for every row of the settings table.
#include "conformance/vie2_call.hpp"
#include "reference/vie2.hpp"
#include "support/bits.hpp"
#include "support/random_data.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <ostream>
#include <string>

namespace quenta_tests {

namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

// How many comparisons ended in each status. A test that expects both makes sure that it saw both.
struct comparison_counts {
    int solved = 0;
    int singular = 0;
};

// The first P of the P + 1 slots of each step are the twin's; the last holds what the caller left there.
::testing::AssertionResult equal_coefficients(const reference::vie2_solution& expected, const sampled_answer& actual,
                                              std::size_t P) {
    const std::span<const double> coeffs = actual.coeffs.values();
    for (std::size_t n = 0; n < std::size_t(expected.steps); ++n) {
        const std::size_t first = n * (P + 1);
        const ::testing::AssertionResult equal =
            equal_bits(std::span{expected.coefficients}.subspan(first, P), coeffs.subspan(first, P));
        if (!equal)
            return ::testing::AssertionFailure() << "coefficients of step " << n << ": " << equal.message();
        if (!is_marked(coeffs[first + P]))
            return ::testing::AssertionFailure() << "the last slot of step " << n << " was written";
    }
    return ::testing::AssertionSuccess();
}

// Solves with and without coeffs, and compares all that is written and all that must not be.
void compare(const std::vector<double>& g, const std::vector<double>& K, double dt, std::size_t row_number,
             comparison_counts& counts) {
    const reference::setting& row = reference::settings()[row_number];
    const reference::vie2_solution expected = reference::solve_vie2(g, K, dt, row);
    for (const bool want_coeffs : {true, false}) {
        SCOPED_TRACE("row " + std::to_string(row_number) + ", N = " + std::to_string(K.size()) +
                     ", dt = " + in_hexadecimal(dt) + (want_coeffs ? ", with" : ", without") + " coeffs");
        const sampled_answer actual = call_vie2(g, K, dt, row, want_coeffs);
        if (!expected.solved) {
            ++counts.singular;
            ASSERT_EQ(actual.status, QUENTA_SINGULAR_BLOCK);
            ASSERT_TRUE(actual.untouched()) << "something was written although the block is singular";
            continue;
        }
        ++counts.solved;
        ASSERT_EQ(actual.status, QUENTA_SOLVED);
        ASSERT_EQ(actual.n_steps, expected.steps);
        ASSERT_TRUE(equal_bits(expected.out, actual.out.values()));
        ASSERT_TRUE(actual.out.fences_hold()) << "written outside out";
        ASSERT_TRUE(actual.coeffs.fences_hold()) << "written outside coeffs";
        if (want_coeffs)
            ASSERT_TRUE(equal_coefficients(expected, actual, row.indices.size()));
        else
            ASSERT_TRUE(actual.coeffs.untouched()) << "coeffs was written although it was not wanted";
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

using sample = double (*)(random_data&);

double ordinary(random_data& random) {
    return random.uniform_value();
}
double positive(random_data& random) {
    return random.uniform_value(0.5, 1.5);
}
double of_several_sizes(random_data& random) {
    return random.wide_value(12);
}
double of_all_sizes(random_data& random) {
    return random.wide_value(1020);
}
double subnormal(random_data& random) {
    return random.uniform_value(-0x1p-1024, 0x1p-1024);
}
double zero_of_either_sign(random_data& random) {
    return random.below(2) == 0 ? 0.0 : -0.0;
}
double special_now_and_then(random_data& random) {
    return random.below(64) == 0 ? random.special_value() : random.uniform_value();
}

struct data_kind {
    const char* name;
    double dt;
    sample g, K;
};

void PrintTo(const data_kind& kind, std::ostream* stream) {
    *stream << kind.name;
}

constexpr data_kind data_kinds[] = {
    {"ordinary", 0.01, ordinary, ordinary},
    {"growing", 0.25, positive, positive},
    {"back_in_time", -3.0, of_several_sizes, of_several_sizes},
    {"huge", 0x1p10, of_all_sizes, of_several_sizes},
    {"subnormal", 1.0, subnormal, ordinary},
    {"signed_zeros_in_g", 0.5, zero_of_either_sign, ordinary},
    {"signed_zeros_in_K", 0.5, ordinary, zero_of_either_sign},
    {"special_values_now_and_then", 0.1, special_now_and_then, special_now_and_then},
};

std::vector<double> samples(random_data& random, std::size_t N, sample draw) {
    std::vector<double> values(N);
    for (double& value : values)
        value = draw(random);
    return values;
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
    constexpr double spacings[] = {
        0.0,    -0.0,     -0.01,     1.0 / 3.0, -7.0,      std::numeric_limits<double>::denorm_min(),
        1e-310, 0x1p1000, -0x1p1023, infinity,  -infinity, nan};
    for_each_size(steps, [&](std::size_t row, std::size_t N) {
        for (const double dt : spacings)
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
            constexpr sample small_integer = [](random_data& r) {
                return double(r.below(5)) - 2.0;
            };
            const std::vector<double> g = samples(random, N, small_integer), K = samples(random, N, small_integer);
            compare(g, K, std::ldexp(1.0, int(random.below(64)) - 6), row, counts);
        }
    });
    EXPECT_GT(counts.solved, 1000);
    EXPECT_GT(counts.singular, 100);
}

} // namespace

} // namespace quenta_tests
