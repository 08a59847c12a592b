// Shared by the comparisons of sample-based solvers with their reference implementations: what must agree, the numbers
// of steps, the data, and the calls of the reference implementations.
#pragma once

#include "conformance/every_solver.hpp"
#include "reference/solution.hpp"
#include "reference/vide.hpp"
#include "reference/vie1.hpp"
#include "reference/vie2.hpp"
#include "support/bits.hpp"
#include "support/random_data.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <limits>
#include <ostream>
#include <span>
#include <string>
#include <vector>

namespace quenta_tests {

inline constexpr double infinity = std::numeric_limits<double>::infinity();
inline constexpr double nan = std::numeric_limits<double>::quiet_NaN();

// ---- What must agree ----

// How many problems ended in each status, so that a test can check that it saw the cases it is about.
struct comparison_counts {
    int solved = 0;
    int singular = 0;
    int refused = 0;

    int all() const { return solved + singular + refused; }
};

// Cells of a step that hold no coefficient must be untouched.
inline ::testing::AssertionResult equal_coefficients(const reference::solution& expected,
                                                     std::span<const double> coeffs) {
    const std::size_t written = std::size_t(expected.meaningful_of_a_step);
    const std::size_t stride = std::size_t(expected.coefficients_of_a_step);
    for (std::size_t n = 0; n < std::size_t(expected.steps); ++n) {
        const ::testing::AssertionResult equal = equal_bits(
            std::span{expected.coefficients}.subspan(n * stride, written), coeffs.subspan(n * stride, written));
        if (!equal)
            return ::testing::AssertionFailure() << "coefficients of step " << n << ": " << equal.message();
        for (const double cell : coeffs.subspan(n * stride + written, stride - written))
            if (!is_marked(cell))
                return ::testing::AssertionFailure() << "expected the last slot of step " << n << " to be untouched";
    }
    return ::testing::AssertionSuccess();
}

// Compares everything that is written, and checks that nothing else is. Call it where a SCOPED_TRACE names the problem.
inline void expect_equal(const reference::solution& expected, const sampled_answer& actual, bool want_coeffs) {
    if (!expected.solved) {
        ASSERT_EQ(actual.status, QUENTA_SINGULAR_BLOCK);
        ASSERT_TRUE(actual.untouched()) << "expected no output for a singular block";
        return;
    }
    ASSERT_EQ(actual.status, QUENTA_SOLVED);
    ASSERT_EQ(actual.n_steps, expected.steps);
    ASSERT_TRUE(equal_bits(expected.out, actual.out.values()));
    ASSERT_TRUE(actual.out.fences_hold()) << "the solver wrote outside out";
    ASSERT_TRUE(actual.coeffs.fences_hold()) << "the solver wrote outside coeffs";
    if (want_coeffs)
        ASSERT_TRUE(equal_coefficients(expected, actual.coeffs.values()));
    else
        ASSERT_TRUE(actual.coeffs.untouched()) << "expected coeffs to be untouched, since want_coeffs is 0";
}

// ---- Numbers of steps ----

// No step, a few, and both sides of the lengths at which the history changes its algorithm.
inline constexpr std::array boundary_steps{0, 1, 2, 3, 33, 64, 65, 66, 67, 68, 69, 70, 130};

// Calls visit(row number, number of samples) for every row. Two rows of three have samples past the last whole step.
// There are always enough samples for the kernel of the first step, so rows with nodes at both ends have at least one
// step.
template <class visitor>
void for_each_row(int steps, const visitor& visit) {
    for (std::size_t row = 0; row < reference::settings().size(); ++row) {
        const reference::setting& setting = reference::settings()[row];
        const int S = setting.m * setting.m;
        const int N = std::max(steps * S + 1 + int(row % 3) * (S - 1) / 2, present_samples(setting));
        if (!::testing::Test::HasFatalFailure())
            visit(row, std::size_t(N));
    }
}

// ---- Data ----

using sample = double (*)(random_data&);

inline double ordinary(random_data& random) {
    return random.uniform_value();
}
inline double positive(random_data& random) {
    return random.uniform_value(0.5, 1.5);
}
inline double over_24_binary_orders(random_data& random) {
    return random.wide_value(12);
}
inline double over_all_binary_orders(random_data& random) {
    return random.wide_value(1020);
}
inline double subnormal(random_data& random) {
    return random.uniform_value(-0x1p-1024, 0x1p-1024);
}
inline double zero_of_either_sign(random_data& random) {
    return random.below(2) == 0 ? 0.0 : -0.0;
}
inline double sometimes_special(random_data& random) {
    return random.below(64) == 0 ? random.special_value() : random.uniform_value();
}
inline double non_finite(random_data& random) {
    return random.below(2) == 0 ? nan : random.below(2) == 0 ? infinity : -infinity;
}
inline double small_integer(random_data& random) {
    return double(random.below(5)) - 2.0;
}

inline std::vector<double> samples(random_data& random, std::size_t count, sample draw) {
    std::vector<double> values(count);
    for (double& value : values)
        value = draw(random);
    return values;
}

struct data_kind {
    const char* name;
    double dt;
    sample g, K;
};

inline void PrintTo(const data_kind& kind, std::ostream* stream) {
    *stream << kind.name;
}

// If the spacing is a power of two or much smaller than 1, the results do not depend on the order of products with it.
// So several spacings are neither.
inline constexpr data_kind data_kinds[] = {
    {"ordinary", 0.05, ordinary, ordinary},
    {"growing", 0.2, positive, positive},
    {"negative_spacing", -3.0, over_24_binary_orders, over_24_binary_orders},
    {"huge", 0x1p10, over_all_binary_orders, over_24_binary_orders},
    {"subnormal", 1.0, subnormal, ordinary},
    {"signed_zeros_in_g", 0.5, zero_of_either_sign, ordinary},
    {"signed_zeros_in_K", 0.5, ordinary, zero_of_either_sign},
    {"some_special_values", 0.1, sometimes_special, sometimes_special},
};

inline constexpr double extreme_spacings[] = {
    0.0,    -0.0,     -0.01,     1.0 / 3.0, -7.0,      std::numeric_limits<double>::denorm_min(),
    1e-310, 0x1p1000, -0x1p1023, infinity,  -infinity, nan};

// ---- Problems ----

struct sampled_problem {
    std::size_t row_number;
    double dt;
    system_samples data;

    const reference::setting& row() const { return reference::settings()[row_number]; }
    std::string text() const {
        return "row " + std::to_string(row_number) + ", D = " + std::to_string(data.D) +
               ", N = " + std::to_string(data.N()) + ", dt = " + in_hexadecimal(dt);
    }
};

// kind.g draws the forcing and the initial value, kind.K the kernel and the coefficient. Nothing is symmetric.
inline sampled_problem random_problem(random_data& random, std::size_t row, int D, std::size_t N,
                                      const data_kind& kind = data_kinds[0]) {
    sampled_problem problem{row, kind.dt, system_samples{D}};
    problem.data.g = samples(random, N * D, kind.g);
    problem.data.K = samples(random, N * D * D, kind.K);
    problem.data.a = samples(random, N * D * D, kind.K);
    problem.data.y0 = samples(random, D, kind.g);
    return problem;
}

// ---- Reference implementations ----

inline reference::solution reference_of(const sampled_solver& solver, const sampled_problem& problem) {
    const auto& [D, g, K, a, y0] = problem.data;
    switch (solver.kind) {
    case equation::first_kind:
        return reference::solve_vie1(g, K, D, y0, problem.dt, solver.carries_value, problem.row());
    case equation::second_kind:
        return reference::solve_vie2(g, K, D, problem.dt, problem.row());
    case equation::integro_differential:
        break;
    }
    constexpr int largest_fixed_dimension = 8;
    const reference::vide_variant variant = !solver.solves_systems         ? reference::vide_variant::scalar
                                            : D <= largest_fixed_dimension ? reference::vide_variant::fixed_dimension
                                                                           : reference::vide_variant::any_dimension;
    return reference::solve_vide(variant, g, K, a, D, y0, problem.dt, problem.row());
}

} // namespace quenta_tests
