// Relations that hold for every solver and any data: linearity, scaling, causality, and the polynomials that a scheme
// integrates exactly.
#include "conformance/sampled_promises.hpp"
#include "properties/quadrature_order.hpp"
#include "properties/random_system.hpp"
#include "properties/volterra_problem.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <span>
#include <string>

namespace quenta_tests {

namespace {

using reference::setting;

constexpr double dt = 0.01;
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

std::vector<double> times(double factor, std::span<const double> values) {
    std::vector<double> products;
    for (const double value : values)
        products.push_back(factor * value);
    return products;
}
std::vector<double> sum_of(std::span<const double> left, std::span<const double> right) {
    std::vector<double> sums;
    for (std::size_t index = 0; index < left.size(); ++index)
        sums.push_back(left[index] + right[index]);
    return sums;
}

// Equal to rounding, relative to the largest value.
::testing::AssertionResult close(std::span<const double> expected, std::span<const double> actual) {
    double scale = 0.0;
    for (const double value : expected)
        scale = std::max(scale, std::fabs(value));
    if (expected.size() != actual.size() || scale == 0.0)
        return ::testing::AssertionFailure()
               << "expected " << expected.size() << " values that are not all zero, got " << actual.size();
    for (std::size_t index = 0; index < expected.size(); ++index)
        if (!(std::fabs(expected[index] - actual[index]) <= 1e-11 * scale))
            return equal_bits(expected[index], actual[index])
                   << "\n  at index " << index << ", largest value " << scale;
    return ::testing::AssertionSuccess();
}

int samples_of(int steps, const setting& row) {
    return steps * row.m * row.m + 1;
}

class every_solution : public ::testing::TestWithParam<sampled_solver> {
protected:
    // Calls visit(setting, random system) for all suitable settings and each of the numbers of steps.
    template <class visitor>
    static void for_each_system(const std::vector<int>& step_counts, const visitor& visit) {
        random_data random{20260401};
        const auto suits = [](const setting& row) {
            return GetParam().suits(row);
        };
        for_each_setting(suits, [&](const setting& row) {
            for (const int D : GetParam().solves_systems ? std::vector{2, 9} : std::vector{1})
                for (const int steps : step_counts) {
                    SCOPED_TRACE("D = " + std::to_string(D) + ", " + std::to_string(steps) + " steps");
                    visit(row, random_system(random, D, samples_of(steps, row)));
                }
        });
    }

    static sampled_answer solve(const system_samples& data, const setting& row, double spacing = dt) {
        sampled_answer answer = GetParam().solve(data, spacing, row, 1);
        EXPECT_EQ(answer.status, QUENTA_SOLVED);
        return answer;
    }

    // The coefficients of all steps, without the unused slots.
    static std::vector<double> polynomials(const system_samples& data, const setting& row, double spacing = dt) {
        const sampled_answer answer = solve(data, row, spacing);
        const std::size_t written = doubles_of_a_step(data, row), stride = (row.indices.size() + 1) * data.D;
        std::vector<double> coefficients;
        for (std::size_t n = 0; n < std::size_t(answer.n_steps); ++n) {
            const std::span<const double> step = answer.coeffs.values().subspan(n * stride, written);
            coefficients.insert(coefficients.end(), step.begin(), step.end());
        }
        return coefficients;
    }
    static std::size_t doubles_of_a_step(const system_samples& data, const setting& row) {
        return std::size_t(GetParam().powers(row) * data.D);
    }
};

TEST_P(every_solution, scales_exactly_with_forcing_and_initial_value) {
    for_each_system({1, 7, 70}, [](const setting& row, const system_samples& data) {
        const std::vector<double> once = polynomials(data, row);
        for (const double factor : {2.0, -1.0, 0x1p-40}) {
            system_samples driven = data;
            driven.g = times(factor, data.g);
            driven.y0 = times(factor, data.y0);
            ASSERT_TRUE(equal_bits(times(factor, once), polynomials(driven, row))) << "factor " << factor;
        }
    });
}

// The unit of a kernel is 1 / time; that of an integro-differential equation is 1 / time^2.
TEST_P(every_solution, is_unchanged_when_the_unit_of_time_is_scaled_by_a_power_of_two) {
    for_each_system({1, 7, 70}, [](const setting& row, const system_samples& data) {
        const sampled_answer once = solve(data, row);
        for (const double factor : {2.0, -1.0, 0x1p-40}) {
            system_samples scaled = data;
            scaled.K = times(factor, data.K);
            if (GetParam().kind == equation::integro_differential) {
                scaled.K = times(factor, scaled.K);
                scaled.a = times(factor, data.a);
                scaled.g = times(factor, data.g);
            }
            const sampled_answer same = solve(scaled, row, dt / factor);
            ASSERT_TRUE(equal_bits(once.out.values(), same.out.values())) << "factor " << factor;
            ASSERT_TRUE(equal_bits(once.coeffs.values(), same.coeffs.values())) << "factor " << factor;
        }
    });
}

TEST_P(every_solution, is_additive_in_forcing_and_initial_value) {
    random_data random{20260402};
    for_each_system({1, 7, 70}, [&](const setting& row, const system_samples& one) {
        system_samples other = one, both = one;
        other.g = random.uniform(one.g.size());
        other.y0 = random.uniform(one.y0.size());
        both.g = sum_of(one.g, other.g);
        both.y0 = sum_of(one.y0, other.y0);
        ASSERT_TRUE(close(sum_of(polynomials(one, row), polynomials(other, row)), polynomials(both, row)));
    });
}

TEST_P(every_solution, does_not_depend_on_forcing_or_coefficient_of_later_steps) {
    for_each_system({130}, [&](const setting& row, const system_samples& data) {
        const std::vector<double> once = polynomials(data, row);
        for (const int unchanged : {1, 31, 33, 64, 128}) {
            system_samples other = data;
            // The sample on the boundary may be a node of either step, so it is not changed.
            const int first = samples_of(unchanged, row) * data.D;
            std::fill(other.g.begin() + first, other.g.end(), nan);
            std::fill(other.a.begin() + first * data.D, other.a.end(), nan);
            const std::vector<double> changed = polynomials(other, row);
            const std::size_t known = std::size_t(unchanged) * doubles_of_a_step(data, row);
            ASSERT_TRUE(std::isfinite(once[known - 1]));
            ASSERT_TRUE(equal_bits(std::span{once}.first(known), std::span{changed}.first(known))) << unchanged;
            ASSERT_TRUE(std::isnan(changed.back())) << unchanged;
        }
    });
}

// In a transformed block, later lags affect the rounding of earlier sums. With too few steps for the transform, no bit
// changes.
TEST_P(every_solution, does_not_depend_on_the_kernel_at_later_lags) {
    random_data random{20260403};
    for_each_system({60, 130}, [&](const setting& row, const system_samples& data) {
        const std::vector<double> once = polynomials(data, row);
        for (const int unchanged : {1, 2, 32, 33, 59}) {
            system_samples other = data;
            for (std::size_t index = std::size_t(samples_of(unchanged, row) * data.D * data.D); index < data.K.size();
                 ++index)
                other.K[index] += random.uniform_value(-0.1, 0.1);
            const std::vector<double> changed = polynomials(other, row);
            const std::size_t known = std::size_t(unchanged) * doubles_of_a_step(data, row);
            if (data.N() == samples_of(60, row)) {
                ASSERT_TRUE(equal_bits(std::span{once}.first(known), std::span{changed}.first(known))) << unchanged;
            }
            ASSERT_TRUE(close(std::span{once}.first(known), std::span{changed}.first(known))) << unchanged;
        }
    });
}

TEST_P(every_solution, with_fewer_samples_is_the_beginning_of_that_with_more) {
    for_each_system({150}, [](const setting& row, const system_samples& data) {
        const auto run = [&](int steps) {
            const std::size_t N = std::size_t(samples_of(steps, row));
            system_samples fewer = data;
            fewer.g.resize(N * data.D);
            fewer.K.resize(N * data.D * data.D);
            fewer.a.resize(N * data.D * data.D);
            return polynomials(fewer, row);
        };
        const std::vector<double> longest = polynomials(data, row), direct = run(63);
        for (const int steps : {1, 31, 32, 63, 64, 65, 96, 128}) {
            const std::vector<double> shorter = run(steps);
            ASSERT_TRUE(close(std::span{longest}.first(shorter.size()), shorter)) << steps << " steps";
            if (steps < 64) {
                ASSERT_TRUE(equal_bits(std::span{direct}.first(shorter.size()), shorter)) << steps << " steps";
            }
        }
    });
}

// Settings of different m can have the same nodes c. On a grid that is finer by the square of the factor, the steps are
// the same, and so are the polynomials. All samples in between are NaN, since they must not be read.
TEST_P(every_solution, is_the_same_on_a_finer_grid_with_the_same_nodes) {
    int pairs = 0;
    for_each_system({1, 7, 70}, [&](const setting& row, const system_samples& coarse) {
        for (const int factor : {2, 4}) {
            if (row.m * factor > 4)
                continue;
            setting finer = row;
            finer.m *= factor;
            for (int& index : finer.indices)
                index *= factor;
            const std::size_t spread = std::size_t(factor * factor);
            const auto spread_out = [&](const std::vector<double>& samples) {
                const std::size_t width = samples.size() / coarse.N();
                std::vector<double> result(((coarse.N() - 1) * spread + 1) * width, nan);
                for (std::size_t index = 0; index < samples.size(); ++index)
                    result[index / width * spread * width + index % width] = samples[index];
                return result;
            };
            system_samples fine = coarse;
            fine.g = spread_out(coarse.g);
            fine.K = spread_out(coarse.K);
            fine.a = spread_out(coarse.a);
            ASSERT_TRUE(equal_bits(polynomials(coarse, row), polynomials(fine, finer, dt / double(spread))));
            ++pairs;
        }
    });
    EXPECT_GT(pairs, 0);
}

INSTANTIATE_TEST_SUITE_P(solver, every_solution, ::testing::ValuesIn(every_solver),
                         [](const auto& instance) { return std::string{instance.param.name}; });

// ---- Polynomials that are reproduced ----

class reproduction : public ::testing::TestWithParam<sampled_solver> {};

// The quadrature rule integrates K(t - s) y(s) exactly if the degree of the product is below its order, for any
// coefficient. For one degree more it does not.
TEST_P(reproduction, is_exact_if_the_degree_of_the_integrand_is_below_the_order_of_the_rule) {
    constexpr int steps = 8;
    const sampled_solver& solver = GetParam();
    random_data random{20260404};
    const polynomial dense{1.0, 0.9, -0.8, 0.7, -0.6, 0.5, 0.4};
    const auto of_degree = [&](int degree) {
        return polynomial(dense.begin(), dense.begin() + degree + 1);
    };
    int exact = 0, inexact = 0;
    const auto any_row = [](const setting&) {
        return true;
    };
    for_each_setting(any_row, [&](const setting& row) {
        const int order = quadrature_order(row), N = samples_of(steps, row);
        for (int of_y = 0; of_y < solver.powers(row); ++of_y)
            for (int of_K = 0; of_K + of_y <= order; ++of_K) {
                const volterra_problem problem = polynomial_problem("", of_degree(of_y), of_degree(of_K));
                polynomial derivative;
                for (int p = 1; p <= of_y; ++p)
                    derivative.push_back(p * dense[std::size_t(p)]);
                const double spacing = 2.0 / (N - 1);
                system_samples data{1};
                data.y0.push_back(problem.y(0.0));
                for (int sample = 0; sample < N; ++sample) {
                    const double t = sample * spacing, a = random.uniform_value(-1.0, 0.0);
                    data.K.push_back(problem.K(t));
                    data.a.push_back(a);
                    data.g.push_back(solver.kind == equation::second_kind
                                         ? problem.g(t)
                                         : value(derivative, t) - a * problem.y(t) - problem.convolution(t));
                }
                const sampled_answer answer = solver.solve(data, spacing, row, 1);
                ASSERT_EQ(answer.status, QUENTA_SOLVED);
                double error = 0.0;
                for (int sample = 0; sample < N; ++sample)
                    error = std::max(error, std::fabs(answer.out.values()[sample] - problem.y(sample * spacing)));
                if (of_K + of_y < order) {
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

INSTANTIATE_TEST_SUITE_P(solver, reproduction, ::testing::Values(solver_named("vie2"), solver_named("vide")),
                         [](const auto& instance) { return std::string{instance.param.name}; });

} // namespace

} // namespace quenta_tests
