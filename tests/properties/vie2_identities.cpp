// Identities of quenta_solve_vie2 that need no reference, for every row: what it reproduces, how it scales, and what a
// value cannot depend on.
#include "conformance/vie2_call.hpp"
#include "properties/quadrature_order.hpp"
#include "properties/volterra_problem.hpp"
#include "support/bits.hpp"
#include "support/random_data.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>
#include <string>

namespace quenta_tests {

namespace {

using reference::setting;

// Calls visit(row) for all 56 rows.
template <class visitor>
void for_each_row(const visitor& visit) {
    int number = 0;
    for (const setting& row : reference::settings()) {
        SCOPED_TRACE("row " + std::to_string(number++));
        visit(row);
    }
    ASSERT_EQ(number, 56);
}

std::size_t samples_of(int steps, const setting& row) {
    return std::size_t(steps * row.m * row.m + 1);
}

// The coefficients that were written: P for each step.
std::vector<double> polynomials(const sampled_answer& answer, const setting& row, int steps) {
    EXPECT_EQ(answer.status, QUENTA_SOLVED);
    const std::size_t P = row.indices.size();
    std::vector<double> written;
    for (std::size_t n = 0; n < std::size_t(steps); ++n)
        for (std::size_t p = 0; p < P; ++p)
            written.push_back(answer.coeffs.values()[n * (P + 1) + p]);
    return written;
}

std::vector<double> times(double factor, std::span<const double> values) {
    std::vector<double> products;
    for (const double value : values)
        products.push_back(factor * value);
    return products;
}

::testing::AssertionResult close(std::span<const double> expected, std::span<const double> actual) {
    double scale = 0.0;
    for (const double value : expected)
        scale = std::max(scale, std::fabs(value));
    if (expected.size() != actual.size() || scale == 0.0)
        return ::testing::AssertionFailure() << "nothing to compare: " << expected.size() << ", " << actual.size();
    for (std::size_t i = 0; i < expected.size(); ++i)
        if (!(std::fabs(expected[i] - actual[i]) <= 1e-11 * scale))
            return equal_bits(expected[i], actual[i]) << "\n  at index " << i << ", largest value " << scale;
    return ::testing::AssertionSuccess();
}

// Runs on both sides of the transform's first use.
constexpr int runs[] = {1, 7, 40, 150};

// A step carries polynomials of degree P - 1, and the rule integrates K(t - s) y(s) exactly when the degrees of both
// stay below its order. One degree more and it does not.
TEST(vie2_identities, polynomials_are_reproduced_up_to_the_degree_of_the_rule) {
    constexpr int steps = 8;
    const polynomial dense{1.0, 0.9, -0.8, 0.7, -0.6, 0.5, 0.4};
    const auto of_degree = [&](int degree) {
        return polynomial(dense.begin(), dense.begin() + degree + 1);
    };
    int exact = 0, inexact = 0;
    for_each_row([&](const setting& row) {
        const int P = int(row.indices.size()), r = quadrature_order(row);
        for (int of_y = 0; of_y < P; ++of_y)
            for (int of_K = 0; of_K + of_y <= r; ++of_K) {
                const volterra_problem problem = polynomial_problem("", of_degree(of_y), of_degree(of_K));
                const std::size_t N = samples_of(steps, row);
                const double dt = 2.0 / double(N - 1);
                std::vector<double> g, K;
                for (std::size_t i = 0; i < N; ++i) {
                    g.push_back(problem.g(double(i) * dt));
                    K.push_back(problem.K(double(i) * dt));
                }
                const sampled_answer answer = call_vie2(g, K, dt, row);
                ASSERT_EQ(answer.status, QUENTA_SOLVED);
                double error = 0.0;
                for (std::size_t i = 0; i < N; ++i)
                    error = std::max(error, std::fabs(answer.out.values()[i] - problem.y(double(i) * dt)));
                if (of_K + of_y < r) {
                    ++exact;
                    EXPECT_LT(error, 1e-12) << "y of degree " << of_y << ", K of degree " << of_K;
                } else {
                    ++inexact;
                    EXPECT_GT(error, 1e-10) << "y of degree " << of_y << ", K of degree " << of_K;
                }
            }
    });
    EXPECT_GT(exact, 200);
    EXPECT_GT(inexact, 100);
}

TEST(vie2_identities, scaling_the_forcing_by_a_power_of_two_scales_every_bit) {
    random_data random{101};
    for_each_row([&](const setting& row) {
        for (const int steps : runs) {
            const std::vector<double> g = random.uniform(samples_of(steps, row)), K = random.uniform(g.size());
            const sampled_answer once = call_vie2(g, K, 0.01, row);
            for (const double factor : {2.0, -1.0, 0x1p-40}) {
                const sampled_answer scaled = call_vie2(times(factor, g), K, 0.01, row);
                EXPECT_TRUE(equal_bits(times(factor, polynomials(once, row, steps)), polynomials(scaled, row, steps)))
                    << steps << " steps, factor " << factor;
            }
        }
    });
}

TEST(vie2_identities, scaling_time_by_a_power_of_two_changes_no_bit) {
    random_data random{102};
    for_each_row([&](const setting& row) {
        for (const int steps : runs) {
            const std::vector<double> g = random.uniform(samples_of(steps, row)), K = random.uniform(g.size());
            const sampled_answer once = call_vie2(g, K, 0.01, row);
            for (const double factor : {2.0, -1.0, 0x1p-40}) {
                const sampled_answer scaled = call_vie2(g, times(factor, K), 0.01 / factor, row);
                EXPECT_TRUE(equal_bits(polynomials(once, row, steps), polynomials(scaled, row, steps)))
                    << steps << " steps, factor " << factor;
                EXPECT_TRUE(equal_bits(once.out.values(), scaled.out.values()));
            }
        }
    });
}

TEST(vie2_identities, the_sum_of_two_forcings_gives_the_sum_of_the_solutions) {
    random_data random{103};
    for_each_row([&](const setting& row) {
        for (const int steps : runs) {
            const std::vector<double> g1 = random.uniform(samples_of(steps, row)), g2 = random.uniform(g1.size()),
                                      K = random.uniform(g1.size());
            std::vector<double> g = g1;
            for (std::size_t i = 0; i < g.size(); ++i)
                g[i] += g2[i];
            std::vector<double> sum = polynomials(call_vie2(g1, K, 0.01, row), row, steps);
            const std::vector<double> second = polynomials(call_vie2(g2, K, 0.01, row), row, steps);
            for (std::size_t i = 0; i < sum.size(); ++i)
                sum[i] += second[i];
            EXPECT_TRUE(close(sum, polynomials(call_vie2(g, K, 0.01, row), row, steps))) << steps << " steps";
        }
    });
}

TEST(vie2_identities, the_forcing_of_later_steps_does_not_reach_back) {
    random_data random{104};
    constexpr int steps = 150;
    for_each_row([&](const setting& row) {
        const std::vector<double> g = random.uniform(samples_of(steps, row)), K = random.uniform(g.size());
        const std::vector<double> once = polynomials(call_vie2(g, K, 0.01, row), row, steps);
        for (const int unchanged : {1, 2, 31, 32, 33, 64, 100, 128, 140}) {
            std::vector<double> other = g;
            for (std::size_t i = samples_of(unchanged, row); i < other.size(); ++i)
                other[i] = random.uniform_value();
            // The sample on the boundary belongs to both steps, as a node of either.
            const std::vector<double> changed = polynomials(call_vie2(other, K, 0.01, row), row, steps);
            const std::size_t known = std::size_t(unchanged) * row.indices.size();
            EXPECT_TRUE(equal_bits(std::span{once}.first(known), std::span{changed}.first(known))) << unchanged;
            EXPECT_FALSE(equal_bits(once, changed)) << unchanged;
        }
    });
}

// In a transformed block, later lags take part in the rounding of earlier sums. Before the transform comes into play,
// no bit changes.
TEST(vie2_identities, the_kernel_at_later_lags_does_not_reach_back) {
    random_data random{105};
    for (const int steps : {60, 150})
        for_each_row([&](const setting& row) {
            const std::vector<double> g = random.uniform(samples_of(steps, row)), K = random.uniform(g.size());
            const std::vector<double> once = polynomials(call_vie2(g, K, 0.01, row), row, steps);
            for (const int unchanged : {1, 2, 31, 32, 33, 50, 59}) {
                std::vector<double> other = K;
                for (std::size_t i = samples_of(unchanged, row); i < other.size(); ++i)
                    other[i] = random.uniform_value();
                const std::vector<double> changed = polynomials(call_vie2(g, other, 0.01, row), row, steps);
                const std::size_t known = std::size_t(unchanged) * row.indices.size();
                if (steps < 64) {
                    EXPECT_TRUE(equal_bits(std::span{once}.first(known), std::span{changed}.first(known)));
                }
                EXPECT_TRUE(close(std::span{once}.first(known), std::span{changed}.first(known))) << unchanged;
            }
        });
}

TEST(vie2_identities, a_longer_run_begins_with_the_shorter_one) {
    random_data random{106};
    for_each_row([&](const setting& row) {
        const std::vector<double> g = random.uniform(samples_of(300, row)), K = random.uniform(g.size());
        const auto run = [&](int steps) {
            const std::ptrdiff_t N = std::ptrdiff_t(samples_of(steps, row));
            return polynomials(call_vie2({g.begin(), g.begin() + N}, {K.begin(), K.begin() + N}, 0.01, row), row,
                               steps);
        };
        const std::vector<double> longest = run(300), direct = run(63);
        for (const int steps : {1, 2, 31, 32, 63, 64, 65, 96, 128, 200}) {
            const std::vector<double> shorter = run(steps);
            EXPECT_TRUE(close(std::span{longest}.first(shorter.size()), shorter)) << steps << " steps";
            if (steps < 64) {
                EXPECT_TRUE(equal_bits(std::span{direct}.first(shorter.size()), shorter)) << steps << " steps";
            }
        }
    });
}

// Rows of different m can have the same collocation parameters. On a grid that is finer by the square of the factor
// they have the same step, and then the same polynomials. All samples in between are NaN: they are not read.
TEST(vie2_identities, the_same_parameters_on_a_finer_grid_give_the_same_polynomials) {
    random_data random{107};
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    int pairs = 0;
    for_each_row([&](const setting& row) {
        for (const int factor : {2, 4}) {
            if (row.m * factor > 4)
                continue;
            ++pairs;
            setting finer = row;
            finer.m *= factor;
            for (int& index : finer.indices)
                index *= factor;
            for (const int steps : runs) {
                const std::vector<double> g = random.uniform(samples_of(steps, row)), K = random.uniform(g.size());
                std::vector<double> fine_g(samples_of(steps, finer), nan), fine_K = fine_g;
                for (std::size_t i = 0; i < g.size(); ++i) {
                    fine_g[i * std::size_t(factor * factor)] = g[i];
                    fine_K[i * std::size_t(factor * factor)] = K[i];
                }
                const sampled_answer coarse = call_vie2(g, K, 0.01, row);
                const sampled_answer fine = call_vie2(fine_g, fine_K, 0.01 / (factor * factor), finer);
                EXPECT_TRUE(equal_bits(polynomials(coarse, row, steps), polynomials(fine, finer, steps))) << steps;
                for (std::size_t i = 0; i < g.size(); ++i)
                    EXPECT_TRUE(
                        equal_bits(coarse.out.values()[i], fine.out.values()[i * std::size_t(factor * factor)]));
            }
        }
    });
    EXPECT_EQ(pairs, 3 * 2 + 7);
}

} // namespace

} // namespace quenta_tests
