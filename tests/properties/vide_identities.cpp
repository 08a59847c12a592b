// Identities of quenta_solve_vide that need no reference, for every row: what it reproduces, how it scales, and what a
// value cannot depend on.
#include "conformance/sampled_promises.hpp"
#include "conformance/vide_call.hpp"
#include "properties/quadrature_order.hpp"
#include "properties/volterra_problem.hpp"
#include "support/random_data.hpp"

#include <algorithm>
#include <cmath>
#include <span>

namespace quenta_tests {

namespace {

using reference::setting;

bool any_row(const setting&) {
    return true;
}

// Runs on both sides of the transform's first use.
constexpr int runs[] = {1, 7, 40, 150};

struct equation {
    equation(random_data& random, int steps, const setting& row) {
        const std::size_t N = std::size_t(steps * row.m * row.m + 1);
        g = random.uniform(N);
        K = random.uniform(N);
        a = random.uniform(N);
        y0 = random.uniform_value();
    }

    sampled_answer solve(const setting& row, double dt = 0.01) const {
        sampled_answer answer = call_vide(g, K, a, y0, dt, row);
        EXPECT_EQ(answer.status, QUENTA_SOLVED);
        return answer;
    }

    std::vector<double> g, K, a;
    double y0;
};

std::vector<double> times(double factor, std::span<const double> values) {
    std::vector<double> products;
    for (const double value : values)
        products.push_back(factor * value);
    return products;
}

// A step carries polynomials of degree P whatever the coefficient is, and the rule integrates K(t - s) y(s) exactly
// when the degrees of both stay below its order. One degree more and it does not.
TEST(vide_identities, polynomials_are_reproduced_up_to_the_degree_of_the_rule) {
    constexpr int steps = 8;
    random_data random{20260601};
    const polynomial dense{1.0, 0.9, -0.8, 0.7, -0.6, 0.5, 0.4};
    const auto of_degree = [&](int degree) {
        return polynomial(dense.begin(), dense.begin() + degree + 1);
    };
    int exact = 0, inexact = 0;
    for_each_setting(any_row, [&](const setting& row) {
        const int P = int(row.indices.size()), r = quadrature_order(row);
        for (int of_y = 0; of_y <= P; ++of_y)
            for (int of_K = 0; of_K + of_y <= r; ++of_K) {
                const volterra_problem problem = polynomial_problem("", of_degree(of_y), of_degree(of_K));
                polynomial derivative;
                for (int k = 1; k <= of_y; ++k)
                    derivative.push_back(k * dense[std::size_t(k)]);
                const int N = steps * row.m * row.m + 1;
                const double dt = 2.0 / (N - 1);
                std::vector<double> g, K;
                const std::vector<double> a = random.uniform(std::size_t(N), -1.0, 0.0);
                for (int i = 0; i < N; ++i) {
                    const double t = i * dt;
                    g.push_back(value(derivative, t) - a[std::size_t(i)] * problem.y(t) - problem.convolution(t));
                    K.push_back(problem.K(t));
                }
                const sampled_answer answer = call_vide(g, K, a, problem.y(0.0), dt, row);
                ASSERT_EQ(answer.status, QUENTA_SOLVED);
                double error = 0.0;
                for (int i = 0; i < N; ++i)
                    error = std::max(error, std::fabs(answer.out.values()[std::size_t(i)] - problem.y(i * dt)));
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

// An unknown is a derivative, so that it takes the inverse power.
TEST(vide_identities, scaling_time_by_a_power_of_two_changes_no_bit) {
    random_data random{20260602};
    for_each_setting(any_row, [&](const setting& row) {
        for (const int steps : runs) {
            const equation once{random, steps, row};
            const sampled_answer answer = once.solve(row);
            for (const double factor : {2.0, -1.0, 0x1p-40}) {
                equation scaled = once;
                scaled.g = times(factor, once.g);
                scaled.a = times(factor, once.a);
                scaled.K = times(factor * factor, once.K);
                const sampled_answer same = scaled.solve(row, 0.01 / factor);
                EXPECT_TRUE(equal_bits(answer.out.values(), same.out.values())) << steps << " steps, " << factor;
                EXPECT_TRUE(equal_bits(answer.coeffs.values(), same.coeffs.values())) << steps << " steps, " << factor;
            }
        }
    });
}

TEST(vide_identities, what_drives_later_steps_does_not_reach_back) {
    random_data random{20260603};
    constexpr int steps = 150;
    for_each_setting(any_row, [&](const setting& row) {
        const equation once{random, steps, row};
        const sampled_answer answer = once.solve(row);
        const std::size_t slots = row.indices.size() + 1;
        for (const int unchanged : {1, 2, 31, 32, 33, 64, 100, 128, 140}) {
            equation other = once;
            for (std::size_t i = std::size_t(unchanged * row.m * row.m + 1); i < once.g.size(); ++i) {
                other.g[i] = random.uniform_value();
                other.a[i] = random.uniform_value();
            }
            // The sample on the boundary belongs to both steps, as a node of either.
            const sampled_answer changed = other.solve(row);
            const std::size_t known = std::size_t(unchanged) * slots;
            EXPECT_TRUE(equal_bits(answer.coeffs.values().first(known), changed.coeffs.values().first(known)))
                << unchanged << " steps";
            EXPECT_FALSE(equal_bits(answer.coeffs.values(), changed.coeffs.values())) << unchanged << " steps";
        }
    });
}

// Rows of different m can have the same collocation parameters. On a grid that is finer by the square of the factor
// they have the same step, and then the same polynomials. All samples in between are NaN: they are not read.
TEST(vide_identities, the_same_parameters_on_a_finer_grid_give_the_same_polynomials) {
    random_data random{20260604};
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    int pairs = 0;
    for_each_setting(any_row, [&](const setting& row) {
        for (const int factor : {2, 4}) {
            if (row.m * factor > 4)
                continue;
            ++pairs;
            setting finer = row;
            finer.m *= factor;
            for (int& index : finer.indices)
                index *= factor;
            for (const int steps : runs) {
                const equation coarse{random, steps, row};
                equation fine{random, steps, finer};
                fine.y0 = coarse.y0;
                const auto spread = [&](std::vector<double>& to, const std::vector<double>& from) {
                    std::fill(to.begin(), to.end(), nan);
                    for (std::size_t i = 0; i < from.size(); ++i)
                        to[i * std::size_t(factor * factor)] = from[i];
                };
                spread(fine.g, coarse.g);
                spread(fine.K, coarse.K);
                spread(fine.a, coarse.a);
                EXPECT_TRUE(equal_bits(coarse.solve(row).coeffs.values(),
                                       fine.solve(finer, 0.01 / (factor * factor)).coeffs.values()))
                    << steps << " steps";
            }
        }
    });
    EXPECT_EQ(pairs, 3 * 2 + 7);
}

} // namespace

} // namespace quenta_tests
